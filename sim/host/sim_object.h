// Internal to the simulated host: the base every simulated object derives
// from (counting, faults, the pump, member dispatch) and the factories the
// object files share.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "sim/host/sim_host.h"
#include "slides/host_variant.h"

namespace qb::sim::detail {

using host::HostRef;
using host::Variant;

// A call's arguments in their natural order (the seam hands them last first).
class Args {
  public:
    Args(const Variant* lastFirst, std::size_t count) : args_(lastFirst), count_(count) {}
    std::size_t size() const { return count_; }
    const Variant& operator[](std::size_t i) const { return args_[count_ - 1 - i]; }
    bool Int(std::size_t i, std::int32_t& out) const {
        return i < count_ && (*this)[i].ToInt32(out);
    }
    bool Float(std::size_t i, float& out) const;
    bool String(std::size_t i, std::u16string& out) const;

  private:
    const Variant* args_;
    std::size_t count_;
};

class SimObject : public host::HostObject {
  public:
    SimObject(SimHost& host, std::u16string type) : host_(host), type_(std::move(type)) {}

    HRESULT Invoke(std::u16string_view member, host::InvokeKind kind, const Variant* args,
                   std::size_t count, Variant* result) final;
    HRESULT InvokeDefault(const Variant* args, std::size_t count, Variant* result) final;
    const void* Identity() const override { return this; }
    bool Answers(host::HostInterface) const override { return false; }

    const std::u16string& Type() const { return type_; }

  protected:
    // `name` is lower-cased. DISP_E_UNKNOWNNAME for a member the object lacks.
    virtual HRESULT Get(std::u16string_view name, const Args& args, Variant& result) = 0;
    virtual HRESULT Put(std::u16string_view name, const Args& args, const Variant& value);
    virtual HRESULT Default(const Args& args, Variant& result);
    // The shape, chart or SmartArt this object belongs to, for fault rules
    // that name a shape: a rule names the shape or any group or table it is
    // in. Objects without one of their own take their parent's.
    virtual const void* FaultTarget() const { return inheritedTarget_; }

    SimHost& host_;

  private:
    void PassTargetOn(const Variant& result) const;

    std::u16string type_;
    const void* inheritedTarget_ = nullptr;
};

// A one-based collection: Count, Item(index), and Item as its default member.
class ListObject final : public SimObject {
  public:
    using Count = std::function<std::size_t()>;
    using MakeItem = std::function<HostRef(std::size_t zeroBased)>;
    ListObject(SimHost& host, std::u16string type, Count count, MakeItem make,
               std::optional<host::HostInterface> answers = std::nullopt)
        : SimObject(host, std::move(type)),
          count_(std::move(count)),
          make_(std::move(make)),
          answers_(answers) {}
    bool Answers(host::HostInterface which) const override { return answers_ == which; }

  protected:
    HRESULT Get(std::u16string_view name, const Args& args, Variant& result) override {
        if (name == u"count") {
            result = Variant::I4(static_cast<std::int32_t>(count_()));
            return S_OK;
        }
        if (name == u"item") return Default(args, result);
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT Default(const Args& args, Variant& result) override {
        std::int32_t index = 0;
        if (!args.Int(0, index)) return DISP_E_TYPEMISMATCH;
        if (index < 1 || static_cast<std::size_t>(index) > count_()) return E_INVALIDARG;
        result = Variant::Object(make_(static_cast<std::size_t>(index - 1)));
        return S_OK;
    }

  private:
    Count count_;
    MakeItem make_;
    std::optional<host::HostInterface> answers_;
};

// An object with a Count alone (a table's Rows and Columns, a range's).
class CountObject final : public SimObject {
  public:
    CountObject(SimHost& host, std::u16string type, std::int32_t count)
        : SimObject(host, std::move(type)), count_(count) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        if (name != u"count") return DISP_E_UNKNOWNNAME;
        result = Variant::I4(count_);
        return S_OK;
    }

  private:
    std::int32_t count_;
};

// Numbers as the host returns them.
inline Variant R4(float v) {
    return Variant::R4(v);
}
inline Variant I4(std::int32_t v) {
    return Variant::I4(v);
}
inline Variant Truth(bool v) {
    return Variant::Bool(v);
}
inline Variant Obj(HostRef v) {
    return Variant::Object(std::move(v));
}

// Factories shared by the object files.
// `list` aliases its owner (a slide, a notes page or a group), keeping it
// alive; `group` is the group shape whose items it holds, or null.
HostRef MakeShapes(SimHost& host, std::shared_ptr<PresentationModel> deck,
                   std::shared_ptr<std::vector<std::shared_ptr<ShapeModel>>> list,
                   const ShapeModel* group);
HostRef MakeShape(SimHost& host, std::shared_ptr<PresentationModel> deck,
                  std::shared_ptr<ShapeModel> shape);
HostRef MakeTextFrame(SimHost& host, std::shared_ptr<PresentationModel> deck,
                      std::shared_ptr<ShapeModel> shape);
HostRef MakeTextFrame2(SimHost& host, std::shared_ptr<PresentationModel> deck,
                       std::shared_ptr<ShapeModel> shape);
// A range of a frame's text: zero-based start and length in UTF-16 units; a
// length of -1 stands for the whole frame, whatever it later holds.
enum class RangeUnit { Characters, Paragraphs, Runs };
HostRef MakeTextRange(SimHost& host, std::shared_ptr<PresentationModel> deck,
                      std::shared_ptr<ShapeModel> shape, std::int32_t start, std::int32_t length,
                      RangeUnit unit);

HostRef MakeApplication(SimHost& host);
HostRef MakeChart(SimHost& host, std::shared_ptr<ShapeModel> shape);
HostRef MakeSmartArt(SimHost& host, std::shared_ptr<ShapeModel> shape);

// Geometry the text model keeps in step with the text (shape to fit text).
void FitShapeToText(ShapeModel& shape);

}  // namespace qb::sim::detail
