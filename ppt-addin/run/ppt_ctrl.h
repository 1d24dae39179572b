// One run, from Start to its end: collection on the host's thread, the
// worker thread that has the units translated slide by slide, the paced
// writing of finished slides on the pane's run tick, and Finish, which
// flushes what is left, runs the last passes and tells the pane how the
// run ended.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "foundation/worker_thread.h"
#include "run/batch_loop.h"
#include "run/run_records.h"
#include "run/run_steps.h"

namespace qb {

inline constexpr std::uint32_t kWalkShowMs = 900;      // phase 1: the slide shown, not yet written
inline constexpr std::uint32_t kWalkWrittenMs = 1500;  // phase 2: the slide written, still shown
inline constexpr std::int32_t kFlushTries = 5;
inline constexpr std::uint32_t kFlushRetryMs = 60;
// A flush waits out a user-activity hold, up to this long a slide.
inline constexpr std::uint32_t kFlushHoldLimitMs = 2000;
inline constexpr std::uint32_t kAbortWaitMs = 2000;
inline constexpr std::uint32_t kAbortPollMs = 20;

class PptCtrl {
  public:
    PptCtrl(host::HostRef application, RunSteps& steps);
    ~PptCtrl();
    PptCtrl(const PptCtrl&) = delete;
    PptCtrl& operator=(const PptCtrl&) = delete;

    // Host's thread. True when the worker runs; false when the run ended at
    // once, with `outMessage` saying why for the log.
    bool Start(const RunOptions& options, const RunCallbacks* callbacks,
               std::u16string& outMessage);
    // The pane's run tick. True when the run has finished.
    bool Tick();
    // True when the worker has ended and the run is finished; false when it
    // is still busy, or a tick below this call is finishing the run, and
    // this object must stay alive.
    bool Abort();
    // True when the slide was dealt with (also when single units failed).
    bool TryApplySlide(std::int32_t slide, bool guardUserInput, bool bilingual);

    // Blocks until the worker has returned: for shutdown paths that may
    // block, and for tests that must know the worker is done.
    void WaitForWorker() { worker_.Join(); }

    bool Finished() const { return finished_; }
    const RunLists& Lists() const { return shared_->lists; }
    std::int32_t Applied() const { return applied_; }
    const std::u16string& FirstApplyError() const { return firstApplyError_; }
    std::int32_t ReadySpans() const { return shared_->readySpans.load(); }
    std::int32_t ApplyCursor() const { return applyCursor_; }
    HRESULT WorkerResult() const { return shared_->workerResult.load(); }
    TranslateClientConfig& Config() { return shared_->config; }

  private:
    // What the worker reads and writes. The worker holds it too, so that a
    // controller destroyed while its worker runs leaves it nothing dangling.
    struct RunShared {
        TranslateClientConfig config;
        RunLists lists;
        std::atomic<std::int32_t> readySpans{0};
        std::atomic<HRESULT> workerResult{S_OK};
        std::u16string errorMessage;
        std::u16string errorCode;
        WorkerArgs args;
    };

    bool StartRun(std::u16string& outMessage);
    void Reject(const std::u16string& code, const std::u16string& text);
    void Close(const std::u16string& summary);
    std::u16string CompletedSummary(std::int32_t total) const;
    bool FindRunWindow(host::HostRef& window);
    void ShowSlide(std::int32_t index);
    void ApplyWalkStep();
    std::int32_t SlideOfSpan(std::int32_t span) const;
    void Finish();
    void Flush();

    host::HostRef application_;
    RunSteps& steps_;
    RunContext context_;
    RunOptions options_;
    const RunCallbacks* callbacks_ = nullptr;
    bool registered_ = false;
    std::shared_ptr<RunShared> shared_;
    RunLists& lists_;  // shared_->lists
    std::int32_t applyCursor_ = 0;
    std::int32_t applied_ = 0;
    std::u16string firstApplyError_;
    std::int32_t applyPhase_ = 0;
    std::uint64_t applyPhaseSince_ = 0;
    platform::WorkerThread worker_;
    bool finished_ = false;
    bool closed_ = false;  // a closing callback went to the pane
    bool aborting_ = false;
    bool inTick_ = false;
    std::uint64_t startTick_ = 0;
    std::uint64_t flushWaitMs_ = 0;
    std::uint64_t abortWaitMs_ = 0;
};

}  // namespace qb
