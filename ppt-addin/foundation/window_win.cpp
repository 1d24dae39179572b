#include "foundation/window_win.h"

namespace qb {

HINSTANCE OwnModule() {
    HMODULE module = nullptr;
    ::GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<LPCWSTR>(&OwnModule), &module);
    return module;
}

int WindowDpi(HWND window) {
    using GetDpiForWindowFn = UINT(WINAPI*)(HWND);
    static const auto getDpi = reinterpret_cast<GetDpiForWindowFn>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleW(L"user32.dll"), "GetDpiForWindow")));
    if (window && getDpi) {
        if (const UINT dpi = getDpi(window)) return static_cast<int>(dpi);
    }
    if (HDC screen = ::GetDC(nullptr)) {
        const int dpi = ::GetDeviceCaps(screen, LOGPIXELSX);
        ::ReleaseDC(nullptr, screen);
        if (dpi > 0) return dpi;
    }
    return 96;
}

}  // namespace qb
