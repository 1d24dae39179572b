// The gate on host mutation and the registry of busy presentations.
#include "run/sta_gate.h"

#include <algorithm>

#include "foundation/platform.h"

namespace qb {
namespace {

struct Gate {
    const void* owner = nullptr;
    std::uint64_t notBefore = 0;
};

Gate& TheGate() {
    static Gate gate;
    return gate;
}

std::vector<std::pair<const void*, const void*>>& Busy() {
    static std::vector<std::pair<const void*, const void*>> busy;
    return busy;
}

}  // namespace

bool StaGate::TryEnter(const void* owner) {
    Gate& gate = TheGate();
    if (gate.owner != nullptr) return false;
    if (platform::CurrentClock().TickCount64() < gate.notBefore) return false;
    gate.owner = owner ? owner : &gate;
    return true;
}

void StaGate::Leave(const void*, std::uint32_t holdMs) {
    Gate& gate = TheGate();
    gate.owner = nullptr;
    HoldFor(holdMs);
}

void StaGate::HoldFor(std::uint32_t ms) {
    Gate& gate = TheGate();
    gate.notBefore = std::max(gate.notBefore, platform::CurrentClock().TickCount64() + ms);
}

const void* StaGate::Owner() {
    return TheGate().owner;
}

std::uint64_t StaGate::NotBefore() {
    return TheGate().notBefore;
}

void StaGate::ResetForTesting() {
    TheGate() = Gate();
}

bool BusyPresentationRegistry::Add(const void* presentation, const void* ownerPane) {
    if (Contains(presentation)) return false;
    Busy().emplace_back(presentation, ownerPane);
    return true;
}

bool BusyPresentationRegistry::Contains(const void* presentation) {
    const auto& busy = Busy();
    return std::any_of(busy.begin(), busy.end(),
                       [presentation](const auto& entry) { return entry.first == presentation; });
}

void BusyPresentationRegistry::Remove(const void* presentation, const void* ownerPane) {
    auto& busy = Busy();
    busy.erase(std::remove(busy.begin(), busy.end(), std::make_pair(presentation, ownerPane)),
               busy.end());
}

void BusyPresentationRegistry::ResetForTesting() {
    Busy().clear();
}

}  // namespace qb
