// What one member call costs through real IDispatch: raw Invoke on an
// exported fake object, and the whole road the engine takes (the adapter
// over the export, GetIDsOfNames cached, the guard, VARIANT conversions).
// Self-timed, since the Windows builds have no Google Benchmark; run it
// under Wine by hand: it prints nanoseconds per call.
#include <windows.h>

#include <cstdio>
#include <memory>

#include "foundation/com_win.h"
#include "sim/dispatch/export_win.h"
#include "slides/automation.h"
#include "slides/dispatch_win.h"

namespace {

using namespace qb::host;

class FakeShape final : public HostObject {
  public:
    HRESULT Invoke(std::u16string_view member, InvokeKind kind, const Variant*, std::size_t,
                   Variant* result) override {
        if (kind == InvokeKind::Get && member == u"Left") {
            *result = Variant::R4(12.5f);
            return S_OK;
        }
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT InvokeDefault(const Variant*, std::size_t, Variant*) override { return E_NOTIMPL; }
    const void* Identity() const override { return this; }
    bool Answers(HostInterface which) const override { return which == HostInterface::Shape; }
};

double Now() {
    LARGE_INTEGER counter, frequency;
    ::QueryPerformanceCounter(&counter);
    ::QueryPerformanceFrequency(&frequency);
    return static_cast<double>(counter.QuadPart) * 1e9 / static_cast<double>(frequency.QuadPart);
}

// Runs `call` in rounds until a round takes a tenth of a second, then
// reports the best of five rounds of that size.
template <typename Call>
void Measure(const char* name, Call call) {
    long rounds = 1000;
    for (;;) {
        const double start = Now();
        for (long i = 0; i < rounds; ++i)
            call();
        if (Now() - start > 1e8 || rounds > 100000000) break;
        rounds *= 4;
    }
    double best = 1e300;
    for (int trial = 0; trial < 5; ++trial) {
        const double start = Now();
        for (long i = 0; i < rounds; ++i)
            call();
        const double each = (Now() - start) / static_cast<double>(rounds);
        if (each < best) best = each;
    }
    std::printf("%-44s %10.1f ns/call\n", name, best);
}

}  // namespace

int main() {
    const HostRef fake = std::make_shared<FakeShape>();
    qb::ComPtr<IDispatch> exported;
    if (FAILED(qb::sim::ExportDispatch(fake, &exported))) return 1;

    LPOLESTR name = const_cast<LPOLESTR>(L"Left");
    DISPID id = 0;
    if (FAILED(exported->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id))) return 1;
    Measure("IDispatch::Invoke (exported fake)", [&] {
        DISPPARAMS none{nullptr, nullptr, 0, 0};
        qb::ScopedVariant result;
        (void)exported->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT,
                               DISPATCH_METHOD | DISPATCH_PROPERTYGET, &none, result.Get(), nullptr,
                               nullptr);
    });
    Measure("GetIDsOfNames + Invoke (exported fake)", [&] {
        DISPID each = 0;
        DISPPARAMS none{nullptr, nullptr, 0, 0};
        qb::ScopedVariant result;
        (void)exported->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &each);
        (void)exported->Invoke(each, IID_NULL, LOCALE_USER_DEFAULT,
                               DISPATCH_METHOD | DISPATCH_PROPERTYGET, &none, result.Get(), nullptr,
                               nullptr);
    });

    const HostRef adapter = DispatchObject::Wrap(exported.Get(), qb::sim::ExportBridge());
    float left = 0;
    Measure("GetFloat through the adapter", [&] { (void)GetFloat(adapter, u"Left", left); });
    Variant missing;
    Measure("missing member through the adapter",
            [&] { (void)DispGet(adapter, u"TextFrame2", &missing); });
    Measure("GetFloat on the fake itself (the seam alone)",
            [&] { (void)GetFloat(fake, u"Left", left); });
    return 0;
}
