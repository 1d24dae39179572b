// The spreadsheet package a chart keeps its data in, embedded in the
// presentation: its sheets read into the simulated host's workbook model,
// and text cells the run changed written back as inline strings. Parts of
// the workbook that hold no changed cell keep their bytes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "sim/host/sim_model.h"
#include "sim/pptx/zip_package.h"

namespace qb::pptx {

// "B12", dollars allowed, into a 1-based row and column; false for anything else.
bool ParseCellName(std::string_view name, std::int32_t& row, std::int32_t& column);
// A column's letters: 1 "A", 28 "AB".
std::string ColumnLetters(std::int32_t column);

class XlsxBook {
  public:
    XlsxBook();
    ~XlsxBook();
    XlsxBook(const XlsxBook&) = delete;
    XlsxBook& operator=(const XlsxBook&) = delete;

    // Reads the workbook held in `bytes` into `into` (its sheets in the
    // workbook's order). Empty on success, else one line naming what is wrong.
    std::string Read(const std::string& bytes, const ZipLimits& limits, sim::WorkbookModel& into);

    // Puts the text cells of `now` that differ from what the file holds into
    // their sheets; numbers and formulas are never written. `bytes` gets the
    // new package when a cell changed, and `changed` says so. Empty on success.
    std::string Write(const sim::WorkbookModel& now, std::string& bytes, bool& changed);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace qb::pptx
