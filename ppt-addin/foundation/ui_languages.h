// The display languages the add-in's own texts come in, in the order the
// language dialog lists them.
#pragma once

#include <iterator>
#include <string_view>

namespace qb {

inline constexpr std::u16string_view kUiLanguageCodes[] = {
    u"zh-CN", u"zh-TW", u"en", u"ja", u"ru", u"ms", u"th",
    u"de",    u"fr",    u"es", u"id", u"vi", u"ko", u"ar",
};

// What the language dialog lists for each code above: the language's own name.
inline constexpr std::u16string_view kUiLanguageNames[] = {
    u"中文（简体）",     u"中文（繁體）", u"English", u"日本語",   u"Русский",
    u"Bahasa Melayu",    u"ไทย",          u"Deutsch", u"Français", u"Español",
    u"Bahasa Indonesia", u"Tiếng Việt",   u"한국어",  u"العربية",
};
static_assert(std::size(kUiLanguageNames) == std::size(kUiLanguageCodes));

// Exactly one of the codes above, compared code unit by code unit.
inline bool IsSupportedUiLanguage(std::u16string_view code) {
    for (std::u16string_view known : kUiLanguageCodes) {
        if (known == code) return true;
    }
    return false;
}

}  // namespace qb
