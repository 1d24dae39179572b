// The ribbon tab as data and pure rules: the buttons with their callbacks,
// dispids and pictures, the callback name table, labels and screentips from
// the UI strings, the picture size for a DPI, and the description's
// rewriting. The COM side (connect_win.cpp) and the tests share these.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qb {

// Dispids of the callbacks the host may call by name.
enum RibbonDispid : std::int32_t {
    kDispTranslateFullDoc = 100,
    kDispTranslateCurrentSlide = 101,
    kDispShowPane = 102,
    kDispGlossary = 103,
    kDispInstruction = 104,
    kDispAccount = 105,
    kDispSupport = 106,
    kDispGetImage = 108,
    kDispTranslateSelection = 109,
    kDispPdfTranslate = 110,
    kDispOnRibbonLoad = 130,
    kDispGetLabel = 131,
    kDispGetScreentip = 132,
    kDispSettings = 133,
};

struct RibbonButton {
    const char16_t* id;
    const char16_t* tag;
    const char16_t* onAction;
    std::int32_t dispid;
    std::int32_t iconId;
    std::int32_t pngIds[4];  // at 32, 48, 64 and 96 px
};

inline constexpr std::size_t kRibbonButtonCount = 9;
extern const RibbonButton kRibbonButtons[kRibbonButtonCount];

// The dispid of a callback name, compared without regard to case; 0 when
// the name is not one of ours.
std::int32_t RibbonDispidOfName(std::u16string_view name);

// The icon id of a control: by its tag, else by its id; 0 for neither.
std::int32_t RibbonIconId(std::u16string_view tag, std::u16string_view id);
// The PNG resource of an icon at a size bucket (32, 48, 64, 96); 0 for none.
std::int32_t RibbonPngId(std::int32_t iconId, std::int32_t bucket);

struct RibbonPictureSize {
    std::int32_t px = 0;
    std::int32_t bucket = 0;
};
// The pixel size and bucket of a button picture at `dpi`: WPS draws its
// buttons at a larger logical size.
RibbonPictureSize RibbonPictureSizeFor(std::int32_t dpi, bool wpsHost);

// Label and screentip of a control id in the current UI language.
std::u16string RibbonLabel(std::u16string_view controlId);
std::u16string RibbonScreentip(std::u16string_view controlId);

// Every imageMso="..." becomes getImage="GetImage", so that the pictures
// always come from the add-in.
std::u16string ReplaceImageMso(std::u16string_view xml);

// The browser address of the PDF translation page at the default endpoint.
std::u16string PdfTranslateUrl();

}  // namespace qb
