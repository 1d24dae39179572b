// The simulated host keeps the habits the engine relies on, fails where it
// is told to, and counts every call.
#include <gtest/gtest.h>

#include "foundation/text.h"
#include "sim/host/deck_builder.h"
#include "sim/host/sim_metrics.h"
#include "sim/sim_test_support.h"

namespace qb::sim {
namespace {

using namespace test;  // NOLINT: the shortcuts are the point of this file
using host::VarType;

std::shared_ptr<PresentationModel> TwoSlides() {
    DeckBuilder b;
    b.Slide().Text(u"Title 1", u"Quarterly report").Text(u"Body", u"First\rSecond\r\rLast");
    b.Notes(u"Speaker notes");
    b.Slide().Tag(u"Quillbrook.BilingualCopyOf", u"256").Text(u"Only", u"Alone");
    return b.Build();
}

TEST(SimHost, ReachesShapesThroughWindowsAndSlides) {
    SimHost host;
    host.AddPresentation(TwoSlides());
    const HostRef slides = SlidesOf(host);
    EXPECT_EQ(Int(slides, u"Count"), 2);
    const HostRef slide = Object(slides, u"Item", {I4(1)});
    EXPECT_TRUE(slide->Answers(host::HostInterface::Slide));
    EXPECT_EQ(Int(slide, u"SlideIndex"), 1);
    EXPECT_EQ(Int(slide, u"SlideID"), 256);
    const HostRef shapes = Object(slide, u"Shapes");
    EXPECT_EQ(Int(shapes, u"Count"), 2);
    HostRef byName, direct;
    ASSERT_EQ(host::GetItem(shapes, 2, byName), S_OK);
    ASSERT_EQ(host::GetItemDirect(shapes, 2, direct), S_OK);
    EXPECT_TRUE(host::SameIdentity(byName, direct));
    EXPECT_EQ(Text(byName, u"Name"), u"Body");
    // Booleans are -1 and 0, as the host has them.
    const Variant has = Call(byName, u"HasTextFrame");
    EXPECT_EQ(has.Type(), VarType::Bool);
    EXPECT_EQ(has.BoolValue(), -1);
    EXPECT_EQ(Call(byName, u"HasTable").BoolValue(), 0);
    // Names ignore case, as GetIDsOfNames does.
    EXPECT_EQ(Int(shapes, u"COUNT"), 2);
    const HostRef notes = Object(Object(slide, u"NotesPage"), u"Shapes");
    EXPECT_EQ(Text(FrameRange(Object(notes, u"Item", {I4(1)}))), u"Speaker notes");
}

TEST(SimHost, OutOfRangeAndMissingMembersFailTheWayTheHostDoes) {
    SimHost host;
    host.AddPresentation(TwoSlides());
    const HostRef slides = SlidesOf(host);
    HostRef out;
    EXPECT_TRUE(FAILED(host::GetItem(slides, 3, out)));
    EXPECT_TRUE(FAILED(host::GetItem(slides, 0, out)));
    Variant v;
    EXPECT_EQ(host::DispGet(slides, u"NoSuchMember", &v), DISP_E_UNKNOWNNAME);
    const HostRef shape = ShapeAt(host, 1, 1);
    EXPECT_TRUE(FAILED(host::DispGet(shape, u"GroupItems", &v)));  // not a group
    EXPECT_TRUE(FAILED(host::DispGet(shape, u"Table", &v)));
    EXPECT_EQ(host::DispItem(slides, 1, out), E_NOINTERFACE);  // a slide is no shape
}

TEST(SimHost, ItemOnlyOnTheDirectWayIsServedByTheFallback) {
    SimHost host;
    host.AddPresentation(TwoSlides());
    host.itemOnlyDirect = true;
    HostRef slide;
    ASSERT_EQ(host::GetItem(SlidesOf(host), 1, slide), S_OK);
    const HostRef shapes = Object(slide, u"Shapes");
    Variant v;
    const Variant arg = I4(1);
    EXPECT_EQ(host::DispCall(shapes, u"Item", &arg, 1, &v), DISP_E_UNKNOWNNAME);
    HostRef shape;
    ASSERT_EQ(host::GetItem(shapes, 1, shape), S_OK);
    EXPECT_EQ(Text(shape, u"Name"), u"Title 1");
    EXPECT_EQ(host.Calls(u"Shapes", u"Item"), 2u);
    EXPECT_EQ(host.Calls(u"Shapes", u"()"), 1u);
}

TEST(SimHost, ParagraphsEndInCrExceptTheLast) {
    SimHost host;
    DeckBuilder b;
    b.Slide().Text(u"Body", u"First\rSoft\vbreak\r\rLast");
    host.AddPresentation(b.Build());
    const HostRef range = FrameRange(ShapeAt(host, 1, 1));
    const HostRef all = Object(range, u"Paragraphs", {I4(-1), I4(-1)});
    EXPECT_EQ(Int(all, u"Count"), 4);
    const struct {
        std::int32_t index;
        std::u16string text;
        std::int32_t start, length;
    } cases[] = {
        {1, u"First\r", 1, 6},
        {2, u"Soft\vbreak\r", 7, 11},
        {3, u"\r", 18, 1},  // an empty paragraph is a lone CR
        {4, u"Last", 19, 4},
    };
    for (const auto& c : cases) {
        const HostRef p = Object(range, u"Paragraphs", {I4(c.index), I4(1)});
        EXPECT_EQ(Text(p), c.text) << c.index;
        EXPECT_EQ(Int(p, u"Start"), c.start) << c.index;
        EXPECT_EQ(Int(p, u"Length"), c.length) << c.index;
    }
    // Past the end: an empty range, not a failure.
    EXPECT_EQ(Int(Object(range, u"Paragraphs", {I4(9), I4(1)}), u"Length"), 0);
}

TEST(SimHost, CharactersCountFromTheRangeTheyAreAskedOf) {
    SimHost host;
    DeckBuilder b;
    b.Slide().Text(u"Body", u"Alpha\rBravo charlie");
    host.AddPresentation(b.Build());
    const HostRef range = FrameRange(ShapeAt(host, 1, 1));
    // On the frame's range the start is absolute over the frame.
    const HostRef frameChars = Object(range, u"Characters", {I4(7), I4(5)});
    EXPECT_EQ(Text(frameChars), u"Bravo");
    EXPECT_EQ(Int(frameChars, u"Start"), 7);
    // On a paragraph it is relative to the paragraph.
    const HostRef second = Object(range, u"Paragraphs", {I4(2), I4(1)});
    const HostRef paragraphChars = Object(second, u"Characters", {I4(7), I4(7)});
    EXPECT_EQ(Text(paragraphChars), u"charlie");
    EXPECT_EQ(Int(paragraphChars, u"Start"), 13);
    // A length past the range is cut at its end.
    EXPECT_EQ(Text(Object(second, u"Characters", {I4(1), I4(99)})), u"Bravo charlie");
}

TEST(SimHost, TextPutTakesTheFormatOfTheFirstReplacedCharacter) {
    SimHost host;
    DeckBuilder b;
    b.Slide().Text(u"Body", u"Red bold\rplain");
    FormatText(b.Last(), 0, 3, [](CharFormat& f) { f.rgb = 0x0000FF, f.bold = -1, f.size = 24; });
    auto deck = b.Build();
    host.AddPresentation(deck);
    const HostRef range = FrameRange(ShapeAt(host, 1, 1));
    const HostRef first = Object(range, u"Paragraphs", {I4(1), I4(1)});
    const HostRef withoutCr = Object(first, u"Characters", {I4(1), I4(8)});
    ASSERT_EQ(Put(withoutCr, u"Text", Str(u"Rot fett und mehr")), S_OK);
    const ShapeModel& shape = *deck->slides[0]->shapes[0];
    EXPECT_EQ(shape.frame.text, u"Rot fett und mehr\rplain");
    ASSERT_EQ(shape.frame.formats.size(), shape.frame.text.size());
    for (std::size_t i = 0; i < 17; ++i) {
        EXPECT_EQ(shape.frame.formats[i].rgb, 0x0000FF) << i;
        EXPECT_EQ(shape.frame.formats[i].bold, -1) << i;
    }
    EXPECT_EQ(shape.frame.formats[18].bold, 0);  // the next paragraph keeps its own
    EXPECT_EQ(Int(Object(range, u"Paragraphs", {I4(-1), I4(-1)}), u"Count"), 2);
}

TEST(SimHost, WpsTextPutResetsColourAndSize) {
    SimHost host(HostKind::Wps);
    DeckBuilder b;
    b.Slide().Text(u"Body", u"Styled");
    FormatText(b.Last(), 0, 6, [](CharFormat& f) { f.rgb = 0x00FF00, f.size = 30, f.bold = -1; });
    auto deck = b.Build();
    host.AddPresentation(deck);
    ASSERT_EQ(Put(FrameRange(ShapeAt(host, 1, 1)), u"Text", Str(u"Neu")), S_OK);
    const CharFormat& f = deck->slides[0]->shapes[0]->frame.formats[0];
    EXPECT_EQ(f.rgb, 0);
    EXPECT_EQ(f.size, 18.0f);
    EXPECT_EQ(f.bold, -1);  // what the host doesn't reset stays
    EXPECT_EQ(Text(Root(host), u"Name"), u"WPS \u6f14\u793a");
}

TEST(SimHost, FontsReadMinusTwoWhenMixed) {
    SimHost host;
    DeckBuilder b;
    b.Slide().Text(u"Body", u"Mixed text");
    FormatText(b.Last(), 0, 5, [](CharFormat& f) { f.bold = -1, f.size = 20; });
    host.AddPresentation(b.Build());
    const HostRef range = FrameRange(ShapeAt(host, 1, 1));
    const HostRef font = Object(range, u"Font");
    EXPECT_EQ(Int(font, u"Bold"), -2);
    EXPECT_EQ(Int(font, u"Italic"), 0);
    EXPECT_EQ(Float(font, u"Size"), -2.0f);
    const HostRef runs = Object(range, u"Runs", {I4(-1), I4(-1)});
    EXPECT_EQ(Int(runs, u"Count"), 2);
    EXPECT_EQ(Float(Object(Object(range, u"Runs", {I4(1), I4(1)}), u"Font"), u"Size"), 20.0f);
    EXPECT_EQ(Float(Object(Object(range, u"Runs", {I4(2), I4(1)}), u"Font"), u"Size"), 18.0f);
}

TEST(SimHost, FontNamesKeepTheAsciiAndEastAsianSlotsApart) {
    SimHost host;
    DeckBuilder b;
    b.Slide().Text(u"Body", u"Text");
    auto deck = b.Build();
    host.AddPresentation(deck);
    const HostRef font = Object(FrameRange(ShapeAt(host, 1, 1)), u"Font");
    ASSERT_EQ(Put(font, u"Name", Str(u"Arial")), S_OK);
    ASSERT_EQ(Put(font, u"NameFarEast", Str(u"Microsoft YaHei")), S_OK);
    EXPECT_EQ(Text(font, u"NameAscii"), u"Arial");
    EXPECT_EQ(Text(font, u"NameFarEast"), u"Microsoft YaHei");
    EXPECT_EQ(Put(font, u"Name", I4(5)), DISP_E_TYPEMISMATCH);
}

TEST(SimHost, ColourPutsSetTheColourType) {
    SimHost host;
    DeckBuilder b;
    b.Slide().Text(u"Body", u"Colour");
    host.AddPresentation(b.Build());
    const HostRef color = Object(Object(FrameRange(ShapeAt(host, 1, 1)), u"Font"), u"Color");
    ASSERT_EQ(Put(color, u"SchemeColor", I4(5)), S_OK);
    EXPECT_EQ(Int(color, u"Type"), 2);
    EXPECT_EQ(Int(color, u"SchemeColor"), 5);
    ASSERT_EQ(Put(color, u"RGB", I4(0x3366FF)), S_OK);
    EXPECT_EQ(Int(color, u"Type"), 1);
    EXPECT_EQ(Int(color, u"RGB"), 0x3366FF);
    Variant v;
    EXPECT_TRUE(FAILED(host::DispGet(color, u"SchemeColor", &v)));  // no scheme colour now
    ASSERT_EQ(Put(color, u"TintAndShade", Variant::R4(-0.25f)), S_OK);
    EXPECT_FLOAT_EQ(Float(color, u"TintAndShade"), -0.25f);
}

TEST(SimHost, BoundsFollowTextSizeBoxAndWordWrap) {
    SimHost host;
    DeckBuilder b;
    b.Slide().Text(u"Body", u"Short", Box{100, 50, 200, 40});
    auto deck = b.Build();
    host.AddPresentation(deck);
    const HostRef shape = ShapeAt(host, 1, 1);
    const HostRef frame = Object(shape, u"TextFrame");
    const auto measure = [&] {
        const HostRef range = Object(frame, u"TextRange");
        return std::make_pair(Float(range, u"BoundWidth"), Float(range, u"BoundHeight"));
    };
    const auto [shortWidth, oneLine] = measure();
    EXPECT_FLOAT_EQ(Float(Object(frame, u"TextRange"), u"BoundLeft"), 100 + 7.2f);
    EXPECT_FLOAT_EQ(oneLine, 1.2f * 18);
    ASSERT_EQ(Put(Object(frame, u"TextRange"), u"Text",
                  Str(u"A considerably longer sentence that cannot fit in one line of this box")),
              S_OK);
    const auto [wrappedWidth, wrappedHeight] = measure();
    EXPECT_GT(wrappedWidth, shortWidth);
    EXPECT_LE(wrappedWidth, 200 - 2 * 7.2f);
    EXPECT_GT(wrappedHeight, 2 * oneLine);
    ASSERT_EQ(Put(frame, u"WordWrap", Variant::Bool(false)), S_OK);
    const auto [unwrappedWidth, unwrappedHeight] = measure();
    EXPECT_GT(unwrappedWidth, 200);
    EXPECT_FLOAT_EQ(unwrappedHeight, oneLine);
    ASSERT_EQ(Put(Object(Object(frame, u"TextRange"), u"Font"), u"Size", Variant::R4(9)), S_OK);
    EXPECT_FLOAT_EQ(measure().second, 1.2f * 9);
}

TEST(SimHost, ShapeToFitTextResizesOnEveryChange) {
    SimHost host;
    DeckBuilder b;
    b.Slide().Text(u"Body", u"One", Box{0, 0, 300, 100});
    auto deck = b.Build();
    host.AddPresentation(deck);
    const HostRef frame = Object(ShapeAt(host, 1, 1), u"TextFrame");
    ASSERT_EQ(Put(frame, u"AutoSize", I4(1)), S_OK);
    const ShapeModel& shape = *deck->slides[0]->shapes[0];
    EXPECT_FLOAT_EQ(shape.height, 1.2f * 18 + 7.2f);
    ASSERT_EQ(Put(Object(frame, u"TextRange"), u"Text", Str(u"One\rTwo\rThree")), S_OK);
    EXPECT_FLOAT_EQ(shape.height, 3 * 1.2f * 18 + 7.2f);
    // TextFrame2.AutoSize is the same property.
    const HostRef frame2 = Object(ShapeAt(host, 1, 1), u"TextFrame2");
    EXPECT_EQ(Int(frame2, u"AutoSize"), 1);
    ASSERT_EQ(Put(frame2, u"AutoSize", I4(0)), S_OK);
    EXPECT_EQ(Int(frame, u"AutoSize"), 0);
    host.hasTextFrame2 = false;
    Variant v;
    EXPECT_EQ(host::DispGet(ShapeAt(host, 1, 1), u"TextFrame2", &v), DISP_E_UNKNOWNNAME);
}

TEST(SimHost, TablesAnswerCellsAndRepeatMergedText) {
    SimHost host;
    DeckBuilder b;
    b.Slide().Table(u"Grid", 2, 3, {u"Merged", u"", u"c", u"d", u"e", u"f"}).Merge(1, 1, 1, 2);
    host.AddPresentation(b.Build());
    const HostRef table = Object(ShapeAt(host, 1, 1), u"Table");
    EXPECT_EQ(Int(Object(table, u"Rows"), u"Count"), 2);
    EXPECT_EQ(Int(Object(table, u"Columns"), u"Count"), 3);
    // Cell(row, column): the seam hands the column first.
    const HostRef cell = Object(table, u"Cell", {I4(2), I4(3)});
    const HostRef cellShape = Object(cell, u"Shape");
    EXPECT_TRUE(cellShape->Answers(host::HostInterface::Shape));
    EXPECT_EQ(Text(FrameRange(cellShape)), u"f");
    EXPECT_EQ(Text(FrameRange(Object(Object(table, u"Cell", {I4(1), I4(2)}), u"Shape"))),
              u"Merged");
    // From a cell's text back to the cell's shape.
    const HostRef parentFrame = Object(FrameRange(cellShape), u"Parent");
    EXPECT_TRUE(parentFrame->Answers(host::HostInterface::TextFrame));
    EXPECT_TRUE(host::SameIdentity(Object(parentFrame, u"Parent"), cellShape));
    Variant v;
    const Variant outside[] = {I4(1), I4(3)};  // column 1, row 3 (last first)
    EXPECT_TRUE(FAILED(host::DispCall(table, u"Cell", outside, 2, &v)));
}

TEST(SimHost, GroupsNestBeyondThirtyTwoLevels) {
    SimHost host;
    DeckBuilder b;
    b.Slide();
    for (int level = 1; level <= 40; ++level) {
        b.BeginGroup(u"Group " + AsciiToUtf16(std::to_string(level)));
    }
    b.Text(u"Deepest", u"Down here");
    b.Text(u"Sibling", u"Also here");
    host.AddPresentation(b.Build());
    HostRef shape = ShapeAt(host, 1, 1);
    for (int level = 1; level <= 40; ++level) {
        EXPECT_EQ(Int(shape, u"Type"), 6);
        const HostRef items = Object(shape, u"GroupItems");
        ASSERT_TRUE(items->Answers(host::HostInterface::GroupShapes));
        ASSERT_EQ(host::GetItem(items, 1, shape), S_OK);
    }
    EXPECT_EQ(Text(FrameRange(shape)), u"Down here");
}

TEST(SimHost, TagsIgnoreCaseAndReadEmptyWhenMissing) {
    SimHost host;
    host.AddPresentation(TwoSlides());
    const HostRef tags = Object(Object(SlidesOf(host), u"Item", {I4(2)}), u"Tags");
    EXPECT_EQ(Int(tags, u"Count"), 1);
    EXPECT_EQ(Call(tags, u"Item", {Str(u"quillbrook.bilingualcopyof")}).StringValue(), u"256");
    EXPECT_EQ(Call(tags, u"Item", {Str(u"Absent")}).StringValue(), u"");
    Call(tags, u"Add", {Str(u"Other"), Str(u"x")});
    EXPECT_EQ(Call(tags, u"Item", {Str(u"OTHER")}).StringValue(), u"x");
}

struct DuplicateCase {
    const char* name;
    DuplicateMode mode;
    HRESULT hr;
    std::vector<std::int32_t> ids;  // slide ids in order afterwards
    std::int32_t rangeCount;
};

TEST(SimHost, DuplicatePlacesTheCopyAsTheHostVariantDoes) {
    const DuplicateCase cases[] = {
        {"behind the source", DuplicateMode::Normal, S_OK, {256, 258, 257}, 1},
        {"appended at the end", DuplicateMode::AppendAtEnd, S_OK, {256, 257, 258}, 1},
        {"fails although a slide appeared",
         DuplicateMode::FailAfterCopy,
         E_FAIL,
         {256, 258, 257},
         0},
        {"several slides", DuplicateMode::SeveralSlides, S_OK, {256, 258, 259, 260, 257}, 3},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        SimHost host;
        auto deck = host.AddPresentation(TwoSlides());
        host.duplicateMode = c.mode;
        host.duplicateSlideCount = 3;
        const HostRef source = Object(SlidesOf(host), u"Item", {I4(1)});
        deck->slides[0]->tags[u"KEEP"] = u"me";  // the copy must carry the source's tags
        Variant range;
        EXPECT_EQ(host::DispGet(source, u"Duplicate", &range), c.hr);
        std::vector<std::int32_t> ids;
        for (const auto& s : deck->slides)
            ids.push_back(s->slideId);
        EXPECT_EQ(ids, c.ids);
        if (c.rangeCount > 0) {
            EXPECT_EQ(Int(range.ObjectValue(), u"Count"), c.rangeCount);
        }
        const auto copy = deck->slides[c.mode == DuplicateMode::AppendAtEnd ? 2 : 1];
        EXPECT_EQ(copy->tags[u"KEEP"], u"me");
        EXPECT_EQ(copy->shapes.size(), deck->slides[0]->shapes.size());
        EXPECT_NE(copy->shapes[0], deck->slides[0]->shapes[0]);  // a deep copy
    }
}

TEST(SimHost, CopyPasteDeleteAndFindBySlideId) {
    SimHost host;
    auto deck = host.AddPresentation(TwoSlides());
    const HostRef slides = SlidesOf(host);
    Call(Object(slides, u"Item", {I4(2)}), u"Copy");
    const HostRef pasted = Object(slides, u"Paste", {I4(1)});
    EXPECT_EQ(Int(pasted, u"Count"), 1);
    EXPECT_EQ(Int(Object(pasted, u"Item", {I4(1)}), u"SlideIndex"), 1);
    EXPECT_EQ(Int(slides, u"Count"), 3);
    const HostRef found = Object(slides, u"FindBySlideID", {I4(257)});
    EXPECT_EQ(Int(found, u"SlideIndex"), 3);
    Call(Object(slides, u"Item", {I4(1)}), u"Delete");
    EXPECT_EQ(Int(found, u"SlideIndex"), 2);  // later slides move up
    host.pasteMode = PasteMode::EmptyRange;
    EXPECT_EQ(Int(Object(slides, u"Paste", {I4(1)}), u"Count"), 0);
    host.pasteMode = PasteMode::Fail;
    Variant v;
    const Variant at = I4(1);
    EXPECT_TRUE(FAILED(host::DispCall(slides, u"Paste", &at, 1, &v)));
}

TEST(SimHost, ViewFollowsGotoSlideAndSelectionsAnswerTheirType) {
    SimHost host;
    auto deck = host.AddPresentation(TwoSlides());
    const HostRef window = Object(Root(host), u"ActiveWindow");
    const HostRef view = Object(window, u"View");
    EXPECT_EQ(Int(Object(view, u"Slide"), u"SlideIndex"), 1);
    Call(view, u"GotoSlide", {I4(2)});
    EXPECT_EQ(Int(Object(view, u"Slide"), u"SlideIndex"), 2);
    SelectionModel& sel = host.App().windows[0]->selection;
    EXPECT_EQ(Int(Object(window, u"Selection"), u"Type"), 0);
    sel.type = SelectionType::Text;
    sel.textShape = deck->slides[0]->shapes[1];
    sel.textStart = 7;
    sel.textLength = 6;
    const HostRef selected = Object(Object(window, u"Selection"), u"TextRange");
    EXPECT_EQ(Text(selected), u"Second");
    EXPECT_EQ(Int(selected, u"Start"), 7);
    EXPECT_EQ(Int(Object(window, u"Selection"), u"Type"), 3);
}

TEST(SimHost, FaultRulesFailTheCallsTheyName) {
    SimHost host;
    DeckBuilder b;
    b.Slide().Text(u"X", u"one").Text(u"Y", u"two");
    host.AddPresentation(b.Build());
    FaultRule rule;
    rule.objectType = u"TextRange";
    rule.member = u"Text";
    rule.access = FaultRule::Access::Put;
    rule.shapeName = u"X";
    rule.nth = 3;
    host.AddFault(rule);
    const HostRef x = FrameRange(ShapeAt(host, 1, 1));
    const HostRef y = FrameRange(ShapeAt(host, 1, 2));
    EXPECT_EQ(Put(x, u"Text", Str(u"a")), S_OK);
    EXPECT_EQ(Put(y, u"Text", Str(u"b")), S_OK);  // another shape doesn't count
    EXPECT_EQ(Put(x, u"Text", Str(u"c")), S_OK);
    EXPECT_EQ(Put(x, u"Text", Str(u"d")), E_FAIL);  // the third put on X
    EXPECT_EQ(Put(x, u"Text", Str(u"e")), S_OK);
    EXPECT_EQ(Text(x), u"e");

    FaultRule missing;
    missing.objectType = u"Shape";
    missing.member = u"HasTextFrame";
    missing.missing = true;
    host.AddFault(missing);
    Variant v;
    EXPECT_EQ(host::DispGet(ShapeAt(host, 1, 2), u"HasTextFrame", &v), DISP_E_UNKNOWNNAME);
    host.ClearFaults();
    EXPECT_EQ(host::DispGet(ShapeAt(host, 1, 2), u"HasTextFrame", &v), S_OK);
}

TEST(SimHost, AFaultRuleNamingAShapeReachesEverythingInsideIt) {
    SimHost host;
    DeckBuilder b;
    b.Slide().Table(u"Grid", 1, 2, {u"a", u"b"});
    b.BeginGroup(u"Outer").BeginGroup(u"Inner").Text(u"Leaf", u"deep").EndGroup().EndGroup();
    b.Chart(u"Sales chart", SampleChart());
    host.AddPresentation(b.Build());
    const struct {
        const char* name;
        std::u16string shapeName, objectType;
    } cases[] = {
        {"a table's cells", u"Grid", u"TextRange"},
        {"a shape two groups down", u"Outer", u"TextRange"},
        {"the group itself", u"Inner", u"TextRange"},
        {"a chart's title", u"Sales chart", u"ChartTitle"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        host.ClearFaults();
        FaultRule rule;
        rule.objectType = c.objectType;
        rule.member = u"Text";
        rule.access = FaultRule::Access::Put;
        rule.shapeName = c.shapeName;
        host.AddFault(rule);
        const HostRef cell = Object(
            Object(Object(ShapeAt(host, 1, 1), u"Table"), u"Cell", {I4(1), I4(2)}), u"Shape");
        HostRef leaf = ShapeAt(host, 1, 2);
        leaf = Object(Object(leaf, u"GroupItems"), u"Item", {I4(1)});
        leaf = Object(Object(leaf, u"GroupItems"), u"Item", {I4(1)});
        const HostRef title = Object(Object(ShapeAt(host, 1, 3), u"Chart"), u"ChartTitle");
        const HRESULT cellPut = Put(FrameRange(cell), u"Text", Str(u"x"));
        const HRESULT leafPut = Put(FrameRange(leaf), u"Text", Str(u"x"));
        const HRESULT titlePut = Put(title, u"Text", Str(u"x"));
        EXPECT_EQ(cellPut, c.shapeName == u"Grid" ? E_FAIL : S_OK);
        EXPECT_EQ(leafPut, c.shapeName == u"Outer" || c.shapeName == u"Inner" ? E_FAIL : S_OK);
        EXPECT_EQ(titlePut, c.shapeName == u"Sales chart" ? E_FAIL : S_OK);
    }
}

TEST(SimHost, ShapeToFitTextAnswersEveryKindOfChange) {
    SimHost host;
    DeckBuilder b;
    b.Slide().Text(u"Body", u"One", Box{0, 0, 300, 100});
    auto deck = host.AddPresentation(b.Build());
    const ShapeModel& shape = *deck->slides[0]->shapes[0];
    const HostRef frame = Object(ShapeAt(host, 1, 1), u"TextFrame");
    ASSERT_EQ(Put(frame, u"AutoSize", I4(1)), S_OK);
    const float oneLine = shape.height;
    ASSERT_EQ(Put(ShapeAt(host, 1, 1), u"Height", Variant::R4(500)), S_OK);
    EXPECT_FLOAT_EQ(shape.height, oneLine);  // a height of its own doesn't stick
    ASSERT_EQ(Put(frame, u"MarginTop", Variant::R4(20)), S_OK);
    EXPECT_FLOAT_EQ(shape.height, oneLine + 20 - 3.6f);
    const HostRef range2 = Object(Object(ShapeAt(host, 1, 1), u"TextFrame2"), u"TextRange");
    ASSERT_EQ(Put(range2, u"Text", Str(u"One\rTwo")), S_OK);
    EXPECT_FLOAT_EQ(shape.height, oneLine + 20 - 3.6f + 1.2f * 18);
}

TEST(SimHost, RunsOfARangeAreCutAtItsEnds) {
    SimHost host;
    DeckBuilder b;
    b.Slide().Text(u"Body", u"Hello world");
    host.AddPresentation(b.Build());
    const HostRef part = Object(FrameRange(ShapeAt(host, 1, 1)), u"Characters", {I4(3), I4(2)});
    EXPECT_EQ(Int(Object(part, u"Runs", {I4(-1), I4(-1)}), u"Count"), 1);
    EXPECT_EQ(Text(Object(part, u"Runs", {I4(1), I4(1)})), u"ll");
}

TEST(SimHost, DeletedShapesLeaveTheirPageOrGroup) {
    SimHost host;
    DeckBuilder b;
    b.Slide().Text(u"A", u"a").BeginGroup(u"G").Text(u"B", u"b").Text(u"C", u"c").EndGroup();
    auto deck = host.AddPresentation(b.Build());
    const HostRef a = ShapeAt(host, 1, 1);
    Call(a, u"Delete");
    Variant v;
    EXPECT_TRUE(FAILED(host::DispGet(a, u"Name", &v)));  // a deleted shape answers nothing
    EXPECT_EQ(deck->slides[0]->shapes.size(), 1u);
    const HostRef b1 = Object(Object(ShapeAt(host, 1, 1), u"GroupItems"), u"Item", {I4(1)});
    Call(b1, u"Delete");
    ASSERT_EQ(deck->slides[0]->shapes[0]->children.size(), 1u);
    EXPECT_EQ(deck->slides[0]->shapes[0]->children[0]->name, u"C");
}

TEST(SimHost, CountsEveryCallByTypeAndMember) {
    SimHost host;
    host.AddPresentation(TwoSlides());
    const HostRef shape = ShapeAt(host, 1, 2);
    host.ResetCounts();
    const HostRef range = FrameRange(shape);
    Text(range);
    Text(range);
    EXPECT_EQ(Put(range, u"Text", Str(u"new")), S_OK);
    EXPECT_EQ(host.Calls(u"Shape", u"TextFrame"), 1u);
    EXPECT_EQ(host.Calls(u"TextFrame", u"TextRange"), 1u);
    EXPECT_EQ(host.Calls(u"TextRange", u"Text"), 2u);
    EXPECT_EQ(host.Calls(u"textrange", u"TEXT="), 1u);
    EXPECT_EQ(host.TotalCalls(), 5u);
}

TEST(SimHost, UnstableIdentityGivesEveryShapeWrapperItsOwn) {
    SimHost host;
    host.AddPresentation(TwoSlides());
    EXPECT_TRUE(host::SameIdentity(ShapeAt(host, 1, 1), ShapeAt(host, 1, 1)));
    host.unstableShapeIdentity = true;
    const HostRef a = ShapeAt(host, 1, 1), b = ShapeAt(host, 1, 1);
    EXPECT_FALSE(host::SameIdentity(a, b));
    EXPECT_EQ(Int(a, u"Id"), Int(b, u"Id"));  // the fallbacks still agree
    EXPECT_EQ(Text(a, u"Name"), Text(b, u"Name"));
}

TEST(SimHost, EveryCallMayPumpMessages) {
    SimHost host;
    host.AddPresentation(TwoSlides());
    int pumped = 0;
    host.pump = [&] {
        ++pumped;
        // A job that calls the host again inside a call doesn't pump again.
        Variant v;
        (void)host::DispGet(host.Application(), u"Name", &v);
    };
    Text(Root(host), u"Name");
    EXPECT_EQ(pumped, 1);
    EXPECT_EQ(host.Calls(u"Application", u"Name"), 2u);
}

}  // namespace
}  // namespace qb::sim
