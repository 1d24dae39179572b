// The simulated application, windows, views, selections, presentations,
// slides, tags, shapes, groups and tables.
#include <algorithm>

#include "foundation/char_class.h"
#include "foundation/text.h"
#include "sim/host/sim_object.h"

namespace qb::sim::detail {
namespace {

using host::HostInterface;
using ShapeList = std::vector<std::shared_ptr<ShapeModel>>;

std::u16string TagKey(std::u16string_view name) {
    std::u16string key(name);
    for (char16_t& c : key)
        c = (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 32) : c;
    return key;
}

HostRef MakeSlide(SimHost& host, std::shared_ptr<PresentationModel> deck,
                  std::shared_ptr<SlideModel> slide);
HostRef MakeSlideRange(SimHost& host, std::shared_ptr<PresentationModel> deck,
                       std::vector<std::shared_ptr<SlideModel>> slides);

HostRef MakeShapeRange(SimHost& host, std::shared_ptr<PresentationModel> deck, ShapeList shapes) {
    auto list = std::make_shared<ShapeList>(std::move(shapes));
    return std::make_shared<ListObject>(
        host, u"ShapeRange", [list] { return list->size(); },
        [h = &host, deck, list](std::size_t i) { return MakeShape(*h, deck, (*list)[i]); },
        HostInterface::ShapeRange);
}

// --- Tags --------------------------------------------------------------------

class TagsObject final : public SimObject {
  public:
    TagsObject(SimHost& host, std::shared_ptr<SlideModel> slide)
        : SimObject(host, u"Tags"), slide_(std::move(slide)) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args& args, Variant& result) override {
        if (slide_->deleted) return E_FAIL;
        if (name == u"count") {
            result = I4(static_cast<std::int32_t>(slide_->tags.size()));
            return S_OK;
        }
        std::u16string tag, value;
        if (name == u"item") {
            if (!args.String(0, tag)) return DISP_E_TYPEMISMATCH;
            const auto it = slide_->tags.find(TagKey(tag));
            // A missing tag reads as empty text, not as a failure.
            result = Variant::String(it == slide_->tags.end() ? u"" : it->second);
            return S_OK;
        }
        if (name == u"add") {
            if (!args.String(0, tag) || !args.String(1, value)) return DISP_E_TYPEMISMATCH;
            slide_->tags[TagKey(tag)] = value;
            return S_OK;
        }
        if (name == u"delete") {
            if (!args.String(0, tag)) return DISP_E_TYPEMISMATCH;
            slide_->tags.erase(TagKey(tag));
            return S_OK;
        }
        return DISP_E_UNKNOWNNAME;
    }

  private:
    std::shared_ptr<SlideModel> slide_;
};

// --- Shapes and groups ----------------------------------------------------

class ShapesObject final : public SimObject {
  public:
    ShapesObject(SimHost& host, std::shared_ptr<PresentationModel> deck,
                 std::shared_ptr<ShapeList> list, const ShapeModel* groupShape)
        : SimObject(host, groupShape ? u"GroupShapes" : u"Shapes"),
          deck_(std::move(deck)),
          list_(std::move(list)),
          group_(groupShape != nullptr),
          groupShape_(groupShape) {}

    const void* Identity() const override { return list_.get(); }
    bool Answers(HostInterface which) const override {
        return which == (group_ ? HostInterface::GroupShapes : HostInterface::Shapes);
    }

  protected:
    HRESULT Get(std::u16string_view name, const Args& args, Variant& result) override {
        if (name == u"count") {
            result = I4(static_cast<std::int32_t>(list_->size()));
            return S_OK;
        }
        if (name == u"item") {
            if (host_.itemOnlyDirect) return DISP_E_UNKNOWNNAME;
            return Item(args, result);
        }
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT Default(const Args& args, Variant& result) override { return Item(args, result); }
    const void* FaultTarget() const override { return groupShape_; }

  private:
    HRESULT Item(const Args& args, Variant& result) {
        std::int32_t index = 0;
        if (args.size() != 1) return DISP_E_BADPARAMCOUNT;
        if (args[0].Type() == host::VarType::String) {
            for (const auto& shape : *list_) {
                if (shape->name == args[0].StringValue()) {
                    result = Obj(MakeShape(host_, deck_, shape));
                    return S_OK;
                }
            }
            return E_INVALIDARG;
        }
        if (!args.Int(0, index)) return DISP_E_TYPEMISMATCH;
        if (index < 1 || index > static_cast<std::int32_t>(list_->size())) return E_INVALIDARG;
        result = Obj(MakeShape(host_, deck_, (*list_)[static_cast<std::size_t>(index - 1)]));
        return S_OK;
    }

    std::shared_ptr<PresentationModel> deck_;
    std::shared_ptr<ShapeList> list_;
    bool group_;
    const ShapeModel* groupShape_;
};

class TableObject;

class CellObject final : public SimObject {
  public:
    CellObject(SimHost& host, std::shared_ptr<PresentationModel> deck,
               std::shared_ptr<ShapeModel> cellShape)
        : SimObject(host, u"Cell"), deck_(std::move(deck)), shape_(std::move(cellShape)) {}
    bool Answers(HostInterface which) const override { return which == HostInterface::Cell; }

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        if (name != u"shape") return DISP_E_UNKNOWNNAME;
        result = Obj(MakeShape(host_, deck_, shape_));
        return S_OK;
    }
    const void* FaultTarget() const override { return shape_.get(); }

  private:
    std::shared_ptr<PresentationModel> deck_;
    std::shared_ptr<ShapeModel> shape_;
};

class TableObject final : public SimObject {
  public:
    TableObject(SimHost& host, std::shared_ptr<PresentationModel> deck,
                std::shared_ptr<ShapeModel> shape)
        : SimObject(host, u"Table"), deck_(std::move(deck)), shape_(std::move(shape)) {}
    bool Answers(HostInterface which) const override { return which == HostInterface::Table; }

  protected:
    HRESULT Get(std::u16string_view name, const Args& args, Variant& result) override {
        const TableModel& table = *shape_->table;
        if (name == u"rows") {
            result = Obj(std::make_shared<CountObject>(host_, u"Rows", table.rows));
            return S_OK;
        }
        if (name == u"columns") {
            result = Obj(std::make_shared<CountObject>(host_, u"Columns", table.columns));
            return S_OK;
        }
        if (name == u"cell") {
            std::int32_t row = 0, column = 0;
            if (!args.Int(0, row) || !args.Int(1, column)) return DISP_E_TYPEMISMATCH;
            auto cell = table.CellAt(row, column);
            if (!cell) return E_INVALIDARG;
            result = Obj(std::make_shared<CellObject>(host_, deck_, cell));
            return S_OK;
        }
        return DISP_E_UNKNOWNNAME;
    }
    const void* FaultTarget() const override { return shape_.get(); }

  private:
    std::shared_ptr<PresentationModel> deck_;
    std::shared_ptr<ShapeModel> shape_;
};

class ShapeObject final : public SimObject {
  public:
    ShapeObject(SimHost& host, std::shared_ptr<PresentationModel> deck,
                std::shared_ptr<ShapeModel> shape)
        : SimObject(host, u"Shape"), deck_(std::move(deck)), shape_(std::move(shape)) {}

    const void* Identity() const override {
        return host_.unstableShapeIdentity ? static_cast<const void*>(this) : shape_.get();
    }
    bool Answers(HostInterface which) const override { return which == HostInterface::Shape; }

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        ShapeModel& s = *shape_;
        if (s.deleted) return E_FAIL;
        if (name == u"type") {
            result = I4(static_cast<std::int32_t>(s.type));
        } else if (name == u"name") {
            result = Variant::String(s.name);
        } else if (name == u"id") {
            result = I4(s.id);
        } else if (name == u"left") {
            result = R4(s.left);
        } else if (name == u"top") {
            result = R4(s.top);
        } else if (name == u"width") {
            result = R4(s.width);
        } else if (name == u"height") {
            result = R4(s.height);
        } else if (name == u"groupitems") {
            // The host refuses it on a shape without items; a group whose
            // type reads mixed still has them.
            if (s.type != ShapeType::Group && s.children.empty()) return E_FAIL;
            auto list = std::shared_ptr<ShapeList>(shape_, &shape_->children);
            result = Obj(MakeShapes(host_, deck_, list, shape_.get()));
        } else if (name == u"hastable") {
            result = Truth(s.table != nullptr);
        } else if (name == u"table") {
            if (!s.table) return E_FAIL;
            result = Obj(std::make_shared<TableObject>(host_, deck_, shape_));
        } else if (name == u"hastextframe") {
            result = Truth(s.hasTextFrame);
        } else if (name == u"textframe") {
            if (!s.hasTextFrame) return E_FAIL;
            result = Obj(MakeTextFrame(host_, deck_, shape_));
        } else if (name == u"textframe2") {
            if (!host_.hasTextFrame2) return DISP_E_UNKNOWNNAME;
            if (!s.hasTextFrame) return E_FAIL;
            result = Obj(MakeTextFrame2(host_, deck_, shape_));
        } else if (name == u"haschart") {
            result = Truth(s.chart != nullptr);
        } else if (name == u"chart") {
            if (!s.chart) return E_FAIL;
            result = Obj(MakeChart(host_, shape_));
        } else if (name == u"delete") {
            return Delete();
        } else if (name == u"hassmartart") {
            result = Truth(s.smartArt != nullptr);
        } else if (name == u"smartart") {
            if (!s.smartArt) return E_FAIL;
            result = Obj(MakeSmartArt(host_, shape_));
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }

    HRESULT Put(std::u16string_view name, const Args&, const Variant& value) override {
        ShapeModel& s = *shape_;
        if (s.deleted) return E_FAIL;
        if (name == u"name") {
            std::u16string text;
            if (!value.ToString(text)) return DISP_E_TYPEMISMATCH;
            s.name = text;
            return S_OK;
        }
        float* field = name == u"left"     ? &s.left
                       : name == u"top"    ? &s.top
                       : name == u"width"  ? &s.width
                       : name == u"height" ? &s.height
                                           : nullptr;
        if (!field) return DISP_E_UNKNOWNNAME;
        double d = 0;
        if (!value.ToDouble(d)) return DISP_E_TYPEMISMATCH;
        if ((field == &s.width || field == &s.height) && d < 0) return E_INVALIDARG;
        *field = static_cast<float>(d);
        // "Shape to fit text" answers any change of the box at once: a new
        // width rewraps, and a height of its own doesn't stick.
        if (s.hasTextFrame && s.frame.autoSize == 1 && (field == &s.width || field == &s.height)) {
            FitShapeToText(s);
        }
        return S_OK;
    }
    const void* FaultTarget() const override { return shape_.get(); }

  private:
    // Takes the shape out of the page or group that holds it. A table
    // cell's shape can't be deleted on its own.
    HRESULT Delete() {
        for (const auto& slide : deck_->slides) {
            for (ShapeList* page : {&slide->shapes, &slide->notesShapes}) {
                if (RemoveFrom(*page)) return S_OK;
            }
        }
        return E_FAIL;
    }
    bool RemoveFrom(ShapeList& list) {
        const auto it = std::find(list.begin(), list.end(), shape_);
        if (it != list.end()) {
            list.erase(it);
            shape_->deleted = true;
            return true;
        }
        for (const auto& other : list) {
            if (RemoveFrom(other->children)) return true;
        }
        return false;
    }

    std::shared_ptr<PresentationModel> deck_;
    std::shared_ptr<ShapeModel> shape_;
};

// --- Slides ---------------------------------------------------------------

class NotesPageObject final : public SimObject {
  public:
    NotesPageObject(SimHost& host, std::shared_ptr<PresentationModel> deck,
                    std::shared_ptr<SlideModel> slide)
        : SimObject(host, u"NotesPage"), deck_(std::move(deck)), slide_(std::move(slide)) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        if (name != u"shapes") return DISP_E_UNKNOWNNAME;
        auto list = std::shared_ptr<ShapeList>(slide_, &slide_->notesShapes);
        result = Obj(MakeShapes(host_, deck_, list, nullptr));
        return S_OK;
    }

  private:
    std::shared_ptr<PresentationModel> deck_;
    std::shared_ptr<SlideModel> slide_;
};

class SlideObject final : public SimObject {
  public:
    SlideObject(SimHost& host, std::shared_ptr<PresentationModel> deck,
                std::shared_ptr<SlideModel> slide)
        : SimObject(host, u"Slide"), deck_(std::move(deck)), slide_(std::move(slide)) {}
    const void* Identity() const override { return slide_.get(); }
    bool Answers(HostInterface which) const override { return which == HostInterface::Slide; }

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        if (slide_->deleted) return E_FAIL;
        if (name == u"slideindex") {
            result = I4(deck_->IndexOf(slide_.get()));
        } else if (name == u"slideid") {
            result = I4(slide_->slideId);
        } else if (name == u"name") {
            result = Variant::String(slide_->name);
        } else if (name == u"shapes") {
            auto list = std::shared_ptr<ShapeList>(slide_, &slide_->shapes);
            result = Obj(MakeShapes(host_, deck_, list, nullptr));
        } else if (name == u"notespage") {
            result = Obj(std::make_shared<NotesPageObject>(host_, deck_, slide_));
        } else if (name == u"tags") {
            result = Obj(std::make_shared<TagsObject>(host_, slide_));
        } else if (name == u"duplicate") {
            return Duplicate(result);
        } else if (name == u"copy") {
            host_.clipboard = CloneSlide(*slide_);
        } else if (name == u"delete") {
            auto& slides = deck_->slides;
            slides.erase(std::remove(slides.begin(), slides.end(), slide_), slides.end());
            slide_->deleted = true;
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }

  private:
    HRESULT Duplicate(Variant& result) {
        const std::int32_t index = deck_->IndexOf(slide_.get());
        auto copy = CloneSlide(*slide_);  // tags come along, as the host copies them
        copy->slideId = deck_->nextSlideId++;
        auto& slides = deck_->slides;
        std::vector<std::shared_ptr<SlideModel>> made{copy};
        switch (host_.duplicateMode) {
            case DuplicateMode::AppendAtEnd:
                slides.push_back(copy);
                break;
            case DuplicateMode::SeveralSlides: {
                for (std::int32_t i = 1; i < host_.duplicateSlideCount; ++i) {
                    auto extra = CloneSlide(*slide_);
                    extra->slideId = deck_->nextSlideId++;
                    made.push_back(extra);
                }
                slides.insert(slides.begin() + index, made.begin(), made.end());
                break;
            }
            default:
                slides.insert(slides.begin() + index, copy);
        }
        if (host_.duplicateMode == DuplicateMode::FailAfterCopy) return E_FAIL;
        result = Obj(MakeSlideRange(host_, deck_, made));
        return S_OK;
    }

    std::shared_ptr<PresentationModel> deck_;
    std::shared_ptr<SlideModel> slide_;
};

class SlidesObject final : public SimObject {
  public:
    SlidesObject(SimHost& host, std::shared_ptr<PresentationModel> deck)
        : SimObject(host, u"Slides"), deck_(std::move(deck)) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args& args, Variant& result) override {
        auto& slides = deck_->slides;
        if (name == u"count") {
            result = I4(static_cast<std::int32_t>(slides.size()));
            return S_OK;
        }
        if (name == u"item") {
            if (host_.itemOnlyDirect) return DISP_E_UNKNOWNNAME;
            return Default(args, result);
        }
        std::int32_t number = 0;
        if (name == u"findbyslideid") {
            if (!args.Int(0, number)) return DISP_E_TYPEMISMATCH;
            for (const auto& slide : slides) {
                if (slide->slideId == number) {
                    result = Obj(MakeSlide(host_, deck_, slide));
                    return S_OK;
                }
            }
            return E_INVALIDARG;
        }
        if (name == u"paste") {
            if (!host_.clipboard) return E_FAIL;
            if (host_.pasteMode == PasteMode::Fail) return E_FAIL;
            std::int32_t at = static_cast<std::int32_t>(slides.size()) + 1;
            if (args.size() > 0 && !args.Int(0, at)) return DISP_E_TYPEMISMATCH;
            if (at < 1 || at > static_cast<std::int32_t>(slides.size()) + 1) return E_INVALIDARG;
            auto copy = CloneSlide(*host_.clipboard);
            copy->slideId = deck_->nextSlideId++;
            slides.insert(slides.begin() + (at - 1), copy);
            std::vector<std::shared_ptr<SlideModel>> made;
            if (host_.pasteMode != PasteMode::EmptyRange) made.push_back(copy);
            result = Obj(MakeSlideRange(host_, deck_, made));
            return S_OK;
        }
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT Default(const Args& args, Variant& result) override {
        std::int32_t index = 0;
        if (!args.Int(0, index)) return DISP_E_TYPEMISMATCH;
        if (index < 1 || index > static_cast<std::int32_t>(deck_->slides.size()))
            return E_INVALIDARG;
        result = Obj(MakeSlide(host_, deck_, deck_->slides[static_cast<std::size_t>(index - 1)]));
        return S_OK;
    }

  private:
    std::shared_ptr<PresentationModel> deck_;
};

class PageSetupObject final : public SimObject {
  public:
    PageSetupObject(SimHost& host, std::shared_ptr<PresentationModel> deck)
        : SimObject(host, u"PageSetup"), deck_(std::move(deck)) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        if (name == u"slidewidth") {
            result = R4(deck_->slideWidth);
        } else if (name == u"slideheight") {
            result = R4(deck_->slideHeight);
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }

  private:
    std::shared_ptr<PresentationModel> deck_;
};

class PresentationObject final : public SimObject {
  public:
    PresentationObject(SimHost& host, std::shared_ptr<PresentationModel> deck)
        : SimObject(host, u"Presentation"), deck_(std::move(deck)) {}
    const void* Identity() const override { return deck_.get(); }
    bool Answers(HostInterface which) const override {
        return which == HostInterface::Presentation;
    }

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        if (name == u"slides") {
            result = Obj(std::make_shared<SlidesObject>(host_, deck_));
        } else if (name == u"pagesetup") {
            result = Obj(std::make_shared<PageSetupObject>(host_, deck_));
        } else if (name == u"fullname") {
            result = Variant::String(deck_->fullName);
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }

  private:
    std::shared_ptr<PresentationModel> deck_;
};

// --- Windows --------------------------------------------------------------

class ViewObject final : public SimObject {
  public:
    ViewObject(SimHost& host, std::shared_ptr<WindowModel> window)
        : SimObject(host, u"View"), window_(std::move(window)) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args& args, Variant& result) override {
        auto& slides = window_->presentation->slides;
        if (name == u"slide") {
            const std::int32_t i = window_->currentSlide;
            if (i < 1 || i > static_cast<std::int32_t>(slides.size())) return E_FAIL;
            result = Obj(
                MakeSlide(host_, window_->presentation, slides[static_cast<std::size_t>(i - 1)]));
            return S_OK;
        }
        if (name == u"gotoslide") {
            std::int32_t index = 0;
            if (!args.Int(0, index)) return DISP_E_TYPEMISMATCH;
            if (index < 1 || index > static_cast<std::int32_t>(slides.size())) return E_INVALIDARG;
            window_->currentSlide = index;
            return S_OK;
        }
        return DISP_E_UNKNOWNNAME;
    }

  private:
    std::shared_ptr<WindowModel> window_;
};

class SelectionObject final : public SimObject {
  public:
    SelectionObject(SimHost& host, std::shared_ptr<WindowModel> window)
        : SimObject(host, u"Selection"), window_(std::move(window)) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        const SelectionModel& sel = window_->selection;
        const auto& deck = window_->presentation;
        if (name == u"type") {
            result = I4(static_cast<std::int32_t>(sel.type));
        } else if (name == u"sliderange") {
            if (sel.type == SelectionType::None) return E_FAIL;
            result = Obj(MakeSlideRange(host_, deck, sel.slides));
        } else if (name == u"shaperange") {
            if (sel.type != SelectionType::Shapes && sel.type != SelectionType::Text) return E_FAIL;
            ShapeList shapes = sel.shapes;
            if (sel.type == SelectionType::Text && sel.textShape) shapes = {sel.textShape};
            result = Obj(MakeShapeRange(host_, deck, shapes));
        } else if (name == u"haschildshaperange") {
            result = Truth(!sel.childShapes.empty());
        } else if (name == u"childshaperange") {
            if (sel.childShapes.empty()) return E_FAIL;
            result = Obj(MakeShapeRange(host_, deck, sel.childShapes));
        } else if (name == u"textrange") {
            if (sel.type != SelectionType::Text || !sel.textShape) return E_FAIL;
            result = Obj(MakeTextRange(host_, deck, sel.textShape, sel.textStart - 1,
                                       sel.textLength, RangeUnit::Characters));
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }

  private:
    std::shared_ptr<WindowModel> window_;
};

class WindowObject final : public SimObject {
  public:
    WindowObject(SimHost& host, std::shared_ptr<WindowModel> window)
        : SimObject(host, u"DocumentWindow"), window_(std::move(window)) {}
    const void* Identity() const override { return window_.get(); }
    bool Answers(HostInterface which) const override {
        return which == HostInterface::DocumentWindow;
    }

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        if (name == u"hwnd") {
            result = I4(static_cast<std::int32_t>(window_->hwnd));
        } else if (name == u"active") {
            const auto& windows = host_.App().windows;
            const std::int32_t active = host_.App().activeWindow;
            result = Truth(active >= 1 && active <= static_cast<std::int32_t>(windows.size()) &&
                           windows[static_cast<std::size_t>(active - 1)] == window_);
        } else if (name == u"presentation") {
            result = Obj(std::make_shared<PresentationObject>(host_, window_->presentation));
        } else if (name == u"view") {
            result = Obj(std::make_shared<ViewObject>(host_, window_));
        } else if (name == u"selection") {
            result = Obj(std::make_shared<SelectionObject>(host_, window_));
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }

  private:
    std::shared_ptr<WindowModel> window_;
};

class LanguageSettingsObject final : public SimObject {
  public:
    explicit LanguageSettingsObject(SimHost& host) : SimObject(host, u"LanguageSettings") {}

  protected:
    HRESULT Get(std::u16string_view name, const Args& args, Variant& result) override {
        if (name != u"languageid") return DISP_E_UNKNOWNNAME;
        std::int32_t which = 0;
        if (!args.Int(0, which)) return DISP_E_TYPEMISMATCH;
        const std::int32_t id = which == 2 ? host_.App().uiLanguageId : 0x0409;
        switch (host_.languageIdType) {
            case host::VarType::I2:
                result = Variant::I2(static_cast<std::int16_t>(id));
                break;
            case host::VarType::R8:
                result = Variant::R8(id);
                break;
            case host::VarType::String:
                result = Variant::String(AsciiToUtf16(std::to_string(id)));
                break;
            default:
                result = I4(id);
                break;
        }
        return S_OK;
    }
};

class ApplicationObject final : public SimObject {
  public:
    explicit ApplicationObject(SimHost& host) : SimObject(host, u"Application") {}
    const void* Identity() const override { return &host_; }
    bool Answers(HostInterface which) const override { return which == HostInterface::Application; }

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        ApplicationModel& app = host_.App();
        if (name == u"name") {
            result = Variant::String(app.name);
        } else if (name == u"version") {
            result = Variant::String(app.version);
        } else if (name == u"hwnd") {
            result = I4(static_cast<std::int32_t>(app.hwnd));
        } else if (name == u"windows") {
            result = Obj(std::make_shared<ListObject>(
                host_, u"DocumentWindows", [&app] { return app.windows.size(); },
                [h = &host_, &app](std::size_t i) {
                    return HostRef(std::make_shared<WindowObject>(*h, app.windows[i]));
                }));
        } else if (name == u"activewindow") {
            const std::int32_t active = app.activeWindow;
            if (active < 1 || active > static_cast<std::int32_t>(app.windows.size())) return E_FAIL;
            result = Obj(std::make_shared<WindowObject>(
                host_, app.windows[static_cast<std::size_t>(active - 1)]));
        } else if (name == u"activepresentation") {
            const std::int32_t active = app.activeWindow;
            if (active < 1 || active > static_cast<std::int32_t>(app.windows.size())) return E_FAIL;
            result = Obj(std::make_shared<PresentationObject>(
                host_, app.windows[static_cast<std::size_t>(active - 1)]->presentation));
        } else if (name == u"languagesettings") {
            result = Obj(std::make_shared<LanguageSettingsObject>(host_));
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }
};

HostRef MakeSlide(SimHost& host, std::shared_ptr<PresentationModel> deck,
                  std::shared_ptr<SlideModel> slide) {
    return std::make_shared<SlideObject>(host, std::move(deck), std::move(slide));
}

HostRef MakeSlideRange(SimHost& host, std::shared_ptr<PresentationModel> deck,
                       std::vector<std::shared_ptr<SlideModel>> slides) {
    auto list = std::make_shared<std::vector<std::shared_ptr<SlideModel>>>(std::move(slides));
    return std::make_shared<ListObject>(
        host, u"SlideRange", [list] { return list->size(); },
        [h = &host, deck, list](std::size_t i) { return MakeSlide(*h, deck, (*list)[i]); },
        HostInterface::SlideRange);
}

}  // namespace

HostRef MakeShapes(SimHost& host, std::shared_ptr<PresentationModel> deck,
                   std::shared_ptr<ShapeList> list, const ShapeModel* group) {
    return std::make_shared<ShapesObject>(host, std::move(deck), std::move(list), group);
}

HostRef MakeShape(SimHost& host, std::shared_ptr<PresentationModel> deck,
                  std::shared_ptr<ShapeModel> shape) {
    return std::make_shared<ShapeObject>(host, std::move(deck), std::move(shape));
}

HostRef MakeApplication(SimHost& host) {
    return std::make_shared<ApplicationObject>(host);
}

}  // namespace qb::sim::detail

namespace qb::sim {

host::HostRef SimHost::Application() {
    return detail::MakeApplication(*this);
}

}  // namespace qb::sim
