#include "sim/pptx/pptx_diagram.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <set>
#include <sstream>
#include <utility>
#include <vector>

#include "foundation/text.h"
#include "sim/pptx/xml_nodes.h"

namespace qb::pptx {

namespace {

constexpr const char* kDrawingMl = "http://schemas.openxmlformats.org/drawingml/2006/main";
constexpr unsigned kParseOptions =
    pugi::parse_default | pugi::parse_declaration | pugi::parse_ws_pcdata;

// Names compare without their prefix: other tools bind the diagram and
// drawing namespaces to prefixes of their own.
using xml::Attr;
using xml::Child;
using xml::Is;
using xml::PrefixOf;

// --- Text bodies ----------------------------------------------------------

std::vector<pugi::xml_node> Paragraphs(pugi::xml_node body) {
    std::vector<pugi::xml_node> out;
    for (pugi::xml_node p : body.children()) {
        if (Is(p, "p")) out.push_back(p);
    }
    return out;
}

// A paragraph as the host's text has it: runs and fields, VT for a break.
std::u16string ParagraphText(pugi::xml_node p) {
    std::u16string text;
    for (pugi::xml_node c : p.children()) {
        if (Is(c, "r") || Is(c, "fld")) {
            text += Utf8ToUtf16(Child(c, "t").text().get());
        } else if (Is(c, "br")) {
            text += u'\v';
        }
    }
    return text;
}

std::u16string BodyText(pugi::xml_node body) {
    std::u16string text;
    bool first = true;
    for (pugi::xml_node p : Paragraphs(body)) {
        if (!first) text += u'\r';
        text += ParagraphText(p);
        first = false;
    }
    return text;
}

// CR ends a paragraph; a CR LF pair counts once.
std::vector<std::u16string> SplitParagraphs(const std::u16string& text) {
    std::vector<std::u16string> out(1);
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == u'\r') {
            if (i + 1 < text.size() && text[i + 1] == u'\n') ++i;
            out.emplace_back();
        } else {
            out.back() += text[i];
        }
    }
    return out;
}

std::string XmlText(std::u16string_view text) {
    std::u16string kept;
    for (char16_t c : text) {
        if (c >= 0x20 || c == u'\t' || c == u'\n') kept.push_back(c);
    }
    return Utf16ToUtf8(kept);
}

// The properties new text in a paragraph takes: its first run's, as a host's
// Text put gives new text the format of the first character it replaces.
// False when the paragraph has no run.
bool FirstRunProperties(pugi::xml_node p, pugi::xml_node& rPr) {
    for (pugi::xml_node c : p.children()) {
        if (Is(c, "r") || Is(c, "fld")) {
            rPr = Child(c, "rPr");
            return true;
        }
    }
    return false;
}

void FillParagraph(pugi::xml_node p, const std::u16string& text, pugi::xml_node rPr) {
    for (pugi::xml_node c = p.first_child(); c;) {
        const pugi::xml_node next = c.next_sibling();
        if (c.type() == pugi::node_element && !Is(c, "pPr") && !Is(c, "endParaRPr")) {
            p.remove_child(c);
        }
        c = next;
    }
    const std::string prefix = PrefixOf(p);
    const pugi::xml_node end = Child(p, "endParaRPr");
    const auto add = [&](const char* local) {
        pugi::xml_node n = end ? p.insert_child_before((prefix + local).c_str(), end)
                               : p.append_child((prefix + local).c_str());
        if (rPr) n.append_copy(rPr).set_name((prefix + "rPr").c_str());
        return n;
    };
    std::size_t start = 0;
    while (true) {
        const std::size_t vt = text.find(u'\v', start);
        const std::u16string piece =
            text.substr(start, vt == std::u16string::npos ? vt : vt - start);
        if (!piece.empty()) {
            add("r")
                .append_child((prefix + "t").c_str())
                .append_child(pugi::node_pcdata)
                .set_value(XmlText(piece).c_str());
        }
        if (vt == std::u16string::npos) break;
        add("br");
        start = vt + 1;
    }
}

// Replaces `span`, paragraphs of `body` in a row, with `text`. Paragraph for
// paragraph, those whose text stays keep their XML; otherwise the k-th new
// paragraph is a copy of the k-th old one (the last for those beyond).
void ReplaceParagraphs(pugi::xml_node body, const std::vector<pugi::xml_node>& span,
                       const std::u16string& text) {
    const std::vector<std::u16string> lines = SplitParagraphs(text);
    // Properties are copied aside first: filling a paragraph takes out the
    // runs they came from.
    pugi::xml_document hold;
    pugi::xml_node bodyRun;
    bool bodyHasRun = false;
    for (pugi::xml_node p : span) {
        if ((bodyHasRun = FirstRunProperties(p, bodyRun))) break;
    }
    if (bodyRun) bodyRun = hold.append_copy(bodyRun);
    // A paragraph without runs takes the text's first run's properties, or
    // failing those its own end's.
    const auto propertiesFor = [&](pugi::xml_node p) {
        pugi::xml_node rPr;
        if (!FirstRunProperties(p, rPr)) rPr = bodyHasRun ? bodyRun : Child(p, "endParaRPr");
        return rPr ? hold.append_copy(rPr) : rPr;
    };
    if (span.size() == lines.size()) {
        for (std::size_t k = 0; k < span.size(); ++k) {
            if (ParagraphText(span[k]) != lines[k]) {
                FillParagraph(span[k], lines[k], propertiesFor(span[k]));
            }
        }
        return;
    }
    if (span.empty()) {
        const std::string prefix = PrefixOf(Child(body, "bodyPr"));
        for (const std::u16string& line : lines)
            FillParagraph(body.append_child((prefix + "p").c_str()), line, pugi::xml_node());
        return;
    }
    for (std::size_t k = 0; k < lines.size(); ++k) {
        const pugi::xml_node from = span[std::min(k, span.size() - 1)];
        const pugi::xml_node rPr = propertiesFor(from);
        FillParagraph(body.insert_copy_before(from, span.front()), lines[k], rPr);
    }
    for (pugi::xml_node old : span)
        body.remove_child(old);
}

// Where a node's old text stands among a shape's paragraphs: the paragraphs
// in a row that hold it, or none.
std::vector<pugi::xml_node> FindText(pugi::xml_node body, const std::u16string& text) {
    const std::vector<pugi::xml_node> all = Paragraphs(body);
    const std::vector<std::u16string> lines = SplitParagraphs(text);
    for (std::size_t at = 0; at + lines.size() <= all.size(); ++at) {
        std::size_t k = 0;
        while (k < lines.size() && ParagraphText(all[at + k]) == lines[k])
            ++k;
        if (k == lines.size()) {
            return std::vector<pugi::xml_node>(
                all.begin() + static_cast<std::ptrdiff_t>(at),
                all.begin() + static_cast<std::ptrdiff_t>(at + lines.size()));
        }
    }
    return {};
}

// A text body for a point that has none, in the drawing namespace under
// whatever prefix the part binds it to.
pugi::xml_node AddTextBody(pugi::xml_node point) {
    std::string prefix;
    for (pugi::xml_node n = point; n && prefix.empty(); n = n.parent()) {
        for (pugi::xml_attribute a = n.first_attribute(); a; a = a.next_attribute()) {
            if (std::strncmp(a.name(), "xmlns:", 6) == 0 &&
                std::strcmp(a.value(), kDrawingMl) == 0) {
                prefix = std::string(a.name() + 6) + ":";
                break;
            }
        }
    }
    const std::string name = PrefixOf(point) + "t";
    const pugi::xml_node ext = Child(point, "extLst");
    pugi::xml_node body =
        ext ? point.insert_child_before(name.c_str(), ext) : point.append_child(name.c_str());
    if (prefix.empty()) {
        prefix = "a:";
        body.append_attribute("xmlns:a").set_value(kDrawingMl);
    }
    body.append_child((prefix + "bodyPr").c_str());
    body.append_child((prefix + "lstStyle").c_str());
    body.append_child((prefix + "p").c_str());
    return body;
}

}  // namespace

struct DiagramTexts::State {
    struct Doc {
        std::string name;
        pugi::xml_document doc;
        bool dirty = false;
    };
    struct Node {
        pugi::xml_node point;
        std::vector<pugi::xml_node> shapes;  // dsp:sp of the drawing showing it
        std::u16string written;              // its text as the XML holds it
    };
    struct Diagram {
        std::shared_ptr<sim::SmartArtModel> model;
        Doc* data = nullptr;
        Doc* drawing = nullptr;
        std::vector<Node> nodes;  // parallel to model->nodes
        // Drawing shapes and the nodes a presOf connection gives them.
        std::map<pugi::xml_node, std::set<std::size_t>> shownBy;
    };

    std::map<std::string, std::unique_ptr<Doc>> docs;
    std::map<std::string, Diagram> diagrams;  // by data part

    // Parses a part once; null when it is absent, broken, or not `root`.
    Doc* Load(const ZipPackage& package, const std::string& name, const char* root) {
        if (name.empty()) return nullptr;
        const auto found = docs.find(name);
        if (found != docs.end()) return found->second.get();
        const ZipPart* raw = package.Find(name);
        if (!raw) return nullptr;
        auto doc = std::make_unique<Doc>();
        doc->name = name;
        if (!doc->doc.load_buffer(raw->bytes.data(), raw->bytes.size(), kParseOptions) ||
            !Is(doc->doc.document_element(), root)) {
            return nullptr;
        }
        return docs.emplace(name, std::move(doc)).first->second.get();
    }

    static std::string Target(const std::map<std::string, std::string>& rels, const char* id) {
        const auto it = rels.find(id);
        return it == rels.end() ? "" : it->second;
    }

    // Node points in the order of the tree: each parent before its children,
    // children by srcOrd; points no connection places come last, in file order.
    static std::vector<pugi::xml_node> NodesInOrder(pugi::xml_node root) {
        std::map<std::string, pugi::xml_node> nodes;
        std::vector<pugi::xml_node> fileOrder, docs;
        for (pugi::xml_node pt : Child(root, "ptLst").children()) {
            if (!Is(pt, "pt")) continue;
            const std::string type = Attr(pt, "type").value();
            if (type.empty() || type == "node" || type == "asst") {
                if (nodes.emplace(Attr(pt, "modelId").value(), pt).second) fileOrder.push_back(pt);
            } else if (type == "doc") {
                docs.push_back(pt);
            }
        }
        std::map<std::string, std::vector<std::pair<long, pugi::xml_node>>> children;
        for (pugi::xml_node cxn : Child(root, "cxnLst").children()) {
            const std::string type = Attr(cxn, "type").value();
            if (!Is(cxn, "cxn") || !(type.empty() || type == "parOf")) continue;
            const auto child = nodes.find(Attr(cxn, "destId").value());
            if (child == nodes.end()) continue;
            children[Attr(cxn, "srcId").value()].emplace_back(Attr(cxn, "srcOrd").as_llong(),
                                                              child->second);
        }
        for (auto& [parent, list] : children) {
            std::stable_sort(list.begin(), list.end(),
                             [](const auto& a, const auto& b) { return a.first < b.first; });
        }
        std::vector<pugi::xml_node> out;
        std::set<pugi::xml_node> seen;
        // Depth first without recursion, so a deep or cyclic tree can't
        // exhaust the stack or loop.
        const auto walk = [&](const std::string& from) {
            std::vector<pugi::xml_node> stack;
            const auto push = [&](const std::string& id) {
                const auto it = children.find(id);
                if (it == children.end()) return;
                for (auto c = it->second.rbegin(); c != it->second.rend(); ++c)
                    stack.push_back(c->second);
            };
            push(from);
            while (!stack.empty()) {
                const pugi::xml_node n = stack.back();
                stack.pop_back();
                if (!seen.insert(n).second) continue;
                out.push_back(n);
                push(Attr(n, "modelId").value());
            }
        };
        for (pugi::xml_node doc : docs)
            walk(Attr(doc, "modelId").value());
        for (pugi::xml_node n : fileOrder) {
            if (seen.count(n)) continue;
            seen.insert(n);
            out.push_back(n);
            walk(Attr(n, "modelId").value());
        }
        return out;
    }

    // The drawing shapes that show each node: those of the presentation
    // points a presOf connection or a presAssocID ties to it; a node tied to
    // none gets an otherwise untied shape that shows exactly its text.
    static void LinkShapes(Diagram& d, pugi::xml_node dataRoot, pugi::xml_node drawingRoot) {
        std::map<std::string, pugi::xml_node> shapes;  // by modelId, those with text
        std::vector<pugi::xml_node> inOrder;
        std::vector<pugi::xml_node> groups{Child(drawingRoot, "spTree")};
        while (!groups.empty()) {
            const pugi::xml_node g = groups.back();
            groups.pop_back();
            for (pugi::xml_node c : g.children()) {
                if (Is(c, "grpSp")) groups.push_back(c);
                if (Is(c, "sp") && Child(c, "txBody")) {
                    shapes.emplace(Attr(c, "modelId").value(), c);
                    inOrder.push_back(c);
                }
            }
        }
        std::map<std::string, std::size_t> index;
        for (std::size_t i = 0; i < d.nodes.size(); ++i)
            index.emplace(Attr(d.nodes[i].point, "modelId").value(), i);
        const auto tie = [&](const char* nodeId, const char* presId, bool presOf) {
            const auto n = index.find(nodeId);
            const auto s = shapes.find(presId);
            if (n == index.end() || s == shapes.end()) return;
            std::vector<pugi::xml_node>& list = d.nodes[n->second].shapes;
            if (std::find(list.begin(), list.end(), s->second) == list.end()) {
                list.push_back(s->second);
            }
            if (presOf) d.shownBy[s->second].insert(n->second);
        };
        for (pugi::xml_node cxn : Child(dataRoot, "cxnLst").children()) {
            if (Is(cxn, "cxn") && std::strcmp(Attr(cxn, "type").value(), "presOf") == 0) {
                tie(Attr(cxn, "srcId").value(), Attr(cxn, "destId").value(), true);
            }
        }
        for (pugi::xml_node pt : Child(dataRoot, "ptLst").children()) {
            if (Is(pt, "pt") && std::strcmp(Attr(pt, "type").value(), "pres") == 0) {
                tie(Attr(Child(pt, "prSet"), "presAssocID").value(), Attr(pt, "modelId").value(),
                    false);
            }
        }
        std::set<pugi::xml_node> tied;
        for (const Node& n : d.nodes)
            tied.insert(n.shapes.begin(), n.shapes.end());
        std::map<std::u16string, std::deque<pugi::xml_node>> untied;
        for (pugi::xml_node sp : inOrder) {
            if (!tied.count(sp)) untied[BodyText(Child(sp, "txBody"))].push_back(sp);
        }
        for (std::size_t i = 0; i < d.nodes.size(); ++i) {
            Node& n = d.nodes[i];
            if (!n.shapes.empty() || n.written.empty()) continue;
            const auto it = untied.find(n.written);
            if (it == untied.end() || it->second.empty()) continue;
            n.shapes.push_back(it->second.front());
            d.shownBy[it->second.front()].insert(i);
            it->second.pop_front();
        }
    }

    std::shared_ptr<sim::SmartArtModel> Read(const ZipPackage& package,
                                             const std::map<std::string, std::string>& rels,
                                             pugi::xml_node graphicData) {
        const pugi::xml_node relIds = Child(graphicData, "relIds");
        const std::string dataName = Target(rels, Attr(relIds, "dm").value());
        const auto known = diagrams.find(dataName);
        if (!dataName.empty() && known != diagrams.end()) return known->second.model;
        Doc* data = Load(package, dataName, "dataModel");
        if (!data) {
            auto unusable = std::make_shared<sim::SmartArtModel>();
            unusable->usable = false;
            return unusable;
        }
        Diagram& d = diagrams[dataName];
        d.model = std::make_shared<sim::SmartArtModel>();
        d.data = data;
        const pugi::xml_node root = data->doc.document_element();
        // Every node, nested ones too, is one of the host's nodes: the
        // engine reaches text through Nodes alone.
        for (pugi::xml_node pt : NodesInOrder(root)) {
            Node n;
            n.point = pt;
            n.written = BodyText(Child(pt, "t"));
            d.model->nodes.push_back({n.written, {}});
            d.nodes.push_back(std::move(n));
        }
        std::string drawingId;
        for (pugi::xml_node ext : Child(root, "extLst").children()) {
            if (const pugi::xml_node e = Child(ext, "dataModelExt")) {
                drawingId = Attr(e, "relId").value();
            }
        }
        if (!drawingId.empty())
            d.drawing = Load(package, Target(rels, drawingId.c_str()), "drawing");
        if (d.drawing) LinkShapes(d, root, d.drawing->doc.document_element());
        return d.model;
    }

    // Writes a node's new text over its old in one drawing shape, when the
    // shape shows it: the whole text, or the paragraphs that hold it. A
    // shape out of date with the data is rewritten only when it shows this
    // node alone.
    bool WriteShape(Diagram& d, std::size_t node, pugi::xml_node sp, const std::u16string& was,
                    const std::u16string& now) {
        const pugi::xml_node body = Child(sp, "txBody");
        const std::u16string shown = BodyText(body);
        if (shown == was) {
            ReplaceParagraphs(body, Paragraphs(body), now);
            return true;
        }
        const std::vector<pugi::xml_node> span = FindText(body, was);
        if (!span.empty()) {
            ReplaceParagraphs(body, span, now);
            return true;
        }
        const auto by = d.shownBy.find(sp);
        if (!shown.empty() && by != d.shownBy.end() && by->second == std::set<std::size_t>{node}) {
            ReplaceParagraphs(body, Paragraphs(body), now);
            return true;
        }
        return false;
    }

    std::size_t Write(ZipPackage& package) {
        std::size_t written = 0;
        for (auto& [name, d] : diagrams) {
            const std::size_t count = std::min(d.nodes.size(), d.model->nodes.size());
            for (std::size_t i = 0; i < count; ++i) {
                Node& n = d.nodes[i];
                const std::u16string& now = d.model->nodes[i].text;
                if (now == n.written) continue;
                pugi::xml_node body = Child(n.point, "t");
                if (!body) body = AddTextBody(n.point);
                ReplaceParagraphs(body, Paragraphs(body), now);
                d.data->dirty = true;
                for (pugi::xml_node sp : n.shapes) {
                    if (WriteShape(d, i, sp, n.written, now)) d.drawing->dirty = true;
                }
                n.written = now;
                ++written;
            }
        }
        for (auto& [name, doc] : docs) {
            if (!doc->dirty) continue;
            std::ostringstream out;
            doc->doc.save(out, "", pugi::format_raw, pugi::encoding_utf8);
            package.Put(name, out.str());
            doc->dirty = false;
        }
        return written;
    }
};

DiagramTexts::DiagramTexts() : state_(std::make_unique<State>()) {}
DiagramTexts::~DiagramTexts() = default;

std::shared_ptr<sim::SmartArtModel> DiagramTexts::Read(
    const ZipPackage& package, const std::map<std::string, std::string>& rels,
    pugi::xml_node graphicData) {
    return state_->Read(package, rels, graphicData);
}

std::size_t DiagramTexts::Write(ZipPackage& package) {
    return state_->Write(package);
}

}  // namespace qb::pptx
