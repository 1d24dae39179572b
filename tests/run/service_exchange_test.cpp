// The native road from end to end on Linux: the run controller over the
// simulated host, the translate client and the stand-in service on the
// loopback address. Every fault of the service gives its code and message,
// and no unit loses its source text. Also: the stand-in's own checks, the
// telemetry beacons, and that no token reaches a log file.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "foundation/trace.h"
#include "run/beacons.h"
#include "run/client_identity.h"
#include "run/json.h"
#include "run/placeholders.h"
#include "run/ppt_ctrl.h"
#include "run/service_client.h"
#include "run/sim_run_steps.h"
#include "run/sta_gate.h"
#include "run/terminology.h"
#include "sim/host/deck_builder.h"
#include "sim/host/json_value.h"
#include "sim/host/sim_host.h"
#include "sim/service/pseudo_translate.h"
#include "sim/service/stand_in_service.h"
#include "support/manual_clock.h"
#include "support/service_endpoint.h"

namespace qb {
namespace {

using sim::Fault;
using sim::FaultKind;

Fault StatusFault(int status, std::string body = {}) {
    Fault fault;
    fault.kind = FaultKind::Status;
    fault.status = status;
    fault.body = std::move(body);
    return fault;
}

Fault KindFault(FaultKind kind) {
    Fault fault;
    fault.kind = kind;
    return fault;
}

std::u16string Field(const std::string& body, std::u16string_view key) {
    return ReadJsonString(Utf8ToUtf16(body), key);
}

class ServiceExchangeTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(service_.Start());
        Aim(service_, 3000);
    }
    void TearDown() override {
        endpoint_.reset();
        service_.Stop();
    }
    // The old scope ends first: its end removes the override.
    void Aim(const sim::StandInService& service, std::uint32_t timeoutMs) {
        endpoint_.reset();
        endpoint_ = std::make_unique<test::ScopedServiceEndpoint>(
            static_cast<std::uint16_t>(service.Port()), timeoutMs);
    }

    sim::StandInService service_;
    std::unique_ptr<test::ScopedServiceEndpoint> endpoint_;
};

TEST_F(ServiceExchangeTest, ARequestCarriesItsHeadersTokenAndClientContext) {
    TranslateClientConfig config;
    config.accessToken = u"stand-in-token";
    TranslateBatchRequest request;
    request.texts = {u"One", u"Two"};
    request.sourceLang = u"en";
    request.targetLang = u"ja";
    request.runId = 99;
    const TranslateBatchResult result = TranslateNative(config, request);
    ASSERT_TRUE(result.ok) << Utf16ToUtf8(result.message);
    EXPECT_EQ(result.translations[1], sim::PseudoTranslate(u"Two", u"ja"));

    const auto seen = service_.RequestsTo("/v1/translate");
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].authorization, "Bearer stand-in-token");
    EXPECT_EQ(seen[0].userAgent, "Quillbrook/1.0");
    EXPECT_EQ(seen[0].contentType, "application/json");
    EXPECT_EQ(seen[0].status, 200);
    EXPECT_EQ(Utf8ToUtf16(seen[0].body), BuildTranslateBody(request));
    EXPECT_EQ(Field(seen[0].body, u"installId"), GetInstallId());
}

// A service told a latency answers no sooner than that, and answers as
// usual: what a benchmark leans on when it measures a run against it.
TEST_F(ServiceExchangeTest, AServiceWithALatencyAnswersAfterItAsUsual) {
    sim::StandInService::Options options;
    options.latencyMs = 200;
    sim::StandInService slow(options);
    ASSERT_TRUE(slow.Start());
    Aim(slow, 3000);
    TranslateClientConfig config;
    config.accessToken = u"stand-in-token";
    TranslateBatchRequest request;
    request.texts = {u"One"};
    request.sourceLang = u"en";
    request.targetLang = u"de";
    const auto began = std::chrono::steady_clock::now();
    const TranslateBatchResult result = TranslateNative(config, request);
    const auto took = std::chrono::steady_clock::now() - began;
    ASSERT_TRUE(result.ok) << Utf16ToUtf8(result.message);
    EXPECT_EQ(result.translations[0], sim::PseudoTranslate(u"One", u"de"));
    EXPECT_GE(took, std::chrono::milliseconds(200));
    const std::u16string resolved =
        ResolveTerminologyNative(HttpEndpoint(), u"stand-in-token", {}, u"", {u"One"}).instruction;
    EXPECT_EQ(resolved, u"");
    ASSERT_EQ(slow.RequestsTo("/v1/terminology/resolve").size(), 1u);
    EXPECT_EQ(slow.RequestsTo("/v1/terminology/resolve")[0].status, 200);
    EXPECT_TRUE(service_.Requests().empty());
}

TEST_F(ServiceExchangeTest, WithoutATokenNoAuthorizationHeaderIsSent) {
    TranslateClientConfig config;
    TranslateBatchRequest request;
    request.texts = {u"One"};
    const TranslateBatchResult result = TranslateNative(config, request);
    EXPECT_EQ(result.code, u"unauthorized");
    EXPECT_EQ(result.message, kUnauthorizedMessage);
    const auto seen = service_.RequestsTo("/v1/translate");
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].authorization, "");
    EXPECT_EQ(seen[0].status, 401);
}

TEST_F(ServiceExchangeTest, APausedExchangeWaitsAndACancelEndsItUnsent) {
    TranslateClientConfig config;
    config.accessToken = u"stand-in-token";
    config.paused = 1;
    TranslateBatchRequest request;
    request.texts = {u"One"};
    TranslateBatchResult result;
    std::thread worker([&] { result = TranslateNative(config, request); });
    config.cancelled = 1;
    worker.join();
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.code, u"network_error");
    EXPECT_EQ(result.message, u"Cancelled");
    EXPECT_TRUE(service_.RequestsTo("/v1/translate").empty());
}

TEST_F(ServiceExchangeTest, TheStandInChecksTheFieldsOfEachEndpoint) {
    const std::u16string token = u"stand-in-token";
    const std::string context = Utf16ToUtf8(BuildClientContext());
    struct Case {
        const char16_t* path;
        bool withToken;
        std::string body;
        std::uint32_t status;
    };
    const Case cases[] = {
        {kTranslatePath, true, "not json", 400},
        {kTranslatePath, true, "{\"texts\":[\"a\"],\"sourceLang\":\"en\",\"targetLang\":\"de\"}",
         400},
        {kTranslatePath, true,
         "{\"texts\":[1],\"sourceLang\":\"en\",\"targetLang\":\"de\",\"clientContext\":" + context +
             "}",
         400},
        {kTranslatePath, true,
         "{\"texts\":[\"a\"],\"sourceLang\":\"en\",\"targetLang\":\"de\",\"trace\":{\"runId\":5},"
         "\"clientContext\":" +
             context + "}",
         400},
        {kTranslatePath, false,
         "{\"texts\":[\"a\"],\"sourceLang\":\"en\",\"targetLang\":\"de\",\"clientContext\":" +
             context + "}",
         401},
        {kTerminologyPath, true, "{\"glossaryIds\":[],\"corpusTexts\":[]}", 400},
        {kAnalyticsPath, true,
         "{\"events\":[{\"event\":\"x\",\"context\":" + context + ",\"outcome\":\"ok\"}]}", 400},
        {kAnalyticsPath, false, "{\"events\":[]}", 400},
        {kAnalyticsPath, false,
         "{\"events\":[{\"event\":\"x\",\"context\":" + context + ",\"outcome\":\"ok\"}]}", 200},
    };
    for (const Case& c : cases) {
        std::uint32_t status = 0;
        HttpPostJson(HttpEndpoint(), c.path, c.body, nullptr, c.withToken ? &token : nullptr,
                     nullptr, nullptr, &status);
        EXPECT_EQ(status, c.status) << Utf16ToUtf8(c.path) << " " << c.body;
    }
}

TEST_F(ServiceExchangeTest, TerminologyGivesTheTermsFoundInTheCorpus) {
    service_.AddTerm(u"g1", {u"Umsatz", u"revenue", u"finance", true});
    service_.AddTerm(u"g1", {u"Gewinn", u"profit", u"", false});
    service_.AddTerm(u"g2", {u"Absent", u"none", u"", true});
    service_.SetInstruction(u"i1", u"Keep it formal");
    const std::u16string token = u"stand-in-token";
    const std::string body =
        "{\"glossaryIds\":[\"g1\",\"g2\"],\"instructionId\":\"i1\",\"corpusTexts\":[\"Der "
        "Umsatz\",\"Gewinn steigt\"],\"maxEntries\":200}";
    const std::u16string reply =
        HttpPostJson(HttpEndpoint(), kTerminologyPath, body, nullptr, &token);
    const std::optional<sim::JsonValue> parsed = sim::ParseJson(Utf16ToUtf8(reply));
    ASSERT_TRUE(parsed) << Utf16ToUtf8(reply);
    EXPECT_EQ(parsed->Find(u"instruction")->StringValue(), u"Keep it formal");
    const auto& entries = parsed->Find(u"entries")->Items();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].Find(u"target")->StringValue(), u"revenue");
    EXPECT_EQ(entries[1].Find(u"source")->StringValue(), u"Gewinn");
    EXPECT_FALSE(entries[1].Find(u"enabled")->BoolValue());
}

TEST_F(ServiceExchangeTest, AFaultRuleAppliesAsOftenAsItSaysOnlyWhereItMatches) {
    TranslateClientConfig config;
    config.accessToken = u"stand-in-token";
    TranslateBatchRequest request;
    request.texts = {u"alpha"};
    service_.AddRule(sim::ServiceRule{"/v1/translate", "beta", -1, StatusFault(500)});
    service_.FailNext("/v1/translate", StatusFault(402), 2);
    EXPECT_EQ(TranslateNative(config, request).code, u"insufficient_credits");
    EXPECT_EQ(TranslateNative(config, request).code, u"insufficient_credits");
    EXPECT_TRUE(TranslateNative(config, request).ok);
    request.texts = {u"beta"};
    EXPECT_EQ(TranslateNative(config, request).code, u"network_error");
    EXPECT_EQ(TranslateNative(config, request).code, u"network_error");
}

// The whole run: collected from the simulated host, translated through the
// stand-in, written back.
class NativeRoadRunTest : public ServiceExchangeTest {
  protected:
    void SetUp() override {
        ServiceExchangeTest::SetUp();
        StaGate::ResetForTesting();
        BusyPresentationRegistry::ResetForTesting();
        sim::DeckBuilder b;
        b.Slide().Text(u"Title", u"Quarterly report").Text(u"Body", u"Revenue [[QB_A_1]] grew");
        b.Slide().Text(u"Body", u"Second slide text");
        deck_ = host_.AddPresentation(b.Build());
    }
    void TearDown() override {
        StaGate::ResetForTesting();
        BusyPresentationRegistry::ResetForTesting();
        ServiceExchangeTest::TearDown();
    }

    // Runs to its end; the closing callback's words.
    std::pair<std::u16string, std::u16string> Run(std::u16string token = u"stand-in-token") {
        test::SimRunSteps steps;
        PptCtrl run(host_.Application(), steps);
        std::u16string code = u"(none)", message;
        RunCallbacks callbacks;
        callbacks.onComplete = [&](std::int64_t, std::int32_t, bool) { code = u"complete"; };
        callbacks.onError = [&](const std::u16string& c, const std::u16string& m) {
            code = c;
            message = m;
        };
        RunOptions options;
        options.scope = RunScope::Selection;
        options.fullDeck = false;
        options.targetLang = u"fr";
        options.accessToken = std::move(token);
        options.window.hwnd = host_.App().windows[0]->hwnd;
        options.runId = 11;
        options.nativeService = true;
        std::u16string startMessage;
        EXPECT_TRUE(run.Start(options, &callbacks, startMessage)) << Utf16ToUtf8(startMessage);
        run.WaitForWorker();
        EXPECT_TRUE(run.Tick());
        EXPECT_EQ(run.Lists().texts.size(), 3u);
        return {code, message};
    }

    std::u16string TextOf(std::size_t slide, std::size_t shape) {
        return deck_->slides[slide]->shapes[shape]->frame.text;
    }

    test::ManualClock clock_;
    test::ScopedClock scope_{clock_};
    sim::SimHost host_;
    std::shared_ptr<sim::PresentationModel> deck_;
};

TEST_F(NativeRoadRunTest, ARunIsTranslatedThroughTheServiceAndWrittenBack) {
    const auto [code, message] = Run();
    EXPECT_EQ(code, u"complete") << Utf16ToUtf8(message);
    EXPECT_EQ(TextOf(0, 0), sim::PseudoTranslate(u"Quarterly report", u"fr"));
    EXPECT_EQ(TextOf(0, 1), sim::PseudoTranslate(u"Revenue [[QB_A_1]] grew", u"fr"));
    EXPECT_EQ(CountLockedTokens(TextOf(0, 1)), 1u);
    EXPECT_EQ(TextOf(1, 0), sim::PseudoTranslate(u"Second slide text", u"fr"));
    const auto seen = service_.RequestsTo("/v1/translate");
    ASSERT_EQ(seen.size(), 2u);  // one batch a slide
    EXPECT_EQ(Field(seen[0].body, u"runId"), u"11");
    EXPECT_EQ(Field(seen[0].body, u"targetLang"), u"fr");
}

TEST_F(NativeRoadRunTest, PlaceholdersDamagedOnceAreRepairedByOneMoreRequest) {
    service_.FailNext("/v1/translate", KindFault(FaultKind::DamagedPlaceholders));
    const auto [code, message] = Run();
    EXPECT_EQ(code, u"complete") << Utf16ToUtf8(message);
    EXPECT_EQ(TextOf(0, 1), sim::PseudoTranslate(u"Revenue [[QB_A_1]] grew", u"fr"));
}

// A fault on the second slide: the first is translated, the second keeps
// its source text, and the run ends with the fault's code and message.
TEST_F(NativeRoadRunTest, EveryFaultOfTheServiceEndsTheRunWithItsCodeAndNoTextLost) {
    struct Case {
        const char* name;
        Fault fault;
        std::u16string code;
        std::u16string message;
    };
    Fault late = KindFault(FaultKind::Late);
    late.delayMs = 10000;
    const Case cases[] = {
        {"401", StatusFault(401), u"unauthorized", kUnauthorizedMessage},
        {"402", StatusFault(402), u"insufficient_credits", kInsufficientCreditsMessage},
        {"402 with words", StatusFault(402, "{\"message\":\"\u79ef\u5206\u4e0d\u8db3\"}"),
         u"insufficient_credits", u"\u79ef\u5206\u4e0d\u8db3"},
        {"500", StatusFault(500), u"network_error", u"HTTP request failed"},
        {"429 with words", StatusFault(429, "{\"code\":\"rate_limited\",\"message\":\"slow\"}"),
         u"rate_limited", u"slow"},
        {"wrong count", KindFault(FaultKind::WrongCount), u"translate_failed",
         u"Translation count mismatch"},
        {"damaged placeholders", KindFault(FaultKind::DamagedPlaceholders), u"translate_failed",
         u"Translation altered locked placeholders (cross-ref/formula)"},
        {"dropped connection", KindFault(FaultKind::Drop), u"network_error",
         u"HTTP request failed"},
        {"too late", late, u"network_error", u"HTTP request failed"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        BusyPresentationRegistry::ResetForTesting();
        StaGate::ResetForTesting();
        for (auto& slide : deck_->slides)
            (void)slide;
        deck_->slides[0]->shapes[0]->frame.text = u"Quarterly report";
        deck_->slides[0]->shapes[1]->frame.text = u"Revenue [[QB_A_1]] grew";
        deck_->slides[1]->shapes[0]->frame.text = u"Second [[QB_B_2]] slide";
        service_.ClearRules();
        // Only requests that hold the second slide's text fail.
        service_.AddRule(sim::ServiceRule{"/v1/translate", "Second", -1, c.fault});
        Aim(service_, 300);
        const auto [code, message] = Run();
        EXPECT_EQ(Utf16ToUtf8(code), Utf16ToUtf8(c.code));
        EXPECT_EQ(Utf16ToUtf8(message), Utf16ToUtf8(c.message));
        EXPECT_EQ(TextOf(0, 0), sim::PseudoTranslate(u"Quarterly report", u"fr"));
        EXPECT_EQ(TextOf(1, 0), u"Second [[QB_B_2]] slide");
    }
}

TEST_F(NativeRoadRunTest, ARunWithoutATokenIsUnauthorizedAndWritesNothing) {
    const auto [code, message] = Run(u"");
    EXPECT_EQ(code, u"unauthorized");
    EXPECT_EQ(message, kUnauthorizedMessage);
    EXPECT_EQ(TextOf(0, 0), u"Quarterly report");
    EXPECT_EQ(TextOf(1, 0), u"Second slide text");
}

// Each line the trace hands to its listener, for tests to wait on.
class TraceLines {
  public:
    TraceLines() { platform::SetDebugListener(&TraceLines::Hear, this); }
    ~TraceLines() { platform::SetDebugListener(nullptr, nullptr); }

    bool WaitFor(std::u16string_view text, std::uint32_t timeoutMs) {
        std::unique_lock<std::mutex> hold(lock_);
        return changed_.wait_for(hold, std::chrono::milliseconds(timeoutMs),
                                 [&] { return Has(text); });
    }
    bool Contains(std::u16string_view text) {
        std::lock_guard<std::mutex> hold(lock_);
        return Has(text);
    }

  private:
    static void Hear(void* self, std::u16string_view text) {
        auto* lines = static_cast<TraceLines*>(self);
        std::lock_guard<std::mutex> hold(lines->lock_);
        lines->heard_ += text;
        lines->changed_.notify_all();
    }
    bool Has(std::u16string_view text) const { return heard_.find(text) != std::u16string::npos; }

    std::mutex lock_;
    std::condition_variable changed_;
    std::u16string heard_;
};

class BeaconTest : public ServiceExchangeTest {
  protected:
    void SetUp() override {
        ServiceExchangeTest::SetUp();
        ResetBeaconLatchesForTesting();
    }
    void TearDown() override {
        EXPECT_TRUE(WaitForBeaconsForTesting(10000));
        ResetBeaconLatchesForTesting();
        ServiceExchangeTest::TearDown();
    }
};

TEST_F(BeaconTest, TheLoadedEventGoesOnceAProcessAndTheSupportClickEachTime) {
    SendEvent(kLoadedEvent, u"client");
    SendEvent(kLoadedEvent, u"client");
    SendEvent(kSupportClickEvent, u"ribbon");
    SendEvent(kSupportClickEvent, u"");
    ASSERT_TRUE(WaitForBeaconsForTesting(10000));
    EXPECT_TRUE(LoadedEventSent());
    const auto seen = service_.RequestsTo("/v1/analytics/events");
    ASSERT_EQ(seen.size(), 3u);
    int loaded = 0, clicks = 0;
    for (const auto& request : seen) {
        EXPECT_EQ(request.status, 200) << request.body;
        EXPECT_EQ(request.authorization, "");
        const std::u16string event = Field(request.body, u"event");
        if (event == u"addin:loaded") {
            ++loaded;
            EXPECT_EQ(Field(request.body, u"source"), u"client");
        } else {
            ++clicks;
            EXPECT_EQ(event, u"support:entry_click");
        }
        EXPECT_EQ(Field(request.body, u"outcome"), u"ok");
        EXPECT_EQ(Field(request.body, u"installId"), GetInstallId());
    }
    EXPECT_EQ(loaded, 1);
    EXPECT_EQ(clicks, 2);
}

TEST_F(BeaconTest, TheBodiesHaveTheirExactForm) {
    const std::u16string context = BuildClientContext();
    EXPECT_EQ(BuildEventBody(u"support:entry_click", u""),
              u"{\"events\":[{\"event\":\"support:entry_click\",\"context\":" + context +
                  u",\"outcome\":\"ok\",\"props\":{\"source\":\"unknown\"}}]}");
    EXPECT_EQ(BuildPluginErrorBody(u"CreateCoreWebView2Environment failed",
                                   static_cast<std::int32_t>(0x80070002u)),
              u"{\"events\":[{\"event\":\"plugin:error\",\"context\":" + context +
                  u",\"outcome\":\"error\",\"errorCode\":\"webview2_init\",\"props\":{\"feature\":"
                  u"\"pane\",\"stage\":\"environment\",\"rawErrorCode\":\"0x80070002\"}}]}");
}

TEST(BeaconStageTest, TheFirstNamedStepWins) {
    const std::pair<const char16_t*, const char16_t*> cases[] = {
        {u"CreateCoreWebView2Environment failed", u"environment"},
        {u"environment then Controller", u"controller"},
        {u"controller", u"controller"},
        {u"userdata", u"user_data_dir"},
        {u"create", u"init"},
        {u"", u"init"},
    };
    for (const auto& [step, stage] : cases)
        EXPECT_EQ(StageOfStep(step), stage) << Utf16ToUtf8(step);
}

TEST_F(BeaconTest, ThePluginErrorGoesOnceAProcess) {
    SendPluginError(u"controller", static_cast<std::int32_t>(0x8007000Eu));
    SendPluginError(u"environment", static_cast<std::int32_t>(0x80004005u));
    ASSERT_TRUE(WaitForBeaconsForTesting(10000));
    EXPECT_TRUE(PluginErrorSent());
    const auto seen = service_.RequestsTo("/v1/analytics/events");
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(Field(seen[0].body, u"stage"), u"controller");
    EXPECT_EQ(Field(seen[0].body, u"rawErrorCode"), u"0x8007000E");
}

TEST_F(BeaconTest, TheCallerNeverWaitsForTheService) {
    // The service holds the event until it stops; the caller has long gone on.
    service_.FailNext("/v1/analytics/events", KindFault(FaultKind::Never));
    SendEvent(kSupportClickEvent, u"ribbon");
    EXPECT_TRUE(service_.WaitForRequests("/v1/analytics/events", 1, 10000));
    EXPECT_EQ(service_.RequestsTo("/v1/analytics/events")[0].status, 0);  // still held
    service_.Stop();
}

TEST_F(BeaconTest, AFailedBeaconLeavesOneLogLineAndAnErrorReplyNone) {
    TraceLines lines;
    service_.FailNext("/v1/analytics/events", StatusFault(500, "{\"error\":\"down\"}"));
    SendEvent(kSupportClickEvent, u"ribbon");
    ASSERT_TRUE(WaitForBeaconsForTesting(10000));
    EXPECT_FALSE(lines.Contains(u"beacon failed"));

    test::ScopedServiceEndpoint nowhere(1);  // the network is down
    SendEvent(kLoadedEvent, u"client");
    EXPECT_TRUE(lines.WaitFor(u"addin:loaded beacon failed: HTTP request failed", 10000));
    // The thread still writes the line's end; the listener must outlive it.
    EXPECT_TRUE(WaitForBeaconsForTesting(10000));
}

// Reads every log file of the process's log folder as UTF-8 and UTF-16.
std::u16string AllLogText() {
    std::u16string all;
    const std::u16string directory = GetLogDirectory();
    for (const auto& entry : platform::ListDirectory(directory)) {
        std::string bytes;
        if (!platform::ReadWholeFile(platform::JoinPath(directory, entry.name), bytes)) continue;
        all += Utf8ToUtf16(bytes);
        std::u16string wide;
        for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
            wide += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                          (static_cast<unsigned char>(bytes[i + 1]) << 8));
        }
        all += wide;
    }
    return all;
}

TEST_F(NativeRoadRunTest, TheAccessTokenNeverReachesALogFile) {
    sim::StandInService::Options options;
    options.token = "sEcReT-tOkEn-4711";
    sim::StandInService secretService(options);
    ASSERT_TRUE(secretService.Start());
    Aim(secretService, 3000);
    Trace(u"PPT log marker before the run");
    const auto [code, message] = Run(u"sEcReT-tOkEn-4711");
    EXPECT_EQ(code, u"complete") << Utf16ToUtf8(message);
    const auto [failCode, failMessage] = Run(u"sEcReT-tOkEn-wrong");
    EXPECT_EQ(failCode, u"unauthorized");
    ResetBeaconLatchesForTesting();
    SendEvent(kLoadedEvent, u"client");
    ASSERT_TRUE(WaitForBeaconsForTesting(10000));
    ResetBeaconLatchesForTesting();

    const std::u16string logs = AllLogText();
    ASSERT_NE(logs.find(u"PPT log marker before the run"), std::u16string::npos)
        << "the log files were not found";
    EXPECT_NE(logs.find(u"cpp.http.translate"), std::u16string::npos);
    EXPECT_EQ(logs.find(u"sEcReT"), std::u16string::npos);
}

TEST(TerminologyExchangeTest, ResolveCarriesTheRunsInputsOnceAndEmptyTokenSendsNothing) {
    sim::StandInService service;
    ASSERT_TRUE(service.Start());
    service.AddTerm(u"g1", {u"board", u"BOARD", u"n", true});
    service.AddTerm(u"g1", {u"absent", u"X", u"", true});
    service.SetInstruction(u"i1", u"Be formal");
    HttpEndpoint endpoint;
    endpoint.host = u"127.0.0.1";
    endpoint.port = static_cast<std::uint16_t>(service.Port());
    endpoint.secure = false;
    const std::u16string token = Utf8ToUtf16(service.Token());

    EXPECT_TRUE(
        ResolveTerminologyNative(endpoint, u"", {u"g1"}, u"i1", {u"the board"}).entries.empty());
    EXPECT_TRUE(service.RequestsTo("/v1/terminology/resolve").empty());

    const TerminologyResult result =
        ResolveTerminologyNative(endpoint, token, {u"g1"}, u"i1", {u"the board", u"b"});
    const auto requests = service.RequestsTo("/v1/terminology/resolve");
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].body,
              "{\"glossaryIds\":[\"g1\"],\"instructionId\":\"i1\",\"corpusTexts\":[\"the board\","
              "\"b\"],\"maxEntries\":200}");
    EXPECT_EQ(requests[0].authorization, "Bearer " + service.Token());
    EXPECT_EQ(result.instruction, u"Be formal");
    ASSERT_EQ(result.entries.size(), 1u);
    EXPECT_EQ(result.entries[0].target, u"BOARD");

    sim::Fault drop;
    drop.kind = sim::FaultKind::Drop;
    service.FailNext("/v1/terminology/resolve", drop);
    EXPECT_TRUE(
        ResolveTerminologyNative(endpoint, token, {u"g1"}, u"i1", {u"board"}).entries.empty());
    service.Stop();
}

}  // namespace
}  // namespace qb
