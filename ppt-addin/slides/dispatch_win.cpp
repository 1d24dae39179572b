// The IDispatch adapter of the host-object seam and the VARIANT conversions
// both ways. Every call into the host runs under the structured-exception
// guard; nothing of ours with a destructor is alive across those calls.
#include "slides/dispatch_win.h"

#include <new>

#include "foundation/wide_win.h"
#include "slides/host_iids_win.h"
#include "slides/seh_guard_win.h"

namespace qb::host {
namespace {

// The host calls, each in the shape the guard takes. They hold nothing to
// clean up, as the guard requires.
struct LookUpCall {
    IDispatch* dispatch;
    LPOLESTR name;
    DISPID* id;
};

HRESULT LookUpGuarded(void* context) {
    auto* call = static_cast<LookUpCall*>(context);
    return call->dispatch->GetIDsOfNames(IID_NULL, &call->name, 1, LOCALE_USER_DEFAULT, call->id);
}

struct InvokeCall {
    IDispatch* dispatch;
    DISPID id;
    WORD flags;
    DISPPARAMS* params;
    VARIANT* result;
    EXCEPINFO* exception;
    UINT* argError;
};

HRESULT InvokeGuarded(void* context) {
    auto* call = static_cast<InvokeCall*>(context);
    return call->dispatch->Invoke(call->id, IID_NULL, LOCALE_USER_DEFAULT, call->flags,
                                  call->params, call->result, call->exception, call->argError);
}

HRESULT FillInGuarded(void* context) {
    auto* exception = static_cast<EXCEPINFO*>(context);
    return exception->pfnDeferredFillIn(exception);
}

// The VARIANTs of one call's arguments, cleared when the call is over.
class VariantArgs {
  public:
    explicit VariantArgs(std::size_t count) : values_(count) {
        for (VARIANT& v : values_)
            ::VariantInit(&v);
    }
    ~VariantArgs() {
        for (VARIANT& v : values_)
            ::VariantClear(&v);
    }
    VariantArgs(const VariantArgs&) = delete;
    VariantArgs& operator=(const VariantArgs&) = delete;
    VARIANT* Data() { return values_.data(); }
    VARIANT& operator[](std::size_t i) { return values_[i]; }

  private:
    std::vector<VARIANT> values_;
};

// A failing Invoke that raised an exception tells its cause in the EXCEPINFO:
// its scode when it has one, else DISP_E_EXCEPTION. The strings are freed.
HRESULT ExceptionResult(EXCEPINFO& exception) {
    if (exception.pfnDeferredFillIn) (void)CallGuarded(&FillInGuarded, &exception);
    ScopedBstr strings[3];
    strings[0].Reset(exception.bstrSource);
    strings[1].Reset(exception.bstrDescription);
    strings[2].Reset(exception.bstrHelpFile);
    return FAILED(exception.scode) ? exception.scode : DISP_E_EXCEPTION;
}

HRESULT FromDispatch(IDispatch* dispatch, Variant& out, const DispatchBridge* bridge) {
    if (dispatch && bridge && bridge->importObject) {
        if (HostRef own = bridge->importObject(dispatch)) {
            out = Variant::Object(std::move(own));
            return S_OK;
        }
    }
    out = Variant::Object(DispatchObject::Wrap(dispatch, bridge));
    return S_OK;
}

// An integer of a width the seam lacks: I4 when it fits, else R8 (exact up
// to 2^53). Decided here rather than by VariantChangeType, whose range
// checks differ between implementations.
Variant FromInteger(long double value) {
    if (value >= -2147483648.0L && value <= 2147483647.0L)
        return Variant::I4(static_cast<std::int32_t>(value));
    return Variant::R8(static_cast<double>(value));
}

// A date, currency or decimal: a number with a fraction, so R8.
HRESULT FromFractional(const VARIANT& in, Variant& out) {
    ScopedVariant converted;
    RETURN_HR_IF(DISP_E_TYPEMISMATCH,
                 FAILED(::VariantChangeType(converted.Get(), const_cast<VARIANT*>(&in), 0, VT_R8)));
    out = Variant::R8(V_R8(converted.Get()));
    return S_OK;
}

HRESULT FromSafeArray(SAFEARRAY* array, VARTYPE elementType, Variant& out,
                      const DispatchBridge* bridge) {
    if (!array) {
        out = Variant();
        return S_OK;
    }
    // The elements are read as the VARIANT's type says; an array that says
    // otherwise of itself would be read out of its bounds.
    VARTYPE stored = VT_EMPTY;
    if (SUCCEEDED(::SafeArrayGetVartype(array, &stored)) && stored != elementType)
        return DISP_E_TYPEMISMATCH;
    const UINT dims = ::SafeArrayGetDim(array);
    if (dims == 0) return DISP_E_TYPEMISMATCH;
    VariantArray result;
    std::size_t total = 1;
    for (UINT d = 1; d <= dims; ++d) {
        LONG lower = 0, upper = 0;
        RETURN_IF_FAILED(::SafeArrayGetLBound(array, d, &lower));
        RETURN_IF_FAILED(::SafeArrayGetUBound(array, d, &upper));
        const auto length = static_cast<std::uint32_t>(upper < lower ? 0 : upper - lower + 1);
        result.lowerBounds.push_back(lower);
        result.lengths.push_back(length);
        total *= length;
    }
    const UINT elementSize = ::SafeArrayGetElemsize(array);
    SafeArrayDataLock lock(array);
    RETURN_IF_FAILED(lock.Status());
    const auto* bytes = static_cast<unsigned char*>(lock.Data());
    result.elements.reserve(total);
    for (std::size_t i = 0; i < total; ++i) {
        void* element = const_cast<unsigned char*>(bytes + i * elementSize);
        Variant value;
        if (elementType == VT_VARIANT) {
            RETURN_IF_FAILED(FromVariant(*static_cast<VARIANT*>(element), value, bridge));
        } else {
            // Any other element is read as a reference to it, which FromVariant
            // already knows how to take.
            VARIANT reference;
            ::VariantInit(&reference);
            V_VT(&reference) = static_cast<VARTYPE>(elementType | VT_BYREF);
            V_BYREF(&reference) = element;
            RETURN_IF_FAILED(FromVariant(reference, value, bridge));
        }
        result.elements.push_back(std::move(value));
    }
    out = Variant::Array(std::move(result));
    return S_OK;
}

HRESULT ToSafeArray(const VariantArray& in, VARIANT& out, const DispatchBridge* bridge) {
    const std::size_t dims = in.lengths.size();
    if (dims == 0 || in.lowerBounds.size() != dims) return E_INVALIDARG;
    std::vector<SAFEARRAYBOUND> bounds(dims);
    std::size_t total = 1;
    for (std::size_t d = 0; d < dims; ++d) {
        bounds[d].cElements = in.lengths[d];
        bounds[d].lLbound = in.lowerBounds[d];
        total *= in.lengths[d];
    }
    if (total != in.elements.size()) return E_INVALIDARG;
    ScopedSafeArray array(::SafeArrayCreate(VT_VARIANT, static_cast<UINT>(dims), bounds.data()));
    if (!array.Get()) return E_OUTOFMEMORY;
    {
        SafeArrayDataLock lock(array.Get());
        RETURN_IF_FAILED(lock.Status());
        auto* slots = static_cast<VARIANT*>(lock.Data());
        for (std::size_t i = 0; i < total; ++i)
            RETURN_IF_FAILED(ToVariant(in.elements[i], slots[i], bridge));
    }
    V_VT(&out) = VT_ARRAY | VT_VARIANT;
    V_ARRAY(&out) = array.Release();
    return S_OK;
}

}  // namespace

DispatchObject::DispatchObject(ComPtr<IDispatch> dispatch, const DispatchBridge* bridge)
    : dispatch_(std::move(dispatch)), bridge_(bridge) {}

HostRef DispatchObject::Wrap(IDispatch* dispatch, const DispatchBridge* bridge) {
    if (!dispatch) return nullptr;
    return std::make_shared<DispatchObject>(ComPtr<IDispatch>(dispatch), bridge);
}

HRESULT DispatchObject::Invoke(std::u16string_view member, InvokeKind kind, const Variant* args,
                               std::size_t count, Variant* result) {
    try {
        if (!dispatch_) return E_POINTER;
        DISPID id = DISPID_UNKNOWN;
        RETURN_IF_FAILED(LookUp(member, id));
        return Call(id, kind, args, count, result);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_FAIL;
    }
}

HRESULT DispatchObject::InvokeDefault(const Variant* args, std::size_t count, Variant* result) {
    try {
        if (!dispatch_) return E_POINTER;
        return Call(DISPID_VALUE, InvokeKind::Get, args, count, result);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_FAIL;
    }
}

HRESULT DispatchObject::LookUp(std::u16string_view member, DISPID& id) {
    for (const auto& [name, known] : dispids_) {
        if (name == member) {
            id = known;
            return S_OK;
        }
    }
    std::u16string name(member);  // GetIDsOfNames wants it NUL-terminated
    LookUpCall call{dispatch_.Get(), reinterpret_cast<LPOLESTR>(name.data()), &id};
    // However the lookup fails, the caller reads it as a member the object lacks.
    if (FAILED(CallGuarded(&LookUpGuarded, &call))) return DISP_E_UNKNOWNNAME;
    dispids_.emplace_back(std::move(name), id);
    return S_OK;
}

HRESULT DispatchObject::Call(DISPID id, InvokeKind kind, const Variant* args, std::size_t count,
                             Variant* result) {
    if (count > 0 && !args) return E_INVALIDARG;
    VariantArgs argv(count);
    for (std::size_t i = 0; i < count; ++i)
        RETURN_IF_FAILED(ToVariant(args[i], argv[i], bridge_));
    DISPID putId = DISPID_PROPERTYPUT;
    DISPPARAMS params{argv.Data(), nullptr, static_cast<UINT>(count), 0};
    WORD flags = DISPATCH_METHOD | DISPATCH_PROPERTYGET;
    if (kind == InvokeKind::Put) {
        if (count == 0) return E_INVALIDARG;  // a put needs its value in args[0]
        flags = DISPATCH_PROPERTYPUT;
        params.rgdispidNamedArgs = &putId;
        params.cNamedArgs = 1;
    }
    ScopedVariant value;
    EXCEPINFO exception{};
    UINT argError = 0;
    VARIANT* const resultSlot = kind == InvokeKind::Put ? nullptr : value.Get();
    InvokeCall call{dispatch_.Get(), id, flags, &params, resultSlot, &exception, &argError};
    HRESULT hr = CallGuarded(&InvokeGuarded, &call);
    if (FAILED(hr)) {
        // After a failure, and above all after a fault, the result slot may
        // hold anything: it is abandoned, not cleared.
        (void)value.Release();
        return hr == DISP_E_EXCEPTION ? ExceptionResult(exception) : hr;
    }
    if (result) {
        Variant converted;
        RETURN_IF_FAILED(FromVariant(value.Value(), converted, bridge_));
        *result = std::move(converted);
    }
    return hr;
}

const void* DispatchObject::Identity() const {
    if (!identity_ && dispatch_) {
        ComPtr<IUnknown> unknown;
        if (SUCCEEDED(dispatch_.As(&unknown))) identity_ = unknown.Get();
    }
    return identity_;
}

bool DispatchObject::Answers(HostInterface which) const {
    if (!dispatch_) return false;
    for (const IID& iid : IidsOf(which)) {
        ComPtr<IUnknown> answer;
        if (SUCCEEDED(dispatch_->QueryInterface(iid, &answer))) return true;
    }
    return false;
}

HRESULT FromVariant(const VARIANT& in, Variant& out, const DispatchBridge* bridge) {
    const VARTYPE type = V_VT(&in);
    if (type & VT_BYREF) {
        ScopedVariant direct;
        RETURN_IF_FAILED(::VariantCopyInd(direct.Get(), const_cast<VARIANT*>(&in)));
        return FromVariant(direct.Value(), out, bridge);
    }
    if (type & VT_ARRAY) return FromSafeArray(V_ARRAY(&in), type & VT_TYPEMASK, out, bridge);
    switch (type) {
        case VT_EMPTY:
            out = Variant();
            return S_OK;
        case VT_NULL:
        case VT_ERROR:
            out = Variant::Null();
            return S_OK;
        case VT_BOOL:
            out = Variant::Bool(V_BOOL(&in) != VARIANT_FALSE);
            return S_OK;
        case VT_I2:
            out = Variant::I2(V_I2(&in));
            return S_OK;
        case VT_I4:
            out = Variant::I4(V_I4(&in));
            return S_OK;
        case VT_R4:
            out = Variant::R4(V_R4(&in));
            return S_OK;
        case VT_R8:
            out = Variant::R8(V_R8(&in));
            return S_OK;
        case VT_BSTR:
            out = Variant::String(
                FromWide(V_BSTR(&in) ? V_BSTR(&in) : L"", ::SysStringLen(V_BSTR(&in))));
            return S_OK;
        case VT_DISPATCH:
            return FromDispatch(V_DISPATCH(&in), out, bridge);
        case VT_UNKNOWN: {
            if (!V_UNKNOWN(&in)) return FromDispatch(nullptr, out, bridge);
            ComPtr<IDispatch> dispatch;
            if (FAILED(V_UNKNOWN(&in)->QueryInterface(IID_PPV_ARGS(&dispatch))))
                return DISP_E_TYPEMISMATCH;
            return FromDispatch(dispatch.Get(), out, bridge);
        }
        case VT_I1:
            out = FromInteger(static_cast<signed char>(V_I1(&in)));
            return S_OK;
        case VT_UI1:
            out = FromInteger(V_UI1(&in));
            return S_OK;
        case VT_UI2:
            out = FromInteger(V_UI2(&in));
            return S_OK;
        case VT_UI4:
            out = FromInteger(V_UI4(&in));
            return S_OK;
        case VT_INT:
            out = FromInteger(V_INT(&in));
            return S_OK;
        case VT_UINT:
            out = FromInteger(V_UINT(&in));
            return S_OK;
        case VT_I8:
            out = FromInteger(static_cast<long double>(V_I8(&in)));
            return S_OK;
        case VT_UI8:
            out = FromInteger(static_cast<long double>(V_UI8(&in)));
            return S_OK;
        case VT_DATE:
        case VT_CY:
        case VT_DECIMAL:
            return FromFractional(in, out);
        default:
            return DISP_E_TYPEMISMATCH;
    }
}

HRESULT ToVariant(const Variant& in, VARIANT& out, const DispatchBridge* bridge) {
    ::VariantInit(&out);
    switch (in.Type()) {
        case VarType::Empty:
            return S_OK;
        case VarType::Null:
            V_VT(&out) = VT_NULL;
            return S_OK;
        case VarType::Bool:
            V_VT(&out) = VT_BOOL;
            V_BOOL(&out) = in.BoolValue() ? VARIANT_TRUE : VARIANT_FALSE;
            return S_OK;
        case VarType::I2: {
            std::int32_t n = 0;
            (void)in.ToInt32(n);
            V_VT(&out) = VT_I2;
            V_I2(&out) = static_cast<SHORT>(n);
            return S_OK;
        }
        case VarType::I4:
            V_VT(&out) = VT_I4;
            V_I4(&out) = in.I4Value();
            return S_OK;
        case VarType::R4:
        case VarType::R8: {
            double d = 0;
            (void)in.ToDouble(d);
            if (in.Type() == VarType::R4) {
                V_VT(&out) = VT_R4;
                V_R4(&out) = static_cast<float>(d);
            } else {
                V_VT(&out) = VT_R8;
                V_R8(&out) = d;
            }
            return S_OK;
        }
        case VarType::String: {
            const std::u16string& text = in.StringValue();
            BSTR bstr = ::SysAllocStringLen(reinterpret_cast<const OLECHAR*>(text.data()),
                                            static_cast<UINT>(text.size()));
            if (!bstr) return E_OUTOFMEMORY;
            V_VT(&out) = VT_BSTR;
            V_BSTR(&out) = bstr;
            return S_OK;
        }
        case VarType::Object: {
            const HostRef& object = in.ObjectValue();
            ComPtr<IDispatch> dispatch;
            if (auto* adapter = dynamic_cast<DispatchObject*>(object.get())) {
                dispatch = adapter->Dispatch();
            } else if (object) {
                if (!bridge || !bridge->exportObject) return DISP_E_TYPEMISMATCH;
                RETURN_IF_FAILED(bridge->exportObject(object, &dispatch));
            }
            V_VT(&out) = VT_DISPATCH;
            V_DISPATCH(&out) = dispatch.Detach();
            return S_OK;
        }
        case VarType::Array:
            return ToSafeArray(in.ArrayValue(), out, bridge);
    }
    return DISP_E_TYPEMISMATCH;
}

}  // namespace qb::host
