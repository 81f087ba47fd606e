#include "server_probe.h"

#include <memory>
#include <thread>

#include "error_text.h"
#include "owned_internet.h"
#include "server_url.h"
#include "text.h"

namespace zoctl {

namespace {

struct ServerErrorRow {
    std::uint32_t error;
    const char* text;
};

// The system keeps its texts for these in wininet.dll, and they speak to the user of a browser.
constexpr ServerErrorRow kServerErrors[] = {
    {ERROR_INTERNET_TIMEOUT, "the server did not answer in time"},
    {ERROR_INTERNET_NAME_NOT_RESOLVED, "the host's name is not known"},
    {ERROR_INTERNET_CANNOT_CONNECT, "no connection to the server can be made"},
    {ERROR_INTERNET_CONNECTION_ABORTED, "the connection was closed before the server answered"},
    {ERROR_INTERNET_CONNECTION_RESET, "the server reset the connection"},
    {ERROR_INTERNET_SEC_CERT_DATE_INVALID, "the certificate has expired or is not valid yet"},
    {ERROR_INTERNET_SEC_CERT_CN_INVALID, "the certificate is for another host"},
    {ERROR_INTERNET_INVALID_CA, "the certificate is not trusted"},
    {ERROR_INTERNET_SEC_CERT_ERRORS, "the certificate has errors"},
    {ERROR_INTERNET_SEC_INVALID_CERT, "the certificate is not valid"},
    {ERROR_INTERNET_SEC_CERT_REVOKED, "the certificate was revoked"},
    {ERROR_INTERNET_SEC_CERT_REV_FAILED, "the certificate could not be checked or is not trusted"},
    {ERROR_INTERNET_CLIENT_AUTH_CERT_NEEDED, "the server asks for a certificate of the client"},
    {ERROR_INTERNET_SECURITY_CHANNEL_ERROR, "no secure channel can be set up"},
};

// The URL's parts and the error outlive the caller when the thread does.
struct Question {
    zocrash::ServerUrl server;
    std::uint32_t error = 0;
    zo::OwnedKernelObject answered;
};

std::uint32_t AskServer(const zocrash::ServerUrl& server) {
    const zo::OwnedInternet session(InternetOpenW(L"zoctl", INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0));
    if (!session) return GetLastError();
    const zo::OwnedInternet connection(InternetConnectA(session.Get(), server.host.c_str(), server.port, nullptr,
                                                        nullptr, INTERNET_SERVICE_HTTP, 0, 0));
    if (!connection) return GetLastError();
    constexpr DWORD kFlags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_SECURE | INTERNET_FLAG_NO_AUTO_REDIRECT |
                             INTERNET_FLAG_NO_COOKIES | INTERNET_FLAG_NO_UI;
    const zo::OwnedInternet request(
        HttpOpenRequestA(connection.Get(), "HEAD", server.path.c_str(), "HTTP/1.1", nullptr, nullptr, kFlags, 0));
    if (!request) return GetLastError();
    if (HttpSendRequestA(request.Get(), nullptr, 0, nullptr, 0)) return ERROR_SUCCESS;
    const DWORD error = GetLastError();
    // An answer all the same: the connection stands, and a server may not know HEAD.
    return error == ERROR_HTTP_INVALID_SERVER_RESPONSE ? static_cast<DWORD>(ERROR_SUCCESS) : error;
}

}  // namespace

bool IsServerUrl(const std::string& url) {
    zocrash::ServerUrl server;
    return zocrash::ParseServerUrl(url, server);
}

std::uint32_t ProbeServer(const std::string& url, unsigned milliseconds, const Cancellation& cancellation) {
    const auto question = std::make_shared<Question>();
    // In the ANSI code page, like the address that a report goes to.
    if (!zocrash::ParseServerUrl(zo::AnsiFromWide(zo::WideFromUtf8(url)), question->server)) {
        return ERROR_INTERNET_INVALID_URL;
    }
    question->answered.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!question->answered) return GetLastError();

    // A thread of its own, because the system's own time limits are minutes and a call cannot be interrupted.
    std::thread([question] {
        question->error = AskServer(question->server);
        SetEvent(question->answered.Get());
    }).detach();
    const ULONGLONG start = GetTickCount64();
    while (WaitForSingleObject(question->answered.Get(), 50) != WAIT_OBJECT_0) {
        if (cancellation.Requested()) return ERROR_CANCELLED;
        if (GetTickCount64() - start >= milliseconds) return ERROR_INTERNET_TIMEOUT;
    }
    return question->error;
}

std::string ServerErrorText(std::uint32_t error) {
    for (const ServerErrorRow& row : kServerErrors) {
        if (row.error == error) return row.text;
    }
    return zo::ErrorText(error);
}

}  // namespace zoctl
