#include "Vesk/Views/Inspector.h"

#include <fmt/format.h>

#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::views {
namespace {

constexpr std::size_t mostRows = 200;  // of one list: each is a widget
constexpr std::size_t mostLines = 3;   // of one note
constexpr std::size_t lineLength = 160, lengthBefore = 40;

std::string escaped(std::string_view text) {
    char* safe = g_markup_escape_text(text.data(), static_cast<gssize>(text.size()));
    std::string copy = safe;
    g_free(safe);
    return copy;
}

/// For a row: one line, of which the beginning is shown.
std::string shortened(std::string_view text) {
    std::string line(trim(characterPrefix(trim(text), lineLength)));
    for (char& letter : line)
        if (letter == '\n' || letter == '\r' || letter == '\t') letter = ' ';
    return line;
}

/// The line as it would read, the link emphasised, cut so that the link shows in a narrow pane.
std::string preview(const PendingLink& pending) {
    const auto line = utf16(pending.mention.context);
    const auto column = std::min(static_cast<std::size_t>(pending.mention.column), line.size());
    auto before = utf8(std::u16string_view(line).substr(0, column));
    if (const auto count = characterCount(before); count > lengthBefore)
        before = "…" + before.substr(characterPrefix(before, count - lengthBefore).size());
    for (char& letter : before)
        if (letter == '\t') letter = ' ';
    const auto start = utf8(std::u16string_view(line).substr(0, column)).size() + pending.replacement.size();
    const auto behind = pending.after.substr(std::min(start, pending.after.size()));
    return escaped(before) + "<b>" + escaped(pending.replacement) + "</b>" +
           escaped(characterPrefix(behind, lineLength));
}

}  // namespace

Inspector::Inspector() : Gtk::Box(Gtk::Orientation::VERTICAL) {
    add_css_class("inspector");
    page_.set_margin(12);
    page_.set_spacing(6);
    build(backlinks_, _("Linked From"));
    build(outgoing_, _("Links To"));
    build(mentions_, _("Unlinked Mentions"));
    scroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    scroller_.set_child(page_);
    scroller_.set_vexpand(true);
    message_ = ADW_STATUS_PAGE(adw_status_page_new());
    adw_status_page_set_icon_name(message_, "insert-link-symbolic");
    gtk_widget_add_css_class(GTK_WIDGET(message_), "compact");
    stack_.add(scroller_, "links");
    gtk_stack_add_named(stack_.gobj(), GTK_WIDGET(message_), "message");
    stack_.set_vexpand(true);
    append(stack_);
}

Inspector::~Inspector() {
    idle_.disconnect();
}

void Inspector::follow(std::shared_ptr<LinksModel> model) {
    subscriptions_.clear();
    model_ = std::move(model);
    const auto watch = [this](auto& value) {
        subscriptions_.push_back(value.subscribe([this](const auto&) { later(); }));
    };
    watch(model_->state);
    watch(model_->overview);
    watch(model_->mentions);
    watch(model_->scanning);
    later();
}

/// Several values change at once; the rows are made when all have.
void Inspector::later() {
    if (idle_.connected()) return;
    idle_ = Glib::signal_idle().connect([this] {
        show();
        return false;
    });
}

void Inspector::build(List& list, const char* heading) {
    list.heading.set_text(heading);
    list.heading.add_css_class("heading");
    list.heading.set_xalign(0);
    list.heading.set_margin_top(8);
    list.rows.add_css_class("boxed-list");
    list.rows.set_selection_mode(Gtk::SelectionMode::NONE);
    setAccessibleName(list.rows, heading);
    list.rows.signal_row_activated().connect([&list](Gtk::ListBoxRow* row) {
        const auto chosen = list.chosen[static_cast<std::size_t>(row->get_index())];
        if (chosen) chosen();
    });
    list.words.add_css_class("dim-label");
    list.words.set_wrap(true);
    list.words.set_wrap_mode(Pango::WrapMode::WORD_CHAR);
    list.words.set_max_width_chars(24);
    list.words.set_xalign(0);
    page_.append(list.heading);
    page_.append(list.rows);
    page_.append(list.words);
}

void Inspector::clear(List& list) {
    while (auto* row = list.rows.get_row_at_index(0)) list.rows.remove(*row);
    list.chosen.clear();
}

void Inspector::add(List& list, const Row& shown) {
    auto* row = ADW_ACTION_ROW(adw_action_row_new());
    adw_preferences_row_set_title(ADW_PREFERENCES_ROW(row), escaped(shown.title).c_str());
    adw_action_row_set_subtitle(row, shown.detail.c_str());
    adw_action_row_set_title_lines(row, 1);
    adw_action_row_set_subtitle_lines(row, static_cast<int>(mostLines));
    gtk_list_box_row_set_activatable(GTK_LIST_BOX_ROW(row), TRUE);
    if (shown.isFaint) gtk_widget_add_css_class(GTK_WIDGET(row), "dim-label");
    if (shown.button) adw_action_row_add_suffix(row, shown.button);
    gtk_list_box_append(list.rows.gobj(), GTK_WIDGET(row));
    list.chosen.push_back(shown.chosen);
}

void Inspector::end(List& list, const std::optional<LinksModel::Message>& message, std::size_t leftOut) {
    list.rows.set_visible(!list.chosen.empty());
    std::string words = leftOut > 0 ? localised("And {} more.", leftOut) : std::string();
    if (message) {
        for (const auto* part : {&message->heading, &message->text}) {
            if (!words.empty() && !part->empty()) words += "\n";
            words += *part;
        }
    }
    list.words.set_text(words);
    list.words.set_visible(!words.empty());
}

std::function<void()> Inspector::opening(const std::string& path) {
    return [this, path, isStale = model_->isStale(path)] {
        const auto& does = isStale ? onStale : onOpen;
        if (does) does(std::string(path));
    };
}

void Inspector::show() {
    if (const auto message = model_->message()) {
        adw_status_page_set_title(message_, message->heading.c_str());
        adw_status_page_set_description(message_, escaped(message->text).c_str());
        stack_.set_visible_child("message");
        return;
    }
    showBacklinks();
    showOutgoing();
    showMentions();
    stack_.set_visible_child("links");
}

void Inspector::showBacklinks() {
    clear(backlinks_);
    const auto groups = model_->groups();
    for (std::size_t i = 0; i < std::min(groups.size(), mostRows); ++i) {
        const auto& group = groups[i];
        const bool isStale = model_->isStale(group.path);
        std::string lines;
        for (std::size_t line = 0; line < std::min(group.links.size(), mostLines); ++line)
            lines += (line > 0 ? "\n" : "") + shortened(group.links[line].context);
        add(backlinks_, {.title = decodedText(group.title),
                         .detail = escaped(isStale ? LinksModel::staleMessage(group.path) : lines),
                         .isFaint = isStale,
                         .chosen = opening(group.path)});
    }
    end(backlinks_, model_->backlinksMessage(), groups.size() - std::min(groups.size(), mostRows));
}

void Inspector::showOutgoing() {
    clear(outgoing_);
    const auto links = model_->outgoing();
    for (std::size_t i = 0; i < std::min(links.size(), mostRows); ++i) {
        const auto& link = links[i];
        if (!link.resolvedPath) {
            add(outgoing_,
                {.title = link.target, .detail = _("Not there yet"), .isFaint = true, .chosen = [this, link] {
                     if (onMissing) onMissing(std::string(link.target));
                 }});
            continue;
        }
        const auto& path = *link.resolvedPath;
        const bool isStale = model_->isStale(path);
        const auto where = decodedText(std::string(parentFolder(path)));
        add(outgoing_, {.title = decodedText(link.resolvedTitle.value_or(std::string(stem(path)))),
                        .detail = escaped(isStale ? LinksModel::staleMessage(path) : where),
                        .isFaint = isStale,
                        .chosen = opening(path)});
    }
    end(outgoing_, model_->outgoingMessage(), links.size() - std::min(links.size(), mostRows));
}

void Inspector::showMentions() {
    clear(mentions_);
    for (const auto& mention : model_->mentions->mentions) {
        const auto pending = model_->pendingLink(mention);
        auto* button = gtk_button_new_with_label(_("Link"));
        gtk_widget_add_css_class(button, "flat");
        gtk_widget_set_valign(button, GTK_ALIGN_CENTER);
        gtk_widget_set_sensitive(button, pending.previewAvailable);
        gtk_widget_set_tooltip_text(button, pending.previewAvailable ? _("Make this mention a link")
                                                                     : _("A link can't hold this name"));
        onSignal(button, "clicked", [this, mention] {
            // The row goes with the list that changes.
            const auto chosen = mention;
            if (onLink) onLink(chosen);
        });
        add(mentions_,
            {.title = decodedText(mention.sourceTitle),
             .detail = pending.previewAvailable ? preview(pending) : escaped(shortened(mention.context)),
             .chosen = opening(mention.sourcePath),
             .button = button});
    }
    end(mentions_, model_->mentionsMessage(), 0);
}

}  // namespace vesk::views
