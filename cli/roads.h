// The two roads a run of the front end can take, as the add-in has them:
// native, where the run's worker posts each batch to the service itself, and
// panel, where the pane hands each batch to the web panel (the stand-in page)
// and the page calls the service. Both drive the same engine on the same
// simulated host and end in the same counts, so the program reports either
// the same way.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "run/run_records.h"
#include "sim/host/sim_host.h"
#include "slides/slide_engine.h"

namespace qb::cli {

// What a run is asked to do, in the engine's words.
struct RoadRequest {
    sim::SimHost* host = nullptr;
    bool wpsHost = false;
    // Chart and SmartArt steps as the posed host has them.
    ShapeOffer offer;
    ShapeUnitWriters writers;
    RunScope scope = RunScope::FullDeck;
    std::u16string targetLang, sourceLang;
    std::optional<std::u16string> targetFont;  // absent: the run's default
    bool bilingual = false;
    std::u16string token;
    std::vector<std::u16string> glossaryIds;
    std::u16string instructionId;
};

// How a run ended, and its counts.
struct RoadOutcome {
    std::string closing;  // "complete", "error", "cancelled"; empty: the run never closed
    std::string code, message;
    std::int32_t slides = 0;         // slides with units
    std::int32_t units = 0;          // texts collected
    std::int32_t translated = 0;     // units written
    std::int32_t unchanged = 0;      // came back equal to the source
    std::int32_t slidesWritten = 0;  // slides the tick has written
    std::string firstApplyError;
};

// The progress line: a bar on a terminal, plain lines otherwise, nothing
// when quiet. A line is shown when something changed, at most a few times a
// second; End shows the last state if it wasn't shown yet.
class Progress {
  public:
    explicit Progress(bool quiet);
    void Show(std::int32_t collected, std::int32_t slidesTotal, std::int32_t done,
              std::int32_t units, std::int32_t written, std::int32_t slides);
    void End();

  private:
    void Print();

    bool quiet_, tty_;
    std::string pending_, shown_;
    int pendingBar_ = 0, barWidth_ = 0;  // the bar's filled part and its width
    std::chrono::steady_clock::time_point shownAt_;
};

RoadOutcome RunNativeRoad(const RoadRequest& request, Progress& progress);
RoadOutcome RunPanelRoad(const RoadRequest& request, Progress& progress);

}  // namespace qb::cli
