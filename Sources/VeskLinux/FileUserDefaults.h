// The settings as one JSON file, $XDG_CONFIG_HOME/vesk/defaults.json (else ~/.config), written atomically.
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "VeskCore/Platform/FileSystem.h"
#include "VeskCore/Platform/UserDefaults.h"
#include "VeskCore/Support/Log.h"

namespace vesk {

/// Two processes may use one file: each write takes a lock beside it ("defaults.json.lock"), reads the file
/// anew and changes its own keys, leaving those it doesn't know. A file that can't be parsed is put aside as
/// "defaults.json.damaged" (then "….damaged-2"), never overwritten. What a write failed to store goes with
/// the next.
class FileUserDefaults final : public UserDefaults {
public:
    FileUserDefaults(FilePath file, FileSystem& files, Log& log);
    static FilePath defaultLocation();

    std::optional<Json> value(std::string_view key) const override;
    void set(std::string_view key, Json value) override;
    void remove(std::string_view key) override;

private:
    using Changes = std::map<std::string, std::optional<Json>, std::less<>>;
    void change(std::string_view key, std::optional<Json> value);
    void store();

    FilePath file_;
    FileSystem& files_;
    Log& log_;
    mutable std::mutex unsavedLock_;
    Changes unsaved_;  // what is not stored yet; none for a key that goes
};

}  // namespace vesk
