// Runs over what the user selected: characters, shapes or slides. The
// host's selection says only what it is, so each selected shape is first
// searched for in the slides to get the address its units need. And the
// preview: a cheap count of the selection for the panel.
#pragma once

#include <cstdint>
#include <string>

#include "run/run_records.h"
#include "run/run_steps.h"
#include "slides/collect.h"

namespace qb {

inline constexpr std::size_t kSelectionUnitLimit = 2000;
inline constexpr std::size_t kSelectionCharLimit = 200000;

// Fills the run's lists from the selection of the run's window. On failure
// `outMessage` holds the text for the panel.
[[nodiscard]] HRESULT CollectSelection(const RunContext& run, RunLists& lists,
                                       std::u16string& outMessage, const ShapeOffer& offer = {});

// Spans and slides from the units in list order: a new span at each change
// of slide.
void RebuildSpans(RunLists& lists);

struct SelectionPreview {
    bool empty = true;
    std::int32_t fragments = 0;
    std::int32_t chars = 0;
    std::u16string label;
};

// `window` is the pane's document window; nothing is previewed unless it is
// the host's active window.
SelectionPreview ReadSelectionPreview(const host::HostRef& application,
                                      const host::HostRef& window);

}  // namespace qb
