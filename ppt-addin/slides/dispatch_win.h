// The host-object seam over a real IDispatch: how the add-in reaches the
// host's object model on Windows. Members are called by name (looked up
// with GetIDsOfNames), values cross as VARIANTs, and a structured exception
// raised in the host's Invoke comes back as E_FAIL.
#pragma once

#include <windows.h>

#include <oaidl.h>

#include <string>
#include <utility>
#include <vector>

#include "foundation/com_win.h"
#include "slides/host_object.h"

namespace qb::host {

// How portable objects that are not IDispatch adapters cross into VARIANTs,
// and back. The add-in needs neither (the host hands out only IDispatch); a
// driver that exposes portable objects as IDispatch supplies both.
struct DispatchBridge {
    // An IDispatch (with a reference for the caller) for a portable object
    // that isn't a DispatchObject. Null: such objects don't convert.
    HRESULT (*exportObject)(const HostRef& object, IDispatch** out) = nullptr;
    // The portable object behind an IDispatch made by exportObject, or null
    // for any other IDispatch, which is then wrapped in a DispatchObject.
    HostRef (*importObject)(IDispatch* dispatch) = nullptr;
};

class DispatchObject final : public HostObject {
  public:
    // A null `dispatch` makes an object whose every call answers E_POINTER.
    // `bridge`, when given, must outlive the object and whatever it returns.
    explicit DispatchObject(ComPtr<IDispatch> dispatch, const DispatchBridge* bridge = nullptr);

    // A HostRef over `dispatch`; null for a null dispatch.
    static HostRef Wrap(IDispatch* dispatch, const DispatchBridge* bridge = nullptr);

    HRESULT Invoke(std::u16string_view member, InvokeKind kind, const Variant* args,
                   std::size_t count, Variant* result) override;
    HRESULT InvokeDefault(const Variant* args, std::size_t count, Variant* result) override;
    // The object's IUnknown, as COM's identity rule makes it the same for
    // every interface of one object. Only compared, never called: the
    // reference from the query is released at once.
    const void* Identity() const override;
    bool Answers(HostInterface which) const override;

    IDispatch* Dispatch() const { return dispatch_.Get(); }

  private:
    HRESULT LookUp(std::u16string_view member, DISPID& id);
    HRESULT Call(DISPID id, InvokeKind kind, const Variant* args, std::size_t count,
                 Variant* result);

    ComPtr<IDispatch> dispatch_;
    const DispatchBridge* bridge_;
    // Names already looked up on this object: callers ask the same few
    // members of one object again and again, each lookup a call into the host.
    std::vector<std::pair<std::u16string, DISPID>> dispids_;
    mutable const void* identity_ = nullptr;
};

// VARIANT -> portable value. Integers that fit become I4 (VT_I1, VT_UI1,
// VT_UI2, VT_UI4, VT_INT, VT_UINT, VT_I8, VT_UI8; R8 when out of I4's range),
// VT_DATE, VT_CY and VT_DECIMAL become R8, references are dereferenced,
// VT_ERROR (a missing argument, an error cell) becomes Null, and arrays of
// any element type and rank become a VariantArray. Anything else:
// DISP_E_TYPEMISMATCH.
HRESULT FromVariant(const VARIANT& in, Variant& out, const DispatchBridge* bridge);
// Portable value -> VARIANT (which the caller clears). Arrays become a
// SAFEARRAY of VARIANT with the same bounds.
HRESULT ToVariant(const Variant& in, VARIANT& out, const DispatchBridge* bridge);

}  // namespace qb::host
