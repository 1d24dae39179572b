// The HTTP POST on Linux, over cpp-httplib, with the same failure texts as
// the WinHTTP side so that everything above it behaves the same.
#include <httplib.h>

#include <memory>

#include "foundation/text.h"
#include "foundation/trace.h"
#include "run/service_client.h"

namespace qb::detail {
namespace {

// WinHTTP's defaults, which the product leaves in force: 60 s to connect,
// 30 s to send, 30 s to receive.
constexpr std::uint32_t kConnectMs = 60000;
constexpr std::uint32_t kSendMs = 30000;
constexpr std::uint32_t kReceiveMs = 30000;

std::chrono::milliseconds Ms(std::uint32_t value) {
    return std::chrono::milliseconds(value);
}

}  // namespace

std::string PostJsonNative(const HttpCall& call, std::u16string& error, std::uint32_t& status) {
    status = 0;
    const std::string host = Utf16ToUtf8(call.endpoint.host);
    std::unique_ptr<httplib::ClientImpl> client;
    if (call.endpoint.secure) {
        client = std::make_unique<httplib::SSLClient>(host, call.endpoint.port);
    } else {
        client = std::make_unique<httplib::ClientImpl>(host, call.endpoint.port);
    }
    if (!client->is_valid()) {
        error = u"WinHttpOpen failed";
        return {};
    }
    client->set_connection_timeout(Ms(call.timeoutMs ? call.timeoutMs : kConnectMs));
    client->set_write_timeout(Ms(call.timeoutMs ? call.timeoutMs : kSendMs));
    client->set_read_timeout(Ms(call.timeoutMs ? call.timeoutMs : kReceiveMs));
    client->set_keep_alive(false);
    client->set_decompress(false);  // no compression: bodies travel as they are

    httplib::Request request;
    request.method = "POST";
    request.path = Utf16ToUtf8(call.path);
    request.headers.emplace("User-Agent", kUserAgent);
    request.headers.emplace("Content-Type", "application/json");
    if (!call.bearerToken.empty()) {
        request.headers.emplace("Authorization", "Bearer " + Utf16ToUtf8(call.bearerToken));
    }
    if (call.body) request.body = *call.body;

    std::string buffer;
    bool responded = false;
    bool stopped = false;
    request.response_handler = [&](const httplib::Response& response) {
        responded = true;
        status = static_cast<std::uint32_t>(response.status);
        return true;
    };
    request.content_receiver = [&](const char* data, std::size_t length, std::uint64_t,
                                   std::uint64_t) {
        if (GateSaysStop(call.cancelFlag, call.pauseFlag)) {
            stopped = true;
            return false;
        }
        buffer.append(data, length);
        return true;
    };

    httplib::Response response;
    httplib::Error failure = httplib::Error::Success;
    const bool sent = client->send(request, response, failure);
    if (stopped || !responded) {
        error = u"HTTP request failed";
        return {};
    }
    // A reply cut short counts with what came, as WinHTTP's reading does.
    (void)sent;
    if (buffer.empty()) error = u"HTTP request failed";
    return buffer;
}

}  // namespace qb::detail
