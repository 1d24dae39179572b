// The stand-in of the translation service: an HTTP server on the loopback
// address that speaks /v1/translate, /v1/terminology/resolve and
// /v1/analytics/events, checks the bearer token and the request's fields,
// translates with PseudoTranslate, records every request, and fails on
// purpose when told to: per request (a text holding "@fault:NAME") or by
// rule.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace qb::sim {

enum class FaultKind {
    None,
    Status,               // answer `status` with `body` (may be empty)
    WrongCount,           // one translation too few
    DamagedPlaceholders,  // locked tokens taken out of the translations
    Late,                 // wait `delayMs`, then answer as usual
    Never,                // hold the request until the service stops
    Drop,                 // promise a body, then close the connection without it
};

struct Fault {
    FaultKind kind = FaultKind::None;
    int status = 0;
    std::string body;
    std::uint32_t delayMs = 0;
};

// "401", "402", "500", "429" (any three digits: that status, empty body),
// "count", "placeholders", "late", "never", "drop".
std::optional<Fault> FaultFromName(std::string_view name, std::uint32_t lateMs);

// A text holding this and a fault's name makes its request fail that way.
inline constexpr char kFaultDirective[] = "@fault:";

struct ServiceRule {
    std::string path;          // empty: every path
    std::string bodyContains;  // empty: every request
    int times = -1;            // how many requests it applies to; -1 for ever
    Fault fault;
};

struct RecordedRequest {
    std::string path;
    std::string authorization;
    std::string userAgent;
    std::string contentType;
    std::string body;
    int status = 0;  // what was answered; 0 while held or dropped
};

struct TermEntry {
    std::u16string source;
    std::u16string target;
    std::u16string note;
    bool enabled = true;
};

class StandInService {
  public:
    struct Options {
        std::string token = "stand-in-token";
        std::uint32_t lateMs = 1500;  // how late "late" is
        // Every translate and resolve answer waits this long first, as a
        // remote service's round trip would.
        std::uint32_t latencyMs = 0;
        // Non-empty: the web panel's pages are served from this folder under
        // /panel, with the stand-in sign-in they use (/v1/auth/signin).
        std::string panelFolder;
    };

    StandInService();
    explicit StandInService(Options options);
    ~StandInService();
    StandInService(const StandInService&) = delete;
    StandInService& operator=(const StandInService&) = delete;

    // On 127.0.0.1; port 0 takes a free one. False when it can't listen.
    [[nodiscard]] bool Start(int port = 0);
    // Wakes held requests and waits for the server's threads to end.
    void Stop();
    int Port() const { return port_; }
    const std::string& Token() const { return options_.token; }

    void AddRule(ServiceRule rule);
    // The next `times` requests to `path` fail with `fault`.
    void FailNext(std::string path, Fault fault, int times = 1);
    void ClearRules();

    // Glossary terms by glossary id, and instruction texts by id, for the
    // terminology endpoint.
    void AddTerm(const std::u16string& glossaryId, TermEntry entry);
    void SetInstruction(const std::u16string& instructionId, std::u16string text);

    std::vector<RecordedRequest> Requests() const;
    std::vector<RecordedRequest> RequestsTo(std::string_view path) const;
    // Waits until `count` requests to `path` have arrived; false on time-out.
    bool WaitForRequests(std::string_view path, std::size_t count, std::uint32_t timeoutMs) const;

  private:
    struct Impl;
    Options options_;
    int port_ = 0;
    std::unique_ptr<Impl> impl_;
};

}  // namespace qb::sim
