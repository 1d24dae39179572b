// The guarded commit of a chart's cells through the WPS editor's window.
#include "charts/wps_chart_commit.h"

#include "foundation/platform.h"
#include "slides/automation.h"

namespace qb {

using host::HostRef;
using host::Variant;

namespace {

std::int32_t CountOf(const HostRef& collection) {
    std::int32_t count = 0;
    if (FAILED(host::GetInt32(collection, u"Count", count))) return 0;
    return count;
}

bool ActiveBookIs(const HostRef& application, const std::u16string& name) {
    HostRef active;
    std::u16string activeName;
    return SUCCEEDED(host::GetObject(application, u"ActiveWorkbook", active)) &&
           SUCCEEDED(host::GetString(active, u"Name", activeName)) && activeName == name;
}

}  // namespace

bool CommitThroughEtEditor(ChartWorkbookSession& session) {
    const HostRef& workbook = session.workbook;
    const HostRef& application = session.application;
    if (!workbook || !application) return false;

    HostRef workbooks, windows, window;
    if (FAILED(host::GetObject(application, u"Workbooks", workbooks)) || CountOf(workbooks) != 1 ||
        FAILED(host::GetObject(workbook, u"Windows", windows)) || CountOf(windows) != 1 ||
        FAILED(host::GetItem(windows, 1, window))) {
        WpsChartTrace(u"editor close skipped: ET has other workbooks/windows");
        return false;
    }
    std::u16string name, caption;
    if (FAILED(host::GetString(workbook, u"Name", name)) ||
        FAILED(host::GetString(window, u"Caption", caption)) || name.empty() || name != caption) {
        WpsChartTrace(u"editor close skipped: workbook/window mismatch");
        return false;
    }
    (void)host::DispGet(workbook, u"Activate", nullptr);
    if (!ActiveBookIs(application, name)) return false;
    std::int32_t hwndValue = 0;
    if (FAILED(host::GetInt32(application, u"Hwnd", hwndValue))) return false;
    // Window handles carry 32 significant bits on both bitnesses.
    const auto hwnd = static_cast<std::intptr_t>(static_cast<std::uint32_t>(hwndValue));

    EditorWindows& system = session.host.editor ? *session.host.editor : SystemEditorWindows();
    std::uint32_t processId = 0;
    std::u16string className;
    if (!system.IsWindow(hwnd) || !system.WindowProcessId(hwnd, processId) || processId == 0 ||
        processId == system.CurrentProcessId() || !system.ClassName(hwnd, className) ||
        className != kEditorWindowClass) {
        WpsChartTrace(u"editor close skipped: not a separate ET main window");
        return false;
    }
    if (FAILED(host::DispPut(window, u"Visible", Variant::Bool(true)))) {
        WpsChartTrace(u"editor close skipped: ET window could not be shown");
        return false;
    }
    platform::Clock& clock = platform::CurrentClock();
    for (std::int32_t i = 0; i < kEditorVisibleTries && !system.IsWindowVisible(hwnd); ++i)
        clock.Sleep(kEditorVisibleWaitMs);
    if (!system.IsWindowVisible(hwnd)) {
        WpsChartTrace(u"editor close skipped: ET window stayed hidden");
        return false;
    }
    if (CountOf(workbooks) != 1 || !ActiveBookIs(application, name)) {
        WpsChartTrace(u"editor close skipped: ET active book changed");
        return false;
    }
    if (FAILED(host::DispGet(workbook, u"Save", nullptr))) {
        WpsChartTrace(u"editor close skipped: workbook.Save failed");
        return false;
    }
    if (!system.PostClose(hwnd)) {
        WpsChartTrace(u"editor close skipped: PostMessage failed");
        return false;
    }
    WpsChartTrace(u"posted WM_CLOSE to this chart's ET editor (commit pending)");
    session.opened = false;
    return true;
}

}  // namespace qb
