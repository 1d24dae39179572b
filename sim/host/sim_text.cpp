// The simulated text objects: text frames, text ranges with their
// paragraphs, characters and runs, fonts and colour formats.
#include <algorithm>

#include "sim/host/sim_metrics.h"
#include "sim/host/sim_object.h"

namespace qb::sim::detail {
namespace {

using host::HostInterface;

struct Span {
    std::int32_t start;
    std::int32_t end;
};

// Paragraphs over the frame: each ends after its CR; the last has none.
std::vector<Span> Paragraphs(const std::u16string& text) {
    std::vector<Span> spans;
    std::int32_t start = 0;
    for (std::int32_t i = 0; i < static_cast<std::int32_t>(text.size()); ++i) {
        if (text[static_cast<std::size_t>(i)] == u'\r') {
            spans.push_back({start, i + 1});
            start = i + 1;
        }
    }
    spans.push_back({start, static_cast<std::int32_t>(text.size())});
    return spans;
}

// Runs: spans of one format that never cross a paragraph end.
std::vector<Span> Runs(const TextFrameModel& frame) {
    std::vector<Span> spans;
    const auto n = static_cast<std::int32_t>(frame.text.size());
    std::int32_t start = 0;
    for (std::int32_t i = 1; i <= n; ++i) {
        const bool paragraphEnd = frame.text[static_cast<std::size_t>(i - 1)] == u'\r';
        if (i == n || paragraphEnd ||
            frame.formats[static_cast<std::size_t>(i)] !=
                frame.formats[static_cast<std::size_t>(start)]) {
            spans.push_back({start, i});
            start = i;
        }
    }
    return spans;
}

// The spans that overlap [start, end); an empty range picks the span it stands in.
std::vector<Span> Overlapping(const std::vector<Span>& all, std::int32_t start, std::int32_t end) {
    std::vector<Span> out;
    for (const Span& s : all) {
        const bool overlaps = end > start
                                  ? (s.start < end && s.end > start)
                                  : (start >= s.start && (start < s.end || &s == &all.back()));
        if (overlaps) out.push_back(s);
    }
    return out;
}

// Scheme colours as RGB (the first sixteen slots of a theme).
std::int32_t SchemeRgb(std::int32_t scheme) {
    static const std::int32_t table[] = {0x000000, 0xFFFFFF, 0x7F7F7F, 0x44546A, 0xC47244, 0x317DED,
                                         0x07C0FF, 0x47AD70, 0xC1954F, 0x5E9E5B, 0xDA9A36, 0x828282,
                                         0x000000, 0xFFFFFF, 0xE7E6E6, 0x0000FF};
    return scheme >= 1 && scheme <= 16 ? table[scheme - 1] : 0;
}

// The part of a frame that a font or colour object stands for.
struct FrameSlice {
    std::shared_ptr<ShapeModel> shape;
    std::int32_t start;
    std::int32_t length;

    TextFrameModel& Frame() const { return shape->frame; }
    // The formats covered; an empty range stands for the format at its place.
    std::vector<CharFormat*> Formats() const {
        std::vector<CharFormat*> out;
        auto& formats = Frame().formats;
        for (std::int32_t i = start;
             i < start + length && i < static_cast<std::int32_t>(formats.size()); ++i) {
            out.push_back(&formats[static_cast<std::size_t>(i)]);
        }
        if (out.empty()) {
            if (start > 0 && start <= static_cast<std::int32_t>(formats.size())) {
                out.push_back(&formats[static_cast<std::size_t>(start - 1)]);
            } else if (!formats.empty()) {
                out.push_back(&formats.front());
            } else {
                out.push_back(&Frame().defaultFormat);
            }
        }
        return out;
    }
};

template <typename T, typename Field>
bool Uniform(const std::vector<CharFormat*>& formats, Field field, T& value) {
    value = formats.front()->*field;
    for (const CharFormat* f : formats) {
        if (!(f->*field == value)) return false;
    }
    return true;
}

class ColorFormatObject final : public SimObject {
  public:
    ColorFormatObject(SimHost& host, FrameSlice slice)
        : SimObject(host, u"ColorFormat"), slice_(std::move(slice)) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        const auto formats = slice_.Formats();
        std::int32_t i = 0;
        float f = 0;
        if (name == u"type") {
            result = I4(Uniform(formats, &CharFormat::colorType, i) ? i : -2);
        } else if (name == u"rgb") {
            Uniform(formats, &CharFormat::rgb, i);  // mixed colours read as the first one's
            result = I4(i);
        } else if (name == u"schemecolor") {
            if (!Uniform(formats, &CharFormat::colorType, i) || i != 2) return E_FAIL;
            Uniform(formats, &CharFormat::schemeColor, i);
            result = I4(i);
        } else if (name == u"tintandshade") {
            Uniform(formats, &CharFormat::tintAndShade, f);
            result = R4(f);
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }

    HRESULT Put(std::u16string_view name, const Args&, const Variant& value) override {
        std::int32_t n = 0;
        double d = 0;
        if (name == u"rgb") {
            if (!value.ToInt32(n)) return DISP_E_TYPEMISMATCH;
            for (CharFormat* f : slice_.Formats())
                f->rgb = n, f->colorType = 1;
        } else if (name == u"schemecolor") {
            if (!value.ToInt32(n)) return DISP_E_TYPEMISMATCH;
            if (n < 1 || n > 16) return E_INVALIDARG;
            for (CharFormat* f : slice_.Formats()) {
                f->schemeColor = n, f->colorType = 2, f->rgb = SchemeRgb(n);
            }
        } else if (name == u"tintandshade") {
            if (!value.ToDouble(d)) return DISP_E_TYPEMISMATCH;
            if (d < -1 || d > 1) return E_INVALIDARG;
            for (CharFormat* f : slice_.Formats())
                f->tintAndShade = static_cast<float>(d);
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }
    const void* FaultTarget() const override { return slice_.shape.get(); }

  private:
    FrameSlice slice_;
};

class FontObject final : public SimObject {
  public:
    FontObject(SimHost& host, FrameSlice slice)
        : SimObject(host, u"Font"), slice_(std::move(slice)) {}
    bool Answers(HostInterface which) const override { return which == HostInterface::Font; }

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        const auto formats = slice_.Formats();
        std::u16string text;
        std::int16_t flag = 0;
        float size = 0;
        if (name == u"size") {
            result = R4(Uniform(formats, &CharFormat::size, size) ? size : -2.0f);
        } else if (name == u"bold") {
            result = I4(Uniform(formats, &CharFormat::bold, flag) ? flag : -2);
        } else if (name == u"italic") {
            result = I4(Uniform(formats, &CharFormat::italic, flag) ? flag : -2);
        } else if (name == u"name") {
            result = Variant::String(Uniform(formats, &CharFormat::name, text) ? text : u"");
        } else if (name == u"nameascii") {
            result = Variant::String(Uniform(formats, &CharFormat::nameAscii, text) ? text : u"");
        } else if (name == u"namefareast") {
            result = Variant::String(Uniform(formats, &CharFormat::nameFarEast, text) ? text : u"");
        } else if (name == u"color") {
            result = Obj(std::make_shared<ColorFormatObject>(host_, slice_));
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }

    HRESULT Put(std::u16string_view name, const Args&, const Variant& value) override {
        std::u16string text;
        std::int32_t n = 0;
        double d = 0;
        const auto formats = slice_.Formats();
        if (name == u"size") {
            if (!value.ToDouble(d)) return DISP_E_TYPEMISMATCH;
            if (d < 1 || d > 4000) return E_INVALIDARG;
            for (CharFormat* f : formats)
                f->size = static_cast<float>(d);
            if (slice_.Frame().autoSize == 1) FitShapeToText(*slice_.shape);
        } else if (name == u"bold" || name == u"italic") {
            if (!value.ToInt32(n)) return DISP_E_TYPEMISMATCH;
            const std::int16_t flag = n != 0 ? -1 : 0;
            for (CharFormat* f : formats)
                (name == u"bold" ? f->bold : f->italic) = flag;
        } else if (name == u"name" || name == u"nameascii" || name == u"namefareast") {
            if (value.Type() != host::VarType::String) return DISP_E_TYPEMISMATCH;
            text = value.StringValue();
            for (CharFormat* f : formats) {
                // Name sets the ASCII slot, as the host's Name does; the East
                // Asian slot only changes through its own member.
                if (name == u"namefareast") {
                    f->nameFarEast = text;
                } else {
                    f->name = text;
                    f->nameAscii = text;
                }
            }
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }
    const void* FaultTarget() const override { return slice_.shape.get(); }

  private:
    FrameSlice slice_;
};

class TextRangeObject final : public SimObject {
  public:
    TextRangeObject(SimHost& host, std::shared_ptr<PresentationModel> deck,
                    std::shared_ptr<ShapeModel> shape, std::int32_t start, std::int32_t length,
                    RangeUnit unit)
        : SimObject(host, u"TextRange"),
          deck_(std::move(deck)),
          shape_(std::move(shape)),
          start_(start),
          length_(length),
          whole_(length < 0),
          unit_(unit) {}
    bool Answers(HostInterface which) const override { return which == HostInterface::TextRange; }

  protected:
    HRESULT Get(std::u16string_view name, const Args& args, Variant& result) override {
        if (shape_->deleted) return E_FAIL;
        Clamp();
        const TextFrameModel& frame = shape_->frame;
        if (name == u"text") {
            result = Variant::String(frame.text.substr(static_cast<std::size_t>(start_),
                                                       static_cast<std::size_t>(length_)));
        } else if (name == u"start") {
            result = I4(start_ + 1);
        } else if (name == u"length") {
            result = I4(length_);
        } else if (name == u"count") {
            result = I4(Count());
        } else if (name == u"paragraphs") {
            return Sub(Overlapping(Paragraphs(frame.text), start_, start_ + length_), args,
                       RangeUnit::Paragraphs, result);
        } else if (name == u"runs") {
            // The runs of a range are cut at its ends.
            std::vector<Span> runs = Overlapping(Runs(frame), start_, start_ + length_);
            for (Span& run : runs) {
                run.start = std::max(run.start, start_);
                run.end = std::min(run.end, std::max(start_ + length_, run.start));
            }
            return Sub(runs, args, RangeUnit::Runs, result);
        } else if (name == u"characters") {
            return Characters(args, result);
        } else if (name == u"font") {
            result = Obj(std::make_shared<FontObject>(host_, FrameSlice{shape_, start_, length_}));
        } else if (name == u"boundleft" || name == u"boundtop" || name == u"boundwidth" ||
                   name == u"boundheight") {
            const TextBounds b = MeasureRange(*shape_, start_, length_);
            result = R4(name == u"boundleft"    ? b.left
                        : name == u"boundtop"   ? b.top
                        : name == u"boundwidth" ? b.width
                                                : b.height);
        } else if (name == u"parent") {
            result = Obj(MakeTextFrame(host_, deck_, shape_));
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }

    HRESULT Put(std::u16string_view name, const Args&, const Variant& value) override {
        if (shape_->deleted) return E_FAIL;
        if (name != u"text") return DISP_E_UNKNOWNNAME;
        if (value.Type() != host::VarType::String) return DISP_E_TYPEMISMATCH;
        Clamp();
        TextFrameModel& frame = shape_->frame;
        // New text takes the formatting of the first character it replaces
        // (or of the character before an insertion point).
        CharFormat format = frame.defaultFormat;
        if (length_ > 0) {
            format = frame.formats[static_cast<std::size_t>(start_)];
        } else if (start_ > 0) {
            format = frame.formats[static_cast<std::size_t>(start_ - 1)];
        } else if (!frame.formats.empty()) {
            format = frame.formats.front();
        }
        if (host_.textPutResetsFormat) {
            format.rgb = frame.defaultFormat.rgb;
            format.colorType = frame.defaultFormat.colorType;
            format.schemeColor = frame.defaultFormat.schemeColor;
            format.size = frame.defaultFormat.size;
        }
        const std::u16string& text = value.StringValue();
        frame.text.replace(static_cast<std::size_t>(start_), static_cast<std::size_t>(length_),
                           text);
        frame.formats.erase(frame.formats.begin() + start_,
                            frame.formats.begin() + start_ + length_);
        frame.formats.insert(frame.formats.begin() + start_, text.size(), format);
        length_ = static_cast<std::int32_t>(text.size());
        if (frame.autoSize == 1) FitShapeToText(*shape_);
        return S_OK;
    }
    const void* FaultTarget() const override { return shape_.get(); }

  private:
    // The frame may have changed since the range was made; a frame's own
    // range always stands for all of its text.
    void Clamp() {
        const auto size = static_cast<std::int32_t>(shape_->frame.text.size());
        if (whole_) start_ = 0, length_ = size;
        start_ = std::min(std::max(start_, 0), size);
        length_ = std::min(std::max(length_, 0), size - start_);
    }

    std::int32_t Count() const {
        const TextFrameModel& frame = shape_->frame;
        switch (unit_) {
            case RangeUnit::Paragraphs:
                return static_cast<std::int32_t>(
                    Overlapping(Paragraphs(frame.text), start_, start_ + length_).size());
            case RangeUnit::Runs:
                return static_cast<std::int32_t>(
                    Overlapping(Runs(frame), start_, start_ + length_).size());
            default:
                return length_;
        }
    }

    // Paragraphs(index, count) and Runs(index, count): -1 for all; an index
    // past the end gives an empty range at the end, as the host does.
    HRESULT Sub(const std::vector<Span>& spans, const Args& args, RangeUnit unit, Variant& result) {
        std::int32_t index = -1, count = -1;
        if (args.size() > 0 && !args.Int(0, index)) return DISP_E_TYPEMISMATCH;
        if (args.size() > 1 && !args.Int(1, count)) return DISP_E_TYPEMISMATCH;
        if (args.size() == 1 && index != -1) count = 1;
        const auto n = static_cast<std::int32_t>(spans.size());
        std::int32_t first = 0, last = n - 1;
        if (index != -1) {
            if (index < 1) return E_INVALIDARG;
            first = index - 1;
            last = count < 0 ? n - 1 : std::min(n - 1, first + std::max(count, 1) - 1);
        }
        if (n == 0 || first >= n) {
            const std::int32_t end = start_ + length_;
            result = Obj(MakeTextRange(host_, deck_, shape_, end, 0, unit));
            return S_OK;
        }
        const std::int32_t start = spans[static_cast<std::size_t>(first)].start;
        const std::int32_t end = spans[static_cast<std::size_t>(last)].end;
        result = Obj(MakeTextRange(host_, deck_, shape_, start, end - start, unit));
        return S_OK;
    }

    // Characters(start, length): start is one-based within this range.
    HRESULT Characters(const Args& args, Variant& result) {
        std::int32_t start = -1, length = -1;
        if (args.size() > 0 && !args.Int(0, start)) return DISP_E_TYPEMISMATCH;
        if (args.size() > 1 && !args.Int(1, length)) return DISP_E_TYPEMISMATCH;
        if (args.size() == 1 && start != -1) length = 1;
        if (start == -1) start = 1;
        if (start < 1) start = 1;
        const std::int32_t from = std::min(start_ + start - 1, start_ + length_);
        const std::int32_t available = start_ + length_ - from;
        const std::int32_t take = length < 0 ? available : std::min(length, available);
        result = Obj(MakeTextRange(host_, deck_, shape_, from, take, RangeUnit::Characters));
        return S_OK;
    }

    std::shared_ptr<PresentationModel> deck_;
    std::shared_ptr<ShapeModel> shape_;
    std::int32_t start_;
    std::int32_t length_;
    bool whole_;
    RangeUnit unit_;
};

class TextFrameObject final : public SimObject {
  public:
    TextFrameObject(SimHost& host, std::shared_ptr<PresentationModel> deck,
                    std::shared_ptr<ShapeModel> shape, bool second)
        : SimObject(host, second ? u"TextFrame2" : u"TextFrame"),
          deck_(std::move(deck)),
          shape_(std::move(shape)),
          second_(second) {}
    bool Answers(HostInterface which) const override {
        return which == (second_ ? HostInterface::TextFrame2 : HostInterface::TextFrame);
    }

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        if (shape_->deleted) return E_FAIL;
        TextFrameModel& frame = shape_->frame;
        if (name == u"hastext") {
            result = Truth(!frame.text.empty());
        } else if (name == u"textrange") {
            if (second_) {
                result = Obj(std::make_shared<TextRange2Object>(host_, shape_));
            } else {
                result = Obj(MakeTextRange(host_, deck_, shape_, 0, -1, RangeUnit::Characters));
            }
        } else if (name == u"autosize") {
            result = I4(frame.autoSize);
        } else if (name == u"wordwrap") {
            result = Truth(frame.wordWrap);
        } else if (name == u"marginleft") {
            result = R4(frame.marginLeft);
        } else if (name == u"marginright") {
            result = R4(frame.marginRight);
        } else if (name == u"margintop") {
            result = R4(frame.marginTop);
        } else if (name == u"marginbottom") {
            result = R4(frame.marginBottom);
        } else if (name == u"parent") {
            result = Obj(MakeShape(host_, deck_, shape_));
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }

    HRESULT Put(std::u16string_view name, const Args&, const Variant& value) override {
        if (shape_->deleted) return E_FAIL;
        TextFrameModel& frame = shape_->frame;
        std::int32_t n = 0;
        double d = 0;
        if (name == u"autosize") {
            // One property behind TextFrame and TextFrame2.
            if (!value.ToInt32(n)) return DISP_E_TYPEMISMATCH;
            if (n < 0 || n > 2) return E_INVALIDARG;
            frame.autoSize = n;
            if (n == 1) FitShapeToText(*shape_);
        } else if (name == u"wordwrap") {
            if (!value.ToInt32(n)) return DISP_E_TYPEMISMATCH;
            frame.wordWrap = n != 0;
            if (frame.autoSize == 1) FitShapeToText(*shape_);
        } else if (name == u"marginleft" || name == u"marginright" || name == u"margintop" ||
                   name == u"marginbottom") {
            if (!value.ToDouble(d)) return DISP_E_TYPEMISMATCH;
            (name == u"marginleft"    ? frame.marginLeft
             : name == u"marginright" ? frame.marginRight
             : name == u"margintop"   ? frame.marginTop
                                      : frame.marginBottom) = static_cast<float>(d);
            if (frame.autoSize == 1) FitShapeToText(*shape_);
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }
    const void* FaultTarget() const override { return shape_.get(); }

  private:
    // TextFrame2.TextRange: only its Text is served.
    class TextRange2Object final : public SimObject {
      public:
        TextRange2Object(SimHost& host, std::shared_ptr<ShapeModel> shape)
            : SimObject(host, u"TextRange2"), shape_(std::move(shape)) {}
        bool Answers(HostInterface which) const override {
            return which == HostInterface::TextRange2;
        }

      protected:
        HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
            if (name != u"text") return DISP_E_UNKNOWNNAME;
            result = Variant::String(shape_->frame.text);
            return S_OK;
        }
        HRESULT Put(std::u16string_view name, const Args&, const Variant& value) override {
            if (name != u"text") return DISP_E_UNKNOWNNAME;
            if (value.Type() != host::VarType::String) return DISP_E_TYPEMISMATCH;
            TextFrameModel& frame = shape_->frame;
            CharFormat format = frame.formats.empty() ? frame.defaultFormat : frame.formats.front();
            if (host_.textPutResetsFormat) {
                format.rgb = frame.defaultFormat.rgb;
                format.colorType = frame.defaultFormat.colorType;
                format.size = frame.defaultFormat.size;
            }
            frame.SetText(value.StringValue(), format);
            if (frame.autoSize == 1) FitShapeToText(*shape_);
            return S_OK;
        }
        const void* FaultTarget() const override { return shape_.get(); }

      private:
        std::shared_ptr<ShapeModel> shape_;
    };

    std::shared_ptr<PresentationModel> deck_;
    std::shared_ptr<ShapeModel> shape_;
    bool second_;
};

}  // namespace

HostRef MakeTextFrame(SimHost& host, std::shared_ptr<PresentationModel> deck,
                      std::shared_ptr<ShapeModel> shape) {
    return std::make_shared<TextFrameObject>(host, std::move(deck), std::move(shape), false);
}

HostRef MakeTextFrame2(SimHost& host, std::shared_ptr<PresentationModel> deck,
                       std::shared_ptr<ShapeModel> shape) {
    return std::make_shared<TextFrameObject>(host, std::move(deck), std::move(shape), true);
}

HostRef MakeTextRange(SimHost& host, std::shared_ptr<PresentationModel> deck,
                      std::shared_ptr<ShapeModel> shape, std::int32_t start, std::int32_t length,
                      RangeUnit unit) {
    return std::make_shared<TextRangeObject>(host, std::move(deck), std::move(shape), start, length,
                                             unit);
}

void FitShapeToText(ShapeModel& shape) {
    float height = 0;
    for (const TextLine& line : LayoutFrame(shape))
        height += line.height;
    shape.height =
        height + std::max(0.0f, shape.frame.marginTop) + std::max(0.0f, shape.frame.marginBottom);
}

}  // namespace qb::sim::detail
