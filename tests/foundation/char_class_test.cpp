// One answer for letters, digits, spaces and lower case on every platform,
// including the characters where msvcrt and glibc disagree.
#include <gtest/gtest.h>

#include "foundation/char_class.h"

namespace qb {
namespace {

TEST(CharClass, ClassifiesUnitsOfEveryScript) {
    const struct {
        char16_t unit;
        bool letter, digit, space;
    } cases[] = {
        {u'a', true, false, false},    {u'Z', true, false, false},
        {0x00E9, true, false, false},                                 // é
        {0x00DF, true, false, false},                                 // ß
        {0x0416, true, false, false},                                 // Cyrillic Zhe
        {0x03B1, true, false, false},                                 // Greek alpha
        {0x0627, true, false, false},                                 // Arabic alef
        {0x05D0, true, false, false},                                 // Hebrew alef
        {0x0E01, true, false, false},                                 // Thai ko kai
        {0x4E2D, true, false, false},                                 // CJK ideograph
        {0x3042, true, false, false},                                 // Hiragana a
        {0x30AB, true, false, false},                                 // Katakana ka
        {0xD55C, true, false, false},                                 // Hangul syllable
        {0x02B0, true, false, false},                                 // modifier letter (Lm)
        {u'7', false, true, false},    {0x0663, false, true, false},  // Arabic-Indic three
        {0x0966, false, true, false},                                 // Devanagari zero
        {0xFF15, false, true, false},                                 // fullwidth five
        {0x00B2, false, false, false},  // superscript two is No, not Nd
        {0x2167, false, false, false},  // Roman numeral eight is Nl
        {u' ', false, false, true},    {u'\t', false, false, true},
        {u'\v', false, false, true},                                  // the host's soft line break
        {u'\r', false, false, true},   {0x00A0, false, false, true},  // no-break space
        {0x3000, false, false, true},                                 // ideographic space
        {0x2009, false, false, true},                                 // thin space
        {0x200B, false, false, false},  // zero width space is no White_Space
        {0x001F, false, false, false},  // unit separator
        {u'_', false, false, false},   {u'%', false, false, false},
        {0x20AC, false, false, false},  // euro sign
        {0x3002, false, false, false},  // ideographic full stop
        {0xD83D, false, false, false},  // a surrogate alone is nothing
        {0xFFFF, false, false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "U+" << std::hex << static_cast<unsigned>(c.unit));
        EXPECT_EQ(IsLetter(c.unit), c.letter);
        EXPECT_EQ(IsDigit(c.unit), c.digit);
        EXPECT_EQ(IsLetterOrDigit(c.unit), c.letter || c.digit);
        EXPECT_EQ(IsSpace(c.unit), c.space);
    }
}

TEST(CharClass, LowersWithTheSimpleMapping) {
    const struct {
        char16_t upper, lower;
    } cases[] = {
        {u'A', u'a'},     {u'z', u'z'},     {u'1', u'1'}, {0x00C9, 0x00E9},  // É
        {0x00D7, 0x00D7},                    // multiplication sign sits among capitals and stays
        {0x0100, 0x0101},                    // alternating pairs of Latin Extended-A
        {0x0101, 0x0101}, {0x0130, u'i'},    // dotted capital I
        {0x0178, 0x00FF},                    // Ÿ lowers far away
        {0x03A3, 0x03C3},                    // Σ
        {0x0416, 0x0436}, {0x0401, 0x0451},  // Ж, Ё
        {0x10A0, 0x2D00},                    // Georgian
        {0x1E9E, 0x00DF},                    // capital sharp s
        {0x2160, 0x2170},                    // Roman numeral one
        {0xFF21, 0xFF41},                    // fullwidth A
        {0x00DF, 0x00DF}, {0x4E2D, 0x4E2D},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "U+" << std::hex << static_cast<unsigned>(c.upper));
        EXPECT_EQ(ToLower(c.upper), c.lower);
    }
}

TEST(CharClass, ComparesTextIgnoringCase) {
    EXPECT_TRUE(EqualsIgnoreCase(u"C:\\Users\\\u00C9MILE\\Log", u"c:\\users\\\u00E9mile\\log"));
    EXPECT_FALSE(EqualsIgnoreCase(u"log", u"logs"));
    EXPECT_TRUE(StartsWithIgnoreCase(u"QUILLBROOKPane.log", u"Quillbrook"));
    EXPECT_FALSE(StartsWithIgnoreCase(u"Quill", u"Quillbrook"));
    EXPECT_TRUE(ContainsIgnoreCase(u"a.LOG.1", u".log"));
    EXPECT_FALSE(ContainsIgnoreCase(u"a_log", u".log"));
    EXPECT_EQ(ToLower(std::u16string_view(u"\u0130STANBUL")), u"istanbul");
}

}  // namespace
}  // namespace qb
