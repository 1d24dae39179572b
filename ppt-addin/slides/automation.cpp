// The by-name call helpers over the host-object seam.
#include "slides/automation.h"

#include <vector>

namespace qb::host {

HRESULT DispCall(const HostRef& object, std::u16string_view name, const Variant* args,
                 std::size_t count, Variant* result) {
    if (!object) return E_POINTER;
    Variant ignored;
    return object->Invoke(name, InvokeKind::Get, args, count, result ? result : &ignored);
}

HRESULT DispGet(const HostRef& object, std::u16string_view name, Variant* result) {
    return DispCall(object, name, nullptr, 0, result);
}

HRESULT DispPut(const HostRef& object, std::u16string_view name, const Variant& value,
                const Variant* args, std::size_t count) {
    if (!object) return E_POINTER;
    std::vector<Variant> all;
    all.reserve(count + 1);
    all.push_back(value);
    for (std::size_t i = 0; i < count; ++i)
        all.push_back(args[i]);
    return object->Invoke(name, InvokeKind::Put, all.data(), all.size(), nullptr);
}

HRESULT DispDefault(const HostRef& object, const Variant* args, std::size_t count,
                    Variant* result) {
    if (!object) return E_POINTER;
    Variant ignored;
    return object->InvokeDefault(args, count, result ? result : &ignored);
}

namespace {

HRESULT TakeObject(HRESULT hr, const Variant& value, HostRef& out) {
    if (FAILED(hr)) return hr;
    if (value.Type() != VarType::Object || !value.ObjectValue()) return E_FAIL;
    out = value.ObjectValue();
    return S_OK;
}

}  // namespace

HRESULT GetItem(const HostRef& collection, std::int32_t index, HostRef& out) {
    const Variant arg = Variant::I4(index);
    Variant value;
    if (SUCCEEDED(TakeObject(DispCall(collection, u"Item", &arg, 1, &value), value, out))) {
        return S_OK;
    }
    value = Variant();
    return TakeObject(DispDefault(collection, &arg, 1, &value), value, out);
}

HRESULT GetItemDirect(const HostRef& collection, std::int32_t index, HostRef& out) {
    const Variant arg = Variant::I4(index);
    Variant value;
    return TakeObject(DispDefault(collection, &arg, 1, &value), value, out);
}

HRESULT DispItem(const HostRef& collection, std::int32_t index, HostRef& outShape) {
    const Variant arg = Variant::I4(index);
    Variant value;
    HostRef item;
    const HRESULT hr = TakeObject(DispCall(collection, u"Item", &arg, 1, &value), value, item);
    if (FAILED(hr)) return hr;
    if (!item->Answers(HostInterface::Shape)) return E_NOINTERFACE;
    outShape = std::move(item);
    return S_OK;
}

HRESULT GetObject(const HostRef& object, std::u16string_view name, HostRef& out) {
    Variant value;
    return TakeObject(DispGet(object, name, &value), value, out);
}

HRESULT GetInt32(const HostRef& object, std::u16string_view name, std::int32_t& out) {
    Variant value;
    RETURN_IF_FAILED(DispGet(object, name, &value));
    std::int32_t converted = 0;
    if (!value.ToInt32(converted)) return DISP_E_TYPEMISMATCH;
    out = converted;
    return S_OK;
}

HRESULT GetFloat(const HostRef& object, std::u16string_view name, float& out) {
    Variant value;
    RETURN_IF_FAILED(DispGet(object, name, &value));
    double converted = 0;
    if (!value.ToDouble(converted)) return DISP_E_TYPEMISMATCH;
    out = static_cast<float>(converted);
    return S_OK;
}

HRESULT GetString(const HostRef& object, std::u16string_view name, std::u16string& out) {
    Variant value;
    RETURN_IF_FAILED(DispGet(object, name, &value));
    if (value.Type() != VarType::String) return DISP_E_TYPEMISMATCH;
    out = value.StringValue();
    return S_OK;
}

HRESULT GetTruth(const HostRef& object, std::u16string_view name, bool& out) {
    Variant value;
    RETURN_IF_FAILED(DispGet(object, name, &value));
    switch (value.Type()) {
        case VarType::Bool:
        case VarType::I2:
        case VarType::I4: {
            std::int32_t n = 0;
            if (!value.ToInt32(n)) return DISP_E_TYPEMISMATCH;
            out = n != 0;
            return S_OK;
        }
        default:
            return DISP_E_TYPEMISMATCH;
    }
}

bool SameIdentity(const HostRef& a, const HostRef& b) {
    return a && b && a->Identity() != nullptr && a->Identity() == b->Identity();
}

}  // namespace qb::host
