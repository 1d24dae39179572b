// Host calls of the slide engine on a 50-slide deck, counted by the
// simulated host: per paragraph for collection and for writeback, and per
// shape for the fit, each beside the least the algorithms can make. Host
// calls are what a run costs on the host's thread, where every call is a
// cross-apartment round trip on a real host; the counts are exact and
// repeatable, so this prints one table instead of timing anything (or,
// with --tsv, one "name<TAB>value" line a figure for scripts).
#include <cstdio>
#include <string>

#include "bench/bench_decks.h"
#include "charts/chart_steps.h"
#include "foundation/text.h"
#include "run/run_steps.h"
#include "sim/host/deck_builder.h"
#include "sim/host/sim_host.h"
#include "slides/automation.h"
#include "slides/collect.h"
#include "slides/writeback.h"

namespace {

using namespace qb;

constexpr int kSlides = 50;

std::shared_ptr<sim::PresentationModel> BusinessDeck() {
    return bench::BusinessDeck(kSlides);
}

RunContext Context(sim::SimHost& host, RunOptions& options) {
    return bench::Context(host, options);
}

// Writes every slide; with `fit` false the run has a forced size, which
// switches the fit (and its geometry snapshot) off.
std::uint64_t WriteAll(bool fit, std::size_t& frameShapes) {
    sim::SimHost host;
    host.AddPresentation(BusinessDeck());
    RunOptions options;
    options.targetFont = u"Times New Roman";
    options.hasTargetSize = !fit;
    const RunContext run = Context(host, options);
    RunLists lists;
    std::u16string message;
    (void)CollectDeck(run, true, lists, message);
    lists.translations.clear();
    for (const auto& text : lists.texts)
        lists.translations.push_back(u"DE " + text + u" in einer l\u00e4ngeren Fassung");
    frameShapes = 0;
    for (std::size_t i = 0; i < lists.addresses.size(); ++i) {
        const UnitAddress& a = lists.addresses[i];
        const bool newShape = i == 0 || a.shapePath != lists.addresses[i - 1].shapePath ||
                              a.kind != lists.addresses[i - 1].kind ||
                              a.slideIndex != lists.addresses[i - 1].slideIndex;
        if (newShape && a.kind == UnitKind::Frame) ++frameShapes;
    }
    host.ResetCounts();
    (void)bench::WriteSlides(run, lists, kSlides);
    return host.TotalCalls();
}

// Host calls per chart, collection and writeback: an embedded chart (its
// workbook opened once to scan and once to write) and a linked one.
struct ChartCalls {
    double collect = 0;
    double write = 0;
};

ChartCalls CountChartCalls(bool linked) {
    constexpr int kCharts = 10;
    sim::DeckBuilder b;
    for (int i = 0; i < kCharts; ++i) {
        sim::ChartModel chart = sim::SampleChart();
        chart.isLinked = linked;
        b.Slide().Chart(u"Chart", chart);
    }
    sim::SimHost host;
    host.AddPresentation(b.Build());
    RunOptions options;
    const RunContext run = Context(host, options);
    RunLists lists;
    std::u16string message;
    host.ResetCounts();
    (void)CollectDeck(run, true, lists, message, MakeChartOffer());
    ChartCalls calls;
    calls.collect = static_cast<double>(host.TotalCalls()) / kCharts;
    for (const auto& text : lists.texts)
        lists.translations.push_back(u"DE " + text);
    const ShapeUnitWriters writers = MakeChartWriters();
    host.ResetCounts();
    (void)bench::WriteSlides(run, lists, kCharts, &writers);
    calls.write = static_cast<double>(host.TotalCalls()) / kCharts;
    return calls;
}

}  // namespace

int main(int argc, char** argv) {
    const bool tsv = argc > 1 && std::string(argv[1]) == "--tsv";
    sim::SimHost host;
    host.AddPresentation(BusinessDeck());
    RunOptions options;
    const RunContext run = Context(host, options);
    RunLists lists;
    std::u16string message;
    host.ResetCounts();
    (void)CollectDeck(run, true, lists, message);
    const std::uint64_t collectCalls = host.TotalCalls();
    const double units = static_cast<double>(lists.units.size());

    std::size_t frameShapes = 0;
    const std::uint64_t writeCalls = WriteAll(false, frameShapes);
    const std::uint64_t writeAndFitCalls = WriteAll(true, frameShapes);

    // The least each algorithm can make, member by member:
    // collection: per frame Item, Type, HasTable, HasTextFrame, TextFrame,
    //   HasText, TextRange, Paragraphs, Count, Type and Name for the log;
    //   per paragraph Paragraphs(i, 1) and Text.
    // writeback: per paragraph TextFrame, TextRange, Paragraphs(i, 1),
    //   Length, Text, Characters, then the font snapshot (Font, Color, Type,
    //   RGB, SchemeColor, TintAndShade, Size, Bold, Italic), the put, the
    //   restore reads (Font, Color, Type, RGB, Size, Bold, Italic) and the
    //   target font (Font, Name, NameFarEast, NameAscii).
    // fit: AutoSize read and put, TextFrame2 and its AutoSize read and put,
    //   four box reads, Width, Height, two margins, WordWrap read, two
    //   WordWrap puts with three bound reads each, a last WordWrap put.
    const double collectPerParagraph = static_cast<double>(collectCalls) / units;
    const double writePerParagraph = static_cast<double>(writeCalls) / units;
    const double fitPerShape =
        static_cast<double>(writeAndFitCalls - writeCalls) / static_cast<double>(frameShapes);
    if (tsv) {
        std::printf("units\t%zu\n", lists.units.size());
        std::printf("collection_per_paragraph\t%.1f\n", collectPerParagraph);
        std::printf("writeback_per_paragraph\t%.1f\n", writePerParagraph);
        std::printf("fit_per_shape\t%.1f\n", fitPerShape);
        std::printf("run_per_paragraph\t%.1f\n",
                    static_cast<double>(collectCalls + writeAndFitCalls) / units);
        return 0;
    }
    std::printf("Host calls of the slide engine, %d slides, %zu units, %zu frame shapes\n", kSlides,
                lists.units.size(), frameShapes);
    std::printf("%-34s %10s %14s\n", "", "measured", "least");
    std::printf("%-34s %10.1f %14s\n", "collection, per paragraph", collectPerParagraph,
                "2 + 11/frame");
    std::printf("%-34s %10.1f %14s\n", "writeback, per paragraph", writePerParagraph,
                "27 + locate");
    std::printf("%-34s %10.1f %14s\n", "fit, per written shape", fitPerShape, "22 + shrink");
    std::printf("%-34s %10llu\n", "collection, total",
                static_cast<unsigned long long>(collectCalls));
    std::printf("%-34s %10llu\n", "writeback and fit, total",
                static_cast<unsigned long long>(writeAndFitCalls));
    for (bool linked : {false, true}) {
        const ChartCalls calls = CountChartCalls(linked);
        std::printf("%-34s %10.1f\n",
                    linked ? "linked chart, collection" : "embedded chart, collection",
                    calls.collect);
        std::printf("%-34s %10.1f\n",
                    linked ? "linked chart, writeback" : "embedded chart, writeback", calls.write);
    }
    return 0;
}
