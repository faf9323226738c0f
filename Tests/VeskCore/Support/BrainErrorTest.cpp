#include <gtest/gtest.h>

#include "VeskCore/Support/BrainError.h"

namespace vesk {
namespace {

TEST(BrainErrorTest, DescribesEachFailureInTheUsersWords) {
    std::string long300;
    for (int i = 0; i < 300; ++i) long300 += "é";
    struct Row {
        BrainError::Value failure;
        std::string expected;
    };
    const Row rows[] = {
        {BrainError::MissingAPIKey{"Gemini (Google)"},
         "No API key set for Gemini (Google). Add one in Settings → AI."},
        {BrainError::Http{401, "no"}, "Rejected (check your API key): no"},
        {BrainError::Http{403, "no"}, "Rejected (check your API key): no"},
        {BrainError::Http{429, "slow"}, "Rate limited: slow"},
        {BrainError::Http{500, "x"}, "Provider error 500: x"},
        {BrainError::Http{503, "first line\nsecond line"}, "Provider error 503: first line"},
        {BrainError::Http{599, "\r\n\r\nfirst\r\nsecond"}, "Provider error 599: first"},
        {BrainError::Http{600, "x"}, "HTTP 600: x"},
        {BrainError::Http{404, ""}, "HTTP 404: "},
        {BrainError::Http{404, "\n\n"}, "HTTP 404: \n\n"},
        {BrainError::Http{400, long300 + "é"}, "HTTP 400: " + long300},
        {BrainError::Decoding{"no choices"}, "Unexpected response from the provider: no choices"},
        {BrainError::Unavailable{"Turn it on first."}, "Turn it on first."},
        {BrainError::Cancelled{}, "Cancelled."},
    };
    for (const auto& row : rows) EXPECT_EQ(BrainError(row.failure).description(), row.expected);
}

}  // namespace
}  // namespace vesk
