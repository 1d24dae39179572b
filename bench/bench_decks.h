// The deck the benchmarks measure on: business slides with a title, a body
// of four paragraphs, a table, a group and notes, as a sales review has them.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "foundation/text.h"
#include "run/batch_loop.h"
#include "run/run_steps.h"
#include "sim/host/deck_builder.h"
#include "sim/host/sim_host.h"
#include "slides/automation.h"
#include "slides/collect.h"
#include "slides/writeback.h"

namespace qb::bench {

inline std::shared_ptr<sim::PresentationModel> BusinessDeck(int slides) {
    sim::DeckBuilder b;
    for (int i = 1; i <= slides; ++i) {
        const std::u16string n = DecimalText(i);
        b.Slide().Placeholder(u"Title", u"Section " + n + u": results and outlook");
        b.Placeholder(u"Body",
                      u"Revenue grew in every region\rCosts held steady\rMargins improved "
                      u"slightly\rThe outlook stays positive",
                      sim::Box{50, 120, 860, 300});
        b.Table(u"Table", 3, 2, {u"Region", u"Share", u"North", u"40%", u"South", u"60%"},
                sim::Box{50, 430, 400, 90});
        b.BeginGroup(u"Group").Text(u"Callout", u"Best quarter so far");
        b.Text(u"Source", u"Source: finance team").EndGroup();
        b.Notes(u"Speak about slide " + n + u" for two minutes");
    }
    return b.Build();
}

// The run's view of the host's first window and its presentation.
inline RunContext Context(sim::SimHost& host, RunOptions& options) {
    RunContext run;
    run.application = host.Application();
    host::HostRef windows;
    (void)host::GetObject(run.application, u"Windows", windows);
    (void)host::GetItem(windows, 1, run.window);
    (void)host::GetObject(run.window, u"Presentation", run.presentation);
    run.options = &options;
    return run;
}

// Writes slides 1 to `slides` in place, as the run tick would; the count of
// units written.
inline std::int32_t WriteSlides(const RunContext& run, const RunLists& lists, std::int32_t slides,
                                const ShapeUnitWriters* writers = nullptr) {
    std::int32_t applied = 0;
    std::u16string error;
    for (std::int32_t slide = 1; slide <= slides; ++slide) {
        ApplySlideArgs args;
        args.presentation = run.presentation;
        args.lists = &lists;
        args.options = run.options;
        args.slideIndex = slide;
        args.targetSlide = slide;
        args.writers = writers;
        ApplySlide(args, applied, error);
    }
    return applied;
}

// The worker's body over `texts` with the given config's transport; the
// error code it ended with, empty when it translated everything.
inline std::u16string RunWorker(TranslateClientConfig& config,
                                const std::vector<std::u16string>& texts,
                                const std::vector<SlideSpan>& spans,
                                std::vector<std::u16string>& translations) {
    std::u16string message, code;
    std::atomic<HRESULT> outcome{S_OK};
    std::atomic<std::int32_t> ready{0};
    WorkerArgs args;
    args.config = &config;
    args.texts = &texts;
    args.translations = &translations;
    args.errorMessage = &message;
    args.errorCode = &code;
    args.workerResult = &outcome;
    args.spans = &spans;
    args.readySpans = &ready;
    WorkerMain(args);
    return code;
}

// A transport that answers every batch at once.
inline TranslateBatchResult Instant(const TranslateBatchRequest& request) {
    TranslateBatchResult result;
    result.ok = true;
    for (const std::u16string& text : request.texts)
        result.translations.push_back(u"DE " + text);
    return result;
}

// A whole run's work on the host's first window without its pacing: the
// deck collected, translated by an instant service, every slide written and
// fitted. The count of units written.
inline std::int32_t TranslateAtOnce(sim::SimHost& host) {
    RunOptions options;
    options.targetFont = u"Times New Roman";
    const RunContext run = Context(host, options);
    RunLists lists;
    std::u16string message;
    if (FAILED(CollectDeck(run, true, lists, message))) return 0;
    TranslateClientConfig config;
    config.nativeRoad = Instant;
    if (!RunWorker(config, lists.texts, lists.spans, lists.translations).empty()) return 0;
    host::HostRef slides;
    std::int32_t count = 0;
    if (FAILED(host::GetObject(run.presentation, u"Slides", slides)) ||
        FAILED(host::GetInt32(slides, u"Count", count))) {
        return 0;
    }
    return WriteSlides(run, lists, count);
}

}  // namespace qb::bench
