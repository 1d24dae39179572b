// Shape paths: every collected address leads back to its shape, a selected
// shape is found again wherever it stands, and a path that no longer holds
// fails instead of reaching something else.
#include <gtest/gtest.h>

#include "foundation/text.h"
#include "sim/host/deck_builder.h"
#include "sim/sim_test_support.h"
#include "slides/collect.h"
#include "slides/shape_path.h"
#include "support/trace_lines.h"

namespace qb {
namespace {

using host::HostRef;
using sim::DeckBuilder;
using sim::SimHost;
using namespace sim::test;  // NOLINT: the shortcuts are the point of these tests

std::shared_ptr<sim::PresentationModel> RichDeck() {
    DeckBuilder b;
    b.Slide().Text(u"Title", u"Title text");
    b.BeginGroup(u"Outer").Text(u"A", u"alpha").BeginGroup(u"Inner").Text(u"B", u"beta");
    b.Table(u"Nested table", 1, 2, {u"c1", u"c2"}).EndGroup().EndGroup();
    b.Table(u"Grid", 2, 1, {u"r1", u"r2"});
    b.Notes(u"Notes text");
    b.Slide().Text(u"Second", u"On slide two");
    return b.Build();
}

TEST(ShapeKey, NamesPathsAsTheLogShowsThem) {
    EXPECT_EQ(ShapeKey(std::vector<std::int32_t>{}), u"shapes");
    EXPECT_EQ(ShapeKey(std::vector<std::int32_t>{3, 2}), u"shapes[3][2]");
    ShapePath path;
    for (int i = 0; i < 40; ++i)
        path = path.Child(i + 1);
    EXPECT_EQ(path.depth, 32u);  // a walk can't go deeper
    std::u16string expected = u"shapes";
    for (int i = 1; i <= 32; ++i)
        expected += u"[" + DecimalText(i) + u"]";
    EXPECT_EQ(ShapeKey(path), expected);
    EXPECT_EQ(ShapeKey(std::vector<std::int32_t>(40, 1)).size(), 6u + 32u * 3u);
}

// Every unit a walk gives can be found again from its address alone, on
// hosts that keep identities and hosts that don't, and on the direct Item.
TEST(LocateShape, LeadsEveryCollectedAddressBackToItsShape) {
    for (int habit = 0; habit < 2; ++habit) {
        SimHost host;
        host.AddPresentation(RichDeck());
        host.itemOnlyDirect = habit == 1;
        host.unstableShapeIdentity = habit == 1;
        RunContext run;
        run.application = Root(host);
        run.window = Object(Object(run.application, u"Windows"), u"Item", {I4(1)});
        run.presentation = Object(run.window, u"Presentation");
        RunLists lists;
        std::u16string message;
        ASSERT_EQ(CollectDeck(run, true, lists, message), S_OK);
        ASSERT_EQ(lists.units.size(), 9u);
        const HostRef slides = Object(run.presentation, u"Slides");
        for (std::size_t i = 0; i < lists.units.size(); ++i) {
            const UnitAddress& a = lists.addresses[i];
            HostRef shape;
            const HRESULT hr = a.onNotesPage ? LocateNotesShape(slides, a.slideIndex, a, shape)
                                             : LocateShape(slides, a.slideIndex, a, shape);
            ASSERT_EQ(hr, S_OK) << Utf16ToUtf8(lists.units[i].unitId);
            if (a.kind == UnitKind::TableCell) {
                const HostRef table = Object(shape, u"Table");
                shape =
                    Object(Call(table, u"Cell", {I4(a.row), I4(a.column)}).ObjectValue(), u"Shape");
            }
            EXPECT_EQ(Text(FrameRange(shape)), lists.texts[i])
                << Utf16ToUtf8(lists.units[i].unitId);
        }
    }
}

TEST(LocateShape, APathThatNoLongerHoldsFails) {
    SimHost host;
    auto deck = host.AddPresentation(RichDeck());
    const HostRef slides = SlidesOf(host);
    const struct {
        const char* name;
        std::vector<std::int32_t> path;
        std::int32_t slide;
    } cases[] = {
        {"empty path", {}, 1},
        {"no such shape", {9}, 1},
        {"no such slide", {1}, 5},
        {"not a group", {1, 1}, 1},
        {"no such group item", {2, 7}, 1},
        {"deeper than a walk goes", std::vector<std::int32_t>(33, 1), 1},
    };
    for (const auto& c : cases) {
        UnitAddress address;
        address.shapePath = c.path;
        HostRef shape;
        EXPECT_EQ(LocateShape(slides, c.slide, address, shape), E_FAIL) << c.name;
        EXPECT_FALSE(shape) << c.name;
    }
    UnitAddress notes;
    notes.shapePath = {2};
    HostRef shape;
    EXPECT_EQ(LocateNotesShape(slides, 1, notes, shape), E_FAIL);
}

TEST(LocateShape, APathOfThirtyTwoLevelsStillLeadsToItsShape) {
    DeckBuilder b;
    b.Slide();
    for (int i = 0; i < 31; ++i)
        b.BeginGroup(u"G");
    b.Text(u"Deep", u"deepest");
    SimHost host;
    host.AddPresentation(b.Build());
    UnitAddress address;
    address.shapePath.assign(32, 1);
    HostRef shape;
    ASSERT_EQ(LocateShape(SlidesOf(host), 1, address, shape), S_OK);
    EXPECT_EQ(Text(shape, u"Name"), u"Deep");
}

TEST(FindSelectedShape, FindsShapesInGroupsCellsAndOnNotesPages) {
    for (bool unstable : {false, true}) {
        SimHost host;
        host.AddPresentation(RichDeck());
        host.unstableShapeIdentity = unstable;
        const HostRef slide = Object(SlidesOf(host), u"Item", {I4(1)});
        const HostRef outer = Object(Object(slide, u"Shapes"), u"Item", {I4(2)});
        const HostRef inner = Object(Object(outer, u"GroupItems"), u"Item", {I4(2)});
        const HostRef beta = Object(Object(inner, u"GroupItems"), u"Item", {I4(1)});
        const HostRef nested = Object(Object(inner, u"GroupItems"), u"Item", {I4(2)});
        const HostRef cell =
            Object(Call(Object(nested, u"Table"), u"Cell", {I4(1), I4(2)}).ObjectValue(), u"Shape");
        const HostRef note =
            Object(Object(Object(slide, u"NotesPage"), u"Shapes"), u"Item", {I4(1)});

        SelectedShape found;
        ASSERT_TRUE(FindSelectedShape(slide, beta, false, found));
        EXPECT_EQ(found.path, (std::vector<std::int32_t>{2, 2, 1}));
        EXPECT_EQ(found.slideIndex, 1);
        EXPECT_EQ(found.row, 0);

        // A cell's shape has neither an id nor a name: only a host that keeps
        // identities lets it be found.
        SelectedShape inCell;
        ASSERT_EQ(FindSelectedShape(slide, cell, false, inCell), !unstable);
        if (!unstable) {
            EXPECT_EQ(inCell.path, (std::vector<std::int32_t>{2, 2, 2}));  // ends at the table
            EXPECT_EQ(std::make_pair(inCell.row, inCell.column), std::make_pair(1, 2));
        }

        SelectedShape onNotes;
        EXPECT_FALSE(FindSelectedShape(slide, cell, true, onNotes));
        ASSERT_TRUE(FindSelectedShape(slide, note, true, onNotes));
        EXPECT_TRUE(onNotes.notes);
        EXPECT_EQ(onNotes.path, std::vector<std::int32_t>{1});
    }
}

TEST(SameShape, FallsBackOnIdThenName) {
    SimHost host;
    host.AddPresentation(RichDeck());
    host.unstableShapeIdentity = true;
    const HostRef a = ShapeAt(host, 1, 1);
    const HostRef again = ShapeAt(host, 1, 1);
    const HostRef other = ShapeAt(host, 1, 3);
    EXPECT_FALSE(host::SameIdentity(a, again));
    EXPECT_TRUE(SameShape(a, again));
    EXPECT_FALSE(SameShape(a, other));
    EXPECT_FALSE(SameShape(a, nullptr));
    // Without ids the names decide.
    sim::FaultRule noId;
    noId.objectType = u"Shape";
    noId.member = u"Id";
    noId.missing = true;
    host.AddFault(noId);
    EXPECT_TRUE(SameShape(a, again));
    EXPECT_FALSE(SameShape(a, other));
}

TEST(LogShapeUnreadable, WritesOnlyTheFirstEightLinesOfAProcess) {
    ResetShapeUnreadableLogForTesting();
    test::TraceLines trace;
    for (int i = 0; i < 12; ++i)
        LogShapeUnreadable(u"Type");
    EXPECT_EQ(trace.Count(u"PptCtrl shape Type unreadable"), 8u);
    EXPECT_EQ(trace.Count(u"PptCtrl shape Type unreadable (further failures not logged)\r\n"), 1u);
    ResetShapeUnreadableLogForTesting();
}

}  // namespace
}  // namespace qb
