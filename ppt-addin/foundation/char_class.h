// Character classes of single UTF-16 units, answered from one Unicode table
// so that Windows and Linux agree (their C runtimes' isw* functions don't).
#pragma once

#include <string>
#include <string_view>

namespace qb {

// A letter of any script: Unicode general category L (Lu, Ll, Lt, Lm, Lo).
bool IsLetter(char16_t unit);
// A decimal digit of any script: general category Nd.
bool IsDigit(char16_t unit);
bool IsLetterOrDigit(char16_t unit);
// Unicode White_Space, vertical tab and no-break spaces included.
bool IsSpace(char16_t unit);
// Simple one-to-one lower-case mapping; units without one come back unchanged.
char16_t ToLower(char16_t unit);

std::u16string ToLower(std::u16string_view text);
bool EqualsIgnoreCase(std::u16string_view a, std::u16string_view b);
bool StartsWithIgnoreCase(std::u16string_view text, std::u16string_view prefix);
bool ContainsIgnoreCase(std::u16string_view text, std::u16string_view needle);

}  // namespace qb
