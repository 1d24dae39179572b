// Chart writeback through the chart's objects: labels one by one, category
// lists as a whole with numbers and dates left as they were.
#include <gtest/gtest.h>

#include "charts/chart_test_support.h"
#include "charts/chart_writeback.h"
#include "support/trace_lines.h"

namespace qb {
namespace {

using host::Variant;
using sim::ChartModel;
using sim::DeckBuilder;
using sim::FaultRule;

struct ChartWriteFixture : testing::Test {
    void Load(ChartModel chart) {
        DeckBuilder b;
        b.Slide().Chart(u"Chart 1", std::move(chart));
        deck = host.AddPresentation(b.Build());
        shape = sim::test::ShapeAt(host, 1, 1);
    }
    ChartModel& Model() { return *deck->slides[0]->shapes[0]->chart; }

    sim::SimHost host;
    std::shared_ptr<sim::PresentationModel> deck;
    host::HostRef shape;
};

UnitAddress Address(UnitKind kind, std::int32_t axisType = 0, std::int32_t axisGroup = 1,
                    std::int32_t series = 0, std::int32_t item = 0) {
    UnitAddress a;
    a.kind = kind;
    a.slideIndex = 1;
    a.shapePath = {1};
    a.axisType = axisType;
    a.axisGroup = axisGroup;
    a.seriesIndex = series;
    a.itemIndex = item;
    return a;
}

TEST_F(ChartWriteFixture, EachLabelKindIsWrittenWhereItWasFound) {
    Load(test::LinkedChart());
    EXPECT_TRUE(ApplyChartUnit(shape, Address(UnitKind::ChartTitle), u"Umsatz\r\nnach Region"));
    EXPECT_EQ(Model().title.text, u"Umsatz nach Region") << "one line, one blank for the break";
    EXPECT_TRUE(ApplyChartUnit(shape, Address(UnitKind::AxisTitle, 1, 0), u"Gebiet"))
        << "a group of 0 means the primary axis";
    EXPECT_EQ(Model().axes[0].title.text, u"Gebiet");
    EXPECT_TRUE(ApplyChartUnit(shape, Address(UnitKind::DisplayUnit, 2, 1), u"Tausend"));
    EXPECT_EQ(Model().axes[1].displayUnitLabel.text, u"Tausend");
    EXPECT_TRUE(ApplyChartUnit(shape, Address(UnitKind::DataLabel, 0, 1, 1, 1), u"Bestes"));
    EXPECT_EQ(Model().series[0].dataLabels[0].label.text, u"Bestes");
    EXPECT_EQ(Model().series[0].dataLabels[1].label.text, u"300");
    EXPECT_TRUE(ApplyChartUnit(shape, Address(UnitKind::SeriesName, 0, 1, 2), u"Kosten"));
    EXPECT_EQ(Model().series[1].name, u"Kosten");
    EXPECT_FALSE(ApplyChartUnit(shape, Address(UnitKind::Category), u"x"))
        << "categories go as a group";
    EXPECT_FALSE(ApplyChartUnit(shape, Address(UnitKind::ChartTitle), u"\r\n"));
    EXPECT_EQ(Model().title.text, u"Umsatz nach Region");
}

TEST_F(ChartWriteFixture, ALabelIsWrittenByTheFirstRoadItsHostOffers) {
    Load(test::LinkedChart());
    Model().title.hasText = false;
    Model().axes[0].title.hasText = false;
    Model().axes[0].title.hasCaption = false;
    EXPECT_TRUE(ApplyChartUnit(shape, Address(UnitKind::ChartTitle), u"Titel"));
    EXPECT_EQ(Model().title.text, u"Titel");
    EXPECT_TRUE(ApplyChartUnit(shape, Address(UnitKind::AxisTitle, 1, 1), u"Gebiet"));
    EXPECT_EQ(Model().axes[0].title.text, u"Gebiet");
    EXPECT_EQ(host.Calls(u"TextRange2", u"Text="), 1u);
}

TEST_F(ChartWriteFixture, NoLabelIsCreatedAndAnEmbeddedSeriesNameIsLeftToTheSheet) {
    Load(sim::SampleChart());
    Model().hasTitle = false;
    EXPECT_FALSE(ApplyChartUnit(shape, Address(UnitKind::ChartTitle), u"Titel"));
    EXPECT_FALSE(Model().hasTitle);
    EXPECT_EQ(Model().title.text, u"Revenue by region");
    EXPECT_FALSE(ApplyChartUnit(shape, Address(UnitKind::AxisTitle, 2, 1), u"Wert"));
    EXPECT_FALSE(ApplyChartUnit(shape, Address(UnitKind::DisplayUnit, 1, 1), u"Wert"));
    EXPECT_FALSE(ApplyChartUnit(shape, Address(UnitKind::DataLabel, 0, 1, 2, 1), u"x"));
    EXPECT_FALSE(ApplyChartUnit(shape, Address(UnitKind::DataLabel, 0, 1, 1, 3), u"x"));
    EXPECT_TRUE(ApplyChartUnit(shape, Address(UnitKind::SeriesName, 0, 1, 1), u"Umsatz"));
    EXPECT_EQ(Model().series[0].name, u"Sales");
    EXPECT_EQ(host.Calls(u"Series", u"Name="), 0u);
}

TEST(ChartCategories, EditsReplaceTextEntriesAndKeepNumbersAsTheyWere) {
    const Variant list = Variant::Array(
        {Variant::String(u"Q1"), Variant::R8(2020), Variant::String(u" Q3 "), Variant()}, 1);
    const std::vector<CategoryEdit> edits = {{0, u"Q1", u"Erstes"}, {2, u"Q3", u"Drittes"}};
    Variant out;
    ASSERT_TRUE(BuildCategoryArray(list, edits, true, out));
    EXPECT_EQ(out, Variant::Array({Variant::String(u"Erstes"), Variant::R8(2020),
                                   Variant::String(u"Drittes"), Variant()},
                                  1));
    EXPECT_FALSE(BuildCategoryArray(list, {{4, u"x", u"y"}}, false, out)) << "outside the list";
    EXPECT_FALSE(BuildCategoryArray(list, {{0, u"Q1", u"a"}, {1, u"Q2", u"b"}}, true, out))
        << "one stale position stops them all";
    EXPECT_TRUE(BuildCategoryArray(list, {{1, u"Q2", u"b"}}, false, out));
    EXPECT_FALSE(BuildCategoryArray(Variant::String(u"Q1"), edits, false, out));
}

RunLists CategoryUnits(const std::vector<std::pair<std::u16string, std::u16string>>& texts,
                       bool useAxis = false) {
    RunLists lists;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        UnitAddress a = Address(UnitKind::Category);
        a.itemIndex = static_cast<std::int32_t>(i);
        a.useAxisCategories = useAxis ? 1 : 0;
        lists.addresses.push_back(a);
        TextUnit unit;
        unit.unitId = u"shapes[1].category(" + DecimalText(static_cast<long long>(i)) + u")";
        lists.units.push_back(unit);
        lists.texts.push_back(texts[i].first);
        lists.translations.push_back(texts[i].second);
    }
    return lists;
}

std::vector<std::size_t> All(const RunLists& lists) {
    std::vector<std::size_t> group;
    for (std::size_t i = 0; i < lists.addresses.size(); ++i)
        group.push_back(i);
    return group;
}

TEST_F(ChartWriteFixture, ALinkedChartsCategoriesGoToEachSeriesThatSharesThem) {
    ChartModel chart = test::LinkedChart();
    chart.series[1].categories = {u"East", u"West", u"2024"};
    Load(chart);
    const RunLists lists = CategoryUnits({{u"North", u"Nord"}, {u"South", u"S\u00fcd"}});
    std::int32_t count = 0;
    test::TraceLines trace;
    ASSERT_TRUE(ApplyCategoryGroup(shape, lists, All(lists), count));
    EXPECT_EQ(count, 2);
    EXPECT_TRUE(trace.Has(u"PptCtrl chart apply categories"));
    EXPECT_EQ(Model().series[0].categories,
              (std::vector<std::u16string>{u"Nord", u"S\u00fcd", u"2024"}));
    EXPECT_EQ(Model().series[0].categoryIsNumber, (std::vector<bool>{false, false, true}));
    EXPECT_EQ(Model().series[1].categories,
              (std::vector<std::u16string>{u"East", u"West", u"2024"}));
    // The axis shows series 1's list, new already: its check fails and it
    // isn't put a second time.
    EXPECT_EQ(host.Calls(u"Axis", u"CategoryNames="), 0u);
    const host::HostRef axis = sim::test::Object(sim::test::Object(shape, u"Chart"), u"Axes",
                                                 {sim::test::I4(1), sim::test::I4(1)});
    EXPECT_EQ(sim::test::Call(axis, u"CategoryNames").ArrayValue().elements[0],
              Variant::String(u"Nord"));
}

TEST_F(ChartWriteFixture, CategoryWritesThatPartlyFailOrChangeNothing) {
    Load(test::LinkedChart());
    FaultRule xValues;
    xValues.objectType = u"Series";
    xValues.member = u"XValues";
    xValues.access = FaultRule::Access::Put;
    host.AddFault(xValues);
    RunLists lists = CategoryUnits({{u"North", u"Nord"}, {u"South", u"South"}});
    std::int32_t count = 0;
    EXPECT_TRUE(ApplyCategoryGroup(shape, lists, All(lists), count))
        << "the axis put alone is success";
    EXPECT_EQ(count, 1);
    EXPECT_EQ(Model().axisCategoryNames, (std::vector<std::u16string>{u"Nord", u"South", u"2024"}));

    FaultRule axis;
    axis.objectType = u"Axis";
    axis.member = u"CategoryNames";
    axis.access = FaultRule::Access::Put;
    host.AddFault(axis);
    EXPECT_FALSE(ApplyCategoryGroup(shape, lists, All(lists), count));
    EXPECT_EQ(count, 0);

    lists = CategoryUnits({{u"North", u"North"}, {u"South", u""}});
    test::TraceLines trace;
    EXPECT_TRUE(ApplyCategoryGroup(shape, lists, All(lists), count));
    EXPECT_EQ(count, 0);
    EXPECT_TRUE(trace.Has(u"PptCtrl chart categories unchanged"));
}

TEST_F(ChartWriteFixture, AxisCategoriesAreCheckedOnlyWhenTheyCameFromSeries) {
    ChartModel chart = test::LinkedChart();
    chart.series.resize(1);
    chart.series[0].categories = {u"1", u"2", u"3"};
    chart.series[0].categoryIsNumber = {true, true, true};
    chart.axisCategoryNames = {u"Alpha", u"2", u"Gamma"};
    Load(chart);
    const RunLists lists = CategoryUnits({{u"Alpha", u"Alfa"}, {u"Gamma", u"Gamma-DE"}}, true);
    RunLists shifted = lists;
    shifted.addresses[1].itemIndex = 2;
    std::int32_t count = 0;
    ASSERT_TRUE(ApplyCategoryGroup(shape, shifted, All(shifted), count));
    EXPECT_EQ(Model().axisCategoryNames, (std::vector<std::u16string>{u"Alfa", u"2", u"Gamma-DE"}));
    EXPECT_EQ(Model().series[0].categories, (std::vector<std::u16string>{u"1", u"2", u"3"}))
        << "series lists are not touched for axis categories";
}

TEST_F(ChartWriteFixture, AnEmbeddedChartsCategoriesAreLeftToTheSheet) {
    Load(sim::SampleChart());
    const RunLists lists = CategoryUnits({{u"North", u"Nord"}});
    std::int32_t count = 0;
    EXPECT_TRUE(ApplyCategoryGroup(shape, lists, All(lists), count));
    EXPECT_EQ(Model().series[0].categories[0], u"North");
    EXPECT_EQ(host.Calls(u"Series", u"XValues="), 0u);
}

}  // namespace
}  // namespace qb
