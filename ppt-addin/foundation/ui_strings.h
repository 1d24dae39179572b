// The add-in's own texts (ribbon labels, dialogs, message boxes, the pane's
// title) in fourteen display languages, the choice of the display language,
// and the filling of placeholders. The messages of a run don't come from here.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "slides/host_variant.h"

namespace qb {

struct UiStringEntry {
    const char16_t* key;
    const char16_t* text;
};

// Every language's table holds these many keys, the same in the same order,
// sorted by UTF-16 code units.
inline constexpr std::size_t kUiStringCount = 87;

// The table of one language, chosen by its exact code.
struct UiStringTable {
    const UiStringEntry* entries = nullptr;  // null when the code is none of ours
    std::size_t count = 0;
};
UiStringTable FindUiStringTable(std::u16string_view language);

// The text of `key` in `language`; any other code than the fourteen, the
// empty one included, reads the English table. Null for an empty key or a
// key the table lacks.
const char16_t* LookupUiText(std::u16string_view language, std::u16string_view key);

// The text of `key` in the current display language, else in English, else
// empty.
std::u16string GetUiString(std::u16string_view key);

// Every "{name}" in `text` becomes `value`, left to right; the search goes on
// behind each inserted value, so a value holding the pattern stays as it is.
// An empty name leaves the text alone.
std::u16string FormatUiText(std::u16string_view text, std::u16string_view name,
                            std::u16string_view value);

// The display language: the user's saved choice whenever there is one, else
// a choice made once a process from the host's own display language
// (`application` may be null), else from the system's.
std::u16string ResolveUiLanguage(const host::HostRef& application);

// The user picked a language in the dialog: an automatic choice made earlier
// no longer holds.
void ClearUiLanguageIsAutomatic();

// Tests: back to the state of a fresh process ("en", nothing automatic).
void ResetUiLanguageForTesting();
// Tests: reads `entries` for `language` in place of its own table, to show
// what a table with a gap gives; null entries restore the built-in table.
void SetUiStringTableForTesting(std::u16string_view language, const UiStringEntry* entries,
                                std::size_t count);

}  // namespace qb
