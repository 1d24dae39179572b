// Collection: a deck or the current slide becomes the run's units. Shapes
// are walked depth first through groups; tables give a unit per cell
// paragraph; charts and SmartArt are offered to their own collector first;
// every other text frame gives one unit a paragraph, or one for a short
// CJK frame spread over lines. Collection only reads the presentation.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "run/run_records.h"
#include "run/run_steps.h"
#include "slides/host_object.h"
#include "slides/shape_path.h"

namespace qb {

// True when a text has nothing to translate: no letter and no CJK
// character, only digits, punctuation, symbols and white space.
bool ShouldSkip(std::u16string_view text);

// Whether the paragraphs of a frame form one short CJK phrase that may go
// to the service as one unit: CJK, digits and spaces only, none of the
// phrase punctuation, something non-empty, at most 30 units in all.
bool PassesPhraseTest(const std::vector<std::u16string>& paragraphs);

// Offered each leaf shape that is no table, before its text frame is read;
// true when it took the shape (a chart or a SmartArt graphic).
using ShapeOffer =
    std::function<bool(const host::HostRef& shape, std::int32_t slideIndex, const ShapePath& path,
                       const UnitAddress& context, RunLists& lists)>;

class SlideCollector {
  public:
    explicit SlideCollector(RunLists& lists, ShapeOffer offer = {})
        : lists_(lists), offer_(std::move(offer)) {}

    // Every shape of a slide's or notes page's Shapes, or of a group's
    // GroupShapes (one body: each calls the other through the group step).
    void WalkShapes(const host::HostRef& shapes, std::int32_t slideIndex,
                    const ShapePath& parentPath, const UnitAddress& context);
    void WalkGroupItems(const host::HostRef& groupShapes, std::int32_t slideIndex,
                        const ShapePath& parentPath, const UnitAddress& context);
    void CollectTable(const host::HostRef& tableShape, std::int32_t slideIndex,
                      const ShapePath& path, const UnitAddress& context);
    void CollectFrame(const host::HostRef& shape, std::int32_t slideIndex, const ShapePath& path,
                      const UnitAddress& context);
    // One shape reached directly rather than by a walk: a group takes all
    // its items, a table all its cells, any other shape its whole text.
    void CollectShape(const host::HostRef& shape, std::int32_t slideIndex, const ShapePath& path,
                      const UnitAddress& context);

    // Adds one unit with its text and address, the three lists in step.
    void AddUnit(TextUnit unit, UnitAddress address);

  private:
    void CollectLeaf(const host::HostRef& shape, std::int32_t slideIndex, const ShapePath& path,
                     const UnitAddress& context);

    RunLists& lists_;
    ShapeOffer offer_;
};

// The checks every collection starts with: the host's application, the
// run's presentation and its Slides.
[[nodiscard]] HRESULT OpenRunSlides(const RunContext& run, host::HostRef& slides,
                                    std::u16string& outMessage);

// The run's document window's current slide: View, View.Slide, a Slide.
[[nodiscard]] HRESULT CurrentSlide(const host::HostRef& window, host::HostRef& outSlide);

// The whole deck, or the current slide. On failure `outMessage` holds the
// text for the panel.
[[nodiscard]] HRESULT CollectDeck(const RunContext& run, bool fullDeck, RunLists& lists,
                                  std::u16string& outMessage, const ShapeOffer& offer = {});

}  // namespace qb
