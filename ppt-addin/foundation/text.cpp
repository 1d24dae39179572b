// One UTF-8 decoder for both platforms, so that Windows and Linux accept and
// reject exactly the same bytes.
#include "foundation/text.h"

#include <cstdint>
#include <string>

namespace qb {
namespace {

// Decodes one scalar value at `pos`. Returns the number of bytes consumed
// (at least 1) and sets `ok` to false for an ill-formed sequence, in which
// case the count is the length of the maximal ill-formed subpart.
std::size_t DecodeOne(std::string_view s, std::size_t pos, char32_t& value, bool& ok) {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(s[i]); };
    const std::uint8_t lead = byte(pos);
    ok = false;
    if (lead < 0x80) {
        value = lead;
        ok = true;
        return 1;
    }
    std::size_t need;
    std::uint8_t lo = 0x80, hi = 0xBF;  // allowed range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
        need = 1;
        value = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        need = 2;
        value = lead & 0x0F;
        if (lead == 0xE0) lo = 0xA0;  // overlong
        if (lead == 0xED) hi = 0x9F;  // surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        need = 3;
        value = lead & 0x07;
        if (lead == 0xF0) lo = 0x90;  // overlong
        if (lead == 0xF4) hi = 0x8F;  // above U+10FFFF
    } else {
        return 1;
    }
    std::size_t i = 1;
    for (; i <= need; ++i) {
        if (pos + i >= s.size()) return i;
        const std::uint8_t b = byte(pos + i);
        const std::uint8_t min = (i == 1) ? lo : 0x80;
        const std::uint8_t max = (i == 1) ? hi : 0xBF;
        if (b < min || b > max) return i;
        value = (value << 6) | (b & 0x3F);
    }
    ok = true;
    return i;
}

}  // namespace

std::size_t DecodeUtf8At(std::string_view utf8, std::size_t pos, char32_t& value) {
    if (pos >= utf8.size()) return 0;
    char32_t decoded = 0;
    bool ok = false;
    const std::size_t n = DecodeOne(utf8, pos, decoded, ok);
    if (!ok) return 0;
    value = decoded;
    return n;
}

void AppendUtf16(std::u16string& out, char32_t value) {
    if (value < 0x10000) {
        out.push_back(static_cast<char16_t>(value));
    } else {
        value -= 0x10000;
        out.push_back(static_cast<char16_t>(0xD800 + (value >> 10)));
        out.push_back(static_cast<char16_t>(0xDC00 + (value & 0x3FF)));
    }
}

std::u16string Utf8ToUtf16(std::string_view utf8) {
    std::u16string out;
    out.reserve(utf8.size());
    for (std::size_t pos = 0; pos < utf8.size();) {
        char32_t value = 0;
        bool ok = false;
        pos += DecodeOne(utf8, pos, value, ok);
        AppendUtf16(out, ok ? value : kReplacementChar);
    }
    return out;
}

bool TryUtf8ToUtf16(std::string_view utf8, std::u16string& out) {
    out.clear();
    out.reserve(utf8.size());
    for (std::size_t pos = 0; pos < utf8.size();) {
        char32_t value = 0;
        bool ok = false;
        pos += DecodeOne(utf8, pos, value, ok);
        if (!ok) {
            out.clear();
            return false;
        }
        AppendUtf16(out, value);
    }
    return true;
}

std::string Utf16ToUtf8(std::u16string_view text) {
    std::string out;
    out.reserve(text.size() * 3 / 2);
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t value = text[i];
        if (IsHighSurrogate(text[i]) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
            value = 0x10000 + ((value - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        } else if (IsHighSurrogate(text[i]) || IsLowSurrogate(text[i])) {
            value = kReplacementChar;
        }
        if (value < 0x80) {
            out.push_back(static_cast<char>(value));
        } else if (value < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (value >> 6)));
            out.push_back(static_cast<char>(0x80 | (value & 0x3F)));
        } else if (value < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (value >> 12)));
            out.push_back(static_cast<char>(0x80 | ((value >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (value & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (value >> 18)));
            out.push_back(static_cast<char>(0x80 | ((value >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((value >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (value & 0x3F)));
        }
    }
    return out;
}

std::u16string AsciiToUtf16(std::string_view ascii) {
    std::u16string out;
    out.reserve(ascii.size());
    for (char c : ascii)
        out.push_back(static_cast<char16_t>(static_cast<unsigned char>(c)));
    return out;
}

std::u16string DecimalText(long long value) {
    return AsciiToUtf16(std::to_string(value));
}

std::u16string HexText(std::uint32_t value) {
    static const char16_t kDigits[] = u"0123456789ABCDEF";
    std::u16string text(8, u'0');
    for (int i = 7; i >= 0; --i, value >>= 4)
        text[static_cast<std::size_t>(i)] = kDigits[value & 0xF];
    return text;
}

std::u16string PointerText(std::intptr_t value) {
    static const char16_t kDigits[] = u"0123456789ABCDEF";
    auto bits = static_cast<std::uintptr_t>(value);
    std::u16string text(sizeof(void*) * 2, u'0');
    for (std::size_t i = text.size(); i-- > 0; bits >>= 4)
        text[i] = kDigits[bits & 0xF];
    return text;
}

}  // namespace qb
