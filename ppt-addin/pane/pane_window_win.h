// The pane's native window on Windows: the window half of the pane's view
// seam. It runs jobs posted from any thread on the host's thread in posting
// order, routes timers, size and life to the pane, shows message boxes,
// fills the clipboard, lists fonts and pumps the thread's messages. The web
// view lives inside this window and is the other half of the seam.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "pane/pane_view.h"

namespace qb {

inline constexpr UINT kPaneJobMessage = WM_APP + 0x30;  // 0x8030
inline constexpr wchar_t kPaneWindowClass[] = L"QuillbrookPptPaneWnd";
inline constexpr DWORD kPaneWindowStyle = WS_CHILD | WS_VISIBLE | WS_CLIPCHILDREN | WS_CLIPSIBLINGS;

class PaneWindow {
  public:
    // What the window tells its pane; each runs on the host's thread.
    struct Events {
        std::function<void()> created;
        std::function<void(PaneTimer)> timer;
        std::function<void(int width, int height)> sized;
        std::function<void()> destroyed;
    };

    explicit PaneWindow(Events events);
    ~PaneWindow();
    PaneWindow(const PaneWindow&) = delete;
    PaneWindow& operator=(const PaneWindow&) = delete;

    // A child of `parent`; null when it can't be made.
    HWND Create(HWND parent, const RECT& rect);
    HWND Handle() const { return hwnd_; }
    bool IsValid() const { return hwnd_ && ::IsWindow(hwnd_); }

    // --- The window half of the view seam -----------------------------------
    bool PostJob(std::function<void()> job);
    bool SetTimer(PaneTimer timer, std::uint32_t periodMs);
    void KillTimer(PaneTimer timer);
    void ShowMessageBox(const std::u16string& text, const std::u16string& title,
                        std::uint32_t flags);
    bool SetClipboardText(const std::u16string& text);
    std::vector<std::u16string> ListFontFamilies();
    PumpResult PumpMessages(std::uint32_t waitMs);

  private:
    static LRESULT CALLBACK WindowProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
    LRESULT OnMessage(UINT message, WPARAM wParam, LPARAM lParam);
    void DropQueuedJobs();

    Events events_;
    HWND hwnd_ = nullptr;
};

}  // namespace qb
