// The worker's loop over slides and batches, against a scripted transport:
// batch sizes, retries and halving, final codes, cancel and pause, progress,
// terminology and locked placeholders.
#include <gtest/gtest.h>

#include <deque>
#include <functional>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "foundation/trace.h"
#include "run/batch_loop.h"
#include "run/placeholders.h"
#include "support/manual_clock.h"
#include "support/temp_dir.h"

namespace qb {
namespace {

// Answers each request with a rule (the next scripted one, else a default
// that "translates" by upper-casing a marker), and records every request.
class ScriptedTransport {
  public:
    using Rule = std::function<TranslateBatchResult(const TranslateBatchRequest&)>;

    BatchTransport Road() {
        return [this](const TranslateBatchRequest& request) {
            requests.push_back(request);
            if (!script.empty()) {
                Rule rule = script.front();
                script.pop_front();
                return rule(request);
            }
            return Translate(request);
        };
    }

    static TranslateBatchResult Translate(const TranslateBatchRequest& request) {
        TranslateBatchResult result;
        result.ok = true;
        for (const auto& text : request.texts)
            result.translations.push_back(u"T(" + text + u")");
        return result;
    }
    static Rule Fail(std::u16string code, std::u16string message) {
        return [code, message](const TranslateBatchRequest&) {
            TranslateBatchResult result;
            result.code = code;
            result.message = message;
            return result;
        };
    }
    static Rule Short() {  // one translation too few
        return [](const TranslateBatchRequest& request) {
            TranslateBatchResult result = Translate(request);
            result.translations.pop_back();
            return result;
        };
    }

    std::vector<std::size_t> Sizes() const {
        std::vector<std::size_t> sizes;
        for (const auto& r : requests)
            sizes.push_back(r.texts.size());
        return sizes;
    }

    std::deque<Rule> script;
    std::vector<TranslateBatchRequest> requests;
};

struct RunFixture {
    TranslateClientConfig config;
    std::vector<std::u16string> texts;
    std::vector<std::u16string> translations;
    std::u16string errorMessage, errorCode;
    std::atomic<HRESULT> workerResult{S_OK};
    std::vector<SlideSpan> spans;
    std::atomic<std::int32_t> readySpans{0};
    ScriptedTransport transport;
    struct Progress {
        std::int32_t number, total;
        bool skipped;
        std::u16string source, translation;
    };
    std::vector<Progress> progress;

    // One span a slide, `sizes` units each.
    explicit RunFixture(std::vector<std::int32_t> sizes) {
        std::int32_t at = 0;
        for (std::int32_t size : sizes) {
            spans.push_back({at, at + size});
            for (std::int32_t i = 0; i < size; ++i) {
                texts.push_back(u"slide text " + AsciiToUtf16(std::to_string(at + i)));
            }
            at += size;
        }
        config.nativeRoad = transport.Road();
    }

    WorkerArgs Args() {
        WorkerArgs args;
        args.config = &config;
        args.texts = &texts;
        args.translations = &translations;
        args.errorMessage = &errorMessage;
        args.errorCode = &errorCode;
        args.workerResult = &workerResult;
        args.spans = &spans;
        args.readySpans = &readySpans;
        args.onProgress = [this](std::int32_t n, std::int32_t total, bool skipped,
                                 const std::u16string& source, const std::u16string& translation) {
            progress.push_back({n, total, skipped, source, translation});
        };
        return args;
    }

    void Work() {
        WorkerArgs args = Args();
        EXPECT_EQ(WorkerMain(args), 0u);
    }
};

TEST(BatchLoop, BatchesHoldAtMostTwentyUnitsAndNeverCrossASlide) {
    const struct {
        const char* name;
        std::vector<std::int32_t> slides;
        std::vector<std::size_t> batches;
    } cases[] = {
        {"45 units on one slide", {45}, {20, 20, 5}},
        {"12 and 13 units on two slides", {12, 13}, {12, 13}},
        {"empty slides send nothing", {0, 3, 0}, {3}},
        {"exactly twenty", {20, 21}, {20, 20, 1}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        RunFixture run(c.slides);
        run.Work();
        EXPECT_EQ(run.transport.Sizes(), c.batches);
        EXPECT_EQ(run.workerResult.load(), S_OK);
        EXPECT_EQ(run.readySpans.load(), static_cast<std::int32_t>(c.slides.size()));
        ASSERT_EQ(run.translations.size(), run.texts.size());
        for (std::size_t i = 0; i < run.texts.size(); ++i) {
            EXPECT_EQ(run.translations[i], u"T(" + run.texts[i] + u")");
        }
    }
}

TEST(BatchLoop, ProgressReportsEveryUnitInOrderAndMarksUnchangedOnesSkipped) {
    RunFixture run({3});
    run.transport.script.push_back([](const TranslateBatchRequest& r) {
        TranslateBatchResult result;
        result.ok = true;
        result.translations = {u"eins", r.texts[1], u""};
        return result;
    });
    run.Work();
    ASSERT_EQ(run.progress.size(), 3u);
    EXPECT_EQ(run.progress[0].number, 1);
    EXPECT_EQ(run.progress[2].number, 3);
    EXPECT_EQ(run.progress[0].total, 3);
    EXPECT_FALSE(run.progress[0].skipped);
    EXPECT_TRUE(run.progress[1].skipped);  // equal to its source, still stored
    EXPECT_TRUE(run.progress[2].skipped);  // empty
    EXPECT_EQ(run.translations[1], run.texts[1]);
}

TEST(BatchLoop, FailingBatchesAreRetriedOnceThenHalved) {
    const struct {
        const char* name;
        std::vector<ScriptedTransport::Rule> script;
        std::vector<std::size_t> sizes;
        HRESULT result;
        std::u16string code, message;
    } cases[] = {
        {"a short reply is tried again, then as 10 and 10",
         {ScriptedTransport::Short(), ScriptedTransport::Short()},
         {20, 20, 10, 10},
         S_OK,
         u"",
         u""},
        {"unauthorized is final",
         {ScriptedTransport::Fail(u"unauthorized", u"login expired")},
         {20},
         kWorkerFailed,
         u"unauthorized",
         u"login expired"},
        {"insufficient credits is final",
         {ScriptedTransport::Fail(u"", u"x"),
          ScriptedTransport::Fail(u"insufficient_credits", u"no credits")},
         {20, 20},
         kWorkerFailed,
         u"insufficient_credits",
         u"no credits"},
        {"a failure that stays fails the run at a single text",
         std::vector<ScriptedTransport::Rule>(64,
                                              ScriptedTransport::Fail(u"server_error", u"boom")),
         {20, 20, 10, 10, 5, 5, 2, 2, 1, 1},
         kWorkerFailed,
         u"server_error",
         u"boom"},
        {"defaults when the failure says nothing",
         std::vector<ScriptedTransport::Rule>(64, ScriptedTransport::Fail(u"", u"")),
         {20, 20, 10, 10, 5, 5, 2, 2, 1, 1},
         kWorkerFailed,
         u"translate_failed",
         u"HTTP request failed"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        RunFixture run({20});
        run.transport.script.assign(c.script.begin(), c.script.end());
        run.Work();
        EXPECT_EQ(run.transport.Sizes(), c.sizes);
        EXPECT_EQ(run.workerResult.load(), c.result);
        EXPECT_EQ(run.errorCode, c.code);
        EXPECT_EQ(run.errorMessage, c.message);
        EXPECT_EQ(run.readySpans.load(), c.result == S_OK ? 1 : 0);
    }
}

TEST(BatchLoop, ASingleTextKeepsTheFirstFailureWhenTheSecondSaysNothing) {
    TranslateClientConfig config;
    ScriptedTransport transport;
    config.nativeRoad = transport.Road();
    transport.script = {ScriptedTransport::Fail(u"", u"first words"),
                        ScriptedTransport::Fail(u"", u"")};
    std::u16string translation, message, code;
    EXPECT_FALSE(TranslateText(config, u"alone", translation, message, code));
    EXPECT_EQ(message, u"first words");
    EXPECT_EQ(transport.requests.size(), 2u);
}

TEST(BatchLoop, CancelBetweenBatchesSendsNothingMore) {
    RunFixture run({20, 20});
    WorkerArgs args = run.Args();
    args.onProgress = [&run](std::int32_t n, std::int32_t, bool, const std::u16string&,
                             const std::u16string&) {
        if (n == 20) run.config.cancelled = 1;  // the user cancels once the first batch is in
    };
    WorkerMain(args);
    EXPECT_EQ(run.transport.requests.size(), 1u);
    EXPECT_EQ(run.workerResult.load(), kWorkerCancelled);
    EXPECT_TRUE(run.errorMessage.empty());
    EXPECT_EQ(run.readySpans.load(), 1);  // the finished slide is still handed over
}

// A cancel while a batch is out fails that batch as cancelled: the answer is
// checked text by text, and each check looks at the flag first.
TEST(BatchLoop, CancelWhileABatchIsOutDropsThatBatch) {
    RunFixture run({3, 3});
    run.transport.script.push_back([&run](const TranslateBatchRequest& r) {
        run.config.cancelled = 1;
        return ScriptedTransport::Translate(r);
    });
    run.Work();
    EXPECT_EQ(run.transport.requests.size(), 1u);
    EXPECT_EQ(run.workerResult.load(), kWorkerCancelled);
    EXPECT_EQ(run.errorCode, u"cancelled");
    EXPECT_EQ(run.readySpans.load(), 0);
}

TEST(BatchLoop, CancelDuringAnExchangeEndsTheRunAsCancelled) {
    RunFixture run({5});
    run.transport.script.push_back([&run](const TranslateBatchRequest&) {
        run.config.cancelled = 1;
        TranslateBatchResult broken;  // the exchange breaks off as a transport failure
        broken.code = u"network_error";
        return broken;
    });
    run.Work();
    EXPECT_EQ(run.transport.requests.size(), 1u);
    EXPECT_EQ(run.workerResult.load(), kWorkerCancelled);
    EXPECT_EQ(run.errorCode, u"cancelled");
}

// A clock whose sleeps are counted, and which lifts the pause after three.
class ResumingClock final : public test::ManualClock {
  public:
    explicit ResumingClock(TranslateClientConfig& config) : config_(config) {}
    void Sleep(std::uint32_t ms) override {
        ManualClock::Sleep(ms);
        if (++sleeps == 3) config_.paused = 0;
    }
    int sleeps = 0;

  private:
    TranslateClientConfig& config_;
};

TEST(BatchLoop, APausedWorkerWaitsInFiftyMillisecondSteps) {
    RunFixture run({2, 2});
    ResumingClock clock(run.config);
    test::ScopedClock scope(clock);
    run.transport.script.push_back([&run](const TranslateBatchRequest& r) {
        run.config.paused = 1;
        return ScriptedTransport::Translate(r);
    });
    const std::uint64_t before = clock.TickCount64();
    run.Work();
    EXPECT_EQ(clock.sleeps, 3);
    EXPECT_EQ(clock.TickCount64() - before, 3 * kPauseStepMs);
    EXPECT_EQ(run.readySpans.load(), 2);
    EXPECT_EQ(run.workerResult.load(), S_OK);
}

TEST(BatchLoop, TerminologyIsResolvedOnceOverTheFirstTwoHundredTexts) {
    RunFixture run({150, 51});
    std::vector<std::u16string> corpus;
    int calls = 0;
    WorkerArgs args = run.Args();
    args.terminologyResolver =
        [&](const std::vector<std::u16string>& texts, std::u16string& instruction,
            std::vector<TranslationGlossaryItem>& glossary, std::u16string&, std::u16string&) {
            ++calls;
            corpus = texts;
            instruction = u"Formal tone";
            glossary = {{u"slide text 7", u"Folie sieben", u""}, {u"absent", u"nie", u"note"}};
            return true;
        };
    WorkerMain(args);
    EXPECT_EQ(calls, 1);
    ASSERT_EQ(corpus.size(), 200u);
    EXPECT_EQ(corpus.back(), run.texts[199]);
    ASSERT_FALSE(run.transport.requests.empty());
    const TranslateBatchRequest& first = run.transport.requests[0];
    EXPECT_EQ(first.instruction, u"Formal tone");
    // Only the entry whose source stands in the batch travels with it.
    ASSERT_EQ(first.glossary.size(), 1u);
    EXPECT_EQ(first.glossary[0].target, u"Folie sieben");
    EXPECT_TRUE(run.transport.requests[1].glossary.empty());
}

TEST(BatchLoop, AFailedTerminologyResolveSendsNoBatch) {
    const struct {
        std::u16string code, message;
        HRESULT result;
        std::u16string expectedCode, expectedMessage;
    } cases[] = {
        {u"", u"", kWorkerFailed, u"terminology_resolve_failed", u"terminology resolve failed"},
        {u"unauthorized", u"token refused", kWorkerFailed, u"unauthorized", u"token refused"},
        {u"cancelled", u"", kWorkerCancelled, u"cancelled", u"terminology resolve failed"},
    };
    for (const auto& c : cases) {
        RunFixture run({3});
        WorkerArgs args = run.Args();
        args.terminologyResolver = [&](const std::vector<std::u16string>&, std::u16string&,
                                       std::vector<TranslationGlossaryItem>&, std::u16string& code,
                                       std::u16string& message) {
            code = c.code;
            message = c.message;
            return false;
        };
        WorkerMain(args);
        EXPECT_TRUE(run.transport.requests.empty());
        EXPECT_EQ(run.workerResult.load(), c.result);
        EXPECT_EQ(run.errorCode, c.expectedCode);
        EXPECT_EQ(run.errorMessage, c.expectedMessage);
    }
}

TEST(BatchLoop, RequestsCarryTheRunsLanguagesAndIds) {
    test::ManualClock clock;  // httpMs is measured: no real time may pass
    test::ScopedClock scope(clock);
    RunFixture run({1});
    run.config.sourceLang = u"en";
    run.config.targetLang = u"de";
    run.config.usageKind = u"translate_selection";
    run.config.clientTraceId = u"ppt_42";
    run.config.runId = 42;
    run.Work();
    ASSERT_EQ(run.transport.requests.size(), 1u);
    const TranslateBatchRequest& r = run.transport.requests[0];
    EXPECT_EQ(r.sourceLang, u"en");
    EXPECT_EQ(r.targetLang, u"de");
    EXPECT_EQ(r.usageKind, u"translate_selection");
    EXPECT_EQ(r.clientProduct, u"ppt");
    EXPECT_EQ(r.clientTraceId, u"ppt_42");
    EXPECT_EQ(r.runId, 42u);
    EXPECT_TRUE(r.unitIds.empty());
    // Each exchange leaves one line in the service log.
    const std::string log =
        test::ReadFileBytes(platform::JoinPath(GetLogDirectory(), kHttpTraceFileName));
    EXPECT_NE(
        log.find("clientTraceId=ppt_42 runId=42 batchSeq=0 segs=1 chars=12 httpMs=0 ok=1 code=\n"),
        std::string::npos);
}

TEST(BatchLoop, TheOverrideRoadWinsOverTheNativeOne) {
    RunFixture run({2});
    ScriptedTransport panel;
    run.config.translateOverride = panel.Road();
    run.Work();
    EXPECT_EQ(panel.requests.size(), 1u);
    EXPECT_TRUE(run.transport.requests.empty());
}

TEST(LockedTokens, CountsTokensOfTheExactForm) {
    const struct {
        std::u16string text;
        std::uint32_t count;
    } cases[] = {
        {u"[[QB_A_12]]", 1},
        {u"[[qb_a_12]]", 1},
        {u"[[QB_A_]]", 0},
        {u"[[QB_A_1]", 0},
        {u"[QB_A_1]]", 0},
        {u"[[QB__1]]", 1},
        {u"[[QB_A_B_1]]", 0},
        {u"[[[QB_X_1]]", 1},
        {u"see [[QB_F_1]] and [[QB_F_2]].", 2},
        {u"[[QB_\u4E2D_7]]", 1},
        {u"[[QB_A_1 ]]", 0},
        {u"[[QB_A_\u0661]]", 0},
        {u"", 0},
        {u"[[QB_", 0},
        {u"[[QB_A_1]][[QB_B_2]]", 2},
    };
    for (const auto& c : cases)
        EXPECT_EQ(CountLockedTokens(c.text), c.count) << Utf16ToUtf8(c.text);
}

TEST(LockedTokens, ATranslationThatLostItsTokensIsSentAgainAlone) {
    const std::u16string source = u"Total [[QB_F_1]] of [[QB_X_2]]";
    const struct {
        const char* name;
        std::u16string translation;
        std::vector<ScriptedTransport::Rule> repair;
        bool ok;
        std::u16string result, message;
        std::size_t requests;
    } cases[] = {
        {"other tokens of the same count pass",
         u"Gesamt [[QB_Z_9]] [[QB_Y_8]]",
         {},
         true,
         u"Gesamt [[QB_Z_9]] [[QB_Y_8]]",
         u"",
         1},
        {"a repair that keeps them is taken",
         u"Gesamt",
         {[](const TranslateBatchRequest&) {
             TranslateBatchResult r;
             r.ok = true;
             r.translations = {u"Summe [[QB_F_1]] von [[QB_X_2]]"};
             return r;
         }},
         true,
         u"Summe [[QB_F_1]] von [[QB_X_2]]",
         u"",
         2},
        {"a repair that fails",
         u"Gesamt",
         {ScriptedTransport::Fail(u"", u"")},
         false,
         u"",
         u"Placeholder repair failed",
         2},
        {"a repair that still loses them",
         u"Gesamt",
         {[](const TranslateBatchRequest&) {
             TranslateBatchResult r;
             r.ok = true;
             r.translations = {u"Summe [[QB_F_1]]"};
             return r;
         }},
         false,
         u"",
         u"Translation altered locked placeholders (cross-ref/formula)",
         2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TranslateClientConfig config;
        ScriptedTransport transport;
        config.nativeRoad = transport.Road();
        const std::u16string translation = c.translation;
        transport.script.push_back([translation](const TranslateBatchRequest&) {
            TranslateBatchResult r;
            r.ok = true;
            r.translations = {u"plain", translation};
            return r;
        });
        transport.script.insert(transport.script.end(), c.repair.begin(), c.repair.end());
        std::vector<std::u16string> out;
        std::u16string message, code;
        const bool ok =
            TranslateWithSplit(config, {u"no tokens here", source}, out, message, code, nullptr);
        EXPECT_EQ(ok, c.ok);
        EXPECT_EQ(message, c.message);
        EXPECT_EQ(transport.requests.size(), c.requests);
        if (c.ok) {
            ASSERT_EQ(out.size(), 2u);
            EXPECT_EQ(out[1], c.result);
        }
        if (c.requests > 1) {
            EXPECT_EQ(transport.requests[1].texts, std::vector<std::u16string>{source});
        }
    }
}

}  // namespace
}  // namespace qb
