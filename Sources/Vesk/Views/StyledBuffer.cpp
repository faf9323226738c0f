#include "Vesk/Views/StyledBuffer.h"

#include <algorithm>
#include <utility>

#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::views {
namespace {

constexpr int undoLevels = 1000;

constexpr bool isHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}
constexpr bool isLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

std::size_t commonPrefix(std::u16string_view a, std::u16string_view b) {
    const auto most = std::min(a.size(), b.size());
    std::size_t length = 0;
    while (length < most && a[length] == b[length]) ++length;
    // Neither a pair nor a line end is cut in two.
    while (length > 0 && (isHighSurrogate(a[length - 1]) || a[length - 1] == u'\r')) --length;
    return length;
}

std::size_t commonSuffix(std::u16string_view a, std::u16string_view b, std::size_t prefix) {
    const auto most = std::min(a.size(), b.size()) - prefix;
    std::size_t length = 0;
    while (length < most && a[a.size() - 1 - length] == b[b.size() - 1 - length]) ++length;
    while (length > 0 && (isLowSurrogate(a[a.size() - length]) || a[a.size() - length] == u'\n')) --length;
    return length;
}

StyledBuffer& host(gpointer data) {
    return *static_cast<StyledBuffer*>(data);
}

}  // namespace

StyledBuffer::StyledBuffer() : buffer_(gtk_text_buffer_new(nullptr)) {
    known_.push_back({});
    for (auto& tag : paragraphs_) tag = gtk_text_buffer_create_tag(buffer_, nullptr, nullptr);
    spelling_ = gtk_text_buffer_create_tag(buffer_, nullptr, "underline", PANGO_UNDERLINE_ERROR, nullptr);
    connect();
}

StyledBuffer::~StyledBuffer() {
    g_signal_handlers_disconnect_by_data(buffer_, this);
    g_object_unref(buffer_);
}

void StyledBuffer::renew() {
    g_signal_handlers_disconnect_by_data(buffer_, this);
    auto* former = std::exchange(buffer_, gtk_text_buffer_new(gtk_text_buffer_get_tag_table(buffer_)));
    text_.clear();
    pairs_.clear();
    runs_.assign(1, Run{});
    connect();
    if (onRenewed) onRenewed(former);
    // Letting go of a long text takes a while: not before the new one is on the screen.
    g_idle_add_full(
        G_PRIORITY_LOW,
        [](gpointer data) {
            g_object_unref(data);
            return G_SOURCE_REMOVE;
        },
        former, nullptr);
}

void StyledBuffer::connect() {
    gtk_text_buffer_set_enable_undo(buffer_, TRUE);
    gtk_text_buffer_set_max_undo_levels(buffer_, undoLevels);
    using Insert = void (*)(GtkTextBuffer*, GtkTextIter*, const char*, int, gpointer);
    using Delete = void (*)(GtkTextBuffer*, GtkTextIter*, GtkTextIter*, gpointer);
    using Plain = void (*)(GtkTextBuffer*, gpointer);
    const Insert beforeInsert = [](GtkTextBuffer*, GtkTextIter* at, const char*, int, gpointer data) {
        host(data).willInsert(*at);
    };
    const Insert afterInsert = [](GtkTextBuffer*, GtkTextIter*, const char* text, int length, gpointer data) {
        host(data).didInsert(length < 0 ? std::string_view(text)
                                        : std::string_view(text, static_cast<std::size_t>(length)));
    };
    const Delete beforeDelete = [](GtkTextBuffer*, GtkTextIter* from, GtkTextIter* to, gpointer data) {
        host(data).willDelete(*from, *to);
    };
    const Delete afterDelete = [](GtkTextBuffer*, GtkTextIter*, GtkTextIter*, gpointer data) {
        host(data).didDelete();
    };
    const Plain beginStep = [](GtkTextBuffer*, gpointer data) { host(data).isInStep_ = true; };
    const Plain endStep = [](GtkTextBuffer*, gpointer data) {
        host(data).isInStep_ = false;
        host(data).tell();
    };
    g_signal_connect(buffer_, "insert-text", G_CALLBACK(beforeInsert), this);
    g_signal_connect_after(buffer_, "insert-text", G_CALLBACK(afterInsert), this);
    g_signal_connect(buffer_, "delete-range", G_CALLBACK(beforeDelete), this);
    g_signal_connect_after(buffer_, "delete-range", G_CALLBACK(afterDelete), this);
    g_signal_connect(buffer_, "begin-user-action", G_CALLBACK(beginStep), this);
    g_signal_connect_after(buffer_, "end-user-action", G_CALLBACK(endStep), this);
}

// Edits

void StyledBuffer::willInsert(const GtkTextIter& at) {
    edit_ = {offsetOf(at), 0};
}

void StyledBuffer::didInsert(std::string_view inserted) {
    const auto units = utf16(inserted);
    if (units.empty()) return;
    const TextRange range{edit_.offset, units.size()};
    const auto left = runs_[runAt(range.location == 0 ? 0 : range.location - 1)].attributes;
    const auto right = runs_[runAt(range.location)].attributes;
    text_.insert(range.location, units);
    movePairs(range.location, 0, units);
    if (!isPlain_) {
        for (std::size_t index = runs_.size(); index-- > 1 && runs_[index].start >= range.location;)
            runs_[index].start += range.length;
        const GtkTextIter start = iterAt(range.location), end = iterAt(range.end());
        // The toolkit gives inserted text the tag around it, or none; the runs say what it did.
        const auto carries = [&](AttributesID id) {
            return known_[id].tag && gtk_text_iter_has_tag(&start, known_[id].tag);
        };
        assign(range, {Run{range.location, carries(left) ? left : carries(right) ? right : 0}});
        if (!isQuiet_) colourParagraphs(gtk_text_iter_get_line(&start), gtk_text_iter_get_line(&end));
    }
    edited(range, static_cast<std::ptrdiff_t>(range.length));
}

void StyledBuffer::willDelete(const GtkTextIter& from, const GtkTextIter& to) {
    const auto a = offsetOf(from), b = offsetOf(to);
    edit_ = {std::min(a, b), std::max(a, b) - std::min(a, b)};
}

void StyledBuffer::didDelete() {
    const TextRange gone{edit_.offset, edit_.length};
    if (gone.empty()) return;
    if (!isPlain_) {
        const bool goesOn = gone.end() < text_.size();
        const auto behind = goesOn ? runs_[runAt(gone.end())].attributes : 0;
        std::vector<Run> kept;
        kept.reserve(runs_.size() + 1);
        const auto keep = [&](Run run) {
            if (kept.empty() || kept.back().attributes != run.attributes) kept.push_back(run);
        };
        for (const auto& run : runs_)
            if (run.start < gone.location) keep(run);
        if (goesOn || kept.empty()) keep({gone.location, behind});
        for (const auto& run : runs_)
            if (run.start > gone.end()) keep({run.start - gone.length, run.attributes});
        runs_ = std::move(kept);
    }
    text_.erase(gone.location, gone.length);
    movePairs(gone.location, gone.length, {});
    if (!isPlain_) {
        const GtkTextIter join = iterAt(gone.location);
        colourParagraphs(gtk_text_iter_get_line(&join), gtk_text_iter_get_line(&join));
    }
    edited({gone.location, 0}, -static_cast<std::ptrdiff_t>(gone.length));
}

void StyledBuffer::edited(TextRange range, std::ptrdiff_t delta) {
    if (didEdit_ && !isQuiet_ && !isPlain_) didEdit_(range, delta);
    isChanged_ = true;
    if (!isInStep_) tell();
}

void StyledBuffer::tell() {
    if (!std::exchange(isChanged_, false) || isLoading_) return;
    if (onEdited) onEdited();
}

void StyledBuffer::exchange(std::u16string_view text) {
    isLoading_ = true;
    gtk_text_buffer_begin_irreversible_action(buffer_);
    const auto prefix = commonPrefix(text_, text);
    const auto suffix = commonSuffix(text_, text, prefix);
    const auto inserted = utf8(text.substr(prefix, text.size() - prefix - suffix));
    GtkTextIter start = iterAt(prefix), end = iterAt(text_.size() - suffix);
    gtk_text_buffer_delete(buffer_, &start, &end);
    if (!inserted.empty())
        gtk_text_buffer_insert(buffer_, &start, inserted.data(), static_cast<int>(inserted.size()));
    gtk_text_buffer_end_irreversible_action(buffer_);
    isLoading_ = isChanged_ = false;
}

void StyledBuffer::load(std::u16string_view text, bool isPlain) {
    isQuiet_ = true;
    isPlain_ = isPlain;
    renew();
    if (known_.size() > mostKept) {
        GtkTextTagTable* table = gtk_text_buffer_get_tag_table(buffer_);
        for (const auto& known : known_)
            if (known.tag) gtk_text_tag_table_remove(table, known.tag);
        known_.assign(1, Known{});
    }
    exchange(text);
    isQuiet_ = false;
}

void StyledBuffer::prepare(TextRange range) {
    if (isPlain_) return;
    const GtkTextIter start = iterAt(range.location), end = iterAt(range.end());
    colourParagraphs(gtk_text_iter_get_line(&start), gtk_text_iter_get_line(&end));
}

void StyledBuffer::follow(std::u16string_view text) {
    exchange(text);
}

void StyledBuffer::replace(TextRange range, std::u16string_view text) {
    asOneStep([&] {
        GtkTextIter start = iterAt(range.location), end = iterAt(range.end());
        if (!range.empty()) gtk_text_buffer_delete(buffer_, &start, &end);
        const auto inserted = utf8(text);
        if (!inserted.empty())
            gtk_text_buffer_insert(buffer_, &start, inserted.data(), static_cast<int>(inserted.size()));
    });
}

void StyledBuffer::asOneStep(const std::function<void()>& change) {
    gtk_text_buffer_begin_user_action(buffer_);
    change();
    gtk_text_buffer_end_user_action(buffer_);
}

// Offsets

void StyledBuffer::movePairs(std::size_t offset, std::size_t removed, std::u16string_view inserted) {
    auto first = std::lower_bound(pairs_.begin(), pairs_.end(), offset);
    first = pairs_.erase(first, std::lower_bound(first, pairs_.end(), offset + removed));
    for (auto pair = first; pair != pairs_.end(); ++pair) *pair = *pair - removed + inserted.size();
    std::vector<std::size_t> found;
    for (std::size_t index = 0; index < inserted.size(); ++index)
        if (isHighSurrogate(inserted[index])) found.push_back(offset + index);
    pairs_.insert(first, found.begin(), found.end());
}

std::size_t StyledBuffer::codePoint(std::size_t offset) const {
    const auto before = std::lower_bound(pairs_.begin(), pairs_.end(), offset) - pairs_.begin();
    return offset - static_cast<std::size_t>(before);
}

std::size_t StyledBuffer::unit(std::size_t codePoint) const {
    // The pair at index i stands at code point pairs_[i] - i, which never falls.
    std::size_t low = 0, high = pairs_.size();
    while (low < high) {
        const auto middle = low + (high - low) / 2;
        if (pairs_[middle] - middle < codePoint)
            low = middle + 1;
        else
            high = middle;
    }
    return codePoint + low;
}

GtkTextIter StyledBuffer::iterAt(std::size_t offset) const {
    GtkTextIter iter;
    gtk_text_buffer_get_iter_at_offset(buffer_, &iter,
                                       static_cast<int>(codePoint(std::min(offset, text_.size()))));
    return iter;
}

std::size_t StyledBuffer::offsetOf(const GtkTextIter& iter) const {
    return unit(static_cast<std::size_t>(gtk_text_iter_get_offset(&iter)));
}

TextRange StyledBuffer::selection() const {
    GtkTextIter start, end;
    gtk_text_buffer_get_selection_bounds(buffer_, &start, &end);
    const auto from = offsetOf(start);
    return {from, offsetOf(end) - from};
}

std::size_t StyledBuffer::caret() const {
    GtkTextIter iter;
    gtk_text_buffer_get_iter_at_mark(buffer_, &iter, gtk_text_buffer_get_insert(buffer_));
    return offsetOf(iter);
}

void StyledBuffer::select(TextRange range) {
    const GtkTextIter end = iterAt(range.end()), start = iterAt(range.location);
    gtk_text_buffer_select_range(buffer_, &end, &start);
}

// Attributes

std::size_t StyledBuffer::runAt(std::size_t offset) const {
    const auto after = std::upper_bound(runs_.begin(), runs_.end(), offset,
                                        [](std::size_t value, const Run& run) { return value < run.start; });
    return static_cast<std::size_t>(after - runs_.begin()) - 1;
}

TextAttributes StyledBuffer::attributesAt(std::size_t offset) const {
    return known_[runs_[runAt(offset)].attributes].attributes;
}

std::vector<StyledBuffer::Run> StyledBuffer::pieces(TextRange range) const {
    std::vector<Run> found;
    if (range.empty()) return found;
    auto index = runAt(range.location);
    found.push_back({range.location, runs_[index].attributes});
    for (++index; index < runs_.size() && runs_[index].start < range.end(); ++index)
        found.push_back(runs_[index]);
    return found;
}

void StyledBuffer::assign(TextRange range, const std::vector<Run>& pieces) {
    const bool goesOn = range.end() < text_.size();
    const auto behind = goesOn ? runs_[runAt(range.end())].attributes : 0;
    const auto byStart = [](const Run& run, std::size_t value) { return run.start < value; };
    auto first = std::lower_bound(runs_.begin(), runs_.end(), range.location, byStart);
    const auto last = std::lower_bound(first, runs_.end(), range.end() + (goesOn ? 1 : 0), byStart);
    std::vector<Run> fresh;
    fresh.reserve(pieces.size() + 1);
    const auto add = [&](Run run) {
        const bool isFirst = fresh.empty();
        if (isFirst && first != runs_.begin() && std::prev(first)->attributes == run.attributes) return;
        if (isFirst || fresh.back().attributes != run.attributes) fresh.push_back(run);
    };
    for (const auto& piece : pieces) add(piece);
    if (goesOn) add({range.end(), behind});
    first = runs_.erase(first, last);
    runs_.insert(first, fresh.begin(), fresh.end());
}

std::vector<AttributeRun> StyledBuffer::attributes(TextRange range) const {
    std::vector<AttributeRun> found;
    if (range.location >= text_.size()) return found;
    const TextRange inside{range.location, std::min(range.length, text_.size() - range.location)};
    const auto parts = pieces(inside);
    for (std::size_t index = 0; index < parts.size(); ++index) {
        const auto end = index + 1 < parts.size() ? parts[index + 1].start : inside.end();
        found.push_back(
            {{parts[index].start, end - parts[index].start}, known_[parts[index].attributes].attributes});
    }
    return found;
}

void StyledBuffer::setAttributes(TextRange range, const std::vector<AttributeRun>& runs,
                                 bool preservingIndent) {
    if (isPlain_ || range.empty() || range.end() > text_.size()) return;
    const auto former = pieces(range);
    std::vector<Run> wanted;
    wanted.reserve(runs.size());
    const auto want = [&](Run run) {
        if (wanted.empty() || wanted.back().attributes != run.attributes) wanted.push_back(run);
    };
    std::size_t standing = 0;
    for (const auto& run : runs) {
        if (run.range.empty()) continue;
        if (!preservingIndent) {
            want({run.range.location, idOf(run.attributes)});
            continue;
        }
        for (auto start = run.range.location; start < run.range.end();) {
            while (standing + 1 < former.size() && former[standing + 1].start <= start) ++standing;
            auto attributes = run.attributes;
            attributes.indent = known_[former[standing].attributes].attributes.indent;
            want({start, idOf(attributes)});
            const auto next = standing + 1 < former.size() ? former[standing + 1].start : range.end();
            start = std::min(next, run.range.end());
        }
    }
    if (wanted.empty()) return;
    // Both lists walked side by side: only what differs is tagged anew, in stretches as long as they come.
    std::size_t before = 0, after = 0;
    TextRange stretch;
    AttributesID from = 0, to = 0;
    for (auto at = range.location; at < range.end();) {
        while (before + 1 < former.size() && former[before + 1].start <= at) ++before;
        while (after + 1 < wanted.size() && wanted[after + 1].start <= at) ++after;
        auto end = range.end();
        if (before + 1 < former.size()) end = std::min(end, former[before + 1].start);
        if (after + 1 < wanted.size()) end = std::min(end, wanted[after + 1].start);
        const auto a = former[before].attributes, b = wanted[after].attributes;
        if (!stretch.empty() && stretch.end() == at && from == a && to == b) {
            stretch.length += end - at;
        } else {
            retag(stretch, from, to);
            stretch = {at, end - at};
            from = a;
            to = b;
        }
        at = end;
    }
    retag(stretch, from, to);
    assign(range, wanted);
}

void StyledBuffer::retag(TextRange range, AttributesID from, AttributesID to) {
    if (range.empty() || from == to) return;
    const GtkTextIter start = iterAt(range.location), end = iterAt(range.end());
    if (known_[from].tag) gtk_text_buffer_remove_tag(buffer_, known_[from].tag, &start, &end);
    if (known_[to].tag) gtk_text_buffer_apply_tag(buffer_, known_[to].tag, &start, &end);
}

void StyledBuffer::clearSpellingMarks(TextRange range) {
    if (!isPlain_) remove(spelling_, range);
}

void StyledBuffer::apply(GtkTextTag* tag, TextRange range) {
    const GtkTextIter start = iterAt(range.location), end = iterAt(range.end());
    gtk_text_buffer_apply_tag(buffer_, tag, &start, &end);
}

void StyledBuffer::remove(GtkTextTag* tag, TextRange range) {
    const GtkTextIter start = iterAt(range.location), end = iterAt(range.end());
    gtk_text_buffer_remove_tag(buffer_, tag, &start, &end);
}

StyledBuffer::AttributesID StyledBuffer::idOf(const TextAttributes& attributes) {
    // The kinds in one note are a few dozen; the last ones are asked for again and again.
    for (std::size_t index = known_.size(); index-- > 0;)
        if (known_[index].attributes == attributes) return static_cast<AttributesID>(index);
    if (known_.size() >= mostKnown) return 0;
    GtkTextTag* tag = gtk_text_buffer_create_tag(buffer_, nullptr, nullptr);
    // Below the tags of the view, which were there before.
    gtk_text_tag_set_priority(tag, 0);
    style(tag, attributes);
    known_.push_back({attributes, tag});
    return static_cast<AttributesID>(known_.size() - 1);
}

void StyledBuffer::style(GtkTextTag* tag, const TextAttributes& attributes) const {
    // Pango takes an alpha of nothing for one that isn't given.
    static constexpr GdkRGBA clear{0, 0, 0, 0.001F};
    if (attributes.indent > 0) {
        g_object_set(tag, "accumulative-margin", TRUE, "left-margin",
                     static_cast<int>(theme_.points(attributes.indent) * pixelsPerPoint), nullptr);
    }
    if (attributes.isHidden()) {
        // A size of nearly nothing keeps the characters where copying, searching and the caret find them.
        g_object_set(tag, "size", 1, "foreground-rgba", &clear, nullptr);
        return;
    }
    const auto& font = attributes.font;
    const bool isMono = font.family == TextAttributes::FontFamily::mono;
    const auto& family = isMono ? theme_.monoFamily : theme_.bodyFamily;
    int weight = PANGO_WEIGHT_NORMAL;
    switch (font.weight) {
        case TextAttributes::FontWeight::regular:
            break;
        case TextAttributes::FontWeight::semibold:
            weight = PANGO_WEIGHT_SEMIBOLD;
            break;
        case TextAttributes::FontWeight::bold:
            weight = PANGO_WEIGHT_BOLD;
            break;
    }
    const auto colour = [&](const TextAttributes::Color& color, GdkRGBA& own) -> const GdkRGBA* {
        return match(
            color, [&](TextAttributes::ColorRole role) { return theme_.color(role); },
            [&](const CSSColor& named) -> const GdkRGBA* {
                own = rgba(named);
                return &own;
            });
    };
    GdkRGBA foreground{}, background{};
    g_object_set(tag, "family", family.c_str(), "size-points", theme_.points(font.size), "weight", weight,
                 "style", font.italic ? PANGO_STYLE_ITALIC : PANGO_STYLE_NORMAL, "strikethrough",
                 static_cast<gboolean>(attributes.strikethrough), "underline",
                 attributes.underline ? PANGO_UNDERLINE_SINGLE : PANGO_UNDERLINE_NONE, "foreground-rgba",
                 colour(attributes.color, foreground), "background-rgba",
                 attributes.background ? colour(*attributes.background, background) : nullptr, nullptr);
    if (attributes.baselineOffset != 0)
        g_object_set(tag, "rise", static_cast<int>(theme_.points(attributes.baselineOffset) * PANGO_SCALE),
                     nullptr);
}

void StyledBuffer::setTheme(const EditorTheme& theme) {
    theme_ = theme;
    for (const auto& known : known_)
        if (known.tag) style(known.tag, known.attributes);
}

// Paragraphs

int StyledBuffer::paragraphColour(int line) const {
    GtkTextIter start;
    if (line < 0 || !gtk_text_buffer_get_iter_at_line(buffer_, &start, line)) return -1;
    for (std::size_t index = 0; index < paragraphs_.size(); ++index)
        if (gtk_text_iter_has_tag(&start, paragraphs_[index])) return static_cast<int>(index);
    return -1;
}

void StyledBuffer::colourParagraphs(int first, int last) {
    const int next = paragraphColour(last + 1);
    int before = paragraphColour(first - 1);
    GtkTextIter start;
    gtk_text_buffer_get_iter_at_line(buffer_, &start, first);
    for (int line = first; line <= last; ++line) {
        GtkTextIter end = start;
        if (!gtk_text_iter_forward_line(&end)) gtk_text_buffer_get_end_iter(buffer_, &end);
        const auto isFree = [&](int colour) { return colour != before && (line != last || colour != next); };
        int colour = paragraphColour(line);
        if (colour < 0 || !isFree(colour)) {
            colour = 0;
            while (!isFree(colour)) ++colour;
        }
        GtkTextTag* wanted = paragraphs_[static_cast<std::size_t>(colour)];
        for (auto* tag : paragraphs_)
            if (tag != wanted) gtk_text_buffer_remove_tag(buffer_, tag, &start, &end);
        gtk_text_buffer_apply_tag(buffer_, wanted, &start, &end);
        before = colour;
        start = end;
    }
}

}  // namespace vesk::views
