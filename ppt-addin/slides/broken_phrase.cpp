// The broken phrase pass at the end of a successful run: a frame of short
// CJK pieces that the service handed back unchanged one by one is asked for
// as one phrase, and the answer becomes the frame's whole text.
#include <algorithm>
#include <string>
#include <vector>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "run/sta_gate.h"
#include "slides/automation.h"
#include "slides/shape_path.h"
#include "slides/slide_engine.h"
#include "slides/target_style.h"
#include "slides/writeback.h"

namespace qb {
namespace {

bool SameFrame(const UnitAddress& a, const UnitAddress& b) {
    if (a.kind != b.kind || a.slideIndex != b.slideIndex || a.shapePath != b.shapePath ||
        a.onNotesPage != b.onNotesPage) {
        return false;
    }
    return a.kind != UnitKind::TableCell || (a.row == b.row && a.column == b.column);
}

std::u16string SeenKey(const UnitAddress& address) {
    std::u16string key = DecimalText(address.slideIndex) + u"|" + ShapeKey(address.shapePath) +
                         u"|" + DecimalText(static_cast<long long>(address.kind)) + u"|" +
                         DecimalText(address.row) + u"," + DecimalText(address.column);
    if (address.onNotesPage) key += u"|n";
    return key;
}

bool HasHan(std::u16string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](char16_t c) { return c >= 0x4E00 && c <= 0x9FFF; });
}

// The gate holds for a while after every write, the pass's own included:
// that hold is waited out (bounded) so that each frame gets its turn. A
// gate with somebody inside stays shut.
bool EnterGateWaiting(const void* owner) {
    platform::Clock& clock = platform::CurrentClock();
    std::uint64_t waited = 0;
    while (!StaGate::TryEnter(owner)) {
        const std::uint64_t now = clock.TickCount64();
        if (StaGate::Owner() != nullptr || now >= StaGate::NotBefore() ||
            waited >= kPhraseGateWaitLimitMs) {
            return false;
        }
        const auto wait = static_cast<std::uint32_t>(
            std::min<std::uint64_t>(StaGate::NotBefore() - now, kPhraseGateWaitLimitMs - waited));
        clock.Sleep(wait);
        waited += wait;
    }
    return true;
}

}  // namespace

void SlideEngine::BrokenPhrasePass(const RunContext& run, const RunLists& lists,
                                   std::int32_t& applied) {
    if (!translatePhrase_) return;
    const std::size_t n = std::min({lists.addresses.size(), lists.translations.size(),
                                    lists.units.size(), lists.texts.size()});
    std::vector<bool> written(lists.addresses.size(), false);
    std::vector<std::u16string> seen;
    const std::u16string targetLang = run.options ? run.options->targetLang : std::u16string();
    const std::u16string targetFont = run.options ? run.options->targetFont : std::u16string();

    for (std::size_t i = 0; i < n; ++i) {
        const TextUnit& unit = lists.units[i];
        const UnitAddress& address = lists.addresses[i];
        if (!unit.frameCollapsed || written[i] || lists.translations[i] != lists.texts[i]) {
            continue;
        }
        if (address.kind != UnitKind::Frame && address.kind != UnitKind::TableCell &&
            address.kind != UnitKind::NotesFrame) {
            continue;
        }
        const std::u16string key = SeenKey(address);
        if (std::find(seen.begin(), seen.end(), key) != seen.end()) continue;
        seen.push_back(key);

        // A frame of which any piece was translated stays as it is.
        bool pieceTranslated = false;
        for (std::size_t j = 0; j < n && !pieceTranslated; ++j) {
            pieceTranslated = SameFrame(lists.addresses[j], address) &&
                              !lists.translations[j].empty() &&
                              lists.translations[j] != lists.texts[j];
        }
        if (pieceTranslated) continue;

        std::u16string result;
        if (!translatePhrase_(unit.sourceText, result)) continue;
        const std::u16string t = NormalizeTranslation(result);
        if (t.empty() || t == unit.sourceText) continue;
        if (HasHan(t) && IsNonCjkTarget(targetLang)) continue;

        host::HostRef slides, shape, frame, textRange;
        if (FAILED(host::GetObject(run.presentation, u"Slides", slides))) continue;
        const std::int32_t target = LocateBilingualCopy(run, address.slideIndex);
        if (target <= 0) continue;
        const bool notes = address.onNotesPage != 0 || address.kind == UnitKind::NotesFrame;
        if (FAILED(notes ? LocateNotesShape(slides, target, address, shape)
                         : LocateShape(slides, target, address, shape))) {
            continue;
        }
        if (address.kind == UnitKind::TableCell) {
            host::HostRef cell;
            if (!CellShape(shape, address.row, address.column, cell)) continue;
            shape = std::move(cell);
        }
        if (FAILED(host::GetObject(shape, u"TextFrame", frame)) ||
            FAILED(host::GetObject(frame, u"TextRange", textRange))) {
            continue;
        }

        if (!EnterGateWaiting(this)) continue;
        bool wrote = false;
        {
            // Left on every way out, a throwing host call included.
            struct GateLeave {
                const void* owner;
                ~GateLeave() { StaGate::Leave(owner); }
            } leave{this};
            FontSnapshot snapshot;
            CaptureFont(textRange, snapshot);
            wrote = WriteRangeText(textRange, t);
            if (wrote) {
                RestoreFont(textRange, snapshot);
                ApplyTargetFont(textRange, targetFont);
            }
        }
        if (!wrote) continue;

        ++applied;
        for (std::size_t j = 0; j < n; ++j) {
            if (SameFrame(lists.addresses[j], address)) written[j] = true;
        }
    }
}

}  // namespace qb
