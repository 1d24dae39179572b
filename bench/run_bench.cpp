// What the engine itself costs, with the service out of the way: the
// worker's loop per unit and per batch with a transport that answers at
// once, a whole run (collection, worker, writeback) per unit on the
// simulated host, the JSON of one batch each way, the memory a run holds
// per unit, and one member call on the simulated host.
// --benchmark_format=json gives the figures to scripts (scripts/bench.sh).
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>

#include <stdlib.h>

#include "bench/bench_decks.h"
#include "foundation/platform.h"
#include "foundation/text.h"
#include "run/batch_loop.h"
#include "run/json.h"
#include "run/service_client.h"
#include "sim/host/deck_builder.h"
#include "sim/host/sim_host.h"
#include "slides/automation.h"
#include "slides/collect.h"
#include "slides/writeback.h"

namespace {

using namespace qb;

using bench::Instant;
using bench::RunWorker;

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
        RunWorker(config, texts, spans, translations);
        benchmark::DoNotOptimize(translations.data());
    }
    state.SetItemsProcessed(state.iterations() * units);
    state.counters["time/batch"] = benchmark::Counter(
        static_cast<double>(batches), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(WorkerLoop)->Arg(20)->Arg(200)->Arg(2000);

// The engine's whole work for a run, per unit: collection on the simulated
// host, the worker with an instant transport, and every slide written and
// fitted. The deck is built outside the timing.
void EngineRun(benchmark::State& state) {
    constexpr int kSlides = 20;
    std::size_t units = 0;
    for (auto _ : state) {
        state.PauseTiming();
        sim::SimHost host;
        host.AddPresentation(bench::BusinessDeck(kSlides));
        RunOptions options;
        options.targetFont = u"Times New Roman";
        const RunContext run = bench::Context(host, options);
        RunLists lists;
        std::u16string message;
        state.ResumeTiming();
        (void)CollectDeck(run, true, lists, message);
        TranslateClientConfig config;
        config.nativeRoad = Instant;
        RunWorker(config, lists.texts, lists.spans, lists.translations);
        benchmark::DoNotOptimize(bench::WriteSlides(run, lists, kSlides));
        units = lists.texts.size();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(units));
    state.counters["units"] = static_cast<double>(units);
}
BENCHMARK(EngineRun)->Unit(benchmark::kMillisecond);

std::vector<std::u16string> BatchTexts() {
    std::vector<std::u16string> texts;
    for (int i = 0; i < 20; ++i) {
        texts.push_back(u"Revenue grew \"strongly\" in region " + DecimalText(i) +
                        u", costs held steady\tand margins improved");
    }
    return texts;
}

// The request body of one 20-unit batch, as the service client writes it.
void BatchJsonWrite(benchmark::State& state) {
    TranslateBatchRequest request;
    request.texts = BatchTexts();
    for (int i = 0; i < 20; ++i)
        request.unitIds.push_back(u"slides[1].shapes[" + DecimalText(i + 1) + u"].p1");
    request.sourceLang = u"en";
    request.targetLang = u"de";
    request.glossary = {{u"Revenue", u"Umsatz", u""}};
    request.instruction = u"Keep it short";
    for (auto _ : state)
        benchmark::DoNotOptimize(BuildTranslateBody(request));
}
BENCHMARK(BatchJsonWrite);

// The service's answer to one 20-unit batch, read back into a result.
void BatchJsonRead(benchmark::State& state) {
    const std::vector<std::u16string> texts = BatchTexts();
    const std::u16string reply = JsonObjectWriter()
                                     .Raw(u"translations", JsonStringArray(texts))
                                     .Raw(u"unitIds", JsonStringArray(texts))
                                     .Finish();
    for (auto _ : state)
        benchmark::DoNotOptimize(ReadTranslateReply(reply, 200, u"", texts.size()));
}
BENCHMARK(BatchJsonRead);

// The heap a run holds per unit once it is collected and translated: its
// lists of units, texts, addresses and translations. Counted by the
// allocator, so one pass says it all.
void RunMemory(benchmark::State& state) {
    sim::SimHost host;
    host.AddPresentation(bench::BusinessDeck(50));
    RunOptions options;
    const RunContext run = bench::Context(host, options);
    double perUnit = 0;
    for (auto _ : state) {
        const std::size_t before = mallinfo2().uordblks;
        auto lists = std::make_unique<RunLists>();
        std::u16string message;
        (void)CollectDeck(run, true, *lists, message);
        TranslateClientConfig config;
        config.nativeRoad = Instant;
        RunWorker(config, lists->texts, lists->spans, lists->translations);
        const std::size_t after = mallinfo2().uordblks;
        perUnit = static_cast<double>(after - before) / static_cast<double>(lists->texts.size());
    }
    state.counters["bytes_per_unit"] = perUnit;
}
BENCHMARK(RunMemory)->Iterations(1);

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
