#include "Vesk/Views/EditorView.h"

#include <fmt/core.h>

#include <algorithm>

#include "Vesk/Views/EditorCommands.h"
#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::views {
namespace {

constexpr int columnWidth = 740;  // of text, in pixels: a line longer than this tires the eye
constexpr int leastMargin = 28;
constexpr std::size_t firstPiece = 6'000, nextPiece = 20'000;  // units styled at once
constexpr unsigned pictureDelay = 250;                         // milliseconds after the last keystroke

GtkTextViewClass* parentClass() {
    return GTK_TEXT_VIEW_CLASS(g_type_class_peek(GTK_TYPE_TEXT_VIEW));
}

/// Where reading begins: behind the frontmatter and behind a first heading that repeats the title.
std::size_t bodyStart(std::u16string_view text, const std::string& title) {
    const auto afterBlanks = [&](std::size_t at) {
        while (at < text.size()) {
            const auto line = EditorLines::lineFrom(text, at);
            if (EditorLines::firstShown(EditorLines::piece(text, line.content)) != 0) return at;
            if (line.full.end() == at) break;
            at = line.full.end();
        }
        return text.size();
    };
    std::size_t start = 0;
    if (const auto frontmatter = MarkdownSpans::frontmatterRange(text))
        start = afterBlanks(frontmatter->end());
    const auto first = afterBlanks(start);
    if (first >= text.size() || text[first] != u'#') return start;
    const auto line = EditorLines::lineFrom(text, first);
    const auto block = BlockModel::classify(EditorLines::piece(text, line.full));
    const auto* heading = std::get_if<MarkdownBlock::Kind::Heading>(&block.kind.value);
    if (!heading || heading->level != 1 || !equalsIgnoringCase(utf8(block.content), title)) return start;
    return afterBlanks(line.full.end());
}

}  // namespace

EditorViewClass::EditorViewClass()
    : Glib::ExtraClassInit([](gpointer klass, gpointer) {
          auto* view = GTK_TEXT_VIEW_CLASS(klass);
          view->snapshot_layer = [](GtkTextView* self, GtkTextViewLayer layer, GtkSnapshot* snapshot) {
              if (auto* editor = EditorView::of(self)) editor->decorations_.draw(layer, snapshot);
          };
          view->move_cursor = [](GtkTextView* self, GtkMovementStep step, int count, gboolean extends) {
              if (auto* editor = EditorView::of(self)) editor->moveCursor(step, count, extends);
          };
          view->paste_clipboard = [](GtkTextView* self) {
              if (auto* editor = EditorView::of(self)) editor->paste();
          };
      }) {}

EditorView* EditorView::of(GtkTextView* view) {
    return dynamic_cast<EditorView*>(Glib::ObjectBase::_get_current_wrapper(G_OBJECT(view)));
}

EditorView::EditorView()
    : Glib::ObjectBase("VeskEditorView"),
      decorations_(gobj(), content_),
      completion_(*this, content_),
      css_(Gtk::CssProvider::create()) {
    set_wrap_mode(Gtk::WrapMode::WORD_CHAR);
    set_top_margin(8);
    set_bottom_margin(120);
    set_pixels_above_lines(2);
    set_pixels_below_lines(4);
    set_pixels_inside_wrap(4);
    set_accepts_tab(true);
    add_css_class("vesk-editor");
    get_style_context()->add_provider(css_, GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    setAccessibleName(*this, _("Note text"));
    content_.onEdited = [this] {
        if (isShowing_) return;
        pictures_.disconnect();
        pictures_ = Glib::signal_timeout().connect(
            [this] {
                decorations_.placeImages();
                return false;
            },
            pictureDelay);
        selection_ = content_.selection();
        if (onEdited) onEdited();
        completion_.update();
    };
    content_.setDidEdit([this](TextRange range, std::ptrdiff_t delta) { edited(range, delta); });
    decorations_.isRevealed = [this](TextRange line) {
        const auto& revealed = highlighter_ ? highlighter_->revealRange() : std::nullopt;
        if (!revealed) return false;
        const auto lines =
            EditorLines::lineRange(content_.text(), EditorLines::clipped(*revealed, content_.text()));
        return lines.intersects(line) || lines.location == line.location;
    };
    completion_.onChosen = [this](const TextEdit& edit) { perform(edit); };
    content_.onRenewed = [this](GtkTextBuffer* former) {
        g_signal_handlers_disconnect_by_data(former, this);
        followBuffer();
    };
    followBuffer();
    connectInput();
}

void EditorView::followBuffer() {
    gtk_text_view_set_buffer(gobj(), content_.buffer());
    g_signal_connect(content_.buffer(), "mark-set",
                     G_CALLBACK(+[](GtkTextBuffer* buffer, GtkTextIter*, GtkTextMark* mark, gpointer self) {
                         if (mark == gtk_text_buffer_get_insert(buffer) ||
                             mark == gtk_text_buffer_get_selection_bound(buffer))
                             static_cast<EditorView*>(self)->selectionMoved();
                     }),
                     this);
}

EditorView::~EditorView() {
    styling_.disconnect();
    pictures_.disconnect();
    settling_.disconnect();
    g_signal_handlers_disconnect_by_data(content_.buffer(), this);
}

// Text

void EditorView::show(std::u16string_view text, bool isPlain, const std::string& title) {
    isShowing_ = true;
    completion_.close();
    styling_.disconnect();
    pictures_.disconnect();
    unstyledFrom_.reset();
    decorations_.clear();
    highlighter_.reset();
    content_.load(text, isPlain);
    content_.select({isPlain ? 0 : bodyStart(text, title), 0});
    selection_ = content_.selection();
    if (!isPlain) {
        highlighter_ = std::make_unique<MarkdownHighlighter>();
        highlighter_->isFocused = [this] { return has_focus(); };
        highlighter_->gridLayout = [this](const MarkdownTable& table) {
            return decorations_.gridLayout(table);
        };
        highlighter_->didShow = [this](TextRange range) { decorations_.styled(range); };
        highlighter_->theme.editorBackground =
            content_.theme().isDark ? CSSColor::darkEditorBackground : CSSColor::lightEditorBackground;
        highlighter_->titleHeading = title;
        unstyledFrom_ = 0;
        styleNextPiece();
        decorations_.placeImages();
        if (has_focus()) highlighter_->reveal(content_.selection(), content_);
    }
    isShowing_ = false;
    if (auto adjustment = get_vadjustment()) adjustment->set_value(0);
}

void EditorView::styleNextPiece() {
    if (!unstyledFrom_ || !highlighter_) return;
    const auto size = content_.text().size();
    const auto from = std::min(*unstyledFrom_, size);
    const auto length = std::min(from == 0 ? firstPiece : nextPiece, size - from);
    content_.prepare({from, length});
    highlighter_->highlight(content_, {from, length}, false);
    unstyledFrom_ = from + length;
    if (*unstyledFrom_ >= size) {
        unstyledFrom_.reset();
        return;
    }
    styling_.disconnect();
    styling_ = Glib::signal_idle().connect(
        [this] {
            styleNextPiece();
            return false;
        },
        Glib::PRIORITY_DEFAULT_IDLE);
}

void EditorView::follow(std::u16string_view text, TextRange selection) {
    isShowing_ = true;
    completion_.close();
    const bool isSame = content_.text() == text;
    if (!isSame) {
        content_.follow(text);
        content_.select(selection);
        selection_ = content_.selection();
        decorations_.placeImages();
    }
    isShowing_ = false;
    if (highlighter_ && !isSame)
        highlighter_->reveal(has_focus() ? std::optional(selection_) : std::nullopt, content_);
}

void EditorView::setTitle(const std::string& title) {
    if (!highlighter_ || highlighter_->titleHeading == title) return;
    highlighter_->titleHeading = title;
    highlighter_->highlight(content_, {0, std::min(firstPiece, content_.text().size())}, true);
}

void EditorView::edited(TextRange range, std::ptrdiff_t delta) {
    decorations_.textChanged();
    if (!highlighter_) return;
    if (unstyledFrom_ && *unstyledFrom_ > range.location)
        unstyledFrom_ = static_cast<std::size_t>(
            std::max<std::ptrdiff_t>(static_cast<std::ptrdiff_t>(*unstyledFrom_) + delta,
                                     static_cast<std::ptrdiff_t>(range.location)));
    highlighter_->didProcessEditing(content_, range, delta);
}

void EditorView::selectionMoved() {
    if (isShowing_) return;
    const auto selection = content_.selection();
    if (selection == selection_) return;
    selection_ = selection;
    completion_.close();
    if (highlighter_ && has_focus()) highlighter_->reveal(selection, content_);
    if (onSelectionMoved) onSelectionMoved();
}

bool EditorView::perform(const std::optional<TextEdit>& edit) {
    if (!edit || !get_editable()) return false;
    if (!edit->onlySelects()) content_.replace(edit->range, edit->replacement);
    content_.select(edit->selection);
    if (onSelectionMoved) onSelectionMoved();
    revealCaret();
    return true;
}

bool EditorView::performCommand(std::string_view id) {
    for (const auto& command : editorCommands())
        if (id == command.id) return perform(command.edit(content_.text(), content_.selection()));
    return false;
}

void EditorView::insertText(std::u16string_view text) {
    const auto selection = content_.selection();
    perform(TextEdit{selection, std::u16string(text), {selection.location + text.size(), 0}});
}

void EditorView::revealCaret() {
    gtk_text_view_scroll_mark_onscreen(gobj(), gtk_text_buffer_get_insert(content_.buffer()));
}

void EditorView::goTo(TextRange range) {
    content_.select(EditorLines::clipped(range, content_.text()));
    gtk_text_view_scroll_to_mark(gobj(), gtk_text_buffer_get_insert(content_.buffer()), 0.0, TRUE, 0.0, 0.25);
}

// Looks

void EditorView::applyTheme(double bodyPoints) {
    bodyPoints_ = bodyPoints;
    const auto theme = EditorTheme::current(bodyPoints);
    css_->load_from_data(fmt::format("textview {{ font-size: {}pt; }}", shortestDecimal(bodyPoints)));
    content_.setTheme(theme);
    decorations_.setTheme(theme);
    if (highlighter_) {
        highlighter_->theme.editorBackground =
            theme.isDark ? CSSColor::darkEditorBackground : CSSColor::lightEditorBackground;
        widthSettled();
    }
    queue_draw();
}

void EditorView::size_allocate_vfunc(int width, int height, int baseline) {
    if (width != marginWidth_) {
        marginWidth_ = width;
        const int margin = std::max(leastMargin, (width - columnWidth) / 2);
        set_left_margin(margin);
        set_right_margin(margin);
        const bool isOther = decorations_.setWidth(margin, width - 2 * margin);
        settling_.disconnect();
        settling_ = Glib::signal_idle().connect([this, margin, isOther] {
            if (onMarginChanged) onMarginChanged(margin);
            if (isOther) widthSettled();
            return false;
        });
    }
    Gtk::TextView::size_allocate_vfunc(width, height, baseline);
}

void EditorView::widthSettled() {
    if (!highlighter_) return;
    // Up to where it is styled; what follows is decided when its turn comes.
    const auto text = content_.text();
    const TextRange styled{0, std::min(unstyledFrom_.value_or(text.size()), text.size())};
    if (MarkdownTable::mightContainTable(text, styled)) {
        auto tables = MarkdownTable::tables(text, styled, highlighter_->lastFrontmatter());
        highlighter_->restyleTables(tables, content_);
    }
    decorations_.placeImages();
}

// Input

void EditorView::moveCursor(GtkMovementStep step, int count, bool extends) {
    const bool isByLine = step == GTK_MOVEMENT_DISPLAY_LINES && std::abs(count) == 1;
    if (!isByLine || !highlighter_) return parentClass()->move_cursor(gobj(), step, count, extends);
    // With their signs hidden the lines above and below would put the caret behind what isn't seen.
    const auto text = content_.text();
    auto around = EditorLines::lineRange(text, {content_.caret(), 0});
    if (around.location > 0) around = {around.location - 1, around.length + 1};
    if (around.end() < text.size()) ++around.length;
    highlighter_->reveal(EditorLines::lineRange(text, around), content_);
    selection_ = {text.size() + 1, 0};  // so that the coming move counts as one, wherever it leads
    parentClass()->move_cursor(gobj(), step, count, extends);
    selectionMoved();
}

void EditorView::paste() {
    const auto clipboard = get_clipboard();
    const auto formats = clipboard->get_formats();
    if (!get_editable()) return;
    if (formats && formats->contain_gtype(GDK_TYPE_FILE_LIST)) {
        gdk_clipboard_read_value_async(
            clipboard->gobj(), GDK_TYPE_FILE_LIST, G_PRIORITY_DEFAULT, nullptr,
            [](GObject* source, GAsyncResult* result, gpointer data) {
                const auto self = std::unique_ptr<sigc::slot<void(std::vector<FilePath>)>>(
                    static_cast<sigc::slot<void(std::vector<FilePath>)>*>(data));
                const GValue* value = gdk_clipboard_read_value_finish(GDK_CLIPBOARD(source), result, nullptr);
                std::vector<FilePath> files;
                if (value) {
                    for (auto* item = static_cast<GSList*>(g_value_get_boxed(value)); item; item = item->next)
                        if (const char* path = g_file_peek_path(G_FILE(item->data))) files.emplace_back(path);
                }
                if (!files.empty()) (*self)(files);
            },
            new sigc::slot<void(std::vector<FilePath>)>(sigc::track_obj(
                [this](const std::vector<FilePath>& files) {
                    if (onFiles) onFiles(files);
                },
                *this)));
        return;
    }
    const bool isPicture =
        formats && formats->contain_gtype(GDK_TYPE_TEXTURE) && !formats->contain_gtype(G_TYPE_STRING);
    if (isPicture) {
        const auto pictureRead = [this](const Glib::RefPtr<Gio::AsyncResult>& result) {
            try {
                const auto texture = get_clipboard()->read_texture_finish(result);
                GBytes* bytes = texture ? gdk_texture_save_to_png_bytes(texture->gobj()) : nullptr;
                if (!bytes) return;
                gsize size = 0;
                const auto* data = static_cast<const char*>(g_bytes_get_data(bytes, &size));
                if (onPicture) onPicture(std::string(data, size), "png");
                g_bytes_unref(bytes);
            } catch (const Glib::Error&) {
                return;  // it is gone from the clipboard
            }
        };
        clipboard->read_texture_async(sigc::track_obj(pictureRead, *this));
        return;
    }
    // The toolkit's own paste carries the tags of text copied in this process.
    const auto textRead = [this](const Glib::RefPtr<Gio::AsyncResult>& result) {
        try {
            pasteText(get_clipboard()->read_text_finish(result));
        } catch (const Glib::Error&) {
            return;  // there is no text to paste
        }
    };
    clipboard->read_text_async(sigc::track_obj(textRead, *this));
}

std::optional<std::size_t> EditorView::offsetAt(double x, double y) const {
    int bufferX = 0, bufferY = 0;
    auto* view = const_cast<GtkTextView*>(gobj());
    gtk_text_view_window_to_buffer_coords(view, GTK_TEXT_WINDOW_WIDGET, static_cast<int>(x),
                                          static_cast<int>(y), &bufferX, &bufferY);
    GtkTextIter at;
    if (!gtk_text_view_get_iter_at_location(view, &at, bufferX, bufferY)) return {};
    return content_.offsetOf(at);
}

}  // namespace vesk::views
