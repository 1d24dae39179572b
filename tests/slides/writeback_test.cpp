// Writeback through whole runs on the simulated host: what a user sees on
// the slide afterwards. Each translation stands where its source stood, the
// paragraphs and their end marks stay, the font values that the host moves
// in a put come back, the target font is set in its name slots, and a unit
// that can't be written keeps its source text.
#include <gtest/gtest.h>

#include "sim/host/deck_builder.h"
#include "sim/host/sim_metrics.h"
#include "slides/engine_harness.h"
#include "slides/target_style.h"
#include "slides/writeback.h"
#include "support/trace_lines.h"

namespace qb {
namespace {

using sim::CharFormat;
using sim::DeckBuilder;
using sim::FaultRule;
using sim::ShapeModel;
using test::EngineHarness;
using test::Pseudo;
using test::TraceLines;

TEST(NormalizeTranslation, FlattensAnyLineEndsIntoOneLine) {
    const struct {
        std::u16string in, out;
    } cases[] = {
        {u"plain", u"plain"},
        {u"two\nlines", u"two lines"},
        {u"two\r\n\r\nlines", u"two lines"},  // a run of line ends counts once
        {u"\r\nleading", u"leading"},
        {u"trailing\r\n", u"trailing"},
        {u"soft\vbreak\fpage", u"soft break page"},
        {u"kept\n blank", u"kept blank"},  // no second blank before one
        {u"kept \nblank", u"kept  blank"},
        {u"tab\n\tafter", u"tab\tafter"},
        {u"ends in blanks \t ", u"ends in blanks"},
        {u"\r\n\r\n", u""},
        {u"", u""},
        {u"\u4e2d\u6587\n\u7ffb\u8bd1", u"\u4e2d\u6587 \u7ffb\u8bd1"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(NormalizeTranslation(c.in), c.out) << Utf16ToUtf8(c.in);
}

TEST(TargetStyle, ReadsOnlyTheKeysTheMessageHolds) {
    const struct {
        std::u16string message;
        TargetStyle expected;
    } cases[] = {
        {u"{\"targetFont\":\"Arial\",\"targetFontSize\":24,\"targetFontColor\":\"#FF8000\","
         u"\"targetFontBold\":1}",
         {u"Arial", 24.0, 0x0080FF, 1}},
        {u"{\"targetFontColor\":\"FF8000\"}", {u"Keep", 12.0, -1, 0}},
        {u"{\"targetFontColor\":\"#FF80\"}", {u"Keep", 12.0, -1, 0}},
        {u"{\"targetFontColor\":\"#GG8000\"}", {u"Keep", 12.0, -1, 0}},
        {u"{\"targetFontBold\":2}", {u"Keep", 12.0, 0x112233, -1}},
        {u"{\"targetFontBold\":0}", {u"Keep", 12.0, 0x112233, 0}},
        {u"{\"targetFont\":\"\"}", {u"", 12.0, 0x112233, 0}},
        {u"{}", {u"Keep", 12.0, 0x112233, 0}},
        {u"", {u"Keep", 12.0, 0x112233, 0}},
    };
    for (const auto& c : cases) {
        TargetStyle style{u"Keep", 12.0, 0x112233, 0};
        ReadTargetStyle(c.message, style);
        EXPECT_EQ(style.font, c.expected.font) << Utf16ToUtf8(c.message);
        EXPECT_EQ(style.size, c.expected.size) << Utf16ToUtf8(c.message);
        EXPECT_EQ(style.color, c.expected.color) << Utf16ToUtf8(c.message);
        EXPECT_EQ(style.bold, c.expected.bold) << Utf16ToUtf8(c.message);
    }
}

TEST(TargetStyle, KnowsWhichTargetsAreNotCjk) {
    const struct {
        std::u16string code;
        bool nonCjk;
    } cases[] = {
        {u"ZH-cn", false}, {u"Japanese", false}, {u"ko", false},   {u"zh-TW", false},
        {u"en", true},     {u"de", true},        {u"pt-BR", true}, {u"auto", false},
        {u"AUTO", false},  {u"", false},         {u"ar", true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(IsNonCjkTarget(c.code), c.nonCjk) << Utf16ToUtf8(c.code);
}

class Writeback : public testing::Test {
  protected:
    std::shared_ptr<sim::PresentationModel> Load(DeckBuilder& b) {
        deck_ = h_.host.AddPresentation(b.Build());
        before_ = test::CaptureFrames(*deck_);
        return deck_;
    }
    test::RunOutcome Run(RunOptions options) {
        test::RunOutcome out = h_.Run(options);
        EXPECT_EQ(out.closing.size(), 1u) << "one closing event a run";
        test::ExpectTranslatedOrSource(before_, h_.translate);
        return out;
    }
    test::RunOutcome Run() { return Run(h_.Options()); }
    ShapeModel& Shape(std::size_t slide, std::size_t index) {
        return *deck_->slides[slide]->shapes[index];
    }

    EngineHarness h_;
    std::shared_ptr<sim::PresentationModel> deck_;
    std::vector<test::FrameRecord> before_;
};

TEST_F(Writeback, ATitleAndBulletsWithMixedRunsGetTheirTranslationsAndKeepTheirLook) {
    DeckBuilder b;
    b.Slide().Placeholder(u"Title", u"Quarterly report");
    b.Text(u"Body", u"Revenue grew strongly\rCosts fell\vsharply\r\rOutlook is bright",
           sim::Box{50, 100, 800, 400});  // room enough: no fit
    Load(b);
    ShapeModel& body = Shape(0, 1);
    // "grew" bold and red; the second paragraph in 24 points.
    sim::FormatText(body, 8, 4, [](CharFormat& f) { f.bold = -1, f.rgb = 0x0000FF; });
    sim::FormatText(body, 22, 17, [](CharFormat& f) { f.size = 24.0f; });
    const test::RunOutcome out = Run();
    EXPECT_EQ(out.applied, 4);
    EXPECT_EQ(out.firstApplyError, u"");
    EXPECT_EQ(Shape(0, 0).frame.text, u"DE<Quarterly report>");
    EXPECT_EQ(body.frame.text,
              u"DE<Revenue grew strongly>\rDE<Costs fell sharply>\r\rDE<Outlook "
              u"is bright>");
    // The translation takes the look the host gives it, from the paragraph's
    // first character; the mixed bold isn't forced either way.
    const CharFormat& first = body.frame.formats[0];
    EXPECT_EQ(first.bold, 0);
    EXPECT_EQ(first.rgb, 0);
    const std::size_t second = body.frame.text.find(u"DE<Costs");
    EXPECT_EQ(body.frame.formats[second].size, 24.0f);
    for (std::size_t i = 0; i < body.frame.text.size(); ++i) {
        if (body.frame.text[i] == u'\r') continue;
        EXPECT_EQ(body.frame.formats[i].name, u"Times New Roman") << i;
        EXPECT_EQ(body.frame.formats[i].nameFarEast, u"Times New Roman") << i;
        EXPECT_EQ(body.frame.formats[i].nameAscii, u"Times New Roman") << i;
    }
}

TEST_F(Writeback, AHostThatResetsTheLookOnAPutGetsSizeAndColourBack) {
    DeckBuilder b;
    b.Slide().Text(u"Box", u"Coloured line\rScheme line");
    Load(b);
    ShapeModel& box = Shape(0, 0);
    box.frame.defaultFormat.size = 10.0f;
    box.frame.defaultFormat.rgb = 0;
    sim::FormatText(box, 0, 13, [](CharFormat& f) { f.size = 32.0f, f.rgb = 0x3366CC; });
    sim::FormatText(box, 14, 11, [](CharFormat& f) {
        f.colorType = 2, f.schemeColor = 5, f.rgb = 0xC47244, f.tintAndShade = 0.25f;
    });
    h_.host.textPutResetsFormat = true;
    TraceLines trace;
    Run();
    EXPECT_EQ(box.frame.text, u"DE<Coloured line>\rDE<Scheme line>");
    for (std::size_t i = 0; i < 17; ++i) {
        EXPECT_EQ(box.frame.formats[i].size, 32.0f) << i;
        EXPECT_EQ(box.frame.formats[i].rgb, 0x3366CC) << i;
    }
    const CharFormat& scheme = box.frame.formats[20];
    EXPECT_EQ(scheme.colorType, 2);
    EXPECT_EQ(scheme.schemeColor, 5);
    EXPECT_FLOAT_EQ(scheme.tintAndShade, 0.25f);
    EXPECT_TRUE(trace.Has(u"PptCtrl font color restored before=0x3366CC after=0x000000\r\n"));
}

TEST_F(Writeback, UnchangedEmptyAndLineBreakTranslationsAreHandledAsTheyRead) {
    DeckBuilder b;
    b.Slide().Text(u"Box", u"Same\rGone\rBroken");
    Load(b);
    sim::FormatText(Shape(0, 0), 0, 4, [](CharFormat& f) { f.italic = -1; });
    h_.translate = [](std::u16string_view text) -> std::u16string {
        if (text == u"Same") return u"Same";
        if (text == u"Gone") return u"\r\n";
        return u"two\r\nlines";
    };
    const test::RunOutcome out = Run();
    EXPECT_EQ(Shape(0, 0).frame.text, u"Same\rGone\rtwo lines");
    EXPECT_EQ(out.applied, 1);
    EXPECT_EQ(out.firstApplyError, u"");
    // The unchanged paragraph wasn't touched: its font name is the source's.
    EXPECT_EQ(Shape(0, 0).frame.formats[0].name, u"Calibri");
    EXPECT_EQ(Shape(0, 0).frame.formats[0].italic, -1);
}

TEST_F(Writeback, ParagraphsOfAFrameAreWrittenLastToFirst) {
    DeckBuilder b;
    b.Slide().Text(u"Box", u"One\rTwo\rThree");
    Load(b);
    std::vector<std::u16string> seen;
    h_.beforeWrites = [&] {
        h_.host.pump = [&] {
            if (seen.empty() || seen.back() != deck_->slides[0]->shapes[0]->frame.text) {
                seen.push_back(deck_->slides[0]->shapes[0]->frame.text);
            }
        };
    };
    Run();
    h_.host.pump = nullptr;
    const std::vector<std::u16string> expected = {
        u"One\rTwo\rThree",
        u"One\rTwo\rDE<Three>",
        u"One\rDE<Two>\rDE<Three>",
        u"DE<One>\rDE<Two>\rDE<Three>",
    };
    EXPECT_EQ(seen, expected);
}

TEST_F(Writeback, TablesNotesGroupsAndShortCjkFramesAreWrittenInPlace) {
    DeckBuilder b;
    b.Slide().Table(u"Grid", 2, 2, {u"Name", u"Value", u"Alpha", u"12"});
    b.BeginGroup(u"Outer").BeginGroup(u"Inner").Text(u"Deep", u"Nested text").EndGroup();
    b.Text(u"Side", u"Side text").EndGroup();
    b.Text(u"Cjk", u"\u4eba\u5de5\r\u667a\u80fd");
    b.Notes(u"Speaker notes\rSecond note");
    Load(b);
    const test::RunOutcome out = Run();
    EXPECT_EQ(out.firstApplyError, u"");
    const auto& table = *Shape(0, 0).table;
    EXPECT_EQ(table.CellAt(1, 1)->frame.text, u"DE<Name>");
    EXPECT_EQ(table.CellAt(1, 2)->frame.text, u"DE<Value>");
    EXPECT_EQ(table.CellAt(2, 1)->frame.text, u"DE<Alpha>");
    EXPECT_EQ(table.CellAt(2, 2)->frame.text, u"12");
    EXPECT_EQ(Shape(0, 1).children[0]->children[0]->frame.text, u"DE<Nested text>");
    EXPECT_EQ(Shape(0, 1).children[1]->frame.text, u"DE<Side text>");
    EXPECT_EQ(Shape(0, 2).frame.text, u"DE<\u4eba\u5de5\u667a\u80fd>");
    EXPECT_EQ(deck_->slides[0]->notesShapes[0]->frame.text, u"DE<Speaker notes>\rDE<Second note>");
    EXPECT_EQ(out.applied, 8);
}

TEST_F(Writeback, AShapeDeletedDuringTheRunCostsItsUnitsAndNothingElse) {
    DeckBuilder b;
    b.Slide().Text(u"Keep", u"Stays translated").Text(u"Gone", u"First\rSecond");
    b.Slide().Text(u"Broken", u"Put refused").Text(u"Next", u"Next slide");
    Load(b);
    FaultRule refuse;
    refuse.objectType = u"TextRange";
    refuse.member = u"Text";
    refuse.access = FaultRule::Access::Put;
    refuse.shapeName = u"Broken";
    h_.host.AddFault(refuse);
    h_.beforeWrites = [&] { deck_->slides[0]->shapes.pop_back(); };
    TraceLines trace;
    const test::RunOutcome out = h_.Run(h_.Options());
    EXPECT_EQ(out.closing, std::vector<std::string>{"complete"});
    EXPECT_EQ(Shape(0, 0).frame.text, u"DE<Stays translated>");
    EXPECT_EQ(Shape(1, 0).frame.text, u"Put refused");
    EXPECT_EQ(Shape(1, 1).frame.text, u"DE<Next slide>");
    EXPECT_EQ(out.applied, 2);
    EXPECT_EQ(out.firstApplyError, u"shapes[2].p1; shapes[2].p2; shapes[1].p1");
    EXPECT_EQ(trace.Count(u"PptCtrl apply locate fail stage=shape slide=1 where=shapes[2].p1\r\n"),
              1u);
    EXPECT_TRUE(trace.Has(u"PptCtrl writeback FAIL: shapes[1].p1\r\n"));
}

// Positions are all a unit remembers: when a shape before it goes, another
// shape stands at its place, and that shape's text must not be overwritten.
TEST_F(Writeback, AShapeThatMovedIntoAnotherPositionKeepsItsOwnText) {
    DeckBuilder b;
    b.Slide().Text(u"Gone", u"Deleted by the user\rSecond").Text(u"Moves", u"Moved up");
    b.Text(u"Edited", u"Original\rUntouched");
    Load(b);
    h_.beforeWrites = [&] {
        auto& shapes = deck_->slides[0]->shapes;
        shapes.erase(shapes.begin());
        shapes[1]->frame.SetText(u"Typed by the user\rUntouched", sim::CharFormat());
    };
    const test::RunOutcome out = h_.Run(h_.Options());
    EXPECT_EQ(out.closing, std::vector<std::string>{"complete"});
    EXPECT_EQ(Shape(0, 0).frame.text, u"Moved up");
    EXPECT_EQ(Shape(0, 1).frame.text, u"Typed by the user\rUntouched");
    EXPECT_EQ(out.firstApplyError,
              u"shapes[1].p2; shapes[1].p1; shapes[2].p1; shapes[3].p1; shapes[3].p2");
    EXPECT_EQ(out.applied, 0);
}

TEST_F(Writeback, AnEmptyTargetFontLeavesTheSourceFontsAlone) {
    DeckBuilder b;
    b.Slide().Text(u"Box", u"Hello");
    Load(b);
    RunOptions options = h_.Options();
    options.targetFont.clear();
    Run(options);
    EXPECT_EQ(Shape(0, 0).frame.text, u"DE<Hello>");
    EXPECT_EQ(Shape(0, 0).frame.formats[0].name, u"Calibri");
    EXPECT_EQ(Shape(0, 0).frame.formats[0].nameFarEast, u"SimSun");
}

TEST_F(Writeback, CjkAndRightToLeftTargetsGetTheTargetFontInEveryNameSlot) {
    for (const char16_t* font : {u"Yu Gothic", u"Arial"}) {
        DeckBuilder b;
        b.Slide().Text(u"Box", u"Sales plan\rNext steps");
        EngineHarness h;
        auto deck = h.host.AddPresentation(b.Build());
        const auto before = test::CaptureFrames(*deck);
        const bool cjk = std::u16string(font) == u"Yu Gothic";
        h.translate = [cjk](std::u16string_view text) {
            return (cjk ? u"\u8ca9\u58f2\u8a08\u753b:" : u"\u0645\u0631\u062d\u0628\u0627 ") +
                   std::u16string(text);
        };
        RunOptions options = h.Options();
        options.targetLang = cjk ? u"ja" : u"ar";
        options.targetFont = font;
        const test::RunOutcome out = h.Run(options);
        test::ExpectTranslatedOrSource(before, h.translate);
        EXPECT_EQ(out.applied, 2);
        const auto& frame = deck->slides[0]->shapes[0]->frame;
        for (std::size_t i = 0; i < frame.text.size(); ++i) {
            if (frame.text[i] == u'\r') continue;
            EXPECT_EQ(frame.formats[i].name, font);
            EXPECT_EQ(frame.formats[i].nameFarEast, font);
        }
    }
}

TEST_F(Writeback, AForcedTargetSizeMeasuresNoShape) {
    DeckBuilder b;
    b.Slide().Text(u"Box", u"Some text");
    Load(b);
    RunOptions options = h_.Options();
    options.hasTargetSize = true;
    h_.beforeWrites = [&] { h_.host.ResetCounts(); };
    Run(options);
    EXPECT_EQ(Shape(0, 0).frame.text, u"DE<Some text>");
    EXPECT_EQ(h_.host.Calls(u"Shape", u"Left"), 0u);
    EXPECT_EQ(h_.host.Calls(u"TextFrame", u"AutoSize"), 0u);
}

TEST_F(Writeback, ALastParagraphWithoutAnEndMarkIsWrittenWhole) {
    DeckBuilder b;
    b.Slide().Text(u"Box", u"First\rLast");
    Load(b);
    h_.beforeWrites = [&] { h_.host.ResetCounts(); };
    Run();
    EXPECT_EQ(Shape(0, 0).frame.text, u"DE<First>\rDE<Last>");
    // Only the paragraph with an end mark needs a character range.
    EXPECT_EQ(h_.host.Calls(u"TextRange", u"Characters"), 1u);
}

TEST_F(Writeback, ALongerTranslationIsShrunkIntoItsBoxButATableCellIsNot) {
    DeckBuilder b;
    b.Slide().Text(u"Tight", u"Quarterly revenue overview", sim::Box{50, 50, 300, 40});
    b.Table(u"Grid", 1, 1, {u"A cell with several words in it"}, sim::Box{50, 200, 200, 30});
    Load(b);
    sim::FormatText(Shape(0, 0), 0, 26, [](CharFormat& f) { f.size = 28.0f; });
    h_.translate = [](std::u16string_view text) {
        return u"Die " + std::u16string(text) + u" wird deutlich l\u00e4nger als vorher";
    };
    const test::RunOutcome out = Run();
    EXPECT_EQ(out.applied, 2);
    const ShapeModel& tight = Shape(0, 0);
    EXPECT_LT(tight.frame.formats[0].size, 28.0f);
    EXPECT_GE(tight.frame.formats[0].size, 5.0f);
    const sim::TextBounds bounds =
        sim::MeasureRange(tight, 0, static_cast<std::int32_t>(tight.frame.text.size()));
    EXPECT_LE(bounds.height, tight.height + 0.02f * tight.height + 1.0f);
    EXPECT_EQ(tight.width, 300.0f);  // the box stays where the user put it
    EXPECT_EQ(tight.height, 40.0f);
    const auto& cell = *Shape(0, 1).table->CellAt(1, 1);
    EXPECT_EQ(cell.frame.formats[0].size, 18.0f);
}

}  // namespace
}  // namespace qb
