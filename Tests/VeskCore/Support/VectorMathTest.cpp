#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "VeskCore/Support/VectorMath.h"
#include "VeskCore/Support/VectorScan.h"

namespace vesk::VectorMath {
namespace {

std::vector<float> randomVector(std::mt19937& random, std::size_t size) {
    std::normal_distribution<float> element;
    std::vector<float> vector(size);
    for (auto& x : vector) x = element(random);
    return vector;
}

/// The vector's bytes at an odd address.
std::string unaligned(const std::vector<float>& vector) {
    std::string bytes(vector.size() * sizeof(float) + 1, '\0');
    if (!vector.empty()) std::memcpy(bytes.data() + 1, vector.data(), vector.size() * sizeof(float));
    return bytes;
}

TEST(VectorMathTest, CosineOfKnownVectors) {
    using V = std::vector<float>;
    EXPECT_EQ(cosine(V{3, 4}, V{3, 4}), 1);
    EXPECT_EQ(cosine(V{1, 0}, V{0, 2}), 0);
    EXPECT_EQ(cosine(V{1, 0}, V{-2, 0}), -1);
    EXPECT_DOUBLE_EQ(cosine(V{1, 2, 3}, V{4, 5, 6}), 32 / (std::sqrt(14.0) * std::sqrt(77.0)));
    EXPECT_EQ(cosine(V{}, V{}), 0);
    EXPECT_EQ(cosine(V{1}, V{1, 1}), 0);
    EXPECT_EQ(cosine(V{0, 0}, V{1, 1}), 0);
    EXPECT_EQ(cosine(V{1, 1}, V{0, 0}), 0);
}

TEST(VectorMathTest, EveryVariantAgreesWithCosine) {
    std::mt19937 random(20260703);
    for (const auto& variant : scanVariants()) {
        SCOPED_TRACE(variant.name);
        for (std::size_t size = 0; size <= 1030; ++size) {
            auto query = randomVector(random, size), vector = randomVector(random, size);
            auto bytes = unaligned(vector);
            auto sums =
                variant.sums(query.data(), reinterpret_cast<const unsigned char*>(bytes.data() + 1), size);
            double squares = 0, querySquares = 0;
            for (float x : vector) squares += static_cast<double>(x) * static_cast<double>(x);
            for (float x : query) querySquares += static_cast<double>(x) * static_cast<double>(x);
            ASSERT_NEAR(sums.squares, squares, squares * 1e-6) << size;
            if (size == 0) continue;
            ASSERT_NEAR(sums.dot / std::sqrt(squares * querySquares), cosine(query, vector), 1e-6) << size;
        }
    }
}

TEST(VectorMathTest, AScanAgreesWithCosine) {
    std::mt19937 random(1);
    for (std::size_t size : {1U, 3U, 17U, 384U, 512U, 1536U, 2048U, 2049U, 4096U, 10'000U}) {
        auto query = randomVector(random, size), vector = randomVector(random, size);
        auto bytes = unaligned(vector);
        CosineScan scan(query);
        EXPECT_NEAR(scan(bytes.data() + 1, size), cosine(query, vector), 1e-6) << size;
        EXPECT_NEAR(scan(query.data(), size), 1, 1e-6) << size;
        EXPECT_EQ(scan(vector.data(), size - 1), 0) << size;
        EXPECT_EQ(scan(std::vector<float>(size).data(), size), 0) << size;
    }
    EXPECT_EQ(CosineScan({})(nullptr, 0), 0);
    EXPECT_EQ(CosineScan(std::vector<float>(8))(std::vector<float>(8, 1).data(), 8), 0);
}

TEST(VectorMathTest, ElementsOfAnySizeAreCompared) {
    std::mt19937 random(2);
    auto base = randomVector(random, 100), other = randomVector(random, 100);
    for (float scale : {1e-38F, 1e-30F, 1e-15F, 1e15F, 1e30F, 1e37F}) {
        auto scaled = other;
        for (auto& x : scaled) x *= scale;
        EXPECT_NEAR(CosineScan(base)(scaled.data(), 100), cosine(base, other), 1e-5) << scale;
        EXPECT_NEAR(CosineScan(scaled)(base.data(), 100), cosine(base, other), 1e-5) << scale;
    }
    other[50] = std::numeric_limits<float>::quiet_NaN();
    EXPECT_TRUE(std::isnan(CosineScan(base)(other.data(), 100)));
}

}  // namespace
}  // namespace vesk::VectorMath
