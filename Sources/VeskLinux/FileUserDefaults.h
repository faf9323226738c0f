// The settings as one JSON file, $XDG_CONFIG_HOME/vesk/defaults.json (else ~/.config), written atomically.
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "VeskCore/Platform/FileSystem.h"
#include "VeskCore/Platform/UserDefaults.h"
#include "VeskCore/Support/Log.h"

namespace vesk {

/// Two processes may use one file: each write takes a lock beside it, reads the file anew and changes its own
/// key. A file that can't be parsed is put aside as "defaults.json.damaged", never overwritten.
class FileUserDefaults final : public UserDefaults {
public:
    FileUserDefaults(FilePath file, FileSystem& files, Log& log);
    static FilePath defaultLocation();

    std::optional<Json> value(std::string_view key) const override;
    void set(std::string_view key, Json value) override;
    void remove(std::string_view key) override;

private:
    void change(std::string_view key, const std::optional<Json>& value);

    FilePath file_;
    FileSystem& files_;
    Log& log_;
    mutable std::mutex unsavedLock_;
    std::map<std::string, std::optional<Json>, std::less<>>
        unsaved_;  // what could not be stored, for this run
};

}  // namespace vesk
