// An attributed text without a view. New characters take the attributes of those before them, as a text
// view's do. What a pass must not do is checked here: runs cover their range in order, and no character
// changes.
#pragma once

#include <algorithm>
#include <string>
#include <utility>

#include "VeskCore/Editor/AttributedText.h"
#include "VeskCore/Support/Ensure.h"

namespace vesk::test {

class InMemoryAttributedText : public AttributedText {
public:
    explicit InMemoryAttributedText(std::u16string text = {}) : text_(std::move(text)) {
        if (!text_.empty()) runs_ = {{{0, text_.size()}, {}}};
    }

    /// Puts `replacement` in place of the range and tells of it.
    void edit(TextRange range, std::u16string_view replacement) {
        VESK_ENSURE(range.end() <= text_.size());
        const TextAttributes typed = runs_.empty() ? TextAttributes{} : at(range.location);
        text_.replace(range.location, range.length, replacement);
        std::vector<AttributeRun> edited;
        copyRuns({0, range.location}, 0, edited);
        append({range.location, replacement.size()}, typed, edited);
        copyRuns({range.end(), oldLength() - range.end()}, replacement.size() - range.length, edited);
        runs_ = std::move(edited);
        const auto delta =
            static_cast<std::ptrdiff_t>(replacement.size()) - static_cast<std::ptrdiff_t>(range.length);
        if (didEdit_) didEdit_({range.location, replacement.size()}, delta);
    }

    std::u16string_view text() const override { return text_; }
    std::vector<AttributeRun> attributes(TextRange range) const override {
        std::vector<AttributeRun> result;
        copyRuns(range, 0, result);
        return result;
    }
    const std::vector<AttributeRun>& runs() const { return runs_; }

    void setAttributes(TextRange range, const std::vector<AttributeRun>& runs,
                       bool preservingIndent) override {
        VESK_ENSURE(range.end() <= text_.size());
        std::vector<AttributeRun> result;
        copyRuns({0, range.location}, 0, result);
        std::size_t at = range.location;
        for (const AttributeRun& run : runs) {
            VESK_ENSURE(run.range.location == at && !run.range.empty());
            at = run.range.end();
            if (!preservingIndent) {
                append(run.range, run.attributes, result);
                continue;
            }
            for (AttributeRun standing : attributes(run.range)) {
                const double indent = standing.attributes.indent;
                standing.attributes = run.attributes;
                standing.attributes.indent = indent;
                append(standing.range, standing.attributes, result);
            }
        }
        VESK_ENSURE(at == range.end());
        copyRuns({range.end(), text_.size() - range.end()}, 0, result);
        runs_ = std::move(result);
    }

    void clearSpellingMarks(TextRange range) override { cleared.push_back(range); }
    void setDidEdit(DidEdit didEdit) override { didEdit_ = std::move(didEdit); }

    std::vector<TextRange> cleared;  ///< where spelling marks were taken away

private:
    std::size_t oldLength() const { return runs_.empty() ? 0 : runs_.back().range.end(); }

    const TextAttributes& at(std::size_t offset) const {
        const std::size_t before = offset == 0 ? 0 : offset - 1;
        return firstRunEndingBehind(before)->attributes;
    }

    std::vector<AttributeRun>::const_iterator firstRunEndingBehind(std::size_t offset) const {
        return std::partition_point(runs_.begin(), runs_.end(),
                                    [&](const AttributeRun& run) { return run.range.end() <= offset; });
    }

    static void append(TextRange range, const TextAttributes& attributes, std::vector<AttributeRun>& runs) {
        if (range.empty()) return;
        if (!runs.empty() && runs.back().attributes == attributes) {
            runs.back().range.length += range.length;
        } else {
            runs.push_back({range, attributes});
        }
    }

    /// The standing runs of the range, moved by `shift`.
    void copyRuns(TextRange range, std::size_t shift, std::vector<AttributeRun>& into) const {
        for (auto run = firstRunEndingBehind(range.location);
             run != runs_.end() && run->range.location < range.end(); ++run) {
            const std::size_t start = std::max(run->range.location, range.location);
            const std::size_t end = std::min(run->range.end(), range.end());
            append({start + shift, end - start}, run->attributes, into);
        }
    }

    std::u16string text_;
    std::vector<AttributeRun> runs_;
    DidEdit didEdit_;
};

}  // namespace vesk::test
