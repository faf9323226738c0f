// Searching the vault: by words, by meaning or by both; what was found, with its matches marked; and how to
// ask while nothing is typed.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Vesk/Views/Toolkit.h"
#include "VeskCore/Index/SearchEngine.h"

namespace vesk::views {

/// What stands below a search field. Main thread.
class SearchPane final : public Gtk::Box {
public:
    SearchPane();
    /// What to search by. Without a model of meaning there are only the words, and `absence` says why.
    void setMode(SearchHit::Mode mode, const std::string& absence);
    /// The chosen mode, or the words where there is no model.
    SearchHit::Mode mode() const;
    /// Nothing is typed: how to ask.
    void showHelp();
    /// What was found before is for another question from now on; show() follows.
    void expect() { isExpecting_ = true; }
    void show(const std::vector<SearchHit>& hits, bool isIndexing);
    /// False if there is nothing to give the keyboard to.
    bool focusFirst();
    /// The best one; if it isn't known yet, as soon as it is.
    void openFirst();
    std::function<void(const SearchHit&)> onChosen;
    std::function<void(SearchHit::Mode)> onModeChosen;
    /// The keyboard goes back to the field.
    std::function<void()> onLeft;

private:
    void buildModes();
    void buildHelp();
    void buildList();
    void addRow(const SearchHit& hit);

    Gtk::Box modes_;
    std::vector<std::pair<SearchHit::Mode, Gtk::ToggleButton*>> buttons_;
    Gtk::Box pages_{Gtk::Orientation::VERTICAL};
    Gtk::ScrolledWindow scroller_, helpScroller_;
    Gtk::ListBox list_;
    AdwStatusPage* nothing_ = nullptr;
    std::vector<SearchHit> hits_;
    SearchHit::Mode chosen_ = SearchHit::Mode::hybrid;
    bool hasModel_ = false, isSetting_ = false, isExpecting_ = false, opensFirst_ = false;
};

}  // namespace vesk::views
