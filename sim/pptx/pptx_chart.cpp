#include "sim/pptx/pptx_chart.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cstring>
#include <map>
#include <sstream>

#include "charts/chart_slots.h"
#include "foundation/char_class.h"
#include "foundation/text.h"
#include "sim/pptx/xlsx_book.h"
#include "sim/pptx/xml_nodes.h"

namespace qb::pptx {

using namespace xml;

namespace {

constexpr const char* kChartNamespace = "http://schemas.openxmlformats.org/drawingml/2006/chart";
// Points of one series read at most: a longer cache is read this far.
constexpr std::size_t kMaxPoints = 100000;

constexpr unsigned kParseOptions =
    pugi::parse_default | pugi::parse_declaration | pugi::parse_ws_pcdata;

// A truth value element: its val attribute defaults to true.
bool Flag(pugi::xml_node node) {
    if (!node) return false;
    const pugi::xml_attribute val = Attr(node, "val");
    return !val || std::strcmp(val.value(), "1") == 0 || std::strcmp(val.value(), "true") == 0;
}

bool EndsWith(const std::string& text, const char* end) {
    const std::size_t n = std::strlen(end);
    return text.size() >= n && text.compare(text.size() - n, n, end) == 0;
}

std::string NamespaceOf(pugi::xml_node node) {
    const std::string prefix = PrefixOf(node);
    const std::string attribute =
        prefix.empty() ? "xmlns" : "xmlns:" + prefix.substr(0, prefix.size() - 1);
    return node.attribute(attribute.c_str()).value();
}

// Text as XML may hold it: characters XML 1.0 forbids are dropped.
std::string XmlText(std::u16string_view text) {
    std::u16string kept;
    for (char16_t c : text) {
        if (c >= 0x20 || c == u'\t' || c == u'\n') kept.push_back(c);
    }
    return Utf16ToUtf8(kept);
}

// A rich text's paragraphs joined by CR, its breaks as VT, as a text frame
// of the host shows them.
std::u16string RichText(pugi::xml_node rich) {
    std::u16string text;
    bool first = true;
    for (pugi::xml_node p : Children(rich, "p")) {
        if (!first) text += u'\r';
        first = false;
        for (pugi::xml_node c : p.children()) {
            if (Is(c, "r") || Is(c, "fld")) text += Utf8ToUtf16(Child(c, "t").text().get());
            if (Is(c, "br")) text += u'\v';
        }
    }
    return text;
}

bool HasField(pugi::xml_node rich) {
    for (pugi::xml_node p : Children(rich, "p")) {
        if (Child(p, "fld")) return true;
    }
    return false;
}

// A new text into a rich text: one paragraph for each CR-separated line,
// each line in one run; every run takes the properties of the text's first
// run, and the paragraphs keep their own properties.
void WriteRich(pugi::xml_node rich, const std::u16string& text) {
    std::vector<pugi::xml_node> paragraphs = Children(rich, "p");
    pugi::xml_node model;  // the first run's properties
    for (pugi::xml_node p : paragraphs) {
        for (pugi::xml_node c : p.children()) {
            if ((Is(c, "r") || Is(c, "fld")) && Child(c, "rPr")) {
                model = Child(c, "rPr");
                break;
            }
        }
        if (model) break;
    }
    pugi::xml_document keep;
    if (model) model = keep.append_copy(model);
    const std::string prefix =
        paragraphs.empty() ? PrefixOf(Child(rich, "bodyPr")) : PrefixOf(paragraphs.front());
    std::vector<std::u16string> lines(1);
    for (char16_t c : text) {
        if (c == u'\r') {
            lines.emplace_back();
        } else {
            lines.back() += c;
        }
    }
    for (std::size_t k = 0; k < lines.size(); ++k) {
        pugi::xml_node p;
        if (k < paragraphs.size()) {
            p = paragraphs[k];
        } else if (!paragraphs.empty()) {
            p = rich.insert_copy_after(paragraphs.front(), paragraphs.back());
            paragraphs.push_back(p);
        } else {
            p = rich.append_child((prefix + "p").c_str());
            paragraphs.push_back(p);
        }
        for (pugi::xml_node c = p.first_child(); c;) {
            const pugi::xml_node next = c.next_sibling();
            if (Is(c, "r") || Is(c, "br") || Is(c, "fld")) p.remove_child(c);
            c = next;
        }
        const pugi::xml_node end = Child(p, "endParaRPr");
        auto add = [&](const char* local) {
            const std::string name = prefix + local;
            return end ? p.insert_child_before(name.c_str(), end) : p.append_child(name.c_str());
        };
        std::size_t from = 0;
        const std::u16string& line = lines[k];
        for (;;) {
            const std::size_t at = std::min(line.find(u'\v', from), line.size());
            if (at > from || at == line.size()) {
                pugi::xml_node r = add("r");
                if (model) r.append_copy(model).set_name((prefix + "rPr").c_str());
                pugi::xml_node t = r.append_child((prefix + "t").c_str());
                t.append_child(pugi::node_pcdata)
                    .set_value(XmlText(line.substr(from, at - from)).c_str());
            }
            if (at == line.size()) break;
            pugi::xml_node br = add("br");
            if (model) br.append_copy(model).set_name((prefix + "rPr").c_str());
            from = at + 1;
        }
    }
    for (std::size_t k = lines.size(); k < paragraphs.size(); ++k)
        rich.remove_child(paragraphs[k]);
}

// Where a text of the chart lives: a rich text, or the value of a cache
// point or a literal.
struct TextXml {
    pugi::xml_node rich;
    pugi::xml_node v;

    explicit operator bool() const { return rich || v; }
    void Write(const std::u16string& text) const {
        if (rich) {
            WriteRich(rich, text);
        } else if (v) {
            v.text().set(XmlText(text).c_str());
        }
    }
};

// The text of a c:tx: rich text, a reference's cached text, or a literal.
TextXml ReadTx(pugi::xml_node tx, std::u16string& text) {
    TextXml x;
    text.clear();
    if (const pugi::xml_node rich = Child(tx, "rich")) {
        x.rich = rich;
        text = RichText(rich);
    } else if (const pugi::xml_node ref = Child(tx, "strRef")) {
        for (pugi::xml_node pt : Children(Child(ref, "strCache"), "pt")) {
            if (Attr(pt, "idx").as_ullong() == 0) x.v = Child(pt, "v");
        }
        text = Utf8ToUtf16(x.v.text().get());
    } else if (const pugi::xml_node v = Child(tx, "v")) {
        x.v = v;
        text = Utf8ToUtf16(v.text().get());
    }
    return x;
}

// A cache's points by index; `values` holds each point's c:v.
struct Points {
    std::vector<std::u16string> texts;
    std::vector<pugi::xml_node> values;
};

Points ReadPoints(pugi::xml_node cache) {
    Points out;
    std::size_t count =
        std::min<std::size_t>(Attr(Child(cache, "ptCount"), "val").as_ullong(), kMaxPoints);
    const std::vector<pugi::xml_node> pts = Children(cache, "pt");
    for (pugi::xml_node pt : pts) {
        const unsigned long long idx = Attr(pt, "idx").as_ullong();
        if (idx < kMaxPoints) count = std::max<std::size_t>(count, idx + 1);
    }
    out.texts.resize(count);
    out.values.resize(count);
    for (pugi::xml_node pt : pts) {
        const unsigned long long idx = Attr(pt, "idx").as_ullong();
        if (idx >= count) continue;
        out.values[idx] = Child(pt, "v");
        out.texts[idx] = Utf8ToUtf16(out.values[idx].text().get());
    }
    return out;
}

struct CellAt {
    bool valid = false;
    std::u16string sheet;
    std::int32_t row = 0, column = 0;
};

// One rectangular range of one sheet, as a chart's reference names it:
// "Sheet1!$A$2:$A$5", "'Q1 ''24'''!B2".
struct RangeRef {
    std::u16string sheet;
    std::string sheetPart;  // the reference up to and with its "!", as written
    std::int32_t row1 = 0, column1 = 0, row2 = 0, column2 = 0;

    CellAt At(std::int32_t row, std::int32_t column) const { return {true, sheet, row, column}; }
};

bool ParseRange(std::string text, RangeRef& out) {
    if (!text.empty() && text[0] == '=') text.erase(0, 1);
    const auto bang = text.rfind('!');
    if (bang != std::string::npos) {
        out.sheetPart = text.substr(0, bang + 1);
        std::string sheet = text.substr(0, bang);
        if (sheet.size() >= 2 && sheet.front() == '\'' && sheet.back() == '\'') {
            std::string plain;
            for (std::size_t i = 1; i + 1 < sheet.size(); ++i) {
                plain += sheet[i];
                if (sheet[i] == '\'' && sheet[i + 1] == '\'') ++i;
            }
            sheet = plain;
        }
        out.sheet = Utf8ToUtf16(sheet);
        text = text.substr(bang + 1);
    }
    const auto colon = text.find(':');
    if (colon == std::string::npos) {
        if (!ParseCellName(text, out.row1, out.column1)) return false;
        out.row2 = out.row1, out.column2 = out.column1;
        return true;
    }
    return ParseCellName(text.substr(0, colon), out.row1, out.column1) &&
           ParseCellName(text.substr(colon + 1), out.row2, out.column2) && out.row1 <= out.row2 &&
           out.column1 <= out.column2;
}

// The cell behind point `index` of a one-row or one-column range.
CellAt PointCell(const RangeRef& range, std::size_t index) {
    const auto i = static_cast<std::int32_t>(index);
    if (range.column1 == range.column2 && range.row1 + i <= range.row2) {
        return range.At(range.row1 + i, range.column1);
    }
    if (range.row1 == range.row2 && range.column1 + i <= range.column2) {
        return range.At(range.row1, range.column1 + i);
    }
    return {};
}

std::string RangeText(const RangeRef& r) {
    return r.sheetPart + "$" + ColumnLetters(r.column1) + "$" + std::to_string(r.row1) + ":$" +
           ColumnLetters(r.column2) + "$" + std::to_string(r.row2);
}

const sim::SheetCellModel* FindCell(const sim::WorkbookModel& book, const CellAt& at) {
    for (const sim::SheetModel& sheet : book.sheets) {
        if (at.sheet.empty() || EqualsIgnoreCase(sheet.name, at.sheet)) {
            return sheet.Cell(at.row, at.column);
        }
    }
    return nullptr;
}

struct SeriesXml {
    TextXml name;
    CellAt nameCell;
    std::vector<pugi::xml_node> categoryValues;  // the c:v of each text point; null for numbers
    std::vector<CellAt> categoryCells;
    // The outer levels of a category list of several levels: the model holds
    // only the innermost, so these go back from the cells alone.
    struct Outer {
        pugi::xml_node v;
        CellAt cell;
        std::u16string text;
        std::string place;
    };
    std::vector<Outer> outer;
    std::vector<pugi::xml_node> labels;  // the rich text of each hand-typed data label
};

struct AxisXml {
    TextXml title, unit;
};

struct ChartRecord {
    std::string part, place, embedding;
    pugi::xml_document doc;
    std::shared_ptr<sim::ChartModel> chart;
    sim::ChartModel saved;  // what the files hold now
    TextXml title;
    std::vector<AxisXml> axes;  // parallel to the model's axes
    std::vector<SeriesXml> series;
    std::unique_ptr<XlsxBook> book;  // null without a workbook that could be read
};

}  // namespace

struct PptxCharts::State {
    ZipLimits limits;
    std::vector<std::unique_ptr<ChartRecord>> records;
    std::vector<std::string> problems;
    std::size_t written = 0;

    void ReadAxes(pugi::xml_node plotArea, ChartRecord& record, sim::ChartModel& chart) {
        std::map<std::string, pugi::xml_node> byId;
        for (pugi::xml_node c : plotArea.children()) {
            if (Is(c, "catAx") || Is(c, "valAx") || Is(c, "dateAx") || Is(c, "serAx")) {
                byId[Attr(Child(c, "axId"), "val").value()] = c;
            }
        }
        std::vector<std::string> primary;
        for (pugi::xml_node group : plotArea.children()) {
            if (!EndsWith(Local(group.name()), "Chart")) continue;
            std::vector<pugi::xml_node> axes;
            std::vector<std::string> ids;
            for (pugi::xml_node id : Children(group, "axId")) {
                ids.push_back(Attr(id, "val").value());
                const auto it = byId.find(ids.back());
                if (it != byId.end()) axes.push_back(it->second);
            }
            if (axes.empty()) continue;
            if (primary.empty()) primary = ids;
            const std::int32_t axisGroup = ids == primary ? 1 : 2;
            const bool hasCategoryAxis =
                std::any_of(axes.begin(), axes.end(),
                            [](pugi::xml_node a) { return Is(a, "catAx") || Is(a, "dateAx"); });
            for (std::size_t k = 0; k < axes.size(); ++k) {
                const pugi::xml_node a = axes[k];
                // Two value axes (scatter, bubble): the first is the host's category axis.
                const std::int32_t type = Is(a, "catAx") || Is(a, "dateAx") ? 1
                                          : Is(a, "serAx")                  ? 3
                                          : hasCategoryAxis                 ? 2
                                          : k == 0                          ? 1
                                                                            : 2;
                if (type == 3 || Flag(Child(a, "delete"))) continue;
                const bool known =
                    std::any_of(chart.axes.begin(), chart.axes.end(), [&](const sim::AxisModel& m) {
                        return m.type == type && m.group == axisGroup;
                    });
                if (known) continue;
                sim::AxisModel axis;
                axis.type = type;
                axis.group = axisGroup;
                AxisXml xml;
                if (const pugi::xml_node title = Child(a, "title")) {
                    axis.hasTitle = true;
                    xml.title = ReadTx(Child(title, "tx"), axis.title.text);
                }
                if (const pugi::xml_node label = Path(a, {"dispUnits", "dispUnitsLbl"})) {
                    axis.hasDisplayUnitLabel = true;
                    xml.unit = ReadTx(Child(label, "tx"), axis.displayUnitLabel.text);
                }
                chart.axes.push_back(axis);
                record.axes.push_back(xml);
            }
        }
    }

    // Categories from a c:cat or c:xVal; returns its reference for the formula.
    std::string ReadCategories(pugi::xml_node cat, sim::SeriesModel& series, SeriesXml& xml,
                               const std::string& place) {
        std::string reference;
        Points points;
        bool numbers = false;
        RangeRef range;
        bool ranged = false;
        if (const pugi::xml_node ref = Child(cat, "strRef")) {
            reference = Child(ref, "f").text().get();
            points = ReadPoints(Child(ref, "strCache"));
            ranged = ParseRange(reference, range);
        } else if (const pugi::xml_node num = Child(cat, "numRef")) {
            reference = Child(num, "f").text().get();
            points = ReadPoints(Child(num, "numCache"));
            numbers = true;
        } else if (const pugi::xml_node multi = Child(cat, "multiLvlStrRef")) {
            reference = Child(multi, "f").text().get();
            const std::vector<pugi::xml_node> levels =
                Children(Child(multi, "multiLvlStrCache"), "lvl");
            if (!levels.empty()) points = ReadPoints(levels.front());
            // The innermost level is the first; in the sheet it is the last
            // column (or row) of the range. The formula names that column
            // alone, as the model's categories are that level.
            RangeRef whole;
            if (ParseRange(reference, whole) && levels.size() > 1) {
                const auto n = static_cast<std::int32_t>(levels.size());
                const bool byColumn = whole.column2 - whole.column1 + 1 == n;
                const bool byRow = !byColumn && whole.row2 - whole.row1 + 1 == n;
                if (byColumn || byRow) {
                    range = whole;
                    if (byColumn) range.column1 = whole.column2;
                    if (byRow) range.row1 = whole.row2;
                    ranged = true;
                    reference = RangeText(range);
                    for (std::int32_t k = 1; k < n; ++k) {
                        RangeRef level = whole;
                        if (byColumn) level.column1 = level.column2 = whole.column2 - k;
                        if (byRow) level.row1 = level.row2 = whole.row2 - k;
                        const Points outer = ReadPoints(levels[static_cast<std::size_t>(k)]);
                        for (std::size_t i = 0; i < outer.values.size(); ++i) {
                            if (!outer.values[i]) continue;
                            xml.outer.push_back({outer.values[i], PointCell(level, i),
                                                 outer.texts[i],
                                                 place + " level " + std::to_string(k + 1) +
                                                     " category " + std::to_string(i + 1)});
                        }
                    }
                }
            }
        } else if (const pugi::xml_node lit = Child(cat, "strLit")) {
            points = ReadPoints(lit);
        } else if (const pugi::xml_node lit = Child(cat, "numLit")) {
            points = ReadPoints(lit);
            numbers = true;
        }
        series.categories = points.texts;
        series.categoryIsNumber.assign(points.texts.size(), numbers);
        xml.categoryValues =
            numbers ? std::vector<pugi::xml_node>(points.texts.size()) : points.values;
        xml.categoryCells.resize(points.texts.size());
        if (ranged) {
            for (std::size_t i = 0; i < points.texts.size(); ++i)
                xml.categoryCells[i] = PointCell(range, i);
        }
        return reference;
    }

    static void ReadLabels(pugi::xml_node ser, std::size_t pointCount, sim::SeriesModel& series,
                           SeriesXml& xml) {
        const pugi::xml_node labels = Child(ser, "dLbls");
        if (!labels) return;
        const bool deleted = Flag(Child(labels, "delete"));
        sim::DataLabelModel shown;
        auto flags = [](pugi::xml_node from, sim::DataLabelModel& into) {
            const auto one = [&](const char* local, bool& flag) {
                if (const pugi::xml_node n = Child(from, local)) flag = Flag(n);
            };
            one("showVal", into.showValue);
            one("showPercent", into.showPercentage);
            one("showCatName", into.showCategoryName);
            one("showSerName", into.showSeriesName);
            one("showBubbleSize", into.showBubbleSize);
        };
        if (!deleted) flags(labels, shown);
        std::size_t count = pointCount;
        const std::vector<pugi::xml_node> own = Children(labels, "dLbl");
        for (pugi::xml_node d : own) {
            const unsigned long long idx = Attr(Child(d, "idx"), "val").as_ullong();
            if (idx < kMaxPoints) count = std::max<std::size_t>(count, idx + 1);
        }
        series.dataLabels.assign(count, shown);
        xml.labels.assign(count, pugi::xml_node());
        for (pugi::xml_node d : own) {
            const unsigned long long idx = Attr(Child(d, "idx"), "val").as_ullong();
            if (idx >= count) continue;
            sim::DataLabelModel& label = series.dataLabels[idx];
            if (Flag(Child(d, "delete"))) {
                label = sim::DataLabelModel();
                continue;
            }
            flags(d, label);
            const pugi::xml_node rich = Path(d, {"tx", "rich"});
            if (!rich) continue;
            label.label.text = RichText(rich);
            xml.labels[idx] = rich;
            // Typed text without a field shows nothing of the data, whatever
            // flags the file left set; with a field it shows the data.
            if (!HasField(rich)) {
                const bool bubble = label.hasShowBubbleSize;
                label = sim::DataLabelModel();
                label.hasShowBubbleSize = bubble;
                label.label.text = RichText(rich);
            }
        }
        series.hasDataLabels = std::any_of(
            series.dataLabels.begin(), series.dataLabels.end(), [](const sim::DataLabelModel& l) {
                return !l.label.text.empty() || l.showValue || l.showPercentage ||
                       l.showCategoryName || l.showSeriesName || l.showBubbleSize;
            });
    }

    void ReadSeries(pugi::xml_node plotArea, ChartRecord& record, sim::ChartModel& chart) {
        for (pugi::xml_node group : plotArea.children()) {
            if (!EndsWith(Local(group.name()), "Chart")) continue;
            for (pugi::xml_node ser : Children(group, "ser")) {
                sim::SeriesModel series;
                SeriesXml xml;
                const std::string place =
                    record.place + ", series " + std::to_string(chart.series.size() + 1);
                std::string name;
                const pugi::xml_node tx = Child(ser, "tx");
                xml.name = ReadTx(tx, series.name);
                if (const pugi::xml_node ref = Child(tx, "strRef")) {
                    name = Child(ref, "f").text().get();
                    RangeRef range;
                    if (ParseRange(name, range)) xml.nameCell = PointCell(range, 0);
                } else if (Child(tx, "v")) {
                    std::string quoted = "\"";
                    for (char c : Utf16ToUtf8(series.name))
                        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
                    name = quoted + "\"";
                }
                pugi::xml_node cat = Child(ser, "cat");
                if (!cat) cat = Child(ser, "xVal");
                const std::string categories = ReadCategories(cat, series, xml, place);
                pugi::xml_node val = Child(ser, "val");
                if (!val) val = Child(ser, "yVal");
                const std::string values = Path(val, {"numRef", "f"}).text().get();
                const pugi::xml_node numbers =
                    Child(val, "numRef") ? Path(val, {"numRef", "numCache"}) : Child(val, "numLit");
                const std::size_t points = std::max<std::size_t>(
                    series.categories.size(),
                    std::min<std::size_t>(Attr(Child(numbers, "ptCount"), "val").as_ullong(),
                                          kMaxPoints));
                ReadLabels(ser, points, series, xml);
                // The formula the host shows, so that the run finds the cells.
                if ((name + categories + values).find('!') != std::string::npos) {
                    series.formula = Utf8ToUtf16(
                        "=SERIES(" + name + "," + categories + "," + values + "," +
                        std::to_string(Attr(Child(ser, "order"), "val").as_int() + 1) + ")");
                }
                chart.series.push_back(std::move(series));
                record.series.push_back(std::move(xml));
            }
        }
    }

    // The chart's data: a workbook embedded in the package, a linked file, or none.
    void ReadData(const ZipPackage& package, pugi::xml_node space, ChartRecord& record,
                  sim::ChartModel& chart) {
        chart.hasChartData = false;
        const std::string rels = RelsPathOf(record.part);
        const ZipPart* raw = package.Find(rels);
        if (!raw) return;
        pugi::xml_document doc;
        if (!doc.load_buffer(raw->bytes.data(), raw->bytes.size(), kParseOptions)) {
            problems.push_back(record.place + ": " + rels + ": broken XML; the chart has no data");
            return;
        }
        const std::string wanted = Attr(Child(space, "externalData"), "id").value();
        pugi::xml_node found;
        for (pugi::xml_node r : Children(doc.document_element(), "Relationship")) {
            const std::string type = r.attribute("Type").value();
            if (wanted.empty() ? EndsWith(type, "/package") : wanted == r.attribute("Id").value()) {
                found = r;
                break;
            }
        }
        if (!found) return;
        if (std::strcmp(found.attribute("TargetMode").value(), "External") == 0) {
            chart.hasChartData = true;
            chart.isLinked = true;  // the linked file is never opened
            return;
        }
        if (!EndsWith(found.attribute("Type").value(), "/package")) return;
        record.embedding = Resolve(record.part, found.attribute("Target").value());
        const ZipPart* embedded = package.Find(record.embedding);
        auto book = std::make_unique<XlsxBook>();
        const std::string error = embedded ? book->Read(embedded->bytes, limits, chart.workbook)
                                           : record.embedding + ": part missing";
        if (!error.empty()) {
            problems.push_back(record.place + ": the chart's workbook can't be read (" + error +
                               "); its caches are translated instead");
            return;
        }
        record.book = std::move(book);
        chart.hasChartData = true;
    }
};

PptxCharts::PptxCharts() : state_(std::make_unique<State>()) {}
PptxCharts::~PptxCharts() = default;

void PptxCharts::SetLimits(const ZipLimits& limits) {
    state_->limits = limits;
}

void PptxCharts::Read(const ZipPackage& package, const std::string& chartPart,
                      const std::shared_ptr<sim::ShapeModel>& shape, const std::string& place) {
    State& s = *state_;
    shape->chart = nullptr;
    for (const auto& record : s.records) {
        if (record->part == chartPart) {
            shape->chart = record->chart;  // two frames showing one chart
            return;
        }
    }
    const ZipPart* raw = chartPart.empty() ? nullptr : package.Find(chartPart);
    if (!raw) {
        s.problems.push_back(place + ": the chart's part is missing");
        return;
    }
    auto record = std::make_unique<ChartRecord>();
    record->part = chartPart;
    record->place = place;
    const pugi::xml_parse_result parsed =
        record->doc.load_buffer(raw->bytes.data(), raw->bytes.size(), kParseOptions);
    if (!parsed) {
        s.problems.push_back(place + ": " + chartPart + ": broken XML at byte " +
                             std::to_string(parsed.offset));
        return;
    }
    const pugi::xml_node space = record->doc.document_element();
    const pugi::xml_node chartNode = Child(space, "chart");
    if (!Is(space, "chartSpace") || NamespaceOf(space) != kChartNamespace || !chartNode) {
        s.problems.push_back(place + ": " + chartPart + ": not a chart this host reads");
        return;
    }
    auto chart = std::make_shared<sim::ChartModel>();
    if (const pugi::xml_node title = Child(chartNode, "title")) {
        chart->hasTitle = true;
        record->title = ReadTx(Child(title, "tx"), chart->title.text);
    }
    const pugi::xml_node plotArea = Child(chartNode, "plotArea");
    s.ReadAxes(plotArea, *record, *chart);
    s.ReadSeries(plotArea, *record, *chart);
    s.ReadData(package, space, *record, *chart);
    record->chart = chart;
    record->saved = *chart;
    shape->chart = chart;
    s.records.push_back(std::move(record));
}

std::string PptxCharts::Save(ZipPackage& package) {
    State& s = *state_;
    s.written = 0;
    for (const auto& owned : s.records) {
        ChartRecord& r = *owned;
        const sim::ChartModel& now = *r.chart;
        const sim::ChartModel& was = r.saved;
        bool xmlChanged = false;
        const auto put = [&](const TextXml& x, const std::u16string& before,
                             const std::u16string& after) {
            if (!x || after.empty() || after == before) return;
            x.Write(after);
            xmlChanged = true;
        };
        // A workbook cell the run changed, with its new text.
        const auto changedCell = [&](const CellAt& at, std::u16string& text) {
            if (!at.valid || !r.book || !now.hasChartData) return false;
            const sim::SheetCellModel* cell = FindCell(now.workbook, at);
            const sim::SheetCellModel* old = FindCell(was.workbook, at);
            if (!cell || cell->isNumber || cell->text.empty()) return false;
            if (old && !old->isNumber && old->text == cell->text) return false;
            text = cell->text;
            return true;
        };
        // A cache point takes what the chart objects now say, or else the
        // text its cell now holds; a point without words is never touched.
        const auto point = [&](pugi::xml_node v, const std::u16string& before,
                               const std::u16string& shown, const CellAt& at) {
            if (!v || HasNoWords(before)) return false;
            std::u16string next;
            if (!shown.empty() && shown != before) {
                next = shown;
            } else if (!changedCell(at, next)) {
                return false;
            }
            v.text().set(XmlText(next).c_str());
            xmlChanged = true;
            return true;
        };

        if (now.hasTitle) put(r.title, was.title.text, now.title.text);
        for (std::size_t a = 0; a < r.axes.size() && a < now.axes.size(); ++a) {
            put(r.axes[a].title, was.axes[a].title.text, now.axes[a].title.text);
            put(r.axes[a].unit, was.axes[a].displayUnitLabel.text,
                now.axes[a].displayUnitLabel.text);
        }
        // Category names put on the axis stand for every series that shared
        // the first series' categories.
        const bool axisNamesChanged =
            !now.axisCategoryNames.empty() && now.axisCategoryNames != was.axisCategoryNames;
        for (std::size_t k = 0; k < r.series.size() && k < now.series.size(); ++k) {
            SeriesXml& xml = r.series[k];
            const sim::SeriesModel& is = now.series[k];
            const sim::SeriesModel& before = was.series[k];
            if (xml.name.rich) {
                put(xml.name, before.name, is.name);
            } else {
                point(xml.name.v, before.name, is.name, xml.nameCell);
            }
            const bool sharesAxis = axisNamesChanged && !was.series.empty() &&
                                    before.categories == was.series[0].categories;
            for (std::size_t i = 0; i < xml.categoryValues.size() && i < before.categories.size();
                 ++i) {
                std::u16string shown = i < is.categories.size() ? is.categories[i] : u"";
                if (shown == before.categories[i] && sharesAxis &&
                    i < now.axisCategoryNames.size()) {
                    shown = now.axisCategoryNames[i];
                }
                point(xml.categoryValues[i], before.categories[i], shown, xml.categoryCells[i]);
            }
            for (SeriesXml::Outer& o : xml.outer) {
                if (point(o.v, o.text, u"", o.cell)) o.text = Utf8ToUtf16(o.v.text().get());
            }
            for (std::size_t i = 0; i < xml.labels.size() && i < is.dataLabels.size(); ++i) {
                if (!xml.labels[i]) continue;
                put(TextXml{xml.labels[i], {}}, before.dataLabels[i].label.text,
                    is.dataLabels[i].label.text);
            }
        }
        bool bookChanged = false;
        if (r.book && now.hasChartData) {
            std::string bytes;
            const std::string error = r.book->Write(now.workbook, bytes, bookChanged);
            if (!error.empty()) return r.place + ": the chart's workbook: " + error;
            if (bookChanged) package.Put(r.embedding, std::move(bytes));
        }
        if (xmlChanged) {
            std::ostringstream out;
            r.doc.save(out, "", pugi::format_raw, pugi::encoding_utf8);
            package.Put(r.part, out.str());
        }
        if (xmlChanged || bookChanged) ++s.written;
        r.saved = now;
    }
    return "";
}

std::size_t PptxCharts::ChartsWritten() const {
    return state_->written;
}

std::vector<ChartText> PptxCharts::Texts() const {
    std::vector<ChartText> out;
    for (const auto& owned : state_->records) {
        const ChartRecord& r = *owned;
        const sim::ChartModel& c = r.saved;
        if (r.title) out.push_back({r.place + ", title", c.title.text});
        for (std::size_t a = 0; a < r.axes.size(); ++a) {
            const std::string axis = r.place + ", axis " + std::to_string(c.axes[a].type) + "," +
                                     std::to_string(c.axes[a].group);
            if (r.axes[a].title) out.push_back({axis + " title", c.axes[a].title.text});
            if (r.axes[a].unit) out.push_back({axis + " unit", c.axes[a].displayUnitLabel.text});
        }
        for (std::size_t k = 0; k < r.series.size(); ++k) {
            const SeriesXml& xml = r.series[k];
            const std::string series = r.place + ", series " + std::to_string(k + 1);
            if (xml.name.rich) {
                out.push_back({series + " name", RichText(xml.name.rich)});
            } else if (xml.name.v) {
                out.push_back({series + " name", Utf8ToUtf16(xml.name.v.text().get())});
            }
            for (std::size_t i = 0; i < xml.categoryValues.size(); ++i) {
                if (xml.categoryValues[i]) {
                    out.push_back({series + " category " + std::to_string(i + 1),
                                   Utf8ToUtf16(xml.categoryValues[i].text().get())});
                }
            }
            for (const SeriesXml::Outer& o : xml.outer)
                out.push_back({o.place, Utf8ToUtf16(o.v.text().get())});
            for (std::size_t i = 0; i < xml.labels.size(); ++i) {
                if (xml.labels[i]) {
                    out.push_back(
                        {series + " label " + std::to_string(i + 1), RichText(xml.labels[i])});
                }
            }
        }
        if (r.book) {
            for (const sim::SheetModel& sheet : c.workbook.sheets) {
                for (const auto& [at, cell] : sheet.cells) {
                    if (cell.isNumber) continue;
                    out.push_back({r.place + ", cell " + Utf16ToUtf8(sheet.name) + "!" +
                                       ColumnLetters(at.second) + std::to_string(at.first),
                                   cell.text});
                }
            }
        }
    }
    return out;
}

const std::vector<std::string>& PptxCharts::Problems() const {
    return state_->problems;
}

}  // namespace qb::pptx
