// The text fit: its arithmetic on its own, then whole fits of simulated
// shapes whose text is measured by the simulated host's metric model.
#include "slides/text_fit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <string>
#include <vector>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "sim/host/deck_builder.h"
#include "sim/sim_test_support.h"

namespace qb {
namespace {

FitMeasure Measure(float h, float w, float left = 0) {
    FitMeasure m;
    m.hasH = h > 0;
    m.h = m.hasH ? h : 0;
    m.hasW = w > 0;
    m.w = m.hasW ? w : 0;
    m.left = left;
    return m;
}

TEST(FitArithmetic, DerivedValuesCountMarginsOnlyWhereTheyLeaveRoom) {
    const struct {
        const char* name;
        float width, height, marginLeft, marginRight;
        float contentW, hTol;
    } cases[] = {
        {"usual margins", 400, 100, 7.2f, 7.2f, 400 - 7.2f - 7.2f, 3.0f},
        {"a negative margin counts as 0", 400, 50, -5, 10, 390, 2.0f},
        {"both negative", 300, 50, -5, -5, 300, 2.0f},
        {"content below 8.0: the whole width", 20, 60, 8, 8, 20, 2.2f},
        {"content below half the width", 100, 60, 30, 30, 100, 2.2f},
        {"exactly half the width stays", 100, 60, 25, 25, 50, 2.2f},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const FitBounds b = DeriveFitBounds(c.width, c.height, c.marginLeft, c.marginRight, 960);
        EXPECT_FLOAT_EQ(b.contentW, c.contentW);
        EXPECT_FLOAT_EQ(b.hTol, c.hTol);
        EXPECT_FLOAT_EQ(b.wTol, 0.02f * c.contentW + 1.0f);
    }
}

TEST(FitArithmetic, TooHighAndTooWideHonourTheTolerancesAndTheSlideEdges) {
    // Box 400 x 100 without margins: hTol 3.0, wTol 9.0.
    const struct {
        const char* name;
        FitMeasure m;
        float slideW;
        bool tooHigh, tooWide;
    } cases[] = {
        {"101.5 in a box of 100 fits", Measure(101.5f, 100), 960, false, false},
        {"103.0 is still within", Measure(103.0f, 100), 960, false, false},
        {"103.1 is too high", Measure(103.1f, 100), 960, true, false},
        {"no height is never too high", Measure(0, 100), 960, false, false},
        {"409 wide is within", Measure(20, 409), 960, false, false},
        {"409.5 is too wide", Measure(20, 409.5f), 960, false, true},
        {"no width is never too wide", Measure(20, 0, -50), 960, false, false},
        {"left -1.0 is on the slide", Measure(20, 100, -1.0f), 960, false, false},
        {"left -1.5 is off the slide", Measure(20, 100, -1.5f), 960, false, true},
        {"right end at 961 is on the slide", Measure(20, 100, 861), 960, false, false},
        {"right end at 962 is off the slide", Measure(20, 100, 862), 960, false, true},
        {"slideW 0 turns the edge tests off", Measure(20, 100, -50), 0, false, false},
        {"slideW 1.0 turns them off too", Measure(20, 100, 5000), 1.0f, false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const FitBounds b = DeriveFitBounds(400, 100, 0, 0, c.slideW);
        EXPECT_EQ(TooHigh(c.m, b), c.tooHigh);
        EXPECT_EQ(TooWide(c.m, b), c.tooWide);
    }
}

TEST(FitArithmetic, FitFactorTakesTheStrictestNeedWithAThreePercentMargin) {
    const struct {
        const char* name;
        float width, height, slideW;  // box without margins
        FitMeasure m;
        float factor;
    } cases[] = {
        {"nothing to shrink", 400, 100, 960, Measure(50, 300, 10), 0.95f},
        {"no measure at all", 400, 100, 960, FitMeasure(), 0.95f},
        {"within the height tolerance", 400, 100, 960, Measure(102, 300, 10), 0.95f},
        {"twice as high", 400, 100, 960, Measure(200, 300, 10), 100.0f / 200.0f * 0.97f},
        {"too wide for its box", 400, 100, 960, Measure(40, 500, 10), 400.0f / 500.0f * 0.97f},
        {"the stricter of height and width", 400, 100, 960, Measure(200, 500, 10),
         100.0f / 200.0f * 0.97f},
        {"60 past the right edge", 600, 100, 960, Measure(40, 520, 500), 460.0f / 520.0f * 0.97f},
        {"30 past the left edge", 600, 100, 960, Measure(40, 300, -30), 270.0f / 300.0f * 0.97f},
        {"past both edges", 2000, 100, 960, Measure(40, 1000, -20), 960.0f / 1000.0f * 0.97f},
        {"one point past is no overrun", 600, 100, 960, Measure(40, 300, 661), 0.95f},
        {"what stays on the slide counts as 8 at least", 600, 100, 960, Measure(40, 10, 955),
         8.0f / 10.0f * 0.97f},
        {"slideW 0: no edge", 600, 100, 0, Measure(40, 520, 500), 0.95f},
        {"never below 0.1", 400, 100, 960, Measure(10000, 300, 10), 0.1f},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const FitBounds b = DeriveFitBounds(c.width, c.height, 0, 0, c.slideW);
        EXPECT_FLOAT_EQ(FitFactor(c.m, b), c.factor);
    }
    // The worked figures: 0.485 for text twice the box's height, 0.776 for a
    // line of 500 in a content width of 400.
    EXPECT_NEAR(FitFactor(Measure(200, 300), DeriveFitBounds(400, 100, 0, 0, 960)), 0.485f, 1e-6f);
    EXPECT_NEAR(FitFactor(Measure(40, 500), DeriveFitBounds(400, 50, 0, 0, 960)), 0.776f, 1e-6f);
}

TEST(FitArithmetic, FitFactorEndsAtTheFloorForMeasuresABrokenHostGives) {
    const FitBounds b = DeriveFitBounds(400, 100, 0, 0, 960);
    FitMeasure m = Measure(200, 300);
    m.h = std::nanf("");
    EXPECT_FLOAT_EQ(FitFactor(m, b), 0.95f);  // a NaN height is never above the box
    m = Measure(1e30f, 300);
    EXPECT_FLOAT_EQ(FitFactor(m, b), 0.1f);
    m = Measure(40, 300, std::nanf(""));
    EXPECT_FLOAT_EQ(FitFactor(m, b), 0.95f);
}

TEST(FitArithmetic, TheModeFollowsTheTwoMeasures) {
    // Content width 400 (no margins), height 50: hTol 2.0, wTol 9.0.
    const struct {
        const char* name;
        FitMeasure a, b;  // without wrap, with wrap
        FitMode mode;
    } cases[] = {
        {"a title one line too wide that wraps too high", Measure(40, 500), Measure(90, 390),
         FitMode::OneLine},
        // oneLine needs a line above 1 / 1.8 of the box's height: 27.8 for 50.
        {"a line of 28 is high enough for oneLine", Measure(28, 500), Measure(90, 390),
         FitMode::OneLine},
        {"a line of 27 is not", Measure(27, 500), Measure(90, 390), FitMode::Height},
        {"too high on one line and wrapped", Measure(60, 900), Measure(130, 395), FitMode::Height},
        {"a word wider than the box even wrapped", Measure(40, 500), Measure(48, 450),
         FitMode::Height},
        {"fits when wrapped", Measure(20, 500), Measure(45, 390), FitMode::Wrap},
        {"fits either way", Measure(20, 300), Measure(20, 300), FitMode::Fit},
        {"without a wrapped height nothing is decided", Measure(40, 500), Measure(0, 0),
         FitMode::Fit},
        {"only the wrapped measure, too high", Measure(0, 0), Measure(90, 390), FitMode::Height},
    };
    const FitBounds bounds = DeriveFitBounds(400, 50, 0, 0, 960);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(ChooseFitMode(c.a, c.b, bounds), c.mode);
    }
}

// --- Whole fits on the simulated host ----------------------------------------

using host::HostRef;
using host::Variant;
using sim::Box;
using sim::CharFormat;
using sim::DeckBuilder;
using sim::FaultRule;
using sim::ShapeModel;
namespace st = sim::test;

// What the fit leaves in the trace.
class TraceLines {
  public:
    TraceLines() { platform::SetDebugListener(&TraceLines::Take, this); }
    ~TraceLines() { platform::SetDebugListener(nullptr, nullptr); }
    TraceLines(const TraceLines&) = delete;
    TraceLines& operator=(const TraceLines&) = delete;

    std::u16string Text() {
        std::lock_guard<std::mutex> hold(lock_);
        return text_;
    }
    bool Has(std::u16string_view piece) { return Text().find(piece) != std::u16string::npos; }
    bool HasFitLine() { return Has(u"PptFit "); }

  private:
    static void Take(void* self, std::u16string_view piece) {
        auto* lines = static_cast<TraceLines*>(self);
        std::lock_guard<std::mutex> hold(lines->lock_);
        lines->text_ += piece;
    }
    std::mutex lock_;
    std::u16string text_;
};

std::u16string U(std::string_view ascii) {
    return std::u16string(ascii.begin(), ascii.end());
}

// One deck on a simulated host, its first shape reached as the engine
// reaches it: through the application object (real IDispatch on Windows).
class Scene {
  public:
    explicit Scene(DeckBuilder& builder) : deck_(host.AddPresentation(builder.Build())) {}

    ShapeModel& Model() const { return *deck_->slides[0]->shapes[0]; }
    HostRef Shape() { return st::ShapeAt(host, 1, 1); }
    HostRef Frame() { return st::Object(Shape(), u"TextFrame"); }
    HostRef Range() { return st::FrameRange(Shape()); }
    HRESULT Write(const std::u16string& text) {
        return st::Put(Range(), u"Text", Variant::String(text));
    }
    std::vector<float> Sizes() const {
        std::vector<float> sizes;
        for (const CharFormat& f : Model().frame.formats)
            sizes.push_back(f.size);
        return sizes;
    }
    // Sizes by the character's position: [start, end) gets `size`.
    void SetSize(std::size_t start, std::size_t end, float size) {
        sim::FormatText(Model(), start, end - start, [size](CharFormat& f) { f.size = size; });
    }
    void SetMargins(float left, float right) {
        Model().frame.marginLeft = left;
        Model().frame.marginRight = right;
    }
    bool BoxIs(const GeometrySnapshot& s) const {
        const ShapeModel& m = Model();
        return m.left == s.left && m.top == s.top && m.width == s.width && m.height == s.height;
    }
    // The text's measure now, against the shape's box now.
    void ExpectTextWithinBox(float slideW) {
        const ShapeModel& m = Model();
        const FitBounds b =
            DeriveFitBounds(m.width, m.height, m.frame.marginLeft, m.frame.marginRight, slideW);
        const FitMeasure now = MeasureText(Range());
        ASSERT_TRUE(now.hasH);
        EXPECT_FALSE(TooHigh(now, b)) << now.h << " high in " << m.height;
        EXPECT_FALSE(TooWide(now, b)) << now.w << " wide at " << now.left;
    }

    sim::SimHost host;
    TraceLines trace;

  private:
    std::shared_ptr<sim::PresentationModel> deck_;
};

const std::u16string kLongGerman =
    u"Die Quartalsergebnisse \u00fcbertreffen die Erwartungen der Analysten in allen Regionen "
    u"deutlich und nachhaltig";

TEST(TextFit, ALengthenedTranslationIsShrunkUntilItFitsItsBox) {
    const struct {
        const char* name;
        bool shapeToFitText;
        bool hasTextFrame2;
        const char* line;
        bool wordWrap;
    } cases[] = {
        {"a fixed box: wrapped, too high", false, true, "PptFit mode=height restored=0 shrunk=1 ",
         true},
        // The box had grown from one line: back in it, the text goes on one line.
        {"a box that grew with the text", true, true, "PptFit mode=oneLine restored=1 shrunk=1 ",
         false},
        {"a host without TextFrame2", true, false, "PptFit mode=oneLine restored=1 shrunk=1 ",
         false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DeckBuilder b;
        b.Slide().Text(u"Body", u"Quarterly results", Box{60, 100, 300, 60});
        Scene s(b);
        s.host.hasTextFrame2 = c.hasTextFrame2;
        if (c.shapeToFitText) {
            ASSERT_EQ(st::Put(s.Frame(), u"AutoSize", st::I4(1)), S_OK);
        }
        const GeometrySnapshot before = CaptureGeometry(s.Shape());
        ASSERT_TRUE(before.valid);
        ASSERT_EQ(s.Write(kLongGerman), S_OK);
        ASSERT_EQ(s.Model().height > before.height + 1.5f, c.shapeToFitText);

        FitShape(s.Shape(), &before, 960);

        EXPECT_EQ(s.Model().frame.text, kLongGerman);
        EXPECT_TRUE(s.BoxIs(before));
        s.ExpectTextWithinBox(960);
        for (float size : s.Sizes()) {
            EXPECT_LT(size, 18.0f);
            EXPECT_GE(size, 5.0f);
        }
        EXPECT_EQ(s.Model().frame.wordWrap, c.wordWrap);
        EXPECT_EQ(s.Model().frame.autoSize, 0);  // the worked-out box must stay
        EXPECT_TRUE(s.trace.Has(U(c.line))) << Utf16ToUtf8(s.trace.Text());
        EXPECT_EQ(s.host.Calls(u"TextFrame2", u"AutoSize="), c.hasTextFrame2 ? 1u : 0u);
    }
}

TEST(TextFit, AFittingTextLeavesTheShapeAsTheHostHadIt) {
    const struct {
        const char* name;
        std::int32_t autoSize;  // put through TextFrame2 when 2
        bool wordWrap;
        bool hasTextFrame2;
    } cases[] = {
        {"auto-size off", 0, true, true},
        {"shape to fit text", 1, true, true},
        {"text to fit shape, a TextFrame2 value", 2, true, true},
        {"word wrap off", 0, false, true},
        {"shape to fit text on a host without TextFrame2", 1, true, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DeckBuilder b;
        b.Slide().Text(u"Title", u"Short title", Box{60, 100, 300, 60});
        Scene s(b);
        s.host.hasTextFrame2 = c.hasTextFrame2;
        if (c.autoSize == 2) {
            ASSERT_EQ(st::Put(st::Object(s.Shape(), u"TextFrame2"), u"AutoSize", st::I4(2)), S_OK);
        } else {
            ASSERT_EQ(st::Put(s.Frame(), u"AutoSize", st::I4(c.autoSize)), S_OK);
        }
        ASSERT_EQ(st::Put(s.Frame(), u"WordWrap", st::I4(c.wordWrap ? -1 : 0)), S_OK);
        const GeometrySnapshot before = CaptureGeometry(s.Shape());
        const std::vector<float> sizes = s.Sizes();
        s.host.ResetCounts();

        FitShape(s.Shape(), &before, 960);

        EXPECT_EQ(s.Model().frame.autoSize, c.autoSize);
        EXPECT_EQ(s.Model().frame.wordWrap, c.wordWrap);
        EXPECT_TRUE(s.BoxIs(before));
        EXPECT_EQ(s.Sizes(), sizes);
        EXPECT_EQ(s.Model().frame.text, u"Short title");
        EXPECT_FALSE(s.trace.HasFitLine()) << Utf16ToUtf8(s.trace.Text());
        // Measured once without wrap and once with it, and nothing shrunk.
        EXPECT_EQ(s.host.Calls(u"TextRange", u"BoundHeight"), 2u);
        EXPECT_EQ(s.host.Calls(u"Font", u"Size="), 0u);
    }
}

TEST(TextFit, TextTooWideForOneLineThatFitsWrappedGetsWrapOn) {
    // Four lines of 21.6 in a box 100 high: wrapping is all it takes.
    DeckBuilder b;
    b.Slide().Text(u"Body", kLongGerman, Box{60, 100, 300, 100});
    Scene s(b);
    ASSERT_EQ(st::Put(s.Frame(), u"WordWrap", st::I4(0)), S_OK);
    ASSERT_EQ(st::Put(st::Object(s.Shape(), u"TextFrame2"), u"AutoSize", st::I4(2)), S_OK);
    const std::vector<float> sizes = s.Sizes();

    FitShape(s.Shape(), nullptr, 960);

    EXPECT_TRUE(s.Model().frame.wordWrap);
    EXPECT_EQ(s.Sizes(), sizes);
    s.ExpectTextWithinBox(960);
    EXPECT_TRUE(s.trace.Has(u"PptFit mode=wrap restored=0 shrunk=0 "))
        << Utf16ToUtf8(s.trace.Text());
    EXPECT_EQ(s.Model().frame.autoSize, 0);  // a changed wrap is a worked-out box too
}

TEST(TextFit, ATitleOneLineTooWideShrinksOnOneLine) {
    // Content width 400, height 50: one line of 442.5 at 30 points is 36
    // high, wrapped it takes two lines, 72.
    DeckBuilder b;
    b.Slide().Text(u"Title", u"abcdefgh abcdefgh abcdefgh abcd", Box{100, 50, 400, 50});
    Scene s(b);
    s.SetMargins(0, 0);
    s.SetSize(0, s.Model().frame.text.size(), 30);

    FitShape(s.Shape(), nullptr, 960);

    EXPECT_FALSE(s.Model().frame.wordWrap);
    const float expected = 30.0f * (400.0f / 442.5f * 0.97f);
    for (float size : s.Sizes())
        EXPECT_NEAR(size, expected, 1e-3f);
    s.ExpectTextWithinBox(960);
    EXPECT_TRUE(s.trace.Has(u"PptFit mode=oneLine restored=0 shrunk=1 "))
        << Utf16ToUtf8(s.trace.Text());
}

TEST(TextFit, TheSlideEdgesLimitTheText) {
    // "abcdefgh abcdefgh" at 18 points is 148.5 wide, in a box 300 wide and
    // 100 high without margins, placed so that the text ends `past` beyond
    // the right edge of a slide 960 wide, or starts at `left`.
    const struct {
        const char* name;
        float past;
        float left;  // used when `past` is 0
        float slideW;
        float size;
        std::uint64_t measures;
        bool logged;
    } cases[] = {
        {"3 past the right edge: the first step is 0.855", 3, 0, 960, 18 * 0.855f, 4, true},
        {"60 past the right edge", 60, 0, 960, 18 * (88.5f / 148.5f * 0.97f), 4, true},
        {"slideW 0 turns the edge off", 60, 0, 0, 18, 2, false},
        {"20 past the left edge: six passes, then it stops", 0, -20, 960, -1, 2 + 6 + 1, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const float left = c.past != 0 ? 960 + c.past - 148.5f : c.left;
        DeckBuilder b;
        b.Slide().Text(u"Caption", u"abcdefgh abcdefgh", Box{left, 100, 300, 100});
        Scene s(b);
        s.SetMargins(0, 0);
        ASSERT_FLOAT_EQ(MeasureText(s.Range()).w, 148.5f);
        s.host.ResetCounts();

        FitShape(s.Shape(), nullptr, c.slideW);

        EXPECT_EQ(s.host.Calls(u"TextRange", u"BoundHeight"), c.measures);
        EXPECT_EQ(s.trace.Has(u"PptFit mode=height restored=0 shrunk=1 "), c.logged)
            << Utf16ToUtf8(s.trace.Text());
        for (float size : s.Sizes()) {
            if (c.size > 0) {
                EXPECT_NEAR(size, c.size, 1e-3f);
            } else {
                EXPECT_GE(size, 5.0f);
                EXPECT_LT(size, 18 * 0.5f);
            }
        }
        if (c.past != 0 && c.slideW > 0) s.ExpectTextWithinBox(c.slideW);
        if (c.past == 0) {
            // Shrinking never moves the start of the text back onto the slide.
            const FitBounds bounds = DeriveFitBounds(300, 100, 0, 0, c.slideW);
            EXPECT_TRUE(TooWide(MeasureText(s.Range()), bounds));
        }
    }
}

TEST(TextFit, FontsStopAtFivePoints) {
    const std::u16string text = kLongGerman + u" " + kLongGerman + u" " + kLongGerman;
    const struct {
        const char* name;
        float first, rest;  // the first word's size, the others'
        bool logged;
    } cases[] = {
        {"all at 5 points: nothing to do, nothing to say", 5, 5, false},
        {"6 points go to 5, 5 stays", 6, 5, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DeckBuilder b;
        b.Slide().Text(u"Body", text, Box{60, 100, 200, 20});
        Scene s(b);
        s.SetSize(0, 3, c.first);
        s.SetSize(3, text.size(), c.rest);
        s.host.ResetCounts();

        FitShape(s.Shape(), nullptr, 960);

        for (float size : s.Sizes())
            EXPECT_EQ(size, 5.0f);
        EXPECT_EQ(s.host.Calls(u"Font", u"Size="), c.first > 5 ? 1u : 0u);
        EXPECT_EQ(s.trace.Has(u"PptFit mode=height restored=0 shrunk=1 "), c.logged);
        EXPECT_EQ(s.trace.HasFitLine(), c.logged);
        EXPECT_TRUE(s.Model().frame.wordWrap);
    }
}

TEST(TextFit, WhatCanNeverFitStepsDownByAFactorOf0_9UntilBelow0_1) {
    // A heading of 400 points over twenty lines of 5-point text, in a box
    // 100 high: the small text alone is too high for it. The first scale is
    // 100 / 600 x 0.97 = 0.162; every later measure asks for less than that,
    // so each pass takes 0.9 of the last scale: 0.146, 0.131, 0.118, 0.106,
    // and 0.095 ends the shrink after five passes.
    std::u16string body;
    for (int i = 0; i < 400; ++i)
        body += u"lorem ";
    DeckBuilder b;
    b.Slide().Text(u"Body", u"B\r" + body, Box{60, 100, 300, 100});
    Scene s(b);
    s.SetSize(0, 2, 400);
    s.SetSize(2, s.Model().frame.text.size(), 5);
    ASSERT_FLOAT_EQ(MeasureText(s.Range()).h, 600);
    s.host.ResetCounts();

    FitShape(s.Shape(), nullptr, 960);

    EXPECT_EQ(s.host.Calls(u"TextRange", u"BoundHeight"), 2u + 5u + 1u);
    for (float size : s.Sizes())
        EXPECT_EQ(size, 5.0f);
    EXPECT_TRUE(s.trace.Has(u"PptFit mode=height restored=0 shrunk=1 "));
}

TEST(TextFit, TheBoxIsPutBackOnlyWhenItMovedMoreThanOnePointFive) {
    const struct {
        const char* name;
        int field;  // 0 left, 1 top, 2 width, 3 height
        float delta;
        bool validSnapshot;
        bool restored;
    } cases[] = {
        {"left 1.5", 0, 1.5f, true, false},
        {"left 1.6", 0, 1.6f, true, true},
        {"top 1.5", 1, 1.5f, true, false},
        {"top -1.6", 1, -1.6f, true, true},
        {"width 1.5", 2, 1.5f, true, false},
        {"width 1.6", 2, 1.6f, true, true},
        {"height -1.5", 3, -1.5f, true, false},
        {"height 1.6", 3, 1.6f, true, true},
        {"an invalid snapshot", 0, 40, false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DeckBuilder b;
        b.Slide().Text(u"Title", u"Short title", Box{100, 100, 300, 80});
        Scene s(b);
        GeometrySnapshot before = CaptureGeometry(s.Shape());
        before.valid = c.validSnapshot;
        ShapeModel& m = s.Model();
        float* fields[] = {&m.left, &m.top, &m.width, &m.height};
        *fields[c.field] += c.delta;
        const GeometrySnapshot moved{m.left, m.top, m.width, m.height, true};

        FitShape(s.Shape(), &before, 960);

        EXPECT_TRUE(s.BoxIs(c.restored ? before : moved));
        EXPECT_EQ(s.trace.Has(u"PptFit mode=fit restored=1 shrunk=0 "), c.restored)
            << Utf16ToUtf8(s.trace.Text());
        EXPECT_EQ(s.trace.HasFitLine(), c.restored);
        // A restored box keeps auto-size off; the others get theirs back.
        EXPECT_EQ(s.host.Calls(u"TextFrame", u"AutoSize="), c.restored ? 1u : 2u);
    }
}

TEST(TextFit, TheLineNamesTheModeTheBoxAndTheMargins) {
    const struct {
        const char* name;
        std::u16string text;
        Box box;
        float marginLeft, marginRight, slideW;
        const char* line;
    } cases[] = {
        {"margins too wide for a narrow box", u"a", Box{100, 100, 20, 60}, 8, 8, 960,
         "PptFit mode=fit restored=1 shrunk=0 boundW=9.0 contentW=20.0 shape=20.0x60.0 "
         "slideW=960.0\r\n"},
        {"a negative margin counts as 0", u"Short title", Box{100, 100, 300, 60}, -5, 10, 720,
         "PptFit mode=fit restored=1 shrunk=0 boundW=96.7 contentW=290.0 shape=300.0x60.0 "
         "slideW=720.0\r\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DeckBuilder b;
        b.Slide().Text(u"Title", c.text, c.box);
        Scene s(b);
        s.SetMargins(c.marginLeft, c.marginRight);
        GeometrySnapshot before = CaptureGeometry(s.Shape());
        s.Model().left += 10;  // the host moved it

        FitShape(s.Shape(), &before, c.slideW);

        EXPECT_TRUE(s.trace.Has(U(c.line))) << Utf16ToUtf8(s.trace.Text());
    }
}

TEST(TextFit, ASnapshotNeedsAllFourValuesAndARealBox) {
    const struct {
        const char* name;
        const char16_t* member;  // failing or missing, or null
        bool missing;
        float width;
        bool valid;
    } cases[] = {
        {"all four read", nullptr, false, 300, true},
        {"a width of 0", nullptr, false, 0, false},
        {"Left fails", u"Left", false, 300, false},
        {"Height is missing", u"Height", true, 300, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DeckBuilder b;
        b.Slide().Text(u"Title", u"Short title", Box{10, 20, c.width, 40});
        Scene s(b);
        const HostRef shape = s.Shape();
        if (c.member) {
            FaultRule rule;
            rule.objectType = u"Shape";
            rule.member = c.member;
            rule.missing = c.missing;
            s.host.AddFault(rule);
        }
        const GeometrySnapshot g = CaptureGeometry(shape);
        EXPECT_EQ(g.valid, c.valid);
        if (c.valid) {
            EXPECT_EQ(g.left, 10);
            EXPECT_EQ(g.top, 20);
            EXPECT_EQ(g.width, 300);
            EXPECT_EQ(g.height, 40);
        }
    }
}

TEST(TextFit, RunFontsScaleOneByOneDownToTheFloor) {
    // Three runs: "aaaa ", "bbbb ", "cccc".
    const struct {
        const char* name;
        float sizes[3];
        float factor;
        bool changedBefore;
        float expected[3];
        bool changedAfter;
    } cases[] = {
        {"each by the factor", {18, 12, 24}, 0.485f, false, {8.73f, 5.82f, 11.64f}, true},
        {"a run shrunk to its neighbour's size", {20, 10, 8}, 0.5f, false, {10, 5, 5}, true},
        {"runs meeting at the floor", {10, 6, 30}, 0.5f, false, {5, 5, 15}, true},
        {"just above the floor", {5.5f, 20, 7}, 0.5f, false, {5, 10, 5}, true},
        {"at or below the floor", {5, 4, 3}, 0.5f, false, {5, 4, 3}, false},
        {"changed is left alone", {5, 4, 3}, 0.5f, true, {5, 4, 3}, true},
        {"a factor of 1 changes nothing", {18, 12, 24}, 1.0f, false, {18, 12, 24}, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DeckBuilder b;
        b.Slide().Text(u"Body", u"aaaa bbbb cccc");
        Scene s(b);
        for (std::size_t i = 0; i < 3; ++i)
            s.SetSize(5 * i, std::min<std::size_t>(5 * i + 5, 14), c.sizes[i]);
        bool changed = c.changedBefore;

        EXPECT_TRUE(ScaleRunFonts(s.Range(), c.factor, 5.0f, changed));

        EXPECT_EQ(changed, c.changedAfter);
        const std::vector<float> sizes = s.Sizes();
        for (std::size_t i = 0; i < sizes.size(); ++i)
            EXPECT_NEAR(sizes[i], c.expected[i / 5], 1e-4f) << "character " << i;
    }
}

TEST(TextFit, RunFontsPassOverARunThatFails) {
    // Runs of 20, 10 and 8 points scaled by 0.5; the third call of Runs is
    // the second run's Runs(2, 1), after Runs(-1, -1) and Runs(1, 1).
    constexpr auto Get = FaultRule::Access::Get;
    constexpr auto Put = FaultRule::Access::Put;
    const struct {
        const char* name;
        const char16_t* type;
        const char16_t* member;
        FaultRule::Access access;
        std::int32_t nth;
        bool result;
        float expected[3];
    } cases[] = {
        {"no runs at all", u"TextRange", u"Runs", Get, 1, false, {20, 10, 8}},
        {"no second run", u"TextRange", u"Runs", Get, 3, true, {10, 10, 5}},
        {"no font of the second run", u"TextRange", u"Font", Get, 2, true, {10, 10, 5}},
        {"no size of the second run", u"Font", u"Size", Get, 2, true, {10, 10, 5}},
        {"the first size put fails", u"Font", u"Size", Put, 1, true, {20, 5, 5}},
        {"every size put fails", u"Font", u"Size", Put, 0, true, {20, 10, 8}},
        {"no count", u"TextRange", u"Count", Get, 1, true, {20, 10, 8}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DeckBuilder b;
        b.Slide().Text(u"Body", u"aaaa bbbb cccc");
        Scene s(b);
        s.SetSize(0, 5, 20);
        s.SetSize(5, 10, 10);
        s.SetSize(10, 14, 8);
        const HostRef range = s.Range();
        FaultRule rule;
        rule.objectType = c.type;
        rule.member = c.member;
        rule.access = c.access;
        rule.nth = c.nth;
        s.host.AddFault(rule);
        bool changed = false;

        EXPECT_EQ(ScaleRunFonts(range, 0.5f, 5.0f, changed), c.result);

        const std::vector<float> sizes = s.Sizes();
        bool any = false;
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            EXPECT_EQ(sizes[i], c.expected[i / 5]) << "character " << i;
            any = any || sizes[i] != (i < 5 ? 20.0f : i < 10 ? 10.0f : 8.0f);
        }
        EXPECT_EQ(changed, any);
    }
}

TEST(TextFit, NothingToFitIsLeftAlone) {
    DeckBuilder b;
    b.Slide().Picture(u"Logo");
    Scene s(b);
    FitShape(s.Shape(), nullptr, 960);
    FitShape(nullptr, nullptr, 960);
    EXPECT_FALSE(s.trace.HasFitLine());
    EXPECT_EQ(s.host.Calls(u"TextFrame", u"AutoSize"), 0u);
    EXPECT_FALSE(s.Model().hasTextFrame);
}

// Every host member the fit uses, missing and then failing: the fit never
// crashes and never changes text; a shape it gave up on without putting its
// box back gets its auto-size back, and a box it put back keeps it off.
TEST(TextFit, AFailingHostMemberNeverCostsTheText) {
    using Access = FaultRule::Access;
    const struct {
        const char16_t* type;
        const char16_t* member;
        Access access;
        std::int32_t nth;
    } rows[] = {
        {u"Shape", u"TextFrame", Access::Get, 0},
        {u"Shape", u"TextFrame2", Access::Get, 0},
        {u"Shape", u"Left", Access::Get, 0},
        {u"Shape", u"Top", Access::Get, 0},
        {u"Shape", u"Width", Access::Get, 0},
        {u"Shape", u"Height", Access::Get, 0},
        {u"Shape", u"Width", Access::Get, 2},  // only the read after the restore
        {u"Shape", u"Left", Access::Put, 0},
        {u"Shape", u"Top", Access::Put, 0},
        {u"Shape", u"Width", Access::Put, 0},
        {u"Shape", u"Height", Access::Put, 0},
        {u"TextFrame", u"TextRange", Access::Get, 0},
        {u"TextFrame", u"AutoSize", Access::Get, 0},
        {u"TextFrame", u"AutoSize", Access::Put, 0},
        {u"TextFrame", u"MarginLeft", Access::Get, 0},
        {u"TextFrame", u"MarginRight", Access::Get, 0},
        {u"TextFrame", u"WordWrap", Access::Get, 0},
        {u"TextFrame", u"WordWrap", Access::Put, 0},
        {u"TextFrame2", u"AutoSize", Access::Get, 0},
        {u"TextFrame2", u"AutoSize", Access::Put, 0},
        {u"TextRange", u"BoundHeight", Access::Get, 0},
        {u"TextRange", u"BoundHeight", Access::Get, 1},  // the measure without wrap
        {u"TextRange", u"BoundHeight", Access::Get, 3},  // the first measure of the shrink
        {u"TextRange", u"BoundWidth", Access::Get, 0},
        {u"TextRange", u"BoundLeft", Access::Get, 0},
        {u"TextRange", u"Runs", Access::Get, 0},
        {u"TextRange", u"Count", Access::Get, 0},
        {u"TextRange", u"Font", Access::Get, 0},
        {u"Font", u"Size", Access::Get, 0},
        {u"Font", u"Size", Access::Put, 0},
        {u"", u"", Access::Any, 0},  // a host that fails everything
    };
    for (const auto& row : rows) {
        for (const bool missing : {true, false}) {
            SCOPED_TRACE(Utf16ToUtf8(std::u16string(row.type) + u"." + row.member) +
                         (row.access == Access::Put ? " put" : "") + " nth " +
                         std::to_string(row.nth) + (missing ? " missing" : " failing"));
            DeckBuilder b;
            b.Slide().Text(u"Body", u"Quarterly results", Box{60, 100, 300, 60});
            Scene s(b);
            ASSERT_EQ(st::Put(s.Frame(), u"AutoSize", st::I4(1)), S_OK);
            const GeometrySnapshot before = CaptureGeometry(s.Shape());
            ASSERT_EQ(s.Write(kLongGerman), S_OK);
            const HostRef shape = s.Shape();
            s.host.ResetCounts();
            FaultRule rule;
            rule.objectType = row.type;
            rule.member = row.member;
            rule.access = row.access;
            rule.nth = row.nth;
            rule.missing = missing;
            s.host.AddFault(rule);

            FitShape(shape, &before, 960);

            const ShapeModel& m = s.Model();
            EXPECT_EQ(m.frame.text, kLongGerman);
            for (float size : s.Sizes()) {
                EXPECT_LE(size, 18.0f);
                EXPECT_GE(size, 5.0f);
            }
            const bool logged = s.trace.HasFitLine();
            const bool putBack = s.host.Calls(u"Shape", u"Left=") > 0;
            if (logged) {
                EXPECT_TRUE(s.trace.Has(u"PptFit mode=")) << Utf16ToUtf8(s.trace.Text());
            }
            if (logged || putBack) {
                EXPECT_EQ(m.frame.autoSize, 0);
            } else {
                EXPECT_EQ(m.frame.autoSize, 1);
            }
        }
    }
}

}  // namespace
}  // namespace qb
