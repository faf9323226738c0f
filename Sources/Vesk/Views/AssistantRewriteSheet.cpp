#include "Vesk/Views/AssistantRewriteSheet.h"

#include "VeskCore/Support/Localised.h"

namespace vesk::views {
namespace {

constexpr int width = 720, height = 640, margin = 18;

void asText(Gtk::TextView& view) {
    view.set_wrap_mode(Gtk::WrapMode::WORD_CHAR);
    view.set_left_margin(margin);
    view.set_right_margin(margin);
    view.set_top_margin(12);
    view.set_bottom_margin(margin);
    view.set_pixels_inside_wrap(3);
    view.set_pixels_below_lines(2);
}

/// What the toolkit's buffer takes: a NUL would end it.
std::string insertable(std::string text) {
    for (std::size_t at = text.find('\0'); at != text.npos; at = text.find('\0', at))
        text.replace(at, 1, "\uFFFD");
    return text;
}

}  // namespace

void AssistantRewriteSheet::show(GtkWindow* parent, std::shared_ptr<DiffApproval> approval,
                                 std::function<void()> approved, std::function<void()> rejected) {
    new AssistantRewriteSheet(parent, std::move(approval), std::move(approved), std::move(rejected));
}

AssistantRewriteSheet::AssistantRewriteSheet(GtkWindow* parent, std::shared_ptr<DiffApproval> approval,
                                             std::function<void()> approved, std::function<void()> rejected)
    : AssistantSheet(parent, DiffApproval::title(approval->edit()), width, height),
      approval_(std::move(approval)),
      approved_(std::move(approved)),
      rejected_(std::move(rejected)) {
    const auto unavailable = approval_->unavailableReason();
    if (unavailable) {
        no_.set_label(_("Close"));
        no_.signal_clicked().connect([this] { close(); });
        yes_.set_label(_("Copy"));
        yes_.signal_clicked().connect(
            [this] { text_.get_clipboard()->set_text(text_.get_buffer()->get_text()); });
        promise_.set_text(localised(*unavailable));
    } else {
        no_.set_label(_("Reject"));
        no_.signal_clicked().connect([this] {
            if (rejected_) rejected_();
            close();
        });
        yes_.set_label(_("Approve"));
        yes_.signal_clicked().connect([this] { approve(); });
        promise_.set_text(localised(DiffApproval::promise));
    }
    yes_.add_css_class("suggested-action");

    auto& subtitle = sheetText(DiffApproval::subtitle(approval_->edit()));
    subtitle.set_hexpand(true);
    tabs_.add_css_class("linked");
    newTextTab_.set_group(changesTab_);
    tabs_.append(changesTab_);
    tabs_.append(newTextTab_);
    tabs_.set_valign(Gtk::Align::CENTER);
    auto* head = Gtk::make_managed<Gtk::Box>();
    head->set_spacing(12);
    head->set_margin(12);
    head->set_margin_start(margin);
    head->set_margin_end(margin);
    head->append(subtitle);
    head->append(tabs_);
    page_.append(*head);
    buildChanges();
    buildNewText();
    stack_.set_vexpand(true);
    page_.append(stack_);
    changesTab_.signal_toggled().connect([this] {
        approval_->tab.setIfChanged(changesTab_.get_active() ? DiffApproval::Tab::changes
                                                             : DiffApproval::Tab::newText);
    });
    subscriptions_.push_back(approval_->result.subscribe([this](const auto&) { showResult(); }));
    subscriptions_.push_back(approval_->tab.subscribe([this](const auto&) { showTab(); }));
    showResult();
    showTab();
    // No key that was meant for the note approves anything.
    present(page_, changesTab_);
}

void AssistantRewriteSheet::buildChanges() {
    added_.add_css_class("diff-count");
    added_.add_css_class("diff-added");
    removed_.add_css_class("diff-count");
    removed_.add_css_class("diff-removed");
    counts_.set_margin_start(margin);
    counts_.set_margin_end(margin);
    counts_.set_margin_bottom(10);
    counts_.append(added_);
    counts_.append(removed_);
    coarse_.set_text(localised(DiffApproval::coarse));
    coarse_.set_wrap(true);
    coarse_.set_xalign(0);
    coarse_.add_css_class("caption");
    coarse_.add_css_class("dim-label");
    coarse_.set_margin_start(margin);
    coarse_.set_margin_end(margin);
    coarse_.set_margin_top(8);
    asText(diff_);
    diff_.set_editable(false);
    diff_.set_cursor_visible(false);
    diff_.add_css_class("diff-text");
    setAccessibleName(diff_, _("Changes"));
    diffScroller_.set_child(diff_);
    diffScroller_.set_vexpand(true);
    changes_.append(counts_);
    changes_.append(coarse_);
    changes_.append(diffScroller_);

    auto* waiting = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
    waiting->set_spacing(12);
    waiting->set_valign(Gtk::Align::CENTER);
    spinner_.set_size_request(32, 32);
    waiting->append(spinner_);
    auto& words = sheetText(localised(DiffApproval::comparing), {"dim-label"});
    words.set_halign(Gtk::Align::CENTER);
    waiting->append(words);
    auto* same = ADW_STATUS_PAGE(adw_status_page_new());
    adw_status_page_set_icon_name(same, "object-select-symbolic");
    adw_status_page_set_title(same, localised(DiffApproval::noChanges).c_str());
    adw_status_page_set_description(same, localised(DiffApproval::identical).c_str());
    state_.add(*waiting, "waiting");
    state_.add(changes_, "changes");
    gtk_stack_add_named(state_.gobj(), GTK_WIDGET(same), "same");
    stack_.add(state_, "changes");
}

void AssistantRewriteSheet::buildNewText() {
    asText(text_);
    text_.add_css_class("diff-text");
    text_.set_editable(!approval_->unavailableReason());
    setAccessibleName(text_, _("New text"));
    text_.get_buffer()->set_text(insertable(approval_->edit().replacement));
    textScroller_.set_child(text_);
    stack_.add(textScroller_, "newText");
}

void AssistantRewriteSheet::showResult() {
    const auto& result = approval_->result.get();
    spinner_.set_spinning(!result);
    if (!result) return state_.set_visible_child("waiting");
    if (!result->hasChanges) return state_.set_visible_child("same");
    const auto count = [](Gtk::Label& label, const std::string& words) {
        label.set_text(words);
        label.set_visible(!words.empty());
    };
    count(added_, DiffApproval::addedLabel(*result));
    count(removed_, DiffApproval::removedLabel(*result));
    coarse_.set_visible(result->coarse);
    const auto buffer = Gtk::TextBuffer::create();
    const bool isDark = adw_style_manager_get_dark(adw_style_manager_get_default());
    const auto colour = [](const char* name, double alpha) {
        Gdk::RGBA rgba(name);
        rgba.set_alpha(static_cast<float>(alpha));
        return rgba;
    };
    const auto added = buffer->create_tag(), removed = buffer->create_tag();
    added->property_underline() = Pango::Underline::SINGLE;
    added->property_background_rgba() = colour("#2ec27e", isDark ? 0.30 : 0.22);
    removed->property_strikethrough() = true;
    removed->property_background_rgba() = colour("#e01b24", isDark ? 0.30 : 0.16);
    std::optional<int> firstChange;
    for (const auto& run : result->runs) {
        const auto text = insertable(run.text);
        if (run.kind != WordDiff::Kind::same && !firstChange) firstChange = buffer->get_char_count();
        switch (run.kind) {
            case WordDiff::Kind::same:
                buffer->insert(buffer->end(), text);
                break;
            case WordDiff::Kind::added:
                buffer->insert_with_tag(buffer->end(), text, added);
                break;
            case WordDiff::Kind::removed:
                buffer->insert_with_tag(buffer->end(), text, removed);
                break;
        }
    }
    buffer->place_cursor(buffer->get_iter_at_offset(firstChange.value_or(0)));
    diff_.set_buffer(buffer);
    state_.set_visible_child("changes");
    diff_.scroll_to(buffer->get_insert(), 0.1);
}

void AssistantRewriteSheet::showTab() {
    const bool isChanges = approval_->tab.get() == DiffApproval::Tab::changes;
    stack_.set_visible_child(isChanges ? "changes" : "newText");
    (isChanges ? changesTab_ : newTextTab_).set_active(true);
}

void AssistantRewriteSheet::approve() {
    const auto approval = approval_;
    const std::string text = text_.get_buffer()->get_text();
    const auto approved = approved_;
    // What stood there and can't be shown comes back whole unless it was edited.
    const auto& proposed = approval->edit().replacement;
    const bool isUntouched = text == insertable(proposed);
    close();
    if (approved) approved();
    approval->approve(isUntouched ? proposed : text);
}

}  // namespace vesk::views
