// Chart text slots: which texts of a chart become units, where each is
// taken from, and what is left alone.
#include <gtest/gtest.h>

#include "charts/chart_slots.h"
#include "charts/chart_test_support.h"
#include "charts/chart_workbook.h"
#include "support/trace_lines.h"

namespace qb {
namespace {

using sim::ChartModel;
using sim::DeckBuilder;
using sim::FaultRule;
using test::CollectSlide;
using test::UnitIds;
using Ids = std::vector<std::string>;

RunLists CollectChart(ChartModel chart, sim::HostKind kind = sim::HostKind::PowerPoint,
                      std::vector<FaultRule> faults = {}) {
    sim::SimHost host(kind);
    DeckBuilder b;
    b.Slide().Chart(u"Chart 1", std::move(chart));
    host.AddPresentation(b.Build());
    for (FaultRule& rule : faults)
        host.AddFault(std::move(rule));
    return CollectSlide(host, 1);
}

TEST(ChartSlots, AnEmbeddedChartTakesCategoriesAndSeriesNamesFromItsSheet) {
    for (sim::HostKind kind : {sim::HostKind::PowerPoint, sim::HostKind::Wps}) {
        const RunLists lists = CollectChart(sim::SampleChart(), kind);
        EXPECT_EQ(UnitIds(lists),
                  (Ids{"shapes[1].chartTitle=Revenue by region", "shapes[1].axis(1,1)=Region",
                       "shapes[1].axis(2,1).unit=Thousands", "shapes[1].sheet(Sheet1,1,2)=Sales",
                       "shapes[1].sheet(Sheet1,1,3)=Costs", "shapes[1].sheet(Sheet1,2,1)=North",
                       "shapes[1].sheet(Sheet1,3,1)=South",
                       "shapes[1].series(1).label(1)=Best quarter"}));
        ASSERT_EQ(lists.addresses.size(), 8u);
        EXPECT_EQ(lists.texts, (std::vector<std::u16string>{u"Revenue by region", u"Region",
                                                            u"Thousands", u"Sales", u"Costs",
                                                            u"North", u"South", u"Best quarter"}));
        const UnitAddress& cell = lists.addresses[5];
        EXPECT_EQ(cell.kind, UnitKind::SheetCell);
        EXPECT_EQ(cell.sheetName, u"Sheet1");
        EXPECT_EQ(cell.row, 2);
        EXPECT_EQ(cell.column, 1);
        EXPECT_EQ(lists.addresses[0].kind, UnitKind::ChartTitle);
        EXPECT_EQ(lists.addresses[1].kind, UnitKind::AxisTitle);
        EXPECT_EQ(lists.addresses[2].kind, UnitKind::DisplayUnit);
        EXPECT_EQ(lists.addresses[2].axisType, 2);
        EXPECT_EQ(lists.addresses[7].kind, UnitKind::DataLabel);
        EXPECT_EQ(lists.addresses[7].seriesIndex, 1);
        EXPECT_EQ(lists.addresses[7].itemIndex, 1);
        for (const TextUnit& unit : lists.units) {
            EXPECT_EQ(unit.paragraphFlag, 0);
            EXPECT_EQ(unit.sourceText, u"");
            EXPECT_EQ(unit.paragraphCount, 0);
        }
    }
}

TEST(ChartSlots, ALinkedChartTakesThemFromTheChartAndLeavesItsFileClosed) {
    sim::SimHost host;
    DeckBuilder b;
    b.Slide().Chart(u"Chart 1", test::LinkedChart());
    auto deck = host.AddPresentation(b.Build());
    test::TraceLines trace;
    const RunLists lists = CollectSlide(host, 1);
    EXPECT_EQ(UnitIds(lists),
              (Ids{"shapes[1].chartTitle=Revenue by region", "shapes[1].axis(1,1)=Region",
                   "shapes[1].axis(2,1).unit=Thousands", "shapes[1].category(0)=North",
                   "shapes[1].category(1)=South", "shapes[1].series(1).name=Sales",
                   "shapes[1].series(1).label(1)=Best quarter", "shapes[1].series(2).name=Costs"}));
    EXPECT_EQ(lists.addresses[3].kind, UnitKind::Category);
    EXPECT_EQ(lists.addresses[4].itemIndex, 1);
    EXPECT_EQ(lists.addresses[4].useAxisCategories, 0);
    const sim::ChartModel& chart = *deck->slides[0]->shapes[0]->chart;
    EXPECT_FALSE(chart.activated);
    EXPECT_EQ(host.Calls(u"ChartData", u"Activate"), 0u);
    EXPECT_EQ(host.Calls(u"ChartData", u"Workbook"), 0u);
    EXPECT_TRUE(trace.Has(u"PptCtrl chart slide=1 shapes[1] slots=8 sheetCells=0\r\n"));
}

// One change to the linked sample chart, and the unit ids it leaves.
struct LinkedCase {
    const char* name;
    void (*change)(ChartModel&);
    Ids ids;
};

TEST(ChartSlots, WhatALinkedChartGives) {
    const LinkedCase cases[] = {
        {"series named by a reference or a number, categories all years",
         [](ChartModel& c) {
             c.hasTitle = false;
             c.axes.clear();
             c.series[0].name = u"=Sheet1!$B$1";
             c.series[1].name = u"2023";
             for (auto& s : c.series) {
                 s.categories = {u"2021", u"2022", u"2023", u"2024"};
                 s.categoryIsNumber = {true, true, true, true};
             }
             c.series[0].hasDataLabels = false;
         },
         {}},
        {"numeric x values fall back on the axis category names",
         [](ChartModel& c) {
             c.hasTitle = false;
             c.axes[0].hasTitle = false;
             c.axes[1].hasDisplayUnitLabel = false;
             c.series[0].categories = {u"1", u"2"};
             c.series[0].categoryIsNumber = {true, true};
             c.axisCategoryNames = {u"Alpha", u"42", u"Gamma"};
             c.series.resize(1);
             c.series[0].hasDataLabels = false;
         },
         {"shapes[1].category(0)=Alpha", "shapes[1].category(2)=Gamma",
          "shapes[1].series(1).name=Sales"}},
        {"a secondary category axis title and a primary value axis title",
         [](ChartModel& c) {
             c.hasTitle = false;
             c.axes[0].hasTitle = false;
             c.axes[1].hasDisplayUnitLabel = false;
             c.axes[1].hasTitle = true;
             c.axes[1].title.text = u"  Euros ";
             sim::AxisModel secondary;
             secondary.type = 1;
             secondary.group = 2;
             secondary.hasTitle = true;
             secondary.title.text = u"Quarter";
             c.axes.push_back(secondary);
             c.series.clear();
         },
         {"shapes[1].axis(2,1)=Euros", "shapes[1].axis(1,2)=Quarter"}},
        {"a host without HasAxis still reaches its axes; two-dimensional x values",
         [](ChartModel& c) {
             c.hasHasAxis = false;
             c.hasTitle = false;
             c.xValuesTwoDimensional = true;
             c.series.resize(1);
             c.series[0].hasDataLabels = false;
         },
         {"shapes[1].axis(1,1)=Region", "shapes[1].axis(2,1).unit=Thousands",
          "shapes[1].category(0)=North", "shapes[1].category(1)=South",
          "shapes[1].series(1).name=Sales"}},
        {"labels only by Caption or by TextFrame2",
         [](ChartModel& c) {
             c.title.hasText = false;
             c.axes[0].title.hasText = false;
             c.axes[0].title.hasCaption = false;
             c.axes[1].hasDisplayUnitLabel = false;
             c.series.clear();
         },
         {"shapes[1].chartTitle=Revenue by region", "shapes[1].axis(1,1)=Region"}},
        {"SeriesCollection only with an index and no Count",
         [](ChartModel& c) {
             c.hasTitle = false;
             c.axes.clear();
             c.seriesCollectionAsProperty = false;
             c.series[0].hasDataLabels = false;
         },
         {"shapes[1].category(0)=North", "shapes[1].category(1)=South",
          "shapes[1].series(1).name=Sales", "shapes[1].series(2).name=Costs"}},
    };
    for (const LinkedCase& c : cases) {
        SCOPED_TRACE(c.name);
        ChartModel chart = test::LinkedChart();
        c.change(chart);
        EXPECT_EQ(UnitIds(CollectChart(chart)), c.ids);
    }
}

TEST(ChartSlots, OnlyHandTypedDataLabelsAreTaken) {
    ChartModel chart = test::LinkedChart();
    chart.hasTitle = false;
    chart.axes.clear();
    chart.series.resize(1);
    chart.series[0].name = u"1";
    chart.series[0].categories = {u"1"};
    chart.series[0].categoryIsNumber = {true};
    std::vector<sim::DataLabelModel> labels(8);
    for (std::size_t i = 0; i < labels.size(); ++i)
        labels[i].label.text = u"Label " + DecimalText(static_cast<long long>(i + 1));
    labels[0].showValue = true;
    labels[1].showPercentage = true;
    labels[2].showCategoryName = true;
    labels[3].showSeriesName = true;
    labels[4].showBubbleSize = true;
    labels[5].hasShowBubbleSize = false;  // a host without the member
    labels[7].label.text = u"12.5%";
    chart.series[0].dataLabels = labels;
    EXPECT_EQ(UnitIds(CollectChart(chart)), (Ids{"shapes[1].series(1).label(6)=Label 6",
                                                 "shapes[1].series(1).label(7)=Label 7"}));

    // A label whose ShowPercentage can't be read is left out.
    FaultRule unreadable;
    unreadable.objectType = u"DataLabel";
    unreadable.member = u"ShowPercentage";
    unreadable.nth = 6;
    EXPECT_EQ(UnitIds(CollectChart(chart, sim::HostKind::PowerPoint, {unreadable})),
              (Ids{"shapes[1].series(1).label(7)=Label 7"}));
}

TEST(ChartSlots, SeriesAndLabelsStopAtTheirLimits) {
    ChartModel chart = test::LinkedChart();
    chart.hasTitle = false;
    chart.axes.clear();
    sim::SeriesModel many = chart.series[0];
    many.dataLabels.assign(600, sim::DataLabelModel());
    for (auto& label : many.dataLabels)
        label.label.text = u"Note";
    chart.series.assign(70, chart.series[1]);
    chart.series[0] = many;
    for (std::size_t i = 0; i < chart.series.size(); ++i)
        chart.series[i].name = u"S" + DecimalText(static_cast<long long>(i + 1));
    const RunLists lists = CollectChart(chart);
    std::int32_t names = 0, labels = 0, lastSeries = 0;
    for (const UnitAddress& a : lists.addresses) {
        if (a.kind == UnitKind::SeriesName) ++names, lastSeries = a.seriesIndex;
        if (a.kind == UnitKind::DataLabel) ++labels;
    }
    EXPECT_EQ(names, 64);
    EXPECT_EQ(lastSeries, 64);
    EXPECT_EQ(labels, 512);
}

TEST(ChartSlots, AnEmbeddedChartWhoseWorkbookWontOpenGivesNoCategoriesOrNames) {
    FaultRule noBook;
    noBook.objectType = u"ChartData";
    noBook.member = u"Workbook";
    const RunLists lists = CollectChart(sim::SampleChart(), sim::HostKind::PowerPoint, {noBook});
    EXPECT_EQ(
        UnitIds(lists),
        (Ids{"shapes[1].chartTitle=Revenue by region", "shapes[1].axis(1,1)=Region",
             "shapes[1].axis(2,1).unit=Thousands", "shapes[1].series(1).label(1)=Best quarter"}));
}

TEST(ChartSlots, SheetCellsAreAddressedAbsolutelyAndSkipMarksAndNumbers) {
    ChartModel chart = sim::SampleChart();
    chart.hasTitle = false;
    chart.axes.clear();
    chart.series[0].hasDataLabels = false;
    sim::SheetModel sheet;
    sheet.name = u"Data";
    sheet.cells[{3, 3}].text = u"Label";
    sheet.cells[{3, 4}].text = u"#REF!";
    sheet.cells[{4, 3}].isNumber = true;
    sheet.cells[{4, 3}].number = 1e12;
    sheet.cells[{4, 3}].shownText = u"#####";
    sheet.cells[{4, 4}].text = u"12.5%";
    sheet.cells[{5, 4}].text = u"  padded  ";
    chart.workbook.sheets = {sheet};
    EXPECT_EQ(UnitIds(CollectChart(chart)),
              (Ids{"shapes[1].sheet(Data,3,3)=Label", "shapes[1].sheet(Data,5,4)=padded"}));
}

TEST(ChartSlots, AScanReadsThreeSheetsFortyRowsSixteenColumnsAndClosesOnce) {
    sim::SimHost host;
    ChartModel chart = sim::SampleChart();
    chart.hasTitle = false;
    chart.axes.clear();
    chart.series[0].hasDataLabels = false;
    sim::SheetModel big;
    big.name = u"Big";
    for (std::int32_t r = 1; r <= 41; ++r) {
        for (std::int32_t c = 1; c <= 17; ++c)
            big.cells[{r, c}].text = u"x";
    }
    chart.workbook.sheets = {big, big, big, big};
    chart.workbook.sheets[3].name = u"Fourth";
    DeckBuilder b;
    b.Slide().Chart(u"Chart 1", chart);
    auto deck = host.AddPresentation(b.Build());
    const RunLists lists = CollectSlide(host, 1);
    EXPECT_EQ(lists.units.size(), 3u * 40u * 16u);
    for (const UnitAddress& a : lists.addresses) {
        EXPECT_LE(a.row, 40);
        EXPECT_LE(a.column, 16);
        EXPECT_NE(a.sheetName, u"Fourth");
    }
    const sim::WorkbookModel& book = deck->slides[0]->shapes[0]->chart->workbook;
    EXPECT_EQ(book.closes, 1);
    EXPECT_FALSE(book.open);
    EXPECT_TRUE(book.screenUpdating);  // given back as it was
    EXPECT_FALSE(book.appVisible);
    EXPECT_FALSE(book.windowVisible);
}

TEST(ChartSlots, AnUnreadableChartIsReportedAndTaken) {
    sim::SimHost host;
    DeckBuilder b;
    b.Slide().Chart(u"Chart 1", sim::SampleChart());
    host.AddPresentation(b.Build());
    FaultRule noChart;
    noChart.objectType = u"Shape";
    noChart.member = u"Chart";
    host.AddFault(noChart);
    const RunLists lists = CollectSlide(host, 1);
    EXPECT_TRUE(lists.units.empty());
    EXPECT_EQ(lists.skippedLabels,
              std::vector<std::u16string>{u"\u7b2c1\u9875\uff1a\u56fe\u8868\u65e0\u6cd5\u8bbf\u95ee"
                                          u"\uff0c\u672a\u7ffb\u8bd1"});
}

TEST(ChartSlots, AChartOnTheNotesPageIsAddressedThere) {
    sim::SimHost host;
    DeckBuilder b;
    b.Slide().Chart(u"Chart 1", test::LinkedChart());
    auto deck = host.AddPresentation(b.Build());
    deck->slides[0]->notesShapes.push_back(deck->slides[0]->shapes[0]);
    deck->slides[0]->shapes.clear();
    const RunLists lists = CollectSlide(host, 1);
    ASSERT_FALSE(lists.addresses.empty());
    for (const UnitAddress& a : lists.addresses)
        EXPECT_EQ(a.onNotesPage, 1);
}

TEST(ChartSlots, ListsAreReadOnlyInTheirShapes) {
    using host::Variant;
    std::vector<Variant> list;
    EXPECT_TRUE(ReadValueList(Variant::Array({Variant::String(u"a"), Variant::R8(1)}, 1), list));
    EXPECT_EQ(list.size(), 2u);
    host::VariantArray column;
    column.lowerBounds = {1, 1};
    column.lengths = {1, 3};
    column.elements = {Variant::String(u"a"), Variant::String(u"b"), Variant()};
    EXPECT_TRUE(ReadValueList(Variant::Array(column), list));
    EXPECT_EQ(list.size(), 3u);
    column.lengths = {2, 2};
    column.elements.push_back(Variant::I4(1));
    EXPECT_FALSE(ReadValueList(Variant::Array(column), list));
    EXPECT_TRUE(ReadValueList(Variant::Array(std::vector<Variant>(1024, Variant::I2(1))), list));
    EXPECT_FALSE(ReadValueList(Variant::Array(std::vector<Variant>(1025, Variant::I2(1))), list))
        << "a longer list gives none, not a cut one";
    EXPECT_FALSE(ReadValueList(Variant::String(u"=Sheet1!A1"), list));
}

TEST(ChartSlots, SheetReferencesAndSeriesFormulasSplitAsTheHostWritesThem) {
    struct Split {
        const char16_t* ref;
        bool ok;
        const char16_t* sheet;
        const char16_t* address;
    };
    const Split splits[] = {
        {u"Sheet1!$B$1", true, u"Sheet1", u"$B$1"},
        {u"'Sheet ''A'''!$B$1", true, u"Sheet 'A'", u"$B$1"},
        {u"'My sheet'!A1:A4", true, u"My sheet", u"A1:A4"},
        {u"a!b!C3", true, u"a!b", u"C3"},
        {u"!A1", false, u"", u""},
        {u"Sheet1!", false, u"", u""},
        {u"A1", false, u"", u""},
    };
    for (const Split& s : splits) {
        std::u16string sheet, address;
        EXPECT_EQ(SplitSheetReference(s.ref, sheet, address), s.ok) << Utf16ToUtf8(s.ref);
        if (s.ok) {
            EXPECT_EQ(sheet, s.sheet);
            EXPECT_EQ(address, s.address);
        }
    }
    std::vector<std::u16string> args;
    ASSERT_TRUE(ParseSeriesFormula(u"=SERIES(\"a,b\",Sheet1!$A$2:$A$5,Sheet1!$B$2:$B$5,1)", args));
    EXPECT_EQ(args, (std::vector<std::u16string>{u"\"a,b\"", u"Sheet1!$A$2:$A$5",
                                                 u"Sheet1!$B$2:$B$5", u"1"}));
    EXPECT_FALSE(ParseSeriesFormula(u"=SERIES(Sheet1!$B$1)", args));
    EXPECT_FALSE(ParseSeriesFormula(u"=SERIES)a,b(", args));
    EXPECT_FALSE(ParseSeriesFormula(u"no formula", args));
}

}  // namespace
}  // namespace qb
