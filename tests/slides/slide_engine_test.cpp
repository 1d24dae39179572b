// The slide engine under the run controller: a deck a real user would
// have, from collection to the last written slide, and the same run with
// every host member the engine uses missing, then failing, in turn. Each
// run ends with one closing event, and every paragraph is its translation
// or exactly its source.
#include <gtest/gtest.h>

#include "sim/host/deck_builder.h"
#include "slides/engine_harness.h"

namespace qb {
namespace {

using sim::DeckBuilder;
using sim::FaultRule;
using test::EngineHarness;

std::shared_ptr<sim::PresentationModel> UserDeck() {
    DeckBuilder b;
    b.Slide().Placeholder(u"Title 1", u"Annual results 2025");
    b.Placeholder(u"Content 2", u"Revenue grew\rMargins held\vsteady\r\r42%");
    b.Notes(u"Mention the new markets");
    b.Slide().Text(u"Header", u"Regional split");
    b.Table(u"Table 3", 3, 2, {u"Region", u"Share", u"North", u"40%", u"South", u"60%"});
    b.BeginGroup(u"Group 4").Text(u"Callout", u"Strongest quarter");
    b.BeginGroup(u"Group 5").Text(u"Label", u"Source: finance").EndGroup().EndGroup();
    b.Slide().Text(u"Cjk", u"\u4eba\u5de5\r\u667a\u80fd").Text(u"Page", u"3 / 12");
    b.Slide();  // an empty slide
    b.Slide().Text(u"Closing", u"Thank you\rQuestions?");
    return b.Build();
}

TEST(SlideEngine, AFullDeckRunTranslatesEveryTextInPlace) {
    EngineHarness h;
    auto deck = h.host.AddPresentation(UserDeck());
    const auto before = test::CaptureFrames(*deck);
    const test::RunOutcome out = h.Run(h.Options());
    ASSERT_TRUE(out.started) << Utf16ToUtf8(out.startMessage);
    EXPECT_EQ(out.closing, std::vector<std::string>{"complete"});
    EXPECT_EQ(out.firstApplyError, u"");
    EXPECT_EQ(out.applied, static_cast<std::int32_t>(out.lists.texts.size()));
    EXPECT_EQ(out.lists.texts.size(), 14u);
    test::ExpectTranslatedOrSource(before, h.translate);
    EXPECT_EQ(deck->slides[0]->shapes[1]->frame.text,
              u"DE<Revenue grew>\rDE<Margins held steady>\r\r42%");
    EXPECT_EQ(deck->slides[2]->shapes[0]->frame.text, u"DE<\u4eba\u5de5\u667a\u80fd>");
    EXPECT_EQ(deck->slides[2]->shapes[1]->frame.text, u"3 / 12");
    EXPECT_EQ(deck->slides[1]->shapes[1]->table->CellAt(3, 2)->frame.text, u"60%");
    EXPECT_EQ(out.lists.spans.size(), 5u);
}

TEST(SlideEngine, TheCurrentSlideRunWritesOnlyThatSlide) {
    EngineHarness h;
    auto deck = h.host.AddPresentation(UserDeck());
    h.host.App().windows[0]->currentSlide = 2;
    const test::RunOutcome out = h.Run(h.Options(RunScope::CurrentSlide));
    EXPECT_EQ(out.closing, std::vector<std::string>{"complete"});
    EXPECT_EQ(deck->slides[0]->shapes[0]->frame.text, u"Annual results 2025");
    EXPECT_EQ(deck->slides[1]->shapes[0]->frame.text, u"DE<Regional split>");
    EXPECT_EQ(out.applied, 7);
}

TEST(SlideEngine, ADeckWithoutTextEndsAtOnceAsAnEmptyRun) {
    DeckBuilder b;
    b.Slide().Text(u"Numbers", u"2024 / 2025").Picture(u"Logo");
    EngineHarness h;
    h.host.AddPresentation(b.Build());
    const test::RunOutcome out = h.Run(h.Options());
    EXPECT_FALSE(out.started);
    EXPECT_EQ(out.closing, std::vector<std::string>{"complete"});
    EXPECT_EQ(out.applied, 0);
}

struct MemberFault {
    const char16_t* type;
    const char16_t* member;
    FaultRule::Access access;
};

// Every member collection and writeback call on the host.
const MemberFault kMembers[] = {
    {u"Application", u"Windows", FaultRule::Access::Get},
    {u"DocumentWindow", u"Presentation", FaultRule::Access::Get},
    {u"Presentation", u"Slides", FaultRule::Access::Get},
    {u"Presentation", u"PageSetup", FaultRule::Access::Get},
    {u"PageSetup", u"SlideWidth", FaultRule::Access::Get},
    {u"Slides", u"Count", FaultRule::Access::Get},
    {u"Slides", u"Item", FaultRule::Access::Get},
    {u"Slide", u"Shapes", FaultRule::Access::Get},
    {u"Slide", u"Tags", FaultRule::Access::Get},
    {u"Tags", u"Item", FaultRule::Access::Get},
    {u"Slide", u"NotesPage", FaultRule::Access::Get},
    {u"NotesPage", u"Shapes", FaultRule::Access::Get},
    {u"Shapes", u"Count", FaultRule::Access::Get},
    {u"Shapes", u"Item", FaultRule::Access::Get},
    {u"Shapes", u"", FaultRule::Access::Default},
    {u"GroupShapes", u"Count", FaultRule::Access::Get},
    {u"GroupShapes", u"Item", FaultRule::Access::Get},
    {u"Shape", u"Type", FaultRule::Access::Get},
    {u"Shape", u"GroupItems", FaultRule::Access::Get},
    {u"Shape", u"HasTable", FaultRule::Access::Get},
    {u"Shape", u"Table", FaultRule::Access::Get},
    {u"Table", u"Rows", FaultRule::Access::Get},
    {u"Table", u"Columns", FaultRule::Access::Get},
    {u"Rows", u"Count", FaultRule::Access::Get},
    {u"Table", u"Cell", FaultRule::Access::Get},
    {u"Cell", u"Shape", FaultRule::Access::Get},
    {u"Shape", u"HasTextFrame", FaultRule::Access::Get},
    {u"Shape", u"TextFrame", FaultRule::Access::Get},
    {u"Shape", u"Name", FaultRule::Access::Get},
    {u"Shape", u"Left", FaultRule::Access::Get},
    {u"Shape", u"Height", FaultRule::Access::Get},
    {u"TextFrame", u"HasText", FaultRule::Access::Get},
    {u"TextFrame", u"TextRange", FaultRule::Access::Get},
    {u"TextRange", u"Paragraphs", FaultRule::Access::Get},
    {u"TextRange", u"Text", FaultRule::Access::Get},
    {u"TextRange", u"Text", FaultRule::Access::Put},
    {u"TextRange", u"Length", FaultRule::Access::Get},
    {u"TextRange", u"Characters", FaultRule::Access::Get},
    {u"TextRange", u"Font", FaultRule::Access::Get},
    {u"Font", u"Color", FaultRule::Access::Get},
    {u"ColorFormat", u"Type", FaultRule::Access::Get},
    {u"ColorFormat", u"RGB", FaultRule::Access::Get},
    {u"ColorFormat", u"RGB", FaultRule::Access::Put},
    {u"Font", u"Size", FaultRule::Access::Get},
    {u"Font", u"Size", FaultRule::Access::Put},
    {u"Font", u"Bold", FaultRule::Access::Any},
    {u"Font", u"Italic", FaultRule::Access::Any},
    {u"Font", u"Name", FaultRule::Access::Put},
    {u"Font", u"NameFarEast", FaultRule::Access::Put},
    {u"Font", u"NameAscii", FaultRule::Access::Put},
    // The fit of each written shape.
    {u"TextFrame", u"AutoSize", FaultRule::Access::Any},
    {u"TextFrame", u"WordWrap", FaultRule::Access::Any},
    {u"TextFrame", u"MarginLeft", FaultRule::Access::Get},
    {u"Shape", u"TextFrame2", FaultRule::Access::Get},
    {u"Shape", u"Width", FaultRule::Access::Any},
    {u"TextRange", u"BoundHeight", FaultRule::Access::Get},
    {u"TextRange", u"BoundWidth", FaultRule::Access::Get},
    {u"TextRange", u"Runs", FaultRule::Access::Get},
};

struct MatrixCase {
    MemberFault fault;
    bool missing;
};

class FaultMatrix : public testing::TestWithParam<MatrixCase> {};

TEST_P(FaultMatrix, TheRunEndsOnceAndLosesNoText) {
    const MatrixCase& c = GetParam();
    EngineHarness h;
    auto deck = h.host.AddPresentation(UserDeck());
    h.host.textPutResetsFormat = true;            // so that the restore has work to do
    h.translate = [](std::u16string_view text) {  // longer: the fit has work to do too
        return u"DE<" + std::u16string(text) + u" und noch viel mehr Text dazu>";
    };
    const auto before = test::CaptureFrames(*deck);
    FaultRule rule;
    rule.objectType = c.fault.type;
    rule.member = c.fault.member;
    rule.access = c.fault.access;
    rule.missing = c.missing;
    h.host.AddFault(rule);
    const test::RunOutcome out = h.Run(h.Options());
    EXPECT_EQ(out.closing.size(), 1u);
    test::ExpectTranslatedOrSource(before, h.translate);
    // A unit either reached its slide or is named in the summary.
    std::int32_t failed = 0;
    for (std::size_t i = 0; i < out.firstApplyError.size(); ++i)
        failed += out.firstApplyError[i] == u';';
    if (!out.firstApplyError.empty()) ++failed;
    if (out.started) {
        EXPECT_EQ(out.applied + failed, static_cast<std::int32_t>(out.lists.texts.size()))
            << Utf16ToUtf8(out.firstApplyError);
    }
}

std::vector<MatrixCase> MatrixCases() {
    std::vector<MatrixCase> cases;
    for (const MemberFault& fault : kMembers) {
        cases.push_back({fault, true});
        cases.push_back({fault, false});
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Members, FaultMatrix, testing::ValuesIn(MatrixCases()),
                         [](const testing::TestParamInfo<MatrixCase>& info) {
                             const MemberFault& f = info.param.fault;
                             std::string name = Utf16ToUtf8(f.type) + "_" +
                                                (f.member[0] ? Utf16ToUtf8(f.member) : "Default");
                             name += f.access == FaultRule::Access::Put ? "_Put" : "";
                             return name + (info.param.missing ? "_Missing" : "_Failing");
                         });

}  // namespace
}  // namespace qb
