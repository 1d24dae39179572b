// The recording view.
#include "sim/panel/recording_view.h"

#include <chrono>

#include "foundation/platform.h"

namespace qb::sim {
namespace {

std::uint64_t Now() {
    return platform::CurrentClock().TickCount64();
}

}  // namespace

void RecordingView::Navigate(const std::u16string& url) {
    navigations.push_back(url);
    if (onNavigate) onNavigate(url);
}

void RecordingView::ExecuteScript(const std::u16string& script) {
    scripts.push_back(script);
    if (onScript) onScript(script);
}

void RecordingView::PostWebMessageAsJson(const std::u16string& json) {
    messages.push_back(json);
    if (onMessage) onMessage(json);
}

bool RecordingView::ReadSource(std::u16string& url) {
    if (!sourceReadable) return false;
    url = source;
    return true;
}

HRESULT RecordingView::CloseView() {
    closed = true;
    return S_OK;
}

bool RecordingView::PostJob(std::function<void()> job) {
    {
        std::lock_guard<std::mutex> hold(lock_);
        if (destroyed_) {
            ++dropped_;
            return false;
        }
        jobs_.push_back(std::move(job));
    }
    posted_.notify_all();
    return true;
}

bool RecordingView::SetTimer(PaneTimer timer, std::uint32_t periodMs) {
    if (onSetTimer) onSetTimer(timer);
    if (failingTimers.count(timer)) return false;
    timers_[timer] = Timer{periodMs, Now() + periodMs};
    return true;
}

void RecordingView::KillTimer(PaneTimer timer) {
    timers_.erase(timer);
}

void RecordingView::ShowMessageBox(const std::u16string& text, const std::u16string& title,
                                   std::uint32_t flags) {
    boxes.push_back(Box{text, title, flags});
}

bool RecordingView::SetClipboardText(const std::u16string& text) {
    clipboard = text;
    return true;
}

std::size_t RecordingView::RunPendingJobs() {
    std::size_t ran = 0;
    for (;;) {
        std::function<void()> job;
        {
            std::lock_guard<std::mutex> hold(lock_);
            if (jobs_.empty()) return ran;
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        job();
        ++ran;
    }
}

bool RecordingView::WaitForJob(std::uint32_t realMs) {
    std::unique_lock<std::mutex> hold(lock_);
    return posted_.wait_for(hold, std::chrono::milliseconds(realMs),
                            [this] { return !jobs_.empty(); });
}

std::size_t RecordingView::QueuedJobs() const {
    std::lock_guard<std::mutex> hold(lock_);
    return jobs_.size();
}

std::size_t RecordingView::FireDueTimers() {
    std::size_t fired = 0;
    for (PaneTimer id : {PaneTimer::PaneTick, PaneTimer::DeferredStart, PaneTimer::RunTick}) {
        const auto found = timers_.find(id);
        if (found == timers_.end() || found->second.due > Now()) continue;
        found->second.due = Now() + found->second.period;
        ++fired;
        if (timerSink_) timerSink_(id);
    }
    return fired;
}

std::uint64_t RecordingView::NextTimerDue() const {
    std::uint64_t next = 0;
    for (const auto& entry : timers_) {
        if (next == 0 || entry.second.due < next) next = entry.second.due;
    }
    return next;
}

void RecordingView::DestroyWindow() {
    std::lock_guard<std::mutex> hold(lock_);
    destroyed_ = true;
    dropped_ += jobs_.size();
    jobs_.clear();
    timers_.clear();
}

std::size_t RecordingView::DroppedJobs() const {
    std::lock_guard<std::mutex> hold(lock_);
    return dropped_;
}

PumpResult RecordingView::PumpMessages(std::uint32_t waitMs) {
    ++pumps;
    if (pumpAnswer != PumpResult::Pumped) return pumpAnswer;
    if (RunPendingJobs() + FireDueTimers() > 0) return PumpResult::Pumped;
    if (onIdle) {
        onIdle(waitMs);
    } else {
        platform::CurrentClock().Sleep(waitMs);
    }
    return PumpResult::Pumped;
}

}  // namespace qb::sim
