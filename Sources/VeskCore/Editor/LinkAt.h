// What Ctrl+click follows: the link, address or tag at an offset, as the editor shows them. UTF-16 offsets.
// Linear in the line. Pure; any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "VeskCore/Support/TextRange.h"

namespace vesk {

struct LinkAt {
    struct Wikilink {
        std::u16string target;  ///< empty for a link within the note
        std::optional<std::u16string> heading, blockID;
        bool isEmbed = false;
        bool operator==(const Wikilink&) const = default;
    };
    /// "[text](target)" or an image, the target without title and angle brackets.
    struct Link {
        std::u16string target;
        bool isImage = false;
        bool operator==(const Link&) const = default;
    };
    /// A bare address: http, https or mailto.
    struct Address {
        std::u16string url;
        bool operator==(const Address&) const = default;
    };
    struct Tag {
        std::u16string name;  ///< without the "#"
        bool operator==(const Tag&) const = default;
    };

    TextRange range;  ///< all of it, signs included
    std::variant<Wikilink, Link, Address, Tag> value;
    bool operator==(const LinkAt&) const = default;

    /// None in code and frontmatter. An offset at either end counts.
    static std::optional<LinkAt> at(std::u16string_view text, std::size_t offset);
};

}  // namespace vesk
