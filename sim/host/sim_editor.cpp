// The simulated WPS chart editor window.
#include "sim/host/sim_editor.h"

namespace qb::sim {
namespace {

ChartModel* FindOpen(const std::vector<std::shared_ptr<ShapeModel>>& shapes, std::intptr_t hwnd) {
    for (const auto& shape : shapes) {
        if (shape->chart && shape->chart->workbook.open &&
            shape->chart->workbook.editorHwnd == hwnd) {
            return shape->chart.get();
        }
        if (ChartModel* found = FindOpen(shape->children, hwnd)) return found;
    }
    return nullptr;
}

}  // namespace

ChartModel* SimChartEditor::ChartOf(std::intptr_t hwnd) const {
    for (const auto& deck : host_.App().presentations) {
        for (const auto& slide : deck->slides) {
            if (ChartModel* chart = FindOpen(slide->shapes, hwnd)) return chart;
            if (ChartModel* chart = FindOpen(slide->notesShapes, hwnd)) return chart;
        }
    }
    return nullptr;
}

bool SimChartEditor::IsWindow(std::intptr_t hwnd) {
    return mode != Mode::NoWindow && ChartOf(hwnd) != nullptr;
}

bool SimChartEditor::WindowProcessId(std::intptr_t hwnd, std::uint32_t& processId) {
    if (!IsWindow(hwnd)) return false;
    processId = mode == Mode::SameProcess ? kHostProcessId : kEditorProcessId;
    return true;
}

bool SimChartEditor::ClassName(std::intptr_t hwnd, std::u16string& name) {
    if (!IsWindow(hwnd)) return false;
    name = mode == Mode::OtherClass ? u"PP12FrameClass" : className.substr(0, 31);
    return true;
}

bool SimChartEditor::IsWindowVisible(std::intptr_t hwnd) {
    ++visibleChecks;
    const ChartModel* chart = ChartOf(hwnd);
    if (!chart || mode == Mode::NeverAppears || !chart->workbook.windowVisible) return false;
    if (hiddenSoFar_ < hiddenChecks) {
        ++hiddenSoFar_;
        return false;
    }
    return true;
}

bool SimChartEditor::PostClose(std::intptr_t hwnd) {
    ChartModel* chart = ChartOf(hwnd);
    if (!chart || mode == Mode::PostFails) return false;
    ++posts;
    // The editor closes by itself and the chart takes its cells.
    CommitChartEditor(*chart);
    return true;
}

}  // namespace qb::sim
