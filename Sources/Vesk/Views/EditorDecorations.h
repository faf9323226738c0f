// What the editor draws between and over the lines of its text: the grids of tables, pictures under their
// lines, boxes of tasks, bullets, bars of quotes, grounds of code, rules. And how paragraphs are set: room
// above headings, hanging list items, room reserved for what is drawn.
#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "Vesk/Views/EditorImages.h"
#include "Vesk/Views/GridPainter.h"
#include "Vesk/Views/StyledBuffer.h"
#include "VeskCore/Editor/ImageEmbeds.h"
#include "VeskCore/Editor/MarkdownTable.h"
#include "VeskCore/Editor/TableGridCache.h"

namespace vesk::views {

/// Belongs to one text view. Main thread.
class EditorDecorations {
public:
    EditorDecorations(GtkTextView* view, StyledBuffer& content);
    ~EditorDecorations();
    EditorDecorations(const EditorDecorations&) = delete;
    EditorDecorations& operator=(const EditorDecorations&) = delete;

    /// Where the pictures of the note come from; none shows none.
    void setImages(std::shared_ptr<EditorImages> images);
    /// The file that an embed's target names, or none.
    std::function<std::optional<FilePath>(const std::string& target)> resolveImage;
    /// Whether the line at the offset shows its signs.
    std::function<bool(TextRange line)> isRevealed;

    void setTheme(const EditorTheme& theme);
    /// The width that text has; true if it differs from before, so that tables are to be decided anew.
    bool setWidth(int left, int width);
    /// For the highlighter: the grid that would stand over the table.
    std::optional<MarkdownTableGrid::Layout> gridLayout(const MarkdownTable& table);

    /// Another text: everything placed is dropped.
    void clear();
    /// The range has been styled.
    void styled(TextRange range);
    void textChanged() { fences_.reset(); }
    /// Finds the pictures of the text anew.
    void placeImages();

    void draw(GtkTextViewLayer layer, GtkSnapshot* snapshot);

    struct Hit {
        enum class Kind { task, cell, image };
        Kind kind = Kind::task;
        std::size_t offset = 0;  ///< in the task's line, or where the caret goes
        std::string target;      ///< of a picture
    };
    /// What is drawn at a point of the buffer's coordinates.
    std::optional<Hit> hit(int x, int y) const;

private:
    struct Look {
        int above = 0, below = 0, hanging = 0;
        bool isRow = false;
        bool operator==(const Look&) const = default;
        bool isPlain() const { return *this == Look(); }
    };
    struct Grid {
        GtkTextMark* start = nullptr;
        MarkdownTableGrid::Layout layout;
        std::shared_ptr<const MarkdownTableGrid::Cells> cells;
    };
    struct Picture {
        GtkTextMark* line = nullptr;
        ImageEmbed embed;
        FilePath file;
        int width = 0, height = 0;  ///< as shown
    };
    struct Line {
        TextRange content, full;
        int y = 0, height = 0;
        bool isCode = false, isFence = false, isFrontmatter = false;
    };

    void setLook(TextRange line, const Look& look);
    GtkTextTag* tagOf(const Look& look);
    Look lookOf(const Line& line, bool isHidden);
    void setSigns(const Line& line, bool isShown);
    Line lineAt(const GtkTextIter& start) const;
    bool isHidden(TextRange range) const;
    int widthOf(std::u16string_view text);
    std::vector<Line> linesInSight() const;
    const std::vector<std::size_t>& fences() const;
    void drawGrounds(GtkSnapshot* snapshot, const std::vector<Line>& lines);
    void drawSigns(GtkSnapshot* snapshot, const Line& line);
    void drawGrids(GtkSnapshot* snapshot);
    void drawPictures(GtkSnapshot* snapshot);
    int pictureSpace(const Picture& picture) const;
    void sizePicture(Picture& picture) const;
    GdkRectangle place(std::size_t offset) const;
    GdkRectangle sight() const;
    std::size_t offsetOf(GtkTextMark* mark) const;
    std::size_t lineStart(GtkTextMark* mark) const;
    GtkTextMark* markAt(std::size_t offset);
    void dropGrids(std::optional<TextRange> range);
    void dropPictures();

    GtkTextView* view_;
    StyledBuffer& content_;
    GridPainter painter_;
    TableGridCache cache_{TableGridCache::editorCapacity};
    std::shared_ptr<EditorImages> images_;
    EditorTheme theme_;
    GtkTextTag* unseen_ = nullptr;  ///< signs that something is drawn over
    GtkTextTag* box_ = nullptr;     ///< of them what stands in a task's box
    std::vector<std::pair<Look, GtkTextTag*>> looks_;
    std::map<std::u16string, int> widths_;
    std::vector<Grid> grids_;
    std::vector<Picture> pictures_;
    mutable std::optional<std::vector<std::size_t>> fences_;
    int left_ = 0, width_ = 0;
};

}  // namespace vesk::views
