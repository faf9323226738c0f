#include "Vesk/Views/EditorView.h"

#include <fmt/core.h>

#include <algorithm>

#include "VeskCore/Support/Text.h"

namespace vesk::views {
namespace {

constexpr int columnWidth = 760;  // of text, in pixels: a line longer than this tires the eye
constexpr int leastMargin = 24;

GtkTextViewClass* parentClass() {
    return GTK_TEXT_VIEW_CLASS(g_type_class_peek(GTK_TYPE_TEXT_VIEW));
}

}  // namespace

EditorViewClass::EditorViewClass()
    : Glib::ExtraClassInit([](gpointer klass, gpointer) {
          auto* view = GTK_TEXT_VIEW_CLASS(klass);
          view->snapshot_layer = [](GtkTextView* self, GtkTextViewLayer layer, GtkSnapshot* snapshot) {
              if (auto* editor = EditorView::of(self)) editor->drawLayer(layer, snapshot);
          };
          view->move_cursor = [](GtkTextView* self, GtkMovementStep step, int count, gboolean extends) {
              if (auto* editor = EditorView::of(self)) editor->moveCursor(step, count, extends);
          };
          view->paste_clipboard = [](GtkTextView* self) {
              if (auto* editor = EditorView::of(self)) editor->pastePlainText();
          };
      }) {}

EditorView* EditorView::of(GtkTextView* view) {
    return dynamic_cast<EditorView*>(Glib::ObjectBase::_get_current_wrapper(G_OBJECT(view)));
}

EditorView::EditorView() : Glib::ObjectBase("VeskEditorView"), css_(Gtk::CssProvider::create()) {
    gtk_text_view_set_buffer(gobj(), content_.buffer());
    set_wrap_mode(Gtk::WrapMode::WORD_CHAR);
    set_top_margin(8);
    set_bottom_margin(96);
    set_pixels_above_lines(2);
    set_pixels_below_lines(4);
    set_pixels_inside_wrap(3);
    set_accepts_tab(true);
    add_css_class("vesk-editor");
    get_style_context()->add_provider(css_, GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    gtk_accessible_update_property(GTK_ACCESSIBLE(gobj()), GTK_ACCESSIBLE_PROPERTY_LABEL, "Note text", -1);
    content_.onEdited = [this] {
        if (onEdited) onEdited();
    };
    g_signal_connect(content_.buffer(), "notify::cursor-position",
                     G_CALLBACK(+[](GtkTextBuffer*, GParamSpec*, gpointer self) {
                         auto* editor = static_cast<EditorView*>(self);
                         if (editor->onSelectionMoved) editor->onSelectionMoved();
                     }),
                     this);
}

EditorView::~EditorView() {
    g_signal_handlers_disconnect_by_data(content_.buffer(), this);
}

void EditorView::show(std::u16string_view text, bool isPlain) {
    content_.load(text, isPlain);
    content_.select({});
    if (auto adjustment = get_vadjustment()) adjustment->set_value(0);
}

void EditorView::follow(std::u16string_view text, TextRange selection) {
    content_.follow(text);
    content_.select(selection);
}

void EditorView::applyTheme(double bodyPoints) {
    const auto theme = EditorTheme::current(bodyPoints);
    css_->load_from_data(fmt::format("textview {{ font-size: {}pt; }}", shortestDecimal(bodyPoints)));
    content_.setTheme(theme);
    queue_draw();
}

void EditorView::revealCaret() {
    gtk_text_view_scroll_mark_onscreen(gobj(), gtk_text_buffer_get_insert(content_.buffer()));
}

void EditorView::size_allocate_vfunc(int width, int height, int baseline) {
    if (width != marginWidth_) {
        marginWidth_ = width;
        const int margin = std::max(leastMargin, (width - columnWidth) / 2);
        set_left_margin(margin);
        set_right_margin(margin);
        if (onMarginChanged)
            Glib::signal_idle().connect_once(
                sigc::track_obj([this, margin] { onMarginChanged(margin); }, *this));
    }
    Gtk::TextView::size_allocate_vfunc(width, height, baseline);
}

void EditorView::drawLayer(GtkTextViewLayer, GtkSnapshot*) {}

void EditorView::moveCursor(GtkMovementStep step, int count, bool extends) {
    parentClass()->move_cursor(gobj(), step, count, extends);
}

void EditorView::pastePlainText() {
    // The toolkit's own paste carries the tags of text copied in this process.
    const auto pasteRead = [this](const Glib::RefPtr<Gio::AsyncResult>& result) {
        Glib::ustring pasted;
        try {
            pasted = get_clipboard()->read_text_finish(result);
        } catch (const Glib::Error&) {
            return;  // there is no text to paste
        }
        if (!get_editable()) return;
        content_.asOneStep([&] {
            gtk_text_buffer_delete_selection(content_.buffer(), TRUE, TRUE);
            gtk_text_buffer_insert_at_cursor(content_.buffer(), pasted.c_str(),
                                             static_cast<int>(pasted.bytes()));
        });
        revealCaret();
    };
    get_clipboard()->read_text_async(sigc::track_obj(pasteRead, *this));
}

}  // namespace vesk::views
