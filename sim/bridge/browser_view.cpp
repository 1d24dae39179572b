// The browser view.
#include "sim/bridge/browser_view.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "sim/bridge/json_text.h"

namespace qb::sim {
namespace {

// Older events go once this many wait: a browser that far behind reloads.
constexpr std::size_t kKeptEvents = 20000;

std::uint64_t Now() {
    return platform::CurrentClock().TickCount64();
}

}  // namespace

void BrowserView::Navigate(const std::u16string& url) {
    if (navigationSink_) navigationSink_();
    PushEvent("navigate", "\"url\":" + JsonText(url));
}

void BrowserView::ExecuteScript(const std::u16string& script) {
    PushEvent("script", "\"code\":" + JsonText(script));
}

void BrowserView::PostWebMessageAsJson(const std::u16string& json) {
    // Sent as text: the page's listener gets it parsed, as a view gives it.
    PushEvent("message", "\"json\":" + JsonText(json));
}

bool BrowserView::ReadSource(std::u16string& url) {
    url = source_;
    return !source_.empty();
}

HRESULT BrowserView::CloseView() {
    PushEvent("closed", "\"closed\":true");
    return S_OK;
}

void BrowserView::ShowMessageBox(const std::u16string& text, const std::u16string& title,
                                 std::uint32_t) {
    std::fprintf(stderr, "qb-panel: %s: %s\n", Utf16ToUtf8(title).c_str(),
                 Utf16ToUtf8(text).c_str());
    PushEvent("box", "\"title\":" + JsonText(title) + ",\"text\":" + JsonText(text));
}

bool BrowserView::SetClipboardText(const std::u16string& text) {
    PushEvent("clipboard", "\"text\":" + JsonText(text));
    return true;
}

std::vector<std::u16string> BrowserView::ListFontFamilies() {
    // The system's families as fontconfig enumerates them; the first name
    // of each line is the family's own.
    std::vector<std::u16string> fonts;
    if (FILE* list = popen("fc-list : family 2>/dev/null", "r")) {
        char line[512];
        while (std::fgets(line, sizeof line, list)) {
            std::string name = line;
            name = name.substr(0, name.find_first_of(",\n"));
            if (!name.empty()) fonts.push_back(Utf8ToUtf16(name));
        }
        pclose(list);
    }
    return fonts;
}

PumpResult BrowserView::PumpMessages(std::uint32_t waitMs) {
    if (RunPendingJobs() + FireDueTimers() > 0) return PumpResult::Pumped;
    WaitForWork(waitMs);
    return PumpResult::Pumped;
}

void BrowserView::WaitForWork(std::uint32_t maxMs) {
    std::uint64_t wait = maxMs;
    const std::uint64_t now = Now();
    const std::uint64_t due = NextTimerDue();
    if (due != 0) wait = std::min<std::uint64_t>(wait, due > now ? due - now : 0);
    (void)WaitForJob(static_cast<std::uint32_t>(wait));
}

void BrowserView::PushEvent(const std::string& kind, const std::string& members) {
    {
        std::lock_guard<std::mutex> hold(eventsLock_);
        const std::uint64_t seq = ++lastSeq_;
        events_.push_back({seq, "{\"seq\":" + std::to_string(seq) + ",\"kind\":\"" + kind + "\"," +
                                    members + "}"});
        if (events_.size() > kKeptEvents) events_.pop_front();
    }
    eventsAdded_.notify_all();
}

std::uint64_t BrowserView::Attach(std::uint64_t& lastSeq) {
    std::lock_guard<std::mutex> hold(eventsLock_);
    lastSeq = lastSeq_;
    ++client_;
    eventsAdded_.notify_all();  // the one before sees it is detached
    return client_;
}

bool BrowserView::IsAttached(std::uint64_t client) {
    std::lock_guard<std::mutex> hold(eventsLock_);
    return client == client_;
}

bool BrowserView::EventsAfter(std::uint64_t client, std::uint64_t after, std::uint32_t waitMs,
                              std::string& array) {
    std::unique_lock<std::mutex> hold(eventsLock_);
    eventsAdded_.wait_for(hold, std::chrono::milliseconds(waitMs),
                          [&] { return stopped_ || client != client_ || lastSeq_ > after; });
    if (client != client_) return false;
    array = "[";
    for (const Event& event : events_) {
        if (event.seq <= after) continue;
        if (array.size() > 1) array += ",";
        array += event.json;
    }
    array += "]";
    return true;
}

void BrowserView::StopEvents() {
    {
        std::lock_guard<std::mutex> hold(eventsLock_);
        stopped_ = true;
    }
    eventsAdded_.notify_all();
}

}  // namespace qb::sim
