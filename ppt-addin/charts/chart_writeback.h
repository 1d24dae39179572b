// Chart writeback through the chart's own objects: titles, axis titles,
// display unit labels, data labels, and for charts without an embedded
// workbook the series names and category labels. An embedded chart's
// objects only mirror its sheet, so those go through the workbook instead.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "charts/chart_slots.h"
#include "run/run_records.h"
#include "slides/host_object.h"

namespace qb {

struct CategoryEdit {
    std::int32_t itemIndex = 0;  // zero-based position in the category list
    std::u16string oldText;
    std::u16string newText;
};

// Puts the text through Text, else Caption, else TextFrame2.TextRange.Text.
bool WriteChartText(const host::HostRef& object, const std::u16string& text);

// One unit of kinds 3, 4, 6, 8, 9 or 10 on its located shape; the
// translation is normalized here. True when the text was written.
bool ApplyChartUnit(const host::HostRef& shape, const UnitAddress& address,
                    const std::u16string& translation);
bool ApplyChartSlot(const host::HostRef& shape, const ChartSlot& slot, const std::u16string& text);

// All category units of one chart, in one list put.
bool ApplyCategoryGroup(const host::HostRef& shape, const RunLists& lists,
                        const std::vector<std::size_t>& group, std::int32_t& count);
bool ApplyChartCategories(const host::HostRef& shape, const std::vector<CategoryEdit>& edits,
                          bool useAxisCategories);
// The list with the edits in place and every other entry as it was (numbers
// and dates keep their type), one-based. With `checkOldText` each edited
// position must still hold the edit's old text.
bool BuildCategoryArray(const host::Variant& value, const std::vector<CategoryEdit>& edits,
                        bool checkOldText, host::Variant& array);

}  // namespace qb
