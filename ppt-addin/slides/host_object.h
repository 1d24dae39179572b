// The one interface through which the portable engine reaches the host's
// object model. On Windows an adapter over IDispatch implements it; on Linux
// the simulated host does. Arguments lie last first, as IDispatch has them:
// for Cell(row, column) the column is element 0.
#pragma once

#include <cstddef>
#include <string_view>

#include "foundation/hresult.h"
#include "slides/host_variant.h"

namespace qb::host {

// The host interfaces the engine asks an object whether it answers, as a
// QueryInterface for the interface's IID would.
enum class HostInterface : std::uint8_t {
    Application,
    DocumentWindow,
    Presentation,
    Slide,
    SlideRange,
    Shapes,
    Shape,
    ShapeRange,
    GroupShapes,
    TextFrame,
    TextFrame2,
    TextRange,
    TextRange2,
    Font,
    Table,
    Cell,
    Chart,
};

enum class InvokeKind : std::uint8_t {
    Get,  // a property read or a method call: IDispatch flags 3
    Put,  // a property put: flags 4, the value as the named argument -3
};

class HostObject {
  public:
    virtual ~HostObject() = default;

    // Calls a member by name. A member the object lacks answers
    // DISP_E_UNKNOWNNAME, which callers treat as a normal case. For a put,
    // args[0] is the value and the member's own arguments follow it.
    [[nodiscard]] virtual HRESULT Invoke(std::u16string_view member, InvokeKind kind,
                                         const Variant* args, std::size_t count,
                                         Variant* result) = 0;
    // The default member (the "direct Item"), called with args as above.
    [[nodiscard]] virtual HRESULT InvokeDefault(const Variant* args, std::size_t count,
                                                Variant* result) = 0;
    // The object's identity: equal for two references to one host object
    // (its IUnknown on Windows). Hosts may hand out a fresh wrapper per call,
    // so unequal identities don't prove two objects differ.
    virtual const void* Identity() const = 0;
    virtual bool Answers(HostInterface which) const = 0;
};

}  // namespace qb::host
