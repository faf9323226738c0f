#include "Vesk/Views/MainWindow.h"

#include <algorithm>

#include "VeskCore/Support/PathText.h"

namespace vesk::views {
namespace {

constexpr int leastSidebar = 220, greatestSidebar = 480, leastContent = 340;
constexpr const char* sizeKey = "vesk.window.size";
constexpr const char* sidebarKey = "vesk.window.sidebar";

int storedNumber(const UserDefaults& defaults, const char* key, int otherwise, int least, int greatest) {
    return std::clamp(static_cast<int>(defaults.number(key).value_or(otherwise)), least, greatest);
}

}  // namespace

MainWindow::MainWindow(Gtk::Application& application, UserDefaults& defaults)
    : defaults_(defaults), window_(ADW_APPLICATION_WINDOW(adw_application_window_new(application.gobj()))) {
    sidebarWidth_ = storedNumber(defaults_, sidebarKey, 280, leastSidebar, greatestSidebar);
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
}

void MainWindow::build() {
    leaflet_ = ADW_LEAFLET(adw_leaflet_new());
    adw_leaflet_set_can_navigate_back(leaflet_, TRUE);
    adw_leaflet_append(leaflet_, raw(buildSidebar()));
    auto* separator = adw_leaflet_append(leaflet_, raw(buildHandle()));
    adw_leaflet_page_set_navigatable(separator, FALSE);
    adw_leaflet_append(leaflet_, raw(buildContent()));
    onSignal(leaflet_, "notify::folded", [this] { back_.set_visible(adw_leaflet_get_folded(leaflet_)); });

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
    add->set_tooltip_text("New Note");
    add->set_action_name("app.new-note");
    setAccessibleName(*add, "New Note");
    adw_header_bar_pack_start(bar, raw(*add));
    title_ = ADW_WINDOW_TITLE(adw_window_title_new("Vesk", ""));
    adw_header_bar_set_title_widget(bar, GTK_WIDGET(title_));

    sidebarPane_.append(sidebar_);
    status_.add_css_class("status-line");
    status_.add_css_class("dim-label");
    status_.set_xalign(0);
    status_.set_ellipsize(Pango::EllipsizeMode::END);
    sidebarPane_.append(status_);
    return sidebarPane_;
}

Gtk::Widget& MainWindow::buildHandle() {
    handle_.set_cursor("col-resize");
    auto drag = Gtk::GestureDrag::create();
    drag->signal_drag_begin().connect([this](double, double) { dragStart_ = sidebarWidth_; });
    drag->signal_drag_update().connect([this](double x, double) {
        sidebarWidth_ = std::clamp(dragStart_ + static_cast<int>(x), leastSidebar, greatestSidebar);
        sidebarPane_.set_size_request(sidebarWidth_, -1);
    });
    handle_.add_controller(drag);
    return handle_;
}

Gtk::Widget& MainWindow::buildContent() {
    contentPane_.add_css_class("note-page");
    contentPane_.set_size_request(leastContent, -1);
    contentPane_.set_hexpand(true);
    auto* bar = ADW_HEADER_BAR(adw_header_bar_new());
    gtk_widget_add_css_class(GTK_WIDGET(bar), "flat");
    adw_header_bar_set_show_start_title_buttons(bar, FALSE);
    adw_header_bar_set_title_widget(bar, gtk_label_new(""));
    back_.set_icon_name("go-previous-symbolic");
    back_.set_tooltip_text("Back to the List");
    setAccessibleName(back_, "Back to the List");
    back_.set_visible(false);
    back_.signal_clicked().connect([this] { showNotePage(false); });
    adw_header_bar_pack_start(bar, raw(back_));
    gtk_box_append(contentPane_.gobj(), GTK_WIDGET(bar));
    note_.set_vexpand(true);
    contentPane_.append(note_);
    return contentPane_;
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

void MainWindow::showWelcome(const std::string& title, const std::string& words,
                             const std::vector<std::string>& others) {
    adw_status_page_set_title(welcome_, title.c_str());
    char* escaped = g_markup_escape_text(words.c_str(), -1);
    adw_status_page_set_description(welcome_, escaped);
    g_free(escaped);
    while (auto* child = welcomeButtons_.get_first_child()) welcomeButtons_.remove(*child);
    auto* choose = Gtk::make_managed<Gtk::Button>("Choose a Folder…");
    choose->add_css_class("pill");
    choose->add_css_class("suggested-action");
    choose->set_action_name("app.open-vault");
    welcomeButtons_.append(*choose);
    for (const auto& folder : others) {
        auto* button = Gtk::make_managed<Gtk::Button>("Open " + std::string(lastComponent(folder)));
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
    choose->grab_focus();
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

void MainWindow::toast(const std::string& words) {
    char* escaped = g_markup_escape_text(words.c_str(), -1);
    adw_toast_overlay_add_toast(toasts_, adw_toast_new(escaped));
    g_free(escaped);
}

}  // namespace vesk::views
