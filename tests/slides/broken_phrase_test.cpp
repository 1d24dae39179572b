// The broken phrase pass at the end of a run, on the simulated host: which
// frames it asks for again, what it writes, what it leaves alone, and that
// the gate's hold after each write never costs a frame its turn.
#include <gtest/gtest.h>

#include <map>

#include "sim/host/deck_builder.h"
#include "slides/engine_harness.h"

namespace qb::test {
namespace {

const std::u16string kShuzi = u"\u6570\u5b57";  // two Han characters
const std::u16string kWenzi = u"\u6587\u5b57";

class BrokenPhraseTest : public testing::Test {
  protected:
    // The service: CJK pieces come back unchanged, other text is translated.
    std::u16string Service(std::u16string_view text) {
        for (char16_t c : text) {
            if (c >= 0x4E00 && c <= 0x9FFF) return std::u16string(text);
        }
        return Pseudo(text);
    }
    void UseService() {
        h.translate = [this](std::u16string_view text) { return Service(text); };
    }
    // The pass's road: records each phrase and answers from the table.
    void Answer(std::map<std::u16string, std::u16string> answers, bool fails = false) {
        h.phrase = [this, answers, fails](const std::u16string& text, std::u16string& out) {
            asked.push_back(text);
            const auto found = answers.find(text);
            out = found == answers.end() ? text : found->second;
            return !fails;
        };
    }
    RunOptions Options(const std::u16string& targetLang = u"en") {
        RunOptions options = h.Options(RunScope::Selection);
        options.scope = RunScope::FullDeck;
        options.fullDeck = true;
        options.targetLang = targetLang;
        return options;
    }
    std::u16string Frame(std::size_t slide, std::size_t shape) {
        return deck->slides[slide - 1]->shapes[shape - 1]->frame.text;
    }

    EngineHarness h;
    std::shared_ptr<sim::PresentationModel> deck;
    std::vector<std::u16string> asked;
};

TEST_F(BrokenPhraseTest, AnUntranslatedPieceMakesThePassTranslateTheWholeFrameAsOneParagraph) {
    sim::DeckBuilder b;
    b.Slide().Text(u"Label", kShuzi + u"\r2024").Text(u"Body", u"Sales");
    deck = h.host.AddPresentation(b.Build());
    UseService();
    Answer({{kShuzi + u"2024", u"Digits 2024"}});
    const RunOutcome out = h.Run(Options());
    EXPECT_EQ(out.closing, std::vector<std::string>{"complete"});
    EXPECT_EQ(asked, std::vector<std::u16string>{kShuzi + u"2024"});
    EXPECT_EQ(Frame(1, 1), u"Digits 2024");
    EXPECT_EQ(Frame(1, 2), u"DE<Sales>");
    EXPECT_EQ(out.applied, 2);  // "Sales" and the mended frame; an unchanged piece isn't written
    EXPECT_EQ(deck->slides[0]->shapes[0]->frame.formats[0].name, u"Times New Roman");
}

TEST_F(BrokenPhraseTest, FramesThePassMustLeaveAlone) {
    const struct {
        const char* name;
        bool firstPieceTranslated;
        std::u16string answer;
        std::u16string targetLang;
        bool fails;
        bool written;
    } cases[] = {
        {"a translated piece", true, u"Digits 2024", u"en", false, false},
        {"an answer that is the source", false, kShuzi + u"2024", u"en", false, false},
        {"an answer with Han characters for a target without them", false, u"\u6570\u5b57 2024",
         u"en", false, false},
        {"the same answer for a Japanese target", false, u"\u6570\u5b57 2024", u"ja", false, true},
        {"an empty answer", false, u"", u"en", false, false},
        {"a failed exchange", false, u"Digits 2024", u"en", true, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        h.host.App().windows.clear();
        sim::DeckBuilder b;
        b.Slide().Text(u"Label", kShuzi + u"\r2024");
        deck = h.host.AddPresentation(b.Build());
        asked.clear();
        h.translate = [&](std::u16string_view text) {
            return c.firstPieceTranslated ? Pseudo(text) : std::u16string(text);
        };
        Answer({{kShuzi + u"2024", c.answer}}, c.fails);
        const RunOutcome out = h.Run(Options(c.targetLang));
        EXPECT_EQ(out.closing, std::vector<std::string>{"complete"});
        EXPECT_EQ(asked.size(), c.firstPieceTranslated ? 0u : 1u);
        if (c.written) {
            EXPECT_EQ(Frame(1, 1), c.answer);
            EXPECT_EQ(out.applied, 1);
        } else {
            EXPECT_EQ(Frame(1, 1),
                      c.firstPieceTranslated ? u"DE<" + kShuzi + u">\r2024" : kShuzi + u"\r2024");
            EXPECT_EQ(out.applied, c.firstPieceTranslated ? 1 : 0);
        }
    }
}

TEST_F(BrokenPhraseTest, AWholeFrameUnitAndAFrameOfTwoPiecesAreEachAskedForOnce) {
    sim::DeckBuilder b;
    // All pieces are words: the frame goes whole, and comes back unchanged.
    b.Slide().Text(u"Whole", kShuzi + u"\r" + kWenzi);
    // Two pieces and a number: two units of one frame.
    b.Slide().Text(u"Pieces", kShuzi + u"\r" + kWenzi + u"\r2024");
    deck = h.host.AddPresentation(b.Build());
    UseService();
    Answer({{kShuzi + kWenzi, u"Digits and text"},
            {kShuzi + kWenzi + u"2024", u"Digits and text 2024"}});
    const std::uint64_t before = h.clock.TickCount64();
    const RunOutcome out = h.Run(Options());
    EXPECT_EQ(asked, (std::vector<std::u16string>{kShuzi + kWenzi, kShuzi + kWenzi + u"2024"}));
    EXPECT_EQ(Frame(1, 1), u"Digits and text");
    EXPECT_EQ(Frame(2, 1), u"Digits and text 2024");
    EXPECT_EQ(out.applied, 2);  // a frame counts once, whatever its number of units
    EXPECT_GT(h.clock.TickCount64(), before);
}

TEST_F(BrokenPhraseTest, TheGatesHoldAfterEachWriteIsWaitedOutSoEveryFrameIsWritten) {
    sim::DeckBuilder b;
    b.Slide().Text(u"A", kShuzi + u"\r2024").Text(u"B", kWenzi + u"\r2025");
    deck = h.host.AddPresentation(b.Build());
    UseService();
    std::vector<std::uint64_t> at;
    h.phrase = [&](const std::u16string& text, std::u16string& out) {
        at.push_back(h.clock.TickCount64());
        out = u"T " + text.substr(2);
        return true;
    };
    const RunOutcome out = h.Run(Options());
    EXPECT_EQ(Frame(1, 1), u"T 2024");
    EXPECT_EQ(Frame(1, 2), u"T 2025");
    ASSERT_EQ(at.size(), 2u);
    EXPECT_EQ(out.applied, 2);
    // The second write waited for the hold the first one left.
    EXPECT_GE(StaGate::NotBefore() - at[1], kStaGateHoldMs);
    EXPECT_EQ(StaGate::Owner(), nullptr);
}

TEST_F(BrokenPhraseTest, AGateWithSomebodyInsideKeepsTheFramesSourceText) {
    sim::DeckBuilder b;
    b.Slide().Text(u"A", kShuzi + u"\r2024");
    deck = h.host.AddPresentation(b.Build());
    UseService();
    int other = 0;
    h.phrase = [&](const std::u16string&, std::u16string& out) {
        out = u"Digits 2024";
        h.clock.Advance(kStaGateHoldMs);         // the last slide's hold is over
        EXPECT_TRUE(StaGate::TryEnter(&other));  // a host call pumps; somebody enters
        return true;
    };
    const RunOutcome out = h.Run(Options());
    EXPECT_EQ(Frame(1, 1), kShuzi + u"\r2024");
    EXPECT_EQ(out.applied, 0);
    StaGate::Leave(&other);
}

}  // namespace
}  // namespace qb::test
