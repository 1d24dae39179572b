// The JSON writers and the key scanners, with the texts the service, the
// panel and the local stores really send, and the broken ones they might.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "run/json.h"
#include "support/temp_dir.h"

namespace qb {
namespace {

std::string Show(std::u16string_view text) {
    return Utf16ToUtf8(text);
}

TEST(JsonEscape, EscapesOnlyWhatJsonNeeds) {
    const struct {
        std::u16string in, out;
    } cases[] = {
        {u"plain", u"plain"},
        {u"say \"hi\"", u"say \\\"hi\\\""},
        {u"C:\\dir", u"C:\\\\dir"},
        {u"a\nb\rc\td", u"a\\nb\\rc\\td"},
        {std::u16string(1, 0x1F), u"\\u001f"},
        {std::u16string(1, 0x00), u"\\u0000"},
        {u"\u000B\u000C\u0008", u"\\u000b\\u000c\\u0008"},
        {u"a/b", u"a/b"},
        {u"\u00E9\u4E2D\u2028\u007F", u"\u00E9\u4E2D\u2028\u007F"},
        {std::u16string{0xD83D, 0xDE00, 0xDC00}, std::u16string{0xD83D, 0xDE00, 0xDC00}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(JsonEscape(c.in), c.out) << Show(c.in);
        EXPECT_EQ(JsonQuote(c.in), u"\"" + c.out + u"\"");
    }
}

TEST(JsonWriter, KeepsKeysInTheOrderGiven) {
    JsonObjectWriter w;
    w.String(u"action", u"progress").Integer(u"done", 3).Integer(u"total", -1);
    w.Bool(u"ok", true).Bool(u"failed", false).Raw(u"items", JsonStringArray({u"a\"", u"\u4E2D"}));
    EXPECT_EQ(w.Finish(),
              u"{\"action\":\"progress\",\"done\":3,\"total\":-1,\"ok\":true,\"failed\":false,"
              u"\"items\":[\"a\\\"\",\"\u4E2D\"]}");
    EXPECT_EQ(JsonObjectWriter().Finish(), u"{}");
    EXPECT_EQ(JsonStringArray({}), u"[]");
}

// Whatever a writer produces, the scanners read back exactly.
TEST(JsonWriter, ScannersReadBackWhatWritersWrote) {
    const std::u16string values[] = {
        u"",
        u"quote \" backslash \\ slash /",
        u"line\nfeed\r\ttab",
        std::u16string{0x01, 0x1F, u'x'},
        u"\u4E2D\u6587 \U0001F600",
        u"\"key\":\"fake\"",
    };
    for (const auto& value : values) {
        const std::u16string json =
            JsonObjectWriter().String(u"first", value).String(u"text", value).Finish();
        EXPECT_EQ(ReadJsonString(json, u"text"), value) << Show(json);
        EXPECT_EQ(ReadStoreString(json, u"first"), value) << Show(json);
        EXPECT_EQ(
            ReadJsonStringArray(u"{\"list\":" + JsonStringArray({value, value}) + u"}", u"list"),
            (std::vector<std::u16string>{value, value}));
    }
}

TEST(JsonReadString, FindsTheKeyAndDecodesItsValue) {
    const struct {
        const char* name;
        std::u16string json, key, value;
    } cases[] = {
        {"simple", u"{\"a\":\"b\"}", u"a", u"b"},
        {"escaped quote", u"{\"a\":\"b\\\"c\"}", u"a", u"b\"c"},
        {"blanks and tabs before the colon", u"{\"a\" \t :  \"v\"}", u"a", u"v"},
        {"key first standing as a value", u"{\"x\":\"code\",\"code\":\"y\"}", u"code", u"y"},
        {"nested object", u"{\"outer\":{\"inner\":{\"code\":\"deep\"}}}", u"code", u"deep"},
        {"inside an array", u"[{\"k\":1},{\"name\":\"second\"}]", u"name", u"second"},
        {"missing key", u"{\"a\":\"b\"}", u"z", u""},
        {"empty text", u"", u"a", u""},
        {"truncated value", u"{\"a\":\"unfinished", u"a", u"unfinished"},
        {"key without a colon", u"{\"a\"}", u"a", u""},
        {"no string after the colon", u"{\"a\":12}", u"a", u""},
        {"number picks up the next string", u"{\"a\":12,\"b\":\"next\"}", u"a", u"b"},
        {"null picks up the next string", u"{\"a\":null,\"b\":\"c\"}", u"a", u"b"},
        {"escapes n r t", u"{\"a\":\"1\\n2\\r3\\t4\"}", u"a", u"1\n2\r3\t4"},
        {"slash and backslash", u"{\"a\":\"\\/\\\\\"}", u"a", u"/\\"},
        {"unknown escape gives the letter", u"{\"a\":\"\\b\\f\\q\"}", u"a", u"bfq"},
        {"unicode escape", u"{\"a\":\"\\u4e2D\\u00e9\"}", u"a", u"\u4E2D\u00E9"},
        {"surrogate pair escape kept as two units", u"{\"a\":\"\\ud83d\\ude00\"}", u"a",
         u"\U0001F600"},
        {"broken surrogate kept alone", u"{\"a\":\"\\ud83dx\"}", u"a",
         std::u16string{0xD83D, u'x'}},
        {"non-hex escape gives unit 0", u"{\"a\":\"\\uZZ12x\"}", u"a", std::u16string{0, u'x'}},
        {"partly hex escape gives unit 0 too", u"{\"a\":\"\\u12G4x\"}", u"a",
         std::u16string{0, u'x'}},
        {"\\u too near the end", u"{\"a\":\"\\u12", u"a", u"u12"},
        {"backslash as the last unit", u"{\"a\":\"x\\", u"a", u"x\\"},
        {"raw non-ASCII", u"{\"a\":\"\u4E2D\u6587\"}", u"a", u"\u4E2D\u6587"},
        {"key match is case-sensitive", u"{\"Code\":\"x\"}", u"code", u""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ReadJsonString(c.json, c.key), c.value) << c.name;
    }
}

TEST(JsonReadBool, TrueOnlyForTrueOrOne) {
    const struct {
        std::u16string json;
        bool value;
    } cases[] = {
        {u"{\"k\":true}", true},      {u"{\"k\" : true}", true},
        {u"{\"k\": : true}", true},   {u"{\"k\":1}", true},
        {u"{\"k\":10}", true},        {u"{\"k\":false}", false},
        {u"{\"k\":\"true\"}", false}, {u"{\"k\":0}", false},
        {u"{\"k\":TRUE}", false},     {u"{\"k\":\ttrue}", false},
        {u"{\"x\":1}", false},        {u"{\"k\":tru", false},
        {u"{\"k\"", false},           {u"", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ReadJsonBool(c.json, u"k"), c.value) << Show(c.json);
}

TEST(JsonReadNumber, ReadsDecimalNumbersAndZeroOtherwise) {
    const double inf = std::numeric_limits<double>::infinity();
    const struct {
        std::u16string json;
        double value;
    } cases[] = {
        {u"{\"n\":42}", 42.0},
        {u"{\"n\": -3.5}", -3.5},
        {u"{\"n\":+7}", 7.0},
        {u"{\"n\":\n 12}", 12.0},
        {u"{\"n\":1e3}", 1000.0},
        {u"{\"n\":2.5E-1}", 0.25},
        {u"{\"n\":.5}", 0.5},
        {u"{\"n\":5.}", 5.0},
        {u"{\"n\":12abc}", 12.0},
        {u"{\"n\":1e}", 1.0},
        {u"{\"n\":1e+}", 1.0},
        {u"{\"n\":007}", 7.0},
        {u"{\"n\":-0}", -0.0},
        {u"{\"n\":\"5\"}", 0.0},
        {u"{\"n\":null}", 0.0},
        {u"{\"n\":-}", 0.0},
        {u"{\"n\":.}", 0.0},
        {u"{\"x\":5}", 0.0},
        {u"{\"n\":1e400}", inf},
        {u"{\"n\":-1e400}", -inf},
        {u"{\"n\":" + std::u16string(400, u'9') + u"}", inf},
        {u"{\"n\":1e-400}", 0.0},
        {u"{\"n\":0." + std::u16string(400, u'0') + u"1}", 0.0},
        {u"{\"n\":123456789012345678901234567890}", 1.2345678901234568e29},
        {u"{\"n\":1e99999999999999999999}", inf},
        {u"{\"n\":\u0663}", 0.0},  // an Arabic-Indic digit is no number here
        {u"{\"n\":0." + std::u16string(400, u'0') + u"1e5}", 0.0},  // still far below a double
        {u"{\"n\":0.000" + std::u16string(300, u'0') + u"1e600}", 1e296},
        // Only the decimal numbers JSON has: hex, infinities and NaN read as 0.
        {u"{\"n\":0x10}", 0.0},
        {u"{\"n\":inf}", 0.0},
        {u"{\"n\":NaN}", 0.0},
    };
    for (const auto& c : cases) {
        const double v = ReadJsonNumber(c.json, u"n");
        EXPECT_FALSE(std::isnan(v)) << Show(c.json);
        if (std::isinf(c.value)) {
            EXPECT_EQ(v, c.value) << Show(c.json);
        } else {
            EXPECT_DOUBLE_EQ(v, c.value) << Show(c.json);
            EXPECT_EQ(std::signbit(v), std::signbit(c.value)) << Show(c.json);
        }
    }
}

TEST(JsonReadStringArray, CollectsTheStringsOfTheFirstArray) {
    using List = std::vector<std::u16string>;
    const struct {
        const char* name;
        std::u16string json;
        List items;
    } cases[] = {
        {"strings", u"{\"t\":[\"a\",\"b\"]}", {u"a", u"b"}},
        {"numbers skipped", u"{\"t\":[\"a\",1,\"b\"]}", {u"a", u"b"}},
        {"empty array", u"{\"t\":[],\"x\":\"later\"}", {}},
        {"only numbers", u"{\"t\":[1,2,3],\"x\":\"later\"}", {}},
        {"spaces and newlines", u"{\"t\" : [ \"a\" ,\n \"b\" ] }", {u"a", u"b"}},
        {"brackets and commas inside strings", u"{\"t\":[\"x],y\",\"[z\"]}", {u"x],y", u"[z"}},
        {"escapes", u"{\"t\":[\"q\\\"\",\"\\u4e2d\"]}", {u"q\"", u"\u4E2D"}},
        {"empty strings", u"{\"t\":[\"\",\"\"]}", {u"", u""}},
        {"missing key", u"{\"x\":[\"a\"]}", {}},
        {"no array at all", u"{\"t\":\"a\"}", {}},
        {"unterminated array", u"{\"t\":[\"a\",\"b", {u"a", u"b"}},
        {"nested arrays give their strings", u"{\"t\":[[\"a\"],[\"b\"]]}", {u"a"}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ReadJsonStringArray(c.json, u"t"), c.items) << c.name;
    // The closing bracket ends the array: strings after it are no elements.
    EXPECT_EQ(ReadJsonStringArray(u"{\"t\":[\"a\",1],\"x\":\"later\"}", u"t"), List{u"a"});
}

TEST(JsonReadObjectText, ReturnsTheMatchingBraces) {
    const struct {
        const char* name;
        std::u16string json, text;
    } cases[] = {
        {"flat", u"{\"o\":{\"a\":1},\"b\":2}", u"{\"a\":1}"},
        {"nested", u"{\"o\":{\"a\":{\"b\":{}}},\"c\":{}}", u"{\"a\":{\"b\":{}}}"},
        {"braces inside strings", u"{\"o\":{\"s\":\"}{\\\"}\"},\"x\":1}", u"{\"s\":\"}{\\\"}\"}"},
        {"array of objects", u"{\"o\":[{\"a\":1}]}", u"{\"a\":1}"},
        {"unbalanced", u"{\"o\":{\"a\":{\"b\":1}", u""},
        {"missing key", u"{\"x\":{}}", u""},
        {"no object after key", u"{\"o\":1}", u""},
        {"string ends the text", u"{\"o\":{\"s\":\"abc", u""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ReadJsonObjectText(c.json, u"o"), c.text) << c.name;
}

TEST(JsonStoreSet, ReadsTheStoreFilesLeniently) {
    // The store scanner takes the next quote after the key, colon or not,
    // so a key's name standing first as a value leads it astray.
    EXPECT_EQ(ReadStoreString(u"{\"x\":\"code\",\"code\":\"y\"}", u"code"), u"code");
    EXPECT_EQ(ReadStoreString(u"{\"name\" \"v\"}", u"name"), u"v");
    EXPECT_EQ(ReadStoreString(u"{\"name\": \"a\\\"b\"}", u"name"), u"a\"b");
    EXPECT_EQ(ReadStoreString(u"{\"name\": 5}", u"name"), u"");
    EXPECT_EQ(ReadStoreString(u"{\"other\": \"v\"}", u"name"), u"");

    const struct {
        std::u16string json;
        bool value;
    } bools[] = {
        {u"{\"enabled\":false}", false},    {u"{\"enabled\" :\t false}", false},
        {u"{\"enabled\":true}", true},      {u"{\"enabled\":0}", true},
        {u"{\"enabled\":\"false\"}", true}, {u"{\"other\":false}", true},
        {u"{\"enabled\"}", true},           {u"", true},
    };
    for (const auto& c : bools)
        EXPECT_EQ(ReadStoreBool(c.json, u"enabled"), c.value) << Show(c.json);
}

TEST(JsonParseHexColor, AcceptsExactlySevenCharacters) {
    const struct {
        std::u16string text;
        bool ok;
        std::int32_t color;
    } cases[] = {
        {u"#ff0080", true, 0x8000FF}, {u"#FF0080", true, 0x8000FF}, {u"#000000", true, 0},
        {u"#FFFFFF", true, 0xFFFFFF}, {u"#12345", false, 0},        {u"#1234567", false, 0},
        {u"ff0080", false, 0},        {u"#gg0000", false, 0},       {u"", false, 0},
        {u"#ff008\u0661", false, 0},
    };
    for (const auto& c : cases) {
        std::int32_t color = -7;
        EXPECT_EQ(ParseHexColor(c.text, color), c.ok) << Show(c.text);
        EXPECT_EQ(color, c.ok ? c.color : -7) << Show(c.text);
    }
}

TEST(JsonReadTextFile, ReadsUtf8AndNothingElse) {
    test::TempDir dir;
    const struct {
        const char* name;
        std::string bytes;
        std::u16string text;
    } cases[] = {
        {"plain", "{\"a\":\"b\"}", u"{\"a\":\"b\"}"},
        {"byte order mark removed", "\xEF\xBB\xBF{\"a\":1}", u"{\"a\":1}"},
        {"only a byte order mark", "\xEF\xBB\xBF", u""},
        {"non-ASCII", "{\"t\":\"\xE4\xB8\xAD\"}", u"{\"t\":\"\u4E2D\"}"},
        {"empty", "", u""},
        {"latin-1 is not UTF-8", "{\"t\":\"caf\xE9\"}", u""},
        {"UTF-16 with its mark is not UTF-8", std::string("\xFF\xFE{\0}\0", 6), u""},
        {"truncated sequence", "ok\xE4\xB8", u""},
    };
    for (const auto& c : cases) {
        const std::u16string path = dir.Join(u"store.json");
        test::WriteFileBytes(path, c.bytes);
        EXPECT_EQ(ReadTextFile(path), c.text) << c.name;
    }
    EXPECT_EQ(ReadTextFile(dir.Join(u"missing.json")), u"");
    // A file above the limit is no store file: nothing is read.
    test::MakeFileOfSize(dir.Join(u"huge.json"), kMaxTextFileBytes + 1);
    EXPECT_EQ(ReadTextFile(dir.Join(u"huge.json")), u"");
    EXPECT_EQ(ReadTextFile(dir.Path()), u"");
}

}  // namespace
}  // namespace qb
