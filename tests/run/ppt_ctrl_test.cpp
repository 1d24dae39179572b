// The run controller on the simulated host, with fake neighbours that
// record what they were asked, a transport the test holds and releases, and
// a clock advanced by hand: every timing rule and every way a run ends.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <stdexcept>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "run/ppt_ctrl.h"
#include "run/sim_run_steps.h"
#include "run/sta_gate.h"
#include "sim/host/deck_builder.h"
#include "sim/host/sim_host.h"
#include "support/manual_clock.h"
#include "support/trace_lines.h"

namespace qb {
namespace {

// Requests wait until the test releases them, so the test knows where the
// worker stands without sleeping.
class HeldTransport {
  public:
    BatchTransport Road() {
        return [this](const TranslateBatchRequest& request) {
            std::unique_lock<std::mutex> hold(lock_);
            const int me = ++arrived_;
            changed_.notify_all();
            changed_.wait(hold, [&] { return released_ >= me; });
            TranslateBatchResult result;
            if (failFrom_ != 0 && me >= failFrom_) {
                result.code = u"server_error";
                result.message = u"the service broke";
                return result;
            }
            result.ok = true;
            for (const auto& text : request.texts)
                result.translations.push_back(u"T:" + text);
            return result;
        };
    }
    void WaitArrived(int n) {
        std::unique_lock<std::mutex> hold(lock_);
        changed_.wait(hold, [&] { return arrived_ >= n; });
    }
    void Release(int n) {
        std::lock_guard<std::mutex> hold(lock_);
        released_ += n;
        changed_.notify_all();
    }
    void ReleaseAll() { Release(1 << 20); }
    void FailFrom(int request) {
        std::lock_guard<std::mutex> hold(lock_);
        failFrom_ = request;
    }

  private:
    std::mutex lock_;
    std::condition_variable changed_;
    int arrived_ = 0, released_ = 0, failFrom_ = 0;
};

// Neighbours that collect a fixed number of units a slide and record writes.
class FakeSteps final : public RunSteps {
  public:
    explicit FakeSteps(std::vector<std::int32_t> unitsPerSlide)
        : sizes_(std::move(unitsPerSlide)) {}

    HRESULT Collect(const RunContext&, RunLists& lists, std::u16string& message) override {
        if (failCollect) {
            message = u"nothing selected";
            return E_FAIL;
        }
        for (std::size_t s = 0; s < sizes_.size(); ++s) {
            const auto first = static_cast<std::int32_t>(lists.texts.size());
            for (std::int32_t u = 0; u < sizes_[s]; ++u) {
                lists.texts.push_back(u"slide " + AsciiToUtf16(std::to_string(s + 1)) + u" text " +
                                      AsciiToUtf16(std::to_string(u)));
                lists.units.emplace_back();
                lists.addresses.emplace_back();
            }
            lists.spans.push_back({first, static_cast<std::int32_t>(lists.texts.size())});
            lists.slideIndexes.push_back(static_cast<std::int32_t>(s + 1));
        }
        return S_OK;
    }
    HRESULT CreateBilingualCopies(const RunContext&, RunLists&, std::u16string&) override {
        ++copiesMade;
        return S_OK;
    }
    std::int32_t CleanupBilingualCopies(const RunContext&) override {
        ++cleanups;
        return copiesMade;
    }
    std::int32_t BilingualCopiesMade() const override { return copiesMade; }
    void ApplySlide(const RunContext&, const RunLists& lists, std::int32_t slide,
                    std::int32_t& applied, std::u16string&) override {
        if (duringWrite) duringWrite(slide);
        written.push_back(slide);
        writtenAt.push_back(platform::CurrentClock().TickCount64());
        const SlideSpan span = lists.spans[static_cast<std::size_t>(slide - 1)];
        for (std::int32_t i = span.first; i < span.end; ++i) {
            EXPECT_FALSE(lists.translations[static_cast<std::size_t>(i)].empty())
                << "a slide is written only when all of its units are translated";
        }
        applied += span.end - span.first;
    }
    std::int32_t SourceSlideIndex(const RunContext&, std::int32_t slide) override { return slide; }
    std::int32_t LocateBilingualCopy(const RunContext&, std::int32_t) override { return 0; }
    void BrokenPhrasePass(const RunContext&, const RunLists&, std::int32_t&) override {
        ++brokenPasses;
        if (throwInBrokenPass) throw std::runtime_error("host call failed");
    }

    bool failCollect = false;
    bool throwInBrokenPass = false;
    std::function<void(std::int32_t)> duringWrite;  // a host call that pumps, or throws
    std::int32_t copiesMade = 0, cleanups = 0, brokenPasses = 0;
    std::vector<std::int32_t> written;
    std::vector<std::uint64_t> writtenAt;

  private:
    std::vector<std::int32_t> sizes_;
};

// What the pane hears, in order.
struct Heard {
    std::vector<std::string> events;
    std::mutex lock;
    std::int32_t progress = 0;

    RunCallbacks Callbacks() {
        RunCallbacks c;
        c.onRunStarted = [this] { events.push_back("started"); };
        c.onReady = [this](std::int32_t total, std::int32_t) {
            events.push_back("ready " + std::to_string(total));
        };
        c.onProgress = [this](std::int32_t, std::int32_t, bool, const std::u16string&,
                              const std::u16string&) {
            std::lock_guard<std::mutex> hold(lock);  // the worker's thread
            ++progress;
        };
        c.onComplete = [this](std::int64_t, std::int32_t total, bool bilingual) {
            events.push_back("complete " + std::to_string(total) + (bilingual ? " bilingual" : ""));
        };
        c.onError = [this](const std::u16string& code, const std::u16string&) {
            events.push_back("error " + Utf16ToUtf8(code));
        };
        c.onCancelled = [this] { events.push_back("cancelled"); };
        return c;
    }
    std::size_t Closing() const {
        std::size_t n = 0;
        for (const auto& e : events) {
            n += e.rfind("complete", 0) == 0 || e.rfind("error", 0) == 0 || e == "cancelled";
        }
        return n;
    }
};

bool g_userActive = false;
bool UserActive() {
    return g_userActive;
}

class PptCtrlTest : public testing::Test {
  protected:
    void SetUp() override {
        StaGate::ResetForTesting();
        BusyPresentationRegistry::ResetForTesting();
        g_userActive = false;
        platform::SetUserActivityForTesting(&UserActive);
        sim::DeckBuilder b;
        for (int i = 0; i < 4; ++i)
            b.Slide().Text(u"Body", u"Text");
        deck_ = host_.AddPresentation(b.Build());
    }
    void TearDown() override {
        platform::SetUserActivityForTesting(nullptr);
        StaGate::ResetForTesting();
        BusyPresentationRegistry::ResetForTesting();
    }

    RunOptions Options(RunScope scope = RunScope::FullDeck) {
        RunOptions o;
        o.scope = scope;
        o.fullDeck = scope == RunScope::FullDeck;
        o.targetLang = u"de";
        o.window.hwnd = host_.App().windows[0]->hwnd;
        o.ownerPane = &paneMark_;
        o.runId = 7;
        o.translateOverride = transport_.Road();
        return o;
    }
    std::int32_t ViewSlide() { return host_.App().windows[0]->currentSlide; }

    test::ManualClock clock_;
    test::ScopedClock scope_{clock_};
    sim::SimHost host_;
    std::shared_ptr<sim::PresentationModel> deck_;
    HeldTransport transport_;
    Heard heard_;
    int paneMark_ = 0;
};

TEST_F(PptCtrlTest, AFullDeckRunShowsEachSlideAndWritesItAfterThePacedPauses) {
    FakeSteps steps({1, 1, 1});
    PptCtrl run(host_.Application(), steps);
    const RunCallbacks callbacks = heard_.Callbacks();
    std::u16string message;
    ASSERT_TRUE(run.Start(Options(), &callbacks, message));
    transport_.Release(2);      // slides 1 and 2 answered; slide 3 still out
    transport_.WaitArrived(3);  // the worker waits in slide 3's request
    ASSERT_EQ(run.ReadySpans(), 2);

    host_.App().windows[0]->currentSlide = 4;
    EXPECT_FALSE(run.Tick());  // phase 0: the view goes to slide 1
    EXPECT_EQ(ViewSlide(), 1);
    clock_.Advance(kWalkShowMs - 1);
    EXPECT_FALSE(run.Tick());
    EXPECT_TRUE(steps.written.empty());
    clock_.Advance(1);
    EXPECT_FALSE(run.Tick());  // phase 1 over: slide 1 written
    EXPECT_EQ(steps.written, std::vector<std::int32_t>{1});
    clock_.Advance(kWalkWrittenMs - 1);
    EXPECT_FALSE(run.Tick());
    EXPECT_EQ(run.ApplyCursor(), 0);
    clock_.Advance(1);
    EXPECT_FALSE(run.Tick());  // phase 2 over: on to slide 2
    EXPECT_EQ(run.ApplyCursor(), 1);
    EXPECT_FALSE(run.Tick());
    EXPECT_EQ(ViewSlide(), 2);
    clock_.Advance(kWalkShowMs);
    EXPECT_FALSE(run.Tick());
    EXPECT_EQ(steps.written, (std::vector<std::int32_t>{1, 2}));
    EXPECT_GE(steps.writtenAt[1] - steps.writtenAt[0], kWalkShowMs + kWalkWrittenMs);

    // The worker ends: Finish writes what is left at once, and the slide in
    // phase 2 is not written twice.
    transport_.ReleaseAll();
    run.WaitForWorker();
    EXPECT_TRUE(run.Tick());
    EXPECT_EQ(steps.written, (std::vector<std::int32_t>{1, 2, 3}));
    EXPECT_EQ(run.Applied(), 3);
    EXPECT_EQ(steps.brokenPasses, 1);
    EXPECT_EQ(heard_.events, (std::vector<std::string>{"started", "ready 3", "complete 3"}));
    EXPECT_EQ(heard_.progress, 3);
}

TEST_F(PptCtrlTest, OtherScopesWriteAtOnceAtMostOneSlideATickBehindTheGate) {
    FakeSteps steps({2, 2, 2});
    PptCtrl run(host_.Application(), steps);
    const RunCallbacks callbacks = heard_.Callbacks();
    std::u16string message;
    ASSERT_TRUE(run.Start(Options(RunScope::Selection), &callbacks, message));
    transport_.Release(2);
    transport_.WaitArrived(3);
    EXPECT_FALSE(run.Tick());
    EXPECT_EQ(steps.written, std::vector<std::int32_t>{1});
    EXPECT_FALSE(run.Tick());  // the gate holds for 120 ms after a write
    clock_.Advance(kStaGateHoldMs - 1);
    EXPECT_FALSE(run.Tick());
    EXPECT_EQ(steps.written.size(), 1u);
    clock_.Advance(1);
    EXPECT_FALSE(run.Tick());
    EXPECT_EQ(steps.written, (std::vector<std::int32_t>{1, 2}));
    EXPECT_EQ(ViewSlide(), 1);  // no paced walk: the view stays
    transport_.ReleaseAll();
    run.WaitForWorker();
    clock_.Advance(kStaGateHoldMs);
    EXPECT_TRUE(run.Tick());
    EXPECT_EQ(steps.written, (std::vector<std::int32_t>{1, 2, 3}));
}

TEST_F(PptCtrlTest, AUserAtWorkHoldsWritingBackAndTheFlushWaitsItOut) {
    FakeSteps steps({1, 1});
    PptCtrl run(host_.Application(), steps);
    const RunCallbacks callbacks = heard_.Callbacks();
    std::u16string message;
    ASSERT_TRUE(run.Start(Options(RunScope::Selection), &callbacks, message));
    transport_.Release(1);
    transport_.WaitArrived(2);
    g_userActive = true;
    EXPECT_FALSE(run.Tick());
    EXPECT_TRUE(steps.written.empty());
    EXPECT_EQ(StaGate::NotBefore(), clock_.TickCount64() + kUserActivityHoldMs);
    g_userActive = false;
    transport_.ReleaseAll();
    run.WaitForWorker();
    const std::uint64_t before = clock_.TickCount64();
    EXPECT_TRUE(run.Tick());  // Finish: every ready slide written, after the hold
    EXPECT_EQ(steps.written, (std::vector<std::int32_t>{1, 2}));
    EXPECT_GE(clock_.TickCount64() - before, kUserActivityHoldMs);
    EXPECT_EQ(heard_.Closing(), 1u);
}

TEST_F(PptCtrlTest, ARunEndsWithExactlyOneClosingCallbackWhateverEndsIt) {
    enum class End { Complete, CancelBeforeWalk, CancelDuringWalk, Failure };
    const struct {
        const char* name;
        End end;
        std::vector<std::int32_t> written;
        std::string closing;
        std::int32_t cleanups;
    } cases[] = {
        {"complete", End::Complete, {1, 2, 3}, "complete 3", 0},
        {"cancelled before the first answer", End::CancelBeforeWalk, {}, "cancelled", 1},
        {"cancelled during slide 3", End::CancelDuringWalk, {1, 2}, "cancelled", 1},
        {"a batch that fails", End::Failure, {1, 2}, "error server_error", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        StaGate::ResetForTesting();
        FakeSteps steps({1, 1, 1});
        Heard heard;
        HeldTransport transport;
        RunOptions options = Options(RunScope::Selection);
        options.translateOverride = transport.Road();
        TranslateClientConfig* live = nullptr;
        options.liveConfigSlot = &live;
        PptCtrl run(host_.Application(), steps);
        const RunCallbacks callbacks = heard.Callbacks();
        std::u16string message;
        ASSERT_TRUE(run.Start(options, &callbacks, message));
        ASSERT_EQ(live, &run.Config());  // the pane reaches the flags through the slot
        switch (c.end) {
            case End::Complete:
                transport.ReleaseAll();
                break;
            case End::CancelBeforeWalk:
                transport.WaitArrived(1);
                live->cancelled = 1;
                transport.ReleaseAll();
                break;
            case End::CancelDuringWalk:
                transport.Release(2);
                transport.WaitArrived(3);
                live->cancelled = 1;
                transport.ReleaseAll();
                break;
            case End::Failure:
                transport.FailFrom(3);
                transport.ReleaseAll();
                break;
        }
        run.WaitForWorker();
        EXPECT_TRUE(run.Tick());
        EXPECT_TRUE(run.Tick());  // a finished run stays finished, silently
        EXPECT_EQ(steps.written, c.written);
        EXPECT_EQ(heard.Closing(), 1u);
        EXPECT_EQ(heard.events.back(), c.closing);
        EXPECT_EQ(steps.cleanups, c.cleanups);
        EXPECT_EQ(live, nullptr);
    }
}

TEST_F(PptCtrlTest, RejectedAndEmptyRunsEndInStart) {
    {
        SCOPED_TRACE("no window matches");
        FakeSteps steps({1});
        PptCtrl run(host_.Application(), steps);
        RunOptions options = Options();
        options.window.hwnd = 0x999;
        const RunCallbacks callbacks = heard_.Callbacks();
        std::u16string message;
        EXPECT_FALSE(run.Start(options, &callbacks, message));
        EXPECT_EQ(heard_.events, (std::vector<std::string>{"started", "ready 0",
                                                           "error pane_window_unavailable"}));
        EXPECT_EQ(message,
                  u"\u65e0\u6cd5\u5b9a\u4f4d\u5f53\u524d\u6f14\u793a\u6587\u7a3f\u7a97\u53e3");
    }
    {
        SCOPED_TRACE("collection fails");
        FakeSteps steps({1});
        steps.failCollect = true;
        PptCtrl run(host_.Application(), steps);
        Heard heard;
        const RunCallbacks callbacks = heard.Callbacks();
        std::u16string message;
        EXPECT_FALSE(run.Start(Options(), &callbacks, message));
        EXPECT_EQ(heard.events.back(), "error collect_failed");
        EXPECT_EQ(message, u"\u6536\u96c6\u6587\u672c\u5931\u8d25\uff1anothing selected");
    }
    {
        SCOPED_TRACE("nothing to translate");
        FakeSteps steps({0, 0});
        PptCtrl run(host_.Application(), steps);
        Heard heard;
        const RunCallbacks callbacks = heard.Callbacks();
        std::u16string message;
        EXPECT_FALSE(run.Start(Options(), &callbacks, message));
        EXPECT_EQ(heard.events, (std::vector<std::string>{"started", "ready 0", "complete 0"}));
    }
    EXPECT_FALSE(BusyPresentationRegistry::Contains(deck_.get()));
}

TEST_F(PptCtrlTest, ASecondRunOnTheSamePresentationIsRefused) {
    FakeSteps first({1}), second({1});
    PptCtrl running(host_.Application(), first);
    const RunCallbacks callbacks = heard_.Callbacks();
    std::u16string message;
    ASSERT_TRUE(running.Start(Options(), &callbacks, message));
    {
        Heard heard;
        const RunCallbacks otherCallbacks = heard.Callbacks();
        int otherPane = 0;
        RunOptions options = Options();
        options.ownerPane = &otherPane;
        PptCtrl refused(host_.Application(), second);
        EXPECT_FALSE(refused.Start(options, &otherCallbacks, message));
        EXPECT_EQ(heard.events.back(), "error presentation_busy");
    }
    // The refused run's end took nothing from the registry.
    EXPECT_TRUE(BusyPresentationRegistry::Contains(deck_.get()));
    transport_.ReleaseAll();
    running.WaitForWorker();
    EXPECT_TRUE(running.Tick());
}

TEST_F(PptCtrlTest, AbortWaitsTwoSecondsForABusyWorkerThenKeepsTheRunAlive) {
    FakeSteps steps({1, 1});
    PptCtrl run(host_.Application(), steps);
    const RunCallbacks callbacks = heard_.Callbacks();
    std::u16string message;
    ASSERT_TRUE(run.Start(Options(), &callbacks, message));
    transport_.WaitArrived(1);  // the worker is inside an exchange that doesn't return
    const std::uint64_t before = clock_.TickCount64();
    EXPECT_FALSE(run.Abort());
    EXPECT_EQ(clock_.TickCount64() - before, kAbortWaitMs);
    EXPECT_TRUE(run.Config().IsCancelled());
    EXPECT_FALSE(run.Tick());  // aborting: nothing is written while the worker runs
    transport_.ReleaseAll();
    run.WaitForWorker();
    EXPECT_TRUE(run.Abort());  // now it ends, without a callback or a write
    EXPECT_TRUE(steps.written.empty());
    EXPECT_EQ(heard_.Closing(), 0u);
}

TEST_F(PptCtrlTest, APausedRunHoldsItsSlideBackAndGoesOnWhenResumed) {
    FakeSteps steps({1, 1});
    PptCtrl run(host_.Application(), steps);
    const RunCallbacks callbacks = heard_.Callbacks();
    std::u16string message;
    ASSERT_TRUE(run.Start(Options(RunScope::Selection), &callbacks, message));
    transport_.WaitArrived(1);
    run.Config().paused = 1;
    transport_.Release(1);  // the answer comes, but the paused worker holds it
    for (int i = 0; i < 5; ++i) {
        EXPECT_FALSE(run.Tick());
        clock_.Advance(kStaGateHoldMs);
    }
    EXPECT_TRUE(steps.written.empty());
    EXPECT_EQ(run.ReadySpans(), 0);
    run.Config().paused = 0;
    transport_.ReleaseAll();
    run.WaitForWorker();
    EXPECT_TRUE(run.Tick());
    EXPECT_EQ(steps.written, (std::vector<std::int32_t>{1, 2}));
    EXPECT_EQ(heard_.events.back(), "complete 2");
}

using test::TraceLines;

TEST_F(PptCtrlTest, ATickRunInsideAWriteByAPumpingHostCallDoesNothing) {
    FakeSteps steps({1, 1, 1});
    PptCtrl run(host_.Application(), steps);
    const RunCallbacks callbacks = heard_.Callbacks();
    std::u16string message;
    ASSERT_TRUE(run.Start(Options(RunScope::Selection), &callbacks, message));
    transport_.ReleaseAll();
    run.WaitForWorker();
    int inner = 0;
    steps.duringWrite = [&](std::int32_t) {
        ++inner;
        EXPECT_FALSE(run.Tick());  // the timer fires inside the host call
    };
    EXPECT_TRUE(run.Tick());
    EXPECT_EQ(inner, 3);
    EXPECT_EQ(steps.written, (std::vector<std::int32_t>{1, 2, 3}));
    EXPECT_EQ(heard_.Closing(), 1u);
}

TEST_F(PptCtrlTest, AThrowingHostCallNeitherEscapesNorEndsTheRun) {
    FakeSteps steps({1, 1});
    PptCtrl run(host_.Application(), steps);
    const RunCallbacks callbacks = heard_.Callbacks();
    std::u16string message;
    ASSERT_TRUE(run.Start(Options(RunScope::Selection), &callbacks, message));
    transport_.Release(1);
    transport_.WaitArrived(2);
    steps.duringWrite = [](std::int32_t) { throw std::runtime_error("host call failed"); };
    EXPECT_NO_THROW(EXPECT_FALSE(run.Tick()));
    EXPECT_EQ(StaGate::Owner(), nullptr);  // the gate was left on the way out
    steps.duringWrite = nullptr;
    clock_.Advance(kStaGateHoldMs);
    EXPECT_FALSE(run.Tick());  // the same slide again, now written
    EXPECT_EQ(steps.written, std::vector<std::int32_t>{1});
    transport_.ReleaseAll();
    run.WaitForWorker();
    steps.throwInBrokenPass = true;
    TranslateClientConfig* slot = nullptr;
    EXPECT_NO_THROW(EXPECT_TRUE(run.Tick()));
    EXPECT_EQ(heard_.Closing(), 1u);  // one closing word, even though Finish threw
    EXPECT_EQ(heard_.events.back(), "error translate_failed");
    EXPECT_EQ(slot, nullptr);
}

TEST_F(PptCtrlTest, ASlideInHandWhenTheWorkerEndsIsWrittenOnceByTheFlush) {
    const struct {
        const char* name;
        std::uint32_t advance;  // how far the walk gets before the worker ends
        std::vector<std::int32_t> beforeFinish;
    } cases[] = {
        {"in phase 1: shown, not yet written", 0, {}},
        {"in phase 2: written, still shown", kWalkShowMs, {1}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        StaGate::ResetForTesting();
        FakeSteps steps({1, 1});
        HeldTransport transport;
        RunOptions options = Options();
        options.translateOverride = transport.Road();
        PptCtrl run(host_.Application(), steps);
        std::u16string message;
        ASSERT_TRUE(run.Start(options, nullptr, message));
        transport.Release(1);
        transport.WaitArrived(2);
        EXPECT_FALSE(run.Tick());  // phase 0 -> 1
        clock_.Advance(c.advance);
        EXPECT_FALSE(run.Tick());
        EXPECT_EQ(steps.written, c.beforeFinish);
        transport.ReleaseAll();
        run.WaitForWorker();
        EXPECT_TRUE(run.Tick());
        EXPECT_EQ(steps.written, (std::vector<std::int32_t>{1, 2}));
    }
}

TEST_F(PptCtrlTest, AGateHeldByAHostCallThroughTheFlushSkipsTheRestAndStillCloses) {
    TraceLines trace;
    FakeSteps steps({1, 1});
    PptCtrl run(host_.Application(), steps);
    const RunCallbacks callbacks = heard_.Callbacks();
    std::u16string message;
    ASSERT_TRUE(run.Start(Options(RunScope::Selection), &callbacks, message));
    transport_.ReleaseAll();
    run.WaitForWorker();
    int otherWork = 0;
    ASSERT_TRUE(StaGate::TryEnter(&otherWork));  // another pane's write is in flight
    EXPECT_TRUE(run.Tick());
    StaGate::Leave(&otherWork);
    EXPECT_TRUE(steps.written.empty());
    EXPECT_TRUE(trace.Has(u"PptCtrl finish apply skipped: sta gate busy\r\n"));
    EXPECT_EQ(heard_.events.back(), "complete 2");
    EXPECT_TRUE(trace.Has(u"PptCtrl run waits flushMs=" +
                          AsciiToUtf16(std::to_string((kFlushTries - 1) * kFlushRetryMs))));
}

TEST_F(PptCtrlTest, TheRunEndLineSaysWhatTheRunDid) {
    TraceLines trace;
    FakeSteps steps({2, 1});
    PptCtrl run(host_.Application(), steps);
    std::u16string message;
    ASSERT_TRUE(run.Start(Options(RunScope::Selection), nullptr, message));
    transport_.ReleaseAll();
    run.WaitForWorker();
    EXPECT_TRUE(run.Tick());
    EXPECT_TRUE(trace.Has(u"PptCtrl Start begin scope=2 full=0 bilingual=0 targetLang=de"));
    EXPECT_TRUE(trace.Has(u"PptCtrl worker end hr=0x00000000 abort=0 applied=0"));
    EXPECT_TRUE(
        trace.Has(u"PptCtrl run end runId=7: \u5df2\u7ffb\u8bd1 3 \u6bb5\u6587\u672c"
                  u"\uff08\u5171 3 \u6bb5\uff09\u3002\r\n"));
}

TEST_F(PptCtrlTest, TheViewMovesOnlyInTheActiveWindow) {
    sim::DeckBuilder other;
    other.Slide().Text(u"Body", u"Elsewhere");
    host_.AddPresentation(other.Build());  // a second window, now the active one
    FakeSteps steps({1, 1});
    PptCtrl run(host_.Application(), steps);
    std::u16string message;
    ASSERT_TRUE(run.Start(Options(), nullptr, message));
    transport_.Release(1);
    transport_.WaitArrived(2);
    host_.App().windows[0]->currentSlide = 4;
    EXPECT_FALSE(run.Tick());
    EXPECT_EQ(ViewSlide(), 4);
    host_.App().activeWindow = 1;
    transport_.ReleaseAll();
    run.WaitForWorker();
    EXPECT_TRUE(run.Tick());
    EXPECT_EQ(steps.written, (std::vector<std::int32_t>{1, 2}));
}

TEST_F(PptCtrlTest, TheRunsWindowIsFoundByHandleIdentityOrAsTheOnlyOne) {
    const auto identity = reinterpret_cast<std::intptr_t>(host_.App().windows[0].get());
    const struct {
        const char* name;
        WindowKey key;
        bool found;
    } cases[] = {
        {"by handle", {host_.App().windows[0]->hwnd, 0}, true},
        {"by identity", {0, identity}, true},
        {"the only window", {0, 0}, true},
        {"neither matches", {0x1234, 0x5678}, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        BusyPresentationRegistry::ResetForTesting();
        FakeSteps steps({1});
        PptCtrl run(host_.Application(), steps);
        RunOptions options = Options();
        options.window = c.key;
        std::u16string message;
        EXPECT_EQ(run.Start(options, nullptr, message), c.found);
        if (c.found) {
            transport_.ReleaseAll();
            run.WaitForWorker();
            EXPECT_TRUE(run.Tick());
        }
    }
}

TEST_F(PptCtrlTest, ARunWithoutAnyRoadToTheServiceFailsOnce) {
    FakeSteps steps({3});
    PptCtrl run(host_.Application(), steps);
    const RunCallbacks callbacks = heard_.Callbacks();
    RunOptions options = Options();
    options.translateOverride = nullptr;
    std::u16string message;
    ASSERT_TRUE(run.Start(options, &callbacks, message));
    run.WaitForWorker();
    EXPECT_TRUE(run.Tick());
    EXPECT_EQ(heard_.events.back(), "error translate_failed");
}

TEST_F(PptCtrlTest, ABilingualRunThatWroteNothingReportsWhetherItsCopiesRemain) {
    for (const bool remain : {true, false}) {
        SCOPED_TRACE(remain ? "copies remain" : "copies removed");
        StaGate::ResetForTesting();
        BusyPresentationRegistry::ResetForTesting();
        class NothingWritten final : public RunSteps {
          public:
            explicit NothingWritten(bool remain) : remain_(remain) {}
            HRESULT Collect(const RunContext&, RunLists& lists, std::u16string&) override {
                lists.texts = {u"one"};
                lists.spans = {{0, 1}};
                lists.slideIndexes = {1};
                return S_OK;
            }
            HRESULT CreateBilingualCopies(const RunContext&, RunLists&, std::u16string&) override {
                return S_OK;
            }
            std::int32_t CleanupBilingualCopies(const RunContext&) override {
                return remain_ ? 1 : 0;
            }
            std::int32_t BilingualCopiesMade() const override { return 1; }
            void ApplySlide(const RunContext&, const RunLists&, std::int32_t, std::int32_t&,
                            std::u16string&) override {}
            std::int32_t SourceSlideIndex(const RunContext&, std::int32_t s) override { return s; }
            std::int32_t LocateBilingualCopy(const RunContext&, std::int32_t) override { return 0; }
            void BrokenPhrasePass(const RunContext&, const RunLists&, std::int32_t&) override {}

          private:
            bool remain_;
        } steps(remain);
        Heard heard;
        const RunCallbacks callbacks = heard.Callbacks();
        RunOptions options = Options(RunScope::Selection);
        options.bilingualSlides = true;
        HeldTransport transport;
        options.translateOverride = transport.Road();
        PptCtrl run(host_.Application(), steps);
        std::u16string message;
        ASSERT_TRUE(run.Start(options, &callbacks, message));
        transport.ReleaseAll();
        run.WaitForWorker();
        EXPECT_TRUE(run.Tick());
        EXPECT_EQ(heard.events.back(), remain ? "complete 1 bilingual" : "complete 1");
    }
}

// Destroyed while its worker still waits for the service: the worker keeps
// its share of the records and ends on its own, with nothing dangling.
TEST_F(PptCtrlTest, AControllerDestroyedUnderARunningWorkerLeavesItNothingDangling) {
    struct Sentinel {
        Sentinel(std::mutex& l, std::condition_variable& g, bool& d) : lock(l), gone(g), done(d) {}
        ~Sentinel() {
            std::lock_guard<std::mutex> hold(lock);
            done = true;
            gone.notify_all();
        }
        std::mutex& lock;
        std::condition_variable& gone;
        bool& done;
    };
    std::mutex lock;
    std::condition_variable gone;
    bool done = false;
    FakeSteps steps({1, 1});
    TranslateClientConfig* slot = nullptr;
    {
        auto sentinel = std::make_shared<Sentinel>(lock, gone, done);
        RunOptions options = Options(RunScope::Selection);
        BatchTransport held = transport_.Road();
        options.translateOverride = [held, sentinel](const TranslateBatchRequest& r) {
            return held(r);
        };
        options.liveConfigSlot = &slot;
        sentinel.reset();
        auto run = std::make_unique<PptCtrl>(host_.Application(), steps);
        std::u16string message;
        ASSERT_TRUE(run->Start(options, nullptr, message));
        transport_.WaitArrived(1);
        run.reset();
    }
    EXPECT_EQ(slot, nullptr);
    transport_.ReleaseAll();
    // The transport (and its sentinel) goes when the worker drops the records.
    std::unique_lock<std::mutex> hold(lock);
    gone.wait(hold, [&] { return done; });
    EXPECT_TRUE(steps.written.empty());
}

// The spine on the simulated host: texts read from its slides, translated by
// the transport, written back into them; a host write that fails costs its
// unit and nothing more.
TEST_F(PptCtrlTest, ARunTranslatesTheSimulatedDeckAndSurvivesAFailingWrite) {
    sim::DeckBuilder b;
    b.Slide().Text(u"Title", u"Quarterly report").Text(u"Number", u"2026");
    b.Slide().Text(u"Body", u"Revenue grew").Text(u"Broken", u"Stays as it was");
    auto deck = host_.AddPresentation(b.Build());
    sim::FaultRule rule;
    rule.objectType = u"TextRange";
    rule.member = u"Text";
    rule.access = sim::FaultRule::Access::Put;
    rule.shapeName = u"Broken";
    host_.AddFault(rule);
    test::SimRunSteps steps;
    PptCtrl run(host_.Application(), steps);
    const RunCallbacks callbacks = heard_.Callbacks();
    RunOptions options = Options(RunScope::Selection);
    options.window.hwnd = host_.App().windows[1]->hwnd;
    std::u16string message;
    ASSERT_TRUE(run.Start(options, &callbacks, message));
    EXPECT_EQ(run.Lists().texts.size(), 3u);  // "2026" has nothing to translate
    transport_.ReleaseAll();
    run.WaitForWorker();
    EXPECT_TRUE(run.Tick());
    EXPECT_EQ(deck->slides[0]->shapes[0]->frame.text, u"T:Quarterly report");
    EXPECT_EQ(deck->slides[0]->shapes[1]->frame.text, u"2026");
    EXPECT_EQ(deck->slides[1]->shapes[0]->frame.text, u"T:Revenue grew");
    EXPECT_EQ(deck->slides[1]->shapes[1]->frame.text, u"Stays as it was");
    EXPECT_EQ(run.Applied(), 2);
    EXPECT_EQ(run.FirstApplyError(), u"shapes[2].frame");
    EXPECT_EQ(heard_.events.back(), "complete 3");
}

TEST_F(PptCtrlTest, RunIdsRiseStrictlyAndStayAboveTheTickCount) {
    std::atomic<std::uint64_t> counter{0};
    const std::uint64_t a = TakeRunId(counter, 1000);
    const std::uint64_t b = TakeRunId(counter, 1000);  // two starts within one tick
    const std::uint64_t c = TakeRunId(counter, 500);   // a clock behind the counter
    EXPECT_EQ(a, 1001u);
    EXPECT_EQ(b, 1002u);
    EXPECT_EQ(c, 1003u);
    EXPECT_EQ(TakeRunId(counter, 5000), 5001u);
}

}  // namespace
}  // namespace qb
