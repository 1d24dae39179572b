// Calls into the host's object model by member name, with the habits the
// engine relies on: a member the object lacks is a normal answer, nothing is
// retried, and collections are reached by Item by name, then the direct Item.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "slides/host_object.h"

namespace qb::host {

// A get or a call (IDispatch flags 3). Arguments lie last first. A null
// object gives E_POINTER; `result` may be null.
[[nodiscard]] HRESULT DispCall(const HostRef& object, std::u16string_view name, const Variant* args,
                               std::size_t count, Variant* result);
[[nodiscard]] HRESULT DispGet(const HostRef& object, std::u16string_view name, Variant* result);
// A put by name (flags 4, named argument -3), with the member's own
// arguments, if any, last first.
[[nodiscard]] HRESULT DispPut(const HostRef& object, std::u16string_view name, const Variant& value,
                              const Variant* args = nullptr, std::size_t count = 0);
// The default member: the direct Item.
[[nodiscard]] HRESULT DispDefault(const HostRef& object, const Variant* args, std::size_t count,
                                  Variant* result);

// Item(index) with a VT_I4: by name first, then the direct Item. `out` is
// set only to an object.
[[nodiscard]] HRESULT GetItem(const HostRef& collection, std::int32_t index, HostRef& out);
// Item(index) by the direct way only.
[[nodiscard]] HRESULT GetItemDirect(const HostRef& collection, std::int32_t index, HostRef& out);
// Item by name with a VT_I4, then the object must answer Shape: a result
// that is no object gives E_FAIL, one that isn't a shape E_NOINTERFACE.
[[nodiscard]] HRESULT DispItem(const HostRef& collection, std::int32_t index, HostRef& outShape);

// Typed reads of a member without arguments. Each gives a failing HRESULT,
// and leaves `out` alone, when the call fails or the value doesn't convert.
[[nodiscard]] HRESULT GetObject(const HostRef& object, std::u16string_view name, HostRef& out);
[[nodiscard]] HRESULT GetInt32(const HostRef& object, std::u16string_view name, std::int32_t& out);
[[nodiscard]] HRESULT GetFloat(const HostRef& object, std::u16string_view name, float& out);
[[nodiscard]] HRESULT GetString(const HostRef& object, std::u16string_view name,
                                std::u16string& out);
// A truth value: VT_BOOL, I2 or I4, any non-zero value is true.
[[nodiscard]] HRESULT GetTruth(const HostRef& object, std::u16string_view name, bool& out);

// Same object by identity (both non-null and the same IUnknown).
bool SameIdentity(const HostRef& a, const HostRef& b);

}  // namespace qb::host
