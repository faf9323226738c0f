// Keys, menus, palette: one table of actions feeds them all.
#include "Vesk/Views/DesktopApplication.h"
#include "Vesk/Views/EditorCommands.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::views {
namespace {

constexpr std::size_t mostShown = 60;
constexpr int menuSections = 3;

/// Whether the person is in one of the application's windows.
bool isAnyActive() {
    auto* windows = gtk_window_get_toplevels();
    for (guint index = 0; index < g_list_model_get_n_items(windows); ++index) {
        auto* window = static_cast<GtkWindow*>(g_list_model_get_item(windows, index));
        g_object_unref(window);
        if (gtk_window_is_active(window)) return true;
    }
    return false;
}

}  // namespace

void DesktopApplication::addActions() {
    const auto withNote = [this](void (DesktopApplication::*does)(const std::string&)) {
        return [this, does] {
            if (const auto path = openNote()) (this->*does)(*path);
        };
    };
    actions_ = {
        {"new-note", N_("New Note"), N_("Notes"), {"<Control>n"}, [this] { newNote({}); }, 1},
        {"new-folder", N_("New Folder"), N_("Notes"), {"<Control><Shift>n"}, [this] { newFolder(""); }, 1},
        {"quick-switcher", N_("Go to Note…"), N_("Notes"), {"<Control>p"}, [this] { quickSwitcher(); }, 1},
        {"search",
         N_("Search All Notes"),
         N_("Notes"),
         {"<Control><Shift>f"},
         [this] { window_->focusSearch(); }},
        {"rename",
         N_("Rename Note or Folder"),
         N_("Notes"),
         {"F2"},
         [this] {
             if (const auto row = window_->sidebar().focused()) return askForName(*row);
             if (const auto path = openNote()) askForName(*path);
         }},
        {"move",
         N_("Move Note to Folder…"),
         N_("Notes"),
         {"<Control><Shift>m"},
         withNote(&DesktopApplication::askWhereTo)},
        {"trash-note",
         N_("Move Note to Trash"),
         N_("Notes"),
         {"<Control>Delete"},
         withNote(&DesktopApplication::trash)},
        {"reminder",
         N_("Remind Me…"),
         N_("Notes"),
         {"<Control><Shift>b"},
         [this] {
             if (openNote()) window_->showReminder();
         }},
        {"icon", N_("Choose Note Icon…"), N_("Notes"), {}, withNote(&DesktopApplication::askForIcon)},
        {"back", N_("Back"), N_("Moving Around"), {"<Alt>Left"}, [this] { go(true); }},
        {"forward", N_("Forward"), N_("Moving Around"), {"<Alt>Right"}, [this] { go(false); }},
        {"outline",
         N_("Outline"),
         N_("Moving Around"),
         {"<Control><Shift>o"},
         [this] { window_->showOutline(); }},
        {"next-pane", N_("Next Pane"), N_("Moving Around"), {"F6"}, [this] { window_->focusNextPane(); }},
        {"sidebar",
         N_("Show or Hide the List"),
         N_("Moving Around"),
         {"F9"},
         [this] { window_->toggleSidebar(); }},
        {"inspector",
         N_("Show or Hide Links"),
         N_("Moving Around"),
         {"<Control><Shift>l"},
         [this] { toggleInspector(); }},
        {"ask",
         N_("Ask About Your Notes"),
         N_("Assistant"),
         {"<Control><Shift>a"},
         [this] { assistant_->ask(); },
         1},
        {"assistant-actions",
         N_("Quick Actions"),
         N_("Assistant"),
         {"<Control><Shift>k"},
         [this] {
             assistant_->ask();
             assistant_->pane().showQuickActions();
         }},
        {"assistant-file", N_("File This Note"), N_("Assistant"), {}, [this] { assistant_->fileNote(); }},
        {"organise", N_("Organise My Notes…"), N_("Assistant"), {}, [this] { assistant_->organise(); }},
        {"assistant-review",
         N_("Review What Is Proposed"),
         N_("Assistant"),
         {"<Control><Shift>r"},
         [this] { assistant_->review(); }},
        {"assistant-stop", N_("Stop Answering"), N_("Assistant"), {}, [this] { assistant_->stop(); }},
        {"assistant-new",
         N_("New Conversation"),
         N_("Assistant"),
         {},
         [this] { assistant_->newConversation(); }},
        {"assistant-settings",
         N_("AI Settings"),
         N_("Assistant"),
         {},
         [this] { assistant_->openSettings(); },
         3},
        {"find", N_("Find in Note"), N_("Note"), {"<Control>f"}, [this] { window_->find(false); }},
        {"replace", N_("Find and Replace"), N_("Note"), {"<Control>h"}, [this] { window_->find(true); }},
        {"find-next", N_("Find Next"), N_("Note"), {"<Control>g"}, [this] { window_->findStep(true); }},
        {"find-previous",
         N_("Find Previous"),
         N_("Note"),
         {"<Control><Shift>g"},
         [this] { window_->findStep(false); }},
        {"save", N_("Save Now"), N_("Note"), {"<Control>s"}, [this] { bridge_.flushAllPendingSaves(); }},
        {"command-palette",
         N_("Command Palette…"),
         N_("General"),
         {"<Control><Shift>p"},
         [this] { commandPalette(); },
         1},
        {"open-vault",
         N_("Open Another Vault…"),
         N_("General"),
         {"<Control>o"},
         [this] { workspace_.chooseVault(Workspace::StartIn::documents); },
         2},
        {"trash", N_("Trash…"), N_("General"), {}, [this] { showTrash(); }, 2},
        {"preferences",
         N_("Preferences"),
         N_("General"),
         {"<Control>comma"},
         [this] { showPreferences(); },
         3},
        {"shortcuts",
         N_("Keyboard Shortcuts"),
         N_("General"),
         {"<Control>question", "F1"},
         [this] { showShortcuts(); },
         3},
        {"about", N_("About Vesk"), N_("General"), {}, [this] { showAbout(); }, 3},
        {"quit", N_("Quit"), N_("General"), {"<Control>q"}, [this] { askToQuit(); }},
    };
    for (const auto action : allQuickActions)
        actions_.push_back(
            {rawValue(action).data(), title(action).data(), N_("Assistant"), {}, [this, action] {
                 assistant_->run(action);
             }});
    for (const auto& action : actions_) {
        const bool isForWindow = std::string_view(action.name) != "quit";
        add_action(action.name, [does = action.does, isForWindow, this] {
            if (isEnding_) return;
            // Asked on the session bus, perhaps before there is a window.
            if (isForWindow && !isAnyActive()) showWindow();
            does();
        });
        if (!action.keys.empty()) set_accels_for_action(Glib::ustring("app.") + action.name, action.keys);
    }
}

Glib::RefPtr<Gio::Menu> DesktopApplication::mainMenu() const {
    auto menu = Gio::Menu::create();
    for (int number = 1; number <= menuSections; ++number) {
        auto section = Gio::Menu::create();
        for (const auto& action : actions_)
            if (action.menu == number) section->append(_(action.title), Glib::ustring("app.") + action.name);
        menu->append_section(section);
    }
    return menu;
}

void DesktopApplication::quickSwitcher() {
    if (!surface()) return;
    std::vector<std::string> paths;
    paths.reserve(workspace_.notes.get().size());
    for (const auto& note : workspace_.notes.get()) paths.push_back(note.relativePath);
    Picker::show(
        window_->window(), _("Go to Note"), _("Go to note…"),
        [names = names(), paths = std::move(paths)](const std::string& typed) {
            std::vector<PickerItem> items;
            for (const auto index : names->matching(typed, mostShown))
                items.push_back({.id = paths[index],
                                 .title = (*names)[index].text,
                                 .detail = decodedText(std::string(parentFolder(paths[index])))});
            if (!typed.empty())
                items.push_back(
                    {.id = "", .title = localised("New note “{}”", typed), .icon = "document-new-symbolic"});
            return items;
        },
        [this](const std::string& path, const std::string& typed) {
            if (!path.empty()) return showNote(path, true);
            if (!surface()) return;
            try {
                const auto note = workspace_.vault.get()->createNote(typed, "", "");
                workspace_.reload();
                showNote(note.relativePath, true);
            } catch (const std::exception&) {
                tell(describe(std::current_exception()));
            }
        });
}

void DesktopApplication::commandPalette() {
    std::vector<PickerItem> all;
    std::vector<Completion::Candidate> titles;
    const auto add = [&](std::string id, const char* title, const char* group, const std::string& key) {
        all.push_back({.id = std::move(id), .title = title, .detail = group, .key = key});
        titles.push_back({title, 0});
    };
    for (const auto& action : actions_)
        if (std::string_view(action.name) != "command-palette")
            add(std::string("app:") + action.name, _(action.title), _(action.group),
                action.keys.empty() ? std::string() : std::string(action.keys.front()));
    for (const auto& command : editorCommands())
        add(std::string("editor:") + command.id, _(command.title), _(command.group), command.key);
    const auto candidates = std::make_shared<const Completion::Candidates>(std::move(titles));
    Picker::show(
        window_->window(), _("Command Palette"), _("Do…"),
        [all = std::move(all), candidates](const std::string& typed) {
            if (typed.empty()) return all;
            std::vector<PickerItem> items;
            for (const auto index : candidates->matching(typed, mostShown)) items.push_back(all[index]);
            return items;
        },
        [this](const std::string& id, const std::string&) {
            if (id.starts_with("editor:")) {
                window_->note().focus();
                window_->note().editor().performCommand(id.substr(7));
            } else {
                activate_action(id.substr(4));
            }
        });
}

void DesktopApplication::showShortcuts() {
    struct Row {
        std::string title, group, key;
    };
    std::vector<Row> rows;
    for (const auto& action : actions_)
        if (!action.keys.empty()) rows.push_back({_(action.title), _(action.group), action.keys.front()});
    rows.push_back({_("Complete Link or Tag"), _("Text"), "Return"});
    for (const auto& command : editorCommands())
        if (*command.key) rows.push_back({_(command.title), _(command.group), command.key});
    std::string xml =
        "<interface><object class='GtkShortcutsWindow' id='shortcuts'><property name='modal'>1</property>"
        "<child><object class='GtkShortcutsSection'><property name='section-name'>all</property>"
        "<property name='max-height'>14</property>";
    const auto escaped = [](const std::string& text) {
        char* safe = g_markup_escape_text(text.c_str(), -1);
        std::string copy = safe;
        g_free(safe);
        return copy;
    };
    std::vector<std::string> groups;
    for (const auto& row : rows)
        if (std::find(groups.begin(), groups.end(), row.group) == groups.end()) groups.push_back(row.group);
    for (const auto& group : groups) {
        xml += "<child><object class='GtkShortcutsGroup'><property name='title'>" + escaped(group) +
               "</property>";
        for (const auto& row : rows) {
            if (row.group != group) continue;
            xml += "<child><object class='GtkShortcutsShortcut'><property name='title'>" +
                   escaped(row.title) + "</property><property name='accelerator'>" + escaped(row.key) +
                   "</property></object></child>";
        }
        xml += "</object></child>";
    }
    xml += "</object></child></object></interface>";
    GtkBuilder* builder = gtk_builder_new_from_string(xml.c_str(), -1);
    auto* shortcuts = GTK_WINDOW(gtk_builder_get_object(builder, "shortcuts"));
    gtk_window_set_transient_for(shortcuts, window_->window());
    gtk_window_present(shortcuts);
    g_object_unref(builder);
}

void DesktopApplication::showAbout() {
    auto* about = ADW_ABOUT_WINDOW(adw_about_window_new());
    adw_about_window_set_application_name(about, "Vesk");
    adw_about_window_set_application_icon(about, "com.tarnlight.vesk");
    adw_about_window_set_version(about, seams_.version.c_str());
    adw_about_window_set_comments(about, _("Notes in a folder of ordinary Markdown files."));
    adw_about_window_set_license_type(about, GTK_LICENSE_APACHE_2_0);
    gtk_window_set_transient_for(GTK_WINDOW(about), window_->window());
    gtk_window_set_modal(GTK_WINDOW(about), TRUE);
    gtk_window_present(GTK_WINDOW(about));
}

void DesktopApplication::showPreferences() {
    auto* window = ADW_PREFERENCES_WINDOW(adw_preferences_window_new());
    gtk_window_set_transient_for(GTK_WINDOW(window), window_->window());
    gtk_window_set_modal(GTK_WINDOW(window), TRUE);
    auto* page = ADW_PREFERENCES_PAGE(adw_preferences_page_new());
    adw_preferences_page_set_title(page, _("General"));
    adw_preferences_page_set_icon_name(page, "preferences-system-symbolic");
    auto* editor = ADW_PREFERENCES_GROUP(adw_preferences_group_new());
    adw_preferences_group_set_title(editor, _("Editor"));
    auto* size = ADW_ACTION_ROW(adw_action_row_new());
    adw_preferences_row_set_title(ADW_PREFERENCES_ROW(size), _("Text size"));
    adw_action_row_set_subtitle(size, _("Of the body text, in points"));
    auto* spin = gtk_spin_button_new_with_range(8, 32, 1);
    gtk_spin_button_set_value(GTK_SPIN_BUTTON(spin),
                              seams_.defaults.number("vesk.editor.fontSize").value_or(12));
    gtk_widget_set_valign(spin, GTK_ALIGN_CENTER);
    adw_action_row_add_suffix(size, spin);
    adw_action_row_set_activatable_widget(size, spin);
    onSignal(spin, "value-changed", [this, spin] {
        seams_.defaults.set("vesk.editor.fontSize", gtk_spin_button_get_value(GTK_SPIN_BUTTON(spin)));
        applyLook();
    });
    adw_preferences_group_add(editor, GTK_WIDGET(size));
    auto* vault = ADW_PREFERENCES_GROUP(adw_preferences_group_new());
    adw_preferences_group_set_title(vault, _("Vault"));
    auto* folder = ADW_ACTION_ROW(adw_action_row_new());
    adw_preferences_row_set_use_markup(ADW_PREFERENCES_ROW(folder), FALSE);
    adw_preferences_row_set_title(ADW_PREFERENCES_ROW(folder), _("Folder"));
    const auto path =
        workspace_.vault.get() ? workspace_.vault.get()->root().string() : std::string(_("None is open"));
    char* escaped = g_markup_escape_text(decodedText(path).c_str(), -1);
    adw_action_row_set_subtitle(folder, escaped);
    g_free(escaped);
    auto* change = gtk_button_new_with_label(_("Open Another…"));
    gtk_widget_set_valign(change, GTK_ALIGN_CENTER);
    onSignal(change, "clicked", [this, window] {
        gtk_window_close(GTK_WINDOW(window));
        workspace_.chooseVault(Workspace::StartIn::documents);
    });
    adw_action_row_add_suffix(folder, change);
    adw_preferences_group_add(vault, GTK_WIDGET(folder));
    adw_preferences_page_add(page, editor);
    adw_preferences_page_add(page, vault);
    adw_preferences_window_add(window, page);
    gtk_window_present(GTK_WINDOW(window));
}

void DesktopApplication::showTrash() {
    const auto& trashed = workspace_.trashedNotes.get();
    if (trashed.empty() && workspace_.trashedOtherItems.get() == 0)
        return window_->toast(_("The trash is empty."));
    std::vector<PickerItem> all;
    for (const auto& note : trashed)
        all.push_back(
            {.id = note.trashPath,
             .title = decodedText(note.name()),
             .detail = note.origin ? decodedText(std::string(parentFolder(*note.origin))) : std::string(),
             .icon = "edit-undo-symbolic"});
    all.push_back({.id = "", .title = _("Empty Trash…"), .icon = "user-trash-symbolic"});
    Picker::show(
        window_->window(), _("Trash"), _("Restore a note…"),
        [all = std::move(all)](const std::string& typed) {
            std::vector<PickerItem> items;
            for (const auto& item : all)
                if (typed.empty() || containsIgnoringCase(item.title, typed)) items.push_back(item);
            return items;
        },
        [this](const std::string& id, const std::string&) { id.empty() ? emptyTrash() : restore(id); });
}

}  // namespace vesk::views
