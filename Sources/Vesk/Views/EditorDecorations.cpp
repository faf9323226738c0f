#include "Vesk/Views/EditorDecorations.h"

#include <algorithm>
#include <cmath>

#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::views {
namespace {

constexpr int lineAbove = 2, lineBelow = 4;  // the view's own room around a line
constexpr int pictureMargin = 6, tallestPicture = 520, failureHeight = 24;
constexpr int fenceRoom = 5;
constexpr int groundMargin = 12;
constexpr const char* lookKey = "vesk-look";

graphene_rect_t rectangle(double x, double y, double width, double height) {
    graphene_rect_t made;
    graphene_rect_init(&made, static_cast<float>(x), static_cast<float>(y), static_cast<float>(width),
                       static_cast<float>(height));
    return made;
}

std::size_t indentOf(std::u16string_view line) {
    std::size_t count = 0;
    while (count < line.size() && (line[count] == u' ' || line[count] == u'\t')) ++count;
    return count;
}

/// What a list item's line begins with: indent and marker.
std::size_t markerLength(std::u16string_view line) {
    const auto indent = indentOf(line);
    return match(
        BlockModel::classify(line).kind,
        [&](const MarkdownBlock::Kind::Task&) { return std::min(line.size(), indent + 6); },
        [&](const MarkdownBlock::Kind::Ordered&) {
            auto end = indent;
            while (end < line.size() && line[end] != u' ') ++end;
            return std::min(line.size(), end + 1);
        },
        [&](MarkdownBlock::Kind::Plain plain) {
            return plain == MarkdownBlock::Kind::Plain::bullet ? std::min(line.size(), indent + 2)
                                                               : std::size_t{0};
        },
        [](const MarkdownBlock::Kind::Heading&) { return std::size_t{0}; },
        [](const MarkdownBlock::Kind::Callout&) { return std::size_t{0}; },
        [](const MarkdownBlock::Kind::Code&) { return std::size_t{0}; });
}

}  // namespace

EditorDecorations::EditorDecorations(GtkTextView* view, StyledBuffer& content)
    : view_(view), content_(content), painter_(GTK_WIDGET(view)) {
    static constexpr GdkRGBA clear{0, 0, 0, 0.001F};  // Pango takes nothing for not given
    unseen_ = gtk_text_buffer_create_tag(content_.buffer(), nullptr, "foreground-rgba", &clear,
                                         "strikethrough", FALSE, nullptr);
    // In a font of one width, so that a tick doesn't push the text away; smaller, so that it doesn't make the
    // line higher.
    box_ =
        gtk_text_buffer_create_tag(content_.buffer(), nullptr, "family", "Monospace", "scale", 0.85, nullptr);
}

EditorDecorations::~EditorDecorations() {
    clear();
}

void EditorDecorations::setImages(std::shared_ptr<EditorImages> images) {
    images_ = std::move(images);
    if (images_) images_->onArrived = [this] { placeImages(); };
}

void EditorDecorations::setTheme(const EditorTheme& theme) {
    theme_ = theme;
    painter_.setTheme(theme);
    cache_ = TableGridCache(TableGridCache::editorCapacity);
    widths_.clear();
}

bool EditorDecorations::setWidth(int left, int width) {
    left_ = left;
    if (width == width_) return false;
    width_ = width;
    return true;
}

std::optional<MarkdownTableGrid::Layout> EditorDecorations::gridLayout(const MarkdownTable& table) {
    const MarkdownTableGrid::Policy policy(painter_.em());
    const auto& entry = cache_.decision(table, content_.text(), width_, policy, painter_);
    if (const auto* layout = std::get_if<MarkdownTableGrid::Layout>(&entry.decision.value)) return *layout;
    return {};
}

void EditorDecorations::clear() {
    dropGrids({});
    dropPictures();
    fences_.reset();
}

// Places

GtkTextMark* EditorDecorations::markAt(std::size_t offset) {
    const GtkTextIter at = content_.iterAt(offset);
    return gtk_text_buffer_create_mark(content_.buffer(), nullptr, &at, TRUE);
}

std::size_t EditorDecorations::offsetOf(GtkTextMark* mark) const {
    GtkTextIter at;
    gtk_text_buffer_get_iter_at_mark(content_.buffer(), &at, mark);
    return content_.offsetOf(at);
}

std::size_t EditorDecorations::lineStart(GtkTextMark* mark) const {
    GtkTextIter at;
    gtk_text_buffer_get_iter_at_mark(content_.buffer(), &at, mark);
    gtk_text_iter_set_line_offset(&at, 0);
    return content_.offsetOf(at);
}

void EditorDecorations::dropGrids(std::optional<TextRange> range) {
    std::erase_if(grids_, [&](const Grid& grid) {
        if (range) {
            const auto at = offsetOf(grid.start);
            if (at < range->location || at > range->end()) return false;
        }
        gtk_text_buffer_delete_mark(content_.buffer(), grid.start);
        return true;
    });
}

void EditorDecorations::dropPictures() {
    for (const auto& picture : pictures_) gtk_text_buffer_delete_mark(content_.buffer(), picture.line);
    pictures_.clear();
}

const std::vector<std::size_t>& EditorDecorations::fences() const {
    if (fences_) return *fences_;
    fences_.emplace();
    const auto text = content_.text();
    const auto frontmatter = MarkdownSpans::frontmatterRange(text);
    for (auto start = frontmatter ? frontmatter->end() : 0; start < text.size();) {
        const auto end = std::min(text.find(u'\n', start), text.size() - 1) + 1;
        const auto line = text.substr(start, end - start);
        const auto sign = line.find_first_not_of(u" \t");
        if (sign != std::u16string_view::npos && (line[sign] == u'`' || line[sign] == u'~') &&
            EditorLines::isFence(line))
            fences_->push_back(start);
        start = end;
    }
    return *fences_;
}

EditorDecorations::Line EditorDecorations::lineAt(const GtkTextIter& start) const {
    GtkTextIter next = start, end = start;
    if (!gtk_text_iter_forward_line(&next)) gtk_text_buffer_get_end_iter(content_.buffer(), &next);
    if (!gtk_text_iter_ends_line(&end)) gtk_text_iter_forward_to_line_end(&end);
    Line line;
    const auto from = content_.offsetOf(start);
    line.full = {from, content_.offsetOf(next) - from};
    line.content = {from, content_.offsetOf(end) - from};
    const auto& signs = fences();
    const auto after = std::upper_bound(signs.begin(), signs.end(), from);
    const auto count = after - signs.begin();
    line.isFence = after != signs.begin() && *std::prev(after) == from;
    line.isCode = line.isFence || count % 2 == 1;
    const auto frontmatter = MarkdownSpans::frontmatterRange(content_.text());
    line.isFrontmatter = frontmatter && from < frontmatter->end();
    return line;
}

bool EditorDecorations::isHidden(TextRange range) const {
    if (range.empty()) return false;
    const auto runs = content_.attributes(range);
    return std::all_of(runs.begin(), runs.end(),
                       [](const AttributeRun& run) { return run.attributes.isHidden(); });
}

// Paragraphs

int EditorDecorations::widthOf(std::u16string_view text) {
    const auto known = widths_.find(std::u16string(text));
    if (known != widths_.end()) return known->second;
    if (widths_.size() > 500) widths_.clear();
    PangoLayout* layout = gtk_widget_create_pango_layout(GTK_WIDGET(view_), utf8(text).c_str());
    int width = 0;
    pango_layout_get_pixel_size(layout, &width, nullptr);
    g_object_unref(layout);
    return widths_[std::u16string(text)] = width;
}

EditorDecorations::Look EditorDecorations::lookOf(const Line& line, bool hidden) {
    Look look;
    if (hidden) {
        look.isRow = true;
        if (line.isFence) look.above = fenceRoom;
        return look;
    }
    if (line.isCode || line.isFrontmatter) return look;
    const auto content = EditorLines::piece(content_.text(), line.content);
    if (content.size() > MarkdownSpans::longLineLimit) return look;
    const auto kind = BlockModel::classify(content).kind;
    if (const auto* heading = std::get_if<MarkdownBlock::Kind::Heading>(&kind.value)) {
        constexpr int roomAbove[] = {18, 16, 12, 10, 8, 8};
        look.above = line.content.location == 0 ? 0 : roomAbove[std::clamp(heading->level, 1, 6) - 1];
        look.below = 2;
        return look;
    }
    if (const auto marker = markerLength(content)) look.hanging = widthOf(content.substr(0, marker));
    return look;
}

GtkTextTag* EditorDecorations::tagOf(const Look& look) {
    for (const auto& [known, tag] : looks_)
        if (known == look) return tag;
    GtkTextTag* tag = gtk_text_buffer_create_tag(content_.buffer(), nullptr, nullptr);
    const int own = look.isRow ? 0 : 1;
    g_object_set(tag, "pixels-above-lines", look.above + own * lineAbove, "pixels-below-lines",
                 look.below + own * lineBelow, nullptr);
    if (look.isRow) g_object_set(tag, "wrap-mode", GTK_WRAP_NONE, "pixels-inside-wrap", 0, nullptr);
    if (look.hanging > 0) g_object_set(tag, "indent", -look.hanging, nullptr);
    g_object_set_data(G_OBJECT(tag), lookKey, tag);
    looks_.emplace_back(look, tag);
    return tag;
}

void EditorDecorations::setLook(TextRange line, const Look& look) {
    if (line.empty()) return;
    GtkTextTag* wanted = look.isPlain() ? nullptr : tagOf(look);
    const GtkTextIter start = content_.iterAt(line.location), end = content_.iterAt(line.end());
    bool stands = false;
    // Tags of former looks come in by joined and split lines, at the start or behind it.
    GtkTextIter at = start;
    do {
        GSList* tags = gtk_text_iter_get_tags(&at);
        for (GSList* item = tags; item; item = item->next) {
            auto* tag = static_cast<GtkTextTag*>(item->data);
            if (!g_object_get_data(G_OBJECT(tag), lookKey)) continue;
            if (tag == wanted) {
                GtkTextIter to = at;
                stands = stands || (gtk_text_iter_equal(&at, &start) &&
                                    (!gtk_text_iter_forward_to_tag_toggle(&to, tag) ||
                                     gtk_text_iter_compare(&to, &end) >= 0));
            } else {
                gtk_text_buffer_remove_tag(content_.buffer(), tag, &start, &end);
            }
        }
        g_slist_free(tags);
        if (!gtk_text_iter_equal(&at, &start)) break;
        at = end;
        gtk_text_iter_backward_char(&at);
    } while (gtk_text_iter_compare(&at, &start) > 0);
    if (wanted && !stands) gtk_text_buffer_apply_tag(content_.buffer(), wanted, &start, &end);
}

void EditorDecorations::setSigns(const Line& line, bool isShown) {
    const auto content = EditorLines::piece(content_.text(), line.content);
    content_.remove(unseen_, line.full);
    content_.remove(box_, line.full);
    if (isShown || line.isCode || line.isFrontmatter || content.size() > MarkdownSpans::longLineLimit) return;
    const auto indent = indentOf(content);
    const auto kind = BlockModel::classify(content).kind;
    TextRange unseen;
    if (std::holds_alternative<MarkdownBlock::Kind::Task>(kind.value)) {
        unseen = {line.content.location + indent, std::min<std::size_t>(5, content.size() - indent)};
        content_.apply(box_, {unseen.location + 3, 1});
    }
    if (const auto* plain = std::get_if<MarkdownBlock::Kind::Plain>(&kind.value)) {
        if (*plain == MarkdownBlock::Kind::Plain::bullet) unseen = {line.content.location + indent, 1};
        if (*plain == MarkdownBlock::Kind::Plain::divider) unseen = line.content;
    }
    if (!unseen.empty()) content_.apply(unseen_, unseen);
}

void EditorDecorations::styled(TextRange range) {
    if (content_.isPlain()) return;
    const auto text = content_.text();
    dropGrids(range);
    std::map<std::size_t, int> rooms;  // below the line that starts there
    std::map<std::size_t, bool> rows;
    if (MarkdownTable::mightContainTable(text, range)) {
        const auto frontmatter = MarkdownSpans::frontmatterRange(text);
        for (const auto& table : MarkdownTable::tables(text, range, frontmatter)) {
            if (!content_.attributesAt(table.range.location).isHidden() || !isHidden(table.header().line))
                continue;
            const MarkdownTableGrid::Policy policy(painter_.em());
            const auto& entry = cache_.decision(table, text, width_, policy, painter_);
            const auto* layout = std::get_if<MarkdownTableGrid::Layout>(&entry.decision.value);
            if (!layout) continue;
            grids_.push_back({markAt(table.range.location), *layout,
                              std::make_shared<const MarkdownTableGrid::Cells>(entry.cells)});
            rooms[table.range.location] = static_cast<int>(std::ceil(layout->reservedHeight));
        }
    }
    for (const auto& picture : pictures_) rooms[lineStart(picture.line)] += pictureSpace(picture);
    GtkTextIter at = content_.iterAt(range.location);
    gtk_text_iter_set_line_offset(&at, 0);
    do {
        const auto line = lineAt(at);
        const bool hidden = isHidden(line.content);
        auto look = lookOf(line, hidden);
        if (const auto room = rooms.find(line.full.location); room != rooms.end()) look.below += room->second;
        setLook(line.full, look);
        setSigns(line, hidden || (isRevealed && isRevealed(line.full)));
    } while (gtk_text_iter_forward_line(&at) && content_.offsetOf(at) < range.end());
}

// Pictures

void EditorDecorations::sizePicture(Picture& picture) const {
    const auto& image = images_->image(picture.file);
    if (image.isWaiting) {
        picture.width = picture.height = 0;
        return;
    }
    if (!image.texture) {
        picture.width = width_;
        picture.height = failureHeight;
        return;
    }
    double scale = std::min(1.0, static_cast<double>(width_) / image.width);
    if (picture.embed.maxWidth)
        scale = std::min(scale, static_cast<double>(*picture.embed.maxWidth) / image.width);
    const int tallest =
        picture.embed.maxHeight ? std::min(*picture.embed.maxHeight, 4 * tallestPicture) : tallestPicture;
    scale = std::min(scale, static_cast<double>(tallest) / image.height);
    picture.width = std::max(1, static_cast<int>(image.width * scale));
    picture.height = std::max(1, static_cast<int>(image.height * scale));
}

int EditorDecorations::pictureSpace(const Picture& picture) const {
    return picture.height > 0 ? picture.height + 2 * pictureMargin : 0;
}

void EditorDecorations::placeImages() {
    std::vector<std::size_t> touched;
    for (const auto& picture : pictures_) touched.push_back(lineStart(picture.line));
    dropPictures();
    if (images_ && resolveImage && !content_.isPlain() && width_ > 0) {
        for (auto& embed : MarkdownSpans::imageEmbeds(content_.text())) {
            if (const auto file = resolveImage(embed.target)) {
                Picture picture{markAt(embed.lineRange.location), embed, *file, 0, 0};
                sizePicture(picture);
                touched.push_back(embed.lineRange.location);
                pictures_.push_back(std::move(picture));
            }
        }
    }
    std::sort(touched.begin(), touched.end());
    touched.erase(std::unique(touched.begin(), touched.end()), touched.end());
    for (const auto start : touched) styled({start, 1});
    gtk_widget_queue_draw(GTK_WIDGET(view_));
}

// Drawing

GdkRectangle EditorDecorations::sight() const {
    GdkRectangle seen;
    gtk_text_view_get_visible_rect(view_, &seen);
    return seen;
}

GdkRectangle EditorDecorations::place(std::size_t offset) const {
    const GtkTextIter at = content_.iterAt(offset);
    GdkRectangle found;
    gtk_text_view_get_iter_location(view_, &at, &found);
    return found;
}

std::vector<EditorDecorations::Line> EditorDecorations::linesInSight() const {
    const auto seen = sight();
    std::vector<Line> found;
    GtkTextIter at;
    gtk_text_view_get_line_at_y(view_, &at, seen.y, nullptr);
    do {
        auto line = lineAt(at);
        gtk_text_view_get_line_yrange(view_, &at, &line.y, &line.height);
        if (line.y > seen.y + seen.height) break;
        found.push_back(line);
    } while (gtk_text_iter_forward_line(&at));
    return found;
}

void EditorDecorations::draw(GtkTextViewLayer layer, GtkSnapshot* snapshot) {
    if (content_.isPlain()) return;
    const auto lines = linesInSight();
    if (layer == GTK_TEXT_VIEW_LAYER_BELOW_TEXT) {
        drawGrounds(snapshot, lines);
        return;
    }
    for (const auto& line : lines) drawSigns(snapshot, line);
    drawGrids(snapshot);
    drawPictures(snapshot);
}

void EditorDecorations::drawGrounds(GtkSnapshot* snapshot, const std::vector<Line>& lines) {
    for (std::size_t index = 0; index < lines.size();) {
        if (!lines[index].isCode) {
            ++index;
            continue;
        }
        const auto first = index;
        // A block ends behind its second fence; another may follow at once.
        do ++index;
        while (index < lines.size() && lines[index].isCode &&
               !(lines[index - 1].isFence && index - 1 > first));
        const auto& last = lines[index - 1];
        GskRoundedRect ground;
        const auto area = rectangle(left_ - groundMargin, lines[first].y, width_ + 2 * groundMargin,
                                    last.y + last.height - lines[first].y + (last.isFence ? fenceRoom : 0));
        gsk_rounded_rect_init_from_rect(&ground, &area, 8);
        gtk_snapshot_push_rounded_clip(snapshot, &ground);
        gtk_snapshot_append_color(snapshot, &theme_.codeBlockBackground, &area);
        gtk_snapshot_pop(snapshot);
    }
}

void EditorDecorations::drawSigns(GtkSnapshot* snapshot, const Line& line) {
    if (line.isCode || line.isFrontmatter || line.content.empty()) return;
    const auto content = EditorLines::piece(content_.text(), line.content);
    if (content.size() > MarkdownSpans::longLineLimit) return;
    const auto kind = BlockModel::classify(content).kind;
    const bool shows = isRevealed && isRevealed(line.full);
    const auto indent = line.content.location + indentOf(content);
    if (const auto* task = std::get_if<MarkdownBlock::Kind::Task>(&kind.value)) {
        if (shows) return;
        const auto from = place(indent);
        const double side = std::round(std::min(from.height * 0.72, painter_.em() * 1.05));
        const double x = from.x, y = std::round(from.y + (from.height - side) / 2);
        const auto bounds = rectangle(x - 1, y - 1, side + 2, side + 2);
        GskRoundedRect box;
        const auto inside = rectangle(x, y, side, side);
        gsk_rounded_rect_init_from_rect(&box, &inside, 4);
        if (task->done) {
            gtk_snapshot_push_rounded_clip(snapshot, &box);
            gtk_snapshot_append_color(snapshot, &theme_.accent, &inside);
            gtk_snapshot_pop(snapshot);
            cairo_t* pen = gtk_snapshot_append_cairo(snapshot, &bounds);
            gdk_cairo_set_source_rgba(pen, &theme_.background);
            cairo_set_line_width(pen, std::max(1.5, side / 9));
            cairo_set_line_cap(pen, CAIRO_LINE_CAP_ROUND);
            cairo_set_line_join(pen, CAIRO_LINE_JOIN_ROUND);
            cairo_move_to(pen, x + side * 0.25, y + side * 0.52);
            cairo_line_to(pen, x + side * 0.43, y + side * 0.70);
            cairo_line_to(pen, x + side * 0.76, y + side * 0.32);
            cairo_stroke(pen);
            cairo_destroy(pen);
        } else {
            const float widths[4] = {1.5F, 1.5F, 1.5F, 1.5F};
            const GdkRGBA colors[4] = {theme_.faint, theme_.faint, theme_.faint, theme_.faint};
            gtk_snapshot_append_border(snapshot, &box, widths, colors);
        }
        return;
    }
    const bool isQuote = std::holds_alternative<MarkdownBlock::Kind::Callout>(kind.value) ||
                         kind == MarkdownBlock::Kind{MarkdownBlock::Kind::Plain::quote};
    if (isQuote) {
        const auto bar = rectangle(left_ + 2, line.y, 3, line.height);
        const bool isCallout = std::holds_alternative<MarkdownBlock::Kind::Callout>(kind.value);
        gtk_snapshot_append_color(snapshot, isCallout ? &theme_.accent : &theme_.rule, &bar);
        return;
    }
    if (shows) return;
    if (kind == MarkdownBlock::Kind{MarkdownBlock::Kind::Plain::bullet}) {
        const auto from = place(indent), to = place(indent + 1);
        const double side = std::round(painter_.em() * 0.34);
        const auto dot = rectangle(std::round(from.x + (to.x - from.x - side) / 2),
                                   std::round(from.y + (from.height - side) / 2 + 1), side, side);
        GskRoundedRect round;
        gsk_rounded_rect_init_from_rect(&round, &dot, static_cast<float>(side / 2));
        gtk_snapshot_push_rounded_clip(snapshot, &round);
        gtk_snapshot_append_color(snapshot, &theme_.accent, &dot);
        gtk_snapshot_pop(snapshot);
    } else if (kind == MarkdownBlock::Kind{MarkdownBlock::Kind::Plain::divider}) {
        const auto rule = rectangle(left_, line.y + line.height / 2, width_, 1);
        gtk_snapshot_append_color(snapshot, &theme_.rule, &rule);
    }
}

void EditorDecorations::drawGrids(GtkSnapshot* snapshot) {
    const auto seen = sight();
    for (const auto& grid : grids_) {
        GtkTextIter at;
        gtk_text_buffer_get_iter_at_mark(content_.buffer(), &at, grid.start);
        int top = 0, height = 0;
        gtk_text_view_get_line_yrange(view_, &at, &top, &height);
        const MarkdownTableGrid::Policy policy(painter_.em());
        const double y = top + height - grid.layout.reservedHeight + policy.marginTop;
        if (y > seen.y + seen.height || y + grid.layout.size.height < seen.y) continue;
        painter_.draw(snapshot, left_, std::round(y), seen.y - y, seen.y + seen.height - y, grid.layout,
                      *grid.cells);
    }
}

void EditorDecorations::drawPictures(GtkSnapshot* snapshot) {
    if (!images_) return;
    const auto seen = sight();
    std::map<std::size_t, int> used;  // several pictures of one line stand below each other
    for (auto picture = pictures_.rbegin(); picture != pictures_.rend(); ++picture) {
        if (picture->height <= 0) continue;
        GtkTextIter at;
        gtk_text_buffer_get_iter_at_mark(content_.buffer(), &at, picture->line);
        int top = 0, height = 0;
        gtk_text_view_get_line_yrange(view_, &at, &top, &height);
        auto& below = used[lineStart(picture->line)];
        const double y = top + height - lineBelow - below - picture->height - pictureMargin;
        below += pictureSpace(*picture);
        if (y > seen.y + seen.height || y + picture->height < seen.y) continue;
        const auto& image = images_->image(picture->file);
        if (image.texture) {
            const auto area = rectangle(left_, std::round(y), picture->width, picture->height);
            GskRoundedRect frame;
            gsk_rounded_rect_init_from_rect(&frame, &area, 6);
            gtk_snapshot_push_rounded_clip(snapshot, &frame);
            gtk_snapshot_append_texture(snapshot, image.texture.get(), &area);
            gtk_snapshot_pop(snapshot);
        } else {
            PangoLayout* words = gtk_widget_create_pango_layout(GTK_WIDGET(view_), image.failure.c_str());
            graphene_point_t place;
            graphene_point_init(&place, static_cast<float>(left_), static_cast<float>(std::round(y)));
            gtk_snapshot_save(snapshot);
            gtk_snapshot_translate(snapshot, &place);
            gtk_snapshot_append_layout(snapshot, words, &theme_.faint);
            gtk_snapshot_restore(snapshot);
            g_object_unref(words);
        }
    }
}

std::optional<EditorDecorations::Hit> EditorDecorations::hit(int x, int y) const {
    if (content_.isPlain()) return {};
    for (const auto& grid : grids_) {
        GtkTextIter at;
        gtk_text_buffer_get_iter_at_mark(content_.buffer(), &at, grid.start);
        int top = 0, height = 0;
        gtk_text_view_get_line_yrange(view_, &at, &top, &height);
        const MarkdownTableGrid::Policy policy(painter_.em());
        const double gridY = top + height - grid.layout.reservedHeight + policy.marginTop;
        const auto cell = grid.layout.cell({static_cast<double>(x - left_), y - gridY});
        if (!cell) continue;
        const auto table = MarkdownTable::table(offsetOf(grid.start), content_.text(),
                                                MarkdownSpans::frontmatterRange(content_.text()));
        if (table) return Hit{Hit::Kind::cell, table->caretOffset(cell->row, cell->column), {}};
    }
    GtkTextIter at;
    int top = 0;
    gtk_text_view_get_line_at_y(view_, &at, y, &top);
    auto line = lineAt(at);
    gtk_text_view_get_line_yrange(view_, &at, &line.y, &line.height);
    if (y < line.y || y >= line.y + line.height) return {};
    int below = line.y + line.height - lineBelow;
    for (auto picture = pictures_.rbegin(); picture != pictures_.rend(); ++picture) {
        if (lineStart(picture->line) != line.full.location) continue;
        const int from = below - picture->height - pictureMargin;
        if (picture->height > 0 && y >= from && y < from + picture->height && x >= left_ &&
            x < left_ + picture->width)
            return Hit{Hit::Kind::image, line.full.location, picture->embed.target};
        below -= pictureSpace(*picture);
    }
    if (line.isCode || line.isFrontmatter) return {};
    const auto content = EditorLines::piece(content_.text(), line.content);
    const auto kind = BlockModel::classify(content).kind;
    if (!std::holds_alternative<MarkdownBlock::Kind::Task>(kind.value)) return {};
    if (isRevealed && isRevealed(line.full)) return {};
    const auto indent = line.content.location + indentOf(content);
    const auto from = place(indent), to = place(indent + 5);
    if (x < from.x - 4 || x > to.x + 2 || y < from.y || y > from.y + from.height) return {};
    return Hit{Hit::Kind::task, line.full.location, {}};
}

}  // namespace vesk::views
