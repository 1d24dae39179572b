// Table lookups behind the character-class helpers. The tables cover the
// Basic Multilingual Plane; a surrogate unit is never a letter, digit or space.
#include "foundation/char_class.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace qb {
namespace {

struct CodeRange {
    char16_t first;
    char16_t last;
};

struct LowerRun {
    char16_t first;
    char16_t last;
    std::uint8_t stride;  // 1 for a block, 2 for alternating upper/lower pairs
    std::int32_t delta;
};

#include "foundation/char_class_tables.inc"

template <std::size_t N>
bool InRanges(const CodeRange (&table)[N], char16_t unit) {
    const auto it = std::upper_bound(std::begin(table), std::end(table), unit,
                                     [](char16_t u, const CodeRange& r) { return u < r.first; });
    return it != std::begin(table) && unit <= std::prev(it)->last;
}

}  // namespace

bool IsLetter(char16_t unit) {
    if (unit < 0x80) return (unit | 0x20) >= u'a' && (unit | 0x20) <= u'z';
    return InRanges(kLetterRanges, unit);
}

bool IsDigit(char16_t unit) {
    if (unit < 0x80) return unit >= u'0' && unit <= u'9';
    return InRanges(kDigitRanges, unit);
}

bool IsLetterOrDigit(char16_t unit) {
    return IsLetter(unit) || IsDigit(unit);
}

bool IsSpace(char16_t unit) {
    return InRanges(kSpaceRanges, unit);
}

char16_t ToLower(char16_t unit) {
    if (unit < 0x80)
        return (unit >= u'A' && unit <= u'Z') ? static_cast<char16_t>(unit + 32) : unit;
    const auto it = std::upper_bound(std::begin(kLowerRuns), std::end(kLowerRuns), unit,
                                     [](char16_t u, const LowerRun& r) { return u < r.first; });
    if (it == std::begin(kLowerRuns)) return unit;
    const LowerRun& run = *std::prev(it);
    if (unit > run.last || (unit - run.first) % run.stride != 0) return unit;
    return static_cast<char16_t>(static_cast<std::int32_t>(unit) + run.delta);
}

std::u16string ToLower(std::u16string_view text) {
    std::u16string out(text);
    for (char16_t& unit : out)
        unit = ToLower(unit);
    return out;
}

bool EqualsIgnoreCase(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (ToLower(a[i]) != ToLower(b[i])) return false;
    }
    return true;
}

bool StartsWithIgnoreCase(std::u16string_view text, std::u16string_view prefix) {
    return text.size() >= prefix.size() && EqualsIgnoreCase(text.substr(0, prefix.size()), prefix);
}

bool ContainsIgnoreCase(std::u16string_view text, std::u16string_view needle) {
    if (needle.size() > text.size()) return false;
    for (std::size_t i = 0; i + needle.size() <= text.size(); ++i) {
        if (EqualsIgnoreCase(text.substr(i, needle.size()), needle)) return true;
    }
    return false;
}

}  // namespace qb
