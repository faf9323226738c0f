#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/Error.h"

namespace vesk {
namespace {

class Refusal : public Error {
public:
    std::string description() const override { return "Nothing was written."; }
};

TEST(Error, CarriesItsWordsToWhoeverCatchesIt) {
    EXPECT_STREQ(Refusal().what(), "Nothing was written.");
    EXPECT_EQ(describe(std::make_exception_ptr(Refusal())), "Nothing was written.");
    EXPECT_EQ(describe(std::make_exception_ptr(std::runtime_error("plain"))), "plain");
    EXPECT_EQ(describe(std::make_exception_ptr(7)), "Unknown error");
    EXPECT_EQ(describe(nullptr), "Unknown error");
}

TEST(Error, NamesTheSystemCallItsSubjectAndTheReason) {
    EXPECT_EQ(SystemError(ENOSPC, "write", "a/b.md").description(), "write a/b.md: No space left on device");
    EXPECT_EQ(SystemError(EACCES, "fork", "").description(), "fork: Permission denied");
}

TEST(EnsureDeathTest, ABrokenAssumptionEndsTheProcessAndNamesItself) {
    const bool holds = false;
    VESK_ENSURE(!holds);
    EXPECT_DEATH(VESK_ENSURE(holds), "broken assumption: holds");
}

}  // namespace
}  // namespace vesk
