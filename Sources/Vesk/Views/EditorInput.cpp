// The keyboard and the pointer in the editor.
#include "Vesk/Views/EditorCommands.h"
#include "Vesk/Views/EditorView.h"
#include "VeskCore/Editor/EditingCommands.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::views {
namespace {

constexpr int modifiers = GDK_CONTROL_MASK | GDK_SHIFT_MASK | GDK_ALT_MASK | GDK_SUPER_MASK;

struct Key {
    guint key = 0;
    int held = 0;
    const EditorCommand* command = nullptr;
};

const std::vector<Key>& commandKeys() {
    static const auto keys = [] {
        std::vector<Key> found;
        for (const auto& command : editorCommands()) {
            Key key;
            GdkModifierType held{};
            if (*command.key && gtk_accelerator_parse(command.key, &key.key, &held)) {
                key.held = held;
                key.command = &command;
                found.push_back(key);
            }
        }
        return found;
    }();
    return keys;
}

/// What Shift makes of a digit on the common layout.
guint shiftedDigit(guint digit) {
    constexpr const char* signs = ")!@#$%^&*(";
    return static_cast<guint>(signs[digit - GDK_KEY_0]);
}

}  // namespace

void EditorView::connectInput() {
    auto keys = Gtk::EventControllerKey::create();
    keys->set_propagation_phase(Gtk::PropagationPhase::CAPTURE);
    keys->signal_key_pressed().connect(
        [this, raw = keys.get()](guint key, guint, Gdk::ModifierType state) {
            const int held = static_cast<int>(state) & modifiers;
            const bool endsWord = key == GDK_KEY_Return || key == GDK_KEY_KP_Enter || key == GDK_KEY_Tab ||
                                  key == GDK_KEY_BackSpace;
            // What an input method composes is its own until it is done.
            if (held == 0 && endsWord && !completion_.isOpen() &&
                gtk_text_view_im_context_filter_keypress(
                    gobj(), gtk_event_controller_get_current_event(GTK_EVENT_CONTROLLER(raw->gobj()))))
                return true;
            return keyPressed(key, held);
        },
        false);
    add_controller(keys);

    auto click = Gtk::GestureClick::create();
    click->set_button(GDK_BUTTON_PRIMARY);
    click->set_propagation_phase(Gtk::PropagationPhase::CAPTURE);
    click->signal_pressed().connect(
        [this, raw = click.get()](int presses, double x, double y) { clicked(*raw, presses, x, y); });
    add_controller(click);

    auto motion = Gtk::EventControllerMotion::create();
    motion->signal_motion().connect([this, raw = motion.get()](double x, double y) {
        pointerMoved(
            x, y, (raw->get_current_event_state() & Gdk::ModifierType::CONTROL_MASK) != Gdk::ModifierType(0));
    });
    add_controller(motion);

    auto focus = Gtk::EventControllerFocus::create();
    focus->signal_enter().connect([this] {
        if (highlighter_) highlighter_->reveal(content_.selection(), content_);
    });
    focus->signal_leave().connect([this] {
        completion_.close();
        if (highlighter_) highlighter_->reveal({}, content_);
    });
    add_controller(focus);

    auto drop = Gtk::DropTarget::create(GDK_TYPE_FILE_LIST, Gdk::DragAction::COPY);
    drop->set_propagation_phase(Gtk::PropagationPhase::CAPTURE);
    drop->signal_drop().connect(
        [this](const Glib::ValueBase& value, double x, double y) {
            std::vector<FilePath> files;
            for (auto* item = static_cast<GSList*>(g_value_get_boxed(value.gobj())); item; item = item->next)
                if (const char* path = g_file_peek_path(G_FILE(item->data))) files.emplace_back(path);
            if (files.empty() || !get_editable()) return false;
            if (const auto offset = offsetAt(x, y)) content_.select({*offset, 0});
            if (onFiles) onFiles(files);
            return true;
        },
        false);
    add_controller(drop);
}

bool EditorView::keyPressed(guint key, int held) {
    if (held == 0 && completion_.keyPressed(key)) return true;
    if (!get_editable()) return false;
    const auto text = content_.text();
    const auto selection = content_.selection();
    if (content_.isPlain()) return false;
    switch (key) {
        case GDK_KEY_Return:
        case GDK_KEY_KP_Enter:
            if (held == 0) return perform(EditingCommands::insertNewline(text, selection));
            break;
        case GDK_KEY_Tab:
            if (held == 0) return perform(EditingCommands::indent(text, selection));
            break;
        case GDK_KEY_ISO_Left_Tab:
            return perform(EditingCommands::outdent(text, selection));
        case GDK_KEY_BackSpace:
            if (held == 0) return perform(EditingCommands::deleteBackward(text, selection));
            break;
        default:
            break;
    }
    const guint lower = gdk_keyval_to_lower(key);
    for (const auto& [wanted, mask, command] : commandKeys()) {
        // With Shift a key of the top row names the sign on it; the digit is what the table says.
        const bool isKey = lower == wanted || key == wanted ||
                           (wanted >= GDK_KEY_0 && wanted <= GDK_KEY_9 && lower == shiftedDigit(wanted));
        if (isKey && held == mask) return perform(command->edit(text, selection));
    }
    const auto typed = gdk_keyval_to_unicode(key);
    const bool isTyping = (held & ~GDK_SHIFT_MASK) == 0;
    if (isTyping && !selection.empty() && typed > 0 && typed < 0x80)
        return perform(EditingCommands::wrapSelection(text, selection, static_cast<char16_t>(typed)));
    return false;
}

void EditorView::clicked(Gtk::GestureClick& gesture, int presses, double x, double y) {
    const auto event = gesture.get_current_event_state();
    int bufferX = 0, bufferY = 0;
    gtk_text_view_window_to_buffer_coords(gobj(), GTK_TEXT_WINDOW_WIDGET, static_cast<int>(x),
                                          static_cast<int>(y), &bufferX, &bufferY);
    if ((event & Gdk::ModifierType::CONTROL_MASK) != Gdk::ModifierType(0)) {
        const auto offset = offsetAt(x, y);
        const auto link = offset ? LinkAt::at(content_.text(), *offset) : std::nullopt;
        if (link && onLink) {
            gesture.set_state(Gtk::EventSequenceState::CLAIMED);
            onLink(*link);
        }
        return;
    }
    const auto hit = decorations_.hit(bufferX, bufferY);
    if (!hit) return;
    switch (hit->kind) {
        case EditorDecorations::Hit::Kind::task:
            gesture.set_state(Gtk::EventSequenceState::CLAIMED);
            if (const auto edit =
                    EditingCommands::toggleTaskAt(content_.text(), hit->offset, content_.selection());
                edit && get_editable()) {
                content_.replace(edit->range, edit->replacement);
                content_.select(edit->selection);
            }
            break;
        case EditorDecorations::Hit::Kind::cell:
            gesture.set_state(Gtk::EventSequenceState::CLAIMED);
            grab_focus();
            content_.select({hit->offset, 0});
            break;
        case EditorDecorations::Hit::Kind::image:
            if (presses == 2 && onImageOpened) onImageOpened(hit->target);
            break;
    }
}

void EditorView::pointerMoved(double x, double y, bool isControlHeld) {
    int bufferX = 0, bufferY = 0;
    gtk_text_view_window_to_buffer_coords(gobj(), GTK_TEXT_WINDOW_WIDGET, static_cast<int>(x),
                                          static_cast<int>(y), &bufferX, &bufferY);
    const char* shape = "text";
    if (isControlHeld) {
        const auto offset = offsetAt(x, y);
        if (offset && LinkAt::at(content_.text(), *offset)) shape = "pointer";
    } else if (const auto hit = decorations_.hit(bufferX, bufferY);
               hit && hit->kind == EditorDecorations::Hit::Kind::task) {
        shape = "pointer";
    }
    set_cursor(shape);
}

void EditorView::pasteText(const std::string& pasted) {
    if (!get_editable()) return;
    const auto units = utf16(pasted);
    if (!content_.isPlain() && perform(EditingCommands::paste(content_.text(), content_.selection(), units)))
        return;
    insertText(units);
}

}  // namespace vesk::views
