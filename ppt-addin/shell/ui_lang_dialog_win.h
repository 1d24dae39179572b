// The display language dialog's window (see ui_lang_dialog.h for its rules).
#pragma once

#include <windows.h>

#include <string>

namespace qb::shell {

// Modal to `owner` (may be null: centred on the screen). True when a new
// language was saved; `language` then holds its code.
bool ShowUiLangDialogWindow(HWND owner, std::u16string& language);

}  // namespace qb::shell
