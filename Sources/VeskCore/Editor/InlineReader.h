// The inline styles of one line after another. A reader keeps its storage between lines, so that a whole note
// costs little more than its characters. One thread at a time.
#pragma once

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "VeskCore/Markdown/MarkdownSpan.h"
#include "VeskCore/Support/TextRange.h"

namespace vesk {

class InlineReader {
public:
    using Span = MarkdownSpans::Span;
    /// The span stands until the next one.
    using Visit = std::function<void(const Span&)>;

    /// The spans of a line, `lineStart` added to every offset; `lineEnd` is its length without its
    /// terminator. A whole line of nothing but markup is a span of its own.
    void readLine(std::u16string_view line, std::size_t lineEnd, std::size_t lineStart, bool wholeLine,
                  const Visit& visit);
    /// Of a table cell, where an image tag stays readable.
    void readCell(std::u16string_view text, std::size_t start, const Visit& visit);

private:
    void readCode();
    void readHtml(bool wholeLine, bool inCell);
    void readDoubled(char16_t sign, MarkdownSpans::Style::Plain style);
    void readItalic();
    void readWikilinks();
    void readLinks();
    void readTags();
    void read(bool wholeLine, bool inCell);

    bool hasAt(std::size_t at, char16_t c) const { return at < line_.size() && line_[at] == c; }
    /// Visits the match unless code or markup claims it.
    void add(TextRange match, TextRange range, MarkdownSpans::Style::Plain style,
             std::initializer_list<TextRange> markers);
    void visit(TextRange range, MarkdownSpans::Style::Plain style, std::initializer_list<TextRange> markers);

    std::u16string_view given_, line_;
    std::size_t lineStart_ = 0;
    const Visit* visit_ = nullptr;
    std::vector<TextRange> code_, markup_;
    Span span_;
};

}  // namespace vesk
