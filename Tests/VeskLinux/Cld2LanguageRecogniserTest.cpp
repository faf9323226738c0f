#include <gtest/gtest.h>

#include "VeskLinux/Cld2LanguageRecogniser.h"

namespace vesk::test {

namespace {

TEST(Cld2LanguageRecogniserTest, TellsTheLanguageOfMostOfTheText) {
    struct {
        const char *name, *text, *expected;
    } cases[] = {
        {"English", "The boiler is looked at every October, and the number of the fitter is on its door.",
         "en"},
        {"German", "Der Heizkessel wird jeden Oktober überprüft, die Nummer des Monteurs steht an der Tür.",
         "de"},
        {"French", "La chaudière est vérifiée chaque année en octobre par le plombier du village.", "fr"},
        {"Spanish", "La caldera se revisa cada octubre y el número del técnico está en la puerta.", "es"},
        {"Hebrew, by its present code", "הדוד נבדק בכל שנה בחודש אוקטובר והמספר של הטכנאי רשום על הדלת",
         "he"},
        {"Japanese", "ボイラーは毎年十月に点検され、技術者の番号は扉に書いてあります。", "ja"},
        {"Greek", "Ο λέβητας ελέγχεται κάθε Οκτώβριο και ο αριθμός του τεχνικού είναι στην πόρτα.", "el"},
        {"a few words", "Wo ist mein Reisepass?", "de"},
        {"German around an English title",
         "Gestern habe ich „The Old Man and the Sea“ zu Ende gelesen und möchte gleich noch einmal anfangen.",
         "de"},
        {"ill-formed bytes between",
         "Der Heizkessel wird\xff jeden Oktober \xc3 überprüft, sagt der Monteur.\xe2\x82", "de"},
        {"nothing", "", ""},
        {"no words", "12 345 -- 6/7 😀", ""},
    };
    Cld2LanguageRecogniser recogniser;
    for (const auto& c : cases) {
        EXPECT_EQ(recogniser.dominantLanguage(c.text).value_or(""), c.expected) << c.name;
    }
    std::string nul("Der Heizkessel wird jeden Oktober überprüft, ");
    nul.push_back('\0');
    EXPECT_EQ(recogniser.dominantLanguage(nul + "die Nummer steht an der Tür.").value_or(""), "de");
}

}  // namespace

}  // namespace vesk::test
