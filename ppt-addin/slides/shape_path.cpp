// Shape paths: the walk's addressing, the walk back, and the search of a
// selected shape.
#include "slides/shape_path.h"

#include <atomic>

#include "foundation/text.h"
#include "foundation/trace.h"
#include "slides/automation.h"

namespace qb {

using host::HostRef;
using host::Variant;
using host::VarType;

namespace {

constexpr std::int32_t kGroupType = 6;
constexpr std::int32_t kMixedType = -2;
constexpr std::int32_t kUnreadableLogLimit = 8;

std::atomic<std::int32_t> g_unreadableLogged{0};

// The shape at `index` of a Shapes or GroupShapes collection: Item by name,
// then the direct Item.
HRESULT ShapeAt(const HostRef& collection, std::int32_t index, HostRef& shape) {
    return host::GetItem(collection, index, shape);
}

HRESULT LocateOnPage(const HostRef& shapes, const UnitAddress& address, HostRef& shape) {
    const std::vector<std::int32_t>& path = address.shapePath;
    // Positions 0 to 31 only: a deeper path was never produced by a walk.
    if (path.empty() || path.size() > static_cast<std::size_t>(kMaxShapeDepth)) return E_FAIL;
    HostRef current;
    if (FAILED(host::GetItemDirect(shapes, path[0], current))) return E_FAIL;
    for (std::size_t level = 1; level < path.size(); ++level) {
        HostRef group;
        if (FAILED(host::GetObject(current, u"GroupItems", group)) ||
            !group->Answers(host::HostInterface::GroupShapes)) {
            LogShapeUnreadable(u"GroupItems");
            return E_FAIL;
        }
        HostRef child;
        if (FAILED(ShapeAt(group, path[level], child))) return E_FAIL;
        current = std::move(child);
    }
    shape = std::move(current);
    return S_OK;
}

bool SearchCollection(const HostRef& collection, const HostRef& target,
                      std::vector<std::int32_t>& path, std::int32_t& outRow,
                      std::int32_t& outColumn) {
    std::int32_t count = 0;
    if (FAILED(host::GetInt32(collection, u"Count", count))) return false;
    for (std::int32_t i = 1; i <= count; ++i) {
        HostRef item;
        if (FAILED(ShapeAt(collection, i, item))) continue;
        path.push_back(i);
        if (SameShape(item, target)) {
            outRow = 0;
            outColumn = 0;
            return true;
        }
        std::int32_t hasTable = 0;
        std::int32_t row = 0, column = 0;
        if (SUCCEEDED(host::GetInt32(item, u"HasTable", hasTable)) && hasTable == -1 &&
            FindCellOfShape(item, target, row, column)) {
            outRow = row;
            outColumn = column;
            return true;
        }
        HostRef group;
        if (GetGroupItems(item, group) &&
            FindShapeInGroup(group, target, path, outRow, outColumn,
                             static_cast<std::int32_t>(path.size()))) {
            return true;
        }
        path.pop_back();
    }
    return false;
}

}  // namespace

ShapePath ShapePath::Child(std::int32_t child) const {
    ShapePath copy = *this;
    if (copy.depth < static_cast<std::uint32_t>(kMaxShapeDepth)) copy.index[copy.depth++] = child;
    return copy;
}

std::vector<std::int32_t> ShapePath::ToVector() const {
    const std::uint32_t n = depth < kMaxShapeDepth ? depth : kMaxShapeDepth;
    return std::vector<std::int32_t>(index.begin(), index.begin() + n);
}

ShapePath ShapePath::FromVector(const std::vector<std::int32_t>& path) {
    ShapePath out;
    for (std::int32_t index : path)
        out = out.Child(index);
    return out;
}

std::u16string ShapeKey(const ShapePath& path) {
    return ShapeKey(path.ToVector());
}

std::u16string ShapeKey(const std::vector<std::int32_t>& path) {
    std::u16string key = u"shapes";
    const std::size_t n =
        path.size() < static_cast<std::size_t>(kMaxShapeDepth) ? path.size() : kMaxShapeDepth;
    for (std::size_t i = 0; i < n; ++i)
        key += u"[" + DecimalText(path[i]) + u"]";
    return key;
}

bool ReadShapeType(const HostRef& shape, std::int32_t& type) {
    Variant value;
    if (FAILED(host::DispGet(shape, u"Type", &value))) {
        LogShapeUnreadable(u"Type");
        return false;
    }
    if (value.Type() == VarType::I4 || value.Type() == VarType::I2) {
        // Both read through the same widening: a 16-bit -2 stays -2.
        return value.ToInt32(type);
    }
    std::int32_t converted = 0;
    if (!value.ToInt32(converted)) return false;
    type = converted;
    return true;
}

bool GetGroupItems(const HostRef& shape, HostRef& groupShapes) {
    std::int32_t type = 0;
    const bool typeRead = ReadShapeType(shape, type);
    if (typeRead && type != kGroupType && type != kMixedType) return false;
    const bool saysGroup = typeRead && type == kGroupType;
    HostRef items;
    if (FAILED(host::GetObject(shape, u"GroupItems", items)) ||
        !items->Answers(host::HostInterface::GroupShapes)) {
        if (saysGroup) LogShapeUnreadable(u"GroupItems");
        return false;
    }
    std::int32_t count = 0;
    if (FAILED(host::GetInt32(items, u"Count", count))) return false;
    // A group of one is a group only if the host says so.
    if (count < (saysGroup ? 1 : 2)) return false;
    groupShapes = std::move(items);
    return true;
}

void LogShapeUnreadable(std::u16string_view member) {
    const std::int32_t n = g_unreadableLogged.fetch_add(1) + 1;
    if (n > kUnreadableLogLimit) return;
    std::u16string line = u"PptCtrl shape ";
    line += member;
    line += u" unreadable";
    if (n == kUnreadableLogLimit) line += u" (further failures not logged)";
    line += u"\r\n";
    Trace(line);
}

void ResetShapeUnreadableLogForTesting() {
    g_unreadableLogged = 0;
}

HRESULT LocateShape(const HostRef& slides, std::int32_t slideIndex, const UnitAddress& address,
                    HostRef& shape) {
    if (address.shapePath.empty()) return E_FAIL;
    HostRef slide, shapes;
    if (FAILED(host::GetItem(slides, slideIndex, slide)) ||
        FAILED(host::GetObject(slide, u"Shapes", shapes))) {
        return E_FAIL;
    }
    return LocateOnPage(shapes, address, shape);
}

HRESULT LocateNotesShape(const HostRef& slides, std::int32_t slideIndex, const UnitAddress& address,
                         HostRef& shape) {
    if (address.shapePath.empty()) return E_FAIL;
    HostRef slide, notes, shapes;
    if (FAILED(host::GetItem(slides, slideIndex, slide)) ||
        FAILED(host::GetObject(slide, u"NotesPage", notes)) ||
        FAILED(host::GetObject(notes, u"Shapes", shapes))) {
        return E_FAIL;
    }
    return LocateOnPage(shapes, address, shape);
}

bool ReadTable(const HostRef& tableShape, HostRef& table, std::int32_t& rows,
               std::int32_t& columns) {
    HostRef rowList, columnList;
    return SUCCEEDED(host::GetObject(tableShape, u"Table", table)) &&
           SUCCEEDED(host::GetObject(table, u"Rows", rowList)) &&
           SUCCEEDED(host::GetObject(table, u"Columns", columnList)) &&
           SUCCEEDED(host::GetInt32(rowList, u"Count", rows)) &&
           SUCCEEDED(host::GetInt32(columnList, u"Count", columns));
}

bool GetCellShape(const HostRef& table, std::int32_t row, std::int32_t column, HostRef& shape) {
    const Variant args[2] = {Variant::I4(column), Variant::I4(row)};
    Variant cell;
    HostRef candidate;
    if (FAILED(host::DispCall(table, u"Cell", args, 2, &cell)) || cell.Type() != VarType::Object ||
        !cell.ObjectValue() || FAILED(host::GetObject(cell.ObjectValue(), u"Shape", candidate)) ||
        !candidate->Answers(host::HostInterface::Shape)) {
        return false;
    }
    shape = std::move(candidate);
    return true;
}

bool SameShape(const HostRef& a, const HostRef& b) {
    if (!a || !b) return false;
    if (host::SameIdentity(a, b)) return true;
    std::int32_t idA = 0, idB = 0;
    if (SUCCEEDED(host::GetInt32(a, u"Id", idA)) && SUCCEEDED(host::GetInt32(b, u"Id", idB)) &&
        idA != 0 && idB != 0) {
        return idA == idB;
    }
    std::u16string nameA, nameB;
    if (SUCCEEDED(host::GetString(a, u"Name", nameA)) &&
        SUCCEEDED(host::GetString(b, u"Name", nameB)) && !nameA.empty()) {
        return nameA == nameB;
    }
    return false;
}

bool FindShapePath(const HostRef& shapes, const HostRef& target, std::vector<std::int32_t>& path,
                   std::int32_t& outRow, std::int32_t& outColumn) {
    return SearchCollection(shapes, target, path, outRow, outColumn);
}

bool FindShapeInGroup(const HostRef& groupShapes, const HostRef& target,
                      std::vector<std::int32_t>& path, std::int32_t& outRow,
                      std::int32_t& outColumn, std::int32_t level) {
    // A hit at this level would make the path one longer than `level`; no
    // path may be deeper than a walk can address.
    if (level >= kMaxShapeDepth) {
        Trace(u"PptCtrl find shape depth limit\r\n");
        return false;
    }
    return SearchCollection(groupShapes, target, path, outRow, outColumn);
}

bool FindCellOfShape(const HostRef& tableShape, const HostRef& target, std::int32_t& outRow,
                     std::int32_t& outColumn) {
    HostRef table;
    std::int32_t rowCount = 0, columnCount = 0;
    if (!ReadTable(tableShape, table, rowCount, columnCount)) return false;
    for (std::int32_t r = 1; r <= rowCount; ++r) {
        for (std::int32_t c = 1; c <= columnCount; ++c) {
            HostRef cellShape;
            if (!GetCellShape(table, r, c, cellShape)) return false;
            if (SameShape(cellShape, target)) {
                outRow = r;
                outColumn = c;
                return true;
            }
        }
    }
    return false;
}

bool FindSelectedShape(const HostRef& slide, const HostRef& target, bool notes,
                       SelectedShape& outResult) {
    HostRef shapes;
    if (notes) {
        HostRef page;
        if (FAILED(host::GetObject(slide, u"NotesPage", page)) ||
            FAILED(host::GetObject(page, u"Shapes", shapes))) {
            return false;
        }
    } else if (FAILED(host::GetObject(slide, u"Shapes", shapes))) {
        return false;
    }
    std::vector<std::int32_t> path;
    std::int32_t row = 0, column = 0;
    if (!FindShapePath(shapes, target, path, row, column)) return false;
    std::int32_t slideIndex = 0;
    (void)host::GetInt32(slide, u"SlideIndex", slideIndex);
    outResult.found = true;
    outResult.slideIndex = slideIndex;
    outResult.path = std::move(path);
    outResult.notes = notes;
    outResult.row = row;
    outResult.column = column;
    return true;
}

}  // namespace qb
