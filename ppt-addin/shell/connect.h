// The connect object without COM: what the host's load and unload calls do,
// what each ribbon callback does, and the task panes, one per document
// window. The COM object (connect_win.cpp) turns VARIANTs and interfaces
// into these calls; tests drive them with the simulated host.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "foundation/hresult.h"
#include "run/run_records.h"
#include "shell/pane_widths.h"
#include "slides/host_object.h"

namespace qb {

inline constexpr std::uint32_t kBoxWarning = 0x30;  // MB_ICONWARNING
inline constexpr std::uint32_t kBoxError = 0x10;    // MB_ICONERROR
inline constexpr char16_t kPaneProgId[] = u"Quillbrook.PptPane";
inline constexpr std::int32_t kDockRight = 2;  // msoCTPDockPositionRight

// What the shell needs of the system beyond the host's objects.
class ShellPlatform {
  public:
    virtual ~ShellPlatform() = default;
    // A message box without an owner window.
    virtual void MessageBox(const std::u16string& text, const std::u16string& title,
                            std::uint32_t flags) = 0;
    // Opens an address in the system's browser; the shell's result code,
    // which is above 32 on success.
    virtual std::intptr_t OpenUrl(const std::u16string& url) = 0;
    // The UI language dialog over `owner` (0: centred on the screen); false
    // when the user didn't pick a language.
    virtual bool ShowUiLangDialog(std::intptr_t owner, std::u16string& language) = 0;
    // The top-level window of `hwnd`; 0 for none.
    virtual std::intptr_t RootWindow(std::intptr_t hwnd) = 0;
};

// The host's task pane factory, handed over by CTPFactoryAvailable.
class TaskPaneFactory {
  public:
    virtual ~TaskPaneFactory() = default;
    // Creates a task pane holding the control of `progId` in `window`.
    virtual HRESULT CreateCtp(const std::u16string& progId, const std::u16string& title,
                              const host::HostRef& window, host::HostRef& pane) = 0;
};

// The key a window's pane is filed under: the HWND, else the negated
// identity, else -1. 64 bits, as a handle doesn't fit a 32-bit long on x64.
std::int64_t PaneMapKey(const WindowKey& key);
// "hwnd=0x... id=..." as the log shows a window key.
std::u16string WindowKeyText(const WindowKey& key);

// Lets the pane width tick of the pane windows reach the connect object
// that made the last pane; cleared when that object shuts down.
void TickActivePaneWidths();

class Connect {
  public:
    explicit Connect(ShellPlatform& platform);
    virtual ~Connect();
    Connect(const Connect&) = delete;
    Connect& operator=(const Connect&) = delete;

    // --- Load and unload ----------------------------------------------------
    void OnConnection(host::HostRef application);
    void OnBeginShutdown();
    void OnDisconnection();
    void CTPFactoryAvailable(std::shared_ptr<TaskPaneFactory> factory);

    // --- Ribbon -------------------------------------------------------------
    void OnRibbonLoad(host::HostRef ribbonUi);
    // A button's action by its dispid (100 to 110 and 133); false for a
    // dispid that is no button.
    bool OnRibbonCommand(std::int32_t dispid, const host::HostRef& control);
    std::u16string GetLabel(const host::HostRef& control);
    std::u16string GetScreentip(const host::HostRef& control);
    virtual void PdfTranslateClicked(const host::HostRef& control);
    void SettingsClicked(const host::HostRef& control);

    // --- Task panes -----------------------------------------------------------
    void ShowPanePage(const std::u16string& page, const std::optional<std::u16string>& mode,
                      const host::HostRef& control);
    HRESULT EnsureTaskPane(bool& created, const WindowKey& key, const host::HostRef& window);
    bool ResolveTargetWindow(const host::HostRef& control, WindowKey& key, host::HostRef& window,
                             std::u16string& via);
    host::HostRef FindWindowOfPresentation(const host::HostRef& presentation);
    void PrunePanes();
    void ReleaseAllPanes();
    // The pane widths' periodic step; registered as the active tick.
    void TickPaneWidths();
    // Saves each pane's width that the one-second rule hasn't let through.
    void SavePaneWidthsNow();

    const host::HostRef& Application() const { return application_; }
    const host::HostRef& RibbonUi() const { return ribbonUi_; }
    std::size_t PaneCount() const { return panes_.size(); }
    // The task pane filed under a map key, or null.
    host::HostRef TaskPaneOf(std::int64_t mapKey) const;
    // The width state of the pane filed under a map key, or null.
    const PaneWidthState* WidthStateOf(std::int64_t mapKey) const;

  private:
    struct PaneEntry {
        host::HostRef taskPane;
        WindowKey key;
        PaneWidthState width;
    };

    void EnsureDockedRight(const host::HostRef& taskPane);
    void ClearActiveTick();

    ShellPlatform& platform_;
    host::HostRef application_;
    host::HostRef ribbonUi_;
    std::shared_ptr<TaskPaneFactory> factory_;
    std::map<std::int64_t, PaneEntry> panes_;
};

}  // namespace qb
