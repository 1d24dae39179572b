// Two Windows facts several windows of the add-in need: the module that
// holds this code (its window classes and resources live there, not in the
// host's executable), and the DPI a window is drawn at.
#pragma once

#include <windows.h>

namespace qb {

HINSTANCE OwnModule();

// GetDpiForWindow of `window` (looked up at run time: a direct call would
// keep the DLL from loading on systems older than the function), else the
// screen's, else 96.
int WindowDpi(HWND window);

}  // namespace qb
