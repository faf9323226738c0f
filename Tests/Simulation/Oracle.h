// What Vesk promises of text, told without a look at how it keeps the promise.
//
// Every text that a person types here, that another program writes or that another device delivers is
// remembered, together with the text that whoever made it saw and made it from. A text is owed from a certain
// moment on:
//
//   - typed text: 0.8 seconds after the last keystroke, or at once when the note is left, flushed, moved or
//     trashed or the application quits, and in each case only when the call that this set off has returned.
//     Before that it is in the memory of the process alone, and a crash may take it;
//   - typed text whose save failed: as long as the process lives, and over a crash too, unless the disk of
//     the held-text store refused as well; then the person has been told that it isn't saved;
//   - another program's or device's text: from the moment it stands in the vault.
//
// An owed text has to be found whole: in a note, a kept copy, the trash, the held-text store, a folder that
// the person chose to save to. It needn't be if someone who saw it made a text from it, or threw it away, and
// that stands: a newer text that is itself found, a deletion, "Quit Anyway", an emptied trash.
//
// Two texts are the same if they differ only in line ends, a byte order mark, blank lines at either end and
// the three reminder keys: those are merged key by key, and a kept copy leaves them off so as not to ring
// twice.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vesk::simulation {

/// The part of a text that has to be found whole.
std::string essence(std::string_view text);

class Oracle {
public:
    /// Someone who saw `seen` made `text` from it.
    void made(std::string_view text, const std::optional<std::string>& seen);
    void owed(std::string_view text);
    /// The text came to stand in the vault by another's hand: it is owed from now on.
    void stands(std::string_view text);
    /// The text was in the memory of a process that ended, and nowhere else by right.
    void gaveWay(std::string_view text);
    /// The vault was said to hold the text.
    void saved(std::string_view text);
    /// Someone who saw the text, as it stood in the vault, threw it away.
    void thrownAway(std::string_view text);
    /// The person gave up text that could not be saved, and what had led to it without being saved either.
    void givenUp(std::string_view text);

    /// The owed texts that are neither among `found` nor followed by one that is.
    std::vector<std::string> lost(const std::vector<std::string>& found) const;
    /// The same question about one text, owed or not.
    bool isSafe(std::string_view text, const std::vector<std::string>& found) const;
    /// True if `later` is `earlier`, or was made from it in any number of steps.
    bool isMadeFrom(std::string_view later, std::string_view earlier) const;

private:
    struct Text {
        std::vector<int> from;
        bool isOwed = false, isSaved = false, isThrownAway = false, isGivenUp = false;
    };
    int number(std::string_view text);
    std::optional<int> known(const std::string& part) const;
    std::vector<bool> reached(std::vector<int> open) const;
    std::vector<bool> safe(const std::vector<std::string>& found) const;

    std::map<std::string, int, std::less<>> numbers_;
    std::vector<Text> texts_;
};

}  // namespace vesk::simulation
