// The panel road: a run started and watched the way the web panel does it.
// A pane over the recording view, with the stand-in page signed in; the page
// sends the start message, answers each batch by calling the service itself,
// and hears the run's events, which are all the progress line is made of.
#include <limits>
#include <memory>

#include "cli/roads.h"
#include "foundation/text.h"
#include "pane/ppt_pane.h"
#include "run/json.h"
#include "run/service_client.h"
#include "sim/panel/recording_view.h"
#include "sim/panel/scripted_page.h"

namespace qb::cli {
namespace {

// The pane ends a run by killing its tick just before it lets the run's
// controller go: the last moment the written counts can be read, as no
// event carries them.
class CountingView : public sim::RecordingView {
  public:
    void KillTimer(PaneTimer timer) override {
        if (timer == PaneTimer::RunTick && pane && pane->Controller()) Read(*pane->Controller());
        RecordingView::KillTimer(timer);
    }
    void Read(const PptCtrl& run) {
        slides = static_cast<std::int32_t>(run.Lists().spans.size());
        applied = run.Applied();
        written = run.ApplyCursor();
        firstApplyError = Utf16ToUtf8(run.FirstApplyError());
    }

    const PptPane* pane = nullptr;
    std::int32_t slides = 0, applied = 0, written = 0;
    std::string firstApplyError;
};

std::u16string StartMessage(const RoadRequest& request) {
    JsonObjectWriter start;
    const bool selection = request.scope == RunScope::Selection;
    start.String(u"action", selection ? u"startSelection" : u"start")
        .String(u"panelMode", selection                                 ? u"selection"
                              : request.scope == RunScope::CurrentSlide ? u"slide"
                                                                        : u"full")
        .String(u"targetLang", request.targetLang)
        .String(u"sourceLang", request.sourceLang)
        .String(u"accessToken", request.token)
        .Raw(u"glossaryIds", JsonStringArray(request.glossaryIds))
        .String(u"globalInstructionId", request.instructionId);
    // Absent, the pane sets its own default font; empty keeps the source's.
    if (request.targetFont) start.String(u"targetFont", *request.targetFont);
    start.Bool(u"pptBilingualSlides", request.bilingual);
    return start.Finish();
}

}  // namespace

RoadOutcome RunPanelRoad(const RoadRequest& request, Progress& progress) {
    sim::SimHost& host = *request.host;
    PaneSetup setup;
    setup.application = host.Application();
    setup.window.hwnd = host.App().windows[0]->hwnd;
    setup.paneNumber = 1;
    setup.wpsHost = request.wpsHost;
    setup.services.offer = request.offer;
    setup.services.writers = request.writers;

    CountingView view;
    PptPane pane(view, std::move(setup));
    view.pane = &pane;
    sim::ScriptedPage page(host, pane, view);
    // Batches and terminology go from the page to the service in force.
    page.UseService(true);
    pane.OnWindowCreated();
    pane.OnViewReady();

    RoadOutcome out;
    // No time limit on our side: the run's own waits end it.
    constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max() / 2;
    if (!page.PumpUntilIdle(kNoLimit)) return out;
    page.SignIn(request.token);
    page.Start(StartMessage(request));

    std::size_t seen = 0;
    std::int32_t collected = 0, slidesTotal = 0, units = 0, done = 0;
    const auto hear = [&] {
        const std::vector<sim::PageEvent>& events = page.Events();
        for (; seen < events.size(); ++seen) {
            const std::u16string& name = events[seen].name;
            const std::u16string& json = events[seen].json;
            if (name == u"onScanProgress") {
                collected = static_cast<std::int32_t>(ReadJsonNumber(json, u"current"));
                slidesTotal = static_cast<std::int32_t>(ReadJsonNumber(json, u"total"));
            } else if (name == u"onReady") {
                units = static_cast<std::int32_t>(ReadJsonNumber(json, u"total"));
            } else if (name == u"onProgress") {
                ++done;
                out.unchanged += ReadJsonBool(json, u"skipped") ? 1 : 0;
            } else if (name == u"onComplete") {
                out.closing = "complete";
            } else if (name == u"onError") {
                out.closing = "error";
                out.code = Utf16ToUtf8(ReadJsonString(json, u"code"));
                out.message = Utf16ToUtf8(ReadJsonString(json, u"message"));
            } else if (name == u"onCancelled") {
                out.closing = "cancelled";
            }
        }
        if (const PptCtrl* run = pane.Controller()) view.Read(*run);
        progress.Show(collected, slidesTotal, done, units, view.written, view.slides);
        return !out.closing.empty() && !pane.RunInProgress();
    };
    (void)page.PumpUntil(hear, kNoLimit);
    (void)page.PumpUntilIdle(kNoLimit);
    hear();
    // What the events carry comes from them; what was written, from the
    // controller as the run let it go.
    out.slides = view.slides;
    out.units = units;
    out.translated = view.applied;
    out.slidesWritten = view.written;
    out.firstApplyError = view.firstApplyError;
    return out;
}

}  // namespace qb::cli
