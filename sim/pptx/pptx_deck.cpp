#include "sim/pptx/pptx_deck.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <sstream>

#include "foundation/text.h"
#include "sim/pptx/pptx_diagram.h"
#include "sim/pptx/xml_nodes.h"

namespace qb::pptx {

using sim::CharFormat;
using sim::ShapeModel;
using sim::ShapeType;

namespace {

constexpr float kEmuPerPoint = 12700.0f;
// Groups are read by recursion; a file nesting them deeper is refused
// rather than allowed to exhaust the stack.
constexpr int kMaxGroupDepth = 64;

// Elements and attributes by local name: files from other tools may bind
// the drawing namespaces to other prefixes than the usual ones.
using xml::Attr;
using xml::Child;
using xml::Is;
using xml::Path;
using xml::PrefixOf;
using xml::RelsPathOf;
using xml::Resolve;

bool IsTrueAttr(pugi::xml_attribute a) {
    return a && (std::strcmp(a.value(), "1") == 0 || std::strcmp(a.value(), "true") == 0);
}

std::string Folder(const std::string& part) {
    const auto slash = part.rfind('/');
    return slash == std::string::npos ? "" : part.substr(0, slash + 1);
}

constexpr unsigned kParseOptions =
    pugi::parse_default | pugi::parse_declaration | pugi::parse_ws_pcdata;

// The value of a node's namespaced id attribute (r:id), whatever its prefix.
std::string RelIdOf(pugi::xml_node node) {
    for (pugi::xml_attribute a = node.first_attribute(); a; a = a.next_attribute()) {
        const char* colon = std::strchr(a.name(), ':');
        if (colon && std::strcmp(colon + 1, "id") == 0) return a.value();
    }
    return "";
}

void Declare(pugi::xml_document& doc) {
    pugi::xml_node declaration = doc.append_child(pugi::node_declaration);
    declaration.append_attribute("version") = "1.0";
    declaration.append_attribute("encoding") = "UTF-8";
    declaration.append_attribute("standalone") = "yes";
}

bool EndsWith(const std::string& text, const char* end) {
    const std::size_t n = std::strlen(end);
    return text.size() >= n && text.compare(text.size() - n, n, end) == 0;
}

// A relationship target with its file name swapped for another part's, both
// in one folder.
std::string WithFileName(const std::string& target, const std::string& part) {
    return target.substr(0, target.rfind('/') + 1) + part.substr(part.rfind('/') + 1);
}

// The target that leads from one part to another.
std::string RelativeTarget(const std::string& fromPart, const std::string& toPart) {
    std::string from = Folder(fromPart), to = toPart;
    std::size_t common = 0;
    for (std::size_t i = 0; i < from.size() && i < to.size() && from[i] == to[i]; ++i) {
        if (from[i] == '/') common = i + 1;
    }
    std::string up;
    for (std::size_t i = common; i < from.size(); ++i) {
        if (from[i] == '/') up += "../";
    }
    return up + to.substr(common);
}

// Relationship types whose target belongs to one slide alone: a copy of the
// slide takes copies of them. Everything else (layouts, pictures, media) the
// copy shares with its source.
bool OwnedBySlide(const std::string& type) {
    static const char* const kOwned[] = {
        "/notesSlide",  "/chart",         "/chartUserShapes",   "/package",       "/oleObject",
        "/diagramData", "/diagramLayout", "/diagramQuickStyle", "/diagramColors", "/diagramDrawing",
        "/tags",        "/chartStyle",    "/chartColorStyle",   "/comments",      "/themeOverride"};
    return std::any_of(std::begin(kOwned), std::end(kOwned),
                       [&](const char* end) { return EndsWith(type, end); });
}

std::u16string UpperAscii(std::u16string text) {
    for (char16_t& c : text) {
        if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - u'a' + u'A');
    }
    return text;
}

constexpr char kDrawingNs[] = "http://schemas.openxmlformats.org/drawingml/2006/main";

void SetAttr(pugi::xml_node node, const char* name, const std::string& value);

// The prefix ("a:") a namespace has where `node` stands, declared on the
// document's root as `fallback` when nothing in scope binds it.
std::string PrefixFor(pugi::xml_node node, const char* ns, const std::string& fallback) {
    pugi::xml_node root;
    for (pugi::xml_node n = node; n && n.type() == pugi::node_element; n = n.parent()) {
        root = n;
        for (pugi::xml_attribute a = n.first_attribute(); a; a = a.next_attribute()) {
            if (std::strcmp(a.value(), ns) != 0) continue;
            if (std::strcmp(a.name(), "xmlns") == 0) return "";
            if (std::strncmp(a.name(), "xmlns:", 6) == 0) return std::string(a.name() + 6) + ":";
        }
    }
    SetAttr(root, ("xmlns:" + fallback).c_str(), ns);
    return fallback + ":";
}

constexpr char kRelationshipsNs[] =
    "http://schemas.openxmlformats.org/officeDocument/2006/relationships";
constexpr char kPackageRelsNs[] = "http://schemas.openxmlformats.org/package/2006/relationships";
constexpr char kTagsType[] =
    "application/vnd.openxmlformats-officedocument.presentationml.tags+xml";

// What a character of the model came from in the XML.
struct Source {
    enum class Kind { Run, Field, Break, ParagraphEnd } kind;
    pugi::xml_node node;  // the a:r, a:fld or a:br; the a:p for a paragraph end
    pugi::xml_node rPr;   // its properties (a:endParaRPr for a paragraph end), if any
    CharFormat loaded;    // as the model first held it
    std::size_t paragraph;
    std::u16string text;  // a field's text
};

struct Frame {
    std::size_t part;
    pugi::xml_node body;
    std::shared_ptr<ShapeModel> shape;
    std::string place;
    std::u16string text;
    std::vector<CharFormat> formats;
    std::int32_t autoSize;
    bool wordWrap;
    std::vector<pugi::xml_node> paragraphs;
    std::vector<Source> sources;  // CharFormat::source - 1
};

// How the coordinates of a group's children map onto the slide's (EMU):
// slide = child * scale + offset. Groups may scale what they hold.
struct Transform {
    double scaleX = 1, scaleY = 1, offsetX = 0, offsetY = 0;
};

// A shape whose position the file gives itself, as read, and how that
// position maps onto the slide.
struct Placed {
    std::size_t part;
    pugi::xml_node xfrm;
    std::shared_ptr<ShapeModel> shape;
    float left, top, width, height;
    Transform transform;
};

struct XmlPart {
    std::string name;
    pugi::xml_document doc;
    bool dirty = false;
    bool removed = false;  // taken out of the package with its slide
};

// Where a slide of the package stands: its part, its relationship from the
// presentation part, and its tags as the package holds them.
struct SlidePart {
    std::string part;
    std::string relId;
    std::string tagsPart;  // empty: the slide has no tags part
    std::map<std::u16string, std::u16string> tags;
};

std::int32_t ColorOf(pugi::xml_node rPr) {
    const pugi::xml_node rgb = Path(rPr, {"solidFill", "srgbClr"});
    if (!rgb) return -1;
    const unsigned long v = std::strtoul(Attr(rgb, "val").value(), nullptr, 16);
    // The host's RGB keeps red in the low byte.
    return static_cast<std::int32_t>(((v >> 16) & 0xFF) | (v & 0xFF00) | ((v & 0xFF) << 16));
}

// The faces a theme gives the slots runs may name instead of a face.
struct ThemeFonts {
    std::u16string majorLatin, minorLatin, majorEastAsian, minorEastAsian;
};

// A face as a run names it; a theme slot ("+mn-lt") is the theme's face,
// and without a theme that gives one the run names none.
bool FaceOf(const char* face, const ThemeFonts* theme, std::u16string& out) {
    if (!*face) return false;
    if (*face != '+') {
        out = Utf8ToUtf16(face);
        return true;
    }
    if (!theme) return false;
    const std::string slot = face;
    out = slot == "+mj-lt"   ? theme->majorLatin
          : slot == "+mn-lt" ? theme->minorLatin
          : slot == "+mj-ea" ? theme->majorEastAsian
          : slot == "+mn-ea" ? theme->minorEastAsian
                             : std::u16string();
    return !out.empty();
}

// `base` holds what the paragraph inherits.
CharFormat FormatOf(pugi::xml_node rPr, const CharFormat& base, const ThemeFonts* theme = nullptr) {
    CharFormat f = base;
    if (!rPr) return f;
    const auto sz = Attr(rPr, "sz");
    if (sz && sz.as_int() > 0) f.size = static_cast<float>(sz.as_int()) / 100.0f;
    if (const auto b = Attr(rPr, "b")) f.bold = IsTrueAttr(b) ? -1 : 0;
    if (const auto i = Attr(rPr, "i")) f.italic = IsTrueAttr(i) ? -1 : 0;
    std::u16string face;
    if (FaceOf(Attr(Child(rPr, "latin"), "typeface").value(), theme, face)) {
        f.name = f.nameAscii = face;
    }
    if (FaceOf(Attr(Child(rPr, "ea"), "typeface").value(), theme, face)) f.nameFarEast = face;
    const std::int32_t rgb = ColorOf(rPr);
    if (rgb >= 0) f.rgb = rgb;
    return f;
}

// --- Writing back -------------------------------------------------------

// Children of a:rPr in schema order: a new one goes before the first that
// must follow it.
const char* const kRunPropertyOrder[] = {
    "ln",         "noFill",         "solidFill", "gradFill",  "blipFill", "pattFill",
    "grpFill",    "effectLst",      "effectDag", "highlight", "uLnTx",    "uLn",
    "uFillTx",    "uFill",          "latin",     "ea",        "cs",       "sym",
    "hlinkClick", "hlinkMouseOver", "rtl",       "extLst"};

pugi::xml_node InsertInOrder(pugi::xml_node rPr, const char* local, const std::string& prefix) {
    std::size_t rank = 0;
    while (rank < std::size(kRunPropertyOrder) && std::strcmp(kRunPropertyOrder[rank], local) != 0)
        ++rank;
    for (pugi::xml_node c = rPr.first_child(); c; c = c.next_sibling()) {
        if (c.type() != pugi::node_element) continue;
        for (std::size_t later = rank + 1; later < std::size(kRunPropertyOrder); ++later) {
            if (Is(c, kRunPropertyOrder[later])) {
                return rPr.insert_child_before((prefix + local).c_str(), c);
            }
        }
    }
    return rPr.append_child((prefix + local).c_str());
}

void SetAttr(pugi::xml_node node, const char* name, const std::string& value) {
    pugi::xml_attribute a = node.attribute(name);
    if (!a) a = node.append_attribute(name);
    a.set_value(value.c_str());
}

void SetTypeface(pugi::xml_node rPr, const char* local, const std::u16string& face,
                 const std::string& prefix) {
    pugi::xml_node n = Child(rPr, local);
    if (!n) n = InsertInOrder(rPr, local, prefix);
    SetAttr(n, "typeface", Utf16ToUtf8(face));
}

// What the run changed in a character's format, put into its properties.
void ApplyFormat(pugi::xml_node rPr, const CharFormat& now, const CharFormat& was,
                 const std::string& prefix) {
    if (now.size != was.size) {
        SetAttr(rPr, "sz", std::to_string(static_cast<int>(now.size * 100.0f + 0.5f)));
    }
    if (now.bold != was.bold) SetAttr(rPr, "b", now.bold ? "1" : "0");
    if (now.italic != was.italic) SetAttr(rPr, "i", now.italic ? "1" : "0");
    if (now.nameAscii != was.nameAscii || now.name != was.name) {
        SetTypeface(rPr, "latin", now.nameAscii.empty() ? now.name : now.nameAscii, prefix);
    }
    if (now.nameFarEast != was.nameFarEast) SetTypeface(rPr, "ea", now.nameFarEast, prefix);
    if (now.rgb != was.rgb || now.colorType != was.colorType) {
        for (const char* fill :
             {"noFill", "solidFill", "gradFill", "blipFill", "pattFill", "grpFill"}) {
            while (pugi::xml_node n = Child(rPr, fill))
                rPr.remove_child(n);
        }
        char hex[8];
        std::snprintf(hex, sizeof hex, "%02X%02X%02X", now.rgb & 0xFF, (now.rgb >> 8) & 0xFF,
                      (now.rgb >> 16) & 0xFF);
        pugi::xml_node fill = InsertInOrder(rPr, "solidFill", prefix);
        SetAttr(fill.append_child((prefix + "srgbClr").c_str()), "val", hex);
    }
}

// Text as XML may hold it: characters XML 1.0 forbids are dropped.
std::string XmlText(std::u16string_view text) {
    std::u16string kept;
    for (char16_t c : text) {
        if (c >= 0x20 || c == u'\t' || c == u'\n') kept.push_back(c);
    }
    return Utf16ToUtf8(kept);
}

// A new run or break takes a copy of its source's properties (a paragraph
// end's renamed to a run's), with what the run changed set on it.
void CopyProperties(pugi::xml_node into, const Source* source, const CharFormat& now,
                    const std::string& prefix) {
    const CharFormat base = source ? source->loaded : CharFormat();
    pugi::xml_node rPr;
    if (source && source->rPr) {
        rPr = into.prepend_copy(source->rPr);
        rPr.set_name((prefix + "rPr").c_str());
    }
    CharFormat probe = now;
    probe.source = base.source;
    if (probe == base) return;
    if (!rPr) rPr = into.prepend_child((prefix + "rPr").c_str());
    ApplyFormat(rPr, now, base, prefix);
}

// Fills a paragraph with the runs and breaks of [from, to) of the frame.
// Where the fields of the paragraph that stood here went in its new text:
// a field whose text the new text holds, in the fields' order, stays a
// field there, so a slide number in a translated sentence keeps counting.
std::map<std::size_t, const Source*> FieldsIn(const Frame& frame, std::size_t paragraph,
                                              const std::u16string& text,
                                              const std::vector<CharFormat>& formats,
                                              std::size_t from, std::size_t to) {
    std::map<std::size_t, const Source*> at;
    if (paragraph == std::string::npos) return at;
    std::size_t cursor = from;
    for (const Source& source : frame.sources) {
        if (source.kind != Source::Kind::Field || source.paragraph != paragraph ||
            source.text.empty()) {
            continue;
        }
        const std::size_t found = text.find(source.text, cursor);
        if (found == std::u16string::npos || found + source.text.size() > to) continue;
        // A field that kept its own format is found by it anyway.
        if (formats[found].source == source.loaded.source) continue;
        at[found] = &source;
        cursor = found + source.text.size();
    }
    return at;
}

void FillParagraph(pugi::xml_node p, const Frame& frame, const std::u16string& text,
                   const std::vector<CharFormat>& formats, std::size_t from, std::size_t to,
                   std::size_t paragraph = std::string::npos) {
    const std::string prefix = PrefixOf(p);
    pugi::xml_node end = Child(p, "endParaRPr");
    auto sourceOf = [&frame](const CharFormat& f) -> const Source* {
        return f.source >= 1 && static_cast<std::size_t>(f.source) <= frame.sources.size()
                   ? &frame.sources[static_cast<std::size_t>(f.source - 1)]
                   : nullptr;
    };
    auto add = [&](const char* local) {
        return end ? p.insert_child_before((prefix + local).c_str(), end)
                   : p.append_child((prefix + local).c_str());
    };
    const auto fields = FieldsIn(frame, paragraph, text, formats, from, to);
    auto addField = [&](const Source& source, const CharFormat& format) {
        pugi::xml_node field =
            end ? p.insert_copy_before(source.node, end) : p.append_copy(source.node);
        if (pugi::xml_node rPr = Child(field, "rPr")) {
            CharFormat probe = format;
            probe.source = source.loaded.source;
            if (!(probe == source.loaded)) ApplyFormat(rPr, format, source.loaded, prefix);
        }
    };
    std::size_t i = from;
    while (i < to) {
        const CharFormat& format = formats[i];
        const Source* source = sourceOf(format);
        if (text[i] == u'\v') {
            CopyProperties(add("br"), source, format, prefix);
            ++i;
            continue;
        }
        if (const auto moved = fields.find(i); moved != fields.end()) {
            addField(*moved->second, format);
            i += moved->second->text.size();
            continue;
        }
        std::size_t j = i + 1;
        while (j < to && text[j] != u'\v' && formats[j] == format && !fields.count(j))
            ++j;
        const std::u16string piece = text.substr(i, j - i);
        if (source && source->kind == Source::Kind::Field && piece == source->text) {
            // A field the run left alone stays a field.
            addField(*source, format);
        } else {
            pugi::xml_node run = add("r");
            CopyProperties(run, source, format, prefix);
            run.append_child((prefix + "t").c_str())
                .append_child(pugi::node_pcdata)
                .set_value(XmlText(piece).c_str());
        }
        i = j;
    }
}

void ClearRuns(pugi::xml_node p) {
    for (pugi::xml_node c = p.first_child(); c;) {
        pugi::xml_node next = c.next_sibling();
        if (c.type() == pugi::node_element && !Is(c, "pPr") && !Is(c, "endParaRPr")) {
            p.remove_child(c);
        }
        c = next;
    }
}

struct Span {
    std::size_t start, end;  // end excludes the paragraph's CR
};

std::vector<Span> SplitParagraphs(const std::u16string& text) {
    std::vector<Span> spans;
    std::size_t start = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == u'\r') {
            spans.push_back({start, i});
            start = i + 1;
        }
    }
    spans.push_back({start, text.size()});
    return spans;
}

void WriteAutoSize(pugi::xml_node bodyPr, std::int32_t autoSize, const std::string& prefix) {
    for (const char* fit : {"noAutofit", "normAutofit", "spAutoFit"}) {
        while (pugi::xml_node n = Child(bodyPr, fit))
            bodyPr.remove_child(n);
    }
    const char* local = autoSize == 1 ? "spAutoFit" : autoSize == 2 ? "normAutofit" : "noAutofit";
    const std::string name = prefix + local;
    if (pugi::xml_node warp = Child(bodyPr, "prstTxWarp")) {
        bodyPr.insert_child_after(name.c_str(), warp);
    } else {
        bodyPr.prepend_child(name.c_str());
    }
}

}  // namespace

struct PptxDeck::State {
    ZipPackage package;
    PptxCharts charts;
    std::deque<XmlPart> parts;
    std::vector<Frame> frames;
    std::vector<Placed> placed;
    std::shared_ptr<sim::PresentationModel> model;
    DiagramTexts diagrams;
    std::size_t framesWritten = 0;
    std::string error;
    // Copies of the properties and fields text came from: a write may take
    // the originals out of the tree while another paragraph still needs them.
    pugi::xml_document kept;

    pugi::xml_node Keep(pugi::xml_node node) { return node ? kept.append_copy(node) : node; }

    // Where the page being read takes the text sizes it doesn't set itself:
    // its layout's and master's placeholders and the master's text styles.
    pugi::xml_node defaultTextStyle;
    pugi::xml_node layoutTree, masterTree, masterStyles;
    bool notesPage = false;
    // The number of the slide being read, which its slide number fields show.
    std::int32_t slideNumber = 0;

    void SetPage(const std::string& pagePart, bool notes) {
        notesPage = notes;
        layoutTree = masterTree = masterStyles = pugi::xml_node();
        auto tree = [this](const std::string& part) {
            if (part.empty() || !package.Find(part)) return pugi::xml_node();
            XmlPart* p = Part(part);
            return p ? p->doc.document_element() : pugi::xml_node();
        };
        if (notes) {
            const std::string masterPart = TargetOfType(pagePart, "/notesMaster");
            const pugi::xml_node master = tree(masterPart);
            masterTree = Path(master, {"cSld", "spTree"});
            masterStyles = Child(master, "notesStyle");
            ReadTheme(masterPart);
            return;
        }
        const std::string layout = TargetOfType(pagePart, "/slideLayout");
        layoutTree = Path(tree(layout), {"cSld", "spTree"});
        const std::string masterPart = layout.empty() ? "" : TargetOfType(layout, "/slideMaster");
        const pugi::xml_node master = tree(masterPart);
        masterTree = Path(master, {"cSld", "spTree"});
        masterStyles = Child(master, "txStyles");
        ReadTheme(masterPart);
    }

    // The list styles a shape's text inherits, nearest first; `xfrm` is set
    // to the position the shape inherits, when it has none of its own.
    std::vector<pugi::xml_node> Inheritance(pugi::xml_node ph, pugi::xml_node& xfrm) const {
        if (!ph) return {defaultTextStyle};
        std::string type = Attr(ph, "type").value();
        if (type.empty()) type = "obj";
        const pugi::xml_attribute idx = Attr(ph, "idx");
        const bool title = type == "title" || type == "ctrTitle";
        const bool body = type == "body" || type == "obj" || type == "subTitle";
        // A layout's placeholder answers by index, a master's by kind.
        auto find = [&](pugi::xml_node tree, bool byIndex) {
            for (pugi::xml_node sp : tree.children()) {
                const pugi::xml_node other = Path(sp, {"nvSpPr", "nvPr", "ph"});
                if (!Is(sp, "sp") || !other) continue;
                std::string otherType = Attr(other, "type").value();
                if (otherType.empty()) otherType = "obj";
                const bool otherTitle = otherType == "title" || otherType == "ctrTitle";
                const bool otherBody =
                    otherType == "body" || otherType == "obj" || otherType == "subTitle";
                if (byIndex && idx && Attr(other, "idx") &&
                    std::strcmp(Attr(other, "idx").value(), idx.value()) == 0) {
                    return sp;
                }
                if ((!byIndex || !idx) &&
                    (otherType == type || (title && otherTitle) || (body && otherBody))) {
                    return sp;
                }
            }
            return pugi::xml_node();
        };
        std::vector<pugi::xml_node> chain;
        for (pugi::xml_node sp : {find(layoutTree, true), find(masterTree, false)}) {
            if (const pugi::xml_node style = Path(sp, {"txBody", "lstStyle"})) {
                chain.push_back(style);
            }
            if (!xfrm) xfrm = Path(sp, {"spPr", "xfrm"});
        }
        if (notesPage) {
            if (masterStyles) chain.push_back(masterStyles);
        } else {
            const char* style = title ? "titleStyle" : body ? "bodyStyle" : "otherStyle";
            if (const pugi::xml_node n = Child(masterStyles, style)) chain.push_back(n);
        }
        chain.push_back(defaultTextStyle);
        return chain;
    }

    // What a paragraph's text inherits: each property from the nearest list
    // style that sets it, then the paragraph's own defaults.
    CharFormat InheritedFormat(const std::vector<pugi::xml_node>& chain, pugi::xml_node pPr) const {
        const int level = std::min(std::max(Attr(pPr, "lvl").as_int(0) + 1, 1), 9);
        const std::string name = "lvl" + std::to_string(level) + "pPr";
        CharFormat f;
        for (auto style = chain.rbegin(); style != chain.rend(); ++style)
            f = FormatOf(Path(*style, {name.c_str(), "defRPr"}), f, &theme);
        return FormatOf(Child(pPr, "defRPr"), f, &theme);
    }

    // The faces of the page's theme, which its master names.
    ThemeFonts theme;

    void ReadTheme(const std::string& masterPart) {
        theme = ThemeFonts();
        const std::string part = masterPart.empty() ? "" : TargetOfType(masterPart, "/theme");
        if (part.empty() || !package.Find(part)) return;
        // A theme that can't be read leaves the faces to the runs.
        const std::string before = error;
        const XmlPart* p = Part(part);
        error = before;
        if (!p) return;
        const pugi::xml_node scheme =
            Path(p->doc.document_element(), {"themeElements", "fontScheme"});
        const auto face = [&](const char* font, const char* script) {
            return Utf8ToUtf16(Attr(Path(scheme, {font, script}), "typeface").value());
        };
        theme.majorLatin = face("majorFont", "latin");
        theme.minorLatin = face("minorFont", "latin");
        theme.majorEastAsian = face("majorFont", "ea");
        theme.minorEastAsian = face("minorFont", "ea");
    }

    // Parses a part once; null with `error` set when it is absent or broken.
    XmlPart* Part(const std::string& name) {
        for (XmlPart& p : parts) {
            if (p.name == name) return &p;
        }
        const ZipPart* raw = package.Find(name);
        if (!raw) {
            error = name + ": part missing";
            return nullptr;
        }
        XmlPart& p = parts.emplace_back();
        p.name = name;
        const pugi::xml_parse_result r =
            p.doc.load_buffer(raw->bytes.data(), raw->bytes.size(), kParseOptions);
        if (!r) {
            error =
                name + ": broken XML at byte " + std::to_string(r.offset) + ": " + r.description();
            parts.pop_back();
            return nullptr;
        }
        return &p;
    }

    std::size_t IndexOf(const XmlPart* p) const {
        for (std::size_t i = 0; i < parts.size(); ++i) {
            if (&parts[i] == p) return i;
        }
        return 0;
    }

    // Relationship id -> target part, for one part; external targets left
    // out. A part without relationships has none, which is no error in itself.
    std::map<std::string, std::string> Relationships(const std::string& part) {
        std::map<std::string, std::string> out;
        const std::string rels = RelsPathOf(part);
        if (!package.Find(rels)) return out;
        XmlPart* p = Part(rels);
        if (!p) return out;
        for (pugi::xml_node r : p->doc.document_element().children()) {
            if (!Is(r, "Relationship")) continue;
            if (std::strcmp(r.attribute("TargetMode").value(), "External") == 0) continue;
            out[r.attribute("Id").value()] = Resolve(part, r.attribute("Target").value());
        }
        return out;
    }

    std::string TargetOfType(const std::string& part, const char* typeEnd) {
        const std::string rels = RelsPathOf(part);
        if (!package.Find(rels)) return "";
        XmlPart* p = Part(rels);
        if (!p) return "";
        for (pugi::xml_node r : p->doc.document_element().children()) {
            const std::string type = r.attribute("Type").value();
            if (type.size() >= std::strlen(typeEnd) &&
                type.compare(type.size() - std::strlen(typeEnd), std::string::npos, typeEnd) == 0 &&
                std::strcmp(r.attribute("TargetMode").value(), "External") != 0) {
                return Resolve(part, r.attribute("Target").value());
            }
        }
        return "";
    }

    // `chain`: the list styles the frame inherits from, nearest first.
    void ReadFrame(std::size_t part, pugi::xml_node body, const std::shared_ptr<ShapeModel>& shape,
                   const std::string& place, std::vector<pugi::xml_node> chain) {
        Frame frame;
        frame.part = part;
        frame.body = body;
        frame.shape = shape;
        frame.place = place;
        sim::TextFrameModel& model = shape->frame;
        shape->hasTextFrame = true;
        const pugi::xml_node bodyPr = Child(body, "bodyPr");
        if (Child(bodyPr, "spAutoFit")) model.autoSize = 1;
        if (Child(bodyPr, "normAutofit")) model.autoSize = 2;
        model.wordWrap = std::strcmp(Attr(bodyPr, "wrap").value(), "none") != 0;
        const auto inset = [&](const char* name, float fallback) {
            const pugi::xml_attribute a = Attr(bodyPr, name);
            return a ? static_cast<float>(a.as_llong()) / kEmuPerPoint : fallback;
        };
        model.marginLeft = inset("lIns", 7.2f);
        model.marginRight = inset("rIns", 7.2f);
        model.marginTop = inset("tIns", 3.6f);
        model.marginBottom = inset("bIns", 3.6f);

        auto addSource = [&frame](Source s) {
            frame.sources.push_back(std::move(s));
            const auto id = static_cast<std::int32_t>(frame.sources.size());
            frame.sources.back().loaded.source = id;
            return frame.sources.back().loaded;
        };
        std::u16string text;
        std::vector<CharFormat> formats;
        for (pugi::xml_node p : body.children()) {
            if (Is(p, "p")) frame.paragraphs.push_back(p);
        }
        // The frame's own list styles come before what it inherits.
        if (const pugi::xml_node own = Child(body, "lstStyle")) chain.insert(chain.begin(), own);
        for (std::size_t index = 0; index < frame.paragraphs.size(); ++index) {
            const pugi::xml_node p = frame.paragraphs[index];
            const CharFormat base = InheritedFormat(chain, Child(p, "pPr"));
            for (pugi::xml_node c : p.children()) {
                if (Is(c, "r") || Is(c, "fld")) {
                    const bool field = Is(c, "fld");
                    const pugi::xml_node rPr = Child(c, "rPr");
                    // A slide number shows the slide's number, whatever text the
                    // writer stored in it ("<number>", "‹#›").
                    const std::u16string piece =
                        field && slideNumber > 0 &&
                                std::strcmp(Attr(c, "type").value(), "slidenum") == 0
                            ? Utf8ToUtf16(std::to_string(slideNumber))
                            : Utf8ToUtf16(Child(c, "t").text().get());
                    const CharFormat f = addSource({field ? Source::Kind::Field : Source::Kind::Run,
                                                    field ? Keep(c) : c, Keep(rPr),
                                                    FormatOf(rPr, base, &theme), index, piece});
                    text += piece;
                    formats.insert(formats.end(), piece.size(), f);
                } else if (Is(c, "br")) {
                    const pugi::xml_node rPr = Child(c, "rPr");
                    text += u'\v';
                    formats.push_back(addSource({Source::Kind::Break, c, Keep(rPr),
                                                 FormatOf(rPr, base, &theme), index, u""}));
                }
            }
            const pugi::xml_node end = Child(p, "endParaRPr");
            const CharFormat endFormat = addSource({Source::Kind::ParagraphEnd, p, Keep(end),
                                                    FormatOf(end, base, &theme), index, u""});
            if (index + 1 < frame.paragraphs.size()) {
                text += u'\r';
                formats.push_back(endFormat);
            }
            // Text put into an empty frame takes its first paragraph's end.
            if (index == 0) model.defaultFormat = endFormat;
        }
        model.text = text;
        model.formats = formats;
        frame.text = std::move(text);
        frame.formats = std::move(formats);
        frame.autoSize = model.autoSize;
        frame.wordWrap = model.wordWrap;
        frames.push_back(std::move(frame));
    }

    // The groups being read, innermost last: what their children's
    // coordinates mean on the slide.
    std::vector<Transform> groups;

    Transform Current() const { return groups.empty() ? Transform() : groups.back(); }

    // Slide coordinates in points, from a position the shape's own group
    // (`t`) gives.
    static void ReadGeometry(pugi::xml_node xfrm, ShapeModel& shape,
                             const Transform& t = Transform()) {
        if (!xfrm) return;
        const pugi::xml_node off = Child(xfrm, "off"), ext = Child(xfrm, "ext");
        const auto points = [](double emu) { return static_cast<float>(emu / kEmuPerPoint); };
        shape.left = points(static_cast<double>(Attr(off, "x").as_llong()) * t.scaleX + t.offsetX);
        shape.top = points(static_cast<double>(Attr(off, "y").as_llong()) * t.scaleY + t.offsetY);
        shape.width = points(static_cast<double>(Attr(ext, "cx").as_llong()) * t.scaleX);
        shape.height = points(static_cast<double>(Attr(ext, "cy").as_llong()) * t.scaleY);
    }

    // What a group's children's coordinates mean on the slide: its child
    // extent is stretched onto its own extent.
    Transform GroupTransform(pugi::xml_node xfrm) const {
        const Transform outer = Current();
        const auto value = [&](const char* child, const char* attr) {
            return static_cast<double>(Attr(Child(xfrm, child), attr).as_llong());
        };
        const double cx = value("chExt", "cx"), cy = value("chExt", "cy");
        const double sx = cx > 0 ? value("ext", "cx") / cx : 1;
        const double sy = cy > 0 ? value("ext", "cy") / cy : 1;
        Transform t;
        t.scaleX = outer.scaleX * sx;
        t.scaleY = outer.scaleY * sy;
        t.offsetX = outer.scaleX * (value("off", "x") - value("chOff", "x") * sx) + outer.offsetX;
        t.offsetY = outer.scaleY * (value("off", "y") - value("chOff", "y") * sy) + outer.offsetY;
        return t;
    }

    void ReadNames(pugi::xml_node nv, ShapeModel& shape) {
        const pugi::xml_node c = Child(nv, "cNvPr");
        shape.id = Attr(c, "id").as_int();
        shape.name = Utf8ToUtf16(Attr(c, "name").value());
    }

    void ReadTable(std::size_t part, pugi::xml_node tbl, ShapeModel& shape,
                   const std::string& place) {
        auto table = std::make_shared<sim::TableModel>();
        std::vector<pugi::xml_node> rows;
        for (pugi::xml_node tr : tbl.children()) {
            if (Is(tr, "tr")) rows.push_back(tr);
        }
        std::int32_t columns = 0;
        for (pugi::xml_node col : Child(tbl, "tblGrid").children()) {
            if (Is(col, "gridCol")) ++columns;
        }
        table->rows = static_cast<std::int32_t>(rows.size());
        table->columns = columns;
        for (std::int32_t r = 0; r < table->rows; ++r) {
            std::vector<pugi::xml_node> cells;
            for (pugi::xml_node tc : rows[static_cast<std::size_t>(r)].children()) {
                if (Is(tc, "tc")) cells.push_back(tc);
            }
            for (std::int32_t c = 0; c < columns; ++c) {
                auto cell = std::make_shared<ShapeModel>();
                cell->type = ShapeType::AutoShape;
                // A cell a merge covers keeps its own (empty) text body, as
                // the file has it: mapping it onto the covering cell would
                // offer that cell's text once for every position it spans.
                if (static_cast<std::size_t>(c) < cells.size()) {
                    if (const pugi::xml_node body =
                            Child(cells[static_cast<std::size_t>(c)], "txBody")) {
                        ReadFrame(
                            part, body, cell,
                            place + ", cell " + std::to_string(r + 1) + "," + std::to_string(c + 1),
                            {defaultTextStyle});
                    }
                }
                table->cells.push_back(cell);
                table->mergedInto.push_back(-1);
            }
        }
        shape.table = table;
    }

    std::shared_ptr<ShapeModel> ReadShape(std::size_t part, pugi::xml_node node,
                                          const std::string& where, int depth) {
        if (depth > kMaxGroupDepth) {
            error = "groups nested deeper than " + std::to_string(kMaxGroupDepth);
            return nullptr;
        }
        if (Is(node, "AlternateContent")) {
            // The content for readers that know it; the fallback is left as it is.
            const pugi::xml_node choice = Child(node, "Choice");
            for (pugi::xml_node c : choice.children()) {
                if (c.type() == pugi::node_element) return ReadShape(part, c, where, depth + 1);
            }
            return nullptr;
        }
        auto shape = std::make_shared<ShapeModel>();
        if (Is(node, "sp")) {
            ReadNames(Child(node, "nvSpPr"), *shape);
            const pugi::xml_node nv = Child(node, "nvSpPr");
            shape->type = Path(nv, {"nvPr", "ph"})                          ? ShapeType::Placeholder
                          : IsTrueAttr(Attr(Child(nv, "cNvSpPr"), "txBox")) ? ShapeType::TextBox
                                                                            : ShapeType::AutoShape;
            pugi::xml_node xfrm = Path(node, {"spPr", "xfrm"});
            const bool own = xfrm;
            const auto chain = Inheritance(Path(nv, {"nvPr", "ph"}), xfrm);
            // An inherited position is the layout's, in slide coordinates.
            ReadGeometry(xfrm, *shape, own ? Current() : Transform());
            // A shape standing where its placeholder does gets a position of
            // its own only when the run moves or resizes it.
            if (own || Child(node, "spPr")) {
                placed.push_back({part, own ? xfrm : Child(node, "spPr"), shape, shape->left,
                                  shape->top, shape->width, shape->height,
                                  own ? Current() : Transform()});
            }
            if (const pugi::xml_node body = Child(node, "txBody")) {
                ReadFrame(part, body, shape, where + ", " + Utf16ToUtf8(shape->name), chain);
            }
        } else if (Is(node, "grpSp")) {
            ReadNames(Child(node, "nvGrpSpPr"), *shape);
            shape->type = ShapeType::Group;
            const pugi::xml_node xfrm = Path(node, {"grpSpPr", "xfrm"});
            ReadGeometry(xfrm, *shape, Current());
            const std::string inner = where + ", " + Utf16ToUtf8(shape->name);
            groups.push_back(GroupTransform(xfrm));
            for (pugi::xml_node c : node.children()) {
                if (auto child = ReadShape(part, c, inner, depth + 1)) {
                    shape->children.push_back(child);
                }
                if (!error.empty()) break;
            }
            groups.pop_back();
            if (!error.empty()) return nullptr;
        } else if (Is(node, "graphicFrame")) {
            ReadNames(Child(node, "nvGraphicFramePr"), *shape);
            ReadGeometry(Child(node, "xfrm"), *shape, Current());
            const pugi::xml_node data = Path(node, {"graphic", "graphicData"});
            const std::string uri = Attr(data, "uri").value();
            if (const pugi::xml_node tbl = Child(data, "tbl")) {
                shape->type = ShapeType::Table;
                ReadTable(part, tbl, *shape, where + ", " + Utf16ToUtf8(shape->name));
            } else if (uri.find("/chart") != std::string::npos) {
                shape->type = ShapeType::Chart;
                const auto rels = Relationships(parts[part].name);
                const auto target = rels.find(Attr(Child(data, "chart"), "id").value());
                charts.Read(package, target == rels.end() ? "" : target->second, shape,
                            where + ", " + Utf16ToUtf8(shape->name));
            } else if (uri.find("/diagram") != std::string::npos) {
                shape->type = ShapeType::SmartArt;
                shape->smartArt = diagrams.Read(package, Relationships(parts[part].name), data);
            } else {
                shape->type = ShapeType::AutoShape;
            }
        } else if (Is(node, "pic")) {
            ReadNames(Child(node, "nvPicPr"), *shape);
            shape->type = ShapeType::Picture;
            ReadGeometry(Path(node, {"spPr", "xfrm"}), *shape, Current());
        } else if (Is(node, "cxnSp")) {
            ReadNames(Child(node, "nvCxnSpPr"), *shape);
            ReadGeometry(Path(node, {"spPr", "xfrm"}), *shape, Current());
        } else {
            return nullptr;
        }
        return shape;
    }

    bool ReadShapes(const std::string& partName, std::vector<std::shared_ptr<ShapeModel>>& into,
                    const std::string& where) {
        XmlPart* p = Part(partName);
        if (!p) return false;
        const pugi::xml_node tree = Path(p->doc.document_element(), {"cSld", "spTree"});
        if (!tree) {
            error = partName + ": no shape tree";
            return false;
        }
        const std::size_t index = IndexOf(p);
        for (pugi::xml_node c : tree.children()) {
            if (auto shape = ReadShape(index, c, where, 0)) into.push_back(shape);
            if (!error.empty()) return false;
        }
        return true;
    }

    // --- Slides made or taken away by the run, and their tags --------------

    std::map<std::shared_ptr<sim::SlideModel>, SlidePart> slideParts;
    std::string mainPart;

    XmlPart* Parsed(const std::string& name) {
        for (XmlPart& p : parts) {
            if (p.name == name && !p.removed) return &p;
        }
        return nullptr;
    }

    // Parts made or changed while slides are copied may be read again, by
    // readers that go to the package's bytes: they meet the part as it stands.
    void Sync(const XmlPart& part) {
        std::ostringstream bytes;
        part.doc.save(bytes, "", pugi::format_raw, pugi::encoding_utf8);
        package.Put(part.name, bytes.str());
    }

    // A new XML part, known to the package at once so that names stay unique.
    XmlPart& NewXml(const std::string& name) {
        XmlPart& p = parts.emplace_back();
        p.name = name;
        p.dirty = true;
        package.Put(name, "");
        return p;
    }

    // "ppt/charts/chart3.xml" -> "ppt/charts/chart<first free number>.xml".
    std::string FreeName(const std::string& like) const {
        const std::size_t slash = like.rfind('/') == std::string::npos ? 0 : like.rfind('/') + 1;
        std::size_t dot = like.rfind('.');
        if (dot == std::string::npos || dot < slash) dot = like.size();
        std::string stem = like.substr(0, dot);
        while (stem.size() > slash && stem.back() >= '0' && stem.back() <= '9')
            stem.pop_back();
        for (int n = 1;; ++n) {
            const std::string name = stem + std::to_string(n) + like.substr(dot);
            if (!package.Find(name)) return name;
        }
    }

    pugi::xml_node ContentTypes() {
        XmlPart* p = Part("[Content_Types].xml");
        return p ? p->doc.document_element() : pugi::xml_node();
    }

    pugi::xml_node OverrideOf(const std::string& part) {
        const std::string name = "/" + part;
        for (pugi::xml_node o : ContentTypes().children()) {
            if (Is(o, "Override") && name == o.attribute("PartName").value()) return o;
        }
        return pugi::xml_node();
    }

    void AddOverride(const std::string& part, const std::string& type) {
        pugi::xml_node types = ContentTypes();
        if (!types || OverrideOf(part)) return;
        pugi::xml_node o = types.append_child((PrefixOf(types) + "Override").c_str());
        SetAttr(o, "PartName", "/" + part);
        SetAttr(o, "ContentType", type);
        Part("[Content_Types].xml")->dirty = true;
    }

    // The relationships part of `part`, made when it has none.
    XmlPart* RelsOf(const std::string& part) {
        const std::string name = RelsPathOf(part);
        if (package.Find(name)) return Part(name);
        XmlPart& rels = NewXml(name);
        Declare(rels.doc);
        rels.doc.append_child("Relationships").append_attribute("xmlns") = kPackageRelsNs;
        return &rels;
    }

    static std::string FreeRelId(pugi::xml_node relationships) {
        for (int n = 1;; ++n) {
            const std::string id = "rId" + std::to_string(n);
            bool used = false;
            for (pugi::xml_node r : relationships.children()) {
                used = used || id == r.attribute("Id").value();
            }
            if (!used) return id;
        }
    }

    std::string AddRelationship(const std::string& from, const std::string& type,
                                const std::string& to) {
        XmlPart* rels = RelsOf(from);
        if (!rels) return "";
        pugi::xml_node root = rels->doc.document_element();
        const std::string id = FreeRelId(root);
        pugi::xml_node r = root.append_child((PrefixOf(root) + "Relationship").c_str());
        SetAttr(r, "Id", id);
        SetAttr(r, "Type", type);
        SetAttr(r, "Target", RelativeTarget(from, to));
        rels->dirty = true;
        return id;
    }

    // Copies a part with the parts it owns (as OwnedBySlide says), under
    // free names; `copied` maps each source part to its copy, and starts
    // with the slide being copied so that a notes page points at its copy.
    std::string CopyPart(const std::string& from, std::map<std::string, std::string>& copied) {
        if (const auto it = copied.find(from); it != copied.end()) return it->second;
        const std::string to = FreeName(from);
        copied[from] = to;
        if (XmlPart* parsed = Parsed(from)) {
            // Parsed parts may hold changes not yet saved; readers that go
            // to the package's bytes meet the copy as it stands.
            XmlPart& copy = NewXml(to);
            copy.doc.reset(parsed->doc);
            Sync(copy);
        } else if (const ZipPart* raw = package.Find(from)) {
            std::string bytes = raw->bytes;
            package.Put(to, std::move(bytes));
        }
        if (const pugi::xml_node o = OverrideOf(from))
            AddOverride(to, o.attribute("ContentType").value());
        CopyRelationships(from, to, copied);
        return to;
    }

    void CopyRelationships(const std::string& from, const std::string& to,
                           std::map<std::string, std::string>& copied) {
        if (!package.Find(RelsPathOf(from))) return;
        XmlPart* source = Part(RelsPathOf(from));
        if (!source) return;
        XmlPart& rels = NewXml(RelsPathOf(to));
        rels.doc.reset(source->doc);
        for (pugi::xml_node r : rels.doc.document_element().children()) {
            if (!Is(r, "Relationship") ||
                std::strcmp(r.attribute("TargetMode").value(), "External") == 0) {
                continue;
            }
            const std::string target = Resolve(from, r.attribute("Target").value());
            std::string now;
            if (const auto it = copied.find(target); it != copied.end()) {
                now = it->second;
            } else if (OwnedBySlide(r.attribute("Type").value()) && package.Find(target)) {
                now = CopyPart(target, copied);
            } else {
                continue;
            }
            SetAttr(r, "Target", WithFileName(r.attribute("Target").value(), now));
        }
        Sync(rels);
    }

    void RemovePart(const std::string& name) {
        for (const std::string& n : {name, RelsPathOf(name)}) {
            package.Remove(n);
            if (XmlPart* p = Parsed(n)) {
                p->removed = true;
                p->dirty = false;
            }
            if (const pugi::xml_node o = OverrideOf(n)) {
                o.parent().remove_child(o);
                Part("[Content_Types].xml")->dirty = true;
            }
        }
    }

    // The slide's tags, from the tags part its custDataLst names.
    bool ReadTags(SlidePart& slide) {
        slide.tags.clear();
        slide.tagsPart.clear();
        XmlPart* p = Part(slide.part);
        if (!p) return false;
        const pugi::xml_node ref = Path(p->doc.document_element(), {"cSld", "custDataLst", "tags"});
        if (!ref) return true;
        const auto rels = Relationships(slide.part);
        const auto target = rels.find(RelIdOf(ref));
        if (target == rels.end() || !package.Find(target->second)) return error.empty();
        XmlPart* tags = Part(target->second);
        if (!tags) return false;
        slide.tagsPart = target->second;
        for (pugi::xml_node tag : tags->doc.document_element().children()) {
            if (!Is(tag, "tag")) continue;
            slide.tags[UpperAscii(Utf8ToUtf16(tag.attribute("name").value()))] =
                Utf8ToUtf16(tag.attribute("val").value());
        }
        return true;
    }

    // Writes a slide's tags into its tags part, making the part (and the
    // slide's reference to it) when the slide had none.
    void WriteTags(const sim::SlideModel& slide, SlidePart& where) {
        if (where.tagsPart.empty()) {
            if (slide.tags.empty()) return;
            XmlPart* page = Part(where.part);
            if (!page) return;
            where.tagsPart = FreeName("ppt/tags/tag1.xml");
            NewXml(where.tagsPart);
            AddOverride(where.tagsPart, kTagsType);
            const std::string id = AddRelationship(
                where.part, std::string(kRelationshipsNs) + "/tags", where.tagsPart);
            pugi::xml_node root = page->doc.document_element();
            const std::string r = PrefixFor(root, kRelationshipsNs, "r");
            // Custom data follows the shape tree in a slide's common data.
            pugi::xml_node cSld = Child(root, "cSld");
            const std::string prefix = PrefixOf(cSld);
            pugi::xml_node list = Child(cSld, "custDataLst");
            if (!list) {
                list = cSld.insert_child_after((prefix + "custDataLst").c_str(),
                                               Child(cSld, "spTree"));
            }
            SetAttr(list.append_child((prefix + "tags").c_str()), (r + "id").c_str(), id);
            page->dirty = true;
        }
        XmlPart* tags = Part(where.tagsPart);
        if (!tags) return;
        tags->doc.reset();
        Declare(tags->doc);
        pugi::xml_node list = tags->doc.append_child("p:tagLst");
        SetAttr(list, "xmlns:p", "http://schemas.openxmlformats.org/presentationml/2006/main");
        for (const auto& [name, value] : slide.tags) {
            pugi::xml_node tag = list.append_child("p:tag");
            SetAttr(tag, "name", Utf16ToUtf8(name));
            SetAttr(tag, "val", Utf16ToUtf8(value));
        }
        tags->dirty = true;
        where.tags = slide.tags;
    }

    // The model of a copy, made by cloning its source's model, carries over
    // onto the shapes read from the copied part: the same tree, now tied to
    // XML of its own.
    static bool Carry(const std::vector<std::shared_ptr<ShapeModel>>& from,
                      const std::vector<std::shared_ptr<ShapeModel>>& into) {
        if (from.size() != into.size()) return false;
        for (std::size_t i = 0; i < from.size(); ++i) {
            const ShapeModel& a = *from[i];
            ShapeModel& b = *into[i];
            if (a.id != b.id || a.type != b.type || !Carry(a.children, b.children)) return false;
            if (a.hasTextFrame && b.hasTextFrame) b.frame = a.frame;
            b.left = a.left, b.top = a.top, b.width = a.width, b.height = a.height;
            b.deleted = a.deleted;
            if (a.chart && b.chart) *b.chart = *a.chart;
            if (a.smartArt && b.smartArt) *b.smartArt = *a.smartArt;
            if (a.table && b.table && !Carry(a.table->cells, b.table->cells)) return false;
        }
        return true;
    }

    // Gives a copied slide parts of its own: its source's part and owned
    // parts copied, a relationship from the presentation, and its shapes
    // read from the copy.
    bool MakeSlidePart(const std::shared_ptr<sim::SlideModel>& slide, const SlidePart& source,
                       std::int32_t number) {
        std::map<std::string, std::string> copied;
        const std::string part = CopyPart(source.part, copied);
        if (!error.empty()) return false;
        SlidePart made;
        made.part = part;
        made.relId = AddRelationship(mainPart, std::string(kRelationshipsNs) + "/slide", part);
        if (!ReadTags(made)) return false;
        std::vector<std::shared_ptr<ShapeModel>> shapes, notesShapes;
        const std::string where = "slide " + std::to_string(number);
        slideNumber = number;
        SetPage(part, false);
        if (!error.empty() || !ReadShapes(part, shapes, where)) return false;
        const std::string notes = TargetOfType(part, "/notesSlide");
        if (!notes.empty() && package.Find(notes)) {
            SetPage(notes, true);
            if (!error.empty() || !ReadShapes(notes, notesShapes, where + " notes")) return false;
        }
        if (!Carry(slide->shapes, shapes) || !Carry(slide->notesShapes, notesShapes)) {
            error = where + ": the copy's shapes no longer match its source's";
            return false;
        }
        slide->shapes = std::move(shapes);
        slide->notesShapes = std::move(notesShapes);
        slideParts[slide] = std::move(made);
        return true;
    }

    // Brings the package's slides in line with the model's: parts for the
    // copies a run made, the list in the model's order, deleted slides taken
    // out, changed tags written.
    bool ArrangeSlides() {
        for (bool progress = true; progress;) {
            progress = false;
            std::int32_t number = 0;
            bool waiting = false;
            for (const auto& slide : model->slides) {
                ++number;
                if (slideParts.count(slide)) continue;
                const SlidePart* source = nullptr;
                for (const auto& [known, where] : slideParts) {
                    if (slide->copiedFrom != 0 && known->slideId == slide->copiedFrom)
                        source = &where;
                }
                if (!source) {
                    waiting = true;
                    continue;
                }
                const SlidePart from = *source;
                if (!MakeSlidePart(slide, from, number)) return false;
                progress = true;
            }
            if (!progress && waiting) {
                error = "a new slide that copies no slide of the file can't be written";
                return false;
            }
        }
        XmlPart* presentation = Part(mainPart);
        XmlPart* rels = Part(RelsPathOf(mainPart));
        if (!presentation || !rels) return false;
        // Slides gone from the model leave the package with their notes.
        for (auto it = slideParts.begin(); it != slideParts.end();) {
            if (std::find(model->slides.begin(), model->slides.end(), it->first) !=
                model->slides.end()) {
                ++it;
                continue;
            }
            const std::string notes = TargetOfType(it->second.part, "/notesSlide");
            for (pugi::xml_node r : rels->doc.document_element().children()) {
                if (it->second.relId == r.attribute("Id").value()) {
                    rels->doc.document_element().remove_child(r);
                    rels->dirty = true;
                    break;
                }
            }
            if (!notes.empty()) RemovePart(notes);
            RemovePart(it->second.part);
            it = slideParts.erase(it);
        }
        // The list of slides in the model's order, rewritten only when it differs.
        pugi::xml_node list = Child(presentation->doc.document_element(), "sldIdLst");
        std::vector<std::int32_t> inFile, inModel;
        for (pugi::xml_node id : list.children()) {
            if (Is(id, "sldId")) inFile.push_back(id.attribute("id").as_int());
        }
        for (const auto& slide : model->slides)
            inModel.push_back(slide->slideId);
        if (inFile != inModel && list) {
            std::string r = "r";
            for (pugi::xml_node id : list.children()) {
                for (pugi::xml_attribute a = id.first_attribute(); a; a = a.next_attribute()) {
                    if (const char* colon = std::strchr(a.name(), ':')) r.assign(a.name(), colon);
                }
            }
            const std::string prefix = PrefixOf(list);
            while (list.first_child())
                list.remove_child(list.first_child());
            for (const auto& slide : model->slides) {
                pugi::xml_node id = list.append_child((prefix + "sldId").c_str());
                SetAttr(id, "id", std::to_string(slide->slideId));
                SetAttr(id, (r + ":id").c_str(), slideParts[slide].relId);
            }
            presentation->dirty = true;
        }
        for (auto& [slide, where] : slideParts) {
            if (slide->tags != where.tags) WriteTags(*slide, where);
        }
        return error.empty();
    }

    bool Load(const std::string& path) {
        model = std::make_shared<sim::PresentationModel>();
        model->fullName = Utf8ToUtf16(path);
        std::string main;
        if (!package.Find("_rels/.rels")) {
            error = "not a presentation: the package has no _rels/.rels";
            return false;
        }
        main = TargetOfType("", "/officeDocument");
        mainPart = main;
        if (!error.empty()) return false;
        if (main.empty() || !package.Find(main)) {
            error = "not a presentation: no presentation part";
            return false;
        }
        XmlPart* presentation = Part(main);
        if (!presentation) return false;
        const pugi::xml_node root = presentation->doc.document_element();
        if (!Is(root, "presentation")) {
            error = main + ": not a presentation part";
            return false;
        }
        defaultTextStyle = Child(root, "defaultTextStyle");
        if (const pugi::xml_node size = Child(root, "sldSz")) {
            model->slideWidth = static_cast<float>(Attr(size, "cx").as_llong()) / kEmuPerPoint;
            model->slideHeight = static_cast<float>(Attr(size, "cy").as_llong()) / kEmuPerPoint;
        }
        const auto rels = Relationships(main);
        if (!error.empty()) return false;
        std::int32_t number = 0;
        for (pugi::xml_node id : Child(root, "sldIdLst").children()) {
            if (!Is(id, "sldId")) continue;
            ++number;
            // The relationship id is the prefixed id; the unprefixed one is the slide's.
            const std::string rid = RelIdOf(id);
            const auto target = rels.find(rid);
            if (target == rels.end()) {
                error = main + ": slide " + std::to_string(number) + " has no relationship";
                return false;
            }
            auto slide = std::make_shared<sim::SlideModel>();
            slide->slideId = id.attribute("id").as_int();
            model->nextSlideId = std::max(model->nextSlideId, slide->slideId + 1);
            const std::string where = "slide " + std::to_string(number);
            slideNumber = number;
            SetPage(target->second, false);
            if (!error.empty() || !ReadShapes(target->second, slide->shapes, where)) return false;
            if (XmlPart* sp = Part(target->second)) {
                slide->name =
                    Utf8ToUtf16(Attr(Child(sp->doc.document_element(), "cSld"), "name").value());
            }
            const std::string notes = TargetOfType(target->second, "/notesSlide");
            if (!error.empty()) return false;
            if (!notes.empty() && package.Find(notes)) {
                SetPage(notes, true);
                if (!error.empty() || !ReadShapes(notes, slide->notesShapes, where + " notes")) {
                    return false;
                }
            }
            SlidePart part{target->second, rid, "", {}};
            if (!ReadTags(part)) return false;
            slide->tags = part.tags;
            slideParts[slide] = std::move(part);
            model->slides.push_back(slide);
        }
        // New shapes take ids above every id the file holds.
        std::function<void(const std::vector<std::shared_ptr<ShapeModel>>&)> ids =
            [&](const std::vector<std::shared_ptr<ShapeModel>>& shapes) {
                for (const auto& shape : shapes) {
                    model->nextShapeId = std::max(model->nextShapeId, shape->id + 1);
                    ids(shape->children);
                }
            };
        for (const auto& slide : model->slides) {
            ids(slide->shapes);
            ids(slide->notesShapes);
        }
        return true;
    }
};

PptxDeck::PptxDeck(std::unique_ptr<State> state) : state_(std::move(state)) {}
PptxDeck::~PptxDeck() = default;

std::unique_ptr<PptxDeck> PptxDeck::Open(const std::string& path, std::string& error,
                                         const ZipLimits& limits) {
    auto state = std::make_unique<State>();
    state->charts.SetLimits(limits);
    error = state->package.Read(path, limits);
    if (!error.empty()) return nullptr;
    if (!state->Load(path)) {
        error = state->error.empty() ? "can't read the presentation" : state->error;
        return nullptr;
    }
    return std::unique_ptr<PptxDeck>(new PptxDeck(std::move(state)));
}

const std::shared_ptr<sim::PresentationModel>& PptxDeck::Model() const {
    return state_->model;
}

std::size_t PptxDeck::FramesWritten() const {
    return state_->framesWritten;
}

std::vector<ChartText> PptxDeck::ChartTexts() const {
    return state_->charts.Texts();
}

std::size_t PptxDeck::ChartsWritten() const {
    return state_->charts.ChartsWritten();
}

const std::vector<std::string>& PptxDeck::ChartProblems() const {
    return state_->charts.Problems();
}

std::vector<FrameText> PptxDeck::Texts() const {
    std::vector<FrameText> out;
    for (const Frame& f : state_->frames)
        out.push_back({f.place, f.shape->frame.text, f.shape->frame.formats});
    return out;
}

std::string PptxDeck::Save(const std::string& path) {
    State& s = *state_;
    s.framesWritten = 0;
    s.error.clear();
    if (!s.ArrangeSlides()) return s.error.empty() ? "can't arrange the slides" : s.error;
    for (Frame& frame : s.frames) {
        if (s.parts[frame.part].removed) continue;
        const sim::TextFrameModel& now = frame.shape->frame;
        const pugi::xml_node bodyPr = Child(frame.body, "bodyPr");
        const std::string prefix =
            PrefixOf(frame.body.first_child() ? frame.body.first_child() : frame.body);
        bool changed = false;
        if (now.autoSize != frame.autoSize && bodyPr) {
            WriteAutoSize(bodyPr, now.autoSize, PrefixOf(bodyPr));
            frame.autoSize = now.autoSize;
            changed = true;
        }
        if (now.wordWrap != frame.wordWrap && bodyPr) {
            SetAttr(bodyPr, "wrap", now.wordWrap ? "square" : "none");
            frame.wordWrap = now.wordWrap;
            changed = true;
        }
        if (now.text != frame.text || now.formats != frame.formats) {
            const std::vector<Span> was = SplitParagraphs(frame.text);
            const std::vector<Span> is = SplitParagraphs(now.text);
            if (was.size() == is.size() && was.size() == frame.paragraphs.size()) {
                // Paragraph for paragraph: those the run didn't touch keep their XML.
                for (std::size_t k = 0; k < is.size(); ++k) {
                    const bool same =
                        frame.text.compare(was[k].start, was[k].end - was[k].start, now.text,
                                           is[k].start, is[k].end - is[k].start) == 0 &&
                        std::equal(
                            frame.formats.begin() + static_cast<std::ptrdiff_t>(was[k].start),
                            frame.formats.begin() + static_cast<std::ptrdiff_t>(was[k].end),
                            now.formats.begin() + static_cast<std::ptrdiff_t>(is[k].start),
                            now.formats.begin() + static_cast<std::ptrdiff_t>(is[k].end));
                    if (same) continue;
                    ClearRuns(frame.paragraphs[k]);
                    FillParagraph(frame.paragraphs[k], frame, now.text, now.formats, is[k].start,
                                  is[k].end, k);
                }
            } else {
                // Paragraphs came or went: each new one takes the properties
                // of the paragraph its end (or its first character) came from.
                const pugi::xml_node anchor =
                    frame.paragraphs.empty() ? pugi::xml_node() : frame.paragraphs.back();
                std::vector<pugi::xml_node> made;
                for (std::size_t k = 0; k < is.size(); ++k) {
                    std::size_t from = frame.paragraphs.empty() ? 0 : frame.paragraphs.size() - 1;
                    const std::size_t endAt = is[k].end;
                    const CharFormat* key = endAt < now.formats.size() ? &now.formats[endAt]
                                            : is[k].start < is[k].end  ? &now.formats[is[k].start]
                                                                       : nullptr;
                    if (key && key->source >= 1 &&
                        static_cast<std::size_t>(key->source) <= frame.sources.size()) {
                        from = frame.sources[static_cast<std::size_t>(key->source - 1)].paragraph;
                    }
                    pugi::xml_node p;
                    if (!frame.paragraphs.empty()) {
                        p = frame.body.insert_copy_after(frame.paragraphs[from],
                                                         made.empty() ? anchor : made.back());
                        ClearRuns(p);
                    } else {
                        p = frame.body.append_child((prefix + "p").c_str());
                    }
                    FillParagraph(p, frame, now.text, now.formats, is[k].start, is[k].end);
                    made.push_back(p);
                }
                for (pugi::xml_node old : frame.paragraphs)
                    frame.body.remove_child(old);
                frame.paragraphs = made;
            }
            changed = true;
        }
        frame.text = now.text;
        frame.formats = now.formats;
        if (changed) {
            s.parts[frame.part].dirty = true;
            ++s.framesWritten;
        }
    }
    for (Placed& p : s.placed) {
        if (s.parts[p.part].removed) continue;
        const ShapeModel& shape = *p.shape;
        if (shape.left == p.left && shape.top == p.top && shape.width == p.width &&
            shape.height == p.height) {
            continue;
        }
        // Back into the coordinates of the shape's group.
        const Transform& t = p.transform;
        const auto emu = [](double value) {
            return std::to_string(static_cast<long long>(value + (value < 0 ? -0.5 : 0.5)));
        };
        const auto at = [](float points) { return static_cast<double>(points) * kEmuPerPoint; };
        if (Is(p.xfrm, "spPr")) {
            // Position and size come first among a shape's properties.
            const std::string a = PrefixFor(p.xfrm, kDrawingNs, "a");
            pugi::xml_node xfrm = p.xfrm.prepend_child((a + "xfrm").c_str());
            xfrm.append_child((a + "off").c_str());
            xfrm.append_child((a + "ext").c_str());
            p.xfrm = xfrm;
        }
        pugi::xml_node off = Child(p.xfrm, "off"), ext = Child(p.xfrm, "ext");
        if (!off || !ext || t.scaleX <= 0 || t.scaleY <= 0) continue;
        SetAttr(off, "x", emu((at(shape.left) - t.offsetX) / t.scaleX));
        SetAttr(off, "y", emu((at(shape.top) - t.offsetY) / t.scaleY));
        SetAttr(ext, "cx", emu(at(shape.width) / t.scaleX));
        SetAttr(ext, "cy", emu(at(shape.height) / t.scaleY));
        p.left = shape.left, p.top = shape.top, p.width = shape.width, p.height = shape.height;
        s.parts[p.part].dirty = true;
    }
    s.diagrams.Write(s.package);
    for (XmlPart& part : s.parts) {
        if (!part.dirty) continue;
        std::ostringstream out;
        part.doc.save(out, "", pugi::format_raw, pugi::encoding_utf8);
        s.package.Put(part.name, out.str());
    }
    const std::string charts = s.charts.Save(s.package);
    if (!charts.empty()) return charts;
    return s.package.Write(path);
}

}  // namespace qb::pptx
