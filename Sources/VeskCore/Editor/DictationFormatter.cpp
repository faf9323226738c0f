#include "VeskCore/Editor/DictationFormatter.h"

#include <vector>

#include "VeskCore/Support/Text.h"

namespace vesk::DictationFormatter {

namespace {

constexpr std::u16string_view quoteMarker = u"> ";

struct Word {
    std::u16string_view written, core, punctuation;
    std::u16string key;  ///< the core lowered
};

/// The word without the punctuation at its end.
Word split(std::u16string_view written) {
    const std::size_t last = written.find_last_not_of(u".,;:!?\u2026");
    const std::size_t length = last == written.npos ? 0 : last + 1;
    Word word{written, written.substr(0, length), written.substr(length), {}};
    for (const char16_t c : word.core) {
        word.key += c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + (u'a' - u'A')) : c;
    }
    return word;
}

std::vector<Word> words(std::u16string_view text) {
    std::vector<Word> result;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t end = at;
        while (end < text.size() && !isSpaceOrNewline(text[end])) ++end;
        if (end > at) result.push_back(split(text.substr(at, end - at)));
        at = end + 1;
    }
    return result;
}

class Builder {
public:
    /// Nothing is written before the first word comes, so that a style without words leaves no signs.
    void open(std::u16string_view marker) {
        closeInline({});
        pending_ = marker;
    }

    void append(const Word& word) {
        if (!out_.empty() && out_.back() != u'\n' && !endsWithQuoteMarker()) out_ += u' ';
        if (!pending_.empty()) out_ += pending_;
        if (!pending_.empty()) open_ = pending_;
        pending_ = {};
        out_ += word.written;
        lastPunctuation_ = word.core.empty() ? 0 : word.punctuation.size();
    }

    bool hasOpenStyle() const { return !open_.empty() || !pending_.empty(); }

    void closeInline(std::u16string_view punctuation) {
        if (!open_.empty()) (out_ += open_) += punctuation;
        open_ = pending_ = {};
    }

    /// The punctuation spoken with the style's last word, or else with the command, goes behind the marker.
    void stop(std::u16string_view commandPunctuation) {
        std::u16string punctuation(commandPunctuation);
        if (!open_.empty() && lastPunctuation_ > 0) {
            punctuation = out_.substr(out_.size() - lastPunctuation_);
            out_.resize(out_.size() - lastPunctuation_);
        }
        closeInline(punctuation);
    }

    void breakLine(std::size_t feeds) {
        closeInline({});
        out_.append(feeds, u'\n');
    }

    void quote() {
        closeInline({});
        if (endsWithQuoteMarker()) return;
        if (!out_.empty() && out_.back() != u'\n') out_ += u'\n';
        out_ += quoteMarker;
        quoteEnd_ = out_.size();
    }

    std::u16string finished() {
        closeInline({});
        if (endsWithQuoteMarker()) out_.resize(out_.size() - quoteMarker.size());
        while (!out_.empty() && out_.back() == u'\n') out_.pop_back();
        return std::move(out_);
    }

private:
    /// A spoken ">" is a word, not a marker.
    bool endsWithQuoteMarker() const { return quoteEnd_ > 0 && quoteEnd_ == out_.size(); }

    std::u16string out_;
    std::u16string_view open_, pending_;
    std::size_t lastPunctuation_ = 0, quoteEnd_ = 0;
};

/// True if the two words are a command, which is then carried out.
bool obey(std::u16string_view first, std::u16string_view second, Builder& builder) {
    if (second == u"this") {
        if (first == u"bold") return builder.open(u"**"), true;
        if (first == u"italic" || first == u"italics") return builder.open(u"*"), true;
        if (first == u"quote") return builder.quote(), true;
    }
    if (first == u"new" || first == u"next") {
        if (second == u"line") return builder.breakLine(1), true;
        if (second == u"paragraph") return builder.breakLine(2), true;
    }
    return false;
}

}  // namespace

std::u16string markdown(std::u16string_view text) {
    const std::vector<Word> spoken = words(text);
    Builder builder;
    for (std::size_t i = 0; i < spoken.size(); ++i) {
        if (i + 1 < spoken.size() && obey(spoken[i].key, spoken[i + 1].key, builder)) {
            ++i;
        } else if (builder.hasOpenStyle() && (spoken[i].key == u"normal" || spoken[i].key == u"stop")) {
            builder.stop(spoken[i].punctuation);
        } else {
            builder.append(spoken[i]);
        }
    }
    return builder.finished();
}

}  // namespace vesk::DictationFormatter
