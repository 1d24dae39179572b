// The language dialog's window under Wine, driven from inside its own
// message loop by a thread timer that plays the user: Escape, Enter on a
// row, a double click, OK on the language in use, Enter on Cancel, and a
// quit message that must survive the dialog.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "foundation/user_config.h"
#include "shell/shell_support.h"
#include "shell/ui_lang_dialog_win.h"

namespace qb {
namespace {

using Step = std::function<void(HWND dialog)>;
std::vector<Step> g_steps;
std::size_t g_next = 0;

// One step a tick, once the dialog stands; then the timer stops.
void CALLBACK PlayStep(HWND, UINT, UINT_PTR id, DWORD) {
    HWND dialog = ::FindWindowW(L"QuillbrookUiLangDialog2", nullptr);
    if (!dialog) return;
    if (g_next < g_steps.size()) {
        g_steps[g_next++](dialog);
    } else {
        ::KillTimer(nullptr, id);
    }
}

class UiLangDialogWindow : public testing::Test {
  protected:
    void SetUp() override {
        owner_ = ::CreateWindowExW(0, L"STATIC", L"host", WS_OVERLAPPED, 0, 0, 800, 600, nullptr,
                                   nullptr, nullptr, nullptr);
        ASSERT_NE(owner_, nullptr);
    }
    void TearDown() override {
        ::DestroyWindow(owner_);
        MSG message;
        while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        }
    }
    bool Run(std::vector<Step> steps, std::u16string& language) {
        g_steps = std::move(steps);
        g_next = 0;
        const UINT_PTR timer = ::SetTimer(nullptr, 0, 10, &PlayStep);
        const bool result = shell::ShowUiLangDialogWindow(owner_, language);
        ::KillTimer(nullptr, timer);
        return result;
    }
    static HWND List(HWND dialog) { return ::GetDlgItem(dialog, 1001); }
    static void Key(HWND target, WPARAM key) { ::PostMessageW(target, WM_KEYDOWN, key, 0); }
    std::u16string Saved() {
        std::u16string code;
        return LoadUiLanguage(code) ? code : u"(none)";
    }

    test::ScopedUiLanguage folders{0x0409};
    HWND owner_ = nullptr;
};

TEST_F(UiLangDialogWindow, EscapeClosesWithoutAChangeAndGivesTheOwnerBack) {
    std::u16string language;
    LRESULT selected = -1;
    BOOL ownerEnabled = TRUE;
    EXPECT_FALSE(Run({[&](HWND dialog) {
                          selected = ::SendMessageW(List(dialog), LB_GETCURSEL, 0, 0);
                          ownerEnabled = ::IsWindowEnabled(owner_);
                      },
                      [](HWND dialog) { Key(List(dialog), VK_ESCAPE); }},
                     language));
    EXPECT_EQ(selected, 2) << "the language in use is selected";
    EXPECT_FALSE(ownerEnabled) << "modal to the host's window";
    EXPECT_TRUE(::IsWindowEnabled(owner_));
    EXPECT_EQ(Saved(), u"(none)");
    EXPECT_EQ(::FindWindowW(L"QuillbrookUiLangDialog2", nullptr), nullptr);
}

TEST_F(UiLangDialogWindow, EnterOrADoubleClickOnARowSavesIt) {
    std::u16string language;
    EXPECT_TRUE(Run({[](HWND dialog) { ::SendMessageW(List(dialog), LB_SETCURSEL, 7, 0); },
                     [](HWND dialog) { Key(List(dialog), VK_RETURN); }},
                    language));
    EXPECT_EQ(language, u"de");
    EXPECT_EQ(Saved(), u"de");

    EXPECT_TRUE(Run({[](HWND dialog) { ::SendMessageW(List(dialog), LB_SETCURSEL, 3, 0); },
                     [](HWND dialog) {
                         ::PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(1001, LBN_DBLCLK),
                                        reinterpret_cast<LPARAM>(List(dialog)));
                     }},
                    language));
    EXPECT_EQ(language, u"ja");
    EXPECT_EQ(Saved(), u"ja");
}

TEST_F(UiLangDialogWindow, OkOnTheLanguageInUseOrEnterOnCancelChangesNothing) {
    std::u16string language;
    EXPECT_FALSE(Run({[](HWND dialog) {
                         ::PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(1002, BN_CLICKED),
                                        reinterpret_cast<LPARAM>(::GetDlgItem(dialog, 1002)));
                     }},
                     language));
    EXPECT_FALSE(Run({[](HWND dialog) { ::SendMessageW(List(dialog), LB_SETCURSEL, 7, 0); },
                      [](HWND dialog) { ::SetFocus(::GetDlgItem(dialog, 1003)); },
                      [](HWND dialog) { Key(::GetDlgItem(dialog, 1003), VK_RETURN); }},
                     language));
    EXPECT_EQ(Saved(), u"(none)");
}

TEST_F(UiLangDialogWindow, AQuitEndsTheDialogAndStaysForTheHostsLoop) {
    std::u16string language;
    EXPECT_FALSE(Run({[](HWND) { ::PostQuitMessage(5); }}, language));
    MSG message;
    ASSERT_TRUE(::PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
    EXPECT_EQ(message.wParam, 5u);
    EXPECT_TRUE(::IsWindowEnabled(owner_));
}

}  // namespace
}  // namespace qb
