// What a run of the front end did, for a person: the summary numbers, the
// units that failed, the texts that no longer fit, as JSON, and as an HTML
// page that draws every slide before and after.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/host/sim_model.h"

namespace qb::cli {

// A text that runs out of its box or off the slide after the run.
struct Overflow {
    std::int32_t slide = 0;
    std::string shape;  // the shape's name
    bool box = false;   // taller or wider than its box
    bool page = false;  // past the slide's edges
};

struct RunReport {
    std::string deck, output;
    std::string host;  // "powerpoint" or "wps"
    std::string road;  // "native" or "panel"
    std::string scope;
    std::string sourceLang, targetLang;
    bool bilingual = false;
    std::string result;  // "complete", "error", "cancelled"
    std::string errorCode, errorMessage;
    std::int32_t slides = 0;      // slides collected
    std::int32_t units = 0;       // texts sent
    std::int32_t translated = 0;  // units written
    std::int32_t unchanged = 0;   // came back empty or equal to the source
    std::int32_t failed = 0;      // units that couldn't be written
    std::int32_t slidesWritten = 0;
    std::int64_t elapsedMs = 0;
    std::vector<std::string> failedUnits;
    std::vector<Overflow> overflows;
    // The terminology the run was given, and what reached the in-process
    // service (-1: a service of its own, not counted).
    std::vector<std::string> glossaries;
    std::string instruction;
    std::int32_t terms = 0;
    std::int32_t translateRequests = -1;
    std::int32_t resolveRequests = -1;
    std::int32_t instructedRequests = -1;  // translate requests that carried the instruction
};

// A deep copy of a deck's slides, to draw the slides as they were.
std::shared_ptr<sim::PresentationModel> CopyDeck(const sim::PresentationModel& deck);

// Every text frame of the deck whose measured text leaves its box or the slide.
std::vector<Overflow> FindOverflows(const sim::PresentationModel& deck);

// Splits "shapes[2].p1; shapes[3].p1" into its unit ids.
std::vector<std::string> SplitUnitIds(const std::string& firstApplyError);

std::string ReportJson(const RunReport& report);
std::string ReportHtml(const RunReport& report, const sim::PresentationModel& before,
                       const sim::PresentationModel& after);

}  // namespace qb::cli
