#include "VeskLinux/KeptFile.h"

#include <sys/file.h>

namespace vesk::linuxfiles {

namespace {

Descriptor opened(const FilePath& lock) {
    Descriptor file(uninterrupted([&] { return ::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600); }));
    if (!file) fail("open", lock);
    return file;
}

bool hasNoLocks(int code) {
    return code == ENOTSUP || code == ENOSYS || code == ENOLCK || code == EINVAL;
}

}  // namespace

Descriptor waitForTurn(const FilePath& lock) {
    Descriptor file = opened(lock);
    if (uninterrupted([&] { return ::flock(file.get(), LOCK_EX); }) != 0 && !hasNoLocks(errno))
        fail("lock", lock);
    return file;
}

Descriptor takeIfFree(const FilePath& lock) {
    Descriptor file = opened(lock);
    if (uninterrupted([&] { return ::flock(file.get(), LOCK_EX | LOCK_NB); }) == 0 || hasNoLocks(errno))
        return file;
    if (errno != EWOULDBLOCK) fail("lock", lock);
    return Descriptor();
}

FilePath besides(const FilePath& file, std::string_view ending) {
    return FilePath(file.native() + std::string(ending));
}

FilePath putAside(FileSystem& files, const FilePath& damaged) {
    for (int number = 1;; ++number) {
        auto aside = besides(damaged, number == 1 ? ".damaged" : ".damaged-" + std::to_string(number));
        try {
            files.move(damaged, aside);
            return aside;
        } catch (const SystemError& error) {
            if (error.code != EEXIST || number >= 1000) throw;
        }
    }
}

}  // namespace vesk::linuxfiles
