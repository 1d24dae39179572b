// Chart text slots: every small place of a chart that holds text (title,
// axis titles, display unit labels, hand-typed data labels, series names,
// categories, sheet cells) found and turned into units of the run. Reads
// only; every member is reached by name, so a missing one is a normal case.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "charts/chart_host.h"
#include "run/run_records.h"
#include "slides/host_object.h"
#include "slides/shape_path.h"

namespace qb {

enum class ChartSlotKind : std::int32_t {
    ChartTitle = 0,
    AxisTitle = 1,
    Category = 2,
    SeriesName = 3,
    DataLabel = 4,
    DisplayUnit = 5,
    SheetCell = 6,
};

struct ChartSlot {
    ChartSlotKind kind = ChartSlotKind::ChartTitle;
    std::int32_t axisType = 0;   // 1 category, 2 value; 0 elsewhere
    std::int32_t axisGroup = 1;  // 1 primary, 2 secondary
    std::int32_t seriesIndex = 0;
    std::int32_t itemIndex = 0;  // data label: one-based; category: zero-based
    bool useAxisCategories = false;
    std::u16string text;
    std::u16string sheetName;
    std::int32_t row = 0;
    std::int32_t column = 0;
};

inline constexpr std::int32_t kMaxChartSeries = 64;
inline constexpr std::int32_t kMaxDataLabels = 512;
inline constexpr std::size_t kMaxListElements = 1024;

// The same test as ShouldSkip: no letter and no CJK character.
bool HasNoWords(std::u16string_view text);
// Leading and trailing white space removed.
std::u16string TrimText(std::u16string_view text);
// A host value as text: strings stay, empty and null give "", others convert.
std::u16string ValueText(const host::Variant& value);
// A one-dimensional list from an array value (also n x 1 or 1 x n), at
// most 1024 entries; false for anything else.
bool ReadValueList(const host::Variant& value, std::vector<host::Variant>& list);

bool IsChartShape(const host::HostRef& shape);
// Text, else Caption, else TextFrame2.TextRange.Text, each trimmed.
std::u16string ReadChartText(const host::HostRef& object);

host::HostRef GetChartAxis(const host::HostRef& chart, std::int32_t axisType,
                           std::int32_t axisGroup);
host::HostRef GetChartSeries(const host::HostRef& chart, std::int32_t index);
std::int32_t GetChartSeriesCount(const host::HostRef& chart);
// True unless ChartData says it is linked to a file; false without ChartData.
bool ChartDataIsEmbedded(const host::HostRef& chart);
// A series whose name, formula or x values point into cells.
bool HasSheetBackedSeries(const host::HostRef& chart);

// False only when Shape.Chart can't be had.
bool ReadChartSlots(const host::HostRef& shape, const ChartHost& chartHost,
                    std::vector<ChartSlot>& slots);

// The unit id suffix and the unit kind of a slot.
std::u16string ChartSlotSuffix(const ChartSlot& slot);
UnitKind ChartSlotUnitKind(ChartSlotKind kind);

// Takes a chart (readable or not) or a SmartArt graphic and adds its units;
// false sends the shape on to its text frame.
bool CollectChartUnits(const host::HostRef& shape, std::int32_t slideIndex, const ShapePath& path,
                       const UnitAddress& context, const ChartHost& chartHost, RunLists& lists);

}  // namespace qb
