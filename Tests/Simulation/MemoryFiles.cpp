#include "Simulation/MemoryFiles.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "VeskCore/Platform/FileEvents.h"

namespace vesk::simulation {

namespace {

[[noreturn]] void fail(int code, std::string_view operation, const FilePath& path) {
    throw SystemError(code, std::string(operation), path.native());
}

/// Cuts the first component off; empty at the end.
std::string_view nextComponent(std::string_view& path) {
    while (path.starts_with('/')) path.remove_prefix(1);
    const auto slash = std::min(path.find('/'), path.size());
    const auto name = path.substr(0, slash);
    path.remove_prefix(slash);
    return name;
}

std::pair<std::string_view, std::string_view> parentAndName(std::string_view path) {
    const auto slash = path.rfind('/');
    return {path.substr(0, slash), path.substr(slash + 1)};
}

}  // namespace

class MemoryFiles::Entry final : public WalkEntry {
public:
    Entry(std::string_view path, std::string_view name, const Item& item)
        : path_(path), name_(name), item_(item) {}
    std::string_view relativePath() const override { return path_; }
    std::string_view name() const override { return name_; }
    bool isDirectory() const override { return item_.kind == FileKind::directory; }
    std::optional<FileInfo> info() const override { return infoOf(item_); }

private:
    std::string_view path_, name_;
    const Item& item_;
};

// Items

MemoryFiles::ItemPtr MemoryFiles::folder() {
    auto item = std::make_shared<Item>();
    item->kind = FileKind::directory;
    item->modified = item->created = clock_.now();
    item->id = nextID_++;
    return item;
}

MemoryFiles::ItemPtr MemoryFiles::makeFile(std::string_view bytes) {
    auto item = std::make_shared<Item>();
    item->bytes = bytes;
    item->modified = item->created = clock_.now();
    item->id = nextID_++;
    return item;
}

MemoryFiles::Item* MemoryFiles::find(std::string_view path) const {
    Item* item = root_.get();
    for (auto name = nextComponent(path); !name.empty(); name = nextComponent(path)) {
        if (item->kind != FileKind::directory) return nullptr;
        const auto child = item->children.find(name);
        if (child == item->children.end()) return nullptr;
        item = child->second.get();
    }
    return item;
}

std::pair<MemoryFiles::Item*, std::string> MemoryFiles::placeOf(const FilePath& path) const {
    const auto [parent, name] = parentAndName(path.native());
    Item* folder = find(parent);
    if (!folder || folder->kind != FileKind::directory) fail(ENOENT, "open", path);
    return {folder, std::string(name)};
}

MemoryFiles::Item& MemoryFiles::makeFolders(std::string_view path) {
    Item* item = root_.get();
    std::string soFar;
    for (auto name = nextComponent(path); !name.empty(); name = nextComponent(path)) {
        soFar.append("/").append(name);
        auto& child = item->children[std::string(name)];
        if (!child) {
            child = folder();
            tell(soFar, *child, FileEventFlag::itemCreated);
        } else if (child->kind != FileKind::directory) {
            fail(ENOTDIR, "create folder", soFar);
        }
        item = child.get();
    }
    return *item;
}

FileInfo MemoryFiles::infoOf(const Item& item) {
    return {.kind = item.kind,
            .size = item.bytes.size(),
            .modified = item.modified,
            .created = item.created,
            .fileID = item.id,
            .device = 1};
}

void MemoryFiles::tell(const std::string& path, const Item& item, std::uint32_t flags) const {
    if (!told) return;
    told(path, item.id,
         flags | (item.kind == FileKind::directory ? FileEventFlag::itemIsDir : FileEventFlag::itemIsFile));
}

Fate MemoryFiles::ask(std::string_view operation, const FilePath& path, bool mutates) const {
    return fate ? fate(operation, path, mutates) : Fate{};
}

Fate MemoryFiles::begin(std::string_view operation, const FilePath& path, bool mutates) const {
    const Fate given = ask(operation, path, mutates);
    if (!given.happens) fail(given.error, operation, path);
    return given;
}

void MemoryFiles::end(const Fate& fate, std::string_view operation, const FilePath& path) {
    if (fate.error != 0) fail(fate.error, operation, path);
}

// The others on this machine

std::optional<std::string> MemoryFiles::textAt(const std::string& path) const {
    const Item* item = find(path);
    if (!item || item->kind != FileKind::regular) return {};
    return item->bytes;
}

bool MemoryFiles::isFolder(const std::string& path) const {
    const Item* item = find(path);
    return item && item->kind == FileKind::directory;
}

void MemoryFiles::put(const std::string& path, std::string_view bytes, bool inPlace) {
    const auto [parent, name] = parentAndName(path);
    auto& place = makeFolders(parent).children[std::string(name)];
    if (place && inPlace) {
        place->bytes = bytes;
        place->modified = clock_.now();
        return tell(path, *place, FileEventFlag::itemModified);
    }
    const bool isNew = !place;
    place = makeFile(bytes);
    tell(path, *place, isNew ? FileEventFlag::itemCreated : FileEventFlag::itemRenamed);
}

bool MemoryFiles::rename(const std::string& from, const std::string& to) {
    if (!find(from) || find(to) || (to + "/").starts_with(from + "/")) return false;
    const auto [parent, name] = parentAndName(from);
    auto moved = std::move(find(parent)->children.extract(std::string(name)).mapped());
    const auto [newParent, newName] = parentAndName(to);
    makeFolders(newParent).children[std::string(newName)] = moved;
    tell(from, *moved, FileEventFlag::itemRenamed);
    tell(to, *moved, FileEventFlag::itemRenamed);
    return true;
}

void MemoryFiles::erase(const std::string& path) {
    const auto [parent, name] = parentAndName(path);
    Item* folder = find(parent);
    if (!folder) return;
    auto gone = folder->children.extract(std::string(name));
    if (gone) tell(path, *gone.mapped(), FileEventFlag::itemRemoved);
}

std::vector<std::pair<std::string, const std::string*>> MemoryFiles::filesBelow(
    const std::string& folder) const {
    std::vector<std::pair<std::string, const std::string*>> found;
    const std::function<void(const Item&, const std::string&)> visit = [&](const Item& item,
                                                                           const std::string& prefix) {
        for (const auto& [name, child] : item.children) {
            if (child->kind == FileKind::directory) {
                visit(*child, prefix + name + "/");
            } else {
                found.emplace_back(prefix + name, &child->bytes);
            }
        }
    };
    if (const Item* top = find(folder)) visit(*top, {});
    return found;
}

// Looking

std::optional<FileInfo> MemoryFiles::info(const FilePath& path) const {
    begin("info", path, false);
    const Item* item = find(path.native());
    return item ? std::optional(infoOf(*item)) : std::nullopt;
}

std::optional<FileInfo> MemoryFiles::linkInfo(const FilePath& path) const {
    begin("linkInfo", path, false);
    const Item* item = find(path.native());
    return item ? std::optional(infoOf(*item)) : std::nullopt;
}

bool MemoryFiles::isWritable(const FilePath& path) const {
    return ask("isWritable", path, false).happens && find(path.native());
}

std::optional<FilePath> MemoryFiles::realPath(const FilePath& path) const {
    begin("realPath", path, false);
    return find(path.native()) ? std::optional(path) : std::nullopt;
}

std::vector<std::string> MemoryFiles::list(const FilePath& path) const {
    begin("list", path, false);
    const Item* item = find(path.native());
    if (!item) fail(ENOENT, "open", path);
    if (item->kind != FileKind::directory) fail(ENOTDIR, "open", path);
    std::vector<std::string> names;
    for (const auto& child : item->children) names.push_back(child.first);
    return names;
}

bool MemoryFiles::visitBelow(const Item& folder, std::string& path,
                             const std::function<WalkStep(const WalkEntry&)>& visit) const {
    // The visitor may change what it walks through.
    const std::vector<std::pair<std::string, ItemPtr>> children(folder.children.begin(),
                                                                folder.children.end());
    const std::size_t prefix = path.size();
    for (const auto& [name, child] : children) {
        path += name;
        const auto step = visit(Entry(path, name, *child));
        if (step == WalkStep::stop) return false;
        if (child->kind == FileKind::directory && step == WalkStep::descend) {
            path += '/';
            if (!visitBelow(*child, path, visit)) return false;
        }
        path.resize(prefix);
    }
    return true;
}

void MemoryFiles::walk(const FilePath& root, const std::function<WalkStep(const WalkEntry&)>& visit) const {
    if (!ask("walk", root, false).happens) return;
    const Item* item = find(root.native());
    std::string path;
    if (item && item->kind == FileKind::directory) visitBelow(*item, path, visit);
}

std::string MemoryFiles::read(const FilePath& path, std::optional<std::size_t> limit) const {
    begin("read", path, false);
    const Item* item = find(path.native());
    if (!item) fail(ENOENT, "open", path);
    if (item->kind != FileKind::regular) fail(EISDIR, "read", path);
    return item->bytes.substr(0, limit.value_or(std::string::npos));
}

// Writing

void MemoryFiles::createDirectories(const FilePath& path) {
    const auto given = begin("createDirectories", path, true);
    makeFolders(path.native());
    end(given, "createDirectories", path);
}

void MemoryFiles::writeNew(const FilePath& path, std::string_view bytes) {
    const auto given = begin("writeNew", path, true);
    const auto [folder, name] = placeOf(path);
    if (folder->children.contains(name)) fail(EEXIST, "write", path);
    auto& file = folder->children[name];
    file = makeFile(given.torn ? bytes.substr(0, bytes.size() / 2) : bytes);
    tell(path.native(), *file, FileEventFlag::itemCreated);
    end(given, "write", path);
}

void MemoryFiles::replace(const FilePath& target, const FilePath& temporary) {
    const auto given = begin("replace", target, true);
    const auto [source, sourceName] = placeOf(temporary);
    const auto [folder, name] = placeOf(target);
    if (!source->children.contains(sourceName)) fail(ENOENT, "rename", temporary);
    auto file = std::move(source->children.extract(sourceName).mapped());
    auto& place = folder->children[name];
    if (place) {
        for (const auto& [attributeName, value] : place->attributes)
            file->attributes.try_emplace(attributeName, value);
    }
    place = std::move(file);
    tell(temporary.native(), *place, FileEventFlag::itemRenamed);
    tell(target.native(), *place, FileEventFlag::itemRenamed);
    end(given, "rename", target);
}

bool MemoryFiles::exchange(const FilePath& target, const FilePath& temporary) {
    const auto given = begin("exchange", target, true);
    if (!hasExchange) return false;
    const auto [folder, name] = placeOf(target);
    const auto [source, sourceName] = placeOf(temporary);
    const auto place = folder->children.find(name), other = source->children.find(sourceName);
    if (place == folder->children.end() || other == source->children.end()) fail(ENOENT, "exchange", target);
    std::swap(place->second, other->second);
    tell(target.native(), *place->second, FileEventFlag::itemRenamed);
    tell(temporary.native(), *other->second, FileEventFlag::itemRenamed);
    end(given, "exchange", target);
    return true;
}

void MemoryFiles::carryMetadata(const FilePath& target, const FilePath& temporary) {
    const auto given = begin("carryMetadata", target, true);
    const Item* from = find(target.native());
    Item* to = find(temporary.native());
    if (from && to) {
        for (const auto& [name, value] : from->attributes) to->attributes.try_emplace(name, value);
    }
    end(given, "carryMetadata", target);
}

void MemoryFiles::move(const FilePath& from, const FilePath& to) {
    const auto given = begin("move", from, true);
    const auto [source, sourceName] = placeOf(from);
    const auto [folder, name] = placeOf(to);
    if (!source->children.contains(sourceName)) fail(ENOENT, "move", from);
    if (folder->children.contains(name)) fail(EEXIST, "move", to);
    auto item = std::move(source->children.extract(sourceName).mapped());
    folder->children[name] = item;
    tell(from.native(), *item, FileEventFlag::itemRenamed);
    tell(to.native(), *item, FileEventFlag::itemRenamed);
    end(given, "move", to);
}

void MemoryFiles::remove(const FilePath& path) {
    const auto given = begin("remove", path, true);
    const Item* item = find(path.native());
    if (item && item->kind == FileKind::directory) fail(EISDIR, "remove", path);
    if (item) erase(path.native());
    end(given, "remove", path);
}

void MemoryFiles::removeTree(const FilePath& path) {
    const auto given = begin("removeTree", path, true);
    erase(path.native());
    end(given, "remove", path);
}

void MemoryFiles::setCreationDate(const FilePath& path, TimePoint created) {
    const auto given = begin("setCreationDate", path, true);
    if (Item* item = find(path.native())) item->created = created;
    end(given, "set attribute", path);
}

std::optional<std::string> MemoryFiles::attribute(const FilePath& path, std::string_view name) const {
    begin("attribute", path, false);
    const Item* item = find(path.native());
    if (!item) return {};
    const auto value = item->attributes.find(name);
    return value == item->attributes.end() ? std::nullopt : std::optional(value->second);
}

void MemoryFiles::setAttribute(const FilePath& path, std::string_view name, std::string_view value) {
    const auto given = begin("setAttribute", path, true);
    Item* item = find(path.native());
    if (!item) fail(ENOENT, "set attribute", path);
    item->attributes.insert_or_assign(std::string(name), std::string(value));
    end(given, "set attribute", path);
}

}  // namespace vesk::simulation
