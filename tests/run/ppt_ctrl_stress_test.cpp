// Many runs against a transport on the worker's thread, with cancel, pause
// and abort at random ticks: every run ends once, writes exactly its ready
// slides, and (under ThreadSanitizer) shares nothing unguarded.
#include <gtest/gtest.h>

#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <random>
#include <thread>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "run/ppt_ctrl.h"
#include "run/sta_gate.h"
#include "sim/host/deck_builder.h"
#include "sim/host/sim_host.h"
#include "support/manual_clock.h"

namespace qb {
namespace {

class CountingSteps final : public RunSteps {
  public:
    explicit CountingSteps(std::vector<std::int32_t> sizes) : sizes_(std::move(sizes)) {}
    HRESULT Collect(const RunContext&, RunLists& lists, std::u16string&) override {
        for (std::size_t s = 0; s < sizes_.size(); ++s) {
            const auto first = static_cast<std::int32_t>(lists.texts.size());
            for (std::int32_t u = 0; u < sizes_[s]; ++u)
                lists.texts.push_back(u"text");
            lists.spans.push_back({first, static_cast<std::int32_t>(lists.texts.size())});
            lists.slideIndexes.push_back(static_cast<std::int32_t>(s + 1));
        }
        return S_OK;
    }
    HRESULT CreateBilingualCopies(const RunContext&, RunLists&, std::u16string&) override {
        return S_OK;
    }
    std::int32_t CleanupBilingualCopies(const RunContext&) override { return 0; }
    std::int32_t BilingualCopiesMade() const override { return 0; }
    void ApplySlide(const RunContext&, const RunLists&, std::int32_t slide, std::int32_t&,
                    std::u16string&) override {
        written.push_back(slide);
    }
    std::int32_t SourceSlideIndex(const RunContext&, std::int32_t slide) override { return slide; }
    std::int32_t LocateBilingualCopy(const RunContext&, std::int32_t) override { return 0; }
    void BrokenPhrasePass(const RunContext&, const RunLists&, std::int32_t&) override {}

    std::vector<std::int32_t> written;

  private:
    std::vector<std::int32_t> sizes_;
};

// Answers requests on a thread of its own, as the panel's bridge does: the
// worker hands a request over and waits for the answer.
class ResponderThread {
  public:
    ResponderThread() : thread_([this] { Serve(); }) {}
    ~ResponderThread() {
        {
            std::lock_guard<std::mutex> hold(lock_);
            stop_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }

    TranslateBatchResult Ask(const TranslateBatchRequest& request, bool failSingles) {
        auto answer = std::make_shared<std::promise<TranslateBatchResult>>();
        std::future<TranslateBatchResult> future = answer->get_future();
        {
            std::lock_guard<std::mutex> hold(lock_);
            queue_.push_back({request, failSingles, answer});
        }
        changed_.notify_all();
        return future.get();
    }

  private:
    struct Job {
        TranslateBatchRequest request;
        bool failSingles;
        std::shared_ptr<std::promise<TranslateBatchResult>> answer;
    };
    void Serve() {
        std::unique_lock<std::mutex> hold(lock_);
        for (;;) {
            changed_.wait(hold, [&] { return stop_ || !queue_.empty(); });
            if (queue_.empty()) return;
            Job job = std::move(queue_.front());
            queue_.pop_front();
            hold.unlock();
            TranslateBatchResult result;
            result.ok = !(job.failSingles && job.request.texts.size() == 1);
            if (result.ok) result.translations.assign(job.request.texts.size(), u"x");
            job.answer->set_value(std::move(result));
            hold.lock();
        }
    }

    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<Job> queue_;
    bool stop_ = false;
    std::thread thread_;
};

TEST(PptCtrlStress, RunsEndOnceWhateverHappensWhenever) {
    ResponderThread responder;
    StaGate::ResetForTesting();
    BusyPresentationRegistry::ResetForTesting();
    test::ManualClock clock;
    test::ScopedClock scope(clock);
    sim::SimHost host;
    sim::DeckBuilder b;
    for (int i = 0; i < 4; ++i)
        b.Slide().Text(u"Body", u"Text");
    host.AddPresentation(b.Build());
    std::mt19937 random(20261123);

    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        std::vector<std::int32_t> sizes;
        for (int s = 0, n = 1 + static_cast<int>(random() % 4); s < n; ++s) {
            sizes.push_back(static_cast<std::int32_t>(random() % 30));
        }
        sizes[0] += 1;  // never an empty run
        CountingSteps steps(sizes);
        int closings = 0;
        RunCallbacks callbacks;
        callbacks.onComplete = [&](std::int64_t, std::int32_t, bool) { ++closings; };
        callbacks.onError = [&](const std::u16string&, const std::u16string&) { ++closings; };
        callbacks.onCancelled = [&] { ++closings; };
        const bool failSome = random() % 5 == 0;
        RunOptions options;
        options.scope = random() % 2 ? RunScope::FullDeck : RunScope::Selection;
        options.fullDeck = options.scope == RunScope::FullDeck;
        options.window.hwnd = host.App().windows[0]->hwnd;
        options.translateOverride = [&responder, failSome](const TranslateBatchRequest& request) {
            return responder.Ask(request, failSome);
        };
        auto run = std::make_unique<PptCtrl>(host.Application(), steps);
        std::u16string message;
        ASSERT_TRUE(run->Start(options, &callbacks, message));
        const int action = static_cast<int>(random() % 4);  // 0 none, 1 cancel, 2 pause, 3 abort
        const int at = static_cast<int>(random() % 8);
        bool aborted = false;
        // Ticks while the worker runs, with the action at its tick; then the
        // worker is waited for and the run ticked to its end.
        for (int tick = 0; tick <= at + 4 && !run->Finished(); ++tick) {
            if (tick == at && action == 1) run->Config().cancelled = 1;
            if (tick == at && action == 2) run->Config().paused = 1;
            if (tick == at + 3 && action == 2) run->Config().paused = 0;
            if (tick == at && action == 3) {
                aborted = true;
                if (!run->Abort()) {
                    run->WaitForWorker();  // the pane would keep the object alive
                    EXPECT_TRUE(run->Abort());
                }
                break;
            }
            if (run->Tick()) break;
            clock.Advance(120);
        }
        if (!run->Finished()) {
            run->WaitForWorker();
            EXPECT_TRUE(run->Tick());
        }
        ASSERT_TRUE(run->Finished());
        EXPECT_EQ(closings, aborted ? 0 : 1);
        if (!aborted) {
            // Every span ready when the worker ended was written, once each.
            std::vector<std::int32_t> expected;
            for (std::int32_t s = 1; s <= run->ReadySpans(); ++s)
                expected.push_back(s);
            EXPECT_EQ(steps.written, expected);
        }
    }
}

}  // namespace
}  // namespace qb
