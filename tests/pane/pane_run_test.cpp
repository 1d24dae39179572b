// Whole runs over the panel road on the simulated host, driven only by the
// page's messages: each start action, pause, cancel, sign-in, the bridge's
// faults on the hand clock, terminology, shutdown in the middle of a run,
// and the broken phrase pass answered through the page on the host thread.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "pane/pane_fixture.h"
#include "run/json.h"

namespace qb::test {
namespace {

using Kind = sim::PageReply::Kind;

// Runs of the same event in a row count once: the shape of a run.
std::vector<std::u16string> Shape(const std::vector<std::u16string>& names) {
    std::vector<std::u16string> out;
    for (const auto& name : names) {
        if (out.empty() || out.back() != name) out.push_back(name);
    }
    return out;
}

const std::vector<std::u16string> kCompleted = {u"onRunStarted", u"onScanProgress", u"onReady",
                                                u"onProgress", u"onComplete"};

class PaneRunTest : public PaneFixture {
  protected:
    std::uint64_t RunIdOf(const sim::PageEvent& event) {
        return static_cast<std::uint64_t>(ReadJsonNumber(event.json, u"runId"));
    }
    const sim::PageEvent& Last() { return page->Events().back(); }
};

TEST_F(PaneRunTest, AFullDeckStartTranslatesEverySlideAndEndsInOneComplete) {
    MakePane();
    page->Start(
        u"{\"action\":\"start\",\"panelMode\":\"full\",\"targetLang\":\"de\","
        u"\"accessToken\":\"tok-1\",\"glossaryIds\":[\"g1\"]}");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(Shape(page->EventNames()), kCompleted);
    EXPECT_EQ(page->CountEvents(u"onProgress"), 5u);
    EXPECT_EQ(page->CountEvents(u"onComplete"), 1u);
    EXPECT_EQ(U8(FrameText(1, 1)), "[de] Quarterly report");
    EXPECT_EQ(U8(FrameText(1, 2)), "[de] Sales grew\r[de] Costs fell");
    EXPECT_EQ(U8(FrameText(2, 1)), "[de] Outlook");
    EXPECT_EQ(U8(FrameText(3, 1)), "[de] Next steps");
    // One run id on every event, above the tick count of its making.
    const std::uint64_t runId = RunIdOf(page->Events().front());
    EXPECT_GT(runId, 5000000000ull);
    for (const auto& event : page->Events())
        EXPECT_EQ(RunIdOf(event), runId) << U8(event.name);
    EXPECT_EQ(ReadJsonNumber(Last().json, u"total"), 5);
    // Terminology first, then one batch a slide, ids on one counter.
    ASSERT_EQ(page->TerminologyRequests().size(), 1u);
    EXPECT_EQ(page->TerminologyRequests()[0].requestId, u"pptterm_1");
    EXPECT_NE(page->TerminologyRequests()[0].json.find(u"\"glossaryIds\":[\"g1\"]"),
              std::u16string::npos);
    ASSERT_EQ(page->BatchRequests().size(), 3u);
    EXPECT_EQ(page->BatchRequests()[0].requestId, u"ppttr_2");
    EXPECT_EQ(page->BatchRequests()[2].requestId, u"ppttr_4");
    EXPECT_EQ(ReadJsonString(page->BatchRequests()[0].json, u"usageKind"), u"translate_full");
    EXPECT_EQ(ReadJsonString(page->BatchRequests()[0].json, u"clientTraceId"),
              u"ppt_" + AsciiToUtf16(std::to_string(runId)));
    EXPECT_FALSE(pane->RunInProgress());
    EXPECT_EQ(pane->Controller(), nullptr);
    EXPECT_FALSE(view.TimerArmed(PaneTimer::RunTick));
    EXPECT_EQ(pane->AccessToken(), u"tok-1");
    EXPECT_TRUE(lines.Has(u"PptPane start action=start panelMode=full"));
    EXPECT_TRUE(lines.Has(u"PptPane StartRun begin scope=0"));
    EXPECT_TRUE(lines.Has(u"PptPane StartRun end (async)"));
    EXPECT_TRUE(lines.Has(u"PptPane run finished"));
}

struct ScopeCase {
    const char* name;
    const char16_t* message;
    const char16_t* usageKind;
};

class PaneScopeTest : public PaneRunTest, public testing::WithParamInterface<ScopeCase> {};

TEST_P(PaneScopeTest, EachStartActionChoosesItsScope) {
    const ScopeCase& c = GetParam();
    host.App().windows[0]->currentSlide = 2;
    host.App().windows[0]->selection.type = sim::SelectionType::Shapes;
    host.App().windows[0]->selection.shapes = {deck->slides[2]->shapes[0]};
    MakePane();
    page->Start(c.message);
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(Shape(page->EventNames()), kCompleted);
    EXPECT_EQ(page->CountEvents(u"onProgress"), 1u);
    ASSERT_FALSE(page->BatchRequests().empty());
    EXPECT_EQ(ReadJsonString(page->BatchRequests()[0].json, u"usageKind"), c.usageKind);
    EXPECT_EQ(U8(FrameText(1, 1)), "Quarterly report");  // outside the scope
    const bool slideRun = std::u16string(c.usageKind) == u"translate_full";
    EXPECT_EQ(U8(FrameText(2, 1)), slideRun ? "[en] Outlook" : "Outlook");
    EXPECT_EQ(U8(FrameText(3, 1)), slideRun ? "Next steps" : "[en] Next steps");
}

INSTANTIATE_TEST_SUITE_P(
    Actions, PaneScopeTest,
    testing::Values(
        ScopeCase{"slide", u"{\"action\":\"start\",\"panelMode\":\"slide\"}", u"translate_full"},
        ScopeCase{"selectionMode", u"{\"action\":\"start\",\"panelMode\":\"selection\"}",
                  u"translate_selection"},
        ScopeCase{"startSelection", u"{\"action\":\"startSelection\",\"panelMode\":\"full\"}",
                  u"translate_selection"}),
    [](const testing::TestParamInfo<ScopeCase>& info) { return std::string(info.param.name); });

TEST_F(PaneRunTest, ARestartWithNoFieldsRunsTheWholeDeckWithEveryDefault) {
    MakePane();
    page->SignIn(u"signed-in");
    ASSERT_TRUE(page->PumpUntilIdle());
    page->Start(u"{\"action\":\"restart\"}");
    ASSERT_TRUE(page->PumpUntil([&] { return pane->Controller() != nullptr; }));
    const TranslateClientConfig& config = pane->Controller()->Config();
    EXPECT_EQ(config.targetLang, u"en");
    EXPECT_EQ(config.sourceLang, u"auto");
    EXPECT_EQ(config.accessToken, u"signed-in");
    EXPECT_TRUE(config.translateOverride != nullptr);
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(Shape(page->EventNames()), kCompleted);
    EXPECT_EQ(page->CountEvents(u"onProgress"), 5u);
    EXPECT_EQ(U8(FrameText(3, 1)), "[en] Next steps");
    EXPECT_EQ(deck->slides[2]->shapes[0]->frame.formats[0].name, u"Times New Roman");
}

TEST_F(PaneRunTest, APausedRunSendsNothingUntilResumedThenCompletes) {
    MakePane();
    page->QueueBatchReplies({{}, {Kind::Answer, u"", u"", 500}});
    page->Start(u"{\"action\":\"start\"}");
    // The second slide's answer is on its way; the page pauses meanwhile.
    ASSERT_TRUE(page->PumpUntil([&] { return page->BatchRequests().size() == 2; }));
    page->Pause();
    page->PumpFor(10000);
    EXPECT_EQ(page->BatchRequests().size(), 2u);  // the worker holds before the next batch
    EXPECT_EQ(pane->LiveConfig()->IsPaused(), true);
    EXPECT_EQ(page->CountEvents(u"onComplete"), 0u);
    page->Resume();
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(page->BatchRequests().size(), 3u);
    EXPECT_EQ(Shape(page->EventNames()), kCompleted);
}

TEST_F(PaneRunTest, ACancelWakesTheWaitingBatchAtOnceAndEndsInOneCancelled) {
    MakePane();
    page->QueueBatchReplies({{}, {Kind::Silent}});
    page->Start(u"{\"action\":\"start\"}");
    page->Start(u"{\"action\":\"start\"}");  // ignored: the first run is in progress
    ASSERT_TRUE(page->PumpUntil([&] { return page->BatchRequests().size() == 2; }));
    const std::uint64_t before = clock.TickCount64();
    page->Cancel();
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_LT(clock.TickCount64() - before, 120000u);  // no time-out was waited out
    EXPECT_EQ(Shape(page->EventNames()), Names({u"onRunStarted", u"onScanProgress", u"onReady",
                                                u"onProgress", u"onCancelled"}));
    EXPECT_EQ(page->CountEvents(u"onCancelled"), 1u);
    const auto aborts = page->MessagesOf(u"translateAbortForRun");
    ASSERT_EQ(aborts.size(), 1u);
    EXPECT_EQ(ReadJsonNumber(aborts[0], u"runId"), ReadJsonNumber(Last().json, u"runId"));
    EXPECT_TRUE(lines.Has(u"PptPane start ignored: run in progress"));
    // What was answered before the cancel is written; the rest keeps its text.
    EXPECT_EQ(U8(FrameText(1, 1)), "[en] Quarterly report");
    EXPECT_EQ(U8(FrameText(1, 2)), "[en] Sales grew\r[en] Costs fell");
    EXPECT_EQ(U8(FrameText(2, 1)), "Outlook");
    // A cancel without a run sends no abort.
    page->Cancel();
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(page->MessagesOf(u"translateAbortForRun").size(), 1u);
}

TEST_F(PaneRunTest, SignInAndOutReachLaterPanesButNotARunningOne) {
    MakePane();
    page->SignIn(u"first");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(SharedAccessToken(), u"first");
    page->QueueBatchReplies({{Kind::Answer, u"", u"", 1000}});
    page->Start(u"{\"action\":\"start\",\"token\":\"second\"}");
    ASSERT_TRUE(page->PumpUntil([&] { return !page->BatchRequests().empty(); }));
    EXPECT_EQ(pane->AccessToken(), u"second");
    page->SignOut();
    ASSERT_TRUE(page->PumpUntil([&] { return pane->AccessToken().empty(); }));
    EXPECT_EQ(SharedAccessToken(), u"");
    EXPECT_EQ(pane->Controller()->Config().accessToken, u"second");  // the run keeps its copy
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(page->CountEvents(u"onComplete"), 1u);
    // An empty token in a start leaves the pane's token as it is.
    page->SignIn(u"third");
    page->Start(u"{\"action\":\"start\",\"accessToken\":\"\",\"token\":\"\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(pane->AccessToken(), u"third");
    // A pane made later starts with the process's token and hands it to its page.
    sim::RecordingView secondView;
    PptPane second(secondView, MakeSetup());
    EXPECT_EQ(second.AccessToken(), u"third");
}

TEST_F(PaneRunTest, ABatchThePageNeverAnswersTimesOutAfter120SecondsAndIsSentAgain) {
    MakePane();
    page->QueueBatchReplies({{Kind::Silent}});
    page->Start(u"{\"action\":\"start\",\"panelMode\":\"slide\"}");
    ASSERT_TRUE(page->PumpUntil([&] { return !page->BatchRequests().empty(); }));
    const std::uint64_t sent = clock.TickCount64();
    ASSERT_TRUE(page->PumpUntil([&] { return page->BatchRequests().size() == 2; }));
    EXPECT_GE(clock.TickCount64() - sent, kPanelReplyTimeoutMs);
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(page->CountEvents(u"onComplete"), 1u);
    EXPECT_EQ(page->BatchRequests()[1].texts, page->BatchRequests()[0].texts);
    EXPECT_NE(page->BatchRequests()[1].requestId, page->BatchRequests()[0].requestId);
    EXPECT_EQ(U8(FrameText(1, 1)), "[en] Quarterly report");
}

struct FaultCase {
    const char* name;
    std::vector<sim::PageReply> replies;
    const char16_t* closing;
    const char16_t* code;  // of onError, else empty
};

class PaneFaultTest : public PaneRunTest, public testing::WithParamInterface<FaultCase> {};

TEST_P(PaneFaultTest, ThePagesFaultsEndARunOnlyAsTheBatchLoopDecides) {
    const FaultCase& c = GetParam();
    MakePane();
    page->QueueBatchReplies(c.replies);
    // One text on the current slide, so a batch never splits.
    host.App().windows[0]->currentSlide = 2;
    page->Start(u"{\"action\":\"start\",\"panelMode\":\"slide\"}");
    ASSERT_TRUE(page->PumpUntilIdle(1200000));
    EXPECT_EQ(Shape(page->LastRunEventNames()).back(), c.closing);
    EXPECT_EQ(page->CountEvents(u"onComplete") + page->CountEvents(u"onError") +
                  page->CountEvents(u"onCancelled"),
              1u);
    if (std::u16string(c.code).empty()) {
        EXPECT_EQ(U8(FrameText(2, 1)), "[en] Outlook");
    } else {
        EXPECT_EQ(ReadJsonString(Last().json, u"code"), c.code);
        EXPECT_EQ(U8(FrameText(2, 1)), "Outlook");
    }
    EXPECT_TRUE(pane->WaitingRequestIds().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Replies, PaneFaultTest,
    testing::Values(
        FaultCase{"AnswerTwice", {{Kind::Twice}}, u"onComplete", u""},
        FaultCase{"UnknownRequestId", {{Kind::WrongId}}, u"onComplete", u""},
        FaultCase{"FailureThenAnswer", {{Kind::Fail, u"500", u"busy"}}, u"onComplete", u""},
        FaultCase{"TooFewTranslations", {{Kind::Answer, u"", u"", 0, 1}}, u"onComplete", u""},
        FaultCase{"NeverAnswers", {{Kind::Silent}, {Kind::Silent}}, u"onError", u"request_timeout"},
        FaultCase{"FinalFailureWord",
                  {{Kind::Fail, u"unauthorized", u"sign in"}},
                  u"onError",
                  u"unauthorized"}),
    [](const testing::TestParamInfo<FaultCase>& info) { return std::string(info.param.name); });

struct TerminologyCase {
    const char* name;
    sim::PageReply reply;
    const char16_t* closing;
};

class PaneTerminologyTest : public PaneRunTest,
                            public testing::WithParamInterface<TerminologyCase> {};

TEST_P(PaneTerminologyTest, TerminologyFailuresThatMayPassLetTheRunGoOn) {
    const TerminologyCase& c = GetParam();
    MakePane();
    page->QueueTerminologyReplies({c.reply});
    page->Start(u"{\"action\":\"start\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(Shape(page->LastRunEventNames()).back(), c.closing);
    if (std::u16string(c.closing) == u"onError") {
        EXPECT_EQ(ReadJsonString(Last().json, u"code"), u"500");
        EXPECT_TRUE(page->BatchRequests().empty());
    } else {
        EXPECT_EQ(page->BatchRequests().size(), 3u);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Replies, PaneTerminologyTest,
    testing::Values(
        TerminologyCase{"Unauthorized", {Kind::Fail, u"401", u"sign in"}, u"onComplete"},
        TerminologyCase{"TimeOut", {Kind::Silent}, u"onComplete"},
        TerminologyCase{"ServerError", {Kind::Fail, u"500", u"broken"}, u"onError"}),
    [](const testing::TestParamInfo<TerminologyCase>& info) {
        return std::string(info.param.name);
    });

TEST_F(PaneRunTest, TheNativeTransportStaysForLaterRunsOfThePane) {
    PaneSetup setup = MakeSetup();
    std::atomic<int> nativeBatches{0};
    setup.services.nativeRoad = [&](const TranslateBatchRequest& request) {
        ++nativeBatches;  // on the worker's thread
        TranslateBatchResult result;
        result.ok = true;
        for (const auto& text : request.texts)
            result.translations.push_back(u"N:" + text);
        return result;
    };
    MakePane(setup);
    page->Start(u"{\"action\":\"start\",\"transport\":\"native\",\"nativeTranslateViaJs\":true}");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(nativeBatches, 3);
    EXPECT_FALSE(pane->NativeTranslateViaJs());
    page->Start(u"{\"action\":\"start\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(nativeBatches, 6);
    EXPECT_TRUE(page->BatchRequests().empty());
    EXPECT_TRUE(page->TerminologyRequests().empty());
    EXPECT_EQ(U8(FrameText(2, 1)), "N:N:Outlook");
    page->Start(u"{\"action\":\"start\",\"nativeTranslateViaJs\":true}");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(page->BatchRequests().size(), 3u);
}

TEST_F(PaneRunTest, StartsWhileTheGateIsHeldWaitAndTheLatestRunsOnce) {
    MakePane();
    int owner = 0;
    ASSERT_TRUE(StaGate::TryEnter(&owner));
    page->Start(u"{\"action\":\"start\",\"targetLang\":\"fr\"}");
    page->Start(u"{\"action\":\"start\",\"targetLang\":\"it\"}");
    const std::uint64_t asked = clock.TickCount64();
    page->PumpFor(1000);
    EXPECT_TRUE(pane->DeferredStartArmed());
    EXPECT_FALSE(pane->RunInProgress());
    // Both messages, then every try of the timer while the gate stays shut.
    EXPECT_GE(lines.Count(u"PptPane StartRun deferred: sta mutation in flight"), 3u);
    StaGate::Leave(&owner);
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_GE(clock.TickCount64() - asked, kDeferredStartMs);
    EXPECT_EQ(page->CountEvents(u"onRunStarted"), 1u);
    EXPECT_EQ(U8(FrameText(2, 1)), "[it] Outlook");
}

TEST_F(PaneRunTest, ARunThatFindsNothingOrNoWindowEndsAtOnce) {
    MakePane();
    host.App().windows[0]->selection = sim::SelectionModel();
    page->Start(u"{\"action\":\"startSelection\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(page->EventNames().front(), u"onRunStarted");
    EXPECT_EQ(page->CountEvents(u"onReady"), 1u);
    EXPECT_EQ(page->EventNames().back(), u"onError");
    EXPECT_EQ(ReadJsonString(Last().json, u"code"), u"collect_failed");
    EXPECT_FALSE(pane->RunInProgress());
    EXPECT_TRUE(lines.Has(u"PptPane StartRun end\r\n"));

    PaneSetup setup = MakeSetup();
    setup.window.hwnd = 0x7777;  // a window that is gone
    MakePane(setup);
    page->Start(u"{\"action\":\"start\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(ReadJsonString(Last().json, u"code"), u"pane_window_unavailable");
}

// A road the test holds shut until it lets go: the worker stays busy.
class BlockedRoad {
  public:
    BatchTransport Road() {
        return [this](const TranslateBatchRequest& request) {
            std::unique_lock<std::mutex> hold(lock_);
            inside_ = true;
            changed_.notify_all();
            changed_.wait(hold, [this] { return open_; });
            TranslateBatchResult result;
            result.ok = true;
            result.translations = request.texts;
            return result;
        };
    }
    bool Inside() {
        std::lock_guard<std::mutex> hold(lock_);
        return inside_;
    }
    // Real time: the worker is a thread of its own, whatever the clock.
    bool WaitInside() {
        std::unique_lock<std::mutex> hold(lock_);
        return changed_.wait_for(hold, std::chrono::seconds(20), [this] { return inside_; });
    }
    void Open() {
        {
            std::lock_guard<std::mutex> hold(lock_);
            open_ = true;
        }
        changed_.notify_all();
    }

  private:
    std::mutex lock_;
    std::condition_variable changed_;
    bool inside_ = false, open_ = false;
};

TEST_F(PaneRunTest, ARunTickTimerThatCantBeSetAbortsTheRun) {
    BlockedRoad road;
    PaneSetup setup = MakeSetup();
    setup.services.nativeRoad = road.Road();
    MakePane(setup);
    view.failingTimers.insert(PaneTimer::RunTick);
    // The abort below must find the worker at work: a worker scheduled late
    // would see the cancel before its first batch and end cleanly.
    bool workerInside = false;
    view.onSetTimer = [&](PaneTimer timer) {
        if (timer == PaneTimer::RunTick) workerInside = road.WaitInside();
    };
    page->Start(u"{\"action\":\"start\",\"transport\":\"native\"}");
    ASSERT_TRUE(page->PumpUntil([&] { return pane->Controller() != nullptr; }));
    view.onSetTimer = nullptr;
    ASSERT_TRUE(workerInside);
    EXPECT_TRUE(lines.Has(u"PptPane run tick timer failed; abort run"));
    EXPECT_TRUE(lines.Has(u"PptCtrl abort: worker still busy, keep object alive"));
    EXPECT_TRUE(lines.Has(u"PptPane StartRun end\r\n"));
    // The run stays marked as running with no tick; no start is taken.
    EXPECT_TRUE(pane->RunInProgress());
    page->Start(u"{\"action\":\"start\"}");
    page->PumpFor(1000);
    EXPECT_EQ(page->CountEvents(u"onRunStarted"), 1u);
    road.Open();
    pane->Controller()->WaitForWorker();
    EXPECT_EQ(page->CountEvents(u"onComplete") + page->CountEvents(u"onError"), 0u);
}

TEST_F(PaneRunTest, ShutdownInTheMiddleOfARunFailsTheWaitingBatchAndEndsTheRunOnce) {
    int references = 0;
    PaneSetup setup = MakeSetup();
    setup.services.addRef = [&] { ++references; };
    setup.services.release = [&] { --references; };
    MakePane(setup);
    page->QueueBatchReplies({{}, {Kind::Silent}});
    page->Start(u"{\"action\":\"start\"}");
    ASSERT_TRUE(page->PumpUntil([&] { return page->BatchRequests().size() == 2; }));
    EXPECT_EQ(references, 1);
    pane->BeginShutdownEarly();
    EXPECT_TRUE(lines.Has(u"PptPane BeginShutdownEarly"));
    EXPECT_TRUE(view.closed);
    EXPECT_TRUE(pane->WaitingRequestIds().empty());  // the batch failed at once
    // Abort ended the run, or left it to the worker's end and the next tick.
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_FALSE(pane->RunInProgress());
    EXPECT_EQ(references, 0);
    // Nothing more reaches the page: no closing event, no new request.
    EXPECT_EQ(page->CountEvents(u"onComplete") + page->CountEvents(u"onError") +
                  page->CountEvents(u"onCancelled"),
              0u);
    EXPECT_EQ(page->BatchRequests().size(), 2u);
    // Slide 1 was answered before the end; what it had written stays.
    EXPECT_EQ(U8(FrameText(2, 1)), "Outlook");
    pane->BeginShutdownEarly();  // the window's destroy after the host's shutdown
    EXPECT_EQ(lines.Count(u"PptPane BeginShutdownEarly"), 1u);
    page->Start(u"{\"action\":\"start\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(page->CountEvents(u"onRunStarted"), 1u);
}

TEST_F(PaneRunTest, AWorkerThatWontStopKeepsTheRunAndThePaneAlive) {
    BlockedRoad road;
    int references = 0;
    PaneSetup setup = MakeSetup();
    setup.services.nativeRoad = road.Road();
    setup.services.addRef = [&] { ++references; };
    setup.services.release = [&] { --references; };
    MakePane(setup);
    page->Start(u"{\"action\":\"start\",\"transport\":\"native\"}");
    ASSERT_TRUE(page->PumpUntil([&] { return road.Inside(); }));
    const std::uint64_t before = clock.TickCount64();
    pane->BeginShutdownEarly();
    EXPECT_EQ(clock.TickCount64() - before, kAbortWaitMs);
    EXPECT_TRUE(lines.Has(u"PptPane shutdown: run worker busy, object kept alive"));
    EXPECT_EQ(references, 1);
    EXPECT_NE(pane->Controller(), nullptr);
    EXPECT_TRUE(pane->RunInProgress());
    road.Open();
    pane->Controller()->WaitForWorker();
    // The tick that is still armed finds the worker ended and ends the run,
    // without a word to the page.
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(references, 0);
    EXPECT_EQ(page->CountEvents(u"onComplete") + page->CountEvents(u"onCancelled"), 0u);
}

// The broken phrase pass asks the page on the host's thread, inside Finish,
// while the pump delivers timers, jobs and the page's messages.
const std::u16string kShuzi = u"\u6570\u5b57";

enum class InPass { Nothing, LateAnswer, Shutdown, WindowDestroyed, AbortCall, FailedWait };

struct PassCase {
    const char* name;
    InPass during;
    const char16_t* frame;  // the phrase frame after the run
    std::size_t completes;  // onComplete events the page sees
    const char16_t* line;   // a log line the case must leave, or empty
};

class PanePhraseTest : public PaneRunTest, public testing::WithParamInterface<PassCase> {};

TEST_P(PanePhraseTest, ThePassAsksThePageOnTheHostThreadAndSurvivesWhatThePumpRuns) {
    const PassCase& c = GetParam();
    host.App().windows.clear();
    sim::DeckBuilder b;
    b.Slide().Text(u"Label", kShuzi + u"\r2024").Text(u"Body", u"Sales");
    deck = host.AddPresentation(b.Build());
    MakePane();
    page->SetTranslator([](const std::u16string& text, const std::u16string& lang) {
        if (text == kShuzi) return text;  // a piece comes back unchanged
        if (text == kShuzi + u"2024") return std::u16string(u"Digits 2024");
        return u"[" + lang + u"] " + text;
    });
    // The phrase's answer comes late: the pump must turn more than once.
    if (c.during == InPass::LateAnswer || c.during == InPass::FailedWait) {
        page->QueueBatchReplies({{}, {Kind::Answer, u"", u"", 500}});
    }
    bool inPass = false;
    int ticksInPass = 0;
    page->onBatchRequest = [&](const sim::PageRequest& request) {
        if (request.texts != std::vector<std::u16string>{kShuzi + u"2024"}) return;
        inPass = true;
        switch (c.during) {
            case InPass::Shutdown:
                pane->BeginShutdownEarly();
                break;
            case InPass::WindowDestroyed:
                pane->OnWindowDestroyed();
                break;
            case InPass::AbortCall:
                EXPECT_FALSE(pane->Controller()->Abort());
                break;
            case InPass::FailedWait:
                view.pumpAnswer = PumpResult::Failed;
                break;
            default:
                break;
        }
    };
    view.SetTimerSink([&](PaneTimer timer) {
        if (timer == PaneTimer::RunTick && inPass && pane->RunInProgress()) ++ticksInPass;
        pane->OnTimer(timer);
    });
    page->Start(u"{\"action\":\"start\",\"panelMode\":\"slide\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    view.pumpAnswer = PumpResult::Pumped;
    EXPECT_TRUE(inPass);
    EXPECT_EQ(deck->slides[0]->shapes[0]->frame.text, c.frame);
    EXPECT_EQ(U8(deck->slides[0]->shapes[1]->frame.text), "[en] Sales");
    EXPECT_EQ(page->CountEvents(u"onComplete"), c.completes);
    EXPECT_EQ(page->CountEvents(u"onError") + page->CountEvents(u"onCancelled"), 0u);
    EXPECT_FALSE(pane->RunInProgress());
    EXPECT_EQ(pane->Controller(), nullptr);
    EXPECT_EQ(lines.Count(u"PptPane run finished"), 1u);
    if (c.during == InPass::LateAnswer) {
        EXPECT_GT(ticksInPass, 0);  // nested ticks did nothing
    }
    if (*c.line) {
        EXPECT_TRUE(lines.Has(c.line)) << U8(c.line);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Pumps, PanePhraseTest,
    testing::Values(PassCase{"AnswerInThePump", InPass::Nothing, u"Digits 2024", 1,
                             u"PptCtrl BrokenPhrasePass begin"},
                    PassCase{"TicksWhileTheAnswerIsLate", InPass::LateAnswer, u"Digits 2024", 1,
                             u""},
                    PassCase{"HostShutdown", InPass::Shutdown, u"\u6570\u5b57\r2024", 0,
                             u"PptPane shutdown: run finishing, left to its tick"},
                    PassCase{"WindowDestroyed", InPass::WindowDestroyed, u"\u6570\u5b57\r2024", 0,
                             u"PptPane shutdown: run finishing, left to its tick"},
                    // The cancel that Abort sets is seen before the answer is used.
                    PassCase{"AbortFromThePump", InPass::AbortCall, u"\u6570\u5b57\r2024", 1,
                             u"PptCtrl abort: run finishing, left to its tick"},
                    PassCase{"FailedWait", InPass::FailedWait, u"\u6570\u5b57\r2024", 1, u""}),
    [](const testing::TestParamInfo<PassCase>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace qb::test
