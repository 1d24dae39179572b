// The chart and SmartArt steps wired for the slide engine.
#include "charts/chart_steps.h"

#include "charts/chart_slots.h"
#include "charts/chart_workbook.h"
#include "charts/chart_writeback.h"

namespace qb {
namespace {

ChartHost HostOf(const ChartStepsConfig& config) {
    ChartHost host;
    host.wps = config.isWpsHost && config.isWpsHost();
    host.editor = config.editor;
    return host;
}

}  // namespace

ShapeOffer MakeChartOffer(ChartStepsConfig config) {
    return [config](const host::HostRef& shape, std::int32_t slideIndex, const ShapePath& path,
                    const UnitAddress& context, RunLists& lists) {
        return CollectChartUnits(shape, slideIndex, path, context, HostOf(config), lists);
    };
}

ShapeUnitWriters MakeChartWriters(ChartStepsConfig config) {
    ShapeUnitWriters writers;
    writers.applyChartUnit = [](const host::HostRef& shape, const UnitAddress& address,
                                const std::u16string& translation) {
        return ApplyChartUnit(shape, address, translation);
    };
    writers.applyCategoryGroup = [](const host::HostRef& shape, const RunLists& lists,
                                    const std::vector<std::size_t>& group, std::int32_t& written) {
        return ApplyCategoryGroup(shape, lists, group, written);
    };
    writers.applySheetGroup = [config](const host::HostRef& shape, const RunLists& lists,
                                       const std::vector<std::size_t>& group,
                                       std::int32_t& written) {
        return ApplySheetGroup(shape, lists, group, HostOf(config), written);
    };
    return writers;
}

}  // namespace qb
