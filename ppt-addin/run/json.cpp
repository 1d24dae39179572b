// The JSON writers and key scanners.
#include "run/json.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "foundation/platform.h"
#include "foundation/text.h"

namespace qb {
namespace {

constexpr std::size_t npos = std::u16string_view::npos;

int HexValue(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    return -1;
}

std::u16string Needle(std::u16string_view key) {
    std::u16string needle;
    needle.reserve(key.size() + 2);
    needle += u'"';
    needle += key;
    needle += u'"';
    return needle;
}

// Decodes a string whose opening quote stands just before `pos`. `end` is
// set past the closing quote, or to the text's end when there is none.
std::u16string DecodeString(std::u16string_view json, std::size_t pos, std::size_t* end = nullptr) {
    std::u16string out;
    std::size_t i = pos;
    while (i < json.size()) {
        const char16_t c = json[i];
        if (c == u'"') {
            ++i;
            break;
        }
        if (c != u'\\') {
            out += c;
            ++i;
            continue;
        }
        if (i + 1 >= json.size()) {  // a backslash as the very last unit stays
            out += c;
            ++i;
            break;
        }
        const char16_t e = json[i + 1];
        if (e == u'n') {
            out += u'\n';
        } else if (e == u'r') {
            out += u'\r';
        } else if (e == u't') {
            out += u'\t';
        } else if (e == u'u' && i + 5 < json.size()) {
            // Four units as one 16-bit unit; surrogates are not paired.
            unsigned value = 0;
            bool hex = true;
            for (std::size_t k = i + 2; k < i + 6; ++k) {
                const int h = HexValue(json[k]);
                if (h < 0) hex = false;
                value = value * 16 + static_cast<unsigned>(h < 0 ? 0 : h);
            }
            out += static_cast<char16_t>(hex ? value : 0);
            i += 6;
            continue;
        } else {
            out += e;  // \" \\ \/ and any other: the character itself
        }
        i += 2;
    }
    if (end) *end = i;
    return out;
}

std::size_t SkipAfterFirstHit(std::u16string_view json, std::u16string_view key,
                              std::u16string_view skip) {
    const std::u16string needle = Needle(key);
    std::size_t p = json.find(needle);
    if (p == npos) return npos;
    p += needle.size();
    while (p < json.size() && skip.find(json[p]) != npos)
        ++p;
    return p;
}

bool IsCSpace(char16_t c) {
    return c == u' ' || (c >= u'\t' && c <= u'\r');
}

bool IsAsciiDigit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

// A decimal number as strtod reads one, independent of the C locale.
double ParseDecimal(std::u16string_view text, std::size_t p) {
    while (p < text.size() && IsCSpace(text[p]))
        ++p;
    std::string ascii;
    bool negative = false;
    if (p < text.size() && (text[p] == u'+' || text[p] == u'-')) {
        negative = text[p] == u'-';
        ++p;
    }
    // Where the first significant digit stands decides an out-of-range
    // value: above the point, an overflow; below it, an underflow.
    bool significant = false;
    long long order = 0;
    std::size_t digits = 0;
    while (p < text.size() && IsAsciiDigit(text[p])) {
        significant = significant || text[p] != u'0';
        if (significant) ++order;
        ascii += static_cast<char>(text[p++]);
        ++digits;
    }
    if (p < text.size() && text[p] == u'.') {
        std::string fraction;
        std::size_t q = p + 1;
        while (q < text.size() && IsAsciiDigit(text[q])) {
            if (!significant && text[q] == u'0') --order;
            significant = significant || text[q] != u'0';
            fraction += static_cast<char>(text[q++]);
        }
        if (digits > 0 || !fraction.empty()) {
            ascii += '.';
            ascii += fraction;
            digits += fraction.size();
            p = q;
        }
    }
    if (digits == 0) return 0.0;
    if (p < text.size() && (text[p] == u'e' || text[p] == u'E')) {
        std::size_t q = p + 1;
        bool negativeExp = false;
        if (q < text.size() && (text[q] == u'+' || text[q] == u'-'))
            negativeExp = text[q++] == u'-';
        if (q < text.size() && IsAsciiDigit(text[q])) {
            long long exponent = 0;
            ascii += negativeExp ? "e-" : "e";
            while (q < text.size() && IsAsciiDigit(text[q])) {
                exponent = std::min<long long>(exponent * 10 + (text[q] - u'0'), 100000000);
                ascii += static_cast<char>(text[q++]);
            }
            order += negativeExp ? -exponent : exponent;
        }
    }
    double value = 0.0;
    const auto result = std::from_chars(ascii.data(), ascii.data() + ascii.size(), value);
    if (result.ec == std::errc::result_out_of_range) {
        value = order > 0 ? std::numeric_limits<double>::infinity() : 0.0;
    } else if (result.ec != std::errc()) {
        return 0.0;
    }
    return negative ? -value : value;
}

// Readers face external text inside COM callbacks: even an allocation
// failure gives the default value rather than an exception.
template <typename T, typename Body>
T Guarded(T fallback, Body body) {
    try {
        return body();
    } catch (...) {
        return fallback;
    }
}

}  // namespace

std::u16string JsonEscape(std::u16string_view text) {
    static constexpr char16_t kHex[] = u"0123456789abcdef";
    std::u16string out;
    out.reserve(text.size() + 8);
    for (char16_t c : text) {
        switch (c) {
            case u'"':
                out += u"\\\"";
                break;
            case u'\\':
                out += u"\\\\";
                break;
            case u'\n':
                out += u"\\n";
                break;
            case u'\r':
                out += u"\\r";
                break;
            case u'\t':
                out += u"\\t";
                break;
            default:
                if (c < 0x20) {
                    out += u"\\u00";
                    out += kHex[c >> 4];
                    out += kHex[c & 0xF];
                } else {
                    out += c;
                }
        }
    }
    return out;
}

std::u16string JsonQuote(std::u16string_view text) {
    return u"\"" + JsonEscape(text) + u"\"";
}

void JsonObjectWriter::Key(std::u16string_view key) {
    if (text_.size() > 1) text_ += u',';
    text_ += JsonQuote(key);
    text_ += u':';
}

JsonObjectWriter& JsonObjectWriter::String(std::u16string_view key, std::u16string_view value) {
    Key(key);
    text_ += JsonQuote(value);
    return *this;
}

JsonObjectWriter& JsonObjectWriter::Bool(std::u16string_view key, bool value) {
    Key(key);
    text_ += value ? u"true" : u"false";
    return *this;
}

JsonObjectWriter& JsonObjectWriter::Integer(std::u16string_view key, std::int64_t value) {
    Key(key);
    text_ += AsciiToUtf16(std::to_string(value));
    return *this;
}

JsonObjectWriter& JsonObjectWriter::Raw(std::u16string_view key, std::u16string_view json) {
    Key(key);
    text_ += json;
    return *this;
}

std::u16string JsonObjectWriter::Finish() {
    text_ += u'}';
    return std::move(text_);
}

std::u16string JsonRawArray(const std::vector<std::u16string>& values) {
    std::u16string out = u"[";
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (i) out += u',';
        out += values[i];
    }
    out += u']';
    return out;
}

std::u16string JsonStringArray(const std::vector<std::u16string>& items) {
    std::vector<std::u16string> quoted;
    quoted.reserve(items.size());
    for (const std::u16string& item : items)
        quoted.push_back(JsonQuote(item));
    return JsonRawArray(quoted);
}

std::u16string ReadJsonString(std::u16string_view json, std::u16string_view key) {
    return Guarded<std::u16string>(std::u16string(), [&]() -> std::u16string {
        const std::u16string needle = Needle(key);
        for (std::size_t from = 0;;) {
            const std::size_t hit = json.find(needle, from);
            if (hit == npos) return {};
            std::size_t p = hit + needle.size();
            while (p < json.size() && (json[p] == u' ' || json[p] == u'\t'))
                ++p;
            if (p < json.size() && json[p] == u':') {
                // The next quote anywhere opens the value: a number or null
                // under the key picks up the next string of the text.
                const std::size_t open = json.find(u'"', p + 1);
                return open == npos ? std::u16string() : DecodeString(json, open + 1);
            }
            from = hit + 1;  // a key name standing as a value is passed over
        }
    });
}

bool ReadJsonBool(std::u16string_view json, std::u16string_view key) {
    return Guarded<bool>(false, [&]() -> bool {
        const std::size_t p = SkipAfterFirstHit(json, key, u" :");
        if (p == npos || p >= json.size()) return false;
        return json.substr(p, 4) == u"true" || json[p] == u'1';
    });
}

double ReadJsonNumber(std::u16string_view json, std::u16string_view key) {
    return Guarded<double>(0.0, [&]() -> double {
        const std::size_t p = SkipAfterFirstHit(json, key, u" :");
        return p == npos ? 0.0 : ParseDecimal(json, p);
    });
}

std::vector<std::u16string> ReadJsonStringArray(std::u16string_view json, std::u16string_view key) {
    return Guarded<std::vector<std::u16string>>(
        std::vector<std::u16string>(), [&]() -> std::vector<std::u16string> {
            std::vector<std::u16string> items;
            const std::u16string needle = Needle(key);
            const std::size_t hit = json.find(needle);
            if (hit == npos) return items;
            const std::size_t open = json.find(u'[', hit + needle.size());
            if (open == npos) return items;
            std::size_t p = open + 1;
            for (;;) {
                const std::size_t start = json.find_first_of(u"\"]", p);
                if (start == npos || json[start] == u']') break;
                std::size_t end = 0;
                items.push_back(DecodeString(json, start + 1, &end));
                const std::size_t next = json.find_first_of(u"\",]", end);
                if (next == npos || json[next] == u']') break;
                p = json[next] == u',' ? next + 1 : next;
            }
            return items;
        });
}

std::u16string ReadJsonObjectText(std::u16string_view json, std::u16string_view key) {
    return Guarded<std::u16string>(std::u16string(), [&]() -> std::u16string {
        const std::u16string needle = Needle(key);
        const std::size_t hit = json.find(needle);
        if (hit == npos) return {};
        const std::size_t open = json.find(u'{', hit + needle.size());
        if (open == npos) return {};
        int depth = 0;
        bool inString = false;
        for (std::size_t i = open; i < json.size(); ++i) {
            const char16_t c = json[i];
            if (inString) {
                if (c == u'\\') {
                    ++i;
                } else if (c == u'"') {
                    inString = false;
                }
            } else if (c == u'"') {
                inString = true;
            } else if (c == u'{') {
                ++depth;
            } else if (c == u'}' && --depth == 0) {
                return std::u16string(json.substr(open, i - open + 1));
            }
        }
        return {};
    });
}

bool ParseHexColor(std::u16string_view text, std::int32_t& outColor) {
    if (text.size() != 7 || text[0] != u'#') return false;
    int digits[6];
    for (int i = 0; i < 6; ++i) {
        digits[i] = HexValue(text[static_cast<std::size_t>(i) + 1]);
        if (digits[i] < 0) return false;
    }
    const int red = digits[0] * 16 + digits[1];
    const int green = digits[2] * 16 + digits[3];
    const int blue = digits[4] * 16 + digits[5];
    outColor = red + green * 256 + blue * 65536;
    return true;
}

std::u16string ReadStoreString(std::u16string_view json, std::u16string_view key) {
    return Guarded<std::u16string>(std::u16string(), [&]() -> std::u16string {
        const std::u16string needle = Needle(key);
        const std::size_t hit = json.find(needle);
        if (hit == npos) return {};
        const std::size_t open = json.find(u'"', hit + needle.size());
        return open == npos ? std::u16string() : DecodeString(json, open + 1);
    });
}

bool ReadStoreBool(std::u16string_view json, std::u16string_view key) {
    return Guarded<bool>(true, [&]() -> bool {
        const std::u16string needle = Needle(key);
        const std::size_t hit = json.find(needle);
        if (hit == npos) return true;
        std::size_t p = json.find(u':', hit + needle.size());
        if (p == npos) return true;
        ++p;
        while (p < json.size() && (json[p] == u' ' || json[p] == u'\t'))
            ++p;
        if (json.substr(p, 4) == u"true") return true;
        if (json.substr(p, 5) == u"false") return false;
        return true;
    });
}

std::u16string ReadTextFile(const std::u16string& path) {
    return Guarded<std::u16string>(std::u16string(), [&]() -> std::u16string {
        // Store files are small; a huge one is no store file and is not read.
        platform::FileInfo info;
        if (!platform::GetFileInfo(path, info) || info.isDirectory ||
            info.size > kMaxTextFileBytes) {
            return {};
        }
        std::string bytes;
        if (!platform::ReadWholeFile(path, bytes)) return {};
        std::string_view view(bytes);
        if (view.size() >= 3 && view.substr(0, 3) == "\xEF\xBB\xBF") view.remove_prefix(3);
        std::u16string text;
        if (!TryUtf8ToUtf16(view, text)) return {};
        return text;
    });
}

}  // namespace qb
