// What chart collection and writeback need to know of the host beyond its
// objects: whether it is WPS Presentation, whose chart data lives in a
// separate spreadsheet process, and the windows of that process.
#pragma once

namespace qb {

class EditorWindows;

struct ChartHost {
    bool wps = false;
    // The WPS chart editor's windows; null: no editor can be reached.
    EditorWindows* editor = nullptr;
};

}  // namespace qb
