// Whole runs over decks with charts and SmartArt, on both hosts: every text
// the charts hold is translated where it lives, numbers stay numbers, and
// with any chart or workbook member missing or failing the run still ends
// once, with each text its translation or its source and no workbook left
// open.
#include <gtest/gtest.h>

#include "charts/chart_test_support.h"
#include "sim/host/sim_editor.h"
#include "slides/engine_harness.h"

namespace qb {
namespace {

using sim::ChartModel;
using sim::DeckBuilder;
using sim::FaultRule;
using test::EngineHarness;
using test::Pseudo;

std::shared_ptr<sim::PresentationModel> ChartDeck() {
    DeckBuilder b;
    b.Slide().Placeholder(u"Title 1", u"Results");
    b.Chart(u"Embedded", sim::SampleChart());
    b.SmartArt(u"Steps", {u"Plan", u"2024", u"Ship"});
    ChartModel linked = test::LinkedChart();
    linked.title.text = u"Linked view";
    sim::AxisModel secondary;
    secondary.type = 2;
    secondary.group = 2;
    secondary.hasTitle = true;
    secondary.title.text = u"Margin";
    linked.axes.push_back(secondary);
    b.Slide().Chart(u"Linked", linked);
    // The notes page holds a chart at the same path as the slide's.
    ChartModel notes = test::LinkedChart();
    notes.title.text = u"Speaker chart";
    notes.axes.clear();
    notes.series.resize(1);
    notes.series[0].hasDataLabels = false;
    auto deck = b.Build();
    auto shape = std::make_shared<sim::ShapeModel>();
    shape->type = sim::ShapeType::Chart;
    shape->name = u"Notes chart";
    shape->chart = std::make_shared<ChartModel>(notes);
    deck->slides[1]->notesShapes.push_back(shape);
    return deck;
}

// Every text a chart or SmartArt graphic shows, with where it is.
struct ChartText {
    std::string where;
    std::u16string text;
};

void CaptureChart(const ChartModel& c, const std::string& at, std::vector<ChartText>& out) {
    if (c.hasTitle) out.push_back({at + " title", c.title.text});
    for (const auto& axis : c.axes) {
        const std::string a = at + " axis" + std::to_string(axis.type) + std::to_string(axis.group);
        if (axis.hasTitle) out.push_back({a + " title", axis.title.text});
        if (axis.hasDisplayUnitLabel) out.push_back({a + " unit", axis.displayUnitLabel.text});
    }
    for (std::size_t s = 0; s < c.series.size(); ++s) {
        const std::string name = at + " series" + std::to_string(s + 1);
        out.push_back({name + " name", c.series[s].name});
        for (std::size_t i = 0; i < c.series[s].categories.size(); ++i)
            out.push_back({name + " category" + std::to_string(i), c.series[s].categories[i]});
        for (std::size_t i = 0; i < c.series[s].dataLabels.size(); ++i)
            out.push_back(
                {name + " label" + std::to_string(i), c.series[s].dataLabels[i].label.text});
    }
    for (const auto& sheet : c.workbook.sheets) {
        for (const auto& [at2, cell] : sheet.cells) {
            out.push_back(
                {at + " cell" + std::to_string(at2.first) + "," + std::to_string(at2.second),
                 cell.isNumber ? u"#" + DecimalText(static_cast<long long>(cell.number))
                               : cell.text});
        }
    }
}

std::vector<ChartText> CaptureCharts(const sim::PresentationModel& deck) {
    std::vector<ChartText> out;
    for (std::size_t s = 0; s < deck.slides.size(); ++s) {
        for (const auto* list : {&deck.slides[s]->shapes, &deck.slides[s]->notesShapes}) {
            for (const auto& shape : *list) {
                const std::string at =
                    "slide" + std::to_string(s + 1) + " " + Utf16ToUtf8(shape->name);
                if (shape->chart) CaptureChart(*shape->chart, at, out);
                if (shape->smartArt) {
                    for (std::size_t i = 0; i < shape->smartArt->nodes.size(); ++i)
                        out.push_back(
                            {at + " node" + std::to_string(i), shape->smartArt->nodes[i].text});
                }
            }
        }
    }
    return out;
}

// Each text is its source or its translation; numbers never change.
void ExpectChartsTranslatedOrSource(const std::vector<ChartText>& before,
                                    const std::vector<ChartText>& after) {
    ASSERT_EQ(before.size(), after.size());
    for (std::size_t i = 0; i < before.size(); ++i) {
        EXPECT_EQ(after[i].where, before[i].where);
        const std::u16string& was = before[i].text;
        const std::u16string& is = after[i].text;
        if (!was.empty() && was[0] == u'#') {
            EXPECT_EQ(is, was) << after[i].where << ": a number changed";
            continue;
        }
        EXPECT_TRUE(is == was || is == NormalizeTranslation(Pseudo(TrimText(was))))
            << after[i].where << " is neither source nor translation: " << Utf16ToUtf8(is);
    }
}

std::vector<std::u16string> Texts(std::initializer_list<const char16_t*> texts) {
    return std::vector<std::u16string>(texts.begin(), texts.end());
}

class ChartRuns : public testing::TestWithParam<sim::HostKind> {};

TEST_P(ChartRuns, EveryChartTextIsTranslatedWhereItLives) {
    const bool wps = GetParam() == sim::HostKind::Wps;
    EngineHarness h(GetParam());
    sim::SimChartEditor editor(h.host);
    ChartStepsConfig config;
    config.isWpsHost = [wps] { return wps; };
    config.editor = &editor;
    h.offer = MakeChartOffer(config);
    h.writers = MakeChartWriters(config);
    auto deck = h.host.AddPresentation(ChartDeck());
    const test::RunOutcome out = h.Run(h.Options());
    ASSERT_TRUE(out.started);
    EXPECT_EQ(out.closing, std::vector<std::string>{"complete"});
    EXPECT_EQ(out.firstApplyError, u"");
    EXPECT_EQ(out.applied, static_cast<std::int32_t>(out.lists.texts.size()));

    const ChartModel& embedded = *deck->slides[0]->shapes[1]->chart;
    EXPECT_EQ(embedded.title.text, u"DE<Revenue by region>");
    EXPECT_EQ(embedded.axes[0].title.text, u"DE<Region>");
    EXPECT_EQ(embedded.axes[1].displayUnitLabel.text, u"DE<Thousands>");
    EXPECT_EQ(embedded.series[0].dataLabels[0].label.text, u"DE<Best quarter>");
    EXPECT_EQ(embedded.series[0].dataLabels[1].label.text, u"300");
    // The sheet took the texts, and the chart shows them after its refresh
    // (on WPS, after its editor closed).
    EXPECT_EQ(embedded.series[0].name, u"DE<Sales>");
    EXPECT_EQ(embedded.series[1].name, u"DE<Costs>");
    EXPECT_EQ(embedded.series[0].categories, Texts({u"DE<North>", u"DE<South>", u"2024"}));
    EXPECT_EQ(embedded.series[0].categoryIsNumber, (std::vector<bool>{false, false, true}));
    EXPECT_TRUE(embedded.workbook.sheets[0].Cell(4, 1)->isNumber);
    EXPECT_EQ(embedded.workbook.sheets[0].Cell(3, 2)->number, 300);
    EXPECT_FALSE(embedded.workbook.open);
    EXPECT_EQ(embedded.workbook.closes, 2) << "once after the scan, once after the write";
    EXPECT_EQ(editor.posts, wps ? 1 : 0);

    const ChartModel& linked = *deck->slides[1]->shapes[0]->chart;
    EXPECT_EQ(linked.title.text, u"DE<Linked view>");
    EXPECT_EQ(linked.axes[2].title.text, u"DE<Margin>");
    EXPECT_EQ(linked.series[0].name, u"DE<Sales>");
    EXPECT_EQ(linked.series[1].name, u"DE<Costs>");
    EXPECT_EQ(linked.series[0].categories, Texts({u"DE<North>", u"DE<South>", u"2024"}));
    EXPECT_EQ(linked.series[0].categoryIsNumber, (std::vector<bool>{false, false, true}));
    EXPECT_EQ(linked.series[1].categories, Texts({u"DE<North>", u"DE<South>", u"2024"}));
    EXPECT_EQ(linked.workbook.closes, 0);
    EXPECT_FALSE(linked.activated);

    const ChartModel& notes = *deck->slides[1]->notesShapes.back()->chart;
    EXPECT_EQ(notes.title.text, u"DE<Speaker chart>") << "written on the notes page";
    EXPECT_EQ(notes.series[0].name, u"DE<Sales>");

    const auto& nodes = deck->slides[0]->shapes[2]->smartArt->nodes;
    EXPECT_EQ(nodes[0].text, u"DE<Plan>");
    EXPECT_EQ(nodes[1].text, u"2024");
    EXPECT_EQ(nodes[2].text, u"DE<Ship>");
    EXPECT_EQ(deck->slides[0]->shapes[0]->frame.text, u"DE<Results>");
}

TEST_P(ChartRuns, ADefaultEngineCollectsChartsAndSmartArt) {
    EngineHarness h(GetParam());
    auto deck = h.host.AddPresentation(ChartDeck());
    SlideEngine engine;
    RunLists lists;
    std::u16string message;
    RunContext run;
    run.application = h.host.Application();
    run.presentation =
        sim::test::Object(sim::test::Object(sim::test::Object(run.application, u"Windows"), u"Item",
                                            {sim::test::I4(1)}),
                          u"Presentation");
    ASSERT_EQ(engine.Collect(run, lists, message), S_OK);
    std::int32_t charts = 0, nodes = 0;
    for (const UnitAddress& a : lists.addresses) {
        if (a.kind == UnitKind::SmartArtNode) ++nodes;
        if (a.kind == UnitKind::ChartTitle) ++charts;
    }
    EXPECT_EQ(charts, 3);
    EXPECT_EQ(nodes, 2);
}

TEST_P(ChartRuns, ASheetWriteThatFailsReportsEveryChangedSheetUnitOfTheChart) {
    const bool wps = GetParam() == sim::HostKind::Wps;
    EngineHarness h(GetParam());
    sim::SimChartEditor editor(h.host);
    ChartStepsConfig config;
    config.isWpsHost = [wps] { return wps; };
    config.editor = &editor;
    h.offer = MakeChartOffer(config);
    h.writers = MakeChartWriters(config);
    DeckBuilder b;
    ChartModel chart = sim::SampleChart();
    chart.hasTitle = false;
    chart.axes.clear();
    chart.series[0].hasDataLabels = false;
    b.Slide().Chart(u"Chart 1", chart);
    auto deck = h.host.AddPresentation(b.Build());
    // A text cell made by a formula: scanned like any other, never written.
    deck->slides[0]->shapes[0]->chart->workbook.sheets[0].cells[{3, 1}].hasFormula = true;
    const test::RunOutcome out = h.Run(h.Options());
    EXPECT_EQ(out.closing, std::vector<std::string>{"complete"});
    EXPECT_EQ(out.applied, 0);
    EXPECT_EQ(out.firstApplyError,
              u"shapes[1].sheet(Sheet1,1,2); shapes[1].sheet(Sheet1,1,3); "
              u"shapes[1].sheet(Sheet1,2,1); shapes[1].sheet(Sheet1,3,1)");
    const sim::SheetModel& sheet = deck->slides[0]->shapes[0]->chart->workbook.sheets[0];
    EXPECT_EQ(sheet.Cell(1, 2)->text, u"DE<Sales>") << "the other cells hold their translation";
    EXPECT_EQ(sheet.Cell(3, 1)->text, u"South");
    EXPECT_EQ(editor.posts, 0) << "a write with a failed cell is never committed";
    EXPECT_FALSE(deck->slides[0]->shapes[0]->chart->workbook.open);
}

TEST(ChartRunsOnWps, WithoutTheEditorCommitTheSheetUnitsFail) {
    EngineHarness h(sim::HostKind::Wps);
    sim::SimChartEditor editor(h.host);
    editor.mode = sim::SimChartEditor::Mode::NeverAppears;
    ChartStepsConfig config;
    config.isWpsHost = [] { return true; };
    config.editor = &editor;
    h.offer = MakeChartOffer(config);
    h.writers = MakeChartWriters(config);
    auto deck = h.host.AddPresentation(ChartDeck());
    const test::RunOutcome out = h.Run(h.Options());
    EXPECT_EQ(out.closing, std::vector<std::string>{"complete"});
    const ChartModel& embedded = *deck->slides[0]->shapes[1]->chart;
    EXPECT_NE(out.firstApplyError.find(u"shapes[2].sheet(Sheet1,1,2)"), std::u16string::npos);
    EXPECT_EQ(embedded.workbook.sheets[0].Cell(1, 2)->text, u"DE<Sales>");
    EXPECT_EQ(embedded.series[0].name, u"Sales") << "no redraw without the editor's close";
    EXPECT_EQ(embedded.title.text, u"DE<Revenue by region>");
    EXPECT_FALSE(embedded.workbook.open);
    EXPECT_EQ(embedded.workbook.closes, 2);
}

TEST(ChartRunsSmartArt, AGraphicWithoutUsableNodesIsCountedForTheSummary) {
    EngineHarness h;
    h.offer = MakeChartOffer();
    h.writers = MakeChartWriters();
    DeckBuilder b;
    b.Slide().SmartArt(u"Diagram", {u"Plan"}).Text(u"Body", u"Hello");
    auto deck = h.host.AddPresentation(b.Build());
    deck->slides[0]->shapes[0]->smartArt->usable = false;
    const test::RunOutcome out = h.Run(h.Options());
    EXPECT_EQ(out.closing, std::vector<std::string>{"complete"});
    EXPECT_EQ(out.lists.skippedSmartArt, 1);
    EXPECT_EQ(out.lists.units.size(), 1u);
    EXPECT_EQ(deck->slides[0]->shapes[0]->smartArt->nodes[0].text, u"Plan");
    EXPECT_EQ(deck->slides[0]->shapes[1]->frame.text, u"DE<Hello>");
}

INSTANTIATE_TEST_SUITE_P(BothHosts, ChartRuns,
                         testing::Values(sim::HostKind::PowerPoint, sim::HostKind::Wps),
                         [](const testing::TestParamInfo<sim::HostKind>& info) {
                             return info.param == sim::HostKind::Wps ? "Wps" : "PowerPoint";
                         });

struct Member {
    const char16_t* type;
    const char16_t* member;
};

// Every chart, workbook and SmartArt member the steps use.
const Member kMembers[] = {
    {u"Shape", u"Type"},
    {u"Shape", u"HasChart"},
    {u"Shape", u"Chart"},
    {u"Shape", u"HasSmartArt"},
    {u"Shape", u"SmartArt"},
    {u"Chart", u"HasTitle"},
    {u"Chart", u"ChartTitle"},
    {u"Chart", u"HasAxis"},
    {u"Chart", u"Axes"},
    {u"Chart", u"SeriesCollection"},
    {u"Chart", u"ChartData"},
    {u"Chart", u"Refresh"},
    {u"ChartTitle", u"Text"},
    {u"ChartTitle", u"Caption"},
    {u"ChartTitle", u"TextFrame2"},
    {u"AxisTitle", u"Text"},
    {u"DisplayUnitLabel", u"Text"},
    {u"TextFrame2", u"TextRange"},
    {u"TextRange2", u"Text"},
    {u"Axis", u"HasTitle"},
    {u"Axis", u"AxisTitle"},
    {u"Axis", u"HasDisplayUnitLabel"},
    {u"Axis", u"DisplayUnitLabel"},
    {u"Axis", u"CategoryNames"},
    {u"SeriesCollection", u"Count"},
    {u"SeriesCollection", u"Item"},
    {u"Series", u"Name"},
    {u"Series", u"Formula"},
    {u"Series", u"XValues"},
    {u"Series", u"HasDataLabels"},
    {u"Series", u"DataLabels"},
    {u"DataLabels", u"Count"},
    {u"DataLabels", u"Item"},
    {u"DataLabel", u"ShowValue"},
    {u"DataLabel", u"ShowPercentage"},
    {u"DataLabel", u"ShowCategoryName"},
    {u"DataLabel", u"ShowSeriesName"},
    {u"DataLabel", u"ShowBubbleSize"},
    {u"DataLabel", u"Text"},
    {u"ChartData", u"IsLinked"},
    {u"ChartData", u"Activate"},
    {u"ChartData", u"Workbook"},
    {u"Workbook", u"Application"},
    {u"Workbook", u"Worksheets"},
    {u"Workbook", u"Windows"},
    {u"Workbook", u"Activate"},
    {u"Workbook", u"Close"},
    {u"Workbook", u"Name"},
    {u"Workbook", u"Save"},
    {u"Worksheets", u"Count"},
    {u"Worksheets", u"Item"},
    {u"Worksheet", u"Name"},
    {u"Worksheet", u"UsedRange"},
    {u"Worksheet", u"Cells"},
    {u"Worksheet", u"Range"},
    {u"Range", u"Row"},
    {u"Range", u"Column"},
    {u"Range", u"Rows"},
    {u"Range", u"Columns"},
    {u"Range", u"Cells"},
    {u"Range", u"Text"},
    {u"Range", u"Value"},
    {u"Range", u"Value2"},
    {u"Range", u"HasFormula"},
    {u"Rows", u"Count"},
    {u"Columns", u"Count"},
    {u"Windows", u"Count"},
    {u"Windows", u"Item"},
    {u"Window", u"Visible"},
    {u"Window", u"Caption"},
    {u"Workbooks", u"Count"},
    {u"SheetApplication", u"Workbooks"},
    {u"SheetApplication", u"ScreenUpdating"},
    {u"SheetApplication", u"Visible"},
    {u"SheetApplication", u"Calculate"},
    {u"SheetApplication", u"ActiveWorkbook"},
    {u"SheetApplication", u"Hwnd"},
    {u"SmartArt", u"Nodes"},
    {u"SmartArtNodes", u"Count"},
    {u"SmartArtNodes", u"Item"},
    {u"SmartArtNode", u"TextFrame2"},
};

TEST_P(ChartRuns, AnyMemberMissingOrFailingLeavesEachTextTranslatedOrSource) {
    const bool wps = GetParam() == sim::HostKind::Wps;
    for (const Member& m : kMembers) {
        for (bool missing : {true, false}) {
            SCOPED_TRACE(Utf16ToUtf8(m.type) + "." + Utf16ToUtf8(m.member) +
                         (missing ? " missing" : " failing"));
            EngineHarness h(GetParam());
            sim::SimChartEditor editor(h.host);
            ChartStepsConfig config;
            config.isWpsHost = [wps] { return wps; };
            config.editor = &editor;
            h.offer = MakeChartOffer(config);
            h.writers = MakeChartWriters(config);
            auto deck = h.host.AddPresentation(ChartDeck());
            const auto frames = test::CaptureFrames(*deck);
            const auto before = CaptureCharts(*deck);
            FaultRule rule;
            rule.objectType = m.type;
            rule.member = m.member;
            rule.missing = missing;
            h.host.AddFault(rule);
            const test::RunOutcome out = h.Run(h.Options());
            ASSERT_TRUE(out.started);
            EXPECT_EQ(out.closing, std::vector<std::string>{"complete"});
            test::ExpectTranslatedOrSource(frames, h.translate);
            ExpectChartsTranslatedOrSource(before, CaptureCharts(*deck));
            const sim::WorkbookModel& book = deck->slides[0]->shapes[1]->chart->workbook;
            const std::u16string member = m.member;
            if (member == u"Close" && !editor.posts) {
                EXPECT_GE(h.host.Calls(u"Workbook", u"Close"), 1u);
            } else if (member == u"Workbook") {
                // Activate opened the data, but without its Workbook there
                // is nothing to close it by.
                EXPECT_EQ(h.host.Calls(u"Workbook", u"Close"), 0u);
            } else {
                EXPECT_FALSE(book.open) << "the workbook is always closed again";
            }
            EXPECT_EQ(deck->slides[1]->shapes[0]->chart->workbook.closes, 0)
                << "a linked chart's file is never opened";
        }
    }
}

}  // namespace
}  // namespace qb
