// The pane at the right: what the note links to and what links to it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

struct LinkRow {
    std::string path;  ///< empty for a target that isn't there
    std::string title, detail;
};

class Inspector final : public Gtk::Box {
public:
    Inspector();
    /// Words in the place of both lists.
    void showMessage(const char* icon, const std::string& title, const std::string& words);
    /// `noBacklinks` stands in an empty first list.
    void showLinks(const std::vector<LinkRow>& backlinks, const std::vector<LinkRow>& outgoing,
                   const std::string& noBacklinks);
    std::function<void(const std::string& path, const std::string& title)> onOpen;

private:
    struct List {
        Gtk::Label heading;
        Gtk::ListBox rows;
        Gtk::Label nothing;
        std::vector<LinkRow> shown;
    };
    void build(List& list, const char* heading);
    static void fill(List& list, const std::vector<LinkRow>& rows, const std::string& nothing);

    Gtk::Stack stack_;
    Gtk::ScrolledWindow scroller_;
    Gtk::Box page_{Gtk::Orientation::VERTICAL};
    List backlinks_, outgoing_;
    AdwStatusPage* message_ = nullptr;
};

}  // namespace vesk::views
