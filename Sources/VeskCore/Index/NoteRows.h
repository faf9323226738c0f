// What the index keeps of one note beside its text, worked out before any lock is taken. Pure; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Markdown/NoteScan.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

struct NoteRows {
    struct Property {
        std::string key;
        std::optional<std::string> text;
        std::optional<double> number;
        std::string_view kind;
        bool operator==(const Property&) const = default;
    };
    struct Link {
        std::string target;
        std::optional<std::string> heading, blockID, alias;
        bool isEmbed = false;
        bool operator==(const Link&) const = default;
    };

    std::string title;
    std::vector<Property> properties;
    std::vector<std::string> tags;
    std::vector<Link> links;
    std::vector<std::string> chunks;

    static NoteRows of(const Note& note, const NoteScan& scan, const FrontmatterDoc& doc);
};

/// True if FrontmatterDoc(text).serialized() is known to be the text itself, without building it. False only
/// means that it has to be built.
bool serialisesToItself(std::string_view text);

}  // namespace vesk
