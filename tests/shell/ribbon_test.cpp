// The ribbon's pure rules: callback names, pictures and their sizes, the
// description's rewriting, labels in two languages and the PDF address.
#include <gtest/gtest.h>

#include "shell/ribbon.h"
#include "shell/shell_support.h"

namespace qb {
namespace {

using test::U8;

TEST(Ribbon, CallbackNamesMapToTheirDispidsWithoutRegardToCase) {
    const struct {
        const char16_t* name;
        std::int32_t dispid;
    } cases[] = {{u"TranslateFullDocClicked", 100},
                 {u"TRANSLATEFULLDOCCLICKED", 100},
                 {u"ShowPaneClicked", 102},
                 {u"getimage", 108},
                 {u"ONGETIMAGE", 108},
                 {u"OnRibbonLoad", 130},
                 {u"getlabel", 131},
                 {u"GetScreentip", 132},
                 {u"", 0},
                 {u"GetImages", 0},
                 {u"SettingsClicked ", 0}};
    for (const auto& c : cases) {
        EXPECT_EQ(RibbonDispidOfName(c.name), c.dispid) << U8(c.name);
    }
    // Every button's action reaches that button, and no name is given 107.
    for (const RibbonButton& button : kRibbonButtons) {
        EXPECT_EQ(RibbonDispidOfName(button.onAction), button.dispid) << U8(button.onAction);
        EXPECT_NE(RibbonDispidOfName(button.onAction), 107);
    }
}

TEST(Ribbon, PicturesComeByTagElseByIdAndBySizeBucket) {
    const struct {
        const char16_t* tag;
        const char16_t* id;
        std::int32_t icon;
    } icons[] = {
        {u"glossary", u"btnAccount", 115},  // the tag wins
        {u"", u"btnGlossary", 115},        {u"no_such_tag", u"btnSettings", 197},
        {u"translate_full", u"", 110},     {u"", u"", 0},
        {u"btnGlossary", u"glossary", 0},  // tag and id are not interchangeable
    };
    for (const auto& c : icons) {
        EXPECT_EQ(RibbonIconId(c.tag, c.id), c.icon) << U8(c.tag) << " / " << U8(c.id);
    }
    const struct {
        std::int32_t icon, bucket, png;
    } pngs[] = {{110, 32, 120}, {110, 48, 130}, {110, 64, 140}, {110, 96, 150}, {129, 64, 164},
                {197, 96, 201}, {110, 40, 0},   {110, 0, 0},    {999, 32, 0},   {0, 32, 0}};
    for (const auto& c : pngs) {
        EXPECT_EQ(RibbonPngId(c.icon, c.bucket), c.png) << c.icon << " at " << c.bucket;
    }
}

TEST(Ribbon, PictureSizeFollowsTheDpiAndTheHost) {
    const struct {
        std::int32_t dpi;
        bool wps;
        std::int32_t px, bucket;
    } cases[] = {
        {96, false, 32, 32},  {120, false, 40, 32}, {144, false, 48, 48},
        {192, false, 64, 64}, {240, false, 80, 64}, {288, false, 96, 96},
        {96, true, 48, 48},   {144, true, 72, 64},  {192, true, 96, 96},
    };
    for (const auto& c : cases) {
        const RibbonPictureSize size = RibbonPictureSizeFor(c.dpi, c.wps);
        EXPECT_EQ(size.px, c.px) << c.dpi << (c.wps ? " wps" : " ppt");
        EXPECT_EQ(size.bucket, c.bucket) << c.dpi << (c.wps ? " wps" : " ppt");
    }
    // The full-deck button at 96 dpi in PowerPoint draws its 32 px picture.
    EXPECT_EQ(RibbonPngId(110, RibbonPictureSizeFor(96, false).bucket), 120);
}

TEST(Ribbon, ImageMsoBecomesTheAddInsOwnPicture) {
    const struct {
        const char16_t* in;
        const char16_t* out;
    } cases[] = {
        {u"<button id=\"a\" imageMso=\"Translate\"/>", u"<button id=\"a\" getImage=\"GetImage\"/>"},
        {u"<b imageMso=\"X\"/><b imageMso=\"\"/><b imageMso=\"Y Z\" size=\"large\"/>",
         u"<b getImage=\"GetImage\"/><b getImage=\"GetImage\"/>"
         u"<b getImage=\"GetImage\" size=\"large\"/>"},
        {u"<b getImage=\"GetImage\"/>", u"<b getImage=\"GetImage\"/>"},
        {u"<b imageMso=\"Open", u"<b imageMso=\"Open"},
        {u"<a imageMso=\"A\"/><b imageMso=\"B", u"<a getImage=\"GetImage\"/><b imageMso=\"B"},
        {u"", u""},
    };
    for (const auto& c : cases) {
        const std::u16string out = ReplaceImageMso(c.in);
        EXPECT_EQ(U8(out), U8(c.out)) << U8(c.in);
    }
    EXPECT_EQ(ReplaceImageMso(u"<b imageMso=\"Secret\"/>").find(u"Secret"), std::u16string::npos);
}

TEST(Ribbon, LabelsAndScreentipsSpeakTheDisplayLanguage) {
    test::ScopedUiLanguage language(0x0409);
    const struct {
        const char16_t* id;
        const char16_t* enLabel;
        const char16_t* enTip;
        const char16_t* zhLabel;
    } cases[] = {
        // The PowerPoint key wins over the shared one.
        {u"btnTranslateFullDoc", u"All slides", u"Translate the whole presentation",
         u"\u6574\u4EFD\u7FFB\u8BD1"},
        {u"btnGlossary", u"Glossary", u"Personal glossary", u"\u672F\u8BED\u8868"},
        {u"btnSettings", u"Settings", u"Display language", u"\u8BBE\u7F6E"},
        // An id no table knows shows as itself, as its tip too.
        {u"btnNoSuchButton", u"btnNoSuchButton", u"btnNoSuchButton", u"btnNoSuchButton"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(U8(RibbonLabel(c.id)), U8(c.enLabel));
        EXPECT_EQ(U8(RibbonScreentip(c.id)), U8(c.enTip));
    }
    test::ScopedUiLanguage::Use(0x0804);
    for (const auto& c : cases) {
        EXPECT_EQ(U8(RibbonLabel(c.id)), U8(c.zhLabel));
    }
    EXPECT_EQ(U8(RibbonScreentip(u"btnGlossary")), U8(u"\u4E2A\u4EBA\u672F\u8BED\u8868"));

    // A label without a tip: the tip is the label.
    static const UiStringEntry kNoTip[] = {
        {u"ribbon.btnGlossary", u"Words"},
        {u"ribbon.ppt.btnGlossary", u"Slide words"},
    };
    SetUiStringTableForTesting(u"en", kNoTip, std::size(kNoTip));
    test::ScopedUiLanguage::Use(0x0409);
    EXPECT_EQ(U8(RibbonLabel(u"btnGlossary")), "Slide words");
    EXPECT_EQ(U8(RibbonScreentip(u"btnGlossary")), "Slide words");
    SetUiStringTableForTesting(u"en", nullptr, 0);
}

TEST(Ribbon, PdfAddressIsSecureOnTheDefaultPort) {
    const std::string url = U8(PdfTranslateUrl());
    const std::string tail = "/panel/web/webtranslate.html?tool=pdftr";
    EXPECT_EQ(url.rfind("https://", 0), 0u) << url;
    ASSERT_GT(url.size(), tail.size() + 8) << "no host";
    EXPECT_EQ(url.substr(url.size() - tail.size()), tail);
    EXPECT_EQ(url.find(":443"), std::string::npos) << url;
}

}  // namespace
}  // namespace qb
