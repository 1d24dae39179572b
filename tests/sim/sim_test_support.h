// Shortcuts for driving the simulated host through the host-object seam, as
// the engine does.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "sim/host/sim_host.h"
#include "slides/automation.h"

#if defined(_WIN32)
#include <wrl/client.h>

#include "sim/dispatch/export_win.h"
#include "slides/dispatch_win.h"
#endif

namespace qb::sim::test {

using host::HostRef;
using host::Variant;

// Calls a member with arguments in natural order; fails the test on error.
inline Variant Call(const HostRef& object, std::u16string_view name,
                    std::initializer_list<Variant> natural = {}) {
    std::vector<Variant> lastFirst(natural.begin(), natural.end());
    std::reverse(lastFirst.begin(), lastFirst.end());
    Variant result;
    const HRESULT hr = host::DispCall(object, name, lastFirst.data(), lastFirst.size(), &result);
    EXPECT_EQ(hr, S_OK) << "call failed";
    return result;
}

inline HostRef Object(const HostRef& object, std::u16string_view name,
                      std::initializer_list<Variant> natural = {}) {
    const Variant v = Call(object, name, natural);
    EXPECT_EQ(v.Type(), host::VarType::Object);
    return v.ObjectValue();
}

inline std::int32_t Int(const HostRef& object, std::u16string_view name,
                        std::initializer_list<Variant> natural = {}) {
    std::int32_t n = -12345;
    EXPECT_TRUE(Call(object, name, natural).ToInt32(n));
    return n;
}

inline float Float(const HostRef& object, std::u16string_view name) {
    double d = -12345;
    EXPECT_TRUE(Call(object, name).ToDouble(d));
    return static_cast<float>(d);
}

inline std::u16string Text(const HostRef& object, std::u16string_view name = u"Text") {
    return Call(object, name).StringValue();
}

inline HRESULT Put(const HostRef& object, std::u16string_view name, Variant value) {
    return host::DispPut(object, name, value);
}

inline Variant I4(std::int32_t v) {
    return Variant::I4(v);
}
inline Variant Str(std::u16string v) {
    return Variant::String(std::move(v));
}

// The host's Application as the add-in meets it. Natively that is the
// simulated object itself; in the Windows tests it is the same object
// exported as a real IDispatch and wrapped by the adapter again, so that
// every test here also runs the adapter and the export.
inline HostRef Root(SimHost& host) {
#if defined(_WIN32)
    Microsoft::WRL::ComPtr<IDispatch> exported;
    if (FAILED(ExportDispatch(host.Application(), exported.GetAddressOf()))) return nullptr;
    return host::DispatchObject::Wrap(exported.Get(), ExportBridge());
#else
    return host.Application();
#endif
}

// Application -> Windows(1) -> Presentation -> Slides.
inline HostRef SlidesOf(SimHost& host) {
    const HostRef window = Object(Object(Root(host), u"Windows"), u"Item", {I4(1)});
    return Object(Object(window, u"Presentation"), u"Slides");
}

inline HostRef ShapeAt(SimHost& host, std::int32_t slide, std::int32_t index) {
    return Object(Object(Object(SlidesOf(host), u"Item", {I4(slide)}), u"Shapes"), u"Item",
                  {I4(index)});
}

inline HostRef FrameRange(const HostRef& shape) {
    return Object(Object(shape, u"TextFrame"), u"TextRange");
}

}  // namespace qb::sim::test
