// The host over presentation files: decks written here part by part, read
// into the model, translated by the front end and read back; untouched parts
// and run properties kept; damaged files turned away with one line.
#include "sim/pptx/pptx_deck.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>

#include "foundation/text.h"
#include "sim/host/deck_file.h"
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
using sim::CharFormat;
using test::DeckWriter;
using test::PartsOf;

using test::Cell;
using test::Group;
using test::Level;
using test::Placeholder;
using test::Table;

const std::string kPicture =
    R"(<p:pic><p:nvPicPr><p:cNvPr id="9" name="Logo"/><p:cNvPicPr/><p:nvPr/></p:nvPicPr>)"
    R"(<p:blipFill><a:blip r:embed="rId5"/></p:blipFill><p:spPr/></p:pic>)";

// Every kind of text this phase reads, one deck.
DeckWriter KitchenSink() {
    DeckWriter w;
    w.Slide(
        DeckWriter::Box(2, "Title", DeckWriter::Para("Quarterly report")) +
            DeckWriter::Box(
                3, "Mixed",
                R"(<a:p><a:pPr algn="ctr"/><a:r><a:rPr lang="en-US" sz="2400" b="1" u="sng">)"
                R"(<a:solidFill><a:srgbClr val="FF0000"/></a:solidFill><a:latin typeface="Arial"/>)"
                R"(</a:rPr><a:t>Sales grew </a:t></a:r><a:r><a:rPr lang="en-US" i="1"/>)"
                R"(<a:t>quickly</a:t></a:r><a:endParaRPr lang="en-US" sz="1200"/></a:p>)"
                R"(<a:p><a:r><a:rPr lang="en-US"/><a:t>First line</a:t></a:r><a:br>)"
                R"(<a:rPr lang="en-US"/></a:br><a:r><a:rPr lang="en-US"/><a:t>second line</a:t>)"
                R"(</a:r></a:p>)"),
        "Speak slowly");
    w.Slide(
        Group(4, "Outer",
              DeckWriter::Box(5, "Left", DeckWriter::Para("Costs fell")) +
                  Group(6, "Inner", DeckWriter::Box(7, "Deep", DeckWriter::Para("Next steps")))) +
        Table(8, "<a:tr h=\"300000\">" + Cell("North") + Cell("42") + "</a:tr>" +
                     "<a:tr h=\"300000\">" + Cell("Merged region", R"( gridSpan="2")") +
                     Cell("", R"( hMerge="1")") + "</a:tr>"));
    w.Slide(kPicture);
    w.Part("ppt/media/image1.png", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16));
    w.Part("docProps/app.xml",
           R"(<?xml version="1.0"?><Properties><Slides>3</Slides></Properties>)");
    return w;
}

std::map<std::string, std::u16string> TextsByPlace(const PptxDeck& deck) {
    std::map<std::string, std::u16string> texts;
    for (const auto& t : deck.Texts())
        texts[t.place] = t.text;
    return texts;
}

class PptxDeckTest : public test::CliFixture {
  protected:
    // The kitchen-sink deck written and opened, failing the test otherwise.
    std::unique_ptr<PptxDeck> OpenKitchenSink() {
        EXPECT_EQ(KitchenSink().Write(Path("deck.pptx")), "");
        std::string error;
        auto deck = PptxDeck::Open(Path("deck.pptx"), error);
        EXPECT_TRUE(deck) << error;
        return deck;
    }
};

TEST_F(PptxDeckTest, ReadsSlidesShapesTablesNotesAndBreaks) {
    const std::string path = Path("deck.pptx");
    ASSERT_EQ(KitchenSink().Write(path), "");
    std::string error;
    const auto deck = PptxDeck::Open(path, error);
    ASSERT_TRUE(deck) << error;
    const auto& model = *deck->Model();
    ASSERT_EQ(model.slides.size(), 3u);
    EXPECT_EQ(model.slides[1]->slideId, 257);
    EXPECT_FLOAT_EQ(model.slideWidth, 960.0f);
    EXPECT_FLOAT_EQ(model.slideHeight, 540.0f);

    const std::map<std::string, std::u16string> expected = {
        {"slide 1, Title", u"Quarterly report"},
        {"slide 1, Mixed", u"Sales grew quickly\rFirst line\vsecond line"},
        {"slide 1 notes, Notes Placeholder 2", u"Speak slowly"},
        {"slide 2, Outer, Left", u"Costs fell"},
        {"slide 2, Outer, Inner, Deep", u"Next steps"},
        {"slide 2, Table, cell 1,1", u"North"},
        {"slide 2, Table, cell 1,2", u"42"},
        {"slide 2, Table, cell 2,1", u"Merged region"},
        {"slide 2, Table, cell 2,2", u""},
    };
    EXPECT_EQ(TextsByPlace(*deck), expected);

    const auto& shapes = model.slides[1]->shapes;
    ASSERT_EQ(shapes.size(), 2u);
    EXPECT_EQ(shapes[0]->type, sim::ShapeType::Group);
    ASSERT_EQ(shapes[0]->children.size(), 2u);
    EXPECT_EQ(shapes[0]->children[1]->children[0]->name, u"Deep");
    ASSERT_TRUE(shapes[1]->table);
    EXPECT_NE(shapes[1]->table->CellAt(2, 2), shapes[1]->table->CellAt(2, 1))
        << "a covered cell keeps its own empty body, so the merged text is offered once";
    EXPECT_EQ(model.slides[2]->shapes[0]->type, sim::ShapeType::Picture);

    // Run properties as the host's Font reads them.
    const auto& mixed = model.slides[0]->shapes[1]->frame;
    EXPECT_FLOAT_EQ(mixed.formats[0].size, 24.0f);
    EXPECT_EQ(mixed.formats[0].bold, -1);
    EXPECT_EQ(mixed.formats[0].rgb, 0x0000FF) << "red in the low byte";
    EXPECT_EQ(mixed.formats[0].name, u"Arial");
    EXPECT_EQ(mixed.formats[11].italic, -1);
    EXPECT_NE(mixed.formats[0], mixed.formats[11]);
    EXPECT_FLOAT_EQ(model.slides[0]->shapes[1]->width, 200.0f);
}

TEST_F(PptxDeckTest, SizesAndPositionsNotSetOnAShapeAreInherited) {
    DeckWriter w;
    w.DefaultTextStyle("<p:defaultTextStyle>" + Level(1, 2000) + "</p:defaultTextStyle>");
    // The layout's body placeholder sets level 2; the master's title
    // placeholder nothing; the master's styles set the title and body.
    w.LayoutAndMaster(
        Placeholder(2, R"(<p:ph type="body" idx="1"/>)",
                    "<a:lstStyle>" + Level(2, 2600) + "</a:lstStyle>", ""),
        Placeholder(
            2, R"(<p:ph type="title"/>)", "<a:lstStyle/>", "",
            R"(<a:xfrm><a:off x="254000" y="127000"/><a:ext cx="7620000" cy="1270000"/></a:xfrm>)"),
        "<p:txStyles><p:titleStyle>" + Level(1, 4400) + "</p:titleStyle><p:bodyStyle>" +
            Level(1, 3200) + Level(2, 2800) + "</p:bodyStyle><p:otherStyle/></p:txStyles>");
    const std::string para2 = R"(<a:p><a:pPr lvl="1"/><a:r><a:t>Level two</a:t></a:r></a:p>)";
    w.Slide(
        DeckWriter::Box(2, "Plain", DeckWriter::Para("Plain box")) +
        DeckWriter::Box(3, "Own", "<a:p><a:r><a:rPr sz=\"1100\"/><a:t>Own size</a:t></a:r></a:p>") +
        Placeholder(4, R"(<p:ph type="ctrTitle"/>)", "<a:lstStyle/>", DeckWriter::Para("Title")) +
        Placeholder(5, R"(<p:ph idx="1"/>)", "<a:lstStyle/>",
                    DeckWriter::Para("Level one") + para2) +
        Placeholder(6, R"(<p:ph idx="1"/>)", "<a:lstStyle>" + Level(1, 1500) + "</a:lstStyle>",
                    DeckWriter::Para("Frame's own")));
    ASSERT_EQ(w.Write(Path("styles.pptx")), "");
    std::string error;
    const auto deck = PptxDeck::Open(Path("styles.pptx"), error);
    ASSERT_TRUE(deck) << error;
    const auto& shapes = deck->Model()->slides[0]->shapes;
    ASSERT_EQ(shapes.size(), 5u);
    const struct {
        std::size_t shape, at;
        float size;
    } cases[] = {
        {0, 0, 20.0f},   // the presentation's default
        {1, 0, 11.0f},   // the run's own
        {2, 0, 44.0f},   // master title style, through layout and master placeholders
        {3, 0, 32.0f},   // master body style level 1
        {3, 10, 26.0f},  // the layout's placeholder before the master's level 2
        {4, 0, 15.0f},   // the frame's own list style first
    };
    for (const auto& c : cases) {
        EXPECT_FLOAT_EQ(shapes[c.shape]->frame.formats[c.at].size, c.size)
            << "shape " << c.shape + 1 << " at " << c.at;
    }
    // A placeholder without a position of its own stands where its master's does.
    EXPECT_FLOAT_EQ(shapes[2]->left, 20.0f);
    EXPECT_FLOAT_EQ(shapes[2]->width, 600.0f);
    EXPECT_FLOAT_EQ(shapes[3]->width, 0.0f) << "no placeholder it inherits from has a position";
    // What a run doesn't change isn't written: no size lands on a run that had none.
    ASSERT_EQ(deck->Save(Path("same.pptx")), "");
    EXPECT_EQ(PartsOf(Path("same.pptx")), PartsOf(Path("styles.pptx")));
    // A placeholder the run resizes gets a position of its own.
    shapes[2]->height = 120.0f;
    ASSERT_EQ(deck->Save(Path("taller.pptx")), "");
    const auto taller = PptxDeck::Open(Path("taller.pptx"), error);
    ASSERT_TRUE(taller) << error;
    const sim::ShapeModel& title = *taller->Model()->slides[0]->shapes[2];
    EXPECT_FLOAT_EQ(title.left, 20.0f);
    EXPECT_FLOAT_EQ(title.width, 600.0f);
    EXPECT_FLOAT_EQ(title.height, 120.0f);
}

TEST_F(PptxDeckTest, FacesBoldAndColoursNotSetOnARunAreInherited) {
    DeckWriter w;
    const std::string titleShape = Placeholder(2, R"(<p:ph type="title"/>)", "<a:lstStyle/>", "");
    w.LayoutAndMaster(
        titleShape, titleShape,
        R"(<p:txStyles><p:titleStyle><a:lvl1pPr><a:defRPr sz="4000" b="1"><a:solidFill>)"
        R"(<a:srgbClr val="0000FF"/></a:solidFill><a:latin typeface="+mj-lt"/>)"
        R"(<a:ea typeface="+mj-ea"/></a:defRPr></a:lvl1pPr></p:titleStyle><p:bodyStyle>)"
        R"(<a:lvl1pPr><a:defRPr sz="2000"><a:latin typeface="+mn-lt"/></a:defRPr></a:lvl1pPr>)"
        R"(</p:bodyStyle><p:otherStyle/></p:txStyles>)");
    w.Part(
        "ppt/slideMasters/_rels/slideMaster1.xml.rels",
        std::string(DeckWriter::kXmlHead) +
            R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)" +
            DeckWriter::Rel("rId1", std::string(DeckWriter::kRels) + "/theme",
                            "../theme/theme1.xml") +
            "</Relationships>");
    w.Part("ppt/theme/theme1.xml",
           std::string(DeckWriter::kXmlHead) + "<a:theme" + DeckWriter::kNs +
               R"( name="T"><a:themeElements><a:fontScheme name="F"><a:majorFont>)"
               R"(<a:latin typeface="Georgia"/><a:ea typeface="MS Mincho"/><a:cs typeface=""/>)"
               R"(</a:majorFont><a:minorFont><a:latin typeface="Verdana"/><a:ea typeface=""/>)"
               R"(<a:cs typeface=""/></a:minorFont></a:fontScheme></a:themeElements></a:theme>)");
    w.Slide(Placeholder(2, R"(<p:ph type="title"/>)", "<a:lstStyle/>",
                        "<a:p><a:r><a:t>Heading</a:t></a:r></a:p>") +
            Placeholder(3, R"(<p:ph idx="1"/>)", "<a:lstStyle/>",
                        "<a:p><a:r><a:t>Body text</a:t></a:r></a:p>"
                        R"(<a:p><a:r><a:rPr><a:latin typeface="Arial"/></a:rPr>)"
                        "<a:t>Own face</a:t></a:r></a:p>"));
    ASSERT_EQ(w.Write(Path("faces.pptx")), "");
    std::string error;
    const auto deck = PptxDeck::Open(Path("faces.pptx"), error);
    ASSERT_TRUE(deck) << error;
    const auto& shapes = deck->Model()->slides[0]->shapes;
    const CharFormat& title = shapes[0]->frame.formats[0];
    EXPECT_EQ(title.name, u"Georgia");
    EXPECT_EQ(title.nameFarEast, u"MS Mincho");
    EXPECT_EQ(title.bold, -1);
    EXPECT_EQ(title.rgb, 0xFF0000) << "blue, red in the low byte";
    EXPECT_FLOAT_EQ(title.size, 40.0f);
    const sim::TextFrameModel& body = shapes[1]->frame;
    EXPECT_EQ(body.formats[0].name, u"Verdana");
    EXPECT_EQ(body.formats[0].nameFarEast, CharFormat().nameFarEast) << "the theme gives none";
    EXPECT_EQ(body.formats[body.text.find(u"Own")].name, u"Arial");

    // Where the run keeps the source's faces, inherited faces stay inherited:
    // the translated runs name none.
    std::string err;
    ASSERT_EQ(
        RunCli("-q --to de --target-font '' -o " + Path("out.pptx") + " " + Path("faces.pptx"),
               err),
        0)
        << err;
    const std::string slide = PartsOf(Path("out.pptx")).at("ppt/slides/slide1.xml");
    EXPECT_EQ(slide.find("Georgia"), std::string::npos) << slide;
    EXPECT_EQ(slide.find("Verdana"), std::string::npos) << slide;
    EXPECT_NE(slide.find(R"(<a:latin typeface="Arial"/>)"), std::string::npos) << slide;
}

TEST_F(PptxDeckTest, ASlideNumberInATranslatedSentenceStaysAField) {
    DeckWriter w;
    w.Slide(DeckWriter::Box(2, "Footer",
                            R"(<a:p><a:r><a:rPr lang="en-US"/><a:t>Page </a:t></a:r>)"
                            R"(<a:fld id="{1F4E2DB7-5E8C-4C1B-8B4A-6C1E7A0B2D11}" type="slidenum">)"
                            R"(<a:rPr lang="en-US"/><a:t>&lt;number&gt;</a:t></a:fld>)"
                            R"(<a:r><a:rPr lang="en-US"/><a:t> of the deck</a:t></a:r></a:p>)"));
    ASSERT_EQ(w.Write(Path("fields.pptx")), "");
    std::string error;
    auto deck = PptxDeck::Open(Path("fields.pptx"), error);
    ASSERT_TRUE(deck) << error;
    EXPECT_EQ(TextsByPlace(*deck)["slide 1, Footer"], u"Page 1 of the deck")
        << "the field shows the slide's number, not the text its writer stored";

    std::string err;
    ASSERT_EQ(RunCli("-q --to de -o " + Path("out.pptx") + " " + Path("fields.pptx"), err), 0)
        << err;
    const std::string slide = PartsOf(Path("out.pptx")).at("ppt/slides/slide1.xml");
    EXPECT_NE(slide.find(R"(type="slidenum")"), std::string::npos) << slide;
    deck = PptxDeck::Open(Path("out.pptx"), error);
    ASSERT_TRUE(deck) << error;
    EXPECT_EQ(TextsByPlace(*deck)["slide 1, Footer"], T(u"Page 1 of the deck"));
}

TEST_F(PptxDeckTest, ShapesInScaledGroupsStandWhereTheSlideShowsThem) {
    // The outer group doubles what it holds; the inner one halves it again
    // and moves it.
    const std::string box = DeckWriter::Box(4, "Deep", DeckWriter::Para("Inside"));
    DeckWriter w;
    w.Slide(R"(<p:grpSp><p:nvGrpSpPr><p:cNvPr id="2" name="Outer"/><p:cNvGrpSpPr/><p:nvPr/>)"
            R"(</p:nvGrpSpPr><p:grpSpPr><a:xfrm><a:off x="1270000" y="0"/><a:ext cx="2540000")"
            R"( cy="2540000"/><a:chOff x="0" y="0"/><a:chExt cx="1270000" cy="1270000"/></a:xfrm>)"
            R"(</p:grpSpPr><p:grpSp><p:nvGrpSpPr><p:cNvPr id="3" name="Inner"/><p:cNvGrpSpPr/>)"
            R"(<p:nvPr/></p:nvGrpSpPr><p:grpSpPr><a:xfrm><a:off x="127000" y="127000"/>)"
            R"(<a:ext cx="1270000" cy="1270000"/><a:chOff x="0" y="0"/><a:chExt cx="2540000")"
            R"( cy="2540000"/></a:xfrm></p:grpSpPr>)" +
            box + "</p:grpSp></p:grpSp>");
    ASSERT_EQ(w.Write(Path("groups.pptx")), "");
    std::string error;
    auto deck = PptxDeck::Open(Path("groups.pptx"), error);
    ASSERT_TRUE(deck) << error;
    sim::ShapeModel& deep = *deck->Model()->slides[0]->shapes[0]->children[0]->children[0];
    // The box's own x=10pt, y=20pt, 200pt x 50pt, halved then doubled, and
    // moved by the inner group's 10pt (doubled) and the outer group's 100pt.
    EXPECT_FLOAT_EQ(deep.left, 100.0f + 2 * (10.0f + 0.5f * 10.0f));
    EXPECT_FLOAT_EQ(deep.top, 2 * (10.0f + 0.5f * 20.0f));
    EXPECT_FLOAT_EQ(deep.width, 200.0f);
    EXPECT_FLOAT_EQ(deep.height, 50.0f);
    deep.height = 80.0f;
    ASSERT_EQ(deck->Save(Path("taller.pptx")), "");
    EXPECT_NE(PartsOf(Path("taller.pptx")).at("ppt/slides/slide1.xml").find(R"(cy="1016000")"),
              std::string::npos)
        << "80pt in the box's own coordinates";
    deck = PptxDeck::Open(Path("taller.pptx"), error);
    ASSERT_TRUE(deck) << error;
    const sim::ShapeModel& again = *deck->Model()->slides[0]->shapes[0]->children[0]->children[0];
    EXPECT_FLOAT_EQ(again.height, 80.0f);
    EXPECT_FLOAT_EQ(again.left, 130.0f);
}

TEST_F(PptxDeckTest, SavingWithoutChangesKeepsEveryPartByteForByte) {
    const auto deck = OpenKitchenSink();
    ASSERT_TRUE(deck);
    std::string error;
    ASSERT_EQ(deck->Save(Path("same.pptx")), "");
    EXPECT_EQ(deck->FramesWritten(), 0u);
    EXPECT_EQ(PartsOf(Path("same.pptx")), PartsOf(Path("deck.pptx")));
}

TEST_F(PptxDeckTest, TheFrontEndTranslatesEveryTextAndKeepsTheRest) {
    const std::string path = Path("deck.pptx");
    ASSERT_EQ(KitchenSink().Write(path), "");
    const std::string input = test::ReadFileBytes(Utf8ToUtf16(path));
    std::string err;
    ASSERT_EQ(RunCli("-q --to de " + path, err), 0) << err;
    EXPECT_EQ(test::ReadFileBytes(Utf8ToUtf16(path)), input) << "the input is never overwritten";

    std::string error;
    const auto out = PptxDeck::Open(Path("deck.translated.pptx"), error);
    ASSERT_TRUE(out) << error;
    const std::map<std::string, std::u16string> expected = {
        {"slide 1, Title", T(u"Quarterly report")},
        {"slide 1, Mixed", T(u"Sales grew quickly") + u"\r" + T(u"First line\vsecond line")},
        {"slide 1 notes, Notes Placeholder 2", T(u"Speak slowly")},
        {"slide 2, Outer, Left", T(u"Costs fell")},
        {"slide 2, Outer, Inner, Deep", T(u"Next steps")},
        {"slide 2, Table, cell 1,1", T(u"North")},
        {"slide 2, Table, cell 1,2", u"42"},
        {"slide 2, Table, cell 2,1", T(u"Merged region")},
        {"slide 2, Table, cell 2,2", u""},
    };
    EXPECT_EQ(TextsByPlace(*out), expected);

    const auto before = PartsOf(path), after = PartsOf(Path("deck.translated.pptx"));
    ASSERT_EQ(after.size(), before.size());
    for (const auto& [name, bytes] : before) {
        const bool holdsText = name == "ppt/slides/slide1.xml" || name == "ppt/slides/slide2.xml" ||
                               name == "ppt/notesSlides/notesSlide1.xml";
        ASSERT_TRUE(after.count(name)) << name;
        if (holdsText) {
            EXPECT_NE(after.at(name), bytes) << name << " holds translated text";
        } else {
            EXPECT_EQ(after.at(name), bytes) << name << " is not the run's to change";
        }
    }

    // The first run's properties carry the paragraph; those the model doesn't
    // know (underline, language) and the paragraph's own stay as they were.
    // (The engine fits the text, so sizes may change; it also folds a soft
    // break inside a translated paragraph into a space.)
    const std::string slide1 = after.at("ppt/slides/slide1.xml");
    for (const char* kept :
         {R"(<a:pPr algn="ctr"/>)", R"(b="1" u="sng")", R"(<a:srgbClr val="FF0000"/>)",
          R"(<a:endParaRPr lang="en-US" sz="1200"/>)"}) {
        EXPECT_NE(slide1.find(kept), std::string::npos) << kept << " in " << slide1;
    }
}

TEST_F(PptxDeckTest, BilingualCopiesAreSlidesOfTheirOwnBehindTheirSourcesAndAreFoundAgain) {
    // A tag the user set on the first slide goes with its copy.
    {
        const auto deck = OpenKitchenSink();
        ASSERT_TRUE(deck);
        deck->Model()->slides[0]->tags[u"OWNER"] = u"finance";
        ASSERT_EQ(deck->Save(Path("tagged.pptx")), "");
    }
    const auto input = PartsOf(Path("tagged.pptx"));
    std::string err;
    ASSERT_EQ(
        RunCli("-q --to de --bilingual -o " + Path("de.pptx") + " " + Path("tagged.pptx"), err), 0)
        << err;
    std::string error;
    auto out = PptxDeck::Open(Path("de.pptx"), error);
    ASSERT_TRUE(out) << error;
    const auto& slides = out->Model()->slides;
    ASSERT_EQ(slides.size(), 6u);
    const std::int32_t ids[] = {256, 261, 257, 260, 258, 259};  // copied last to first
    for (std::size_t i = 0; i < slides.size(); ++i)
        EXPECT_EQ(slides[i]->slideId, ids[i]) << i;
    const std::map<std::u16string, std::u16string> sourceTags = {{u"OWNER", u"finance"}};
    EXPECT_EQ(slides[0]->tags, sourceTags);
    const std::map<std::u16string, std::u16string> copyTags = {
        {u"OWNER", u"finance"}, {u"QUILLBROOK.BILINGUALCOPYOF", u"256"}};
    EXPECT_EQ(slides[1]->tags, copyTags);
    EXPECT_EQ(slides[3]->tags.at(u"QUILLBROOK.BILINGUALCOPYOF"), u"257");

    auto texts = TextsByPlace(*out);
    EXPECT_EQ(texts["slide 1, Title"], u"Quarterly report");
    EXPECT_EQ(texts["slide 2, Title"], T(u"Quarterly report"));
    EXPECT_EQ(texts["slide 1 notes, Notes Placeholder 2"], u"Speak slowly");
    EXPECT_EQ(texts["slide 2 notes, Notes Placeholder 2"], T(u"Speak slowly"));
    EXPECT_EQ(texts["slide 3, Outer, Inner, Deep"], u"Next steps");
    EXPECT_EQ(texts["slide 4, Outer, Inner, Deep"], T(u"Next steps"));
    EXPECT_EQ(texts["slide 4, Table, cell 2,1"], T(u"Merged region"));

    // The sources keep every byte; the copies have parts of their own, and
    // the copied notes page belongs to the copied slide.
    const auto after = PartsOf(Path("de.pptx"));
    for (const auto& [name, bytes] : input) {
        ASSERT_TRUE(after.count(name)) << name;
        if (name != "ppt/presentation.xml" && name != "ppt/_rels/presentation.xml.rels" &&
            name != "[Content_Types].xml") {
            EXPECT_EQ(after.at(name), bytes) << name;
        }
    }
    EXPECT_NE(after.at("ppt/notesSlides/_rels/notesSlide2.xml.rels")
                  .find(R"(Target="../slides/slide4.xml")"),
              std::string::npos);
    for (const char* part : {"/ppt/slides/slide4.xml", "/ppt/slides/slide6.xml",
                             "/ppt/notesSlides/notesSlide2.xml", "/ppt/tags/tag2.xml"}) {
        EXPECT_NE(after.at("[Content_Types].xml").find(std::string("PartName=\"") + part + "\""),
                  std::string::npos)
            << part;
    }

    // A second run finds the copies by their tags and writes on them again.
    ASSERT_EQ(RunCli("-q --to fr --bilingual -o " + Path("fr.pptx") + " " + Path("de.pptx"), err),
              0)
        << err;
    out = PptxDeck::Open(Path("fr.pptx"), error);
    ASSERT_TRUE(out) << error;
    EXPECT_EQ(out->Model()->slides.size(), 6u);
    texts = TextsByPlace(*out);
    EXPECT_EQ(texts["slide 1, Title"], u"Quarterly report");
    EXPECT_EQ(texts["slide 2, Title"],
              NormalizeTranslation(sim::PseudoTranslate(u"Quarterly report", u"fr")));
    EXPECT_EQ(PartsOf(Path("fr.pptx")).size(), after.size());

    // A copy deleted (as a cancelled run deletes what it made) leaves the
    // package with its notes page.
    auto& deck = out->Model()->slides;
    deck[1]->deleted = true;
    deck.erase(deck.begin() + 1);
    ASSERT_EQ(out->Save(Path("fewer.pptx")), "");
    const auto fewer = PartsOf(Path("fewer.pptx"));
    for (const char* gone : {"ppt/slides/slide4.xml", "ppt/slides/_rels/slide4.xml.rels",
                             "ppt/notesSlides/notesSlide2.xml"}) {
        EXPECT_EQ(fewer.count(gone), 0u) << gone;
        EXPECT_EQ(fewer.at("[Content_Types].xml").find(gone), std::string::npos) << gone;
    }
    out = PptxDeck::Open(Path("fewer.pptx"), error);
    ASSERT_TRUE(out) << error;
    ASSERT_EQ(out->Model()->slides.size(), 5u);
    EXPECT_EQ(out->Model()->slides[1]->slideId, 257);
}

TEST_F(PptxDeckTest, ShapesSelectedOnAnotherSlideThanTheFirstAreTranslated) {
    // Shape ids are unique only within a slide, so the selected shape's id
    // is also on the first slide.
    DeckWriter w;
    w.Slide(DeckWriter::Box(2, "A", DeckWriter::Para("Alpha")) +
            DeckWriter::Box(3, "B", DeckWriter::Para("Beta")));
    w.Slide(DeckWriter::Box(3, "C", DeckWriter::Para("Gamma")) +
            DeckWriter::Box(4, "D", DeckWriter::Para("Delta")));
    ASSERT_EQ(w.Write(Path("deck.pptx")), "");
    std::string err;
    ASSERT_EQ(
        RunCli("-q --to de --select shapes:2:1 -o " + Path("out.pptx") + " " + Path("deck.pptx"),
               err),
        0)
        << err;
    std::string error;
    const auto out = PptxDeck::Open(Path("out.pptx"), error);
    ASSERT_TRUE(out) << error;
    const std::map<std::string, std::u16string> expected = {
        {"slide 1, A", u"Alpha"},
        {"slide 1, B", u"Beta"},
        {"slide 2, C", T(u"Gamma")},
        {"slide 2, D", u"Delta"},
    };
    EXPECT_EQ(TextsByPlace(*out), expected);
}

TEST_F(PptxDeckTest, RunsTheEngineChangedAreWrittenWithTheirNewProperties) {
    const auto deck = OpenKitchenSink();
    ASSERT_TRUE(deck);
    std::string error;
    // As the engine's target font and fit do: a new face and a smaller size
    // on the first paragraph, and the text replaced keeping its first format.
    auto& frame = deck->Model()->slides[0]->shapes[1]->frame;
    for (std::size_t i = 0; i < 18; ++i) {
        frame.formats[i].name = frame.formats[i].nameAscii = u"Noto Sans";
        frame.formats[i].nameFarEast = u"Noto Sans CJK SC";
        frame.formats[i].size = 20.5f;
    }
    const sim::CharFormat first = frame.formats[0];
    frame.text.replace(0, 18, u"Umsatz");
    frame.formats.erase(frame.formats.begin(), frame.formats.begin() + 18);
    frame.formats.insert(frame.formats.begin(), 6, first);
    ASSERT_EQ(deck->Save(Path("out.pptx")), "");
    EXPECT_EQ(deck->FramesWritten(), 1u);

    const std::string slide1 = PartsOf(Path("out.pptx")).at("ppt/slides/slide1.xml");
    EXPECT_NE(
        slide1.find(R"(<a:r><a:rPr lang="en-US" sz="2050" b="1" u="sng"><a:solidFill>)"
                    R"(<a:srgbClr val="FF0000"/></a:solidFill><a:latin typeface="Noto Sans"/>)"
                    R"(<a:ea typeface="Noto Sans CJK SC"/></a:rPr><a:t>Umsatz</a:t></a:r>)"),
        std::string::npos)
        << slide1;
    EXPECT_EQ(slide1.find("quickly"), std::string::npos);
    EXPECT_NE(slide1.find("second line"), std::string::npos) << "the second paragraph is kept";

    const auto reopened = PptxDeck::Open(Path("out.pptx"), error);
    ASSERT_TRUE(reopened) << error;
    EXPECT_EQ(TextsByPlace(*reopened).at("slide 1, Mixed"), u"Umsatz\rFirst line\vsecond line");
    EXPECT_FLOAT_EQ(reopened->Model()->slides[0]->shapes[1]->frame.formats[0].size, 20.5f);
}

TEST_F(PptxDeckTest, ParagraphsThatComeAndGoTakeTheirNeighboursProperties) {
    const auto deck = OpenKitchenSink();
    ASSERT_TRUE(deck);
    std::string error;
    deck->Model()->slides[0]->shapes[0]->width = 300.0f;
    deck->Model()->slides[0]->shapes[0]->left = 5.5f;
    auto& title = deck->Model()->slides[0]->shapes[0]->frame;
    const sim::CharFormat format = title.formats[0];
    title.text = u"Eins\rZwei\vDrei";
    title.formats.assign(title.text.size(), format);
    auto& mixed = deck->Model()->slides[0]->shapes[1]->frame;
    const std::size_t cr = mixed.text.find(u'\r');
    mixed.text.erase(cr);
    mixed.formats.resize(cr);
    ASSERT_EQ(deck->Save(Path("out.pptx")), "");
    const auto reopened = PptxDeck::Open(Path("out.pptx"), error);
    ASSERT_TRUE(reopened) << error;
    const auto texts = TextsByPlace(*reopened);
    EXPECT_EQ(texts.at("slide 1, Title"), u"Eins\rZwei\vDrei");
    EXPECT_EQ(texts.at("slide 1, Mixed"), u"Sales grew quickly");
    EXPECT_EQ(reopened->Model()->slides[0]->shapes[1]->frame.formats[0].bold, -1);
    // A box the fit widened and moved is written where it now stands.
    EXPECT_FLOAT_EQ(reopened->Model()->slides[0]->shapes[0]->width, 300.0f);
    EXPECT_FLOAT_EQ(reopened->Model()->slides[0]->shapes[0]->left, 5.5f);
    EXPECT_FLOAT_EQ(reopened->Model()->slides[0]->shapes[1]->width, 200.0f);
    const std::string slide1 = PartsOf(Path("out.pptx")).at("ppt/slides/slide1.xml");
    EXPECT_NE(
        slide1.find(R"(<a:p><a:r><a:rPr lang="en-US"/><a:t>Eins</a:t></a:r></a:p>)"
                    R"(<a:p><a:r><a:rPr lang="en-US"/><a:t>Zwei</a:t></a:r><a:br>)"
                    R"(<a:rPr lang="en-US"/></a:br><a:r><a:rPr lang="en-US"/><a:t>Drei</a:t>)"),
        std::string::npos)
        << slide1;
}

TEST_F(PptxDeckTest, DamagedFilesGiveOneLineAndWriteNothing) {
    const std::string good = Path("good.pptx");
    ASSERT_EQ(KitchenSink().Write(good), "");
    const std::string bytes = test::ReadFileBytes(Utf8ToUtf16(good));

    DeckWriter noPresentation = KitchenSink();
    std::map<std::string, std::string> parts = noPresentation.Parts();
    ZipPackage missing;
    for (const auto& [name, part] : parts) {
        if (name != "ppt/presentation.xml") missing.Put(name, part);
    }
    ASSERT_EQ(missing.Write(Path("missing.pptx")), "");
    ZipPackage noSlide;
    for (const auto& [name, part] : parts) {
        if (name != "ppt/slides/slide2.xml") noSlide.Put(name, part);
    }
    ASSERT_EQ(noSlide.Write(Path("noslide.pptx")), "");
    DeckWriter broken = KitchenSink();
    broken.Part("ppt/slides/slide2.xml", "<p:sld><p:cSld><p:spTree></p:sld>");
    ASSERT_EQ(broken.Write(Path("broken.pptx")), "");
    std::string nested = DeckWriter::Box(2, "Deep", DeckWriter::Para("Too deep"));
    for (int i = 0; i < 200; ++i)
        nested = Group(100 + i, "G", nested);
    DeckWriter deep;
    deep.Slide(nested);
    ASSERT_EQ(deep.Write(Path("deep.pptx")), "");
    std::ofstream(Path("text.pptx")) << "just some text, no zip";
    std::ofstream(Path("truncated.pptx"), std::ios::binary) << bytes.substr(0, bytes.size() / 2);
    std::ofstream(Path("empty.pptx"), std::ios::binary);

    const struct {
        std::string file;
        std::string error;  // what the one line says after the file's name
    } cases[] = {
        {"text.pptx", "not a zip package"},
        {"empty.pptx", "not a zip package"},
        {"truncated.pptx", "not a zip package"},
        {"missing.pptx", "not a presentation: no presentation part"},
        {"broken.pptx", "ppt/slides/slide2.xml: broken XML at byte"},
        {"noslide.pptx", "ppt/slides/slide2.xml: part missing\n"},
        {"deep.pptx", "groups nested deeper than 64\n"},
    };
    for (const auto& c : cases) {
        std::string err;
        EXPECT_EQ(RunCli("-q -o " + Path("out.pptx") + " " + Path(c.file), err), 3) << c.file;
        EXPECT_EQ(err.rfind("qb-translate: " + c.file + ": " + c.error, 0), 0u) << err;
        EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
        EXPECT_FALSE(test::FileExists(Utf8ToUtf16(Path("out.pptx")))) << c.file;
        EXPECT_FALSE(test::FileExists(Utf8ToUtf16(Path("out.pptx.tmp")))) << c.file;
    }
}

TEST_F(PptxDeckTest, DamagedXmlOpensOrIsRefusedAndWhatOpensSavesAndReopens) {
    // One character of one XML part changed at a time, at places a fixed
    // seed picks, so every run tries the same files.
    const std::map<std::string, std::string> parts = KitchenSink().Parts();
    std::vector<std::string> targets;
    for (const auto& [name, bytes] : parts) {
        if (name.find(".xml") != std::string::npos) targets.push_back(name);
    }
    std::mt19937 random(17);
    int opened = 0, refused = 0;
    for (int round = 0; round < 60; ++round) {
        ZipPackage zip;
        const std::string& target = targets[static_cast<std::size_t>(round) % targets.size()];
        for (const auto& [name, bytes] : parts) {
            std::string changed = bytes;
            if (name == target) changed[random() % changed.size()] = "<>/\"=& a"[random() % 9];
            zip.Put(name, changed);
        }
        const std::string path = Path("m" + std::to_string(round) + ".pptx");
        ASSERT_EQ(zip.Write(path), "");
        std::string error;
        const auto deck = PptxDeck::Open(path, error);
        if (!deck) {
            EXPECT_NE(error, "");
            EXPECT_EQ(error.find('\n'), std::string::npos) << error;
            ++refused;
            continue;
        }
        ++opened;
        for (const auto& slide : deck->Model()->slides) {
            for (const auto& shape : slide->shapes) {
                if (shape->hasTextFrame) shape->frame.SetText(u"Neu", shape->frame.defaultFormat);
            }
        }
        ASSERT_EQ(deck->Save(Path("out.pptx")), "") << round;
        EXPECT_TRUE(PptxDeck::Open(Path("out.pptx"), error)) << round << ": " << error;
    }
    EXPECT_GT(opened, 0);
    EXPECT_GT(refused, 0);
}

TEST_F(PptxDeckTest, AHugePartIsRefusedBeforeItIsRead) {
    DeckWriter w = KitchenSink();
    w.Part("ppt/media/huge.bin", std::string(3u << 20, ' '));
    ASSERT_EQ(w.Write(Path("huge.pptx")), "");
    pptx::ZipLimits limits;
    limits.maxPartBytes = 1u << 20;
    std::string error;
    EXPECT_FALSE(PptxDeck::Open(Path("huge.pptx"), error, limits));
    EXPECT_EQ(error, "ppt/media/huge.bin: part too large (3145728 bytes, limit 1048576)");
    limits.maxPartBytes = 4u << 20;
    limits.maxTotalBytes = 2u << 20;
    EXPECT_FALSE(PptxDeck::Open(Path("huge.pptx"), error, limits));
    EXPECT_EQ(error.rfind("package too large", 0), 0u) << error;
    EXPECT_TRUE(PptxDeck::Open(Path("huge.pptx"), error)) << error;
}

TEST_F(PptxDeckTest, OptionsAPresentationCantTakeAreRefused) {
    std::ofstream(Path("deck.json")) << R"({"slides": []})";
    ASSERT_EQ(KitchenSink().Write(Path("deck.pptx")), "");
    const struct {
        std::string args, error;
    } cases[] = {
        {"-o " + Path("out.pptx") + " " + Path("deck.json"), "a .pptx output needs a .pptx input"},
        {"-o " + Path("out.txt") + " " + Path("deck.pptx"),
         "the output of a .pptx input is a .pptx or a .json deck file"},
    };
    for (const auto& c : cases) {
        std::string err;
        EXPECT_EQ(RunCli(c.args, err), 2) << c.args;
        EXPECT_EQ(err, "qb-translate: " + c.error + "\n");
        EXPECT_FALSE(test::FileExists(Utf8ToUtf16(Path("out.pptx"))));
    }
    // Saved as a deck file instead, the model that was read can be looked at,
    // and read again as a deck file.
    std::string err;
    ASSERT_EQ(RunCli("-q --to de -o " + Path("out.json") + " " + Path("deck.pptx"), err), 0) << err;
    const sim::DeckLoadResult saved = sim::LoadDeckFile(Utf8ToUtf16(Path("out.json")));
    ASSERT_EQ(saved.error, "");
    ASSERT_EQ(saved.deck->slides.size(), 3u);
    EXPECT_EQ(saved.deck->slides[0]->shapes[0]->frame.text, T(u"Quarterly report"));
}

}  // namespace
}  // namespace qb
