// Searching the vault: what was found, with its matches marked, and how to ask while nothing is typed.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Vesk/Views/Toolkit.h"
#include "VeskCore/Index/SearchEngine.h"

namespace vesk::views {

/// The list below a search field. Main thread.
class SearchPane final : public Gtk::Stack {
public:
    SearchPane();
    /// Nothing is typed: how to ask.
    void showHelp();
    void show(const std::vector<SearchHit>& hits, bool isIndexing);
    void focusFirst();
    void openFirst();
    std::function<void(const SearchHit&)> onChosen;

private:
    Gtk::ScrolledWindow scroller_, helpScroller_;
    Gtk::ListBox list_;
    AdwStatusPage* nothing_ = nullptr;
    std::vector<SearchHit> hits_;
};

}  // namespace vesk::views
