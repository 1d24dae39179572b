// SmartArt text: each node of a SmartArt graphic is one unit, read from and
// written back into the node itself, which keeps its own formatting.
#pragma once

#include <cstdint>
#include <string>

#include "run/run_records.h"
#include "slides/host_object.h"
#include "slides/shape_path.h"

namespace qb {

// True when the shape is a SmartArt graphic (HasSmartArt true), whatever
// came of reading it; a graphic without usable nodes counts as skipped.
bool CollectSmartArtUnits(const host::HostRef& shape, std::int32_t slideIndex,
                          const ShapePath& path, const UnitAddress& context, RunLists& lists);

// Puts the normalized translation into node `address.smartArtNode`.
bool ApplySmartArtUnit(const host::HostRef& shape, const UnitAddress& address,
                       const std::u16string& text);

}  // namespace qb
