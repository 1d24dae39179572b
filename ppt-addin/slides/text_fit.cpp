// The text fit over the host-object seam, and the arithmetic behind it.
#include "slides/text_fit.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "foundation/text.h"
#include "foundation/trace.h"
#include "slides/automation.h"

namespace qb {
namespace {

using host::HostRef;
using host::Variant;

constexpr float kRestoreTolerance = 1.5f;
constexpr float kMinFontSize = 5.0f;
constexpr float kNoRealChangeScale = 0.855f;  // 0.95 x 0.9
constexpr int kMaxShrinkPasses = 6;
constexpr std::int32_t kWrapOff = 0;
constexpr std::int32_t kWrapOn = -1;

// A failed put is no reason to stop: the fit is a best effort.
void PutQuietly(const HostRef& object, std::u16string_view name, const Variant& value) {
    (void)host::DispPut(object, name, value);
}

// A value that can be put back as it was read.
bool ReadNumber(const HostRef& object, std::u16string_view name, std::int32_t& out) {
    Variant value;
    if (FAILED(host::DispGet(object, name, &value))) return false;
    switch (value.Type()) {
        case host::VarType::Bool:
        case host::VarType::I2:
        case host::VarType::I4:
        case host::VarType::R4:
        case host::VarType::R8:
            return value.ToInt32(out);
        default:
            return false;
    }
}

bool ReadPositive(const HostRef& object, std::u16string_view name, float& out) {
    float value = 0;
    if (FAILED(host::GetFloat(object, name, value)) || !(value > 0)) return false;
    out = value;
    return true;
}

// What auto-size was before the fit switched it off, on both frames.
struct AutoSizeState {
    HostRef frame;
    HostRef frame2;
    std::int32_t value = 0;
    std::int32_t value2 = 0;
    bool read = false;
    bool read2 = false;

    // Both values are read before either is switched off: on hosts where the
    // two frames share one property, the second would otherwise read the 0
    // just put through the first, and giving back would undo the first.
    void SwitchOff(const HostRef& shape, const HostRef& textFrame) {
        frame = textFrame;
        read = ReadNumber(frame, u"AutoSize", value);
        HostRef second;
        if (SUCCEEDED(host::GetObject(shape, u"TextFrame2", second))) {
            frame2 = second;
            read2 = ReadNumber(frame2, u"AutoSize", value2);
        }
        PutQuietly(frame, u"AutoSize", Variant::I4(0));
        if (read2) PutQuietly(frame2, u"AutoSize", Variant::I4(0));
    }

    void GiveBack() const {
        if (read) PutQuietly(frame, u"AutoSize", Variant::I4(value));
        if (read2) PutQuietly(frame2, u"AutoSize", Variant::I4(value2));
    }
};

// Puts the snapshot's box back when the host moved or resized the shape.
bool RestoreBox(const HostRef& shape, const GeometrySnapshot& snapshot) {
    float left = 0, top = 0, width = 0, height = 0;
    if (FAILED(host::GetFloat(shape, u"Left", left)) ||
        FAILED(host::GetFloat(shape, u"Top", top)) ||
        FAILED(host::GetFloat(shape, u"Width", width)) ||
        FAILED(host::GetFloat(shape, u"Height", height)) || !(width > 0) || !(height > 0)) {
        return false;
    }
    const auto moved = [](float now, float before) {
        return std::fabs(now - before) > kRestoreTolerance;
    };
    if (!moved(left, snapshot.left) && !moved(top, snapshot.top) && !moved(width, snapshot.width) &&
        !moved(height, snapshot.height)) {
        return false;
    }
    PutQuietly(shape, u"Left", Variant::R4(snapshot.left));
    PutQuietly(shape, u"Top", Variant::R4(snapshot.top));
    PutQuietly(shape, u"Width", Variant::R4(snapshot.width));
    PutQuietly(shape, u"Height", Variant::R4(snapshot.height));
    return true;
}

float MarginOrZero(const HostRef& frame, std::u16string_view name) {
    float value = 0;
    if (FAILED(host::GetFloat(frame, name, value))) return 0;
    return value;
}

void TraceFit(FitMode mode, bool restored, bool shrunk, const FitMeasure& last,
              const FitBounds& bounds) {
    char line[512];  // room for five of the widest floats
    const int n = std::snprintf(
        line, sizeof line,
        "PptFit mode=%s restored=%d shrunk=%d boundW=%.1f contentW=%.1f shape=%.1fx%.1f "
        "slideW=%.1f\r\n",
        FitModeName(mode), restored ? 1 : 0, shrunk ? 1 : 0,
        static_cast<double>(last.hasW ? last.w : 0.0f), static_cast<double>(bounds.contentW),
        static_cast<double>(bounds.width), static_cast<double>(bounds.height),
        static_cast<double>(bounds.slideW));
    if (n <= 0) return;
    const std::size_t length = std::min(static_cast<std::size_t>(n), sizeof line - 1);
    Trace(AsciiToUtf16(std::string_view(line, length)));
}

}  // namespace

GeometrySnapshot CaptureGeometry(const host::HostRef& shape) {
    GeometrySnapshot s;
    if (FAILED(host::GetFloat(shape, u"Left", s.left)) ||
        FAILED(host::GetFloat(shape, u"Top", s.top)) ||
        FAILED(host::GetFloat(shape, u"Width", s.width)) ||
        FAILED(host::GetFloat(shape, u"Height", s.height))) {
        return GeometrySnapshot();
    }
    s.valid = s.width > 0 && s.height > 0;
    return s;
}

FitMeasure MeasureText(const host::HostRef& textRange) {
    FitMeasure m;
    m.hasH = ReadPositive(textRange, u"BoundHeight", m.h);
    m.hasW = ReadPositive(textRange, u"BoundWidth", m.w);
    float left = 0;
    if (SUCCEEDED(host::GetFloat(textRange, u"BoundLeft", left))) m.left = left;
    return m;
}

FitBounds DeriveFitBounds(float width, float height, float marginLeft, float marginRight,
                          float slideW) {
    FitBounds b;
    b.width = width;
    b.height = height;
    const float content =
        width - (marginLeft > 0 ? marginLeft : 0.0f) - (marginRight > 0 ? marginRight : 0.0f);
    // Margins that leave too little room are not what limits the text.
    b.contentW = content < 8.0f || content < width * 0.5f ? width : content;
    b.hTol = 0.02f * height + 1.0f;
    b.wTol = 0.02f * b.contentW + 1.0f;
    b.slideW = slideW;
    return b;
}

bool TooHigh(const FitMeasure& m, const FitBounds& b) {
    return m.hasH && m.h > b.height + b.hTol;
}

bool TooWide(const FitMeasure& m, const FitBounds& b) {
    if (!m.hasW) return false;
    if (m.w > b.contentW + b.wTol) return true;
    return b.slideW > 1.0f && (m.left < -1.0f || m.left + m.w > b.slideW + 1.0f);
}

float FitFactor(const FitMeasure& m, const FitBounds& b) {
    float f = 0.95f;
    if (m.hasH && m.h > b.height + b.hTol) f = std::min(0.95f, b.height / m.h * 0.97f);
    if (m.hasW) {
        if (m.w > b.contentW + b.wTol) f = std::min(f, b.contentW / m.w * 0.97f);
        if (b.slideW > 1.0f) {
            const float overL = m.left < 0 ? -m.left : 0.0f;
            const float pastRight = m.left + m.w - b.slideW;
            const float overR = pastRight > 0 ? pastRight : 0.0f;
            if (overL + overR > 1.0f && m.w > 0) {
                f = std::min(f, std::max(8.0f, m.w - overL - overR) / m.w * 0.97f);
            }
        }
    }
    // Written so that a NaN from a broken host ends at the bottom.
    if (!(f >= 0.1f)) return 0.1f;
    return f > 0.95f ? 0.95f : f;
}

const char* FitModeName(FitMode mode) {
    switch (mode) {
        case FitMode::Wrap:
            return "wrap";
        case FitMode::Height:
            return "height";
        case FitMode::OneLine:
            return "oneLine";
        case FitMode::Fit:
            break;
    }
    return "fit";
}

FitMode ChooseFitMode(const FitMeasure& a, const FitMeasure& b, const FitBounds& bounds) {
    const bool fitsA = a.hasH && !TooHigh(a, bounds);
    const bool fitsB = b.hasH && !TooHigh(b, bounds);
    const bool shortA = a.hasH && a.h * 1.8f > bounds.height;
    // One line too wide for the box, yet too many lines for it when wrapped.
    if (TooWide(a, bounds) && fitsA && shortA && b.hasH && !fitsB) return FitMode::OneLine;
    if (b.hasH && (!fitsB || TooWide(b, bounds))) return FitMode::Height;
    if (TooWide(a, bounds) && fitsB && !TooWide(b, bounds)) return FitMode::Wrap;
    return FitMode::Fit;
}

bool ScaleRunFonts(const host::HostRef& textRange, float factor, float minSize, bool& changed) {
    const Variant all[2] = {Variant::I4(-1), Variant::I4(-1)};
    Variant value;
    if (FAILED(host::DispCall(textRange, u"Runs", all, 2, &value)) ||
        value.Type() != host::VarType::Object || !value.ObjectValue()) {
        return false;
    }
    const HostRef runs = value.ObjectValue();
    std::int32_t count = 0;
    if (FAILED(host::GetInt32(runs, u"Count", count))) count = 0;
    // Every run is taken before any size changes: a run that shrinks to its
    // neighbour's size merges with it, and the indexes after it move.
    std::vector<HostRef> each;
    for (std::int32_t i = 1; i <= count; ++i) {
        const Variant args[2] = {Variant::I4(1), Variant::I4(i)};  // Runs(i, 1), last first
        Variant run;
        if (FAILED(host::DispCall(runs, u"Runs", args, 2, &run)) ||
            run.Type() != host::VarType::Object || !run.ObjectValue()) {
            continue;
        }
        each.push_back(run.ObjectValue());
    }
    for (const HostRef& run : each) {
        HostRef font;
        float size = 0;
        if (FAILED(host::GetObject(run, u"Font", font)) ||
            FAILED(host::GetFloat(font, u"Size", size))) {
            continue;
        }
        // Also keeps a mixed size (-2) and anything unreadable as it is.
        if (!(size > minSize)) continue;
        const float scaled = std::max(size * factor, minSize);
        if (!(scaled < size)) continue;
        if (SUCCEEDED(host::DispPut(font, u"Size", Variant::R4(scaled)))) changed = true;
    }
    return true;
}

void FitShape(const host::HostRef& shape, const GeometrySnapshot* snapshot, float slideW) {
    // 1. The frame and its text.
    HostRef frame, textRange;
    if (FAILED(host::GetObject(shape, u"TextFrame", frame)) ||
        FAILED(host::GetObject(frame, u"TextRange", textRange))) {
        return;
    }

    // 2. Auto-size off first, or the host undoes the restore and the shrink.
    AutoSizeState autoSize;
    autoSize.SwitchOff(shape, frame);

    // 3. The box as it was before the write.
    const bool restored = snapshot && snapshot->valid && RestoreBox(shape, *snapshot);
    const auto giveUp = [&] {
        // A restored box must not be changed again by the host.
        if (!restored) autoSize.GiveBack();
    };

    // 4. The box the text has to fit.
    float width = 0, height = 0;
    if (!ReadPositive(shape, u"Width", width) || !ReadPositive(shape, u"Height", height)) {
        giveUp();
        return;
    }

    // 5. Derived values, and the wrap to come back to.
    const FitBounds bounds = DeriveFitBounds(width, height, MarginOrZero(frame, u"MarginLeft"),
                                             MarginOrZero(frame, u"MarginRight"), slideW);
    std::int32_t oldWrap = 0;
    const bool wrapRead = ReadNumber(frame, u"WordWrap", oldWrap);

    // 6. One measure on a single line, one wrapped.
    PutQuietly(frame, u"WordWrap", Variant::I4(kWrapOff));
    const FitMeasure a = MeasureText(textRange);
    PutQuietly(frame, u"WordWrap", Variant::I4(kWrapOn));
    const FitMeasure b = MeasureText(textRange);
    if (!a.hasH && !b.hasH) {
        giveUp();
        return;
    }

    // 7. The mode, and the wrap it asks for.
    const FitMode mode = ChooseFitMode(a, b, bounds);
    bool wrapOn = true;
    switch (mode) {
        case FitMode::OneLine:
            wrapOn = false;
            PutQuietly(frame, u"WordWrap", Variant::I4(kWrapOff));
            break;
        case FitMode::Height:
        case FitMode::Wrap:
            PutQuietly(frame, u"WordWrap", Variant::I4(kWrapOn));
            break;
        case FitMode::Fit:
            // Without a remembered value there is nothing to go back to, and
            // no proof that the wrap is as it was.
            if (wrapRead) {
                wrapOn = oldWrap != 0;
                PutQuietly(frame, u"WordWrap", Variant::I4(oldWrap));
            }
            break;
    }

    // 8. Shrink, each pass from the sizes the last one left.
    bool shrunk = false;
    if (mode == FitMode::OneLine || mode == FitMode::Height) {
        FitMeasure m = mode == FitMode::OneLine ? a : b;
        if (!m.hasH) m = a.hasH ? a : b;
        float scale = FitFactor(m, bounds);
        // The measure asks for no real change: take one real step anyway.
        if (scale >= 0.95f) scale = kNoRealChangeScale;
        for (int pass = 0; pass < kMaxShrinkPasses && scale < 1.0f && scale >= 0.1f; ++pass) {
            if (!ScaleRunFonts(textRange, scale, kMinFontSize, shrunk)) break;
            const FitMeasure n = MeasureText(textRange);
            if (!n.hasH || (!TooHigh(n, bounds) && !TooWide(n, bounds))) break;
            float next = FitFactor(n, bounds);
            if (!(next < scale)) next = scale * 0.9f;
            scale = next;
        }
    }

    // 9. Nothing to tell: the shape is as the host had it.
    const bool wrapAsBefore = wrapRead && wrapOn == (oldWrap != 0);
    if (!restored && !shrunk && wrapAsBefore) {
        autoSize.GiveBack();
        return;
    }

    // 10. Auto-size stays off: the box worked out here must stay.
    TraceFit(mode, restored, shrunk, MeasureText(textRange), bounds);
}

}  // namespace qb
