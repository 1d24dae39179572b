// The bridge's pending requests: a batch or a terminology request waits in
// its table, under the one request lock, until the page's answer, an abort
// or its time-out. A record is completed once, under the lock; the waiter's
// signal is shared with the record, so a late signal finds it alive.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace qb {

inline constexpr std::uint32_t kPanelReplyTimeoutMs = 120000;

// The waiter's wake-up, set once.
class ReplySignal {
  public:
    void Set();
    bool IsSet() const;
    // Waits at most `ms` of real time; true once set.
    bool WaitFor(std::uint32_t ms) const;

  private:
    mutable std::mutex lock_;
    mutable std::condition_variable changed_;
    bool set_ = false;
};

struct PendingTranslateRequest {
    std::uint64_t runId = 0;
    std::u16string requestId;
    bool ok = false;
    std::vector<std::u16string> translations;
    std::vector<std::u16string> unitIds;
    std::u16string code;
    std::u16string message;
    bool done = false;
    std::shared_ptr<ReplySignal> event;
};

struct PendingTerminologyRequest {
    std::u16string requestId;
    std::u16string result;  // the raw text of the page's result object
    bool ok = false;
    std::u16string code;
    std::u16string message;
    bool done = false;
    std::shared_ptr<ReplySignal> event;
};

// One answer of the page, read before the lock is taken.
struct PanelAnswer {
    bool ok = false;
    std::vector<std::u16string> translations;
    std::vector<std::u16string> unitIds;
    std::u16string result;
    std::u16string code;
    std::u16string message;
};

class PanelBridge {
  public:
    // "ppttr_" or "pptterm_" and the pane's next number; both kinds count
    // on one counter, from 1.
    std::u16string NextRequestId(const std::u16string& prefix);

    void AddTranslate(const std::shared_ptr<PendingTranslateRequest>& record);
    // Takes the record out of the table; true when it was completed by then.
    bool RemoveTranslate(const std::u16string& requestId);
    void AddTerminology(const std::shared_ptr<PendingTerminologyRequest>& record);
    // Takes the record out and copies its outcome while the lock is held.
    PendingTerminologyRequest TakeTerminology(const std::u16string& requestId);

    // Records the answer of a waiting request, once; false when no request
    // of that id waits or it was already completed.
    bool CompleteTranslate(const std::u16string& requestId, PanelAnswer answer);
    bool CompleteTerminology(const std::u16string& requestId, PanelAnswer answer);
    // Fails every waiting translate request with `code`; returns how many.
    std::size_t AbortTranslates(const std::u16string& code);

    // The ids of the requests in both tables, for the stand-in page.
    std::vector<std::u16string> WaitingIds() const;

  private:
    mutable std::mutex lock_;  // the request lock: table operations only
    std::map<std::u16string, std::shared_ptr<PendingTranslateRequest>> translates_;
    std::map<std::u16string, std::shared_ptr<PendingTerminologyRequest>> terminology_;
    std::atomic<std::uint64_t> counter_{0};
};

}  // namespace qb
