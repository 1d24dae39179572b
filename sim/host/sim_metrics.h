// The simulated host's deterministic text metrics: an advance per character
// class times the font size, lines wrapped to the box when word wrap is on.
// They make BoundWidth, BoundHeight and BoundLeft follow the text, the font
// sizes, the box, the margins and WordWrap.
#pragma once

#include <cstdint>
#include <vector>

#include "sim/host/sim_model.h"

namespace qb::sim {

// The advance of one unit at a font size, in points.
float CharAdvance(char16_t unit, float size);

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
