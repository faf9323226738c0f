#include <gtest/gtest.h>

#include "VeskCore/Editor/LinkAt.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::test {
namespace {

std::string link(std::u16string_view text, std::size_t offset) {
    const auto found = LinkAt::at(text, offset);
    if (!found) return "none";
    const std::string where =
        " " + std::to_string(found->range.location) + "+" + std::to_string(found->range.length);
    return match(
               found->value,
               [](const LinkAt::Wikilink& wiki) {
                   return (wiki.isEmbed ? "embed " : "wiki ") + utf8(wiki.target) +
                          (wiki.heading ? " #" + utf8(*wiki.heading) : "") +
                          (wiki.blockID ? " ^" + utf8(*wiki.blockID) : "");
               },
               [](const LinkAt::Link& other) {
                   return (other.isImage ? "image " : "link ") + utf8(other.target);
               },
               [](const LinkAt::Address& address) { return "url " + utf8(address.url); },
               [](const LinkAt::Tag& tag) { return "tag " + utf8(tag.name); }) +
           where;
}

TEST(LinkAt, FindsWhatIsFollowed) {
    const struct {
        const char16_t* text;
        std::size_t offset;
        const char* expected;
    } rows[] = {
        {u"a [[b]] c", 4, "wiki b 2+5"},
        {u"a [[b]] c", 7, "wiki b 2+5"},
        {u"a [[b]] c", 8, "none"},
        {u"![[b#c d|e]]", 10, "embed b #c d 0+12"},
        {u"[[#^id]]", 3, "wiki  ^id 0+8"},
        {u"[x](a b.md \"t\")", 2, "link a 0+15"},
        {u"[x](<a b.md>)", 2, "link a b.md 0+13"},
        {u"![x](a.png)", 3, "image a.png 0+11"},
        {u"(see https://x.y/z_(a)).", 8, "url https://x.y/z_(a) 5+17"},
        {u"<mailto:a@b.c>", 5, "url mailto:a@b.c 1+12"},
        {u"http:// x", 3, "none"},
        {u"a #tag/b c", 4, "tag tag/b 2+6"},
        {u"`[[b]]` #t", 3, "none"},
        {u"```\n[[b]]\n```", 7, "none"},
        {u"---\na: [[b]]\n---", 9, "none"},
        {u"x", 99, "none"},
    };
    for (const auto& row : rows) EXPECT_EQ(link(row.text, row.offset), row.expected) << utf8(row.text);
}

}  // namespace
}  // namespace vesk::test
