#include "VeskCore/Brain/Filing/OrganiseSettings.h"

#include <utility>

#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Json.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk {

namespace {

/// The texts at a key, none without the key; throws JsonError for anything else.
std::vector<std::string> texts(const Json& json, std::string_view key) {
    const auto* value = json.find(key);
    if (!value) return {};
    if (!value->asArray()) throw JsonError("A list was expected at “" + std::string(key) + "”.");
    std::vector<std::string> list;
    for (const auto& entry : *value->asArray()) {
        if (!entry.asString()) throw JsonError("A text was expected in “" + std::string(key) + "”.");
        list.push_back(*entry.asString());
    }
    return list;
}

Json listOf(const std::vector<std::string>& texts) {
    Json::Array list;
    for (const auto& text : texts) list.emplace_back(text);
    return Json(std::move(list));
}

}  // namespace

FilePath OrganiseSettings::file(const Vault& vault) {
    return vault.supportDirectory() / "organise.json";
}

OrganiseSettings OrganiseSettings::load(const Vault& vault) {
    try {
        const auto json = Json::parse(FilePlatform::current().files->read(file(vault)));
        if (!json.asObject()) return {};
        OrganiseSettings settings{.inbox = texts(json, "inbox"),
                                  .notInbox = texts(json, "notInbox"),
                                  .protectedFolders = texts(json, "protected")};
        if (const auto* version = json.find("version")) {
            const auto number = version->asInt();
            if (!number || !std::in_range<int>(*number)) return {};
            settings.version = static_cast<int>(*number);
        }
        if (const auto* junk = json.find("junkFolder")) {
            if (!junk->isNull() && !junk->asString()) return {};
            settings.junkFolder = junk->isNull() ? std::nullopt : std::optional(*junk->asString());
        }
        return settings;
    } catch (const Error&) {
        return {};
    }
}

void OrganiseSettings::save(const Vault& vault) const {
    vault.ensureSupportDirectory();
    const Json json = Json::object({{"version", version},
                                    {"inbox", listOf(inbox)},
                                    {"notInbox", listOf(notInbox)},
                                    {"protected", listOf(protectedFolders)},
                                    {"junkFolder", Json(junkFolder)}});
    AtomicWrite::writeData(file(vault), json.dump(Json::Style::sortedPretty));
}

}  // namespace vesk
