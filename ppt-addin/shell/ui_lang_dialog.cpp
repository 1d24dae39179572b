#include "shell/ui_lang_dialog.h"

#include <iterator>

#include "foundation/ui_languages.h"
#include "foundation/ui_strings.h"
#include "foundation/user_config.h"

namespace qb {

namespace {

constexpr std::int32_t kWidth = 420;
constexpr std::int32_t kMargin = 24;
constexpr std::int32_t kTitleTop = 22, kTitleHeight = 28, kTitleGap = 6;
constexpr std::int32_t kBodyGap = 16;
constexpr std::int32_t kRowHeight = 36, kVisibleRows = 8;
constexpr std::int32_t kCorner = 8;
constexpr std::int32_t kButtonHeight = 34, kButtonWidth = 92, kButtonGap = 8;

}  // namespace

UiLangDialogLayout ComputeUiLangDialogLayout(std::int32_t dpi, std::int32_t bodyHeight) {
    if (dpi <= 0) dpi = 96;
    // MulDiv: rounded to the nearest.
    const auto s = [dpi](std::int32_t v) {
        return static_cast<std::int32_t>((static_cast<long long>(v) * dpi + 48) / 96);
    };
    if (bodyHeight < 1) bodyHeight = s(40);
    UiLangDialogLayout layout;
    layout.width = s(kWidth);
    layout.rowHeight = s(kRowHeight);
    layout.cornerRadius = s(kCorner);
    const std::int32_t left = s(kMargin), right = s(kWidth) - s(kMargin);
    const std::int32_t bodyTop = s(kTitleTop) + s(kTitleHeight) + s(kTitleGap);
    const std::int32_t listTop = bodyTop + bodyHeight + s(kBodyGap);
    const std::int32_t listHeight = s(kRowHeight * kVisibleRows);
    layout.height = listTop + listHeight + s(kButtonHeight) + s(16) + s(20);
    const std::int32_t buttonTop = layout.height - s(kButtonHeight) - s(22);
    layout.title = {left, s(kTitleTop), right, s(kTitleTop) + s(kTitleHeight)};
    layout.body = {left, bodyTop, right, listTop - s(kBodyGap)};
    layout.list = {left, listTop, right, listTop + listHeight};
    const std::int32_t okLeft = right - s(kButtonWidth);
    layout.ok = {okLeft, buttonTop, right, buttonTop + s(kButtonHeight)};
    const std::int32_t cancelRight = okLeft - s(kButtonGap);
    layout.cancel = {cancelRight - s(kButtonWidth), buttonTop, cancelRight,
                     buttonTop + s(kButtonHeight)};
    return layout;
}

UiLangChoice ApplyUiLangChoice(std::u16string_view current, std::int32_t row,
                               std::u16string& chosen) {
    if (row < 0 || row >= static_cast<std::int32_t>(std::size(kUiLanguageCodes))) {
        return UiLangChoice::StayOpen;
    }
    const std::u16string_view code = kUiLanguageCodes[row];
    if (code == current) return UiLangChoice::Unchanged;
    if (!SaveUiLanguage(code)) return UiLangChoice::SaveFailed;
    ClearUiLanguageIsAutomatic();
    chosen.assign(code);
    return UiLangChoice::Changed;
}

}  // namespace qb
