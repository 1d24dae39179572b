// Chart decks and shortcuts shared by the chart and SmartArt tests.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "charts/chart_steps.h"
#include "foundation/text.h"
#include "sim/host/deck_builder.h"
#include "sim/sim_test_support.h"
#include "slides/collect.h"

namespace qb::test {

// A chart linked to a file: its series names and categories live in the
// chart objects only, and its workbook must never be opened.
inline sim::ChartModel LinkedChart() {
    sim::ChartModel chart = sim::SampleChart();
    chart.isLinked = true;
    for (sim::SeriesModel& s : chart.series)
        s.formula.clear();
    return chart;
}

// The units that collection makes of one slide, with the chart offer.
inline RunLists CollectSlide(sim::SimHost& host, std::int32_t slide, ChartStepsConfig config = {}) {
    RunLists lists;
    SlideCollector collector(lists, MakeChartOffer(std::move(config)));
    const host::HostRef slideObject =
        sim::test::Object(sim::test::SlidesOf(host), u"Item", {sim::test::I4(slide)});
    collector.WalkShapes(sim::test::Object(slideObject, u"Shapes"), slide, ShapePath(),
                         UnitAddress());
    UnitAddress notes;
    notes.kind = UnitKind::NotesFrame;
    notes.onNotesPage = 1;
    collector.WalkShapes(sim::test::Object(sim::test::Object(slideObject, u"NotesPage"), u"Shapes"),
                         slide, ShapePath(), notes);
    return lists;
}

inline std::vector<std::string> UnitIds(const RunLists& lists) {
    std::vector<std::string> ids;
    for (const TextUnit& unit : lists.units)
        ids.push_back(Utf16ToUtf8(unit.unitId) + "=" + Utf16ToUtf8(unit.hostText));
    return ids;
}

}  // namespace qb::test
