#include "Vesk/Views/FindBar.h"

#include <fmt/core.h>

#include <algorithm>

#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::views {
namespace {

constexpr std::size_t mostMarked = 2000;

void name(Gtk::Widget& control, const char* words) {
    control.set_tooltip_text(words);
    setAccessibleName(control, words);
}

}  // namespace

FindBar::FindBar(EditorView& editor) : editor_(editor) {
    tag_ = gtk_text_buffer_create_tag(editor_.content().buffer(), nullptr, "background", "#f9f06b",
                                      "foreground", "#241f31", nullptr);
    find_.set_hexpand(true);
    setPlaceholder(find_, _("Find in this note"));
    find_.set_size_request(120, -1);
    setAccessibleName(find_, _("Find in this note"));
    count_.add_css_class("dim-label");
    count_.add_css_class("numeric");
    previous_.set_icon_name("go-up-symbolic");
    next_.set_icon_name("go-down-symbolic");
    close_.set_icon_name("window-close-symbolic");
    close_.add_css_class("flat");
    name(previous_, _("Find Previous"));
    name(next_, _("Find Next"));
    name(close_, _("Close"));
    name(case_, _("Match Case"));
    name(words_, _("Whole Words"));
    name(expression_, _("Regular Expression"));
    replacement_.set_hexpand(true);
    replacement_.set_placeholder_text(_("Replace with"));
    setAccessibleName(replacement_, _("Replace with"));

    auto* steps = Gtk::make_managed<Gtk::Box>();
    steps->add_css_class("linked");
    steps->append(previous_);
    steps->append(next_);
    auto* options = Gtk::make_managed<Gtk::Box>();
    options->add_css_class("linked");
    for (auto* option : {&case_, &words_, &expression_}) {
        options->append(*option);
        option->signal_toggled().connect([this] { changed(); });
    }
    findRow_.set_spacing(6);
    for (Gtk::Widget* part : std::initializer_list<Gtk::Widget*>{&find_, &count_, steps, options, &close_})
        findRow_.append(*part);
    replaceRow_.set_spacing(6);
    for (Gtk::Widget* part : std::initializer_list<Gtk::Widget*>{&replacement_, &one_, &all_})
        replaceRow_.append(*part);
    rows_.set_spacing(6);
    rows_.add_css_class("find-bar");
    rows_.append(findRow_);
    rows_.append(replaceRow_);
    set_child(rows_);

    find_.signal_search_changed().connect([this] { changed(); });
    find_.signal_activate().connect([this] { step(true); });
    find_.signal_next_match().connect([this] { step(true); });
    find_.signal_previous_match().connect([this] { step(false); });
    find_.signal_stop_search().connect([this] { close(); });
    previous_.signal_clicked().connect([this] { step(false); });
    next_.signal_clicked().connect([this] { step(true); });
    close_.signal_clicked().connect([this] { close(); });
    replacement_.signal_activate().connect([this] { replaceOne(); });
    one_.signal_clicked().connect([this] { replaceOne(); });
    all_.signal_clicked().connect([this] { replaceAll(); });
    auto keys = Gtk::EventControllerKey::create();
    keys->signal_key_pressed().connect(
        [this](guint key, guint, Gdk::ModifierType) {
            if (key != GDK_KEY_Escape) return false;
            close();
            return true;
        },
        false);
    add_controller(keys);
}

void FindBar::open(bool replacing) {
    replaceRow_.set_visible(replacing);
    const auto& content = editor_.content();
    const auto selection = content.selection();
    const auto selected = content.text().substr(selection.location, selection.length);
    if (!selected.empty() && selected.find(u'\n') == std::u16string_view::npos)
        find_.set_text(utf8(selected));
    set_reveal_child(true);
    find_.grab_focus();
    find_.select_region(0, -1);
    mark();
}

void FindBar::close() {
    if (!isOpen()) return;
    set_reveal_child(false);
    unmark();
    editor_.grab_focus();
}

std::optional<Finder> FindBar::finder() {
    find_.remove_css_class("error");
    if (find_.get_text().empty()) return {};
    try {
        return Finder({.text = utf16(std::string(find_.get_text())),
                       .isExpression = expression_.get_active(),
                       .matchesCase = case_.get_active(),
                       .wholeWords = words_.get_active()});
    } catch (const InvalidExpression& error) {
        find_.add_css_class("error");
        count_.set_text("");
        find_.set_tooltip_text(error.description());
        return {};
    }
}

void FindBar::changed() {
    mark();
    const auto search = finder();
    if (!search) return;
    const auto from = editor_.content().selection().location;
    if (const auto step = search->next(editor_.content().text(), {from, 0})) select(step->range);
}

void FindBar::refresh() {
    if (!isOpen()) return;
    marking_.disconnect();
    marking_ = Glib::signal_timeout().connect(
        [this] {
            mark();
            return false;
        },
        200);
}

void FindBar::unmark() {
    marking_.disconnect();
    found_.clear();
    editor_.content().remove(tag_, {0, editor_.content().text().size()});
}

void FindBar::mark() {
    unmark();
    const auto search = finder();
    if (!search) {
        count_.set_text("");
        return;
    }
    found_ = search->all(editor_.content().text()).ranges;
    for (std::size_t index = 0; index < std::min(found_.size(), mostMarked); ++index)
        editor_.content().apply(tag_, found_[index]);
    count_.set_text(found_.empty() ? std::string(_("None")) : localised("{} found", found_.size()));
}

void FindBar::select(TextRange range) {
    editor_.goTo(range);
    const auto place = std::find(found_.begin(), found_.end(), range);
    if (place != found_.end())
        count_.set_text(fmt::format("{} of {}", place - found_.begin() + 1, found_.size()));
}

void FindBar::step(bool forward) {
    const auto search = finder();
    if (!search) return;
    const auto text = editor_.content().text();
    const auto selection = editor_.content().selection();
    const auto found = forward ? search->next(text, selection) : search->previous(text, selection);
    if (found) select(found->range);
}

void FindBar::replaceOne() {
    const auto search = finder();
    if (!search) return;
    try {
        editor_.perform(search->replaceOne(editor_.content().text(), editor_.content().selection(),
                                           {.text = utf16(std::string(replacement_.get_text()))}));
        mark();
    } catch (const InvalidExpression& error) {
        count_.set_text("");
        replacement_.set_tooltip_text(error.description());
    }
}

void FindBar::replaceAll() {
    const auto search = finder();
    if (!search) return;
    try {
        const auto replaced = search->replaceAll(editor_.content().text(), editor_.content().selection(),
                                                 {.text = utf16(std::string(replacement_.get_text()))});
        if (replaced) editor_.perform(replaced->edit);
        mark();
        if (replaced) count_.set_text(fmt::format("{} replaced", replaced->count));
    } catch (const InvalidExpression& error) {
        count_.set_text("");
        replacement_.set_tooltip_text(error.description());
    }
}

}  // namespace vesk::views
