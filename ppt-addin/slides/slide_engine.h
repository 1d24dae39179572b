// The slide engine as the run controller sees it: collection of the deck,
// the current slide or the selection; the bilingual copies; and the
// writing of one slide, over the host's object model. Chart and SmartArt
// shapes go to their own collector and writers; by default those of charts/.
#pragma once

#include <functional>

#include "charts/bilingual_copy.h"
#include "charts/chart_steps.h"
#include "run/run_steps.h"
#include "slides/collect.h"
#include "slides/writeback.h"

namespace qb {

inline constexpr std::int32_t kCleanupGateTries = 5;
inline constexpr std::uint32_t kCleanupGateRetryMs = 150;
// The broken phrase pass waits out the gate's hold after its previous
// write, up to this long a frame.
inline constexpr std::uint32_t kPhraseGateWaitLimitMs = 2000;

// One phrase through the run's own road to the service; false when the
// exchange failed.
using PhraseTranslator =
    std::function<bool(const std::u16string& text, std::u16string& translation)>;

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
    // Frames of CJK pieces that came back untranslated one by one are sent
    // again whole, and the answer replaces the whole frame.
    void BrokenPhrasePass(const RunContext& run, const RunLists& lists,
                          std::int32_t& applied) override;
    // The pane gives the pass its road (the run's bridge or service).
    void SetPhraseTranslator(PhraseTranslator translator) {
        translatePhrase_ = std::move(translator);
    }

  private:
    ShapeOffer offer_;
    ShapeUnitWriters writers_;
    BilingualCopies copies_;
    PhraseTranslator translatePhrase_;
};

}  // namespace qb
