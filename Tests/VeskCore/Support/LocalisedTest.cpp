#include <gtest/gtest.h>
#include <libintl.h>

#include <clocale>
#include <cstdlib>

#include "Support/Scratch.h"
#include "VeskCore/Support/Localised.h"

namespace vesk::test {
namespace {

constexpr const char* catalogue = R"(msgid ""
msgstr ""
"Content-Type: text/plain; charset=UTF-8\n"
"Plural-Forms: nplurals=2; plural=(n != 1);\n"

msgid "No vault is open."
msgstr "Kein Tresor ist offen."

msgid "“{}” is in {}/"
msgstr "In {1}/ liegt „{0}“"

msgid "{} of {} selected"
msgstr "{} von {} und {} gewählt"

msgid "Apply {}"
msgstr "{ anwenden"

msgid "{} change"
msgid_plural "{} changes"
msgstr[0] "{} Änderung"
msgstr[1] "{} Änderungen"
)";

/// A catalogue of its own, in force for the test.
class Localised : public ::testing::Test {
protected:
    void SetUp() override {
        const auto words = folder.write("vesk.po", catalogue);
        std::filesystem::create_directories(folder / "xx/LC_MESSAGES");
        const auto made =
            "msgfmt -o '" + (folder / "xx/LC_MESSAGES/vesk.mo").string() + "' '" + words.string() + "'";
        ASSERT_EQ(std::system(made.c_str()), 0);
        former = std::setlocale(LC_ALL, nullptr);
        ASSERT_TRUE(std::setlocale(LC_ALL, "C.UTF-8"));
        ::bindtextdomain("vesk", folder.path().c_str());
        ::bind_textdomain_codeset("vesk", "UTF-8");
    }
    void TearDown() override {
        speak(nullptr);
        std::setlocale(LC_ALL, former.c_str());
    }
    static void speak(const char* language) {
        language ? ::setenv("LANGUAGE", language, 1) : ::unsetenv("LANGUAGE");
        ::textdomain("vesk");  // has what was looked up before looked up again
    }
    ScratchFolder folder;
    std::string former;
};

TEST_F(Localised, SpeaksTheLanguageOfTheCatalogue) {
    speak("xx");
    EXPECT_EQ(localised("No vault is open."), "Kein Tresor ist offen.");
    EXPECT_EQ(localised(std::string_view("No vault is open.")), "Kein Tresor ist offen.");
    EXPECT_EQ(localised("“{}” is in {}/", "Boat", std::string("Work")), "In Work/ liegt „Boat“");
    EXPECT_EQ(localisedCount("{} change", "{} changes", 1, 1), "1 Änderung");
    EXPECT_EQ(localisedCount("{} change", "{} changes", 0, 0), "0 Änderungen");
    EXPECT_EQ(localised(std::string_view()), "") << "not what the catalogue says of itself";
    EXPECT_EQ(localised("Not in the catalogue."), "Not in the catalogue.");
}

TEST_F(Localised, FallsBackToEnglishWhereATranslationIsBroken) {
    speak("xx");
    EXPECT_EQ(localised("{} of {} selected", 1, std::size_t{2}), "1 of 2 selected");
    EXPECT_EQ(localised("Apply {}", 3), "Apply 3");
}

TEST_F(Localised, IsEnglishWithoutACatalogue) {
    speak("yy");
    EXPECT_EQ(localised("No vault is open."), "No vault is open.");
    EXPECT_EQ(localisedCount("{} change", "{} changes", 1, 1), "1 change");
    EXPECT_EQ(localisedCount("{} change", "{} changes", 2, 2), "2 changes");
    EXPECT_EQ(localised("“{}” is in {}/", "{} {1}", "Work"), "“{} {1}” is in Work/")
        << "what is put in stays";
}

}  // namespace
}  // namespace vesk::test
