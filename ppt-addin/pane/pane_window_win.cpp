#include "pane/pane_window_win.h"

#include <cstring>
#include <memory>
#include <new>

#include "foundation/trace.h"
#include "foundation/wide_win.h"
#include "foundation/window_win.h"

namespace qb {

namespace {

// The record a job travels in through the window's queue.
struct JobRecord {
    std::function<void()> job;
};

bool RegisterPaneClass(HINSTANCE instance, WNDPROC procedure) {
    WNDCLASSEXW existing{};
    existing.cbSize = sizeof existing;
    if (::GetClassInfoExW(instance, kPaneWindowClass, &existing)) return true;
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    windowClass.style = CS_HREDRAW | CS_VREDRAW;
    windowClass.lpfnWndProc = procedure;
    windowClass.hInstance = instance;
    windowClass.hCursor = ::LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
    windowClass.hbrBackground = reinterpret_cast<HBRUSH>(static_cast<INT_PTR>(COLOR_WINDOW + 1));
    windowClass.lpszClassName = kPaneWindowClass;
    return ::RegisterClassExW(&windowClass) != 0;
}

int CALLBACK CollectFamily(const LOGFONTW* font, const TEXTMETRICW*, DWORD, LPARAM param) {
    auto* families = reinterpret_cast<std::vector<std::u16string>*>(param);
    families->push_back(FromWide(font->lfFaceName));
    return 1;
}

}  // namespace

PaneWindow::PaneWindow(Events events) : events_(std::move(events)) {}

PaneWindow::~PaneWindow() {
    if (IsValid()) ::DestroyWindow(hwnd_);
}

HWND PaneWindow::Create(HWND parent, const RECT& rect) {
    const HINSTANCE instance = OwnModule();
    if (!RegisterPaneClass(instance, &PaneWindow::WindowProc)) return nullptr;
    // WM_CREATE arrives inside CreateWindowEx: the window must know its
    // owner before that.
    return ::CreateWindowExW(0, kPaneWindowClass, L"", kPaneWindowStyle, rect.left, rect.top,
                             rect.right - rect.left, rect.bottom - rect.top, parent, nullptr,
                             instance, this);
}

bool PaneWindow::PostJob(std::function<void()> job) {
    auto* record = new (std::nothrow) JobRecord{std::move(job)};
    if (!record) return false;
    const HWND hwnd = hwnd_;
    if (hwnd && ::IsWindow(hwnd) &&
        ::PostMessageW(hwnd, kPaneJobMessage, 0, reinterpret_cast<LPARAM>(record))) {
        return true;
    }
    delete record;
    return false;
}

bool PaneWindow::SetTimer(PaneTimer timer, std::uint32_t periodMs) {
    return IsValid() && ::SetTimer(hwnd_, static_cast<UINT_PTR>(timer), periodMs, nullptr) != 0;
}

void PaneWindow::KillTimer(PaneTimer timer) {
    if (IsValid()) ::KillTimer(hwnd_, static_cast<UINT_PTR>(timer));
}

void PaneWindow::ShowMessageBox(const std::u16string& text, const std::u16string& title,
                                std::uint32_t flags) {
    ::MessageBoxW(IsValid() ? hwnd_ : nullptr, AsWide(text), AsWide(title), flags);
}

bool PaneWindow::SetClipboardText(const std::u16string& text) {
    const std::size_t bytes = (text.size() + 1) * sizeof(wchar_t);
    HGLOBAL block = ::GlobalAlloc(GMEM_MOVEABLE, bytes);
    if (!block) return false;
    void* data = ::GlobalLock(block);
    if (!data) {
        ::GlobalFree(block);
        return false;
    }
    std::memcpy(data, text.c_str(), bytes);
    ::GlobalUnlock(block);
    if (!::OpenClipboard(IsValid() ? hwnd_ : nullptr)) {
        ::GlobalFree(block);
        return false;
    }
    // Once set, the block belongs to the clipboard.
    const bool placed = ::EmptyClipboard() && ::SetClipboardData(CF_UNICODETEXT, block);
    if (!placed) ::GlobalFree(block);
    ::CloseClipboard();
    return placed;
}

std::vector<std::u16string> PaneWindow::ListFontFamilies() {
    std::vector<std::u16string> families;
    HDC dc = ::GetDC(nullptr);
    if (!dc) return families;
    LOGFONTW font{};
    font.lfCharSet = DEFAULT_CHARSET;
    ::EnumFontFamiliesExW(dc, &font, &CollectFamily, reinterpret_cast<LPARAM>(&families), 0);
    ::ReleaseDC(nullptr, dc);
    return families;
}

PumpResult PaneWindow::PumpMessages(std::uint32_t waitMs) {
    const DWORD waited =
        ::MsgWaitForMultipleObjectsEx(0, nullptr, waitMs, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
    if (waited == WAIT_FAILED) return PumpResult::Failed;
    MSG message;
    while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        if (message.message == WM_QUIT) {
            // The host's own loop must still see it.
            ::PostQuitMessage(static_cast<int>(message.wParam));
            return PumpResult::Quit;
        }
        ::TranslateMessage(&message);
        ::DispatchMessageW(&message);
    }
    return PumpResult::Pumped;
}

LRESULT CALLBACK PaneWindow::WindowProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    // No exception may leave a window procedure: on i686 it ends the host.
    try {
        if (message == WM_NCCREATE) {
            auto* create = reinterpret_cast<const CREATESTRUCTW*>(lParam);
            auto* window = static_cast<PaneWindow*>(create->lpCreateParams);
            window->hwnd_ = hwnd;
            ::SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(window));
        }
        auto* window = reinterpret_cast<PaneWindow*>(::GetWindowLongPtrW(hwnd, GWLP_USERDATA));
        if (window) return window->OnMessage(message, wParam, lParam);
    } catch (...) {
        Trace(u"CPptPane exception in a window message\r\n");
        return 0;
    }
    return ::DefWindowProcW(hwnd, message, wParam, lParam);
}

LRESULT PaneWindow::OnMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_CREATE:
            if (events_.created) events_.created();
            return 0;
        case WM_SIZE:
            if (events_.sized) events_.sized(LOWORD(lParam), HIWORD(lParam));
            return 0;
        case WM_TIMER:
            if (events_.timer) events_.timer(static_cast<PaneTimer>(wParam));
            return 0;
        case kPaneJobMessage:
            if (auto* record = reinterpret_cast<JobRecord*>(lParam)) {
                std::unique_ptr<JobRecord> owned(record);
                if (owned->job) owned->job();
            }
            return 0;
        case WM_DESTROY:
            for (PaneTimer timer :
                 {PaneTimer::PaneTick, PaneTimer::DeferredStart, PaneTimer::RunTick}) {
                ::KillTimer(hwnd_, static_cast<UINT_PTR>(timer));
            }
            if (events_.destroyed) events_.destroyed();
            DropQueuedJobs();
            return 0;
        case WM_NCDESTROY: {
            const HWND hwnd = hwnd_;
            ::SetWindowLongPtrW(hwnd, GWLP_USERDATA, 0);
            hwnd_ = nullptr;
            return ::DefWindowProcW(hwnd, message, wParam, lParam);
        }
        default:
            return ::DefWindowProcW(hwnd_, message, wParam, lParam);
    }
}

void PaneWindow::DropQueuedJobs() {
    MSG message;
    while (::PeekMessageW(&message, hwnd_, kPaneJobMessage, kPaneJobMessage, PM_REMOVE)) {
        delete reinterpret_cast<JobRecord*>(message.lParam);
    }
}

}  // namespace qb
