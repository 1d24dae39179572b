// Pseudo-translation, word by word.
#include "sim/service/pseudo_translate.h"

#include "foundation/char_class.h"

namespace qb::sim {
namespace {

constexpr char16_t kLower[] =
    u"\u00e1\u0180\u00e7\u010f\u00e9\u0192\u011d\u0125\u00ed\u0135"
    u"\u0137\u013a\u1e3f\u00f1\u00f3\u1e55\u02a0\u0155\u0161\u0165"
    u"\u00fa\u1e7d\u0175\u1e8b\u00fd\u017e";
constexpr char16_t kUpper[] =
    u"\u00c1\u0181\u00c7\u010e\u00c9\u0191\u011c\u0124\u00cd\u0134"
    u"\u0136\u0139\u1e3e\u00d1\u00d3\u1e54\u01ea\u0154\u0160\u0164"
    u"\u00da\u1e7c\u0174\u1e8a\u00dd\u017d";
// Common Han characters and the hiragana syllables, for the CJK targets.
constexpr char16_t kHan[] =
    u"\u7684\u4e00\u662f\u5728\u4e0d\u4e86\u6709\u548c\u4eba\u8fd9"
    u"\u4e2d\u5927\u4e3a\u4e0a\u4e2a\u56fd\u6211\u4ee5\u8981\u4ed6"
    u"\u65f6\u6765\u7528\u4eec\u751f\u5230\u4f5c\u5730\u4e8e\u51fa"
    u"\u5c31\u5206";
constexpr char16_t kKana[] =
    u"\u3042\u3044\u3046\u3048\u304a\u304b\u304d\u304f\u3051\u3053"
    u"\u3055\u3057\u3059\u305b\u305d\u305f\u3061\u3064\u3066\u3068"
    u"\u306a\u306b\u306c\u306d\u306e\u306f\u3072\u3075\u3078\u307b";
constexpr std::size_t kHanCount = sizeof kHan / sizeof kHan[0] - 1;
constexpr std::size_t kKanaCount = sizeof kKana / sizeof kKana[0] - 1;

enum class Script { Latin, Han, Kana, Hangul };

Script ScriptOf(std::u16string_view lang) {
    const auto starts = [&](std::u16string_view prefix) {
        return lang.size() >= prefix.size() &&
               EqualsIgnoreCase(lang.substr(0, prefix.size()), prefix) &&
               (lang.size() == prefix.size() || lang[prefix.size()] == u'-' ||
                lang[prefix.size()] == u'_');
    };
    if (starts(u"zh")) return Script::Han;
    if (starts(u"ja")) return Script::Kana;
    if (starts(u"ko")) return Script::Hangul;
    return Script::Latin;
}

char16_t MapUnit(char16_t unit, std::size_t position, Script script) {
    const std::size_t seed = static_cast<std::size_t>(unit) * 7u + position * 3u;
    switch (script) {
        case Script::Han:
            return kHan[seed % kHanCount];
        case Script::Kana:
            return kKana[seed % kKanaCount];
        case Script::Hangul:
            // Syllables without a final consonant: U+AC00 + 28 * k.
            return static_cast<char16_t>(0xAC00 + 28 * (seed % 399));
        case Script::Latin:
            break;
    }
    if (unit >= u'a' && unit <= u'z') return kLower[unit - u'a'];
    if (unit >= u'A' && unit <= u'Z') return kUpper[unit - u'A'];
    if (IsDigit(unit)) return unit;
    // Letters of other scripts become Latin letters with marks.
    return kLower[seed % 26];
}

void AppendWord(std::u16string& out, std::u16string_view word, Script script) {
    bool hasLetter = false;
    for (char16_t unit : word)
        hasLetter = hasLetter || IsLetter(unit);
    if (!hasLetter) {
        out += word;  // numbers stay numbers
        return;
    }
    std::u16string mapped;
    for (std::size_t i = 0; i < word.size(); ++i)
        mapped += MapUnit(word[i], i, script);
    // A third longer, rounded up, so that text fit has work to do.
    const std::size_t extra = (word.size() + 2) / 3;
    for (std::size_t i = 0; i < extra; ++i)
        mapped += MapUnit(word[i % word.size()], word.size() + i, script);
    out += mapped;
}

}  // namespace

bool IsCjkTarget(std::u16string_view targetLang) {
    return ScriptOf(targetLang) != Script::Latin;
}

std::size_t LockedTokenLengthAt(std::u16string_view text, std::size_t pos) {
    const std::size_t n = text.size();
    if (pos + 9 > n || text[pos] != u'[' || text[pos + 1] != u'[') return 0;
    if ((text[pos + 2] | 0x20) != u'q' || (text[pos + 3] | 0x20) != u'b' || text[pos + 4] != u'_') {
        return 0;
    }
    std::size_t j = pos + 5;
    while (j < n && IsLetterOrDigit(text[j]))
        ++j;
    if (j >= n || text[j] != u'_') return 0;
    std::size_t k = j + 1;
    while (k < n && text[k] >= u'0' && text[k] <= u'9')
        ++k;
    if (k == j + 1 || k + 1 >= n || text[k] != u']' || text[k + 1] != u']') return 0;
    return k + 2 - pos;
}

std::u16string PseudoTranslate(std::u16string_view text, std::u16string_view targetLang) {
    const Script script = ScriptOf(targetLang);
    std::u16string out;
    out.reserve(text.size() + text.size() / 2);
    std::size_t i = 0;
    while (i < text.size()) {
        if (const std::size_t token = LockedTokenLengthAt(text, i)) {
            out += text.substr(i, token);
            i += token;
            continue;
        }
        if (!IsLetterOrDigit(text[i])) {
            out += text[i++];
            continue;
        }
        std::size_t end = i;
        while (end < text.size() && IsLetterOrDigit(text[end]) &&
               LockedTokenLengthAt(text, end) == 0) {
            ++end;
        }
        AppendWord(out, text.substr(i, end - i), script);
        i = end;
    }
    return out;
}

std::u16string RemoveLockedTokens(std::u16string_view text) {
    std::u16string out;
    std::size_t i = 0;
    while (i < text.size()) {
        if (const std::size_t token = LockedTokenLengthAt(text, i)) {
            i += token;
            continue;
        }
        out += text[i++];
    }
    return out;
}

}  // namespace qb::sim
