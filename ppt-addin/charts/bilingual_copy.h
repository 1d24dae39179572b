// Bilingual copies: slides a run made behind their sources to write the
// translation on. The slide tag is the only lasting link between the two,
// and a slide id the only key that outlives a step. What can't be proved
// new, by a readable id that wasn't there before, is never deleted.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "slides/host_object.h"

namespace qb {

inline constexpr char16_t kBilingualCopyTag[] = u"Quillbrook.BilingualCopyOf";

// True when the slide carries the copy tag with a non-empty value.
bool IsBilingualCopy(const host::HostRef& slide);
// True when the slide's tag names `sourceSlideId` (any tag for 0).
bool IsCopyOfSource(const host::HostRef& slide, std::int32_t sourceSlideId);
// FindBySlideID, else a scan of the collection.
[[nodiscard]] HRESULT FindSlideById(const host::HostRef& slides, std::int32_t id,
                                    host::HostRef& outSlide);

struct BilingualCopyRecord {
    std::int32_t copySlideId = 0;
    std::int32_t copySlideIndex = 0;
    std::int32_t sourceSlideId = 0;
};

using KnownSlideIds = std::set<std::int32_t>;

// The slide at `position` when its id is readable, non-zero and unknown.
bool FindNewSlideAt(const host::HostRef& slides, std::int32_t position, const KnownSlideIds& known,
                    BilingualCopyRecord& out);
bool FindNewSlideInRange(const host::HostRef& range, const KnownSlideIds& known,
                         BilingualCopyRecord& out);
void DeleteNewSlideAt(const host::HostRef& slides, std::int32_t position,
                      const KnownSlideIds& known);
// Deletes what a Duplicate or Paste made beyond the one copy kept.
void TrimCopyRange(const host::HostRef& range, const KnownSlideIds& known,
                   const BilingualCopyRecord* keep);

// One run's copies: made (or found again) before the worker starts, located
// for every write, removed again when the run fails or applies nothing.
class BilingualCopies {
  public:
    // `sourceIndexes` are the run's collected slides. On failure the text
    // for the panel; the copies made so far stay listed for Cleanup.
    [[nodiscard]] HRESULT Prepare(const host::HostRef& presentation,
                                  std::vector<std::int32_t> sourceIndexes, std::u16string& error);
    // The present index of the copy of a collected slide, or 0.
    std::int32_t Locate(const host::HostRef& slides, std::int32_t sourceIndex) const;
    // The present index of a collected source slide (the copies move it).
    std::int32_t SourceIndexNow(const host::HostRef& slides, std::int32_t sourceIndex) const;
    // Deletes this run's own copies that still carry their tag; returns how
    // many could not be deleted. The caller holds the gate on host mutation.
    std::int32_t Cleanup(const host::HostRef& slides);
    std::int32_t Made() const { return static_cast<std::int32_t>(created_.size()); }

  private:
    HRESULT PrepareOne(const host::HostRef& slides, std::int32_t index, KnownSlideIds& known,
                       std::u16string& error);
    bool MakeCopy(const host::HostRef& slides, const host::HostRef& source, std::int32_t index,
                  KnownSlideIds& known, BilingualCopyRecord& record, std::int32_t& before,
                  std::int32_t& after, std::u16string& error);

    std::map<std::int32_t, std::int32_t> sourceSlideIds_;
    std::map<std::int32_t, BilingualCopyRecord> copies_;
    std::vector<BilingualCopyRecord> created_;
};

}  // namespace qb
