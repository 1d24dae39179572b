// A .pptx through the host over presentation files, as the front end takes
// it: opened into the simulated host, translated by an instant service
// (the engine's collection, worker and writeback, without the run tick's
// pacing, which the paced row of scripts/bench.sh measures) and saved as a
// new package. Slides a second, over a 100-slide deck of business slides
// with placeholders, a table, a group and notes.
#include <benchmark/benchmark.h>

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "bench/bench_decks.h"
#include "foundation/platform.h"
#include "foundation/text.h"
#include "sim/host/deck_file.h"
#include "sim/host/sim_host.h"
#include "sim/pptx/pptx_deck.h"
#include "support/pptx_writer.h"

namespace {

using namespace qb;
using test::DeckWriter;

constexpr int kSlides = 100;
std::string folder;

std::string Path(const char* name) {
    return folder + "/" + name;
}

std::string BusinessPptx(int slides) {
    DeckWriter w;
    const std::string titleAt =
        R"(<a:xfrm><a:off x="457200" y="274638"/><a:ext cx="8229600" cy="1143000"/></a:xfrm>)";
    const std::string bodyAt =
        R"(<a:xfrm><a:off x="457200" y="1600200"/><a:ext cx="8229600" cy="3000000"/></a:xfrm>)";
    const std::string master =
        test::Placeholder(2, R"(<p:ph type="title"/>)", "<a:lstStyle/>", "", titleAt) +
        test::Placeholder(3, R"(<p:ph type="body" idx="1"/>)", "<a:lstStyle/>", "", bodyAt);
    w.LayoutAndMaster(master, master,
                      "<p:txStyles><p:titleStyle>" + test::Level(1, 4000) +
                          "</p:titleStyle><p:bodyStyle>" + test::Level(1, 2800) +
                          "</p:bodyStyle><p:otherStyle/></p:txStyles>");
    for (int i = 1; i <= slides; ++i) {
        const std::string n = std::to_string(i);
        const std::string row = "<a:tr h=\"300000\">";
        w.Slide(
            test::Placeholder(2, R"(<p:ph type="title"/>)", "<a:lstStyle/>",
                              DeckWriter::Para("Section " + n + ": results and outlook")) +
                test::Placeholder(3, R"(<p:ph type="body" idx="1"/>)", "<a:lstStyle/>",
                                  DeckWriter::Para("Revenue grew in every region") +
                                      DeckWriter::Para("Costs held steady") +
                                      DeckWriter::Para("Margins improved slightly") +
                                      DeckWriter::Para("The outlook stays positive")) +
                test::Table(4, row + test::Cell("Region") + test::Cell("Share") + "</a:tr>" + row +
                                   test::Cell("North") + test::Cell("40%") + "</a:tr>" + row +
                                   test::Cell("South") + test::Cell("60%") + "</a:tr>") +
                test::Group(5, "Group",
                            DeckWriter::BoxAt(6, "Callout", 6000000, 4800000, 2500000, 500000,
                                              DeckWriter::Para("Best quarter so far")) +
                                DeckWriter::BoxAt(7, "Source", 6000000, 5400000, 2500000, 400000,
                                                  DeckWriter::Para("Source: finance team"))),
            "Speak about slide " + n + " for two minutes");
    }
    const std::string path = Path("business.pptx");
    const std::string error = w.Write(path);
    if (!error.empty()) std::fprintf(stderr, "pptx_bench: %s\n", error.c_str());
    return path;
}

const std::string& Deck() {
    static const std::string path = BusinessPptx(kSlides);
    return path;
}

// Opening alone: unzip, parse, and read the parts into the model.
void PptxOpen(benchmark::State& state) {
    for (auto _ : state) {
        std::string error;
        auto deck = pptx::PptxDeck::Open(Deck(), error);
        if (!deck) {
            state.SkipWithError(error.c_str());
            return;
        }
        benchmark::DoNotOptimize(deck->Model().get());
    }
    state.SetItemsProcessed(state.iterations() * kSlides);
}
BENCHMARK(PptxOpen)->Unit(benchmark::kMillisecond);

// Open, translate and save, as qb-translate opens and saves a .pptx.
void PptxTranslate(benchmark::State& state) {
    const std::string out = Path("business.de.pptx");
    std::int32_t units = 0;
    for (auto _ : state) {
        std::string error;
        auto presentation = pptx::PptxDeck::Open(Deck(), error);
        if (!presentation) {
            state.SkipWithError(error.c_str());
            return;
        }
        sim::DeckLoadResult loaded;
        loaded.deck = presentation->Model();
        loaded.windows.emplace_back();
        sim::SimHost host(loaded.kind);
        sim::OpenDeck(host, loaded);
        units = bench::TranslateAtOnce(host);
        error = presentation->Save(out);
        if (units == 0 || !error.empty()) {
            state.SkipWithError(units == 0 ? "nothing was translated" : error.c_str());
            return;
        }
    }
    state.SetItemsProcessed(state.iterations() * kSlides);
    state.counters["slides"] = kSlides;
    state.counters["units"] = units;
}
BENCHMARK(PptxTranslate)->Unit(benchmark::kMillisecond);

}  // namespace

// The worker writes a trace line per batch, and the decks need a folder:
// both go into one of the benchmark's own.
int main(int argc, char** argv) {
    char pattern[] = "/tmp/qb-pptx-bench-XXXXXX";
    const char* dir = mkdtemp(pattern);
    if (!dir) return 1;
    folder = dir;
    qb::platform::SetKnownFolderForTesting(qb::platform::KnownFolder::LocalAppData,
                                           qb::Utf8ToUtf16(folder));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return 0;
}
