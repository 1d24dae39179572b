// The stand-in service's pseudo-translation: every word changed, a third
// longer, CJK for CJK targets, locked placeholders untouched, the same
// answer every time.
#include <gtest/gtest.h>

#include "foundation/char_class.h"
#include "foundation/text.h"
#include "run/placeholders.h"
#include "sim/service/pseudo_translate.h"

namespace qb::sim {
namespace {

std::vector<std::u16string> Words(std::u16string_view text) {
    std::vector<std::u16string> words;
    std::u16string word;
    for (char16_t unit : text) {
        if (IsSpace(unit)) {
            if (!word.empty()) words.push_back(word);
            word.clear();
        } else {
            word += unit;
        }
    }
    if (!word.empty()) words.push_back(word);
    return words;
}

bool HasAsciiLetter(std::u16string_view text) {
    for (char16_t unit : text) {
        if ((unit >= u'a' && unit <= u'z') || (unit >= u'A' && unit <= u'Z')) return true;
    }
    return false;
}

TEST(PseudoTranslateTest, EveryWordChangesAndTheTextGrowsByAboutAThird) {
    const std::u16string text = u"The quarterly revenue grew in every region of Europe";
    for (const char16_t* lang : {u"de", u"fr", u"en-US", u"zh-CN", u"ja", u"ko"}) {
        const std::u16string out = PseudoTranslate(text, lang);
        const auto before = Words(text), after = Words(out);
        ASSERT_EQ(before.size(), after.size()) << Utf16ToUtf8(lang);
        for (std::size_t i = 0; i < before.size(); ++i)
            EXPECT_NE(before[i], after[i]) << Utf16ToUtf8(lang);
        const double growth = static_cast<double>(out.size()) / static_cast<double>(text.size());
        EXPECT_GT(growth, 1.2) << Utf16ToUtf8(lang);
        EXPECT_LT(growth, 1.5) << Utf16ToUtf8(lang);
        EXPECT_EQ(PseudoTranslate(text, lang), out) << "the same answer every time";
    }
}

TEST(PseudoTranslateTest, CjkTargetsGetCjkCharactersOthersLatinOnes) {
    const std::u16string text = u"Hello world";
    struct Case {
        const char16_t* lang;
        char16_t low;
        char16_t high;
    };
    const Case cases[] = {{u"zh", 0x4E00, 0x9FFF},
                          {u"zh-TW", 0x4E00, 0x9FFF},
                          {u"ja", 0x3040, 0x309F},
                          {u"ko-KR", 0xAC00, 0xD7A3}};
    for (const Case& c : cases) {
        const std::u16string out = PseudoTranslate(text, c.lang);
        EXPECT_FALSE(HasAsciiLetter(out)) << Utf16ToUtf8(out);
        for (char16_t unit : out) {
            if (unit != u' ') {
                EXPECT_TRUE(unit >= c.low && unit <= c.high) << Utf16ToUtf8(c.lang);
            }
        }
        EXPECT_TRUE(IsCjkTarget(c.lang));
    }
    EXPECT_FALSE(IsCjkTarget(u"zu"));  // Zulu merely starts with a z
    const std::u16string latin = PseudoTranslate(u"\u5e02\u573a\u589e\u957f", u"en");
    EXPECT_EQ(latin.size(), 6u);
    for (char16_t unit : latin)
        EXPECT_TRUE(IsLetter(unit) && unit < 0x2000) << Utf16ToUtf8(latin);
}

TEST(PseudoTranslateTest, PlaceholdersNumbersAndPunctuationStayAsTheyAre) {
    const std::u16string text = u"See [[QB_REF_12]], page 42; [[qb_f1_3]]!";
    const std::u16string out = PseudoTranslate(text, u"de");
    EXPECT_NE(out.find(u"[[QB_REF_12]], "), std::u16string::npos) << Utf16ToUtf8(out);
    EXPECT_NE(out.find(u" 42; [[qb_f1_3]]!"), std::u16string::npos) << Utf16ToUtf8(out);
    EXPECT_EQ(CountLockedTokens(out), 2u);
    EXPECT_EQ(CountLockedTokens(PseudoTranslate(text, u"zh-CN")), 2u);
    EXPECT_EQ(RemoveLockedTokens(text), u"See , page 42; !");
    EXPECT_EQ(LockedTokenLengthAt(u"[[QB_A_]]", 0), 0u);  // no digits: not a token
}

}  // namespace
}  // namespace qb::sim
