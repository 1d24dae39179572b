// What the engine itself costs, with the host and the service out of the
// way: the worker's loop per unit and per batch with a transport that
// answers at once, and one member call on the simulated host.
#include <benchmark/benchmark.h>

#include <algorithm>

#include <stdlib.h>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "run/batch_loop.h"
#include "sim/host/deck_builder.h"
#include "sim/host/sim_host.h"
#include "slides/automation.h"

namespace {

using namespace qb;

// A run of `units` units on slides of 20, each text about a line long.
void WorkerLoop(benchmark::State& state) {
    const auto units = static_cast<std::int32_t>(state.range(0));
    std::vector<std::u16string> texts;
    std::vector<SlideSpan> spans;
    for (std::int32_t i = 0; i < units; ++i) {
        texts.push_back(u"Quarterly revenue grew in every region but one, unit " +
                        AsciiToUtf16(std::to_string(i)));
        if (i % 20 == 0) spans.push_back({i, std::min(i + 20, units)});
    }
    std::int64_t batches = 0;
    for (auto _ : state) {
        TranslateClientConfig config;
        config.glossary = {{u"revenue", u"Umsatz", u""}, {u"region", u"Region", u""}};
        config.nativeRoad = [&batches](const TranslateBatchRequest& request) {
            ++batches;
            TranslateBatchResult result;
            result.ok = true;
            result.translations = request.texts;
            return result;
        };
        std::vector<std::u16string> translations;
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
        benchmark::DoNotOptimize(translations.data());
    }
    state.SetItemsProcessed(state.iterations() * units);
    state.counters["time/batch"] = benchmark::Counter(
        static_cast<double>(batches), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(WorkerLoop)->Arg(20)->Arg(200)->Arg(2000);

// One by-name call on the simulated host: the floor under every host call
// the engine's tests count.
void SimHostMemberCall(benchmark::State& state) {
    sim::SimHost host;
    sim::DeckBuilder b;
    b.Slide().Text(u"Title", u"Hello");
    host.AddPresentation(b.Build());
    host::HostRef windows, window, presentation, slides, slide, shapes, shape;
    (void)host::GetObject(host.Application(), u"Windows", windows);
    (void)host::GetItem(windows, 1, window);
    (void)host::GetObject(window, u"Presentation", presentation);
    (void)host::GetObject(presentation, u"Slides", slides);
    (void)host::GetItem(slides, 1, slide);
    (void)host::GetObject(slide, u"Shapes", shapes);
    (void)host::GetItem(shapes, 1, shape);
    std::u16string name;
    for (auto _ : state) {
        benchmark::DoNotOptimize(host::GetString(shape, u"Name", name));
    }
}
BENCHMARK(SimHostMemberCall);

}  // namespace

// The loop writes a trace line per batch: into a folder of the benchmark's
// own, not the user's log.
int main(int argc, char** argv) {
    char pattern[] = "/tmp/qb-bench-XXXXXX";
    if (const char* dir = mkdtemp(pattern)) {
        qb::platform::SetKnownFolderForTesting(qb::platform::KnownFolder::LocalAppData,
                                               qb::Utf8ToUtf16(dir));
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
