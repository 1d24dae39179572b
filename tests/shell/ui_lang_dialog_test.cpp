// The language dialog's rules without its window: the layout at two DPIs
// and what choosing a row does to the saved setting.
#include <gtest/gtest.h>

#include "foundation/platform.h"
#include "foundation/user_config.h"
#include "shell/shell_support.h"
#include "shell/ui_lang_dialog.h"

namespace qb {
namespace {

TEST(UiLangDialogLayout, ScalesEveryMeasureWithTheDpi) {
    const UiLangDialogLayout at96 = ComputeUiLangDialogLayout(96, 40);
    EXPECT_EQ(at96.width, 420);
    EXPECT_EQ(at96.rowHeight, 36);
    EXPECT_EQ(at96.list.top, 22 + 28 + 6 + 40 + 16);
    EXPECT_EQ(at96.list.bottom - at96.list.top, 288);
    EXPECT_EQ(at96.height, at96.list.top + 288 + 34 + 16 + 20);
    EXPECT_EQ(at96.ok.right, 420 - 24) << "OK ends on the right margin";
    EXPECT_EQ(at96.ok.right - at96.ok.left, 92);
    EXPECT_EQ(at96.ok.top, at96.height - 34 - 22);
    EXPECT_EQ(at96.ok.left - at96.cancel.right, 8) << "Cancel to the left of OK";
    EXPECT_EQ(ComputeUiLangDialogLayout(96, 0).list.top, at96.list.top)
        << "an unmeasurable body counts as 40";

    const UiLangDialogLayout at144 = ComputeUiLangDialogLayout(144, 60);
    EXPECT_EQ(at144.width, 630);
    EXPECT_EQ(at144.rowHeight, 54);
    EXPECT_EQ(at144.list.top, 33 + 42 + 9 + 60 + 24);
    EXPECT_EQ(ComputeUiLangDialogLayout(0, 40).width, 420) << "no DPI reads as 96";
}

TEST(UiLangDialogChoice, SavesOnlyANewLanguageAndStaysOpenWhenItCannot) {
    test::ScopedUiLanguage folders;
    std::u16string chosen;
    EXPECT_EQ(ApplyUiLangChoice(u"en", -1, chosen), UiLangChoice::StayOpen) << "no selection";
    EXPECT_EQ(ApplyUiLangChoice(u"en", 14, chosen), UiLangChoice::StayOpen);
    EXPECT_EQ(ApplyUiLangChoice(u"en", 2, chosen), UiLangChoice::Unchanged);
    std::u16string saved;
    EXPECT_FALSE(LoadUiLanguage(saved)) << "the language in use is not written";

    EXPECT_EQ(ApplyUiLangChoice(u"en", 7, chosen), UiLangChoice::Changed);
    EXPECT_EQ(chosen, u"de");
    ASSERT_TRUE(LoadUiLanguage(saved));
    EXPECT_EQ(saved, u"de");

    // A settings file that can't be written (a folder stands in its place):
    // the choice is not lost silently.
    ASSERT_TRUE(platform::RemoveFile(GetConfigPath()));
    ASSERT_TRUE(platform::MakeDirectory(GetConfigPath()));
    chosen.clear();
    EXPECT_EQ(ApplyUiLangChoice(u"de", 3, chosen), UiLangChoice::SaveFailed);
    EXPECT_TRUE(chosen.empty());
}

}  // namespace
}  // namespace qb
