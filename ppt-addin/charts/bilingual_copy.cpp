// Bilingual copies: made last slide first, tied to their sources by tag,
// found again by slide id, and removed only where the tag proves them ours.
#include "charts/bilingual_copy.h"

#include <algorithm>
#include <cstdio>

#include "foundation/char_class.h"
#include "foundation/text.h"
#include "foundation/trace.h"
#include "slides/automation.h"

namespace qb {

using host::HostRef;
using host::Variant;
using host::VarType;

namespace {

constexpr std::int32_t kRangeLimit = 64;

bool ReadTag(const HostRef& slide, std::u16string& value) {
    HostRef tags;
    if (FAILED(host::GetObject(slide, u"Tags", tags))) return false;
    const Variant name = Variant::String(kBilingualCopyTag);
    Variant result;
    if (FAILED(host::DispCall(tags, u"Item", &name, 1, &result)) ||
        result.Type() != VarType::String) {
        return false;
    }
    value = result.StringValue();
    return true;
}

// A signed decimal from the text's start: leading white space passed over,
// reading stops at the first non-digit, no digits read as 0.
std::int64_t LeadingNumber(std::u16string_view text) {
    std::size_t i = 0;
    while (i < text.size() && IsSpace(text[i]))
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == u'-' || text[i] == u'+')) negative = text[i++] == u'-';
    std::int64_t value = 0;
    for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i) {
        value = value * 10 + (text[i] - u'0');
        if (value > 0xFFFFFFFFll) break;  // far outside any slide id
    }
    return negative ? -value : value;
}

bool ReadId(const HostRef& slide, std::int32_t& id) {
    return SUCCEEDED(host::GetInt32(slide, u"SlideID", id));
}

HRESULT Item(const HostRef& collection, std::int32_t index, HostRef& out) {
    return host::GetItem(collection, index, out);
}

std::u16string Around(const char16_t* before, std::int32_t index, const char16_t* after = u"") {
    return before + DecimalText(index) + after;
}

}  // namespace

bool IsBilingualCopy(const HostRef& slide) {
    std::u16string value;
    return ReadTag(slide, value) && !value.empty();
}

bool IsCopyOfSource(const HostRef& slide, std::int32_t sourceSlideId) {
    std::u16string value;
    if (!ReadTag(slide, value) || value.empty()) return false;
    if (sourceSlideId == 0) return true;
    return LeadingNumber(value) == sourceSlideId;
}

HRESULT FindSlideById(const HostRef& slides, std::int32_t id, HostRef& outSlide) {
    if (!slides || id == 0) return E_FAIL;
    const Variant arg = Variant::I4(id);
    Variant found;
    if (SUCCEEDED(host::DispCall(slides, u"FindBySlideID", &arg, 1, &found)) &&
        found.Type() == VarType::Object && found.ObjectValue()) {
        outSlide = found.ObjectValue();
        return S_OK;
    }
    std::int32_t count = 0;
    if (FAILED(host::GetInt32(slides, u"Count", count))) return E_FAIL;
    for (std::int32_t i = 1; i <= count; ++i) {
        HostRef slide;
        std::int32_t slideId = 0;
        if (SUCCEEDED(Item(slides, i, slide)) && ReadId(slide, slideId) && slideId == id) {
            outSlide = std::move(slide);
            return S_OK;
        }
    }
    return E_FAIL;
}

bool FindNewSlideAt(const HostRef& slides, std::int32_t position, const KnownSlideIds& known,
                    BilingualCopyRecord& out) {
    HostRef slide;
    std::int32_t id = 0;
    if (FAILED(Item(slides, position, slide)) || !ReadId(slide, id) || id == 0 ||
        known.count(id) != 0) {
        return false;
    }
    std::int32_t index = 0;
    if (FAILED(host::GetInt32(slide, u"SlideIndex", index)) || index <= 0) index = position;
    out.copySlideId = id;
    out.copySlideIndex = index;
    return true;
}

bool FindNewSlideInRange(const HostRef& range, const KnownSlideIds& known,
                         BilingualCopyRecord& out) {
    std::int32_t count = 0;
    if (FAILED(host::GetInt32(range, u"Count", count)) || count < 1 || count > kRangeLimit) {
        return false;
    }
    for (std::int32_t i = 1; i <= count; ++i) {
        HostRef slide;
        std::int32_t id = 0, index = 0;
        if (SUCCEEDED(Item(range, i, slide)) && ReadId(slide, id) && id != 0 &&
            known.count(id) == 0 && SUCCEEDED(host::GetInt32(slide, u"SlideIndex", index)) &&
            index > 0) {
            out.copySlideId = id;
            out.copySlideIndex = index;
            return true;
        }
    }
    return false;
}

void DeleteNewSlideAt(const HostRef& slides, std::int32_t position, const KnownSlideIds& known) {
    BilingualCopyRecord found;
    if (!FindNewSlideAt(slides, position, known, found)) return;
    HostRef slide;
    if (SUCCEEDED(Item(slides, position, slide)))
        (void)host::DispCall(slide, u"Delete", nullptr, 0, nullptr);
}

void TrimCopyRange(const HostRef& range, const KnownSlideIds& known,
                   const BilingualCopyRecord* keep) {
    std::int32_t count = 0;
    if (!range || FAILED(host::GetInt32(range, u"Count", count)) || count <= 0) return;
    if (count > kRangeLimit) {
        Trace(u"PptCtrl bilingual cleanup skip: range count=" + DecimalText(count));
        return;
    }
    // Two passes: no deletion may shift what the first pass reads.
    std::vector<HostRef> doomed;
    for (std::int32_t i = 1; i <= count; ++i) {
        HostRef slide;
        if (FAILED(Item(range, i, slide))) {
            Trace(u"PptCtrl bilingual cleanup keep: unreadable range item");
            continue;
        }
        std::int32_t id = 0, index = 0;
        if (!ReadId(slide, id)) {
            Trace(u"PptCtrl bilingual cleanup keep: unreadable range item");
            continue;
        }
        if (FAILED(host::GetInt32(slide, u"SlideIndex", index))) {
            Trace(u"PptCtrl bilingual cleanup keep: index unreadable");
            continue;
        }
        const bool kept = known.count(id) != 0 ||
                          (keep && keep->copySlideId != 0 && id == keep->copySlideId) ||
                          (keep && keep->copySlideIndex != 0 && index == keep->copySlideIndex);
        if (kept) {
            Trace(u"PptCtrl bilingual cleanup keep id=" + DecimalText(id));
            continue;
        }
        doomed.push_back(std::move(slide));
    }
    for (const HostRef& slide : doomed)
        (void)host::DispCall(slide, u"Delete", nullptr, 0, nullptr);
}

HRESULT BilingualCopies::Prepare(const HostRef& presentation,
                                 std::vector<std::int32_t> sourceIndexes, std::u16string& error) {
    HostRef slides;
    if (!presentation) {
        error = u"\u65e0\u6cd5\u5b9a\u4f4d\u5f53\u524d\u6f14\u793a\u6587\u7a3f";
        return E_FAIL;
    }
    if (FAILED(host::GetObject(presentation, u"Slides", slides))) {
        error = u"\u65e0\u6cd5\u8bbf\u95ee Slides";
        return E_FAIL;
    }
    // Last slide first: a copy behind slide n never moves a slide still to do.
    std::sort(sourceIndexes.begin(), sourceIndexes.end(), std::greater<>());
    sourceIndexes.erase(std::unique(sourceIndexes.begin(), sourceIndexes.end()),
                        sourceIndexes.end());
    sourceSlideIds_.clear();
    copies_.clear();
    KnownSlideIds known;
    std::int32_t count = 0;
    if (SUCCEEDED(host::GetInt32(slides, u"Count", count))) {
        for (std::int32_t i = 1; i <= count; ++i) {
            HostRef slide;
            std::int32_t id = 0;
            if (SUCCEEDED(Item(slides, i, slide)) && ReadId(slide, id)) known.insert(id);
        }
    }
    for (std::int32_t index : sourceIndexes) {
        RETURN_IF_FAILED(PrepareOne(slides, index, known, error));
    }
    return S_OK;
}

HRESULT BilingualCopies::PrepareOne(const HostRef& slides, std::int32_t index, KnownSlideIds& known,
                                    std::u16string& error) {
    HostRef source;
    if (FAILED(Item(slides, index, source))) {
        error = Around(u"\u65e0\u6cd5\u8bbf\u95ee\u7b2c ", index, u" \u9875");
        return E_FAIL;
    }
    if (IsBilingualCopy(source)) {
        error = Around(u"\u7b2c ", index,
                       u" \u9875\u662f\u53cc\u8bed\u8bd1\u6587\u9875\uff0c\u4e0d\u80fd\u518d\u6b21"
                       u"\u4f5c\u4e3a\u7ffb\u8bd1\u6e90\u9875");
        return E_FAIL;
    }
    std::int32_t sourceSlideId = 0;
    if (!ReadId(source, sourceSlideId) || sourceSlideId == 0) {
        error = Around(u"\u65e0\u6cd5\u83b7\u53d6\u7b2c ", index, u" \u9875\u6807\u8bc6");
        return E_FAIL;
    }
    const std::u16string unconfirmed =
        Around(u"\u65e0\u6cd5\u786e\u8ba4\u7b2c ", index, u" \u9875\u7684\u590d\u5236\u9875");

    // An old copy of this source, made by an earlier run, is written again.
    BilingualCopyRecord record;
    record.sourceSlideId = sourceSlideId;
    bool reused = false;
    std::int32_t count = 0;
    if (SUCCEEDED(host::GetInt32(slides, u"Count", count))) {
        for (std::int32_t i = 1; i <= count && !reused; ++i) {
            HostRef item;
            if (FAILED(Item(slides, i, item)) || !IsCopyOfSource(item, sourceSlideId)) continue;
            std::int32_t id = 0;
            const bool idRead = ReadId(item, id);
            if (idRead && id == sourceSlideId) {
                Trace(u"PptCtrl bilingual tag rejected source=" + DecimalText(index) +
                      u" candidateId=" + DecimalText(id));
                continue;
            }
            record.copySlideId = idRead ? id : 0;
            record.copySlideIndex = i;
            reused = true;
        }
    }

    if (!reused) {
        std::int32_t before = 0, after = 0;
        if (!MakeCopy(slides, source, index, known, record, before, after, error)) return E_FAIL;
        HostRef copy;
        std::int32_t copyId = 0;
        if (FAILED(Item(slides, record.copySlideIndex, copy))) {
            error = Around(u"\u65e0\u6cd5\u83b7\u53d6\u7b2c ", index,
                           u" \u9875\u7684\u590d\u5236\u9875");
            return E_FAIL;
        }
        const bool idRead = ReadId(copy, copyId);
        if (record.copySlideIndex == index || (idRead && copyId == sourceSlideId)) {
            Trace(u"PptCtrl bilingual copy is source page: source=" + DecimalText(index) +
                  u" index=" + DecimalText(record.copySlideIndex) + u" id=" + DecimalText(copyId));
            error = unconfirmed;
            return E_FAIL;
        }
        HostRef tags;
        if (FAILED(host::GetObject(copy, u"Tags", tags))) {
            error =
                u"\u590d\u5236\u9875\u4e0d\u652f\u6301\u53cc\u8bed\u6807\u8bb0\uff0c\u65e0"
                u"\u6cd5\u5b89\u5168\u590d\u7528";
            return E_FAIL;
        }
        const Variant args[2] = {Variant::String(DecimalText(sourceSlideId)),
                                 Variant::String(kBilingualCopyTag)};
        if (FAILED(host::DispCall(tags, u"Add", args, 2, nullptr))) {
            error =
                u"\u65e0\u6cd5\u6807\u8bb0\u53cc\u8bed\u590d\u5236\u9875\uff0c\u65e0\u6cd5"
                u"\u5b89\u5168\u590d\u7528";
            return E_FAIL;
        }
        if (record.copySlideId != 0) known.insert(record.copySlideId);
        created_.push_back(record);
        Trace(u"PptCtrl bilingual copy source=" + DecimalText(index) + u" sourceId=" +
              DecimalText(sourceSlideId) + u" copyId=" + DecimalText(record.copySlideId) +
              u" index=" + DecimalText(record.copySlideIndex) + u" count " + DecimalText(before) +
              u"->" + DecimalText(after));
    }

    HostRef copy;
    if (FAILED(Item(slides, record.copySlideIndex, copy)) || !IsCopyOfSource(copy, sourceSlideId)) {
        error = unconfirmed;
        return E_FAIL;
    }
    sourceSlideIds_[index] = sourceSlideId;
    copies_[index] = record;
    return S_OK;
}

bool BilingualCopies::MakeCopy(const HostRef& slides, const HostRef& source, std::int32_t index,
                               KnownSlideIds& known, BilingualCopyRecord& record,
                               std::int32_t& before, std::int32_t& after, std::u16string& error) {
    (void)host::GetInt32(slides, u"Count", before);
    Variant duplicated;
    const HRESULT hr = host::DispCall(source, u"Duplicate", nullptr, 0, &duplicated);
    HostRef range;
    if (SUCCEEDED(hr) && duplicated.Type() == VarType::Object) range = duplicated.ObjectValue();
    (void)host::GetInt32(slides, u"Count", after);
    // Only the slide found behind the source decides, not what Duplicate said.
    BilingualCopyRecord found;
    if (FindNewSlideAt(slides, index + 1, known, found)) {
        TrimCopyRange(range, known, &found);
        record.copySlideId = found.copySlideId;
        record.copySlideIndex = found.copySlideIndex;
        return true;
    }
    TrimCopyRange(range, known, nullptr);
    DeleteNewSlideAt(slides, index + 1, known);
    if (after > before) DeleteNewSlideAt(slides, after, known);
    range.reset();
    Trace(u"PptCtrl bilingual duplicate unusable source=" + DecimalText(index) + u" hr=0x" +
          HexText(static_cast<std::uint32_t>(hr)) + u" count " + DecimalText(before) + u"->" +
          DecimalText(after) + u"; fallback clipboard");

    if (FAILED(host::DispCall(source, u"Copy", nullptr, 0, nullptr))) {
        error = Around(u"\u672a\u80fd\u590d\u5236\u7b2c ", index,
                       u" \u9875\uff08\u5df2\u4f7f\u7528\u526a\u8d34\u677f\uff0c\u590d\u5236\u5931"
                       u"\u8d25\uff09");
        return false;
    }
    const Variant at = Variant::I4(index + 1);
    Variant pasted;
    HostRef pastedRange;
    const HRESULT pasteHr = host::DispCall(slides, u"Paste", &at, 1, &pasted);
    if (SUCCEEDED(pasteHr) && pasted.Type() == VarType::Object) pastedRange = pasted.ObjectValue();
    std::int32_t pastedCount = 0;
    if (FAILED(pasteHr) || !pastedRange ||
        FAILED(host::GetInt32(pastedRange, u"Count", pastedCount)) || pastedCount < 1) {
        TrimCopyRange(pastedRange, known, nullptr);
        DeleteNewSlideAt(slides, index + 1, known);
        error = Around(u"\u672a\u80fd\u590d\u5236\u7b2c ", index,
                       u" \u9875\uff08\u5df2\u4f7f\u7528\u526a\u8d34\u677f\uff0c\u7c98\u8d34\u5931"
                       u"\u8d25\uff09");
        return false;
    }
    (void)host::GetInt32(slides, u"Count", after);
    if (!FindNewSlideAt(slides, index + 1, known, found) &&
        !FindNewSlideInRange(pastedRange, known, found)) {
        TrimCopyRange(pastedRange, known, nullptr);
        error =
            Around(u"\u65e0\u6cd5\u786e\u8ba4\u7b2c ", index, u" \u9875\u7684\u590d\u5236\u9875");
        return false;
    }
    TrimCopyRange(pastedRange, known, &found);
    record.copySlideId = found.copySlideId;
    record.copySlideIndex = found.copySlideIndex;
    return true;
}

std::int32_t BilingualCopies::Locate(const HostRef& slides, std::int32_t sourceIndex) const {
    const auto it = copies_.find(sourceIndex);
    if (it == copies_.end() || !slides) return 0;
    const BilingualCopyRecord& record = it->second;
    const auto idIt = sourceSlideIds_.find(sourceIndex);
    const std::int32_t sourceSlideId =
        idIt != sourceSlideIds_.end() ? idIt->second : record.sourceSlideId;
    HostRef slide;
    std::int32_t index = 0;
    if (record.copySlideId != 0 && SUCCEEDED(FindSlideById(slides, record.copySlideId, slide)) &&
        SUCCEEDED(host::GetInt32(slide, u"SlideIndex", index)) && index > 0 &&
        IsCopyOfSource(slide, sourceSlideId)) {
        return index;
    }
    if (record.copySlideIndex > 0 && SUCCEEDED(Item(slides, record.copySlideIndex, slide)) &&
        IsCopyOfSource(slide, sourceSlideId)) {
        return record.copySlideIndex;
    }
    Trace(u"PptCtrl bilingual copy locate failed source=" + DecimalText(sourceIndex) + u" id=" +
          DecimalText(record.copySlideId) + u" index=" + DecimalText(record.copySlideIndex));
    return 0;
}

std::int32_t BilingualCopies::SourceIndexNow(const HostRef& slides,
                                             std::int32_t sourceIndex) const {
    const auto it = sourceSlideIds_.find(sourceIndex);
    HostRef slide;
    std::int32_t index = 0;
    if (it != sourceSlideIds_.end() && SUCCEEDED(FindSlideById(slides, it->second, slide)) &&
        SUCCEEDED(host::GetInt32(slide, u"SlideIndex", index)) && index > 0) {
        return index;
    }
    return sourceIndex;
}

std::int32_t BilingualCopies::Cleanup(const HostRef& slides) {
    if (created_.empty()) return 0;
    if (!slides) {
        Trace(u"PptCtrl bilingual cleanup skipped: no slides");
        return static_cast<std::int32_t>(created_.size());
    }
    std::vector<BilingualCopyRecord> records = created_;
    std::stable_sort(records.begin(), records.end(),
                     [](const BilingualCopyRecord& a, const BilingualCopyRecord& b) {
                         return a.copySlideIndex > b.copySlideIndex;
                     });
    std::int32_t remaining = 0;
    for (const BilingualCopyRecord& record : records) {
        HostRef slide;
        bool found =
            record.copySlideId != 0 && SUCCEEDED(FindSlideById(slides, record.copySlideId, slide));
        if (!found && record.copySlideIndex > 0) {
            found = SUCCEEDED(Item(slides, record.copySlideIndex, slide));
        }
        // The slide may be something else by now: only our tag proves it ours.
        if (!found || !IsCopyOfSource(slide, record.sourceSlideId)) {
            Trace(u"PptCtrl bilingual cleanup keep unconfirmed index=" +
                  DecimalText(record.copySlideIndex));
            ++remaining;
            continue;
        }
        if (FAILED(host::DispCall(slide, u"Delete", nullptr, 0, nullptr))) ++remaining;
    }
    created_.clear();
    return remaining;
}

}  // namespace qb
