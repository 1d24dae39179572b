// The stand-in web panel.
#include "sim/panel/scripted_page.h"

#include <algorithm>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "run/json.h"
#include "sim/panel/page_service.h"

namespace qb::sim {
namespace {

// How long the page waits in real time for the worker's next message
// before it lets the clock move on.
constexpr std::uint32_t kRealWaitMs = 5;

// How long a pump waits in real time for a service answer the page awaits.
constexpr std::uint32_t kServiceWaitMs = 50;

}  // namespace

ScriptedPage::~ScriptedPage() {
    for (std::thread& thread : serviceThreads_)
        thread.join();
}

void ScriptedPage::AskService(std::u16string requestJson, bool terminology) {
    ++serviceCalls_;
    serviceThreads_.emplace_back(
        [this, json = std::move(requestJson), terminology, token = token_] {
            std::u16string text = PageServiceAnswer(json, terminology, token);
            view_.PostJob([this, text = std::move(text)] { pane_.HandleWebMessage(text); });
            --serviceCalls_;
        });
}

ScriptedPage::ScriptedPage(SimHost& host, PptPane& pane, RecordingView& view)
    : host_(host), pane_(pane), view_(view) {
    view_.onNavigate = [this](const std::u16string& url) { OnNavigate(url); };
    view_.onMessage = [this](const std::u16string& json) { OnMessage(json); };
    view_.onScript = [this](const std::u16string& script) { OnScript(script); };
    view_.SetTimerSink([this](PaneTimer timer) { pane_.OnTimer(timer); });
    // A pump of the host's thread with nothing to do lets time pass, up to
    // the next timer or the next answer the page has scheduled.
    view_.onIdle = [this](std::uint32_t waitMs) {
        platform::Clock& clock = platform::CurrentClock();
        const std::uint64_t now = clock.TickCount64();
        std::uint64_t wait = waitMs;
        const std::uint64_t timer = view_.NextTimerDue();
        if (timer != 0) wait = std::min<std::uint64_t>(wait, timer > now ? timer - now : 0);
        for (const Scheduled& item : scheduled_) {
            wait = std::min<std::uint64_t>(wait, item.due > now ? item.due - now : 0);
        }
        if (wait > 0) clock.Sleep(static_cast<std::uint32_t>(wait));
        DeliverDue();
    };
}

std::u16string ScriptedPage::PseudoTranslation(const std::u16string& text,
                                               const std::u16string& targetLang) {
    return u"[" + targetLang + u"] " + text;
}

void ScriptedPage::QueueBatchReplies(std::vector<PageReply> replies) {
    batchReplies_.insert(batchReplies_.end(), replies.begin(), replies.end());
}

void ScriptedPage::QueueTerminologyReplies(std::vector<PageReply> replies) {
    terminologyReplies_.insert(terminologyReplies_.end(), replies.begin(), replies.end());
}

void ScriptedPage::Send(const std::u16string& json) {
    // A web message reaches the pane as a message of the host's thread.
    view_.PostJob([this, json] { pane_.HandleWebMessage(json); });
}

void ScriptedPage::SignIn(const std::u16string& token) {
    token_ = token;
    Send(JsonObjectWriter()
             .String(u"action", u"setAccessToken")
             .String(u"accessToken", token)
             .Finish());
}

void ScriptedPage::Deliver(std::uint32_t delayMs, std::u16string json) {
    if (delayMs == 0) {
        Send(json);
        return;
    }
    scheduled_.push_back({platform::CurrentClock().TickCount64() + delayMs, std::move(json)});
}

std::size_t ScriptedPage::DeliverDue() {
    const std::uint64_t now = platform::CurrentClock().TickCount64();
    std::size_t delivered = 0;
    for (std::size_t i = 0; i < scheduled_.size();) {
        if (scheduled_[i].due <= now) {
            const std::u16string json = std::move(scheduled_[i].json);
            scheduled_.erase(scheduled_.begin() + static_cast<std::ptrdiff_t>(i));
            pane_.HandleWebMessage(json);
            ++delivered;
        } else {
            ++i;
        }
    }
    return delivered;
}

void ScriptedPage::OnNavigate(const std::u16string& url) {
    loadedUrl_ = url;
    view_.PostJob([this] { pane_.OnNavigationStarting(); });
    view_.PostJob([this, url] {
        if (navigationSucceeds) view_.source = url;
        pane_.OnNavigationCompleted(navigationSucceeds);
    });
}

void ScriptedPage::Reply(const std::u16string& requestId, const PageReply& reply,
                         const std::u16string& answer, const std::u16string& wrongIdAnswer) {
    const std::uint64_t now = platform::CurrentClock().TickCount64();
    switch (reply.kind) {
        case PageReply::Kind::Silent:
            held_[requestId] = now;
            return;
        case PageReply::Kind::WrongId:
            held_[requestId] = now;
            Deliver(reply.delayMs, wrongIdAnswer);
            return;
        case PageReply::Kind::Twice:
            Deliver(reply.delayMs, answer);
            Deliver(reply.delayMs, answer);
            break;
        default:
            Deliver(reply.delayMs, answer);
    }
    if (reply.delayMs > 0) held_[requestId] = now;
}

void ScriptedPage::OnMessage(const std::u16string& json) {
    const std::u16string action = ReadJsonString(json, u"action");
    const std::u16string requestId = ReadJsonString(json, u"requestId");
    if (action == u"translateBatchRequest") {
        PageRequest request{requestId, json, ReadJsonStringArray(json, u"texts")};
        batchRequests_.push_back(request);
        if (onBatchRequest) onBatchRequest(request);
        PageReply reply = defaultBatchReply;
        if (!batchReplies_.empty()) {
            reply = batchReplies_.front();
            batchReplies_.pop_front();
        }
        if (useService_ && reply.kind == PageReply::Kind::Answer && reply.delayMs == 0 &&
            reply.dropTranslations == 0) {
            AskService(json, false);
            return;
        }
        const auto answerFor = [&](const std::u16string& id) {
            JsonObjectWriter answer;
            answer.String(u"action", u"translateBatchResult").String(u"requestId", id);
            if (reply.kind == PageReply::Kind::Fail) {
                return answer.Bool(u"ok", false)
                    .String(u"code", reply.code)
                    .String(u"message", reply.message)
                    .Finish();
            }
            const std::u16string targetLang = ReadJsonString(json, u"targetLang");
            std::vector<std::u16string> translations;
            for (const std::u16string& text : request.texts)
                translations.push_back(translator_(text, targetLang));
            translations.resize(translations.size() -
                                std::min(reply.dropTranslations, translations.size()));
            return answer.Bool(u"ok", true)
                .Raw(u"translations", JsonStringArray(translations))
                .Raw(u"unitIds", JsonStringArray(ReadJsonStringArray(json, u"unitIds")))
                .Finish();
        };
        Reply(requestId, reply, answerFor(requestId), answerFor(u"ppttr_unknown"));
    } else if (action == u"terminologyResolveRequest") {
        terminologyRequests_.push_back(
            {requestId, json, ReadJsonStringArray(json, u"corpusTexts")});
        PageReply reply = defaultTerminologyReply;
        if (!terminologyReplies_.empty()) {
            reply = terminologyReplies_.front();
            terminologyReplies_.pop_front();
        }
        if (useService_ && reply.kind == PageReply::Kind::Answer && reply.delayMs == 0) {
            AskService(json, true);
            return;
        }
        const auto answerFor = [&](const std::u16string& id) {
            JsonObjectWriter answer;
            answer.String(u"action", u"terminologyResolveResult").String(u"requestId", id);
            if (reply.kind == PageReply::Kind::Fail) {
                return answer.Bool(u"ok", false)
                    .String(u"code", reply.code)
                    .String(u"message", reply.message)
                    .Finish();
            }
            return answer.Bool(u"ok", true).Raw(u"result", terminologyResult).Finish();
        };
        Reply(requestId, reply, answerFor(requestId), answerFor(u"pptterm_unknown"));
    } else if (action == u"accessToken") {
        token_ = ReadJsonString(json, u"accessToken");
    }
}

void ScriptedPage::OnScript(const std::u16string& script) {
    PageScript read = ReadPageScript(script);
    switch (read.kind) {
        case PageScript::Kind::LocalAnswer:
            localAnswers_.push_back(std::move(read.args));
            return;
        case PageScript::Kind::Preview:
            previews_.push_back(std::move(read.args));
            return;
        case PageScript::Kind::Call:
            if (missingFunctions.count(read.name)) {
                ++skippedCalls_;  // the guard makes the call a no-op
                return;
            }
            events_.push_back({std::move(read.name), std::move(read.args)});
            return;
        case PageScript::Kind::Other:
            return;
    }
}

bool ScriptedPage::WorkerWaitsOnPage() const {
    // Past its time-out a request is about to leave the table: the worker
    // has work to do again, in real time.
    const std::uint64_t now = platform::CurrentClock().TickCount64();
    const std::vector<std::u16string> waiting = pane_.WaitingRequestIds();
    if (waiting.empty()) return false;
    return std::all_of(waiting.begin(), waiting.end(), [&](const std::u16string& id) {
        const auto found = held_.find(id);
        return found != held_.end() && now < found->second + kPanelReplyTimeoutMs;
    });
}

bool ScriptedPage::PumpUntil(const std::function<bool()>& done, std::uint64_t maxHandMs) {
    platform::Clock& clock = platform::CurrentClock();
    const std::uint64_t start = clock.TickCount64();
    for (;;) {
        std::size_t moved = view_.RunPendingJobs();
        moved += DeliverDue();
        moved += view_.FireDueTimers();
        if (done()) return true;
        if (moved > 0) continue;
        // The page's own service call is under way: time stands still for
        // it, as the answer is real work, not a scripted delay.
        if (serviceCalls_.load() > 0) {
            if (clock.TickCount64() - start >= maxHandMs) return false;
            (void)view_.WaitForJob(kServiceWaitMs);
            continue;
        }
        // A worker that is still at work posts its next message soon; one
        // that waits for an answer this page holds back needs time to pass.
        const bool workerBusy = pane_.RunInProgress() || !pane_.WaitingRequestIds().empty();
        if (workerBusy && !WorkerWaitsOnPage() && view_.WaitForJob(kRealWaitMs)) continue;
        const std::uint64_t now = clock.TickCount64();
        if (now - start >= maxHandMs) return false;
        std::uint64_t next = view_.NextTimerDue();
        for (const Scheduled& item : scheduled_) {
            if (next == 0 || item.due < next) next = item.due;
        }
        if (next == 0) next = now + kRunTickMs;
        if (next > now) clock.Sleep(static_cast<std::uint32_t>(next - now));
    }
}

bool ScriptedPage::PumpUntilIdle(std::uint64_t maxHandMs) {
    return PumpUntil(
        [this] {
            return !pane_.RunInProgress() && !pane_.DeferredStartArmed() &&
                   view_.QueuedJobs() == 0 && scheduled_.empty() && serviceCalls_.load() == 0;
        },
        maxHandMs);
}

void ScriptedPage::PumpFor(std::uint64_t handMs) {
    const std::uint64_t until = platform::CurrentClock().TickCount64() + handMs;
    (void)PumpUntil([until] { return platform::CurrentClock().TickCount64() >= until; }, handMs);
}

std::vector<std::u16string> ScriptedPage::EventNames() const {
    std::vector<std::u16string> names;
    for (const PageEvent& event : events_)
        names.push_back(event.name);
    return names;
}

std::vector<std::u16string> ScriptedPage::LastRunEventNames() const {
    std::vector<std::u16string> names;
    for (const PageEvent& event : events_) {
        if (event.name == u"onRunStarted") names.clear();
        names.push_back(event.name);
    }
    return names;
}

std::size_t ScriptedPage::CountEvents(const std::u16string& name) const {
    return static_cast<std::size_t>(std::count_if(
        events_.begin(), events_.end(), [&](const PageEvent& e) { return e.name == name; }));
}

std::vector<std::u16string> ScriptedPage::MessagesOf(const std::u16string& action) const {
    std::vector<std::u16string> out;
    for (const std::u16string& message : view_.messages) {
        if (ReadJsonString(message, u"action") == action) out.push_back(message);
    }
    return out;
}

}  // namespace qb::sim
