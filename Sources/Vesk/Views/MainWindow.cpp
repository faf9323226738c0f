#include "Vesk/Views/MainWindow.h"

#include <algorithm>

#include "Vesk/Views/Toasts.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"

namespace vesk::views {
namespace {

constexpr int leastSidebar = 220, greatestSidebar = 480, leastContent = 340;
constexpr const char* sidebarKey = "vesk.window.sidebar";
constexpr const char* sidebarShownKey = "vesk.window.sidebar.shown";
constexpr const char* inspectorKey = "vesk.window.inspector";

int storedNumber(const UserDefaults& defaults, const char* key, int otherwise, int least, int greatest) {
    return std::clamp(static_cast<int>(defaults.number(key).value_or(otherwise)), least, greatest);
}

}  // namespace

MainWindow::MainWindow(Gtk::Application& application, UserDefaults& defaults)
    : defaults_(defaults),
      window_(ADW_APPLICATION_WINDOW(adw_application_window_new(application.gobj()))),
      find_(note_.editor()) {
    sidebarWidth_ = storedNumber(defaults_, sidebarKey, 280, leastSidebar, greatestSidebar);
    inspectorWidth_ = storedNumber(defaults_, inspectorKey, 330, leastSidebar, greatestSidebar);
    const int width = storedNumber(defaults_, "vesk.window.width", 1180, 360, 10000);
    const int height = storedNumber(defaults_, "vesk.window.height", 760, 300, 10000);
    gtk_window_set_default_size(window(), width, height);
    gtk_window_set_title(window(), "Vesk");
    gtk_window_set_icon_name(window(), "com.tarnlight.vesk");
    gtk_widget_set_size_request(GTK_WIDGET(window_), 360, 300);
    if (defaults_.boolean("vesk.window.maximised").value_or(false)) gtk_window_maximize(window());
    build();
    g_signal_connect(window_, "close-request", G_CALLBACK(+[](GtkWindow*, gpointer data) -> gboolean {
                         auto* self = static_cast<MainWindow*>(data);
                         self->remember();
                         if (self->onCloseWanted) self->onCloseWanted();
                         return TRUE;
                     }),
                     this);
    onSignal(window_, "notify::is-active", [this] {
        if (gtk_window_is_active(window()) && onActivated) onActivated();
    });
}

MainWindow::~MainWindow() {
    g_signal_handlers_disconnect_by_data(window_, this);
    onActivated = nullptr;
    gtk_window_destroy(window());
}

void MainWindow::remember() {
    const bool isMaximised = gtk_window_is_maximized(window());
    defaults_.set("vesk.window.maximised", isMaximised);
    if (!isMaximised) {
        int width = 0, height = 0;
        gtk_window_get_default_size(window(), &width, &height);
        defaults_.set("vesk.window.width", width);
        defaults_.set("vesk.window.height", height);
    }
    defaults_.set(sidebarKey, sidebarWidth_);
    defaults_.set(sidebarShownKey, sidebarPane_.get_visible());
    defaults_.set(inspectorKey, inspectorWidth_);
}

void MainWindow::build() {
    leaflet_ = ADW_LEAFLET(adw_leaflet_new());
    adw_leaflet_set_can_navigate_back(leaflet_, TRUE);
    adw_leaflet_append(leaflet_, raw(buildSidebar()));
    buildHandle(sidebarHandle_, sidebarPane_, sidebarWidth_, 1);
    adw_leaflet_page_set_navigatable(adw_leaflet_append(leaflet_, raw(sidebarHandle_)), FALSE);
    adw_leaflet_append(leaflet_, raw(buildContent()));
    showSidebar(defaults_.boolean(sidebarShownKey).value_or(true));
    onSignal(leaflet_, "notify::folded", [this] {
        const bool isFolded = adw_leaflet_get_folded(leaflet_);
        toList_.set_visible(isFolded);
        // A list that was hidden while there was room is the way to the notes now.
        if (isFolded) showSidebar(true);
    });

    auto* welcomeBar = adw_header_bar_new();
    gtk_widget_add_css_class(welcomeBar, "flat");
    gtk_box_append(welcomePane_.gobj(), welcomeBar);
    welcome_ = ADW_STATUS_PAGE(adw_status_page_new());
    adw_status_page_set_icon_name(welcome_, "com.tarnlight.vesk");
    gtk_widget_set_vexpand(GTK_WIDGET(welcome_), TRUE);
    welcomeButtons_.set_spacing(12);
    welcomeButtons_.set_halign(Gtk::Align::CENTER);
    adw_status_page_set_child(welcome_, raw(welcomeButtons_));
    gtk_box_append(welcomePane_.gobj(), GTK_WIDGET(welcome_));

    root_.set_transition_type(Gtk::StackTransitionType::CROSSFADE);
    root_.add(welcomePane_, "welcome");
    gtk_stack_add_named(root_.gobj(), GTK_WIDGET(leaflet_), "vault");
    toasts_ = ADW_TOAST_OVERLAY(adw_toast_overlay_new());
    adw_toast_overlay_set_child(toasts_, raw(root_));
    adw_application_window_set_content(window_, GTK_WIDGET(toasts_));
}

Gtk::Widget& MainWindow::buildSidebar() {
    sidebarPane_.add_css_class("sidebar-pane");
    sidebarPane_.set_size_request(sidebarWidth_, -1);
    sidebarPane_.set_hexpand(false);
    auto* bar = ADW_HEADER_BAR(adw_header_bar_new());
    adw_header_bar_set_show_end_title_buttons(bar, FALSE);
    g_object_bind_property(leaflet_, "folded", bar, "show-end-title-buttons", G_BINDING_SYNC_CREATE);
    gtk_box_append(sidebarPane_.gobj(), GTK_WIDGET(bar));
    auto* add = Gtk::make_managed<Gtk::Button>();
    add->set_icon_name("document-new-symbolic");
    add->set_tooltip_text(_("New Note"));
    add->set_action_name("app.new-note");
    setAccessibleName(*add, _("New Note"));
    adw_header_bar_pack_start(bar, raw(*add));
    menuButton_.set_icon_name("open-menu-symbolic");
    menuButton_.set_primary(true);
    menuButton_.set_tooltip_text(_("Main Menu"));
    setAccessibleName(menuButton_, _("Main Menu"));
    adw_header_bar_pack_end(bar, raw(menuButton_));
    title_ = ADW_WINDOW_TITLE(adw_window_title_new("Vesk", ""));
    adw_header_bar_set_title_widget(bar, GTK_WIDGET(title_));

    setPlaceholder(search_, _("Search notes"));
    search_.set_margin(8);
    search_.set_margin_top(6);
    setAccessibleName(search_, _("Search notes"));
    search_.signal_changed().connect([this] {
        const std::string typed = search_.get_text();
        const bool isAsking = isInside(raw(search_));
        if (typed.empty() && isAsking) results_.showHelp();
        showOnly(lists_, typed.empty() && !isAsking ? static_cast<Gtk::Widget&>(sidebar_) : results_);
        if (onSearch) onSearch(typed);
    });
    search_.signal_activate().connect([this] { results_.openFirst(); });
    search_.signal_stop_search().connect([this] {
        clearSearch();
        note_.isShown() ? note_.focus() : sidebar_.focusList();
    });
    results_.onLeft = [this] {
        search_.grab_focus();
        search_.set_position(-1);
    };
    auto keys = Gtk::EventControllerKey::create();
    keys->signal_key_pressed().connect(
        [this](guint key, guint, Gdk::ModifierType) {
            if (key != GDK_KEY_Down) return false;
            if (results_.get_visible() && results_.focusFirst()) return true;
            if (search_.get_text().empty()) {
                showOnly(lists_, sidebar_);
                sidebar_.focusList();
            }
            return true;
        },
        false);
    keys->set_propagation_phase(Gtk::PropagationPhase::CAPTURE);
    // Help stands in the list's place while the question is being asked, and no longer.
    auto click = Gtk::GestureClick::create();
    click->signal_released().connect([this](int, double, double) {
        if (search_.get_text().empty() && isInside(raw(search_))) focusSearch();
    });
    search_.add_controller(click);
    onSignal(window_, "notify::focus-widget", [this] {
        auto* focus = gtk_window_get_focus(window());
        if (focus && search_.get_text().empty() && !isInside(raw(search_)) && !isInside(raw(results_)))
            showOnly(lists_, sidebar_);
    });
    search_.add_controller(keys);
    sidebarPane_.append(search_);
    lists_.append(sidebar_);
    lists_.append(results_);
    showOnly(lists_, sidebar_);
    sidebarPane_.append(lists_);
    status_.add_css_class("status-line");
    status_.add_css_class("dim-label");
    status_.set_xalign(0);
    status_.set_ellipsize(Pango::EllipsizeMode::END);
    sidebarPane_.append(status_);
    return sidebarPane_;
}

void MainWindow::buildHandle(Gtk::Separator& handle, Gtk::Widget& pane, int& width, int direction) {
    handle.set_cursor("col-resize");
    handle.add_css_class("pane-handle");
    auto drag = Gtk::GestureDrag::create();
    drag->signal_drag_begin().connect([this, &width](double, double) { dragStart_ = width; });
    drag->signal_drag_update().connect([this, &width, &pane, direction](double x, double) {
        // The handle moves along, and with it the coordinates of the drag.
        width = std::clamp(width + direction * static_cast<int>(x), leastSidebar, greatestSidebar);
        pane.set_size_request(width, -1);
    });
    handle.add_controller(drag);
}

Gtk::Widget& MainWindow::buildContent() {
    contentPane_.add_css_class("note-page");
    contentPane_.set_size_request(leastContent, -1);
    contentPane_.set_hexpand(true);
    auto* bar = ADW_HEADER_BAR(adw_header_bar_new());
    gtk_widget_add_css_class(GTK_WIDGET(bar), "flat");
    adw_header_bar_set_show_start_title_buttons(bar, FALSE);
    adw_header_bar_set_title_widget(bar, gtk_label_new(""));
    const auto button = [](Gtk::Button& control, const char* icon, const char* name, const char* action) {
        control.set_icon_name(icon);
        control.set_tooltip_text(name);
        setAccessibleName(control, name);
        if (action) control.set_action_name(action);
    };
    button(toList_, "view-list-symbolic", _("Show the List"), nullptr);
    toList_.set_visible(false);
    toList_.signal_clicked().connect([this] { showNotePage(false); });
    button(back_, "go-previous-symbolic", _("Back"), "app.back");
    button(forward_, "go-next-symbolic", _("Forward"), "app.forward");
    adw_header_bar_pack_start(bar, raw(toList_));
    adw_header_bar_pack_start(bar, raw(back_));
    adw_header_bar_pack_start(bar, raw(forward_));

    inspectorButton_.set_icon_name("sidebar-show-right-symbolic");
    inspectorButton_.set_tooltip_text(_("Links and Assistant"));
    setAccessibleName(inspectorButton_, _("Links and Assistant"));
    outlineButton_.set_icon_name("view-list-ordered-symbolic");
    outlineButton_.set_tooltip_text(_("Outline"));
    setAccessibleName(outlineButton_, _("Outline"));
    outlineList_.add_css_class("navigation-sidebar");
    outlineList_.set_selection_mode(Gtk::SelectionMode::BROWSE);
    auto* noHeadings = Gtk::make_managed<Gtk::Label>(_("This note has no headings."));
    noHeadings->add_css_class("dim-label");
    noHeadings->set_margin(12);
    outlineList_.set_placeholder(*noHeadings);
    outlineList_.signal_row_activated().connect([this](Gtk::ListBoxRow* row) {
        const auto offset = headings_[static_cast<std::size_t>(row->get_index())].offset;
        outlinePopover_.popdown();
        note_.editor().goTo({offset, 0});
        note_.focus();
    });
    outlineScroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    outlineScroller_.set_propagate_natural_height(true);
    outlineScroller_.set_max_content_height(420);
    outlineScroller_.set_size_request(260, -1);
    outlineScroller_.set_child(outlineList_);
    outlinePopover_.set_child(outlineScroller_);
    outlinePopover_.signal_show().connect([this] { fillOutline(); });
    outlineButton_.set_popover(outlinePopover_);
    adw_header_bar_pack_end(bar, raw(inspectorButton_));
    adw_header_bar_pack_end(bar, raw(outlineButton_));
    reminderButton_.set_icon_name("alarm-symbolic");
    reminderButton_.set_tooltip_text(_("Reminder"));
    setAccessibleName(reminderButton_, _("Reminder"));
    reminderButton_.set_popover(reminder_);
    adw_header_bar_pack_end(bar, raw(reminderButton_));
    gtk_box_append(contentPane_.gobj(), GTK_WIDGET(bar));

    note_.set_vexpand(true);
    note_.set_hexpand(true);
    flap_ = ADW_FLAP(adw_flap_new());
    adw_flap_set_flap_position(flap_, GTK_PACK_END);
    adw_flap_set_fold_policy(flap_, ADW_FLAP_FOLD_POLICY_AUTO);
    warning_.onAction = [this](const std::string&) {
        if (warnings_.empty()) return;
        dismissed_.insert(warnings_.front().code);
        warnings_.erase(warnings_.begin());
        showWarning();
    };
    notePage_.append(warning_);
    notePage_.append(find_);
    notePage_.append(note_);
    notePage_.set_hexpand(true);
    notePage_.set_size_request(leastContent, -1);
    adw_flap_set_content(flap_, raw(notePage_));
    note_.onTextChanged = [this] { find_.refresh(); };
    tabs_.add(inspector_, "links", _("Links"));
    tabs_.onChanged = [this] {
        if (onInspectorTab) onInspectorTab(tabs_.shown());
    };
    buildHandle(inspectorHandle_, tabs_, inspectorWidth_, -1);
    tabs_.set_size_request(inspectorWidth_, -1);
    inspectorPane_.append(inspectorHandle_);
    inspectorPane_.append(tabs_);
    adw_flap_set_flap(flap_, raw(inspectorPane_));
    adw_flap_set_reveal_flap(flap_, FALSE);
    g_object_bind_property(flap_, "reveal-flap", inspectorButton_.gobj(), "active",
                           static_cast<GBindingFlags>(G_BINDING_BIDIRECTIONAL | G_BINDING_SYNC_CREATE));
    onSignal(flap_, "notify::reveal-flap", [this] {
        if (onInspectorShown) onInspectorShown(adw_flap_get_reveal_flap(flap_));
    });
    gtk_widget_set_vexpand(GTK_WIDGET(flap_), TRUE);
    gtk_box_append(contentPane_.gobj(), GTK_WIDGET(flap_));
    return contentPane_;
}

void MainWindow::addInspectorTab(Gtk::Widget& page, const char* name, const char* title) {
    tabs_.add(page, name, title);
}

void MainWindow::toggleSidebar() {
    if (adw_leaflet_get_folded(leaflet_))
        return showNotePage(adw_leaflet_get_visible_child(leaflet_) != raw(contentPane_));
    showSidebar(!sidebarPane_.get_visible());
}

void MainWindow::showSidebar(bool shows) {
    sidebarPane_.set_visible(shows);
    sidebarHandle_.set_visible(shows);
}

void MainWindow::showList() {
    if (!sidebarPane_.get_visible()) toggleSidebar();
    showNotePage(false);
}

void MainWindow::focusSearch() {
    showList();
    search_.grab_focus();
    search_.select_region(0, -1);
    if (search_.get_text().empty()) {
        results_.showHelp();
        showOnly(lists_, results_);
    }
}

void MainWindow::searchFor(const std::string& words) {
    focusSearch();
    search_.set_text(words);
    search_.set_position(-1);
}

void MainWindow::find(bool replacing) {
    showNotePage(true);
    find_.open(replacing);
}

void MainWindow::findStep(bool forward) {
    find_.isOpen() ? find_.step(forward) : find(false);
}

void MainWindow::closeFind() {
    find_.close();
}

void MainWindow::clearSearch() {
    search_.set_text("");
    showOnly(lists_, sidebar_);
}

bool MainWindow::isInside(GtkWidget* pane) const {
    auto* focus = gtk_window_get_focus(window());
    return focus && (focus == pane || gtk_widget_is_ancestor(focus, pane));
}

void MainWindow::focusNextPane() {
    if (isInside(raw(sidebarPane_))) {
        note_.focus();
    } else if (isInside(raw(note_)) && adw_flap_get_reveal_flap(flap_)) {
        gtk_widget_child_focus(raw(tabs_), GTK_DIR_TAB_FORWARD);
    } else {
        showNotePage(false);
        sidebar_.focusList();
    }
}

void MainWindow::showOutline() {
    outlineButton_.popup();
}

void MainWindow::fillOutline() {
    headings_ = outline ? outline() : std::vector<Heading>();
    while (auto* row = outlineList_.get_row_at_index(0)) outlineList_.remove(*row);
    for (const auto& heading : headings_) {
        auto* label = Gtk::make_managed<Gtk::Label>(heading.title);
        label->set_xalign(0);
        label->set_ellipsize(Pango::EllipsizeMode::END);
        label->set_margin_start(14 * (heading.level - 1));
        if (heading.level == 1) label->add_css_class("heading");
        outlineList_.append(*label);
    }
    if (auto* first = outlineList_.get_row_at_index(0)) first->grab_focus();
}

void MainWindow::setCanGo(bool back, bool forward) {
    back_.set_sensitive(back);
    forward_.set_sensitive(forward);
}

void MainWindow::present() {
    gtk_window_present(window());
}

void MainWindow::setTitle(const std::string& title, const std::string& subtitle) {
    adw_window_title_set_title(title_, title.c_str());
    adw_window_title_set_subtitle(title_, subtitle.c_str());
    gtk_window_set_title(window(), (title + " – Vesk").c_str());
}

void MainWindow::setStatus(const std::string& status) {
    status_.set_text(status);
}

void MainWindow::setWarnings(const std::vector<VaultWarning>& warnings) {
    warnings_ = warnings;
    // What is only good to know doesn't stand in the way: it is read at the status line.
    std::string toKnow;
    std::erase_if(warnings_, [&](const VaultWarning& warning) {
        const bool isInfo = warning.severity == VaultWarning::Severity::info;
        if (isInfo) toKnow += (toKnow.empty() ? "" : "\n\n") + warning.title + "\n" + warning.detail;
        return isInfo || dismissed_.contains(warning.code);
    });
    status_.set_tooltip_text(toKnow);
    std::stable_sort(
        warnings_.begin(), warnings_.end(),
        [](const VaultWarning& one, const VaultWarning& other) { return one.severity > other.severity; });
    showWarning();
}

void MainWindow::showWarning() {
    if (warnings_.empty()) return warning_.dismiss();
    const auto& first = warnings_.front();
    warning_.present({.heading = first.title,
                      .text = first.detail,
                      .actions = {_("Dismiss")},
                      .icon = "dialog-warning-symbolic"});
}

void MainWindow::showWelcome(const std::string& title, const std::string& words,
                             const std::vector<std::string>& others) {
    adw_status_page_set_title(welcome_, title.c_str());
    char* escaped = g_markup_escape_text(words.c_str(), -1);
    adw_status_page_set_description(welcome_, escaped);
    g_free(escaped);
    while (auto* child = welcomeButtons_.get_first_child()) welcomeButtons_.remove(*child);
    auto* choose = Gtk::make_managed<Gtk::Button>(_("Choose a Folder…"));
    choose->add_css_class("pill");
    choose->add_css_class("suggested-action");
    choose->set_action_name("app.open-vault");
    welcomeButtons_.append(*choose);
    for (const auto& folder : others) {
        auto* button = Gtk::make_managed<Gtk::Button>(localised("Open {}", lastComponent(folder)));
        button->add_css_class("pill");
        button->set_tooltip_text(folder);
        button->signal_clicked().connect([this, folder] {
            const auto chosen = folder;
            if (onOpenOther) onOpenOther(chosen);
        });
        welcomeButtons_.append(*button);
    }
    root_.set_visible_child("welcome");
    gtk_window_set_title(window(), "Vesk");
    if (gtk_widget_get_mapped(GTK_WIDGET(window_))) choose->grab_focus();
}

void MainWindow::showVault() {
    root_.set_visible_child("vault");
}

void MainWindow::showNotePage(bool note) {
    if (note) {
        adw_leaflet_set_visible_child(leaflet_, raw(contentPane_));
    } else {
        adw_leaflet_set_visible_child(leaflet_, raw(sidebarPane_));
    }
}

void MainWindow::toast(const std::string& words, const char* button, std::function<void()> does) {
    auto* toast = plainToast(words);
    if (button) {
        adw_toast_set_button_label(toast, button);
        onSignal(toast, "button-clicked", std::move(does));
    }
    adw_toast_overlay_add_toast(toasts_, toast);
}

void MainWindow::tell(const std::string& reason) {
    dropReason();
    reason_ = reasonToast(window(), reason);
    onSignal(reason_, "dismissed", [this, toast = reason_] {
        if (reason_ == toast) reason_ = nullptr;
    });
    adw_toast_overlay_add_toast(toasts_, reason_);
}

void MainWindow::dropReason() {
    if (reason_) adw_toast_dismiss(std::exchange(reason_, nullptr));
}

}  // namespace vesk::views
