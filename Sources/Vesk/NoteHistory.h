// The notes that were shown one after another, for going back and forth between them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vesk {

/// Pure; follows notes that get other paths, so that a way back never ends at a name that is gone.
class NoteHistory {
public:
    /// A note is shown now; what lay ahead is forgotten.
    void visit(const std::string& path);
    /// Nothing is shown any more.
    void leave();
    /// The path, of a note or of a folder, is another one now.
    void moved(const std::string& from, const std::string& to);
    void removed(const std::string& path);
    void clear() { *this = {}; }

    bool canGoBack() const { return !behind_.empty(); }
    bool canGoForward() const { return !ahead_.empty(); }
    /// The note to show now, or none.
    std::optional<std::string> goBack() { return go(behind_, ahead_); }
    std::optional<std::string> goForward() { return go(ahead_, behind_); }

private:
    using Paths = std::vector<std::string>;  // the next one last
    std::optional<std::string> go(Paths& from, Paths& to);
    void joinNeighbours();

    Paths behind_, ahead_;
    std::optional<std::string> current_;
};

}  // namespace vesk
