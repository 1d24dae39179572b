// The strict JSON reader accepts exactly RFC 8259 JSON in valid UTF-8, says
// where it stopped, and the writer gives stable text that reads back equal.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "sim/host/json_value.h"

namespace qb::sim {
namespace {

// One line for any value, written here rather than by the writer under test.
std::string OneLine(const JsonValue& v) {
    switch (v.Type()) {
        case JsonType::Null:
            return "null";
        case JsonType::Bool:
            return v.BoolValue() ? "true" : "false";
        case JsonType::Number:
            return v.NumberText();
        case JsonType::String: {
            std::string s = "\"";
            for (char16_t c : v.StringValue())
                s += c < 0x80 ? std::string(1, static_cast<char>(c)) : "?";
            return s + "\"";
        }
        case JsonType::Array: {
            std::string s = "[";
            for (std::size_t i = 0; i < v.Items().size(); ++i)
                s += (i ? ", " : "") + OneLine(v.Items()[i]);
            return s + "]";
        }
        case JsonType::Object: {
            std::string s = "{";
            for (std::size_t i = 0; i < v.Members().size(); ++i) {
                s += (i ? ", " : "") + OneLine(JsonValue::String(v.Members()[i].key)) + ": " +
                     OneLine(v.Members()[i].value);
            }
            return s + "}";
        }
    }
    return "?";
}

// The writer's text without its final newline.
std::string Compact(const JsonValue& v) {
    std::string text = WriteJson(v);
    EXPECT_FALSE(text.empty());
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

JsonValue MustParse(std::string_view text) {
    JsonError error;
    const std::optional<JsonValue> v = ParseJson(text, &error);
    EXPECT_TRUE(v.has_value()) << text << " -> " << error.ToString();
    return v ? *v : JsonValue();
}

TEST(JsonParse, AcceptsEveryKindOfValueAndKeepsKeyOrder) {
    struct Case {
        std::string_view input;
        std::string_view written;
    };
    const Case cases[] = {
        {"null", "null"},
        {"true", "true"},
        {"false", "false"},
        {" \t\r\n 42 \n", "42"},
        {"\"\"", "\"\""},
        {"[]", "[]"},
        {"{}", "{}"},
        {"[1,[2,[3,[]]],{}]", "[1, [2, [3, []]], {}]"},
        {R"({"zebra":1,"apple":2,"mango":{"b":true,"a":null}})",
         R"({"zebra": 1, "apple": 2, "mango": {"b": true, "a": null}})"},
        {R"({"":"empty key"})", R"({"": "empty key"})"},
        // A byte order mark is skipped.
        {"\xEF\xBB\xBF[true]", "[true]"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(OneLine(MustParse(c.input)), c.written) << c.input;
    }
}

TEST(JsonParse, DecodesEveryEscapeAndUtf8IntoUtf16) {
    struct Case {
        std::string_view input;
        std::u16string expected;
    };
    const Case cases[] = {
        {R"("plain")", u"plain"},
        {R"("\"\\\/\b\f\n\r\t")", u"\"\\/\b\f\n\r\t"},
        {R"("\u0041\u00e9\u00E9\u4e2d")", u"A\u00e9\u00e9\u4e2d"},
        {R"("\u0000 and \u000b")", std::u16string(u"\0 and \v", 7)},
        {R"("\ud83d\ude00")", u"\U0001F600"},
        {R"("\uD834\uDD1E clef")", u"\U0001D11E clef"},
        {"\"caf\xC3\xA9 \xE4\xB8\xAD \xF0\x9F\x98\x80\"", u"caf\u00e9 \u4e2d \U0001F600"},
        {"\"\xEF\xBF\xBF\"", u"\uFFFF"},
    };
    for (const Case& c : cases) {
        const JsonValue v = MustParse(c.input);
        ASSERT_TRUE(v.IsString()) << c.input;
        EXPECT_EQ(v.StringValue(), c.expected) << c.input;
    }
}

TEST(JsonParse, ReadsNumbersAsDoublesWithExactIntegers) {
    struct Case {
        std::string_view input;
        double value;
        bool integer;
        std::int64_t exact;
        std::string_view text;
    };
    const Case cases[] = {
        {"0", 0, true, 0, "0"},
        {"-0", 0, true, 0, "0"},
        {"17", 17, true, 17, "17"},
        {"-250", -250, true, -250, "-250"},
        {"1.5", 1.5, false, 0, "1.5"},
        {"-0.125", -0.125, false, 0, "-0.125"},
        {"2.50", 2.5, false, 0, "2.5"},
        {"1e3", 1000, true, 1000, "1000"},
        {"1.5E+1", 15, true, 15, "15"},
        {"2500e-2", 25, true, 25, "25"},
        {"10.0", 10, true, 10, "10"},
        // Beyond 2^53 the integer comes from the digits, not the double.
        {"9007199254740993", 9007199254740992.0, true, 9007199254740993LL, "9007199254740993"},
        {"9223372036854775807", 9223372036854775807.0, true, 9223372036854775807LL,
         "9223372036854775807"},
        {"-9223372036854775808", -9223372036854775807.0 - 1, true,
         std::numeric_limits<std::int64_t>::min(), "-9223372036854775808"},
        {"9223372036854775808", 9223372036854775808.0, false, 0, "9223372036854775808"},
        // Rounds to a whole double, yet the digits aren't whole.
        {"0.99999999999999999999", 1.0, false, 0, "1"},
        {"1e-400", 0, false, 0, "0"},
        {"-1e-400", 0, false, 0, "-0"},
        {"123.456e-1000", 0, false, 0, "0"},
    };
    for (const Case& c : cases) {
        const JsonValue v = MustParse(c.input);
        ASSERT_TRUE(v.IsNumber()) << c.input;
        EXPECT_EQ(v.NumberValue(), c.value) << c.input;
        EXPECT_EQ(v.IsInteger(), c.integer) << c.input;
        if (c.integer) {
            EXPECT_EQ(v.IntegerValue(), c.exact) << c.input;
        }
        EXPECT_EQ(v.NumberText(), c.text) << c.input;
    }
}

TEST(JsonParse, RejectsMalformedInputNamingLineAndColumn) {
    struct Case {
        std::string_view input;
        std::size_t line, column;
        std::string_view message;
    };
    const Case cases[] = {
        {"", 1, 1, "unexpected end of input, expected a value"},
        {"   ", 1, 4, "unexpected end of input, expected a value"},
        {"hello", 1, 1, "unexpected 'h', expected a value"},
        {"tru", 1, 1, "unexpected 't', expected a value"},
        {"nul", 1, 1, "unexpected 'n', expected a value"},
        {"[1 2]", 1, 4, "unexpected '2' in an array, expected ',' or ']'"},
        {"[1,]", 1, 4, "unexpected ']', expected a value"},
        {R"({"a":1,})", 1, 8, "unexpected '}' in an object, expected a key"},
        {R"({a:1})", 1, 2, "unexpected 'a' in an object, expected a key"},
        {R"({"a" 1})", 1, 6, "unexpected '1' after a key, expected ':'"},
        {R"({"a":1,"b":2,"a":3})", 1, 14, "duplicate key \"a\""},
        {"[1]x", 1, 4, "unexpected 'x' after the end of the document"},
        {"[1] [2]", 1, 5, "unexpected '[' after the end of the document"},
        {"{\"a\": [1, 2", 1, 12, "unexpected end of input in an array, expected ',' or ']'"},
        {"\"abc", 1, 5, "unexpected end of input in a string"},
        {"\"tab\there\"", 1, 5, "control character U+0009 in a string; write it as an escape"},
        {R"("\x")", 1, 3, "unknown escape \\x in a string"},
        {R"("\u12G4")", 1, 6, "unexpected 'G' in a \\u escape, expected a hex digit"},
        {R"("\ud800")", 1, 2,
         "lone surrogate \\uD800 in a string; a surrogate pair needs both halves"},
        {R"("\udc00\ud800")", 1, 2,
         "lone surrogate \\uDC00 in a string; a surrogate pair needs both halves"},
        {R"("ok \ud83d\u0041")", 1, 5,
         "lone surrogate \\uD83D in a string; a surrogate pair needs both halves"},
        {R"("\ud83d and")", 1, 2,
         "lone surrogate \\uD83D in a string; a surrogate pair needs both halves"},
        {"01", 1, 2, "a number can't have leading zeros"},
        {"-", 1, 2, "unexpected end of input in a number, expected a digit"},
        {"-a", 1, 2, "unexpected 'a' in a number, expected a digit"},
        {"1.", 1, 3, "unexpected end of input in a number, expected a digit"},
        {"1.e5", 1, 3, "unexpected 'e' in a number, expected a digit"},
        {"1e+", 1, 4, "unexpected end of input in a number, expected a digit"},
        {".5", 1, 1, "unexpected '.', expected a value"},
        {"+1", 1, 1, "unexpected '+', expected a value"},
        {"1e400", 1, 1, "number out of range"},
        {"-1e400", 1, 1, "number out of range"},
        // Invalid UTF-8 anywhere, even where a string would hold it.
        {"\"a\xFF\"", 1, 3, "invalid UTF-8"},
        {"[\"ok\",\n \"\xC0\xAF\"]", 2, 3, "invalid UTF-8"},
        {"\"\xED\xA0\x80\"", 1, 2, "invalid UTF-8"},
        {"\"\xF4\x90\x80\x80\"", 1, 2, "invalid UTF-8"},
        {"\"\xE4\xB8\"", 1, 2, "invalid UTF-8"},
        // Lines count line feeds; columns count characters, not bytes.
        {"{\n  \"a\": [1,\n  2,,]\n}", 3, 5, "unexpected ',', expected a value"},
        {"\"\xC3\xA9\xE4\xB8\xAD\" x", 1, 6, "unexpected 'x' after the end of the document"},
        {"\xE4\xB8\xAD", 1, 1, "unexpected character U+4E2D, expected a value"},
        {"[\x01]", 1, 2, "unexpected character U+0001, expected a value"},
    };
    for (const Case& c : cases) {
        JsonError error;
        EXPECT_FALSE(ParseJson(c.input, &error).has_value()) << c.input;
        EXPECT_EQ(error.message, c.message) << c.input;
        EXPECT_EQ(error.line, c.line) << c.input;
        EXPECT_EQ(error.column, c.column) << c.input;
    }
}

TEST(JsonParse, StopsAtTheDepthLimit) {
    const auto nested = [](std::size_t depth, char open, char close) {
        return std::string(depth, open) + std::string(depth, close);
    };
    EXPECT_TRUE(ParseJson(nested(kJsonMaxDepth, '[', ']')).has_value());
    JsonError error;
    EXPECT_FALSE(ParseJson(nested(kJsonMaxDepth + 1, '[', ']'), &error).has_value());
    EXPECT_EQ(error.ToString(), "1:201: nesting deeper than 200 levels");

    std::string objects;
    for (int i = 0; i < 6; ++i)
        objects += "{\"k\":";
    objects += "1" + std::string(6, '}');
    EXPECT_TRUE(ParseJson(objects, nullptr, 6).has_value());
    EXPECT_FALSE(ParseJson(objects, &error, 5).has_value());
    EXPECT_EQ(error.ToString(), "1:26: nesting deeper than 5 levels");

    // Far beyond the limit the reader stops early instead of running out of stack.
    EXPECT_FALSE(ParseJson(nested(1000000, '[', ']'), &error).has_value());
    EXPECT_EQ(error.column, kJsonMaxDepth + 1);
}

TEST(JsonParse, RecordsWhereValuesAndKeysStart) {
    const JsonValue v = MustParse("{\n  \"first\": 1,\n  \"second\": [true,\n    \"x\"]\n}");
    EXPECT_EQ(v.Line(), 1u);
    EXPECT_EQ(v.Column(), 1u);
    ASSERT_EQ(v.Members().size(), 2u);
    EXPECT_EQ(v.Members()[1].line, 3u);
    EXPECT_EQ(v.Members()[1].column, 3u);
    const JsonValue& second = v.Members()[1].value;
    EXPECT_EQ(second.Line(), 3u);
    EXPECT_EQ(second.Column(), 13u);
    ASSERT_EQ(second.Items().size(), 2u);
    EXPECT_EQ(second.Items()[1].Line(), 4u);
    EXPECT_EQ(second.Items()[1].Column(), 5u);
}

TEST(JsonValue, BuildsObjectsInInsertionOrderAndReplacesInPlace) {
    JsonValue o = JsonValue::Object();
    o.Set(u"b", JsonValue::Integer(1));
    o.Set(u"a", JsonValue::Bool(false));
    o.Set(u"b", JsonValue::String(u"again"));
    ASSERT_EQ(o.Members().size(), 2u);
    EXPECT_EQ(o.Members()[0].key, u"b");
    ASSERT_NE(o.Find(u"b"), nullptr);
    EXPECT_EQ(o.Find(u"b")->StringValue(), u"again");
    EXPECT_EQ(o.Find(u"missing"), nullptr);
    EXPECT_EQ(Compact(o), R"({"b": "again", "a": false})");

    // Equality ignores positions but not order, types or values.
    EXPECT_EQ(MustParse(" {\"b\":\"again\",\n\"a\":false}"), o);
    EXPECT_NE(MustParse(R"({"a":false,"b":"again"})"), o);
    EXPECT_NE(MustParse("1"), MustParse("true"));
    EXPECT_EQ(MustParse("1.0"), MustParse("1"));
    EXPECT_NE(MustParse("[1,2]"), MustParse("[1,2,3]"));
}

TEST(JsonWrite, IndentsByTwoAndPutsShortScalarContainersOnOneLine) {
    const JsonValue v = MustParse(
        R"({"name":"deck","size":[960,540],"slides":[{"shapes":[]},{"tags":{"A":"1"}}],)"
        R"("long":["aaaaaaaaaaaaaaaaaaaa","bbbbbbbbbbbbbbbbbbbb","cccccccccccccccccccc"]})");
    JsonWriteOptions narrow;
    narrow.inlineWidth = 40;
    EXPECT_EQ(WriteJson(v, narrow),
              "{\n"
              "  \"name\": \"deck\",\n"
              "  \"size\": [960, 540],\n"
              "  \"slides\": [\n"
              "    {\"shapes\": []},\n"
              "    {\n"
              "      \"tags\": {\"A\": \"1\"}\n"
              "    }\n"
              "  ],\n"
              "  \"long\": [\n"
              "    \"aaaaaaaaaaaaaaaaaaaa\",\n"
              "    \"bbbbbbbbbbbbbbbbbbbb\",\n"
              "    \"cccccccccccccccccccc\"\n"
              "  ]\n"
              "}\n");
    JsonWriteOptions tall;
    tall.inlineWidth = 0;
    EXPECT_EQ(WriteJson(MustParse(R"({"a":[1,{}],"b":{}})"), tall),
              "{\n  \"a\": [\n    1,\n    {}\n  ],\n  \"b\": {}\n}\n");
    EXPECT_EQ(WriteJson(JsonValue::Integer(5)), "5\n");
}

TEST(JsonWrite, EscapesWhatJsonNeedsAndKeepsOtherTextAsUtf8) {
    struct Case {
        std::u16string text;
        std::string_view written;
        bool readsBack;
    };
    const Case cases[] = {
        {u"plain", R"("plain")", true},
        {u"quote \" back \\ slash /", R"("quote \" back \\ slash /")", true},
        {u"\b\f\n\r\t", R"("\b\f\n\r\t")", true},
        {std::u16string(u"\0\x01\v\x1f\x7f", 5), "\"\\u0000\\u0001\\u000b\\u001f\x7f\"", true},
        {u"caf\u00e9 \u4e2d \U0001F600", "\"caf\xC3\xA9 \xE4\xB8\xAD \xF0\x9F\x98\x80\"", true},
        // UTF-8 can't carry a lone surrogate: it stays an escape, and the
        // strict reader refuses it rather than read something else.
        {u"a\xD800z", R"("a\ud800z")", false},
        {u"\xDC00\xD83D", R"("\udc00\ud83d")", false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Compact(JsonValue::String(c.text)), c.written);
        const std::optional<JsonValue> back = ParseJson(c.written);
        EXPECT_EQ(back.has_value(), c.readsBack) << c.written;
        if (back) {
            EXPECT_EQ(back->StringValue(), c.text);
        }
    }
}

TEST(JsonWrite, WritesNumbersWithTheFewestDigitsThatReadBack) {
    struct Case {
        JsonValue value;
        std::string_view written;
    };
    const Case cases[] = {
        {JsonValue::Number(0.1), "0.1"},
        {JsonValue::Number(1.0 / 3), "0.3333333333333333"},
        {JsonValue::Number(-2.0), "-2"},
        {JsonValue::Number(1e21), "1e+21"},
        {JsonValue::Number(5e-324), "5e-324"},
        {JsonValue::Float(7.2f), "7.2"},
        {JsonValue::Float(3.6f), "3.6"},
        {JsonValue::Float(-0.25f), "-0.25"},
        {JsonValue::Float(18.0f), "18"},
        {JsonValue::Float(1.0e30f), "1e+30"},
        {JsonValue::Integer(-9007199254740993LL), "-9007199254740993"},
        {JsonValue::Number(std::numeric_limits<double>::infinity()), "null"},
        {JsonValue::Number(std::nan("")), "null"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Compact(c.value), c.written);
}

TEST(JsonWrite, FloatsReadBackAsTheSameFloat) {
    // Random bit patterns cover every exponent; a fixed seed keeps it repeatable.
    std::mt19937 random(20240613);
    int checked = 0;
    for (int i = 0; i < 200000; ++i) {
        const std::uint32_t bits = random();
        float f;
        std::memcpy(&f, &bits, sizeof f);
        if (!std::isfinite(f)) continue;
        const std::optional<JsonValue> back = ParseJson(WriteJson(JsonValue::Float(f)));
        ASSERT_TRUE(back.has_value());
        ASSERT_EQ(static_cast<float>(back->NumberValue()), f) << back->NumberText();
        ++checked;
    }
    EXPECT_GT(checked, 190000);
}

TEST(JsonWrite, WritingWhatWasReadIsStable) {
    const std::string_view inputs[] = {
        R"({"b":[1,2.5,-3e-7,"x\u000by"],"a":{"nested":{"deeper":[[],{}]}},"c":null})",
        "[\"\xF0\x9F\x98\x80\", 1e300, 123456789012345678, true]",
        R"({"text":"line\rnext","long":[)"
        R"("aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa","bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb","cccccccccccccccccccc"]})",
    };
    for (std::string_view input : inputs) {
        const JsonValue first = MustParse(input);
        const std::string written = WriteJson(first);
        const JsonValue second = MustParse(written);
        EXPECT_EQ(second, first) << input;
        EXPECT_EQ(WriteJson(second), written) << input;
    }
}

}  // namespace
}  // namespace qb::sim
