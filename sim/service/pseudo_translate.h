// The stand-in service's translation: deterministic, visibly different in
// every word, about a third longer, in CJK characters for CJK targets, and
// never touching a locked placeholder. Any C++ code that needs "what the
// service would answer" calls it.
#pragma once

#include <string>
#include <string_view>

namespace qb::sim {

std::u16string PseudoTranslate(std::u16string_view text, std::u16string_view targetLang);

// Chinese, Japanese and Korean targets ("zh", "zh-CN", "ja", "ko-KR"...).
bool IsCjkTarget(std::u16string_view targetLang);

// The length of the locked placeholder token that starts at `pos`, or 0.
std::size_t LockedTokenLengthAt(std::u16string_view text, std::size_t pos);

// The text with every locked placeholder token taken out: what a careless
// service does to them.
std::u16string RemoveLockedTokens(std::u16string_view text);

}  // namespace qb::sim
