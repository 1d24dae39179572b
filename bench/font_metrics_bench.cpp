// What measuring by installed fonts costs against the metric model: one
// layout of a paragraph, the way the fit measures a frame again and again.
#include <benchmark/benchmark.h>

#include "sim/fonts/font_metrics.h"
#include "sim/host/sim_metrics.h"

namespace {

using namespace qb;

sim::ShapeModel Paragraph() {
    sim::ShapeModel shape;
    shape.hasTextFrame = true;
    shape.width = 400;
    sim::CharFormat format;
    format.name = u"Calibri";
    std::u16string text;
    while (text.size() < 300)
        text += u"Quarterly revenue grew faster than the market expected. ";
    shape.frame.SetText(text, format);
    return shape;
}

void LayoutByModel(benchmark::State& state) {
    const sim::ShapeModel shape = Paragraph();
    for (auto _ : state)
        benchmark::DoNotOptimize(sim::LayoutFrame(shape));
    state.SetItemsProcessed(state.iterations() *
                            static_cast<std::int64_t>(shape.frame.text.size()));
}
BENCHMARK(LayoutByModel);

void LayoutByFonts(benchmark::State& state) {
    const sim::ShapeModel shape = Paragraph();
    const auto fonts = sim::fonts::FontMetrics::Create();
    if (!fonts) {
        state.SkipWithError("fontconfig or FreeType can't start");
        return;
    }
    const sim::ScopedAdvanceSource scope(fonts);
    benchmark::DoNotOptimize(sim::LayoutFrame(shape));  // the face opened and cached
    for (auto _ : state)
        benchmark::DoNotOptimize(sim::LayoutFrame(shape));
    state.SetItemsProcessed(state.iterations() *
                            static_cast<std::int64_t>(shape.frame.text.size()));
}
BENCHMARK(LayoutByFonts);

// The first measure of a face: fontconfig's match and the font opened.
void FirstMeasureOfAFace(benchmark::State& state) {
    sim::CharFormat format;
    format.name = u"Arial";
    for (auto _ : state) {
        const auto fonts = sim::fonts::FontMetrics::Create();
        if (!fonts) {
            state.SkipWithError("fontconfig or FreeType can't start");
            return;
        }
        benchmark::DoNotOptimize(fonts->Advance(u'W', format));
    }
}
BENCHMARK(FirstMeasureOfAFace)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
