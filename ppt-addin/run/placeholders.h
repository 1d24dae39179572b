// Locked placeholders: tokens such as [[QB_A_12]] that stand for a
// cross-reference or a formula and must come through translation untouched.
// After a batch, a translation whose token count differs from its source's
// is sent again alone; if that doesn't help, the batch fails.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "run/run_types.h"

namespace qb {

// Tokens: "[[", "QB" in either case, "_", letters and digits, "_", one or
// more ASCII digits, "]]".
std::uint32_t CountLockedTokens(std::u16string_view text);

// Repairs translations that lost or gained tokens of their source by
// sending that text again alone; false with a message when that fails.
bool CheckLockedTokens(TranslateClientConfig& config, const std::vector<std::u16string>& texts,
                       std::vector<std::u16string>& translations, std::u16string& outMessage,
                       std::u16string& outCode);

}  // namespace qb
