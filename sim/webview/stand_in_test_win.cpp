// The browser stand-in driven as the pane drives it, through the loader's
// entry point and the interfaces the add-in declares, with handlers of the
// test's own that count their references: completions and events arrive
// later, on this thread, through its message loop and in order; the page
// records scripts and messages, sends what it is told to and answers
// requests through the service; each failure step does what it names;
// Close silences the view; and every reference the stand-in took on a
// handler is given back.
#include <gtest/gtest.h>

#include <winsock2.h>

#include <windows.h>

#include <objbase.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "foundation/com_win.h"
#include "foundation/text.h"
#include "foundation/wide_win.h"
#include "pane/webview2_win.h"
#include "run/json.h"
#include "sim/webview/stand_in_control.h"

namespace qb::sim::webview {
namespace {

// For failure messages: gtest prints narrow text.
std::string U8(const std::u16string& text) {
    return Utf16ToUtf8(text);
}

// A handler the test owns: the stand-in's references are the only ones,
// so a count back at zero means each was given back. Never deleted by a
// release.
template <class I>
class Counted : public I {
  public:
    explicit Counted(const IID& iid) : iid_(iid) {}
    virtual ~Counted() = default;
    STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        if (::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, iid_)) {
            *out = static_cast<I*>(this);
            AddRef();
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++refs_); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(--refs_); }
    long Refs() const { return refs_; }

  private:
    IID iid_;
    long refs_ = 0;
};

// What the handlers saw, in order, on which thread.
struct Log {
    std::vector<std::string> entries;
    std::vector<std::u16string> messages;
    std::vector<DWORD> threads;
    void Add(std::string entry) {
        entries.push_back(std::move(entry));
        threads.push_back(::GetCurrentThreadId());
    }
};

// A completion handler: how often it was called, with what.
template <class I, class Result>
class Completion final : public Counted<I> {
  public:
    Completion(Log& log, const IID& iid, const char* name)
        : Counted<I>(iid), log_(log), name_(name) {}
    STDMETHODIMP Invoke(HRESULT hresult, Result* value) override {
        ++calls;
        hr = hresult;
        result = value;
        log_.Add(name_);
        return S_OK;
    }
    int calls = 0;
    HRESULT hr = E_PENDING;
    ComPtr<Result> result;

  private:
    Log& log_;
    const char* name_;
};

using EnvironmentHandler =
    Completion<wv2::ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler,
               wv2::ICoreWebView2Environment>;
using ControllerHandler = Completion<wv2::ICoreWebView2CreateCoreWebView2ControllerCompletedHandler,
                                     wv2::ICoreWebView2Controller>;

class MessageHandler final : public Counted<wv2::ICoreWebView2WebMessageReceivedEventHandler> {
  public:
    explicit MessageHandler(Log& log)
        : Counted(wv2::IID_WebMessageReceivedEventHandler), log_(log) {}
    STDMETHODIMP Invoke(wv2::ICoreWebView2*,
                        wv2::ICoreWebView2WebMessageReceivedEventArgs* args) override {
        LPWSTR json = nullptr;
        EXPECT_EQ(args->get_WebMessageAsJson(&json), S_OK);
        log_.messages.push_back(FromWide(json));
        ::CoTaskMemFree(json);
        log_.Add("message");
        return S_OK;
    }

  private:
    Log& log_;
};

class StartingHandler final : public Counted<wv2::ICoreWebView2NavigationStartingEventHandler> {
  public:
    explicit StartingHandler(Log& log)
        : Counted(wv2::IID_NavigationStartingEventHandler), log_(log) {}
    STDMETHODIMP Invoke(wv2::ICoreWebView2*,
                        wv2::ICoreWebView2NavigationStartingEventArgs*) override {
        log_.Add("starting");
        return S_OK;
    }

  private:
    Log& log_;
};

class CompletedHandler final : public Counted<wv2::ICoreWebView2NavigationCompletedEventHandler> {
  public:
    explicit CompletedHandler(Log& log)
        : Counted(wv2::IID_NavigationCompletedEventHandler), log_(log) {}
    STDMETHODIMP Invoke(wv2::ICoreWebView2*,
                        wv2::ICoreWebView2NavigationCompletedEventArgs* args) override {
        BOOL success = 2;
        EXPECT_EQ(args->get_IsSuccess(&success), S_OK);
        log_.Add(success == TRUE ? "completed ok" : success == FALSE ? "completed failed" : "?");
        return S_OK;
    }

  private:
    Log& log_;
};

// Runs what the thread's queue holds, waiting for more until `done` holds
// or `maxMs` have passed.
bool PumpUntil(const std::function<bool()>& done, DWORD maxMs = 30000) {
    const ULONGLONG deadline = ::GetTickCount64() + maxMs;
    for (;;) {
        MSG message;
        while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            ::TranslateMessage(&message);
            ::DispatchMessageW(&message);
        }
        if (done()) return true;
        const ULONGLONG now = ::GetTickCount64();
        if (now >= deadline) return false;
        const ULONGLONG left = deadline - now;
        ::MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(left < 50 ? left : 50),
                                    QS_ALLINPUT);
    }
}

// Runs everything queued now; what is not queued by now was never posted.
void Drain() {
    PumpUntil([] { return true; });
}

struct Exports {
    wv2::CreateEnvironmentWithOptionsFn create = nullptr;
    SetFailureFn setFailure = nullptr;
    SetServiceFn setService = nullptr;
    SendFn send = nullptr;
    ReportFn report = nullptr;
    ResetFn reset = nullptr;
};

template <class F>
F Lookup(HMODULE module, const char* name) {
    return reinterpret_cast<F>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

// The DLL as the add-in loads it: by full path, from beside the module.
HMODULE LoadStandIn() {
    wchar_t path[MAX_PATH] = {};
    const DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring folder(path, length);
    folder.erase(folder.find_last_of(L"\\/") + 1);
    return ::LoadLibraryW((folder + wv2::kLoaderFileName).c_str());
}

class StandInTest : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        module_ = LoadStandIn();
        ASSERT_NE(module_, nullptr) << "WebView2Loader.dll beside the test";
        x_.create =
            Lookup<wv2::CreateEnvironmentWithOptionsFn>(module_, wv2::kCreateEnvironmentExport);
        x_.setFailure = Lookup<SetFailureFn>(module_, kSetFailureExport);
        x_.setService = Lookup<SetServiceFn>(module_, kSetServiceExport);
        x_.send = Lookup<SendFn>(module_, kSendExport);
        x_.report = Lookup<ReportFn>(module_, kReportExport);
        x_.reset = Lookup<ResetFn>(module_, kResetExport);
    }

    void SetUp() override {
        ASSERT_NE(x_.create, nullptr);
        ASSERT_NE(x_.setFailure, nullptr);
        ASSERT_NE(x_.setService, nullptr);
        ASSERT_NE(x_.send, nullptr);
        ASSERT_NE(x_.report, nullptr);
        ASSERT_NE(x_.reset, nullptr);
        x_.reset();
        parent_ = ::CreateWindowExW(0, L"STATIC", L"pane", WS_OVERLAPPED, 0, 0, 400, 300, nullptr,
                                    nullptr, nullptr, nullptr);
        ASSERT_NE(parent_, nullptr);
    }

    void TearDown() override {
        // Whatever a test left open is closed and let go, and then nothing
        // of the stand-in's may be left alive.
        if (controller_) controller_->Close();
        view_.Reset();
        controller_.Reset();
        environment_.Reset();
        Drain();
        EXPECT_TRUE(PumpUntil([this] { return Number(u"servicePending") == 0; }));
        EXPECT_EQ(Number(u"objectsAlive"), 0) << U8(Report());
        EXPECT_EQ(Number(u"handlersHeld"), 0);
        EXPECT_EQ(Number(u"viewsAlive"), 0);
        ::DestroyWindow(parent_);
        Drain();
    }

    std::u16string Report() {
        const int needed = x_.report(nullptr, 0);
        std::wstring text(static_cast<std::size_t>(needed), L'\0');
        EXPECT_EQ(x_.report(text.data(), needed), needed);
        return FromWide(text.c_str());
    }
    double Number(std::u16string_view key) { return ReadJsonNumber(Report(), key); }

    // Environment, controller, view, settings put as the pane puts them,
    // the three events subscribed; stops early (false) where a step fails.
    bool BringUp() {
        if (FAILED(x_.create(nullptr, L"C:\\users\\me\\Quillbrook\\WebView2", nullptr,
                             &environmentHandler_))) {
            return false;
        }
        if (!PumpUntil([this] { return environmentHandler_.calls > 0; })) return false;
        if (!environmentHandler_.result) return false;
        environment_ = environmentHandler_.result;
        environmentHandler_.result.Reset();
        if (FAILED(environment_->CreateCoreWebView2Controller(parent_, &controllerHandler_))) {
            return false;
        }
        if (!PumpUntil([this] { return controllerHandler_.calls > 0; })) return false;
        if (!controllerHandler_.result) return false;
        controller_ = controllerHandler_.result;
        controllerHandler_.result.Reset();
        EXPECT_EQ(controller_->put_IsVisible(TRUE), S_OK);
        if (FAILED(controller_->get_CoreWebView2(&view_)) || !view_) return false;
        ComPtr<wv2::ICoreWebView2Settings> settings;
        EXPECT_EQ(view_->get_Settings(&settings), S_OK);
        EXPECT_EQ(settings->put_AreDevToolsEnabled(FALSE), S_OK);
        EXPECT_EQ(settings->put_IsStatusBarEnabled(FALSE), S_OK);
        wv2::EventRegistrationToken token{};
        EXPECT_EQ(view_->add_WebMessageReceived(&messageHandler_, &token), S_OK);
        EXPECT_EQ(view_->add_NavigationStarting(&startingHandler_, &startingToken_), S_OK);
        EXPECT_EQ(view_->add_NavigationCompleted(&completedHandler_, &token), S_OK);
        EXPECT_EQ(controller_->put_Bounds(RECT{0, 0, 320, 600}), S_OK);
        return true;
    }

    static HMODULE module_;
    static Exports x_;
    HWND parent_ = nullptr;
    Log log_;
    EnvironmentHandler environmentHandler_{log_, wv2::IID_EnvironmentCompletedHandler,
                                           "environment"};
    ControllerHandler controllerHandler_{log_, wv2::IID_ControllerCompletedHandler, "controller"};
    MessageHandler messageHandler_{log_};
    StartingHandler startingHandler_{log_};
    CompletedHandler completedHandler_{log_};
    wv2::EventRegistrationToken startingToken_{};
    ComPtr<wv2::ICoreWebView2Environment> environment_;
    ComPtr<wv2::ICoreWebView2Controller> controller_;
    ComPtr<wv2::ICoreWebView2> view_;
};

HMODULE StandInTest::module_ = nullptr;
Exports StandInTest::x_;

constexpr wchar_t kUrl[] = L"http://127.0.0.1:8080/panel/ppt/?_=1&host=ppt&mode=full";

TEST_F(StandInTest, BringUpCompletesLaterOnTheCallingThreadAndGivesEveryHandlerBack) {
    ASSERT_EQ(x_.create(nullptr, L"C:\\data\\WebView2", nullptr, &environmentHandler_), S_OK);
    // Not inside the call: the completion waits for this thread's loop, and
    // until then the stand-in holds the handler.
    EXPECT_EQ(environmentHandler_.calls, 0);
    EXPECT_EQ(environmentHandler_.Refs(), 1);
    ASSERT_TRUE(PumpUntil([this] { return environmentHandler_.calls > 0; }));
    EXPECT_EQ(environmentHandler_.calls, 1);
    EXPECT_EQ(environmentHandler_.hr, S_OK);
    ASSERT_TRUE(environmentHandler_.result);
    EXPECT_EQ(environmentHandler_.Refs(), 0);
    environment_ = environmentHandler_.result;
    environmentHandler_.result.Reset();

    ASSERT_EQ(environment_->CreateCoreWebView2Controller(parent_, &controllerHandler_), S_OK);
    EXPECT_EQ(controllerHandler_.calls, 0);
    EXPECT_EQ(controllerHandler_.Refs(), 1);
    ASSERT_TRUE(PumpUntil([this] { return controllerHandler_.calls > 0; }));
    EXPECT_EQ(controllerHandler_.hr, S_OK);
    ASSERT_TRUE(controllerHandler_.result);
    EXPECT_EQ(controllerHandler_.Refs(), 0);
    controller_ = controllerHandler_.result;
    controllerHandler_.result.Reset();

    EXPECT_EQ(controller_->put_IsVisible(TRUE), S_OK);
    ASSERT_EQ(controller_->get_CoreWebView2(&view_), S_OK);
    ASSERT_TRUE(view_);
    ComPtr<wv2::ICoreWebView2Settings> settings;
    ASSERT_EQ(view_->get_Settings(&settings), S_OK);
    EXPECT_EQ(settings->put_AreDevToolsEnabled(FALSE), S_OK);
    EXPECT_EQ(settings->put_IsStatusBarEnabled(FALSE), S_OK);
    BOOL devTools = TRUE;
    EXPECT_EQ(settings->get_AreDevToolsEnabled(&devTools), S_OK);
    EXPECT_EQ(devTools, FALSE);
    settings.Reset();

    wv2::EventRegistrationToken tokens[3] = {};
    ASSERT_EQ(view_->add_WebMessageReceived(&messageHandler_, &tokens[0]), S_OK);
    ASSERT_EQ(view_->add_NavigationStarting(&startingHandler_, &tokens[1]), S_OK);
    ASSERT_EQ(view_->add_NavigationCompleted(&completedHandler_, &tokens[2]), S_OK);
    EXPECT_NE(tokens[0].value, tokens[1].value);
    EXPECT_NE(tokens[1].value, tokens[2].value);
    EXPECT_EQ(messageHandler_.Refs(), 1);
    EXPECT_EQ(startingHandler_.Refs(), 1);
    EXPECT_EQ(completedHandler_.Refs(), 1);
    EXPECT_EQ(controller_->put_Bounds(RECT{0, 0, 320, 600}), S_OK);
    EXPECT_EQ(controller_->put_Bounds(RECT{0, 0, 300, 580}), S_OK);

    ASSERT_EQ(view_->Navigate(kUrl), S_OK);
    LPWSTR source = nullptr;
    ASSERT_EQ(view_->get_Source(&source), S_OK);
    EXPECT_STREQ(source, kUrl);
    ::CoTaskMemFree(source);
    EXPECT_EQ(log_.entries, (std::vector<std::string>{"environment", "controller"}));
    ASSERT_TRUE(PumpUntil([this] { return log_.entries.size() >= 4; }));
    Drain();
    EXPECT_EQ(log_.entries,
              (std::vector<std::string>{"environment", "controller", "starting", "completed ok"}));
    for (const DWORD thread : log_.threads)
        EXPECT_EQ(thread, ::GetCurrentThreadId());

    const std::u16string report = Report();
    EXPECT_EQ(ReadJsonString(report, u"userDataFolder"), u"C:\\data\\WebView2");
    EXPECT_EQ(ReadJsonNumber(report, u"environments"), 1);
    EXPECT_EQ(ReadJsonNumber(report, u"controllers"), 1);
    EXPECT_EQ(ReadJsonNumber(report, u"controllersClosed"), 0);
    EXPECT_EQ(ReadJsonNumber(report, u"viewsAlive"), 1);
    EXPECT_TRUE(ReadJsonBool(report, u"visible"));
    EXPECT_EQ(ReadJsonObjectText(report, u"lastBounds"),
              u"{\"left\":0,\"top\":0,\"right\":300,\"bottom\":580}");
    EXPECT_NE(report.find(u"\"devTools\":false"), std::u16string::npos) << U8(report);
    EXPECT_NE(report.find(u"\"statusBar\":false"), std::u16string::npos) << U8(report);
    EXPECT_EQ(ReadJsonStringArray(report, u"navigations"),
              std::vector<std::u16string>{FromWide(kUrl)});
    EXPECT_EQ(ReadJsonNumber(report, u"navigationsCompleted"), 1);
    EXPECT_EQ(ReadJsonNumber(report, u"handlersHeld"), 3);

    // A removed handler hears nothing more and is given back at once.
    ASSERT_EQ(view_->remove_NavigationStarting(tokens[1]), S_OK);
    EXPECT_EQ(startingHandler_.Refs(), 0);
    ASSERT_EQ(view_->Navigate(kUrl), S_OK);
    ASSERT_TRUE(PumpUntil([this] { return log_.entries.size() >= 5; }));
    Drain();
    EXPECT_EQ(log_.entries.back(), "completed ok");
    EXPECT_EQ(log_.entries.size(), 5u);

    ASSERT_EQ(controller_->Close(), S_OK);
    EXPECT_EQ(Number(u"controllersClosed"), 1);
    EXPECT_EQ(messageHandler_.Refs(), 0);
    EXPECT_EQ(completedHandler_.Refs(), 0);
    view_.Reset();
    controller_.Reset();
    environment_.Reset();
    EXPECT_EQ(Number(u"objectsAlive"), 0);
    EXPECT_EQ(Number(u"viewsAlive"), 0);
}

TEST_F(StandInTest, ScriptsThePaneRunsAreWhatThePageSaw) {
    ASSERT_TRUE(BringUp());
    const wchar_t* scripts[] = {
        L"window.onRunStarted&&window.onRunStarted({\"runId\":7})",
        L"window.onProgress&&window.onProgress({\"runId\":7,\"wordIndex\":1,\"total\":1,"
        L"\"skipped\":false,\"original\":\"a (b)\",\"translated\":\"[en] a (b)\"})",
        L"window.onComplete&&window.onComplete({\"runId\":7,\"elapsed\":12,\"total\":1,"
        L"\"bilingualCopy\":false})",
        L"if(window.QuillbrookTerminology)QuillbrookTerminology._onResponse({\"requestId\":"
        L"\"q1\",\"ok\":true,\"data\":{\"uiLang\":\"en\"}})",
        L"if(window.onSelectionPreview)onSelectionPreview({fragments:0,chars:0,pptEmpty:true})",
        L"document.title='x'",
    };
    for (const wchar_t* script : scripts)
        EXPECT_EQ(view_->ExecuteScript(script, nullptr), S_OK);
    // A result handler can't be served: the page hands nothing back.
    int anything = 0;
    EXPECT_EQ(view_->ExecuteScript(L"window.onReady&&window.onReady({})", &anything), E_NOTIMPL);

    const std::u16string report = Report();
    EXPECT_NE(report.find(u"\"events\":[{\"name\":\"onRunStarted\",\"json\":\"{\\\"runId\\\":7}\"},"
                          u"{\"name\":\"onProgress\","),
              std::u16string::npos)
        << U8(report);
    EXPECT_NE(report.find(u"\\\"original\\\":\\\"a (b)\\\",\\\"translated\\\":\\\"[en] a (b)\\\"}"),
              std::u16string::npos)
        << U8(report);
    EXPECT_EQ(ReadJsonObjectText(report, u"eventCounts"),
              u"{\"onComplete\":1,\"onProgress\":1,\"onRunStarted\":1}");
    EXPECT_EQ(ReadJsonNumber(report, u"runsEnded"), 1);
    EXPECT_EQ(ReadJsonStringArray(report, u"localAnswers"),
              std::vector<std::u16string>{
                  u"{\"requestId\":\"q1\",\"ok\":true,\"data\":{\"uiLang\":\"en\"}}"});
    EXPECT_EQ(ReadJsonStringArray(report, u"previews"),
              std::vector<std::u16string>{u"{fragments:0,chars:0,pptEmpty:true}"});
    EXPECT_EQ(ReadJsonStringArray(report, u"otherScripts"),
              std::vector<std::u16string>{u"document.title='x'"});
}

TEST_F(StandInTest, ThePageSendsAfterTheCallAndKeepsItsToken) {
    ASSERT_TRUE(BringUp());
    const wchar_t kSignIn[] = L"{\"action\":\"setAccessToken\",\"accessToken\":\"tok-1\"}";
    ASSERT_EQ(x_.send(kSignIn), S_OK);
    EXPECT_TRUE(log_.messages.empty());  // not inside the call
    EXPECT_EQ(ReadJsonString(Report(), u"token"), u"tok-1");
    ASSERT_TRUE(PumpUntil([this] { return !log_.messages.empty(); }));
    EXPECT_EQ(log_.messages, std::vector<std::u16string>{FromWide(kSignIn)});
    EXPECT_EQ(log_.threads.back(), ::GetCurrentThreadId());
    EXPECT_EQ(Number(u"webMessagesDelivered"), 1);

    // What the pane posts is recorded; its token message reaches the page.
    const wchar_t kToken[] = L"{\"action\":\"accessToken\",\"accessToken\":\"tok-2\"}";
    const wchar_t kMode[] = L"{\"action\":\"setMode\",\"mode\":\"slide\"}";
    ASSERT_EQ(view_->PostWebMessageAsJson(kToken), S_OK);
    ASSERT_EQ(view_->PostWebMessageAsJson(kMode), S_OK);
    std::u16string report = Report();
    EXPECT_EQ(ReadJsonString(report, u"token"), u"tok-2");
    EXPECT_EQ(ReadJsonStringArray(report, u"messages"),
              (std::vector<std::u16string>{FromWide(kToken), FromWide(kMode)}));
    EXPECT_EQ(ReadJsonNumber(report, u"serviceCalls"), 0);

    ASSERT_EQ(x_.send(L"{\"action\":\"clearAccessToken\"}"), S_OK);
    EXPECT_EQ(ReadJsonString(Report(), u"token"), u"");
    ASSERT_TRUE(PumpUntil([this] { return log_.messages.size() == 2; }));
    EXPECT_EQ(x_.send(nullptr), E_POINTER);
}

TEST_F(StandInTest, CloseSilencesTheView) {
    ASSERT_TRUE(BringUp());
    ASSERT_EQ(view_->Navigate(kUrl), S_OK);
    ASSERT_EQ(x_.send(L"{\"action\":\"trace\",\"phase\":\"x\"}"), S_OK);
    // Both were queued before the close; neither may arrive after it.
    ASSERT_EQ(controller_->Close(), S_OK);
    Drain();
    EXPECT_EQ(log_.entries, (std::vector<std::string>{"environment", "controller"}));
    EXPECT_EQ(messageHandler_.Refs(), 0);
    EXPECT_EQ(startingHandler_.Refs(), 0);
    EXPECT_EQ(completedHandler_.Refs(), 0);
    EXPECT_EQ(x_.send(L"{\"action\":\"trace\"}"), HRESULT_FROM_WIN32(ERROR_NOT_FOUND));
    EXPECT_HRESULT_FAILED(view_->ExecuteScript(L"window.onReady&&window.onReady({})", nullptr));
    EXPECT_HRESULT_FAILED(view_->Navigate(kUrl));
    EXPECT_HRESULT_FAILED(view_->PostWebMessageAsJson(L"{}"));
    ComPtr<wv2::ICoreWebView2> again;
    EXPECT_HRESULT_FAILED(controller_->get_CoreWebView2(&again));
    EXPECT_FALSE(again);
    EXPECT_EQ(controller_->Close(), S_OK);  // a second close changes nothing
    const std::u16string report = Report();
    EXPECT_EQ(ReadJsonNumber(report, u"controllersClosed"), 1);
    EXPECT_EQ(ReadJsonNumber(report, u"navigationsCompleted"), 0);
    EXPECT_EQ(ReadJsonNumber(report, u"webMessagesDelivered"), 0);
    EXPECT_EQ(report.find(u"onReady"), std::u16string::npos);
}

TEST_F(StandInTest, CreateFailsInTheCallWithoutACallback) {
    ASSERT_EQ(x_.setFailure(QbStandInFailCreate, E_ACCESSDENIED), S_OK);
    EXPECT_EQ(x_.create(nullptr, L"C:\\ud", nullptr, &environmentHandler_), E_ACCESSDENIED);
    Drain();
    EXPECT_EQ(environmentHandler_.calls, 0);
    EXPECT_EQ(environmentHandler_.Refs(), 0);
    EXPECT_EQ(ReadJsonString(Report(), u"userDataFolder"), u"C:\\ud");
    EXPECT_EQ(Number(u"environments"), 0);
}

TEST_F(StandInTest, EnvironmentCallbackCarriesTheFailure) {
    ASSERT_EQ(x_.setFailure(QbStandInFailEnvironment, E_ABORT), S_OK);
    EXPECT_FALSE(BringUp());
    EXPECT_EQ(environmentHandler_.calls, 1);
    EXPECT_EQ(environmentHandler_.hr, E_ABORT);
    EXPECT_FALSE(environmentHandler_.result);
    EXPECT_EQ(environmentHandler_.Refs(), 0);
    EXPECT_EQ(Number(u"environments"), 0);
}

TEST_F(StandInTest, ControllerCallbackCarriesTheFailure) {
    ASSERT_EQ(x_.setFailure(QbStandInFailController, E_OUTOFMEMORY), S_OK);
    EXPECT_FALSE(BringUp());
    EXPECT_EQ(environmentHandler_.hr, S_OK);
    EXPECT_TRUE(environment_);
    EXPECT_EQ(controllerHandler_.calls, 1);
    EXPECT_EQ(controllerHandler_.hr, E_OUTOFMEMORY);
    EXPECT_FALSE(controllerHandler_.result);
    EXPECT_EQ(controllerHandler_.Refs(), 0);
    EXPECT_EQ(Number(u"controllers"), 0);
}

TEST_F(StandInTest, ControllerWithoutAView) {
    ASSERT_EQ(x_.setFailure(QbStandInFailCoreView, S_OK), S_OK);
    EXPECT_FALSE(BringUp());
    ASSERT_TRUE(controller_);
    EXPECT_EQ(controllerHandler_.hr, S_OK);
    wv2::ICoreWebView2* view = reinterpret_cast<wv2::ICoreWebView2*>(1);
    EXPECT_EQ(controller_->get_CoreWebView2(&view), S_OK);
    EXPECT_EQ(view, nullptr);
    EXPECT_EQ(Number(u"controllers"), 1);
    EXPECT_EQ(Number(u"viewsAlive"), 0);
}

TEST_F(StandInTest, NavigationsCompleteUnsuccessfully) {
    ASSERT_EQ(x_.setFailure(QbStandInFailNavigation, S_OK), S_OK);
    ASSERT_TRUE(BringUp());
    ASSERT_EQ(view_->Navigate(kUrl), S_OK);
    ASSERT_TRUE(PumpUntil([this] { return log_.entries.size() >= 4; }));
    EXPECT_EQ(log_.entries[2], "starting");
    EXPECT_EQ(log_.entries[3], "completed failed");
    EXPECT_EQ(Number(u"navigationsFailed"), 1);
    // Going back to no failure brings success back.
    ASSERT_EQ(x_.setFailure(QbStandInFailNone, S_OK), S_OK);
    ASSERT_EQ(view_->Navigate(kUrl), S_OK);
    ASSERT_TRUE(PumpUntil([this] { return log_.entries.size() >= 6; }));
    EXPECT_EQ(log_.entries[5], "completed ok");
    EXPECT_EQ(x_.setFailure(6, S_OK), E_INVALIDARG);
}

TEST_F(StandInTest, CallsFromAnotherThreadAreRefused) {
    ASSERT_TRUE(BringUp());
    HRESULT controllerHr = S_OK;
    HRESULT navigateHr = S_OK;
    std::thread other([&] {
        controllerHr = environment_->CreateCoreWebView2Controller(parent_, &controllerHandler_);
        navigateHr = view_->Navigate(kUrl);
    });
    other.join();
    EXPECT_EQ(controllerHr, RPC_E_WRONG_THREAD);
    EXPECT_EQ(navigateHr, RPC_E_WRONG_THREAD);
    EXPECT_EQ(controllerHandler_.Refs(), 0);
    EXPECT_EQ(environment_->CreateCoreWebView2Controller(nullptr, &controllerHandler_),
              E_INVALIDARG);
    EXPECT_EQ(x_.create(nullptr, L"C:\\ud", nullptr, nullptr), E_POINTER);
}

TEST_F(StandInTest, ReportTellsTheLengthItNeeds) {
    const int needed = x_.report(nullptr, 0);
    ASSERT_GT(needed, 1);
    std::wstring small(4, L'x');
    EXPECT_EQ(x_.report(small.data(), 4), needed);
    EXPECT_EQ(small[0], L'\0');
    std::wstring whole(static_cast<std::size_t>(needed), L'x');
    EXPECT_EQ(x_.report(whole.data(), needed), needed);
    EXPECT_EQ(whole[static_cast<std::size_t>(needed) - 1], L'\0');
    EXPECT_EQ(whole.front(), L'{');
    EXPECT_EQ(whole[static_cast<std::size_t>(needed) - 2], L'}');
}

// A loopback port nobody listens on: bound, read back, closed.
unsigned short ClosedPort() {
    WSADATA data;
    if (::WSAStartup(MAKEWORD(2, 2), &data) != 0) return 0;
    unsigned short port = 0;
    const SOCKET s = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int length = sizeof(address);
    if (s != INVALID_SOCKET &&
        ::bind(s, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
        ::getsockname(s, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        port = ntohs(address.sin_port);
    }
    if (s != INVALID_SOCKET) ::closesocket(s);
    ::WSACleanup();
    return port;
}

constexpr wchar_t kBatch[] =
    L"{\"action\":\"translateBatchRequest\",\"requestId\":\"ppttr_2\",\"runId\":41,"
    L"\"batchSeq\":1,\"sourceLang\":\"auto\",\"targetLang\":\"en\",\"usageKind\":"
    L"\"translate_full\",\"clientProduct\":\"ppt\",\"texts\":[\"Hallo\",\"Welt\"],"
    L"\"unitIds\":[\"u1\",\"u2\"],\"glossary\":[{\"source\":\"Welt\",\"target\":\"World\"}]}";
constexpr wchar_t kTerminology[] =
    L"{\"action\":\"terminologyResolveRequest\",\"requestId\":\"pptterm_1\",\"glossaryIds\":[],"
    L"\"instructionId\":\"\",\"corpusTexts\":[\"Hallo\"]}";

TEST_F(StandInTest, WithNoServiceListeningThePageAnswersFailures) {
    const unsigned short port = ClosedPort();
    ASSERT_NE(port, 0);
    ASSERT_EQ(x_.setService(L"127.0.0.1", port), S_OK);
    ASSERT_TRUE(BringUp());
    ASSERT_EQ(view_->PostWebMessageAsJson(kBatch), S_OK);
    ASSERT_EQ(view_->PostWebMessageAsJson(kTerminology), S_OK);
    EXPECT_EQ(Number(u"serviceCalls"), 2);
    ASSERT_TRUE(PumpUntil([this] { return log_.messages.size() == 2; }));
    for (const std::u16string& answer : log_.messages) {
        const std::u16string action = ReadJsonString(answer, u"action");
        EXPECT_EQ(action, ReadJsonString(answer, u"requestId") == u"ppttr_2"
                              ? u"translateBatchResult"
                              : u"terminologyResolveResult")
            << U8(answer);
        EXPECT_NE(answer.find(u"\"ok\":false"), std::u16string::npos) << U8(answer);
        EXPECT_FALSE(ReadJsonString(answer, u"code").empty()) << U8(answer);
    }
    ASSERT_TRUE(PumpUntil([this] { return Number(u"servicePending") == 0; }));
    EXPECT_EQ(ReadJsonStringArray(Report(), u"serviceAnswers"), log_.messages);
    EXPECT_EQ(x_.setService(L"127.0.0.1", 70000), E_INVALIDARG);
}

// The native stand-in service, when the run has one (QB_STAND_IN_PORT).
TEST_F(StandInTest, ThePageAnswersThroughTheServiceWithItsToken) {
    const char* port = std::getenv("QB_STAND_IN_PORT");
    if (!port || !*port) GTEST_SKIP() << "no stand-in service (QB_STAND_IN_PORT)";
    ASSERT_EQ(x_.setService(L"127.0.0.1", static_cast<unsigned>(std::atoi(port))), S_OK);
    ASSERT_TRUE(BringUp());
    // Not signed in: the service refuses the page.
    ASSERT_EQ(view_->PostWebMessageAsJson(kBatch), S_OK);
    ASSERT_TRUE(PumpUntil([this] { return log_.messages.size() == 1; }));
    EXPECT_NE(log_.messages[0].find(u"\"ok\":false"), std::u16string::npos) << U8(log_.messages[0]);
    EXPECT_EQ(ReadJsonString(log_.messages[0], u"code"), u"unauthorized") << U8(log_.messages[0]);

    ASSERT_EQ(x_.send(L"{\"action\":\"setAccessToken\",\"accessToken\":\"stand-in-token\"}"), S_OK);
    ASSERT_EQ(view_->PostWebMessageAsJson(kBatch), S_OK);
    ASSERT_EQ(view_->PostWebMessageAsJson(kTerminology), S_OK);
    ASSERT_TRUE(PumpUntil([this] { return log_.messages.size() == 4; }));
    const std::u16string& batch = log_.messages[2].find(u"ppttr_2") != std::u16string::npos
                                      ? log_.messages[2]
                                      : log_.messages[3];
    const std::u16string& terms = &batch == &log_.messages[2] ? log_.messages[3] : log_.messages[2];
    EXPECT_EQ(ReadJsonString(batch, u"action"), u"translateBatchResult");
    EXPECT_NE(batch.find(u"\"ok\":true"), std::u16string::npos) << U8(batch);
    const std::vector<std::u16string> translations = ReadJsonStringArray(batch, u"translations");
    ASSERT_EQ(translations.size(), 2u) << U8(batch);
    EXPECT_NE(translations[0], u"Hallo");
    EXPECT_EQ(ReadJsonStringArray(batch, u"unitIds"), (std::vector<std::u16string>{u"u1", u"u2"}));
    EXPECT_EQ(ReadJsonString(terms, u"action"), u"terminologyResolveResult");
    EXPECT_NE(terms.find(u"\"ok\":true"), std::u16string::npos) << U8(terms);
    EXPECT_FALSE(ReadJsonObjectText(terms, u"result").empty()) << U8(terms);
}

}  // namespace
}  // namespace qb::sim::webview
