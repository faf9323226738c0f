// The three keys of a reminder in a note's frontmatter: a change to them alone is no conflict with other
// editing.
#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Support/Json.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/ForeignEdit.h"

namespace vesk::ForeignEdit {

namespace {

using KeyValues = std::map<std::string, std::string>;

bool isBlankLine(std::string_view line) {
    return trim(line).empty();
}

/// The text without the blank lines that it begins with.
std::string_view withoutLeadingBlankLines(std::string_view text) {
    while (true) {
        const std::size_t end = text.find('\n');
        if (end == text.npos || !isBlankLine(text.substr(0, end))) return text;
        text.remove_prefix(end + 1);
    }
}

/// True for a block whose only content is blank lines. A comment is the user's text and keeps it alive.
bool holdsNothing(const FrontmatterDoc& doc) {
    for (const auto& slot : doc.slots()) {
        const auto* passthrough = std::get_if<FrontmatterDoc::Passthrough>(&slot.value);
        if (!passthrough || !isBlankLine(passthrough->line)) return false;
    }
    return true;
}

std::string shaped(const FrontmatterDoc& doc) {
    return holdsNothing(doc) ? std::string(withoutLeadingBlankLines(doc.body())) : doc.serialized();
}

std::string withoutReminderKeys(std::string_view text) {
    FrontmatterDoc doc(text);
    for (const auto key : reminderKeys) doc.remove(key);
    return std::string(trimTrailingNewlines(shaped(doc)));
}

/// The value's text. A date's time of day has no place in what is emitted and would be lost with it, so such
/// a value is taken as it is written.
std::string scalarText(const FrontmatterDoc::Entry& entry) {
    std::string emitted = YAMLScalar::emit(entry.value);
    if (!std::holds_alternative<YAMLValue::Date>(entry.value.value) ||
        YAMLScalar::parse(emitted) == entry.value) {
        return emitted;
    }
    const std::string_view line = entry.rawLines.front();
    const auto colon = FrontmatterDoc::keyColonIndex(line);
    return colon ? std::string(trimHorizontal(line.substr(*colon + 1))) : emitted;
}

YAMLValue valueOf(const std::string& scalar) {
    YAMLValue value = YAMLScalar::parse(scalar);
    const bool losesTime =
        std::holds_alternative<YAMLValue::Date>(value.value) && YAMLScalar::emit(value) != scalar;
    return losesTime ? YAMLValue::raw(scalar) : value;
}

std::optional<std::string> find(const KeyValues& values, std::string_view key) {
    const auto found = values.find(std::string(key));
    return found == values.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace

bool ReminderKeyChange::removesReminder() const {
    for (const std::string& key : removed) {
        if (key == "remind") return true;
    }
    return false;
}

std::string ReminderKeyChange::applied(std::string_view text) const {
    const KeyValues present = reminderKeyValues(text);
    bool differs = false;
    for (const std::string& key : removed) differs = differs || present.contains(key);
    for (const auto& [key, scalar] : written) differs = differs || find(present, key) != scalar;
    if (!differs) return std::string(text);
    FrontmatterDoc doc(text);
    for (const auto key : reminderKeys) {
        if (const auto scalar = find(written, key); scalar && find(present, key) != *scalar) {
            doc.set(key, valueOf(*scalar));
        }
    }
    for (const std::string& key : removed) doc.remove(key);
    return shaped(doc);
}

Json ReminderKeyChange::json() const {
    Json values = Json::object();
    for (const auto& [key, scalar] : written) values.set(key, scalar);
    Json keys = Json::array();
    for (const std::string& key : removed) keys.append(key);
    return Json::object({{"written", std::move(values)}, {"removed", std::move(keys)}});
}

std::optional<ReminderKeyChange> ReminderKeyChange::fromJson(const Json& json) {
    const Json* values = json.find("written");
    const Json* keys = json.find("removed");
    if (!values || !values->asObject() || !keys || !keys->asArray()) return {};
    ReminderKeyChange change;
    for (const auto& [key, scalar] : *values->asObject()) {
        if (!scalar.asString()) return {};
        change.written.insert_or_assign(key, *scalar.asString());
    }
    for (const Json& key : *keys->asArray()) {
        if (!key.asString()) return {};
        change.removed.push_back(*key.asString());
    }
    return change;
}

std::map<std::string, std::string> reminderKeyValues(std::string_view text) {
    const FrontmatterDoc doc(text);
    KeyValues values;
    for (const auto& slot : doc.slots()) {
        const auto* entry = std::get_if<FrontmatterDoc::Entry>(&slot.value);
        if (!entry) continue;
        for (const auto key : reminderKeys) {
            // Of a key that occurs twice the first holds.
            if (entry->key == key) values.try_emplace(entry->key, scalarText(*entry));
        }
    }
    return values;
}

std::optional<std::string> foldReminderKeys(std::string_view baseline, std::string_view disk,
                                            std::string_view incoming) {
    const std::string bare = withoutReminderKeys(baseline);
    const bool onlyKeysIncoming = withoutReminderKeys(incoming) == bare;
    if (!onlyKeysIncoming && withoutReminderKeys(disk) != bare) return {};
    const KeyValues before = reminderKeyValues(baseline);
    const KeyValues theirs = reminderKeyValues(disk);
    const KeyValues ours = reminderKeyValues(incoming);
    ReminderKeyChange merge;
    for (const auto key : reminderKeys) {
        const auto mine = find(ours, key);
        const auto value = mine != find(before, key) ? mine : find(theirs, key);
        if (value) {
            merge.written.emplace(key, *value);
        } else {
            merge.removed.emplace_back(key);
        }
    }
    return merge.applied(onlyKeysIncoming ? disk : incoming);
}

std::optional<ReminderKeyChange> reminderKeyChange(std::string_view from, std::string_view to) {
    if (withoutReminderKeys(from) != withoutReminderKeys(to)) return {};
    const KeyValues before = reminderKeyValues(from);
    const KeyValues after = reminderKeyValues(to);
    ReminderKeyChange change;
    for (const auto key : reminderKeys) {
        const auto old = find(before, key), now = find(after, key);
        if (now && now != old) change.written.emplace(key, *now);
        if (old && !now) change.removed.emplace_back(key);
    }
    if (change == ReminderKeyChange{}) return {};
    return change;
}

}  // namespace vesk::ForeignEdit
