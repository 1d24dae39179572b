// The text fit: its arithmetic on its own, then whole fits of simulated
// shapes whose text is measured by the simulated host's metric model.
#include "slides/text_fit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

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
        EXPECT_EQ(b.width, c.width);
        EXPECT_EQ(b.height, c.height);
        EXPECT_EQ(b.slideW, 960);
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
        {"a single line too short for oneLine", Measure(25, 500), Measure(90, 390),
         FitMode::Height},
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
    EXPECT_STREQ(FitModeName(FitMode::OneLine), "oneLine");
    EXPECT_STREQ(FitModeName(FitMode::Height), "height");
    EXPECT_STREQ(FitModeName(FitMode::Wrap), "wrap");
    EXPECT_STREQ(FitModeName(FitMode::Fit), "fit");
}

}  // namespace
}  // namespace qb
