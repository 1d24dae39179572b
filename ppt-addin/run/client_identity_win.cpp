// Client identity, Windows side: the GUID and the true system version.
#include <objbase.h>
#include <windows.h>

#include <cstdio>

#include "foundation/text.h"
#include "run/client_identity.h"

namespace qb::detail {

bool NewGuidText(std::u16string& text) {
    GUID guid{};
    if (FAILED(::CoCreateGuid(&guid))) return false;
    text = FormatGuid(guid.Data1, guid.Data2, guid.Data3, guid.Data4);
    return true;
}

std::u16string NativeOsString() {
    SYSTEM_INFO info{};
    ::GetNativeSystemInfo(&info);
    const char* arch = "x64";
    if (info.wProcessorArchitecture == 0) arch = "x86";
    if (info.wProcessorArchitecture == 12) arch = "arm64";

    // GetVersionExW answers what the manifest allows; RtlGetVersion the truth.
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof version;
    bool known = false;
    using RtlGetVersionFn = LONG(WINAPI*)(OSVERSIONINFOW*);
    if (const HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll")) {
        const auto rtlGetVersion = reinterpret_cast<RtlGetVersionFn>(
            reinterpret_cast<void*>(::GetProcAddress(ntdll, "RtlGetVersion")));
        known = rtlGetVersion && rtlGetVersion(&version) == 0;
    }
    if (!known) {
        version = OSVERSIONINFOW{};
        version.dwOSVersionInfoSize = sizeof version;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
        known = ::GetVersionExW(&version) != FALSE;
#pragma GCC diagnostic pop
    }
    char text[96];
    if (known) {
        std::snprintf(text, sizeof text, "Windows_NT %s %lu.%lu.%lu", arch,
                      static_cast<unsigned long>(version.dwMajorVersion),
                      static_cast<unsigned long>(version.dwMinorVersion),
                      static_cast<unsigned long>(version.dwBuildNumber));
    } else {
        std::snprintf(text, sizeof text, "Windows_NT %s", arch);
    }
    return AsciiToUtf16(text);
}

}  // namespace qb::detail
