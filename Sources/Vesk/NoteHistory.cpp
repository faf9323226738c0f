#include "Vesk/NoteHistory.h"

#include <algorithm>

#include "VeskCore/Support/PathText.h"

namespace vesk {

namespace {

constexpr std::size_t longest = 200;

}  // namespace

void NoteHistory::visit(const std::string& path) {
    if (current_ == path) return;
    leave();
    current_ = path;
    ahead_.clear();
    joinNeighbours();
}

void NoteHistory::leave() {
    if (!current_) return;
    behind_.push_back(*current_);
    current_.reset();
    if (behind_.size() > longest) behind_.erase(behind_.begin());
}

std::optional<std::string> NoteHistory::go(Paths& from, Paths& to) {
    if (from.empty()) return {};
    if (current_) to.push_back(*current_);
    current_ = from.back();
    from.pop_back();
    return current_;
}

void NoteHistory::moved(const std::string& from, const std::string& to) {
    const auto follow = [&](std::string& path) {
        if (isAtOrBelow(path, from)) path = to + path.substr(from.size());
    };
    for (auto* paths : {&behind_, &ahead_}) std::for_each(paths->begin(), paths->end(), follow);
    if (current_) follow(*current_);
    joinNeighbours();
}

void NoteHistory::removed(const std::string& path) {
    const auto isGone = [&](const std::string& candidate) { return isAtOrBelow(candidate, path); };
    std::erase_if(behind_, isGone);
    std::erase_if(ahead_, isGone);
    if (current_ && isGone(*current_)) current_.reset();
    joinNeighbours();
}

/// A step always leads to another note.
void NoteHistory::joinNeighbours() {
    for (auto* paths : {&behind_, &ahead_}) {
        paths->erase(std::unique(paths->begin(), paths->end()), paths->end());
        if (!paths->empty() && current_ == paths->back()) paths->pop_back();
    }
}

}  // namespace vesk
