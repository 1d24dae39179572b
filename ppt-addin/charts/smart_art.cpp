// SmartArt nodes as units of the run, and their writeback.
#include "charts/smart_art.h"

#include "charts/chart_slots.h"
#include "foundation/text.h"
#include "slides/automation.h"
#include "slides/collect.h"

namespace qb {

using host::HostRef;
using host::Variant;
using host::VarType;

namespace {

HostRef NodeTextRange(const HostRef& nodes, std::int32_t index) {
    HostRef node, frame, range;
    if (FAILED(host::GetItem(nodes, index, node)) ||
        FAILED(host::GetObject(node, u"TextFrame2", frame)) ||
        FAILED(host::GetObject(frame, u"TextRange", range))) {
        return nullptr;
    }
    return range;
}

}  // namespace

bool CollectSmartArtUnits(const HostRef& shape, std::int32_t slideIndex, const ShapePath& path,
                          const UnitAddress& context, RunLists& lists) {
    Variant has;
    std::int32_t flag = 0;
    if (FAILED(host::DispGet(shape, u"HasSmartArt", &has)) ||
        (has.Type() != VarType::Bool && has.Type() != VarType::I2 && has.Type() != VarType::I4) ||
        !has.ToInt32(flag) || flag == 0) {
        return false;
    }
    HostRef art, nodes;
    if (FAILED(host::GetObject(shape, u"SmartArt", art)) ||
        FAILED(host::GetObject(art, u"Nodes", nodes))) {
        ++lists.skippedSmartArt;
        return true;
    }
    Variant countValue;
    if (FAILED(host::DispGet(nodes, u"Count", &countValue)) ||
        (countValue.Type() != VarType::I4 && countValue.Type() != VarType::I2)) {
        return true;
    }
    std::int32_t count = 0;
    if (!countValue.ToInt32(count)) return true;

    const std::u16string key = ShapeKey(path);
    const std::vector<std::int32_t> pathVector = path.ToVector();
    SlideCollector collector(lists);
    for (std::int32_t i = 1; i <= count; ++i) {
        const HostRef range = NodeTextRange(nodes, i);
        Variant text;
        if (!range || FAILED(host::DispGet(range, u"Text", &text)) ||
            text.Type() != VarType::String || HasNoWords(text.StringValue())) {
            continue;
        }
        // As read: a node's text is not trimmed.
        TextUnit unit;
        unit.slideIndex = slideIndex;
        unit.unitId = key + u".smartart(" + DecimalText(i) + u")";
        unit.hostText = text.StringValue();
        UnitAddress address = context;
        address.kind = UnitKind::SmartArtNode;
        address.slideIndex = slideIndex;
        address.shapePath = pathVector;
        address.paragraphIndex = 0;
        address.smartArtNode = i;
        collector.AddUnit(std::move(unit), std::move(address));
    }
    return true;
}

bool ApplySmartArtUnit(const HostRef& shape, const UnitAddress& address,
                       const std::u16string& text) {
    if (text.empty()) return false;
    HostRef art, nodes;
    if (FAILED(host::GetObject(shape, u"SmartArt", art)) ||
        FAILED(host::GetObject(art, u"Nodes", nodes))) {
        return false;
    }
    const HostRef range = NodeTextRange(nodes, address.smartArtNode);
    return range && SUCCEEDED(host::DispPut(range, u"Text", Variant::String(text)));
}

}  // namespace qb
