// The bridge between std::u16string and the SDK's wide strings. Windows only:
// wchar_t is 16 bits there and holds the very same units.
#pragma once

#include <string>
#include <string_view>

static_assert(sizeof(wchar_t) == sizeof(char16_t), "Windows wide strings are UTF-16");

namespace qb {

inline const wchar_t* AsWide(const std::u16string& text) {
    return reinterpret_cast<const wchar_t*>(text.c_str());
}

inline std::u16string FromWide(const wchar_t* text) {
    return text ? std::u16string(reinterpret_cast<const char16_t*>(text)) : std::u16string();
}

inline std::u16string FromWide(const wchar_t* text, std::size_t length) {
    return std::u16string(reinterpret_cast<const char16_t*>(text), length);
}

}  // namespace qb
