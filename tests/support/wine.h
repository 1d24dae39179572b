// Whether the Windows test executable runs under Wine, for the rare place
// where Wine is known to differ from Windows.
#pragma once

#if defined(_WIN32)
#include <windows.h>
#endif

namespace qb::test {

inline bool RunningUnderWine() {
#if defined(_WIN32)
    const HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    return ntdll && ::GetProcAddress(ntdll, "wine_get_version") != nullptr;
#else
    return false;
#endif
}

}  // namespace qb::test
