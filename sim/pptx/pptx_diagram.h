// SmartArt in a presentation file: the node text of a diagram's data part,
// offered as the simulated host's SmartArt nodes, and written back on save
// into the data part and into the drawing part that readers show.
#pragma once

#include <pugixml.hpp>

#include <map>
#include <memory>
#include <string>

#include "sim/host/sim_model.h"
#include "sim/pptx/zip_package.h"

namespace qb::pptx {

class DiagramTexts {
  public:
    DiagramTexts();
    ~DiagramTexts();
    DiagramTexts(const DiagramTexts&) = delete;
    DiagramTexts& operator=(const DiagramTexts&) = delete;

    // The diagram a graphic frame's `graphicData` names, through the
    // relationships (id -> part) of the page it stands on. Never null: a
    // diagram whose data part is missing or broken comes back not usable,
    // as a host offers a graphic it can't read, and its parts stay as they
    // are. A data part read before (by another page, or the same page read
    // again) gives the model read then.
    std::shared_ptr<sim::SmartArtModel> Read(const ZipPackage& package,
                                             const std::map<std::string, std::string>& rels,
                                             pugi::xml_node graphicData);

    // Puts the text of every node that changed since the last read or write
    // into its data part and its drawing shapes, and the parts that changed
    // into `package`. Returns the number of nodes written.
    std::size_t Write(ZipPackage& package);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace qb::pptx
