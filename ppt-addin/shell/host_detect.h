// Which host the add-in runs in. PowerPoint and WPS Presentation load the
// same object the same way; later steps differ on IsWpsHost's answer.
#pragma once

#include <string>

#include "slides/host_object.h"

namespace qb {

// Reads Name and Version of the host's Application and sets the process's
// host identity: hostApp "wps" when the name says so or, failing that, when
// the process's executable is one of WPS's; else "ppt".
void DetectHost(const host::HostRef& application);

// True when the host was detected as WPS, or when the process's executable
// is wps.exe, wpp.exe or et.exe in any case.
bool IsWpsHost();

// A string member of a host object; any failure or non-string reads as empty.
std::u16string ReadHostText(const host::HostRef& object, std::u16string_view member);

// The file name of the process's executable (behind the last separator),
// computed once.
const std::u16string& MainModuleFileName();
// Tests: poses as another executable; empty returns to the real one.
void SetMainModuleFileNameForTesting(std::u16string name);

}  // namespace qb
