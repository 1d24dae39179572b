// Charts, their data workbook and SmartArt in the simulated host.
#include <gtest/gtest.h>

#include "sim/host/deck_builder.h"
#include "sim/sim_test_support.h"

namespace qb::sim {
namespace {

using namespace test;  // NOLINT: the shortcuts are the point of this file
using host::VarType;

struct ChartFixture : testing::Test {
    void SetUp() override {
        DeckBuilder b;
        b.Slide()
            .Chart(u"Chart 1", SampleChart())
            .SmartArt(u"Diagram", {u"Plan", u"Build", u"Ship"});
        deck = host.AddPresentation(b.Build());
        chartShape = ShapeAt(host, 1, 1);
        chart = Object(chartShape, u"Chart");
    }
    ChartModel& Model() { return *deck->slides[0]->shapes[0]->chart; }

    SimHost host;
    std::shared_ptr<PresentationModel> deck;
    HostRef chartShape, chart;
};

TEST_F(ChartFixture, ChartShapesAnswerTypeAndTitles) {
    EXPECT_EQ(Int(chartShape, u"Type"), 3);
    EXPECT_EQ(Call(chartShape, u"HasChart").BoolValue(), -1);
    EXPECT_EQ(Call(chartShape, u"HasTextFrame").BoolValue(), 0);
    EXPECT_EQ(Call(chart, u"HasTitle").BoolValue(), -1);
    const HostRef title = Object(chart, u"ChartTitle");
    EXPECT_EQ(Text(title), u"Revenue by region");
    EXPECT_EQ(Text(title, u"Caption"), u"Revenue by region");
    const HostRef range2 = Object(Object(title, u"TextFrame2"), u"TextRange");
    EXPECT_EQ(Text(range2), u"Revenue by region");
    ASSERT_EQ(Put(range2, u"Text", Str(u"Umsatz")), S_OK);
    EXPECT_EQ(Model().title.text, u"Umsatz");
}

TEST_F(ChartFixture, LabelsOfferOnlyTheTextRoadsTheHostHas) {
    Model().title.hasText = false;
    const HostRef title = Object(chart, u"ChartTitle");
    Variant v;
    EXPECT_EQ(host::DispGet(title, u"Text", &v), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(Put(title, u"Text", Str(u"x")), DISP_E_UNKNOWNNAME);
    ASSERT_EQ(Put(title, u"Caption", Str(u"By caption")), S_OK);
    EXPECT_EQ(Model().title.text, u"By caption");
}

TEST_F(ChartFixture, AxesAreFoundByTypeAndGroup) {
    // HasAxis(type, group): the seam hands the group first.
    EXPECT_EQ(Call(chart, u"HasAxis", {I4(1), I4(1)}).BoolValue(), -1);
    EXPECT_EQ(Call(chart, u"HasAxis", {I4(2), I4(2)}).BoolValue(), 0);
    const HostRef category = Object(chart, u"Axes", {I4(1), I4(1)});
    EXPECT_EQ(Text(Object(category, u"AxisTitle")), u"Region");
    const HostRef value = Object(chart, u"Axes", {I4(2), I4(1)});
    EXPECT_EQ(Call(value, u"HasTitle").BoolValue(), 0);
    EXPECT_EQ(Text(Object(value, u"DisplayUnitLabel")), u"Thousands");
    Variant v;
    const Variant secondary[] = {I4(2), I4(1)};  // group 2, type 1
    EXPECT_TRUE(FAILED(host::DispCall(chart, u"Axes", secondary, 2, &v)));
    Model().hasHasAxis = false;
    EXPECT_EQ(host::DispCall(chart, u"HasAxis", secondary, 2, &v), DISP_E_UNKNOWNNAME);
}

TEST_F(ChartFixture, CategoriesComeAsOneBasedArraysOfMixedTypes) {
    const HostRef series = Object(Object(chart, u"SeriesCollection"), u"Item", {I4(1)});
    const Variant x = Call(series, u"XValues");
    ASSERT_EQ(x.Type(), VarType::Array);
    const host::VariantArray& array = x.ArrayValue();
    EXPECT_EQ(array.lowerBounds, std::vector<std::int32_t>{1});
    ASSERT_EQ(array.elements.size(), 3u);
    EXPECT_EQ(array.elements[0], Str(u"North"));
    EXPECT_EQ(array.elements[2], Variant::R8(2024));
    ASSERT_EQ(Put(series, u"XValues",
                  Variant::Array({Str(u"Nord"), Str(u"S\u00fcd"), Variant::R8(2024)}, 1)),
              S_OK);
    EXPECT_EQ(Model().series[0].categories,
              (std::vector<std::u16string>{u"Nord", u"S\u00fcd", u"2024"}));
    const Variant names = Call(Object(chart, u"Axes", {I4(1), I4(1)}), u"CategoryNames");
    EXPECT_EQ(names.ArrayValue().elements[1], Str(u"S\u00fcd"));
    EXPECT_EQ(Put(series, u"XValues", Str(u"not an array")), DISP_E_TYPEMISMATCH);
}

TEST_F(ChartFixture, XValuesMayComeAsATwoDimensionalArray) {
    Model().xValuesTwoDimensional = true;
    const Variant x = Call(Object(chart, u"SeriesCollection", {I4(2)}), u"XValues");
    EXPECT_EQ(x.ArrayValue().lengths, (std::vector<std::uint32_t>{3, 1}));
    EXPECT_EQ(x.ArrayValue().lowerBounds, (std::vector<std::int32_t>{1, 1}));
    EXPECT_EQ(x.ArrayValue().elements[1], Str(u"South"));
}

TEST_F(ChartFixture, SomeHostsAnswerOnlySeriesCollectionWithAnIndex) {
    Model().seriesCollectionAsProperty = false;
    Variant v;
    EXPECT_TRUE(FAILED(host::DispGet(chart, u"SeriesCollection", &v)));
    EXPECT_EQ(Text(Object(chart, u"SeriesCollection", {I4(2)}), u"Name"), u"Costs");
}

TEST_F(ChartFixture, DataLabelsTellWhatTheyShow) {
    const HostRef series = Object(chart, u"SeriesCollection", {I4(1)});
    EXPECT_EQ(Call(series, u"HasDataLabels").BoolValue(), -1);
    const HostRef labels = Object(series, u"DataLabels");
    EXPECT_EQ(Int(labels, u"Count"), 2);
    const HostRef own = Object(labels, u"Item", {I4(1)});
    EXPECT_EQ(Text(own), u"Best quarter");
    EXPECT_EQ(Call(own, u"ShowValue").BoolValue(), 0);
    EXPECT_EQ(Call(Object(labels, u"Item", {I4(2)}), u"ShowValue").BoolValue(), -1);
    Model().series[0].dataLabels[0].hasShowBubbleSize = false;
    Variant v;
    EXPECT_EQ(host::DispGet(own, u"ShowBubbleSize", &v), DISP_E_UNKNOWNNAME);
    EXPECT_TRUE(
        FAILED(host::DispGet(Object(chart, u"SeriesCollection", {I4(2)}), u"DataLabels", &v)));
}

TEST_F(ChartFixture, TheWorkbookOpensOnlyAfterActivate) {
    const HostRef data = Object(chart, u"ChartData");
    EXPECT_EQ(Call(data, u"IsLinked").BoolValue(), 0);
    Variant v;
    EXPECT_TRUE(FAILED(host::DispGet(data, u"Workbook", &v)));
    Call(data, u"Activate");
    const HostRef book = Object(data, u"Workbook");
    const HostRef sheet = Object(Object(book, u"Worksheets"), u"Item", {Str(u"sheet1")});
    EXPECT_EQ(Text(sheet, u"Name"), u"Sheet1");
    EXPECT_EQ(Text(Object(sheet, u"Cells", {I4(1), I4(2)})), u"Sales");
    EXPECT_EQ(Text(Object(sheet, u"Range", {Str(u"$A$4")})), u"2024");
    const HostRef used = Object(sheet, u"UsedRange");
    EXPECT_EQ(Int(used, u"Row"), 1);
    EXPECT_EQ(Int(Object(used, u"Rows"), u"Count"), 4);
    EXPECT_EQ(Int(Object(used, u"Columns"), u"Count"), 3);
    EXPECT_EQ(Text(Object(used, u"Cells", {I4(2), I4(1)})), u"North");
    Call(book, u"Close", {I4(-1)});
    EXPECT_EQ(Model().workbook.closes, 1);
    EXPECT_TRUE(FAILED(host::DispGet(data, u"Workbook", &v)));
    EXPECT_TRUE(FAILED(host::DispGet(sheet, u"Name", &v)));  // a closed book's objects fail
}

TEST_F(ChartFixture, CellEditsReachTheChartOnlyAfterARefresh) {
    const HostRef data = Object(chart, u"ChartData");
    Call(data, u"Activate");
    const HostRef sheet =
        Object(Object(Object(data, u"Workbook"), u"Worksheets"), u"Item", {I4(1)});
    ASSERT_EQ(Put(Object(sheet, u"Cells", {I4(1), I4(2)}), u"Value", Str(u"Umsatz")), S_OK);
    ASSERT_EQ(Put(Object(sheet, u"Cells", {I4(2), I4(1)}), u"Value2", Str(u"Nord")), S_OK);
    const HostRef series = Object(chart, u"SeriesCollection", {I4(1)});
    EXPECT_EQ(Text(series, u"Name"), u"Sales");
    Call(chart, u"Refresh");
    EXPECT_EQ(Text(series, u"Name"), u"Umsatz");
    EXPECT_EQ(Call(series, u"XValues").ArrayValue().elements[0], Str(u"Nord"));
    // A number cell keeps its type on the way to the chart.
    EXPECT_EQ(Call(series, u"XValues").ArrayValue().elements[2], Variant::R8(2024));
}

TEST_F(ChartFixture, SmartArtNodesGiveTopLevelNodesOnly) {
    const HostRef shape = ShapeAt(host, 1, 2);
    EXPECT_EQ(Call(shape, u"HasSmartArt").BoolValue(), -1);
    const HostRef nodes = Object(Object(shape, u"SmartArt"), u"Nodes");
    EXPECT_EQ(Int(nodes, u"Count"), 3);
    const HostRef text =
        Object(Object(Object(nodes, u"Item", {I4(2)}), u"TextFrame2"), u"TextRange");
    EXPECT_EQ(Text(text), u"Build");
    ASSERT_EQ(Put(text, u"Text", Str(u"Bauen")), S_OK);
    EXPECT_EQ(deck->slides[0]->shapes[1]->smartArt->nodes[1].text, u"Bauen");
    deck->slides[0]->shapes[1]->smartArt->usable = false;
    Variant v;
    EXPECT_TRUE(FAILED(host::DispGet(Object(shape, u"SmartArt"), u"Nodes", &v)));
}

TEST_F(ChartFixture, ADuplicatedSlideHasItsOwnChart) {
    Call(Object(SlidesOf(host), u"Item", {I4(1)}), u"Duplicate");
    const HostRef copyChart = Object(ShapeAt(host, 2, 1), u"Chart");
    ASSERT_EQ(Put(Object(copyChart, u"ChartTitle"), u"Text", Str(u"Copy")), S_OK);
    EXPECT_EQ(Text(Object(chart, u"ChartTitle")), u"Revenue by region");
}

}  // namespace
}  // namespace qb::sim
