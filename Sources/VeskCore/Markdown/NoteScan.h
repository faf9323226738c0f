// What the scanner finds in a note's body: the data of the index. Values without behaviour.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "VeskCore/Support/TextRange.h"

namespace vesk {

struct NoteScan {
    struct Wikilink {
        std::string target;  ///< empty for a link within the same note
        std::optional<std::string> heading, blockID, alias;
        bool isEmbed = false;
        /// Line starts are summed UTF-16 lengths plus one for each line end; within a line characters count.
        TextRange range;
        bool operator==(const Wikilink&) const = default;
    };
    struct MarkdownLink {
        std::string text, url;
        bool isImage = false;
        bool operator==(const MarkdownLink&) const = default;
    };
    struct Heading {
        int level = 1;
        std::string text;
        int line = 0;  ///< from 0, in the body
        bool operator==(const Heading&) const = default;
    };
    struct TaskItem {
        std::string text;
        bool done = false;
        int line = 0;  ///< from 0, in the body
        bool operator==(const TaskItem&) const = default;
    };

    std::optional<std::string> title;  ///< the first level-1 heading
    std::vector<Wikilink> wikilinks;
    std::vector<MarkdownLink> markdownLinks;
    std::vector<std::string> tags;  ///< without "#", in the order first seen
    std::vector<Heading> headings;
    std::vector<TaskItem> tasks;
    std::vector<std::string> blockIDs;
    int wordCount = 0;
    std::string excerpt;  ///< at most 200 characters
    bool operator==(const NoteScan&) const = default;
};

}  // namespace vesk
