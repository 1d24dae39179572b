// Real advances from installed fonts: a face measured by its own font or a
// metric-compatible twin, as that font says, and by the model otherwise;
// and the front end measuring a presentation by them unless told not to.
#include "sim/fonts/font_metrics.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "foundation/text.h"
#include "sim/pptx/pptx_deck.h"
#include "sim/service/pseudo_translate.h"
#include "slides/writeback.h"
#include "support/cli_fixture.h"
#include "support/pptx_writer.h"
#include "support/temp_dir.h"

namespace qb::sim::fonts {
namespace {

bool Installed(const char* path) {
    struct stat st;
    return stat(path, &st) == 0;
}

// The Debian packages' files, looked at directly so that a fault in the
// matching fails a test instead of skipping it.
bool TestFontsInstalled() {
    return Installed("/usr/share/fonts/truetype/liberation2/LiberationSans-Regular.ttf") &&
           Installed("/usr/share/fonts/truetype/liberation2/LiberationSans-Bold.ttf") &&
           Installed("/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf") &&
           Installed("/usr/share/fonts/truetype/crosextra/Carlito-Regular.ttf") &&
           Installed("/usr/share/fonts/truetype/crosextra/Caladea-Regular.ttf") &&
           Installed("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
}

#define SKIP_WITHOUT_TEST_FONTS()                                                          \
    if (!TestFontsInstalled())                                                             \
    GTEST_SKIP() << "fonts-liberation2, fonts-crosextra-carlito, fonts-crosextra-caladea " \
                    "and fonts-dejavu-core are needed (scripts/install-deps.sh)"

class FontMetricsTest : public testing::Test {
  protected:
    void SetUp() override {
        SKIP_WITHOUT_TEST_FONTS();
        fonts_ = FontMetrics::Create();
        ASSERT_TRUE(fonts_);
    }

    float Width(const std::u16string& face, bool bold, const std::u16string& text,
                float size = 18) {
        CharFormat format;
        format.name = face;
        format.bold = bold ? -1 : 0;
        format.size = size;
        float width = 0;
        for (char16_t c : text) {
            const std::optional<float> advance = fonts_->Advance(c, format);
            EXPECT_TRUE(advance) << "no advance for " << static_cast<int>(c);
            width += advance.value_or(0);
        }
        return width;
    }

    std::shared_ptr<FontMetrics> fonts_;
};

TEST_F(FontMetricsTest, AFaceIsMeasuredByItsOwnFontOrAMetricTwin) {
    const struct {
        std::u16string face;
        bool bold, italic;
        std::string family;
    } cases[] = {
        {u"Calibri", false, false, "Carlito"},
        {u"Calibri", true, true, "Carlito"},
        {u"Cambria", true, false, "Caladea"},
        {u"Arial", false, false, "Liberation Sans"},
        {u"Arial", true, true, "Liberation Sans"},
        {u"times new roman", false, false, "Liberation Serif"},
        {u"Liberation Sans", false, false, "Liberation Sans"},
        {u"Carlito", false, true, "Carlito"},
        {u"DejaVu Sans", false, false, "DejaVu Sans"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(fonts_->MeasuringFamily(c.face, c.bold, c.italic), c.family)
            << Utf16ToUtf8(c.face);
    }
}

TEST_F(FontMetricsTest, AFaceWithoutFontOrTwinAndOddNamesStayWithTheModel) {
    const std::u16string cases[] = {
        u"No Such Face 12345",
        u"Arial:bold",  // fontconfig's pattern syntax is a name here, not parsed
        u"Arial,Calibri",
        u"",
        std::u16string(u"Ari\x01"
                       u"al"),
        std::u16string(1, char16_t(0xD800)) + u"Arial",
        std::u16string(300, u'A'),
        u"Ar\u00efal \u4E2D",
    };
    CharFormat format;
    for (const std::u16string& face : cases) {
        EXPECT_EQ(fonts_->MeasuringFamily(face, false, false), "") << Utf16ToUtf8(face);
        EXPECT_FALSE(fonts_->EmAdvance(face, true, false, u'W')) << Utf16ToUtf8(face);
        format.name = face;
        EXPECT_FALSE(fonts_->Advance(u'W', format)) << Utf16ToUtf8(face);
    }
}

TEST_F(FontMetricsTest, AdvancesAreTheFontsOwnTimesTheSize) {
    // The hmtx entries of the fonts (2048 units an em).
    EXPECT_FLOAT_EQ(fonts_->EmAdvance(u"Arial", false, false, u'W').value_or(0), 1933 / 2048.0f);
    EXPECT_FLOAT_EQ(fonts_->EmAdvance(u"Arial", false, false, u'i').value_or(0), 455 / 2048.0f);
    EXPECT_FLOAT_EQ(fonts_->EmAdvance(u"Arial", true, false, u'i').value_or(0), 569 / 2048.0f);
    EXPECT_FLOAT_EQ(fonts_->EmAdvance(u"Calibri", false, false, u'W').value_or(0), 1822 / 2048.0f);
    EXPECT_FLOAT_EQ(fonts_->EmAdvance(u"Calibri", false, false, u' ').value_or(0), 463 / 2048.0f);
    CharFormat format;
    format.name = u"Arial";
    format.size = 24;
    EXPECT_FLOAT_EQ(fonts_->Advance(u'W', format).value_or(0), 24 * 1933 / 2048.0f);
}

TEST_F(FontMetricsTest, WidthsDifferByFaceAndStyleAsTheFontsSay) {
    EXPECT_LT(Width(u"Liberation Sans", false, u"iiii"),
              Width(u"Liberation Sans", false, u"WWWW") / 3);
    const std::u16string sentence = u"The quick brown fox jumps over the lazy dog";
    EXPECT_LT(Width(u"Carlito", false, sentence),
              0.95f * Width(u"Liberation Sans", false, sentence));
    EXPECT_FLOAT_EQ(Width(u"Calibri", false, sentence), Width(u"Carlito", false, sentence));
    EXPECT_GT(Width(u"Arial", true, sentence), Width(u"Arial", false, sentence));
    EXPECT_GT(Width(u"Calibri", true, sentence), Width(u"Calibri", false, sentence));
}

TEST_F(FontMetricsTest, WideUnitsTakeTheEastAsianFaceAndUnitsWithoutGlyphTheModel) {
    // U+4DC0 is a wide unit DejaVu Sans has a glyph for.
    CharFormat format;
    format.name = u"No Such Face";
    format.nameFarEast = u"DejaVu Sans";
    EXPECT_TRUE(fonts_->Advance(u'\u4DC0', format));
    EXPECT_FALSE(fonts_->Advance(u'A', format));
    format.name = u"DejaVu Sans";
    format.nameFarEast = u"No Such Face";
    EXPECT_FALSE(fonts_->Advance(u'\u4DC0', format));
    EXPECT_TRUE(fonts_->Advance(u'A', format));
    // Tabs and line ends, surrogate halves, glyphs the font lacks.
    format.name = format.nameFarEast = u"Arial";
    for (char16_t unit : {u'\t', u'\r', char16_t(0xD83D), char16_t(0xDE00), u'\u4E2D', u'\uE000'}) {
        EXPECT_FALSE(fonts_->Advance(unit, format)) << static_cast<int>(unit);
    }
}

// The front end over a presentation whose text fits by the model and not
// by the fonts: the fit shrinks it only when measuring by the fonts.
class FontMetricsRunTest : public test::CliFixture {
  protected:
    // The size of the first character of the only box of the output.
    float SizeAfter(const std::string& args) {
        std::string err;
        EXPECT_EQ(
            RunCli("-q --to de -o " + Path("out.pptx") + " " + args + " " + Path("in.pptx"), err),
            0)
            << err;
        std::string error;
        const auto out = pptx::PptxDeck::Open(Path("out.pptx"), error);
        EXPECT_TRUE(out) << error;
        if (!out) return 0;
        const auto& frame = out->Model()->slides[0]->shapes[0]->frame;
        EXPECT_EQ(frame.text, translated_);
        return frame.formats.empty() ? 0 : frame.formats[0].size;
    }

    std::u16string translated_;
};

TEST_F(FontMetricsRunTest, APresentationIsFitByTheFontsUnlessTheModelIsAskedFor) {
    SKIP_WITHOUT_TEST_FONTS();
    const std::u16string source = u"WWW MMM WWW";
    translated_ = NormalizeTranslation(PseudoTranslate(source, u"de"));
    // One line of the translation, by the model and by the fonts.
    ShapeModel line;
    line.hasTextFrame = true;
    line.width = 10000;
    CharFormat format;
    format.name = format.nameAscii = u"Arial";
    format.size = 18;
    line.frame.SetText(translated_, format);
    const auto length = static_cast<std::int32_t>(translated_.size());
    const float model = MeasureRange(line, 0, length).width;
    const auto fonts = FontMetrics::Create();
    ASSERT_TRUE(fonts);
    float real = 0;
    {
        const ScopedAdvanceSource scope(fonts);
        real = MeasureRange(line, 0, length).width;
    }
    ASSERT_GT(real, 1.2f * model) << "capitals are wider in Arial than in the model";

    // A box a little wider than the model's line and one line high.
    const float content = 1.05f * model;
    const long long cx = static_cast<long long>((content + 2 * 7.2f) * 12700);
    const long long cy = static_cast<long long>((1.2f * 18 + 2 * 3.6f + 2) * 12700);
    test::DeckWriter w;
    w.Slide(R"(<p:sp><p:nvSpPr><p:cNvPr id="2" name="Box"/><p:cNvSpPr txBox="1"/><p:nvPr/>)"
            R"(</p:nvSpPr><p:spPr><a:xfrm><a:off x="127000" y="254000"/><a:ext cx=")" +
            std::to_string(cx) + R"(" cy=")" + std::to_string(cy) +
            R"("/></a:xfrm></p:spPr><p:txBody><a:bodyPr wrap="square"/><a:lstStyle/>)"
            R"(<a:p><a:r><a:rPr lang="en-US" sz="1800"><a:latin typeface="Arial"/></a:rPr>)"
            R"(<a:t>)" +
            Utf16ToUtf8(source) + R"(</a:t></a:r></a:p></p:txBody></p:sp>)");
    ASSERT_EQ(w.Write(Path("in.pptx")), "");

    EXPECT_FLOAT_EQ(SizeAfter("--font-metrics model"), 18.0f);
    const float byFonts = SizeAfter("");
    EXPECT_LT(byFonts, 18.0f);
    EXPECT_GT(byFonts, 0.0f);
    EXPECT_FLOAT_EQ(SizeAfter("--font-metrics=real"), byFonts);
}

}  // namespace
}  // namespace qb::sim::fonts
