// The notes that an answer drew on, and where in a note the passage stands. Pure; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Index/RetrievedChunk.h"
#include "VeskCore/Support/TextRange.h"

namespace vesk {

struct CitedNote {
    std::string path, title;
    std::string excerpt;  ///< one line of the best passage
    std::string passage;  ///< that passage, to be found in the note
    int passages = 0;
    std::optional<std::string> documentLabel;  ///< "web page" or "stylesheet"
    bool operator==(const CitedNote&) const = default;
};

namespace Citations {

/// One for each note, in the order they were cited. Passages of no note of the vault are left out.
std::vector<CitedNote> notes(const std::vector<RetrievedChunk>& chunks);
/// Where a passage begins and ends in a note, in UTF-16 units: all of it, else as much of it as still stands
/// there. None if nothing does.
std::optional<TextRange> passage(std::string_view noteText, std::string_view passage);

}  // namespace Citations
}  // namespace vesk
