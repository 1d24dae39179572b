// Deck files hold every part of the simulated host's model: what is written
// reads back equal, canonical text is stable, hand-written shorthands mean
// what the format says, and every kind of bad input gives one error that
// names its place and no deck.
#include <gtest/gtest.h>

#include <iomanip>
#include <map>
#include <sstream>
#include <string>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "sim/host/deck_builder.h"
#include "sim/host/deck_file.h"
#include "sim/sim_test_support.h"
#include "support/temp_dir.h"

namespace qb::sim {
namespace {

// --- A description of every field, independent of the file format ----------

std::string Quote(const std::u16string& s) {
    std::string out = "\"";
    static const char hex[] = "0123456789abcdef";
    for (char16_t c : s) {
        if (c >= 0x20 && c < 0x7F && c != u'\\' && c != u'"') {
            out += static_cast<char>(c);
        } else {
            out += "\\u";
            for (int shift = 12; shift >= 0; shift -= 4)
                out += hex[(c >> shift) & 0xF];
        }
    }
    return out + "\"";
}

std::string Num(double d) {
    std::ostringstream s;
    s.imbue(std::locale::classic());
    s << std::setprecision(17) << d;
    return s.str();
}

class Describer {
  public:
    std::string Deck(const DeckContents& c) {
        const PresentationModel& d = *c.deck;
        Index(d);
        Line("kind", c.kind == HostKind::Wps ? "wps" : "powerPoint");
        Line("appName", Quote(c.appName));
        Line("appVersion", Quote(c.appVersion));
        Line("uiLanguageId", std::to_string(c.uiLanguageId));
        Line("activeWindow", std::to_string(c.activeWindow));
        Line("fullName", Quote(d.fullName));
        Line("slideSize", Num(d.slideWidth) + " x " + Num(d.slideHeight));
        Line("next ids", std::to_string(d.nextSlideId) + " " + std::to_string(d.nextShapeId));
        for (std::size_t i = 0; i < d.slides.size(); ++i) {
            const SlideModel& s = *d.slides[i];
            const std::string p = "slides[" + std::to_string(i) + "]";
            Line(p, "id " + std::to_string(s.slideId) + " name " + Quote(s.name) +
                        (s.deleted ? " deleted" : ""));
            for (const auto& [name, value] : s.tags)
                Line(p + ".tag", Quote(name) + "=" + Quote(value));
            Shapes(p + ".shapes", s.shapes);
            Shapes(p + ".notes", s.notesShapes);
        }
        for (std::size_t i = 0; i < c.windows.size(); ++i) {
            const WindowModel& w = c.windows[i];
            const std::string p = "windows[" + std::to_string(i) + "]";
            Line(p, "current " + std::to_string(w.currentSlide) +
                        (w.presentation == c.deck ? "" : " OTHER PRESENTATION"));
            const SelectionModel& sel = w.selection;
            Line(p + ".selection", "type " + std::to_string(static_cast<int>(sel.type)) + " text " +
                                       std::to_string(sel.textStart) + "+" +
                                       std::to_string(sel.textLength) + " in " +
                                       Where(sel.textShape.get()));
            for (const auto& slide : sel.slides)
                Line(p + ".slide", Where(slide.get()));
            for (const auto& shape : sel.shapes)
                Line(p + ".shape", Where(shape.get()));
            for (const auto& shape : sel.childShapes)
                Line(p + ".child", Where(shape.get()));
        }
        return out_;
    }

  private:
    void Line(const std::string& path, const std::string& value) {
        out_ += path + ": " + value + "\n";
    }

    std::string Where(const void* p) const {
        if (!p) return "nothing";
        const auto it = places_.find(p);
        return it == places_.end() ? "UNKNOWN" : it->second;
    }

    void Index(const PresentationModel& d) {
        for (std::size_t i = 0; i < d.slides.size(); ++i) {
            const std::string p = "slides[" + std::to_string(i) + "]";
            places_[d.slides[i].get()] = p;
            IndexShapes(p + ".shapes", d.slides[i]->shapes);
            IndexShapes(p + ".notes", d.slides[i]->notesShapes);
        }
    }

    void IndexShapes(const std::string& p, const std::vector<std::shared_ptr<ShapeModel>>& list) {
        for (std::size_t i = 0; i < list.size(); ++i) {
            const std::string q = p + "[" + std::to_string(i) + "]";
            places_[list[i].get()] = q;
            IndexShapes(q + ".children", list[i]->children);
            if (list[i]->table) IndexShapes(q + ".cells", list[i]->table->cells);
        }
    }

    static std::string Font(const CharFormat& f) {
        return Quote(f.name) + "/" + Quote(f.nameAscii) + "/" + Quote(f.nameFarEast) + " " +
               Num(f.size) + " b" + std::to_string(f.bold) + " i" + std::to_string(f.italic) +
               " rgb" + std::to_string(f.rgb) + " type" + std::to_string(f.colorType) + " scheme" +
               std::to_string(f.schemeColor) + " tint" + Num(f.tintAndShade);
    }

    void Shapes(const std::string& p, const std::vector<std::shared_ptr<ShapeModel>>& list) {
        for (std::size_t i = 0; i < list.size(); ++i)
            Shape(p + "[" + std::to_string(i) + "]", *list[i]);
    }

    void Shape(const std::string& p, const ShapeModel& s) {
        Line(p, "id " + std::to_string(s.id) + " type " + std::to_string(static_cast<int>(s.type)) +
                    " name " + Quote(s.name) + (s.deleted ? " deleted" : ""));
        Line(p + ".box", Num(s.left) + " " + Num(s.top) + " " + Num(s.width) + " " + Num(s.height));
        const TextFrameModel& f = s.frame;
        Line(p + ".frame", std::string(s.hasTextFrame ? "has" : "none") + " autoSize " +
                               std::to_string(f.autoSize) + " wrap " + std::to_string(f.wordWrap) +
                               " margins " + Num(f.marginLeft) + " " + Num(f.marginTop) + " " +
                               Num(f.marginRight) + " " + Num(f.marginBottom));
        Line(p + ".default", Font(f.defaultFormat));
        Line(p + ".text", Quote(f.text) + " formats " + std::to_string(f.formats.size()));
        for (std::size_t i = 0; i < f.formats.size();) {
            std::size_t j = i + 1;
            while (j < f.formats.size() && f.formats[j] == f.formats[i])
                ++j;
            Line(p + ".formats[" + std::to_string(i) + "," + std::to_string(j) + ")",
                 Font(f.formats[i]));
            i = j;
        }
        Shapes(p + ".children", s.children);
        if (s.table) {
            const TableModel& t = *s.table;
            std::string merged;
            for (std::int32_t m : t.mergedInto)
                merged += " " + std::to_string(m);
            Line(p + ".table",
                 std::to_string(t.rows) + "x" + std::to_string(t.columns) + " merged" + merged);
            Shapes(p + ".cells", t.cells);
        }
        if (s.chart) Chart(p + ".chart", *s.chart);
        if (s.smartArt) {
            Line(p + ".smartArt", s.smartArt->usable ? "usable" : "unusable");
            Nodes(p + ".smartArt", s.smartArt->nodes);
        }
    }

    void Nodes(const std::string& p, const std::vector<SmartArtNodeModel>& nodes) {
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            const std::string q = p + ".nodes[" + std::to_string(i) + "]";
            Line(q, Quote(nodes[i].text));
            Nodes(q, nodes[i].children);
        }
    }

    static std::string Label(const ChartLabelModel& l) {
        return Quote(l.text) + " " + std::to_string(l.hasText) + std::to_string(l.hasCaption) +
               std::to_string(l.hasTextFrame2);
    }

    void Chart(const std::string& p, const ChartModel& c) {
        Line(p, "title " + std::to_string(c.hasTitle) + " " + Label(c.title) + " hasHasAxis " +
                    std::to_string(c.hasHasAxis) + " asProperty " +
                    std::to_string(c.seriesCollectionAsProperty) + " twoD " +
                    std::to_string(c.xValuesTwoDimensional) + " data " +
                    std::to_string(c.hasChartData) + " linked " + std::to_string(c.hasIsLinked) +
                    std::to_string(c.isLinked) + " activated " + std::to_string(c.activated) +
                    " refreshes " + std::to_string(c.refreshes));
        for (const AxisModel& a : c.axes) {
            Line(p + ".axis", std::to_string(a.type) + "/" + std::to_string(a.group) + " title " +
                                  std::to_string(a.hasTitle) + " " + Label(a.title) + " unit " +
                                  std::to_string(a.hasDisplayUnitLabel) + " " +
                                  Label(a.displayUnitLabel));
        }
        for (const auto& name : c.axisCategoryNames)
            Line(p + ".categoryName", Quote(name));
        for (const SeriesModel& s : c.series) {
            Line(p + ".series", Quote(s.name) + " " + Quote(s.formula) + " labels " +
                                    std::to_string(s.hasDataLabels));
            for (std::size_t i = 0; i < s.categories.size(); ++i)
                Line(p + ".series.category", Quote(s.categories[i]));
            for (bool b : s.categoryIsNumber)
                Line(p + ".series.isNumber", std::to_string(b));
            for (const DataLabelModel& l : s.dataLabels) {
                Line(p + ".series.label",
                     Label(l.label) + " " + std::to_string(l.showValue) +
                         std::to_string(l.showPercentage) + std::to_string(l.showCategoryName) +
                         std::to_string(l.showSeriesName) + std::to_string(l.hasShowBubbleSize) +
                         std::to_string(l.showBubbleSize));
            }
        }
        const WorkbookModel& w = c.workbook;
        Line(p + ".workbook", Quote(w.name) + " windows " + std::to_string(w.windowCount) +
                                  std::to_string(w.windowVisible) + " " + Quote(w.windowCaption) +
                                  " others " + std::to_string(w.otherWorkbooks) + " flags " +
                                  std::to_string(w.screenUpdating) + std::to_string(w.appVisible) +
                                  std::to_string(w.open) + " saves " + std::to_string(w.saves) +
                                  " closes " + std::to_string(w.closes));
        for (const SheetModel& sheet : w.sheets) {
            Line(p + ".sheet", Quote(sheet.name));
            for (const auto& [place, cell] : sheet.cells) {
                Line(p + ".sheet.cell(" + std::to_string(place.first) + "," +
                         std::to_string(place.second) + ")",
                     Quote(cell.text) + " " + Num(cell.number) + " " +
                         std::to_string(cell.isNumber) + " " + Quote(cell.shownText) + " " +
                         std::to_string(cell.hasFormula));
            }
        }
    }

    std::string out_;
    std::map<const void*, std::string> places_;
};

std::string Describe(const DeckContents& contents) {
    return Describer().Deck(contents);
}

DeckContents Contents(std::shared_ptr<PresentationModel> deck) {
    DeckContents c;
    c.deck = std::move(deck);
    WindowModel window;
    window.presentation = c.deck;
    c.windows.push_back(window);
    return c;
}

DeckLoadResult Parse(std::string_view text) {
    DeckLoadResult r = ParseDeck(text, "deck.json");
    EXPECT_EQ(r.error, "");
    EXPECT_NE(r.deck, nullptr);
    return r;
}

// --- A deck with every kind of object ----------------------------------------

DeckContents EveryKind() {
    DeckBuilder b;
    b.Slide().Tag(u"Lang", u"en").Tag(u"Quillbrook.Copy", u"256");
    b.Placeholder(u"Title 1", u"Quarterly report");
    b.Text(u"Body", u"First line\vsoft\rSecond\r\rLast", Box{10.5f, 20.25f, 300.1f, 7.2f});
    ShapeModel& body = b.Last();
    FormatText(body, 0, 5, [](CharFormat& f) {
        f.bold = -1;
        f.size = 24.5f;
    });
    FormatText(body, 6, 4, [](CharFormat& f) {
        f.colorType = 2;
        f.schemeColor = 5;
        f.tintAndShade = -0.25f;
    });
    FormatText(body, 15, 1, [](CharFormat& f) { f.italic = -1; });  // the first paragraph end
    FormatText(body, 16, 6, [](CharFormat& f) {
        f.name = f.nameAscii = u"Arial";
        f.nameFarEast = u"MS Mincho";
        f.rgb = 0x3366ff;
    });
    FormatText(body, 23, 1, [](CharFormat& f) { f.nameAscii = u"Consolas"; });
    body.frame.autoSize = 1;
    body.frame.wordWrap = false;
    body.frame.marginLeft = 0;
    body.frame.marginBottom = 1.5f;
    body.frame.defaultFormat.name = u"Segoe UI";
    body.frame.defaultFormat.colorType = 2;
    body.frame.defaultFormat.schemeColor = 1;
    b.Picture(u"Logo", Box{0, 0, 96, 48});
    b.Text(u"Rect", u"boxed");
    b.Last().type = ShapeType::AutoShape;
    b.Picture(u"Framed picture");
    b.Last().hasTextFrame = true;  // a picture that takes text, as some hosts allow
    b.Text(u"No frame", u"");
    b.Last().hasTextFrame = false;
    b.Notes(u"Speaker notes\rsecond paragraph");
    b.Notes(u"More notes");

    b.Slide().Text(u"\u4e2d\u6587 \U0001F600", u"\u6df7\u5408 text \U0001F600 \"quoted\"");
    b.BeginGroup(u"Outer").Text(u"In 1", u"a");
    b.BeginGroup(u"Inner").Picture(u"Deep").Text(u"Deeper", u"z").EndGroup();
    b.EndGroup();
    b.Table(u"Table 5", 3, 3, {u"a", u"b", u"c", u"d", u"e", u"f", u"g", u"h", u"i"},
            Box{20, 30, 300, 90})
        .Merge(1, 1, 1, 2)
        .Merge(2, 3, 2, 1);
    ShapeModel& table = b.Last();
    FormatText(*table.table->cells[4], 0, 1, [](CharFormat& f) { f.bold = -1; });
    table.table->cells[8]->id = 77;
    table.table->cells[8]->name = u"Corner";
    b.Chart(u"Chart 1", SampleChart());
    ChartModel& chart = *b.Last().chart;
    chart.hasHasAxis = false;
    chart.axes[1].group = 2;
    chart.axes[1].displayUnitLabel.hasCaption = false;
    chart.axes.push_back(AxisModel{3, 1, false, ChartLabelModel{u"hidden title"}, false, {}});
    chart.axisCategoryNames = {u"North", u"South"};
    chart.seriesCollectionAsProperty = false;
    chart.xValuesTwoDimensional = true;
    chart.series[1].categories.push_back(u"1.50");  // a number shown with its own digits
    chart.series[1].categoryIsNumber.push_back(true);
    chart.series[1].hasDataLabels = true;  // on, with no labels of its own
    chart.series[0].dataLabels[0].hasShowBubbleSize = false;
    chart.series[0].dataLabels[1].label.hasTextFrame2 = false;
    chart.hasIsLinked = false;
    chart.workbook.windowCaption = u"Data";
    chart.workbook.otherWorkbooks = 2;
    chart.workbook.saves = 3;
    chart.workbook.screenUpdating = false;
    SheetCellModel& shown = chart.workbook.sheets[0].cells[{2, 2}];
    shown.shownText = u"#####";
    shown.hasFormula = true;
    chart.workbook.sheets[0].cells[{30, 28}].text = u"far away";
    chart.workbook.sheets.push_back(SheetModel{u"Other", {}});
    chart.refreshes = 4;
    b.Chart(u"Empty chart", ChartModel());
    b.SmartArt(u"Diagram", {u"One", u"Two"});
    b.Last().smartArt->nodes.push_back(SmartArtNodeModel{u"", {SmartArtNodeModel{u"leaf", {}}}});
    b.SmartArt(u"Unusable", {});
    b.Last().smartArt->usable = false;
    b.Text(u"Gone", u"deleted shape");
    b.Last().deleted = true;

    b.Slide();
    b.CurrentSlide().deleted = true;
    b.CurrentSlide().name = u"Removed";

    auto deck = b.Build();
    deck->fullName = u"C:\\Decks\\Every kind.pptx";
    deck->slideWidth = 720;
    deck->slideHeight = 405.5f;
    deck->nextSlideId = 300;
    deck->slides[2]->slideId = 290;  // out of order

    DeckContents c = Contents(deck);
    c.kind = HostKind::Wps;
    c.appName = u"WPS \u6f14\u793a (test)";
    c.appVersion = u"11.1";
    c.uiLanguageId = 0x0804;
    WindowModel& first = c.windows[0];
    first.currentSlide = 2;
    first.selection.type = SelectionType::Text;
    first.selection.textShape = deck->slides[1]->shapes[2]->table->cells[4];
    first.selection.textStart = 1;
    first.selection.textLength = 1;
    WindowModel second;
    second.presentation = deck;
    second.selection.type = SelectionType::Shapes;
    second.selection.slides = {deck->slides[1]};
    second.selection.shapes = {deck->slides[1]->shapes[1]};
    second.selection.childShapes = {deck->slides[1]->shapes[1]->children[1]->children[0]};
    c.windows.push_back(second);
    WindowModel third;
    third.presentation = deck;
    third.selection.type = SelectionType::Slides;
    third.selection.slides = {deck->slides[0], deck->slides[2]};
    third.selection.shapes = {deck->slides[0]->notesShapes[1]};
    c.windows.push_back(third);
    c.activeWindow = 2;
    return c;
}

TEST(DeckFile, EveryKindOfObjectRoundTrips) {
    const DeckContents original = EveryKind();
    const std::string written = WriteDeck(original);
    const DeckLoadResult read = Parse(written);
    ASSERT_TRUE(read.deck);
    EXPECT_EQ(Describe(read), Describe(original));
    // The canonical text is a fixed point.
    EXPECT_EQ(WriteDeck(read), written);
    const DeckLoadResult again = Parse(WriteDeck(read));
    ASSERT_TRUE(again.deck);
    EXPECT_EQ(Describe(again), Describe(original));
}

TEST(DeckFile, BuiltDecksRoundTripWithEveryHostKind) {
    for (const HostKind kind : {HostKind::PowerPoint, HostKind::Wps}) {
        DeckBuilder b;
        b.Slide().Text(u"Title", u"Hello").Notes(u"notes");
        b.Slide().Table(u"T", 2, 2, {u"1", u"2", u"3", u"4"}).Merge(1, 1, 2, 2);
        const auto deck = b.Build();
        const std::string written = WriteDeck(*deck, kind);
        const DeckLoadResult read = Parse(written);
        ASSERT_TRUE(read.deck);
        EXPECT_EQ(read.kind, kind);
        DeckContents expected = Contents(deck);
        expected.kind = kind;
        EXPECT_EQ(Describe(read), Describe(expected));
        EXPECT_EQ(WriteDeck(read), written);
    }
}

TEST(DeckFile, AnEmptyDocumentIsAnEmptyDeck) {
    const DeckLoadResult read = Parse("{}");
    ASSERT_TRUE(read.deck);
    EXPECT_EQ(Describe(read), Describe(Contents(std::make_shared<PresentationModel>())));
    EXPECT_EQ(WriteDeck(read), "{\"formatVersion\": 1}\n");
}

// --- Hand-written files ------------------------------------------------------

TEST(DeckFile, HandWrittenShorthandsMeanWhatTheFormatSays) {
    const DeckLoadResult r = Parse(R"({
      "application": {"kind": "wps", "activeWindow": 1},
      "fullName": "C:\\Decks\\Hand.pptx",
      "slides": [
        {
          "tags": {"Lang": "en"},
          "shapes": [
            "Just text",
            {"type": "placeholder", "name": "Title 1", "text": "Hello\rWorld"},
            {
              "defaultFormat": {"name": "Arial", "size": 12},
              "paragraphs": [
                {"runs": ["Hello ", {"text": "world", "bold": true},
                          {"text": "!", "font": {"color": "#ff8000", "size": 20}}]},
                "line one\u000bline two",
                {"runs": [], "endFont": {"italic": true}},
                ""
              ]
            },
            {"type": "picture", "left": 10, "top": 20, "width": 30, "height": 40},
            {"children": ["a", {"id": 40, "children": ["b"]}]},
            {
              "left": 0, "top": 0, "width": 200, "height": 100,
              "table": {
                "cells": [["a", "b"], ["c", {"text": "d", "defaultFormat": {"italic": true}}]],
                "merges": [{"row": 1, "column": 1, "columns": 2}]
              }
            }
          ],
          "notes": "Speaker notes"
        },
        {"slideId": 300, "name": "Closing"},
        {}
      ]
    })");
    ASSERT_TRUE(r.deck);
    const PresentationModel& d = *r.deck;
    EXPECT_EQ(r.kind, HostKind::Wps);
    EXPECT_EQ(d.fullName, u"C:\\Decks\\Hand.pptx");
    ASSERT_EQ(d.slides.size(), 3u);
    // Slide ids and names in order; an explicit id moves the count on.
    EXPECT_EQ(d.slides[0]->slideId, 256);
    EXPECT_EQ(d.slides[1]->slideId, 300);
    EXPECT_EQ(d.slides[2]->slideId, 301);
    EXPECT_EQ(d.slides[0]->name, u"Slide1");
    EXPECT_EQ(d.slides[1]->name, u"Closing");
    EXPECT_EQ(d.slides[2]->name, u"Slide3");
    EXPECT_EQ(d.nextSlideId, 302);
    // Tag names are kept upper-cased, as the host shows them.
    EXPECT_EQ(d.slides[0]->tags, (std::map<std::u16string, std::u16string>{{u"LANG", u"en"}}));

    const auto& shapes = d.slides[0]->shapes;
    ASSERT_EQ(shapes.size(), 6u);
    struct Expected {
        const ShapeModel* shape;
        std::int32_t id;
        ShapeType type;
        std::u16string name;
        bool hasTextFrame;
    };
    const ShapeModel& group = *shapes[4];
    ASSERT_EQ(group.children.size(), 2u);
    ASSERT_EQ(group.children[1]->children.size(), 1u);
    const Expected expected[] = {
        {shapes[0].get(), 2, ShapeType::TextBox, u"TextBox 1", true},
        {shapes[1].get(), 3, ShapeType::Placeholder, u"Title 1", true},
        {shapes[2].get(), 4, ShapeType::TextBox, u"TextBox 3", true},
        {shapes[3].get(), 5, ShapeType::Picture, u"Picture 4", false},
        {&group, 6, ShapeType::Group, u"Group 5", false},
        {group.children[0].get(), 7, ShapeType::TextBox, u"TextBox 6", true},
        {group.children[1].get(), 40, ShapeType::Group, u"Group 39", false},
        {group.children[1]->children[0].get(), 41, ShapeType::TextBox, u"TextBox 40", true},
        {shapes[5].get(), 42, ShapeType::Table, u"Table 41", false},
        {d.slides[0]->notesShapes.at(0).get(), 43, ShapeType::Placeholder, u"Notes Placeholder 42",
         true},
    };
    for (const Expected& e : expected) {
        SCOPED_TRACE(Utf16ToUtf8(e.name));
        EXPECT_EQ(e.shape->id, e.id);
        EXPECT_EQ(e.shape->type, e.type);
        EXPECT_EQ(e.shape->name, e.name);
        EXPECT_EQ(e.shape->hasTextFrame, e.hasTextFrame);
    }
    EXPECT_EQ(d.nextShapeId, 44);
    // Boxes default to the deck builder's, on slides and on notes pages.
    EXPECT_EQ(shapes[0]->left, 50);
    EXPECT_EQ(shapes[0]->width, 400);
    EXPECT_EQ(shapes[3]->top, 20);
    EXPECT_EQ(shapes[3]->height, 40);
    EXPECT_EQ(d.slides[0]->notesShapes[0]->top, 400);
    EXPECT_EQ(d.slides[0]->notesShapes[0]->frame.text, u"Speaker notes");

    // Runs: each character carries its run's format over the frame's default.
    const TextFrameModel& f = shapes[2]->frame;
    EXPECT_EQ(f.text, u"Hello world!\rline one\vline two\r\r");
    ASSERT_EQ(f.formats.size(), f.text.size());
    CharFormat base;
    base.name = base.nameAscii = u"Arial";
    base.size = 12;
    EXPECT_EQ(f.defaultFormat, base);
    CharFormat bold = base;
    bold.bold = -1;
    CharFormat orange = base;
    orange.size = 20;
    orange.rgb = 0x0080ff;  // red in the low byte
    CharFormat italic = base;
    italic.italic = -1;
    for (std::size_t i = 0; i < f.text.size(); ++i) {
        const CharFormat& want = i >= 6 && i < 11     ? bold
                                 : i == 11 || i == 12 ? orange  // the end takes the last run's
                                 : i == 31            ? italic
                                                      : base;
        EXPECT_EQ(f.formats[i], want) << "at " << i;
    }
    EXPECT_EQ(shapes[1]->frame.formats, std::vector<CharFormat>(11, CharFormat()));

    // Tables: cells share the table's box; merges map onto their first cell.
    const TableModel& t = *shapes[5]->table;
    EXPECT_EQ(t.rows, 2);
    EXPECT_EQ(t.columns, 2);
    EXPECT_EQ(t.mergedInto, (std::vector<std::int32_t>{-1, 0, -1, -1}));
    EXPECT_EQ(t.CellAt(1, 2), t.cells[0]);
    const ShapeModel& cell = *t.cells[3];
    EXPECT_EQ(cell.id, 0);
    EXPECT_EQ(cell.name, u"");
    EXPECT_EQ(cell.type, ShapeType::AutoShape);
    EXPECT_TRUE(cell.hasTextFrame);
    EXPECT_EQ(cell.left, 100);
    EXPECT_EQ(cell.top, 50);
    EXPECT_EQ(cell.width, 100);
    EXPECT_EQ(cell.height, 50);
    EXPECT_EQ(cell.frame.text, u"d");
    EXPECT_EQ(cell.frame.formats.at(0).italic, -1);

    // One window on the first slide, nothing selected.
    ASSERT_EQ(r.windows.size(), 1u);
    EXPECT_EQ(r.windows[0].currentSlide, 1);
    EXPECT_EQ(r.windows[0].selection.type, SelectionType::None);
    EXPECT_EQ(r.activeWindow, 1);

    // The canonical text uses the shorthands and reads back the same.
    const std::string written = WriteDeck(r);
    EXPECT_NE(written.find("\"notes\": \"Speaker notes\""), std::string::npos) << written;
    EXPECT_NE(written.find("\"Just text\""), std::string::npos) << written;
    EXPECT_EQ(written.find("\"id\": 7"), std::string::npos) << written;
    const DeckLoadResult back = Parse(written);
    EXPECT_EQ(Describe(back), Describe(r));
    EXPECT_EQ(WriteDeck(back), written);
}

TEST(DeckFile, ColoursTakeHexOrSchemeForms) {
    struct Case {
        std::string_view color;
        std::int32_t type, rgb, scheme;
        float tint;
    };
    const Case cases[] = {
        {R"("#000000")", 1, 0, 0, 0},
        {R"("#FF0000")", 1, 0x0000ff, 0, 0},
        {R"("#00ff00")", 1, 0x00ff00, 0, 0},
        {R"("#0000Ff")", 1, 0xff0000, 0, 0},
        {R"({"scheme": 5})", 2, 0, 5, 0},
        {R"({"scheme": 4, "tintAndShade": -0.5})", 2, 0, 4, -0.5f},
        {R"({"rgb": "#102030", "tintAndShade": 0.25})", 1, 0x302010, 0, 0.25f},
        {R"({"rgb": "#102030", "scheme": 3})", 2, 0x302010, 3, 0},
        {R"({"rgb": "#102030", "scheme": 3, "type": "rgb"})", 1, 0x302010, 3, 0},
        {R"({"type": 7})", 7, 0, 0, 0},
    };
    for (const Case& c : cases) {
        const std::string text = R"({"slides": [{"shapes": [{"defaultFormat": {"color": )" +
                                 std::string(c.color) + "}}]}]}";
        const DeckLoadResult r = Parse(text);
        ASSERT_TRUE(r.deck) << c.color;
        const CharFormat& f = r.deck->slides[0]->shapes[0]->frame.defaultFormat;
        EXPECT_EQ(f.colorType, c.type) << c.color;
        EXPECT_EQ(f.rgb, c.rgb) << c.color;
        EXPECT_EQ(f.schemeColor, c.scheme) << c.color;
        EXPECT_EQ(f.tintAndShade, c.tint) << c.color;
        // And the colour comes back from its canonical text.
        const DeckLoadResult back = Parse(WriteDeck(r));
        ASSERT_TRUE(back.deck);
        EXPECT_EQ(back.deck->slides[0]->shapes[0]->frame.defaultFormat, f) << c.color;
    }
}

TEST(DeckFile, GroupsNestFortyLevelsDeep) {
    std::string text = R"({"slides": [{"shapes": [)";
    for (int i = 0; i < 40; ++i)
        text += R"({"name": "Level )" + std::to_string(i) + R"(", "children": [)";
    text += R"("innermost")";
    for (int i = 0; i < 40; ++i)
        text += "]}";
    text += "]}]}";
    const DeckLoadResult r = Parse(text);
    ASSERT_TRUE(r.deck);
    const ShapeModel* shape = r.deck->slides[0]->shapes[0].get();
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(shape->type, ShapeType::Group);
        EXPECT_EQ(shape->name, u"Level " + AsciiToUtf16(std::to_string(i)));
        EXPECT_EQ(shape->id, i + 2);
        ASSERT_EQ(shape->children.size(), 1u);
        shape = shape->children[0].get();
    }
    EXPECT_EQ(shape->frame.text, u"innermost");

    // The simulated host reaches the innermost text through GroupItems.
    SimHost host;
    OpenDeck(host, r);
    host::HostRef item = test::ShapeAt(host, 1, 1);
    for (int i = 0; i < 40; ++i)
        item = test::Object(test::Object(item, u"GroupItems"), u"Item", {test::I4(1)});
    EXPECT_EQ(test::Text(test::FrameRange(item)), u"innermost");

    const std::string written = WriteDeck(r);
    const DeckLoadResult back = Parse(written);
    EXPECT_EQ(Describe(back), Describe(r));
    EXPECT_EQ(WriteDeck(back), written);
}

// --- Malformed input ---------------------------------------------------------

TEST(DeckFile, MalformedInputGivesOneErrorNamingThePlaceAndNoDeck) {
    const std::string deep = R"({"slides": )" + std::string(200, '[') + std::string(200, ']') + "}";
    struct Case {
        std::string_view what;
        std::string input;
        std::string error;
    };
    const Case cases[] = {
        {"not JSON", "slides: []", "deck.json:1:1: unexpected 's', expected a value"},
        {"truncated", R"({"slides": [{"shapes": [)",
         "deck.json:1:25: unexpected end of input, expected a value"},
        {"truncated string", R"({"slides": [{"name": "Sli)",
         "deck.json:1:26: unexpected end of input in a string"},
        {"not an object", "[]", "deck.json:1:1: expected an object, found an array"},
        {"slides not an array", R"({"slides": {}})",
         "deck.json:1:12: slides: expected an array, found an object"},
        {"name not a string", R"({"slides": [{"name": 5}]})",
         "deck.json:1:22: slides[0].name: expected a string, found a number"},
        {"bool as string", R"({"slides": [{"shapes": [{"wordWrap": "yes"}]}]})",
         "deck.json:1:38: slides[0].shapes[0].wordWrap: expected a boolean, found a string"},
        {"id not whole", R"({"slides": [{"slideId": 256.5}]})",
         "deck.json:1:25: slides[0].slideId: expected a whole number of 1 or more"},
        {"unknown key", R"({"slides": [{"shapes": [{"colour": "#ff0000"}]}]})",
         "deck.json:1:26: slides[0].shapes[0].colour: unknown key; expected one of: type, id, "
         "name, left, top, width, height, hasTextFrame, text, paragraphs, autoSize, wordWrap, "
         "margins, defaultFormat, children, table, chart, smartArt, deleted"},
        {"unknown top-level key", R"({"slide": []})",
         "deck.json:1:2: slide: unknown key; expected one of: formatVersion, application, "
         "fullName, slideWidth, slideHeight, nextSlideId, nextShapeId, slides, windows"},
        {"negative width", R"({"slides": [{"shapes": [{"width": -1}]}]})",
         "deck.json:1:35: slides[0].shapes[0].width: expected a number of 0 or more"},
        {"zero slide height", R"({"slideHeight": 0})",
         "deck.json:1:17: slideHeight: expected a number above 0"},
        {"zero font size",
         R"({"slides": [{"shapes": [{"paragraphs": [{"runs": [{"text": "x", "font": {"size": 0}}]}]}]}]})",
         "deck.json:1:82: slides[0].shapes[0].paragraphs[0].runs[0].font.size: expected a "
         "number above 0"},
        {"huge size", R"({"slides": [{"shapes": [{"defaultFormat": {"size": 1e39}}]}]})",
         "deck.json:1:52: slides[0].shapes[0].defaultFormat.size: number too large for a float"},
        {"tint out of range",
         R"({"slides": [{"shapes": [{"defaultFormat": {"color": {"tintAndShade": 2}}}]}]})",
         "deck.json:1:70: slides[0].shapes[0].defaultFormat.color.tintAndShade: expected a "
         "number from -1 to 1"},
        {"bad colour", R"({"slides": [{"shapes": [{"defaultFormat": {"color": "#12345"}}]}]})",
         "deck.json:1:53: slides[0].shapes[0].defaultFormat.color: expected a colour as "
         "\"#rrggbb\""},
        {"font key twice",
         R"({"slides": [{"shapes": [{"paragraphs": [{"runs": [{"text": "x", "bold": true, "font": {"bold": false}}]}]}]}]})",
         "deck.json:1:73: slides[0].shapes[0].paragraphs[0].runs[0].bold: given both here and "
         "in font"},
        {"text and paragraphs", R"({"slides": [{"shapes": [{"text": "a", "paragraphs": []}]}]})",
         "deck.json:1:53: slides[0].shapes[0].paragraphs: give either text or paragraphs, not "
         "both"},
        {"paragraph break in a run", R"({"slides": [{"shapes": [{"paragraphs": ["a\rb"]}]}]})",
         "deck.json:1:41: slides[0].shapes[0].paragraphs[0]: a paragraph break (\\r) inside a "
         "paragraph; start a new paragraph"},
        {"end font on the last paragraph",
         R"({"slides": [{"shapes": [{"paragraphs": [{"endFont": {}}]}]}]})",
         "deck.json:1:53: slides[0].shapes[0].paragraphs[0].endFont: the last paragraph has no "
         "end to format"},
        {"unknown shape type", R"({"slides": [{"shapes": [{"type": "circle"}]}]})",
         "deck.json:1:34: slides[0].shapes[0].type: expected \"autoShape\", \"textBox\", "
         "\"placeholder\", \"picture\", \"group\", \"table\", \"chart\", \"smartArt\" or the "
         "host's number"},
        {"unknown host kind", R"({"application": {"kind": "keynote"}})",
         "deck.json:1:26: application.kind: expected \"powerPoint\" or \"wps\""},
        {"merge outside the table",
         R"({"slides": [{"shapes": [{"table": {"rows": 2, "columns": 2, "merges": [{"row": 3, "column": 1, "columns": 2}]}}]}]})",
         "deck.json:1:80: slides[0].shapes[0].table.merges[0].row: expected a whole number from "
         "1 to 2"},
        {"merge past the table's edge",
         R"({"slides": [{"shapes": [{"table": {"rows": 2, "columns": 2, "merges": [{"row": 1, "column": 2, "columns": 2}]}}]}]})",
         "deck.json:1:107: slides[0].shapes[0].table.merges[0].columns: expected a whole number "
         "from 1 to 1"},
        {"overlapping merges",
         R"({"slides": [{"shapes": [{"table": {"rows": 2, "columns": 2, "merges": [{"row": 1, "column": 1, "rows": 2}, {"row": 2, "column": 1, "columns": 2}]}}]}]})",
         "deck.json:1:108: slides[0].shapes[0].table.merges[1]: overlaps another merge"},
        {"merge of one cell",
         R"({"slides": [{"shapes": [{"table": {"rows": 2, "columns": 2, "merges": [{"row": 1, "column": 1}]}}]}]})",
         "deck.json:1:72: slides[0].shapes[0].table.merges[0]: a merge spans two cells or more"},
        {"ragged table", R"({"slides": [{"shapes": [{"table": {"cells": [["a", "b"], ["c"]]}}]}]})",
         "deck.json:1:58: slides[0].shapes[0].table.cells[1]: expected 2 cells, found 1"},
        {"table without size", R"({"slides": [{"shapes": [{"table": {}}]}]})",
         "deck.json:1:35: slides[0].shapes[0].table: a table needs 1 to 1000 rows and columns: "
         "give rows and columns, or cells row by row"},
        {"huge table", R"({"slides": [{"shapes": [{"table": {"rows": 1000, "columns": 1000}}]}]})",
         "deck.json:1:35: slides[0].shapes[0].table: a table holds at most 10000 cells"},
        {"duplicate slide ids", R"({"slides": [{"slideId": 300}, {}, {"slideId": 300}]})",
         "deck.json:1:47: slides[2].slideId: duplicate slide id 300 (also slides[0])"},
        {"duplicate default slide id", R"({"slides": [{}, {"slideId": 256}]})",
         "deck.json:1:29: slides[1].slideId: duplicate slide id 256 (also slides[0])"},
        {"duplicate shape ids on a page",
         R"({"slides": [{"shapes": [{"id": 5}, {"children": [{"id": 5}]}]}]})",
         "deck.json:1:57: slides[0].shapes[1].children[0].id: duplicate shape id 5 on one page "
         "(also slides[0].shapes[0])"},
        {"next slide id in use", R"({"nextSlideId": 256, "slides": [{}]})",
         "deck.json:1:17: nextSlideId: expected a number above the largest slide id, 256"},
        {"tags differing in case", R"({"slides": [{"tags": {"Lang": "en", "LANG": "de"}}]})",
         "deck.json:1:37: slides[0].tags.LANG: the same tag name as another, ignoring case"},
        {"tag value not a string", R"({"slides": [{"tags": {"Lang": 1}}]})",
         "deck.json:1:31: slides[0].tags.Lang: expected a string, found a number"},
        {"bad sheet cell name",
         R"({"slides": [{"shapes": [{"chart": {"workbook": {"sheets": [{"cells": {"b2": 1}}]}}}]}]})",
         "deck.json:1:71: slides[0].shapes[0].chart.workbook.sheets[0].cells.b2: expected a cell "
         "name like \"B2\" (column letters, row number)"},
        {"format version", R"({"formatVersion": 2})",
         "deck.json:1:19: formatVersion: this reader knows version 1 only"},
        {"no windows", R"({"windows": []})",
         "deck.json:1:13: windows: expected at least one window"},
        {"current slide past the end", R"({"slides": [{}], "windows": [{"currentSlide": 2}]})",
         "deck.json:1:47: windows[0].currentSlide: expected a whole number from 1 to 1"},
        {"active window past the end", R"({"application": {"activeWindow": 2}})",
         "deck.json:1:34: application.activeWindow: expected a whole number from 0 to 1"},
        {"selection of a missing shape",
         R"({"slides": [{"shapes": ["a"]}], "windows": [{"selection": {"shapes": [{"shape": 9}]}}]})",
         "deck.json:1:81: windows[0].selection.shapes[0].shape: no shape with id 9 on slide 256"},
        {"selection of a missing slide",
         R"({"slides": [{}], "windows": [{"selection": {"slides": [257]}}]})",
         "deck.json:1:56: windows[0].selection.slides[0]: no slide has id 257"},
        {"cell of a shape without a table",
         R"({"slides": [{"shapes": ["a"]}], "windows": [{"selection": {"textShape": {"shape": 2, "row": 1, "column": 1}}}]})",
         "deck.json:1:73: windows[0].selection.textShape: row and column pick a cell of a table"},
        {"text selection past the end",
         R"({"slides": [{"shapes": ["abc"]}], "windows": [{"selection": {"textShape": {"shape": 2}, "textStart": 3, "textLength": 2}}]})",
         "deck.json:1:61: windows[0].selection: the selected text reaches past the shape's 3 "
         "characters"},
        {"invalid UTF-8", "{\"slides\": [{\"name\": \"Sl\xFF\"}]}",
         "deck.json:1:25: invalid UTF-8"},
        {"lone surrogate", R"({"slides": [{"name": "x\udc00"}]})",
         "deck.json:1:24: lone surrogate \\uDC00 in a string; a surrogate pair needs both "
         "halves"},
        {"duplicate key", R"({"slides": [], "slides": []})",
         "deck.json:1:16: duplicate key \"slides\""},
        {"too deep", deep, "deck.json:1:211: nesting deeper than 200 levels"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const DeckLoadResult r = ParseDeck(c.input, "deck.json");
        EXPECT_EQ(r.error, c.error);
        EXPECT_EQ(r.deck, nullptr);
        EXPECT_TRUE(r.windows.empty());
    }
}

TEST(DeckFile, ErrorsNameLinesOfMultiLineFiles) {
    const DeckLoadResult r = ParseDeck(
        "{\n  \"slides\": [\n    {},\n    {\n      \"shapes\": [\n        {\"height\": -3}\n"
        "      ]\n    }\n  ]\n}\n",
        "decks/two.json");
    EXPECT_EQ(r.error,
              "decks/two.json:6:20: slides[1].shapes[0].height: expected a number of 0 "
              "or more");
    EXPECT_EQ(r.deck, nullptr);
}

// --- Files and hosts ---------------------------------------------------------

TEST(DeckFile, SavesBesideAndReplacesThenLoadsTheSameDeck) {
    qb::test::TempDir dir;
    const std::u16string path = dir.Join(u"deck.json");
    const DeckContents original = EveryKind();
    // A stale temporary file from an interrupted save is not appended to.
    qb::test::WriteFileBytes(path + u".tmp", "stale");
    qb::test::WriteFileBytes(path, "old contents");
    std::string error;
    ASSERT_TRUE(SaveDeckFile(path, original, &error)) << error;
    EXPECT_FALSE(qb::test::FileExists(path + u".tmp"));
    EXPECT_EQ(qb::test::ReadFileBytes(path), WriteDeck(original));
    const DeckLoadResult loaded = LoadDeckFile(path);
    ASSERT_EQ(loaded.error, "");
    EXPECT_EQ(Describe(loaded), Describe(original));

    const std::u16string missing = dir.Join(u"missing.json");
    const DeckLoadResult none = LoadDeckFile(missing);
    EXPECT_EQ(none.deck, nullptr);
    EXPECT_EQ(none.error, Utf16ToUtf8(missing) + ": no such file");

    const DeckLoadResult folder = LoadDeckFile(dir.Path());
    EXPECT_EQ(folder.deck, nullptr);
    EXPECT_EQ(folder.error, Utf16ToUtf8(dir.Path()) + ": a folder, not a deck file");

    const std::u16string broken = dir.Join(u"broken.json");
    qb::test::WriteFileBytes(broken, "{\n  \"slides\": [\n");
    const DeckLoadResult bad = LoadDeckFile(broken);
    EXPECT_EQ(bad.deck, nullptr);
    EXPECT_EQ(bad.error, Utf16ToUtf8(broken) + ":3:1: unexpected end of input, expected a value");

    EXPECT_FALSE(SaveDeckFile(dir.Join(u"no such folder/deck.json"), original, &error));
    EXPECT_NE(error.find("no such folder"), std::string::npos) << error;
}

TEST(DeckFile, OpensIntoAHostAndCapturesItsChanges) {
    const DeckLoadResult r = Parse(R"({
      "application": {"kind": "wps", "name": "Custom host", "uiLanguageId": 2052,
                      "activeWindow": 2},
      "slides": [
        {"shapes": ["first"]},
        {"shapes": [{"name": "Grid", "table": {"cells": [["a", "bc"]]}}]}
      ],
      "windows": [
        {},
        {"currentSlide": 2,
         "selection": {"textShape": {"shape": 3, "row": 1, "column": 2},
                       "textStart": 2, "textLength": 1}}
      ]
    })");
    ASSERT_TRUE(r.deck);
    SimHost host(r.kind);
    const auto deck = OpenDeck(host, r);
    ASSERT_EQ(deck, r.deck);
    const host::HostRef app = host.Application();
    EXPECT_EQ(test::Text(app, u"Name"), u"Custom host");
    EXPECT_EQ(host.App().uiLanguageId, 2052);
    EXPECT_EQ(test::Int(test::Object(app, u"Windows"), u"Count"), 2);
    const host::HostRef window = test::Object(app, u"ActiveWindow");
    const host::HostRef selection = test::Object(window, u"Selection");
    EXPECT_EQ(test::Int(selection, u"Type"), 3);
    EXPECT_EQ(test::Text(test::Object(selection, u"TextRange")), u"c");

    // Change the deck through the host, then capture and reload it.
    ASSERT_EQ(
        test::Put(test::FrameRange(test::ShapeAt(host, 1, 1)), u"Text", test::Str(u"changed")),
        S_OK);
    const DeckContents captured = CaptureDeck(host, deck);
    EXPECT_EQ(captured.appName, u"Custom host");
    EXPECT_EQ(captured.appVersion, u"");  // the host's own for its kind
    EXPECT_EQ(captured.activeWindow, 2);
    const DeckLoadResult reloaded = Parse(WriteDeck(captured));
    ASSERT_TRUE(reloaded.deck);
    EXPECT_EQ(reloaded.deck->slides[0]->shapes[0]->frame.text, u"changed");
    EXPECT_EQ(Describe(reloaded), Describe(captured));
}

}  // namespace
}  // namespace qb::sim
