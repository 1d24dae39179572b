// The display language dialog: its layout at a DPI and what choosing a row
// does. The window itself is ui_lang_dialog_win.cpp.
#pragma once

#include <cstdint>
#include <string>

namespace qb {

struct DialogRect {
    std::int32_t left = 0, top = 0, right = 0, bottom = 0;
};

struct UiLangDialogLayout {
    std::int32_t width = 0, height = 0;
    DialogRect title, body, list, ok, cancel;
    std::int32_t rowHeight = 0;
    std::int32_t cornerRadius = 0;
};

// Every measure at `dpi` (96 when not above 0). `bodyHeight` is the body
// text as measured in its font at that DPI; below 1 it counts as 40 at 96.
UiLangDialogLayout ComputeUiLangDialogLayout(std::int32_t dpi, std::int32_t bodyHeight);

enum class UiLangChoice {
    StayOpen,    // no row, or a save that failed: the dialog stays
    Unchanged,   // the language in use: closes, nothing written
    SaveFailed,  // the user is told, the dialog stays
    Changed,     // saved; the caller refreshes ribbon and panels
};

// Applies the list's row `row` against the language in use; `chosen` gets
// the row's code when it was saved.
UiLangChoice ApplyUiLangChoice(std::u16string_view current, std::int32_t row,
                               std::u16string& chosen);

}  // namespace qb
