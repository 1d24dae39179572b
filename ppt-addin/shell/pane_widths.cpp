#include "shell/pane_widths.h"

#include "foundation/platform.h"
#include "foundation/text.h"
#include "foundation/trace.h"
#include "foundation/user_config.h"
#include "slides/automation.h"

namespace qb {

namespace {

bool ReadWidth(const host::HostRef& taskPane, std::int32_t& width) {
    return taskPane && SUCCEEDED(host::GetInt32(taskPane, u"Width", width));
}

void PutWidth(const host::HostRef& taskPane, std::int32_t width) {
    (void)host::DispPut(taskPane, u"Width", host::Variant::I4(width));
}

std::u16string Num(std::int64_t value) {
    return DecimalText(static_cast<long long>(value));
}

void Save(PaneWidthState& state, std::int32_t width) {
    std::uint32_t error = 0;
    state.saveOk = SavePaneWidth(width, error);
    state.saveError = error;
}

}  // namespace

std::int32_t LoadPaneWidth(const std::vector<host::HostRef>& liveTaskPanes) {
    for (const host::HostRef& pane : liveTaskPanes) {
        std::int32_t width = 0;
        if (ReadWidth(pane, width) && width >= kSmallestRealWidth) {
            Trace(u"PaneWidth initial from live pane pt=" + Num(width) + u"\r\n");
            return width;
        }
    }
    bool found = false;
    const std::int32_t stored = ReadPaneWidth(found);
    const bool plausible = found && stored >= kSmallestStoredWidth && stored <= kLargestStoredWidth;
    const std::int32_t width = plausible ? stored : kDefaultPaneWidthPt;
    Trace(u"PaneWidth load pt=" + Num(width) + u" source=" + (plausible ? u"file" : u"default") +
          u" file=" + GetConfigPath() + u"\r\n");
    return width;
}

void BeginPaneWidth(PaneWidthState& state, std::int32_t width, bool wpsHost,
                    const host::HostRef& taskPane) {
    if (width <= 0) return;
    state.target = width;
    if (wpsHost) {
        state.pending = true;
        state.triesLeft = kReapplyTries;
        return;
    }
    PutWidth(taskPane, width);
    state.savedWidth = width;
    state.stableWidth = width;
    state.quietTicks = kQuietTicks;
}

PaneWidthResult PaneWidthStep(PaneWidthState& state, const host::HostRef& taskPane,
                              std::u16string& line) {
    line.clear();
    std::int32_t cur = 0;
    if (!ReadWidth(taskPane, cur) || cur <= 0) return PaneWidthResult::None;
    const std::uint64_t now = platform::CurrentClock().TickCount64();

    if (state.pending) {
        if (cur >= state.target - kReapplyTolerance && cur <= state.target + kReapplyTolerance) {
            state.pending = false;
            state.triesLeft = 0;
            state.savedWidth = state.target;
            state.stableWidth = cur;
            state.lastSeen = cur;
            state.quietTicks = kQuietTicks;
            line = u"PaneWidth reapply done at " + Num(cur);
            return PaneWidthResult::Done;
        }
        if (state.attempted && cur >= kSmallestRealWidth && cur != state.lastSeen) {
            state.lastChange = now;
            state.pending = false;
            state.triesLeft = 0;
            state.lastSeen = cur;
            line = u"PaneWidth reapply give-up (user-takeover cur=" + Num(cur) + u")";
            return PaneWidthResult::UserTakeover;
        }
        if (state.triesLeft < 1) {
            state.pending = false;
            state.lastSeen = cur;
            line = u"PaneWidth reapply give-up (target=" + Num(state.target) + u")";
            return PaneWidthResult::GiveUp;
        }
        if (state.target > 0) {
            // A width equal to the present one may be ignored: move it first.
            PutWidth(taskPane, state.target + 1);
            PutWidth(taskPane, state.target);
        }
        --state.triesLeft;
        state.savedWidth = state.target;
        state.attempted = true;
        state.quietTicks = kQuietTicks;
        state.lastSeen = cur;
        if (state.triesLeft == 0) {
            line = u"PaneWidth reapply give-up (target=" + Num(state.target) + u")";
            return PaneWidthResult::GiveUp;
        }
        line = u"PaneWidth reapply -> " + Num(state.target) + u" try-left=" + Num(state.triesLeft);
        return PaneWidthResult::Reapply;
    }

    if (state.quietTicks > 0) {
        state.lastSeen = cur;
        --state.quietTicks;
        state.lastChange = now;
        return PaneWidthResult::None;
    }
    if (cur != state.lastSeen) {
        state.lastChange = now;
        state.lastSeen = cur;
        return PaneWidthResult::None;
    }
    if (now - state.lastChange >= kStableWidthMs && cur != state.stableWidth) {
        state.stableWidth = cur;
        if (cur < kSmallestRealWidth) {
            line = u"PaneWidth skip-noise cur=" + Num(cur) + u" (<200)";
            return PaneWidthResult::SkipNoise;
        }
        if (cur != state.savedWidth) {
            Save(state, cur);
            state.savedWidth = cur;
            line = u"PaneWidth save pt=" + Num(cur) + u" ok=" + (state.saveOk ? u"1" : u"0") +
                   u" err=" + Num(state.saveError) + u" file=" + GetConfigPath();
            return PaneWidthResult::Save;
        }
    }
    return PaneWidthResult::None;
}

void SavePaneWidthNow(PaneWidthState& state, const host::HostRef& taskPane) {
    std::int32_t cur = 0;
    if (!ReadWidth(taskPane, cur) || cur < kSmallestRealWidth || cur == state.savedWidth) return;
    Save(state, cur);
    state.savedWidth = cur;
    state.stableWidth = cur;
    if (state.saveOk) Trace(u"PaneWidth shutdown-save pt=" + Num(cur) + u"\r\n");
}

}  // namespace qb
