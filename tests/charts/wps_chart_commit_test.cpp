// The WPS editor commit: every guard that keeps the close away from a
// window that isn't this chart's editor, and the ordinary close behind a
// refused commit.
#include <gtest/gtest.h>

#include "charts/chart_test_support.h"
#include "charts/wps_chart_commit.h"
#include "sim/host/sim_editor.h"
#include "support/manual_clock.h"
#include "support/trace_lines.h"

namespace qb {
namespace {

using sim::DeckBuilder;
using sim::FaultRule;
using sim::SimChartEditor;

struct CommitCase {
    const char* name;
    std::function<void(sim::SimHost&, sim::ChartModel&, SimChartEditor&)> prepare;
    const char16_t* line;  // the line that ends the commit
    bool committed;
};

TEST(WpsChartCommit, TheEditorClosesOnlyWhenEveryGuardHolds) {
    const CommitCase cases[] = {
        {"an editor that shows and closes", nullptr,
         u"[WPSChart] posted WM_CLOSE to this chart's ET editor (commit pending)\r\n", true},
        {"another workbook open in the editor",
         [](sim::SimHost&, sim::ChartModel& c, SimChartEditor&) { c.workbook.otherWorkbooks = 1; },
         u"[WPSChart] editor close skipped: ET has other workbooks/windows\r\n", false},
        {"two windows on the workbook",
         [](sim::SimHost&, sim::ChartModel& c, SimChartEditor&) { c.workbook.windowCount = 2; },
         u"[WPSChart] editor close skipped: ET has other workbooks/windows\r\n", false},
        {"a caption that shows more than the name",
         [](sim::SimHost&, sim::ChartModel& c, SimChartEditor&) {
             c.workbook.windowCaption = c.workbook.name + u" [Compatibility Mode]";
         },
         u"[WPSChart] editor close skipped: workbook/window mismatch\r\n", false},
        {"a window of the host's own process",
         [](sim::SimHost&, sim::ChartModel&, SimChartEditor& e) {
             e.mode = SimChartEditor::Mode::SameProcess;
         },
         u"[WPSChart] editor close skipped: not a separate ET main window\r\n", false},
        {"a window of another class",
         [](sim::SimHost&, sim::ChartModel&, SimChartEditor& e) {
             e.mode = SimChartEditor::Mode::OtherClass;
         },
         u"[WPSChart] editor close skipped: not a separate ET main window\r\n", false},
        {"no window at all",
         [](sim::SimHost&, sim::ChartModel&, SimChartEditor& e) {
             e.mode = SimChartEditor::Mode::NoWindow;
         },
         u"[WPSChart] editor close skipped: not a separate ET main window\r\n", false},
        {"Window.Visible refused",
         [](sim::SimHost& h, sim::ChartModel&, SimChartEditor&) {
             FaultRule rule;
             rule.objectType = u"Window";
             rule.member = u"Visible";
             rule.access = FaultRule::Access::Put;
             h.AddFault(rule);
         },
         u"[WPSChart] editor close skipped: ET window could not be shown\r\n", false},
        {"a window that never appears",
         [](sim::SimHost&, sim::ChartModel&, SimChartEditor& e) {
             e.mode = SimChartEditor::Mode::NeverAppears;
         },
         u"[WPSChart] editor close skipped: ET window stayed hidden\r\n", false},
        {"a window that appears after the tenth try, before the last test",
         [](sim::SimHost&, sim::ChartModel&, SimChartEditor& e) { e.hiddenChecks = 10; },
         u"[WPSChart] posted WM_CLOSE to this chart's ET editor (commit pending)\r\n", true},
        {"a window that appears only after the last test",
         [](sim::SimHost&, sim::ChartModel&, SimChartEditor& e) { e.hiddenChecks = 11; },
         u"[WPSChart] editor close skipped: ET window stayed hidden\r\n", false},
        {"Save failing",
         [](sim::SimHost& h, sim::ChartModel&, SimChartEditor&) {
             FaultRule rule;
             rule.objectType = u"Workbook";
             rule.member = u"Save";
             h.AddFault(rule);
         },
         u"[WPSChart] editor close skipped: workbook.Save failed\r\n", false},
        {"the message refused",
         [](sim::SimHost&, sim::ChartModel&, SimChartEditor& e) {
             e.mode = SimChartEditor::Mode::PostFails;
         },
         u"[WPSChart] editor close skipped: PostMessage failed\r\n", false},
    };
    for (const CommitCase& c : cases) {
        SCOPED_TRACE(c.name);
        test::ManualClock clock;
        test::ScopedClock useClock(clock);
        sim::SimHost host(sim::HostKind::Wps);
        DeckBuilder b;
        b.Slide().Chart(u"Chart 1", sim::SampleChart());
        auto deck = host.AddPresentation(b.Build());
        sim::ChartModel& chart = *deck->slides[0]->shapes[0]->chart;
        SimChartEditor editor(host);
        if (c.prepare) c.prepare(host, chart, editor);
        const std::uint64_t start = clock.TickCount64();
        test::TraceLines trace;

        const bool ok =
            ApplySheetEdits(sim::test::ShapeAt(host, 1, 1),
                            {{u"Sheet1", 1, 2, u"Sales", u"Umsatz"}}, ChartHost{true, &editor});
        EXPECT_EQ(ok, c.committed);
        EXPECT_TRUE(trace.Has(c.line)) << Utf16ToUtf8(trace.Text());
        EXPECT_TRUE(trace.Has(u"[WPSChart] cell Sheet1!R1C2 verified\r\n"));
        EXPECT_EQ(chart.workbook.sheets[0].Cell(1, 2)->text, u"Umsatz")
            << "the cell stays written either way";
        EXPECT_EQ(chart.workbook.closes, 1) << "closed once, by the editor or by automation";
        EXPECT_FALSE(chart.workbook.open);
        EXPECT_EQ(editor.posts, c.committed ? 1 : 0);
        EXPECT_EQ(chart.workbook.commits, c.committed ? 1 : 0);
        // Only the editor's close redraws the chart on this host.
        EXPECT_EQ(chart.series[0].name, c.committed ? u"Umsatz" : u"Sales");
        EXPECT_EQ(trace.Has(u"[WPSChart] UI chart commit unavailable; workbook closed without "
                            u"redraw guarantee\r\n"),
                  !c.committed);
        EXPECT_LE(clock.TickCount64() - start, 200u) << "the wait lasts 200 ms at most";
        if (std::string(c.name) == "Save failing") {
            EXPECT_TRUE(chart.workbook.windowVisible) << "the window was shown before the save";
        }
    }
}

TEST(WpsChartCommit, AFailedCellIsNeverCommittedByTheEditor) {
    sim::SimHost host(sim::HostKind::Wps);
    DeckBuilder b;
    b.Slide().Chart(u"Chart 1", sim::SampleChart());
    auto deck = host.AddPresentation(b.Build());
    SimChartEditor editor(host);
    const bool ok = ApplySheetEdits(
        sim::test::ShapeAt(host, 1, 1),
        {{u"Sheet1", 1, 2, u"Sales", u"Umsatz"}, {u"Sheet1", 2, 1, u"Nowhere", u"Nord"}},
        ChartHost{true, &editor});
    EXPECT_FALSE(ok);
    EXPECT_EQ(editor.posts, 0);
    EXPECT_EQ(editor.visibleChecks, 0);
    EXPECT_EQ(deck->slides[0]->shapes[0]->chart->workbook.closes, 1);
}

TEST(WpsChartCommit, WithoutAnEditorProcessTheCommitStopsAtTheWindowTest) {
    sim::SimHost host(sim::HostKind::Wps);
    DeckBuilder b;
    b.Slide().Chart(u"Chart 1", sim::SampleChart());
    auto deck = host.AddPresentation(b.Build());
    test::TraceLines trace;
    EXPECT_FALSE(ApplySheetEdits(sim::test::ShapeAt(host, 1, 1),
                                 {{u"Sheet1", 1, 2, u"Sales", u"Umsatz"}},
                                 ChartHost{true, nullptr}));
#if !defined(_WIN32)
    EXPECT_TRUE(trace.Has(u"editor close skipped: not a separate ET main window"));
#endif
    EXPECT_EQ(deck->slides[0]->shapes[0]->chart->workbook.closes, 1);
}

}  // namespace
}  // namespace qb
