// Lays out a stylesheet for the index: comments and inline data gone, white space collapsed, each rule and
// each at-statement a line of its own. A rule that holds rules ("@media") opens on one line and closes on
// another.
#include <algorithm>

#include "VeskCore/Markdown/HTMLText.h"
#include "VeskCore/Support/Text.h"

namespace vesk::CSSText {

namespace {

constexpr bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

class Layout {
public:
    explicit Layout(std::string_view css) : css_(css) {}

    std::string text() {
        out_.reserve(css_.size());
        while (at_ < css_.size()) step();
        endLine();
        if (!out_.empty()) out_.pop_back();
        return std::move(out_);
    }

private:
    void step() {
        const char c = css_[at_];
        if (c == '/' && css_.substr(at_).starts_with("/*")) {
            const std::size_t close = noCommentEnd_ ? std::string_view::npos : css_.find("*/", at_ + 2);
            noCommentEnd_ = close == std::string_view::npos;
            at_ = noCommentEnd_ ? css_.size() : close + 2;
            pendingSpace_ = true;
        } else if (isSpace(c)) {
            pendingSpace_ = true;
            ++at_;
        } else if (c == '"' || c == '\'') {
            string();
        } else if ((c == 'u' || c == 'U') && asciiEqualsIgnoringCase(css_.substr(at_, 4), "url(")) {
            url();
        } else if (c == '\\' && at_ + 1 < css_.size()) {
            add(css_.substr(at_, 2));
            at_ += 2;
        } else if (c == '{') {
            openBlock();
        } else if (c == '}') {
            pendingSpace_ = !atLineStart();
            add("}");
            endLine();
            ++at_;
        } else if (c == ';') {
            pendingSpace_ = false;
            add(";");
            ++at_;
            boundary_ = out_.size();
            if (!blockOnLine_) endLine();
        } else {
            const std::size_t start = at_++;
            at_ = std::min(css_.find_first_of(" \t\n\r\f/\"'uU\\{};", at_), css_.size());
            add(css_.substr(start, at_ - start));
        }
    }

    // Where the quoted string that begins at `from` ends; a line end or the text's end closes an open one.
    std::size_t stringEnd(std::size_t from) const {
        const char quote = css_[from];
        for (std::size_t i = from + 1; i < css_.size(); ++i) {
            if (css_[i] == '\\') {
                ++i;
            } else if (css_[i] == quote) {
                return i + 1;
            } else if (css_[i] == '\n') {
                return i;
            }
        }
        return css_.size();
    }

    void string() {
        const std::size_t end = stringEnd(at_);
        add(css_.substr(at_, end - at_));
        at_ = end;
    }

    // "url(" with its argument as it stands, since signs mean nothing inside; with inline data not at all.
    void url() {
        std::size_t inner = at_ + 4;
        while (inner < css_.size() && isSpace(css_[inner])) ++inner;
        const bool quoted = inner < css_.size() && (css_[inner] == '"' || css_[inner] == '\'');
        const bool isData = asciiEqualsIgnoringCase(css_.substr(inner + (quoted ? 1 : 0), 5), "data:");
        std::size_t from = inner;
        if (quoted) {
            // A parenthesis inside the quotes does not close. Without a closing quote the first one does.
            const std::size_t end = stringEnd(inner);
            if (end > inner + 1 && css_[end - 1] == css_[inner]) from = end;
        }
        const std::size_t close = css_.find(')', from);
        const std::size_t end = close == std::string_view::npos ? css_.size() : close + 1;
        if (!isData) add(css_.substr(at_, end - at_));
        at_ = end;
    }

    void openBlock() {
        if (blockOnLine_) {
            // The rule that the line has begun holds rules: it keeps its line, the one inside gets a new one.
            std::string inside(trim(std::string_view(out_).substr(boundary_)));
            out_.resize(boundary_);
            endLine();
            out_ += inside;
        }
        pendingSpace_ = !atLineStart();
        add("{");
        ++at_;
        blockOnLine_ = true;
        boundary_ = out_.size();
        pendingSpace_ = true;
    }

    bool atLineStart() const { return out_.size() == lineStart_; }

    void add(std::string_view text) {
        if (pendingSpace_ && !atLineStart()) out_ += ' ';
        pendingSpace_ = false;
        for (char c : text) out_ += c == '\n' || c == '\r' ? ' ' : c;
    }

    void endLine() {
        while (out_.size() > lineStart_ && out_.back() == ' ') out_.pop_back();
        if (!atLineStart()) out_ += '\n';
        lineStart_ = boundary_ = out_.size();
        blockOnLine_ = pendingSpace_ = false;
    }

    std::string_view css_;
    std::size_t at_ = 0;
    std::string out_;
    std::size_t lineStart_ = 0;
    std::size_t boundary_ = 0;  // behind the last "{" or ";" of the line, where a nested rule would begin
    bool blockOnLine_ = false;
    bool pendingSpace_ = false;
    bool noCommentEnd_ = false;
};

}  // namespace

std::string indexable(std::string_view text) {
    return Layout(text).text();
}

}  // namespace vesk::CSSText
