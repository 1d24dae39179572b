// Charts in presentation files: decks with chart parts and a small embedded
// workbook, translated by the front end and read back from the saved file:
// titles, labels, the caches a viewer draws from and the workbook's cells
// carry the translation, numbers and untouched parts stay as they were, and
// a chart that can't be read costs only itself.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>
#include <map>
#include <set>
#include <string>

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

const std::string kChartNs =
    R"( xmlns:c="http://schemas.openxmlformats.org/drawingml/2006/chart")"
    R"( xmlns:a="http://schemas.openxmlformats.org/drawingml/2006/main")"
    R"( xmlns:r="http://schemas.openxmlformats.org/officeDocument/2006/relationships")";
const std::string kChartType = "application/vnd.openxmlformats-officedocument.drawingml.chart+xml";
const std::string kRelsHead =
    std::string(DeckWriter::kXmlHead) +
    R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)";

std::string Frame(int id, const std::string& name, const std::string& rid) {
    return R"(<p:graphicFrame><p:nvGraphicFramePr><p:cNvPr id=")" + std::to_string(id) +
           R"(" name=")" + name +
           R"("/><p:cNvGraphicFramePr/><p:nvPr/></p:nvGraphicFramePr><p:xfrm><a:off x="0" y="0"/>)"
           R"(<a:ext cx="4000000" cy="3000000"/></p:xfrm><a:graphic><a:graphicData)"
           R"( uri="http://schemas.openxmlformats.org/drawingml/2006/chart"><c:chart)" +
           kChartNs + R"( r:id=")" + rid + R"("/></a:graphicData></a:graphic></p:graphicFrame>)";
}

std::string Rich(const std::string& runs) {
    return "<c:tx><c:rich><a:bodyPr/><a:lstStyle/><a:p>" + runs + "</a:p></c:rich></c:tx>";
}

std::string Run(const std::string& text, const std::string& attrs = "") {
    return R"(<a:r><a:rPr lang="en-US")" + attrs + "/><a:t>" + text + "</a:t></a:r>";
}

std::string StrCache(const std::string& f, std::initializer_list<const char*> points) {
    std::string xml = "<c:strRef><c:f>" + f + "</c:f><c:strCache><c:ptCount val=\"" +
                      std::to_string(points.size()) + "\"/>";
    int i = 0;
    for (const char* p : points)
        xml += "<c:pt idx=\"" + std::to_string(i++) + "\"><c:v>" + p + "</c:v></c:pt>";
    return xml + "</c:strCache></c:strRef>";
}

const std::string kValues =
    "<c:val><c:numRef><c:f>Sheet1!$B$2:$B$4</c:f><c:numCache><c:formatCode>General</"
    "c:formatCode><c:ptCount val=\"3\"/><c:pt idx=\"0\"><c:v>200</c:v></c:pt><c:pt idx=\"1\">"
    "<c:v>300</c:v></c:pt><c:pt idx=\"2\"><c:v>400</c:v></c:pt></c:numCache></c:numRef></c:val>";

std::string ChartXml(const std::string& title, const std::string& series, const std::string& axes) {
    return std::string(DeckWriter::kXmlHead) + "<c:chartSpace" + kChartNs + "><c:chart><c:title>" +
           title + "</c:title><c:plotArea><c:layout/><c:barChart><c:barDir val=\"col\"/>" + series +
           R"(<c:axId val="11"/><c:axId val="22"/></c:barChart>)" + axes +
           R"(</c:plotArea></c:chart><c:externalData r:id="rId1"/></c:chartSpace>)";
}

// A column chart on its embedded workbook: every kind of text a chart holds.
std::string EmbeddedChart() {
    const std::string labels =
        "<c:dLbls><c:dLbl><c:idx val=\"0\"/>" + Rich(Run("Best month")) +
        R"(<c:showVal val="1"/></c:dLbl><c:dLbl><c:idx val="1"/>)" +
        Rich(R"(<a:fld id="{1}" type="VALUE"><a:rPr lang="en-US"/><a:t>[VALUE]</a:t></a:fld>)" +
             Run(" units")) +
        R"(<c:showVal val="1"/></c:dLbl><c:showVal val="0"/><c:showCatName val="0"/>)"
        R"(<c:showSerName val="0"/><c:showPercent val="0"/></c:dLbls>)";
    const std::string series = R"(<c:ser><c:idx val="0"/><c:order val="0"/><c:tx>)" +
                               StrCache("Sheet1!$B$1", {"Sales"}) + "</c:tx>" + labels + "<c:cat>" +
                               StrCache("Sheet1!$A$2:$A$4", {"North", "South", "2024"}) +
                               "</c:cat>" + kValues + "</c:ser>";
    const std::string axes =
        R"(<c:catAx><c:axId val="11"/><c:delete val="0"/><c:title>)" + Rich(Run("Region")) +
        R"(</c:title><c:crossAx val="22"/></c:catAx><c:valAx><c:axId val="22"/>)"
        R"(<c:delete val="0"/><c:title>)" +
        Rich(Run("Amount in euros")) +
        R"(</c:title><c:crossAx val="11"/><c:dispUnits><c:builtInUnit val="thousands"/>)"
        "<c:dispUnitsLbl>" +
        Rich(Run("Thousands")) + "</c:dispUnitsLbl></c:dispUnits></c:valAx>";
    return ChartXml(Rich(Run("Revenue ", R"( b="1")") + Run("by region", R"( i="1")")), series,
                    axes);
}

// A chart on a linked file: two series, one named by a reference, one by a literal.
std::string LinkedChart() {
    const std::string series =
        R"(<c:ser><c:idx val="0"/><c:order val="0"/><c:tx>)" + StrCache("Sheet1!$B$1", {"Costs"}) +
        "</c:tx><c:cat>" + StrCache("Sheet1!$A$2:$A$3", {"Q1 plan", "Q2 plan"}) + "</c:cat>" +
        kValues +
        R"(</c:ser><c:ser><c:idx val="1"/><c:order val="1"/><c:tx><c:v>Budget</c:v></c:tx>)"
        R"(<c:cat><c:strLit><c:ptCount val="2"/><c:pt idx="0"><c:v>Q1 plan</c:v></c:pt>)"
        R"(<c:pt idx="1"><c:v>Q2 plan</c:v></c:pt></c:strLit></c:cat></c:ser>)";
    return ChartXml(
        Rich(Run("Linked data")), series,
        R"(<c:catAx><c:axId val="11"/></c:catAx><c:valAx><c:axId val="22"/></c:valAx>)");
}

// A workbook package as a chart embeds it.
std::string Workbook(const std::string& sheet) {
    const std::string head = DeckWriter::kXmlHead;
    const std::string ns =
        R"( xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main")"
        R"( xmlns:r="http://schemas.openxmlformats.org/officeDocument/2006/relationships")";
    ZipPackage zip;
    zip.Put("[Content_Types].xml",
            head + R"(<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">)"
                   R"(<Default Extension="xml" ContentType="application/xml"/></Types>)");
    zip.Put("_rels/.rels",
            kRelsHead +
                DeckWriter::Rel("rId1", std::string(DeckWriter::kRels) + "/officeDocument",
                                "xl/workbook.xml") +
                "</Relationships>");
    zip.Put("xl/workbook.xml", head + "<workbook" + ns +
                                   R"(><sheets><sheet name="Sheet1" sheetId="1" r:id="rId1"/>)"
                                   "</sheets></workbook>");
    zip.Put("xl/_rels/workbook.xml.rels",
            kRelsHead +
                DeckWriter::Rel("rId1", std::string(DeckWriter::kRels) + "/worksheet",
                                "worksheets/sheet1.xml") +
                DeckWriter::Rel("rId2", std::string(DeckWriter::kRels) + "/sharedStrings",
                                "sharedStrings.xml") +
                "</Relationships>");
    zip.Put("xl/sharedStrings.xml", head + "<sst" + ns +
                                        "><si><t>Sales</t></si><si><t>North</t></si>"
                                        "<si><r><t>Sou</t></r><r><t>th</t></r></si></sst>");
    zip.Put("xl/styles.xml", head + "<styleSheet" + ns + "/>");
    zip.Put("xl/worksheets/sheet1.xml", sheet);
    std::string bytes;
    EXPECT_EQ(zip.WriteBytes(bytes), "");
    return bytes;
}

std::string GoodSheet() {
    return std::string(DeckWriter::kXmlHead) +
           R"(<worksheet xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main">)"
           R"(<sheetData><row r="1"><c r="B1" t="s"><v>0</v></c></row>)"
           R"(<row r="2"><c r="A2" t="s"><v>1</v></c><c r="B2"><v>200</v></c></row>)"
           R"(<row r="3"><c r="A3" t="s"><v>2</v></c><c r="B3"><v>300</v></c></row>)"
           R"(<row r="4"><c r="A4"><v>2024</v></c><c r="B4"><v>400</v></c></row>)"
           R"(<row r="6"><c r="A6" t="inlineStr"><is><t>Source: survey</t></is></c></row>)"
           R"(</sheetData></worksheet>)";
}

// Slide 1: a text box and the embedded chart; slide 2: the linked chart.
DeckWriter ChartDeck() {
    DeckWriter w;
    const std::string chartRel = std::string(DeckWriter::kRels) + "/chart";
    w.Slide(DeckWriter::Box(2, "Title", DeckWriter::Para("Quarterly report")) +
                Frame(3, "Chart 3", "rId3"),
            "", DeckWriter::Rel("rId3", chartRel, "../charts/chart1.xml"));
    w.Slide(Frame(2, "Chart 2", "rId3"), "",
            DeckWriter::Rel("rId3", chartRel, "../charts/chart2.xml"));
    w.Part("ppt/charts/chart1.xml", EmbeddedChart(), kChartType);
    w.Part("ppt/charts/_rels/chart1.xml.rels",
           kRelsHead +
               DeckWriter::Rel("rId1", std::string(DeckWriter::kRels) + "/package",
                               "../embeddings/sheet1.xlsx") +
               "</Relationships>");
    w.Part("ppt/embeddings/sheet1.xlsx", Workbook(GoodSheet()));
    w.Part("ppt/charts/chart2.xml", LinkedChart(), kChartType);
    w.Part("ppt/charts/_rels/chart2.xml.rels",
           kRelsHead +
               R"(<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/)"
               R"(2006/relationships/oleObject" Target="file:///C:/data/plan.xlsx")"
               R"( TargetMode="External"/></Relationships>)");
    return w;
}

std::map<std::string, std::u16string> ChartTextsOf(const PptxDeck& deck) {
    std::map<std::string, std::u16string> texts;
    for (const auto& t : deck.ChartTexts())
        texts[t.place] = t.text;
    return texts;
}

std::string Between(const std::string& text, const std::string& from, const std::string& to) {
    const auto a = text.find(from);
    const auto b = text.find(to, a);
    return a == std::string::npos || b == std::string::npos ? "" : text.substr(a, b - a);
}

using PptxChartTest = test::CliFixture;

TEST_F(PptxChartTest, EveryChartTextIsTranslatedInTheCachesAndTheWorkbook) {
    const std::string path = Path("deck.pptx");
    ASSERT_EQ(ChartDeck().Write(path), "");
    std::string err;
    ASSERT_EQ(RunCli("-q --to de -o " + Path("out.pptx") + " " + path, err), 0) << err;
    std::string error;
    const auto out = PptxDeck::Open(Path("out.pptx"), error);
    ASSERT_TRUE(out) << error;

    const std::string one = "slide 1, Chart 3, ", two = "slide 2, Chart 2, ";
    const std::map<std::string, std::u16string> expected = {
        {one + "title", T(u"Revenue by region")},
        {one + "axis 1,1 title", T(u"Region")},
        {one + "axis 2,1 title", T(u"Amount in euros")},
        {one + "axis 2,1 unit", T(u"Thousands")},
        {one + "series 1 name", T(u"Sales")},
        {one + "series 1 category 1", T(u"North")},
        {one + "series 1 category 2", T(u"South")},
        {one + "series 1 category 3", u"2024"},
        {one + "series 1 label 1", T(u"Best month")},
        {one + "series 1 label 2", u"[VALUE] units"},  // shows the value: not the run's to change
        {one + "cell Sheet1!B1", T(u"Sales")},
        {one + "cell Sheet1!A2", T(u"North")},
        {one + "cell Sheet1!A3", T(u"South")},
        {one + "cell Sheet1!A6", T(u"Source: survey")},
        {two + "title", T(u"Linked data")},
        {two + "series 1 name", T(u"Costs")},
        {two + "series 1 category 1", T(u"Q1 plan")},
        {two + "series 1 category 2", T(u"Q2 plan")},
        {two + "series 2 name", T(u"Budget")},
        {two + "series 2 category 1", T(u"Q1 plan")},
        {two + "series 2 category 2", T(u"Q2 plan")},
    };
    EXPECT_EQ(ChartTextsOf(*out), expected);
    EXPECT_EQ(out->Texts().at(0).text, T(u"Quarterly report"));

    // Numbers stay numbers, in the workbook and in the caches.
    const auto& book = out->Model()->slides[0]->shapes[1]->chart->workbook;
    for (const auto& [row, column, number] :
         {std::tuple{2, 2, 200.0}, {3, 2, 300.0}, {4, 2, 400.0}, {4, 1, 2024.0}}) {
        const sim::SheetCellModel* cell = book.sheets.at(0).Cell(row, column);
        ASSERT_TRUE(cell && cell->isNumber) << row << "," << column;
        EXPECT_EQ(cell->number, number);
    }
    const auto before = test::PartsOf(path), after = test::PartsOf(Path("out.pptx"));
    const std::string chart = after.at("ppt/charts/chart1.xml");
    EXPECT_EQ(Between(chart, "<c:numCache>", "</c:numCache>"),
              Between(before.at("ppt/charts/chart1.xml"), "<c:numCache>", "</c:numCache>"));
    // The title's first run carries the whole translation with its properties.
    const std::string title = Between(chart, "<c:title>", "</c:title>");
    EXPECT_NE(title.find(R"(<a:rPr lang="en-US" b="1"/><a:t>)" +
                         Utf16ToUtf8(T(u"Revenue by region")) + "</a:t>"),
              std::string::npos)
        << title;
    EXPECT_EQ(title.find("i=\"1\""), std::string::npos) << title;

    const std::set<std::string> changed = {"ppt/slides/slide1.xml", "ppt/charts/chart1.xml",
                                           "ppt/charts/chart2.xml", "ppt/embeddings/sheet1.xlsx"};
    ASSERT_EQ(after.size(), before.size());
    for (const auto& [name, bytes] : before) {
        ASSERT_TRUE(after.count(name)) << name;
        EXPECT_EQ(after.at(name) != bytes, changed.count(name) == 1) << name;
    }
    const auto bookBefore = test::PartsOfBytes(before.at("ppt/embeddings/sheet1.xlsx"));
    const auto bookAfter = test::PartsOfBytes(after.at("ppt/embeddings/sheet1.xlsx"));
    ASSERT_EQ(bookAfter.size(), bookBefore.size());
    for (const auto& [name, bytes] : bookBefore) {
        EXPECT_EQ(bookAfter.at(name) != bytes, name == "xl/worksheets/sheet1.xml") << name;
    }

    // Opened and saved without a change, every part keeps its bytes.
    const auto same = PptxDeck::Open(path, error);
    ASSERT_TRUE(same) << error;
    ASSERT_EQ(same->Save(Path("same.pptx")), "");
    EXPECT_EQ(same->ChartsWritten(), 0u);
    EXPECT_EQ(test::PartsOf(Path("same.pptx")), before);
}

TEST_F(PptxChartTest, AChartThatCantBeReadCostsOnlyItself) {
    const std::map<std::string, std::string> good = ChartDeck().Parts();
    const std::string chart = "slide 1, Chart 3: ";
    const std::string around = "; its caches are translated instead";
    const struct {
        std::string name;
        std::string part;                 // the part replaced ...
        std::string bytes;                // ... by these; empty: left out
        bool chartRead;                   // the chart's own texts are still translated
        std::string problem, problemEnd;  // the one line the deck gives for it
    } cases[] = {
        {"broken chart", "ppt/charts/chart1.xml", "<c:chartSpace><c:chart>", false,
         chart + "ppt/charts/chart1.xml: broken XML at byte ", ""},
        {"missing chart", "ppt/charts/chart1.xml", "", false, chart + "the chart's part is missing",
         ""},
        {"not a chart", "ppt/charts/chart1.xml",
         "<c:chartSpace xmlns:c=\"urn:other\"><c:chart/></c:chartSpace>", false,
         chart + "ppt/charts/chart1.xml: not a chart this host reads", ""},
        {"workbook not a zip", "ppt/embeddings/sheet1.xlsx", "PK but no zip", true,
         chart + "the chart's workbook can't be read (not a zip package)", around},
        {"broken sheet", "ppt/embeddings/sheet1.xlsx", Workbook("<worksheet><sheetData><row>"),
         true, chart + "the chart's workbook can't be read (xl/worksheets/sheet1.xml: broken XML",
         around},
        {"missing workbook", "ppt/embeddings/sheet1.xlsx", "", true,
         chart + "the chart's workbook can't be read (ppt/embeddings/sheet1.xlsx: part missing)",
         around},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ZipPackage zip;
        for (const auto& [name, bytes] : good) {
            if (name != c.part) zip.Put(name, bytes);
        }
        if (!c.bytes.empty()) zip.Put(c.part, c.bytes);
        const std::string path = Path("bad.pptx"), output = Path("bad-out.pptx");
        ASSERT_EQ(zip.Write(path), "");
        std::string err, error;
        const auto in = PptxDeck::Open(path, error);
        ASSERT_TRUE(in) << error;
        ASSERT_EQ(in->ChartProblems().size(), 1u);
        const std::string& line = in->ChartProblems()[0];
        EXPECT_EQ(line.rfind(c.problem, 0), 0u) << line;
        EXPECT_TRUE(
            line.size() >= c.problemEnd.size() &&
            line.compare(line.size() - c.problemEnd.size(), std::string::npos, c.problemEnd) == 0)
            << line;
        EXPECT_EQ(line.find('\n'), std::string::npos) << line;
        ASSERT_EQ(RunCli("-q --to de -o " + output + " " + path, err), 0) << err;
        const auto out = PptxDeck::Open(output, error);
        ASSERT_TRUE(out) << error;
        EXPECT_EQ(out->Texts().at(0).text, T(u"Quarterly report"));
        const auto texts = ChartTextsOf(*out);
        EXPECT_EQ(texts.at("slide 2, Chart 2, title"), T(u"Linked data"));
        const auto& shape = *out->Model()->slides[0]->shapes[1];
        EXPECT_EQ(shape.type, sim::ShapeType::Chart);
        if (c.chartRead) {
            // Without its workbook the chart's caches are reached through the chart.
            ASSERT_TRUE(shape.chart);
            EXPECT_FALSE(shape.chart->hasChartData);
            EXPECT_EQ(texts.at("slide 1, Chart 3, title"), T(u"Revenue by region"));
            EXPECT_EQ(texts.at("slide 1, Chart 3, series 1 name"), T(u"Sales"));
            EXPECT_EQ(texts.at("slide 1, Chart 3, series 1 category 1"), T(u"North"));
        } else {
            EXPECT_FALSE(shape.chart);
            EXPECT_EQ(texts.count("slide 1, Chart 3, title"), 0u);
        }
        const auto parts = test::PartsOf(output);
        EXPECT_EQ(parts.count(c.part), c.bytes.empty() ? 0u : 1u);
        if (!c.bytes.empty()) {
            EXPECT_EQ(parts.at(c.part), c.bytes) << "left as it was";
        }
    }
}

TEST_F(PptxChartTest, AWorkbookOverTheLimitsIsReadAroundNotInto) {
    DeckWriter w = ChartDeck();
    ZipPackage padded;
    ASSERT_EQ(padded.ReadBytes(Workbook(GoodSheet())), "");
    padded.Put("xl/media/pad.bin", std::string(200000, 'x'));
    std::string bytes;
    ASSERT_EQ(padded.WriteBytes(bytes), "");
    w.Part("ppt/embeddings/sheet1.xlsx", bytes);
    ASSERT_EQ(w.Write(Path("deck.pptx")), "");
    pptx::ZipLimits limits;
    limits.maxPartBytes = 100000;
    std::string error;
    const auto deck = PptxDeck::Open(Path("deck.pptx"), error, limits);
    ASSERT_TRUE(deck) << error;
    const auto& chart = deck->Model()->slides[0]->shapes[1]->chart;
    ASSERT_TRUE(chart);
    EXPECT_FALSE(chart->hasChartData);
    EXPECT_EQ(chart->series.at(0).name, u"Sales");
    ASSERT_EQ(deck->ChartProblems().size(), 1u);
    EXPECT_NE(deck->ChartProblems()[0].find("xl/media/pad.bin: part too large"), std::string::npos)
        << deck->ChartProblems()[0];
    const auto full = PptxDeck::Open(Path("deck.pptx"), error);
    ASSERT_TRUE(full) << error;
    EXPECT_TRUE(full->Model()->slides[0]->shapes[1]->chart->hasChartData);
}

}  // namespace
}  // namespace qb
