// A guard around calls into the host: a structured exception (an access
// violation, say) raised inside the call becomes E_FAIL instead of ending
// the host's process. MinGW has no __try, so the guard is a small frame of
// our own, built in assembly for each of the two Windows ABIs.
#pragma once

#include "foundation/hresult.h"

namespace qb::host {

// What runs under the guard. It must hold nothing that needs cleaning up
// while it calls out: a fault abandons our frames above the guard without
// running their destructors (the host's own frames are unwound properly).
using GuardedFunction = HRESULT (*)(void* context);

// Runs function(context) and returns its result, or E_FAIL when a
// structured exception escapes it.
HRESULT CallGuarded(GuardedFunction function, void* context) noexcept;

}  // namespace qb::host
