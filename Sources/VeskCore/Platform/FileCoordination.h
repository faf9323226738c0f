// Taking turns with the sync provider and other programs over a file.
#pragma once

#include <functional>

#include "VeskCore/Platform/FileSystem.h"

namespace vesk {

/// Blocks until access is granted, runs the body in it, and throws what the coordinator or the body throws.
class FileCoordination {
public:
    virtual ~FileCoordination() = default;
    /// A read that does not ask others to save first.
    virtual void read(const FilePath& path, const std::function<void()>& body) = 0;
    virtual void writeForReplacing(const FilePath& path, const std::function<void()>& body) = 0;
    /// A move: the body moves the item; after it others are told that it moved.
    virtual void move(const FilePath& from, const FilePath& to, const std::function<void()>& body) = 0;
};

/// Where nobody has to be asked: the body just runs.
class PlainCoordination final : public FileCoordination {
public:
    void read(const FilePath&, const std::function<void()>& body) override { body(); }
    void writeForReplacing(const FilePath&, const std::function<void()>& body) override { body(); }
    void move(const FilePath&, const FilePath&, const std::function<void()>& body) override { body(); }
};

}  // namespace vesk
