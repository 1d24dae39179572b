// The task pane without its window: what the pane knows of the panel (page,
// mode, token), the panel's messages in and out, the start, tick and end of
// a run, and the bridge that carries a run's batches through the page. All
// of it talks to the view and the window through PaneView; the COM control
// and the browser view sit on top of this class.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pane/pane_view.h"
#include "pane/panel_bridge.h"
#include "run/ppt_ctrl.h"
#include "run/run_records.h"
#include "slides/host_object.h"
#include "slides/slide_engine.h"

namespace qb {

// What the pane takes from its neighbours. Each left unset gets the
// product's own (the add-in sets none); tests put fakes in their place.
struct PaneServices {
    // The document key of a presentation (never called without one).
    std::function<std::u16string(const host::HostRef& presentation)> docKey;
    // The local snapshot's JSON text; empty: the answer's data is null.
    std::function<std::u16string()> exportLocalSnapshot;
    // The client info object; empty: null.
    std::function<std::u16string()> clientInfo;
    // The service road of a batch when a run doesn't go through the page;
    // unset: the worker posts to the service itself with the run's token.
    BatchTransport nativeRoad;
    // The service road of terminology, with the run's token, glossary ids and
    // global instruction id. Unset: the run goes on without terminology.
    std::function<void(
        const std::vector<std::u16string>& corpusTexts, const std::u16string& accessToken,
        const std::vector<std::u16string>& glossaryIds, const std::u16string& instructionId,
        std::u16string& instruction, std::vector<TranslationGlossaryItem>& glossary)>
        nativeTerminology;
    // The page's resolve answer (the raw `result` object) made into the run's
    // instruction and glossary. Unset: no terminology.
    std::function<void(const std::u16string& result, std::u16string& instruction,
                       std::vector<TranslationGlossaryItem>& glossary)>
        applyTerminology;
    // The one failure report of a process about the view's bring-up.
    std::function<void(const std::u16string& stage, HRESULT hr)> sendPluginError;
    // The pane width tick of the connect object.
    std::function<void()> tickPaneWidths;
    // The COM object's reference, taken for a run and let go at its end.
    std::function<void()> addRef;
    std::function<void()> release;
    // Chart and SmartArt collection and writing for the run's engine; unset:
    // the engine's own, told which host the pane is in.
    ShapeOffer offer;
    ShapeUnitWriters writers;
};

// What the control finds when the host creates it.
struct PaneSetup {
    host::HostRef application;
    WindowKey window;
    std::int32_t paneNumber = 0;
    std::u16string page;  // empty: none asked for
    std::u16string mode;
    bool wpsHost = false;
    std::u16string serviceHost = kServiceHost;
    std::uint16_t servicePort = kServicePort;
    bool serviceSecure = true;
    PaneServices services;
};

inline constexpr char16_t kSupportContactId[] = u"Quillbrook-1";
inline constexpr std::uint32_t kWebViewFailureBoxFlags = 0x10030;  // warning, foreground

class PptPane;

// Every pane of the process, in order of creation; readers work on a copy.
class PaneRegistry {
  public:
    static void Add(PptPane* pane);
    static void Remove(PptPane* pane);
    static std::vector<PptPane*> Snapshot();
};

// The access token last seen by any pane, for panes made later.
std::u16string SharedAccessToken();
void SetSharedAccessToken(const std::u16string& token);

// What EnsureTaskPane leaves for the control the host is about to create,
// which gets no argument of the add-in's. Host's thread only.
struct PaneContext {
    host::HostRef application;
    WindowKey window;
    std::int32_t paneNumber = 0;
    std::u16string page;  // at most 32 units
    std::u16string mode;  // at most 16 units
};
PaneContext& CurrentPaneContext();
// The next pane's running number: 1, 2, ...
std::int32_t NextPaneNumber();
// What a control being created takes: application, window and number are
// copied; page and mode, when there, are taken out.
void TakePaneContext(PaneSetup& setup);

// A document window's key: its HWND (0 when unreadable) and its identity.
WindowKey WindowKeyOf(const host::HostRef& window);

// The live document window of a window key: by HWND, else by identity, else
// the only window when the key is empty. Null when it is gone.
host::HostRef FindLiveWindow(const host::HostRef& application, const WindowKey& key);

// The log line of a view closed, by the pane or by its window's end.
void TraceWebViewClose(HRESULT hr);

class PptPane {
  public:
    PptPane(PaneView& view, PaneSetup setup);
    ~PptPane();
    PptPane(const PptPane&) = delete;
    PptPane& operator=(const PptPane&) = delete;

    // --- The window and the view's bring-up; host's thread -----------------
    void OnWindowCreated();
    void OnTimer(PaneTimer timer);
    // The view stands: the first navigation goes out.
    void OnViewReady();
    void ReportWebViewFailure(const std::u16string& step, HRESULT hr);
    void OnNavigationStarting();
    void OnNavigationCompleted(bool success);
    void HandleWebMessage(const std::u16string& json);
    void OnWindowDestroyed();
    void BeginShutdownEarly();
    void CloseWebView();
    void FinalRelease();

    // --- Navigation -------------------------------------------------------
    void ShowPage(const std::u16string& page);
    void NavigateToPage(const std::u16string& page);
    std::u16string BuildPanelUrl(const std::u16string& page);
    void SetMode(const std::u16string& mode);
    // The mode a ribbon click asks of a pane that exists already.
    void SetPendingMode(const std::u16string& mode) { pendingMode_ = mode; }
    void PostAccessToken();
    void SyncCurrentPage();
    static void BroadcastUiLang(const std::u16string& lang);

    // --- Actions ----------------------------------------------------------
    void CancelRun();
    void SendSelectionPreview();
    void SendFontList();
    // The answer script of a local query; false when none was built.
    bool HandleLocalQuery(const std::u16string& json, const host::HostRef& presentation,
                          std::u16string& script);

    // --- Runs -------------------------------------------------------------
    void StartRun(const std::u16string& message);
    void FinishRun();
    std::uint64_t NextRunId();

    // --- Events and the page ----------------------------------------------
    void PostToPane(std::function<void()> job);
    void NotifyPanel(const std::u16string& name, const std::u16string& json);
    void RunPanelScript(const std::u16string& script);
    void PostPanelJson(const std::u16string& json);

    // --- The bridge -------------------------------------------------------
    TranslateBatchResult BridgeTranslate(const TranslateBatchRequest& request);
    bool BridgeResolveTerminology(const std::vector<std::u16string>& corpusTexts,
                                  std::u16string& outInstruction,
                                  std::vector<TranslationGlossaryItem>& outGlossary,
                                  std::u16string& outCode, std::u16string& outMessage);
    void OnTranslateBatchResult(const std::u16string& json);
    void OnTerminologyResolveResult(const std::u16string& json);
    void AbortPendingTranslates(const std::u16string& code);
    enum class WaitResult { Signalled, TimedOut };
    WaitResult WaitForPanelReply(const ReplySignal& event);

    // --- What the pane stands at ------------------------------------------
    bool ShuttingDown() const { return shuttingDown_.load(); }
    bool HasView() const { return viewReady_.load(); }
    bool WindowExists() const { return windowExists_; }
    bool RunInProgress() const { return runInProgress_.load() != 0; }
    std::uint64_t ActiveRunId() const { return activeRunId_; }
    const std::u16string& AccessToken() const { return accessToken_; }
    const std::u16string& CurrentPage() const { return currentPage_; }
    const std::u16string& PendingPage() const { return pendingPage_; }
    const std::u16string& Mode() const { return mode_; }
    const std::u16string& PendingMode() const { return pendingMode_; }
    bool NativeTranslateViaJs() const { return nativeTranslateViaJs_; }
    const TargetStyle& CurrentTargetStyle() const { return targetStyle_; }
    const std::vector<std::u16string>& GlossaryIds() const { return glossaryIds_; }
    const std::u16string& GlobalInstructionId() const { return globalInstructionId_; }
    const WindowKey& Window() const { return windowKey_; }
    bool DeferredStartArmed() const { return deferredStartArmed_; }
    // The run's controller, or null between runs.
    PptCtrl* Controller() const { return run_.ctrl.get(); }
    TranslateClientConfig* LiveConfig() const { return liveConfig_; }
    // The ids of the bridge requests that wait for the page.
    std::vector<std::u16string> WaitingRequestIds() const { return bridge_.WaitingIds(); }

  private:
    struct ActiveRun {
        std::unique_ptr<SlideEngine> engine;
        std::unique_ptr<PptCtrl> ctrl;  // destroyed before its engine
        void Reset() {
            ctrl.reset();
            engine.reset();
        }
    };

    void OnRunTick();
    void OnDeferredStartTick();
    void ClearDeferredStart();
    RunCallbacks BuildRunCallbacks(std::uint64_t runId);
    bool ResolveTerminologyForRun(const std::vector<std::u16string>& corpusTexts,
                                  const std::vector<std::u16string>& glossaryIds,
                                  const std::u16string& instructionId,
                                  std::u16string& outInstruction,
                                  std::vector<TranslationGlossaryItem>& outGlossary,
                                  std::u16string& outCode, std::u16string& outMessage);
    host::HostRef PanePresentation();

    PaneView& view_;
    host::HostRef application_;
    const std::uint32_t hostThreadId_;
    const PaneServices services_;
    const bool wpsHost_;
    std::atomic<bool> shuttingDown_{false};
    std::atomic<bool> viewReady_{false};
    bool windowExists_ = false;
    std::u16string serviceHost_;
    std::uint16_t servicePort_;
    bool serviceSecure_;
    std::u16string accessToken_;
    std::u16string mode_ = u"full";
    std::u16string currentPage_ = u"translate";
    std::u16string pendingPage_ = u"translate";
    std::u16string pendingMode_ = u"full";
    bool nativeTranslateViaJs_ = true;
    std::vector<std::u16string> glossaryIds_;
    std::u16string globalInstructionId_;
    TargetStyle targetStyle_;
    WindowKey windowKey_;
    std::int32_t paneNumber_ = 0;
    TranslateClientConfig* liveConfig_ = nullptr;  // liveConfigSlot
    std::u16string deferredStartMessage_;
    bool deferredStartArmed_ = false;
    std::atomic<std::int32_t> runInProgress_{0};
    std::atomic<std::uint64_t> lastRunId_{0};
    std::uint64_t activeRunId_ = 0;
    RunCallbacks runCallbacks_;
    ActiveRun run_;
    bool runReferenceHeld_ = false;
    // A run tick is on the stack: a tick or a shutdown that the pump of the
    // broken phrase pass runs inside Finish must leave the run to it.
    bool inRunTick_ = false;
    PanelBridge bridge_;
};

}  // namespace qb
