// Beacons, Windows side: the module pin.
#include <windows.h>

#include "run/beacons.h"

namespace qb::detail {

void PinModuleForBeacons() {
    HMODULE module = nullptr;
    // Flags 5: from an address, pinned. The pin is never undone.
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                         reinterpret_cast<LPCWSTR>(&PinModuleForBeacons), &module);
}

}  // namespace qb::detail
