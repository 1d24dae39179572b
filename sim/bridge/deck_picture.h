// The deck as the browser draws it beside the panel: for each slide, every
// shape's box and its text line by line as the simulated host lays it out,
// whether the text still fits, and what the window has selected. Read on
// the host's thread; the text it gives is handed to the server's threads.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/host/sim_model.h"

namespace qb::sim {

std::string DeckPictureJson(const PresentationModel& deck, const WindowModel& window);

// The shape at a one-based path on a one-based slide (a group's items by
// further indexes); null when there is none.
std::shared_ptr<ShapeModel> ShapeAtPath(const PresentationModel& deck, std::int32_t slide,
                                        const std::vector<std::int32_t>& path);

}  // namespace qb::sim
