#include "Vesk/Views/AssistantSettings.h"

#include <map>
#include <string>
#include <vector>

#include "Vesk/Views/Toasts.h"

namespace vesk::views {
namespace {

void setSubtitle(AdwActionRow* row, const std::string& words) {
    char* escaped = g_markup_escape_text(words.c_str(), -1);
    adw_action_row_set_subtitle(row, escaped);
    g_free(escaped);
}

std::string textOf(gpointer row) {
    return gtk_editable_get_text(GTK_EDITABLE(row));
}

/// Owned by its page: deleted with it.
class SettingsPage {
public:
    explicit SettingsPage(std::shared_ptr<ProviderSettings> settings)
        : page_(ADW_PREFERENCES_PAGE(adw_preferences_page_new())), settings_(std::move(settings)) {
        adw_preferences_page_set_name(page_, "ai");
        adw_preferences_page_set_title(page_, _("AI"));
        adw_preferences_page_set_icon_name(page_, "starred-symbolic");
        addServers();
        addKeys();
        addCustom();
        addOnDevice();
        subscriptions_.push_back(settings_->state.subscribe([this](const auto&) { show(); }));
        subscriptions_.push_back(
            settings_->problem.subscribe([this](const std::string& words) { tell(words); }));
        g_object_set_data_full(G_OBJECT(page_), "vesk-settings", this,
                               [](gpointer self) { delete static_cast<SettingsPage*>(self); });
        show();
        settings_->refresh();
    }

    AdwPreferencesPage* page() const { return page_; }

private:
    struct KeyRow {
        AdwPreferencesRow* row = nullptr;
        GtkLabel* masked = nullptr;
        GtkWidget* removal = nullptr;
    };
    struct ServerRow {
        AdwActionRow* row = nullptr;
        GtkImage* mark = nullptr;
    };

    AdwPreferencesGroup* group(const char* title, const char* words) {
        auto* made = ADW_PREFERENCES_GROUP(adw_preferences_group_new());
        adw_preferences_group_set_title(made, title);
        adw_preferences_group_set_description(made, words);
        adw_preferences_page_add(page_, made);
        return made;
    }

    void addServers() {
        auto* servers =
            group(_("Models on This Computer"), _("Nothing to pay for, and nothing leaves this computer."));
        auto* bar = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
        spinner_ = GTK_SPINNER(gtk_spinner_new());
        again_ = gtk_button_new_from_icon_name("view-refresh-symbolic");
        gtk_widget_add_css_class(again_, "flat");
        gtk_widget_set_tooltip_text(again_, _("Look Again"));
        gtk_accessible_update_property(GTK_ACCESSIBLE(again_), GTK_ACCESSIBLE_PROPERTY_LABEL, _("Look Again"),
                                       -1);
        onSignal(again_, "clicked", [this] { settings_->refresh(); });
        gtk_box_append(GTK_BOX(bar), GTK_WIDGET(spinner_));
        gtk_box_append(GTK_BOX(bar), again_);
        adw_preferences_group_set_header_suffix(servers, bar);
        for (const auto id : {BrainProviderID::lmstudio, BrainProviderID::ollama, BrainProviderID::apple}) {
            auto* row = ADW_ACTION_ROW(adw_action_row_new());
            adw_preferences_row_set_title(ADW_PREFERENCES_ROW(row), std::string(displayName(id)).c_str());
            setSubtitle(row, Glib::ustring::compose(_("Looking for %1…"), std::string(displayName(id))));
            auto* mark = GTK_IMAGE(gtk_image_new());
            adw_action_row_add_prefix(row, GTK_WIDGET(mark));
            adw_preferences_group_add(servers, GTK_WIDGET(row));
            servers_[id] = {row, mark};
        }
    }

    void addKeys() {
        auto* keys =
            group(_("API Keys"),
                  _("Kept in the system's keyring and sent to their own service alone. Paste a key and "
                    "confirm it; it isn't shown again."));
        for (const auto id : ProviderSettings::keyed())
            if (id != BrainProviderID::custom) addKey(keys, id, std::string(displayName(id)));
    }

    void addKey(AdwPreferencesGroup* keys, BrainProviderID id, const std::string& title) {
        auto* row = adw_password_entry_row_new();
        adw_preferences_row_set_title(ADW_PREFERENCES_ROW(row), title.c_str());
        adw_entry_row_set_show_apply_button(ADW_ENTRY_ROW(row), TRUE);
        onSignal(row, "apply", [this, row, id] {
            const auto key = textOf(row);
            // Gone from the field before it is anywhere else.
            gtk_editable_set_text(GTK_EDITABLE(row), "");
            settings_->setKey(id, key);
        });
        auto* masked = gtk_label_new("");
        gtk_widget_add_css_class(masked, "dim-label");
        gtk_widget_add_css_class(masked, "monospace");
        auto* removal = gtk_button_new_from_icon_name("user-trash-symbolic");
        gtk_widget_add_css_class(removal, "flat");
        gtk_widget_set_valign(removal, GTK_ALIGN_CENTER);
        gtk_widget_set_tooltip_text(removal, _("Remove Key"));
        gtk_accessible_update_property(
            GTK_ACCESSIBLE(removal), GTK_ACCESSIBLE_PROPERTY_LABEL,
            Glib::ustring::compose(_("Remove Key of %1"), std::string(displayName(id))).c_str(), -1);
        onSignal(removal, "clicked", [this, id] { settings_->removeKey(id); });
        adw_entry_row_add_suffix(ADW_ENTRY_ROW(row), masked);
        adw_entry_row_add_suffix(ADW_ENTRY_ROW(row), removal);
        adw_preferences_group_add(keys, row);
        keys_[id] = {ADW_PREFERENCES_ROW(row), GTK_LABEL(masked), removal};
    }

    GtkWidget* field(AdwPreferencesGroup* group, const char* title, const std::string& value,
                     std::function<void()> apply) {
        auto* row = adw_entry_row_new();
        adw_preferences_row_set_title(ADW_PREFERENCES_ROW(row), title);
        gtk_editable_set_text(GTK_EDITABLE(row), value.c_str());
        adw_entry_row_set_show_apply_button(ADW_ENTRY_ROW(row), TRUE);
        onSignal(row, "apply", std::move(apply));
        adw_preferences_group_add(group, row);
        return row;
    }

    void addCustom() {
        auto* custom =
            group(_("Custom Endpoint"),
                  _("Any service that speaks chat completions. Empty the address to take it away."));
        const auto apply = [this] {
            if (const auto wrong = settings_->setCustom(textOf(address_), textOf(model_)))
                return tell(*wrong);
            gtk_editable_set_text(GTK_EDITABLE(address_), settings_->customAddress().c_str());
        };
        address_ = field(custom, _("Address"), settings_->customAddress(), apply);
        model_ = field(custom, _("Model"), settings_->customModel(), apply);
        addKey(custom, BrainProviderID::custom, _("API key, if it needs one"));
    }

    void addOnDevice() {
        auto* onDevice =
            group(_("On-Device Model"),
                  _("A model server on this computer that plays the on-device model. Its small context sees "
                    "fewer notes at once. Empty the address to take it away."));
        const auto apply = [this] {
            if (const auto wrong = settings_->setOnDevice(textOf(deviceAddress_), textOf(deviceModel_),
                                                          textOf(deviceContext_)))
                return tell(*wrong);
            gtk_editable_set_text(GTK_EDITABLE(deviceAddress_), settings_->onDeviceAddress().c_str());
        };
        const auto context = settings_->onDeviceContext();
        deviceAddress_ = field(onDevice, _("Address"), settings_->onDeviceAddress(), apply);
        deviceModel_ = field(onDevice, _("Model"), settings_->onDeviceModel(), apply);
        deviceContext_ =
            field(onDevice, _("Context in tokens"), context ? std::to_string(*context) : "", apply);
    }

    void show() {
        const auto& state = settings_->state.get();
        for (const auto& server : state.servers) {
            const auto found = servers_.find(server.provider);
            if (found == servers_.end()) continue;
            setSubtitle(found->second.row, server.state);
            gtk_image_set_from_icon_name(
                found->second.mark, server.isReady ? "object-select-symbolic" : "content-loading-symbolic");
            gtk_widget_set_opacity(GTK_WIDGET(found->second.mark), server.isReady ? 1 : 0.4);
        }
        for (const auto& key : state.keys) {
            const auto found = keys_.find(key.provider);
            if (found == keys_.end()) continue;
            gtk_label_set_text(found->second.masked, key.masked.value_or("").c_str());
            gtk_widget_set_visible(GTK_WIDGET(found->second.masked), key.masked.has_value());
            gtk_widget_set_visible(found->second.removal, key.masked.has_value());
        }
        if (state.keys.empty())
            for (const auto& [id, row] : keys_) gtk_widget_set_visible(row.removal, FALSE);
        gtk_spinner_set_spinning(spinner_, state.checking);
        gtk_widget_set_visible(again_, !state.checking);
    }

    void tell(const std::string& words) {
        auto* window = gtk_widget_get_root(GTK_WIDGET(page_));
        if (!ADW_IS_PREFERENCES_WINDOW(window)) return;
        adw_preferences_window_add_toast(ADW_PREFERENCES_WINDOW(window),
                                         reasonToast(GTK_WINDOW(window), words));
    }

    AdwPreferencesPage* page_;
    std::shared_ptr<ProviderSettings> settings_;
    std::map<BrainProviderID, KeyRow> keys_;
    std::map<BrainProviderID, ServerRow> servers_;
    GtkSpinner* spinner_ = nullptr;
    GtkWidget *again_ = nullptr, *address_ = nullptr, *model_ = nullptr, *deviceAddress_ = nullptr,
              *deviceModel_ = nullptr, *deviceContext_ = nullptr;
    std::vector<Subscription> subscriptions_;
};

}  // namespace

AdwPreferencesPage* makeAssistantSettingsPage(std::shared_ptr<ProviderSettings> settings) {
    return (new SettingsPage(std::move(settings)))->page();
}

void showAssistantSettings(GtkWindow* parent, std::shared_ptr<ProviderSettings> settings) {
    auto* window = ADW_PREFERENCES_WINDOW(adw_preferences_window_new());
    gtk_window_set_title(GTK_WINDOW(window), _("AI Settings"));
    gtk_window_set_transient_for(GTK_WINDOW(window), parent);
    gtk_window_set_modal(GTK_WINDOW(window), TRUE);
    adw_preferences_window_set_search_enabled(window, FALSE);
    adw_preferences_window_add(window, makeAssistantSettingsPage(std::move(settings)));
    gtk_window_present(GTK_WINDOW(window));
}

}  // namespace vesk::views
