// The colours given to folders, kept in the vault's own folder, and the icons that a note can wear, kept in
// the note. Values; any thread.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Vault/Vault.h"

namespace vesk {

enum class FolderColor { red, orange, yellow, green, teal, blue, indigo, purple, pink, brown, gray };

std::span<const FolderColor> allFolderColors();
/// The case's name, which is the stored form.
std::string_view rawValue(FolderColor color);
std::optional<FolderColor> folderColor(std::string_view rawValue);
std::string displayName(FolderColor color);

/// <root>/.vesk/style.json
struct VaultStyle {
    /// By relative folder path; a value that isn't known stays in the file.
    std::map<std::string, std::string> folderColors;

    static FilePath fileURL(const Vault& vault);
    /// An empty style for a file that can't be read or is none.
    static VaultStyle load(const Vault& vault);
    /// Throws what writing throws.
    void save(const Vault& vault) const;

    std::optional<FolderColor> color(const std::string& folder) const;
    void setColor(const std::string& folder, std::optional<FolderColor> color);
    bool operator==(const VaultStyle&) const = default;
};

/// An icon that a note can wear: the name of a symbol and what people call it.
struct Charm {
    enum class Group { places, home, life, food, health, sport, work, tech, leisure, practical };
    static constexpr std::string_view frontmatterKey = "icon";

    std::string_view id, label;
    Group group = Group::places;

    /// Whether the label or the symbol's name holds the query, without regard to case.
    bool matches(std::string_view query) const;
    bool operator==(const Charm&) const = default;

    static std::span<const Charm> catalog();
    static std::vector<Charm> catalog(Group group);
    static std::span<const Group> groups();
};
std::string_view rawValue(Charm::Group group);
/// What the picker shows over a group.
std::string_view title(Charm::Group group);

}  // namespace vesk
