// Telemetry beacons: three events told to the service, each sent on a short
// thread of its own that the caller never waits for. A beacon carries no
// user text and no token, and its failure leaves only a log line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qb {

inline constexpr char16_t kLoadedEvent[] = u"addin:loaded";
inline constexpr char16_t kSupportClickEvent[] = u"support:entry_click";
inline constexpr char16_t kPluginErrorEvent[] = u"plugin:error";

// The plain body: `event`, `context`, `outcome` "ok", `props` with
// `source` ("unknown" when empty). Names and sources go in unescaped.
std::u16string BuildEventBody(std::u16string_view eventName, std::u16string_view source);
// The error body of a failed web view bring-up.
std::u16string BuildPluginErrorBody(std::u16string_view stepText, std::int32_t hresult);
// "controller", "environment", "user_data_dir" or "init", from the text
// naming the failing step.
std::u16string StageOfStep(std::u16string_view stepText);

// Sends a plain event. "addin:loaded" goes once a process; a second call
// does nothing.
void SendEvent(std::u16string_view eventName, std::u16string_view source);
// Sends "plugin:error", once a process.
void SendPluginError(std::u16string_view stepText, std::int32_t hresult);
// Sends a body on a detached thread. False when no thread could be
// started; the event is then dropped.
bool PostBeacon(std::u16string_view eventName, const std::u16string& body);

// The once-a-process latches, owned here. Other parts ask them instead of
// keeping their own.
bool LoadedEventSent();
bool PluginErrorSent();

// For tests: clears both latches, and waits (up to `timeoutMs`) until every
// beacon thread has ended. True when none is left.
void ResetBeaconLatchesForTesting();
bool WaitForBeaconsForTesting(std::uint32_t timeoutMs);

namespace detail {
// Keeps the add-in's module loaded for good, so that a beacon thread may
// outlive the host's unloading of it. Nothing to do on Linux.
void PinModuleForBeacons();
}  // namespace detail

}  // namespace qb
