#include <gtest/gtest.h>

#include <cmath>

#include "VeskCore/Markdown/HTMLStyle.h"

namespace vesk {
namespace {

// Components in 255ths, rounded, alpha in hundredths: readable in a row.
std::string shown(const std::optional<CSSColor>& color) {
    if (!color) return "none";
    auto part = [](double value, double whole) { return std::to_string(std::lround(value * whole)); };
    return part(color->red, 255) + " " + part(color->green, 255) + " " + part(color->blue, 255) + " " +
           part(color->alpha, 100);
}

TEST(CSSColor, ReadsTheNotationsOfCSS) {
    struct Row {
        std::string_view input, expected;
    };
    const Row rows[] = {
        {"red", "255 0 0 100"},
        {" RebeccaPurple ", "102 51 153 100"},
        {"aliceblue", "240 248 255 100"},
        {"yellowgreen", "154 205 50 100"},
        {"gray", "128 128 128 100"},
        {"transparent", "0 0 0 0"},
        {"#f80", "255 136 0 100"},
        {"#F808", "255 136 0 53"},
        {"#ff8800", "255 136 0 100"},
        {"#ff880080", "255 136 0 50"},
        {"rgb(255, 136, 0)", "255 136 0 100"},
        {"RGB(255 136 0 / 50%)", "255 136 0 50"},
        {"rgba(100%, 50%, 0%, .25)", "255 128 0 25"},
        {"rgb(300, -20, 1e2)", "255 0 100 100"},
        {"rgb(1 2 3/2)", "1 2 3 100"},
        {"hsl(120, 100%, 50%)", "0 255 0 100"},
        {"hsl(-120deg 100% 50%)", "0 0 255 100"},
        {"hsl(0.5turn 100% 25% / 0.5)", "0 128 128 50"},
        {"hsl(480, 50%, 75%)", "159 223 159 100"},
        {"hsla(0, 0%, 50%, 0)", "128 128 128 0"},
        {"hsl(none 0% none)", "0 0 0 100"},
        {"", "none"},
        {"reddish", "none"},
        {"red blue", "none"},
        {"#", "none"},
        {"#12345", "none"},
        {"#ggg", "none"},
        {"#-1-1-1", "none"},
        {"rgb(1, 2)", "none"},
        {"rgb(1 2 3", "none"},
        {"rgb(1, 2, 3, 4, 5)", "none"},
        {"rgb(nan, inf, 0x10)", "none"},
        {"rgb(1px 2 3)", "none"},
        {"hsl(1deg, 2, 3em)", "none"},
        {"lab(50% 0 0)", "none"},
        {"currentcolor", "none"},
    };
    for (const Row& row : rows) EXPECT_EQ(shown(CSSColor::parse(row.input)), row.expected) << row.input;
}

TEST(CSSColor, ContrastFollowsTheAccessibilityGuidelines) {
    EXPECT_NEAR(contrastRatio({0, 0, 0, 1}, {1, 1, 1, 1}), 21.0, 1e-9);
    EXPECT_NEAR(contrastRatio(*CSSColor::parse("#777"), {1, 1, 1, 1}), 4.478, 0.001);
    EXPECT_NEAR(contrastRatio(*CSSColor::parse("red"), *CSSColor::parse("red")), 1.0, 1e-9);
}

TEST(CSSColor, StaysWhereItReadsAndMovesWhereItDoesNot) {
    const CSSColor light = CSSColor::lightEditorBackground, dark = CSSColor::darkEditorBackground;
    const CSSColor red = *CSSColor::parse("red");
    EXPECT_EQ(red.legible(light), red);
    EXPECT_EQ(red.legible(dark), red);
    EXPECT_EQ(shown(CSSColor::parse("rgb(0 0 0 / 60%)")->legible(light)), "102 102 102 100");

    for (std::string_view background : {"white", "#1e1e1e", "#777", "#aaa", "yellow", "navy", "#595959"}) {
        const CSSColor ground = *CSSColor::parse(background);
        for (std::string_view name :
             {"white", "black", "yellow", "navy", "#777", "#7778", "lime", "transparent"}) {
            const CSSColor moved = CSSColor::parse(name)->legible(ground);
            EXPECT_GE(contrastRatio(moved, ground), 3.0) << name << " on " << background;
            EXPECT_EQ(moved.alpha, 1);
        }
    }

    // Moved only as far as needed, and in its own hue.
    const CSSColor yellow = CSSColor::parse("yellow")->legible(light);
    EXPECT_LT(contrastRatio(yellow, light), 3.01);
    EXPECT_NEAR(yellow.red, yellow.green, 1e-6);
    EXPECT_NEAR(yellow.blue, 0, 1e-6);
}

TEST(HTMLStyle, TextColourReadsOnItsOwnBackgroundBeforeTheEditors) {
    const CSSColor dark = CSSColor::darkEditorBackground;
    HTMLStyle style;
    EXPECT_FALSE(style.textColor(dark));
    style.color = CSSColor::parse("black");
    EXPECT_NE(style.textColor(dark), style.color);
    style.background = CSSColor::parse("yellow");
    EXPECT_EQ(style.textColor(dark), style.color);
    style.background = CSSColor::parse("rgb(255 255 0 / 2%)");  // the editor shows through
    EXPECT_NE(style.textColor(dark), style.color);
}

}  // namespace
}  // namespace vesk
