// The text of an editor in the toolkit's buffer, with a mirror in UTF-16 and the attributes that stand on it.
// The toolkit counts code points; everything outside this class counts UTF-16 units.
#pragma once

#include <gtk/gtk.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Vesk/Views/EditorTheme.h"
#include "VeskCore/Editor/AttributedText.h"

namespace vesk::views {

/// Owns the buffer; belongs to one editor. Main thread. Each distinct set of attributes is one tag of the
/// buffer, so that a character never carries two of them.
class StyledBuffer final : public AttributedText {
public:
    StyledBuffer();
    ~StyledBuffer() override;
    StyledBuffer(const StyledBuffer&) = delete;
    StyledBuffer& operator=(const StyledBuffer&) = delete;

    /// Until the next load(); the table of its tags stays the same.
    GtkTextBuffer* buffer() const { return buffer_; }
    /// The view takes the new buffer, and lets go of the former one.
    std::function<void(GtkTextBuffer* former)> onRenewed;

    std::u16string_view text() const override { return text_; }
    std::vector<AttributeRun> attributes(TextRange range) const override;
    void setAttributes(TextRange range, const std::vector<AttributeRun>& runs,
                       bool preservingIndent) override;
    void clearSpellingMarks(TextRange range) override;
    void setDidEdit(DidEdit didEdit) override { didEdit_ = std::move(didEdit); }

    /// Another note's text in a buffer of its own: to take a long text and its tags out of the former one
    /// takes longer. All attributes go and nobody is told. `isPlain`: none will come, so that nothing need be
    /// kept for them. Nothing of it can be undone.
    void load(std::u16string_view text, bool isPlain);
    /// A stretch of the loaded text is about to be styled for the first time.
    void prepare(TextRange range);
    /// The same note's text as it came from outside: only what differs is touched. Nothing of it can be
    /// undone.
    void follow(std::u16string_view text);
    bool isPlain() const { return isPlain_; }
    /// One step of the person's, which undo takes back.
    void replace(TextRange range, std::u16string_view text);
    /// Groups what is done inside into one step of undo.
    void asOneStep(const std::function<void()>& change);

    GtkTextIter iterAt(std::size_t offset) const;
    std::size_t offsetOf(const GtkTextIter& iter) const;
    TextRange selection() const;
    std::size_t caret() const;
    void select(TextRange range);
    TextAttributes attributesAt(std::size_t offset) const;

    void setTheme(const EditorTheme& theme);
    const EditorTheme& theme() const { return theme_; }

    /// A tag of the view's own, above all attributes: spelling, found places, decorations.
    GtkTextTag* spellingTag() const { return spelling_; }
    void apply(GtkTextTag* tag, TextRange range);
    void remove(GtkTextTag* tag, TextRange range);

    /// After each step of the person's, undo and redo included; not after load().
    std::function<void()> onEdited;

private:
    using AttributesID = std::uint32_t;
    /// A note that names thousands of colours gets no more tags than this.
    static constexpr std::size_t mostKnown = 2000;
    /// With more than these a new note begins without the tags of those before it.
    static constexpr std::size_t mostKept = 64;
    static constexpr double pixelsPerPoint = 96.0 / 72;
    struct Run {
        std::size_t start = 0;
        AttributesID attributes = 0;
    };
    struct Known {
        TextAttributes attributes;
        GtkTextTag* tag = nullptr;  ///< none for what the view shows by itself
    };
    struct Edit {
        std::size_t offset = 0, length = 0;
    };

    void connect();
    void renew();
    void exchange(std::u16string_view text);
    void willInsert(const GtkTextIter& at);
    void didInsert(std::string_view inserted);
    void willDelete(const GtkTextIter& from, const GtkTextIter& to);
    void didDelete();
    void edited(TextRange range, std::ptrdiff_t delta);
    void tell();

    std::size_t codePoint(std::size_t offset) const;
    std::size_t unit(std::size_t codePoint) const;
    void movePairs(std::size_t offset, std::size_t removed, std::u16string_view inserted);

    AttributesID idOf(const TextAttributes& attributes);
    void style(GtkTextTag* tag, const TextAttributes& attributes) const;
    std::size_t runAt(std::size_t offset) const;
    std::vector<Run> pieces(TextRange range) const;
    void assign(TextRange range, const std::vector<Run>& pieces);
    void retag(TextRange range, AttributesID from, AttributesID to);
    void colourParagraphs(int first, int last);
    int paragraphColour(int line) const;

    GtkTextBuffer* buffer_;
    std::u16string text_;
    std::vector<std::size_t> pairs_;  ///< offsets of the high surrogates, in order
    std::vector<Run> runs_{Run{}};    ///< in order; the first begins at 0, neighbours differ
    std::vector<Known> known_;
    EditorTheme theme_;
    DidEdit didEdit_;
    /// Neighbouring paragraphs carry different ones, so that each line begins with a toggle: otherwise a line
    /// can be painted in the style that was cached for one above it.
    std::array<GtkTextTag*, 3> paragraphs_{};
    GtkTextTag* spelling_ = nullptr;
    Edit edit_;
    bool isPlain_ = false, isLoading_ = false, isQuiet_ = false, isInStep_ = false, isChanged_ = false;
};

}  // namespace vesk::views
