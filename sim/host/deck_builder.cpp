// Building simulated decks in code.
#include "sim/host/deck_builder.h"

#include "foundation/text.h"

namespace qb::sim {
namespace {

std::shared_ptr<ShapeModel> TextShape(ShapeType type, std::u16string name, std::u16string text,
                                      Box box) {
    auto shape = std::make_shared<ShapeModel>();
    shape->type = type;
    shape->name = std::move(name);
    shape->left = box.left, shape->top = box.top, shape->width = box.width,
    shape->height = box.height;
    shape->hasTextFrame = true;
    shape->frame.SetText(std::move(text), shape->frame.defaultFormat);
    return shape;
}

}  // namespace

DeckBuilder::DeckBuilder() : deck_(std::make_shared<PresentationModel>()) {
    deck_->fullName = u"C:\\Decks\\Simulated.pptx";
}

DeckBuilder& DeckBuilder::Slide() {
    auto slide = std::make_shared<SlideModel>();
    slide->slideId = deck_->nextSlideId++;
    slide->name = u"Slide" + AsciiToUtf16(std::to_string(deck_->slides.size() + 1));
    deck_->slides.push_back(slide);
    groups_.clear();
    return *this;
}

SlideModel& DeckBuilder::CurrentSlide() {
    if (deck_->slides.empty()) Slide();
    return *deck_->slides.back();
}

DeckBuilder& DeckBuilder::Tag(std::u16string name, std::u16string value) {
    for (char16_t& c : name)
        c = (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 32) : c;
    CurrentSlide().tags[name] = std::move(value);
    return *this;
}

std::vector<std::shared_ptr<ShapeModel>>& DeckBuilder::Target() {
    return groups_.empty() ? CurrentSlide().shapes : groups_.back()->children;
}

ShapeModel& DeckBuilder::Add(std::shared_ptr<ShapeModel> shape) {
    shape->id = deck_->nextShapeId++;
    Target().push_back(shape);
    last_ = shape;
    return *shape;
}

DeckBuilder& DeckBuilder::Text(std::u16string name, std::u16string text, Box box) {
    Add(TextShape(ShapeType::TextBox, std::move(name), std::move(text), box));
    return *this;
}

DeckBuilder& DeckBuilder::Placeholder(std::u16string name, std::u16string text, Box box) {
    Add(TextShape(ShapeType::Placeholder, std::move(name), std::move(text), box));
    return *this;
}

DeckBuilder& DeckBuilder::Picture(std::u16string name, Box box) {
    auto shape = std::make_shared<ShapeModel>();
    shape->type = ShapeType::Picture;
    shape->name = std::move(name);
    shape->left = box.left, shape->top = box.top, shape->width = box.width,
    shape->height = box.height;
    Add(shape);
    return *this;
}

DeckBuilder& DeckBuilder::Notes(std::u16string text) {
    auto shape = TextShape(ShapeType::Placeholder, u"Notes Placeholder 2", std::move(text),
                           Box{48, 400, 600, 300});
    shape->id = deck_->nextShapeId++;
    CurrentSlide().notesShapes.push_back(shape);
    last_ = shape;
    return *this;
}

DeckBuilder& DeckBuilder::Table(std::u16string name, std::int32_t rows, std::int32_t columns,
                                std::vector<std::u16string> texts, Box box) {
    auto shape = std::make_shared<ShapeModel>();
    shape->type = ShapeType::Table;
    shape->name = std::move(name);
    shape->left = box.left, shape->top = box.top, shape->width = box.width,
    shape->height = box.height;
    shape->table = std::make_shared<TableModel>();
    shape->table->rows = rows;
    shape->table->columns = columns;
    for (std::int32_t i = 0; i < rows * columns; ++i) {
        const std::u16string text =
            static_cast<std::size_t>(i) < texts.size() ? texts[static_cast<std::size_t>(i)] : u"";
        Box cellBox{box.left + (i % columns) * box.width / columns, box.top + (i / columns) * 30,
                    box.width / columns, 30};
        auto cell = TextShape(ShapeType::AutoShape, u"", text, cellBox);
        shape->table->cells.push_back(cell);
        shape->table->mergedInto.push_back(-1);
    }
    Add(shape);
    return *this;
}

DeckBuilder& DeckBuilder::Merge(std::int32_t row, std::int32_t column, std::int32_t rows,
                                std::int32_t columns) {
    TableModel& table = *last_->table;
    const std::int32_t first = (row - 1) * table.columns + (column - 1);
    for (std::int32_t r = row; r < row + rows; ++r) {
        for (std::int32_t c = column; c < column + columns; ++c) {
            const std::int32_t position = (r - 1) * table.columns + (c - 1);
            if (position != first) table.mergedInto[static_cast<std::size_t>(position)] = first;
        }
    }
    return *this;
}

DeckBuilder& DeckBuilder::Chart(std::u16string name, ChartModel chart, Box box) {
    auto shape = std::make_shared<ShapeModel>();
    shape->type = ShapeType::Chart;
    shape->name = std::move(name);
    shape->left = box.left, shape->top = box.top, shape->width = box.width,
    shape->height = box.height;
    shape->chart = std::make_shared<ChartModel>(std::move(chart));
    Add(shape);
    return *this;
}

DeckBuilder& DeckBuilder::SmartArt(std::u16string name, std::vector<std::u16string> nodes,
                                   Box box) {
    auto shape = std::make_shared<ShapeModel>();
    shape->type = ShapeType::SmartArt;
    shape->name = std::move(name);
    shape->left = box.left, shape->top = box.top, shape->width = box.width,
    shape->height = box.height;
    shape->smartArt = std::make_shared<SmartArtModel>();
    for (auto& text : nodes) {
        SmartArtNodeModel node;
        node.children.push_back(SmartArtNodeModel{u"Detail of " + text, {}});
        node.text = std::move(text);
        shape->smartArt->nodes.push_back(std::move(node));
    }
    Add(shape);
    return *this;
}

ChartModel SampleChart() {
    ChartModel chart;
    chart.hasTitle = true;
    chart.title.text = u"Revenue by region";
    AxisModel category;
    category.type = 1;
    category.hasTitle = true;
    category.title.text = u"Region";
    AxisModel value;
    value.type = 2;
    value.hasDisplayUnitLabel = true;
    value.displayUnitLabel.text = u"Thousands";
    chart.axes = {category, value};
    SheetModel& sheet = chart.workbook.sheets[0];
    const auto text = [&](std::int32_t r, std::int32_t c, std::u16string t) {
        sheet.cells[{r, c}].text = std::move(t);
    };
    const auto number = [&](std::int32_t r, std::int32_t c, double n) {
        SheetCellModel& cell = sheet.cells[{r, c}];
        cell.number = n;
        cell.isNumber = true;
    };
    text(1, 2, u"Sales");
    text(1, 3, u"Costs");
    text(2, 1, u"North");
    text(3, 1, u"South");
    number(4, 1, 2024);  // a number among the categories stays a number
    for (std::int32_t r = 2; r <= 4; ++r)
        number(r, 2, 100.0 * r), number(r, 3, 60.0 * r);
    SeriesModel sales;
    sales.formula = u"=SERIES(Sheet1!$B$1,Sheet1!$A$2:$A$4,Sheet1!$B$2:$B$4,1)";
    sales.hasDataLabels = true;
    DataLabelModel own;
    own.label.text = u"Best quarter";
    DataLabelModel shown;
    shown.label.text = u"300";
    shown.showValue = true;
    sales.dataLabels = {own, shown};
    SeriesModel costs;
    costs.formula = u"=SERIES(Sheet1!$C$1,Sheet1!$A$2:$A$4,Sheet1!$C$2:$C$4,2)";
    chart.series = {sales, costs};
    // What the chart shows before any refresh: the sheet as it was saved.
    for (SeriesModel* s : {&chart.series[0], &chart.series[1]}) {
        s->name = s == &chart.series[0] ? u"Sales" : u"Costs";
        s->categories = {u"North", u"South", u"2024"};
        s->categoryIsNumber = {false, false, true};
    }
    return chart;
}

DeckBuilder& DeckBuilder::BeginGroup(std::u16string name) {
    auto group = std::make_shared<ShapeModel>();
    group->type = ShapeType::Group;
    group->name = std::move(name);
    group->width = 400, group->height = 200;
    ShapeModel& added = Add(group);
    groups_.push_back(&added);
    return *this;
}

DeckBuilder& DeckBuilder::EndGroup() {
    if (!groups_.empty()) groups_.pop_back();
    return *this;
}

ShapeModel& DeckBuilder::Last() {
    return *last_;
}

}  // namespace qb::sim
