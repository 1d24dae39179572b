// The simulated host's document model: plain data that the simulated host
// objects read and change, that the deck builder and deck files create, and
// that tests inspect after a run.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qb::sim {

// Shape types as the host numbers them.
enum class ShapeType : std::int32_t {
    AutoShape = 1,
    Chart = 3,
    Group = 6,
    Picture = 13,
    Placeholder = 14,
    TextBox = 17,
    Table = 19,
    SmartArt = 24,
};

// The formatting of one character.
struct CharFormat {
    std::u16string name = u"Calibri";  // the host's Name: the ASCII slot as it reads back
    std::u16string nameAscii = u"Calibri";
    std::u16string nameFarEast = u"SimSun";
    float size = 18.0f;
    std::int16_t bold = 0;  // -1 or 0
    std::int16_t italic = 0;
    std::int32_t rgb = 0;        // red in the low byte
    std::int32_t colorType = 1;  // 1 RGB, 2 scheme colour
    std::int32_t schemeColor = 0;
    float tintAndShade = 0.0f;
    // Where a host backed by a file read this character (its run, break or
    // paragraph end), so that a write can go back beside it; 0: not read
    // from a file. Part of the format, as properties the model doesn't hold
    // tell runs apart in the file.
    std::int32_t source = 0;

    bool operator==(const CharFormat& o) const {
        return name == o.name && nameAscii == o.nameAscii && nameFarEast == o.nameFarEast &&
               size == o.size && bold == o.bold && italic == o.italic && rgb == o.rgb &&
               colorType == o.colorType && schemeColor == o.schemeColor &&
               tintAndShade == o.tintAndShade && source == o.source;
    }
    bool operator!=(const CharFormat& o) const { return !(*this == o); }
};

// A text frame: the text with CR between paragraphs and VT for soft breaks,
// and one format per UTF-16 unit.
struct TextFrameModel {
    std::u16string text;
    std::vector<CharFormat> formats;  // always text.size() long
    CharFormat defaultFormat;         // for text put into an empty frame
    std::int32_t autoSize = 0;        // 0 none, 1 shape to fit text, 2 text to fit shape
    bool wordWrap = true;
    float marginLeft = 7.2f;
    float marginRight = 7.2f;
    float marginTop = 3.6f;
    float marginBottom = 3.6f;

    void SetText(std::u16string value, const CharFormat& format) {
        text = std::move(value);
        formats.assign(text.size(), format);
    }
};

struct ShapeModel;

// --- Charts -----------------------------------------------------------------

// A chart text object (title, axis title, display unit label, data label).
// Hosts differ in which of its three text roads they offer.
struct ChartLabelModel {
    std::u16string text;
    bool hasText = true;        // Text
    bool hasCaption = true;     // Caption
    bool hasTextFrame2 = true;  // TextFrame2.TextRange.Text
};

struct AxisModel {
    std::int32_t type = 1;   // 1 category, 2 value
    std::int32_t group = 1;  // 1 primary, 2 secondary
    bool hasTitle = false;
    ChartLabelModel title;
    bool hasDisplayUnitLabel = false;
    ChartLabelModel displayUnitLabel;
};

// One cell of a chart's data sheet: its value (text or number), and the text
// the sheet shows for it when that differs (a number format, "#####").
struct SheetCellModel {
    std::u16string text;  // a text value
    double number = 0;    // a numeric value, when isNumber
    bool isNumber = false;
    std::u16string shownText;  // empty: the value as text
    bool hasFormula = false;
    // A format that shows a literal after the value (as @" kg" does); it
    // stays with the cell when a new value is put.
    std::u16string formatSuffix;
};

struct SheetModel {
    std::u16string name = u"Sheet1";
    std::map<std::pair<std::int32_t, std::int32_t>, SheetCellModel> cells;  // (row, column)

    const SheetCellModel* Cell(std::int32_t row, std::int32_t column) const {
        const auto it = cells.find({row, column});
        return it == cells.end() ? nullptr : &it->second;
    }
};

struct DataLabelModel {
    ChartLabelModel label;
    bool showValue = false;
    bool showPercentage = false;
    bool showCategoryName = false;
    bool showSeriesName = false;
    bool hasShowBubbleSize = true;
    bool showBubbleSize = false;
};

struct SeriesModel {
    std::u16string name;
    // =SERIES(name reference, categories, values, order); empty for series
    // without a sheet behind them.
    std::u16string formula;
    std::vector<std::u16string> categories;  // what XValues gives (numbers as text)
    std::vector<bool> categoryIsNumber;
    bool hasDataLabels = false;
    std::vector<DataLabelModel> dataLabels;
};

struct WorkbookModel {
    std::u16string name = u"Chart in Microsoft PowerPoint";
    std::vector<SheetModel> sheets{SheetModel()};
    std::int32_t windowCount = 1;
    bool windowVisible = false;
    std::u16string windowCaption;     // empty: the workbook's name
    std::int32_t otherWorkbooks = 0;  // workbooks of the spreadsheet application besides this one
    bool screenUpdating = true;
    bool appVisible = false;
    bool open = false;
    std::int32_t saves = 0;
    std::int32_t closes = 0;
    std::int32_t editorHwnd = 0x30030;  // Application.Hwnd: the editor's main window
    std::int32_t commits = 0;           // closes of the editor that redrew the chart
};

struct ChartModel {
    bool hasTitle = false;
    ChartLabelModel title;
    bool hasHasAxis = true;  // some hosts lack HasAxis
    std::vector<AxisModel> axes;
    std::vector<std::u16string> axisCategoryNames;  // CategoryNames of axis (1, 1)
    bool seriesCollectionAsProperty = true;         // else only SeriesCollection(index)
    bool xValuesTwoDimensional = false;             // XValues as an n x 1 array
    std::vector<SeriesModel> series;
    bool hasChartData = true;
    bool hasIsLinked = true;
    bool isLinked = false;
    WorkbookModel workbook;
    bool activated = false;
    std::int32_t refreshes = 0;
};

struct SmartArtNodeModel {
    std::u16string text;
    std::vector<SmartArtNodeModel> children;  // not reached through Nodes
};

struct SmartArtModel {
    bool usable = true;  // WPS may offer HasSmartArt without usable nodes
    std::vector<SmartArtNodeModel> nodes;
};

struct TableModel {
    std::int32_t rows = 0;
    std::int32_t columns = 0;
    // One shape per cell, row by row. A merged area keeps its text in its
    // first cell and maps every position in it to that cell.
    std::vector<std::shared_ptr<ShapeModel>> cells;
    std::vector<std::int32_t> mergedInto;  // per position: the index of the cell it shows

    std::shared_ptr<ShapeModel> CellAt(std::int32_t row, std::int32_t column) const;
};

struct ShapeModel {
    std::int32_t id = 0;
    std::u16string name;
    ShapeType type = ShapeType::AutoShape;
    float left = 0, top = 0, width = 0, height = 0;
    bool hasTextFrame = false;
    TextFrameModel frame;
    std::vector<std::shared_ptr<ShapeModel>> children;  // a group's items
    std::shared_ptr<TableModel> table;
    std::shared_ptr<ChartModel> chart;
    std::shared_ptr<SmartArtModel> smartArt;
    bool deleted = false;
};

struct SlideModel {
    std::int32_t slideId = 0;
    std::u16string name;
    std::vector<std::shared_ptr<ShapeModel>> shapes;
    std::vector<std::shared_ptr<ShapeModel>> notesShapes;
    // Tag names ignore case: kept upper-cased, as the host shows them.
    std::map<std::u16string, std::u16string> tags;
    // The id of the slide this one was copied from (by Duplicate or by Copy
    // and Paste), so that a host backed by a file can copy its parts; 0 for
    // a slide that was no copy.
    std::int32_t copiedFrom = 0;
    bool deleted = false;
};

struct PresentationModel {
    std::u16string fullName;
    float slideWidth = 960.0f;
    float slideHeight = 540.0f;
    std::vector<std::shared_ptr<SlideModel>> slides;
    std::int32_t nextSlideId = 256;
    std::int32_t nextShapeId = 2;

    std::int32_t IndexOf(const SlideModel* slide) const;  // one-based; 0 when absent
};

enum class SelectionType : std::int32_t { None = 0, Slides = 1, Shapes = 2, Text = 3 };

struct SelectionModel {
    SelectionType type = SelectionType::None;
    std::vector<std::shared_ptr<SlideModel>> slides;
    std::vector<std::shared_ptr<ShapeModel>> shapes;       // top-level or table shapes
    std::vector<std::shared_ptr<ShapeModel>> childShapes;  // shapes picked inside a group
    std::shared_ptr<ShapeModel> textShape;                 // the shape of a text selection
    std::int32_t textStart = 1;                            // one-based, over the whole frame
    std::int32_t textLength = 0;
};

struct WindowModel {
    std::shared_ptr<PresentationModel> presentation;
    std::intptr_t hwnd = 0;
    std::int32_t currentSlide = 1;  // one-based index of View.Slide
    SelectionModel selection;
};

struct ApplicationModel {
    std::u16string name;
    std::u16string version = u"16.0";
    std::intptr_t hwnd = 0x10010;
    std::int32_t uiLanguageId = 0x0409;
    std::vector<std::shared_ptr<PresentationModel>> presentations;
    std::vector<std::shared_ptr<WindowModel>> windows;
    std::int32_t activeWindow = 1;  // one-based; 0 for none
};

}  // namespace qb::sim
