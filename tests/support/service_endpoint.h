// Aims the service client at the stand-in service on the loopback address
// for one scope. Natively the stand-in runs in the test process; the
// Windows executables under Wine reach the native standalone one, whose
// port scripts/test.sh hands over in QB_STAND_IN_PORT.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

#include "run/service_client.h"

namespace qb::test {

inline constexpr char kStandInPortVariable[] = "QB_STAND_IN_PORT";

// The port of a stand-in started outside the process, or 0 when none was.
inline std::uint16_t StandInPortFromEnvironment() {
    const char* text = std::getenv(kStandInPortVariable);
    if (!text) return 0;
    const long port = std::strtol(text, nullptr, 10);
    return port > 0 && port < 65536 ? static_cast<std::uint16_t>(port) : 0;
}

class ScopedServiceEndpoint {
  public:
    ScopedServiceEndpoint(std::uint16_t port, std::uint32_t timeoutMs = 0) {
        SetHttpEndpointForTesting(u"127.0.0.1", port);
        SetHttpTimeoutForTesting(timeoutMs);
    }
    ~ScopedServiceEndpoint() {
        SetHttpEndpointForTesting(std::u16string(), 0);
        SetHttpTimeoutForTesting(0);
    }
    ScopedServiceEndpoint(const ScopedServiceEndpoint&) = delete;
    ScopedServiceEndpoint& operator=(const ScopedServiceEndpoint&) = delete;
};

}  // namespace qb::test
