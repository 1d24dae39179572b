// Chart label, series name and category writeback through chart objects.
#include "charts/chart_writeback.h"

#include "charts/smart_art.h"
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

bool Written(const RunLists& lists, std::size_t i) {
    return i < lists.writtenUnits.size() && lists.writtenUnits[i];
}

bool PutList(const HostRef& object, std::u16string_view member, const Variant& value,
             const std::vector<CategoryEdit>& edits, bool checkOldText) {
    Variant array;
    return BuildCategoryArray(value, edits, checkOldText, array) &&
           SUCCEEDED(host::DispPut(object, member, array));
}

}  // namespace

bool WriteChartText(const HostRef& object, const std::u16string& text) {
    if (!object || text.empty()) return false;
    const Variant value = Variant::String(text);
    if (SUCCEEDED(host::DispPut(object, u"Text", value))) return true;
    if (SUCCEEDED(host::DispPut(object, u"Caption", value))) return true;
    HostRef frame, range;
    return SUCCEEDED(host::GetObject(object, u"TextFrame2", frame)) &&
           SUCCEEDED(host::GetObject(frame, u"TextRange", range)) &&
           SUCCEEDED(host::DispPut(range, u"Text", value));
}

bool ApplyChartUnit(const HostRef& shape, const UnitAddress& address,
                    const std::u16string& translation) {
    if (!shape) return false;
    const std::u16string text = NormalizeTranslation(translation);
    if (text.empty()) return false;
    if (address.kind == UnitKind::SmartArtNode) return ApplySmartArtUnit(shape, address, text);
    ChartSlot slot;
    switch (address.kind) {
        case UnitKind::ChartTitle:
            slot.kind = ChartSlotKind::ChartTitle;
            break;
        case UnitKind::AxisTitle:
            slot.kind = ChartSlotKind::AxisTitle;
            break;
        case UnitKind::SeriesName:
            slot.kind = ChartSlotKind::SeriesName;
            break;
        case UnitKind::DataLabel:
            slot.kind = ChartSlotKind::DataLabel;
            break;
        case UnitKind::DisplayUnit:
            slot.kind = ChartSlotKind::DisplayUnit;
            break;
        default:
            return false;
    }
    slot.axisType = address.axisType;
    slot.axisGroup = address.axisGroup > 0 ? address.axisGroup : 1;
    slot.seriesIndex = address.seriesIndex;
    slot.itemIndex = address.itemIndex;
    return ApplyChartSlot(shape, slot, text);
}

bool ApplyChartSlot(const HostRef& shape, const ChartSlot& slot, const std::u16string& text) {
    HostRef chart;
    if (text.empty() || FAILED(host::GetObject(shape, u"Chart", chart))) return false;
    // Nothing is created here: a label that has gone since collection fails.
    HostRef object;
    switch (slot.kind) {
        case ChartSlotKind::ChartTitle:
            return IsTrue(chart, u"HasTitle") &&
                   SUCCEEDED(host::GetObject(chart, u"ChartTitle", object)) &&
                   WriteChartText(object, text);
        case ChartSlotKind::AxisTitle: {
            const HostRef axis = GetChartAxis(chart, slot.axisType, slot.axisGroup);
            return axis && IsTrue(axis, u"HasTitle") &&
                   SUCCEEDED(host::GetObject(axis, u"AxisTitle", object)) &&
                   WriteChartText(object, text);
        }
        case ChartSlotKind::DisplayUnit: {
            const HostRef axis = GetChartAxis(chart, slot.axisType, slot.axisGroup);
            return axis && SUCCEEDED(host::GetObject(axis, u"DisplayUnitLabel", object)) &&
                   WriteChartText(object, text);
        }
        case ChartSlotKind::DataLabel: {
            const HostRef series = GetChartSeries(chart, slot.seriesIndex);
            HostRef labels;
            return series && SUCCEEDED(host::GetObject(series, u"DataLabels", labels)) &&
                   SUCCEEDED(host::GetItem(labels, slot.itemIndex, object)) &&
                   WriteChartText(object, text);
        }
        case ChartSlotKind::SeriesName: {
            // The sheet names an embedded chart's series; its workbook writes them.
            if (ChartDataIsEmbedded(chart)) return true;
            const HostRef series = GetChartSeries(chart, slot.seriesIndex);
            return series && SUCCEEDED(host::DispPut(series, u"Name", Variant::String(text)));
        }
        default:
            return false;
    }
}

bool ApplyCategoryGroup(const HostRef& shape, const RunLists& lists,
                        const std::vector<std::size_t>& group, std::int32_t& count) {
    count = 0;
    if (!shape) return false;
    std::vector<CategoryEdit> edits;
    bool useAxis = false;
    const std::size_t end = std::min(lists.addresses.size(), lists.texts.size());
    for (std::size_t i : group) {
        if (i >= end || i >= lists.translations.size() || Written(lists, i)) continue;
        std::u16string t = NormalizeTranslation(lists.translations[i]);
        if (t.empty() || t == lists.texts[i]) continue;
        edits.push_back({lists.addresses[i].itemIndex, lists.texts[i], std::move(t)});
        useAxis = lists.addresses[i].useAxisCategories != 0;
    }
    if (edits.empty()) {
        Trace(u"PptCtrl chart categories unchanged\r\n");
        return true;
    }
    Trace(u"PptCtrl chart apply categories\r\n");
    if (!ApplyChartCategories(shape, edits, useAxis)) return false;
    count = static_cast<std::int32_t>(edits.size());
    return true;
}

bool ApplyChartCategories(const HostRef& shape, const std::vector<CategoryEdit>& edits,
                          bool useAxisCategories) {
    if (edits.empty()) return true;
    HostRef chart;
    if (FAILED(host::GetObject(shape, u"Chart", chart))) return false;
    if (ChartDataIsEmbedded(chart)) return true;
    bool written = false;
    if (!useAxisCategories) {
        std::int32_t count = GetChartSeriesCount(chart);
        if (count < 1) count = 1;
        for (std::int32_t s = 1; s <= count; ++s) {
            const HostRef series = GetChartSeries(chart, s);
            Variant value;
            // Series 1 gave the categories; another takes the edits only
            // while its own list still holds the old texts.
            if (series && SUCCEEDED(host::DispGet(series, u"XValues", &value)) &&
                PutList(series, u"XValues", value, edits, s != 1)) {
                written = true;
            }
        }
    }
    const HostRef axis = GetChartAxis(chart, 1, 1);
    Variant names;
    if (axis && SUCCEEDED(host::DispGet(axis, u"CategoryNames", &names)) &&
        PutList(axis, u"CategoryNames", names, edits, !useAxisCategories)) {
        written = true;
    }
    return written;
}

bool BuildCategoryArray(const Variant& value, const std::vector<CategoryEdit>& edits,
                        bool checkOldText, Variant& array) {
    std::vector<Variant> list;
    if (!ReadValueList(value, list)) return false;
    for (const CategoryEdit& edit : edits) {
        if (edit.itemIndex < 0 || static_cast<std::size_t>(edit.itemIndex) >= list.size()) {
            return false;
        }
        if (checkOldText && TrimText(ValueText(list[edit.itemIndex])) != edit.oldText) {
            return false;
        }
    }
    std::vector<Variant> out(list.size());
    std::vector<bool> edited(list.size(), false);
    for (const CategoryEdit& edit : edits) {
        const auto at = static_cast<std::size_t>(edit.itemIndex);
        if (edited[at]) continue;  // the first edit for a position wins
        out[at] = Variant::String(edit.newText);
        edited[at] = true;
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (!edited[i]) out[i] = list[i];
    }
    array = Variant::Array(std::move(out), 1);
    return true;
}

}  // namespace qb
