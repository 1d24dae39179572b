// The task pane's width memory: the pane opens at the width the user last
// dragged it to. A timer watches each pane's Width, tells a lasting change
// from passing values, and keeps the result in the user configuration. WPS
// ignores a width set at creation, so there the same timer applies it, with
// retries, until it holds or the user takes over.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "slides/host_object.h"

namespace qb {

inline constexpr std::int32_t kSmallestRealWidth = 200;
inline constexpr std::int32_t kSmallestStoredWidth = 240;
inline constexpr std::int32_t kLargestStoredWidth = 1600;
inline constexpr std::int32_t kReapplyTolerance = 2;
inline constexpr std::int32_t kReapplyTries = 6;
inline constexpr std::int32_t kQuietTicks = 2;
inline constexpr std::uint64_t kStableWidthMs = 1000;

// In points.
struct PaneWidthState {
    std::int32_t target = 0;
    std::int32_t lastSeen = 0;
    std::int32_t savedWidth = 0;
    std::int32_t stableWidth = 0;
    std::uint64_t lastChange = 0;
    std::int32_t quietTicks = 0;
    std::int32_t triesLeft = 0;
    bool pending = false;  // WPS: the width is still being applied
    bool attempted = false;
    bool saveOk = false;
    std::uint32_t saveError = 0;
};

enum class PaneWidthResult { None, Reapply, Done, GiveUp, UserTakeover, Save, SkipNoise };

// The width of a new pane: that of the first live pane wide enough, else
// the stored one when it is plausible, else the default.
std::int32_t LoadPaneWidth(const std::vector<host::HostRef>& liveTaskPanes);

// A new pane's state. PowerPoint takes the width at once; WPS gets it from
// the ticks.
void BeginPaneWidth(PaneWidthState& state, std::int32_t width, bool wpsHost,
                    const host::HostRef& taskPane);

// One tick for one pane; `line` gets the log line of a result other than None.
PaneWidthResult PaneWidthStep(PaneWidthState& state, const host::HostRef& taskPane,
                              std::u16string& line);

// At shutdown: saves a real width the one-second rule hasn't let through yet.
void SavePaneWidthNow(PaneWidthState& state, const host::HostRef& taskPane);

}  // namespace qb
