// The pane's view when the page lives in an ordinary browser: what the pane
// does to its view (navigate, run a script, post a message) becomes a
// numbered event that the browser fetches, and what the browser reports
// (the page's messages, loads) comes back as jobs of the host's thread.
// The job queue and the timers are the recording view's; here they run on
// the program's host thread in real time.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "sim/panel/recording_view.h"

namespace qb::sim {

class BrowserView : public RecordingView {
  public:
    // --- The seam's view half; host's thread -----------------------------
    void Navigate(const std::u16string& url) override;
    void ExecuteScript(const std::u16string& script) override;
    void PostWebMessageAsJson(const std::u16string& json) override;
    bool ReadSource(std::u16string& url) override;
    HRESULT CloseView() override;
    void ShowMessageBox(const std::u16string& text, const std::u16string& title,
                        std::uint32_t flags) override;
    bool SetClipboardText(const std::u16string& text) override;
    std::vector<std::u16string> ListFontFamilies() override;
    PumpResult PumpMessages(std::uint32_t waitMs) override;

    // --- The host's thread -----------------------------------------------
    // Called as the pane navigates, before the browser hears of it.
    void SetNavigationSink(std::function<void()> sink) { navigationSink_ = std::move(sink); }
    // Sleeps until a job is posted, the next timer is due or `maxMs` pass.
    void WaitForWork(std::uint32_t maxMs);
    // What the browser says its page is, after a load.
    void SetSource(std::u16string url) { source_ = std::move(url); }

    // --- The browser's side; any thread ----------------------------------
    // Adds an event of the program's own (a JSON object's members, without
    // braces, after "seq" and "kind").
    void PushEvent(const std::string& kind, const std::string& members);
    // A browser window takes the view over; earlier ones are told they are
    // detached. The new client's id, and the last event number so far.
    std::uint64_t Attach(std::uint64_t& lastSeq);
    bool IsAttached(std::uint64_t client);
    // Events after `after` as a JSON array text, waiting up to `waitMs` for
    // one; false when `client` is no longer the one attached.
    bool EventsAfter(std::uint64_t client, std::uint64_t after, std::uint32_t waitMs,
                     std::string& array);
    // Wakes waiting readers, for good.
    void StopEvents();

  private:
    struct Event {
        std::uint64_t seq = 0;
        std::string json;
    };

    std::function<void()> navigationSink_;
    std::u16string source_;

    std::mutex eventsLock_;
    std::condition_variable eventsAdded_;
    std::deque<Event> events_;
    std::uint64_t lastSeq_ = 0;
    std::uint64_t client_ = 0;
    bool stopped_ = false;
};

}  // namespace qb::sim
