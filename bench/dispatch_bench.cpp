// What one member call through the host-object seam costs on a small fake
// object: the floor under every host call the engine makes. The same calls
// through real IDispatch are measured under Wine by dispatch_bench_win.
#include <benchmark/benchmark.h>

#include <memory>

#include "slides/automation.h"

namespace {

using namespace qb::host;

class FakeShape final : public HostObject {
  public:
    HRESULT Invoke(std::u16string_view member, InvokeKind kind, const Variant*, std::size_t,
                   Variant* result) override {
        if (kind != InvokeKind::Get) return DISP_E_MEMBERNOTFOUND;
        if (member == u"Left") {
            *result = Variant::R4(12.5f);
            return S_OK;
        }
        if (member == u"Name") {
            *result = Variant::String(u"Rectangle 1");
            return S_OK;
        }
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT InvokeDefault(const Variant*, std::size_t, Variant*) override { return E_NOTIMPL; }
    const void* Identity() const override { return this; }
    bool Answers(HostInterface which) const override { return which == HostInterface::Shape; }
};

void SeamGetFloat(benchmark::State& state) {
    const HostRef shape = std::make_shared<FakeShape>();
    float value = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(GetFloat(shape, u"Left", value));
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(SeamGetFloat);

void SeamGetString(benchmark::State& state) {
    const HostRef shape = std::make_shared<FakeShape>();
    std::u16string value;
    for (auto _ : state) {
        benchmark::DoNotOptimize(GetString(shape, u"Name", value));
        benchmark::DoNotOptimize(value.data());
    }
}
BENCHMARK(SeamGetString);

void SeamMissingMember(benchmark::State& state) {
    const HostRef shape = std::make_shared<FakeShape>();
    Variant value;
    for (auto _ : state)
        benchmark::DoNotOptimize(DispGet(shape, u"TextFrame2", &value));
}
BENCHMARK(SeamMissingMember);

}  // namespace

BENCHMARK_MAIN();
