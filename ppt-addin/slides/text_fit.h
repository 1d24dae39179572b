// The text fit: after a shape's paragraphs were replaced, keeps the
// translation in the shape's box and on the slide. It may put the box back
// where it was before the write, switch word wrap and auto-size, and shrink
// font sizes run by run; it never changes text. The arithmetic is kept in
// pure functions so that it can be checked without a host.
#pragma once

#include <cstdint>

#include "slides/host_object.h"

namespace qb {

// A shape's box as it was before the first write to it.
struct GeometrySnapshot {
    float left = 0;
    float top = 0;
    float width = 0;
    float height = 0;
    bool valid = false;
};

// Reads Left, Top, Width and Height; valid only when all four read and
// Width and Height are above 0.
GeometrySnapshot CaptureGeometry(const host::HostRef& shape);

// One measure of a frame's text range.
struct FitMeasure {
    float h = 0;  // BoundHeight, when it read above 0
    bool hasH = false;
    float w = 0;  // BoundWidth, when it read above 0
    bool hasW = false;
    float left = 0;  // BoundLeft, when it read
};

// Takes one measure of `textRange`; a member that fails leaves its field unset.
FitMeasure MeasureText(const host::HostRef& textRange);

// The values one fit works with, from the box after the restore.
struct FitBounds {
    float width = 0;     // W
    float height = 0;    // H
    float contentW = 0;  // W less the margins, or W for a box too narrow for them
    float hTol = 0;
    float wTol = 0;
    float slideW = 0;  // 0 turns the slide-edge tests off
};

// `width` and `height` must be above 0; a negative margin counts as 0.
FitBounds DeriveFitBounds(float width, float height, float marginLeft, float marginRight,
                          float slideW);

bool TooHigh(const FitMeasure& m, const FitBounds& b);
bool TooWide(const FitMeasure& m, const FitBounds& b);

// How much the fonts should shrink for `m` to fit: 0.1 to 0.95, with a
// margin of 3 percent.
float FitFactor(const FitMeasure& m, const FitBounds& b);

enum class FitMode : std::uint8_t {
    Fit,      // wrap back to what it was, no shrink
    Wrap,     // wrap on, no shrink
    Height,   // wrap on, shrink from the wrapped measure
    OneLine,  // wrap off, shrink from the unwrapped measure
};

// The mode's name in the trace: "fit", "wrap", "height", "oneLine".
const char* FitModeName(FitMode mode);

// Chooses from the measure without wrap (`a`) and the one with wrap (`b`).
FitMode ChooseFitMode(const FitMeasure& a, const FitMeasure& b, const FitBounds& bounds);

// Multiplies the size of each run of `textRange` above `minSize` by `factor`,
// never below `minSize`. `changed` is set when a smaller size was put, and
// left alone otherwise. False only when the range's runs can't be reached.
bool ScaleRunFonts(const host::HostRef& textRange, float factor, float minSize, bool& changed);

// Fits a shape whose paragraphs were just written: `snapshot` is its box
// before the write, or null; `slideW` is the slide's width, 0 if unknown.
// Host's thread only. Failing or missing host members end the fit quietly.
void FitShape(const host::HostRef& shape, const GeometrySnapshot* snapshot, float slideW);

}  // namespace qb
