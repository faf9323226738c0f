// Walks the bytes of a saved page once and lays out its text for the index. No tree is built: what an element
// means for the text follows from its tags alone. Inside HTMLText only.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Markdown/HTMLText.h"

namespace vesk {

struct PageElement;

class PageTextScanner {
public:
    /// `bytes` is well-formed UTF-8 and outlives the scanner. `scriptingEnabled`: "noscript" gives no text.
    PageTextScanner(std::string_view bytes, bool scriptingEnabled)
        : b_(bytes), scriptingEnabled_(scriptingEnabled) {}

    HTMLExtract extract();

private:
    /// A start tag as far as the text depends on it. Of attributes that repeat the first counts.
    struct StartTag {
        bool selfClosing = false;
        std::optional<std::string_view> alt, hidden, open, style;  ///< as written
    };

    bool isSkipping() const { return !skipName_.empty() || svgDepth_ > 0; }
    bool keepsSpace() const { return preDepth_ > 0 && headingLevel_ == 0; }
    char peek(std::size_t ahead) const { return i_ + ahead < b_.size() ? b_[i_ + ahead] : '\0'; }

    // Text
    void textRun();
    void spaceRun();
    void reference();
    void literal(std::string_view text);
    void collapsed(std::string_view text);
    void preformatted(std::string_view text);
    void flush();
    void owe(int breaks);

    // Tags
    void tag();
    void comment();
    void cdata();
    void skipTo(char c);
    void readName();
    bool readAttributes(StartTag& tag);
    static void record(StartTag& tag, std::string_view name, std::string_view value);
    void startTag();
    void endTag();
    std::size_t findEndTag(std::string_view name, std::size_t from) const;
    void skipRawText();
    void title();
    void textarea(bool shown);
    bool isHidden(const StartTag& tag);
    /// True if the tag is swallowed by the element being skipped; false once the tag has ended that element.
    bool skipsStart(const PageElement* element, const StartTag& tag);
    bool skipsEnd();

    // Layout
    void layOutStart(const PageElement& element, const StartTag& tag);
    void layOutEnd(const PageElement& element);
    void openPre();
    void separateCell();
    void openHeading(int level);
    void closeHeading();
    std::string finishedText() const;

    std::string_view b_;
    bool scriptingEnabled_;
    std::size_t i_ = 0;
    std::string out_;
    std::string name_;     // of the tag being read, lower-cased
    std::string scratch_;  // of isHidden
    HTMLExtract result_;

    int pendingBreak_ = 0;  // line feeds owed
    bool pendingSpace_ = false;
    bool pendingItem_ = false;  // "- " owed: a list item whose first text is still to come
    bool atLineStart_ = true;
    int preDepth_ = 0, listDepth_ = 0, svgDepth_ = 0;
    bool cellInRow_ = false;

    std::string skipName_;  // the element being skipped, if any
    int skipCount_ = 0;
    int skipScopes_ = 0;  // containers open inside a skipped element whose end tag may be left out

    int headingLevel_ = 0;
    std::optional<std::size_t> headingTextStart_;   // set with the heading's first text
    std::vector<std::size_t> headingLines_;         // where the lines begin that are headings of the page
    bool noTitleEnd_ = false, noCdataEnd_ = false;  // none further on: not searched for again
};

}  // namespace vesk
