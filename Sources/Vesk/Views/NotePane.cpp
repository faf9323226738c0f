#include "Vesk/Views/NotePane.h"

#include <algorithm>

#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::views {
namespace {

// A text longer than this is shown without styles; one longer still, or with such a line, would keep the
// toolkit busy for seconds, so that it is left to other programs.
constexpr std::size_t mostStyled = 3'000'000;
constexpr std::size_t mostShown = 12'000'000;
constexpr std::size_t longestLine = 24'000;

enum class Fit { styled, plain, tooLarge, unshowable };

Fit fitOf(std::string_view text) {
    if (text.size() > mostShown) return Fit::tooLarge;
    if (text.find('\0') != std::string_view::npos) return Fit::unshowable;
    std::size_t start = 0;
    while (start < text.size()) {
        const auto end = std::min(text.find('\n', start), text.size());
        if (end - start > longestLine) return Fit::tooLarge;
        start = end + 1;
    }
    return text.size() > mostStyled ? Fit::plain : Fit::styled;
}

}  // namespace

NotePane::NotePane() : Gtk::Box(Gtk::Orientation::VERTICAL) {
    title_.set_has_frame(false);
    title_.add_css_class("note-title");
    title_.set_placeholder_text(_("Untitled"));
    setAccessibleName(title_, _("Title"));
    title_.signal_activate().connect([this] {
        commitTitle();
        editor_.grab_focus();
    });
    auto focus = Gtk::EventControllerFocus::create();
    focus->signal_leave().connect([this] { commitTitle(); });
    title_.add_controller(focus);

    scroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    scroller_.set_vexpand(true);
    scroller_.set_child(editor_);
    page_.append(title_);
    page_.append(scroller_);

    status_ = ADW_STATUS_PAGE(adw_status_page_new());
    statusAction_.set_halign(Gtk::Align::CENTER);
    statusAction_.add_css_class("pill");
    statusAction_.add_css_class("suggested-action");
    statusAction_.signal_clicked().connect([this] {
        if (statusDoes_) statusDoes_();
    });
    adw_status_page_set_child(status_, raw(statusAction_));
    gtk_widget_set_vexpand(GTK_WIDGET(status_), TRUE);

    stack_.set_transition_type(Gtk::StackTransitionType::NONE);
    stack_.set_vexpand(true);
    stack_.add(page_, "note");
    gtk_stack_add_named(stack_.gobj(), GTK_WIDGET(status_), "status");
    append(notice_);
    append(older_);
    append(stack_);

    notice_.onAction = [this](const std::string& action) { bannerAction(action); };
    editor_.onEdited = [this] { edited(); };
    editor_.onSelectionMoved = [this] {
        if (surface_ && !isShowing_) surface_->selection = editor_.content().selection();
        if (onCaretMoved) onCaretMoved();
    };
    editor_.onMarginChanged = [this](int margin) {
        title_.set_margin_start(margin);
        title_.set_margin_end(margin);
    };
    showState();
}

void NotePane::attach(std::shared_ptr<EditorSurface> surface) {
    subscriptions_.clear();
    surface_ = std::move(surface);
    shownPath_.reset();
    if (surface_) {
        subscriptions_.push_back(surface_->state.subscribe([this](const auto&) { showState(); }));
        subscriptions_.push_back(surface_->loadGeneration.subscribe([this](int) { showText(); }));
        subscriptions_.push_back(surface_->notice.subscribe([this](const auto&) { showNotice(); }));
        subscriptions_.push_back(surface_->olderCopyPath.subscribe([this](const auto&) { showOlderCopy(); }));
    }
    showState();
    showNotice();
    showOlderCopy();
}

void NotePane::focus(bool title) {
    if (title) {
        title_.grab_focus();
        title_.select_region(0, -1);
    } else if (isShown()) {
        editor_.grab_focus();
    }
}

void NotePane::commitTitle() {
    if (!surface_ || !shownPath_ || isShowing_) return;
    const std::string typed = title_.get_text();
    const bool isUntitled = surface_->loadedPath() && Vault::isUntitled(*surface_->loadedPath());
    if (typed == surface_->title || (typed.empty() && isUntitled)) return;
    if (typed.find_first_not_of(" \t") == std::string::npos) {
        title_.set_text(surface_->title);
        return;
    }
    if (onRenamed && surface_->loadedPath()) onRenamed(*surface_->loadedPath(), typed);
    // Refused, or written in another way than typed.
    if (surface_) title_.set_text(surface_->title);
}

void NotePane::nameChanged() {
    if (!surface_ || !shownPath_ || !surface_->loadedPath()) return;
    shownPath_ = surface_->loadedPath();
    isShowing_ = true;
    if (!title_.has_focus()) title_.set_text(surface_->title);
    editor_.setTitle(surface_->title);
    isShowing_ = false;
}

void NotePane::showStatus(const char* icon, const std::string& title, const std::string& words,
                          const char* action, std::function<void()> does) {
    adw_status_page_set_icon_name(status_, icon);
    adw_status_page_set_title(status_, title.c_str());
    char* escaped = g_markup_escape_text(words.c_str(), -1);
    adw_status_page_set_description(status_, escaped);
    g_free(escaped);
    statusAction_.set_visible(action != nullptr);
    if (action) statusAction_.set_label(action);
    statusDoes_ = std::move(does);
    stack_.set_visible_child("status");
}

void NotePane::showState() {
    if (!surface_) {
        showStatus("com.tarnlight.vesk-symbolic", _("No note selected"),
                   _("Choose a note from the list, or begin a new one."), nullptr, {});
        return;
    }
    match(
        surface_->state.get(),
        [&](const EditorSurface::LoadState::Failed& failure) {
            showStatus("dialog-warning-symbolic", _("Can't open this note"), failure.message, _("Try Again"),
                       [this] {
                           if (surface_->loadedPath()) surface_->load(*surface_->loadedPath());
                       });
        },
        [&](EditorSurface::LoadState::Plain plain) {
            switch (plain) {
                case EditorSurface::LoadState::Plain::idle:
                    if (!surface_->loadedPath())
                        showStatus("com.tarnlight.vesk-symbolic", _("No note selected"),
                                   _("Choose a note from the list, or begin a new one."), nullptr, {});
                    break;
                case EditorSurface::LoadState::Plain::downloading:
                    showStatus("folder-download-symbolic", _("Downloading from iCloud…"), "", nullptr, {});
                    break;
                case EditorSurface::LoadState::Plain::loaded:
                    showText();
                    break;
            }
        });
}

void NotePane::showText() {
    if (!surface_ || !surface_->loadedPath()) return;
    const auto& path = *surface_->loadedPath();
    isShowing_ = true;
    title_.set_text(surface_->title);
    const auto fit = fitOf(surface_->text());
    switch (fit) {
        case Fit::tooLarge:
            editor_.show({}, true, {});
            showStatus("text-x-generic-symbolic", _("This note is too large to show"),
                       _("It stays as it is. Another program may be able to open it."),
                       _("Open With Another Program"), [this, path] {
                           if (onOpenElsewhere) onOpenElsewhere(path);
                       });
            break;
        case Fit::unshowable:
            editor_.show({}, true, {});
            showStatus("text-x-generic-symbolic", _("This note holds characters that can't be shown"),
                       _("It stays as it is. Another program may be able to open it."),
                       _("Open With Another Program"), [this, path] {
                           if (onOpenElsewhere) onOpenElsewhere(path);
                       });
            break;
        case Fit::styled:
        case Fit::plain: {
            const auto text = utf16(surface_->text());
            // The same note, also under another name, keeps its caret, its place and what can be undone.
            const bool isSame = shownPath_ == path || (shownPath_ && editor_.content().text() == text);
            if (isSame && editor_.content().isPlain() == (fit == Fit::plain)) {
                editor_.follow(text, surface_->selection);
                editor_.setTitle(surface_->title);
            } else {
                editor_.show(text, fit == Fit::plain, surface_->title);
                surface_->selection = editor_.content().selection();
            }
            stack_.set_visible_child("note");
            break;
        }
    }
    shownPath_ = fit == Fit::styled || fit == Fit::plain ? std::optional(path) : std::nullopt;
    isShowing_ = false;
}

void NotePane::edited() {
    if (!surface_ || isShowing_) return;
    surface_->selection = editor_.content().selection();
    if (!surface_->edit(utf8(editor_.content().text()))) showText();
    if (onTextChanged) onTextChanged();
}

void NotePane::showNotice() {
    if (!surface_ || !surface_->notice.get()) {
        notice_.dismiss();
        return;
    }
    const auto& notice = *surface_->notice.get();
    const auto banner = EditorSurface::banner(notice, surface_->loadedPath() == notice.notePath);
    const char* icon = match(
        notice.kind, [](const EditorSurface::SaveNotice::KeptBoth&) { return "edit-copy-symbolic"; },
        [](const EditorSurface::SaveNotice::Failed&) { return "dialog-warning-symbolic"; },
        [](const EditorSurface::SaveNotice::Waiting&) { return "folder-download-symbolic"; },
        [](const EditorSurface::SaveNotice::Followed&) { return "go-jump-symbolic"; },
        [](const EditorSurface::SaveNotice::Recovered&) { return "edit-undo-symbolic"; });
    notice_.present(
        {.heading = banner.heading, .text = banner.text, .actions = banner.actions, .icon = icon});
}

void NotePane::showOlderCopy() {
    if (!surface_ || !surface_->olderCopyPath.get() ||
        surface_->olderCopyPath.get() != surface_->loadedPath()) {
        older_.dismiss();
        return;
    }
    older_.present(
        {.heading = _("Newer version downloading"),
         .text = _("iCloud has a newer version of this note than the copy shown here. It replaces this copy "
                   "when it arrives, and anything you type is saved against it, never over it."),
         .actions = {},
         .icon = "folder-download-symbolic"});
}

void NotePane::bannerAction(const std::string& action) {
    if (!surface_ || !surface_->notice.get()) return;
    const auto notice = *surface_->notice.get();
    if (action == localised("Try Again")) return surface_->retrySave();
    if (action == localised("Dismiss")) return surface_->dismissNotice();
    const auto other = match(
        notice.kind, [](const EditorSurface::SaveNotice::KeptBoth& both) { return both.copyPath; },
        [&](const EditorSurface::SaveNotice::Failed&) { return notice.notePath; },
        [&](const EditorSurface::SaveNotice::Waiting&) { return notice.notePath; },
        [](const EditorSurface::SaveNotice::Followed& moved) { return moved.to; },
        [](const EditorSurface::SaveNotice::Recovered& copy) { return copy.copyPath; });
    const bool isSaid = !std::holds_alternative<EditorSurface::SaveNotice::Failed>(notice.kind) &&
                        !std::holds_alternative<EditorSurface::SaveNotice::Waiting>(notice.kind);
    if (isSaid) surface_->dismissNotice();
    if (onOpen) onOpen(other);
}

}  // namespace vesk::views
