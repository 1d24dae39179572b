// Bilingual copies: slides a run made behind their sources to write the
// translation on. The slide tag is the only lasting link between the two.
#pragma once

#include "slides/host_object.h"

namespace qb {

inline constexpr char16_t kBilingualCopyTag[] = u"Quillbrook.BilingualCopyOf";

// True when the slide carries the copy tag with a non-empty value.
bool IsBilingualCopy(const host::HostRef& slide);

}  // namespace qb
