// Where a shape stands on its page, by position only: the walk that gives a
// shape its path, the way back from a path to the shape, and the search that
// turns a selected shape object into a path. No host object outlives a call.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "run/run_records.h"
#include "slides/host_object.h"

namespace qb {

// What one walk carries down: a fixed number of levels, copied per child,
// so a walk can't go deeper than the host's nesting allows us to address.
struct ShapePath {
    std::array<std::int32_t, kMaxShapeDepth> index{};
    std::uint32_t depth = 0;

    // A copy with `child` appended; at the limit the copy keeps its depth.
    ShapePath Child(std::int32_t child) const;
    std::vector<std::int32_t> ToVector() const;
    // At most the first 32 entries.
    static ShapePath FromVector(const std::vector<std::int32_t>& path);
};

// "shapes[3][2]"; "shapes" for an empty path. At most the first 32 entries.
std::u16string ShapeKey(const ShapePath& path);
std::u16string ShapeKey(const std::vector<std::int32_t>& path);

// Type by name: a 16-bit value widened with its sign, else converted to a
// 32-bit one. A failed call is logged; a failed conversion is not.
bool ReadShapeType(const host::HostRef& shape, std::int32_t& type);
// The group step for one shape: its GroupItems when the shape is a group
// (type 6 with one or more items; mixed or unreadable type with two or more).
bool GetGroupItems(const host::HostRef& shape, host::HostRef& groupShapes);
// "PptCtrl shape <member> unreadable", only the first 8 times a process.
void LogShapeUnreadable(std::u16string_view member);
void ResetShapeUnreadableLogForTesting();

// From an address back to its shape, on the slide or on its notes page.
[[nodiscard]] HRESULT LocateShape(const host::HostRef& slides, std::int32_t slideIndex,
                                  const UnitAddress& address, host::HostRef& shape);
[[nodiscard]] HRESULT LocateNotesShape(const host::HostRef& slides, std::int32_t slideIndex,
                                       const UnitAddress& address, host::HostRef& shape);

// A table's Table, with its row and column counts.
bool ReadTable(const host::HostRef& tableShape, host::HostRef& table, std::int32_t& rows,
               std::int32_t& columns);
// Cell(row, column) by name, then the cell's Shape, which must be a shape.
bool GetCellShape(const host::HostRef& table, std::int32_t row, std::int32_t column,
                  host::HostRef& shape);

// One host object by identity, else by Id, else by Name.
bool SameShape(const host::HostRef& a, const host::HostRef& b);
// Depth-first search of `target` below `shapes`; the path grows and shrinks
// as the search goes. A hit inside a table ends the path at the table.
bool FindShapePath(const host::HostRef& shapes, const host::HostRef& target,
                   std::vector<std::int32_t>& path, std::int32_t& outRow, std::int32_t& outColumn);
bool FindShapeInGroup(const host::HostRef& groupShapes, const host::HostRef& target,
                      std::vector<std::int32_t>& path, std::int32_t& outRow,
                      std::int32_t& outColumn, std::int32_t level);
bool FindCellOfShape(const host::HostRef& tableShape, const host::HostRef& target,
                     std::int32_t& outRow, std::int32_t& outColumn);

struct SelectedShape {
    bool found = false;
    std::int32_t slideIndex = 0;
    std::vector<std::int32_t> path;
    bool notes = false;
    std::int32_t row = 0;
    std::int32_t column = 0;
};
bool FindSelectedShape(const host::HostRef& slide, const host::HostRef& target, bool notes,
                       SelectedShape& outResult);

}  // namespace qb
