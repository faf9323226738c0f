// Preloaded into the program under test: counts the calls that change files below certain folders and makes
// one of them, or all from one on, fail, fall short, or be the process' last.
//
// VESK_FAULT_UNDER  folders, separated by ":"
// VESK_FAULT_AT     which call, counted from 1; 0 for none
// VESK_FAULT_HOW    "before" or "after" (killed there), "short" (half of a write is done and the rest fails),
//                   or a number of errno; with a "+" behind it every call from that one on fails
// VESK_FAULT_WHILE  a file; nothing fails while it isn't there
// VESK_FAULT_LOG    a file that gets a line for each call: its number, its name and the path
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

namespace {

std::atomic<int> calls{0};

std::string_view variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

bool isUnder(std::string_view path) {
    std::string_view folders = variable("VESK_FAULT_UNDER");
    while (!folders.empty()) {
        const auto end = folders.find(':');
        const auto folder = folders.substr(0, end);
        if (path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/'))
            return true;
        folders = end == folders.npos ? "" : folders.substr(end + 1);
    }
    return false;
}

std::string pathOf(int file) {
    std::array<char, PATH_MAX> target{};
    const std::string link = "/proc/self/fd/" + std::to_string(file);
    const auto length = ::readlink(link.c_str(), target.data(), target.size());
    return length > 0 ? std::string(target.data(), static_cast<std::size_t>(length)) : std::string();
}

void log(int number, const char* call, std::string_view path) {
    const std::string name(variable("VESK_FAULT_LOG"));
    if (name.empty()) return;
    const auto file =
        static_cast<int>(::syscall(SYS_open, name.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600));
    if (file < 0) return;
    const std::string line = std::to_string(number) + " " + call + " " + std::string(path) + "\n";
    ::syscall(SYS_write, file, line.data(), line.size());
    ::syscall(SYS_close, file);
}

struct Verdict {
    bool killAfter = false, isShort = false;
    int error = 0;
};

Verdict judge(const char* call, std::string_view path) {
    Verdict verdict;
    if (!isUnder(path)) return verdict;
    const int number = ++calls;
    log(number, call, path);
    const int at = std::atoi(std::string(variable("VESK_FAULT_AT")).c_str());
    std::string_view how = variable("VESK_FAULT_HOW");
    const bool lasts = how.ends_with('+');
    if (lasts) how.remove_suffix(1);
    if (at == 0 || (lasts ? number < at : number != at)) return verdict;
    const std::string condition(variable("VESK_FAULT_WHILE"));
    if (!condition.empty() && ::access(condition.c_str(), F_OK) != 0) return verdict;
    if (how == "before") ::syscall(SYS_kill, ::getpid(), SIGKILL);
    verdict.killAfter = how == "after";
    verdict.isShort = how == "short";
    if (!how.empty() && how.front() >= '0' && how.front() <= '9')
        verdict.error = std::atoi(std::string(how).c_str());
    return verdict;
}

template <class Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

/// `real` unless the verdict says otherwise.
template <class Real>
auto judged(const char* call, std::string_view path, Real real) -> decltype(real()) {
    const int former = errno;
    const Verdict verdict = judge(call, path);
    errno = former;
    if (verdict.error) {
        errno = verdict.error;
        return -1;
    }
    const auto result = real();
    if (verdict.killAfter) ::syscall(SYS_kill, ::getpid(), SIGKILL);
    return result;
}

template <class Real>
ssize_t judgedWrite(int file, std::size_t count, Real real) {
    const int former = errno;
    const Verdict verdict = judge("write", pathOf(file));
    errno = former;
    static thread_local bool failsNext = false;
    if (verdict.error || std::exchange(failsNext, false)) {
        errno = verdict.error ? verdict.error : ENOSPC;
        return -1;
    }
    if (verdict.isShort && count > 1) {
        failsNext = true;
        return real(count / 2);
    }
    const auto result = real(count);
    if (verdict.killAfter) ::syscall(SYS_kill, ::getpid(), SIGKILL);
    return result;
}

bool changes(int flags) {
    return (flags & (O_CREAT | O_TRUNC)) != 0;
}

template <class Real>
int judgedOpen(const char* path, int flags, Real real) {
    return changes(flags) ? judged("open", path, real) : real();
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = va_arg(rest, mode_t);
    va_end(rest);
    static const auto real = next<int (*)(const char*, int, ...)>("open");
    return judgedOpen(path, flags, [&] { return real(path, flags, mode); });
}
int open64(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = va_arg(rest, mode_t);
    va_end(rest);
    static const auto real = next<int (*)(const char*, int, ...)>("open64");
    return judgedOpen(path, flags, [&] { return real(path, flags, mode); });
}
ssize_t write(int file, const void* bytes, std::size_t count) {
    static const auto real = next<ssize_t (*)(int, const void*, std::size_t)>("write");
    return judgedWrite(file, count, [&](std::size_t part) { return real(file, bytes, part); });
}
ssize_t pwrite64(int file, const void* bytes, std::size_t count, off64_t at) {
    static const auto real = next<ssize_t (*)(int, const void*, std::size_t, off64_t)>("pwrite64");
    return judgedWrite(file, count, [&](std::size_t part) { return real(file, bytes, part, at); });
}
int fsync(int file) {
    static const auto real = next<int (*)(int)>("fsync");
    return judged("fsync", pathOf(file), [&] { return real(file); });
}
int rename(const char* from, const char* to) noexcept {
    static const auto real = next<int (*)(const char*, const char*)>("rename");
    return judged("rename", to, [&] { return real(from, to); });
}
int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) noexcept {
    static const auto real = next<int (*)(int, const char*, int, const char*, unsigned)>("renameat2");
    return judged("renameat2", to, [&] { return real(fromFolder, from, toFolder, to, flags); });
}
int unlink(const char* path) noexcept {
    static const auto real = next<int (*)(const char*)>("unlink");
    return judged("unlink", path, [&] { return real(path); });
}
int rmdir(const char* path) noexcept {
    static const auto real = next<int (*)(const char*)>("rmdir");
    return judged("rmdir", path, [&] { return real(path); });
}
int mkdir(const char* path, mode_t mode) noexcept {
    static const auto real = next<int (*)(const char*, mode_t)>("mkdir");
    return judged("mkdir", path, [&] { return real(path, mode); });
}
int setxattr(const char* path, const char* name, const void* value, std::size_t size, int flags) noexcept {
    static const auto real =
        next<int (*)(const char*, const char*, const void*, std::size_t, int)>("setxattr");
    return judged("setxattr", path, [&] { return real(path, name, value, size, flags); });
}
int lsetxattr(const char* path, const char* name, const void* value, std::size_t size, int flags) noexcept {
    static const auto real =
        next<int (*)(const char*, const char*, const void*, std::size_t, int)>("lsetxattr");
    return judged("lsetxattr", path, [&] { return real(path, name, value, size, flags); });
}
int fsetxattr(int file, const char* name, const void* value, std::size_t size, int flags) noexcept {
    static const auto real = next<int (*)(int, const char*, const void*, std::size_t, int)>("fsetxattr");
    return judged("fsetxattr", pathOf(file), [&] { return real(file, name, value, size, flags); });
}
int fchmod(int file, mode_t mode) noexcept {
    static const auto real = next<int (*)(int, mode_t)>("fchmod");
    return judged("fchmod", pathOf(file), [&] { return real(file, mode); });
}

}  // extern "C"
