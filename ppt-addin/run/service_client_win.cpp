// The HTTP POST on Windows, over WinHTTP, one session and connection a call.
#include <windows.h>
#include <winhttp.h>

#include <vector>

#include "foundation/wide_win.h"
#include "run/service_client.h"

namespace qb::detail {
namespace {

// Closes a WinHTTP handle exactly once; the three of a call close in the
// reverse order of their opening (request, connection, session).
class InternetHandle {
  public:
    explicit InternetHandle(HINTERNET handle = nullptr) : handle_(handle) {}
    ~InternetHandle() { Close(); }
    InternetHandle(const InternetHandle&) = delete;
    InternetHandle& operator=(const InternetHandle&) = delete;
    HINTERNET Get() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }
    void Close() {
        if (handle_) ::WinHttpCloseHandle(handle_);
        handle_ = nullptr;
    }

  private:
    HINTERNET handle_;
};

constexpr DWORD kNoProxy = 1;               // WINHTTP_ACCESS_TYPE_NO_PROXY
constexpr DWORD kSecureFlag = 0x00800000;   // WINHTTP_FLAG_SECURE
constexpr DWORD kStatusQuery = 0x20000013;  // status code as a number

}  // namespace

std::string PostJsonNative(const HttpCall& call, std::u16string& error, std::uint32_t& status) {
    status = 0;
    InternetHandle session(::WinHttpOpen(L"Quillbrook/1.0", kNoProxy, nullptr, nullptr, 0));
    if (!session) {
        error = u"WinHttpOpen failed";
        return {};
    }
    if (call.timeoutMs != 0) {
        const int t = static_cast<int>(call.timeoutMs);
        ::WinHttpSetTimeouts(session.Get(), t, t, t, t);
    }
    InternetHandle connection(
        ::WinHttpConnect(session.Get(), AsWide(call.endpoint.host), call.endpoint.port, 0));
    if (!connection) {
        error = u"WinHttpConnect failed";
        return {};
    }
    InternetHandle request(::WinHttpOpenRequest(connection.Get(), L"POST", AsWide(call.path),
                                                nullptr, nullptr, nullptr,
                                                call.endpoint.secure ? kSecureFlag : 0));
    if (!request) {
        error = u"WinHttpOpenRequest failed";
        return {};
    }
    if (call.timeoutMs != 0) {
        // The request keeps its own copy; waiting for the response headers has
        // a time-out of its own besides the receive time-out.
        const int t = static_cast<int>(call.timeoutMs);
        ::WinHttpSetTimeouts(request.Get(), t, t, t, t);
        DWORD responseMs = call.timeoutMs;
        ::WinHttpSetOption(request.Get(), WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &responseMs,
                           sizeof responseMs);
    }
    std::u16string headers = u"Content-Type: application/json\r\n";
    if (!call.bearerToken.empty())
        headers += u"Authorization: Bearer " + call.bearerToken + u"\r\n";

    const std::string empty;
    const std::string& body = call.body ? *call.body : empty;
    const DWORD bodyLength = static_cast<DWORD>(body.size());
    BOOL ok = ::WinHttpSendRequest(request.Get(), AsWide(headers), static_cast<DWORD>(-1),
                                   bodyLength ? const_cast<char*>(body.data()) : nullptr,
                                   bodyLength, bodyLength, 0);
    if (ok) ok = ::WinHttpReceiveResponse(request.Get(), nullptr);
    if (ok) {
        DWORD code = 0;
        DWORD size = sizeof code;
        if (::WinHttpQueryHeaders(request.Get(), kStatusQuery, nullptr, &code, &size, nullptr)) {
            status = code;
        }
    }
    if (!ok) {
        error = u"HTTP request failed";
        return {};
    }

    std::string buffer;
    std::vector<char> chunk;
    DWORD available = 0;
    while (::WinHttpQueryDataAvailable(request.Get(), &available) && available > 0) {
        if (GateSaysStop(call.cancelFlag, call.pauseFlag)) {
            error = u"HTTP request failed";
            return {};
        }
        chunk.resize(available);
        DWORD read = 0;
        if (!::WinHttpReadData(request.Get(), chunk.data(), available, &read)) break;
        buffer.append(chunk.data(), read);
        if (read == 0) break;
    }
    request.Close();
    connection.Close();
    session.Close();
    if (buffer.empty()) error = u"HTTP request failed";
    return buffer;
}

}  // namespace qb::detail
