// Writeback: one slide's translations go back where their sources stood,
// paragraph by paragraph and last to first, each in one Text put that
// leaves the paragraph's end mark alone. The font values the host moves in
// the put are put back, the run's font name is set, and each changed shape
// gets the text fit. A unit that fails keeps its source text.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "run/run_records.h"
#include "slides/host_object.h"

namespace qb {

// A service translation flattened to one line: line ends become one blank
// between text, vanish at the ends, and trailing blanks and tabs go.
std::u16string NormalizeTranslation(std::u16string_view text);

// What is kept of a range's Font across a Text put.
struct FontSnapshot {
    bool valid = false;
    std::int32_t colorType = -2;
    std::int32_t rgb = 0;
    bool hasRgb = false;
    std::int32_t schemeColor = 0;
    bool hasSchemeColor = false;
    float tintAndShade = 0.0f;
    bool hasTint = false;
    float size = 0.0f;
    bool hasSize = false;
    std::int32_t bold = -2;  // -2: mixed or unread
    std::int32_t italic = -2;
};

void CaptureFont(const host::HostRef& range, FontSnapshot& snapshot);
// Puts back each saved value that the host has moved; mixed values stay.
void RestoreFont(const host::HostRef& range, const FontSnapshot& snapshot);
bool WriteRangeText(const host::HostRef& range, const std::u16string& text);
// The shape of a table's cell (row, column), which must answer Shape.
bool CellShape(const host::HostRef& tableShape, std::int32_t row, std::int32_t column,
               host::HostRef& out);
// Units of a shape's, a cell's or a notes shape's frame. Unless `source` is
// null, the paragraph (or the frame) must still hold it, the text collected
// for the unit: a position that now holds other text (a shape deleted or
// moved, a paragraph edited during the run) is not overwritten, and the
// unit fails. A bilingual copy from an earlier run holds that run's
// translation and is written without the check.
bool ApplyFrameUnit(const host::HostRef& shape, const UnitAddress& address,
                    const std::u16string* source, const std::u16string& translation,
                    const std::u16string& targetFont);
// Selected characters of a frame.
bool ApplyRangeUnit(const host::HostRef& shape, const UnitAddress& address,
                    const std::u16string& translation, const std::u16string& targetFont);
void ReportUnitFailure(std::u16string& firstApplyError, const std::u16string& unitId);

// The writers of units whose text lives outside text frames (charts,
// SmartArt). Without a writer such a unit counts as failed.
struct ShapeUnitWriters {
    // One chart or SmartArt unit (kinds 3, 4, 6, 8, 9, 10).
    std::function<bool(const host::HostRef& shape, const UnitAddress& address,
                       const std::u16string& translation)>
        applyChartUnit;
    // A whole group of category (7) or sheet (11) units, last first; adds
    // to `written` the number of units it wrote.
    using GroupWriter =
        std::function<bool(const host::HostRef& shape, const RunLists& lists,
                           const std::vector<std::size_t>& group, std::int32_t& written)>;
    GroupWriter applyCategoryGroup;
    GroupWriter applySheetGroup;
};

struct ApplySlideArgs {
    host::HostRef presentation;
    const RunLists* lists = nullptr;
    const RunOptions* options = nullptr;
    std::int32_t slideIndex = 0;   // the slide as collected
    std::int32_t targetSlide = 0;  // where to write: the slide or its copy; 0 when not found
    const ShapeUnitWriters* writers = nullptr;
};

// Writes all units of one slide; adds to `applied` and `firstApplyError`.
void ApplySlide(const ApplySlideArgs& args, std::int32_t& applied, std::u16string& firstApplyError);

}  // namespace qb
