#include <gtest/gtest.h>
#include <stdio.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iostream>
#include <map>

#include "DesktopWorld.h"

namespace vesk::test {
namespace {

using Color = std::array<unsigned char, 3>;

double light(const Color& color) {
    const auto linear = [](double part) {
        part /= 255;
        return part <= 0.03928 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color[0]) + 0.7152 * linear(color[1]) + 0.0722 * linear(color[2]);
}

double contrast(const Color& one, const Color& other) {
    const auto [dark, bright] = std::minmax({light(one), light(other)});
    return (bright + 0.05) / (dark + 0.05);
}

/// What a person who asks the desktop for high contrast gets to see.
class ContrastTest : public ::testing::TestWithParam<std::string>, public DesktopWorld {
protected:
    void SetUp() override {
        variables = {"ADW_DEBUG_HIGH_CONTRAST=1", "ADW_DEBUG_COLOR_SCHEME=" + GetParam()};
    }
    void TearDown() override {
        if (HasFailure()) std::cerr << output();
    }

    /// Of what stands out most in the area, and of the ground it stands on.
    double contrastIn(const Area& area) const {
        std::string tool = "env -i";
        for (const auto& variable : environment()) tool += " '" + variable + "'";
        tool += " import -window root -depth 8 -crop " + std::to_string(area.width) + "x" +
                std::to_string(area.height) + "+" + std::to_string(area.x) + "+" + std::to_string(area.y) +
                " rgb:-";
        FILE* picture = popen(tool.c_str(), "r");
        std::map<Color, int> colors;
        for (Color color; fread(color.data(), 1, color.size(), picture) == color.size();) ++colors[color];
        pclose(picture);
        const auto ground = std::max_element(
            colors.begin(), colors.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
        double most = 1;
        for (const auto& color : colors) most = std::max(most, contrast(color.first, ground->first));
        return most;
    }
    double contrastOf(const std::string& name) const {
        const auto area = areaOf(name);
        return area ? contrastIn(*area) : 0;
    }
};

TEST_P(ContrastTest, KeepsWordsAndSymbolsClearOfTheirGround) {
    std::string colors;
    for (const char* name :
         {"red", "orange", "yellow", "green", "teal", "blue", "indigo", "purple", "pink", "brown", "gray"}) {
        std::filesystem::create_directories(vault / name);
        colors += std::string(colors.empty() ? "" : ",") + "\"" + name + "\":\"" + name + "\"";
    }
    vault.write(".vesk/style.json", "{\"folderColors\":{" + colors + "}}");
    vault.write("Plan.md", "One\n");
    start("Plan.md");
    // The pointer over a row would change its ground.
    clickAt(900, 700);
    for (const char* name :
         {"red", "orange", "yellow", "green", "teal", "blue", "indigo", "purple", "pink", "brown", "gray"}) {
        const auto title = areaOf(name);
        ASSERT_TRUE(title) << name;
        const Area symbol{title->x - 24, title->y, 20, title->height};
        EXPECT_TRUE(until([&] { return contrastIn(symbol) >= 4.5; })) << name << " " << contrastIn(symbol);
        EXPECT_GE(contrastIn(*title), 7) << name;
    }
    // Words on the accent colour.
    key("ctrl+q");
    ASSERT_EQ(waitForEnd(), 0);
    std::filesystem::remove_all(home / "config");
    startBare();
    EXPECT_TRUE(until([&] { return contrastOf("Choose a Folder…") >= 7; })) << contrastOf("Choose a Folder…");
}

INSTANTIATE_TEST_SUITE_P(Schemes, ContrastTest, ::testing::Values("prefer-light", "prefer-dark"),
                         [](const auto& scheme) { return scheme.param == "prefer-dark" ? "Dark" : "Light"; });

}  // namespace
}  // namespace vesk::test
