#include "sim/pptx/xlsx_book.h"

#include <cstdlib>
#include <deque>
#include <map>
#include <sstream>
#include <vector>

#include "foundation/text.h"
#include "sim/pptx/xml_nodes.h"

namespace qb::pptx {

using namespace xml;

namespace {

// A workbook behind a chart holds a small table; one with more cells than
// this is not read, so that a crafted file can't make the model huge.
constexpr std::size_t kMaxCells = 200000;
constexpr std::int32_t kMaxRow = 1048576;
constexpr std::int32_t kMaxColumn = 16384;

constexpr unsigned kParseOptions =
    pugi::parse_default | pugi::parse_declaration | pugi::parse_ws_pcdata;

// The text of a shared or inline string: its t, or its runs' t in order
// (phonetic runs left out).
std::u16string StringItemText(pugi::xml_node item) {
    if (const pugi::xml_node t = Child(item, "t")) return Utf8ToUtf16(t.text().get());
    std::string text;
    for (pugi::xml_node r : Children(item, "r"))
        text += Child(r, "t").text().get();
    return Utf8ToUtf16(text);
}

struct SheetXml {
    std::string part;
    pugi::xml_document doc;
    std::map<std::pair<std::int32_t, std::int32_t>, pugi::xml_node> cells;
    bool dirty = false;
};

}  // namespace

bool ParseCellName(std::string_view name, std::int32_t& row, std::int32_t& column) {
    row = column = 0;
    std::size_t i = 0;
    if (i < name.size() && name[i] == '$') ++i;
    for (; i < name.size() &&
           ((name[i] >= 'A' && name[i] <= 'Z') || (name[i] >= 'a' && name[i] <= 'z'));
         ++i) {
        column = column * 26 + ((name[i] | 0x20) - 'a' + 1);
        if (column > kMaxColumn) return false;
    }
    if (i < name.size() && name[i] == '$') ++i;
    for (; i < name.size() && name[i] >= '0' && name[i] <= '9'; ++i) {
        row = row * 10 + (name[i] - '0');
        if (row > kMaxRow) return false;
    }
    return i == name.size() && row > 0 && column > 0;
}

std::string ColumnLetters(std::int32_t column) {
    std::string letters;
    for (; column > 0; column = (column - 1) / 26)
        letters.insert(letters.begin(), static_cast<char>('A' + (column - 1) % 26));
    return letters;
}

struct XlsxBook::State {
    ZipPackage package;
    std::deque<SheetXml> sheets;  // parallel to the model's sheets
    sim::WorkbookModel saved;     // what the package holds now

    std::string Load(pugi::xml_document& doc, const std::string& part) {
        const ZipPart* raw = package.Find(part);
        if (!raw) return part + ": part missing";
        const pugi::xml_parse_result r =
            doc.load_buffer(raw->bytes.data(), raw->bytes.size(), kParseOptions);
        if (!r) return part + ": broken XML at byte " + std::to_string(r.offset);
        return "";
    }

    // Relationship id -> (type, target part) of one part; external ones left out.
    std::string Relationships(const std::string& part,
                              std::map<std::string, std::pair<std::string, std::string>>& out) {
        const std::string rels = RelsPathOf(part);
        if (!package.Find(rels)) return "";
        pugi::xml_document doc;
        const std::string error = Load(doc, rels);
        if (!error.empty()) return error;
        for (pugi::xml_node r : Children(doc.document_element(), "Relationship")) {
            if (std::string(r.attribute("TargetMode").value()) == "External") continue;
            out[r.attribute("Id").value()] = {r.attribute("Type").value(),
                                              Resolve(part, r.attribute("Target").value())};
        }
        return "";
    }

    static bool TypeEnds(const std::string& type, const std::string& end) {
        return type.size() >= end.size() &&
               type.compare(type.size() - end.size(), end.size(), end) == 0;
    }

    std::string ReadSheet(SheetXml& sheet, const std::vector<std::u16string>& shared,
                          sim::SheetModel& model, std::size_t& total) {
        const std::string error = Load(sheet.doc, sheet.part);
        if (!error.empty()) return error;
        const pugi::xml_node data = Child(sheet.doc.document_element(), "sheetData");
        std::int32_t row = 0;
        for (pugi::xml_node r : Children(data, "row")) {
            // Row and cell positions may be left out: they then follow the last.
            const pugi::xml_attribute rowAt = r.attribute("r");
            row = rowAt ? rowAt.as_int() : row + 1;
            if (row < 1 || row > kMaxRow) return sheet.part + ": a row out of range";
            std::int32_t column = 0;
            for (pugi::xml_node c : Children(r, "c")) {
                std::int32_t at = row;
                if (const pugi::xml_attribute name = c.attribute("r")) {
                    if (!ParseCellName(name.value(), at, column) || at != row) {
                        return sheet.part + ": a cell out of place (" + name.value() + ")";
                    }
                } else if (++column > kMaxColumn) {
                    return sheet.part + ": a cell out of range";
                }
                if (++total > kMaxCells) {
                    return "too many cells (limit " + std::to_string(kMaxCells) + ")";
                }
                const std::string type = c.attribute("t").value();
                const pugi::xml_node v = Child(c, "v");
                sim::SheetCellModel cell;
                cell.hasFormula = static_cast<bool>(Child(c, "f"));
                if (type == "s") {
                    const long index = std::strtol(v.text().get(), nullptr, 10);
                    if (!v || index < 0 || static_cast<std::size_t>(index) >= shared.size()) {
                        return sheet.part + ": a shared string out of range";
                    }
                    cell.text = shared[static_cast<std::size_t>(index)];
                } else if (type == "inlineStr") {
                    cell.text = StringItemText(Child(c, "is"));
                } else if (type == "str" || type == "e") {
                    cell.text = Utf8ToUtf16(v.text().get());
                } else if (type == "d") {
                    continue;  // an ISO date as text: neither a number nor words to translate
                } else {
                    // Numbers; a truth value too, as its number, so that no
                    // TRUE or FALSE is ever offered as a word.
                    if (!v) continue;  // a cell with only a style
                    cell.isNumber = true;
                    cell.number = std::strtod(v.text().get(), nullptr);
                }
                sheet.cells[{row, column}] = c;
                model.cells[{row, column}] = cell;
            }
        }
        return "";
    }
};

XlsxBook::XlsxBook() : state_(std::make_unique<State>()) {}
XlsxBook::~XlsxBook() = default;

std::string XlsxBook::Read(const std::string& bytes, const ZipLimits& limits,
                           sim::WorkbookModel& into) {
    State& s = *state_;
    s.sheets.clear();
    std::string error = s.package.ReadBytes(bytes, limits);
    if (!error.empty()) return error;
    std::map<std::string, std::pair<std::string, std::string>> rootRels;
    error = s.Relationships("", rootRels);
    if (!error.empty()) return error;
    std::string main;
    for (const auto& [id, rel] : rootRels) {
        if (State::TypeEnds(rel.first, "/officeDocument")) main = rel.second;
    }
    if (main.empty()) return "not a workbook: no workbook part";
    pugi::xml_document workbook;
    error = s.Load(workbook, main);
    if (!error.empty()) return error;
    if (!Is(workbook.document_element(), "workbook")) return main + ": not a workbook part";
    std::map<std::string, std::pair<std::string, std::string>> rels;
    error = s.Relationships(main, rels);
    if (!error.empty()) return error;

    std::vector<std::u16string> shared;
    for (const auto& [id, rel] : rels) {
        if (!State::TypeEnds(rel.first, "/sharedStrings")) continue;
        pugi::xml_document doc;
        error = s.Load(doc, rel.second);
        if (!error.empty()) return error;
        for (pugi::xml_node si : Children(doc.document_element(), "si"))
            shared.push_back(StringItemText(si));
    }

    sim::WorkbookModel model = into;
    model.sheets.clear();
    std::size_t total = 0;
    for (pugi::xml_node sheet : Children(Child(workbook.document_element(), "sheets"), "sheet")) {
        const auto rel = rels.find(Attr(sheet, "id").value());
        // A chart sheet or a macro sheet has no cells of this kind.
        if (rel == rels.end() || !State::TypeEnds(rel->second.first, "/worksheet")) continue;
        SheetXml& xml = s.sheets.emplace_back();
        xml.part = rel->second.second;
        sim::SheetModel& m = model.sheets.emplace_back();
        m.name = Utf8ToUtf16(sheet.attribute("name").value());
        error = s.ReadSheet(xml, shared, m, total);
        if (!error.empty()) {
            s.sheets.clear();
            return error;
        }
    }
    if (model.sheets.empty()) return main + ": no worksheet";
    into = model;
    s.saved = model;
    return "";
}

std::string XlsxBook::Write(const sim::WorkbookModel& now, std::string& bytes, bool& changed) {
    State& s = *state_;
    changed = false;
    for (std::size_t i = 0; i < s.sheets.size() && i < now.sheets.size(); ++i) {
        SheetXml& xml = s.sheets[i];
        sim::SheetModel& was = s.saved.sheets[i];
        for (const auto& [at, cell] : now.sheets[i].cells) {
            const auto node = xml.cells.find(at);
            const sim::SheetCellModel* old = was.Cell(at.first, at.second);
            if (node == xml.cells.end() || !old || cell.isNumber) continue;
            if (old->isNumber || old->hasFormula || old->text == cell.text) continue;
            pugi::xml_node c = node->second;
            const std::string prefix = PrefixOf(c);
            for (const char* local : {"v", "is", "f"}) {
                while (pugi::xml_node n = Child(c, local))
                    c.remove_child(n);
            }
            c.attribute("t") ? c.attribute("t").set_value("inlineStr")
                             : c.append_attribute("t").set_value("inlineStr");
            pugi::xml_node is = Child(c, "extLst") ? c.insert_child_before((prefix + "is").c_str(),
                                                                           Child(c, "extLst"))
                                                   : c.append_child((prefix + "is").c_str());
            pugi::xml_node t = is.append_child((prefix + "t").c_str());
            t.append_attribute("xml:space").set_value("preserve");
            std::u16string kept;
            for (char16_t ch : cell.text) {
                if (ch >= 0x20 || ch == u'\t' || ch == u'\n') kept.push_back(ch);
            }
            t.append_child(pugi::node_pcdata).set_value(Utf16ToUtf8(kept).c_str());
            was.cells[at] = cell;
            xml.dirty = true;
        }
    }
    for (SheetXml& xml : s.sheets) {
        if (!xml.dirty) continue;
        std::ostringstream out;
        xml.doc.save(out, "", pugi::format_raw, pugi::encoding_utf8);
        s.package.Put(xml.part, out.str());
        xml.dirty = false;
        changed = true;
    }
    if (!changed) return "";
    return s.package.WriteBytes(bytes);
}

}  // namespace qb::pptx
