// The slide engine as the run controller sees it: collection of the deck or
// the current slide, and the writing of one slide, over the host's object
// model. Chart and SmartArt shapes go to their own collector and writers
// when those are given.
#pragma once

#include "run/run_steps.h"
#include "slides/collect.h"
#include "slides/writeback.h"

namespace qb {

class SlideEngine : public RunSteps {
  public:
    explicit SlideEngine(ShapeOffer offer = {}, ShapeUnitWriters writers = {})
        : offer_(std::move(offer)), writers_(std::move(writers)) {}

    HRESULT Collect(const RunContext& run, RunLists& lists, std::u16string& message) override;
    void ApplySlide(const RunContext& run, const RunLists& lists, std::int32_t slide,
                    std::int32_t& applied, std::u16string& firstApplyError) override;

    // Bilingual copies, selection scope and the pass after the last slide
    // are not part of this engine yet: a bilingual or selection run is
    // refused at its start, and nothing is left behind.
    HRESULT CreateBilingualCopies(const RunContext& run, RunLists& lists,
                                  std::u16string& message) override;
    std::int32_t CleanupBilingualCopies(const RunContext&) override { return 0; }
    std::int32_t BilingualCopiesMade() const override { return 0; }
    std::int32_t SourceSlideIndex(const RunContext&, std::int32_t slide) override { return slide; }
    std::int32_t LocateBilingualCopy(const RunContext&, std::int32_t) override { return 0; }
    void BrokenPhrasePass(const RunContext&, const RunLists&, std::int32_t&) override {}

  private:
    ShapeOffer offer_;
    ShapeUnitWriters writers_;
};

}  // namespace qb
