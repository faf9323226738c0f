// One block of a note as the editor's commands see it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "VeskCore/Support/TextRange.h"

namespace vesk {

struct MarkdownBlock {
    struct Kind {
        struct Heading {
            int level = 1;
            bool operator==(const Heading&) const = default;
        };
        struct Ordered {
            std::int64_t number = 1;
            bool operator==(const Ordered&) const = default;
        };
        struct Task {
            bool done = false;
            bool operator==(const Task&) const = default;
        };
        struct Callout {
            std::u16string type;
            bool operator==(const Callout&) const = default;
        };
        struct Code {
            std::optional<std::u16string> language;
            bool operator==(const Code&) const = default;
        };
        enum class Plain { paragraph, bullet, quote, divider, table, blank };

        std::variant<Heading, Ordered, Task, Callout, Code, Plain> value = Plain::paragraph;
        bool operator==(const Kind&) const = default;

        /// The name in menus.
        std::string displayName() const;
        /// What begins a line of this kind, the indent left out; empty for a kind without a marker.
        std::u16string marker(std::int64_t number) const;
    };

    Kind kind;
    TextRange lineRange;  ///< in lines, counted from 0
    int indent = 0;       ///< level of the first line
    std::u16string content;
    bool operator==(const MarkdownBlock&) const = default;
};

}  // namespace vesk
