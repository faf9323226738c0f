// The pane at the right: what the note links to, what links to it, and mentions that could become links.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Vesk/Links/LinksModel.h"
#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

class Inspector final : public Gtk::Box {
public:
    Inspector();
    ~Inspector() override;
    void follow(std::shared_ptr<LinksModel> model);

    std::function<void(const std::string& path)> onOpen;
    /// A link whose note isn't there.
    std::function<void(const std::string& target)> onMissing;
    /// A row whose note has gone.
    std::function<void(const std::string& path)> onStale;
    std::function<void(const UnlinkedMention& mention)> onLink;

private:
    struct List {
        Gtk::Label heading;
        Gtk::ListBox rows;
        Gtk::Label words;
        std::vector<std::function<void()>> chosen;  ///< by row
    };
    struct Row {
        std::string title, detail;  ///< the detail is markup
        bool isFaint = false;
        std::function<void()> chosen;
        GtkWidget* button = nullptr;
    };
    void build(List& list, const char* heading);
    static void clear(List& list);
    static void add(List& list, const Row& row);
    static void end(List& list, const std::optional<LinksModel::Message>& message, std::size_t leftOut);
    void later();
    void show();
    void showBacklinks();
    void showOutgoing();
    void showMentions();
    std::function<void()> opening(const std::string& path);

    std::shared_ptr<LinksModel> model_;
    std::vector<Subscription> subscriptions_;
    sigc::connection idle_;
    Gtk::Stack stack_;
    Gtk::ScrolledWindow scroller_;
    Gtk::Box page_{Gtk::Orientation::VERTICAL};
    List backlinks_, outgoing_, mentions_;
    AdwStatusPage* message_ = nullptr;
};

}  // namespace vesk::views
