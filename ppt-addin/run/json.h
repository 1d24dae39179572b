// JSON as this add-in speaks it: written as text in a fixed key order, read
// by scanners that look for one key at a time in the raw text without
// building a tree. Readers never fail: a missing key, a broken document or a
// truncated text gives the empty or default value, and the caller decides.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qb {

// --- Writers -------------------------------------------------------------

// Escapes quote, backslash and control units; everything else, slash,
// non-ASCII and lone surrogates included, passes through as it is.
std::u16string JsonEscape(std::u16string_view text);
// A double quote, JsonEscape(text), a double quote.
std::u16string JsonQuote(std::u16string_view text);

// Builds one object with its keys in the order they are added.
class JsonObjectWriter {
  public:
    JsonObjectWriter& String(std::u16string_view key, std::u16string_view value);
    JsonObjectWriter& Bool(std::u16string_view key, bool value);
    JsonObjectWriter& Integer(std::u16string_view key, std::int64_t value);
    // A value that is already JSON text: a number, an array, an object.
    JsonObjectWriter& Raw(std::u16string_view key, std::u16string_view json);
    // The object with its closing brace; the writer can't be added to after.
    std::u16string Finish();

  private:
    void Key(std::u16string_view key);
    std::u16string text_ = u"{";
};

// A JSON array of strings, in the order given.
std::u16string JsonStringArray(const std::vector<std::u16string>& items);
// A JSON array of values that are JSON text already, in the order given.
std::u16string JsonRawArray(const std::vector<std::u16string>& values);

// --- Service set: replies and panel messages -----------------------------

// The first occurrence of "key" that a colon follows; the next string after
// the colon, wherever it stands. Empty when not found.
std::u16string ReadJsonString(std::u16string_view json, std::u16string_view key);
// True for `true` or a `1` after the first "key"; false otherwise.
bool ReadJsonBool(std::u16string_view json, std::u16string_view key);
// The decimal number after the first "key"; 0 when there is none. A number
// too large for a double gives an infinity of its sign, one too small 0.
double ReadJsonNumber(std::u16string_view json, std::u16string_view key);
// The strings of the first array after the first "key"; other values skipped.
std::vector<std::u16string> ReadJsonStringArray(std::u16string_view json, std::u16string_view key);
// The text of the first object after the first "key", braces included.
std::u16string ReadJsonObjectText(std::u16string_view json, std::u16string_view key);
// "#rrggbb" in either case; outColor is red + green*256 + blue*65536, the
// host's order. Anything else gives false and leaves outColor alone.
bool ParseHexColor(std::u16string_view text, std::int32_t& outColor);

// --- Store set: the local glossary and instruction files -----------------

// The next string after the first "key", colon or not.
std::u16string ReadStoreString(std::u16string_view json, std::u16string_view key);
// `false` after the first "key" and its colon gives false; anything else true.
bool ReadStoreBool(std::u16string_view json, std::u16string_view key);

// --- Files ---------------------------------------------------------------

// The whole file as UTF-8 text, a leading byte order mark removed. Empty
// when the file is missing, empty, not valid UTF-8 or above kMaxTextFileBytes.
inline constexpr std::uint64_t kMaxTextFileBytes = 32ull * 1024 * 1024;
std::u16string ReadTextFile(const std::u16string& path);

}  // namespace qb
