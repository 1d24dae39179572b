// The front end's .pptx output as a real office program sees it: LibreOffice
// opens it and exports it to PDF, and the PDF's text is what the run wrote.
// Decks of our own (and the same decks as LibreOffice itself saves them) are
// translated and their PDFs read back; every output's package is checked part
// by part; and the real decks beside the repository must convert whenever
// their input does. soffice starts once a batch of files, with a profile of
// its own, as it is slow to start.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <pugixml.hpp>

#include "foundation/char_class.h"
#include "foundation/text.h"
#include "sim/pptx/pptx_deck.h"
#include "sim/pptx/zip_package.h"
#include "support/package_check.h"
#include "support/pptx_parts.h"
#include "support/pptx_writer.h"
#include "support/shared_decks.h"

namespace qb {
namespace {

using test::HasLetter;

namespace fs = std::filesystem;
using test::DeckWriter;

// --- Processes ------------------------------------------------------------

std::string Quote(const std::string& s) {
    std::string out = "'";
    for (char c : s)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string ReadAll(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// The exit status of a shell command, its output (both streams) in `log`.
int Shell(const std::string& command, const fs::path& log) {
    const int raw =
        std::system((command + " >" + Quote(log.string()) + " 2>&1 </dev/null").c_str());
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

// One folder for the whole executable: soffice's profile (made on its first
// start, so never the user's), the front end's logs, the files.
const fs::path& Work() {
    static const fs::path dir = [] {
        char pattern[] = "/tmp/qb-office-XXXXXX";
        const char* made = mkdtemp(pattern);
        return fs::path(made ? made : "/tmp/qb-office");
    }();
    return dir;
}

// QB_OFFICE_KEEP=1 keeps the folder, to look at the files and PDFs.
struct WorkCleaner : testing::Environment {
    void TearDown() override {
        if (const char* keep = std::getenv("QB_OFFICE_KEEP"); keep && *keep == '1') {
            std::printf("kept %s\n", Work().c_str());
            return;
        }
        std::error_code ignored;
        fs::remove_all(Work(), ignored);
    }
};

// Converts every file in one soffice run; `format` as --convert-to takes it.
// The log of the run, for failure messages.
std::string Convert(const std::vector<fs::path>& files, const std::string& format,
                    const fs::path& outDir) {
    fs::create_directories(outDir);
    std::string command = "timeout 600 soffice -env:UserInstallation=file://" +
                          (Work() / "profile").string() +
                          " --headless --norestore --nolockcheck --convert-to " + Quote(format) +
                          " --outdir " + Quote(outDir.string());
    for (const fs::path& f : files)
        command += " " + Quote(f.string());
    const fs::path log = outDir / "soffice.log";
    const int status = Shell(command, log);
    return "soffice exited with " + std::to_string(status) + ":\n" + ReadAll(log);
}

// Slides and notes pages both: notes are text the run translates.
const std::string kPdfWithNotes =
    R"(pdf:impress_pdf_Export:{"ExportNotesPages":{"type":"boolean","value":"true"}})";

// The PDF's text with every white space taken out, so that lines wrapped
// anywhere still hold the paragraph; empty when there is no PDF.
std::string PdfText(const fs::path& pdf, int* pages = nullptr) {
    if (!fs::exists(pdf)) return "";
    const fs::path txt = fs::path(pdf).replace_extension(".txt");
    if (Shell("pdftotext -q -enc UTF-8 " + Quote(pdf.string()) + " " + Quote(txt.string()),
              fs::path(txt).replace_extension(".log")) != 0) {
        return "";
    }
    const std::string text = ReadAll(txt);
    if (pages) *pages = static_cast<int>(std::count(text.begin(), text.end(), '\f'));
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == ' ' || (c >= '\t' && c <= '\r')) continue;
        if (c == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) == 0xA0) {
            ++i;  // a no-break space
            continue;
        }
        out.push_back(text[i]);
    }
    return out;
}

// A paragraph as PdfText has it.
std::string Squeezed(std::u16string_view text) {
    std::u16string out;
    for (char16_t c : text) {
        if (!IsSpace(c) && c != u'\v' && c != u'\r') out.push_back(c);
    }
    return Utf16ToUtf8(out);
}

std::vector<std::u16string> Paragraphs(const std::u16string& text) {
    std::vector<std::u16string> out(1);
    for (char16_t c : text) {
        if (c == u'\r') {
            out.emplace_back();
        } else {
            out.back().push_back(c);
        }
    }
    return out;
}

// Runs the front end; its one-line complaint in `err` when it fails.
int Translate(const fs::path& in, const fs::path& out, const std::vector<std::string>& args,
              std::string& err) {
    std::string command = "XDG_DATA_HOME=" + Quote((Work() / "data").string()) + " " +
                          Quote(QB_CLI_PATH) + " -q --to de";
    for (const std::string& a : args)
        command += " " + Quote(a);
    command += " -o " + Quote(out.string()) + " " + Quote(in.string());
    const fs::path log = fs::path(out).replace_extension(".log");
    const int status = Shell(command, log);
    err = ReadAll(log);
    return status;
}

std::vector<pugi::xml_node> Elements(const pugi::xml_document& doc, const char* localName) {
    std::vector<pugi::xml_node> out;
    for (const pugi::xpath_node& n :
         doc.select_nodes(("//*[local-name()='" + std::string(localName) + "']").c_str()))
        out.push_back(n.node());
    return out;
}

// Whether an XML part holds a text run with a letter: the only parts a
// translation may change.
bool HoldsText(const std::string& bytes) {
    pugi::xml_document doc;
    if (!doc.load_buffer(bytes.data(), bytes.size())) return false;
    for (const pugi::xml_node t : Elements(doc, "t")) {
        if (HasLetter(Utf8ToUtf16(t.child_value()))) return true;
    }
    return false;
}

// The fields of an XML part (slide numbers, dates): their kind and the text
// the file keeps for them, which is not what an office program shows.
std::vector<std::string> Fields(const std::string& bytes) {
    pugi::xml_document doc;
    std::vector<std::string> out;
    if (!doc.load_buffer(bytes.data(), bytes.size())) return out;
    for (const pugi::xml_node f : Elements(doc, "fld")) {
        std::string kept;
        for (const pugi::xml_node c : f.children()) {
            const std::string name = c.name();
            if (name == "t" || (name.size() > 2 && name.compare(name.size() - 2, 2, ":t") == 0)) {
                kept += c.child_value();
            }
        }
        out.push_back(std::string(f.attribute("type").value()) + ":" + kept);
    }
    return out;
}

// The pieces of a paragraph between the kept texts of fields: what a PDF
// shows as it stands.
std::vector<std::u16string> Pieces(const std::u16string& paragraph,
                                   const std::set<std::u16string>& fieldTexts) {
    std::vector<std::u16string> pieces = {paragraph};
    for (const std::u16string& f : fieldTexts) {
        if (f.empty()) continue;
        std::vector<std::u16string> next;
        for (const std::u16string& p : pieces) {
            std::size_t start = 0, at;
            while ((at = p.find(f, start)) != std::u16string::npos) {
                next.push_back(p.substr(start, at - start));
                start = at + f.size();
            }
            next.push_back(p.substr(start));
        }
        pieces = next;
    }
    return pieces;
}

std::string RelsPart(const std::string& rels) {
    return std::string(DeckWriter::kXmlHead) +
           R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)" +
           rels + "</Relationships>";
}

// --- Our own decks ----------------------------------------------------------

// A run with more run properties (attributes, then elements).
std::string Run(const std::string& text, const std::string& attrs = "",
                const std::string& children = "") {
    return "<a:r><a:rPr lang=\"en-US\"" + attrs + ">" + children + "</a:rPr><a:t>" + text +
           "</a:t></a:r>";
}

// A layout and master with a title and a body placeholder, and the master's
// styles: what placeholders inherit their place and size from.
void WithMaster(DeckWriter& w) {
    const std::string titleAt =
        R"(<a:xfrm><a:off x="457200" y="274638"/><a:ext cx="8229600" cy="1143000"/></a:xfrm>)";
    const std::string bodyAt =
        R"(<a:xfrm><a:off x="457200" y="1600200"/><a:ext cx="8229600" cy="4525963"/></a:xfrm>)";
    w.LayoutAndMaster(
        test::Placeholder(2, R"(<p:ph type="title"/>)", "<a:lstStyle/>", "", titleAt) +
            test::Placeholder(3, R"(<p:ph type="body" idx="1"/>)",
                              "<a:lstStyle>" + test::Level(2, 2400) + "</a:lstStyle>", "", bodyAt),
        test::Placeholder(2, R"(<p:ph type="title"/>)", "<a:lstStyle/>", "", titleAt) +
            test::Placeholder(3, R"(<p:ph type="body" idx="1"/>)", "<a:lstStyle/>", "", bodyAt),
        "<p:txStyles><p:titleStyle>" + test::Level(1, 4000) + "</p:titleStyle><p:bodyStyle>" +
            test::Level(1, 2800) + test::Level(2, 2400) +
            "</p:bodyStyle><p:otherStyle/></p:txStyles>");
    w.DefaultTextStyle("<p:defaultTextStyle>" + test::Level(1, 1800) + "</p:defaultTextStyle>");
}

DeckWriter TextBoxes() {
    DeckWriter w;
    WithMaster(w);
    w.Slide(DeckWriter::BoxAt(2, "Heading", 457200, 300000, 8000000, 700000,
                              DeckWriter::Para("Quarterly report for the board")) +
            DeckWriter::BoxAt(3, "Mixed", 457200, 1300000, 8000000, 1200000,
                              "<a:p>" + Run("Sales grew ", R"( sz="2400" b="1")") +
                                  Run("quickly", R"( i="1")",
                                      R"(<a:solidFill><a:srgbClr val="C00000"/></a:solidFill>)") +
                                  Run(" in the north") + "</a:p>" +
                                  DeckWriter::Para("Costs stayed flat")) +
            DeckWriter::BoxAt(4, "Small", 457200, 3000000, 3000000, 600000,
                              DeckWriter::Para("Margins widened")));
    return w;
}

DeckWriter Placeholders() {
    DeckWriter w;
    WithMaster(w);
    // Neither placeholder has a place or a size of its own.
    w.Slide(
        test::Placeholder(2, R"(<p:ph type="title"/>)", "<a:lstStyle/>",
                          DeckWriter::Para("Outlook for next year")) +
        test::Placeholder(
            3, R"(<p:ph type="body" idx="1"/>)", "<a:lstStyle/>",
            DeckWriter::Para("Demand keeps rising") +
                R"(<a:p><a:pPr lvl="1"/><a:r><a:rPr lang="en-US"/><a:t>Mostly in cities</a:t></a:r></a:p>)"));
    return w;
}

DeckWriter NestedGroups() {
    DeckWriter w;
    WithMaster(w);
    w.Slide(test::Group(
        2, "Outer",
        DeckWriter::BoxAt(3, "Left", 457200, 457200, 4000000, 700000,
                          DeckWriter::Para("Hiring slowed down")) +
            test::Group(
                4, "Middle",
                DeckWriter::BoxAt(5, "Centre", 457200, 1600000, 4000000, 700000,
                                  DeckWriter::Para("Training went well")) +
                    test::Group(6, "Inner",
                                DeckWriter::BoxAt(7, "Deep", 457200, 2800000, 4000000, 700000,
                                                  DeckWriter::Para("Next steps follow"))))));
    return w;
}

DeckWriter Tables() {
    DeckWriter w;
    WithMaster(w);
    const std::string row = "<a:tr h=\"370840\">";
    w.Slide(test::Table(2, row + test::Cell("Region") + test::Cell("Share") + "</a:tr>" + row +
                               test::Cell("Northern markets", R"( gridSpan="2")") +
                               test::Cell("", R"( hMerge="1")") + "</a:tr>" + row +
                               test::Cell("Southern markets", R"( rowSpan="2")") +
                               test::Cell("Forty percent") + "</a:tr>" + row +
                               test::Cell("", R"( vMerge="1")") + test::Cell("Sixty percent") +
                               "</a:tr>"));
    return w;
}

DeckWriter Notes() {
    DeckWriter w;
    WithMaster(w);
    w.Slide(DeckWriter::BoxAt(2, "Title", 457200, 457200, 8000000, 700000,
                              DeckWriter::Para("Welcome everyone")),
            "Thank the hosts first");
    w.Slide(DeckWriter::BoxAt(2, "Title", 457200, 457200, 8000000, 700000,
                              DeckWriter::Para("Questions and answers")),
            "Leave ten minutes for questions");
    return w;
}

// Fields and line breaks over several slides, one of them without text.
DeckWriter FieldsAndBreaks() {
    DeckWriter w;
    WithMaster(w);
    for (int n = 1; n <= 3; ++n) {
        const std::string number = std::to_string(n);
        w.Slide(DeckWriter::BoxAt(
            2, "Body", 457200, 457200, 8000000, 2000000,
            "<a:p>" + Run("Page ") +
                R"(<a:fld id="{B6F15528-21DE-4FAA-801E-634DDDAF4B2B}" type="slidenum"><a:rPr lang="en-US"/><a:t>)" +
                number + "</a:t></a:fld>" + Run(" of the review") + "</a:p><a:p>" +
                Run("First line") + R"(<a:br><a:rPr lang="en-US"/></a:br>)" +
                Run("second line here") + "</a:p>"));
    }
    w.Slide(
        DeckWriter::BoxAt(2, "Figure", 457200, 457200, 3000000, 700000, DeckWriter::Para("2026")));
    return w;
}

// One deck the run translates; a chart, SmartArt or bilingual deck is one
// more line in kOwnDecks.
struct OwnDeck {
    const char* name;
    std::function<DeckWriter()> make;
    std::vector<std::string> args;  // more options of the front end
    bool keepsSource = false;       // the source stays beside the translation
};

const std::vector<OwnDeck>& OwnDecks() {
    static const std::vector<OwnDeck> decks = {
        {"text_boxes", TextBoxes, {}},
        {"placeholders", Placeholders, {}},
        {"nested_groups", NestedGroups, {}},
        {"tables", Tables, {}},
        {"notes", Notes, {}},
        {"fields_and_breaks", FieldsAndBreaks, {}},
        {"bilingual", Notes, {"--bilingual"}, true},
    };
    return decks;
}

// "ours": as DeckWriter writes it; "libreoffice": as LibreOffice saves it.
const char* const kFlavours[] = {"ours", "libreoffice"};

struct Outcome {
    fs::path input, output;
    int status = -1;
    std::string err;
    std::string inputPdf, outputPdf;  // PdfText
};

// Every own deck in both flavours, translated and converted once for all
// the cases; each case then reads its own outcome.
struct OwnRun {
    std::string setupError;
    std::string sofficeLog;
    std::map<std::string, Outcome> outcomes;  // by "flavour/name"
};

const OwnRun& RunOwnDecks() {
    static const OwnRun run = [] {
        OwnRun r;
        const fs::path ours = Work() / "own", resaved = Work() / "resaved",
                       decks = Work() / "own-decks", out = Work() / "own-out";
        fs::create_directories(ours);
        fs::create_directories(decks);
        fs::create_directories(out);
        std::vector<fs::path> written;
        for (const OwnDeck& d : OwnDecks()) {
            const fs::path path = ours / (std::string(d.name) + ".pptx");
            const std::string error = d.make().Write(path.string());
            if (!error.empty()) {
                r.setupError = std::string(d.name) + ": " + error;
                return r;
            }
            written.push_back(path);
        }
        const std::string resaveLog = Convert(written, "pptx", resaved);
        std::vector<fs::path> pdfInputs;
        for (const OwnDeck& d : OwnDecks()) {
            for (const char* flavour : kFlavours) {
                Outcome o;
                const fs::path from = std::string(flavour) == "ours"
                                          ? ours / (std::string(d.name) + ".pptx")
                                          : resaved / (std::string(d.name) + ".pptx");
                const std::string stem = std::string(d.name) + "." + flavour;
                o.input = decks / (stem + ".pptx");
                o.output = out / (stem + ".de.pptx");
                if (!fs::exists(from)) {
                    o.err = "LibreOffice didn't save it: " + resaveLog;
                    r.outcomes[std::string(flavour) + "/" + d.name] = o;
                    continue;
                }
                fs::copy_file(from, o.input, fs::copy_options::overwrite_existing);
                o.status = Translate(o.input, o.output, d.args, o.err);
                pdfInputs.push_back(o.input);
                if (o.status == 0) pdfInputs.push_back(o.output);
                r.outcomes[std::string(flavour) + "/" + d.name] = o;
            }
        }
        const fs::path pdf = Work() / "own-pdf";
        r.sofficeLog = Convert(pdfInputs, kPdfWithNotes, pdf);
        for (auto& [key, o] : r.outcomes) {
            o.inputPdf = PdfText(pdf / o.input.filename().replace_extension(".pdf"));
            o.outputPdf = PdfText(pdf / o.output.filename().replace_extension(".pdf"));
        }
        return r;
    }();
    return run;
}

class OwnDeckTest : public testing::TestWithParam<std::tuple<std::size_t, const char*>> {};

TEST_P(OwnDeckTest, TranslationIsWhatLibreOfficeShows) {
    const OwnDeck& deck = OwnDecks()[std::get<0>(GetParam())];
    const std::string flavour = std::get<1>(GetParam());
    const OwnRun& run = RunOwnDecks();
    ASSERT_EQ(run.setupError, "");
    const Outcome& o = run.outcomes.at(flavour + "/" + deck.name);
    ASSERT_EQ(o.status, 0) << o.err;
    ASSERT_FALSE(o.inputPdf.empty()) << "LibreOffice didn't convert the input\n" << run.sofficeLog;
    ASSERT_FALSE(o.outputPdf.empty()) << "LibreOffice didn't convert the output\n"
                                      << run.sofficeLog;

    EXPECT_EQ(test::PackageProblems(o.output.string()), std::vector<std::string>());

    std::string error;
    const auto before = pptx::PptxDeck::Open(o.input.string(), error);
    ASSERT_TRUE(before) << error;
    const auto after = pptx::PptxDeck::Open(o.output.string(), error);
    ASSERT_TRUE(after) << error;
    const auto inParts = test::PartsOf(o.input.string()),
               outParts = test::PartsOf(o.output.string());
    std::set<std::u16string> fieldTexts;
    for (const auto& [name, bytes] : inParts) {
        for (const std::string& f : Fields(bytes))
            fieldTexts.insert(Utf8ToUtf16(f.substr(f.find(':') + 1)));
    }
    const auto was = before->Texts(), is = after->Texts();
    if (deck.keepsSource) {
        // Every slide has its copy: the sources and the translations are all
        // in the PDF.
        ASSERT_EQ(is.size(), 2 * was.size());
        std::set<std::u16string> sources;
        for (const auto& t : was)
            sources.insert(t.text);
        std::size_t translations = 0;
        for (const auto& t : is) {
            if (HasLetter(t.text) && !sources.count(t.text)) ++translations;
            for (const std::u16string& p : Paragraphs(t.text)) {
                for (const std::u16string& piece : Pieces(p, fieldTexts)) {
                    if (!HasLetter(piece)) continue;
                    EXPECT_NE(o.outputPdf.find(Squeezed(piece)), std::string::npos)
                        << t.place << ": \"" << Utf16ToUtf8(piece) << "\" isn't in the PDF";
                }
            }
        }
        EXPECT_EQ(translations, static_cast<std::size_t>(std::count_if(
                                    was.begin(), was.end(),
                                    [](const pptx::FrameText& t) { return HasLetter(t.text); })));
    }
    ASSERT_EQ(is.size(), deck.keepsSource ? 2 * was.size() : was.size());
    int lettered = 0;
    for (std::size_t i = 0; i < (deck.keepsSource ? 0 : was.size()); ++i) {
        if (!HasLetter(was[i].text)) continue;
        EXPECT_TRUE(HasLetter(is[i].text))
            << was[i].place << " lost its text: \"" << Utf16ToUtf8(was[i].text) << "\" became \""
            << Utf16ToUtf8(is[i].text) << "\"";
        for (const std::u16string& p : Paragraphs(was[i].text)) {
            if (!HasLetter(p)) continue;
            ++lettered;
            for (const std::u16string& piece : Pieces(p, fieldTexts)) {
                if (!HasLetter(piece)) continue;
                // Shown in the input, so that its absence below means something.
                EXPECT_NE(o.inputPdf.find(Squeezed(piece)), std::string::npos)
                    << was[i].place << ": \"" << Utf16ToUtf8(piece)
                    << "\" isn't in the input's PDF";
                if (!deck.keepsSource) {
                    EXPECT_EQ(o.outputPdf.find(Squeezed(piece)), std::string::npos)
                        << was[i].place << ": \"" << Utf16ToUtf8(piece) << "\" is still in the PDF";
                }
            }
        }
        for (const std::u16string& p : Paragraphs(is[i].text)) {
            for (const std::u16string& piece : Pieces(p, fieldTexts)) {
                if (!HasLetter(piece)) continue;
                EXPECT_NE(o.outputPdf.find(Squeezed(piece)), std::string::npos)
                    << is[i].place << ": the translation \"" << Utf16ToUtf8(piece)
                    << "\" isn't in the PDF";
            }
        }
    }
    EXPECT_TRUE(lettered > 0 || deck.keepsSource) << "the deck has no text to translate";

    // A part without text is the input's, byte for byte; a field stays a
    // field, which the office program fills in.
    for (const auto& [name, bytes] : inParts) {
        const auto it = outParts.find(name);
        if (it == outParts.end()) {
            ADD_FAILURE() << name << " is gone";
            continue;
        }
        // A bilingual run lists its new slides in the presentation.
        const bool lists = name == "ppt/presentation.xml" ||
                           name == "ppt/_rels/presentation.xml.rels" ||
                           name == "[Content_Types].xml";
        if (it->second != bytes && !HoldsText(bytes) && !(deck.keepsSource && lists)) {
            ADD_FAILURE() << name << " holds no text, yet it changed";
        }
        EXPECT_EQ(Fields(it->second), Fields(bytes)) << name << ": its fields";
    }
    if (!deck.keepsSource) {
        EXPECT_EQ(outParts.size(), inParts.size());
    }
}

INSTANTIATE_TEST_SUITE_P(Decks, OwnDeckTest,
                         testing::Combine(testing::Range<std::size_t>(0, OwnDecks().size()),
                                          testing::ValuesIn(kFlavours)),
                         [](const testing::TestParamInfo<OwnDeckTest::ParamType>& info) {
                             return std::string(OwnDecks()[std::get<0>(info.param)].name) + "_" +
                                    std::get<1>(info.param);
                         });

// The package check itself: each way of breaking a package is one problem,
// and the intact package has none.
TEST(PackageCheck, NamesEachBrokenRule) {
    struct Case {
        const char* what;
        std::function<void(DeckWriter&)> spoil;
        const char* problem;  // the start of the one problem; empty: none
    };
    const std::string rel = DeckWriter::Rel("rId7", std::string(DeckWriter::kRels) + "/image",
                                            "../media/logo%20big.png");
    const std::vector<Case> cases = {
        {"intact", [](DeckWriter&) {}, ""},
        {"broken XML",
         [](DeckWriter& w) { w.Part("ppt/slides/slide1.xml", "<p:sld><p:cSld></p:sld>"); },
         "ppt/slides/slide1.xml: not well-formed XML"},
        {"dangling target",
         [&](DeckWriter& w) { w.Part("ppt/slides/_rels/slide1.xml.rels", RelsPart(rel)); },
         "ppt/slides/_rels/slide1.xml.rels: rId7 targets ../media/logo big.png"},
        {"no content type", [](DeckWriter& w) { w.Part("ppt/media/clip.bin", "\x01\x02"); },
         "ppt/media/clip.bin: no content type"},
        {"escaped target present",
         [&](DeckWriter& w) {
             w.Part("ppt/slides/_rels/slide1.xml.rels", RelsPart(rel));
             w.Part("ppt/media/logo big.png", "png", "image/png");
         },
         ""},
    };
    for (const Case& c : cases) {
        DeckWriter w;
        w.Slide(DeckWriter::Box(2, "Title", DeckWriter::Para("Hello")));
        c.spoil(w);
        const fs::path path = Work() / "check.pptx";
        ASSERT_EQ(w.Write(path.string()), "");
        const auto problems = test::PackageProblems(path.string());
        if (std::string(c.problem).empty()) {
            EXPECT_EQ(problems, std::vector<std::string>()) << c.what;
        } else {
            ASSERT_EQ(problems.size(), 1u) << c.what;
            EXPECT_EQ(problems[0].rfind(c.problem, 0), 0u) << c.what << ": " << problems[0];
        }
    }
}

// --- Decks other tools wrote -------------------------------------------------

// The decks MANIFEST.tsv's notes say LibreOffice fails to export to PDF as
// they are.
std::set<std::string> KnownPdfFailures(const fs::path& manifest) {
    std::set<std::string> out;
    std::ifstream in(manifest);
    std::string line;
    while (std::getline(in, line)) {
        if (line.find("soffice pdf: fail") == std::string::npos) continue;
        out.insert(fs::path(line.substr(0, line.find('\t'))).filename().string());
    }
    return out;
}

// What a deck shows outside its text frames for sure: chart titles and
// SmartArt nodes (a series name or category may sit on no legend or axis).
std::vector<std::u16string> ShownOutsideFrames(const pptx::PptxDeck& deck) {
    std::vector<std::u16string> out;
    std::function<void(const std::vector<std::shared_ptr<sim::ShapeModel>>&)> walk =
        [&](const std::vector<std::shared_ptr<sim::ShapeModel>>& shapes) {
            for (const auto& shape : shapes) {
                if (shape->chart && shape->chart->hasTitle) out.push_back(shape->chart->title.text);
                if (shape->smartArt) test::AddNodeTexts(shape->smartArt->nodes, out);
                walk(shape->children);
            }
        };
    for (const auto& slide : deck.Model()->slides)
        walk(slide->shapes);
    return out;
}

TEST(RealDecks, OutputsConvertWheneverTheirInputsDo) {
    const fs::path root = test::SharedDecksRoot();
    if (!fs::is_directory(root / "pptx")) {
        GTEST_SKIP() << "no decks at " << root.string() << ": the suite needs ../shared/decks";
    }
    const std::vector<fs::path> decks = test::SharedDecks();
    ASSERT_FALSE(decks.empty());

    const fs::path out = Work() / "real-out", pdf = Work() / "real-pdf";
    fs::create_directories(out);
    std::vector<fs::path> toConvert;
    std::vector<fs::path> outputs(decks.size());
    for (std::size_t i = 0; i < decks.size(); ++i) {
        const fs::path output = out / (decks[i].stem().string() + ".de.pptx");
        std::string err;
        const int status = Translate(decks[i], output, {}, err);
        toConvert.push_back(decks[i]);
        if (status == 0) {
            outputs[i] = output;
            toConvert.push_back(output);
        } else {
            // The acceptance suite holds what a refusal must be; here it
            // only leaves nothing to convert.
            std::printf("%s: not translated (%d): %s", decks[i].filename().c_str(), status,
                        err.c_str());
            EXPECT_FALSE(fs::exists(output)) << decks[i].filename();
        }
    }
    const std::string log = Convert(toConvert, kPdfWithNotes, pdf);

    std::set<std::string> inputFailures;
    for (std::size_t i = 0; i < decks.size(); ++i) {
        const std::string name = decks[i].filename().string();
        int inPages = 0, outPages = 0;
        const fs::path inPdf = pdf / (decks[i].stem().string() + ".pdf");
        const bool inOk = fs::exists(inPdf);
        PdfText(inPdf, &inPages);
        if (!inOk) inputFailures.insert(name);
        if (outputs[i].empty()) continue;
        const fs::path outPdf = pdf / outputs[i].filename().replace_extension(".pdf");
        const std::string shown = PdfText(outPdf, &outPages);
        if (inOk) {
            EXPECT_TRUE(fs::exists(outPdf)) << name << ": the input converts, the output doesn't";
            EXPECT_EQ(outPages, inPages) << name << ": pages in the PDF";
        }
        // Chart titles and SmartArt nodes show their translation.
        std::string error;
        const auto after = pptx::PptxDeck::Open(outputs[i].string(), error);
        ASSERT_TRUE(after) << name << ": " << error;
        for (const std::u16string& text : ShownOutsideFrames(*after)) {
            if (!shown.empty() && HasLetter(text)) {
                EXPECT_NE(shown.find(Squeezed(text)), std::string::npos)
                    << name << ": \"" << Utf16ToUtf8(text) << "\" isn't in the PDF";
            }
        }
        // The output's package is no worse than the input's.
        const auto was = test::PackageProblems(decks[i].string());
        for (const std::string& problem : test::PackageProblems(outputs[i].string())) {
            EXPECT_NE(std::find(was.begin(), was.end(), problem), was.end())
                << name << ": " << problem;
        }
    }
    EXPECT_EQ(inputFailures, KnownPdfFailures(root / "MANIFEST.tsv"))
        << "the decks LibreOffice can't export as they are\n"
        << log;
    std::printf("%zu decks, %zu inputs LibreOffice can't export:", decks.size(),
                inputFailures.size());
    for (const std::string& name : inputFailures)
        std::printf(" %s", name.c_str());
    std::printf("\n");
}

}  // namespace
}  // namespace qb

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::AddGlobalTestEnvironment(new qb::WorkCleaner);
    const auto started = std::chrono::steady_clock::now();
    const int status = RUN_ALL_TESTS();
    std::printf("qb_office_tests: %.1f s\n",
                std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
    return status;
}
