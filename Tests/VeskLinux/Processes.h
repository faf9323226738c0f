// Running a piece of a test in a process of its own: with other rights, other limits, or to be killed.
#pragma once

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>

#include "VeskCore/Support/Error.h"

namespace vesk::test {

/// Starts a child that runs `body` and ends; its exit code says whether an expectation failed or it threw.
inline pid_t startChild(const std::function<void()>& body) {
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child != 0) return child;
    int code = 0;
    try {
        body();
    } catch (...) {
        std::fprintf(stderr, "thrown: %s\n", describe(std::current_exception()).c_str());
        code = 1;
    }
    std::fflush(nullptr);
    ::_exit(code != 0 || ::testing::Test::HasFailure() ? 1 : 0);
}

inline void expectSuccess(pid_t child) {
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "wait status " << status;
}

inline void inChild(const std::function<void()>& body) {
    expectSuccess(startChild(body));
}

inline constexpr uid_t ordinaryUser = 65534;

/// Rights mean nothing to root: runs `body` as someone else, who is given `folder`.
inline void asOrdinaryUser(const std::filesystem::path& folder, const std::function<void()>& body) {
    inChild([&] {
        if (::geteuid() == 0) {
            ASSERT_EQ(::chown(folder.c_str(), ordinaryUser, ordinaryUser), 0);
            ASSERT_EQ(::setgroups(0, nullptr), 0);
            ASSERT_EQ(::setgid(ordinaryUser), 0);
            ASSERT_EQ(::setuid(ordinaryUser), 0);
        }
        body();
    });
}

/// The errno value of the SystemError that `body` throws; 0 if it throws nothing.
inline int errorOf(const std::function<void()>& body) {
    try {
        body();
    } catch (const SystemError& error) {
        return error.code;
    }
    return 0;
}

}  // namespace vesk::test
