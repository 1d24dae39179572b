// The editor's window through the system's own window calls.
#include <windows.h>

#include "charts/wps_chart_commit.h"

namespace qb {
namespace {

HWND AsWindow(std::intptr_t hwnd) {
    return reinterpret_cast<HWND>(hwnd);
}

class SystemWindows final : public EditorWindows {
  public:
    bool IsWindow(std::intptr_t hwnd) override { return ::IsWindow(AsWindow(hwnd)) != FALSE; }
    bool WindowProcessId(std::intptr_t hwnd, std::uint32_t& processId) override {
        DWORD pid = 0;
        if (::GetWindowThreadProcessId(AsWindow(hwnd), &pid) == 0) return false;
        processId = pid;
        return true;
    }
    std::uint32_t CurrentProcessId() override { return ::GetCurrentProcessId(); }
    bool ClassName(std::intptr_t hwnd, std::u16string& name) override {
        wchar_t buffer[32] = {};
        const int length = ::GetClassNameW(AsWindow(hwnd), buffer, 32);
        if (length <= 0) return false;
        name.assign(buffer, buffer + length);
        return true;
    }
    bool IsWindowVisible(std::intptr_t hwnd) override {
        return ::IsWindowVisible(AsWindow(hwnd)) != FALSE;
    }
    bool PostClose(std::intptr_t hwnd) override {
        return ::PostMessageW(AsWindow(hwnd), WM_CLOSE, 0, 0) != FALSE;
    }
};

}  // namespace

EditorWindows& SystemEditorWindows() {
    static SystemWindows windows;
    return windows;
}

}  // namespace qb
