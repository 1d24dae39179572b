// UTF-8 <-> UTF-16 at the file and HTTP edges: both platforms must accept and
// reject exactly the same bytes.
#include <gtest/gtest.h>

#include "foundation/text.h"

namespace qb {
namespace {

struct DecodeCase {
    const char* name;
    std::string bytes;
    std::u16string lenient;  // what Utf8ToUtf16 gives
    bool valid;              // whether TryUtf8ToUtf16 accepts it
};

constexpr char16_t R = kReplacementChar;

TEST(Utf8Decode, AcceptsAndRepairsTheSameBytesInBothModes) {
    const DecodeCase cases[] = {
        {"empty", "", u"", true},
        {"ascii", "Hello", u"Hello", true},
        {"two bytes", "caf\xC3\xA9", u"caf\u00E9", true},
        {"three bytes", "\xE4\xB8\xAD\xE6\x96\x87", u"\u4E2D\u6587", true},
        {"four bytes become a pair", "\xF0\x9D\x84\x9E", u"\U0001D11E", true},
        {"embedded nul kept", std::string("a\0b", 3), std::u16string(u"a\0b", 3), true},
        {"largest scalar", "\xF4\x8F\xBF\xBF", u"\U0010FFFF", true},
        {"stray continuation", "a\x80z", {u'a', R, u'z'}, false},
        {"truncated at end", "ab\xE4\xB8", {u'a', u'b', R}, false},
        {"truncated before ascii", "\xE4\xB8z", {R, u'z'}, false},
        {"overlong two bytes", "\xC0\x80", {R, R}, false},
        {"overlong three bytes", "\xE0\x80\x80", {R, R, R}, false},
        {"encoded surrogate", "\xED\xA0\x80", {R, R, R}, false},
        {"above U+10FFFF", "\xF4\x90\x80\x80", {R, R, R, R}, false},
        {"lead F5", "\xF5\x80", {R, R}, false},
        {"byte FF", "x\xFF", {u'x', R}, false},
        {"latin-1 text", "caf\xE9!", {u'c', u'a', u'f', R, u'!'}, false},
    };
    for (const DecodeCase& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Utf8ToUtf16(c.bytes), c.lenient);
        std::u16string strict = u"leftover";
        EXPECT_EQ(TryUtf8ToUtf16(c.bytes, strict), c.valid);
        EXPECT_EQ(strict, c.valid ? c.lenient : u"");
    }
}

TEST(Utf16Encode, PairsBecomeOneSequenceAndLoneSurrogatesAreReplaced) {
    const struct {
        const char* name;
        std::u16string text;
        std::string utf8;
    } cases[] = {
        {"ascii", u"abc", "abc"},
        {"bmp", u"\u00E9\u4E2D\uFFFF", "\xC3\xA9\xE4\xB8\xAD\xEF\xBF\xBF"},
        {"pair", u"\U0001F600", "\xF0\x9F\x98\x80"},
        {"lone high",
         {u'a', 0xD83D, u'b'},
         "a\xEF\xBF\xBD"
         "b"},
        {"lone low", {0xDE00}, "\xEF\xBF\xBD"},
        {"high at end", {u'a', 0xD83D}, "a\xEF\xBF\xBD"},
        {"reversed pair", {0xDE00, 0xD83D}, "\xEF\xBF\xBD\xEF\xBF\xBD"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Utf16ToUtf8(c.text), c.utf8);
    }
}

TEST(Utf16Encode, EveryScalarValueRoundTrips) {
    std::u16string all;
    for (char32_t cp = 1; cp <= 0x10FFFF; cp += (cp < 0x10000 ? 1 : 97)) {
        if (cp >= 0xD800 && cp <= 0xDFFF) continue;
        if (cp < 0x10000) {
            all.push_back(static_cast<char16_t>(cp));
        } else {
            all.push_back(static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10)));
            all.push_back(static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
        }
    }
    std::u16string back;
    ASSERT_TRUE(TryUtf8ToUtf16(Utf16ToUtf8(all), back));
    EXPECT_EQ(back, all);
}

// Log lines carry numbers in the forms the log readers expect: HRESULTs in
// eight digits, pointers in as many as a pointer has on this build.
TEST(LogNumbers, HresultsAndPointersAreFixedWidthUpperCaseHex) {
    EXPECT_EQ(HexText(0), u"00000000");
    EXPECT_EQ(HexText(0x8007007E), u"8007007E");
    EXPECT_EQ(DecimalText(-2147467259LL), u"-2147467259");
    const std::u16string zero(sizeof(void*) * 2, u'0');
    EXPECT_EQ(PointerText(0), zero);
    std::u16string small = zero;
    small.replace(small.size() - 5, 5, u"2005C");
    EXPECT_EQ(PointerText(0x2005C), small);
    EXPECT_EQ(PointerText(-1), std::u16string(sizeof(void*) * 2, u'F'));
}

}  // namespace
}  // namespace qb
