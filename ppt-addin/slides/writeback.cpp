// Writeback of one slide.
#include "slides/writeback.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "foundation/text.h"
#include "foundation/trace.h"
#include "slides/automation.h"
#include "slides/shape_path.h"
#include "slides/target_style.h"
#include "slides/text_fit.h"

namespace qb {

using host::HostRef;
using host::Variant;
using host::VarType;

namespace {

constexpr std::int32_t kSchemeColorType = 2;
constexpr std::int32_t kMixed = -2;

bool CallForObject(const HostRef& object, std::u16string_view member, std::int32_t first,
                   std::int32_t second, HostRef& out) {
    const Variant args[2] = {Variant::I4(second), Variant::I4(first)};
    Variant value;
    if (FAILED(host::DispCall(object, member, args, 2, &value)) ||
        value.Type() != VarType::Object || !value.ObjectValue()) {
        return false;
    }
    out = value.ObjectValue();
    return true;
}

std::u16string Hex24(std::int32_t color) {
    char text[16];
    std::snprintf(text, sizeof text, "%06X", static_cast<unsigned>(color) & 0xFFFFFFu);
    return AsciiToUtf16(text);
}

bool SameShapeGroup(const UnitAddress& a, const UnitAddress& b) {
    if (a.kind != b.kind || a.slideIndex != b.slideIndex || a.shapePath != b.shapePath ||
        a.onNotesPage != b.onNotesPage) {
        return false;
    }
    if (a.kind == UnitKind::TableCell || a.kind == UnitKind::SelectedCharacters) {
        return a.row == b.row && a.column == b.column;
    }
    return true;
}

// A frame's text as collection joins its paragraphs: without line ends.
std::u16string WithoutLineEnds(std::u16string_view text) {
    std::u16string out;
    for (char16_t c : text) {
        if (c != u'\r' && c != u'\n') out.push_back(c);
    }
    return out;
}

std::u16string_view WithoutTrailingLineEnds(std::u16string_view text) {
    while (!text.empty() && (text.back() == u'\r' || text.back() == u'\n'))
        text.remove_suffix(1);
    return text;
}

bool IsChartKind(UnitKind kind) {
    const auto k = static_cast<std::int32_t>(kind);
    return k == 3 || k == 4 || (k >= 6 && k <= 10);
}

// The units of one shape, written last to first.
class GroupWriter {
  public:
    GroupWriter(const ApplySlideArgs& args, std::int32_t& applied, std::u16string& error)
        : args_(args), lists_(*args.lists), applied_(applied), error_(error) {}

    bool locateLogged = false;

    void Write(const HostRef& slides, std::vector<std::size_t> group, float slideWidth) {
        const UnitAddress& first = lists_.addresses[group.front()];
        const std::u16string& firstId = lists_.units[group.front()].unitId;
        if (args_.targetSlide <= 0) {
            LogLocate(u"copySlide", args_.slideIndex, firstId);
            FailAll(group);
            return;
        }
        const bool notes = first.onNotesPage != 0 || first.kind == UnitKind::NotesFrame;
        HostRef shape;
        const HRESULT hr = notes ? LocateNotesShape(slides, args_.targetSlide, first, shape)
                                 : LocateShape(slides, args_.targetSlide, first, shape);
        if (FAILED(hr)) {
            LogLocate(notes ? u"notesShape" : u"shape", args_.targetSlide, firstId);
            FailAll(group);
            return;
        }
        if (first.kind == UnitKind::TableCell ||
            (first.kind == UnitKind::SelectedCharacters && first.row > 0)) {
            HostRef cell;
            if (!CellShape(shape, first.row, first.column, cell)) {
                FailAll(group);
                return;
            }
            shape = std::move(cell);
        }

        const RunOptions& options = *args_.options;
        const bool fits =
            first.kind == UnitKind::Frame || (first.kind == UnitKind::SelectedCharacters &&
                                              first.row == 0 && first.onNotesPage == 0);
        GeometrySnapshot box;
        if (fits && !options.hasTargetSize) box = CaptureGeometry(shape);

        const bool byChars = first.kind == UnitKind::SelectedCharacters;
        std::stable_sort(group.begin(), group.end(), [&](std::size_t a, std::size_t b) {
            const UnitAddress& x = lists_.addresses[a];
            const UnitAddress& y = lists_.addresses[b];
            return byChars ? x.charStart > y.charStart : x.paragraphIndex > y.paragraphIndex;
        });

        bool changed = false;
        const auto kind = static_cast<std::int32_t>(first.kind);
        if (kind == 7 || kind == 11) {
            changed = WriteWholeGroup(shape, group, kind == 7);
        } else {
            for (std::size_t i : group)
                changed = WriteUnit(shape, i) || changed;
        }
        if (fits && changed && !options.hasTargetSize) {
            FitShape(shape, box.valid ? &box : nullptr, slideWidth);
        }
    }

  private:
    bool Written(std::size_t i) const {
        return i < lists_.writtenUnits.size() && lists_.writtenUnits[i];
    }

    bool WriteUnit(const HostRef& shape, std::size_t i) {
        if (Written(i)) return false;
        const std::u16string t = NormalizeTranslation(lists_.translations[i]);
        // An unchanged text is not touched at all: it keeps every run it had.
        if (t.empty() || t == lists_.texts[i]) return false;
        const UnitAddress& address = lists_.addresses[i];
        const std::u16string& font = args_.options->targetFont;
        bool ok = false;
        if (IsChartKind(address.kind)) {
            ok = args_.writers && args_.writers->applyChartUnit &&
                 args_.writers->applyChartUnit(shape, address, lists_.translations[i]);
        } else if (address.kind == UnitKind::SelectedCharacters) {
            ok = ApplyRangeUnit(shape, address, lists_.translations[i], font);
        } else {
            const bool onCopy = args_.options->bilingualSlides;
            ok = ApplyFrameUnit(shape, address, onCopy ? nullptr : &lists_.texts[i],
                                lists_.translations[i], font);
        }
        if (!ok) {
            ReportUnitFailure(error_, lists_.units[i].unitId);
            return false;
        }
        ++applied_;
        return true;
    }

    bool WriteWholeGroup(const HostRef& shape, const std::vector<std::size_t>& group,
                         bool categories) {
        const ShapeUnitWriters* writers = args_.writers;
        const ShapeUnitWriters::GroupWriter* writer =
            writers ? (categories ? &writers->applyCategoryGroup : &writers->applySheetGroup)
                    : nullptr;
        std::int32_t written = 0;
        if (writer && *writer && (*writer)(shape, lists_, group, written)) {
            applied_ += written;
            return written > 0;
        }
        for (std::size_t i : group) {
            const std::u16string t = NormalizeTranslation(lists_.translations[i]);
            if (!Written(i) && !t.empty() && t != lists_.texts[i]) {
                ReportUnitFailure(error_, lists_.units[i].unitId);
            }
        }
        return false;
    }

    void FailAll(const std::vector<std::size_t>& group) {
        for (std::size_t i : group)
            ReportUnitFailure(error_, lists_.units[i].unitId);
    }

    void LogLocate(std::u16string_view stage, std::int32_t slide, const std::u16string& where) {
        if (locateLogged) return;
        locateLogged = true;
        std::u16string line = u"PptCtrl apply locate fail stage=";
        line += stage;
        Trace(line + u" slide=" + DecimalText(slide) + u" where=" + where + u"\r\n");
    }

    const ApplySlideArgs& args_;
    const RunLists& lists_;
    std::int32_t& applied_;
    std::u16string& error_;
};

}  // namespace

bool CellShape(const HostRef& tableShape, std::int32_t row, std::int32_t column, HostRef& out) {
    HostRef table;
    return SUCCEEDED(host::GetObject(tableShape, u"Table", table)) &&
           GetCellShape(table, row, column, out);
}

std::u16string NormalizeTranslation(std::u16string_view text) {
    std::u16string out;
    out.reserve(text.size());
    bool pending = false;
    for (char16_t c : text) {
        if (c == u'\r' || c == u'\n' || c == u'\v' || c == u'\f') {
            pending = !out.empty();
            continue;
        }
        if (pending) {
            if (c != u' ' && c != u'\t') out.push_back(u' ');
            pending = false;
        }
        out.push_back(c);
    }
    while (!out.empty() && (out.back() == u' ' || out.back() == u'\t'))
        out.pop_back();
    return out;
}

void CaptureFont(const HostRef& range, FontSnapshot& snapshot) {
    snapshot = FontSnapshot();
    HostRef font;
    if (FAILED(host::GetObject(range, u"Font", font))) return;
    snapshot.valid = true;
    HostRef color;
    if (SUCCEEDED(host::GetObject(font, u"Color", color))) {
        (void)host::GetInt32(color, u"Type", snapshot.colorType);
        snapshot.hasRgb = SUCCEEDED(host::GetInt32(color, u"RGB", snapshot.rgb));
        snapshot.hasSchemeColor =
            SUCCEEDED(host::GetInt32(color, u"SchemeColor", snapshot.schemeColor));
        snapshot.hasTint = SUCCEEDED(host::GetFloat(color, u"TintAndShade", snapshot.tintAndShade));
    }
    float size = 0.0f;
    if (SUCCEEDED(host::GetFloat(font, u"Size", size)) && size > 0.0f) {
        snapshot.size = size;
        snapshot.hasSize = true;
    }
    std::int32_t value = 0;
    if (SUCCEEDED(host::GetInt32(font, u"Bold", value)) && value != kMixed) snapshot.bold = value;
    if (SUCCEEDED(host::GetInt32(font, u"Italic", value)) && value != kMixed) {
        snapshot.italic = value;
    }
}

void RestoreFont(const HostRef& range, const FontSnapshot& snapshot) {
    if (!snapshot.valid) return;
    HostRef font;
    if (FAILED(host::GetObject(range, u"Font", font))) return;

    HostRef color;
    if ((snapshot.hasRgb || snapshot.hasSchemeColor) &&
        SUCCEEDED(host::GetObject(font, u"Color", color))) {
        std::int32_t type = kMixed, rgb = 0;
        if (FAILED(host::GetInt32(color, u"Type", type))) type = kMixed;
        const bool rgbRead = SUCCEEDED(host::GetInt32(color, u"RGB", rgb));
        bool put = false;
        if (snapshot.colorType == kSchemeColorType && snapshot.hasSchemeColor &&
            snapshot.schemeColor != 0 && type != kSchemeColorType) {
            (void)host::DispPut(color, u"SchemeColor", Variant::I4(snapshot.schemeColor));
            if (snapshot.hasTint) {
                (void)host::DispPut(color, u"TintAndShade", Variant::R4(snapshot.tintAndShade));
            }
            put = true;
        } else if (snapshot.hasRgb && type != kMixed && rgbRead && rgb != snapshot.rgb) {
            (void)host::DispPut(color, u"RGB", Variant::I4(snapshot.rgb));
            put = true;
        }
        if (put) {
            Trace(u"PptCtrl font color restored before=0x" + Hex24(snapshot.rgb) + u" after=0x" +
                  Hex24(rgb) + u"\r\n");
        }
    }
    float size = 0.0f;
    if (snapshot.hasSize && SUCCEEDED(host::GetFloat(font, u"Size", size)) && size > 0.0f &&
        std::fabs(size - snapshot.size) > 0.01f) {
        (void)host::DispPut(font, u"Size", Variant::R4(snapshot.size));
    }
    std::int32_t value = 0;
    if (snapshot.bold != kMixed && SUCCEEDED(host::GetInt32(font, u"Bold", value)) &&
        value != snapshot.bold) {
        (void)host::DispPut(font, u"Bold", Variant::I4(snapshot.bold));
    }
    if (snapshot.italic != kMixed && SUCCEEDED(host::GetInt32(font, u"Italic", value)) &&
        value != snapshot.italic) {
        (void)host::DispPut(font, u"Italic", Variant::I4(snapshot.italic));
    }
}

bool WriteRangeText(const HostRef& range, const std::u16string& text) {
    if (!range || text.empty()) return false;
    // The seam reaches the host by name only, so the direct put and the put
    // by name are one call here.
    return SUCCEEDED(host::DispPut(range, u"Text", Variant::String(text)));
}

bool ApplyFrameUnit(const HostRef& shape, const UnitAddress& address, const std::u16string* source,
                    const std::u16string& translation, const std::u16string& targetFont) {
    HostRef frame, textRange;
    if (FAILED(host::GetObject(shape, u"TextFrame", frame)) ||
        FAILED(host::GetObject(frame, u"TextRange", textRange))) {
        return false;
    }
    const std::u16string t = NormalizeTranslation(translation);
    if (t.empty()) return false;

    FontSnapshot snapshot;
    HostRef range;
    if (address.wholeFrame) {
        std::u16string text;
        if (source && (FAILED(host::GetString(textRange, u"Text", text)) ||
                       WithoutLineEnds(text) != *source)) {
            return false;
        }
        if (!WriteRangeText(textRange, t)) {
            return false;
        }
        range = textRange;
    } else {
        HostRef paragraph;
        if (!CallForObject(textRange, u"Paragraphs", address.paragraphIndex, 1, paragraph)) {
            return false;
        }
        std::int32_t n = 0;
        std::u16string text;
        if (FAILED(host::GetInt32(paragraph, u"Length", n)) ||
            FAILED(host::GetString(paragraph, u"Text", text))) {
            return false;
        }
        if (source && WithoutTrailingLineEnds(text) != *source) return false;
        // The end mark stays out of the range, so no paragraph is lost or added.
        std::int32_t count = n;
        if (!text.empty() && text.back() == u'\r' && static_cast<std::int32_t>(text.size()) == n &&
            n >= 2) {
            count = n - 1;
        }
        if (count < 1) return false;
        if (count == n) {
            range = paragraph;
        } else if (!CallForObject(paragraph, u"Characters", 1, count, range)) {
            return false;
        }
        CaptureFont(range, snapshot);
        if (!WriteRangeText(range, t)) return false;
    }
    RestoreFont(range, snapshot);
    ApplyTargetFont(range, targetFont);
    return true;
}

bool ApplyRangeUnit(const HostRef& shape, const UnitAddress& address,
                    const std::u16string& translation, const std::u16string& targetFont) {
    if (!shape || address.charStart < 1 || address.charLength < 1) return false;
    HostRef frame, textRange, range;
    if (FAILED(host::GetObject(shape, u"TextFrame", frame)) ||
        FAILED(host::GetObject(frame, u"TextRange", textRange))) {
        return false;
    }
    std::int32_t count = address.charLength;
    if (address.paragraphEndsInCr && count > 1) --count;
    if (!CallForObject(textRange, u"Characters", address.charStart, count, range)) return false;
    const std::u16string t = NormalizeTranslation(translation);
    if (t.empty()) return false;
    FontSnapshot snapshot;
    CaptureFont(range, snapshot);
    if (!WriteRangeText(range, t)) return false;
    RestoreFont(range, snapshot);
    ApplyTargetFont(range, targetFont);
    return true;
}

void ReportUnitFailure(std::u16string& firstApplyError, const std::u16string& unitId) {
    if (!firstApplyError.empty()) firstApplyError += u"; ";
    firstApplyError += unitId;
    Trace(u"PptCtrl writeback FAIL: " + unitId + u"\r\n");
}

void ApplySlide(const ApplySlideArgs& args, std::int32_t& applied,
                std::u16string& firstApplyError) {
    if (!args.presentation) {
        firstApplyError = u"\u65e0\u6cd5\u5b9a\u4f4d\u5f53\u524d\u6f14\u793a\u6587\u7a3f";
        return;
    }
    HostRef slides;
    if (FAILED(host::GetObject(args.presentation, u"Slides", slides))) return;
    float slideWidth = 0.0f;
    HostRef pageSetup;
    if (FAILED(host::GetObject(args.presentation, u"PageSetup", pageSetup)) ||
        FAILED(host::GetFloat(pageSetup, u"SlideWidth", slideWidth))) {
        slideWidth = 0.0f;
    }

    const RunLists& lists = *args.lists;
    const std::size_t end = std::min(lists.addresses.size(), lists.translations.size());
    GroupWriter writer(args, applied, firstApplyError);
    std::size_t i = 0;
    while (i < end) {
        const UnitAddress& first = lists.addresses[i];
        if (first.slideIndex != args.slideIndex) {
            ++i;
            continue;
        }
        std::vector<std::size_t> group{i};
        std::size_t j = i + 1;
        while (j < end && SameShapeGroup(first, lists.addresses[j]))
            group.push_back(j++);
        writer.Write(slides, std::move(group), slideWidth);
        i = j;
    }
}

}  // namespace qb
