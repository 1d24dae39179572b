// Chart text slots and the chart units of a run.
#include "charts/chart_slots.h"

#include "charts/chart_workbook.h"
#include "charts/smart_art.h"
#include "foundation/char_class.h"
#include "foundation/text.h"
#include "foundation/trace.h"
#include "slides/automation.h"
#include "slides/collect.h"

namespace qb {

using host::HostRef;
using host::Variant;
using host::VarType;

namespace {

bool IsMissing(HRESULT hr) {
    return hr == DISP_E_UNKNOWNNAME || hr == DISP_E_MEMBERNOTFOUND;
}

// A truth value as hosts give it: booleans, 16- or 32-bit integers; any
// other type reads as false. False when the call itself failed.
bool ReadTruth(const HostRef& object, std::u16string_view name, bool& out) {
    Variant value;
    if (FAILED(host::DispGet(object, name, &value))) return false;
    out = false;
    if (value.Type() == VarType::Bool || value.Type() == VarType::I2 ||
        value.Type() == VarType::I4) {
        std::int32_t n = 0;
        out = value.ToInt32(n) && n != 0;
    }
    return true;
}

bool IsTrue(const HostRef& object, std::u16string_view name) {
    bool value = false;
    return ReadTruth(object, name, value) && value;
}

// The text of a member, trimmed; empty when it can't be read.
std::u16string MemberText(const HostRef& object, std::u16string_view name) {
    Variant value;
    if (FAILED(host::DispGet(object, name, &value))) return {};
    return TrimText(ValueText(value));
}

std::u16string Call2Text(const HostRef& object, std::u16string_view first,
                         std::u16string_view second, std::u16string_view third) {
    HostRef a, b;
    if (FAILED(host::GetObject(object, first, a)) || FAILED(host::GetObject(a, second, b))) {
        return {};
    }
    return MemberText(b, third);
}

bool HasWordsInList(const std::vector<Variant>& list) {
    for (const Variant& entry : list) {
        if (!HasNoWords(TrimText(ValueText(entry)))) return true;
    }
    return false;
}

void AddCategorySlots(const HostRef& chart, const HostRef& series, std::vector<ChartSlot>& slots) {
    std::vector<Variant> list;
    bool useAxis = false;
    Variant value;
    if (FAILED(host::DispGet(series, u"XValues", &value)) || !ReadValueList(value, list) ||
        !HasWordsInList(list)) {
        list.clear();
        useAxis = true;
        const HostRef axis = GetChartAxis(chart, 1, 1);
        Variant names;
        if (!axis || FAILED(host::DispGet(axis, u"CategoryNames", &names)) ||
            !ReadValueList(names, list) || !HasWordsInList(list)) {
            return;
        }
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
        std::u16string text = TrimText(ValueText(list[i]));
        if (HasNoWords(text)) continue;
        ChartSlot slot;
        slot.kind = ChartSlotKind::Category;
        slot.itemIndex = static_cast<std::int32_t>(i);
        slot.useAxisCategories = useAxis;
        slot.text = std::move(text);
        slots.push_back(std::move(slot));
    }
}

// Hand-typed labels only: a label that shows a value, percentage, category,
// series or bubble size is made by the host and follows the data.
void AddDataLabelSlots(const HostRef& series, std::int32_t seriesIndex,
                       std::vector<ChartSlot>& slots) {
    HostRef labels;
    if (!IsTrue(series, u"HasDataLabels") ||
        FAILED(host::GetObject(series, u"DataLabels", labels))) {
        return;
    }
    std::int32_t count = 0;
    if (FAILED(host::GetInt32(labels, u"Count", count))) return;
    if (count > kMaxDataLabels) count = kMaxDataLabels;
    for (std::int32_t i = 1; i <= count; ++i) {
        HostRef label;
        if (FAILED(host::GetItem(labels, i, label))) continue;
        bool shown[4] = {};
        const std::u16string_view names[4] = {u"ShowValue", u"ShowPercentage", u"ShowCategoryName",
                                              u"ShowSeriesName"};
        bool readable = true, any = false;
        for (int k = 0; k < 4; ++k) {
            readable = readable && ReadTruth(label, names[k], shown[k]);
            any = any || shown[k];
        }
        bool bubble = false;
        if (!readable || any || (ReadTruth(label, u"ShowBubbleSize", bubble) && bubble)) continue;
        std::u16string text = ReadChartText(label);
        if (HasNoWords(text)) continue;
        ChartSlot slot;
        slot.kind = ChartSlotKind::DataLabel;
        slot.seriesIndex = seriesIndex;
        slot.itemIndex = i;
        slot.text = std::move(text);
        slots.push_back(std::move(slot));
    }
}

void AddLabelSlot(ChartSlotKind kind, std::int32_t axisType, std::int32_t axisGroup,
                  std::u16string text, std::vector<ChartSlot>& slots) {
    if (HasNoWords(text)) return;
    ChartSlot slot;
    slot.kind = kind;
    slot.axisType = axisType;
    slot.axisGroup = axisGroup;
    slot.text = std::move(text);
    slots.push_back(std::move(slot));
}

}  // namespace

bool HasNoWords(std::u16string_view text) {
    return ShouldSkip(text);
}

std::u16string TrimText(std::u16string_view text) {
    std::size_t begin = 0, end = text.size();
    while (begin < end && IsSpace(text[begin]))
        ++begin;
    while (end > begin && IsSpace(text[end - 1]))
        --end;
    return std::u16string(text.substr(begin, end - begin));
}

std::u16string ValueText(const Variant& value) {
    if (value.Type() == VarType::Null) return {};
    std::u16string text;
    if (!value.ToString(text)) return {};
    return text;
}

bool ReadValueList(const Variant& value, std::vector<Variant>& list) {
    list.clear();
    if (value.Type() != VarType::Array) return false;
    const host::VariantArray& array = value.ArrayValue();
    if (array.lengths.size() == 2) {
        if (array.lengths[0] != 1 && array.lengths[1] != 1) return false;
    } else if (array.lengths.size() != 1) {
        return false;
    }
    if (array.elements.size() > kMaxListElements) return false;
    for (const Variant& element : array.elements) {
        // Nested arrays and objects are no list entries.
        if (element.Type() == VarType::Array || element.Type() == VarType::Object) {
            list.clear();
            return false;
        }
        list.push_back(element);
    }
    return true;
}

bool IsChartShape(const HostRef& shape) {
    std::int32_t type = 0;
    if (ReadShapeType(shape, type) && type == 3) return true;
    return IsTrue(shape, u"HasChart");
}

std::u16string ReadChartText(const HostRef& object) {
    if (!object) return {};
    std::u16string text = MemberText(object, u"Text");
    if (!text.empty()) return text;
    text = MemberText(object, u"Caption");
    if (!text.empty()) return text;
    return Call2Text(object, u"TextFrame2", u"TextRange", u"Text");
}

HostRef GetChartAxis(const HostRef& chart, std::int32_t axisType, std::int32_t axisGroup) {
    const Variant args[2] = {Variant::I4(axisGroup), Variant::I4(axisType)};
    Variant has;
    const HRESULT hr = host::DispCall(chart, u"HasAxis", args, 2, &has);
    if (!IsMissing(hr)) {
        if (FAILED(hr)) return nullptr;
        std::int32_t n = 0;
        const bool truth = (has.Type() == VarType::Bool || has.Type() == VarType::I2 ||
                            has.Type() == VarType::I4) &&
                           has.ToInt32(n) && n != 0;
        if (!truth) return nullptr;
    }
    Variant axis;
    if (FAILED(host::DispCall(chart, u"Axes", args, 2, &axis)) || axis.Type() != VarType::Object ||
        !axis.ObjectValue()) {
        return nullptr;
    }
    return axis.ObjectValue();
}

HostRef GetChartSeries(const HostRef& chart, std::int32_t index) {
    HostRef collection, series;
    if (SUCCEEDED(host::GetObject(chart, u"SeriesCollection", collection)) &&
        SUCCEEDED(host::GetItem(collection, index, series))) {
        return series;
    }
    const Variant arg = Variant::I4(index);
    Variant value;
    if (SUCCEEDED(host::DispCall(chart, u"SeriesCollection", &arg, 1, &value)) &&
        value.Type() == VarType::Object && value.ObjectValue()) {
        return value.ObjectValue();
    }
    return nullptr;
}

std::int32_t GetChartSeriesCount(const HostRef& chart) {
    HostRef collection;
    std::int32_t count = 0;
    if (SUCCEEDED(host::GetObject(chart, u"SeriesCollection", collection)) &&
        SUCCEEDED(host::GetInt32(collection, u"Count", count)) && count > 0) {
        return count > kMaxChartSeries ? kMaxChartSeries : count;
    }
    // Without a count, the last index that gives a series; the first gap ends it.
    std::int32_t last = 0;
    for (std::int32_t i = 1; i <= kMaxChartSeries && GetChartSeries(chart, i); ++i)
        last = i;
    return last;
}

bool ChartDataIsEmbedded(const HostRef& chart) {
    HostRef data;
    if (FAILED(host::GetObject(chart, u"ChartData", data))) return false;
    bool linked = false;
    return !(ReadTruth(data, u"IsLinked", linked) && linked);
}

bool HasSheetBackedSeries(const HostRef& chart) {
    const std::int32_t count = GetChartSeriesCount(chart);
    for (std::int32_t s = 1; s <= count; ++s) {
        const HostRef series = GetChartSeries(chart, s);
        if (!series) continue;
        const std::u16string name = MemberText(series, u"Name");
        if (!name.empty() && name.front() == u'=') return true;
        std::u16string formula;
        if (SUCCEEDED(host::GetString(series, u"Formula", formula)) &&
            formula.find(u'!') != std::u16string::npos) {
            return true;
        }
        Variant x;
        if (SUCCEEDED(host::DispGet(series, u"XValues", &x))) {
            if (x.Type() == VarType::Object) return true;
            if (x.Type() == VarType::String && !x.StringValue().empty() &&
                x.StringValue().front() == u'=') {
                return true;
            }
        }
    }
    return false;
}

bool ReadChartSlots(const HostRef& shape, const ChartHost& chartHost,
                    std::vector<ChartSlot>& slots) {
    slots.clear();
    HostRef chart;
    if (FAILED(host::GetObject(shape, u"Chart", chart))) return false;

    HostRef title;
    if (IsTrue(chart, u"HasTitle") && SUCCEEDED(host::GetObject(chart, u"ChartTitle", title))) {
        AddLabelSlot(ChartSlotKind::ChartTitle, 0, 1, ReadChartText(title), slots);
    }
    for (std::int32_t group = 1; group <= 2; ++group) {
        for (std::int32_t type = 1; type <= 2; ++type) {
            const HostRef axis = GetChartAxis(chart, type, group);
            if (!axis) continue;
            HostRef label;
            if (IsTrue(axis, u"HasTitle") &&
                SUCCEEDED(host::GetObject(axis, u"AxisTitle", label))) {
                AddLabelSlot(ChartSlotKind::AxisTitle, type, group, ReadChartText(label), slots);
            }
            if (IsTrue(axis, u"HasDisplayUnitLabel") &&
                SUCCEEDED(host::GetObject(axis, u"DisplayUnitLabel", label))) {
                AddLabelSlot(ChartSlotKind::DisplayUnit, type, group, ReadChartText(label), slots);
            }
        }
    }

    // An embedded chart's categories and series names live in its sheet,
    // even when the sheet couldn't be read this time.
    const bool scanned = ScanChartWorkbook(chart, chartHost, slots);
    const bool sheetHandled = ChartDataIsEmbedded(chart) || scanned;

    const std::int32_t count = GetChartSeriesCount(chart);
    for (std::int32_t s = 1; s <= count; ++s) {
        const HostRef series = GetChartSeries(chart, s);
        if (!series) continue;
        if (!sheetHandled) {
            if (s == 1) AddCategorySlots(chart, series, slots);
            std::u16string name = MemberText(series, u"Name");
            if (!name.empty() && name.front() != u'=' && !HasNoWords(name)) {
                ChartSlot slot;
                slot.kind = ChartSlotKind::SeriesName;
                slot.seriesIndex = s;
                slot.text = std::move(name);
                slots.push_back(std::move(slot));
            }
        }
        AddDataLabelSlots(series, s, slots);
    }
    return true;
}

UnitKind ChartSlotUnitKind(ChartSlotKind kind) {
    switch (kind) {
        case ChartSlotKind::ChartTitle:
            return UnitKind::ChartTitle;
        case ChartSlotKind::AxisTitle:
            return UnitKind::AxisTitle;
        case ChartSlotKind::Category:
            return UnitKind::Category;
        case ChartSlotKind::SeriesName:
            return UnitKind::SeriesName;
        case ChartSlotKind::DataLabel:
            return UnitKind::DataLabel;
        case ChartSlotKind::DisplayUnit:
            return UnitKind::DisplayUnit;
        case ChartSlotKind::SheetCell:
        default:
            return UnitKind::SheetCell;
    }
}

std::u16string ChartSlotSuffix(const ChartSlot& slot) {
    const auto axis = [&] {
        return u".axis(" + DecimalText(slot.axisType) + u"," + DecimalText(slot.axisGroup) + u")";
    };
    switch (slot.kind) {
        case ChartSlotKind::ChartTitle:
            return u".chartTitle";
        case ChartSlotKind::AxisTitle:
            return axis();
        case ChartSlotKind::Category:
            return u".category(" + DecimalText(slot.itemIndex) + u")";
        case ChartSlotKind::SeriesName:
            return u".series(" + DecimalText(slot.seriesIndex) + u").name";
        case ChartSlotKind::DataLabel:
            return u".series(" + DecimalText(slot.seriesIndex) + u").label(" +
                   DecimalText(slot.itemIndex) + u")";
        case ChartSlotKind::DisplayUnit:
            return axis() + u".unit";
        case ChartSlotKind::SheetCell:
        default:
            return u".sheet(" + slot.sheetName + u"," + DecimalText(slot.row) + u"," +
                   DecimalText(slot.column) + u")";
    }
}

bool CollectChartUnits(const HostRef& shape, std::int32_t slideIndex, const ShapePath& path,
                       const UnitAddress& context, const ChartHost& chartHost, RunLists& lists) {
    if (!IsChartShape(shape)) {
        return CollectSmartArtUnits(shape, slideIndex, path, context, lists);
    }
    std::vector<ChartSlot> slots;
    if (!ReadChartSlots(shape, chartHost, slots)) {
        lists.skippedLabels.push_back(
            u"\u7b2c" + DecimalText(slideIndex) +
            u"\u9875\uff1a\u56fe\u8868\u65e0\u6cd5\u8bbf\u95ee\uff0c\u672a\u7ffb\u8bd1");
        return true;
    }
    const std::u16string key = ShapeKey(path);
    const std::vector<std::int32_t> pathVector = path.ToVector();
    SlideCollector collector(lists);
    std::int32_t added = 0, sheetCells = 0;
    for (ChartSlot& slot : slots) {
        if (slot.kind == ChartSlotKind::SheetCell) ++sheetCells;
        if (HasNoWords(slot.text)) continue;
        UnitAddress address = context;
        address.kind = ChartSlotUnitKind(slot.kind);
        address.slideIndex = slideIndex;
        address.shapePath = pathVector;
        address.paragraphIndex = 0;
        address.axisType = slot.axisType;
        address.axisGroup = slot.axisGroup;
        address.seriesIndex = slot.seriesIndex;
        address.itemIndex = slot.itemIndex;
        address.useAxisCategories = slot.useAxisCategories ? 1 : 0;
        address.sheetName = slot.sheetName;
        address.row = slot.row;
        address.column = slot.column;
        TextUnit unit;
        unit.slideIndex = slideIndex;
        unit.unitId = key + ChartSlotSuffix(slot);
        unit.hostText = std::move(slot.text);
        collector.AddUnit(std::move(unit), std::move(address));
        ++added;
    }
    Trace(u"PptCtrl chart slide=" + DecimalText(slideIndex) + u" " + key + u" slots=" +
          DecimalText(added) + u" sheetCells=" + DecimalText(sheetCells) + u"\r\n");
    return true;
}

}  // namespace qb
