// Bilingual copies.
#include "charts/bilingual_copy.h"

#include "slides/automation.h"

namespace qb {

bool IsBilingualCopy(const host::HostRef& slide) {
    host::HostRef tags;
    if (FAILED(host::GetObject(slide, u"Tags", tags))) return false;
    const host::Variant name = host::Variant::String(kBilingualCopyTag);
    host::Variant value;
    if (FAILED(host::DispCall(tags, u"Item", &name, 1, &value))) return false;
    return value.Type() == host::VarType::String && !value.StringValue().empty();
}

}  // namespace qb
