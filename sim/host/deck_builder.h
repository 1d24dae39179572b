// A small builder of simulated decks for tests: slides, text boxes, notes,
// groups (nested to any depth), tables with merged cells, pictures and tags.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "sim/host/sim_model.h"

namespace qb::sim {

struct Box {
    float left = 50, top = 50, width = 400, height = 60;
};

class DeckBuilder {
  public:
    DeckBuilder();

    // A new slide; the following shapes go onto it.
    DeckBuilder& Slide();
    DeckBuilder& Tag(std::u16string name, std::u16string value);
    // A text box; paragraphs are separated by CR.
    DeckBuilder& Text(std::u16string name, std::u16string text, Box box = Box());
    // A placeholder with text (a title or body).
    DeckBuilder& Placeholder(std::u16string name, std::u16string text, Box box = Box());
    DeckBuilder& Picture(std::u16string name, Box box = Box());
    // A text box on the current slide's notes page.
    DeckBuilder& Notes(std::u16string text);
    // A table whose cells hold the texts row by row.
    DeckBuilder& Table(std::u16string name, std::int32_t rows, std::int32_t columns,
                       std::vector<std::u16string> texts, Box box = Box());
    // Merges an area of the last table: every position shows its first cell.
    DeckBuilder& Merge(std::int32_t row, std::int32_t column, std::int32_t rows,
                       std::int32_t columns);
    // A chart shape with the given chart.
    DeckBuilder& Chart(std::u16string name, ChartModel chart, Box box = Box());
    // A SmartArt shape whose top-level nodes hold the texts; each node gets
    // one child node that Nodes doesn't reach.
    DeckBuilder& SmartArt(std::u16string name, std::vector<std::u16string> nodes, Box box = Box());
    // Shapes between BeginGroup and EndGroup go into a group; groups nest.
    DeckBuilder& BeginGroup(std::u16string name);
    DeckBuilder& EndGroup();

    // The shape added last, and its slide, for tweaks the builder lacks.
    ShapeModel& Last();
    SlideModel& CurrentSlide();
    std::shared_ptr<PresentationModel> Build() { return deck_; }

  private:
    std::vector<std::shared_ptr<ShapeModel>>& Target();
    ShapeModel& Add(std::shared_ptr<ShapeModel> shape);

    std::shared_ptr<PresentationModel> deck_;
    std::vector<ShapeModel*> groups_;
    std::shared_ptr<ShapeModel> last_;
};

// An embedded column chart as hosts make them: a title, a category axis with
// a title, a value axis with a display unit label, two series named from
// the sheet with categories A2:A4, and data labels on the first series
// (one showing only its own text, one showing the value).
ChartModel SampleChart();

// Applies `change` to the formats of [start, start + length) of a frame.
template <typename Change>
void FormatText(ShapeModel& shape, std::size_t start, std::size_t length, Change change) {
    for (std::size_t i = start; i < start + length && i < shape.frame.formats.size(); ++i) {
        change(shape.frame.formats[i]);
    }
}

}  // namespace qb::sim
