// Chart and SmartArt collection and writeback as the slide engine takes
// them: the offer of each leaf shape, and the writers of their units.
#pragma once

#include <functional>

#include "slides/collect.h"
#include "slides/writeback.h"

namespace qb {

class EditorWindows;

struct ChartStepsConfig {
    // Asked at each collection and write: whether the host is WPS
    // Presentation. Null: it isn't.
    std::function<bool()> isWpsHost;
    // The WPS editor's windows; null: the system's.
    EditorWindows* editor = nullptr;
};

ShapeOffer MakeChartOffer(ChartStepsConfig config = {});
ShapeUnitWriters MakeChartWriters(ChartStepsConfig config = {});

}  // namespace qb
