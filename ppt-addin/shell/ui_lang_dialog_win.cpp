// The display language dialog on Windows: a drawn popup with an owner-drawn
// list of the fourteen languages and two buttons, modal to the host's window
// through a message loop of its own, so that the host's timers go on.
#include "shell/ui_lang_dialog_win.h"

#include <dwmapi.h>

#include <iterator>

#include "foundation/trace.h"
#include "foundation/ui_languages.h"
#include "foundation/ui_strings.h"
#include "foundation/wide_win.h"
#include "foundation/window_win.h"
#include "shell/ui_lang_dialog.h"

namespace qb::shell {

namespace {

// Not in MinGW's <dwmapi.h>.
constexpr DWORD kCornerPreference = 33;  // DWMWA_WINDOW_CORNER_PREFERENCE
constexpr DWORD kCornerRound = 2;        // DWMWCP_ROUND

constexpr wchar_t kClassName[] = L"QuillbrookUiLangDialog2";
constexpr int kListId = 1001, kOkId = 1002, kCancelId = 1003;

constexpr COLORREF Rgb(unsigned value) {
    return RGB((value >> 16) & 0xFF, (value >> 8) & 0xFF, value & 0xFF);
}

struct DialogState {
    std::u16string current;
    std::u16string chosen;
    bool changed = false;
    bool closed = false;
    HFONT titleFont = nullptr, bodyFont = nullptr, listFont = nullptr;
    HBRUSH background = nullptr;
    int dpi = 96;
    UiLangDialogLayout layout;
    HWND list = nullptr, cancel = nullptr;
};

HFONT MakeFont(int height96, int weight, int dpi) {
    return ::CreateFontW(-::MulDiv(height96, dpi, 96), 0, 0, 0, weight, FALSE, FALSE, FALSE,
                         DEFAULT_CHARSET, OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS,
                         CLEARTYPE_QUALITY, DEFAULT_PITCH, L"Microsoft YaHei UI");
}

RECT Win(const DialogRect& r) {
    return RECT{r.left, r.top, r.right, r.bottom};
}

void DeleteResources(DialogState& state) {
    for (HFONT* font : {&state.titleFont, &state.bodyFont, &state.listFont}) {
        if (*font) ::DeleteObject(*font);
        *font = nullptr;
    }
    if (state.background) ::DeleteObject(state.background);
    state.background = nullptr;
}

void RoundBox(HDC dc, const RECT& r, int radius, COLORREF fill, COLORREF border) {
    HBRUSH brush = ::CreateSolidBrush(fill);
    HPEN pen = ::CreatePen(PS_SOLID, 1, border);
    HGDIOBJ oldBrush = ::SelectObject(dc, brush);
    HGDIOBJ oldPen = ::SelectObject(dc, pen);
    ::RoundRect(dc, r.left, r.top, r.right, r.bottom, radius, radius);
    ::SelectObject(dc, oldBrush);
    ::SelectObject(dc, oldPen);
    ::DeleteObject(brush);
    ::DeleteObject(pen);
}

void Text(HDC dc, HFONT font, COLORREF color, const std::u16string& text, RECT r, UINT format) {
    HGDIOBJ old = ::SelectObject(dc, font);
    ::SetBkMode(dc, TRANSPARENT);
    ::SetTextColor(dc, color);
    ::DrawTextW(dc, AsWide(text), static_cast<int>(text.size()), &r, format | DT_NOPREFIX);
    ::SelectObject(dc, old);
}

void Paint(HWND hwnd, DialogState& state) {
    PAINTSTRUCT paint;
    HDC dc = ::BeginPaint(hwnd, &paint);
    RECT client;
    ::GetClientRect(hwnd, &client);
    ::FillRect(dc, &client, state.background);
    const UiLangDialogLayout& l = state.layout;
    Text(dc, state.titleFont, Rgb(0x1A1A1A), GetUiString(u"settings.title"), Win(l.title),
         DT_SINGLELINE | DT_VCENTER);
    Text(dc, state.bodyFont, Rgb(0x606060), GetUiString(u"settings.body"), Win(l.body),
         DT_WORDBREAK);
    RECT frame = Win(l.list);
    ::InflateRect(&frame, 1, 1);
    RoundBox(dc, frame, l.cornerRadius, Rgb(0xFFFFFF), Rgb(0xE2E2E2));
    HBRUSH border = ::CreateSolidBrush(Rgb(0xDCDCDC));
    ::FrameRect(dc, &client, border);
    ::DeleteObject(border);
    ::EndPaint(hwnd, &paint);
}

void DrawRow(const DRAWITEMSTRUCT& item, DialogState& state) {
    if (item.itemID >= std::size(kUiLanguageNames)) return;
    const bool selected = (item.itemState & ODS_SELECTED) != 0;
    RECT row = item.rcItem;
    HBRUSH fill = ::CreateSolidBrush(selected ? Rgb(0xE8F3FC) : Rgb(0xFFFFFF));
    ::FillRect(item.hDC, &row, fill);
    ::DeleteObject(fill);
    const COLORREF color = selected ? Rgb(0x0F6CBD) : Rgb(0x202020);
    RECT text{row.left + ::MulDiv(14, state.dpi, 96), row.top,
              row.right - ::MulDiv(36, state.dpi, 96), row.bottom};
    Text(item.hDC, state.listFont, color, std::u16string(kUiLanguageNames[item.itemID]), text,
         DT_SINGLELINE | DT_VCENTER);
    if (!selected) return;
    HPEN pen = ::CreatePen(PS_SOLID, 2, color);
    HGDIOBJ old = ::SelectObject(item.hDC, pen);
    const int cx = row.right - 22, cy = (row.top + row.bottom) / 2, s = 4;
    ::MoveToEx(item.hDC, cx - s, cy, nullptr);
    ::LineTo(item.hDC, cx - s / 3, cy + s);
    ::LineTo(item.hDC, cx + s, cy - s);
    ::SelectObject(item.hDC, old);
    ::DeleteObject(pen);
}

void DrawButton(const DRAWITEMSTRUCT& item, DialogState& state) {
    const bool ok = item.CtlID == kOkId;
    const bool pressed = (item.itemState & ODS_SELECTED) != 0;
    const COLORREF fill =
        ok ? (pressed ? Rgb(0x0C5A9E) : Rgb(0x0F6CBD)) : (pressed ? Rgb(0xF3F3F3) : Rgb(0xFFFFFF));
    const COLORREF border = ok ? fill : Rgb(0xD2D2D2);
    HBRUSH back = ::CreateSolidBrush(Rgb(0xFFFFFF));
    ::FillRect(item.hDC, &item.rcItem, back);
    ::DeleteObject(back);
    RoundBox(item.hDC, item.rcItem, state.layout.cornerRadius, fill, border);
    Text(item.hDC, state.listFont, ok ? Rgb(0xFFFFFF) : Rgb(0x202020),
         GetUiString(ok ? u"settings.ok" : u"settings.cancel"), item.rcItem,
         DT_SINGLELINE | DT_VCENTER | DT_CENTER);
}

void Close(HWND hwnd, DialogState& state) {
    state.closed = true;
    ::DestroyWindow(hwnd);
}

void Apply(HWND hwnd, DialogState& state) {
    const LRESULT row = ::SendMessageW(state.list, LB_GETCURSEL, 0, 0);
    switch (ApplyUiLangChoice(state.current, static_cast<std::int32_t>(row), state.chosen)) {
        case UiLangChoice::StayOpen:
            return;
        case UiLangChoice::SaveFailed:
            ::MessageBoxW(hwnd, AsWide(GetUiString(u"settings.writeFailed")),
                          AsWide(GetUiString(u"settings.title")), MB_ICONWARNING);
            return;
        case UiLangChoice::Unchanged:
            state.changed = false;
            Close(hwnd, state);
            return;
        case UiLangChoice::Changed:
            state.changed = true;
            Close(hwnd, state);
            return;
    }
}

// Escape closes; Enter applies unless Cancel has the focus. True when taken.
bool HandleKey(HWND hwnd, DialogState& state, WPARAM key) {
    if (key == VK_ESCAPE) {
        Close(hwnd, state);
        return true;
    }
    if (key == VK_RETURN) {
        if (::GetFocus() == state.cancel) {
            Close(hwnd, state);
        } else {
            Apply(hwnd, state);
        }
        return true;
    }
    return false;
}

LRESULT CALLBACK DialogProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    try {
        if (message == WM_NCCREATE) {
            auto* create = reinterpret_cast<const CREATESTRUCTW*>(lParam);
            ::SetWindowLongPtrW(hwnd, GWLP_USERDATA,
                                reinterpret_cast<LONG_PTR>(create->lpCreateParams));
        }
        auto* state = reinterpret_cast<DialogState*>(::GetWindowLongPtrW(hwnd, GWLP_USERDATA));
        if (!state) return ::DefWindowProcW(hwnd, message, wParam, lParam);
        switch (message) {
            case WM_NCHITTEST: {
                const LRESULT hit = ::DefWindowProcW(hwnd, message, wParam, lParam);
                if (hit != HTCLIENT) return hit;
                POINT point{static_cast<short>(LOWORD(lParam)), static_cast<short>(HIWORD(lParam))};
                ::ScreenToClient(hwnd, &point);
                return point.y < state->layout.list.top ? HTCAPTION : HTCLIENT;
            }
            case WM_ERASEBKGND:
                return 1;
            case WM_PAINT:
                Paint(hwnd, *state);
                return 0;
            case WM_MEASUREITEM:
                reinterpret_cast<MEASUREITEMSTRUCT*>(lParam)->itemHeight =
                    static_cast<UINT>(state->layout.rowHeight);
                return TRUE;
            case WM_DRAWITEM: {
                const auto& item = *reinterpret_cast<const DRAWITEMSTRUCT*>(lParam);
                if (item.CtlID == kListId) {
                    DrawRow(item, *state);
                } else {
                    DrawButton(item, *state);
                }
                return TRUE;
            }
            case WM_CTLCOLORLISTBOX: {
                HDC dc = reinterpret_cast<HDC>(wParam);
                ::SetBkMode(dc, TRANSPARENT);
                ::SetTextColor(dc, Rgb(0x202020));
                return reinterpret_cast<LRESULT>(state->background);
            }
            case WM_COMMAND:
                if (LOWORD(wParam) == kOkId) {
                    Apply(hwnd, *state);
                } else if (LOWORD(wParam) == kCancelId) {
                    Close(hwnd, *state);
                } else if (LOWORD(wParam) == kListId && HIWORD(wParam) == LBN_DBLCLK) {
                    Apply(hwnd, *state);
                }
                return 0;
            case WM_KEYDOWN:
                if (HandleKey(hwnd, *state, wParam)) return 0;
                break;
            case WM_CLOSE:
                Close(hwnd, *state);
                return 0;
            case WM_DESTROY:
                DeleteResources(*state);
                return 0;
            default:
                break;
        }
        return ::DefWindowProcW(hwnd, message, wParam, lParam);
    } catch (...) {
        Trace(u"PPT exception in the language dialog\r\n");
        return 0;
    }
}

bool RegisterDialogClass(HINSTANCE instance) {
    WNDCLASSW existing{};
    if (::GetClassInfoW(instance, kClassName, &existing)) return true;
    WNDCLASSW windowClass{};
    windowClass.style = CS_DROPSHADOW;
    windowClass.lpfnWndProc = &DialogProc;
    windowClass.hInstance = instance;
    windowClass.hCursor = ::LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
    windowClass.hbrBackground = static_cast<HBRUSH>(::GetStockObject(WHITE_BRUSH));
    windowClass.lpszClassName = kClassName;
    return ::RegisterClassW(&windowClass) != 0;
}

int MeasureBody(HFONT font, int width) {
    const std::u16string body = GetUiString(u"settings.body");
    HDC dc = ::GetDC(nullptr);
    if (!dc) return 0;
    HGDIOBJ old = ::SelectObject(dc, font);
    RECT r{0, 0, width, 0};
    ::DrawTextW(dc, AsWide(body), static_cast<int>(body.size()), &r,
                DT_CALCRECT | DT_WORDBREAK | DT_NOPREFIX);
    ::SelectObject(dc, old);
    ::ReleaseDC(nullptr, dc);
    return r.bottom - r.top;
}

}  // namespace

bool ShowUiLangDialogWindow(HWND owner, std::u16string& language) {
    const HINSTANCE instance = OwnModule();
    if (!RegisterDialogClass(instance)) return false;
    if (owner && !::IsWindow(owner)) owner = nullptr;

    DialogState state;
    state.current = ResolveUiLanguage(nullptr);
    state.dpi = WindowDpi(owner);
    state.titleFont = MakeFont(18, 600, state.dpi);
    state.bodyFont = MakeFont(13, 400, state.dpi);
    state.listFont = MakeFont(14, 400, state.dpi);
    state.background = ::CreateSolidBrush(Rgb(0xFFFFFF));
    const int margin = ::MulDiv(24, state.dpi, 96);
    state.layout = ComputeUiLangDialogLayout(
        state.dpi, MeasureBody(state.bodyFont, ::MulDiv(420, state.dpi, 96) - 2 * margin));
    const UiLangDialogLayout& l = state.layout;

    RECT around{};
    if (owner) {
        ::GetWindowRect(owner, &around);
    } else {
        around = RECT{0, 0, ::GetSystemMetrics(SM_CXSCREEN), ::GetSystemMetrics(SM_CYSCREEN)};
    }
    const int x = around.left + (around.right - around.left - l.width) / 2;
    const int y = around.top + (around.bottom - around.top - l.height) / 2;
    HWND hwnd = ::CreateWindowExW(0, kClassName, AsWide(GetUiString(u"settings.title")),
                                  WS_POPUP | WS_CLIPCHILDREN, x, y, l.width, l.height, owner,
                                  nullptr, instance, &state);
    if (!hwnd) {
        DeleteResources(state);
        return false;
    }
    const DWORD round = kCornerRound;
    (void)::DwmSetWindowAttribute(hwnd, kCornerPreference, &round, sizeof round);

    // Cancel first, so that it comes before OK in the tab order.
    state.cancel = ::CreateWindowExW(
        0, L"BUTTON", L"", WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_OWNERDRAW, l.cancel.left,
        l.cancel.top, l.cancel.right - l.cancel.left, l.cancel.bottom - l.cancel.top, hwnd,
        reinterpret_cast<HMENU>(static_cast<INT_PTR>(kCancelId)), instance, nullptr);
    HWND ok =
        ::CreateWindowExW(0, L"BUTTON", L"", WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_OWNERDRAW,
                          l.ok.left, l.ok.top, l.ok.right - l.ok.left, l.ok.bottom - l.ok.top, hwnd,
                          reinterpret_cast<HMENU>(static_cast<INT_PTR>(kOkId)), instance, nullptr);
    state.list = ::CreateWindowExW(
        0, L"LISTBOX", L"",
        WS_CHILD | WS_VISIBLE | WS_VSCROLL | WS_TABSTOP | LBS_NOTIFY | LBS_OWNERDRAWFIXED |
            LBS_NOINTEGRALHEIGHT,
        l.list.left, l.list.top, l.list.right - l.list.left, l.list.bottom - l.list.top, hwnd,
        reinterpret_cast<HMENU>(static_cast<INT_PTR>(kListId)), instance, nullptr);
    if (state.list) {
        ::SetWindowRgn(
            state.list,
            ::CreateRoundRectRgn(0, 0, l.list.right - l.list.left + 1,
                                 l.list.bottom - l.list.top + 1, l.cornerRadius, l.cornerRadius),
            FALSE);
        int selected = 0;
        for (std::size_t i = 0; i < std::size(kUiLanguageCodes); ++i) {
            ::SendMessageW(state.list, LB_ADDSTRING, 0, static_cast<LPARAM>(i));
            if (kUiLanguageCodes[i] == state.current) selected = static_cast<int>(i);
        }
        ::SendMessageW(state.list, LB_SETCURSEL, static_cast<WPARAM>(selected), 0);
    }
    for (HWND control : {state.list, state.cancel, ok}) {
        if (control)
            ::SendMessageW(control, WM_SETFONT, reinterpret_cast<WPARAM>(state.listFont), 0);
    }
    if (owner) ::EnableWindow(owner, FALSE);
    ::ShowWindow(hwnd, SW_SHOW);
    ::UpdateWindow(hwnd);
    if (state.list) ::SetFocus(state.list);

    MSG message;
    while (!state.closed) {
        const BOOL got = ::GetMessageW(&message, nullptr, 0, 0);
        if (got == 0) {
            // The host's own loop must still see it.
            ::PostQuitMessage(static_cast<int>(message.wParam));
            break;
        }
        if (got == -1) break;
        if (message.message == WM_KEYDOWN &&
            (message.hwnd == hwnd || ::IsChild(hwnd, message.hwnd)) &&
            HandleKey(hwnd, state, message.wParam)) {
            continue;
        }
        if (!::IsDialogMessageW(hwnd, &message)) {
            ::TranslateMessage(&message);
            ::DispatchMessageW(&message);
        }
    }
    if (::IsWindow(hwnd)) ::DestroyWindow(hwnd);
    DeleteResources(state);
    if (owner) {
        ::EnableWindow(owner, TRUE);
        ::SetForegroundWindow(owner);
    }
    if (!state.changed) return false;
    language = state.chosen;
    return true;
}

}  // namespace qb::shell
