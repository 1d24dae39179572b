// The run controller.
#include "run/ppt_ctrl.h"

#include <algorithm>
#include <cstdio>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "foundation/trace.h"
#include "run/service_client.h"
#include "run/sta_gate.h"
#include "slides/automation.h"

namespace qb {
namespace {

std::u16string Num(long long value) {
    return DecimalText(value);
}

std::uint64_t Now() {
    return platform::CurrentClock().TickCount64();
}

std::intptr_t IdentityKey(const host::HostRef& object) {
    return object ? reinterpret_cast<std::intptr_t>(object->Identity()) : 0;
}

bool ReadHwnd(const host::HostRef& window, std::intptr_t& hwnd) {
    host::Variant value;
    if (FAILED(host::DispGet(window, u"HWND", &value))) return false;
    double d = 0;
    if (!value.ToDouble(d)) return false;
    hwnd = static_cast<std::intptr_t>(static_cast<long long>(d));
    return true;
}

}  // namespace

std::uint64_t TakeRunId(std::atomic<std::uint64_t>& counter, std::uint64_t nowTick) {
    std::uint64_t seen = counter.load();
    while (seen < nowTick && !counter.compare_exchange_weak(seen, nowTick)) {
    }
    seen = counter.load();
    while (!counter.compare_exchange_weak(seen, seen + 1)) {
    }
    return seen + 1;
}

PptCtrl::PptCtrl(host::HostRef application, RunSteps& steps)
    : application_(std::move(application)),
      steps_(steps),
      shared_(std::make_shared<RunShared>()),
      lists_(shared_->lists) {
    context_.application = application_;
    context_.options = &options_;
}

PptCtrl::~PptCtrl() {
    // A worker still running keeps its own share of the run's records; it is
    // told to stop, and let go.
    shared_->config.cancelled = 1;
    shared_->config.paused = 0;
    worker_.Release();
    if (options_.liveConfigSlot && *options_.liveConfigSlot == &shared_->config) {
        *options_.liveConfigSlot = nullptr;
    }
    if (registered_ && context_.presentation) {
        BusyPresentationRegistry::Remove(context_.presentation->Identity(), options_.ownerPane);
    }
}

void PptCtrl::Reject(const std::u16string& code, const std::u16string& text) {
    if (callbacks_ && callbacks_->onReady) callbacks_->onReady(0, 0);
    if (callbacks_ && callbacks_->onError) callbacks_->onError(code, text);
}

// The run's window: by HWND, else by identity, else the only window. Once
// the presentation is cached, a window counts only if it shows that one.
bool PptCtrl::FindRunWindow(host::HostRef& window) {
    host::HostRef windows;
    std::int32_t count = 0;
    if (FAILED(host::GetObject(application_, u"Windows", windows)) ||
        FAILED(host::GetInt32(windows, u"Count", count))) {
        return false;
    }
    const WindowKey& key = options_.window;
    host::HostRef byIdentity, only;
    for (std::int32_t i = 1; i <= count; ++i) {
        host::HostRef candidate;
        if (FAILED(host::GetItem(windows, i, candidate))) continue;
        if (context_.presentation) {
            host::HostRef shown;
            if (FAILED(host::GetObject(candidate, u"Presentation", shown)) ||
                !host::SameIdentity(shown, context_.presentation)) {
                continue;
            }
        }
        std::intptr_t hwnd = 0;
        if (key.hwnd != 0 && ReadHwnd(candidate, hwnd) && hwnd == key.hwnd) {
            window = candidate;
            return true;
        }
        if (key.identity != 0 && !byIdentity && IdentityKey(candidate) == key.identity) {
            byIdentity = candidate;
        }
        if (count == 1) only = candidate;
    }
    if (byIdentity) {
        window = byIdentity;
        return true;
    }
    if (key.hwnd == 0 && key.identity == 0 && only) {
        window = only;
        return true;
    }
    return false;
}

bool PptCtrl::Start(const RunOptions& options, const RunCallbacks* callbacks,
                    std::u16string& outMessage) {
    options_ = options;
    callbacks_ = callbacks;
    context_.callbacks = callbacks;
    // Nothing may leave a call from the pane: a throwing host call or
    // callback ends the run here, with a word to the panel.
    try {
        return StartRun(outMessage);
    } catch (...) {
        Trace(u"PptCtrl Start failed: unexpected exception\r\n");
        if (worker_.Started()) return true;  // the worker runs; Tick ends the run as usual
        if (options_.liveConfigSlot) *options_.liveConfigSlot = nullptr;
        try {
            Reject(u"translate_failed",
                   u"\u5185\u90e8\u9519\u8bef\uff0c\u7ffb\u8bd1\u672a"
                   u"\u80fd\u5f00\u59cb\u3002");
        } catch (...) {
        }
        outMessage = u"\u5185\u90e8\u9519\u8bef";
        return false;
    }
}

bool PptCtrl::StartRun(std::u16string& outMessage) {
    Trace(u"PptCtrl Start begin scope=" + Num(static_cast<long long>(options_.scope)) + u" full=" +
          Num(options_.fullDeck) + u" bilingual=" + Num(options_.bilingualSlides) +
          u" targetLang=" + options_.targetLang);
    if (callbacks_ && callbacks_->onRunStarted) callbacks_->onRunStarted();

    host::HostRef window, presentation;
    if (!FindRunWindow(window) || FAILED(host::GetObject(window, u"Presentation", presentation))) {
        Trace(u"PptCtrl run rejected: pane window unavailable\r\n");
        Reject(u"pane_window_unavailable",
               u"\u65e0\u6cd5\u5b9a\u4f4d\u5f53\u524d\u6f14\u793a\u6587\u7a3f\u7a97\u53e3\uff0c"
               u"\u8bf7\u91cd\u65b0\u6253\u5f00\u4fa7\u680f\u540e\u91cd\u8bd5\u3002");
        outMessage = u"\u65e0\u6cd5\u5b9a\u4f4d\u5f53\u524d\u6f14\u793a\u6587\u7a3f\u7a97\u53e3";
        return false;
    }
    context_.window = window;
    context_.presentation = presentation;

    if (options_.ownerPane) {
        if (!BusyPresentationRegistry::Add(presentation->Identity(), options_.ownerPane)) {
            Trace(u"PptCtrl run rejected: presentation busy\r\n");
            Reject(u"presentation_busy",
                   u"\u8be5\u6f14\u793a\u6587\u7a3f\u5df2\u5728\u53e6\u4e00\u4e2a\u7a97\u53e3\u7ffb"
                   u"\u8bd1\u4e2d\uff0c\u8bf7\u7b49\u5b83\u5b8c\u6210\u6216\u53d6\u6d88\u3002");
            outMessage =
                u"\u6f14\u793a\u6587\u7a3f\u5df2\u5728\u5176\u5b83\u7a97\u53e3\u7ffb\u8bd1\u4e2d";
            return false;
        }
        registered_ = true;
    }

    std::u16string message;
    if (FAILED(steps_.Collect(context_, lists_, message))) {
        Reject(u"collect_failed", message);
        outMessage = u"\u6536\u96c6\u6587\u672c\u5931\u8d25\uff1a" + message;
        return false;
    }
    const auto total = static_cast<std::int32_t>(lists_.texts.size());
    Trace(u"PptCtrl collect done total=" + Num(total));
    if (total == 0) {
        if (callbacks_ && callbacks_->onReady) callbacks_->onReady(0, 0);
        if (callbacks_ && callbacks_->onComplete) callbacks_->onComplete(0, 0, false);
        outMessage =
            u"\u6ca1\u6709\u9700\u8981\u7ffb\u8bd1\u7684\u6587\u672c\uff08\u6570\u5b57\u3001"
            u"\u6807\u70b9\u7b49\u5df2\u81ea\u52a8\u8df3\u8fc7\uff09\u3002";
        return false;
    }

    if (options_.bilingualSlides) {
        message.clear();
        if (FAILED(steps_.CreateBilingualCopies(context_, lists_, message))) {
            steps_.CleanupBilingualCopies(context_);
            Reject(u"bilingual_copy_failed", message);
            outMessage = u"\u521b\u5efa\u53cc\u8bed\u8bd1\u6587\u9875\u5931\u8d25\uff1a" + message;
            return false;
        }
    }

    if (callbacks_ && callbacks_->onReady) callbacks_->onReady(total, total);
    lists_.translations.assign(lists_.texts.size(), std::u16string());
    applied_ = 0;
    firstApplyError_.clear();
    startTick_ = Now();

    RunShared& run = *shared_;
    TranslateClientConfig& config = run.config;
    config.clientProduct = u"ppt";
    config.usageKind = options_.usageKind;
    config.targetLang = options_.targetLang;
    config.sourceLang = options_.sourceLang;
    config.accessToken = options_.accessToken;
    config.runId = options_.runId;
    config.clientTraceId = options_.clientTraceId;
    if (options_.translateOverride) config.translateOverride = options_.translateOverride;
    config.nativeRoad = options_.nativeRoad;
    if (!config.nativeRoad && options_.nativeService) config.nativeRoad = BindNativeRoad(config);

    WorkerArgs& args = run.args;
    args.config = &config;
    args.texts = &lists_.texts;
    args.translations = &lists_.translations;
    args.errorMessage = &run.errorMessage;
    args.errorCode = &run.errorCode;
    args.workerResult = &run.workerResult;
    if (callbacks_) args.onProgress = callbacks_->onProgress;
    args.terminologyResolver = options_.terminologyResolver;
    args.spans = &lists_.spans;
    args.readySpans = &run.readySpans;
    run.readySpans = 0;
    applyCursor_ = 0;
    run.workerResult = S_OK;
    run.errorMessage.clear();
    run.errorCode.clear();

    if (options_.liveConfigSlot) *options_.liveConfigSlot = &config;
    // The thread holds its own share of the records it reads and writes.
    if (!worker_.Start([shared = shared_] { WorkerMain(shared->args); })) {
        if (options_.liveConfigSlot) *options_.liveConfigSlot = nullptr;
        steps_.CleanupBilingualCopies(context_);
        if (callbacks_ && callbacks_->onError) {
            callbacks_->onError(u"translate_failed",
                                u"\u65e0\u6cd5\u542f\u52a8\u7ffb\u8bd1\u7ebf\u7a0b");
        }
        outMessage = u"\u65e0\u6cd5\u542f\u52a8\u7ffb\u8bd1\u7ebf\u7a0b";
        return false;
    }
    Trace(u"PptCtrl worker started runId=" + AsciiToUtf16(std::to_string(options_.runId)));
    return true;
}

bool PptCtrl::Tick() {
    // A host call may pump messages and so run the tick again inside a
    // write or inside Finish; that inner tick does nothing, and never tells
    // the pane the run is over while the outer one still works on it.
    if (inTick_) return false;
    if (finished_) return true;
    inTick_ = true;
    bool done = false;
    try {
        if (worker_.Started() && !worker_.Finished()) {
            if (!aborting_) ApplyWalkStep();
        } else {
            Finish();
            done = true;
        }
    } catch (...) {
        Trace(u"PptCtrl tick failed: unexpected exception\r\n");
        done = finished_;
    }
    inTick_ = false;
    return done;
}

std::int32_t PptCtrl::SlideOfSpan(std::int32_t span) const {
    if (span >= 0 && static_cast<std::size_t>(span) < lists_.slideIndexes.size()) {
        return lists_.slideIndexes[static_cast<std::size_t>(span)];
    }
    return lists_.firstSlide + span;
}

void PptCtrl::ShowSlide(std::int32_t index) {
    if (index < 1) return;
    // The view moves only when the run's window is the host's active one.
    // Failures here are silent.
    const host::HostRef& window = context_.window;
    host::HostRef active;
    if (!window || FAILED(host::GetObject(application_, u"ActiveWindow", active))) return;
    std::intptr_t a = 0, b = 0;
    const bool same = host::SameIdentity(window, active) ||
                      (ReadHwnd(window, a) && ReadHwnd(active, b) && a != 0 && a == b);
    if (!same) return;
    host::HostRef view;
    if (FAILED(host::GetObject(window, u"View", view))) return;
    const host::Variant arg = host::Variant::I4(index);
    (void)host::DispCall(view, u"GotoSlide", &arg, 1, nullptr);
}

void PptCtrl::ApplyWalkStep() {
    if (applyCursor_ >= shared_->readySpans.load(std::memory_order_acquire)) return;
    const std::int32_t slide = SlideOfSpan(applyCursor_);
    const bool bilingual = options_.bilingualSlides;
    if (!options_.fullDeck) {
        if (TryApplySlide(slide, true, bilingual)) ++applyCursor_;
        return;
    }
    const std::uint64_t now = Now();
    switch (applyPhase_) {
        case 0: {
            StaGateScope gate(this);
            if (gate.Entered() && !platform::IsUserActive()) {
                ShowSlide(bilingual ? steps_.SourceSlideIndex(context_, slide) : slide);
            }
            applyPhase_ = 1;
            applyPhaseSince_ = now;
            break;
        }
        case 1:
            if (now - applyPhaseSince_ < kWalkShowMs) return;
            if (TryApplySlide(slide, true, bilingual)) {
                applyPhase_ = 2;
                applyPhaseSince_ = Now();
            }
            break;
        default:
            if (now - applyPhaseSince_ < kWalkWrittenMs) return;
            applyPhase_ = 0;
            ++applyCursor_;
    }
}

bool PptCtrl::TryApplySlide(std::int32_t slide, bool guardUserInput, bool bilingual) {
    if (guardUserInput && platform::IsUserActive()) {
        StaGate::HoldFor(kUserActivityHoldMs);
        return false;
    }
    StaGateScope gate(this);  // left on every way out, a throwing host call included
    if (!gate.Entered()) return false;
    steps_.ApplySlide(context_, lists_, slide, applied_, firstApplyError_);
    if (bilingual && !platform::IsUserActive()) {
        const std::int32_t copy = steps_.LocateBilingualCopy(context_, slide);
        if (copy > 0) ShowSlide(copy);
    }
    return true;
}

void PptCtrl::Flush() {
    const std::int32_t ready = shared_->readySpans.load(std::memory_order_acquire);
    if (applyPhase_ == 2 && applyCursor_ < ready) ++applyCursor_;  // written, still on show
    platform::Clock& clock = platform::CurrentClock();
    for (; applyCursor_ < ready; ++applyCursor_) {
        const std::int32_t slide = SlideOfSpan(applyCursor_);
        std::int32_t tries = 0;
        std::uint64_t heldFor = 0;
        bool written = false;
        while (!(written = TryApplySlide(slide, false, options_.bilingualSlides))) {
            // A user-activity hold is waited out (bounded), so that no ready
            // slide is left unwritten; a gate held by a host call counts as a try.
            const std::uint64_t now = clock.TickCount64();
            if (StaGate::Owner() == nullptr && now < StaGate::NotBefore() &&
                heldFor < kFlushHoldLimitMs) {
                const auto wait = static_cast<std::uint32_t>(std::min<std::uint64_t>(
                    StaGate::NotBefore() - now, kFlushHoldLimitMs - heldFor));
                clock.Sleep(wait);
                heldFor += wait;
                flushWaitMs_ += wait;
                continue;
            }
            if (++tries >= kFlushTries) break;
            clock.Sleep(kFlushRetryMs);
            flushWaitMs_ += kFlushRetryMs;
        }
        if (!written) {
            Trace(u"PptCtrl finish apply skipped: sta gate busy\r\n");
            break;
        }
    }
    applyPhase_ = 0;
}

void PptCtrl::Close(const std::u16string& summary) {
    worker_.Release();
    if (options_.liveConfigSlot) *options_.liveConfigSlot = nullptr;
    // The waits this run made the host's thread sit through, to be measured.
    Trace(u"PptCtrl run waits flushMs=" + Num(static_cast<long long>(flushWaitMs_)) + u" abortMs=" +
          Num(static_cast<long long>(abortWaitMs_)));
    Trace(u"PptCtrl run end runId=" + AsciiToUtf16(std::to_string(options_.runId)) + u": " +
          summary + u"\r\n");
}

std::u16string PptCtrl::CompletedSummary(std::int32_t total) const {
    std::u16string summary = u"\u5df2\u7ffb\u8bd1 " + Num(applied_) +
                             u" \u6bb5\u6587\u672c\uff08\u5171 " + Num(total) +
                             u" \u6bb5\uff09\u3002";
    if (lists_.skippedSmartArt > 0) {
        summary += u"\r\n\u53e6\u6709 " + Num(lists_.skippedSmartArt) +
                   u" \u4e2a SmartArt \u56fe\u5f62\u672a\u7ffb\u8bd1\uff08\u5f53\u524d"
                   u"\u5bbf\u4e3b\u4e0d\u652f\u6301\uff0c\u5efa\u8bae\u7528\u79bb\u7ebf "
                   u"pptx \u5de5\u5177\uff09\u3002";
    }
    if (!lists_.skippedLabels.empty()) {
        summary += u"\r\n\u8df3\u8fc7\uff1a" + lists_.skippedLabels.front();
        if (lists_.skippedLabels.size() > 1) {
            summary += u"\uff08\u7b49 " + Num(static_cast<long long>(lists_.skippedLabels.size())) +
                       u" \u9879\uff09";
        }
    }
    if (!firstApplyError_.empty()) {
        summary += u"\r\n\u90e8\u5206\u56de\u5199\u5931\u8d25\uff1a" + firstApplyError_;
    }
    return summary;
}

void PptCtrl::Finish() {
    if (finished_) return;
    finished_ = true;
    RunShared& run = *shared_;
    const HRESULT result = run.workerResult.load();
    std::u16string summary;
    try {
        char hex[16];
        std::snprintf(hex, sizeof hex, "%08x", static_cast<unsigned>(result));
        Trace(u"PptCtrl worker end hr=0x" + AsciiToUtf16(hex) + u" abort=" + Num(aborting_) +
              u" applied=" + Num(applied_));
        const auto total = static_cast<std::int32_t>(lists_.texts.size());
        if (aborting_) {
            summary = u"\u5bbf\u4e3b\u5173\u95ed\uff0crun \u4e2d\u6b62";
        } else {
            Flush();
            if (result == kWorkerCancelled) {
                steps_.CleanupBilingualCopies(context_);
                closed_ = true;
                if (callbacks_ && callbacks_->onCancelled) callbacks_->onCancelled();
                summary = u"\u5df2\u53d6\u6d88";
            } else if (FAILED(result)) {
                steps_.CleanupBilingualCopies(context_);
                closed_ = true;
                if (callbacks_ && callbacks_->onError) {
                    callbacks_->onError(run.errorCode.empty() ? u"translate_failed" : run.errorCode,
                                        run.errorMessage);
                }
                summary = u"\u7ffb\u8bd1\u5931\u8d25\uff1a" + run.errorMessage;
            } else {
                Trace(u"PptCtrl BrokenPhrasePass begin\r\n");
                steps_.BrokenPhrasePass(context_, lists_, applied_);
                Trace(u"PptCtrl apply done totalApplied=" + Num(applied_));
                bool bilingualCopy = options_.bilingualSlides;
                if (options_.bilingualSlides && applied_ == 0) {
                    const std::int32_t made = steps_.BilingualCopiesMade();
                    const std::int32_t remain = steps_.CleanupBilingualCopies(context_);
                    bilingualCopy = remain >= made;
                    if (remain > 0) Trace(u"PptCtrl bilingual copies remain=" + Num(remain));
                }
                closed_ = true;
                if (callbacks_ && callbacks_->onComplete) {
                    callbacks_->onComplete(static_cast<std::int64_t>(Now() - startTick_), total,
                                           bilingualCopy);
                }
                summary = CompletedSummary(total);
            }
        }
    } catch (...) {
        // A step threw: the run still ends once, with a word to the panel.
        Trace(u"PptCtrl finish failed: unexpected exception\r\n");
        if (!aborting_ && !closed_) {
            closed_ = true;
            try {
                if (callbacks_ && callbacks_->onError) {
                    callbacks_->onError(u"translate_failed", u"\u5185\u90e8\u9519\u8bef");
                }
            } catch (...) {
            }
        }
        if (summary.empty()) summary = u"\u5185\u90e8\u9519\u8bef";
    }
    Close(summary);
}

bool PptCtrl::Abort() {
    shared_->config.cancelled = 1;
    shared_->config.paused = 0;
    // Called from a pump inside a tick (the broken phrase pass of Finish):
    // the run below still uses this object, and its tick ends it.
    if (inTick_) {
        Trace(u"PptCtrl abort: run finishing, left to its tick\r\n");
        return false;
    }
    aborting_ = true;
    platform::Clock& clock = platform::CurrentClock();
    for (std::uint32_t waited = 0; worker_.Started() && !worker_.Finished();
         waited += kAbortPollMs) {
        if (waited >= kAbortWaitMs) {
            Trace(u"PptCtrl abort: worker still busy, keep object alive\r\n");
            return false;
        }
        clock.Sleep(kAbortPollMs);
        abortWaitMs_ += kAbortPollMs;
    }
    try {
        Finish();
    } catch (...) {
    }
    return true;
}

}  // namespace qb
