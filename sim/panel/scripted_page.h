// The web panel's side of the pane, played in C++: it loads the pages the
// pane navigates to, answers batch and terminology requests through a
// translator (or with scripted failures, delays, silence, doubled or
// misaddressed answers), starts, pauses, cancels and restarts runs, signs
// in and out, and keeps every event, message and answer the pane sent it.
// It drives the host's thread (jobs, timers, the clock) until the pane is
// idle, so whole runs go through the panel road on the simulated host.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "pane/ppt_pane.h"
#include "sim/host/sim_host.h"
#include "sim/panel/recording_view.h"

namespace qb::sim {

// How the page answers one request.
struct PageReply {
    enum class Kind {
        Answer,   // translations of every text (terminology: the result object)
        Fail,     // ok false with code and message
        Silent,   // never answers
        Twice,    // answers, then the same answer again
        WrongId,  // answers under a request id nobody waits for
    };

    PageReply() = default;
    PageReply(Kind kind, std::u16string code = {}, std::u16string message = {},
              std::uint32_t delayMs = 0, std::size_t dropTranslations = 0)
        : kind(kind),
          code(std::move(code)),
          message(std::move(message)),
          delayMs(delayMs),
          dropTranslations(dropTranslations) {}

    Kind kind = Kind::Answer;
    std::u16string code;
    std::u16string message;
    std::uint32_t delayMs = 0;  // the answer comes this long after the request
    // Answer with this many translations fewer than texts (Kind::Answer).
    std::size_t dropTranslations = 0;
};

// A call of a window function, as the page received it.
struct PageEvent {
    std::u16string name;
    std::u16string json;
};

struct PageRequest {
    std::u16string requestId;
    std::u16string json;
    std::vector<std::u16string> texts;
};

class ScriptedPage {
  public:
    using Translator =
        std::function<std::u16string(const std::u16string& text, const std::u16string& targetLang)>;

    ScriptedPage(SimHost& host, PptPane& pane, RecordingView& view);
    // Waits for the page's service calls that are still out.
    ~ScriptedPage();
    ScriptedPage(const ScriptedPage&) = delete;
    ScriptedPage& operator=(const ScriptedPage&) = delete;

    // --- How the page behaves -------------------------------------------
    // The stand-in service plugs in here; the default marks each text with
    // the target language.
    void SetTranslator(Translator translator) { translator_ = std::move(translator); }
    static std::u16string PseudoTranslation(const std::u16string& text,
                                            const std::u16string& targetLang);
    // The page calls the service itself, as the real panel does: a request
    // whose reply is Kind::Answer goes to "/v1/translate" (or the resolve
    // path) of the endpoint in force with the token the page holds, on a
    // thread of its own, and its answer is the service's. A status 401 or
    // 402 reaches the pane as that code word.
    void UseService(bool on) { useService_ = on; }
    // Replies for the next batch requests, in order; then the default one.
    void QueueBatchReplies(std::vector<PageReply> replies);
    PageReply defaultBatchReply;
    void QueueTerminologyReplies(std::vector<PageReply> replies);
    PageReply defaultTerminologyReply;
    // The result object of a terminology answer.
    std::u16string terminologyResult = u"{\"instruction\":\"\",\"entries\":[]}";
    // Window functions this page lacks: calls of them do nothing.
    std::set<std::u16string> missingFunctions;
    bool navigationSucceeds = true;
    // Called with each batch request as it arrives, before the page answers.
    std::function<void(const PageRequest&)> onBatchRequest;

    // --- What the page does ---------------------------------------------
    // Any message, as window.chrome.webview.postMessage of the object.
    void Send(const std::u16string& json);
    void Start(const std::u16string& json) { Send(json); }
    void Pause() { Send(u"{\"action\":\"pause\"}"); }
    void Resume() { Send(u"{\"action\":\"resume\"}"); }
    void Cancel() { Send(u"{\"action\":\"cancel\"}"); }
    void SignIn(const std::u16string& token);
    void SignOut() { Send(u"{\"action\":\"clearAccessToken\"}"); }

    // --- Driving the host's thread --------------------------------------
    // Until `done` holds, or `maxHandMs` of clock time have passed (false).
    bool PumpUntil(const std::function<bool()>& done, std::uint64_t maxHandMs = 600000);
    // Until no run is in progress, none is deferred and nothing is queued.
    bool PumpUntilIdle(std::uint64_t maxHandMs = 600000);
    void PumpFor(std::uint64_t handMs);

    // --- What the page saw ----------------------------------------------
    const std::vector<PageEvent>& Events() const { return events_; }
    std::vector<std::u16string> EventNames() const;
    // Events from the last onRunStarted on.
    std::vector<std::u16string> LastRunEventNames() const;
    std::size_t CountEvents(const std::u16string& name) const;
    const std::vector<PageRequest>& BatchRequests() const { return batchRequests_; }
    const std::vector<PageRequest>& TerminologyRequests() const { return terminologyRequests_; }
    // Web messages by action, in order.
    std::vector<std::u16string> MessagesOf(const std::u16string& action) const;
    const std::vector<std::u16string>& LocalAnswers() const { return localAnswers_; }
    const std::vector<std::u16string>& Previews() const { return previews_; }
    const std::u16string& Token() const { return token_; }
    const std::u16string& LoadedUrl() const { return loadedUrl_; }
    std::size_t SkippedCalls() const { return skippedCalls_; }
    SimHost& Host() { return host_; }

  private:
    struct Scheduled {
        std::uint64_t due = 0;
        std::u16string json;
    };
    void OnNavigate(const std::u16string& url);
    void OnMessage(const std::u16string& json);
    void OnScript(const std::u16string& script);
    void Reply(const std::u16string& requestId, const PageReply& reply,
               const std::u16string& answer, const std::u16string& wrongIdAnswer);
    void Deliver(std::uint32_t delayMs, std::u16string json);
    std::size_t DeliverDue();
    bool WorkerWaitsOnPage() const;
    // Posts the request to the service off the host's thread; the answer
    // comes back as a web message.
    void AskService(std::u16string requestJson, bool terminology);

    SimHost& host_;
    PptPane& pane_;
    RecordingView& view_;
    Translator translator_ = &ScriptedPage::PseudoTranslation;
    std::deque<PageReply> batchReplies_;
    std::deque<PageReply> terminologyReplies_;
    std::vector<Scheduled> scheduled_;
    // Request ids the page keeps to itself, with the tick it got each.
    std::map<std::u16string, std::uint64_t> held_;
    std::vector<PageEvent> events_;
    std::vector<PageRequest> batchRequests_;
    std::vector<PageRequest> terminologyRequests_;
    std::vector<std::u16string> localAnswers_;
    std::vector<std::u16string> previews_;
    std::u16string token_;
    std::u16string loadedUrl_;
    std::size_t skippedCalls_ = 0;
    bool useService_ = false;
    std::atomic<int> serviceCalls_{0};  // out at the service now
    std::vector<std::thread> serviceThreads_;
};

}  // namespace qb::sim
