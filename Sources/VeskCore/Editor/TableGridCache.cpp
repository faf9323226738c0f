#include "VeskCore/Editor/TableGridCache.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include "VeskCore/Editor/EditorLines.h"

namespace vesk {

namespace {

std::int64_t wholePoints(double width) {
    constexpr double widest = 1e9;
    return width > 0 ? std::llround(std::min(width, widest)) : 0;
}

}  // namespace

TableGridCache::TableGridCache(std::size_t capacity) : capacity_(std::max<std::size_t>(capacity, 1)) {}

std::size_t TableGridCache::KeyHash::operator()(const Key& key) const {
    return std::hash<std::u16string>()(key.source) * 31 + std::hash<std::int64_t>()(key.width);
}

const TableGridCache::Entry& TableGridCache::decision(const MarkdownTable& table, std::u16string_view text,
                                                      double width, const MarkdownTableGrid::Policy& policy,
                                                      const MarkdownTableGrid::Measurer& measurer) {
    Key key{std::u16string(EditorLines::piece(text, table.range)), wholePoints(width), policy};
    ++clock_;
    if (const auto found = entries_.find(key); found != entries_.end()) {
        found->second.used = clock_;
        return found->second;
    }
    Entry entry;
    entry.used = clock_;
    const double available = static_cast<double>(key.width);
    if (const auto reason = MarkdownTableGrid::precheck(table, available, policy)) {
        entry.decision = {*reason};
    } else {
        entry.cells = MarkdownTableGrid::cells(table, text);
        entry.decision = MarkdownTableGrid::decide(table, entry.cells, available, policy, measurer);
        if (std::holds_alternative<MarkdownTableGrid::Reason>(entry.decision.value)) entry.cells.clear();
    }
    if (entries_.size() >= capacity_) {
        entries_.erase(std::min_element(entries_.begin(), entries_.end(), [](const auto& a, const auto& b) {
            return a.second.used < b.second.used;
        }));
    }
    return entries_.emplace(std::move(key), std::move(entry)).first->second;
}

}  // namespace vesk
