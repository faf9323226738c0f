#include "Vesk/Views/EditorImages.h"

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gtk/gtk.h>

#include <algorithm>

#include "VeskCore/Platform/FilePlatform.h"

namespace vesk::views {
namespace {

// Decoding takes four bytes a pixel, so that a picture beyond this would take the machine's memory.
constexpr std::int64_t mostPixels = 60'000'000;
constexpr int mostShown = 1600;  // pixels to a side; what is shown is never larger
constexpr std::size_t mostKept = 60;

std::int64_t stampOf(const FilePath& file) {
    const auto info = FilePlatform::current().files->info(file);
    return info ? info->modified.time_since_epoch().count() : 0;
}

struct Read {
    GdkPixbuf* pixels = nullptr;
    int width = 0, height = 0;
    std::string failure;
};

Read readPicture(const FilePath& file) {
    Read found;
    const auto size = FilePlatform::current().files->info(file);
    if (!size) {
        found.failure = _("This picture isn't there.");
        return found;
    }
    if (!gdk_pixbuf_get_file_info(file.c_str(), &found.width, &found.height) || found.width <= 0 ||
        found.height <= 0) {
        found.failure = _("This picture can't be read.");
        return found;
    }
    if (std::int64_t{found.width} * found.height > mostPixels) {
        found.failure = _("This picture is too large to show.");
        return found;
    }
    const int longest = std::max(found.width, found.height);
    found.pixels = longest > mostShown
                       ? gdk_pixbuf_new_from_file_at_scale(file.c_str(), mostShown, mostShown, TRUE, nullptr)
                       : gdk_pixbuf_new_from_file(file.c_str(), nullptr);
    if (!found.pixels) found.failure = _("This picture can't be read.");
    return found;
}

}  // namespace

std::shared_ptr<EditorImages> EditorImages::make(MainQueue& mainQueue, Background& background) {
    return std::shared_ptr<EditorImages>(new EditorImages(mainQueue, background));
}

const EditorImage& EditorImages::image(const FilePath& file) {
    const auto stamp = stampOf(file);
    const auto known = known_.find(file);
    if (known != known_.end() && known->second.stamp == stamp) return known->second.image;
    if (known == known_.end()) {
        order_.push_back(file);
        if (order_.size() > mostKept) {
            known_.erase(order_.front());
            order_.pop_front();
        }
    }
    auto& entry = known_[file];
    entry.stamp = stamp;
    entry.image.isWaiting = true;
    read(file);
    return entry.image;
}

void EditorImages::read(const FilePath& file) {
    background_.run(Priority::userInitiated, [file, weak = weak_from_this(),
                                              &queue = mainQueue_](const std::stop_token&) {
        const auto found = readPicture(file);
        queue.post([file, weak, found] {
            std::shared_ptr<GdkTexture> texture;
            if (found.pixels) {
                texture.reset(gdk_texture_new_for_pixbuf(found.pixels), g_object_unref);
                g_object_unref(found.pixels);
            }
            const auto self = weak.lock();
            const auto entry = self ? self->known_.find(file) : decltype(self->known_.find(file)){};
            if (!self || entry == self->known_.end()) return;
            entry->second.image = {.texture = std::move(texture),
                                   .width = found.width,
                                   .height = found.height,
                                   .failure = found.failure,
                                   .isWaiting = false};
            if (self->onArrived) self->onArrived();
        });
    });
}

}  // namespace vesk::views
