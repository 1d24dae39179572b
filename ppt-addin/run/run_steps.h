// What the controller asks of its neighbours on the host's thread:
// collection, bilingual copies, writing one slide, finding a slide again,
// and the broken phrase pass. The slide engine fills these in; tests use
// fakes that record what was asked.
#pragma once

#include <cstdint>
#include <string>

#include "run/run_records.h"
#include "slides/host_object.h"

namespace qb {

struct RunContext {
    host::HostRef application;
    host::HostRef window;        // the run's document window
    host::HostRef presentation;  // its presentation, cached for the run
    const RunOptions* options = nullptr;
    const RunCallbacks* callbacks = nullptr;
};

class RunSteps {
  public:
    virtual ~RunSteps() = default;

    // Fills the lists with the units of the scope; a failing HRESULT with
    // the text for the panel when collection fails.
    virtual HRESULT Collect(const RunContext& run, RunLists& lists, std::u16string& message) = 0;
    virtual HRESULT CreateBilingualCopies(const RunContext& run, RunLists& lists,
                                          std::u16string& message) = 0;
    // Removes copies that no unit reached; returns how many copies remain.
    virtual std::int32_t CleanupBilingualCopies(const RunContext& run) = 0;
    virtual std::int32_t BilingualCopiesMade() const = 0;
    // Writes one slide's translations; adds to applied and firstApplyError.
    virtual void ApplySlide(const RunContext& run, const RunLists& lists, std::int32_t slide,
                            std::int32_t& applied, std::u16string& firstApplyError) = 0;
    // The present index of a collected slide (a bilingual run's slides move).
    virtual std::int32_t SourceSlideIndex(const RunContext& run, std::int32_t slide) = 0;
    // The index of a slide's bilingual copy, or 0.
    virtual std::int32_t LocateBilingualCopy(const RunContext& run, std::int32_t slide) = 0;
    virtual void BrokenPhrasePass(const RunContext& run, const RunLists& lists,
                                  std::int32_t& applied) = 0;
};

}  // namespace qb
