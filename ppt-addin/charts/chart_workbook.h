// The data workbook behind an embedded chart: opened through ChartData for
// a scan of its sheets and again to write translated cells, one cell at a
// time, each guarded by what the scan saw and verified by reading it back.
// A chart linked to a file is never opened.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "charts/chart_host.h"
#include "charts/chart_slots.h"
#include "run/run_records.h"
#include "slides/host_object.h"

namespace qb {

inline constexpr std::int32_t kMaxScannedSheets = 3;
inline constexpr std::int32_t kMaxScannedRows = 40;
inline constexpr std::int32_t kMaxScannedColumns = 16;
inline constexpr std::int32_t kMaxReferenceRows = 64;
inline constexpr std::int32_t kMaxReferenceColumns = 16;

// One opening of a chart's workbook, for one scan or one write.
struct ChartWorkbookSession {
    explicit ChartWorkbookSession(ChartHost onHost) : host(onHost) {}
    ChartWorkbookSession(const ChartWorkbookSession&) = delete;
    ChartWorkbookSession& operator=(const ChartWorkbookSession&) = delete;
    // A session left open on an early road is still closed.
    ~ChartWorkbookSession();

    ChartHost host;
    host::HostRef workbook;
    host::HostRef application;
    bool opened = false;  // this session has to close the workbook
    bool screenUpdatingChanged = false;
    bool savedScreenUpdating = true;
};

struct ChartCellEdit {
    std::u16string sheetName;
    std::int32_t row = 0;
    std::int32_t column = 0;
    std::u16string oldText;
    std::u16string newText;
};

// "[WPSChart] " + text + CR LF to the trace, on every host.
void WpsChartTrace(const std::u16string& text);

bool OpenChartWorkbook(const host::HostRef& chart, ChartWorkbookSession& session);
// False only when Workbook.Close could not be called or failed.
bool CloseChartWorkbook(ChartWorkbookSession& session);
void HideChartDataWindows(ChartWorkbookSession& session);

// Adds SheetCell slots; true if it added any.
bool ScanChartWorkbook(const host::HostRef& chart, const ChartHost& chartHost,
                       std::vector<ChartSlot>& slots);
void ScanChartSheet(const host::HostRef& sheet, const std::u16string& sheetName,
                    std::vector<ChartSlot>& slots);
// Text, else Value as text, trimmed; empty on failure. The guard and both
// read-backs use it, so they see the same form as the scan did.
std::u16string ReadCellText(const host::HostRef& sheet, std::int32_t row, std::int32_t column);

// All sheet cell units of one chart in one session.
bool ApplySheetGroup(const host::HostRef& shape, const RunLists& lists,
                     const std::vector<std::size_t>& group, const ChartHost& chartHost,
                     std::int32_t& count);
bool ApplySheetEdits(const host::HostRef& shape, const std::vector<ChartCellEdit>& edits,
                     const ChartHost& chartHost);

// "'Sheet ''A'''!$B$1" -> "Sheet 'A'" and "$B$1": split at the last "!".
bool SplitSheetReference(std::u16string_view ref, std::u16string& sheet, std::u16string& address);
// The arguments of "=SERIES(...)", split at commas outside double quotes.
bool ParseSeriesFormula(std::u16string_view formula, std::vector<std::u16string>& arguments);
bool ReadRangeTexts(const host::HostRef& workbook, const std::u16string& sheetName,
                    const std::u16string& address, std::vector<std::u16string>& texts);

}  // namespace qb
