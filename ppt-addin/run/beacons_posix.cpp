// Beacons, Linux side: an executable is never unloaded under its threads.
#include "run/beacons.h"

namespace qb::detail {

void PinModuleForBeacons() {}

}  // namespace qb::detail
