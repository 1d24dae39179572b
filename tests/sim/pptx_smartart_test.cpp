// SmartArt in presentation files: node text read from a diagram's data part,
// translated by the front end and written into the data part and into the
// drawing part readers show; diagrams without a drawing or with a data part
// that can't be read leave the rest of the deck to translate.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <pugixml.hpp>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "foundation/text.h"
#include "sim/pptx/pptx_deck.h"
#include "sim/service/pseudo_translate.h"
#include "slides/writeback.h"
#include "support/cli_fixture.h"
#include "support/pptx_parts.h"
#include "support/pptx_writer.h"
#include "support/temp_dir.h"

namespace qb {
namespace {

using pptx::PptxDeck;
using pptx::ZipPackage;
using test::DeckWriter;
using test::PartsOf;

constexpr const char* kDgm =
    R"( xmlns:dgm="http://schemas.openxmlformats.org/drawingml/2006/diagram")"
    R"( xmlns:a="http://schemas.openxmlformats.org/drawingml/2006/main")";
const std::string kOfficeRels = DeckWriter::kRels;

std::string Para(const std::string& text, const std::string& rPr = R"(<a:rPr lang="en-US"/>)") {
    return "<a:p><a:r>" + rPr + "<a:t>" + text + "</a:t></a:r></a:p>";
}

std::string Point(const std::string& id, const std::string& paragraphs,
                  const std::string& type = "") {
    return R"(<dgm:pt modelId=")" + id + "\"" + (type.empty() ? "" : " type=\"" + type + "\"") +
           "><dgm:prSet/><dgm:spPr/><dgm:t><a:bodyPr/><a:lstStyle/>" + paragraphs +
           "</dgm:t></dgm:pt>";
}

std::string Pres(const std::string& id, const std::string& assoc) {
    return R"(<dgm:pt modelId=")" + id + R"(" type="pres"><dgm:prSet presAssocID=")" + assoc +
           R"(" presName="node"/><dgm:spPr/></dgm:pt>)";
}

std::string Cxn(const std::string& src, const std::string& dest, int ord,
                const std::string& type = "") {
    return R"(<dgm:cxn modelId="c)" + src + dest + "\"" +
           (type.empty() ? "" : " type=\"" + type + "\"") + " srcId=\"" + src + "\" destId=\"" +
           dest + "\" srcOrd=\"" + std::to_string(ord) + R"(" destOrd="0"/>)";
}

std::string Shape(const std::string& modelId, const std::string& paragraphs) {
    return R"(<dsp:sp modelId=")" + modelId +
           R"("><dsp:nvSpPr><dsp:cNvPr id="0" name=""/><dsp:cNvSpPr/></dsp:nvSpPr><dsp:spPr/>)"
           R"(<dsp:txBody><a:bodyPr/><a:lstStyle/>)" +
           paragraphs + "</dsp:txBody></dsp:sp>";
}

// A diagram's tree: Plan and Build at the top, Build's two details below it,
// then Ship and a number. Its drawing shows Plan by a presOf connection,
// Build through a presentation point's presAssocID, both details as two
// paragraphs of one shape, and Ship in a shape nothing ties to it.
const std::string kNodes =
    Point("doc", "", "doc") +
    Point("n1", Para("Plan", R"(<a:rPr lang="en-US" b="1"/>)") + Para("ahead")) +
    Point("n2", Para("Build")) + Point("n3", Para("Detail A")) + Point("n4", Para("Detail B")) +
    Point("n5", Para("Ship")) + Point("n6", Para("2024")) + Point("t1", Para("Arrow"), "sibTrans") +
    Pres("p1", "doc") + Pres("p2", "n2") + Pres("p3", "n2");
const std::string kLinks = Cxn("doc", "n6", 3) + Cxn("doc", "n5", 2) + Cxn("n2", "n4", 1) +
                           Cxn("n2", "n3", 0) + Cxn("doc", "n2", 1) + Cxn("doc", "n1", 0) +
                           Cxn("n1", "p1", 0, "presOf") + Cxn("n3", "p3", 0, "presOf") +
                           Cxn("n4", "p3", 1, "presOf") + Cxn("n6", "p6", 0, "presOf");
const std::string kShapes =
    Shape("p1", R"(<a:p><a:pPr algn="ctr"/><a:r><a:rPr lang="en-US" sz="1800" b="1"/>)"
                R"(<a:t>Plan</a:t></a:r></a:p>)" +
                    Para("ahead")) +
    Shape("p2", Para("Build")) + Shape("p3", Para("Detail A") + Para("Detail B")) +
    Shape("s5", Para("Ship")) + Shape("p6", Para("2024"));

std::string DataPart(const std::string& points, const std::string& links, bool drawing) {
    return std::string(DeckWriter::kXmlHead) + "<dgm:dataModel" + kDgm + "><dgm:ptLst>" + points +
           "</dgm:ptLst><dgm:cxnLst>" + links + "</dgm:cxnLst><dgm:bg/><dgm:whole/>" +
           (drawing
                ? R"(<dgm:extLst><a:ext uri="http://schemas.microsoft.com/office/drawing/2008/diagram">)"
                  R"(<dsp:dataModelExt xmlns:dsp="http://schemas.microsoft.com/office/drawing/2008/diagram")"
                  R"( relId="rId9" minVer="http://schemas.openxmlformats.org/drawingml/2006/diagram"/>)"
                  R"(</a:ext></dgm:extLst>)"
                : "") +
           "</dgm:dataModel>";
}

// Adds diagram `n` (data, layout, style, colours and, when given, drawing
// parts) and a slide that shows it beside a text box.
void AddDiagramSlide(DeckWriter& w, int n, const std::string& data, const std::string& shapes) {
    const std::string ns = std::to_string(n);
    const std::string dir = "ppt/diagrams/", ct = "application/vnd.openxmlformats-officedocument.";
    const std::string uri = "urn:microsoft.com/office/officeart/2005/8/";
    if (!data.empty()) w.Part(dir + "data" + ns + ".xml", data, ct + "drawingml.diagramData+xml");
    w.Part(dir + "layout" + ns + ".xml",
           std::string(DeckWriter::kXmlHead) + "<dgm:layoutDef" + kDgm + " uniqueId=\"" + uri +
               "layout/default\"><dgm:layoutNode name=\"diagram\"/></dgm:layoutDef>",
           ct + "drawingml.diagramLayout+xml");
    w.Part(dir + "quickStyle" + ns + ".xml",
           std::string(DeckWriter::kXmlHead) + "<dgm:styleDef" + kDgm + " uniqueId=\"" + uri +
               "quickstyle/simple1\"/>",
           ct + "drawingml.diagramStyle+xml");
    w.Part(dir + "colors" + ns + ".xml",
           std::string(DeckWriter::kXmlHead) + "<dgm:colorsDef" + kDgm + " uniqueId=\"" + uri +
               "colors/accent1_2\"/>",
           ct + "drawingml.diagramColors+xml");
    std::string rels =
        DeckWriter::Rel("rId3", kOfficeRels + "/diagramData", "../diagrams/data" + ns + ".xml") +
        DeckWriter::Rel("rId4", kOfficeRels + "/diagramLayout",
                        "../diagrams/layout" + ns + ".xml") +
        DeckWriter::Rel("rId5", kOfficeRels + "/diagramQuickStyle",
                        "../diagrams/quickStyle" + ns + ".xml") +
        DeckWriter::Rel("rId6", kOfficeRels + "/diagramColors", "../diagrams/colors" + ns + ".xml");
    if (!shapes.empty()) {
        w.Part(dir + "drawing" + ns + ".xml",
               std::string(DeckWriter::kXmlHead) + "<dsp:drawing" + kDgm +
                   R"( xmlns:dsp="http://schemas.microsoft.com/office/drawing/2008/diagram">)"
                   R"(<dsp:spTree><dsp:nvGrpSpPr><dsp:cNvPr id="0" name=""/><dsp:cNvGrpSpPr/>)"
                   R"(</dsp:nvGrpSpPr><dsp:grpSpPr/>)" +
                   shapes + "</dsp:spTree></dsp:drawing>",
               "application/vnd.ms-office.drawingml.diagramDrawing+xml");
        rels += DeckWriter::Rel("rId9",
                                "http://schemas.microsoft.com/office/2007/relationships/"
                                "diagramDrawing",
                                "../diagrams/drawing" + ns + ".xml");
    }
    w.Slide(
        DeckWriter::Box(2, "Title", DeckWriter::Para("Quarterly plan")) +
            R"(<p:graphicFrame><p:nvGraphicFramePr><p:cNvPr id="4" name="Diagram"/>)"
            R"(<p:cNvGraphicFramePr/><p:nvPr/></p:nvGraphicFramePr><p:xfrm><a:off x="0" y="0"/>)"
            R"(<a:ext cx="6000000" cy="3000000"/></p:xfrm><a:graphic><a:graphicData )"
            R"(uri="http://schemas.openxmlformats.org/drawingml/2006/diagram"><dgm:relIds )"
            R"(xmlns:dgm="http://schemas.openxmlformats.org/drawingml/2006/diagram" )"
            R"(r:dm="rId3" r:lo="rId4" r:qs="rId5" r:cs="rId6"/></a:graphicData></a:graphic>)"
            R"(</p:graphicFrame>)",
        "", rels);
}

// The text of the element `tag` whose modelId is `id`, as the host shows it.
std::u16string TextIn(const std::string& xml, const std::string& tag, const std::string& id) {
    pugi::xml_document doc;
    EXPECT_TRUE(
        doc.load_buffer(xml.data(), xml.size(), pugi::parse_default | pugi::parse_ws_pcdata));
    const pugi::xml_node node =
        doc.select_node(("//" + tag + "[@modelId='" + id + "']").c_str()).node();
    EXPECT_TRUE(node) << tag << " " << id;
    std::u16string text;
    const pugi::xpath_node_set paragraphs = node.select_nodes(".//a:p");
    for (std::size_t i = 0; i < paragraphs.size(); ++i) {
        if (i > 0) text += u'\r';
        for (pugi::xml_node c : paragraphs[i].node().children()) {
            if (std::string(c.name()) == "a:br") text += u'\v';
            text += Utf8ToUtf16(c.child("a:t").text().get());
        }
    }
    return text;
}

std::vector<std::u16string> NodesOf(const PptxDeck& deck, std::size_t slide) {
    std::vector<std::u16string> out;
    const auto& shape = deck.Model()->slides[slide]->shapes[1];
    EXPECT_EQ(shape->type, sim::ShapeType::SmartArt);
    if (!shape->smartArt || !shape->smartArt->usable) return out;
    for (const auto& node : shape->smartArt->nodes)
        out.push_back(node.text);
    return out;
}

class PptxSmartArtTest : public test::CliFixture {
  protected:
    int RunCli(const std::string& args) {
        std::string err;
        return CliFixture::RunCli("-q " + args, err);
    }
};

TEST_F(PptxSmartArtTest, TheFrontEndTranslatesEveryNodeInTheDataAndTheDrawing) {
    // The second slide is what copying the first gives: its own copies of
    // the diagram's parts.
    DeckWriter w;
    AddDiagramSlide(w, 1, DataPart(kNodes, kLinks, true), kShapes);
    AddDiagramSlide(w, 2, DataPart(kNodes, kLinks, true), kShapes);
    ASSERT_EQ(w.Write(Path("deck.pptx")), "");
    std::string error;
    const auto in = PptxDeck::Open(Path("deck.pptx"), error);
    ASSERT_TRUE(in) << error;
    const std::vector<std::u16string> nodes = {u"Plan\rahead", u"Build", u"Detail A",
                                               u"Detail B",    u"Ship",  u"2024"};
    EXPECT_EQ(NodesOf(*in, 0), nodes) << "every node, parents before children, by srcOrd";
    ASSERT_EQ(in->Save(Path("same.pptx")), "");
    EXPECT_EQ(PartsOf(Path("same.pptx")), PartsOf(Path("deck.pptx")));

    ASSERT_EQ(RunCli("--to de -o " + Path("out.pptx") + " " + Path("deck.pptx")), 0);
    const auto out = PptxDeck::Open(Path("out.pptx"), error);
    ASSERT_TRUE(out) << error;
    const auto before = PartsOf(Path("deck.pptx")), after = PartsOf(Path("out.pptx"));
    const std::map<std::string, std::u16string> shown = {
        {"n1", T(u"Plan\rahead")}, {"n2", T(u"Build")}, {"n3", T(u"Detail A")},
        {"n4", T(u"Detail B")},    {"n5", T(u"Ship")},  {"n6", u"2024"}};
    const std::map<std::string, std::u16string> drawn = {
        {"p1", shown.at("n1")},
        {"p2", shown.at("n2")},
        {"p3", shown.at("n3") + u"\r" + shown.at("n4")},
        {"s5", shown.at("n5")},
        {"p6", u"2024"}};
    for (std::size_t slide = 0; slide < 2; ++slide) {
        SCOPED_TRACE(slide);
        EXPECT_EQ(NodesOf(*out, slide)[0], shown.at("n1"));
        const std::string n = std::to_string(slide + 1);
        const std::string data = after.at("ppt/diagrams/data" + n + ".xml");
        const std::string drawing = after.at("ppt/diagrams/drawing" + n + ".xml");
        for (const auto& [id, text] : shown)
            EXPECT_EQ(TextIn(data, "dgm:pt", id), text) << id;
        EXPECT_EQ(TextIn(data, "dgm:pt", "t1"), u"Arrow") << "a transition is no node";
        for (const auto& [id, text] : drawn)
            EXPECT_EQ(TextIn(drawing, "dsp:sp", id), text) << id;
        // The first run's properties carry the new text; the paragraph's stay.
        const std::string plan = Utf16ToUtf8(shown.at("n1"));
        EXPECT_NE(data.find(R"(<a:rPr lang="en-US" b="1"/><a:t>)" + plan), std::string::npos);
        EXPECT_NE(drawing.find(R"(<a:pPr algn="ctr"/><a:r><a:rPr lang="en-US" sz="1800" b="1"/>)"
                               "<a:t>" +
                               plan),
                  std::string::npos)
            << drawing;
    }
    for (const auto& [name, bytes] : before) {
        if (name.find("/data") != std::string::npos || name.find("/drawing") != std::string::npos ||
            name.rfind("ppt/slides/slide", 0) == 0) {
            continue;
        }
        EXPECT_EQ(after.at(name), bytes) << name << " is not the run's to change";
    }
}

TEST_F(PptxSmartArtTest, NodeTextKeepsItsParagraphsAndOnlyItsOwnPartOfASharedShape) {
    DeckWriter w;
    AddDiagramSlide(w, 1, DataPart(kNodes, kLinks, true), kShapes);
    ASSERT_EQ(w.Write(Path("deck.pptx")), "");
    std::string error;
    const auto deck = PptxDeck::Open(Path("deck.pptx"), error);
    ASSERT_TRUE(deck) << error;
    auto& nodes = deck->Model()->slides[0]->shapes[1]->smartArt->nodes;
    nodes[0].text = u"Eins\rZwei\vDrei\rVier";
    nodes[3].text = u"Einzelheit";
    ASSERT_EQ(deck->Save(Path("out.pptx")), "");
    const auto after = PartsOf(Path("out.pptx"));
    const std::string data = after.at("ppt/diagrams/data1.xml");
    const std::string drawing = after.at("ppt/diagrams/drawing1.xml");
    EXPECT_EQ(TextIn(data, "dgm:pt", "n1"), u"Eins\rZwei\vDrei\rVier");
    EXPECT_EQ(TextIn(drawing, "dsp:sp", "p1"), u"Eins\rZwei\vDrei\rVier");
    EXPECT_EQ(TextIn(drawing, "dsp:sp", "p3"), u"Detail A\rEinzelheit");
    EXPECT_EQ(TextIn(data, "dgm:pt", "n3"), u"Detail A");
    EXPECT_EQ(after.at("ppt/slides/slide1.xml"),
              PartsOf(Path("deck.pptx")).at("ppt/slides/slide1.xml"));
    const auto reopened = PptxDeck::Open(Path("out.pptx"), error);
    ASSERT_TRUE(reopened) << error;
    EXPECT_EQ(NodesOf(*reopened, 0)[3], u"Einzelheit");
}

TEST_F(PptxSmartArtTest, ADiagramWithoutDrawingIsTranslatedAndOneUnreadableIsLeftAsItIs) {
    const struct {
        const char* name;
        std::string data;  // empty: the part is missing
        bool drawing;
        bool usable;
    } cases[] = {
        {"no drawing part", DataPart(kNodes, kLinks, false), false, true},
        {"broken data part", "<dgm:dataModel" + std::string(kDgm) + "><dgm:ptLst><dgm:pt>", true,
         false},
        {"data part missing", "", true, false},
        {"data part of another kind", std::string(DeckWriter::kXmlHead) + "<p:sld/>", true, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DeckWriter w;
        AddDiagramSlide(w, 1, c.data, c.drawing ? kShapes : "");
        ASSERT_EQ(w.Write(Path("deck.pptx")), "");
        ASSERT_EQ(RunCli("--to de -o " + Path("out.pptx") + " " + Path("deck.pptx")), 0);
        std::string error;
        const auto out = PptxDeck::Open(Path("out.pptx"), error);
        ASSERT_TRUE(out) << error;
        EXPECT_EQ(out->Texts().at(0).text, T(u"Quarterly plan")) << "the rest is translated";
        const auto& art = out->Model()->slides[0]->shapes[1]->smartArt;
        ASSERT_TRUE(art);
        EXPECT_EQ(art->usable, c.usable) << "the engine counts it as a graphic it couldn't read";
        const auto before = PartsOf(Path("deck.pptx")), after = PartsOf(Path("out.pptx"));
        if (c.usable) {
            EXPECT_EQ(TextIn(after.at("ppt/diagrams/data1.xml"), "dgm:pt", "n4"), T(u"Detail B"));
        }
        for (const auto& [name, bytes] : before) {
            if (name.find("/data") != std::string::npos && c.usable) continue;
            if (name == "ppt/slides/slide1.xml") continue;
            EXPECT_EQ(after.at(name), bytes) << name;
        }
    }
}

}  // namespace
}  // namespace qb
