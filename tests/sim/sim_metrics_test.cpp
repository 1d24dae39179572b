// The simulated host's metrics with an advance source installed: layout and
// measure follow the source while it is installed, the model for the units
// it leaves, and nothing of it stays once it is gone.
#include "sim/host/sim_metrics.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>

namespace qb::sim {
namespace {

// Every 'x' one point wide and every bold unit four points; the model for
// the rest. Records the formats it was asked with.
class FixedSource : public AdvanceSource {
  public:
    std::optional<float> Advance(char16_t unit, const CharFormat& format) override {
        ++asked;
        lastName = format.name;
        if (format.bold != 0) return 4.0f;
        if (unit == u'x') return 1.0f;
        return std::nullopt;
    }
    int asked = 0;
    std::u16string lastName;
};

ShapeModel Box(std::u16string text, float width, bool wrap = true) {
    ShapeModel shape;
    shape.hasTextFrame = true;
    shape.width = width;
    shape.height = 100;
    shape.frame.wordWrap = wrap;
    CharFormat format;
    format.size = 10;
    shape.frame.SetText(std::move(text), format);
    return shape;
}

float Width(const ShapeModel& shape) {
    return MeasureRange(shape, 0, static_cast<std::int32_t>(shape.frame.text.size())).width;
}

TEST(SimMetricsSource, WidthsFollowTheSourceAndTheModelForWhatItLeaves) {
    const ShapeModel shape = Box(u"xxxx ab", 500);
    const float model = Width(shape);
    // x is 0.5 em, a blank 0.25 em in the model.
    EXPECT_FLOAT_EQ(model, 4 * 5.0f + 2.5f + 2 * 5.0f);
    {
        const auto source = std::make_shared<FixedSource>();
        const ScopedAdvanceSource scope(source);
        EXPECT_FLOAT_EQ(Width(shape), 4 * 1.0f + 2.5f + 2 * 5.0f);
        EXPECT_GT(source->asked, 0);
    }
    EXPECT_FLOAT_EQ(Width(shape), model);
    EXPECT_EQ(CurrentAdvanceSource(), nullptr);

    // Each unit is asked with its own format.
    ShapeModel mixed = Box(u"abab", 500);
    mixed.frame.formats[1].bold = mixed.frame.formats[3].bold = -1;
    mixed.frame.formats[3].name = u"Cambria";
    const auto source = std::make_shared<FixedSource>();
    const ScopedAdvanceSource scope(source);
    EXPECT_FLOAT_EQ(Width(mixed), 5.0f + 4.0f + 5.0f + 4.0f);
    EXPECT_EQ(source->lastName, u"Cambria");
}

TEST(SimMetricsSource, LinesBreakWhereTheSourcesAdvancesSay) {
    // 62.5 points in the model, 14.5 with the source, in a box of 60 points
    // of content (with the default margins of 7.2).
    const ShapeModel shape = Box(u"xxxxxx xxxxxx", 60 + 2 * 7.2f);
    EXPECT_EQ(LayoutFrame(shape).size(), 2u);
    EXPECT_FLOAT_EQ(MeasureRange(shape, 0, 13).height, 24.0f);
    {
        const ScopedAdvanceSource scope(std::make_shared<FixedSource>());
        EXPECT_EQ(LayoutFrame(shape).size(), 1u);
        EXPECT_FLOAT_EQ(MeasureRange(shape, 0, 13).height, 12.0f);
        EXPECT_FLOAT_EQ(MeasureRange(shape, 0, 13).width, 14.5f);
    }
    EXPECT_EQ(LayoutFrame(shape).size(), 2u);
    EXPECT_FLOAT_EQ(MeasureRange(shape, 0, 13).height, 24.0f);
}

TEST(SimMetricsSource, ScopesNestAndPutThePreviousSourceBack) {
    const auto outer = std::make_shared<FixedSource>();
    const auto inner = std::make_shared<FixedSource>();
    {
        const ScopedAdvanceSource a(outer);
        {
            const ScopedAdvanceSource b(inner);
            EXPECT_EQ(CurrentAdvanceSource(), inner);
        }
        EXPECT_EQ(CurrentAdvanceSource(), outer);
        {
            // A null scope measures by the model alone, then gives it back.
            const ScopedAdvanceSource none(nullptr);
            EXPECT_EQ(CurrentAdvanceSource(), nullptr);
            EXPECT_FLOAT_EQ(Width(Box(u"xx", 500)), 10.0f);
        }
        EXPECT_EQ(CurrentAdvanceSource(), outer);
    }
    EXPECT_EQ(CurrentAdvanceSource(), nullptr);
}

}  // namespace
}  // namespace qb::sim
