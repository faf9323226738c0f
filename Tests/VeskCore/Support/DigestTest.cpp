#include <gtest/gtest.h>

#include <set>

#include "VeskCore/Support/Digest.h"
#include "VeskCore/Support/Uuid.h"

namespace vesk {
namespace {

TEST(DigestTest, Sha256GivesThePublishedValues) {
    EXPECT_EQ(sha256Hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(sha256Hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(sha256Hex(std::string(1'000'000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
    EXPECT_EQ(hexadecimal(std::string_view("\x00\x0F\xF0\xFF", 4)), "000ff0ff");
}

TEST(DigestTest, PiecesGiveTheDigestOfTheWhole) {
    const std::string text(200, 'a');
    for (std::size_t cut : {0U, 1U, 63U, 64U, 65U, 199U, 200U}) {
        Sha256 digest;
        digest.update(std::string_view(text).substr(0, cut));
        digest.update(std::string_view(text).substr(cut));
        EXPECT_EQ(digest.finish(), sha256(text)) << cut;
    }
}

TEST(UuidTest, IdentifiersAreOfVersion4AndDiffer) {
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        auto id = randomUuid();
        ASSERT_EQ(id.size(), 36U);
        for (std::size_t k = 0; k < id.size(); ++k) {
            bool hyphen = k == 8 || k == 13 || k == 18 || k == 23;
            EXPECT_EQ(
                std::string_view(hyphen ? "-" : "0123456789ABCDEF").find(id[k]) != std::string_view::npos,
                true)
                << id;
        }
        EXPECT_EQ(id[14], '4') << id;
        EXPECT_NE(std::string_view("89AB").find(id[19]), std::string_view::npos) << id;
        seen.insert(std::move(id));
    }
    EXPECT_EQ(seen.size(), 1000U);
}

}  // namespace
}  // namespace vesk
