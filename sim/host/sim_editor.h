// A simulated chart data editor of WPS Presentation: the separate
// spreadsheet process whose main window shows a chart's workbook and, when
// it closes, commits the workbook's cells to the chart. It answers the
// editor window calls as the system would, and can be told to misbehave.
#pragma once

#include <cstdint>
#include <string>

#include "charts/wps_chart_commit.h"
#include "sim/host/sim_host.h"

namespace qb::sim {

class SimChartEditor final : public EditorWindows {
  public:
    enum class Mode {
        Commits,       // a window of its own process that shows and closes
        NeverAppears,  // the window stays hidden whatever is asked
        SameProcess,   // Hwnd names a window of the host's own process
        OtherClass,    // a window of another class
        NoWindow,      // Hwnd names no window at all
        PostFails,     // the window refuses the posted message
    };

    explicit SimChartEditor(SimHost& host) : host_(host) {}

    Mode mode = Mode::Commits;
    // IsWindowVisible says no this many times after the window was shown.
    std::int32_t hiddenChecks = 0;
    std::u16string className = u"XLMAIN";
    std::int32_t posts = 0;
    std::int32_t visibleChecks = 0;

    bool IsWindow(std::intptr_t hwnd) override;
    bool WindowProcessId(std::intptr_t hwnd, std::uint32_t& processId) override;
    std::uint32_t CurrentProcessId() override { return kHostProcessId; }
    bool ClassName(std::intptr_t hwnd, std::u16string& name) override;
    bool IsWindowVisible(std::intptr_t hwnd) override;
    bool PostClose(std::intptr_t hwnd) override;

    static constexpr std::uint32_t kHostProcessId = 1200;
    static constexpr std::uint32_t kEditorProcessId = 4400;

  private:
    // The chart whose open workbook this window shows, or null.
    ChartModel* ChartOf(std::intptr_t hwnd) const;

    SimHost& host_;
    std::int32_t hiddenSoFar_ = 0;
};

}  // namespace qb::sim
