// UTF-8 <-> UTF-16 conversion for the HTTP and file edges. Inside the add-in
// text is std::u16string: 16-bit units, exactly the host's wide strings.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qb {

inline constexpr char16_t kReplacementChar = 0xFFFD;

// Lenient: every ill-formed sequence (a stray continuation byte, a truncated,
// overlong or surrogate encoding, a value above U+10FFFF) becomes one U+FFFD
// per maximal ill-formed subpart, as Unicode recommends.
std::u16string Utf8ToUtf16(std::string_view utf8);

// Strict: false, with `out` emptied, at the first ill-formed sequence. Used
// where unreadable text must read as nothing rather than as damaged text.
bool TryUtf8ToUtf16(std::string_view utf8, std::u16string& out);

// The length of the well-formed UTF-8 sequence at `pos`, with its scalar
// value in `value`; 0, and `value` left alone, when the bytes there are
// ill-formed. The one set of rules every UTF-8 reader here uses.
std::size_t DecodeUtf8At(std::string_view utf8, std::size_t pos, char32_t& value);
// One scalar value as one or two UTF-16 units.
void AppendUtf16(std::u16string& out, char32_t value);

// A lone surrogate becomes U+FFFD; pairs become one four-byte sequence.
std::string Utf16ToUtf8(std::u16string_view text);

// For text known to be ASCII (formatted numbers, fixed log words).
std::u16string AsciiToUtf16(std::string_view ascii);
// A signed integer in decimal, for log lines and keys.
std::u16string DecimalText(long long value);
// Eight upper-case hex digits, no prefix: how HRESULTs appear in logs and messages.
std::u16string HexText(std::uint32_t value);
// A pointer's value as %p writes it on Windows: upper-case hex digits, two
// for each byte of a pointer, no prefix.
std::u16string PointerText(std::intptr_t value);

inline bool IsHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
inline bool IsLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

}  // namespace qb
