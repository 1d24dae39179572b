#include "shell/ribbon.h"

#include "foundation/ui_strings.h"
#include "pane/panel_text.h"
#include "run/run_types.h"

namespace qb {

const RibbonButton kRibbonButtons[kRibbonButtonCount] = {
    {u"btnTranslateFullDoc",
     u"translate_full",
     u"TranslateFullDocClicked",
     kDispTranslateFullDoc,
     110,
     {120, 130, 140, 150}},
    {u"btnTranslateCurrentSlide",
     u"translate_slide",
     u"TranslateCurrentSlideClicked",
     kDispTranslateCurrentSlide,
     187,
     {188, 189, 190, 191}},
    {u"btnTranslateSelection",
     u"translate_selection",
     u"TranslateSelectionClicked",
     kDispTranslateSelection,
     111,
     {121, 131, 141, 151}},
    {u"btnPdfTranslate",
     u"pdf_translate",
     u"PdfTranslateClicked",
     kDispPdfTranslate,
     192,
     {193, 194, 195, 196}},
    {u"btnGlossary", u"glossary", u"GlossaryClicked", kDispGlossary, 115, {125, 135, 145, 155}},
    {u"btnInstruction",
     u"instruction",
     u"InstructionClicked",
     kDispInstruction,
     116,
     {126, 136, 146, 156}},
    {u"btnAccount", u"account", u"AccountClicked", kDispAccount, 117, {127, 137, 147, 157}},
    {u"btnSupport", u"support", u"SupportClicked", kDispSupport, 129, {160, 162, 164, 166}},
    {u"btnSettings", u"settings", u"SettingsClicked", kDispSettings, 197, {198, 199, 200, 201}},
};

namespace {

struct NamedDispid {
    const char16_t* name;
    std::int32_t dispid;
};

const NamedDispid kNames[] = {
    {u"TranslateFullDocClicked", kDispTranslateFullDoc},
    {u"TranslateCurrentSlideClicked", kDispTranslateCurrentSlide},
    {u"ShowPaneClicked", kDispShowPane},
    {u"GlossaryClicked", kDispGlossary},
    {u"InstructionClicked", kDispInstruction},
    {u"AccountClicked", kDispAccount},
    {u"SupportClicked", kDispSupport},
    {u"GetImage", kDispGetImage},
    {u"onGetImage", kDispGetImage},
    {u"TranslateSelectionClicked", kDispTranslateSelection},
    {u"PdfTranslateClicked", kDispPdfTranslate},
    {u"OnRibbonLoad", kDispOnRibbonLoad},
    {u"GetLabel", kDispGetLabel},
    {u"GetScreentip", kDispGetScreentip},
    {u"SettingsClicked", kDispSettings},
};

}  // namespace

std::int32_t RibbonDispidOfName(std::u16string_view name) {
    for (const NamedDispid& entry : kNames) {
        if (EqualsIgnoringCase(name, entry.name)) return entry.dispid;
    }
    return 0;
}

std::int32_t RibbonIconId(std::u16string_view tag, std::u16string_view id) {
    if (!tag.empty()) {
        for (const RibbonButton& button : kRibbonButtons) {
            if (tag == button.tag) return button.iconId;
        }
    }
    if (!id.empty()) {
        for (const RibbonButton& button : kRibbonButtons) {
            if (id == button.id) return button.iconId;
        }
    }
    return 0;
}

std::int32_t RibbonPngId(std::int32_t iconId, std::int32_t bucket) {
    int slot = -1;
    switch (bucket) {
        case 32:
            slot = 0;
            break;
        case 48:
            slot = 1;
            break;
        case 64:
            slot = 2;
            break;
        case 96:
            slot = 3;
            break;
        default:
            return 0;
    }
    for (const RibbonButton& button : kRibbonButtons) {
        if (button.iconId == iconId) return button.pngIds[slot];
    }
    return 0;
}

RibbonPictureSize RibbonPictureSizeFor(std::int32_t dpi, bool wpsHost) {
    const std::int32_t logical = wpsHost ? 48 : 32;
    RibbonPictureSize size;
    // MulDiv: rounded to the nearest.
    size.px = static_cast<std::int32_t>((static_cast<long long>(logical) * dpi + 48) / 96);
    size.bucket = size.px <= 40 ? 32 : size.px <= 56 ? 48 : size.px <= 80 ? 64 : 96;
    return size;
}

std::u16string RibbonLabel(std::u16string_view controlId) {
    const std::u16string id(controlId);
    std::u16string text = GetUiString(u"ribbon.ppt." + id);
    if (text.empty()) text = GetUiString(u"ribbon." + id);
    return text.empty() ? id : text;
}

std::u16string RibbonScreentip(std::u16string_view controlId) {
    const std::u16string id(controlId);
    std::u16string text = GetUiString(u"ribbon.ppt." + id + u".tip");
    if (text.empty()) text = GetUiString(u"ribbon." + id + u".tip");
    return text.empty() ? RibbonLabel(controlId) : text;
}

std::u16string ReplaceImageMso(std::u16string_view xml) {
    static constexpr std::u16string_view kAttribute = u"imageMso=\"";
    std::u16string out;
    out.reserve(xml.size());
    std::size_t from = 0;
    for (;;) {
        const std::size_t at = xml.find(kAttribute, from);
        if (at == std::u16string_view::npos) break;
        const std::size_t close = xml.find(u'"', at + kAttribute.size());
        if (close == std::u16string_view::npos) break;  // unterminated: left as it is
        out.append(xml.substr(from, at - from));
        out += u"getImage=\"GetImage\"";
        from = close + 1;
    }
    out.append(xml.substr(from));
    return out;
}

std::u16string PdfTranslateUrl() {
    return BuildServiceUrl(kServiceHost, kServicePort, true,
                           u"/panel/web/webtranslate.html?tool=pdftr");
}

}  // namespace qb
