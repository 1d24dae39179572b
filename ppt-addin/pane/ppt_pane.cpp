// The pane's logic: navigation, the panel's messages, runs, events and the
// bridge. Host's thread unless a function says otherwise.
#include "pane/ppt_pane.h"

#include <algorithm>
#include <cstdio>
#include <mutex>

#include "charts/chart_steps.h"
#include "foundation/platform.h"
#include "foundation/text.h"
#include "foundation/trace.h"
#include "foundation/ui_strings.h"
#include "pane/panel_text.h"
#include "run/batch_loop.h"
#include "run/client_identity.h"
#include "run/json.h"
#include "run/service_client.h"
#include "run/sta_gate.h"
#include "run/terminology.h"
#include "slides/automation.h"
#include "slides/selection.h"
#include "slides/target_style.h"

namespace qb {
namespace {

// A waiter off the host's thread looks at the clock this often, so that a
// time-out follows the clock in force, a hand-moved one included.
constexpr std::uint32_t kWaitSliceMs = 50;

std::mutex& RegistryLock() {
    static std::mutex lock;
    return lock;
}

std::vector<PptPane*>& Registry() {
    static std::vector<PptPane*> panes;
    return panes;
}

std::mutex& TokenLock() {
    static std::mutex lock;
    return lock;
}

std::u16string& TokenSlot() {
    static std::u16string token;
    return token;
}

// Once a process each: the failure dialog and the failure report.
std::atomic<bool> g_failureDialogShown{false};
std::atomic<bool> g_failureReportSent{false};

std::u16string Unsigned(std::uint64_t value) {
    return AsciiToUtf16(std::to_string(value));
}

std::intptr_t IdentityOf(const host::HostRef& object) {
    return object ? reinterpret_cast<std::intptr_t>(object->Identity()) : 0;
}

bool HwndOf(const host::HostRef& window, std::intptr_t& hwnd) {
    host::Variant value;
    double d = 0;
    if (FAILED(host::DispGet(window, u"HWND", &value)) || !value.ToDouble(d)) return false;
    hwnd = static_cast<std::intptr_t>(static_cast<long long>(d));
    return true;
}

bool HasKey(const std::u16string& json, std::u16string_view quotedKey) {
    return json.find(quotedKey) != std::u16string::npos;
}

TranslateBatchResult Failed(std::u16string code, std::u16string message) {
    TranslateBatchResult result;
    result.code = std::move(code);
    result.message = std::move(message);
    return result;
}

// What a pane's services are when nobody put a fake in their place: the
// add-in's own readers, the service exchange of terminology and the chart
// steps of the host the pane is in.
PaneServices WithProductServices(PaneServices services, const PaneSetup& setup) {
    if (!services.docKey) services.docKey = ReadDocKey;
    if (!services.clientInfo) services.clientInfo = BuildClientInfo;
    if (!services.exportLocalSnapshot) services.exportLocalSnapshot = ExportLocalSnapshot;
    if (!services.nativeTerminology) {
        HttpEndpoint endpoint;
        endpoint.host = setup.serviceHost;
        endpoint.port = setup.servicePort;
        endpoint.secure = setup.serviceSecure;
        services.nativeTerminology = [endpoint](const std::vector<std::u16string>& corpusTexts,
                                                const std::u16string& accessToken,
                                                const std::vector<std::u16string>& glossaryIds,
                                                const std::u16string& instructionId,
                                                std::u16string& instruction,
                                                std::vector<TranslationGlossaryItem>& glossary) {
            ApplyTerminology(ResolveTerminologyNative(endpoint, accessToken, glossaryIds,
                                                      instructionId, corpusTexts),
                             instruction, glossary);
        };
    }
    if (!services.applyTerminology) {
        services.applyTerminology = [](const std::u16string& result, std::u16string& instruction,
                                       std::vector<TranslationGlossaryItem>& glossary) {
            ApplyTerminology(ParseTerminologyReply(result), instruction, glossary);
        };
    }
    if (!services.offer || !services.writers.applyChartUnit) {
        ChartStepsConfig charts;
        charts.isWpsHost = [wps = setup.wpsHost] { return wps; };
        if (!services.offer) services.offer = MakeChartOffer(charts);
        if (!services.writers.applyChartUnit) services.writers = MakeChartWriters(charts);
    }
    return services;
}

}  // namespace

// --- Process-wide state -----------------------------------------------------

void PaneRegistry::Add(PptPane* pane) {
    std::lock_guard<std::mutex> hold(RegistryLock());
    auto& panes = Registry();
    if (std::find(panes.begin(), panes.end(), pane) == panes.end()) panes.push_back(pane);
}

void PaneRegistry::Remove(PptPane* pane) {
    std::lock_guard<std::mutex> hold(RegistryLock());
    auto& panes = Registry();
    panes.erase(std::remove(panes.begin(), panes.end(), pane), panes.end());
}

std::vector<PptPane*> PaneRegistry::Snapshot() {
    std::lock_guard<std::mutex> hold(RegistryLock());
    return Registry();
}

std::u16string SharedAccessToken() {
    std::lock_guard<std::mutex> hold(TokenLock());
    return TokenSlot();
}

void SetSharedAccessToken(const std::u16string& token) {
    std::lock_guard<std::mutex> hold(TokenLock());
    TokenSlot() = token;
}

PaneContext& CurrentPaneContext() {
    static PaneContext context;
    return context;
}

std::int32_t NextPaneNumber() {
    static std::int32_t last = 0;
    return ++last;
}

void TakePaneContext(PaneSetup& setup) {
    PaneContext& context = CurrentPaneContext();
    setup.application = context.application;
    setup.window = context.window;
    setup.paneNumber = context.paneNumber;
    setup.page = std::move(context.page);
    setup.mode = std::move(context.mode);
    context.page.clear();
    context.mode.clear();
}

WindowKey WindowKeyOf(const host::HostRef& window) {
    WindowKey key;
    if (!HwndOf(window, key.hwnd)) key.hwnd = 0;
    key.identity = IdentityOf(window);
    return key;
}

host::HostRef FindLiveWindow(const host::HostRef& application, const WindowKey& key) {
    host::HostRef windows;
    std::int32_t count = 0;
    if (FAILED(host::GetObject(application, u"Windows", windows)) ||
        FAILED(host::GetInt32(windows, u"Count", count))) {
        return nullptr;
    }
    host::HostRef byIdentity, only;
    for (std::int32_t i = 1; i <= count; ++i) {
        host::HostRef window;
        if (FAILED(host::GetItem(windows, i, window))) continue;
        std::intptr_t hwnd = 0;
        if (key.hwnd != 0 && HwndOf(window, hwnd) && hwnd == key.hwnd) return window;
        if (key.identity != 0 && !byIdentity && IdentityOf(window) == key.identity) {
            byIdentity = window;
        }
        if (count == 1) only = window;
    }
    if (byIdentity) return byIdentity;
    if (key.hwnd == 0 && key.identity == 0) return only;
    return nullptr;
}

// --- Life cycle -------------------------------------------------------------

PptPane::PptPane(PaneView& view, PaneSetup setup)
    : view_(view),
      application_(std::move(setup.application)),
      hostThreadId_(platform::CurrentThreadId()),
      services_(WithProductServices(std::move(setup.services), setup)),
      wpsHost_(setup.wpsHost),
      serviceHost_(std::move(setup.serviceHost)),
      servicePort_(setup.servicePort),
      serviceSecure_(setup.serviceSecure),
      windowKey_(setup.window),
      paneNumber_(setup.paneNumber) {
    if (!setup.page.empty()) pendingPage_ = setup.page;
    if (!setup.mode.empty()) pendingMode_ = setup.mode;
    const std::u16string token = SharedAccessToken();
    if (!token.empty()) accessToken_ = token;
    PaneRegistry::Add(this);
}

PptPane::~PptPane() {
    PaneRegistry::Remove(this);
    run_.Reset();
}

void PptPane::OnWindowCreated() {
    Trace(u"CPptPane WM_CREATE\r\n");
    windowExists_ = true;
    (void)view_.SetTimer(PaneTimer::PaneTick, kPaneTickMs);
}

void PptPane::OnTimer(PaneTimer timer) {
    switch (timer) {
        case PaneTimer::PaneTick:
            if (services_.tickPaneWidths) services_.tickPaneWidths();
            break;
        case PaneTimer::DeferredStart:
            OnDeferredStartTick();
            break;
        case PaneTimer::RunTick:
            OnRunTick();
            break;
    }
}

void PptPane::OnViewReady() {
    if (shuttingDown_) return;
    viewReady_ = true;
    if (pendingPage_.empty()) pendingPage_ = kPageTranslate;
    NavigateToPage(pendingPage_);
    pendingPage_.clear();
}

void PptPane::ReportWebViewFailure(const std::u16string& step, HRESULT hr) {
    Trace(u"PptPane WebView2 " + step + u" failed hr=0x" + HexText(static_cast<std::uint32_t>(hr)) +
          u"\r\n");
    if (!g_failureReportSent.exchange(true) && services_.sendPluginError) {
        std::u16string stage = u"init";
        if (step == u"userdata") stage = u"user_data_dir";
        if (step == u"environment") stage = u"environment";
        if (step == u"controller") stage = u"controller";
        services_.sendPluginError(stage, hr);
    }
    if (g_failureDialogShown.exchange(true)) return;
    view_.ShowMessageBox(GetUiString(u"msg.webview2.body"), GetUiString(u"msg.title"),
                         kWebViewFailureBoxFlags);
    // The dialog says that closing it copies the support contact id.
    (void)view_.SetClipboardText(kSupportContactId);
}

void PptPane::OnWindowDestroyed() {
    windowExists_ = false;
    view_.KillTimer(PaneTimer::PaneTick);
    view_.KillTimer(PaneTimer::DeferredStart);
    view_.KillTimer(PaneTimer::RunTick);
    BeginShutdownEarly();
}

void PptPane::BeginShutdownEarly() {
    if (shuttingDown_.exchange(true)) {
        CloseWebView();
        return;
    }
    Trace(u"PptPane BeginShutdownEarly\r\n");
    ClearDeferredStart();
    if (liveConfig_) {
        liveConfig_->cancelled = 1;
        liveConfig_->paused = 0;
    }
    AbortPendingTranslates(u"addin_shutdown");
    if (run_.ctrl) {
        if (inRunTick_) {
            // Finish is on the stack below this (a pump in its last pass):
            // it ends soon, with the cancel seen, and its tick ends the run.
            Trace(u"PptPane shutdown: run finishing, left to its tick\r\n");
        } else if (run_.ctrl->Abort()) {
            FinishRun();
        } else {
            Trace(u"PptPane shutdown: run worker busy, object kept alive\r\n");
        }
    }
    CloseWebView();
}

void PptPane::CloseWebView() {
    if (!viewReady_.exchange(false)) return;
    TraceWebViewClose(view_.CloseView());
}

void TraceWebViewClose(HRESULT hr) {
    Trace(u"PptPane WebView2 Close hr=0x" + HexText(static_cast<std::uint32_t>(hr)) + u"\r\n");
}

void PptPane::FinalRelease() {
    shuttingDown_ = true;
    AbortPendingTranslates(u"addin_shutdown");
}

// --- Navigation -------------------------------------------------------------

std::u16string PptPane::BuildPanelUrl(const std::u16string& page) {
    PanelUrlParts parts;
    parts.host = serviceHost_;
    parts.port = servicePort_;
    parts.secure = serviceSecure_;
    parts.page = page;
    parts.tick = platform::CurrentClock().TickCount64();
    parts.wpsHost = wpsHost_;
    parts.paneNumber = paneNumber_;
    parts.mode = mode_;
    parts.uiLang = ResolveUiLanguage(application_);
    return qb::BuildPanelUrl(parts);
}

void PptPane::NavigateToPage(const std::u16string& page) {
    if (!viewReady_ || shuttingDown_) return;
    currentPage_ = page;
    const std::u16string url = BuildPanelUrl(page);
    Trace(u"CPptPane navigate " + url);
    view_.Navigate(url);
}

void PptPane::ShowPage(const std::u16string& requested) {
    const std::u16string page = requested.empty() ? std::u16string(kPageTranslate) : requested;
    pendingPage_ = page;
    if (!viewReady_) return;  // the bring-up goes to the pending page
    const bool translate = EqualsIgnoringCase(page, kPageTranslate);
    if (!translate) pendingMode_.clear();
    if (!currentPage_.empty() && EqualsIgnoringCase(currentPage_, page) && translate) {
        if (!pendingMode_.empty() && pendingMode_ != mode_) SetMode(pendingMode_);
    } else {
        NavigateToPage(page);
    }
    pendingPage_.clear();
}

void PptPane::SetMode(const std::u16string& mode) {
    mode_ = mode;
    if (viewReady_ && !shuttingDown_) view_.PostWebMessageAsJson(SetModeMessage(mode_));
}

void PptPane::PostAccessToken() {
    if (accessToken_.empty()) return;
    if (viewReady_ && !shuttingDown_) view_.PostWebMessageAsJson(AccessTokenMessage(accessToken_));
}

void PptPane::SyncCurrentPage() {
    std::u16string url, page;
    if (!view_.ReadSource(url) || url.empty()) return;
    if (PageFromSource(url, page)) currentPage_ = page;
}

void PptPane::BroadcastUiLang(const std::u16string& lang) {
    for (PptPane* pane : PaneRegistry::Snapshot()) {
        if (pane->viewReady_) pane->view_.PostWebMessageAsJson(UiLangChangedMessage(lang));
    }
}

void PptPane::OnNavigationStarting() {
    if (shuttingDown_) return;
    AbortPendingTranslates(u"webview_navigating");
}

void PptPane::OnNavigationCompleted(bool success) {
    if (shuttingDown_) return;
    if (!success) {
        Trace(u"CPptPane nav completed failed (no retry)\r\n");
        return;
    }
    SyncCurrentPage();
    PostAccessToken();
    if (!pendingPage_.empty()) {
        const std::u16string page = pendingPage_;
        pendingPage_.clear();
        NavigateToPage(page);
        return;
    }
    if (EqualsIgnoringCase(currentPage_, kPageTranslate) && !pendingMode_.empty() &&
        pendingMode_ != mode_) {
        SetMode(pendingMode_);
    }
}

// --- Inbound messages -------------------------------------------------------

void PptPane::HandleWebMessage(const std::u16string& json) {
    // The view's handler drops what arrives once the pane is closing.
    if (shuttingDown_) return;
    const std::u16string action = ReadJsonString(json, u"action");
    if (action.empty()) return;
    if (action == u"start" || action == u"restart" || action == u"startSelection") {
        Trace(u"PptPane start action=" + action + u" panelMode=" +
              ReadJsonString(json, u"panelMode"));
        // The run never starts inside the view's callback.
        PostToPane([this, message = json] { StartRun(message); });
    } else if (action == u"requestSelectionPreview") {
        if (!RunInProgress()) PostToPane([this] { SendSelectionPreview(); });
    } else if (action == u"cancel") {
        CancelRun();
    } else if (action == u"pause") {
        if (liveConfig_) liveConfig_->paused = 1;
    } else if (action == u"resume") {
        if (liveConfig_) liveConfig_->paused = 0;
    } else if (action == u"setTargetStyle") {
        ReadTargetStyle(json, targetStyle_);
    } else if (action == u"sessionQuery") {
        // Accepted; the page expects no answer.
    } else if (action == u"setAccessToken") {
        accessToken_ = ReadJsonString(json, u"accessToken");
        SetSharedAccessToken(accessToken_);
    } else if (action == u"requestAccessToken") {
        PostAccessToken();
    } else if (action == u"clearAccessToken") {
        accessToken_.clear();
        SetSharedAccessToken(std::u16string());
    } else if (action == u"getFontList") {
        SendFontList();
    } else if (action == u"trace") {
        Trace(u"[panel] " + ReadJsonString(json, u"phase"));
    } else if (action == u"translateBatchResult") {
        OnTranslateBatchResult(json);
    } else if (action == u"terminologyResolveResult") {
        OnTerminologyResolveResult(json);
    } else if (action == u"docKeyGet" || action == u"exportLocalSnapshot" ||
               action == u"clientInfoGet" || action == u"uiLangGet") {
        std::u16string script;
        if (HandleLocalQuery(json, PanePresentation(), script)) RunPanelScript(script);
    } else {
        Trace(u"PptPane unknown action: " + action);
    }
}

host::HostRef PptPane::PanePresentation() {
    host::HostRef presentation;
    const host::HostRef window = FindLiveWindow(application_, windowKey_);
    if (window) (void)host::GetObject(window, u"Presentation", presentation);
    return presentation;
}

bool PptPane::HandleLocalQuery(const std::u16string& json, const host::HostRef& presentation,
                               std::u16string& script) {
    const std::u16string action = ReadJsonString(json, u"action");
    const std::u16string requestId = ReadJsonString(json, u"requestId");
    std::u16string data;
    if (action == u"docKeyGet") {
        if (!presentation) {
            data = u"{\"docKey\":\"_no_doc\"}";
        } else if (services_.docKey) {
            data = u"{\"docKey\":" + JsonQuote(services_.docKey(presentation)) + u"}";
        }
    } else if (action == u"exportLocalSnapshot") {
        if (services_.exportLocalSnapshot) data = services_.exportLocalSnapshot();
    } else if (action == u"clientInfoGet") {
        if (services_.clientInfo) data = services_.clientInfo();
    } else if (action == u"uiLangGet") {
        data = u"{\"uiLang\":" + JsonQuote(ResolveUiLanguage(application_)) + u"}";
    } else {
        return false;
    }
    script = LocalQueryScript(requestId, data);
    return !script.empty();
}

void PptPane::ClearDeferredStart() {
    view_.KillTimer(PaneTimer::DeferredStart);
    deferredStartMessage_.clear();
    deferredStartArmed_ = false;
}

void PptPane::CancelRun() {
    ClearDeferredStart();
    if (liveConfig_) {
        liveConfig_->cancelled = 1;
        liveConfig_->paused = 0;
    }
    const std::uint64_t runId = activeRunId_;
    AbortPendingTranslates(u"cancelled");
    if (runId != 0 && viewReady_ && !shuttingDown_) {
        view_.PostWebMessageAsJson(TranslateAbortForRunMessage(runId));
    }
}

void PptPane::SendSelectionPreview() {
    if (shuttingDown_ || !viewReady_ || RunInProgress() || StaGate::Owner() != nullptr) return;
    std::u16string script;
    try {
        const host::HostRef window = FindLiveWindow(application_, windowKey_);
        script = SelectionPreviewScript(ReadSelectionPreview(application_, window));
    } catch (...) {
        script = SelectionPreviewFailedScript();
    }
    view_.ExecuteScript(script);
}

void PptPane::SendFontList() {
    std::vector<std::u16string> fonts;
    for (std::u16string& name : view_.ListFontFamilies()) {
        if (name.empty() || name.front() == u'@') continue;  // vertical twins
        fonts.push_back(std::move(name));
    }
    if (viewReady_ && !shuttingDown_) view_.PostWebMessageAsJson(FontListMessage(fonts));
}

// --- Runs -------------------------------------------------------------------

std::uint64_t PptPane::NextRunId() {
    return TakeRunId(lastRunId_, platform::CurrentClock().TickCount64());
}

void PptPane::OnDeferredStartTick() {
    view_.KillTimer(PaneTimer::DeferredStart);
    deferredStartArmed_ = false;
    std::u16string message;
    message.swap(deferredStartMessage_);
    if (!message.empty()) StartRun(message);
}

void PptPane::StartRun(const std::u16string& message) {
    if (shuttingDown_) return;
    if (RunInProgress()) {
        Trace(u"PptPane start ignored: run in progress\r\n");
        return;
    }
    if (StaGate::Owner() != nullptr) {
        // The latest start wins; it is tried again when the timer fires.
        deferredStartMessage_ = message;
        if (!deferredStartArmed_) {
            deferredStartArmed_ = true;
            if (!view_.SetTimer(PaneTimer::DeferredStart, kDeferredStartMs)) {
                deferredStartArmed_ = false;
            }
        }
        Trace(u"PptPane StartRun deferred: sta mutation in flight\r\n");
        return;
    }

    const std::u16string action = ReadJsonString(message, u"action");
    const std::u16string panelMode = ReadJsonString(message, u"panelMode");
    RunScope scope = RunScope::FullDeck;
    if (action == u"startSelection" || panelMode == u"selection") {
        scope = RunScope::Selection;
    } else if (panelMode == u"slide") {
        scope = RunScope::CurrentSlide;
    }
    Trace(u"PptPane StartRun begin scope=" + DecimalText(static_cast<long long>(scope)));
    if (runInProgress_.exchange(1) != 0) {
        Trace(u"PptPane start ignored: run in progress\r\n");
        return;
    }
    if (services_.addRef) services_.addRef();
    runReferenceHeld_ = true;
    const std::uint64_t runId = NextRunId();

    RunOptions options;
    options.window = windowKey_;
    options.liveConfigSlot = &liveConfig_;
    options.ownerPane = this;
    options.runId = runId;
    options.scope = scope;
    options.fullDeck = scope == RunScope::FullDeck;
    options.usageKind = scope == RunScope::Selection ? u"translate_selection" : u"translate_full";

    options.clientTraceId = ReadJsonString(message, u"clientTraceId");
    if (options.clientTraceId.empty()) options.clientTraceId = u"ppt_" + Unsigned(runId);
    options.targetLang = ReadJsonString(message, u"targetLang");
    if (options.targetLang.empty()) options.targetLang = u"en";
    options.sourceLang = ReadJsonString(message, u"sourceLang");
    if (options.sourceLang.empty()) options.sourceLang = u"auto";

    std::u16string token = ReadJsonString(message, u"accessToken");
    if (token.empty()) token = ReadJsonString(message, u"token");
    if (!token.empty()) {
        accessToken_ = token;
        SetSharedAccessToken(accessToken_);
    }
    options.accessToken = accessToken_;

    glossaryIds_ = ReadJsonStringArray(message, u"glossaryIds");
    globalInstructionId_ = ReadJsonString(message, u"globalInstructionId");

    // "transport":"native" beats "nativeTranslateViaJs":true; both stay for
    // later runs of this pane.
    if (HasKey(message, u"\"nativeTranslateViaJs\"")) {
        nativeTranslateViaJs_ = ReadJsonBool(message, u"nativeTranslateViaJs");
    }
    if (HasKey(message, u"\"transport\"") && ReadJsonString(message, u"transport") == u"native") {
        nativeTranslateViaJs_ = false;
    }
    if (HasKey(message, u"\"targetFont\"")) {
        options.targetFont = ReadJsonString(message, u"targetFont");
    } else {
        options.targetFont =
            targetStyle_.font.empty() ? std::u16string(kDefaultTargetFont) : targetStyle_.font;
    }
    options.targetStyle = targetStyle_;
    options.hasTargetSize = targetStyle_.size > 0;
    options.bilingualSlides = ReadJsonBool(message, u"pptBilingualSlides");

    if (nativeTranslateViaJs_) {
        options.translateOverride = [this](const TranslateBatchRequest& request) {
            return BridgeTranslate(request);
        };
    } else {
        options.nativeRoad = services_.nativeRoad;
        options.nativeService = true;
    }
    // The worker reads copies made now: the page may change the pane's
    // token or lists while the run goes on.
    options.terminologyResolver =
        [this, viaJs = nativeTranslateViaJs_, token = accessToken_, glossaryIds = glossaryIds_,
         instructionId = globalInstructionId_](const std::vector<std::u16string>& corpusTexts,
                                               std::u16string& instruction,
                                               std::vector<TranslationGlossaryItem>& glossary,
                                               std::u16string& code, std::u16string& text) {
            if (!viaJs) {
                if (services_.nativeTerminology) {
                    services_.nativeTerminology(corpusTexts, token, glossaryIds, instructionId,
                                                instruction, glossary);
                }
                return true;
            }
            if (ResolveTerminologyForRun(corpusTexts, glossaryIds, instructionId, instruction,
                                         glossary, code, text)) {
                return true;
            }
            return IsPassableTerminologyFailure(code);
        };

    runCallbacks_ = BuildRunCallbacks(runId);
    activeRunId_ = runId;

    ActiveRun earlier = std::move(run_);
    run_.engine = std::make_unique<SlideEngine>(services_.offer, services_.writers);
    run_.ctrl = std::make_unique<PptCtrl>(application_, *run_.engine);
    earlier.Reset();
    PptCtrl* ctrl = run_.ctrl.get();
    run_.engine->SetPhraseTranslator([ctrl](const std::u16string& text, std::u16string& out) {
        std::u16string failure, code;
        return TranslateText(ctrl->Config(), text, out, failure, code);
    });

    std::u16string outMessage;
    if (ctrl->Start(options, &runCallbacks_, outMessage)) {
        if (!view_.SetTimer(PaneTimer::RunTick, kRunTickMs)) {
            Trace(u"PptPane run tick timer failed; abort run\r\n");
            if (ctrl->Abort()) FinishRun();
            Trace(u"PptPane StartRun end\r\n");
        } else {
            Trace(u"PptPane StartRun end (async)\r\n");
        }
    } else {
        Trace(u"PptPane run end runId=" + Unsigned(runId) + u": " + outMessage);
        FinishRun();
        Trace(u"PptPane StartRun end\r\n");
    }
}

void PptPane::OnRunTick() {
    // A tick that the pump of the broken phrase pass delivers inside Finish
    // does nothing: the controller is in use below it.
    if (inRunTick_ || !run_.ctrl) return;
    inRunTick_ = true;
    const bool finished = run_.ctrl->Tick();
    inRunTick_ = false;
    if (finished) FinishRun();
}

void PptPane::FinishRun() {
    view_.KillTimer(PaneTimer::RunTick);
    ActiveRun ended = std::move(run_);
    ended.Reset();
    activeRunId_ = 0;
    runInProgress_ = 0;
    if (runReferenceHeld_) {
        runReferenceHeld_ = false;
        if (services_.release) services_.release();
    }
    Trace(u"PptPane run finished\r\n");
}

RunCallbacks PptPane::BuildRunCallbacks(std::uint64_t runId) {
    // Each event copies what it carries into a job; nothing calls the page
    // directly, so the page sees the events in the order they were posted.
    RunCallbacks c;
    c.onRunStarted = [this, runId] {
        PostToPane([this, runId] { NotifyPanel(u"onRunStarted", RunIdEvent(runId)); });
    };
    c.onScanProgress = [this, runId](std::int32_t current, std::int32_t total,
                                     const std::u16string& phase) {
        PostToPane([this, runId, current, total, phase] {
            NotifyPanel(u"onScanProgress", ScanProgressEvent(runId, current, total, phase));
        });
    };
    c.onReady = [this, runId](std::int32_t total, std::int32_t translatable) {
        PostToPane([this, runId, total, translatable] {
            NotifyPanel(u"onReady", ReadyEvent(runId, total, translatable));
        });
    };
    c.onProgress = [this, runId](std::int32_t index, std::int32_t total, bool skipped,
                                 const std::u16string& original, const std::u16string& translated) {
        PostToPane([this, runId, index, total, skipped, original, translated] {
            NotifyPanel(u"onProgress",
                        ProgressEvent(runId, index, total, skipped, original, translated));
        });
    };
    c.onComplete = [this, runId](std::int64_t elapsed, std::int32_t total, bool bilingualCopy) {
        PostToPane([this, runId, elapsed, total, bilingualCopy] {
            NotifyPanel(u"onComplete", CompleteEvent(runId, elapsed, total, bilingualCopy));
        });
    };
    c.onError = [this, runId](const std::u16string& code, const std::u16string& text) {
        PostToPane(
            [this, runId, code, text] { NotifyPanel(u"onError", ErrorEvent(runId, code, text)); });
    };
    c.onCancelled = [this, runId] {
        PostToPane([this, runId] { NotifyPanel(u"onCancelled", RunIdEvent(runId)); });
    };
    return c;
}

// --- Events and the page ----------------------------------------------------

void PptPane::PostToPane(std::function<void()> job) {
    // A window that is gone drops the job; a waiter is saved by its time-out.
    (void)view_.PostJob(std::move(job));
}

void PptPane::NotifyPanel(const std::u16string& name, const std::u16string& json) {
    if (shuttingDown_) return;
    RunPanelScript(PanelCallScript(name, json));
}

void PptPane::RunPanelScript(const std::u16string& script) {
    if (viewReady_ && !shuttingDown_) view_.ExecuteScript(script);
}

void PptPane::PostPanelJson(const std::u16string& json) {
    if (viewReady_ && !shuttingDown_) view_.PostWebMessageAsJson(json);
}

// --- The bridge -------------------------------------------------------------

TranslateBatchResult PptPane::BridgeTranslate(const TranslateBatchRequest& request) {
    if (shuttingDown_ || !viewReady_) return Failed(u"webview_unavailable", u"panel unavailable");
    auto record = std::make_shared<PendingTranslateRequest>();
    record->requestId = bridge_.NextRequestId(u"ppttr_");
    record->runId = request.runId;
    try {
        record->event = std::make_shared<ReplySignal>();
    } catch (...) {
        return Failed(u"internal_error", std::u16string());
    }
    bridge_.AddTranslate(record);
    // The job, not the caller, touches the view: the caller may be the worker.
    PostToPane([this, text = TranslateBatchRequestMessage(record->requestId, request)] {
        PostPanelJson(text);
    });
    const WaitResult waited = WaitForPanelReply(*record->event);
    // An answer that came in after the wait gave up but before the record
    // left the table still counts: the record holds one completion.
    const bool done = bridge_.RemoveTranslate(record->requestId);
    if (waited == WaitResult::TimedOut && !done) {
        return Failed(u"request_timeout", u"JS bridge timeout");
    }
    TranslateBatchResult result;
    result.ok = record->ok;
    result.translations = std::move(record->translations);
    result.unitIds = std::move(record->unitIds);
    result.code = std::move(record->code);
    result.message = std::move(record->message);
    return result;
}

bool PptPane::BridgeResolveTerminology(const std::vector<std::u16string>& corpusTexts,
                                       std::u16string& outInstruction,
                                       std::vector<TranslationGlossaryItem>& outGlossary,
                                       std::u16string& outCode, std::u16string& outMessage) {
    return ResolveTerminologyForRun(corpusTexts, glossaryIds_, globalInstructionId_, outInstruction,
                                    outGlossary, outCode, outMessage);
}

bool PptPane::ResolveTerminologyForRun(const std::vector<std::u16string>& corpusTexts,
                                       const std::vector<std::u16string>& glossaryIds,
                                       const std::u16string& instructionId,
                                       std::u16string& outInstruction,
                                       std::vector<TranslationGlossaryItem>& outGlossary,
                                       std::u16string& outCode, std::u16string& outMessage) {
    if (shuttingDown_ || !viewReady_) {
        outCode = u"webview_unavailable";
        return false;
    }
    auto record = std::make_shared<PendingTerminologyRequest>();
    record->requestId = bridge_.NextRequestId(u"pptterm_");
    try {
        record->event = std::make_shared<ReplySignal>();
    } catch (...) {
        outCode = u"internal_error";
        return false;
    }
    bridge_.AddTerminology(record);
    PostToPane([this, text = TerminologyResolveRequestMessage(record->requestId, glossaryIds,
                                                              instructionId, corpusTexts)] {
        PostPanelJson(text);
    });
    const WaitResult waited = WaitForPanelReply(*record->event);
    const PendingTerminologyRequest outcome = bridge_.TakeTerminology(record->requestId);
    if (waited == WaitResult::TimedOut && !outcome.done) {
        outCode = u"request_timeout";
        outMessage = u"terminology bridge timeout";
        return false;
    }
    if (!outcome.ok) {
        outCode = outcome.code;
        outMessage = outcome.message;
        return false;
    }
    if (services_.applyTerminology) {
        services_.applyTerminology(outcome.result, outInstruction, outGlossary);
    }
    return true;
}

void PptPane::OnTranslateBatchResult(const std::u16string& json) {
    const std::u16string requestId = ReadJsonString(json, u"requestId");
    if (requestId.empty()) return;
    PanelAnswer answer;
    answer.ok = ReadJsonBool(json, u"ok");
    if (answer.ok) {
        answer.translations = ReadJsonStringArray(json, u"translations");
        answer.unitIds = ReadJsonStringArray(json, u"unitIds");
    } else {
        answer.code = ReadJsonString(json, u"code");
        answer.message = ReadJsonString(json, u"message");
    }
    // No request of that id waits (late, twice, unknown): dropped silently.
    (void)bridge_.CompleteTranslate(requestId, std::move(answer));
}

void PptPane::OnTerminologyResolveResult(const std::u16string& json) {
    const std::u16string requestId = ReadJsonString(json, u"requestId");
    if (requestId.empty()) return;
    PanelAnswer answer;
    answer.ok = ReadJsonBool(json, u"ok");
    if (answer.ok) {
        answer.result = ReadJsonObjectText(json, u"result");
    } else {
        answer.code = ReadJsonString(json, u"code");
        answer.message = ReadJsonString(json, u"message");
    }
    (void)bridge_.CompleteTerminology(requestId, std::move(answer));
}

void PptPane::AbortPendingTranslates(const std::u16string& code) {
    (void)bridge_.AbortTranslates(code);
}

PptPane::WaitResult PptPane::WaitForPanelReply(const ReplySignal& event) {
    platform::Clock& clock = platform::CurrentClock();
    const std::uint64_t deadline = clock.TickCount64() + kPanelReplyTimeoutMs;
    const bool onHostThread = platform::CurrentThreadId() == hostThreadId_;
    for (;;) {
        if (event.IsSet()) return WaitResult::Signalled;
        const std::uint64_t now = clock.TickCount64();
        if (now >= deadline) return WaitResult::TimedOut;
        const auto left = static_cast<std::uint32_t>(deadline - now);
        if (!onHostThread) {
            (void)event.WaitFor(std::min(left, kWaitSliceMs));
            continue;
        }
        // The answer comes as a message of this thread: pump until then.
        // A quit, or a wait that fails, ends the wait as a time-out rather
        // than turning it into a spin.
        if (view_.PumpMessages(left) != PumpResult::Pumped) {
            return event.IsSet() ? WaitResult::Signalled : WaitResult::TimedOut;
        }
    }
}

}  // namespace qb
