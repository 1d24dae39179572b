// Selection runs on the simulated host: every kind of selection the host
// reports becomes the units it must, or the message the user must see, and
// the translation of a selection lands exactly where it was selected.
#include <gtest/gtest.h>

#include "sim/host/deck_builder.h"
#include "sim/sim_test_support.h"
#include "slides/engine_harness.h"
#include "slides/selection.h"

namespace qb {
namespace {

using sim::DeckBuilder;
using sim::SelectionModel;
using sim::SelectionType;
using sim::ShapeModel;
using test::EngineHarness;

const std::u16string kSelectFirst =
    u"\u8bf7\u5148\u9009\u4e2d\u8981\u7ffb\u8bd1\u7684\u5f62\u72b6\u6216\u6587\u5b57";
const std::u16string kUnreadable = u"\u65e0\u6cd5\u8bfb\u53d6\u9009\u533a";
const std::u16string kNothing =
    u"\u9009\u533a\u91cc\u6ca1\u6709\u53ef\u7ffb\u8bd1\u7684\u6587\u5b57";
const std::u16string kTooLarge =
    u"\u9009\u533a\u8fc7\u5927\uff0c\u8bf7\u7f29\u5c0f\u9009\u62e9\u8303\u56f4";

SelectionModel TextSel(std::shared_ptr<ShapeModel> shape, std::int32_t start, std::int32_t length) {
    SelectionModel m;
    m.type = SelectionType::Text;
    m.textShape = std::move(shape);
    m.textStart = start;
    m.textLength = length;
    return m;
}

SelectionModel ShapeSel(std::vector<std::shared_ptr<ShapeModel>> shapes,
                        std::vector<std::shared_ptr<ShapeModel>> children = {}) {
    SelectionModel m;
    m.type = SelectionType::Shapes;
    m.shapes = std::move(shapes);
    m.childShapes = std::move(children);
    return m;
}

SelectionModel SlideSel(std::vector<std::shared_ptr<sim::SlideModel>> slides) {
    SelectionModel m;
    m.type = SelectionType::Slides;
    m.slides = std::move(slides);
    return m;
}

// Five slides; slide 4 has a group, a table and two notes shapes.
std::shared_ptr<sim::PresentationModel> Deck() {
    DeckBuilder b;
    for (int i = 1; i <= 5; ++i) {
        b.Slide().Text(u"Title", u"Slide " + DecimalText(i) + u" title");
        if (i == 4) {
            b.Text(u"Body", u"The quick brown fox jumps over the lazy dog\rSecond line");
            b.BeginGroup(u"Group")
                .Text(u"Child", u"Grouped text")
                .Text(u"Other", u"More")
                .EndGroup();
            b.Table(u"Grid", 1, 2, {u"Left cell", u"Right cell"});
            b.Text(u"Digits", u"2024");
            b.Notes(u"First note");
            b.Notes(u"Second note");
        }
    }
    return b.Build();
}

struct Fixture {
    EngineHarness h;
    std::shared_ptr<sim::PresentationModel> deck = h.host.AddPresentation(Deck());
    SelectionModel& Selection() { return h.host.App().windows[0]->selection; }
    sim::SlideModel& Slide(int i) { return *deck->slides[static_cast<std::size_t>(i - 1)]; }
    std::shared_ptr<ShapeModel> Shape(int slide, int index) {
        return Slide(slide).shapes[static_cast<std::size_t>(index - 1)];
    }
    test::RunOutcome Run() { return h.Run(h.Options(RunScope::Selection)); }

    // Collection alone, for what it makes and says.
    HRESULT Collect(RunLists& lists, std::u16string& message,
                    std::vector<std::string>* progress = nullptr) {
        RunContext run;
        run.application = sim::test::Root(h.host);
        run.window = sim::test::Object(sim::test::Object(run.application, u"Windows"), u"Item",
                                       {sim::test::I4(1)});
        run.presentation = sim::test::Object(run.window, u"Presentation");
        RunCallbacks callbacks;
        callbacks.onScanProgress = [&](std::int32_t i, std::int32_t n, const std::u16string& p) {
            if (progress) {
                progress->push_back(std::to_string(i) + "/" + std::to_string(n) + " " +
                                    Utf16ToUtf8(p));
            }
        };
        run.callbacks = &callbacks;
        return CollectSelection(run, lists, message);
    }
};

TEST(SelectionScope, SelectedCharactersAreOneUnitWrittenInPlace) {
    Fixture f;
    f.h.host.App().windows[0]->currentSlide = 4;
    f.Selection() = TextSel(f.Shape(4, 2), 11, 40);
    RunLists lists;
    std::u16string message;
    ASSERT_EQ(f.Collect(lists, message), S_OK);
    ASSERT_EQ(lists.units.size(), 1u);
    EXPECT_EQ(lists.units[0].unitId, u"shapes[2].chars(11,40)");
    EXPECT_EQ(lists.texts[0], u"brown fox jumps over the lazy dog\rSecond");
    EXPECT_EQ(lists.addresses[0].kind, UnitKind::SelectedCharacters);
    EXPECT_EQ(lists.addresses[0].charStart, 11);

    const test::RunOutcome out = f.Run();
    EXPECT_EQ(out.closing, std::vector<std::string>{"complete"});
    // The selection spanned a paragraph end; it comes back as one line.
    EXPECT_EQ(f.Shape(4, 2)->frame.text,
              u"The quick DE<brown fox jumps over the lazy dog Second> line");
    EXPECT_EQ(f.Shape(4, 1)->frame.text, u"Slide 4 title");
}

TEST(SelectionScope, ShapesOnASlideAndItsNotesAreOneSpan) {
    Fixture f;
    auto& notes = f.Slide(4).notesShapes;
    f.Selection() = ShapeSel({notes[0], f.Shape(4, 1), notes[1]});
    RunLists lists;
    std::u16string message;
    std::vector<std::string> progress;
    ASSERT_EQ(f.Collect(lists, message, &progress), S_OK);
    EXPECT_EQ(progress, std::vector<std::string>{"0/3 shapes"});
    ASSERT_EQ(lists.addresses.size(), 3u);
    EXPECT_EQ(lists.addresses[0].kind, UnitKind::NotesFrame);
    EXPECT_EQ(lists.addresses[1].kind, UnitKind::Frame);
    EXPECT_EQ(lists.addresses[2].onNotesPage, 1);
    ASSERT_EQ(lists.spans.size(), 1u);
    EXPECT_EQ(lists.spans[0].end, 3);
    EXPECT_EQ(lists.slideIndexes, std::vector<std::int32_t>{4});
    EXPECT_EQ(lists.firstSlide, 4);
}

TEST(SelectionScope, CellsGroupsAndGroupChildrenAreFoundWhereTheyStand) {
    Fixture f;
    f.h.host.App().windows[0]->currentSlide = 1;  // not the selection's slide
    const auto group = f.Shape(4, 3);
    const auto cell = f.Shape(4, 4)->table->CellAt(1, 2);
    // The group itself and, through the child range, one of its items: the
    // item's units come once.
    f.Selection() = ShapeSel({group, cell});
    const test::RunOutcome out = f.Run();
    EXPECT_EQ(out.closing, std::vector<std::string>{"complete"});
    EXPECT_EQ(group->children[0]->frame.text, u"DE<Grouped text>");
    EXPECT_EQ(group->children[1]->frame.text, u"DE<More>");
    EXPECT_EQ(f.Shape(4, 4)->table->CellAt(1, 2)->frame.text, u"DE<Right cell>");
    EXPECT_EQ(f.Shape(4, 4)->table->CellAt(1, 1)->frame.text, u"Left cell");
    ASSERT_EQ(out.lists.addresses.size(), 3u);
    EXPECT_EQ(out.lists.addresses[2].kind, UnitKind::TableCell);
    EXPECT_EQ(out.lists.addresses[2].column, 2);

    Fixture child;
    const auto item = child.Shape(4, 3)->children[0];
    child.Selection() = ShapeSel({child.Shape(4, 3)}, {item, item});
    RunLists lists;
    std::u16string message;
    ASSERT_EQ(child.Collect(lists, message), S_OK);
    ASSERT_EQ(lists.units.size(), 1u);  // twice selected, once collected
    EXPECT_EQ(lists.addresses[0].shapePath, (std::vector<std::int32_t>{3, 1}));
}

TEST(SelectionScope, SelectedSlidesAreWalkedWholeInTheirOrder) {
    Fixture f;
    f.Selection() = SlideSel({f.deck->slides[3], f.deck->slides[1]});
    RunLists lists;
    std::u16string message;
    std::vector<std::string> progress;
    ASSERT_EQ(f.Collect(lists, message, &progress), S_OK);
    EXPECT_EQ(progress, (std::vector<std::string>{"0/2 slides", "1/2 slides", "2/2 slides"}));
    EXPECT_EQ(lists.slideIndexes, (std::vector<std::int32_t>{4, 2}));
    EXPECT_EQ(lists.texts.front(), u"Slide 4 title");
    EXPECT_EQ(lists.texts.back(), u"Slide 2 title");
    EXPECT_EQ(lists.firstSlide, 1);  // stays at its default for slides
}

TEST(SelectionScope, WhatCantBeTranslatedSaysWhy) {
    const auto foreign = std::make_shared<ShapeModel>();
    foreign->id = 999;
    foreign->name = u"Not in the deck";
    const struct {
        const char* name;
        std::function<SelectionModel(Fixture&)> select;
        std::u16string message;
    } cases[] = {
        {"nothing", [](Fixture&) { return SelectionModel{}; }, kSelectFirst},
        {"empty text", [](Fixture& f) { return TextSel(f.Shape(4, 2), 3, 0); }, kSelectFirst},
        {"digits only", [](Fixture& f) { return TextSel(f.Shape(4, 5), 1, 4); }, kNothing},
        {"text of an unknown shape",
         [&](Fixture&) {
             foreign->hasTextFrame = true;
             foreign->frame.SetText(u"Lost text", sim::CharFormat());
             return TextSel(foreign, 1, 4);
         },
         kUnreadable},
        {"no shape found", [&](Fixture&) { return ShapeSel({foreign}); }, kUnreadable},
        {"shapes without text", [](Fixture& f) { return ShapeSel({f.Shape(4, 5)}); }, kNothing},
        {"no shapes", [](Fixture&) { return ShapeSel({}); }, kSelectFirst},
    };
    for (const auto& c : cases) {
        Fixture f;
        f.Selection() = c.select(f);
        RunLists lists;
        std::u16string message;
        EXPECT_EQ(f.Collect(lists, message), E_FAIL) << c.name;
        EXPECT_EQ(message, c.message) << c.name;
        EXPECT_TRUE(lists.units.empty()) << c.name;
        const test::RunOutcome out = f.Run();
        EXPECT_EQ(out.closing, std::vector<std::string>{"error collect_failed"}) << c.name;
    }
}

TEST(SelectionScope, AShapeThatCantBeFoundIsSkippedAndNamed) {
    Fixture f;
    const auto foreign = std::make_shared<ShapeModel>();
    foreign->id = 999;
    foreign->name = u"Elsewhere";
    f.Selection() = ShapeSel({foreign, f.Shape(2, 1)});
    RunLists lists;
    std::u16string message;
    ASSERT_EQ(f.Collect(lists, message), S_OK);
    EXPECT_EQ(lists.texts, std::vector<std::u16string>{u"Slide 2 title"});
    EXPECT_EQ(lists.skippedLabels, std::vector<std::u16string>{
                                       u"\u65e0\u6cd5\u5b9a\u4f4d\u9009\u4e2d\u7684\u5f62\u72b6"});
}

TEST(SelectionScope, TwoThousandUnitsPassAndOneMoreIsTooMany) {
    for (int paragraphs : {2000, 2001}) {
        std::u16string text;
        for (int i = 0; i < paragraphs; ++i)
            text += (i ? u"\rline " : u"line ") + DecimalText(i);
        DeckBuilder b;
        b.Slide().Text(u"Long", text, sim::Box{0, 0, 900, 9000});
        EngineHarness h;
        auto deck = h.host.AddPresentation(b.Build());
        h.host.App().windows[0]->selection = ShapeSel({deck->slides[0]->shapes[0]});
        RunContext run;
        run.application = sim::test::Root(h.host);
        run.window = sim::test::Object(sim::test::Object(run.application, u"Windows"), u"Item",
                                       {sim::test::I4(1)});
        run.presentation = sim::test::Object(run.window, u"Presentation");
        RunLists lists;
        std::u16string message;
        const HRESULT hr = CollectSelection(run, lists, message);
        if (paragraphs == 2000) {
            EXPECT_EQ(hr, S_OK);
            EXPECT_EQ(lists.units.size(), 2000u);
        } else {
            EXPECT_EQ(hr, E_FAIL);
            EXPECT_EQ(message, kTooLarge);
            EXPECT_TRUE(lists.units.empty() && lists.texts.empty() && lists.spans.empty());
        }
    }
}

TEST(SelectionPreview, CountsWhatIsSelectedWithoutWalkingIt) {
    Fixture f;
    const auto window = [&] {
        return sim::test::Object(sim::test::Object(sim::test::Root(f.h.host), u"Windows"), u"Item",
                                 {sim::test::I4(1)});
    };
    const struct {
        SelectionModel selection;
        bool empty;
        std::int32_t fragments, chars;
        std::u16string label;
    } cases[] = {
        {SlideSel({f.deck->slides[0], f.deck->slides[1], f.deck->slides[2]}), false, 3, 0,
         u"\u5df2\u9009 3 \u9875"},
        {TextSel(f.Shape(4, 2), 1, 9), false, 1, 9, u"\u5df2\u9009 9 \u5b57"},
        {ShapeSel({f.Shape(4, 1), f.Shape(4, 5)}), false, 2, 0,
         u"\u5df2\u9009 2 \u4e2a\u5f62\u72b6"},
        {ShapeSel({f.Shape(4, 3)}, {f.Shape(4, 3)->children[0]}), false, 1, 0,
         u"\u5df2\u9009 1 \u4e2a\u5f62\u72b6"},
        {TextSel(f.Shape(4, 2), 1, 0), true, 0, 0, u""},
        {SelectionModel(), true, 0, 0, u""},
    };
    for (const auto& c : cases) {
        f.Selection() = c.selection;
        const SelectionPreview p = ReadSelectionPreview(sim::test::Root(f.h.host), window());
        EXPECT_EQ(p.empty, c.empty) << Utf16ToUtf8(c.label);
        EXPECT_EQ(p.fragments, c.fragments) << Utf16ToUtf8(c.label);
        EXPECT_EQ(p.chars, c.chars) << Utf16ToUtf8(c.label);
        EXPECT_EQ(p.label, c.label);
    }
    // A pane behind another window previews nothing.
    f.Selection() = cases[0].selection;
    const host::HostRef first = window();
    DeckBuilder other;
    other.Slide().Text(u"T", u"other");
    f.h.host.AddPresentation(other.Build());  // now the active window
    EXPECT_TRUE(ReadSelectionPreview(sim::test::Root(f.h.host), first).empty);
}

}  // namespace
}  // namespace qb
