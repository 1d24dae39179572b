// The run's target style: what the panel asks for, and the font name that
// every replaced range gets in its Latin and East Asian name slots.
#pragma once

#include <string>
#include <string_view>

#include "run/run_records.h"
#include "slides/host_object.h"

namespace qb {

inline constexpr char16_t kDefaultTargetFont[] = u"Times New Roman";

// Reads the keys of a setTargetStyle message that are present; an absent
// key leaves its field as it was.
void ReadTargetStyle(std::u16string_view messageText, TargetStyle& style);

// Puts the font name into Name, NameFarEast and NameAscii of the range's
// Font, each put on its own; nothing for an empty name.
void ApplyTargetFont(const host::HostRef& range, const std::u16string& fontName);

// True for a service language code that is neither empty, "auto", nor one
// of the CJK languages.
bool IsNonCjkTarget(std::u16string_view language);

}  // namespace qb
