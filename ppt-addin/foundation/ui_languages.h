// The display languages the add-in's own texts come in, in the order the
// language dialog lists them.
#pragma once

#include <string_view>

namespace qb {

inline constexpr std::u16string_view kUiLanguageCodes[] = {
    u"zh-CN", u"zh-TW", u"en", u"ja", u"ru", u"ms", u"th",
    u"de",    u"fr",    u"es", u"id", u"vi", u"ko", u"ar",
};

// Exactly one of the codes above, compared code unit by code unit.
inline bool IsSupportedUiLanguage(std::u16string_view code) {
    for (std::u16string_view known : kUiLanguageCodes) {
        if (known == code) return true;
    }
    return false;
}

}  // namespace qb
