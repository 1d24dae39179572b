// The pane between runs and around them: navigation and what the page is
// told after a load, every inbound action and its answer, the bridge's
// outcomes on the hand clock on both threads, the pass's pump on the host
// thread, and a fuzz of inbound messages that may only get documented answers.
#include <random>
#include <thread>

#include "pane/pane_fixture.h"
#include "pane/panel_text.h"
#include "run/client_identity.h"
#include "run/json.h"
#include "run/service_client.h"

namespace qb::test {
namespace {

using Kind = sim::PageReply::Kind;

class PaneTest : public PaneFixture {
  protected:
    std::u16string LastNavigation() { return view.navigations.back(); }
    std::u16string Url(const std::u16string& path, const std::u16string& mode = u"full") {
        return u"https://svc.example" + path + u"?_=" +
               AsciiToUtf16(std::to_string(clock.TickCount64())) + u"&host=ppt&pane=ppt1&mode=" +
               mode + u"&uiLang=en";
    }
};

// --- Navigation -------------------------------------------------------------

TEST_F(PaneTest, TheBringUpGoesToThePendingPageAndTellsTheModeAfterTheLoad) {
    PaneSetup setup = MakeSetup();
    setup.mode = u"slide";
    pane = std::make_unique<PptPane>(view, setup);
    page = std::make_unique<sim::ScriptedPage>(host, *pane, view);
    pane->ShowPage(u"");  // no view yet: only remembered
    EXPECT_TRUE(view.navigations.empty());
    EXPECT_EQ(pane->PendingPage(), u"translate");
    pane->OnViewReady();
    ASSERT_EQ(view.navigations.size(), 1u);
    // The mode in the URL is the one in force; the pending one follows.
    EXPECT_EQ(U8(LastNavigation()), U8(Url(u"/panel/ppt/")));
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(page->MessagesOf(u"setMode"),
              std::vector<std::u16string>{u"{\"action\":\"setMode\",\"mode\":\"slide\"}"});
    EXPECT_TRUE(page->MessagesOf(u"accessToken").empty());  // no token, no message
    EXPECT_EQ(pane->Mode(), u"slide");
    EXPECT_EQ(pane->CurrentPage(), u"translate");
    EXPECT_TRUE(lines.Has(u"CPptPane navigate https://svc.example/panel/ppt/?_="));
}

TEST_F(PaneTest, ShowPageNavigatesOnlyWhereTheViewDoesntStandAlready) {
    MakePane();
    pane->SetPendingMode(u"slide");
    pane->ShowPage(u"translate");
    pane->ShowPage(u"Translate");
    EXPECT_EQ(view.navigations.size(), 1u);
    EXPECT_EQ(page->MessagesOf(u"setMode").size(), 1u);
    pane->ShowPage(u"glossary");
    ASSERT_TRUE(page->PumpUntilIdle());
    pane->ShowPage(u"glossary");  // another page always reloads
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(view.navigations.size(), 3u);
    EXPECT_EQ(U8(LastNavigation()), U8(Url(u"/panel/ppt/glossary.html", u"slide")));
    EXPECT_EQ(pane->PendingMode(), u"");  // another page clears the pending mode
    EXPECT_EQ(pane->CurrentPage(), u"glossary");
    pane->ShowPage(u"translate");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(view.navigations.size(), 4u);
    EXPECT_EQ(page->MessagesOf(u"setMode").size(), 1u);
}

TEST_F(PaneTest, APageTheViewWentToByItselfIsPickedUpAtTheNextLoad) {
    MakePane();
    view.source = u"https://svc.example/panel/ppt/login.html?next=1";
    pane->OnNavigationCompleted(true);
    EXPECT_EQ(pane->CurrentPage(), u"login");
    view.source = u"about:blank";
    pane->OnNavigationCompleted(true);
    EXPECT_EQ(pane->CurrentPage(), u"login");
    view.sourceReadable = false;
    pane->OnNavigationCompleted(true);
    EXPECT_EQ(pane->CurrentPage(), u"login");
    pane->ShowPage(u"translate");  // the translate page reloads
    EXPECT_EQ(view.navigations.size(), 2u);
}

TEST_F(PaneTest, AFailedNavigationIsLoggedAndNeverRetried) {
    MakePane();
    page->navigationSucceeds = false;
    page->SignIn(u"tok");
    pane->ShowPage(u"account");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_TRUE(lines.Has(u"CPptPane nav completed failed (no retry)"));
    EXPECT_EQ(view.navigations.size(), 2u);
    EXPECT_TRUE(page->MessagesOf(u"accessToken").empty());
    pane->ShowPage(u"translate");
    ASSERT_TRUE(page->PumpUntilIdle());
    pane->ShowPage(u"translate");  // the pane still reads translate: no navigation
    EXPECT_EQ(view.navigations.size(), 3u);
}

TEST_F(PaneTest, AHeldTokenIsGivenBackAfterEveryLoadAndOnRequest) {
    MakePane();
    page->SignIn(u"tok\"1");
    page->Send(u"{\"action\":\"requestAccessToken\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(
        page->MessagesOf(u"accessToken"),
        std::vector<std::u16string>{u"{\"action\":\"accessToken\",\"accessToken\":\"tok\\\"1\"}"});
    pane->ShowPage(u"support");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(page->MessagesOf(u"accessToken").size(), 2u);
    page->Send(u"{\"action\":\"setAccessToken\",\"accessToken\":\"\"}");
    page->Send(u"{\"action\":\"requestAccessToken\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(page->MessagesOf(u"accessToken").size(), 2u);
    EXPECT_EQ(SharedAccessToken(), u"");
}

TEST_F(PaneTest, TheHostKeyNamesWpsAndAUiLanguageChangeReachesEveryPaneWithAView) {
    PaneSetup setup = MakeSetup();
    setup.wpsHost = true;
    setup.paneNumber = 0;
    MakePane(setup);
    EXPECT_NE(LastNavigation().find(u"&host=wps-ppt&mode=full&uiLang=en"), std::u16string::npos);
    sim::RecordingView otherView;
    PptPane other(otherView, MakeSetup());  // no view yet
    PptPane::BroadcastUiLang(u"de");
    EXPECT_EQ(page->MessagesOf(u"uiLangChanged"),
              std::vector<std::u16string>{u"{\"action\":\"uiLangChanged\",\"uiLang\":\"de\"}"});
    EXPECT_TRUE(otherView.messages.empty());
}

// --- Actions ----------------------------------------------------------------

TEST_F(PaneTest, LocalQueriesAnswerThroughTheResponseFunction) {
    PaneSetup setup = MakeSetup();
    setup.services.docKey = [](const host::HostRef& presentation) {
        return presentation ? std::u16string(u"00ab") : std::u16string(u"none");
    };
    setup.services.clientInfo = [] { return std::u16string(u"{\"client\":\"ppt\"}"); };
    setup.services.exportLocalSnapshot = [] { return std::u16string(); };
    MakePane(setup);
    const std::u16string prefix =
        u"if(window.QuillbrookTerminology)QuillbrookTerminology._onResponse(";
    const struct {
        std::u16string message;
        std::u16string answer;
    } cases[] = {
        {u"{\"action\":\"docKeyGet\",\"requestId\":\"r1\"}",
         u"{\"requestId\":\"r1\",\"ok\":true,\"data\":{\"docKey\":\"00ab\"}}"},
        {u"{\"action\":\"exportLocalSnapshot\",\"requestId\":\"r2\"}",
         u"{\"requestId\":\"r2\",\"ok\":true,\"data\":null}"},
        {u"{\"action\":\"clientInfoGet\",\"requestId\":\"r\\\"3\"}",
         u"{\"requestId\":\"r\\\"3\",\"ok\":true,\"data\":{\"client\":\"ppt\"}}"},
        {u"{\"action\":\"uiLangGet\"}",
         u"{\"requestId\":\"\",\"ok\":true,\"data\":{\"uiLang\":\"en\"}}"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(U8(c.message));
        const std::size_t before = view.scripts.size();
        page->Send(c.message);
        ASSERT_TRUE(page->PumpUntilIdle());
        ASSERT_EQ(view.scripts.size(), before + 1);
        EXPECT_EQ(U8(view.scripts.back()), U8(prefix + c.answer + u")"));
    }
    // Without a presentation the document key is "_no_doc".
    PaneSetup gone = setup;
    gone.window.hwnd = 0x7777;
    MakePane(gone);
    page->Send(u"{\"action\":\"docKeyGet\",\"requestId\":\"r4\"}");
    page->Send(u"{\"action\":\"clientInfoGet\",\"requestId\":\"r5\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    ASSERT_EQ(page->LocalAnswers().size(), 2u);
    EXPECT_EQ(U8(page->LocalAnswers()[0]),
              "{\"requestId\":\"r4\",\"ok\":true,\"data\":{\"docKey\":\"_no_doc\"}}");
    EXPECT_EQ(U8(page->LocalAnswers()[1]),
              "{\"requestId\":\"r5\",\"ok\":true,\"data\":{\"client\":\"ppt\"}}");
}

TEST_F(PaneTest, AQueryWithoutAFakeIsAnsweredByTheAddInsOwnReaders) {
    deck->fullName = u"C:\\Decks\\Plan.pptx";
    MakePane();
    page->Send(u"{\"action\":\"docKeyGet\",\"requestId\":\"k\"}");
    page->Send(u"{\"action\":\"clientInfoGet\",\"requestId\":\"c\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    ASSERT_EQ(page->LocalAnswers().size(), 2u);
    EXPECT_EQ(U8(page->LocalAnswers()[0]),
              "{\"requestId\":\"k\",\"ok\":true,\"data\":{\"docKey\":\"" +
                  U8(DocKeyFromFullName(deck->fullName)) + "\"}}");
    const std::u16string info = page->LocalAnswers()[1];
    EXPECT_EQ(ReadJsonString(info, u"installId"), GetInstallId());
    EXPECT_FALSE(ReadJsonString(info, u"os").empty());
    EXPECT_NE(info.find(u"\"capabilities\":{\"pptBilingualSlides\":true"), std::u16string::npos);
}

TEST_F(PaneTest, MessagesWithoutAnAnswerLeaveOnlyTheirLogLine) {
    MakePane();
    const std::size_t scripts = view.scripts.size(), messages = view.messages.size();
    for (const char16_t* message :
         {u"{}", u"{\"action\":\"\"}", u"\"start\"", u"not json at all", u"{\"action\":5}",
          u"{\"action\":\"sessionQuery\"}", u"{\"action\":\"pause\"}", u"{\"action\":\"resume\"}",
          u"{\"action\":\"translateBatchResult\",\"requestId\":\"ppttr_9\",\"ok\":true}",
          u"{\"action\":\"terminologyResolveResult\",\"ok\":true}",
          u"{\"action\":\"trace\",\"phase\":\"page loaded\"}", u"{\"action\":\"Start\"}"}) {
        page->Send(message);
    }
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(view.scripts.size(), scripts);
    EXPECT_EQ(view.messages.size(), messages);
    EXPECT_FALSE(pane->RunInProgress());
    EXPECT_TRUE(lines.Has(u"[panel] page loaded"));
    EXPECT_TRUE(lines.Has(u"PptPane unknown action: Start"));
    EXPECT_EQ(lines.Count(u"PptPane unknown action"), 1u);
}

TEST_F(PaneTest, TheFontListSkipsVerticalAndEmptyNamesAndKeepsTheRest) {
    MakePane();
    view.fonts = {u"Arial", u"@SimSun", u"", u"SimSun", u"Arial"};
    page->Send(u"{\"action\":\"getFontList\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(page->MessagesOf(u"fontList"),
              std::vector<std::u16string>{
                  u"{\"action\":\"fontList\",\"fonts\":[\"Arial\",\"SimSun\",\"Arial\"]}"});
}

TEST_F(PaneTest, TheTargetStyleTakesEffectAtTheNextStart) {
    MakePane();
    page->Send(
        u"{\"action\":\"setTargetStyle\",\"targetFont\":\"Georgia\","
        u"\"targetFontSize\":14}");
    page->Send(u"{\"action\":\"setTargetStyle\",\"targetFontBold\":true}");
    host.App().windows[0]->currentSlide = 2;
    page->Start(u"{\"action\":\"start\",\"panelMode\":\"slide\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(pane->CurrentTargetStyle().font, u"Georgia");
    EXPECT_EQ(pane->CurrentTargetStyle().size, 14.0);
    EXPECT_EQ(deck->slides[1]->shapes[0]->frame.formats[0].name, u"Georgia");
    // A start's own font wins, also an empty one.
    page->Start(u"{\"action\":\"start\",\"panelMode\":\"slide\",\"targetFont\":\"\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(page->CountEvents(u"onComplete"), 2u);
}

TEST_F(PaneTest, TheSelectionPreviewAnswersOnlyWhenNothingElseIsGoingOn) {
    MakePane();
    auto& window = *host.App().windows[0];
    window.selection.type = sim::SelectionType::Shapes;
    window.selection.shapes = {deck->slides[0]->shapes[0], deck->slides[0]->shapes[1]};
    page->Send(u"{\"action\":\"requestSelectionPreview\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    ASSERT_EQ(page->Previews().size(), 1u);
    EXPECT_EQ(
        U8(page->Previews()[0]),
        U8(u"{fragments:2,chars:0,pptEmpty:false,label:\"\u5df2\u9009 2 \u4e2a\u5f62\u72b6\"}"));
    int owner = 0;
    ASSERT_TRUE(StaGate::TryEnter(&owner));  // a host mutation is in flight
    page->Send(u"{\"action\":\"requestSelectionPreview\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    StaGate::Leave(&owner);
    EXPECT_EQ(page->Previews().size(), 1u);
    // A host call that raises: the failure answer.
    host.pump = [] { throw std::runtime_error("host call failed"); };
    page->Send(u"{\"action\":\"requestSelectionPreview\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    host.pump = nullptr;
    ASSERT_EQ(page->Previews().size(), 2u);
    EXPECT_EQ(U8(page->Previews()[1]),
              U8(u"{error:\"\u65e0\u6cd5\u8bfb\u53d6\u9009\u533a\",pptEmpty:true}"));
    // During a run: no answer at all.
    page->QueueBatchReplies({{Kind::Answer, u"", u"", 1000}});
    page->Start(u"{\"action\":\"start\",\"panelMode\":\"slide\"}");
    ASSERT_TRUE(page->PumpUntil([&] { return pane->RunInProgress(); }));
    page->Send(u"{\"action\":\"requestSelectionPreview\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(page->Previews().size(), 2u);
}

// --- The bridge -------------------------------------------------------------

TEST_F(PaneTest, ABatchWithoutAViewOrOnAClosingPaneFailsAtOnce) {
    pane = std::make_unique<PptPane>(view, MakeSetup());
    TranslateBatchRequest request;
    request.texts = {u"x"};
    TranslateBatchResult result = pane->BridgeTranslate(request);
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.code, u"webview_unavailable");
    EXPECT_EQ(result.message, u"panel unavailable");
    std::u16string instruction, code, message;
    std::vector<TranslationGlossaryItem> glossary;
    EXPECT_FALSE(pane->BridgeResolveTerminology({u"x"}, instruction, glossary, code, message));
    EXPECT_EQ(code, u"webview_unavailable");
    EXPECT_TRUE(view.messages.empty());
    EXPECT_EQ(view.QueuedJobs(), 0u);
}

// The worker's side of the bridge: a thread that asks and the test that
// plays the page's answer, the abort or the clock.
class BridgeTest : public PaneTest {
  protected:
    void Ask() {
        asker = std::thread([this] {
            TranslateBatchRequest request;
            request.texts = {u"Hello"};
            request.runId = 5;
            result = pane->BridgeTranslate(request);
        });
        // The request enters the table before its job is posted.
        while (pane->WaitingRequestIds().empty())
            std::this_thread::yield();
        // The request reaches the page as a job the host's thread runs.
        ASSERT_TRUE(page->PumpUntil([&] { return !page->BatchRequests().empty(); }));
    }
    TranslateBatchResult Outcome() {
        asker.join();
        return result;
    }
    std::thread asker;
    TranslateBatchResult result;
};

TEST_F(BridgeTest, AWaitingBatchEndsWithItsAnswerItsAbortOrItsTimeOut) {
    const struct {
        const char* name;
        std::function<void(BridgeTest&)> act;
        bool ok;
        std::u16string code, message;
    } cases[] = {
        {"answer", [](BridgeTest& t) { t.page->defaultBatchReply = {}; }, true, u"", u""},
        {"time-out", [](BridgeTest& t) { t.clock.Advance(kPanelReplyTimeoutMs); }, false,
         u"request_timeout", u"JS bridge timeout"},
        {"cancel", [](BridgeTest& t) { t.pane->CancelRun(); }, false, u"cancelled", u"cancelled"},
        {"navigation", [](BridgeTest& t) { t.pane->OnNavigationStarting(); }, false,
         u"webview_navigating", u"cancelled"},
        {"shutdown", [](BridgeTest& t) { t.pane->BeginShutdownEarly(); }, false, u"addin_shutdown",
         u"cancelled"},
        {"final release", [](BridgeTest& t) { t.pane->FinalRelease(); }, false, u"addin_shutdown",
         u"cancelled"},
        {"page failure", [](BridgeTest&) {}, false, u"402", u"no credits"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        MakePane();
        const bool answers = std::string(c.name) == "answer";
        const bool fails = std::string(c.name) == "page failure";
        page->QueueBatchReplies({answers ? sim::PageReply{Kind::Answer, u"", u"", 500}
                                 : fails ? sim::PageReply{Kind::Fail, u"402", u"no credits"}
                                         : sim::PageReply{Kind::Silent}});
        const std::uint64_t before = clock.TickCount64();
        Ask();
        clock.Advance(kPanelReplyTimeoutMs - 1);  // one unit short: still waiting
        if (!answers && !fails) {
            EXPECT_EQ(pane->WaitingRequestIds().size(), 1u);
        }
        c.act(*this);
        if (answers || fails) page->PumpFor(1000);
        const TranslateBatchResult r = Outcome();
        EXPECT_EQ(r.ok, c.ok);
        EXPECT_EQ(r.code, c.code);
        EXPECT_EQ(r.message, c.message);
        if (c.ok) {
            EXPECT_EQ(r.translations, std::vector<std::u16string>{u"[] Hello"});
        }
        EXPECT_GE(clock.TickCount64() - before, kPanelReplyTimeoutMs - 1);
        EXPECT_TRUE(pane->WaitingRequestIds().empty());
        // A late answer finds nothing and changes nothing.
        pane->OnTranslateBatchResult(u"{\"requestId\":\"" + page->BatchRequests()[0].requestId +
                                     u"\",\"ok\":true,\"translations\":[\"late\"]}");
        (void)page->PumpUntilIdle();  // no job of this pane may outlive it
        page.reset();
        pane.reset();
    }
}

TEST_F(BridgeTest, TerminologyIsResolvedThroughThePageAndAbortsLeaveItWaiting) {
    std::u16string appliedResult;
    PaneSetup setup = MakeSetup();
    setup.services.applyTerminology = [&](const std::u16string& resultText,
                                          std::u16string& instruction,
                                          std::vector<TranslationGlossaryItem>& glossary) {
        appliedResult = resultText;
        instruction = u"be brief";
        glossary.push_back({u"deck", u"Foliensatz", u""});
    };
    MakePane(setup);
    page->terminologyResult = u"{\"instruction\":\"be brief\",\"glossary\":[{\"a\":\"}\"}]}";
    page->QueueTerminologyReplies({{Kind::Answer, u"", u"", 400}});
    bool ok = false;
    std::u16string instruction, code, message;
    std::vector<TranslationGlossaryItem> glossary;
    std::thread asker([&] {
        ok = pane->BridgeResolveTerminology({u"deck"}, instruction, glossary, code, message);
    });
    while (pane->WaitingRequestIds().empty())
        std::this_thread::yield();
    EXPECT_TRUE(page->PumpUntil([&] { return !page->TerminologyRequests().empty(); }));
    pane->CancelRun();  // touches batches only
    EXPECT_EQ(pane->WaitingRequestIds().size(), 1u);
    page->PumpFor(1000);
    asker.join();
    EXPECT_TRUE(ok);
    EXPECT_EQ(appliedResult, page->terminologyResult);
    EXPECT_EQ(instruction, u"be brief");
    ASSERT_EQ(glossary.size(), 1u);
    EXPECT_EQ(page->TerminologyRequests()[0].requestId, u"pptterm_1");
}

TEST_F(PaneTest, OnTheHostThreadTheWaitPumpsAndAQuitOrAFailedWaitEndsIt) {
    MakePane();
    TranslateBatchRequest request;
    request.texts = {u"Hi"};
    // The page's answer arrives inside the pump.
    page->QueueBatchReplies({{Kind::Answer, u"", u"", 300}});
    TranslateBatchResult r = pane->BridgeTranslate(request);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.translations, std::vector<std::u16string>{u"[] Hi"});
    // A page that never answers: 120 s on the hand clock.
    page->QueueBatchReplies({{Kind::Silent}});
    std::uint64_t before = clock.TickCount64();
    r = pane->BridgeTranslate(request);
    EXPECT_EQ(r.code, u"request_timeout");
    EXPECT_EQ(clock.TickCount64() - before, kPanelReplyTimeoutMs);
    for (PumpResult end : {PumpResult::Quit, PumpResult::Failed}) {
        page->QueueBatchReplies({{Kind::Silent}});
        view.pumpAnswer = end;
        view.pumps = 0;
        before = clock.TickCount64();
        r = pane->BridgeTranslate(request);
        EXPECT_EQ(r.code, u"request_timeout");
        EXPECT_EQ(r.message, u"JS bridge timeout");
        EXPECT_EQ(view.pumps, 1u);  // no spin
        EXPECT_EQ(clock.TickCount64(), before);
        view.pumpAnswer = PumpResult::Pumped;
        ASSERT_TRUE(page->PumpUntilIdle());
    }
}

TEST_F(PaneTest, AJobForADestroyedWindowIsDroppedAndTheDestroyEndsThePane) {
    MakePane();
    page->QueueBatchReplies({{Kind::Silent}});
    page->Start(u"{\"action\":\"start\",\"panelMode\":\"slide\"}");
    ASSERT_TRUE(page->PumpUntil([&] { return !page->BatchRequests().empty(); }));
    view.DestroyWindow();
    pane->OnWindowDestroyed();
    EXPECT_TRUE(pane->ShuttingDown());
    EXPECT_FALSE(view.TimerArmed(PaneTimer::RunTick));
    EXPECT_FALSE(view.TimerArmed(PaneTimer::PaneTick));
    if (pane->Controller()) pane->Controller()->WaitForWorker();
    bool ran = false;
    const std::size_t dropped = view.DroppedJobs();
    pane->PostToPane([&] { ran = true; });
    EXPECT_EQ(view.DroppedJobs(), dropped + 1);
    (void)view.RunPendingJobs();
    EXPECT_FALSE(ran);
    EXPECT_EQ(page->CountEvents(u"onCancelled") + page->CountEvents(u"onComplete"), 0u);
}

TEST_F(PaneTest, AFailedBringUpShowsOneDialogAndCopiesTheSupportId) {
    std::vector<std::u16string> reports;
    PaneSetup setup = MakeSetup();
    setup.services.sendPluginError = [&](const std::u16string& stage, HRESULT) {
        reports.push_back(stage);
    };
    pane = std::make_unique<PptPane>(view, setup);
    sim::RecordingView secondView;
    PptPane second(secondView, setup);
    pane->ReportWebViewFailure(u"userdata", E_FAIL);
    second.ReportWebViewFailure(u"create", E_FAIL);
    EXPECT_EQ(lines.Count(u"PptPane WebView2 userdata failed hr=0x80004005"), 1u);
    EXPECT_EQ(lines.Count(u"PptPane WebView2 create failed hr=0x80004005"), 1u);
    // Once a process each; an earlier test's failure may have spent them.
    EXPECT_LE(reports.size(), 1u);
    EXPECT_LE(view.boxes.size() + secondView.boxes.size(), 1u);
    if (!view.boxes.empty()) {
        EXPECT_EQ(view.boxes[0].flags, kWebViewFailureBoxFlags);
        EXPECT_EQ(view.clipboard, u"Quillbrook-1");
        EXPECT_EQ(reports, std::vector<std::u16string>{u"user_data_dir"});
    }
}

// --- Fuzz -------------------------------------------------------------------

TEST_F(PaneTest, FuzzedMessagesGetNothingButTheDocumentedAnswers) {
    MakePane();
    page->SetTranslator([](const std::u16string& text, const std::u16string&) { return text; });
    const std::vector<std::u16string> seeds = {
        u"{\"action\":\"start\",\"panelMode\":\"slide\",\"targetLang\":\"de\",\"token\":\"t\"}",
        u"{\"action\":\"startSelection\",\"glossaryIds\":[\"a\",\"b\"]}",
        u"{\"action\":\"cancel\"}",
        u"{\"action\":\"pause\"}",
        u"{\"action\":\"resume\"}",
        u"{\"action\":\"setTargetStyle\",\"targetFont\":\"Arial\",\"targetFontColor\":\"#ff0000\"}",
        u"{\"action\":\"setAccessToken\",\"accessToken\":\"abc\"}",
        u"{\"action\":\"requestAccessToken\"}",
        u"{\"action\":\"clearAccessToken\"}",
        u"{\"action\":\"getFontList\"}",
        u"{\"action\":\"trace\",\"phase\":\"x\"}",
        u"{\"action\":\"translateBatchResult\",\"requestId\":\"ppttr_1\",\"ok\":true,"
        u"\"translations\":[\"a\"]}",
        u"{\"action\":\"terminologyResolveResult\",\"requestId\":\"pptterm_1\",\"ok\":false,"
        u"\"code\":\"401\"}",
        u"{\"action\":\"docKeyGet\",\"requestId\":\"q\"}",
        u"{\"action\":\"uiLangGet\"}",
        u"{\"action\":\"requestSelectionPreview\"}",
        u"{\"action\":\"sessionQuery\"}",
    };
    std::u16string noise = u"{}[]\":,\\ \u00e9a1tn";
    noise.push_back(u'\0');
    noise.push_back(static_cast<char16_t>(0xD800));  // a lone surrogate
    std::mt19937 random(20261123);
    const auto pick = [&](std::size_t n) {
        return static_cast<std::size_t>(random() % static_cast<std::uint32_t>(n));
    };
    view.fonts = {u"Arial"};
    for (int round = 0; round < 400; ++round) {
        std::u16string message = seeds[pick(seeds.size())];
        switch (pick(5)) {
            case 0:
                message.resize(pick(message.size() + 1));
                break;
            case 1:
                message[pick(message.size())] = noise[pick(noise.size())];
                break;
            case 2:
                message.insert(pick(message.size() + 1), 1, noise[pick(noise.size())]);
                break;
            case 3: {
                message.clear();
                for (std::size_t i = pick(40); i > 0; --i)
                    message.push_back(noise[pick(noise.size())]);
                break;
            }
            default:
                break;  // the seed as it is
        }
        SCOPED_TRACE(U8(message));
        page->Send(message);
        if (!page->PumpUntilIdle(60000)) {
            page->Resume();
            page->Cancel();
            ASSERT_TRUE(page->PumpUntilIdle());
        }
    }
    const std::set<std::u16string> answers = {u"setMode",
                                              u"accessToken",
                                              u"fontList",
                                              u"translateBatchRequest",
                                              u"terminologyResolveRequest",
                                              u"translateAbortForRun"};
    for (const std::u16string& message : view.messages)
        EXPECT_EQ(answers.count(ReadJsonString(message, u"action")), 1u) << U8(message);
    for (const std::u16string& script : view.scripts) {
        const bool known =
            script.rfind(u"window.on", 0) == 0 ||
            script.rfind(u"if(window.QuillbrookTerminology)QuillbrookTerminology._onResponse(",
                         0) == 0 ||
            script.rfind(u"if(window.onSelectionPreview)onSelectionPreview(", 0) == 0;
        EXPECT_TRUE(known) << U8(script);
    }
    // Every run the fuzz started ended once.
    EXPECT_EQ(page->CountEvents(u"onRunStarted"), page->CountEvents(u"onComplete") +
                                                      page->CountEvents(u"onError") +
                                                      page->CountEvents(u"onCancelled"));
    EXPECT_FALSE(pane->RunInProgress());
    EXPECT_TRUE(pane->WaitingRequestIds().empty());
}

}  // namespace
}  // namespace qb::test
