// The message-only windows that carry the stand-in's completions.
#include "sim/webview/host_thread_win.h"

#include <map>
#include <memory>
#include <mutex>

#include "foundation/window_win.h"

namespace qb::sim::webview {
namespace {

constexpr UINT kJobMessage = WM_APP + 0x57;
constexpr wchar_t kClassName[] = L"QbBrowserStandInThread";

using Job = std::function<void()>;

std::mutex& WindowsLock() {
    static std::mutex lock;
    return lock;
}

// Thread id to its window.
std::map<DWORD, HWND>& Windows() {
    static std::map<DWORD, HWND> windows;
    return windows;
}

LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == kJobMessage) {
        std::unique_ptr<Job> job(reinterpret_cast<Job*>(lParam));
        try {
            if (job && *job) (*job)();
        } catch (...) {
            // Nothing may cross into the host's loop; the job's own record
            // of what it did is all there is.
        }
        return 0;
    }
    if (message == WM_DESTROY) {
        {
            std::lock_guard<std::mutex> hold(WindowsLock());
            const auto found = Windows().find(::GetCurrentThreadId());
            if (found != Windows().end() && found->second == window) Windows().erase(found);
        }
        MSG queued;
        while (::PeekMessageW(&queued, window, kJobMessage, kJobMessage, PM_REMOVE)) {
            delete reinterpret_cast<Job*>(queued.lParam);
        }
        return 0;
    }
    return ::DefWindowProcW(window, message, wParam, lParam);
}

bool RegisterClassOnce() {
    static const bool registered = [] {
        WNDCLASSEXW windowClass{};
        windowClass.cbSize = sizeof(windowClass);
        windowClass.lpfnWndProc = &WindowProc;
        windowClass.hInstance = OwnModule();
        windowClass.lpszClassName = kClassName;
        return ::RegisterClassExW(&windowClass) != 0 ||
               ::GetLastError() == ERROR_CLASS_ALREADY_EXISTS;
    }();
    return registered;
}

}  // namespace

HWND HostThreadWindow() {
    const DWORD thread = ::GetCurrentThreadId();
    {
        std::lock_guard<std::mutex> hold(WindowsLock());
        const auto found = Windows().find(thread);
        if (found != Windows().end()) {
            if (::IsWindow(found->second)) return found->second;
            Windows().erase(found);
        }
    }
    if (!RegisterClassOnce()) return nullptr;
    HWND window = ::CreateWindowExW(0, kClassName, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                    OwnModule(), nullptr);
    if (!window) return nullptr;
    HMODULE pinned = nullptr;
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                         reinterpret_cast<LPCWSTR>(&WindowProc), &pinned);
    std::lock_guard<std::mutex> hold(WindowsLock());
    Windows()[thread] = window;
    return window;
}

bool PostToHostThread(HWND window, std::function<void()> job) {
    if (!window || !::IsWindow(window)) return false;
    auto record = std::make_unique<Job>(std::move(job));
    if (!::PostMessageW(window, kJobMessage, 0, reinterpret_cast<LPARAM>(record.get()))) {
        return false;
    }
    record.release();
    return true;
}

}  // namespace qb::sim::webview
