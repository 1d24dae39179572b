// The exchange with the translation service: the one HTTP POST of the
// add-in, the translate request written by hand and its reply read by the
// scanners, every failure turned into a code and a message. Blocks on the
// caller's thread; in a run that is the worker.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "run/run_types.h"
#include "slides/host_variant.h"

namespace qb {

// Where a request goes. A run always has the build's service host, port 443
// and TLS.
struct HttpEndpoint {
    std::u16string host = kServiceHost;
    std::uint16_t port = kServicePort;
    bool secure = true;
};

inline constexpr char16_t kTranslatePath[] = u"/v1/translate";
inline constexpr char16_t kTerminologyPath[] = u"/v1/terminology/resolve";
inline constexpr char16_t kAnalyticsPath[] = u"/v1/analytics/events";
inline constexpr char kUserAgent[] = "Quillbrook/1.0";

inline constexpr char16_t kUnauthorizedMessage[] =
    u"\u767b\u5f55\u5df2\u5931\u6548\uff0c\u8bf7\u91cd\u65b0\u767b\u5f55";
inline constexpr char16_t kInsufficientCreditsMessage[] =
    u"\u79ef\u5206\u4e0d\u8db3\uff0c\u8bf7\u5145\u503c\u6216\u5347\u7ea7\u5957\u9910\u540e\u7ee7"
    u"\u7eed\u7ffb\u8bd1\u3002";

// "https://" or "http://", the host, ":port" unless the scheme's default,
// then the path with a leading "/".
std::u16string BuildServiceUrl(const HttpEndpoint& endpoint, std::u16string_view path);

// Posts a JSON body and returns the reply body, empty on failure with
// `outError` saying why. Every pointer may be null. `outStatus` is set to 0
// first, then to the HTTP status once a response came.
std::u16string HttpPostJson(const HttpEndpoint& endpoint, std::u16string_view path,
                            const std::string& bodyUtf8, std::u16string* outError = nullptr,
                            const std::u16string* bearerToken = nullptr,
                            const std::atomic<std::uint8_t>* cancelFlag = nullptr,
                            const std::atomic<std::uint8_t>* pauseFlag = nullptr,
                            std::uint32_t* outStatus = nullptr);

// The request body of one batch, in its fixed key order, as UTF-16 text.
std::u16string BuildTranslateBody(const TranslateBatchRequest& request);

// The string under "message", or when that is empty the one under "error".
std::u16string ReadFailureText(std::u16string_view replyText);

// Turns a reply (or its absence) into a result, as TranslateNative does
// after the post. `expectedCount` is the number of texts sent.
TranslateBatchResult ReadTranslateReply(const std::u16string& reply, std::uint32_t status,
                                        const std::u16string& transportError,
                                        std::size_t expectedCount);

// One batch over HTTP to "/v1/translate" with the config's token, endpoint
// and cancel and pause flags. Never throws; a failure is a result with
// `ok` false.
TranslateBatchResult TranslateNative(TranslateClientConfig& config,
                                     const TranslateBatchRequest& request);

// The native road of one run, bound to that run's configuration.
BatchTransport BindNativeRoad(TranslateClientConfig& config);

// The document key of a presentation's full name: "%016llx" of the 64-bit
// FNV-1a over its lower-cased 16-bit units.
std::u16string DocKeyFromFullName(std::u16string_view fullName);

// The key the panel's "docKeyGet" query answers: "_no_doc" without a
// presentation, "_unsaved" when its FullName can't be read or is empty.
std::u16string ReadDocKey(const host::HostRef& presentation);

// Test seams, process-wide. Every request goes to `host`:`port` over plain
// HTTP instead of its endpoint while an override is set; an empty host
// removes it. The time-out (ms, 0 for the platform's defaults) applies to
// connect, send and receive alike.
void SetHttpEndpointForTesting(std::u16string host, std::uint16_t port);
void SetHttpTimeoutForTesting(std::uint32_t milliseconds);

namespace detail {

// What the platform's HTTP side is given: the endpoint in force, and a gate
// it runs between reads (true means stop).
struct HttpCall {
    HttpEndpoint endpoint;
    std::u16string path;
    const std::string* body = nullptr;
    std::u16string bearerToken;
    std::uint32_t timeoutMs = 0;
    const std::atomic<std::uint8_t>* cancelFlag = nullptr;
    const std::atomic<std::uint8_t>* pauseFlag = nullptr;
};

// Windows: WinHTTP (service_client_win.cpp); Linux: service_client_posix.cpp.
// Returns the reply bytes; empty with `error` on failure.
std::string PostJsonNative(const HttpCall& call, std::u16string& error, std::uint32_t& status);

// The gate: true (stop, `error` "Cancelled") when cancelled; waits while
// paused, looking every 50 ms.
bool GateSaysStop(const std::atomic<std::uint8_t>* cancelFlag,
                  const std::atomic<std::uint8_t>* pauseFlag);

}  // namespace detail

}  // namespace qb
