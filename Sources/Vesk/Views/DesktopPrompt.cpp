#include "Vesk/Views/DesktopPrompt.h"

#include <utility>

namespace vesk::views {
namespace {

GtkWidget* buttonLabelled(GtkWidget* widget, const std::string& label) {
    if (GTK_IS_BUTTON(widget)) {
        const char* words = gtk_button_get_label(GTK_BUTTON(widget));
        return words && label == words && gtk_widget_get_mapped(widget) ? widget : nullptr;
    }
    for (auto* child = gtk_widget_get_first_child(widget); child; child = gtk_widget_get_next_sibling(child))
        if (auto* found = buttonLabelled(child, label)) return found;
    return nullptr;
}

struct Beginning {
    AdwMessageDialog* dialog;
    std::string response;
    bool hasLeft = false;  ///< the person went to another answer
};

void goToAnswer(Beginning& beginning) {
    if (beginning.hasLeft) return;
    const char* label = adw_message_dialog_get_response_label(beginning.dialog, beginning.response.c_str());
    if (auto* button = buttonLabelled(GTK_WIDGET(beginning.dialog), label)) gtk_widget_grab_focus(button);
}

gboolean answerKey(GtkEventControllerKey*, guint key, guint, GdkModifierType, gpointer data) {
    auto& beginning = *static_cast<Beginning*>(data);
    switch (key) {
        case GDK_KEY_Return:
        case GDK_KEY_KP_Enter:
        case GDK_KEY_ISO_Enter:
        case GDK_KEY_space:
        case GDK_KEY_KP_Space:
            if (beginning.hasLeft) return FALSE;
            beginning.hasLeft = true;
            gtk_window_close(GTK_WINDOW(beginning.dialog));  // which is this answer
            return TRUE;
        case GDK_KEY_Tab:
        case GDK_KEY_ISO_Left_Tab:
        case GDK_KEY_Left:
        case GDK_KEY_Right:
        case GDK_KEY_Up:
        case GDK_KEY_Down:
            beginning.hasLeft = true;
            return FALSE;
        default:
            return FALSE;
    }
}

}  // namespace

void beginAt(AdwMessageDialog* dialog, const char* response) {
    adw_message_dialog_set_default_response(dialog, response);
    adw_message_dialog_set_close_response(dialog, response);
    const auto beginning = std::make_shared<Beginning>(Beginning{dialog, response});
    auto* keys = gtk_event_controller_key_new();
    gtk_event_controller_set_propagation_phase(keys, GTK_PHASE_CAPTURE);
    g_signal_connect(keys, "key-pressed", G_CALLBACK(answerKey), beginning.get());
    gtk_widget_add_controller(GTK_WIDGET(dialog), keys);
    onSignal(dialog, "notify::focus-widget", [beginning] { goToAnswer(*beginning); });
}

void DesktopPrompt::ask(const LeavingAlert& alert, std::function<void(LeavingChoice)> answer) {
    auto* dialog = ADW_MESSAGE_DIALOG(
        adw_message_dialog_new(parent_(), alert.message.c_str(), alert.information.c_str()));
    adw_message_dialog_add_response(dialog, "stay", alert.stay.c_str());
    adw_message_dialog_add_response(dialog, "elsewhere", alert.saveElsewhere.c_str());
    adw_message_dialog_add_response(dialog, "leave", alert.leave.c_str());
    adw_message_dialog_set_response_appearance(dialog, "leave", ADW_RESPONSE_DESTRUCTIVE);
    beginAt(dialog, "stay");
    g_signal_connect_data(
        dialog, "response", G_CALLBACK(+[](AdwMessageDialog*, const char* response, gpointer data) {
            const std::string_view chosen = response;
            const auto reply =
                std::exchange(*static_cast<std::function<void(LeavingChoice)>*>(data), nullptr);
            if (!reply) return;
            reply(chosen == "leave"       ? LeavingChoice::leave
                  : chosen == "elsewhere" ? LeavingChoice::saveElsewhere
                                          : LeavingChoice::stay);
        }),
        new std::function<void(LeavingChoice)>(std::move(answer)),
        +[](gpointer data, GClosure*) { delete static_cast<std::function<void(LeavingChoice)>*>(data); },
        GConnectFlags(0));
    gtk_window_present(GTK_WINDOW(dialog));
}

void DesktopPrompt::chooseFolder(const std::string& message,
                                 std::function<void(std::optional<FilePath>)> answer) {
    const char* documents = g_get_user_special_dir(G_USER_DIRECTORY_DOCUMENTS);
    views::chooseFolder(parent_(), message, _("Save Here"), documents ? FilePath(documents) : FilePath(),
                        std::move(answer));
}

void DesktopPrompt::tell(const std::string& message, const std::string& information) {
    auto* dialog =
        ADW_MESSAGE_DIALOG(adw_message_dialog_new(parent_(), message.c_str(), information.c_str()));
    adw_message_dialog_add_response(dialog, "ok", _("OK"));
    gtk_window_present(GTK_WINDOW(dialog));
}

void DesktopPrompt::reveal(const std::vector<FilePath>& files) {
    revealFiles(files);
}

void chooseFolder(GtkWindow* parent, const std::string& title, const std::string& accept,
                  const FilePath& start, std::function<void(std::optional<FilePath>)> answer) {
    auto* chooser = gtk_file_chooser_native_new(title.c_str(), parent, GTK_FILE_CHOOSER_ACTION_SELECT_FOLDER,
                                                accept.c_str(), nullptr);
    gtk_native_dialog_set_modal(GTK_NATIVE_DIALOG(chooser), TRUE);
    gtk_file_chooser_set_create_folders(GTK_FILE_CHOOSER(chooser), TRUE);
    if (!start.empty()) {
        GFile* folder = g_file_new_for_path(start.c_str());
        gtk_file_chooser_set_current_folder(GTK_FILE_CHOOSER(chooser), folder, nullptr);
        g_object_unref(folder);
    }
    using Answer = std::function<void(std::optional<FilePath>)>;
    g_signal_connect(chooser, "response",
                     G_CALLBACK(+[](GtkNativeDialog* dialog, int response, gpointer data) {
                         const std::unique_ptr<Answer> reply(static_cast<Answer*>(data));
                         std::optional<FilePath> chosen;
                         if (response == GTK_RESPONSE_ACCEPT) {
                             if (GFile* file = gtk_file_chooser_get_file(GTK_FILE_CHOOSER(dialog))) {
                                 if (const char* path = g_file_peek_path(file)) chosen = FilePath(path);
                                 g_object_unref(file);
                             }
                         }
                         g_signal_handlers_disconnect_by_data(dialog, data);
                         g_object_unref(dialog);
                         (*reply)(chosen);
                     }),
                     new Answer(std::move(answer)));
    gtk_native_dialog_show(GTK_NATIVE_DIALOG(chooser));
}

void revealFiles(const std::vector<FilePath>& files) {
    if (files.empty()) return;
    GVariantBuilder uris;
    g_variant_builder_init(&uris, G_VARIANT_TYPE("as"));
    for (const auto& file : files) {
        if (char* uri = g_filename_to_uri(file.c_str(), nullptr, nullptr)) {
            g_variant_builder_add(&uris, "s", uri);
            g_free(uri);
        }
    }
    // Every file manager of a desktop answers to this; without a session bus nothing is shown.
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    if (!bus) {
        g_variant_builder_clear(&uris);
        return;
    }
    g_dbus_connection_call(bus, "org.freedesktop.FileManager1", "/org/freedesktop/FileManager1",
                           "org.freedesktop.FileManager1", "ShowItems", g_variant_new("(ass)", &uris, ""),
                           nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
    g_object_unref(bus);
}

}  // namespace vesk::views
