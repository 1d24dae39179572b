// The portable half of the service exchange: the gate, the test overrides,
// the request body and the reading of the reply.
#include "run/service_client.h"

#include <cinttypes>
#include <cstdio>
#include <mutex>

#include "foundation/char_class.h"
#include "foundation/platform.h"
#include "foundation/text.h"
#include "run/batch_loop.h"
#include "run/client_identity.h"
#include "run/json.h"
#include "slides/automation.h"

namespace qb {
namespace {

struct TestOverride {
    std::mutex lock;
    std::u16string host;
    std::uint16_t port = 0;
    std::uint32_t timeoutMs = 0;
};

TestOverride& Override() {
    static TestOverride value;
    return value;
}

std::u16string Decimal(unsigned long long value) {
    return AsciiToUtf16(std::to_string(value));
}

std::u16string EscapedArray(const std::vector<std::u16string>& items) {
    std::u16string out = u"[";
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i) out += u',';
        out += u'"';
        out += JsonEscape(items[i]);
        out += u'"';
    }
    out += u']';
    return out;
}

}  // namespace

void SetHttpEndpointForTesting(std::u16string host, std::uint16_t port) {
    TestOverride& o = Override();
    std::lock_guard<std::mutex> hold(o.lock);
    o.host = std::move(host);
    o.port = port;
}

void SetHttpTimeoutForTesting(std::uint32_t milliseconds) {
    TestOverride& o = Override();
    std::lock_guard<std::mutex> hold(o.lock);
    o.timeoutMs = milliseconds;
}

std::u16string BuildServiceUrl(const HttpEndpoint& endpoint, std::u16string_view path) {
    std::u16string url = endpoint.secure ? u"https://" : u"http://";
    url += endpoint.host;
    const std::uint16_t schemeDefault = endpoint.secure ? 443 : 80;
    if (endpoint.port != schemeDefault) url += u":" + Decimal(endpoint.port);
    if (path.empty() || path.front() != u'/') url += u'/';
    url += path;
    return url;
}

namespace detail {

bool GateSaysStop(const std::atomic<std::uint8_t>* cancelFlag,
                  const std::atomic<std::uint8_t>* pauseFlag) {
    const auto cancelled = [&] {
        return cancelFlag && cancelFlag->load(std::memory_order_relaxed) != 0;
    };
    if (cancelled()) return true;
    while (pauseFlag && pauseFlag->load(std::memory_order_relaxed) != 0) {
        if (cancelled()) return true;
        platform::CurrentClock().Sleep(kPauseStepMs);
    }
    return cancelled();
}

}  // namespace detail

std::u16string HttpPostJson(const HttpEndpoint& endpoint, std::u16string_view path,
                            const std::string& bodyUtf8, std::u16string* outError,
                            const std::u16string* bearerToken,
                            const std::atomic<std::uint8_t>* cancelFlag,
                            const std::atomic<std::uint8_t>* pauseFlag, std::uint32_t* outStatus) {
    std::u16string error;
    std::uint32_t status = 0;
    if (outStatus) *outStatus = 0;
    if (outError) outError->clear();
    if (detail::GateSaysStop(cancelFlag, pauseFlag)) {
        if (outError) *outError = u"Cancelled";
        return {};
    }
    detail::HttpCall call;
    call.endpoint = endpoint;
    call.path = std::u16string(path);
    if (call.path.empty() || call.path.front() != u'/') call.path.insert(0, 1, u'/');
    call.body = &bodyUtf8;
    if (bearerToken) call.bearerToken = *bearerToken;
    call.cancelFlag = cancelFlag;
    call.pauseFlag = pauseFlag;
    {
        TestOverride& o = Override();
        std::lock_guard<std::mutex> hold(o.lock);
        if (!o.host.empty()) {
            call.endpoint.host = o.host;
            call.endpoint.port = o.port;
            call.endpoint.secure = false;
        }
        call.timeoutMs = o.timeoutMs;
    }
    std::string reply;
    try {
        reply = detail::PostJsonNative(call, error, status);
    } catch (...) {
        // Out of memory inside the transport: the exchange failed.
        reply.clear();
        error = u"HTTP request failed";
    }
    if (outStatus) *outStatus = status;
    if (reply.empty()) {
        if (outError) *outError = error.empty() ? u"HTTP request failed" : error;
        return {};
    }
    return Utf8ToUtf16(reply);
}

std::u16string BuildTranslateBody(const TranslateBatchRequest& request) {
    std::u16string body = u"{\"texts\":" + EscapedArray(request.texts);
    if (!request.unitIds.empty()) body += u",\"unitIds\":" + EscapedArray(request.unitIds);
    // Language codes are the panel's own short words and go in as they are.
    body += u",\"sourceLang\":\"" + request.sourceLang + u"\"";
    body += u",\"targetLang\":\"" + request.targetLang + u"\"";
    if (!request.usageKind.empty()) {
        body += u",\"usageKind\":\"" + JsonEscape(request.usageKind) + u"\"";
    }
    if (!request.clientProduct.empty()) {
        body += u",\"clientProduct\":\"" + JsonEscape(request.clientProduct) + u"\"";
    }
    if (!request.glossary.empty()) {
        body += u",\"glossary\":[";
        for (std::size_t i = 0; i < request.glossary.size(); ++i) {
            const TranslationGlossaryItem& item = request.glossary[i];
            if (i) body += u',';
            body += u"{\"source\":\"" + JsonEscape(item.source) + u"\",\"target\":\"" +
                    JsonEscape(item.target) + u"\"";
            if (!item.note.empty()) body += u",\"note\":\"" + JsonEscape(item.note) + u"\"";
            body += u'}';
        }
        body += u']';
    }
    if (!request.instruction.empty()) {
        body += u",\"instruction\":\"" + JsonEscape(request.instruction) + u"\"";
    }
    if (request.runId != 0 || request.batchSeq != 0 || !request.clientTraceId.empty()) {
        std::u16string trace;
        if (!request.clientTraceId.empty()) {
            trace += u"\"clientTraceId\":\"" + JsonEscape(request.clientTraceId) + u"\"";
        }
        if (request.runId != 0) {
            if (!trace.empty()) trace += u',';
            trace += u"\"runId\":\"" + Decimal(request.runId) + u"\"";
        }
        if (request.batchSeq != 0) {
            if (!trace.empty()) trace += u',';
            trace += u"\"batchSeq\":" + Decimal(request.batchSeq);
        }
        body += u",\"trace\":{" + trace + u"}";
    }
    body += u",\"clientContext\":" + BuildClientContext();
    body += u'}';
    return body;
}

std::u16string ReadFailureText(std::u16string_view replyText) {
    std::u16string text = ReadJsonString(replyText, u"message");
    if (text.empty()) text = ReadJsonString(replyText, u"error");
    return text;
}

TranslateBatchResult ReadTranslateReply(const std::u16string& reply, std::uint32_t status,
                                        const std::u16string& transportError,
                                        std::size_t expectedCount) {
    TranslateBatchResult result;
    if (reply.empty()) {
        if (status == 401) {
            result.code = u"unauthorized";
            result.message = kUnauthorizedMessage;
        } else if (status == 402) {
            result.code = u"insufficient_credits";
            result.message = kInsufficientCreditsMessage;
        } else {
            result.code = u"network_error";
            result.message = transportError.empty() ? u"HTTP request failed" : transportError;
        }
        return result;
    }
    std::vector<std::u16string> translations = ReadJsonStringArray(reply, u"translations");
    if (!translations.empty()) {
        if (translations.size() == expectedCount) {
            // Translations count whatever the status says.
            result.ok = true;
            result.translations = std::move(translations);
            result.unitIds = ReadJsonStringArray(reply, u"unitIds");
            if (result.unitIds.size() != result.translations.size()) result.unitIds.clear();
            return result;
        }
        result.message = u"Translation count mismatch";
        return result;
    }
    result.message = ReadFailureText(reply);
    if (result.message.empty()) result.message = u"Empty translation response";
    result.code = ReadJsonString(reply, u"code");
    if (result.code.empty()) result.code = ReadJsonString(reply, u"error");
    if (result.code.empty()) {
        if (status == 401) {
            result.code = u"unauthorized";
        } else if (status == 402) {
            result.code = u"insufficient_credits";
        } else if (result.message.find(u"insufficient_credits") != std::u16string::npos ||
                   result.message.find(u"\u79ef\u5206\u4e0d\u8db3") != std::u16string::npos) {
            result.code = u"insufficient_credits";
        }
    }
    return result;
}

TranslateBatchResult TranslateNative(TranslateClientConfig& config,
                                     const TranslateBatchRequest& request) {
    try {
        const std::string body = Utf16ToUtf8(BuildTranslateBody(request));
        HttpEndpoint endpoint;
        endpoint.host = config.host;
        endpoint.port = config.port;
        endpoint.secure = config.secure;
        std::u16string error;
        std::uint32_t status = 0;
        const std::u16string reply =
            HttpPostJson(endpoint, kTranslatePath, body, &error,
                         config.accessToken.empty() ? nullptr : &config.accessToken,
                         &config.cancelled, &config.paused, &status);
        return ReadTranslateReply(reply, status, error, request.texts.size());
    } catch (...) {
        TranslateBatchResult result;
        result.code = u"network_error";
        result.message = u"HTTP request failed";
        return result;
    }
}

BatchTransport BindNativeRoad(TranslateClientConfig& config) {
    return [&config](const TranslateBatchRequest& request) {
        return TranslateNative(config, request);
    };
}

std::u16string DocKeyFromFullName(std::u16string_view fullName) {
    std::uint64_t hash = 0xCBF29CE484222325ull;
    for (char16_t unit : fullName) {
        hash ^= static_cast<std::uint64_t>(ToLower(unit));
        hash *= 0x100000001B3ull;
    }
    char text[17];
    std::snprintf(text, sizeof text, "%016" PRIx64, hash);
    return AsciiToUtf16(text);
}

std::u16string ReadDocKey(const host::HostRef& presentation) {
    if (!presentation) return u"_no_doc";
    std::u16string fullName;
    if (FAILED(host::GetString(presentation, u"FullName", fullName)) || fullName.empty()) {
        return u"_unsaved";
    }
    return DocKeyFromFullName(fullName);
}

}  // namespace qb
