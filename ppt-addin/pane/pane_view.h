// The pane's view and window as the portable pane sees them: the web view
// (navigate, run a script, post a message, read the source), and the
// window (jobs posted to the host's thread, timers, message box,
// clipboard, fonts, the message pump). On Windows the control's window
// and the browser view stand behind it; on Linux a recording view.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "foundation/hresult.h"

namespace qb {

// The pane window's timers, by their window timer ids.
enum class PaneTimer : std::uint32_t { PaneTick = 1, DeferredStart = 2, RunTick = 3 };

inline constexpr std::uint32_t kPaneTickMs = 300;
inline constexpr std::uint32_t kDeferredStartMs = 150;
inline constexpr std::uint32_t kRunTickMs = 120;

// How one turn of the host thread's message pump ended.
enum class PumpResult {
    Pumped,  // messages were dispatched, or the wait ran out
    Quit,    // the thread is told to end; the quit stays queued for the host's loop
    Failed,  // the wait itself failed
};

class PaneView {
  public:
    virtual ~PaneView() = default;

    // --- The web view; host's thread --------------------------------------
    virtual void Navigate(const std::u16string& url) = 0;
    virtual void ExecuteScript(const std::u16string& script) = 0;
    virtual void PostWebMessageAsJson(const std::u16string& json) = 0;
    // The view's present URL; false when it can't say.
    [[nodiscard]] virtual bool ReadSource(std::u16string& url) = 0;
    // Closes the view for good; the result of the view's own close.
    virtual HRESULT CloseView() = 0;

    // --- The window -------------------------------------------------------
    // Any thread. The job runs on the host's thread, in posting order; false
    // when the window is gone, and the job is dropped unrun.
    virtual bool PostJob(std::function<void()> job) = 0;
    // Host's thread. The window calls the pane's OnTimer with the id.
    [[nodiscard]] virtual bool SetTimer(PaneTimer timer, std::uint32_t periodMs) = 0;
    virtual void KillTimer(PaneTimer timer) = 0;
    virtual void ShowMessageBox(const std::u16string& text, const std::u16string& title,
                                std::uint32_t flags) = 0;
    [[nodiscard]] virtual bool SetClipboardText(const std::u16string& text) = 0;
    // The system's font families in enumeration order, as enumerated.
    virtual std::vector<std::u16string> ListFontFamilies() = 0;
    // Host's thread: dispatches what is waiting in the thread's queue,
    // waiting at most `waitMs` for something to arrive.
    virtual PumpResult PumpMessages(std::uint32_t waitMs) = 0;
};

}  // namespace qb
