#include "Vesk/Views/SearchPane.h"

#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Utf16Map.h"

namespace vesk::views {
namespace {

struct Hint {
    const char *example, *meaning;
};
constexpr Hint hints[] = {
    {N_("boat trip"), N_("notes with both words")},
    {N_("“boat trip”"), N_("with exactly this phrase")},
    {N_("boat -trip"), N_("with the first, without the second")},
    {N_("tag:travel"), N_("with the tag #travel")},
    {N_("path:Projects"), N_("in folders of that name")},
    {N_("file:plan"), N_("with the word in the title")},
    {N_("line:(flour butter)"), N_("with both words in one line")},
};

/// The passage on one line with its matches marked.
void setSnippet(Gtk::Label& label, const SearchHit& hit) {
    std::string text = hit.snippet;
    for (char& letter : text)
        if (letter == '\n' || letter == '\r' || letter == '\t') letter = ' ';
    label.set_text(text);
    const bool isDark = adw_style_manager_get_dark(adw_style_manager_get_default());
    const Utf16Map map(text);
    PangoAttrList* marks = pango_attr_list_new();
    for (const auto& range : hit.matchRanges) {
        for (auto* mark : {pango_attr_weight_new(PANGO_WEIGHT_BOLD),
                           isDark ? pango_attr_foreground_new(0x7878, 0xAEAE, 0xEDED)
                                  : pango_attr_foreground_new(0x1C1C, 0x7171, 0xD8D8)}) {
            mark->start_index = static_cast<guint>(map.byteFromUtf16(range.location));
            mark->end_index = static_cast<guint>(map.byteFromUtf16(range.end()));
            pango_attr_list_insert(marks, mark);
        }
    }
    gtk_label_set_attributes(label.gobj(), marks);
    pango_attr_list_unref(marks);
}

}  // namespace

SearchPane::SearchPane() {
    set_vexpand(true);
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

    nothing_ = ADW_STATUS_PAGE(adw_status_page_new());
    adw_status_page_set_icon_name(nothing_, "edit-find-symbolic");
    gtk_widget_add_css_class(GTK_WIDGET(nothing_), "compact");
    add(scroller_, "results");
    add(helpScroller_, "help");
    gtk_stack_add_named(gobj(), GTK_WIDGET(nothing_), "nothing");
}

void SearchPane::showHelp() {
    hits_.clear();
    set_visible_child("help");
}

void SearchPane::show(const std::vector<SearchHit>& hits, bool isIndexing) {
    hits_ = hits;
    while (auto* row = list_.get_row_at_index(0)) list_.remove(*row);
    if (hits_.empty()) {
        adw_status_page_set_title(nothing_, isIndexing ? "Nothing found yet" : "Nothing found");
        adw_status_page_set_description(
            nothing_, isIndexing ? "The vault is still being read." : "Try fewer or other words.");
        set_visible_child("nothing");
        return;
    }
    for (const auto& hit : hits_) {
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
        if (!hit.snippet.empty()) {
            auto* snippet = Gtk::make_managed<Gtk::Label>();
            snippet->set_xalign(0);
            snippet->set_wrap(true);
            snippet->set_wrap_mode(Pango::WrapMode::WORD_CHAR);
            snippet->set_lines(3);
            snippet->set_ellipsize(Pango::EllipsizeMode::END);
            snippet->add_css_class("search-snippet");
            setSnippet(*snippet, hit);
            row->append(*snippet);
        }
        list_.append(*row);
    }
    list_.select_row(*list_.get_row_at_index(0));
    set_visible_child("results");
}

void SearchPane::focusFirst() {
    if (auto* row = list_.get_row_at_index(0)) row->grab_focus();
}

void SearchPane::openFirst() {
    if (hits_.empty() || !onChosen) return;
    const auto hit = hits_.front();
    onChosen(hit);
}

}  // namespace vesk::views
