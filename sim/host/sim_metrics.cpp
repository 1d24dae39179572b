// Line layout and measurement of the simulated host's text frames.
#include "sim/host/sim_metrics.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "foundation/char_class.h"
#include "foundation/text.h"

namespace qb::sim {
namespace {

bool IsWide(char16_t c) {
    return (c >= 0x1100 && c <= 0x115F) || (c >= 0x2E80 && c <= 0xA4CF) ||
           (c >= 0xAC00 && c <= 0xD7A3) || (c >= 0xF900 && c <= 0xFAFF) ||
           (c >= 0xFE30 && c <= 0xFE4F) || (c >= 0xFF00 && c <= 0xFF60) ||
           (c >= 0xFFE0 && c <= 0xFFE6);
}

bool IsLineEnd(char16_t c) {
    return c == u'\r' || c == u'\v' || c == u'\n';
}
bool IsBlank(char16_t c) {
    return c == u' ' || c == u'\t' || c == 0x3000 || c == 0xA0;
}

const CharFormat& FormatAt(const TextFrameModel& frame, std::int32_t i) {
    if (i >= 0 && static_cast<std::size_t>(i) < frame.formats.size()) {
        return frame.formats[static_cast<std::size_t>(i)];
    }
    return frame.formats.empty() ? frame.defaultFormat : frame.formats.back();
}

float SizeAt(const TextFrameModel& frame, std::int32_t i) {
    return FormatAt(frame, i).size;
}

// The installed source, owned here with its lock; a layout takes a copy of
// the pointer once, so a source swapped meanwhile outlives that layout.
std::mutex sourceLock;
std::shared_ptr<AdvanceSource> installedSource;

}  // namespace

bool IsWideUnit(char16_t unit) {
    return IsWide(unit);
}

void SetAdvanceSource(std::shared_ptr<AdvanceSource> source) {
    const std::lock_guard<std::mutex> lock(sourceLock);
    installedSource = std::move(source);
}

std::shared_ptr<AdvanceSource> CurrentAdvanceSource() {
    const std::lock_guard<std::mutex> lock(sourceLock);
    return installedSource;
}

ScopedAdvanceSource::ScopedAdvanceSource(std::shared_ptr<AdvanceSource> source)
    : previous_(CurrentAdvanceSource()) {
    SetAdvanceSource(std::move(source));
}

ScopedAdvanceSource::~ScopedAdvanceSource() {
    SetAdvanceSource(std::move(previous_));
}

float CharAdvance(char16_t c, float size) {
    if (IsLineEnd(c)) return 0;
    if (c == u'\t') return 2.0f * size;
    if (c == 0x3000) return size;
    if (IsBlank(c)) return 0.25f * size;
    if (IsWide(c)) return size;
    if (c >= u'A' && c <= u'Z') return 0.62f * size;
    if (IsDigit(c)) return 0.55f * size;
    if (IsLetter(c)) return 0.5f * size;
    if (IsLowSurrogate(c)) return 0;  // the pair counts once, at its first unit
    if (IsHighSurrogate(c)) return size;
    return 0.3f * size;  // punctuation and symbols
}

std::vector<TextLine> LayoutFrame(const ShapeModel& shape) {
    const TextFrameModel& frame = shape.frame;
    const std::u16string& text = frame.text;
    const std::shared_ptr<AdvanceSource> source = CurrentAdvanceSource();
    const auto advanceAt = [&](std::int32_t i) {
        const char16_t c = text[static_cast<std::size_t>(i)];
        if (source) {
            const std::optional<float> a = source->Advance(c, FormatAt(frame, i));
            if (a) return *a;
        }
        return CharAdvance(c, SizeAt(frame, i));
    };
    const float box = std::max(
        1.0f, shape.width - std::max(0.0f, frame.marginLeft) - std::max(0.0f, frame.marginRight));
    std::vector<TextLine> lines;
    const auto n = static_cast<std::int32_t>(text.size());
    TextLine line;
    float run = 0;                // width so far, blanks included
    std::int32_t lastBreak = -1;  // index after which the line may break
    float widthAtBreak = 0;       // width of the line up to that break, trailing blanks out
    const auto finish = [&](std::int32_t end, float width) {
        line.end = end;
        line.width = width;
        float maxSize = 0;
        for (std::int32_t i = line.start; i < end; ++i)
            maxSize = std::max(maxSize, SizeAt(frame, i));
        if (maxSize == 0) maxSize = SizeAt(frame, line.start);
        line.height = 1.2f * maxSize;
        lines.push_back(line);
        line = TextLine();
        line.start = end;
        run = 0;
        lastBreak = -1;
        widthAtBreak = 0;
    };
    float trimmed = 0;  // width without trailing blanks
    for (std::int32_t i = 0; i < n; ++i) {
        const char16_t c = text[static_cast<std::size_t>(i)];
        if (IsLineEnd(c)) {
            finish(i + 1, trimmed);
            trimmed = 0;
            continue;
        }
        const float advance = advanceAt(i);
        if (IsBlank(c)) {
            run += advance;
            lastBreak = i;
            widthAtBreak = trimmed;
            continue;
        }
        if (frame.wordWrap && run + advance > box && i > line.start) {
            if (IsWide(c) || lastBreak < line.start) {
                // Break before this unit: CJK may break anywhere, and a word
                // longer than the box breaks where it must.
                finish(i, trimmed);
            } else {
                const std::int32_t resume = lastBreak + 1;
                finish(resume, widthAtBreak);
                for (std::int32_t k = resume; k < i; ++k) {
                    run += advanceAt(k);
                }
            }
            trimmed = run;
        }
        if (IsWide(c)) {
            lastBreak = i;
            widthAtBreak = run + advance;
        }
        run += advance;
        trimmed = run;
    }
    // The last line; a frame ending in a line end so has an empty one more.
    finish(n, trimmed);
    return lines;
}

TextBounds MeasureRange(const ShapeModel& shape, std::int32_t start, std::int32_t length) {
    const std::vector<TextLine> lines = LayoutFrame(shape);
    TextBounds bounds;
    bounds.left = shape.left + std::max(0.0f, shape.frame.marginLeft);
    float top = shape.top + std::max(0.0f, shape.frame.marginTop);
    bool first = true;
    const std::int32_t end = start + std::max(0, length);
    for (const TextLine& line : lines) {
        const bool holds =
            length > 0 ? (line.start < end && line.end > start)
                       : (start >= line.start && (start < line.end || &line == &lines.back()));
        if (holds) {
            if (first) bounds.top = top;
            first = false;
            bounds.width = std::max(bounds.width, line.width);
            bounds.height += line.height;
        }
        top += line.height;
    }
    return bounds;
}

}  // namespace qb::sim
