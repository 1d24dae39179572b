// Exposes any portable host object as a real IDispatch, so that the add-in
// can be driven under Wine against the simulated host exactly as the host
// would drive it: by name through GetIDsOfNames and Invoke, with VARIANTs.
#pragma once

#include <windows.h>

#include <oaidl.h>

#include "slides/dispatch_win.h"
#include "slides/host_object.h"

namespace qb::sim {

// An IDispatch (one reference for the caller) over `object`. Two exports of
// objects with one identity give the same IDispatch while either is held,
// so COM's identity rule holds across calls. Objects the object returns are
// exported in turn, so a whole object graph is reachable through IDispatch.
// An adapter over IDispatch is handed back as its own IDispatch.
HRESULT ExportDispatch(const host::HostRef& object, IDispatch** out);

// The bridge for an adapter over an exported IDispatch: portable objects
// passed as arguments are exported too.
const host::DispatchBridge* ExportBridge();

}  // namespace qb::sim
