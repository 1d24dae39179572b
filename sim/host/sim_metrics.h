// The simulated host's deterministic text metrics: an advance per character
// class times the font size, lines wrapped to the box when word wrap is on.
// They make BoundWidth, BoundHeight and BoundLeft follow the text, the font
// sizes, the box, the margins and WordWrap.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "sim/host/sim_model.h"

namespace qb::sim {

// The advance of one unit at a font size, in points.
float CharAdvance(char16_t unit, float size);

// Whether a unit is an East Asian wide character: the model gives it a full
// em, and a host draws it in the run's East Asian face.
bool IsWideUnit(char16_t unit);

// Where advances can come from instead of the model, such as a front end
// that measures with installed fonts. The layout asks it for every unit
// that isn't a line end; nullopt takes the model's advance for that unit.
class AdvanceSource {
  public:
    virtual ~AdvanceSource() = default;
    // The advance of one unit in the given format, in points.
    virtual std::optional<float> Advance(char16_t unit, const CharFormat& format) = 0;
};

// Installs the source every layout uses from now on, process-wide; null
// goes back to the model alone.
void SetAdvanceSource(std::shared_ptr<AdvanceSource> source);
std::shared_ptr<AdvanceSource> CurrentAdvanceSource();

// Installs a source for a scope and puts the previous one back after it.
class ScopedAdvanceSource {
  public:
    explicit ScopedAdvanceSource(std::shared_ptr<AdvanceSource> source);
    ~ScopedAdvanceSource();
    ScopedAdvanceSource(const ScopedAdvanceSource&) = delete;
    ScopedAdvanceSource& operator=(const ScopedAdvanceSource&) = delete;

  private:
    std::shared_ptr<AdvanceSource> previous_;
};

struct TextLine {
    std::int32_t start = 0;  // zero-based, over the frame
    std::int32_t end = 0;    // one past the last unit, line ends included
    float width = 0;         // without trailing blanks and line ends
    float height = 0;        // 1.2 times the largest size on the line
};

// The lines of a shape's whole text frame, laid out in its box.
std::vector<TextLine> LayoutFrame(const ShapeModel& shape);

struct TextBounds {
    float left = 0, top = 0, width = 0, height = 0;
};

// The box round the lines that hold [start, start + length).
TextBounds MeasureRange(const ShapeModel& shape, std::int32_t start, std::int32_t length);

}  // namespace qb::sim
