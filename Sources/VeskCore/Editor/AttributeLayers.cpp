#include "VeskCore/Editor/AttributeLayers.h"

#include <algorithm>

namespace vesk {

namespace {

using ColorRole = TextAttributes::ColorRole;

constexpr double quoteIndent = 16;
// Of the size around a raised or lowered text.
constexpr double raised = 1.0 / 3, lowered = -1.0 / 6;

}  // namespace

AttributeLayers::AttributeLayers(const HighlighterTheme& theme, std::vector<AttributeRun>& runs,
                                 std::vector<TextRange>& hidden)
    : theme_(theme), base_(theme.base()), runs_(runs), hidden_(hidden) {}

void AttributeLayers::push(TextRange range, Kind kind, int value) {
    if (!range.empty()) layers_.push_back({range.location, range.end(), kind, value});
}

void AttributeLayers::add(TextRange range, Change change) {
    push(range, Kind::change, static_cast<int>(change));
}

void AttributeLayers::addHeading(TextRange range, int level) {
    push(range, Kind::heading, level);
}

void AttributeLayers::addHtml(TextRange range, const HTMLStyle& style) {
    push(range, Kind::html, static_cast<int>(htmlStyles_.size()));
    htmlStyles_.push_back(style);
}

void AttributeLayers::finishLine(TextRange line) {
    if (layers_.empty()) return append(line, {});
    active_.clear();
    edges_.resize(layers_.size() * 2);
    std::size_t edges = 0;
    for (std::size_t i = 0; i < layers_.size(); ++i) {
        const std::size_t start = std::max(layers_[i].start, line.location);
        const std::size_t end = std::min(layers_[i].end, line.end());
        if (start >= end) continue;
        edges_[edges++] = {start, i, false};
        edges_[edges++] = {end, i, true};
    }
    edges_.resize(edges);
    std::sort(edges_.begin(), edges_.end(), [](const Edge& a, const Edge& b) { return a.offset < b.offset; });
    std::size_t at = line.location;
    const auto emitUntil = [&](std::size_t end) {
        if (end > at) append({at, end - at}, active_);
        at = end;
    };
    for (const Edge& edge : edges_) {
        emitUntil(edge.offset);
        const auto place = std::lower_bound(active_.begin(), active_.end(), edge.layer);
        if (edge.isEnd) {
            active_.erase(place);
        } else {
            active_.insert(place, edge.layer);
        }
    }
    emitUntil(line.end());
    layers_.clear();
    htmlStyles_.clear();
}

void AttributeLayers::append(TextRange range, const std::vector<std::size_t>& active) {
    AttributeRun& run = runs_.emplace_back(AttributeRun{range, base_});
    for (const std::size_t layer : active) apply(layers_[layer], run.attributes);
    if (run.attributes.isHidden()) {
        if (!hidden_.empty() && hidden_.back().end() == range.location) {
            hidden_.back().length += range.length;
        } else {
            hidden_.push_back(range);
        }
    }
    if (runs_.size() == 1) return;
    AttributeRun& before = *(runs_.end() - 2);
    if (before.attributes == run.attributes) {
        before.range.length += range.length;
        runs_.pop_back();
    }
}

void AttributeLayers::apply(const Layer& layer, TextAttributes& attributes) const {
    switch (layer.kind) {
        case Kind::change:
            return apply(static_cast<Change>(layer.value), attributes);
        case Kind::heading:
            attributes.font = HighlighterTheme::heading(layer.value);
            return;
        case Kind::html:
            return apply(htmlStyles_[static_cast<std::size_t>(layer.value)], attributes);
    }
}

void AttributeLayers::apply(Change change, TextAttributes& attributes) const {
    switch (change) {
        case Change::bold:
            attributes.font.weight = TextAttributes::FontWeight::bold;
            return;
        case Change::italic:
            attributes.font.italic = true;
            return;
        case Change::strikethrough:
            attributes.strikethrough = true;
            return;
        case Change::highlight:
            attributes.background = ColorRole::highlight;
            return;
        case Change::cellCode:
            attributes.color = ColorRole::text;
            [[fallthrough]];
        case Change::code:
            attributes.font = theme_.mono;
            attributes.background = ColorRole::codeBackground;
            return;
        case Change::mono:
            attributes.font = theme_.mono;
            return;
        case Change::accent:
            attributes.color = ColorRole::accent;
            return;
        case Change::faint:
            attributes.color = ColorRole::faint;
            return;
        case Change::done:
            attributes.color = ColorRole::faint;
            attributes.strikethrough = true;
            return;
        case Change::quoted:
            attributes.color = ColorRole::faint;
            attributes.indent = quoteIndent;
            return;
        case Change::hidden:
            attributes.font = HighlighterTheme::hidden();
            attributes.color = ColorRole::clear;
            return;
    }
}

void AttributeLayers::apply(const HTMLStyle& style, TextAttributes& attributes) const {
    TextAttributes::Font& font = attributes.font;
    if (style.bold) font.weight = TextAttributes::FontWeight::bold;
    if (style.italic) font.italic = true;
    if (style.underline) attributes.underline = true;
    if (style.strikethrough) attributes.strikethrough = true;
    if (style.monospace && font.family != TextAttributes::FontFamily::mono) {
        // As much smaller than the text around it as inline code is than body text.
        font.family = TextAttributes::FontFamily::mono;
        font.size *= theme_.mono.size / theme_.body.size;
    }
    if (style.baseline == HTMLStyle::Baseline::sup) attributes.baselineOffset += font.size * raised;
    if (style.baseline == HTMLStyle::Baseline::sub) attributes.baselineOffset += font.size * lowered;
    // Small text nested without end must not come to count as hidden.
    constexpr double smallest = 4;
    if (style.scale != 1) font.size = std::max(font.size * style.scale, smallest);
    if (const auto color = style.textColor(theme_.editorBackground)) attributes.color = *color;
    if (style.background && style.background->alpha > 0) attributes.background = *style.background;
}

}  // namespace vesk
