// The pictures of notes, read and made small on a worker.
#pragma once

#include <gdk/gdk.h>

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "VeskCore/Platform/FileSystem.h"
#include "VeskCore/Support/Executors.h"

namespace vesk::views {

/// A picture that could be read, or the words that stand in its place. Main thread.
struct EditorImage {
    std::shared_ptr<GdkTexture> texture;
    int width = 0, height = 0;  ///< of the picture itself
    std::string failure;
    bool isWaiting = true;
};

class EditorImages : public std::enable_shared_from_this<EditorImages> {
public:
    static std::shared_ptr<EditorImages> make(MainQueue& mainQueue, Background& background);

    /// What is known of the picture; what isn't is read, and `onArrived` told. A file that has changed since
    /// is read anew.
    const EditorImage& image(const FilePath& file);
    std::function<void()> onArrived;

private:
    EditorImages(MainQueue& mainQueue, Background& background)
        : mainQueue_(mainQueue), background_(background) {}
    struct Entry {
        EditorImage image;
        std::int64_t stamp = 0;
    };
    void read(const FilePath& file);

    MainQueue& mainQueue_;
    Background& background_;
    std::map<FilePath, Entry> known_;
    std::list<FilePath> order_;  ///< oldest first
};

}  // namespace vesk::views
