// Collection on the simulated host: which texts of a deck become units,
// with which ids, texts and addresses; the walk through groups and tables;
// and what a deck or a shape that can't be read gives.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "sim/host/deck_builder.h"
#include "sim/sim_test_support.h"
#include "slides/collect.h"
#include "support/trace_lines.h"

namespace qb {
namespace {

using host::HostRef;
using sim::DeckBuilder;
using sim::FaultRule;
using sim::SimHost;

using test::TraceLines;

struct Collected {
    HRESULT hr = E_FAIL;
    std::u16string message;
    RunLists lists;
    std::vector<std::string> progress;
};

Collected Collect(SimHost& host, bool fullDeck, bool withApplication = true) {
    Collected out;
    RunContext run;
    const HostRef application = sim::test::Root(host);
    run.application = withApplication ? application : nullptr;
    run.window =
        sim::test::Object(sim::test::Object(application, u"Windows"), u"Item", {sim::test::I4(1)});
    (void)host::GetObject(run.window, u"Presentation", run.presentation);
    RunCallbacks callbacks;
    callbacks.onScanProgress = [&](std::int32_t current, std::int32_t total,
                                   const std::u16string& phase) {
        out.progress.push_back(std::to_string(current) + "/" + std::to_string(total) + " " +
                               Utf16ToUtf8(phase));
    };
    run.callbacks = &callbacks;
    out.hr = CollectDeck(run, fullDeck, out.lists, out.message);
    return out;
}

std::vector<std::string> Ids(const RunLists& lists) {
    std::vector<std::string> ids;
    for (const auto& unit : lists.units)
        ids.push_back(Utf16ToUtf8(unit.unitId));
    return ids;
}

std::vector<std::u16string> Texts(const RunLists& lists) {
    return lists.texts;
}

std::int32_t ParagraphCount(const std::u16string& text) {
    std::int32_t n = 1;
    for (char16_t ch : text)
        n += ch == u'\r';
    return n;
}

TEST(ShouldSkip, KeepsAnythingWithALetterOrACjkCharacter) {
    const struct {
        std::u16string text;
        bool skip;
    } cases[] = {
        {u"", true},
        {u"   \t", true},
        {u"12 345", true},
        {u"3.14%", true},
        {u"\u2192 \u2022 -- !!", true},
        {u"2024\u5e74", false},  // a CJK character
        {u"V2", false},
        {u"x", false},
        {u"\u3042", false},                          // hiragana
        {u"\uac00", false},                          // hangul
        {u"\u00e9t\u00e9", false},                   // Latin with accents
        {u"\u0645\u0631\u062d\u0628\u0627", false},  // Arabic letters
        {u"\u0661\u0662\u0663", true},               // Arabic-Indic digits only
    };
    for (const auto& c : cases)
        EXPECT_EQ(ShouldSkip(c.text), c.skip) << Utf16ToUtf8(c.text);
}

TEST(PhraseTest, AcceptsOnlyShortCjkPhrasesWithoutPunctuation) {
    const std::u16string thirty(30, u'\u5b57');
    const struct {
        std::vector<std::u16string> paragraphs;
        bool passes;
    } cases[] = {
        {{u"\u4eba\u5de5", u"\u667a\u80fd"}, true},
        {{u"\u7b2c\u4e00\u7ae0", u"2024"}, true},
        {{u"\u4f60\u597d", u"\u4e16\u754c\u3002"}, false},  // full stop
        {{u"\u4f60\u597d", u"\u4e16\u754c,"}, false},
        {{u"AI", u"\u667a\u80fd"}, false},  // a Latin letter
        {{thirty.substr(0, 15), thirty.substr(0, 15)}, true},
        {{thirty.substr(0, 15), thirty.substr(0, 16)}, false},  // 31 units
        {{u"", u""}, false},                                    // nothing at all
        {{u"\u76ee\u5f55", u"", u"\u6982\u8ff0"}, true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(PassesPhraseTest(c.paragraphs), c.passes) << Utf16ToUtf8(c.paragraphs[0]);
}

// Where a frame's text stands decides whether it may be collapsed.
enum class Place { Slide, Cell, Notes };

struct FrameCase {
    const char* name;
    std::u16string text;
    Place place;
    std::vector<std::string> ids;
    std::vector<std::u16string> texts;
    std::uint8_t frameCollapsed;  // of every unit
    std::u16string sourceText;    // of every unit
};

class FrameUnits : public testing::TestWithParam<FrameCase> {};

TEST_P(FrameUnits, BecomeTheUnitsTheirTextCallsFor) {
    const FrameCase& c = GetParam();
    DeckBuilder b;
    b.Slide();
    switch (c.place) {
        case Place::Slide:
            b.Text(u"Box", c.text);
            break;
        case Place::Cell:
            b.Table(u"Grid", 1, 1, {c.text});
            break;
        case Place::Notes:
            b.Notes(c.text);
            break;
    }
    SimHost host;
    host.AddPresentation(b.Build());
    TraceLines trace;
    const Collected got = Collect(host, true);
    ASSERT_EQ(got.hr, S_OK);
    EXPECT_EQ(Ids(got.lists), c.ids);
    EXPECT_EQ(Texts(got.lists), c.texts);
    for (std::size_t i = 0; i < got.lists.units.size(); ++i) {
        const TextUnit& unit = got.lists.units[i];
        const UnitAddress& address = got.lists.addresses[i];
        EXPECT_EQ(unit.hostText, got.lists.texts[i]);
        EXPECT_EQ(unit.frameCollapsed, c.frameCollapsed) << unit.unitId.size();
        EXPECT_EQ(unit.sourceText, c.sourceText);
        EXPECT_EQ(unit.paragraphCount, ParagraphCount(c.text));
        EXPECT_EQ(address.kind, c.place == Place::Cell    ? UnitKind::TableCell
                                : c.place == Place::Notes ? UnitKind::NotesFrame
                                                          : UnitKind::Frame);
        EXPECT_EQ(address.onNotesPage, c.place == Place::Notes ? 1 : 0);
        EXPECT_EQ(address.wholeFrame, unit.unitId.find(u".frame") != std::u16string::npos);
        if (c.place == Place::Cell) {
            EXPECT_EQ(address.row, 1);
            EXPECT_EQ(address.column, 1);
        }
    }
    ASSERT_EQ(got.lists.spans.size(), 1u);
    EXPECT_EQ(got.lists.spans[0].end, static_cast<std::int32_t>(c.ids.size()));
}

const std::u16string kJoin = u"\u4eba\u5de5\r\u667a\u80fd";
const std::u16string k31 = std::u16string(15, u'\u5b57') + u"\r" + std::u16string(16, u'\u5b57');
const std::u16string k30 = std::u16string(15, u'\u5b57') + u"\r" + std::u16string(15, u'\u5b57');

INSTANTIATE_TEST_SUITE_P(
    Cases, FrameUnits,
    testing::Values(FrameCase{"ShortCjkFrameGoesWhole",
                              kJoin,
                              Place::Slide,
                              {"shapes[1].frame"},
                              {u"\u4eba\u5de5\u667a\u80fd"},
                              1,
                              u"\u4eba\u5de5\u667a\u80fd"},
                    FrameCase{"NotInACell",
                              kJoin,
                              Place::Cell,
                              {"shapes[1].p1", "shapes[1].p2"},
                              {u"\u4eba\u5de5", u"\u667a\u80fd"},
                              0,
                              u""},
                    FrameCase{"NotOnNotes",
                              kJoin,
                              Place::Notes,
                              {"shapes[1].p1", "shapes[1].p2"},
                              {u"\u4eba\u5de5", u"\u667a\u80fd"},
                              0,
                              u""},
                    FrameCase{"SkippedParagraphStopsTheCollapse",
                              u"\u7b2c\u4e00\u7ae0\r2024",
                              Place::Slide,
                              {"shapes[1].p1"},
                              {u"\u7b2c\u4e00\u7ae0"},
                              1,
                              u"\u7b2c\u4e00\u7ae02024"},
                    FrameCase{"PunctuationKeepsParagraphs",
                              u"\u4f60\u597d\r\u4e16\u754c\u3002",
                              Place::Slide,
                              {"shapes[1].p1", "shapes[1].p2"},
                              {u"\u4f60\u597d", u"\u4e16\u754c\u3002"},
                              0,
                              u"\u4f60\u597d\u4e16\u754c\u3002"},
                    FrameCase{"ThirtyOneUnitsStayApart",
                              k31,
                              Place::Slide,
                              {"shapes[1].p1", "shapes[1].p2"},
                              {std::u16string(15, u'\u5b57'), std::u16string(16, u'\u5b57')},
                              0,
                              std::u16string(31, u'\u5b57')},
                    FrameCase{"ThirtyUnitsCollapse",
                              k30,
                              Place::Slide,
                              {"shapes[1].frame"},
                              {std::u16string(30, u'\u5b57')},
                              1,
                              std::u16string(30, u'\u5b57')},
                    FrameCase{"EmptyParagraphKeepsNumbers",
                              u"\u76ee\u5f55\r\r\u6982\u8ff0",
                              Place::Slide,
                              {"shapes[1].p1", "shapes[1].p3"},
                              {u"\u76ee\u5f55", u"\u6982\u8ff0"},
                              1,
                              u"\u76ee\u5f55\u6982\u8ff0"},
                    FrameCase{"NumbersAloneGiveNothing", u"12 345", Place::Slide, {}, {}, 0, u""},
                    FrameCase{"LatinParagraphs",
                              u"Hello\rWorld\vagain",
                              Place::Slide,
                              {"shapes[1].p1", "shapes[1].p2"},
                              {u"Hello", u"World\vagain"},
                              0,
                              u"HelloWorld\vagain"},
                    FrameCase{"OneParagraph",
                              u"Quarterly report",
                              Place::Slide,
                              {"shapes[1].p1"},
                              {u"Quarterly report"},
                              0,
                              u""}),
    [](const testing::TestParamInfo<FrameCase>& info) { return info.param.name; });

TEST(CollectFrame, RemembersWhichParagraphsEndInACarriageReturn) {
    DeckBuilder b;
    b.Slide().Text(u"Box", u"One\rTwo\rThree");
    SimHost host;
    host.AddPresentation(b.Build());
    const Collected got = Collect(host, true);
    ASSERT_EQ(got.lists.units.size(), 3u);
    const std::uint8_t expected[] = {1, 1, 0};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(got.lists.units[i].paragraphFlag, expected[i]);
        EXPECT_EQ(got.lists.addresses[i].paragraphEndsInCr, expected[i]);
        EXPECT_EQ(got.lists.addresses[i].paragraphIndex, static_cast<std::int32_t>(i + 1));
    }
}

TEST(CollectFrame, LogsTheShapeAndEverySkippedParagraph) {
    DeckBuilder b;
    b.Slide().Text(u"Numbers", u"12 345\rText");
    SimHost host;
    host.AddPresentation(b.Build());
    TraceLines trace;
    Collect(host, true);
    EXPECT_TRUE(
        trace.Has(u"PptCtrl shape slides[1] shapes[1] depth=1 type=17 name=Numbers "
                  u"paras=2\r\n"));
    EXPECT_TRUE(trace.Has(u"PptCtrl skip: slides[1] \"12 345\" (ShouldSkip)\r\n"));
}

TEST(CollectFrame, AFrameWithoutTextGivesNothing) {
    DeckBuilder b;
    b.Slide().Text(u"Empty", u"").Picture(u"Photo");
    SimHost host;
    host.AddPresentation(b.Build());
    const Collected got = Collect(host, true);
    EXPECT_EQ(got.hr, S_OK);
    EXPECT_TRUE(got.lists.units.empty());
    ASSERT_EQ(got.lists.spans.size(), 1u);
    EXPECT_EQ(got.lists.spans[0].first, got.lists.spans[0].end);  // a span of length 0
}

TEST(CollectDeck, WalksSlidesInOrderAndLeavesBilingualCopiesOut) {
    DeckBuilder b;
    b.Slide().Text(u"A", u"First slide");
    b.Notes(u"Notes of one");
    b.Slide().Tag(u"Quillbrook.BilingualCopyOf", u"256").Text(u"B", u"A copy");
    b.Slide().Text(u"C", u"Third slide");
    b.Slide().Text(u"D", u"Fourth slide");
    SimHost host;
    host.AddPresentation(b.Build());
    const Collected got = Collect(host, true);
    ASSERT_EQ(got.hr, S_OK);
    EXPECT_EQ(got.progress,
              (std::vector<std::string>{"1/4 slides", "2/4 slides", "3/4 slides", "4/4 slides"}));
    EXPECT_EQ(Texts(got.lists), (std::vector<std::u16string>{u"First slide", u"Notes of one",
                                                             u"Third slide", u"Fourth slide"}));
    EXPECT_EQ(got.lists.slideIndexes, (std::vector<std::int32_t>{1, 3, 4}));
    ASSERT_EQ(got.lists.spans.size(), 3u);
    EXPECT_EQ(got.lists.spans[0].end, 2);  // notes follow the slide in its span
    EXPECT_EQ(got.lists.addresses[1].kind, UnitKind::NotesFrame);
    EXPECT_EQ(got.lists.addresses[1].onNotesPage, 1);
    EXPECT_EQ(got.lists.firstSlide, 1);
}

TEST(CollectDeck, TheCurrentSlideAloneWithItsNotes) {
    DeckBuilder b;
    for (int i = 1; i <= 8; ++i) {
        b.Slide().Text(u"T", u"Slide " + DecimalText(i) + u" title");
        b.Notes(u"Notes " + DecimalText(i));
    }
    SimHost host;
    host.AddPresentation(b.Build());
    host.App().windows[0]->currentSlide = 7;
    const Collected got = Collect(host, false);
    ASSERT_EQ(got.hr, S_OK);
    EXPECT_EQ(got.progress, std::vector<std::string>{"1/1 slides"});
    EXPECT_EQ(got.lists.firstSlide, 7);
    EXPECT_EQ(Texts(got.lists), (std::vector<std::u16string>{u"Slide 7 title", u"Notes 7"}));
    EXPECT_EQ(got.lists.addresses[0].slideIndex, 7);
}

TEST(CollectDeck, TablesGiveCellUnitsRowByRowAlsoOnNotesPages) {
    DeckBuilder b;
    b.Slide().Table(u"Grid", 2, 2, {u"a1", u"b1", u"a2", u"42"});
    b.BeginGroup(u"G").Text(u"Inner", u"in a group").Table(u"T2", 1, 1, {u"cell"}).EndGroup();
    SimHost host;
    auto deck = host.AddPresentation(b.Build());
    // A table on the notes page.
    DeckBuilder notes;
    notes.Slide().Table(u"NotesGrid", 1, 1, {u"note cell"});
    deck->slides[0]->notesShapes.push_back(notes.Build()->slides[0]->shapes[0]);
    const Collected got = Collect(host, true);
    EXPECT_EQ(Ids(got.lists),
              (std::vector<std::string>{"shapes[1].p1", "shapes[1].p1", "shapes[1].p1",
                                        "shapes[2][1].p1", "shapes[2][2].p1", "shapes[1].p1"}));
    const auto& a = got.lists.addresses;
    ASSERT_EQ(a.size(), 6u);
    EXPECT_EQ(a[0].kind, UnitKind::TableCell);
    EXPECT_EQ(std::make_pair(a[1].row, a[1].column), std::make_pair(1, 2));
    EXPECT_EQ(std::make_pair(a[2].row, a[2].column), std::make_pair(2, 1));  // "42" skipped
    EXPECT_EQ(a[4].shapePath, (std::vector<std::int32_t>{2, 2}));            // ends at the table
    EXPECT_EQ(a[4].kind, UnitKind::TableCell);
    EXPECT_EQ(a[5].kind, UnitKind::TableCell);
    EXPECT_EQ(a[5].onNotesPage, 1);
}

std::shared_ptr<sim::PresentationModel> NestedGroups(int depth) {
    DeckBuilder b;
    b.Slide();
    for (int i = 0; i < depth - 1; ++i)
        b.BeginGroup(u"G" + DecimalText(i + 1));
    b.Text(u"Deep", u"At level " + DecimalText(depth));
    for (int i = 0; i < depth - 1; ++i)
        b.EndGroup();
    return b.Build();
}

TEST(WalkShapes, ReadsThirtyTwoLevelsAndNoMore) {
    for (int depth : {32, 33}) {
        SimHost host;
        host.AddPresentation(NestedGroups(depth));
        TraceLines trace;
        const Collected got = Collect(host, true);
        if (depth == 32) {
            ASSERT_EQ(got.lists.units.size(), 1u);
            EXPECT_EQ(got.lists.addresses[0].shapePath, std::vector<std::int32_t>(32, 1));
            EXPECT_FALSE(trace.Has(u"PptCtrl walk shapes depth limit"));
        } else {
            EXPECT_TRUE(got.lists.units.empty());
            EXPECT_TRUE(trace.Has(u"PptCtrl walk shapes depth limit\r\n"));
        }
    }
}

TEST(WalkShapes, TellsGroupsFromLeavesTheWayTheHostAnswers) {
    DeckBuilder b;
    b.Slide();
    b.BeginGroup(u"One").Text(u"Only", u"child of a group of one").EndGroup();  // type 6
    b.BeginGroup(u"Mixed").Text(u"M1", u"mixed child").EndGroup();
    sim::ShapeModel& mixed = *b.CurrentSlide().shapes.back();
    mixed.type = static_cast<sim::ShapeType>(-2);  // one item, type mixed: a leaf
    mixed.hasTextFrame = true;
    mixed.frame.SetText(u"mixed own text", sim::CharFormat());
    b.BeginGroup(u"Unreadable").Text(u"U1", u"first").Text(u"U2", u"second").EndGroup();
    SimHost host;
    host.AddPresentation(b.Build());
    FaultRule rule;
    rule.objectType = u"Shape";
    rule.member = u"Type";
    rule.shapeName = u"Unreadable";
    host.AddFault(rule);
    const Collected got = Collect(host, true);
    EXPECT_EQ(Texts(got.lists),
              (std::vector<std::u16string>{u"child of a group of one", u"mixed own text", u"first",
                                           u"second"}));
    EXPECT_EQ(got.lists.addresses[0].shapePath, (std::vector<std::int32_t>{1, 1}));
    EXPECT_EQ(got.lists.addresses[1].shapePath, std::vector<std::int32_t>{2});
    EXPECT_EQ(got.lists.addresses[3].shapePath, (std::vector<std::int32_t>{3, 2}));
}

TEST(WalkShapes, AHostWithItemOnlyAsDefaultMemberGivesTheSamePaths) {
    DeckBuilder b;
    b.Slide().Text(u"A", u"alpha");
    b.BeginGroup(u"G").Text(u"B", u"beta").EndGroup();
    SimHost plain, direct;
    plain.AddPresentation(b.Build());
    direct.AddPresentation(b.Build());
    direct.itemOnlyDirect = true;
    const Collected one = Collect(plain, true);
    const Collected two = Collect(direct, true);
    ASSERT_EQ(one.lists.units.size(), 2u);
    EXPECT_EQ(Ids(one.lists), Ids(two.lists));
    EXPECT_EQ(Texts(one.lists), Texts(two.lists));
}

TEST(CollectDeck, ShapesAndNotesThatCantBeReadArePassedOverInSilence) {
    DeckBuilder b;
    b.Slide().Text(u"Good", u"kept").Text(u"Bad", u"lost");
    b.Notes(u"notes lost");
    b.Slide().Text(u"Next", u"next slide");
    SimHost host;
    host.AddPresentation(b.Build());
    FaultRule shapeRule;
    shapeRule.objectType = u"Shape";
    shapeRule.member = u"TextFrame";
    shapeRule.shapeName = u"Bad";
    host.AddFault(shapeRule);
    FaultRule notesRule;
    notesRule.objectType = u"Slide";
    notesRule.member = u"NotesPage";
    notesRule.nth = 1;
    host.AddFault(notesRule);
    const Collected got = Collect(host, true);
    EXPECT_EQ(got.hr, S_OK);
    EXPECT_EQ(Texts(got.lists), (std::vector<std::u16string>{u"kept", u"next slide"}));
    EXPECT_EQ(got.lists.spans.size(), 2u);
}

FaultRule Fault(std::u16string type, std::u16string member, HRESULT hr = E_FAIL) {
    FaultRule rule;
    rule.objectType = std::move(type);
    rule.member = std::move(member);
    rule.hr = hr;
    return rule;
}

TEST(CollectDeck, FailsWithTheMessageOfTheStepThatBroke) {
    const struct {
        const char* name;
        FaultRule rule;
        bool withApplication;
        bool fullDeck;
        HRESULT hr;
        std::u16string message;
    } cases[] = {
        {"no application",
         {},
         false,
         true,
         E_FAIL,
         u"\u65e0\u6cd5\u83b7\u53d6 Application \u63a5\u53e3"},
        {"no slides", Fault(u"Presentation", u"Slides", E_ACCESSDENIED), true, true, E_ACCESSDENIED,
         u"\u65e0\u6cd5\u8bbf\u95ee Slides"},
        {"no view", Fault(u"DocumentWindow", u"View"), true, false, E_FAIL,
         u"\u65e0\u6cd5\u5b9a\u4f4d\u5f53\u524d\u9875"},
        {"no current slide", Fault(u"View", u"Slide"), true, false, E_FAIL,
         u"\u65e0\u6cd5\u5b9a\u4f4d\u5f53\u524d\u9875"},
    };
    for (const auto& c : cases) {
        DeckBuilder b;
        b.Slide().Text(u"A", u"text");
        SimHost host;
        host.AddPresentation(b.Build());
        if (!c.rule.member.empty()) host.AddFault(c.rule);
        const Collected got = Collect(host, c.fullDeck, c.withApplication);
        EXPECT_EQ(got.hr, c.hr) << c.name;
        EXPECT_EQ(got.message, c.message) << c.name;
        EXPECT_TRUE(got.lists.units.empty()) << c.name;
    }
}

}  // namespace
}  // namespace qb
