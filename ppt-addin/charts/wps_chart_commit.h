// The WPS chart editor commit: on WPS Presentation a chart's data is edited
// in a separate spreadsheet process, and the chart takes the new cells only
// when that editor's window closes. After every cell is written and
// verified, the editor's window is shown, the workbook saved and the window
// asked to close, behind a chain of guards that make sure it is this
// chart's editor and nothing else.
#pragma once

#include <cstdint>
#include <string>

#include "charts/chart_workbook.h"

namespace qb {

inline constexpr std::int32_t kEditorVisibleTries = 10;
inline constexpr std::uint32_t kEditorVisibleWaitMs = 20;
inline constexpr char16_t kEditorWindowClass[] = u"XLMAIN";

// The window calls of the commit. Windows: the system's windows; Linux: no
// editor process exists, and tests give a simulated editor.
class EditorWindows {
  public:
    virtual ~EditorWindows() = default;
    virtual bool IsWindow(std::intptr_t hwnd) = 0;
    // The process of the window; false when the system can't say.
    virtual bool WindowProcessId(std::intptr_t hwnd, std::uint32_t& processId) = 0;
    virtual std::uint32_t CurrentProcessId() = 0;
    // The window's class, read into a buffer of 32 characters.
    virtual bool ClassName(std::intptr_t hwnd, std::u16string& name) = 0;
    virtual bool IsWindowVisible(std::intptr_t hwnd) = 0;
    // Posts WM_CLOSE; the sender doesn't wait for the outcome.
    virtual bool PostClose(std::intptr_t hwnd) = 0;
};

// The platform's windows.
EditorWindows& SystemEditorWindows();

// True when WM_CLOSE was posted to this chart's editor; the session then
// no longer closes the workbook itself.
bool CommitThroughEtEditor(ChartWorkbookSession& session);

}  // namespace qb
