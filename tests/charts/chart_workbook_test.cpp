// The chart data workbook: cells written one by one behind a guard and a
// read-back, the chart made to show them, and the workbook closed once.
#include <gtest/gtest.h>

#include "charts/chart_test_support.h"
#include "charts/chart_workbook.h"
#include "support/trace_lines.h"

namespace qb {
namespace {

using sim::ChartModel;
using sim::DeckBuilder;
using sim::FaultRule;

// One chart on one slide of its own host.
struct ChartOnSlide {
    void Load(ChartModel chart = sim::SampleChart()) {
        DeckBuilder b;
        b.Slide().Chart(u"Chart 1", std::move(chart));
        deck = host.AddPresentation(b.Build());
        shape = sim::test::ShapeAt(host, 1, 1);
    }
    ChartModel& Model() { return *deck->slides[0]->shapes[0]->chart; }
    sim::SheetCellModel& Cell(std::int32_t row, std::int32_t column) {
        return Model().workbook.sheets[0].cells[{row, column}];
    }

    sim::SimHost host;
    std::shared_ptr<sim::PresentationModel> deck;
    host::HostRef shape;
};

struct WorkbookFixture : testing::Test, ChartOnSlide {
    test::TraceLines trace;
};

TEST_F(WorkbookFixture, OnPowerPointCellsAreWrittenAndTheChartShowsThem) {
    Load();
    Model().workbook.screenUpdating = false;  // whatever it was, it ends on
    const std::vector<ChartCellEdit> edits = {
        {u"Sheet1", 1, 2, u"Sales", u"Umsatz"},
        {u"Sheet1", 2, 1, u"North", u"Nord"},
        {u"", 3, 1, u"South", u"S\u00fcd"},  // no name: the first sheet
    };
    ASSERT_TRUE(ApplySheetEdits(shape, edits, ChartHost()));
    EXPECT_EQ(Cell(1, 2).text, u"Umsatz");
    EXPECT_EQ(Cell(3, 1).text, u"S\u00fcd");
    EXPECT_EQ(Model().series[0].name, u"Umsatz");
    EXPECT_EQ(Model().series[1].name, u"Costs");
    EXPECT_EQ(Model().series[0].categories,
              (std::vector<std::u16string>{u"Nord", u"S\u00fcd", u"2024"}));
    EXPECT_EQ(Model().series[0].categoryIsNumber, (std::vector<bool>{false, false, true}));
    const sim::WorkbookModel& book = Model().workbook;
    EXPECT_EQ(book.closes, 1);
    EXPECT_FALSE(book.open);
    EXPECT_TRUE(book.screenUpdating);
    EXPECT_FALSE(book.appVisible);
    EXPECT_FALSE(book.windowVisible);
    EXPECT_EQ(host.Calls(u"SheetApplication", u"Calculate"), 1u);
    EXPECT_EQ(host.Calls(u"Series", u"Formula="), 2u);
    EXPECT_EQ(host.Calls(u"Chart", u"Refresh"), 2u);
    EXPECT_FALSE(trace.Has(u"verified")) << "the verified line is WPS's";
}

TEST_F(WorkbookFixture, NoChangedCellStillOpensClosesOnceAndRefreshes) {
    Load();
    ASSERT_TRUE(ApplySheetEdits(shape, {}, ChartHost()));
    EXPECT_EQ(Model().workbook.closes, 1);
    EXPECT_EQ(host.Calls(u"Chart", u"Refresh"), 2u);
}

// A cell that can't be written fails its edit; the others go on.
struct CellCase {
    const char* name;
    ChartCellEdit edit;
    void (*prepare)(ChartOnSlide&);
    const char16_t* line;
    bool othersWritten;
};

void ForEachCase(const std::vector<CellCase>& cases) {
    for (const CellCase& c : cases) {
        SCOPED_TRACE(c.name);
        ChartOnSlide f;
        f.Load();
        if (c.prepare) c.prepare(f);
        const std::u16string before = f.Cell(2, 1).text;
        const std::vector<ChartCellEdit> edits = {c.edit, {u"Sheet1", 1, 3, u"Costs", u"Kosten"}};
        test::TraceLines lines;
        EXPECT_FALSE(ApplySheetEdits(f.shape, edits, ChartHost()));
        EXPECT_TRUE(lines.Has(c.line)) << Utf16ToUtf8(lines.Text());
        EXPECT_EQ(f.Cell(2, 1).text, before);
        EXPECT_EQ(f.Cell(1, 3).text, c.othersWritten ? u"Kosten" : u"Costs");
        EXPECT_EQ(f.Model().workbook.closes, 1);
        EXPECT_FALSE(f.Model().workbook.open);
    }
}

TEST(WorkbookCells, GuardedCellsFailAloneAndTheWorkbookStillCloses) {
    ForEachCase({
        {"no such sheet",
         {u"Other", 2, 1, u"North", u"Nord"},
         nullptr,
         u"[WPSChart] cell Other!R2C1: no sheet\r\n",
         true},
        {"a formula",
         {u"Sheet1", 2, 1, u"North", u"Nord"},
         [](ChartOnSlide& f) { f.Cell(2, 1).hasFormula = true; },
         u"[WPSChart] cell changed since scan or contains a formula; skipping\r\n",
         true},
        {"changed during the run",
         {u"Sheet1", 2, 1, u"North", u"Nord"},
         [](ChartOnSlide& f) { f.Cell(2, 1).text = u"Northeast"; },
         u"[WPSChart] cell changed since scan or contains a formula; skipping\r\n",
         true},
        {"Cells refused once",
         {u"Sheet1", 2, 1, u"North", u"Nord"},
         [](ChartOnSlide& f) {
             FaultRule rule;
             rule.objectType = u"Worksheet";
             rule.member = u"Cells";
             rule.nth = 1;
             f.host.AddFault(rule);
         },
         u"[WPSChart] cell Sheet1!R2C1: Cells() failed\r\n",
         true},
        {"every put refused",
         {u"Sheet1", 2, 1, u"North", u"Nord"},
         [](ChartOnSlide& f) {
             FaultRule rule;
             rule.objectType = u"Range";
             rule.access = FaultRule::Access::Put;
             f.host.AddFault(rule);
         },
         u"[WPSChart] cell Sheet1!R2C1: Value put failed\r\n",
         false},
    });
}

TEST(WorkbookCells, AFormattedCellIsComparedAndVerifiedByWhatItShows) {
    ChartOnSlide f;
    f.Load();
    f.Cell(2, 1).formatSuffix = u" area";
    test::TraceLines lines;
    // The scan saw "North area"; the value is put twice, and what the sheet
    // then shows is still not the translation.
    EXPECT_FALSE(
        ApplySheetEdits(f.shape, {{u"Sheet1", 2, 1, u"North area", u"Nord"}}, ChartHost()));
    EXPECT_EQ(f.host.Calls(u"Range", u"Value="), 2u);
    EXPECT_EQ(f.Cell(2, 1).text, u"Nord");
    EXPECT_EQ(lines.Count(u"Value put failed"), 1u);
}

TEST_F(WorkbookFixture, AGroupOfSheetUnitsWritesOnlyChangedTexts) {
    Load();
    RunLists lists;
    const auto add = [&](std::int32_t row, std::int32_t column, std::u16string text,
                         std::u16string translation) {
        UnitAddress a;
        a.kind = UnitKind::SheetCell;
        a.shapePath = {1};
        a.slideIndex = 1;
        a.sheetName = u"Sheet1";
        a.row = row;
        a.column = column;
        lists.addresses.push_back(a);
        lists.units.push_back(TextUnit());
        lists.texts.push_back(std::move(text));
        lists.translations.push_back(std::move(translation));
    };
    add(1, 2, u"Sales", u"Umsatz\r\n");
    add(1, 3, u"Costs", u"Costs");
    add(2, 1, u"North", u"");
    add(3, 1, u"South", u"S\u00fcd");
    lists.writtenUnits = {false, false, false, true};
    std::int32_t count = 0;
    ASSERT_TRUE(ApplySheetGroup(shape, lists, {0, 1, 2, 3}, ChartHost(), count));
    EXPECT_EQ(count, 1);
    EXPECT_EQ(Cell(1, 2).text, u"Umsatz");
    EXPECT_EQ(Cell(3, 1).text, u"South");
    EXPECT_TRUE(trace.Has(u"[WPSChart] PptCtrl chart apply sheet edits=1\r\n"));
    EXPECT_TRUE(trace.Has(u"[WPSChart] PptCtrl chart edit Sheet1!R1C2 textLen=6\r\n"));
}

TEST_F(WorkbookFixture, ALinkedChartsWorkbookIsNeverOpened) {
    Load(test::LinkedChart());
    EXPECT_FALSE(ApplySheetEdits(shape, {{u"Sheet1", 2, 1, u"North", u"Nord"}}, ChartHost()));
    EXPECT_EQ(host.Calls(u"ChartData", u"Workbook"), 0u);
    EXPECT_EQ(host.Calls(u"ChartData", u"Activate"), 0u);
}

TEST_F(WorkbookFixture, RangesReadCellByCellWithinTheirLimits) {
    Load();
    ChartWorkbookSession session{ChartHost()};
    ASSERT_TRUE(OpenChartWorkbook(sim::test::Object(shape, u"Chart"), session));
    std::vector<std::u16string> texts;
    ASSERT_TRUE(ReadRangeTexts(session.workbook, u"Sheet1", u"$A$2:$B$3", texts));
    EXPECT_EQ(texts, (std::vector<std::u16string>{u"North", u"200", u"South", u"300"}));
    ASSERT_TRUE(ReadRangeTexts(session.workbook, u"Nowhere", u"$B$1", texts));
    EXPECT_EQ(texts, std::vector<std::u16string>{u"Sales"}) << "an unknown sheet reads the first";
    ASSERT_TRUE(ReadRangeTexts(session.workbook, u"", u"A1:A100", texts));
    EXPECT_EQ(texts.size(), 64u);
    EXPECT_EQ(ReadCellText(sim::test::Object(sim::test::Object(session.workbook, u"Worksheets"),
                                             u"Item", {sim::test::I4(1)}),
                           4, 1),
              u"2024");
    EXPECT_TRUE(CloseChartWorkbook(session));
    EXPECT_TRUE(CloseChartWorkbook(session)) << "nothing left to close";
    EXPECT_EQ(Model().workbook.closes, 1);
}

}  // namespace
}  // namespace qb
