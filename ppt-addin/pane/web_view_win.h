// The pane's view seam on Windows: the pane window, and the browser view
// inside it, brought up step by step through the loader beside the add-in.
// Every completion arrives on the host's thread and may arrive after the
// pane began to close, so each step checks the pane's shutting-down flag,
// and a step whose view object is gone does nothing at all.
#pragma once

#include <windows.h>

#include <memory>
#include <string>

#include "foundation/com_win.h"
#include "pane/pane_view.h"
#include "pane/pane_window_win.h"
#include "pane/webview2_win.h"

namespace qb {

class PptPane;

// The browser's profile: %LOCALAPPDATA%\Quillbrook\WebView2, both levels
// made if missing; empty when the known folder can't be had.
std::u16string WebViewUserDataFolder();

class WinPaneView final : public PaneView {
  public:
    WinPaneView();
    ~WinPaneView() override;
    WinPaneView(const WinPaneView&) = delete;
    WinPaneView& operator=(const WinPaneView&) = delete;

    // The pane the window and the view report to; set before the window
    // exists, and outliving it.
    void Attach(PptPane* pane) { pane_ = pane; }
    PaneWindow& Window() { return window_; }

    // The browser view's bring-up; runs once in a view's life.
    void InitWebView();
    // The view fills the window's client area; nothing before a controller.
    void FitToWindow();
    bool HasController() const { return controller_ != nullptr; }
    bool ViewStartBegun() const { return viewStartBegun_; }

    // --- PaneView ---------------------------------------------------------
    void Navigate(const std::u16string& url) override;
    void ExecuteScript(const std::u16string& script) override;
    void PostWebMessageAsJson(const std::u16string& json) override;
    bool ReadSource(std::u16string& url) override;
    HRESULT CloseView() override;
    bool PostJob(std::function<void()> job) override { return window_.PostJob(std::move(job)); }
    bool SetTimer(PaneTimer timer, std::uint32_t periodMs) override {
        return window_.SetTimer(timer, periodMs);
    }
    void KillTimer(PaneTimer timer) override { window_.KillTimer(timer); }
    void ShowMessageBox(const std::u16string& text, const std::u16string& title,
                        std::uint32_t flags) override {
        window_.ShowMessageBox(text, title, flags);
    }
    bool SetClipboardText(const std::u16string& text) override {
        return window_.SetClipboardText(text);
    }
    std::vector<std::u16string> ListFontFamilies() override { return window_.ListFontFamilies(); }
    PumpResult PumpMessages(std::uint32_t waitMs) override { return window_.PumpMessages(waitMs); }

  private:
    HRESULT OnEnvironment(HRESULT hr, wv2::ICoreWebView2Environment* environment, HWND window);
    HRESULT OnController(HRESULT hr, wv2::ICoreWebView2Controller* controller);
    void Subscribe();
    void OnWindowDestroyed();
    bool ShuttingDown() const;

    PptPane* pane_ = nullptr;
    PaneWindow window_;
    ComPtr<wv2::ICoreWebView2Environment> environment_;
    ComPtr<wv2::ICoreWebView2Controller> controller_;
    ComPtr<wv2::ICoreWebView2> view_;
    bool viewStartBegun_ = false;
    // The browser may hold our handlers past this object's end; they check
    // this before they touch it.
    std::shared_ptr<WinPaneView*> self_;
};

}  // namespace qb
