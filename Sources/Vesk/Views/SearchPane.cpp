#include "Vesk/Views/SearchPane.h"

#include <algorithm>

#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Utf16Map.h"

namespace vesk::views {
namespace {

struct Hint {
    const char *example, *meaning;
};
constexpr Hint hints[] = {
    {N_("boat trip"), N_("notes with both words, or words that begin so")},
    {N_("\"boat trip\""), N_("with exactly this phrase")},
    {N_("boat -trip"), N_("with the first, without the second")},
    {N_("tag:travel"), N_("with the tag #travel or one below it, such as #travel/norway")},
    {N_("path:Projects"), N_("in the folder Projects and below it")},
    {N_("file:plan"), N_("whose name begins so")},
    {N_("line:(flour butter)"), N_("with both words in one line")},
};

struct ModeName {
    SearchHit::Mode mode;
    const char *title, *meaning;
};
constexpr ModeName modeNames[] = {
    {SearchHit::Mode::hybrid, N_("Both"), N_("By words and by meaning")},
    {SearchHit::Mode::keyword, N_("Words"), N_("Notes with these words")},
    {SearchHit::Mode::semantic, N_("Meaning"), N_("Notes about the same, in whatever words")},
};

/// The words that were found, as they stand in the note.
std::vector<std::string> matchedWords(const SearchHit& hit) {
    const Utf16Map map(hit.snippet);
    std::vector<std::string> words;
    for (const auto& range : hit.matchRanges) {
        const auto start = map.byteFromUtf16(range.location);
        auto word = hit.snippet.substr(start, map.byteFromUtf16(range.end()) - start);
        if (!word.empty() && std::find(words.begin(), words.end(), word) == words.end())
            words.push_back(std::move(word));
    }
    return words;
}

/// The passage on one line with its matches marked.
void setPassage(Gtk::Label& label, const std::string& passage, const std::vector<std::string>& words) {
    constexpr int whole = 100'000;  // of the passage
    const auto shown = SearchEngine::makeSnippet(passage, words, whole);
    std::string text = shown.text;
    for (char& letter : text)
        if (letter == '\n' || letter == '\r' || letter == '\t') letter = ' ';
    label.set_text(text);
    auto* manager = adw_style_manager_get_default();
    const bool isDark = adw_style_manager_get_dark(manager);
    const bool isStrong = adw_style_manager_get_high_contrast(manager);
    const Utf16Map map(text);
    PangoAttrList* marks = pango_attr_list_new();
    const auto add = [&](const TextRange& range, PangoAttribute* mark) {
        mark->start_index = static_cast<guint>(map.byteFromUtf16(range.location));
        mark->end_index = static_cast<guint>(map.byteFromUtf16(range.end()));
        pango_attr_list_insert(marks, mark);
    };
    for (const auto& range : shown.matchRanges) {
        add(range, pango_attr_weight_new(PANGO_WEIGHT_BOLD));
        if (isStrong) {
            add(range, pango_attr_underline_new(PANGO_UNDERLINE_SINGLE));
        } else {
            add(range, isDark ? pango_attr_foreground_new(0x7878, 0xAEAE, 0xEDED)
                              : pango_attr_foreground_new(0x1C1C, 0x7171, 0xD8D8));
        }
    }
    gtk_label_set_attributes(label.gobj(), marks);
    pango_attr_list_unref(marks);
}

/// A control that can't be used still says why, to whoever points at it and to whoever has it read out.
void explain(Gtk::Widget& widget, const std::string& words) {
    widget.set_tooltip_text(words);
    gtk_accessible_update_property(GTK_ACCESSIBLE(widget.gobj()), GTK_ACCESSIBLE_PROPERTY_DESCRIPTION,
                                   words.c_str(), -1);
}

}  // namespace

SearchPane::SearchPane() : Gtk::Box(Gtk::Orientation::VERTICAL) {
    set_vexpand(true);
    buildModes();
    buildList();
    buildHelp();
    nothing_ = ADW_STATUS_PAGE(adw_status_page_new());
    adw_status_page_set_icon_name(nothing_, "edit-find-symbolic");
    gtk_widget_add_css_class(GTK_WIDGET(nothing_), "compact");
    gtk_widget_set_vexpand(GTK_WIDGET(nothing_), TRUE);
    for (auto* scroller : {&scroller_, &helpScroller_}) {
        scroller->set_vexpand(true);
        pages_.append(*scroller);
    }
    gtk_box_append(pages_.gobj(), GTK_WIDGET(nothing_));
    showOnly(pages_, helpScroller_);
    append(modes_);
    append(pages_);
    auto keys = Gtk::EventControllerKey::create();
    keys->signal_key_pressed().connect(
        [this](guint key, guint, Gdk::ModifierType) {
            auto* focus = gtk_window_get_focus(GTK_WINDOW(gtk_widget_get_root(raw(*this))));
            auto* first = list_.get_row_at_index(0);
            const bool leaves =
                key == GDK_KEY_Escape || (key == GDK_KEY_Up && first && focus == GTK_WIDGET(first->gobj()));
            if (leaves && onLeft) onLeft();
            return leaves;
        },
        false);
    keys->set_propagation_phase(Gtk::PropagationPhase::CAPTURE);
    add_controller(keys);
}

void SearchPane::buildModes() {
    modes_.add_css_class("linked");
    modes_.add_css_class("search-modes");
    modes_.set_homogeneous(true);
    gtk_accessible_update_property(GTK_ACCESSIBLE(modes_.gobj()), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                   _("Search by"), -1);
    for (const auto& name : modeNames) {
        auto* button = Gtk::make_managed<Gtk::ToggleButton>(_(name.title));
        if (!buttons_.empty()) button->set_group(*buttons_.front().second);
        button->set_hexpand(true);
        button->signal_toggled().connect([this, button, mode = name.mode] {
            if (isSetting_ || !button->get_active()) return;
            chosen_ = mode;
            if (onModeChosen) onModeChosen(mode);
        });
        modes_.append(*button);
        buttons_.emplace_back(name.mode, button);
    }
}

void SearchPane::buildList() {
    list_.add_css_class("navigation-sidebar");
    list_.add_css_class("search-results");
    list_.set_selection_mode(Gtk::SelectionMode::BROWSE);
    setAccessibleName(list_, _("Search results"));
    list_.signal_row_activated().connect([this](Gtk::ListBoxRow* row) {
        const auto hit = hits_[static_cast<std::size_t>(row->get_index())];
        if (onChosen) onChosen(hit);
    });
    scroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    scroller_.set_child(list_);
}

void SearchPane::buildHelp() {
    auto* help = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
    help->set_margin(16);
    help->set_spacing(10);
    auto* heading = Gtk::make_managed<Gtk::Label>(_("How to search"));
    heading->add_css_class("heading");
    heading->set_xalign(0);
    help->append(*heading);
    for (const auto& hint : hints) {
        auto* row = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
        auto* example = Gtk::make_managed<Gtk::Label>(_(hint.example));
        auto* meaning = Gtk::make_managed<Gtk::Label>(_(hint.meaning));
        example->add_css_class("monospace");
        meaning->add_css_class("dim-label");
        meaning->add_css_class("caption");
        for (auto* label : {example, meaning}) {
            label->set_xalign(0);
            label->set_wrap(true);
            row->append(*label);
        }
        help->append(*row);
    }
    helpScroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    helpScroller_.set_child(*help);
}

void SearchPane::setMode(SearchHit::Mode mode, const std::string& absence) {
    chosen_ = mode;
    hasModel_ = absence.empty();
    isSetting_ = true;
    for (std::size_t index = 0; index < buttons_.size(); ++index) {
        auto& [own, button] = buttons_[index];
        const bool works = hasModel_ || own == SearchHit::Mode::keyword;
        button->set_sensitive(works);
        button->set_active(own == this->mode());
        explain(*button, works ? std::string(_(modeNames[index].meaning)) : absence);
    }
    isSetting_ = false;
}

SearchHit::Mode SearchPane::mode() const {
    return hasModel_ ? chosen_ : SearchHit::Mode::keyword;
}

void SearchPane::showHelp() {
    hits_.clear();
    isExpecting_ = opensFirst_ = false;
    showOnly(pages_, helpScroller_);
}

void SearchPane::show(const std::vector<SearchHit>& hits, bool isIndexing) {
    auto* focus = gtk_window_get_focus(GTK_WINDOW(gtk_widget_get_root(raw(*this))));
    const bool hadFocus = focus && gtk_widget_is_ancestor(focus, raw(list_));
    hits_ = hits;
    isExpecting_ = false;
    while (auto* row = list_.get_row_at_index(0)) list_.remove(*row);
    if (hits_.empty()) {
        opensFirst_ = false;
        adw_status_page_set_title(nothing_, isIndexing ? _("Nothing found yet") : _("Nothing found"));
        adw_status_page_set_description(
            nothing_, isIndexing ? _("The vault is still being read.") : _("Try fewer or other words."));
        showOnly(pages_, *Glib::wrap(GTK_WIDGET(nothing_)));
        if (hadFocus && onLeft) onLeft();
        return;
    }
    for (const auto& hit : hits_) addRow(hit);
    list_.select_row(*list_.get_row_at_index(0));
    showOnly(pages_, scroller_);
    if (hadFocus) focusFirst();
    if (std::exchange(opensFirst_, false)) openFirst();
}

void SearchPane::addRow(const SearchHit& hit) {
    auto* row = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
    row->add_css_class("search-row");
    auto* top = Gtk::make_managed<Gtk::Box>();
    top->set_spacing(8);
    auto* title = Gtk::make_managed<Gtk::Label>(decodedText(hit.title));
    title->set_xalign(0);
    title->set_hexpand(true);
    title->set_ellipsize(Pango::EllipsizeMode::END);
    title->add_css_class("heading");
    top->append(*title);
    if (const auto folder = parentFolder(hit.notePath); !folder.empty()) {
        auto* where = Gtk::make_managed<Gtk::Label>(decodedText(std::string(folder)));
        where->add_css_class("dim-label");
        where->add_css_class("caption");
        where->set_ellipsize(Pango::EllipsizeMode::START);
        where->set_max_width_chars(14);
        top->append(*where);
    }
    row->append(*top);
    if (const auto passage = hit.passage()) {
        auto* snippet = Gtk::make_managed<Gtk::Label>();
        snippet->set_xalign(0);
        snippet->set_wrap(true);
        snippet->set_wrap_mode(Pango::WrapMode::WORD_CHAR);
        snippet->set_lines(3);
        snippet->set_ellipsize(Pango::EllipsizeMode::END);
        snippet->add_css_class("search-snippet");
        setPassage(*snippet, *passage, matchedWords(hit));
        row->append(*snippet);
    }
    list_.append(*row);
}

bool SearchPane::focusFirst() {
    auto* row = hits_.empty() ? nullptr : list_.get_row_at_index(0);
    return row && row->grab_focus();
}

void SearchPane::openFirst() {
    if (isExpecting_) {
        opensFirst_ = true;
        return;
    }
    if (hits_.empty() || !onChosen) return;
    const auto hit = hits_.front();
    onChosen(hit);
}

}  // namespace vesk::views
