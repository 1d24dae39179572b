// A text as a JSON string literal in UTF-8, for the bridge's own answers.
#pragma once

#include <string>

#include "foundation/text.h"
#include "run/json.h"

namespace qb::sim {

inline std::string JsonText(const std::u16string& text) {
    return Utf16ToUtf8(JsonQuote(text));
}

}  // namespace qb::sim
