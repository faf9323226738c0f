#include "VeskLinux/FileUserDefaults.h"

#include <algorithm>

#include "VeskLinux/KeptFile.h"

namespace vesk {

using namespace linuxfiles;

namespace {

constexpr std::string_view category = "defaults";

/// The members of the file, none if there is no file. Throws JsonError for a file that is no JSON object.
std::optional<Json> stored(const FileSystem& files, const FilePath& file) {
    std::string text;
    try {
        text = files.read(file);
    } catch (const SystemError& error) {
        if (error.code == ENOENT || error.code == ENOTDIR) return {};
        throw;
    }
    Json values = Json::parse(text);
    if (!values.asObject()) throw JsonError("The settings are not an object.");
    return values;
}

Json changed(const Json& before, const std::map<std::string, std::optional<Json>, std::less<>>& changes) {
    Json::Object members;
    if (const auto* object = before.asObject()) members = *object;
    std::erase_if(members, [&](const Json::Member& member) {
        const auto change = changes.find(member.first);
        return change != changes.end() && !change->second;
    });
    Json after(std::move(members));
    for (const auto& [key, value] : changes) {
        if (value) after.set(key, *value);
    }
    return after;
}

}  // namespace

FileUserDefaults::FileUserDefaults(FilePath file, FileSystem& files, Log& log)
    : file_(std::move(file)), files_(files), log_(log) {}

FilePath FileUserDefaults::defaultLocation() {
    return baseDirectory("XDG_CONFIG_HOME", ".config") / "vesk" / "defaults.json";
}

std::optional<Json> FileUserDefaults::value(std::string_view key) const {
    {
        const std::lock_guard guard(unsavedLock_);
        if (const auto change = unsaved_.find(key); change != unsaved_.end()) return change->second;
    }
    try {
        const auto values = stored(files_, file_);
        const Json* found = values ? values->find(key) : nullptr;
        return found ? std::optional(*found) : std::nullopt;
    } catch (const Error& error) {
        log_.line(LogLevel::error, category, "The settings can't be read: {}",
                  {logPrivate(error.description())});
        return {};
    }
}

void FileUserDefaults::set(std::string_view key, Json value) {
    change(key, std::move(value));
}

void FileUserDefaults::remove(std::string_view key) {
    change(key, std::nullopt);
}

void FileUserDefaults::change(std::string_view key, std::optional<Json> value) {
    {
        const std::lock_guard guard(unsavedLock_);
        unsaved_.insert_or_assign(std::string(key), std::move(value));
    }
    try {
        store();
    } catch (const Error& error) {
        log_.line(LogLevel::error, category, "The setting {} can't be stored and holds for this run: {}",
                  {logPublic(key), logPrivate(error.description())});
    }
}

void FileUserDefaults::store() {
    // A settings file that is a link to somewhere else stays one.
    const FilePath target = files_.realPath(file_).value_or(file_);
    files_.createDirectories(file_.parent_path());
    const Descriptor turn = waitForTurn(besides(file_, ".lock"));
    // Taken only now: another thread may have stored these changes, or made later ones, while this one
    // waited.
    Changes changes;
    {
        const std::lock_guard guard(unsavedLock_);
        changes = unsaved_;
    }
    if (changes.empty()) return;

    Json before = Json::object();
    bool isThere = false;
    try {
        if (auto values = stored(files_, target)) {
            before = std::move(*values);
            isThere = true;
        }
    } catch (const JsonError&) {
        log_.line(LogLevel::error, category, "The settings were damaged and are put aside as {}.",
                  {logPrivate(putAside(files_, target).native())});
    }
    const Json after = changed(before, changes);
    if (!isThere || after != before) {
        // One fixed name, owned by whoever holds the lock: what a killed process left is taken away here.
        const FilePath temporary = besides(target, ".new");
        files_.remove(temporary);
        files_.writeNew(temporary, after.dump(Json::Style::sortedPretty) + "\n");
        try {
            if (isThere) {
                files_.replace(target, temporary);
            } else {
                files_.move(temporary, target);
            }
        } catch (const Error&) {
            files_.remove(temporary);
            throw;
        }
    }
    const std::lock_guard guard(unsavedLock_);
    for (const auto& [key, value] : changes) {
        if (const auto now = unsaved_.find(key); now != unsaved_.end() && now->second == value)
            unsaved_.erase(now);
    }
}

}  // namespace vesk
