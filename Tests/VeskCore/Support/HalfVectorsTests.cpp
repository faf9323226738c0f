#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "VeskCore/Support/HalfVectors.h"
#include "VeskCore/Support/VectorMath.h"

namespace vesk::VectorMath {
namespace {

TEST(HalfVectorsTest, EveryHalfFloatReadsBackAsItself) {
    for (std::uint32_t half = 0; half < 0x10000; ++half) {
        const float value = floatOf(static_cast<std::uint16_t>(half));
        if (std::isnan(value)) {
            EXPECT_TRUE(std::isnan(floatOf(halfOf(value))));
        } else {
            ASSERT_EQ(halfOf(value), half) << value;
        }
    }
}

TEST(HalfVectorsTest, RoundsToTheNearestEven) {
    struct {
        float value;
        std::uint16_t half;
    } cases[] = {
        {0, 0},
        {-0.0F, 0x8000},
        {1, 0x3c00},
        {-2, 0xc000},
        {65504, 0x7bff},
        {65519, 0x7bff},
        {65520, 0x7c00},
        {1e30F, 0x7c00},
        {-std::numeric_limits<float>::infinity(), 0xfc00},
        {1 + 0x1p-11F, 0x3c00},             // halfway, down to the even one
        {1 + 0x3p-11F, 0x3c02},             // halfway, up to the even one
        {1 + 0x1p-11F + 0x1p-20F, 0x3c01},  // past halfway
        {0x1p-24F, 0x0001},                 // the smallest
        {0x1p-25F, 0x0000},                 // half of it
        {0x1.8p-25F, 0x0001},
        {0x1.ff8p-15F, 0x03ff},  // the largest subnormal
        {0x1.ffcp-15F, 0x0400},  // halfway to the smallest normal one
        {0x1p-14F, 0x0400},
    };
    for (const auto& c : cases) EXPECT_EQ(halfOf(c.value), c.half) << c.value;
}

TEST(HalfVectorsTest, EveryVariantStaysWithinTheErrorToldOfIt) {
    std::mt19937 random(20260704);
    std::normal_distribution<float> element;
    for (const auto& variant : halfVariants()) {
        SCOPED_TRACE(variant.name);
        for (std::size_t size : {1U, 2U, 7U, 8U, 31U, 33U, 64U, 100U, 511U, 512U, 513U, 768U, 3072U}) {
            constexpr std::size_t count = 5;
            std::vector<float> all, query;
            const auto append = [&](std::vector<float>& to) {
                std::vector<float> one(size);
                double squares = 0;
                for (auto& x : one) squares += std::pow(static_cast<double>(x = element(random)), 2);
                for (auto x : one)
                    to.push_back(static_cast<float>(static_cast<double>(x) / std::sqrt(squares)));
            };
            append(query);
            for (std::size_t i = 0; i < count; ++i) append(all);
            std::vector<std::uint16_t> halves(all.size());
            variant.narrow(all.data(), all.size(), halves.data());
            for (std::size_t i = 0; i < all.size(); ++i) ASSERT_EQ(halves[i], halfOf(all[i])) << all[i];
            float results[count];
            variant.dots(query.data(), size, halves.data(), count, results);
            for (std::size_t i = 0; i < count; ++i) {
                const auto exact = cosine(query, std::span(all).subspan(i * size, size));
                EXPECT_NEAR(static_cast<double>(results[i]), exact, halfPrecisionError) << size;
            }
        }
    }
}

}  // namespace
}  // namespace vesk::VectorMath
