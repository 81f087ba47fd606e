#include "upload.h"

#include <array>
#include <limits>

#include "errors.h"
#include "server_url.h"

namespace zocrash {

namespace {

constexpr DWORD kRequestFlags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_SECURE | INTERNET_FLAG_KEEP_CONNECTION;
static_assert(kRequestFlags == 0x80C00000u);

constexpr std::size_t kReadPiece = 1024;

// What is kept of a reply, whose first characters decide.
constexpr std::size_t kKeptReply = 64 * kReadPiece;

// For all reads of a reply, in milliseconds. A server may send for ever.
constexpr ULONGLONG kLongestReply = 60'000;

// What arrived until the reply ended or broke off, was long enough, took too long, or the run was cancelled. At least
// one read is made, so that a short reply counts also when the cancel came first.
std::string ReadReply(HINTERNET request, const std::atomic<bool>& cancel) {
    std::string text;
    std::array<char, kReadPiece> piece{};
    DWORD read = 0;
    const ULONGLONG start = GetTickCount64();
    while (InternetReadFile(request, piece.data(), static_cast<DWORD>(piece.size()), &read) && read > 0) {
        text.append(piece.data(), read);
        if (text.size() >= kKeptReply || cancel.load() || GetTickCount64() - start >= kLongestReply) break;
    }
    return text;
}

}  // namespace

std::int32_t OpenInternetSession(const std::string& userAgent, zo::OwnedInternet& session) {
    session.Reset(InternetOpenA(userAgent.c_str(), INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0));
    return session ? zo::kOk : zo::HresultFromWin32(GetLastError());
}

ServerReply Post(const zo::OwnedInternet& session, const std::string& url, std::span<const std::uint8_t> body,
                 const std::atomic<bool>& cancel) {
    ServerUrl server;
    if (!session || !ParseServerUrl(url, server)) return {};
    if (body.size() > std::numeric_limits<DWORD>::max()) return {};  // the platform cannot send it

    const zo::OwnedInternet connection(InternetConnectA(session.Get(), server.host.c_str(), server.port, nullptr,
                                                        nullptr, INTERNET_SERVICE_HTTP, 0, 0));
    if (!connection) return {};
    const char* acceptTypes[] = {"text/*", nullptr};
    const zo::OwnedInternet request(HttpOpenRequestA(connection.Get(), "POST", server.path.c_str(), "HTTP/1.1", nullptr,
                                                     acceptTypes, kRequestFlags, 0));
    if (!request) return {};

    // The platform only reads the body.
    if (!HttpSendRequestA(request.Get(), nullptr, 0, const_cast<std::uint8_t*>(body.data()),
                          static_cast<DWORD>(body.size()))) {
        return {};
    }
    return ParseServerReply(ReadReply(request.Get(), cancel));
}

}  // namespace zocrash
