// The slide engine as the run controller sees it: collection of the deck,
// the current slide or the selection; the bilingual copies; and the
// writing of one slide, over the host's object model. Chart and SmartArt
// shapes go to their own collector and writers; by default those of charts/.
#pragma once

#include "charts/bilingual_copy.h"
#include "charts/chart_steps.h"
#include "run/run_steps.h"
#include "slides/collect.h"
#include "slides/writeback.h"

namespace qb {

inline constexpr std::int32_t kCleanupGateTries = 5;
inline constexpr std::uint32_t kCleanupGateRetryMs = 150;

class SlideEngine : public RunSteps {
  public:
    explicit SlideEngine(ShapeOffer offer = MakeChartOffer(),
                         ShapeUnitWriters writers = MakeChartWriters())
        : offer_(std::move(offer)), writers_(std::move(writers)) {}

    HRESULT Collect(const RunContext& run, RunLists& lists, std::u16string& message) override;
    HRESULT CreateBilingualCopies(const RunContext& run, RunLists& lists,
                                  std::u16string& message) override;
    std::int32_t CleanupBilingualCopies(const RunContext& run) override;
    std::int32_t BilingualCopiesMade() const override { return copies_.Made(); }
    void ApplySlide(const RunContext& run, const RunLists& lists, std::int32_t slide,
                    std::int32_t& applied, std::u16string& firstApplyError) override;
    std::int32_t SourceSlideIndex(const RunContext& run, std::int32_t slide) override;
    std::int32_t LocateBilingualCopy(const RunContext& run, std::int32_t slide) override;
    // The pass over broken CJK phrases after the last slide belongs to the
    // pane's bridge and is not part of this engine yet.
    void BrokenPhrasePass(const RunContext&, const RunLists&, std::int32_t&) override {}

  private:
    ShapeOffer offer_;
    ShapeUnitWriters writers_;
    BilingualCopies copies_;
};

}  // namespace qb
