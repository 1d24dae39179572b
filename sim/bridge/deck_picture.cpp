// The deck's picture.
#include "sim/bridge/deck_picture.h"

#include <algorithm>
#include <cstdio>

#include "sim/bridge/json_text.h"
#include "sim/host/sim_metrics.h"

namespace qb::sim {
namespace {

std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

std::string PathText(const std::vector<std::int32_t>& path) {
    std::string text = "[";
    for (std::size_t i = 0; i < path.size(); ++i)
        text += (i ? "," : "") + std::to_string(path[i]);
    return text + "]";
}

bool Selected(const WindowModel& window, const ShapeModel& shape) {
    const SelectionModel& s = window.selection;
    const auto holds = [&](const std::vector<std::shared_ptr<ShapeModel>>& list) {
        return std::any_of(list.begin(), list.end(),
                           [&](const auto& p) { return p.get() == &shape; });
    };
    return holds(s.shapes) || holds(s.childShapes) || s.textShape.get() == &shape;
}

void AddShape(const ShapeModel& shape, const WindowModel& window, std::vector<std::int32_t> path,
              std::string& out) {
    if (shape.deleted) return;
    for (std::size_t i = 0; i < shape.children.size(); ++i) {
        std::vector<std::int32_t> child = path;
        child.push_back(static_cast<std::int32_t>(i + 1));
        AddShape(*shape.children[i], window, child, out);
    }
    if (shape.table) {
        // Cells are drawn as boxes of their own, picked through their table.
        for (const auto& cell : shape.table->cells)
            AddShape(*cell, window, path, out);
    }
    if (!shape.children.empty()) return;
    if (out.back() != '[') out += ",";
    out += "{\"x\":" + Number(shape.left) + ",\"y\":" + Number(shape.top) +
           ",\"w\":" + Number(shape.width) + ",\"h\":" + Number(shape.height) +
           ",\"path\":" + PathText(path) + ",\"name\":" + JsonText(shape.name) +
           ",\"selected\":" + (Selected(window, shape) ? "true" : "false");
    if (shape.hasTextFrame && !shape.frame.text.empty()) {
        const auto length = static_cast<std::int32_t>(shape.frame.text.size());
        const TextBounds bounds = MeasureRange(shape, 0, length);
        const bool over = bounds.height > shape.height * 1.02f + 1.0f ||
                          bounds.width > shape.width * 1.02f + 1.0f;
        out += ",\"over\":" + std::string(over ? "true" : "false") +
               ",\"textX\":" + Number(shape.left + shape.frame.marginLeft) + ",\"lines\":[";
        float top = bounds.top;
        bool first = true;
        for (const TextLine& line : LayoutFrame(shape)) {
            std::u16string text =
                shape.frame.text.substr(static_cast<std::size_t>(line.start),
                                        static_cast<std::size_t>(line.end - line.start));
            while (!text.empty() && (text.back() == u'\r' || text.back() == u'\v'))
                text.pop_back();
            out += std::string(first ? "" : ",") + "{\"top\":" + Number(top) +
                   ",\"height\":" + Number(line.height) + ",\"text\":" + JsonText(text) + "}";
            top += line.height;
            first = false;
        }
        out += "]";
    }
    out += "}";
}

}  // namespace

std::string DeckPictureJson(const PresentationModel& deck, const WindowModel& window) {
    std::string out = "{\"width\":" + Number(deck.slideWidth) +
                      ",\"height\":" + Number(deck.slideHeight) +
                      ",\"current\":" + std::to_string(window.currentSlide) + ",\"slides\":[";
    for (std::size_t i = 0; i < deck.slides.size(); ++i) {
        const SlideModel& slide = *deck.slides[i];
        const bool picked =
            std::any_of(window.selection.slides.begin(), window.selection.slides.end(),
                        [&](const auto& s) { return s.get() == &slide; });
        out += std::string(i ? "," : "") + "{\"selected\":" + (picked ? "true" : "false") +
               ",\"shapes\":[";
        for (std::size_t k = 0; k < slide.shapes.size(); ++k)
            AddShape(*slide.shapes[k], window, {static_cast<std::int32_t>(k + 1)}, out);
        out += "]}";
    }
    return out + "]}";
}

std::shared_ptr<ShapeModel> ShapeAtPath(const PresentationModel& deck, std::int32_t slide,
                                        const std::vector<std::int32_t>& path) {
    if (slide < 1 || slide > static_cast<std::int32_t>(deck.slides.size()) || path.empty()) {
        return nullptr;
    }
    const std::vector<std::shared_ptr<ShapeModel>>* list =
        &deck.slides[static_cast<std::size_t>(slide - 1)]->shapes;
    std::shared_ptr<ShapeModel> shape;
    for (std::int32_t index : path) {
        if (index < 1 || index > static_cast<std::int32_t>(list->size())) return nullptr;
        shape = (*list)[static_cast<std::size_t>(index - 1)];
        list = &shape->children;
    }
    return shape;
}

}  // namespace qb::sim
