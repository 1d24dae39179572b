// The slide engine behind the run controller.
#include "slides/slide_engine.h"

#include "foundation/platform.h"
#include "foundation/trace.h"
#include "run/sta_gate.h"
#include "slides/automation.h"
#include "slides/selection.h"

namespace qb {
namespace {

host::HostRef SlidesOf(const RunContext& run) {
    host::HostRef slides;
    (void)host::GetObject(run.presentation, u"Slides", slides);
    return slides;
}

bool Bilingual(const RunContext& run) {
    return run.options && run.options->bilingualSlides;
}

}  // namespace

HRESULT SlideEngine::Collect(const RunContext& run, RunLists& lists, std::u16string& message) {
    const RunOptions* options = run.options;
    if (options && options->scope == RunScope::Selection) {
        return CollectSelection(run, lists, message, offer_);
    }
    const bool fullDeck = !options || options->scope == RunScope::FullDeck;
    return CollectDeck(run, fullDeck, lists, message, offer_);
}

HRESULT SlideEngine::CreateBilingualCopies(const RunContext& run, RunLists& lists,
                                           std::u16string& message) {
    return copies_.Prepare(run.presentation, lists.slideIndexes, message);
}

std::int32_t SlideEngine::CleanupBilingualCopies(const RunContext& run) {
    if (copies_.Made() == 0) return 0;
    // Deleting slides is a mutation like any write: it waits for the gate.
    platform::Clock& clock = platform::CurrentClock();
    bool entered = StaGate::TryEnter(this);
    for (std::int32_t tries = 1; !entered && tries < kCleanupGateTries; ++tries) {
        clock.Sleep(kCleanupGateRetryMs);
        entered = StaGate::TryEnter(this);
    }
    if (!entered) {
        Trace(u"PptCtrl bilingual cleanup skipped: sta gate busy");
        return copies_.Made();
    }
    struct Leave {
        const void* owner;
        ~Leave() { StaGate::Leave(owner); }
    } leave{this};
    return copies_.Cleanup(SlidesOf(run));
}

void SlideEngine::ApplySlide(const RunContext& run, const RunLists& lists, std::int32_t slide,
                             std::int32_t& applied, std::u16string& firstApplyError) {
    static const RunOptions kDefaults;
    const RunOptions& options = run.options ? *run.options : kDefaults;
    ApplySlideArgs args;
    args.presentation = run.presentation;
    args.lists = &lists;
    args.options = &options;
    args.slideIndex = slide;
    // A bilingual run writes onto the slide's copy, never onto the source.
    args.targetSlide = LocateBilingualCopy(run, slide);
    args.writers = &writers_;
    qb::ApplySlide(args, applied, firstApplyError);
}

std::int32_t SlideEngine::SourceSlideIndex(const RunContext& run, std::int32_t slide) {
    return Bilingual(run) ? copies_.SourceIndexNow(SlidesOf(run), slide) : slide;
}

std::int32_t SlideEngine::LocateBilingualCopy(const RunContext& run, std::int32_t slide) {
    return Bilingual(run) ? copies_.Locate(SlidesOf(run), slide) : slide;
}

}  // namespace qb
