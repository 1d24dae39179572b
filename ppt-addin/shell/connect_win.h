// The COM classes of the add-in and what the module knows of them: the
// connect object the host loads, the pane control the task pane factory
// creates, the module's instance and its resources.
#pragma once

#include <windows.h>

#include <string>

#include "foundation/hresult.h"

namespace qb::shell {

// The add-in's own module, set when it is loaded.
HINSTANCE ModuleInstance();
void SetModuleInstance(HINSTANCE instance);
std::u16string ModulePath();

// A resource of the module as bytes; false when it is missing.
bool LoadModuleResource(const wchar_t* type, int id, const void*& data, DWORD& size);

// The class factories' creation functions.
HRESULT CreateConnect(REFIID iid, void** out);
HRESULT CreatePane(REFIID iid, void** out);

// The picture of a ribbon button as an IPictureDisp, or null; both cached
// for the life of the process.
IDispatch* LoadPngPicture(int id);
IDispatch* LoadIconPicture(int id, int size);

}  // namespace qb::shell
