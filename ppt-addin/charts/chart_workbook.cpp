// The chart data workbook: open, scan, write cell by cell, close.
#include "charts/chart_workbook.h"

#include "charts/wps_chart_commit.h"
#include "foundation/text.h"
#include "foundation/trace.h"
#include "slides/automation.h"
#include "slides/writeback.h"

namespace qb {

using host::HostRef;
using host::Variant;
using host::VarType;

namespace {

bool IsTrue(const HostRef& object, std::u16string_view name) {
    bool value = false;
    return SUCCEEDED(host::GetTruth(object, name, value)) && value;
}

std::int32_t IntOr(const HostRef& object, std::u16string_view name, std::int32_t fallback) {
    std::int32_t value = fallback;
    if (FAILED(host::GetInt32(object, name, value))) return fallback;
    return value;
}

// Rows.Count or Columns.Count of a range.
std::int32_t PartCount(const HostRef& range, std::u16string_view part, std::int32_t fallback) {
    HostRef object;
    if (FAILED(host::GetObject(range, part, object))) return fallback;
    return IntOr(object, u"Count", fallback);
}

HostRef CallForObject(const HostRef& object, std::u16string_view member, std::int32_t first,
                      std::int32_t second) {
    const Variant args[2] = {Variant::I4(second), Variant::I4(first)};
    Variant value;
    if (FAILED(host::DispCall(object, member, args, 2, &value)) ||
        value.Type() != VarType::Object || !value.ObjectValue()) {
        return nullptr;
    }
    return value.ObjectValue();
}

// Item(name) by name, then the direct Item.
HostRef ItemByName(const HostRef& collection, const std::u16string& name) {
    const Variant arg = Variant::String(name);
    Variant value;
    if (SUCCEEDED(host::DispCall(collection, u"Item", &arg, 1, &value)) &&
        value.Type() == VarType::Object && value.ObjectValue()) {
        return value.ObjectValue();
    }
    value = Variant();
    if (SUCCEEDED(host::DispDefault(collection, &arg, 1, &value)) &&
        value.Type() == VarType::Object && value.ObjectValue()) {
        return value.ObjectValue();
    }
    return nullptr;
}

// A cell's text as the sheet shows it, else its value.
std::u16string RangeText(const HostRef& range) {
    Variant value;
    if (SUCCEEDED(host::DispGet(range, u"Text", &value))) {
        std::u16string text = TrimText(ValueText(value));
        if (!text.empty()) return text;
    }
    value = Variant();
    if (FAILED(host::DispGet(range, u"Value", &value))) return {};
    return TrimText(ValueText(value));
}

std::u16string CellName(const ChartCellEdit& edit) {
    return edit.sheetName + u"!R" + DecimalText(edit.row) + u"C" + DecimalText(edit.column);
}

bool PutCell(const HostRef& cell, const std::u16string& text) {
    const Variant value = Variant::String(text);
    return SUCCEEDED(host::DispPut(cell, u"Value", value)) ||
           SUCCEEDED(host::DispPut(cell, u"Value2", value));
}

// One guarded, verified cell write; false with its trace line on failure.
bool WriteCell(const HostRef& worksheets, const ChartCellEdit& edit, bool wps) {
    const HostRef sheet = edit.sheetName.empty() ? [&] {
        HostRef first;
        (void)host::GetItem(worksheets, 1, first);
        return first;
    }()
                                                 : ItemByName(worksheets, edit.sheetName);
    if (!sheet) {
        WpsChartTrace(u"cell " + CellName(edit) + u": no sheet");
        return false;
    }
    const HostRef cell = CallForObject(sheet, u"Cells", edit.row, edit.column);
    if (!cell) {
        WpsChartTrace(u"cell " + CellName(edit) + u": Cells() failed");
        return false;
    }
    // Never over a formula, never over a cell someone changed during the run.
    if (ReadCellText(sheet, edit.row, edit.column) != edit.oldText || IsTrue(cell, u"HasFormula")) {
        WpsChartTrace(u"cell changed since scan or contains a formula; skipping");
        return false;
    }
    bool wrote = PutCell(cell, edit.newText);
    if (wrote && ReadCellText(sheet, edit.row, edit.column) != edit.newText) {
        wrote = PutCell(cell, edit.newText);
    }
    if (!wrote || ReadCellText(sheet, edit.row, edit.column) != edit.newText) {
        WpsChartTrace(u"cell " + CellName(edit) + u": Value put failed");
        return false;
    }
    if (wps) WpsChartTrace(u"cell " + CellName(edit) + u" verified");
    return true;
}

std::vector<HostRef> AllSeries(const HostRef& chart) {
    std::vector<HostRef> out;
    const std::int32_t count = GetChartSeriesCount(chart);
    for (std::int32_t s = 1; s <= count; ++s) {
        if (HostRef series = GetChartSeries(chart, s)) out.push_back(std::move(series));
    }
    return out;
}

// PowerPoint picks up new cells only when told: recalculate, put each
// series formula back, name the series from their cells, refresh.
void ShowChangesInChart(const HostRef& chart, ChartWorkbookSession& session) {
    if (session.application) {
        (void)host::DispPut(session.application, u"ScreenUpdating", Variant::Bool(true));
        (void)host::DispGet(session.application, u"Calculate", nullptr);
    }
    session.screenUpdatingChanged = false;
    HideChartDataWindows(session);

    const std::vector<HostRef> series = AllSeries(chart);
    for (const HostRef& s : series) {
        std::u16string formula;
        if (SUCCEEDED(host::GetString(s, u"Formula", formula)) && !formula.empty()) {
            (void)host::DispPut(s, u"Formula", Variant::String(formula));
        }
    }
    // Every formula is read before the first name is put.
    std::vector<std::pair<HostRef, std::u16string>> names;
    for (const HostRef& s : series) {
        std::u16string formula, sheet, address;
        std::vector<std::u16string> arguments, texts;
        if (FAILED(host::GetString(s, u"Formula", formula)) ||
            !ParseSeriesFormula(formula, arguments) ||
            !SplitSheetReference(TrimText(arguments[0]), sheet, address) ||
            !ReadRangeTexts(session.workbook, sheet, address, texts) || HasNoWords(texts[0])) {
            continue;
        }
        names.emplace_back(s, texts[0]);
    }
    for (const auto& [s, name] : names)
        (void)host::DispPut(s, u"Name", Variant::String(name));

    (void)host::DispGet(chart, u"Refresh", nullptr);
    HideChartDataWindows(session);
    HideChartDataWindows(session);
    const Variant save = Variant::I4(-1);
    (void)host::DispCall(session.workbook, u"Close", &save, 1, nullptr);
    session.opened = false;
    session.workbook.reset();
    session.application.reset();
    (void)host::DispGet(chart, u"Refresh", nullptr);
}

}  // namespace

ChartWorkbookSession::~ChartWorkbookSession() {
    if (opened || workbook || application) (void)CloseChartWorkbook(*this);
}

void WpsChartTrace(const std::u16string& text) {
    Trace(u"[WPSChart] " + text + u"\r\n");
}

bool OpenChartWorkbook(const HostRef& chart, ChartWorkbookSession& session) {
    (void)CloseChartWorkbook(session);
    HostRef data;
    if (FAILED(host::GetObject(chart, u"ChartData", data))) return false;
    bool linked = false;
    // The linked file stays untouched.
    if (SUCCEEDED(host::GetTruth(data, u"IsLinked", linked)) && linked) return false;
    const bool wps = session.host.wps;
    if (wps) (void)host::DispGet(data, u"Activate", nullptr);
    HostRef workbook;
    if (FAILED(host::GetObject(data, u"Workbook", workbook))) {
        if (!wps && FAILED(host::DispGet(data, u"Activate", nullptr))) return false;
        if (FAILED(host::GetObject(data, u"Workbook", workbook))) return false;
    }
    session.workbook = workbook;
    session.opened = true;
    if (wps) {
        (void)host::DispGet(workbook, u"Activate", nullptr);
        (void)host::GetObject(workbook, u"Application", session.application);
        return true;
    }
    (void)host::GetObject(workbook, u"Application", session.application);
    HideChartDataWindows(session);
    if (session.application) {
        bool updating = true;
        if (SUCCEEDED(host::GetTruth(session.application, u"ScreenUpdating", updating))) {
            session.savedScreenUpdating = updating;
        }
        if (SUCCEEDED(
                host::DispPut(session.application, u"ScreenUpdating", Variant::Bool(false)))) {
            session.screenUpdatingChanged = true;
        }
    }
    HideChartDataWindows(session);
    return true;
}

void HideChartDataWindows(ChartWorkbookSession& session) {
    if (session.host.wps) return;
    if (!session.application && session.workbook) {
        (void)host::GetObject(session.workbook, u"Application", session.application);
    }
    if (session.application) {
        // An application with another workbook open stays visible.
        HostRef workbooks;
        std::int32_t count = 1;
        if (FAILED(host::GetObject(session.application, u"Workbooks", workbooks)) ||
            (count = IntOr(workbooks, u"Count", 1)) < 2) {
            (void)host::DispPut(session.application, u"Visible", Variant::Bool(false));
        }
    }
    HostRef windows, window;
    if (SUCCEEDED(host::GetObject(session.workbook, u"Windows", windows)) &&
        SUCCEEDED(host::GetItem(windows, 1, window))) {
        (void)host::DispPut(window, u"Visible", Variant::Bool(false));
    }
}

bool CloseChartWorkbook(ChartWorkbookSession& session) {
    if (!session.workbook && !session.application) {
        session.opened = false;
        return true;
    }
    HideChartDataWindows(session);
    if (session.screenUpdatingChanged) {
        (void)host::DispPut(session.application, u"ScreenUpdating",
                            Variant::Bool(session.savedScreenUpdating));
        session.screenUpdatingChanged = false;
    }
    bool ok = true;
    if (session.opened) {
        const Variant save = Variant::I4(-1);
        ok = SUCCEEDED(host::DispCall(session.workbook, u"Close", &save, 1, nullptr));
        session.opened = false;
    }
    session.workbook.reset();
    session.application.reset();
    return ok;
}

bool ScanChartWorkbook(const HostRef& chart, const ChartHost& chartHost,
                       std::vector<ChartSlot>& slots) {
    if (!ChartDataIsEmbedded(chart) && !HasSheetBackedSeries(chart)) return false;
    ChartWorkbookSession session(chartHost);
    if (!OpenChartWorkbook(chart, session)) return false;
    const std::size_t before = slots.size();
    HostRef worksheets;
    if (SUCCEEDED(host::GetObject(session.workbook, u"Worksheets", worksheets))) {
        std::int32_t count = IntOr(worksheets, u"Count", 0);
        if (count > kMaxScannedSheets) count = kMaxScannedSheets;
        for (std::int32_t i = 1; i <= count; ++i) {
            HostRef sheet;
            if (FAILED(host::GetItem(worksheets, i, sheet))) continue;
            std::u16string name;
            if (FAILED(host::GetString(sheet, u"Name", name))) name.clear();
            ScanChartSheet(sheet, name, slots);
        }
    }
    (void)CloseChartWorkbook(session);
    return slots.size() > before;
}

void ScanChartSheet(const HostRef& sheet, const std::u16string& sheetName,
                    std::vector<ChartSlot>& slots) {
    HostRef used;
    if (FAILED(host::GetObject(sheet, u"UsedRange", used))) return;
    const std::int32_t top = IntOr(used, u"Row", 1);
    const std::int32_t left = IntOr(used, u"Column", 1);
    std::int32_t rows = PartCount(used, u"Rows", 0);
    std::int32_t columns = PartCount(used, u"Columns", 0);
    if (rows > kMaxScannedRows) rows = kMaxScannedRows;
    if (columns > kMaxScannedColumns) columns = kMaxScannedColumns;
    if (rows <= 0 || columns <= 0) return;
    for (std::int32_t r = 1; r <= rows; ++r) {
        for (std::int32_t c = 1; c <= columns; ++c) {
            const std::int32_t row = top + r - 1, column = left + c - 1;
            HostRef cell = CallForObject(sheet, u"Cells", row, column);
            if (!cell) cell = CallForObject(used, u"Cells", r, c);
            if (!cell) continue;
            std::u16string text = RangeText(cell);
            // Error values and overflow marks start with "#".
            if (text.empty() || text.front() == u'#' || HasNoWords(text)) continue;
            ChartSlot slot;
            slot.kind = ChartSlotKind::SheetCell;
            slot.sheetName = sheetName;
            slot.row = row;
            slot.column = column;
            slot.text = std::move(text);
            slots.push_back(std::move(slot));
        }
    }
}

std::u16string ReadCellText(const HostRef& sheet, std::int32_t row, std::int32_t column) {
    const HostRef cell = CallForObject(sheet, u"Cells", row, column);
    return cell ? RangeText(cell) : std::u16string();
}

bool ApplySheetGroup(const HostRef& shape, const RunLists& lists,
                     const std::vector<std::size_t>& group, const ChartHost& chartHost,
                     std::int32_t& count) {
    count = 0;
    if (!shape) return false;
    std::vector<ChartCellEdit> edits;
    const std::size_t end =
        std::min({lists.addresses.size(), lists.texts.size(), lists.translations.size()});
    for (std::size_t i : group) {
        if (i >= end || (i < lists.writtenUnits.size() && lists.writtenUnits[i])) continue;
        std::u16string t = NormalizeTranslation(lists.translations[i]);
        if (t.empty() || t == lists.texts[i]) continue;
        const UnitAddress& a = lists.addresses[i];
        edits.push_back({a.sheetName, a.row, a.column, lists.texts[i], std::move(t)});
    }
    WpsChartTrace(u"PptCtrl chart apply sheet edits=" + DecimalText(edits.size()));
    for (const ChartCellEdit& edit : edits) {
        WpsChartTrace(u"PptCtrl chart edit " + CellName(edit) + u" textLen=" +
                      DecimalText(edit.newText.size()));
    }
    if (!ApplySheetEdits(shape, edits, chartHost)) return false;
    count = static_cast<std::int32_t>(edits.size());
    return true;
}

bool ApplySheetEdits(const HostRef& shape, const std::vector<ChartCellEdit>& edits,
                     const ChartHost& chartHost) {
    HostRef chart;
    if (FAILED(host::GetObject(shape, u"Chart", chart))) return false;
    ChartWorkbookSession session(chartHost);
    if (!OpenChartWorkbook(chart, session)) return false;
    HostRef worksheets;
    if (FAILED(host::GetObject(session.workbook, u"Worksheets", worksheets))) {
        (void)CloseChartWorkbook(session);
        return false;
    }
    bool ok = true;
    for (const ChartCellEdit& edit : edits)
        ok = WriteCell(worksheets, edit, chartHost.wps) && ok;

    if (!chartHost.wps) {
        ShowChangesInChart(chart, session);
        return ok;
    }
    // WPS commits the cells only when its editor closes.
    const bool committed = ok && CommitThroughEtEditor(session);
    if (session.screenUpdatingChanged) {
        (void)host::DispPut(session.application, u"ScreenUpdating",
                            Variant::Bool(session.savedScreenUpdating));
        session.screenUpdatingChanged = false;
    }
    bool closed = true;
    if (session.opened) {
        const Variant save = Variant::I4(-1);
        closed = SUCCEEDED(host::DispCall(session.workbook, u"Close", &save, 1, nullptr));
        session.opened = false;
    }
    session.workbook.reset();
    session.application.reset();
    if (!committed) {
        WpsChartTrace(u"UI chart commit unavailable; workbook closed without redraw guarantee");
    }
    return ok && committed && closed;
}

bool SplitSheetReference(std::u16string_view ref, std::u16string& sheet, std::u16string& address) {
    const std::size_t bang = ref.rfind(u'!');
    if (bang == std::u16string_view::npos || bang == 0 || bang + 1 >= ref.size()) return false;
    std::u16string_view name = ref.substr(0, bang);
    address = std::u16string(ref.substr(bang + 1));
    sheet.clear();
    if (name.size() >= 2 && name.front() == u'\'' && name.back() == u'\'') {
        name = name.substr(1, name.size() - 2);
        for (std::size_t i = 0; i < name.size(); ++i) {
            sheet.push_back(name[i]);
            if (name[i] == u'\'' && i + 1 < name.size() && name[i + 1] == u'\'') ++i;
        }
    } else {
        sheet = std::u16string(name);
    }
    return true;
}

bool ParseSeriesFormula(std::u16string_view formula, std::vector<std::u16string>& arguments) {
    arguments.clear();
    const std::size_t open = formula.find(u'(');
    const std::size_t close = formula.rfind(u')');
    if (open == std::u16string_view::npos || close == std::u16string_view::npos || close < open) {
        return false;
    }
    arguments.emplace_back();
    bool quoted = false;
    for (std::size_t i = open + 1; i < close; ++i) {
        const char16_t c = formula[i];
        if (c == u'"') quoted = !quoted;
        if (c == u',' && !quoted) {
            arguments.emplace_back();
        } else {
            arguments.back().push_back(c);
        }
    }
    if (arguments.size() < 2) {
        arguments.clear();
        return false;
    }
    return true;
}

bool ReadRangeTexts(const HostRef& workbook, const std::u16string& sheetName,
                    const std::u16string& address, std::vector<std::u16string>& texts) {
    texts.clear();
    HostRef worksheets, sheet;
    if (FAILED(host::GetObject(workbook, u"Worksheets", worksheets))) return false;
    if (!sheetName.empty()) sheet = ItemByName(worksheets, sheetName);
    if (!sheet && FAILED(host::GetItem(worksheets, 1, sheet))) return false;
    const Variant arg = Variant::String(address);
    Variant value;
    if (FAILED(host::DispCall(sheet, u"Range", &arg, 1, &value)) ||
        value.Type() != VarType::Object || !value.ObjectValue()) {
        return false;
    }
    const HostRef range = value.ObjectValue();
    const std::int32_t rows =
        std::max(1, std::min(PartCount(range, u"Rows", 1), kMaxReferenceRows));
    const std::int32_t columns =
        std::max(1, std::min(PartCount(range, u"Columns", 1), kMaxReferenceColumns));
    if (rows == 1 && columns == 1) {
        texts.push_back(TrimText(ValueText([&] {
            Variant text;
            (void)host::DispGet(range, u"Text", &text);
            return text;
        }())));
        return true;
    }
    for (std::int32_t r = 1; r <= rows; ++r) {
        for (std::int32_t c = 1; c <= columns; ++c) {
            const HostRef cell = CallForObject(range, u"Cells", r, c);
            Variant text;
            if (cell) (void)host::DispGet(cell, u"Text", &text);
            texts.push_back(TrimText(ValueText(text)));
        }
    }
    return !texts.empty();
}

}  // namespace qb
