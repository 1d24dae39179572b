// Selection runs and the selection preview.
#include "slides/selection.h"

#include <set>

#include "foundation/text.h"
#include "foundation/trace.h"
#include "slides/automation.h"
#include "slides/shape_path.h"

namespace qb {

using host::HostRef;
using host::Variant;
using host::VarType;

namespace {

constexpr char16_t kSelectFirst[] =
    u"\u8bf7\u5148\u9009\u4e2d\u8981\u7ffb\u8bd1\u7684\u5f62\u72b6"
    u"\u6216\u6587\u5b57";
constexpr char16_t kUnreadable[] = u"\u65e0\u6cd5\u8bfb\u53d6\u9009\u533a";
constexpr char16_t kNothingToTranslate[] =
    u"\u9009\u533a\u91cc\u6ca1\u6709\u53ef\u7ffb\u8bd1\u7684"
    u"\u6587\u5b57";
constexpr char16_t kTooLarge[] =
    u"\u9009\u533a\u8fc7\u5927\uff0c\u8bf7\u7f29\u5c0f\u9009\u62e9"
    u"\u8303\u56f4";
constexpr char16_t kShapeNotLocated[] = u"\u65e0\u6cd5\u5b9a\u4f4d\u9009\u4e2d\u7684\u5f62\u72b6";

// The current slide first, then every other slide in order; on each the
// slide's shapes, then its notes page.
bool Search(const HostRef& slides, std::int32_t current, const HostRef& target,
            SelectedShape& found) {
    std::int32_t count = 0;
    if (FAILED(host::GetInt32(slides, u"Count", count))) return false;
    auto trySlide = [&](std::int32_t s) {
        HostRef slide;
        if (s < 1 || s > count || FAILED(host::GetItem(slides, s, slide))) return false;
        return FindSelectedShape(slide, target, false, found) ||
               FindSelectedShape(slide, target, true, found);
    };
    if (current >= 1 && trySlide(current)) return true;
    for (std::int32_t s = 1; s <= count; ++s) {
        if (s != current && trySlide(s)) return true;
    }
    return false;
}

std::u16string DedupeKey(const SelectedShape& found) {
    return DecimalText(found.slideIndex) + (found.notes ? u"|n" : u"|s") + ShapeKey(found.path) +
           u"|" + DecimalText(found.row) + u"," + DecimalText(found.column);
}

UnitAddress PageContext(bool notes) {
    UnitAddress context;
    if (notes) {
        context.kind = UnitKind::NotesFrame;
        context.onNotesPage = 1;
    }
    return context;
}

HRESULT Fail(std::u16string& outMessage, const char16_t* message) {
    outMessage = message;
    return E_FAIL;
}

HRESULT CollectShapes(const RunContext& run, const HostRef& selection, const HostRef& slides,
                      std::int32_t current, RunLists& lists, std::u16string& outMessage,
                      const ShapeOffer& offer) {
    HostRef range;
    std::int32_t hasChild = 0;
    if (SUCCEEDED(host::GetInt32(selection, u"HasChildShapeRange", hasChild)) && hasChild == -1) {
        (void)host::GetObject(selection, u"ChildShapeRange", range);
    }
    if (!range && FAILED(host::GetObject(selection, u"ShapeRange", range))) {
        return Fail(outMessage, kSelectFirst);
    }
    std::int32_t count = 0;
    if (FAILED(host::GetInt32(range, u"Count", count)) || count < 1) {
        return Fail(outMessage, kSelectFirst);
    }
    if (run.callbacks && run.callbacks->onScanProgress) {
        run.callbacks->onScanProgress(0, count, u"shapes");
    }
    SlideCollector collector(lists, offer);
    std::set<std::u16string> seen;
    std::int32_t located = 0;
    for (std::int32_t i = 1; i <= count; ++i) {
        HostRef shape;
        if (FAILED(host::GetItem(range, i, shape))) continue;
        SelectedShape found;
        if (!Search(slides, current, shape, found)) {
            lists.skippedLabels.push_back(kShapeNotLocated);
            Trace(u"PptCtrl selection shape not located\r\n");
            continue;
        }
        // A shape selected through both its group and itself gives units once.
        if (!seen.insert(DedupeKey(found)).second) continue;
        ++located;
        UnitAddress context = PageContext(found.notes);
        const ShapePath path = ShapePath::FromVector(found.path);
        if (found.row < 1) {
            collector.CollectShape(shape, found.slideIndex, path, context);
        } else {
            context.kind = UnitKind::TableCell;
            context.row = found.row;
            context.column = found.column;
            collector.CollectFrame(shape, found.slideIndex, path, context);
        }
        Trace(u"PptCtrl shape selection slide=" + DecimalText(found.slideIndex) + u" " +
              ShapeKey(found.path) + (found.notes ? u" notes" : u"") + u" cell=" +
              DecimalText(found.row) + u"," + DecimalText(found.column) + u"\r\n");
    }
    RebuildSpans(lists);
    if (lists.texts.empty())
        return Fail(outMessage, located == 0 ? kUnreadable : kNothingToTranslate);
    return S_OK;
}

HRESULT CollectText(const HostRef& selection, const HostRef& slides, std::int32_t current,
                    RunLists& lists, std::u16string& outMessage) {
    HostRef range, frame, shape;
    std::int32_t start = 0, length = 0;
    if (FAILED(host::GetObject(selection, u"TextRange", range)) ||
        FAILED(host::GetInt32(range, u"Start", start)) ||
        FAILED(host::GetInt32(range, u"Length", length)) || length < 1) {
        return Fail(outMessage, kSelectFirst);
    }
    if (FAILED(host::GetObject(range, u"Parent", frame)) ||
        !frame->Answers(host::HostInterface::TextFrame) ||
        FAILED(host::GetObject(frame, u"Parent", shape)) ||
        !shape->Answers(host::HostInterface::Shape)) {
        return Fail(outMessage, kSelectFirst);
    }
    SelectedShape found;
    if (!Search(slides, current, shape, found)) return Fail(outMessage, kUnreadable);
    std::u16string text;
    if (FAILED(host::GetString(range, u"Text", text))) return Fail(outMessage, kNothingToTranslate);
    const bool endsInCr = !text.empty() && text.back() == u'\r';
    while (!text.empty() && (text.back() == u'\r' || text.back() == u'\n'))
        text.pop_back();
    if (ShouldSkip(text)) return Fail(outMessage, kNothingToTranslate);
    if (start < 1) start = 1;

    TextUnit unit;
    unit.slideIndex = found.slideIndex;
    unit.unitId =
        ShapeKey(found.path) + u".chars(" + DecimalText(start) + u"," + DecimalText(length) + u")";
    unit.hostText = text;
    unit.paragraphFlag = endsInCr ? 1 : 0;
    UnitAddress address;
    address.kind = UnitKind::SelectedCharacters;
    address.slideIndex = found.slideIndex;
    address.shapePath = found.path;
    address.onNotesPage = found.notes ? 1 : 0;
    address.row = found.row;
    address.column = found.column;
    address.paragraphEndsInCr = endsInCr ? 1 : 0;
    address.charStart = start;
    address.charLength = length;
    SlideCollector(lists).AddUnit(std::move(unit), std::move(address));
    RebuildSpans(lists);
    Trace(u"PptCtrl text selection slide=" + DecimalText(found.slideIndex) + u" start=" +
          DecimalText(start) + u" len=" + DecimalText(length) + u" notes=" +
          DecimalText(found.notes ? 1 : 0) + u" cell=" + DecimalText(found.row) + u"," +
          DecimalText(found.column) + u"\r\n");
    return S_OK;
}

HRESULT CollectSlides(const RunContext& run, const HostRef& selection, RunLists& lists,
                      std::u16string& outMessage, const ShapeOffer& offer) {
    HostRef range;
    std::int32_t count = 0;
    if (FAILED(host::GetObject(selection, u"SlideRange", range)) ||
        FAILED(host::GetInt32(range, u"Count", count)) || count < 1) {
        return Fail(outMessage, kSelectFirst);
    }
    const RunCallbacks* callbacks = run.callbacks;
    if (callbacks && callbacks->onScanProgress) callbacks->onScanProgress(0, count, u"slides");
    SlideCollector collector(lists, offer);
    for (std::int32_t i = 1; i <= count; ++i) {
        HostRef slide, shapes;
        std::int32_t index = 0;
        const auto before = static_cast<std::int32_t>(lists.texts.size());
        if (SUCCEEDED(host::GetItem(range, i, slide)) &&
            SUCCEEDED(host::GetInt32(slide, u"SlideIndex", index)) && index >= 1) {
            // A selected copy is taken as the user chose it.
            if (SUCCEEDED(host::GetObject(slide, u"Shapes", shapes))) {
                collector.WalkShapes(shapes, index, ShapePath(), PageContext(false));
            }
            HostRef notes, notesShapes;
            if (SUCCEEDED(host::GetObject(slide, u"NotesPage", notes)) &&
                SUCCEEDED(host::GetObject(notes, u"Shapes", notesShapes))) {
                collector.WalkShapes(notesShapes, index, ShapePath(), PageContext(true));
            }
            lists.spans.push_back({before, static_cast<std::int32_t>(lists.texts.size())});
            lists.slideIndexes.push_back(index);
            if (callbacks && callbacks->onScanProgress) {
                callbacks->onScanProgress(i, count, u"slides");
            }
        }
    }
    if (lists.texts.empty()) return Fail(outMessage, kNothingToTranslate);
    return S_OK;
}

void ClearUnits(RunLists& lists) {
    lists.units.clear();
    lists.texts.clear();
    lists.addresses.clear();
    lists.spans.clear();
    lists.slideIndexes.clear();
}

}  // namespace

HRESULT CollectSelection(const RunContext& run, RunLists& lists, std::u16string& outMessage,
                         const ShapeOffer& offer) {
    HostRef slides;
    RETURN_IF_FAILED(OpenRunSlides(run, slides, outMessage));
    HostRef selection;
    std::int32_t type = 0;
    if (FAILED(host::GetObject(run.window, u"Selection", selection)) ||
        FAILED(host::GetInt32(selection, u"Type", type))) {
        return Fail(outMessage, kSelectFirst);
    }
    Trace(u"PptCtrl selection type=" + DecimalText(type) + u"\r\n");
    lists.spans.clear();
    lists.slideIndexes.clear();
    std::int32_t current = 0;
    HostRef currentSlide;
    if (SUCCEEDED(CurrentSlide(run.window, currentSlide)) &&
        FAILED(host::GetInt32(currentSlide, u"SlideIndex", current))) {
        current = 0;
    }

    HRESULT hr = E_FAIL;
    switch (type) {
        case 3:
            hr = CollectText(selection, slides, current, lists, outMessage);
            break;
        case 2:
            hr = CollectShapes(run, selection, slides, current, lists, outMessage, offer);
            break;
        case 1:
            hr = CollectSlides(run, selection, lists, outMessage, offer);
            break;
        default:
            return Fail(outMessage, kSelectFirst);
    }
    if (FAILED(hr)) return hr;
    std::size_t chars = 0;
    for (const std::u16string& text : lists.texts)
        chars += text.size();
    if (lists.texts.size() > kSelectionUnitLimit || chars > kSelectionCharLimit) {
        ClearUnits(lists);
        return Fail(outMessage, kTooLarge);
    }
    return S_OK;
}

void RebuildSpans(RunLists& lists) {
    lists.spans.clear();
    lists.slideIndexes.clear();
    for (std::size_t i = 0; i < lists.units.size(); ++i) {
        const std::int32_t slide = lists.units[i].slideIndex;
        if (i == 0 || slide != lists.units[i - 1].slideIndex) {
            lists.spans.push_back({static_cast<std::int32_t>(i), static_cast<std::int32_t>(i)});
            lists.slideIndexes.push_back(slide);
        }
        lists.spans.back().end = static_cast<std::int32_t>(i + 1);
    }
    if (!lists.slideIndexes.empty()) lists.firstSlide = lists.slideIndexes.front();
}

SelectionPreview ReadSelectionPreview(const HostRef& application, const HostRef& window) {
    SelectionPreview preview;
    HostRef active, selection;
    if (!window || FAILED(host::GetObject(application, u"ActiveWindow", active))) return preview;
    std::int32_t a = 0, b = 0;
    const bool same = host::SameIdentity(window, active) ||
                      (SUCCEEDED(host::GetInt32(window, u"HWND", a)) &&
                       SUCCEEDED(host::GetInt32(active, u"HWND", b)) && a != 0 && a == b);
    std::int32_t type = 0;
    if (!same || FAILED(host::GetObject(window, u"Selection", selection)) ||
        FAILED(host::GetInt32(selection, u"Type", type))) {
        return preview;
    }
    HostRef range;
    std::int32_t n = 0;
    if (type == 3) {
        if (FAILED(host::GetObject(selection, u"TextRange", range)) ||
            FAILED(host::GetInt32(range, u"Length", n)) || n < 1) {
            return preview;
        }
        preview.chars = n;
        preview.label = u"\u5df2\u9009 " + DecimalText(n) + u" \u5b57";
    } else if (type == 2) {
        std::int32_t hasChild = 0;
        if (SUCCEEDED(host::GetInt32(selection, u"HasChildShapeRange", hasChild)) &&
            hasChild == -1) {
            (void)host::GetObject(selection, u"ChildShapeRange", range);
        } else {
            (void)host::GetObject(selection, u"ShapeRange", range);
        }
        if (FAILED(host::GetInt32(range, u"Count", n)) || n < 1) return preview;
        preview.label = u"\u5df2\u9009 " + DecimalText(n) + u" \u4e2a\u5f62\u72b6";
    } else if (type == 1) {
        if (FAILED(host::GetObject(selection, u"SlideRange", range)) ||
            FAILED(host::GetInt32(range, u"Count", n)) || n < 1) {
            return preview;
        }
        preview.label = u"\u5df2\u9009 " + DecimalText(n) + u" \u9875";
    } else {
        return preview;
    }
    preview.empty = false;
    preview.fragments = type == 3 ? 1 : n;
    return preview;
}

}  // namespace qb
