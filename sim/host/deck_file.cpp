// Deck files: reading with errors that name the place, and a canonical
// writer. Reader and writer share the rules for defaults (ids in file order,
// names from the type and id, boxes, inferred types), so that the writer can
// leave out exactly what the reader would fill in.
#include "sim/host/deck_file.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <new>
#include <utility>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "sim/host/json_value.h"

namespace qb::sim {
namespace {

constexpr std::int64_t kFormatVersion = 1;
constexpr std::int32_t kFirstSlideId = 256;
constexpr std::int32_t kFirstShapeId = 2;
constexpr std::int32_t kMaxTableSide = 1000;
constexpr std::int32_t kMaxTableCells = 10000;
constexpr std::int32_t kMaxSheetRow = 1048576;
constexpr std::int32_t kMaxSheetColumn = 16384;
constexpr std::uint64_t kMaxDeckFileBytes = 64ull * 1024 * 1024;
constexpr std::int32_t kInt32Max = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kInt32Min = std::numeric_limits<std::int32_t>::min();

// --- Rules shared by reading and writing ------------------------------------

// Words for the host's numbers; either may be written, the writer uses words.
struct Word {
    std::int32_t value;
    std::u16string_view word;
};
using Words = std::vector<Word>;

const Words kShapeTypes = {
    {static_cast<std::int32_t>(ShapeType::AutoShape), u"autoShape"},
    {static_cast<std::int32_t>(ShapeType::TextBox), u"textBox"},
    {static_cast<std::int32_t>(ShapeType::Placeholder), u"placeholder"},
    {static_cast<std::int32_t>(ShapeType::Picture), u"picture"},
    {static_cast<std::int32_t>(ShapeType::Group), u"group"},
    {static_cast<std::int32_t>(ShapeType::Table), u"table"},
    {static_cast<std::int32_t>(ShapeType::Chart), u"chart"},
    {static_cast<std::int32_t>(ShapeType::SmartArt), u"smartArt"},
};
const Words kAutoSizes = {{0, u"none"}, {1, u"shapeToFitText"}, {2, u"textToFitShape"}};
const Words kColorTypes = {{1, u"rgb"}, {2, u"scheme"}};
const Words kAxisTypes = {{1, u"category"}, {2, u"value"}, {3, u"series"}};
const Words kAxisGroups = {{1, u"primary"}, {2, u"secondary"}};
const Words kSelectionTypes = {
    {static_cast<std::int32_t>(SelectionType::None), u"none"},
    {static_cast<std::int32_t>(SelectionType::Slides), u"slides"},
    {static_cast<std::int32_t>(SelectionType::Shapes), u"shapes"},
    {static_cast<std::int32_t>(SelectionType::Text), u"text"},
};
const Words kHostKinds = {{static_cast<std::int32_t>(HostKind::PowerPoint), u"powerPoint"},
                          {static_cast<std::int32_t>(HostKind::Wps), u"wps"}};

enum class Page { Slide, Notes };

struct Box {
    float left, top, width, height;
};

// The deck builder's boxes, so that a file and a built deck look alike.
Box DefaultBox(Page page) {
    return page == Page::Notes ? Box{48, 400, 600, 300} : Box{50, 50, 400, 60};
}

// A cell's share of its table. Each step is rounded to a float on its own,
// so that the x87 unit of 32-bit builds gets what SSE gets.
Box DefaultCellBox(const ShapeModel& table, std::int32_t rows, std::int32_t columns,
                   std::int32_t row, std::int32_t column) {
    volatile float width = table.width / static_cast<float>(columns);
    volatile float height = table.height / static_cast<float>(rows);
    volatile float dx = static_cast<float>(column) * width;
    volatile float dy = static_cast<float>(row) * height;
    volatile float left = table.left + dx;
    volatile float top = table.top + dy;
    return Box{left, top, width, height};
}

bool IsTextual(ShapeType type) {
    return type == ShapeType::AutoShape || type == ShapeType::TextBox ||
           type == ShapeType::Placeholder;
}

// The type a shape has when the file doesn't say, from the keys it has.
ShapeType InferType(bool children, bool table, bool chart, bool smartArt, Page page) {
    if (children) return ShapeType::Group;
    if (table) return ShapeType::Table;
    if (chart) return ShapeType::Chart;
    if (smartArt) return ShapeType::SmartArt;
    return page == Page::Notes ? ShapeType::Placeholder : ShapeType::TextBox;
}

std::u16string DefaultShapeName(ShapeType type, std::int32_t id, Page page) {
    std::u16string prefix;
    switch (type) {
        case ShapeType::AutoShape:
            prefix = u"Rectangle";
            break;
        case ShapeType::TextBox:
            prefix = u"TextBox";
            break;
        case ShapeType::Placeholder:
            prefix = page == Page::Notes ? u"Notes Placeholder" : u"Placeholder";
            break;
        case ShapeType::Picture:
            prefix = u"Picture";
            break;
        case ShapeType::Group:
            prefix = u"Group";
            break;
        case ShapeType::Table:
            prefix = u"Table";
            break;
        case ShapeType::Chart:
            prefix = u"Chart";
            break;
        case ShapeType::SmartArt:
            prefix = u"Diagram";
            break;
        default:
            prefix = u"Shape";
            break;
    }
    // Hosts number a shape's name one below its id.
    return prefix + u" " + AsciiToUtf16(std::to_string(static_cast<std::int64_t>(id) - 1));
}

std::u16string DefaultSlideName(std::size_t index) {
    return u"Slide" + AsciiToUtf16(std::to_string(index + 1));
}

std::u16string UpperAscii(std::u16string text) {
    for (char16_t& c : text)
        c = (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 32) : c;
    return text;
}

bool SameLabel(const ChartLabelModel& a, const ChartLabelModel& b) {
    return a.text == b.text && a.hasText == b.hasText && a.hasCaption == b.hasCaption &&
           a.hasTextFrame2 == b.hasTextFrame2;
}

bool SameCell(const SheetCellModel& a, const SheetCellModel& b) {
    return a.text == b.text && a.number == b.number && a.isNumber == b.isNumber &&
           a.shownText == b.shownText && a.hasFormula == b.hasFormula;
}

bool SameSheet(const SheetModel& a, const SheetModel& b) {
    if (a.name != b.name || a.cells.size() != b.cells.size()) return false;
    auto i = a.cells.begin();
    for (auto j = b.cells.begin(); j != b.cells.end(); ++i, ++j) {
        if (i->first != j->first || !SameCell(i->second, j->second)) return false;
    }
    return true;
}

// "B2" for row 2, column 2.
std::u16string CellName(std::int32_t row, std::int32_t column) {
    std::u16string letters;
    for (std::int32_t c = column; c > 0; c = (c - 1) / 26)
        letters.insert(letters.begin(), static_cast<char16_t>(u'A' + (c - 1) % 26));
    return letters + AsciiToUtf16(std::to_string(row));
}

bool ParseCellName(std::u16string_view name, std::int32_t& row, std::int32_t& column) {
    std::size_t i = 0;
    std::int64_t c = 0, r = 0;
    for (; i < name.size() && name[i] >= u'A' && name[i] <= u'Z' && i < 3; ++i)
        c = c * 26 + (name[i] - u'A' + 1);
    if (i == 0 || i == name.size() || name[i] == u'0') return false;
    for (; i < name.size(); ++i) {
        if (name[i] < u'0' || name[i] > u'9' || r > kMaxSheetRow) return false;
        r = r * 10 + (name[i] - u'0');
    }
    if (c > kMaxSheetColumn || r < 1 || r > kMaxSheetRow) return false;
    row = static_cast<std::int32_t>(r);
    column = static_cast<std::int32_t>(c);
    return true;
}

std::string Utf8(std::u16string_view text) {
    return Utf16ToUtf8(text);
}

std::string Join(const std::string& path, std::u16string_view key) {
    return path.empty() ? Utf8(key) : path + "." + Utf8(key);
}

std::string Index(const std::string& path, std::size_t i) {
    return path + "[" + std::to_string(i) + "]";
}

// --- Reading ----------------------------------------------------------------

struct ReadFailure {
    std::string text;
};

enum class Range { Any, NonNegative, Positive, UnitInterval };

using Keys = std::vector<std::u16string_view>;

Keys operator+(Keys a, const Keys& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

const Keys kFontKeys = {u"name", u"nameAscii", u"nameFarEast", u"size",
                        u"bold", u"italic",    u"color"};
const Keys kFrameKeys = {u"hasTextFrame", u"text",    u"paragraphs",   u"autoSize",
                         u"wordWrap",     u"margins", u"defaultFormat"};
const Keys kBoxKeys = {u"left", u"top", u"width", u"height"};
const Keys kShapeKeys = Keys{u"type", u"id", u"name"} + kBoxKeys + kFrameKeys +
                        Keys{u"children", u"table", u"chart", u"smartArt", u"deleted"};
const Keys kCellKeys = Keys{u"id", u"name"} + kBoxKeys + kFrameKeys + Keys{u"deleted"};
const Keys kRunKeys = Keys{u"text", u"font"} + kFontKeys;
const Keys kLabelKeys = {u"text", u"hasText", u"hasCaption", u"hasTextFrame2"};

class Reader {
  public:
    explicit Reader(std::string_view source) : source_(source) {}

    [[noreturn]] void FailAt(std::size_t line, std::size_t column, const std::string& path,
                             const std::string& what) const {
        std::string text(source_);
        if (line != 0) text += ":" + std::to_string(line) + ":" + std::to_string(column);
        text += ": ";
        if (!path.empty()) text += path + ": ";
        text += what;
        throw ReadFailure{std::move(text)};
    }
    [[noreturn]] void Fail(const JsonValue& at, const std::string& path,
                           const std::string& what) const {
        FailAt(at.Line(), at.Column(), path, what);
    }

    void Expect(const JsonValue& v, const std::string& path, JsonType type) const {
        if (v.Type() != type) {
            Fail(v, path,
                 std::string("expected ") + JsonTypeName(type) + ", found " +
                     JsonTypeName(v.Type()));
        }
    }

    bool Bool(const JsonValue& v, const std::string& path) const {
        Expect(v, path, JsonType::Bool);
        return v.BoolValue();
    }

    std::u16string String(const JsonValue& v, const std::string& path) const {
        Expect(v, path, JsonType::String);
        return v.StringValue();
    }

    double Double(const JsonValue& v, const std::string& path) const {
        Expect(v, path, JsonType::Number);
        return v.NumberValue();
    }

    float Float(const JsonValue& v, const std::string& path, Range range) const {
        const double d = Double(v, path);
        if (std::fabs(d) > static_cast<double>(std::numeric_limits<float>::max())) {
            Fail(v, path, "number too large for a float");
        }
        switch (range) {
            case Range::Any:
                break;
            case Range::NonNegative:
                if (d < 0) Fail(v, path, "expected a number of 0 or more");
                break;
            case Range::Positive:
                if (!(d > 0)) Fail(v, path, "expected a number above 0");
                break;
            case Range::UnitInterval:
                if (d < -1 || d > 1) Fail(v, path, "expected a number from -1 to 1");
                break;
        }
        return static_cast<float>(d);
    }

    std::int32_t Int(const JsonValue& v, const std::string& path, std::int64_t min,
                     std::int64_t max) const {
        Expect(v, path, JsonType::Number);
        if (!v.IsInteger() || v.IntegerValue() < min || v.IntegerValue() > max) {
            std::string what = "expected a whole number";
            if (max == kInt32Max && min > kInt32Min) {
                what += " of " + std::to_string(min) + " or more";
            } else if (min > kInt32Min || max < kInt32Max) {
                what += " from " + std::to_string(min) + " to " + std::to_string(max);
            }
            Fail(v, path, what);
        }
        return static_cast<std::int32_t>(v.IntegerValue());
    }

    // A word from `words`, or (when `numbers`) any whole number of the host's.
    std::int32_t Enum(const JsonValue& v, const std::string& path, const Words& words,
                      bool numbers = true) const {
        if (v.IsString()) {
            for (const Word& w : words) {
                if (v.StringValue() == w.word) return w.value;
            }
        } else if (numbers && v.IsNumber() && v.IsInteger() && v.IntegerValue() >= kInt32Min &&
                   v.IntegerValue() <= kInt32Max) {
            return static_cast<std::int32_t>(v.IntegerValue());
        }
        std::string what = "expected ";
        for (std::size_t i = 0; i < words.size(); ++i) {
            if (i) what += i + 1 == words.size() && !numbers ? " or " : ", ";
            what += "\"" + Utf8(words[i].word) + "\"";
        }
        if (numbers) what += " or the host's number";
        Fail(v, path, what);
    }

  private:
    std::string_view source_;
};

// An object with a known set of keys; any other key is an error.
class Obj {
  public:
    Obj(const Reader& r, const JsonValue& v, std::string path, const Keys& allowed)
        : r_(r), v_(v), path_(std::move(path)) {
        r_.Expect(v_, path_, JsonType::Object);
        for (const JsonMember& m : v_.Members()) {
            if (std::find(allowed.begin(), allowed.end(), m.key) != allowed.end()) continue;
            std::string what = "unknown key; expected one of: ";
            for (std::size_t i = 0; i < allowed.size(); ++i)
                what += (i ? ", " : "") + Utf8(allowed[i]);
            r_.FailAt(m.line, m.column, Join(path_, m.key), what);
        }
    }

    const JsonValue* Get(std::u16string_view key) const { return v_.Find(key); }
    bool Has(std::u16string_view key) const { return Get(key) != nullptr; }
    std::string PathOf(std::u16string_view key) const { return Join(path_, key); }
    const std::string& Path() const { return path_; }
    const JsonValue& Value() const { return v_; }
    const Reader& R() const { return r_; }

    bool Bool(std::u16string_view key, bool& out) const {
        const JsonValue* v = Get(key);
        if (v) out = r_.Bool(*v, PathOf(key));
        return v != nullptr;
    }
    bool String(std::u16string_view key, std::u16string& out) const {
        const JsonValue* v = Get(key);
        if (v) out = r_.String(*v, PathOf(key));
        return v != nullptr;
    }
    bool Float(std::u16string_view key, float& out, Range range) const {
        const JsonValue* v = Get(key);
        if (v) out = r_.Float(*v, PathOf(key), range);
        return v != nullptr;
    }
    bool Double(std::u16string_view key, double& out) const {
        const JsonValue* v = Get(key);
        if (v) out = r_.Double(*v, PathOf(key));
        return v != nullptr;
    }
    bool Int(std::u16string_view key, std::int32_t& out, std::int64_t min = kInt32Min,
             std::int64_t max = kInt32Max) const {
        const JsonValue* v = Get(key);
        if (v) out = r_.Int(*v, PathOf(key), min, max);
        return v != nullptr;
    }
    template <typename E>
    bool Enum(std::u16string_view key, E& out, const Words& words, bool numbers = true) const {
        const JsonValue* v = Get(key);
        if (v) out = static_cast<E>(r_.Enum(*v, PathOf(key), words, numbers));
        return v != nullptr;
    }
    // The array under `key`, or null when absent.
    const JsonValue* Array(std::u16string_view key) const {
        const JsonValue* v = Get(key);
        if (v) r_.Expect(*v, PathOf(key), JsonType::Array);
        return v;
    }

  private:
    const Reader& r_;
    const JsonValue& v_;
    std::string path_;
};

// Shape ids on one page (a slide, or its notes page): unique there.
struct PageIds {
    std::map<std::int32_t, std::string> seen;  // id -> path of its shape
};

class DeckReader {
  public:
    explicit DeckReader(const Reader& r) : r_(r) {}

    DeckLoadResult Read(const JsonValue& root) {
        DeckLoadResult result;
        Obj top(r_, root, "",
                {u"formatVersion", u"application", u"fullName", u"slideWidth", u"slideHeight",
                 u"nextSlideId", u"nextShapeId", u"slides", u"windows"});
        std::int32_t version = 0;
        if (top.Int(u"formatVersion", version) && version != kFormatVersion) {
            r_.Fail(*top.Get(u"formatVersion"), "formatVersion",
                    "this reader knows version " + std::to_string(kFormatVersion) + " only");
        }
        auto deck = std::make_shared<PresentationModel>();
        top.String(u"fullName", deck->fullName);
        top.Float(u"slideWidth", deck->slideWidth, Range::Positive);
        top.Float(u"slideHeight", deck->slideHeight, Range::Positive);
        if (const JsonValue* slides = top.Array(u"slides")) {
            for (std::size_t i = 0; i < slides->Items().size(); ++i)
                deck->slides.push_back(ReadSlide(slides->Items()[i], Index("slides", i), i));
        }
        deck->nextSlideId = NextId(top, u"nextSlideId", maxSlideId_, kFirstSlideId, "slide");
        deck->nextShapeId = NextId(top, u"nextShapeId", maxShapeId_, kFirstShapeId, "shape");
        result.deck = deck;

        if (const JsonValue* app = top.Get(u"application")) ReadApplication(*app, result);
        ReadWindows(top, result);
        return result;
    }

  private:
    // The deck's next id: one above the largest in use unless the file says.
    std::int32_t NextId(const Obj& top, std::u16string_view key, std::int64_t maxUsed,
                        std::int32_t first, const char* what) const {
        std::int32_t next = 0;
        if (top.Int(key, next, 1)) {
            if (next <= maxUsed) {
                r_.Fail(*top.Get(key), top.PathOf(key),
                        std::string("expected a number above the largest ") + what + " id, " +
                            std::to_string(maxUsed));
            }
            return next;
        }
        if (maxUsed >= kInt32Max) {
            r_.Fail(top.Value(), "",
                    std::string("no ") + what + " id left after " + std::to_string(maxUsed) +
                        "; give " + Utf8(key));
        }
        return static_cast<std::int32_t>(std::max<std::int64_t>(first, maxUsed + 1));
    }

    std::shared_ptr<SlideModel> ReadSlide(const JsonValue& v, const std::string& path,
                                          std::size_t index) {
        Obj o(r_, v, path, {u"slideId", u"name", u"tags", u"shapes", u"notes", u"deleted"});
        auto slide = std::make_shared<SlideModel>();
        std::int32_t id = 0;
        if (o.Int(u"slideId", id, 1)) {
            const auto it = slideIds_.find(id);
            if (it != slideIds_.end()) {
                r_.Fail(*o.Get(u"slideId"), o.PathOf(u"slideId"),
                        "duplicate slide id " + std::to_string(id) + " (also " + it->second + ")");
            }
        } else {
            if (maxSlideId_ >= kInt32Max) r_.Fail(v, path, "no slide id left; give slideId");
            id = static_cast<std::int32_t>(std::max<std::int64_t>(kFirstSlideId, maxSlideId_ + 1));
        }
        slideIds_[id] = path;
        maxSlideId_ = std::max<std::int64_t>(maxSlideId_, id);
        slide->slideId = id;
        slide->name = DefaultSlideName(index);
        o.String(u"name", slide->name);
        o.Bool(u"deleted", slide->deleted);
        if (const JsonValue* tags = o.Get(u"tags")) {
            const std::string tagsPath = o.PathOf(u"tags");
            r_.Expect(*tags, tagsPath, JsonType::Object);
            for (const JsonMember& m : tags->Members()) {
                const std::string tagPath = Join(tagsPath, m.key);
                // Tag names ignore case: two that differ only in case are one.
                const std::u16string key = UpperAscii(m.key);
                if (slide->tags.count(key)) {
                    r_.FailAt(m.line, m.column, tagPath,
                              "the same tag name as another, ignoring case");
                }
                slide->tags[key] = r_.String(m.value, tagPath);
            }
        }
        PageIds slideIds;
        if (const JsonValue* shapes = o.Array(u"shapes")) {
            for (std::size_t i = 0; i < shapes->Items().size(); ++i) {
                slide->shapes.push_back(ReadShape(shapes->Items()[i], Index(o.PathOf(u"shapes"), i),
                                                  Page::Slide, slideIds));
            }
        }
        PageIds notesIds;
        if (const JsonValue* notes = o.Get(u"notes")) {
            const std::string notesPath = o.PathOf(u"notes");
            if (notes->IsString()) {
                slide->notesShapes.push_back(ReadShape(*notes, notesPath, Page::Notes, notesIds));
            } else {
                r_.Expect(*notes, notesPath, JsonType::Array);
                for (std::size_t i = 0; i < notes->Items().size(); ++i) {
                    slide->notesShapes.push_back(
                        ReadShape(notes->Items()[i], Index(notesPath, i), Page::Notes, notesIds));
                }
            }
        }
        slides_.push_back(slide);
        return slide;
    }

    std::shared_ptr<ShapeModel> ReadShape(const JsonValue& v, const std::string& path, Page page,
                                          PageIds& ids) {
        auto shape = std::make_shared<ShapeModel>();
        // A string stands for a shape with only that text.
        JsonValue wrapped;
        const JsonValue* source = &v;
        if (v.IsString()) {
            wrapped = JsonValue::Object();
            wrapped.Set(u"text", v);
            wrapped.SetPosition(v.Line(), v.Column());
            source = &wrapped;
        }
        Obj o(r_, *source, path, kShapeKeys);
        shape->type = InferType(o.Has(u"children"), o.Has(u"table"), o.Has(u"chart"),
                                o.Has(u"smartArt"), page);
        o.Enum(u"type", shape->type, kShapeTypes);

        std::int32_t id = 0;
        if (!o.Int(u"id", id, 1)) {
            if (maxShapeId_ >= kInt32Max) r_.Fail(v, path, "no shape id left; give id");
            id = static_cast<std::int32_t>(std::max<std::int64_t>(kFirstShapeId, maxShapeId_ + 1));
        }
        const auto it = ids.seen.find(id);
        if (it != ids.seen.end()) {
            const JsonValue* at = o.Get(u"id");
            r_.Fail(at ? *at : v, at ? o.PathOf(u"id") : path,
                    "duplicate shape id " + std::to_string(id) + " on one page (also " +
                        it->second + ")");
        }
        ids.seen[id] = path;
        maxShapeId_ = std::max<std::int64_t>(maxShapeId_, id);
        shape->id = id;
        shape->name = DefaultShapeName(shape->type, id, page);
        o.String(u"name", shape->name);
        ReadBox(o, *shape, DefaultBox(page));
        ReadFrame(o, *shape, IsTextual(shape->type));
        o.Bool(u"deleted", shape->deleted);

        if (const JsonValue* children = o.Array(u"children")) {
            for (std::size_t i = 0; i < children->Items().size(); ++i) {
                shape->children.push_back(
                    ReadShape(children->Items()[i], Index(o.PathOf(u"children"), i), page, ids));
            }
        }
        if (const JsonValue* table = o.Get(u"table")) {
            shape->table = ReadTable(*table, o.PathOf(u"table"), *shape);
        }
        if (const JsonValue* chart = o.Get(u"chart")) {
            shape->chart = std::make_shared<ChartModel>(ReadChart(*chart, o.PathOf(u"chart")));
        }
        if (const JsonValue* art = o.Get(u"smartArt")) {
            shape->smartArt = ReadSmartArt(*art, o.PathOf(u"smartArt"));
        }
        shapesById_[{page == Page::Notes, slides_.size()}][id] = shape;
        return shape;
    }

    void ReadBox(const Obj& o, ShapeModel& shape, Box box) const {
        shape.left = box.left, shape.top = box.top, shape.width = box.width,
        shape.height = box.height;
        o.Float(u"left", shape.left, Range::Any);
        o.Float(u"top", shape.top, Range::Any);
        o.Float(u"width", shape.width, Range::NonNegative);
        o.Float(u"height", shape.height, Range::NonNegative);
    }

    // --- Text ---

    void ReadFrame(const Obj& o, ShapeModel& shape, bool textual) const {
        TextFrameModel& f = shape.frame;
        bool anyFrameKey = false;
        for (std::u16string_view key : kFrameKeys) {
            if (key != u"hasTextFrame" && o.Has(key)) anyFrameKey = true;
        }
        shape.hasTextFrame = textual || anyFrameKey;
        o.Bool(u"hasTextFrame", shape.hasTextFrame);
        if (const JsonValue* format = o.Get(u"defaultFormat")) {
            f.defaultFormat = ReadFont(*format, o.PathOf(u"defaultFormat"), CharFormat());
        }
        o.Enum(u"autoSize", f.autoSize, kAutoSizes);
        o.Bool(u"wordWrap", f.wordWrap);
        if (const JsonValue* margins = o.Get(u"margins")) {
            Obj m(r_, *margins, o.PathOf(u"margins"), {u"left", u"top", u"right", u"bottom"});
            m.Float(u"left", f.marginLeft, Range::NonNegative);
            m.Float(u"top", f.marginTop, Range::NonNegative);
            m.Float(u"right", f.marginRight, Range::NonNegative);
            m.Float(u"bottom", f.marginBottom, Range::NonNegative);
        }
        const JsonValue* text = o.Get(u"text");
        const JsonValue* paragraphs = o.Get(u"paragraphs");
        if (text && paragraphs) {
            r_.Fail(*paragraphs, o.PathOf(u"paragraphs"),
                    "give either text or paragraphs, not both");
        }
        if (text) f.SetText(r_.String(*text, o.PathOf(u"text")), f.defaultFormat);
        if (paragraphs) ReadParagraphs(*paragraphs, o.PathOf(u"paragraphs"), f);
    }

    void ReadParagraphs(const JsonValue& v, const std::string& path, TextFrameModel& f) const {
        r_.Expect(v, path, JsonType::Array);
        f.text.clear();
        f.formats.clear();
        const auto& items = v.Items();
        for (std::size_t i = 0; i < items.size(); ++i) {
            const std::string pPath = Index(path, i);
            const std::size_t start = f.text.size();
            const JsonValue* endFont = nullptr;
            std::string endPath;
            if (items[i].IsString()) {
                AppendRunText(items[i], pPath, f.defaultFormat, f);
            } else {
                Obj p(r_, items[i], pPath, {u"runs", u"endFont"});
                if (const JsonValue* runs = p.Array(u"runs")) {
                    for (std::size_t k = 0; k < runs->Items().size(); ++k)
                        ReadRun(runs->Items()[k], Index(p.PathOf(u"runs"), k), f);
                }
                endFont = p.Get(u"endFont");
                endPath = p.PathOf(u"endFont");
            }
            if (i + 1 == items.size()) {
                if (endFont) r_.Fail(*endFont, endPath, "the last paragraph has no end to format");
                break;
            }
            // The paragraph's end takes its last character's format.
            CharFormat end = f.text.size() > start ? f.formats.back() : f.defaultFormat;
            if (endFont) end = ReadFont(*endFont, endPath, f.defaultFormat);
            f.text.push_back(u'\r');
            f.formats.push_back(end);
        }
    }

    void AppendRunText(const JsonValue& v, const std::string& path, const CharFormat& format,
                       TextFrameModel& f) const {
        const std::u16string text = r_.String(v, path);
        if (text.find(u'\r') != std::u16string::npos) {
            r_.Fail(v, path, "a paragraph break (\\r) inside a paragraph; start a new paragraph");
        }
        f.text += text;
        f.formats.insert(f.formats.end(), text.size(), format);
    }

    void ReadRun(const JsonValue& v, const std::string& path, TextFrameModel& f) const {
        if (v.IsString()) {
            AppendRunText(v, path, f.defaultFormat, f);
            return;
        }
        Obj run(r_, v, path, kRunKeys);
        CharFormat format = f.defaultFormat;
        if (const JsonValue* font = run.Get(u"font")) {
            Obj fo(r_, *font, run.PathOf(u"font"), kFontKeys);
            for (const JsonMember& m : font->Members()) {
                if (run.Has(m.key)) {
                    const JsonValue& twice = *run.Get(m.key);
                    r_.Fail(twice, run.PathOf(m.key), "given both here and in font");
                }
            }
            ApplyFont(fo, format);
        }
        ApplyFont(run, format);
        if (const JsonValue* text = run.Get(u"text")) {
            AppendRunText(*text, run.PathOf(u"text"), format, f);
        }
    }

    CharFormat ReadFont(const JsonValue& v, const std::string& path, CharFormat base) const {
        Obj o(r_, v, path, kFontKeys);
        ApplyFont(o, base);
        return base;
    }

    // The font keys of `o` over `format`. A name sets the ASCII slot too,
    // as the host's Name does, unless nameAscii is given.
    void ApplyFont(const Obj& o, CharFormat& format) const {
        if (o.String(u"name", format.name)) format.nameAscii = format.name;
        o.String(u"nameAscii", format.nameAscii);
        o.String(u"nameFarEast", format.nameFarEast);
        o.Float(u"size", format.size, Range::Positive);
        bool flag = false;
        if (o.Bool(u"bold", flag)) format.bold = flag ? -1 : 0;
        if (o.Bool(u"italic", flag)) format.italic = flag ? -1 : 0;
        if (const JsonValue* color = o.Get(u"color")) ReadColor(*color, o.PathOf(u"color"), format);
    }

    bool ParseHexColor(std::u16string_view s, std::int32_t& rgb) const {
        if (s.size() != 7 || s[0] != u'#') return false;
        std::int32_t value = 0;
        for (std::size_t i = 1; i < 7; ++i) {
            const char16_t c = s[i];
            std::int32_t digit;
            if (c >= u'0' && c <= u'9') {
                digit = c - u'0';
            } else if (c >= u'a' && c <= u'f') {
                digit = c - u'a' + 10;
            } else if (c >= u'A' && c <= u'F') {
                digit = c - u'A' + 10;
            } else {
                return false;
            }
            value = value * 16 + digit;
        }
        // #rrggbb reads red first; the host keeps red in the low byte.
        rgb = ((value >> 16) & 0xFF) | (value & 0xFF00) | ((value & 0xFF) << 16);
        return true;
    }

    std::int32_t ReadHexColor(const JsonValue& v, const std::string& path) const {
        std::int32_t rgb = 0;
        if (!ParseHexColor(r_.String(v, path), rgb)) {
            r_.Fail(v, path, "expected a colour as \"#rrggbb\"");
        }
        return rgb;
    }

    void ReadColor(const JsonValue& v, const std::string& path, CharFormat& format) const {
        if (v.IsString()) {
            format.rgb = ReadHexColor(v, path);
            format.colorType = 1;
            return;
        }
        if (!v.IsObject()) {
            r_.Fail(
                v, path,
                std::string("expected \"#rrggbb\" or an object, found ") + JsonTypeName(v.Type()));
        }
        Obj o(r_, v, path, {u"rgb", u"scheme", u"tintAndShade", u"type"});
        if (o.Has(u"rgb")) {
            format.rgb = ReadHexColor(*o.Get(u"rgb"), o.PathOf(u"rgb"));
            format.colorType = 1;
        }
        if (o.Int(u"scheme", format.schemeColor)) format.colorType = 2;
        o.Float(u"tintAndShade", format.tintAndShade, Range::UnitInterval);
        o.Enum(u"type", format.colorType, kColorTypes);
    }

    // --- Tables ---

    std::shared_ptr<TableModel> ReadTable(const JsonValue& v, const std::string& path,
                                          const ShapeModel& shape) const {
        Obj o(r_, v, path, {u"rows", u"columns", u"cells", u"merges"});
        auto table = std::make_shared<TableModel>();
        const JsonValue* cells = o.Array(u"cells");
        if (cells) {
            table->rows = static_cast<std::int32_t>(
                std::min<std::size_t>(cells->Items().size(), kMaxTableSide + 1));
            if (!cells->Items().empty()) {
                const JsonValue& first = cells->Items()[0];
                r_.Expect(first, Index(o.PathOf(u"cells"), 0), JsonType::Array);
                table->columns = static_cast<std::int32_t>(
                    std::min<std::size_t>(first.Items().size(), kMaxTableSide + 1));
            }
        }
        o.Int(u"rows", table->rows, 1, kMaxTableSide);
        o.Int(u"columns", table->columns, 1, kMaxTableSide);
        if (table->rows < 1 || table->rows > kMaxTableSide || table->columns < 1 ||
            table->columns > kMaxTableSide) {
            r_.Fail(v, path,
                    "a table needs 1 to " + std::to_string(kMaxTableSide) +
                        " rows and columns: give rows and columns, or cells row by row");
        }
        if (table->rows * table->columns > kMaxTableCells) {
            r_.Fail(v, path, "a table holds at most " + std::to_string(kMaxTableCells) + " cells");
        }
        if (cells && cells->Items().size() != static_cast<std::size_t>(table->rows)) {
            r_.Fail(*cells, o.PathOf(u"cells"),
                    "expected " + std::to_string(table->rows) + " rows, found " +
                        std::to_string(cells->Items().size()));
        }
        for (std::int32_t r = 0; r < table->rows; ++r) {
            const JsonValue* row = nullptr;
            const std::string rowPath = Index(o.PathOf(u"cells"), static_cast<std::size_t>(r));
            if (cells) {
                row = &cells->Items()[static_cast<std::size_t>(r)];
                r_.Expect(*row, rowPath, JsonType::Array);
                if (row->Items().size() != static_cast<std::size_t>(table->columns)) {
                    r_.Fail(*row, rowPath,
                            "expected " + std::to_string(table->columns) + " cells, found " +
                                std::to_string(row->Items().size()));
                }
            }
            for (std::int32_t c = 0; c < table->columns; ++c) {
                auto cell = std::make_shared<ShapeModel>();
                cell->type = ShapeType::AutoShape;
                cell->hasTextFrame = true;
                const Box box = DefaultCellBox(shape, table->rows, table->columns, r, c);
                cell->left = box.left, cell->top = box.top, cell->width = box.width,
                cell->height = box.height;
                if (row) {
                    ReadCell(row->Items()[static_cast<std::size_t>(c)],
                             Index(rowPath, static_cast<std::size_t>(c)), box, *cell);
                }
                table->cells.push_back(cell);
                table->mergedInto.push_back(-1);
            }
        }
        if (const JsonValue* merges = o.Array(u"merges")) {
            std::vector<bool> covered(table->cells.size(), false);
            for (std::size_t i = 0; i < merges->Items().size(); ++i)
                ReadMerge(merges->Items()[i], Index(o.PathOf(u"merges"), i), *table, covered);
        }
        return table;
    }

    void ReadCell(const JsonValue& v, const std::string& path, Box box, ShapeModel& cell) const {
        JsonValue wrapped;
        const JsonValue* source = &v;
        if (v.IsString()) {
            wrapped = JsonValue::Object();
            wrapped.Set(u"text", v);
            wrapped.SetPosition(v.Line(), v.Column());
            source = &wrapped;
        }
        Obj o(r_, *source, path, kCellKeys);
        o.Int(u"id", cell.id, 0);
        o.String(u"name", cell.name);
        ReadBox(o, cell, box);
        ReadFrame(o, cell, true);
        o.Bool(u"deleted", cell.deleted);
    }

    void ReadMerge(const JsonValue& v, const std::string& path, TableModel& table,
                   std::vector<bool>& covered) const {
        Obj o(r_, v, path, {u"row", u"column", u"rows", u"columns"});
        std::int32_t row = 0, column = 0, rows = 1, columns = 1;
        if (!o.Int(u"row", row, 1, table.rows)) r_.Fail(v, path, "a merge needs its row");
        if (!o.Int(u"column", column, 1, table.columns)) {
            r_.Fail(v, path, "a merge needs its column");
        }
        o.Int(u"rows", rows, 1, table.rows - row + 1);
        o.Int(u"columns", columns, 1, table.columns - column + 1);
        if (rows * columns < 2) r_.Fail(v, path, "a merge spans two cells or more");
        const std::int32_t first = (row - 1) * table.columns + (column - 1);
        for (std::int32_t r = row; r < row + rows; ++r) {
            for (std::int32_t c = column; c < column + columns; ++c) {
                const auto position = static_cast<std::size_t>((r - 1) * table.columns + (c - 1));
                if (covered[position]) r_.Fail(v, path, "overlaps another merge");
                covered[position] = true;
                if (static_cast<std::int32_t>(position) != first) {
                    table.mergedInto[position] = first;
                }
            }
        }
    }

    // --- Charts ---

    ChartLabelModel ReadLabel(const JsonValue& v, const std::string& path) const {
        ChartLabelModel label;
        if (v.IsString()) {
            label.text = v.StringValue();
            return label;
        }
        Obj o(r_, v, path, kLabelKeys);
        ApplyLabel(o, label);
        return label;
    }

    void ApplyLabel(const Obj& o, ChartLabelModel& label) const {
        o.String(u"text", label.text);
        o.Bool(u"hasText", label.hasText);
        o.Bool(u"hasCaption", label.hasCaption);
        o.Bool(u"hasTextFrame2", label.hasTextFrame2);
    }

    // A label and the flag that shows it: the flag defaults to the label's presence.
    void ReadTitled(const Obj& o, std::u16string_view key, std::u16string_view flagKey, bool& flag,
                    ChartLabelModel& label) const {
        if (const JsonValue* v = o.Get(key)) {
            label = ReadLabel(*v, o.PathOf(key));
            flag = true;
        }
        o.Bool(flagKey, flag);
    }

    ChartModel ReadChart(const JsonValue& v, const std::string& path) const {
        Obj o(r_, v, path,
              {u"title", u"hasTitle", u"hasHasAxis", u"axes", u"axisCategoryNames",
               u"seriesCollectionAsProperty", u"xValuesTwoDimensional", u"series", u"hasChartData",
               u"hasIsLinked", u"isLinked", u"workbook", u"activated", u"refreshes"});
        ChartModel chart;
        ReadTitled(o, u"title", u"hasTitle", chart.hasTitle, chart.title);
        o.Bool(u"hasHasAxis", chart.hasHasAxis);
        if (const JsonValue* axes = o.Array(u"axes")) {
            for (std::size_t i = 0; i < axes->Items().size(); ++i) {
                Obj a(r_, axes->Items()[i], Index(o.PathOf(u"axes"), i),
                      {u"type", u"group", u"title", u"hasTitle", u"displayUnitLabel",
                       u"hasDisplayUnitLabel"});
                AxisModel axis;
                a.Enum(u"type", axis.type, kAxisTypes);
                a.Enum(u"group", axis.group, kAxisGroups);
                ReadTitled(a, u"title", u"hasTitle", axis.hasTitle, axis.title);
                ReadTitled(a, u"displayUnitLabel", u"hasDisplayUnitLabel", axis.hasDisplayUnitLabel,
                           axis.displayUnitLabel);
                chart.axes.push_back(std::move(axis));
            }
        }
        if (const JsonValue* names = o.Array(u"axisCategoryNames")) {
            for (std::size_t i = 0; i < names->Items().size(); ++i) {
                chart.axisCategoryNames.push_back(
                    r_.String(names->Items()[i], Index(o.PathOf(u"axisCategoryNames"), i)));
            }
        }
        o.Bool(u"seriesCollectionAsProperty", chart.seriesCollectionAsProperty);
        o.Bool(u"xValuesTwoDimensional", chart.xValuesTwoDimensional);
        if (const JsonValue* series = o.Array(u"series")) {
            for (std::size_t i = 0; i < series->Items().size(); ++i) {
                chart.series.push_back(
                    ReadSeries(series->Items()[i], Index(o.PathOf(u"series"), i)));
            }
        }
        o.Bool(u"hasChartData", chart.hasChartData);
        o.Bool(u"hasIsLinked", chart.hasIsLinked);
        o.Bool(u"isLinked", chart.isLinked);
        if (const JsonValue* workbook = o.Get(u"workbook")) {
            ReadWorkbook(*workbook, o.PathOf(u"workbook"), chart.workbook);
        }
        o.Bool(u"activated", chart.activated);
        o.Int(u"refreshes", chart.refreshes, 0);
        return chart;
    }

    SeriesModel ReadSeries(const JsonValue& v, const std::string& path) const {
        Obj o(r_, v, path, {u"name", u"formula", u"categories", u"hasDataLabels", u"dataLabels"});
        SeriesModel series;
        o.String(u"name", series.name);
        o.String(u"formula", series.formula);
        if (const JsonValue* categories = o.Array(u"categories")) {
            for (std::size_t i = 0; i < categories->Items().size(); ++i) {
                const JsonValue& c = categories->Items()[i];
                const std::string cPath = Index(o.PathOf(u"categories"), i);
                if (c.IsString()) {
                    series.categories.push_back(c.StringValue());
                    series.categoryIsNumber.push_back(false);
                } else if (c.IsNumber()) {
                    // A number shows as the text the writer gives it.
                    series.categories.push_back(AsciiToUtf16(c.NumberText()));
                    series.categoryIsNumber.push_back(true);
                } else {
                    Obj co(r_, c, cPath, {u"text", u"isNumber"});
                    std::u16string text;
                    bool isNumber = false;
                    co.String(u"text", text);
                    co.Bool(u"isNumber", isNumber);
                    series.categories.push_back(std::move(text));
                    series.categoryIsNumber.push_back(isNumber);
                }
            }
        }
        if (const JsonValue* labels = o.Array(u"dataLabels")) {
            for (std::size_t i = 0; i < labels->Items().size(); ++i) {
                const JsonValue& l = labels->Items()[i];
                DataLabelModel label;
                if (l.IsString()) {
                    label.label.text = l.StringValue();
                } else {
                    Obj lo(r_, l, Index(o.PathOf(u"dataLabels"), i),
                           kLabelKeys + Keys{u"showValue", u"showPercentage", u"showCategoryName",
                                             u"showSeriesName", u"hasShowBubbleSize",
                                             u"showBubbleSize"});
                    ApplyLabel(lo, label.label);
                    lo.Bool(u"showValue", label.showValue);
                    lo.Bool(u"showPercentage", label.showPercentage);
                    lo.Bool(u"showCategoryName", label.showCategoryName);
                    lo.Bool(u"showSeriesName", label.showSeriesName);
                    lo.Bool(u"hasShowBubbleSize", label.hasShowBubbleSize);
                    lo.Bool(u"showBubbleSize", label.showBubbleSize);
                }
                series.dataLabels.push_back(std::move(label));
            }
        }
        series.hasDataLabels = !series.dataLabels.empty();
        o.Bool(u"hasDataLabels", series.hasDataLabels);
        return series;
    }

    void ReadWorkbook(const JsonValue& v, const std::string& path, WorkbookModel& book) const {
        Obj o(r_, v, path,
              {u"name", u"sheets", u"windowCount", u"windowVisible", u"windowCaption",
               u"otherWorkbooks", u"screenUpdating", u"appVisible", u"open", u"saves", u"closes"});
        o.String(u"name", book.name);
        if (const JsonValue* sheets = o.Array(u"sheets")) {
            book.sheets.clear();
            for (std::size_t i = 0; i < sheets->Items().size(); ++i) {
                book.sheets.push_back(ReadSheet(sheets->Items()[i], Index(o.PathOf(u"sheets"), i)));
            }
        }
        o.Int(u"windowCount", book.windowCount, 0);
        o.Bool(u"windowVisible", book.windowVisible);
        o.String(u"windowCaption", book.windowCaption);
        o.Int(u"otherWorkbooks", book.otherWorkbooks, 0);
        o.Bool(u"screenUpdating", book.screenUpdating);
        o.Bool(u"appVisible", book.appVisible);
        o.Bool(u"open", book.open);
        o.Int(u"saves", book.saves, 0);
        o.Int(u"closes", book.closes, 0);
    }

    SheetModel ReadSheet(const JsonValue& v, const std::string& path) const {
        Obj o(r_, v, path, {u"name", u"cells"});
        SheetModel sheet;
        o.String(u"name", sheet.name);
        if (const JsonValue* cells = o.Get(u"cells")) {
            const std::string cellsPath = o.PathOf(u"cells");
            r_.Expect(*cells, cellsPath, JsonType::Object);
            for (const JsonMember& m : cells->Members()) {
                const std::string cPath = Join(cellsPath, m.key);
                std::int32_t row = 0, column = 0;
                if (!ParseCellName(m.key, row, column)) {
                    r_.FailAt(m.line, m.column, cPath,
                              "expected a cell name like \"B2\" (column letters, row number)");
                }
                SheetCellModel cell;
                if (m.value.IsString()) {
                    cell.text = m.value.StringValue();
                } else if (m.value.IsNumber()) {
                    cell.number = m.value.NumberValue();
                    cell.isNumber = true;
                } else {
                    Obj co(r_, m.value, cPath,
                           {u"text", u"number", u"isNumber", u"shownText", u"hasFormula"});
                    co.String(u"text", cell.text);
                    cell.isNumber = co.Double(u"number", cell.number);
                    co.Bool(u"isNumber", cell.isNumber);
                    co.String(u"shownText", cell.shownText);
                    co.Bool(u"hasFormula", cell.hasFormula);
                }
                sheet.cells[{row, column}] = std::move(cell);
            }
        }
        return sheet;
    }

    // --- SmartArt ---

    std::shared_ptr<SmartArtModel> ReadSmartArt(const JsonValue& v, const std::string& path) const {
        Obj o(r_, v, path, {u"usable", u"nodes"});
        auto art = std::make_shared<SmartArtModel>();
        o.Bool(u"usable", art->usable);
        if (const JsonValue* nodes = o.Array(u"nodes")) {
            for (std::size_t i = 0; i < nodes->Items().size(); ++i)
                art->nodes.push_back(ReadNode(nodes->Items()[i], Index(o.PathOf(u"nodes"), i)));
        }
        return art;
    }

    SmartArtNodeModel ReadNode(const JsonValue& v, const std::string& path) const {
        SmartArtNodeModel node;
        if (v.IsString()) {
            node.text = v.StringValue();
            return node;
        }
        Obj o(r_, v, path, {u"text", u"children"});
        o.String(u"text", node.text);
        if (const JsonValue* children = o.Array(u"children")) {
            for (std::size_t i = 0; i < children->Items().size(); ++i) {
                node.children.push_back(
                    ReadNode(children->Items()[i], Index(o.PathOf(u"children"), i)));
            }
        }
        return node;
    }

    // --- Application and windows ---

    void ReadApplication(const JsonValue& v, DeckLoadResult& result) const {
        Obj o(r_, v, "application",
              {u"kind", u"name", u"version", u"uiLanguageId", u"activeWindow"});
        o.Enum(u"kind", result.kind, kHostKinds, false);
        o.String(u"name", result.appName);
        o.String(u"version", result.appVersion);
        o.Int(u"uiLanguageId", result.uiLanguageId, 1);
    }

    void ReadWindows(const Obj& top, DeckLoadResult& result) const {
        if (const JsonValue* windows = top.Array(u"windows")) {
            if (windows->Items().empty()) {
                r_.Fail(*windows, "windows", "expected at least one window");
            }
            for (std::size_t i = 0; i < windows->Items().size(); ++i) {
                result.windows.push_back(
                    ReadWindow(windows->Items()[i], Index("windows", i), result.deck));
            }
        } else {
            WindowModel window;
            window.presentation = result.deck;
            result.windows.push_back(window);
        }
        result.activeWindow = 1;
        if (const JsonValue* app = top.Get(u"application")) {
            Obj o(r_, *app, "application",
                  {u"kind", u"name", u"version", u"uiLanguageId", u"activeWindow"});
            o.Int(u"activeWindow", result.activeWindow, 0,
                  static_cast<std::int64_t>(result.windows.size()));
        }
    }

    WindowModel ReadWindow(const JsonValue& v, const std::string& path,
                           const std::shared_ptr<PresentationModel>& deck) const {
        Obj o(r_, v, path, {u"currentSlide", u"selection"});
        WindowModel window;
        window.presentation = deck;
        o.Int(u"currentSlide", window.currentSlide, 1,
              std::max<std::int64_t>(1, static_cast<std::int64_t>(deck->slides.size())));
        if (const JsonValue* selection = o.Get(u"selection")) {
            ReadSelection(*selection, o.PathOf(u"selection"), window);
        }
        return window;
    }

    void ReadSelection(const JsonValue& v, const std::string& path, WindowModel& window) const {
        Obj o(r_, v, path,
              {u"type", u"slides", u"shapes", u"childShapes", u"textShape", u"textStart",
               u"textLength"});
        SelectionModel& sel = window.selection;
        const auto& slides = window.presentation->slides;
        const std::size_t current = static_cast<std::size_t>(window.currentSlide - 1);
        const std::int32_t currentId = current < slides.size() ? slides[current]->slideId : 0;
        if (const JsonValue* list = o.Array(u"slides")) {
            for (std::size_t i = 0; i < list->Items().size(); ++i) {
                const std::string sPath = Index(o.PathOf(u"slides"), i);
                const std::int32_t id = r_.Int(list->Items()[i], sPath, 1, kInt32Max);
                sel.slides.push_back(SlideById(id, list->Items()[i], sPath));
            }
        }
        if (const JsonValue* list = o.Array(u"shapes")) {
            for (std::size_t i = 0; i < list->Items().size(); ++i) {
                sel.shapes.push_back(
                    ReadShapeRef(list->Items()[i], Index(o.PathOf(u"shapes"), i), currentId));
            }
        }
        if (const JsonValue* list = o.Array(u"childShapes")) {
            for (std::size_t i = 0; i < list->Items().size(); ++i) {
                sel.childShapes.push_back(
                    ReadShapeRef(list->Items()[i], Index(o.PathOf(u"childShapes"), i), currentId));
            }
        }
        if (const JsonValue* text = o.Get(u"textShape")) {
            sel.textShape = ReadShapeRef(*text, o.PathOf(u"textShape"), currentId);
        }
        sel.type = sel.textShape                                     ? SelectionType::Text
                   : !sel.shapes.empty() || !sel.childShapes.empty() ? SelectionType::Shapes
                   : !sel.slides.empty()                             ? SelectionType::Slides
                                                                     : SelectionType::None;
        o.Enum(u"type", sel.type, kSelectionTypes);
        o.Int(u"textStart", sel.textStart, 1);
        o.Int(u"textLength", sel.textLength, 0);
        if (sel.textShape) {
            const std::int64_t end = static_cast<std::int64_t>(sel.textStart) - 1 + sel.textLength;
            if (end > static_cast<std::int64_t>(sel.textShape->frame.text.size())) {
                r_.Fail(v, path,
                        "the selected text reaches past the shape's " +
                            std::to_string(sel.textShape->frame.text.size()) + " characters");
            }
        }
    }

    std::shared_ptr<SlideModel> SlideById(std::int32_t id, const JsonValue& at,
                                          const std::string& path) const {
        for (const auto& slide : slides_) {
            if (slide->slideId == id) return slide;
        }
        r_.Fail(at, path, "no slide has id " + std::to_string(id));
    }

    std::shared_ptr<ShapeModel> ReadShapeRef(const JsonValue& v, const std::string& path,
                                             std::int32_t currentId) const {
        Obj o(r_, v, path, {u"slide", u"notes", u"shape", u"row", u"column"});
        std::int32_t slideId = currentId, shapeId = 0;
        bool notes = false;
        o.Int(u"slide", slideId, 1);
        o.Bool(u"notes", notes);
        if (!o.Int(u"shape", shapeId, 1)) r_.Fail(v, path, "a shape reference needs its shape id");
        const auto slide = SlideById(slideId, o.Has(u"slide") ? *o.Get(u"slide") : v,
                                     o.Has(u"slide") ? o.PathOf(u"slide") : path);
        std::size_t slideIndex = 0;
        while (slides_[slideIndex] != slide)
            ++slideIndex;
        const auto page = shapesById_.find({notes, slideIndex});
        std::shared_ptr<ShapeModel> shape;
        if (page != shapesById_.end()) {
            const auto it = page->second.find(shapeId);
            if (it != page->second.end()) shape = it->second;
        }
        if (!shape) {
            r_.Fail(*o.Get(u"shape"), o.PathOf(u"shape"),
                    "no shape with id " + std::to_string(shapeId) + " on " +
                        (notes ? "the notes page of " : "") + "slide " + std::to_string(slideId));
        }
        const bool hasRow = o.Has(u"row"), hasColumn = o.Has(u"column");
        if (!hasRow && !hasColumn) return shape;
        if (!shape->table) r_.Fail(v, path, "row and column pick a cell of a table");
        if (hasRow != hasColumn) r_.Fail(v, path, "a cell needs both row and column");
        std::int32_t row = 0, column = 0;
        o.Int(u"row", row, 1, shape->table->rows);
        o.Int(u"column", column, 1, shape->table->columns);
        return shape->table
            ->cells[static_cast<std::size_t>((row - 1) * shape->table->columns + (column - 1))];
    }

    const Reader& r_;
    std::int64_t maxSlideId_ = kFirstSlideId - 1;
    std::int64_t maxShapeId_ = kFirstShapeId - 1;
    std::map<std::int32_t, std::string> slideIds_;
    std::vector<std::shared_ptr<SlideModel>> slides_;
    // Per (notes page?, slide index): shapes by id, groups' items included.
    std::map<std::pair<bool, std::size_t>, std::map<std::int32_t, std::shared_ptr<ShapeModel>>>
        shapesById_;
};

}  // namespace

DeckLoadResult ParseDeck(std::string_view utf8, std::string_view sourceName) {
    DeckLoadResult result;
    JsonError error;
    const std::optional<JsonValue> root = ParseJson(utf8, &error);
    if (!root) {
        result.error = std::string(sourceName) + ":" + error.ToString();
        return result;
    }
    try {
        const Reader reader(sourceName);
        result = DeckReader(reader).Read(*root);
    } catch (const ReadFailure& failure) {
        result = DeckLoadResult();
        result.error = failure.text;
    } catch (const std::bad_alloc&) {
        result = DeckLoadResult();
        result.error = std::string(sourceName) + ": out of memory";
    }
    return result;
}

DeckLoadResult LoadDeckFile(const std::u16string& path) {
    const std::string name = Utf8(path);
    platform::FileInfo info;
    DeckLoadResult result;
    if (!platform::GetFileInfo(path, info)) {
        result.error = name + ": no such file";
        return result;
    }
    if (info.isDirectory) {
        result.error = name + ": a folder, not a deck file";
        return result;
    }
    if (info.size > kMaxDeckFileBytes) {
        result.error = name + ": larger than " + std::to_string(kMaxDeckFileBytes >> 20) +
                       " MiB, too large for a deck file";
        return result;
    }
    std::string bytes;
    if (!platform::ReadWholeFile(path, bytes)) {
        result.error = name + ": can't be read";
        return result;
    }
    return ParseDeck(bytes, name);
}

// --- Writing ----------------------------------------------------------------

namespace {

JsonValue Str(std::u16string_view s) {
    return JsonValue::String(std::u16string(s));
}

JsonValue EnumValue(std::int32_t value, const Words& words) {
    for (const Word& w : words) {
        if (w.value == value) return Str(w.word);
    }
    return JsonValue::Integer(value);
}

std::u16string HexColor(std::int32_t rgb) {
    static const char16_t digits[] = u"0123456789abcdef";
    const std::int32_t bytes[] = {rgb & 0xFF, (rgb >> 8) & 0xFF, (rgb >> 16) & 0xFF};
    std::u16string s = u"#";
    for (std::int32_t b : bytes) {
        s += digits[b >> 4];
        s += digits[b & 0xF];
    }
    return s;
}

// A shape-like object with only "text" written stands as its string.
JsonValue Shorten(JsonValue object) {
    if (object.Members().size() == 1 && object.Members()[0].key == u"text" &&
        object.Members()[0].value.IsString()) {
        return object.Members()[0].value;
    }
    return object;
}

bool FrameIsDefault(const TextFrameModel& f) {
    const TextFrameModel d;
    return f.text.empty() && f.formats.empty() && f.defaultFormat == d.defaultFormat &&
           f.autoSize == d.autoSize && f.wordWrap == d.wordWrap && f.marginLeft == d.marginLeft &&
           f.marginRight == d.marginRight && f.marginTop == d.marginTop &&
           f.marginBottom == d.marginBottom;
}

class DeckWriter {
  public:
    std::string Write(const PresentationModel& deck, const DeckContents& contents) {
        JsonValue root = JsonValue::Object();
        root.Set(u"formatVersion", JsonValue::Integer(kFormatVersion));
        JsonValue app = JsonValue::Object();
        if (contents.kind != HostKind::PowerPoint) {
            app.Set(u"kind", EnumValue(static_cast<std::int32_t>(contents.kind), kHostKinds));
        }
        if (!contents.appName.empty()) app.Set(u"name", Str(contents.appName));
        if (!contents.appVersion.empty()) app.Set(u"version", Str(contents.appVersion));
        if (contents.uiLanguageId != 0) {
            app.Set(u"uiLanguageId", JsonValue::Integer(contents.uiLanguageId));
        }
        if (contents.activeWindow != 1) {
            app.Set(u"activeWindow", JsonValue::Integer(contents.activeWindow));
        }
        if (!app.Members().empty()) root.Set(u"application", std::move(app));
        if (!deck.fullName.empty()) root.Set(u"fullName", Str(deck.fullName));
        const PresentationModel defaults;
        if (deck.slideWidth != defaults.slideWidth) {
            root.Set(u"slideWidth", JsonValue::Float(deck.slideWidth));
        }
        if (deck.slideHeight != defaults.slideHeight) {
            root.Set(u"slideHeight", JsonValue::Float(deck.slideHeight));
        }

        JsonValue slides = JsonValue::Array();
        for (std::size_t i = 0; i < deck.slides.size(); ++i)
            slides.Push(WriteSlide(*deck.slides[i], i));
        // The counters come before the slides in the file, yet their defaults
        // depend on the ids the slides use.
        const std::int64_t nextSlide = std::max<std::int64_t>(kFirstSlideId, maxSlideId_ + 1);
        const std::int64_t nextShape = std::max<std::int64_t>(kFirstShapeId, maxShapeId_ + 1);
        if (deck.nextSlideId != nextSlide) {
            root.Set(u"nextSlideId", JsonValue::Integer(deck.nextSlideId));
        }
        if (deck.nextShapeId != nextShape) {
            root.Set(u"nextShapeId", JsonValue::Integer(deck.nextShapeId));
        }
        if (!slides.Items().empty()) root.Set(u"slides", std::move(slides));

        const bool defaultWindows =
            contents.windows.empty() ||
            (contents.windows.size() == 1 && contents.windows[0].currentSlide == 1 &&
             IsEmptySelection(contents.windows[0].selection));
        if (!defaultWindows) {
            JsonValue windows = JsonValue::Array();
            for (const WindowModel& w : contents.windows)
                windows.Push(WriteWindow(w, deck));
            root.Set(u"windows", std::move(windows));
        }
        return WriteJson(root);
    }

  private:
    JsonValue WriteSlide(const SlideModel& slide, std::size_t index) {
        JsonValue o = JsonValue::Object();
        const std::int64_t defaultId = std::max<std::int64_t>(kFirstSlideId, maxSlideId_ + 1);
        if (slide.slideId != defaultId) o.Set(u"slideId", JsonValue::Integer(slide.slideId));
        maxSlideId_ = std::max<std::int64_t>(maxSlideId_, slide.slideId);
        if (slide.name != DefaultSlideName(index)) o.Set(u"name", Str(slide.name));
        if (!slide.tags.empty()) {
            JsonValue tags = JsonValue::Object();
            for (const auto& [name, value] : slide.tags)
                tags.Set(name, Str(value));
            o.Set(u"tags", std::move(tags));
        }
        if (!slide.shapes.empty()) {
            JsonValue shapes = JsonValue::Array();
            for (const auto& shape : slide.shapes)
                shapes.Push(WriteShape(*shape, Page::Slide));
            o.Set(u"shapes", std::move(shapes));
        }
        if (!slide.notesShapes.empty()) {
            JsonValue notes = JsonValue::Array();
            for (const auto& shape : slide.notesShapes)
                notes.Push(WriteShape(*shape, Page::Notes));
            if (notes.Items().size() == 1 && notes.Items()[0].IsString()) {
                o.Set(u"notes", notes.Items()[0]);
            } else {
                o.Set(u"notes", std::move(notes));
            }
        }
        if (slide.deleted) o.Set(u"deleted", JsonValue::Bool(true));
        return o;
    }

    void WriteBox(JsonValue& o, const ShapeModel& s, Box box) const {
        if (s.left != box.left) o.Set(u"left", JsonValue::Float(s.left));
        if (s.top != box.top) o.Set(u"top", JsonValue::Float(s.top));
        if (s.width != box.width) o.Set(u"width", JsonValue::Float(s.width));
        if (s.height != box.height) o.Set(u"height", JsonValue::Float(s.height));
    }

    JsonValue WriteShape(const ShapeModel& s, Page page) {
        // Keys are set in the documented order; some decisions need the keys
        // that follow, so they are made first.
        const std::int64_t defaultId = std::max<std::int64_t>(kFirstShapeId, maxShapeId_ + 1);
        maxShapeId_ = std::max<std::int64_t>(maxShapeId_, s.id);
        const ShapeType inferred = InferType(!s.children.empty(), s.table != nullptr,
                                             s.chart != nullptr, s.smartArt != nullptr, page);
        JsonValue o = JsonValue::Object();
        if (s.type != inferred) {
            o.Set(u"type", EnumValue(static_cast<std::int32_t>(s.type), kShapeTypes));
        }
        if (s.id != defaultId) o.Set(u"id", JsonValue::Integer(s.id));
        if (s.name != DefaultShapeName(s.type, s.id, page)) o.Set(u"name", Str(s.name));
        WriteBox(o, s, DefaultBox(page));
        WriteFrame(o, s, IsTextual(s.type));
        if (!s.children.empty()) {
            JsonValue children = JsonValue::Array();
            for (const auto& child : s.children)
                children.Push(WriteShape(*child, page));
            o.Set(u"children", std::move(children));
        }
        if (s.table) o.Set(u"table", WriteTable(*s.table, s));
        if (s.chart) o.Set(u"chart", WriteChart(*s.chart));
        if (s.smartArt) o.Set(u"smartArt", WriteSmartArt(*s.smartArt));
        if (s.deleted) o.Set(u"deleted", JsonValue::Bool(true));
        return Shorten(std::move(o));
    }

    // --- Text ---

    static const CharFormat& FormatAt(const TextFrameModel& f, std::size_t i) {
        return i < f.formats.size() ? f.formats[i] : f.defaultFormat;
    }

    void WriteFrame(JsonValue& o, const ShapeModel& s, bool textual) const {
        const TextFrameModel& f = s.frame;
        const TextFrameModel d;
        JsonValue keys = JsonValue::Object();
        if (s.hasTextFrame || !FrameIsDefault(f)) {
            bool allDefault = true;
            for (std::size_t i = 0; i < f.text.size(); ++i)
                allDefault = allDefault && FormatAt(f, i) == f.defaultFormat;
            if (!f.text.empty() && allDefault) keys.Set(u"text", Str(f.text));
            if (!allDefault) keys.Set(u"paragraphs", WriteParagraphs(f));
            if (f.autoSize != d.autoSize) keys.Set(u"autoSize", EnumValue(f.autoSize, kAutoSizes));
            if (f.wordWrap != d.wordWrap) keys.Set(u"wordWrap", JsonValue::Bool(f.wordWrap));
            JsonValue margins = JsonValue::Object();
            if (f.marginLeft != d.marginLeft) margins.Set(u"left", JsonValue::Float(f.marginLeft));
            if (f.marginTop != d.marginTop) margins.Set(u"top", JsonValue::Float(f.marginTop));
            if (f.marginRight != d.marginRight) {
                margins.Set(u"right", JsonValue::Float(f.marginRight));
            }
            if (f.marginBottom != d.marginBottom) {
                margins.Set(u"bottom", JsonValue::Float(f.marginBottom));
            }
            if (!margins.Members().empty()) keys.Set(u"margins", std::move(margins));
            if (!(f.defaultFormat == d.defaultFormat)) {
                keys.Set(u"defaultFormat", WriteFont(f.defaultFormat, d.defaultFormat));
            }
        }
        const bool inferred = textual || !keys.Members().empty();
        if (s.hasTextFrame != inferred) o.Set(u"hasTextFrame", JsonValue::Bool(s.hasTextFrame));
        for (const JsonMember& m : keys.Members())
            o.Set(m.key, m.value);
    }

    JsonValue WriteParagraphs(const TextFrameModel& f) const {
        JsonValue paragraphs = JsonValue::Array();
        std::size_t start = 0;
        for (;;) {
            std::size_t end = f.text.find(u'\r', start);
            const bool last = end == std::u16string::npos;
            if (last) end = f.text.size();
            JsonValue runs = JsonValue::Array();
            for (std::size_t i = start; i < end;) {
                std::size_t j = i + 1;
                while (j < end && FormatAt(f, j) == FormatAt(f, i))
                    ++j;
                const std::u16string_view text(f.text.data() + i, j - i);
                if (FormatAt(f, i) == f.defaultFormat) {
                    runs.Push(Str(text));
                } else {
                    JsonValue run = JsonValue::Object();
                    run.Set(u"text", Str(text));
                    run.Set(u"font", WriteFont(FormatAt(f, i), f.defaultFormat));
                    runs.Push(std::move(run));
                }
                i = j;
            }
            JsonValue paragraph = JsonValue::Object();
            if (!runs.Items().empty()) paragraph.Set(u"runs", runs);
            if (!last) {
                const CharFormat& expected = end > start ? FormatAt(f, end - 1) : f.defaultFormat;
                if (!(FormatAt(f, end) == expected)) {
                    paragraph.Set(u"endFont", WriteFont(FormatAt(f, end), f.defaultFormat));
                }
            }
            if (paragraph.Find(u"endFont") == nullptr && runs.Items().size() <= 1 &&
                (runs.Items().empty() || runs.Items()[0].IsString())) {
                paragraphs.Push(runs.Items().empty() ? Str(u"") : runs.Items()[0]);
            } else {
                paragraphs.Push(std::move(paragraph));
            }
            if (last) break;
            start = end + 1;
        }
        return paragraphs;
    }

    // The fields of `f` that differ from `base`, as the reader applies them.
    static JsonValue WriteFont(const CharFormat& f, const CharFormat& base) {
        JsonValue o = JsonValue::Object();
        const bool name = f.name != base.name;
        if (name) o.Set(u"name", Str(f.name));
        if (f.nameAscii != (name ? f.name : base.nameAscii)) o.Set(u"nameAscii", Str(f.nameAscii));
        if (f.nameFarEast != base.nameFarEast) o.Set(u"nameFarEast", Str(f.nameFarEast));
        if (f.size != base.size) o.Set(u"size", JsonValue::Float(f.size));
        if (f.bold != base.bold) o.Set(u"bold", JsonValue::Bool(f.bold != 0));
        if (f.italic != base.italic) o.Set(u"italic", JsonValue::Bool(f.italic != 0));
        const bool sameScheme =
            f.schemeColor == base.schemeColor && f.tintAndShade == base.tintAndShade;
        if (sameScheme && f.colorType == base.colorType && f.rgb == base.rgb) return o;
        if (sameScheme && f.colorType == 1) {
            o.Set(u"color", Str(HexColor(f.rgb)));
            return o;
        }
        JsonValue color = JsonValue::Object();
        std::int32_t inferred = base.colorType;
        if (f.rgb != base.rgb) {
            color.Set(u"rgb", Str(HexColor(f.rgb)));
            inferred = 1;
        }
        if (f.schemeColor != base.schemeColor) {
            color.Set(u"scheme", JsonValue::Integer(f.schemeColor));
            inferred = 2;
        }
        if (f.tintAndShade != base.tintAndShade) {
            color.Set(u"tintAndShade", JsonValue::Float(f.tintAndShade));
        }
        if (f.colorType != inferred) color.Set(u"type", EnumValue(f.colorType, kColorTypes));
        o.Set(u"color", std::move(color));
        return o;
    }

    // --- Tables ---

    JsonValue WriteTable(const TableModel& t, const ShapeModel& shape) const {
        JsonValue o = JsonValue::Object();
        JsonValue rows = JsonValue::Array();
        bool anyCell = false;
        for (std::int32_t r = 0; r < t.rows; ++r) {
            JsonValue row = JsonValue::Array();
            for (std::int32_t c = 0; c < t.columns; ++c) {
                const auto i = static_cast<std::size_t>(r * t.columns + c);
                JsonValue cell = JsonValue::Object();
                if (i < t.cells.size() && t.cells[i]) {
                    const ShapeModel& s = *t.cells[i];
                    if (s.id != 0) cell.Set(u"id", JsonValue::Integer(s.id));
                    if (!s.name.empty()) cell.Set(u"name", Str(s.name));
                    WriteBox(cell, s, DefaultCellBox(shape, t.rows, t.columns, r, c));
                    WriteFrame(cell, s, true);
                    if (s.deleted) cell.Set(u"deleted", JsonValue::Bool(true));
                }
                anyCell = anyCell || !cell.Members().empty();
                row.Push(cell.Members().empty() ? Str(u"") : Shorten(std::move(cell)));
            }
            rows.Push(std::move(row));
        }
        if (anyCell) {
            o.Set(u"cells", std::move(rows));
        } else {
            o.Set(u"rows", JsonValue::Integer(t.rows));
            o.Set(u"columns", JsonValue::Integer(t.columns));
        }
        JsonValue merges = JsonValue::Array();
        const auto at = [&](std::size_t i) {
            return i < t.mergedInto.size() ? t.mergedInto[i] : -1;
        };
        for (std::int32_t p = 0; p < t.rows * t.columns; ++p) {
            if (at(static_cast<std::size_t>(p)) != -1) continue;
            std::int32_t lastRow = p / t.columns, lastColumn = p % t.columns;
            bool merged = false;
            for (std::int32_t q = 0; q < t.rows * t.columns; ++q) {
                if (at(static_cast<std::size_t>(q)) != p) continue;
                merged = true;
                lastRow = std::max(lastRow, q / t.columns);
                lastColumn = std::max(lastColumn, q % t.columns);
            }
            if (!merged) continue;
            JsonValue m = JsonValue::Object();
            m.Set(u"row", JsonValue::Integer(p / t.columns + 1));
            m.Set(u"column", JsonValue::Integer(p % t.columns + 1));
            if (lastRow > p / t.columns) {
                m.Set(u"rows", JsonValue::Integer(lastRow - p / t.columns + 1));
            }
            if (lastColumn > p % t.columns) {
                m.Set(u"columns", JsonValue::Integer(lastColumn - p % t.columns + 1));
            }
            merges.Push(std::move(m));
        }
        if (!merges.Items().empty()) o.Set(u"merges", std::move(merges));
        return o;
    }

    // --- Charts ---

    static JsonValue WriteLabel(const ChartLabelModel& label) {
        if (label.hasText && label.hasCaption && label.hasTextFrame2) return Str(label.text);
        JsonValue o = JsonValue::Object();
        WriteLabelFields(o, label);
        return o;
    }

    static void WriteLabelFields(JsonValue& o, const ChartLabelModel& label) {
        if (!label.text.empty()) o.Set(u"text", Str(label.text));
        if (!label.hasText) o.Set(u"hasText", JsonValue::Bool(false));
        if (!label.hasCaption) o.Set(u"hasCaption", JsonValue::Bool(false));
        if (!label.hasTextFrame2) o.Set(u"hasTextFrame2", JsonValue::Bool(false));
    }

    static void WriteTitled(JsonValue& o, std::u16string_view key, std::u16string_view flagKey,
                            bool flag, const ChartLabelModel& label) {
        const bool written = !SameLabel(label, ChartLabelModel());
        if (written) o.Set(key, WriteLabel(label));
        if (flag != written) o.Set(flagKey, JsonValue::Bool(flag));
    }

    static JsonValue WriteChart(const ChartModel& chart) {
        const ChartModel d;
        JsonValue o = JsonValue::Object();
        WriteTitled(o, u"title", u"hasTitle", chart.hasTitle, chart.title);
        if (chart.hasHasAxis != d.hasHasAxis) {
            o.Set(u"hasHasAxis", JsonValue::Bool(chart.hasHasAxis));
        }
        if (!chart.axes.empty()) {
            JsonValue axes = JsonValue::Array();
            for (const AxisModel& axis : chart.axes) {
                const AxisModel da;
                JsonValue a = JsonValue::Object();
                if (axis.type != da.type) a.Set(u"type", EnumValue(axis.type, kAxisTypes));
                if (axis.group != da.group) a.Set(u"group", EnumValue(axis.group, kAxisGroups));
                WriteTitled(a, u"title", u"hasTitle", axis.hasTitle, axis.title);
                WriteTitled(a, u"displayUnitLabel", u"hasDisplayUnitLabel",
                            axis.hasDisplayUnitLabel, axis.displayUnitLabel);
                axes.Push(std::move(a));
            }
            o.Set(u"axes", std::move(axes));
        }
        if (!chart.axisCategoryNames.empty()) {
            JsonValue names = JsonValue::Array();
            for (const auto& name : chart.axisCategoryNames)
                names.Push(Str(name));
            o.Set(u"axisCategoryNames", std::move(names));
        }
        if (chart.seriesCollectionAsProperty != d.seriesCollectionAsProperty) {
            o.Set(u"seriesCollectionAsProperty", JsonValue::Bool(chart.seriesCollectionAsProperty));
        }
        if (chart.xValuesTwoDimensional != d.xValuesTwoDimensional) {
            o.Set(u"xValuesTwoDimensional", JsonValue::Bool(chart.xValuesTwoDimensional));
        }
        if (!chart.series.empty()) {
            JsonValue series = JsonValue::Array();
            for (const SeriesModel& s : chart.series)
                series.Push(WriteSeries(s));
            o.Set(u"series", std::move(series));
        }
        if (chart.hasChartData != d.hasChartData) {
            o.Set(u"hasChartData", JsonValue::Bool(chart.hasChartData));
        }
        if (chart.hasIsLinked != d.hasIsLinked) {
            o.Set(u"hasIsLinked", JsonValue::Bool(chart.hasIsLinked));
        }
        if (chart.isLinked != d.isLinked) o.Set(u"isLinked", JsonValue::Bool(chart.isLinked));
        JsonValue workbook = WriteWorkbook(chart.workbook);
        if (!workbook.Members().empty()) o.Set(u"workbook", std::move(workbook));
        if (chart.activated != d.activated) o.Set(u"activated", JsonValue::Bool(chart.activated));
        if (chart.refreshes != d.refreshes) {
            o.Set(u"refreshes", JsonValue::Integer(chart.refreshes));
        }
        return o;
    }

    static JsonValue WriteSeries(const SeriesModel& s) {
        JsonValue o = JsonValue::Object();
        if (!s.name.empty()) o.Set(u"name", Str(s.name));
        if (!s.formula.empty()) o.Set(u"formula", Str(s.formula));
        if (!s.categories.empty()) {
            JsonValue categories = JsonValue::Array();
            for (std::size_t i = 0; i < s.categories.size(); ++i) {
                const bool isNumber = i < s.categoryIsNumber.size() && s.categoryIsNumber[i];
                categories.Push(WriteCategory(s.categories[i], isNumber));
            }
            o.Set(u"categories", std::move(categories));
        }
        if (s.hasDataLabels != !s.dataLabels.empty()) {
            o.Set(u"hasDataLabels", JsonValue::Bool(s.hasDataLabels));
        }
        if (!s.dataLabels.empty()) {
            JsonValue labels = JsonValue::Array();
            for (const DataLabelModel& l : s.dataLabels) {
                const DataLabelModel d;
                JsonValue lo = JsonValue::Object();
                WriteLabelFields(lo, l.label);
                const auto flag = [&](std::u16string_view key, bool value, bool def) {
                    if (value != def) lo.Set(key, JsonValue::Bool(value));
                };
                flag(u"showValue", l.showValue, d.showValue);
                flag(u"showPercentage", l.showPercentage, d.showPercentage);
                flag(u"showCategoryName", l.showCategoryName, d.showCategoryName);
                flag(u"showSeriesName", l.showSeriesName, d.showSeriesName);
                flag(u"hasShowBubbleSize", l.hasShowBubbleSize, d.hasShowBubbleSize);
                flag(u"showBubbleSize", l.showBubbleSize, d.showBubbleSize);
                labels.Push(Shorten(std::move(lo)));
            }
            o.Set(u"dataLabels", std::move(labels));
        }
        return o;
    }

    // A numeric category as a JSON number when that number reads back as the
    // same text; otherwise spelled out.
    static JsonValue WriteCategory(const std::u16string& text, bool isNumber) {
        if (!isNumber) return Str(text);
        const std::string utf8 = Utf8(text);
        const std::optional<JsonValue> number = ParseJson(utf8);
        if (number && number->IsNumber() && number->NumberText() == utf8) return *number;
        JsonValue o = JsonValue::Object();
        o.Set(u"text", Str(text));
        o.Set(u"isNumber", JsonValue::Bool(true));
        return o;
    }

    static JsonValue WriteWorkbook(const WorkbookModel& book) {
        const WorkbookModel d;
        JsonValue o = JsonValue::Object();
        if (book.name != d.name) o.Set(u"name", Str(book.name));
        bool defaultSheets = book.sheets.size() == d.sheets.size();
        for (std::size_t i = 0; defaultSheets && i < book.sheets.size(); ++i)
            defaultSheets = SameSheet(book.sheets[i], d.sheets[i]);
        if (!defaultSheets) {
            JsonValue sheets = JsonValue::Array();
            for (const SheetModel& sheet : book.sheets)
                sheets.Push(WriteSheet(sheet));
            o.Set(u"sheets", std::move(sheets));
        }
        const auto integer = [&](std::u16string_view key, std::int32_t value, std::int32_t def) {
            if (value != def) o.Set(key, JsonValue::Integer(value));
        };
        const auto flag = [&](std::u16string_view key, bool value, bool def) {
            if (value != def) o.Set(key, JsonValue::Bool(value));
        };
        integer(u"windowCount", book.windowCount, d.windowCount);
        flag(u"windowVisible", book.windowVisible, d.windowVisible);
        if (book.windowCaption != d.windowCaption) {
            o.Set(u"windowCaption", Str(book.windowCaption));
        }
        integer(u"otherWorkbooks", book.otherWorkbooks, d.otherWorkbooks);
        flag(u"screenUpdating", book.screenUpdating, d.screenUpdating);
        flag(u"appVisible", book.appVisible, d.appVisible);
        flag(u"open", book.open, d.open);
        integer(u"saves", book.saves, d.saves);
        integer(u"closes", book.closes, d.closes);
        return o;
    }

    static JsonValue WriteSheet(const SheetModel& sheet) {
        JsonValue o = JsonValue::Object();
        if (sheet.name != SheetModel().name) o.Set(u"name", Str(sheet.name));
        if (!sheet.cells.empty()) {
            JsonValue cells = JsonValue::Object();
            for (const auto& [place, cell] : sheet.cells) {
                const std::u16string name = CellName(place.first, place.second);
                const bool plain = cell.shownText.empty() && !cell.hasFormula;
                if (plain && !cell.isNumber && cell.number == 0) {
                    cells.Set(name, Str(cell.text));
                } else if (plain && cell.isNumber && cell.text.empty()) {
                    cells.Set(name, JsonValue::Number(cell.number));
                } else {
                    JsonValue c = JsonValue::Object();
                    if (!cell.text.empty()) c.Set(u"text", Str(cell.text));
                    if (cell.isNumber || cell.number != 0) {
                        c.Set(u"number", JsonValue::Number(cell.number));
                    }
                    if (!cell.isNumber && cell.number != 0) {
                        c.Set(u"isNumber", JsonValue::Bool(false));
                    }
                    if (!cell.shownText.empty()) c.Set(u"shownText", Str(cell.shownText));
                    if (cell.hasFormula) c.Set(u"hasFormula", JsonValue::Bool(true));
                    cells.Set(name, std::move(c));
                }
            }
            o.Set(u"cells", std::move(cells));
        }
        return o;
    }

    // --- SmartArt ---

    static JsonValue WriteSmartArt(const SmartArtModel& art) {
        JsonValue o = JsonValue::Object();
        if (!art.usable) o.Set(u"usable", JsonValue::Bool(false));
        if (!art.nodes.empty()) {
            JsonValue nodes = JsonValue::Array();
            for (const SmartArtNodeModel& node : art.nodes)
                nodes.Push(WriteNode(node));
            o.Set(u"nodes", std::move(nodes));
        }
        return o;
    }

    static JsonValue WriteNode(const SmartArtNodeModel& node) {
        if (node.children.empty()) return Str(node.text);
        JsonValue o = JsonValue::Object();
        if (!node.text.empty()) o.Set(u"text", Str(node.text));
        JsonValue children = JsonValue::Array();
        for (const SmartArtNodeModel& child : node.children)
            children.Push(WriteNode(child));
        o.Set(u"children", std::move(children));
        return o;
    }

    // --- Windows ---

    static bool IsEmptySelection(const SelectionModel& s) {
        const SelectionModel d;
        return s.type == d.type && s.slides.empty() && s.shapes.empty() && s.childShapes.empty() &&
               !s.textShape && s.textStart == d.textStart && s.textLength == d.textLength;
    }

    JsonValue WriteWindow(const WindowModel& w, const PresentationModel& deck) const {
        JsonValue o = JsonValue::Object();
        if (w.currentSlide != 1) o.Set(u"currentSlide", JsonValue::Integer(w.currentSlide));
        const auto current = static_cast<std::size_t>(w.currentSlide - 1);
        const std::int32_t currentId =
            current < deck.slides.size() ? deck.slides[current]->slideId : 0;
        if (!IsEmptySelection(w.selection)) {
            const SelectionModel& sel = w.selection;
            JsonValue s = JsonValue::Object();
            JsonValue slides = JsonValue::Array();
            for (const auto& slide : sel.slides) {
                const std::int32_t index = deck.IndexOf(slide.get());
                if (index > 0) slides.Push(JsonValue::Integer(slide->slideId));
            }
            const auto refs = [&](const std::vector<std::shared_ptr<ShapeModel>>& shapes) {
                JsonValue list = JsonValue::Array();
                for (const auto& shape : shapes) {
                    JsonValue ref = ShapeRef(shape.get(), deck, currentId);
                    if (!ref.IsNull()) list.Push(std::move(ref));
                }
                return list;
            };
            JsonValue shapes = refs(sel.shapes);
            JsonValue childShapes = refs(sel.childShapes);
            JsonValue textShape =
                sel.textShape ? ShapeRef(sel.textShape.get(), deck, currentId) : JsonValue();
            const SelectionType inferred = !textShape.IsNull() ? SelectionType::Text
                                           : !shapes.Items().empty() || !childShapes.Items().empty()
                                               ? SelectionType::Shapes
                                           : !slides.Items().empty() ? SelectionType::Slides
                                                                     : SelectionType::None;
            if (sel.type != inferred) {
                s.Set(u"type", EnumValue(static_cast<std::int32_t>(sel.type), kSelectionTypes));
            }
            if (!slides.Items().empty()) s.Set(u"slides", std::move(slides));
            if (!shapes.Items().empty()) s.Set(u"shapes", std::move(shapes));
            if (!childShapes.Items().empty()) s.Set(u"childShapes", std::move(childShapes));
            if (!textShape.IsNull()) s.Set(u"textShape", std::move(textShape));
            if (sel.textStart != 1) s.Set(u"textStart", JsonValue::Integer(sel.textStart));
            if (sel.textLength != 0) s.Set(u"textLength", JsonValue::Integer(sel.textLength));
            if (!s.Members().empty()) o.Set(u"selection", std::move(s));
        }
        return o;
    }

    // Where a shape is, as a reference; null when it is in no slide's lists.
    static JsonValue ShapeRef(const ShapeModel* target, const PresentationModel& deck,
                              std::int32_t currentId) {
        for (const auto& slide : deck.slides) {
            for (const bool notes : {false, true}) {
                JsonValue ref;
                if (!Locate(target, notes ? slide->notesShapes : slide->shapes, ref)) continue;
                JsonValue o = JsonValue::Object();
                if (slide->slideId != currentId) {
                    o.Set(u"slide", JsonValue::Integer(slide->slideId));
                }
                if (notes) o.Set(u"notes", JsonValue::Bool(true));
                for (const JsonMember& m : ref.Members())
                    o.Set(m.key, m.value);
                return o;
            }
        }
        return JsonValue();
    }

    static bool Locate(const ShapeModel* target,
                       const std::vector<std::shared_ptr<ShapeModel>>& shapes, JsonValue& ref) {
        for (const auto& shape : shapes) {
            if (shape.get() == target) {
                ref = JsonValue::Object();
                ref.Set(u"shape", JsonValue::Integer(shape->id));
                return true;
            }
            if (shape->table) {
                const TableModel& t = *shape->table;
                for (std::size_t i = 0; i < t.cells.size() && t.columns > 0; ++i) {
                    if (t.cells[i].get() != target) continue;
                    ref = JsonValue::Object();
                    ref.Set(u"shape", JsonValue::Integer(shape->id));
                    ref.Set(u"row",
                            JsonValue::Integer(static_cast<std::int64_t>(i) / t.columns + 1));
                    ref.Set(u"column",
                            JsonValue::Integer(static_cast<std::int64_t>(i) % t.columns + 1));
                    return true;
                }
            }
            if (Locate(target, shape->children, ref)) return true;
        }
        return false;
    }

    std::int64_t maxSlideId_ = kFirstSlideId - 1;
    std::int64_t maxShapeId_ = kFirstShapeId - 1;
};

}  // namespace

std::string WriteDeck(const DeckContents& contents) {
    const PresentationModel empty;
    return DeckWriter().Write(contents.deck ? *contents.deck : empty, contents);
}

std::string WriteDeck(const PresentationModel& deck, HostKind kind) {
    DeckContents contents;
    contents.kind = kind;
    return DeckWriter().Write(deck, contents);
}

bool SaveDeckFile(const std::u16string& path, const DeckContents& contents, std::string* error) {
    const std::string text = WriteDeck(contents);
    const std::u16string temp = path + u".tmp";
    const auto fail = [&](const char* what) {
        platform::RemoveFile(temp);
        if (error) *error = Utf8(path) + ": " + what;
        return false;
    };
    if (!platform::CreateEmptyFile(temp)) return fail("can't create the temporary file beside it");
    if (!platform::AppendToFile(temp, text.data(), text.size())) {
        return fail("can't write the temporary file beside it");
    }
    if (!platform::MoveFileReplacing(temp, path)) return fail("can't replace the file");
    return true;
}

std::shared_ptr<PresentationModel> OpenDeck(SimHost& host, const DeckContents& contents) {
    if (!contents.deck) return nullptr;
    ApplicationModel& app = host.App();
    if (!contents.appName.empty()) app.name = contents.appName;
    if (!contents.appVersion.empty()) app.version = contents.appVersion;
    if (contents.uiLanguageId != 0) app.uiLanguageId = contents.uiLanguageId;
    host.AddPresentation(contents.deck);
    const std::size_t first = app.windows.size() - 1;
    for (std::size_t i = 0; i < contents.windows.size(); ++i) {
        std::shared_ptr<WindowModel> window;
        if (i == 0) {
            window = app.windows[first];
        } else {
            window = std::make_shared<WindowModel>();
            window->hwnd = 0x20000 + static_cast<std::intptr_t>(app.windows.size()) * 0x10;
            app.windows.push_back(window);
        }
        window->presentation = contents.deck;
        window->currentSlide = contents.windows[i].currentSlide;
        window->selection = contents.windows[i].selection;
    }
    const std::int32_t windows =
        static_cast<std::int32_t>(std::max<std::size_t>(1, contents.windows.size()));
    if (contents.activeWindow == 0) {
        app.activeWindow = 0;
    } else if (contents.activeWindow <= windows) {
        app.activeWindow = static_cast<std::int32_t>(first) + contents.activeWindow;
    }
    return contents.deck;
}

DeckContents CaptureDeck(SimHost& host, const std::shared_ptr<PresentationModel>& deck) {
    DeckContents contents;
    contents.deck = deck;
    contents.kind = host.Kind();
    SimHost reference(host.Kind());  // the defaults of a host of this kind
    const ApplicationModel& app = host.App();
    if (app.name != reference.App().name) contents.appName = app.name;
    if (app.version != reference.App().version) contents.appVersion = app.version;
    if (app.uiLanguageId != reference.App().uiLanguageId) {
        contents.uiLanguageId = app.uiLanguageId;
    }
    contents.activeWindow = 0;
    for (std::size_t i = 0; i < app.windows.size(); ++i) {
        if (app.windows[i]->presentation != deck) continue;
        contents.windows.push_back(*app.windows[i]);
        if (app.activeWindow == static_cast<std::int32_t>(i + 1)) {
            contents.activeWindow = static_cast<std::int32_t>(contents.windows.size());
        }
    }
    if (contents.windows.empty()) contents.activeWindow = 1;
    return contents;
}

}  // namespace qb::sim
