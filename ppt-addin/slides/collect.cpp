// Collection of a deck or the current slide into the run's units.
#include "slides/collect.h"

#include "charts/bilingual_copy.h"
#include "foundation/char_class.h"
#include "foundation/text.h"
#include "foundation/trace.h"
#include "slides/automation.h"

namespace qb {

using host::HostRef;
using host::Variant;
using host::VarType;

namespace {

constexpr std::size_t kPhraseLimit = 30;
constexpr std::u16string_view kPhrasePunctuation =
    u"\uff0c\u3002\uff01\uff1f\uff1b\uff1a\u3001,.!?;:";

bool IsCjk(char16_t c) {
    return (c >= 0x4E00 && c <= 0x9FFF) || (c >= 0x3040 && c <= 0x30FF) ||
           (c >= 0xAC00 && c <= 0xD7AF);
}

// A frame may go as one unit only in a plain shape on the slide itself.
bool OpenToCollapse(const UnitAddress& context, std::int32_t paragraphs) {
    return paragraphs >= 2 && context.kind == UnitKind::Frame && context.onNotesPage == 0 &&
           context.row == 0 && context.column == 0;
}

// Paragraphs(index, 1) of a range, then its Text; empty on any failure.
bool ReadParagraph(const HostRef& range, std::int32_t index, std::u16string& text) {
    const Variant args[2] = {Variant::I4(1), Variant::I4(index)};
    Variant paragraph;
    if (FAILED(host::DispCall(range, u"Paragraphs", args, 2, &paragraph)) ||
        paragraph.Type() != VarType::Object || !paragraph.ObjectValue()) {
        return false;
    }
    return SUCCEEDED(host::GetString(paragraph.ObjectValue(), u"Text", text));
}

void CheckPath(ShapePath& child, const ShapePath& parent, std::int32_t index, bool beforeLeaf) {
    if (child.depth == parent.depth + 1 && child.index[child.depth - 1] == index) return;
    child = parent.Child(index);
    if (beforeLeaf) {
        Trace(u"PptCtrl shape path rebuilt before leaf index=" + DecimalText(index) + u"\r\n");
    } else {
        Trace(u"PptCtrl shape path rebuilt index=" + DecimalText(index) + u" depth=" +
              DecimalText(child.depth) + u"\r\n");
    }
}

}  // namespace

bool ShouldSkip(std::u16string_view text) {
    for (char16_t c : text) {
        if (IsSpace(c)) continue;
        if (IsCjk(c) || IsLetter(c)) return false;
    }
    return true;
}

bool PassesPhraseTest(const std::vector<std::u16string>& paragraphs) {
    std::size_t total = 0;
    bool anyText = false;
    for (const std::u16string& paragraph : paragraphs) {
        for (char16_t c : paragraph) {
            if (!IsCjk(c) && !IsDigit(c) && !IsSpace(c)) return false;
            if (kPhrasePunctuation.find(c) != std::u16string_view::npos) return false;
        }
        anyText = anyText || !paragraph.empty();
        total += paragraph.size();
    }
    return anyText && total <= kPhraseLimit;
}

void SlideCollector::WalkShapes(const HostRef& shapes, std::int32_t slideIndex,
                                const ShapePath& parentPath, const UnitAddress& context) {
    if (!shapes) return;
    if (parentPath.depth > static_cast<std::uint32_t>(kMaxShapeDepth)) {
        Trace(u"PptCtrl walk shapes path unusable\r\n");
        return;
    }
    if (parentPath.depth == static_cast<std::uint32_t>(kMaxShapeDepth)) {
        Trace(u"PptCtrl walk shapes depth limit\r\n");
        return;
    }
    std::int32_t count = 0;
    if (FAILED(host::GetInt32(shapes, u"Count", count))) count = 0;
    for (std::int32_t index = 1; index <= count; ++index) {
        HostRef shape;
        if (FAILED(host::GetItem(shapes, index, shape))) continue;
        ShapePath child = parentPath.Child(index);
        CheckPath(child, parentPath, index, false);

        HostRef group;
        if (GetGroupItems(shape, group)) {
            // The group's own text frame is not read: its items carry the text.
            WalkGroupItems(group, slideIndex, child, context);
            continue;
        }

        CheckPath(child, parentPath, index, true);
        CollectLeaf(shape, slideIndex, child, context);
    }
}

void SlideCollector::CollectLeaf(const HostRef& shape, std::int32_t slideIndex,
                                 const ShapePath& path, const UnitAddress& context) {
    std::int32_t hasTable = 0;
    if (SUCCEEDED(host::GetInt32(shape, u"HasTable", hasTable)) && hasTable == -1) {
        CollectTable(shape, slideIndex, path, context);
    } else if (!offer_ || !offer_(shape, slideIndex, path, context, lists_)) {
        CollectFrame(shape, slideIndex, path, context);
    }
}

void SlideCollector::CollectShape(const HostRef& shape, std::int32_t slideIndex,
                                  const ShapePath& path, const UnitAddress& context) {
    HostRef group;
    if (GetGroupItems(shape, group)) {
        WalkGroupItems(group, slideIndex, path, context);
    } else {
        CollectLeaf(shape, slideIndex, path, context);
    }
}

void SlideCollector::WalkGroupItems(const HostRef& groupShapes, std::int32_t slideIndex,
                                    const ShapePath& parentPath, const UnitAddress& context) {
    WalkShapes(groupShapes, slideIndex, parentPath, context);
}

void SlideCollector::CollectTable(const HostRef& tableShape, std::int32_t slideIndex,
                                  const ShapePath& path, const UnitAddress& context) {
    HostRef table;
    std::int32_t rowCount = 0, columnCount = 0;
    if (!ReadTable(tableShape, table, rowCount, columnCount)) return;
    for (std::int32_t row = 1; row <= rowCount; ++row) {
        for (std::int32_t column = 1; column <= columnCount; ++column) {
            HostRef cellShape;
            if (!GetCellShape(table, row, column, cellShape)) continue;
            UnitAddress cellContext = context;
            cellContext.kind = UnitKind::TableCell;
            cellContext.row = row;
            cellContext.column = column;
            CollectFrame(cellShape, slideIndex, path, cellContext);
        }
    }
}

void SlideCollector::CollectFrame(const HostRef& shape, std::int32_t slideIndex,
                                  const ShapePath& path, const UnitAddress& context) {
    std::int32_t hasFrame = 0, hasText = 0, count = 0;
    HostRef frame, range;
    if (FAILED(host::GetInt32(shape, u"HasTextFrame", hasFrame)) || hasFrame != -1 ||
        FAILED(host::GetObject(shape, u"TextFrame", frame)) ||
        FAILED(host::GetInt32(frame, u"HasText", hasText)) || hasText != -1 ||
        FAILED(host::GetObject(frame, u"TextRange", range))) {
        return;
    }
    const Variant all[2] = {Variant::I4(-1), Variant::I4(-1)};
    Variant paragraphs;
    if (FAILED(host::DispCall(range, u"Paragraphs", all, 2, &paragraphs)) ||
        paragraphs.Type() != VarType::Object ||
        FAILED(host::GetInt32(paragraphs.ObjectValue(), u"Count", count)) || count <= 0) {
        return;
    }

    const std::u16string key = ShapeKey(path);
    std::int32_t type = -2;
    if (!ReadShapeType(shape, type)) type = -2;
    std::u16string name;
    (void)host::GetString(shape, u"Name", name);
    Trace(u"PptCtrl shape slides[" + DecimalText(slideIndex) + u"] " + key + u" depth=" +
          DecimalText(path.depth) + u" type=" + DecimalText(type) + u" name=" + name + u" paras=" +
          DecimalText(count) + u"\r\n");

    std::vector<std::u16string> texts(static_cast<std::size_t>(count));
    std::vector<std::uint8_t> endsInCr(static_cast<std::size_t>(count), 0);
    for (std::int32_t i = 1; i <= count; ++i) {
        std::u16string text;
        if (!ReadParagraph(range, i, text)) continue;
        endsInCr[i - 1] = !text.empty() && text.back() == u'\r';
        while (!text.empty() && (text.back() == u'\r' || text.back() == u'\n'))
            text.pop_back();
        texts[i - 1] = std::move(text);
    }

    const bool open = OpenToCollapse(context, count);
    const bool phrase = open && PassesPhraseTest(texts);
    std::u16string frameText;
    if (open) {
        for (const std::u16string& text : texts)
            frameText += text;
    }
    bool whole = phrase;
    for (const std::u16string& text : texts)
        whole = whole && !text.empty() && !ShouldSkip(text);

    const std::vector<std::int32_t> pathVector = path.ToVector();
    if (whole) {
        Trace(u"PptCtrl frame collapse slides[" + DecimalText(slideIndex) + u"] " + key +
              u" paras=" + DecimalText(count) + u"\r\n");
        TextUnit unit;
        unit.slideIndex = slideIndex;
        unit.unitId = key + u".frame";
        unit.hostText = frameText;
        unit.frameCollapsed = 1;
        unit.sourceText = frameText;
        unit.paragraphCount = count;
        UnitAddress address = context;
        address.slideIndex = slideIndex;
        address.shapePath = pathVector;
        address.wholeFrame = 1;
        address.paragraphIndex = 0;
        AddUnit(std::move(unit), std::move(address));
        return;
    }

    for (std::int32_t i = 1; i <= count; ++i) {
        const std::u16string& text = texts[i - 1];
        if (ShouldSkip(text)) {
            Trace(u"PptCtrl skip: slides[" + DecimalText(slideIndex) + u"] \"" + text +
                  u"\" (ShouldSkip)\r\n");
            continue;
        }
        TextUnit unit;
        unit.slideIndex = slideIndex;
        unit.unitId = key + u".p" + DecimalText(i);
        unit.hostText = text;
        unit.paragraphFlag = endsInCr[i - 1];
        unit.frameCollapsed = phrase ? 1 : 0;
        unit.sourceText = frameText;
        unit.paragraphCount = count;
        UnitAddress address = context;
        address.slideIndex = slideIndex;
        address.shapePath = pathVector;
        address.paragraphIndex = i;
        address.paragraphEndsInCr = endsInCr[i - 1];
        AddUnit(std::move(unit), std::move(address));
    }
}

void SlideCollector::AddUnit(TextUnit unit, UnitAddress address) {
    lists_.texts.push_back(unit.hostText);
    lists_.units.push_back(std::move(unit));
    lists_.addresses.push_back(std::move(address));
}

HRESULT CurrentSlide(const HostRef& window, HostRef& outSlide) {
    if (!window) return E_FAIL;
    HostRef view, slide;
    RETURN_IF_FAILED(host::GetObject(window, u"View", view));
    RETURN_IF_FAILED(host::GetObject(view, u"Slide", slide));
    if (!slide->Answers(host::HostInterface::Slide)) return E_NOINTERFACE;
    outSlide = std::move(slide);
    return S_OK;
}

HRESULT OpenRunSlides(const RunContext& run, HostRef& slides, std::u16string& outMessage) {
    if (!run.application || !run.application->Answers(host::HostInterface::Application)) {
        outMessage = u"\u65e0\u6cd5\u83b7\u53d6 Application \u63a5\u53e3";
        return E_FAIL;
    }
    if (!run.presentation) {
        outMessage =
            u"\u65e0\u6cd5\u5b9a\u4f4d\u5f53\u524d\u6f14\u793a\u6587\u7a3f\uff08\u8bf7"
            u"\u91cd\u65b0\u6253\u5f00\u4fa7\u680f\uff09";
        return E_FAIL;
    }
    Variant slidesValue;
    const HRESULT hr = host::DispGet(run.presentation, u"Slides", &slidesValue);
    if (FAILED(hr) || slidesValue.Type() != VarType::Object || !slidesValue.ObjectValue()) {
        outMessage = u"\u65e0\u6cd5\u8bbf\u95ee Slides";
        return FAILED(hr) ? hr : E_FAIL;
    }
    slides = slidesValue.ObjectValue();
    return S_OK;
}

HRESULT CollectDeck(const RunContext& run, bool fullDeck, RunLists& lists,
                    std::u16string& outMessage, const ShapeOffer& offer) {
    HostRef slides;
    RETURN_IF_FAILED(OpenRunSlides(run, slides, outMessage));
    std::int32_t count = 0;
    if (FAILED(host::GetInt32(slides, u"Count", count))) count = 0;
    std::int32_t first = 1, last = count;
    if (!fullDeck) {
        HostRef current;
        std::int32_t index = 0;
        if (FAILED(CurrentSlide(run.window, current)) ||
            FAILED(host::GetInt32(current, u"SlideIndex", index))) {
            outMessage = u"\u65e0\u6cd5\u5b9a\u4f4d\u5f53\u524d\u9875";
            return E_FAIL;
        }
        first = last = index;
    }

    lists.firstSlide = first;
    lists.spans.clear();
    lists.slideIndexes.clear();
    SlideCollector collector(lists, offer);
    UnitAddress slideContext;
    UnitAddress notesContext;
    notesContext.kind = UnitKind::NotesFrame;
    notesContext.onNotesPage = 1;
    const RunCallbacks* callbacks = run.callbacks;
    for (std::int32_t i = first; i <= last; ++i) {
        const auto before = static_cast<std::int32_t>(lists.texts.size());
        if (callbacks && callbacks->onScanProgress) {
            callbacks->onScanProgress(i - first + 1, last - first + 1, u"slides");
        }
        HostRef slide, shapes;
        if (FAILED(host::GetItem(slides, i, slide)) || IsBilingualCopy(slide) ||
            FAILED(host::GetObject(slide, u"Shapes", shapes))) {
            continue;
        }
        collector.WalkShapes(shapes, i, ShapePath(), slideContext);
        HostRef notes, notesShapes;
        if (SUCCEEDED(host::GetObject(slide, u"NotesPage", notes)) &&
            SUCCEEDED(host::GetObject(notes, u"Shapes", notesShapes))) {
            collector.WalkShapes(notesShapes, i, ShapePath(), notesContext);
        }
        lists.spans.push_back({before, static_cast<std::int32_t>(lists.texts.size())});
        lists.slideIndexes.push_back(i);
    }
    return S_OK;
}

}  // namespace qb
