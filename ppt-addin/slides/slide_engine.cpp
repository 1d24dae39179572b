// The slide engine behind the run controller.
#include "slides/slide_engine.h"

#include "foundation/trace.h"

namespace qb {

HRESULT SlideEngine::Collect(const RunContext& run, RunLists& lists, std::u16string& message) {
    const RunOptions* options = run.options;
    if (options && options->scope == RunScope::Selection) {
        Trace(u"PptCtrl selection scope not available in this build\r\n");
        message = u"selection scope not available";
        return E_NOTIMPL;
    }
    const bool fullDeck = !options || options->scope == RunScope::FullDeck;
    return CollectDeck(run, fullDeck, lists, message, offer_);
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
    args.targetSlide = options.bilingualSlides ? LocateBilingualCopy(run, slide) : slide;
    args.writers = &writers_;
    qb::ApplySlide(args, applied, firstApplyError);
}

HRESULT SlideEngine::CreateBilingualCopies(const RunContext&, RunLists&, std::u16string& message) {
    Trace(u"PptCtrl bilingual copies not available in this build\r\n");
    message = u"bilingual copies not available";
    return E_NOTIMPL;
}

}  // namespace qb
