// The charts of a presentation file: each chart part read into the
// simulated host's chart model (titles, axis titles, display unit labels,
// hand-typed data labels, series names and categories from the chart's
// caches, and the cells of its embedded workbook), so that the engine meets
// them through the chart objects as in a host; on save the texts the run
// changed go back into the chart's rich text, into the caches a viewer
// draws the chart from, and into the workbook's cells.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sim/host/sim_model.h"
#include "sim/pptx/zip_package.h"

namespace qb::pptx {

// One text of a chart as the file holds it, with where it stands.
struct ChartText {
    std::string place;  // "slide 2, Chart 3, title", "slide 2, Chart 3, series 1 category 2", ...
    std::u16string text;
};

class PptxCharts {
  public:
    PptxCharts();
    ~PptxCharts();
    PptxCharts(const PptxCharts&) = delete;
    PptxCharts& operator=(const PptxCharts&) = delete;

    // The limits of the presentation apply to the workbooks inside it too.
    void SetLimits(const ZipLimits& limits);

    // Reads the chart part `chartPart` for `shape`, a chart. A chart that
    // can't be read (missing, broken or of a kind not read here) leaves
    // `shape.chart` null, as a host does for a chart it can't open: the
    // deck is read on, and the run passes the chart over. A workbook that
    // can't be read leaves the chart without chart data, so its series
    // names and categories are reached through the chart's own caches.
    void Read(const ZipPackage& package, const std::string& chartPart,
              const std::shared_ptr<sim::ShapeModel>& shape, const std::string& place);

    // Puts the chart texts the model changed into their parts and
    // workbooks, into `package`; charts without a change keep their bytes.
    // Empty on success, else one line.
    std::string Save(ZipPackage& package);
    // Charts written back by the last Save.
    std::size_t ChartsWritten() const;

    // Every text the charts' files hold, charts in reading order.
    std::vector<ChartText> Texts() const;
    // One line for each chart that couldn't be read, and for each workbook
    // read around.
    const std::vector<std::string>& Problems() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace qb::pptx
