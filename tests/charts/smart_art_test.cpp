// SmartArt nodes as units, and their writeback into the same node.
#include <gtest/gtest.h>

#include "charts/chart_test_support.h"
#include "charts/chart_writeback.h"

namespace qb {
namespace {

using sim::DeckBuilder;
using sim::FaultRule;
using test::UnitIds;
using Ids = std::vector<std::string>;

TEST(SmartArt, EachNodeWithWordsIsOneUnitNumberedByItsPlace) {
    sim::SimHost host;
    DeckBuilder b;
    b.Slide().SmartArt(u"Diagram", {u"Plan", u"", u" Build ", u"2024", u"", u"Test", u"Ship", u"",
                                    u"Learn", u"Grow"});
    host.AddPresentation(b.Build());
    const RunLists lists = test::CollectSlide(host, 1);
    EXPECT_EQ(UnitIds(lists), (Ids{"shapes[1].smartart(1)=Plan", "shapes[1].smartart(3)= Build ",
                                   "shapes[1].smartart(6)=Test", "shapes[1].smartart(7)=Ship",
                                   "shapes[1].smartart(9)=Learn", "shapes[1].smartart(10)=Grow"}))
        << "not trimmed, and a node of only a number gives none";
    ASSERT_EQ(lists.addresses.size(), 6u);
    EXPECT_EQ(lists.addresses[1].kind, UnitKind::SmartArtNode);
    EXPECT_EQ(lists.addresses[1].smartArtNode, 3);
    EXPECT_EQ(lists.skippedSmartArt, 0);
}

TEST(SmartArt, AGraphicThatCantBeReadIsCountedOrPassedOver) {
    struct Case {
        const char* name;
        FaultRule rule;
        std::int32_t skipped;
        std::size_t units;
    };
    const auto rule = [](const char16_t* type, const char16_t* member, bool missing = false,
                         std::int32_t nth = 0) {
        FaultRule r;
        r.objectType = type;
        r.member = member;
        r.missing = missing;
        r.nth = nth;
        return r;
    };
    const Case cases[] = {
        {"Nodes refused", rule(u"SmartArt", u"Nodes"), 1, 0},
        {"SmartArt refused", rule(u"Shape", u"SmartArt"), 1, 0},
        {"no HasSmartArt: the text frame step gets it", rule(u"Shape", u"HasSmartArt", true), 0, 0},
        {"an unreadable count", rule(u"SmartArtNodes", u"Count"), 0, 0},
        {"one node unreadable", rule(u"SmartArtNode", u"TextFrame2", false, 2), 0, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        sim::SimHost host;
        DeckBuilder b;
        b.Slide().SmartArt(u"Diagram", {u"Plan", u"Build", u"Ship"});
        host.AddPresentation(b.Build());
        host.AddFault(c.rule);
        const RunLists lists = test::CollectSlide(host, 1);
        EXPECT_EQ(lists.skippedSmartArt, c.skipped);
        EXPECT_EQ(lists.units.size(), c.units);
    }
}

TEST(SmartArt, ANodeIsWrittenInPlaceAndAMissingNodeFails) {
    sim::SimHost host;
    DeckBuilder b;
    b.Slide().SmartArt(u"Diagram", {u"Plan", u"Build"});
    auto deck = host.AddPresentation(b.Build());
    const host::HostRef shape = sim::test::ShapeAt(host, 1, 1);
    UnitAddress a;
    a.kind = UnitKind::SmartArtNode;
    a.smartArtNode = 2;
    EXPECT_TRUE(ApplyChartUnit(shape, a, u"Bauen\r\n"));
    auto& nodes = deck->slides[0]->shapes[0]->smartArt->nodes;
    EXPECT_EQ(nodes[1].text, u"Bauen");
    EXPECT_EQ(nodes[0].text, u"Plan");
    EXPECT_EQ(nodes[1].children[0].text, u"Detail of Build");
    a.smartArtNode = 3;
    EXPECT_FALSE(ApplyChartUnit(shape, a, u"Neu"));
    a.smartArtNode = 1;
    FaultRule put;
    put.objectType = u"TextRange2";
    put.member = u"Text";
    put.access = FaultRule::Access::Put;
    host.AddFault(put);
    EXPECT_FALSE(ApplyChartUnit(shape, a, u"Planen"));
    EXPECT_EQ(nodes[0].text, u"Plan");
}

}  // namespace
}  // namespace qb
