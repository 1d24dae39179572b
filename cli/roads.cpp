// The progress line, and the native road: the run controller driven on its
// own tick, its worker posting to the service with the run's token.
#include "cli/roads.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <thread>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "pane/pane_view.h"
#include "run/ppt_ctrl.h"
#include "run/service_client.h"
#include "run/terminology.h"
#include "slides/target_style.h"

namespace qb::cli {

Progress::Progress(bool quiet) : quiet_(quiet), tty_(isatty(2) != 0) {}

void Progress::Show(std::int32_t collected, std::int32_t slidesTotal, std::int32_t done,
                    std::int32_t units, std::int32_t written, std::int32_t slides) {
    if (quiet_) return;
    char line[160];
    std::snprintf(line, sizeof line,
                  "collected %d/%d slides, translated %d/%d units, written %d/%d slides", collected,
                  slidesTotal, done, units, written, slides);
    if (line == shown_) return;
    pending_ = line;
    constexpr int kWidth = 24;
    pendingBar_ = units ? done * kWidth / units : 0;
    barWidth_ = kWidth;
    // A bar redraws in place and can keep up; plain lines go to logs, where
    // one a unit would drown the rest.
    const auto gap = std::chrono::milliseconds(tty_ ? 50 : 500);
    if (shown_.empty() || std::chrono::steady_clock::now() - shownAt_ >= gap) Print();
}

void Progress::Print() {
    if (tty_) {
        std::fprintf(stderr, "\r[%s%s] %s", std::string(pendingBar_, '#').c_str(),
                     std::string(barWidth_ - pendingBar_, '.').c_str(), pending_.c_str());
    } else {
        std::fprintf(stderr, "%s\n", pending_.c_str());
    }
    shown_ = pending_;
    shownAt_ = std::chrono::steady_clock::now();
}

void Progress::End() {
    if (quiet_) return;
    if (!pending_.empty() && pending_ != shown_) Print();
    if (tty_) std::fprintf(stderr, "\n");
}

RoadOutcome RunNativeRoad(const RoadRequest& request, Progress& progress) {
    SlideEngine engine(request.offer, request.writers);
    PptCtrl run(request.host->Application(), engine);
    RunOptions options;
    options.scope = request.scope;
    options.fullDeck = request.scope == RunScope::FullDeck;
    options.usageKind =
        request.scope == RunScope::Selection ? u"translate_selection" : u"translate_full";
    options.targetLang = request.targetLang;
    options.sourceLang = request.sourceLang;
    options.targetFont = request.targetFont.value_or(kDefaultTargetFont);
    options.bilingualSlides = request.bilingual;
    options.accessToken = request.token;
    options.window.hwnd = request.host->App().windows[0]->hwnd;
    static std::atomic<std::uint64_t> runIds{0};
    options.runId = TakeRunId(runIds, platform::CurrentClock().TickCount64());
    options.clientTraceId = u"ppt_" + DecimalText(static_cast<long long>(options.runId));
    options.nativeService = true;
    // Terminology once, before the first batch, as the pane's native road
    // resolves it: with the run's token, glossary ids and instruction id.
    options.terminologyResolver = [&request](const std::vector<std::u16string>& corpus,
                                             std::u16string& instruction,
                                             std::vector<TranslationGlossaryItem>& glossary,
                                             std::u16string&, std::u16string&) {
        ApplyTerminology(
            ResolveTerminologyNative(HttpEndpoint(), request.token, request.glossaryIds,
                                     request.instructionId, corpus),
            instruction, glossary);
        return true;
    };

    // What the run tells the pane, gathered for the progress line; the
    // worker reports units from its own thread.
    std::mutex lock;
    std::int32_t collected = 0, slidesTotal = 0, units = 0, done = 0;
    RoadOutcome out;
    RunCallbacks callbacks;
    callbacks.onScanProgress = [&](std::int32_t current, std::int32_t total,
                                   const std::u16string&) {
        std::lock_guard<std::mutex> hold(lock);
        collected = current;
        slidesTotal = total;
    };
    callbacks.onReady = [&](std::int32_t total, std::int32_t) {
        std::lock_guard<std::mutex> hold(lock);
        units = total;
    };
    callbacks.onProgress = [&](std::int32_t, std::int32_t, bool skipped, const std::u16string&,
                               const std::u16string&) {
        std::lock_guard<std::mutex> hold(lock);
        ++done;
        out.unchanged += skipped ? 1 : 0;
    };
    callbacks.onComplete = [&](std::int64_t, std::int32_t, bool) { out.closing = "complete"; };
    callbacks.onError = [&](const std::u16string& code, const std::u16string& message) {
        out.closing = "error";
        out.code = Utf16ToUtf8(code);
        out.message = Utf16ToUtf8(message);
    };
    callbacks.onCancelled = [&] { out.closing = "cancelled"; };

    const auto show = [&] {
        std::lock_guard<std::mutex> hold(lock);
        progress.Show(collected, slidesTotal, done, units, run.ApplyCursor(),
                      static_cast<std::int32_t>(run.Lists().spans.size()));
    };
    std::u16string startMessage;
    if (run.Start(options, &callbacks, startMessage)) {
        // The pane's run tick, at its own pace.
        while (!run.Tick()) {
            show();
            std::this_thread::sleep_for(std::chrono::milliseconds(kRunTickMs));
        }
    }
    show();
    out.slides = static_cast<std::int32_t>(run.Lists().spans.size());
    out.units = static_cast<std::int32_t>(run.Lists().texts.size());
    out.translated = run.Applied();
    out.slidesWritten = run.ApplyCursor();
    out.firstApplyError = Utf16ToUtf8(run.FirstApplyError());
    return out;
}

}  // namespace qb::cli
