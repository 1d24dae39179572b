// Process-wide state of runs on the host's thread: the gate on host
// mutation, which guards against re-entry while a host call pumps messages
// and against touching the host while the user works, and the list of
// presentations that have a run. Host's thread only: no lock.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace qb {

inline constexpr std::uint32_t kStaGateHoldMs = 120;
inline constexpr std::uint32_t kUserActivityHoldMs = 500;

class StaGate {
  public:
    // Opens when nobody is inside and the hold has passed; then `owner` is in.
    static bool TryEnter(const void* owner);
    // Clears the owner and holds the gate shut for `holdMs` from now.
    static void Leave(const void* owner, std::uint32_t holdMs = kStaGateHoldMs);
    // Keeps the gate shut until at least now + `ms` (the user is at work).
    static void HoldFor(std::uint32_t ms);
    static const void* Owner();
    static std::uint64_t NotBefore();
    static void ResetForTesting();
};

// Leaves the gate when the scope ends, also when a host call throws.
class StaGateScope {
  public:
    explicit StaGateScope(const void* owner) : owner_(owner), entered_(StaGate::TryEnter(owner)) {}
    ~StaGateScope() {
        if (entered_) StaGate::Leave(owner_);
    }
    StaGateScope(const StaGateScope&) = delete;
    StaGateScope& operator=(const StaGateScope&) = delete;
    bool Entered() const { return entered_; }

  private:
    const void* owner_;
    bool entered_;
};

class BusyPresentationRegistry {
  public:
    // False when the presentation already has a run.
    static bool Add(const void* presentation, const void* ownerPane);
    static bool Contains(const void* presentation);
    static void Remove(const void* presentation, const void* ownerPane);
    static void ResetForTesting();
};

}  // namespace qb
