// A note's text as a YAML block between fences and a body. What is not edited is written back byte for byte.
// Pure; any thread.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VeskCore/Markdown/YAMLValue.h"

namespace vesk {

/// A value type. Reading never fails: malformed YAML degrades to passthrough lines and raw values.
class FrontmatterDoc {
public:
    struct Entry {
        std::string key;
        YAMLValue value;
        /// The source lines of this entry, key line first; these are written back, never `value`.
        std::vector<std::string> rawLines;
        bool operator==(const Entry&) const = default;
    };
    struct Passthrough {
        std::string line;
        bool operator==(const Passthrough&) const = default;
    };
    struct Slot {
        std::variant<Entry, Passthrough> value;
        bool operator==(const Slot&) const = default;
    };

    FrontmatterDoc() = default;
    explicit FrontmatterDoc(std::string_view text);

    /// The whole document's text.
    std::string serialized() const;

    /// Keys of all entries in slot order, duplicates included.
    std::vector<std::string> keys() const;
    /// The entries by key; of a key that occurs twice the first holds.
    std::map<std::string, YAMLValue> properties() const;
    /// The value of the first entry with that key, or none.
    std::optional<YAMLValue> operator[](std::string_view key) const;
    /// Sets the key in place or adds it below the last entry; none removes it.
    void set(std::string_view key, const std::optional<YAMLValue>& value);
    /// Removes every entry with that key.
    void remove(std::string_view key);

    /// The lines of one entry.
    static std::vector<std::string> render(std::string_view key, const YAMLValue& value, bool blockList);
    static std::vector<Slot> parseSlots(const std::vector<std::string_view>& lines);
    /// The byte offset of the colon that ends the line's key, or none.
    static std::optional<std::size_t> keyColonIndex(std::string_view line);

    const std::vector<Slot>& slots() const { return slots_; }
    bool hasFrontmatter() const { return hasFrontmatter_; }
    /// All text after the closing fence, with the document's own line ends.
    const std::string& body() const { return body_; }
    void setBody(std::string body) { body_ = std::move(body); }
    /// "\n" or "\r\n".
    std::string_view lineEnding() const { return crlf_ ? "\r\n" : "\n"; }
    bool trailingNewline() const { return trailingNewline_; }

    bool operator==(const FrontmatterDoc&) const = default;

private:
    std::vector<Slot> slots_;
    std::string body_;
    bool hasFrontmatter_ = false;
    bool crlf_ = false;
    bool trailingNewline_ = false;
};

}  // namespace vesk
