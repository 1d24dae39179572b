// The Linux side of the pane's view seam: a view that records what the pane
// shows and sends, a job queue that stands for the window's messages,
// timers that fire by the clock in force, and a pump that a test or the
// stand-in page drives.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "pane/pane_view.h"

namespace qb::sim {

class RecordingView : public PaneView {
  public:
    // --- The seam --------------------------------------------------------
    void Navigate(const std::u16string& url) override;
    void ExecuteScript(const std::u16string& script) override;
    void PostWebMessageAsJson(const std::u16string& json) override;
    bool ReadSource(std::u16string& url) override;
    HRESULT CloseView() override;
    bool PostJob(std::function<void()> job) override;
    bool SetTimer(PaneTimer timer, std::uint32_t periodMs) override;
    void KillTimer(PaneTimer timer) override;
    void ShowMessageBox(const std::u16string& text, const std::u16string& title,
                        std::uint32_t flags) override;
    bool SetClipboardText(const std::u16string& text) override;
    std::vector<std::u16string> ListFontFamilies() override { return fonts; }
    PumpResult PumpMessages(std::uint32_t waitMs) override;

    // --- Driving ---------------------------------------------------------
    // Where the timers go (the pane's OnTimer).
    void SetTimerSink(std::function<void(PaneTimer)> sink) { timerSink_ = std::move(sink); }
    // Runs queued jobs until none is left, also those they post; the count.
    std::size_t RunPendingJobs();
    // Waits up to `realMs` of real time for a job from another thread.
    bool WaitForJob(std::uint32_t realMs);
    std::size_t QueuedJobs() const;
    // Fires each armed timer whose time has come, once; the count.
    std::size_t FireDueTimers();
    bool TimerArmed(PaneTimer timer) const { return timers_.count(timer) != 0; }
    // The tick of the next armed timer, or 0 when none is armed.
    std::uint64_t NextTimerDue() const;
    // The window is destroyed: queued jobs are dropped unrun, later ones refused.
    void DestroyWindow();
    std::size_t DroppedJobs() const;

    // --- What the pane did, and how the platform answers -----------------
    std::vector<std::u16string> navigations;
    std::vector<std::u16string> scripts;
    std::vector<std::u16string> messages;
    struct Box {
        std::u16string text, title;
        std::uint32_t flags = 0;
    };
    std::vector<Box> boxes;
    std::u16string clipboard;
    std::u16string source;
    bool sourceReadable = true;
    bool closed = false;
    std::vector<std::u16string> fonts;
    std::set<PaneTimer> failingTimers;  // SetTimer answers false for these
    // Called as a timer is set, before SetTimer answers.
    std::function<void(PaneTimer)> onSetTimer;
    PumpResult pumpAnswer = PumpResult::Pumped;
    std::size_t pumps = 0;
    // Outbound traffic as it happens, for the stand-in page.
    std::function<void(const std::u16string&)> onNavigate, onScript, onMessage;
    // The pump found nothing to do and may let `waitMs` pass; unset: the
    // clock in force sleeps that long (a hand clock just moves).
    std::function<void(std::uint32_t waitMs)> onIdle;

  private:
    struct Timer {
        std::uint32_t period = 0;
        std::uint64_t due = 0;
    };
    mutable std::mutex lock_;
    std::condition_variable posted_;
    std::deque<std::function<void()>> jobs_;
    bool destroyed_ = false;
    std::size_t dropped_ = 0;
    std::map<PaneTimer, Timer> timers_;
    std::function<void(PaneTimer)> timerSink_;
};

}  // namespace qb::sim
