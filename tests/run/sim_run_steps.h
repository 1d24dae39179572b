// A small collector and writer that work on the simulated host through the
// host-object seam, for driving the run controller end to end in tests:
// every top-level text frame of a slide is one unit, written back whole.
// The real collection and writeback, paragraph by paragraph with groups,
// tables, notes and charts, belong to the slide engine.
#pragma once

#include "foundation/char_class.h"
#include "run/run_steps.h"
#include "slides/automation.h"

namespace qb::test {

class SimRunSteps final : public RunSteps {
  public:
    HRESULT Collect(const RunContext& run, RunLists& lists, std::u16string& message) override {
        host::HostRef slides;
        std::int32_t count = 0;
        if (FAILED(host::GetObject(run.presentation, u"Slides", slides)) ||
            FAILED(host::GetInt32(slides, u"Count", count))) {
            message = u"\u65e0\u6cd5\u8bbf\u95ee Slides";
            return E_FAIL;
        }
        for (std::int32_t s = 1; s <= count; ++s) {
            host::HostRef slide, shapes;
            std::int32_t shapeCount = 0;
            if (FAILED(host::GetItemDirect(slides, s, slide)) ||
                FAILED(host::GetObject(slide, u"Shapes", shapes)) ||
                FAILED(host::GetInt32(shapes, u"Count", shapeCount))) {
                continue;
            }
            const auto first = static_cast<std::int32_t>(lists.texts.size());
            for (std::int32_t i = 1; i <= shapeCount; ++i) {
                std::u16string text;
                if (!ReadFrameText(shapes, i, text)) continue;
                bool hasLetter = false;
                for (char16_t c : text)
                    hasLetter = hasLetter || IsLetter(c);
                if (!hasLetter) continue;
                TextUnit unit;
                unit.slideIndex = s;
                unit.hostText = text;
                UnitAddress address;
                address.slideIndex = s;
                address.shapePath = {i};
                address.wholeFrame = 1;
                lists.units.push_back(unit);
                lists.texts.push_back(text);
                lists.addresses.push_back(address);
            }
            lists.spans.push_back({first, static_cast<std::int32_t>(lists.texts.size())});
            lists.slideIndexes.push_back(s);
        }
        return S_OK;
    }

    void ApplySlide(const RunContext& run, const RunLists& lists, std::int32_t slide,
                    std::int32_t& applied, std::u16string& firstApplyError) override {
        for (std::size_t i = 0; i < lists.addresses.size(); ++i) {
            const UnitAddress& address = lists.addresses[i];
            if (address.slideIndex != slide) continue;
            host::HostRef slides, page, shapes, shape, frame, range;
            const bool found =
                SUCCEEDED(host::GetObject(run.presentation, u"Slides", slides)) &&
                SUCCEEDED(host::GetItemDirect(slides, slide, page)) &&
                SUCCEEDED(host::GetObject(page, u"Shapes", shapes)) &&
                SUCCEEDED(host::GetItemDirect(shapes, address.shapePath[0], shape)) &&
                SUCCEEDED(host::GetObject(shape, u"TextFrame", frame)) &&
                SUCCEEDED(host::GetObject(frame, u"TextRange", range));
            if (found && SUCCEEDED(host::DispPut(range, u"Text",
                                                 host::Variant::String(lists.translations[i])))) {
                ++applied;
            } else if (firstApplyError.empty()) {
                firstApplyError =
                    u"shapes[" + AsciiToUtf16(std::to_string(address.shapePath[0])) + u"].frame";
            }
        }
    }

    HRESULT CreateBilingualCopies(const RunContext&, RunLists&, std::u16string&) override {
        return S_OK;
    }
    std::int32_t CleanupBilingualCopies(const RunContext&) override { return 0; }
    std::int32_t BilingualCopiesMade() const override { return 0; }
    std::int32_t SourceSlideIndex(const RunContext&, std::int32_t slide) override { return slide; }
    std::int32_t LocateBilingualCopy(const RunContext&, std::int32_t) override { return 0; }
    void BrokenPhrasePass(const RunContext&, const RunLists&, std::int32_t&) override {}

  private:
    static bool ReadFrameText(const host::HostRef& shapes, std::int32_t index,
                              std::u16string& text) {
        host::HostRef shape, frame, range;
        bool hasFrame = false;
        return SUCCEEDED(host::GetItem(shapes, index, shape)) &&
               SUCCEEDED(host::GetTruth(shape, u"HasTextFrame", hasFrame)) && hasFrame &&
               SUCCEEDED(host::GetObject(shape, u"TextFrame", frame)) &&
               SUCCEEDED(host::GetObject(frame, u"TextRange", range)) &&
               SUCCEEDED(host::GetString(range, u"Text", text));
    }
};

}  // namespace qb::test
