// Completions of the browser stand-in reach the thread that asked for them
// the way the real component's do: as messages of that thread's own loop,
// through a message-only window this module makes on the thread.
#pragma once

#include <windows.h>

#include <functional>

namespace qb::sim::webview {

// The calling thread's window, made on first use; null when it can't be
// made. The module is pinned once a window exists: its window procedure
// must outlive any FreeLibrary of a host that still pumps messages.
HWND HostThreadWindow();

// Any thread. Queues `job` to run on the window's thread; false (and the
// job dropped unrun) when the window is gone. Jobs a window still holds at
// its end are destroyed unrun on its thread.
bool PostToHostThread(HWND window, std::function<void()> job);

}  // namespace qb::sim::webview
