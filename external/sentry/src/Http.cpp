#include "Http.h"

#include "Library.h"

#include <sentry.h>
#include <winhttp.h>

#include <wil/resource.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cwctype>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Reporter
{

namespace
{

// For the response, and for each step to it, in milliseconds.
constexpr DWORD c_responseLimit = 60'000;
constexpr int c_stepLimit = 20'000;

constexpr const wchar_t* c_userAgent = L"sentry.native.velmora/" TEXT(SENTRY_SDK_VERSION);

std::wstring Widen(std::string_view text)
{
    return {text.begin(), text.end()}; // ASCII
}

// WinHTTP is never unloaded: cancelled requests may still be under way in it.
struct WinHttp
{
    HMODULE library = LoadSystemLibrary(L"winhttp.dll");
    decltype(&::WinHttpOpen) open = Find<decltype(open)>("WinHttpOpen");
    decltype(&::WinHttpConnect) connect = Find<decltype(connect)>("WinHttpConnect");
    decltype(&::WinHttpOpenRequest) openRequest = Find<decltype(openRequest)>("WinHttpOpenRequest");
    decltype(&::WinHttpSetStatusCallback) setStatusCallback =
        Find<decltype(setStatusCallback)>("WinHttpSetStatusCallback");
    decltype(&::WinHttpSetOption) setOption = Find<decltype(setOption)>("WinHttpSetOption");
    decltype(&::WinHttpSetTimeouts) setTimeouts = Find<decltype(setTimeouts)>("WinHttpSetTimeouts");
    decltype(&::WinHttpSendRequest) sendRequest = Find<decltype(sendRequest)>("WinHttpSendRequest");
    decltype(&::WinHttpReceiveResponse) receiveResponse = Find<decltype(receiveResponse)>("WinHttpReceiveResponse");
    decltype(&::WinHttpQueryHeaders) queryHeaders = Find<decltype(queryHeaders)>("WinHttpQueryHeaders");
    decltype(&::WinHttpCloseHandle) closeHandle = Find<decltype(closeHandle)>("WinHttpCloseHandle");

    bool IsComplete() const
    {
        return open && connect && openRequest && setStatusCallback && setOption && setTimeouts && sendRequest &&
               receiveResponse && queryHeaders && closeHandle;
    }

private:
    template <class Function>
    Function Find(const char* name) const
    {
        return FindFunction<Function>(library, name);
    }
};

struct CloseInternetHandle
{
    decltype(&::WinHttpCloseHandle) close = nullptr;

    void operator()(HINTERNET handle) const noexcept { close(handle); }
};

using UniqueInternet = std::unique_ptr<void, CloseInternetHandle>;

// WinHTTP's threads use it until the request's handle is really closed, which may be long after a cancellation.
struct Exchange
{
    std::string body;
    wil::unique_handle completed{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    std::atomic<bool> hasFailed = false;
};

void CALLBACK OnStatus(HINTERNET, DWORD_PTR context, DWORD status, LPVOID, DWORD) noexcept
{
    auto* const exchange = reinterpret_cast<std::shared_ptr<Exchange>*>(context);
    if (!exchange)
    {
        return; // a session's or a connection's
    }
    switch (status)
    {
    case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
        (*exchange)->hasFailed = true;
        SetEvent((*exchange)->completed.get());
        break;
    case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE:
    case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE:
        SetEvent((*exchange)->completed.get());
        break;
    case WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING:
        delete exchange;
        break;
    default:
        break;
    }
}

// Returns whether a step completed in time and without `stop`.
bool WaitForStep(const Exchange& exchange, HANDLE stop, ULONGLONG end)
{
    const ULONGLONG now = GetTickCount64();
    const std::array<HANDLE, 2> events{stop, exchange.completed.get()};
    const DWORD result = WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), FALSE,
                                                now < end ? static_cast<DWORD>(end - now) : 0);
    return result == WAIT_OBJECT_0 + 1 && !exchange.hasFailed;
}

bool SetOption(const WinHttp& library, HINTERNET handle, DWORD option, DWORD value)
{
    return library.setOption(handle, option, &value, sizeof(value)) != FALSE;
}

// A header's value with '?' for what is not ASCII. Empty when it is too long to make sense.
std::string QueryHeader(const WinHttp& library, HINTERNET request, const wchar_t* name)
{
    std::array<wchar_t, 512> buffer{};
    DWORD size = sizeof(buffer);
    if (!library.queryHeaders(request, WINHTTP_QUERY_CUSTOM, name, buffer.data(), &size, WINHTTP_NO_HEADER_INDEX))
    {
        return {};
    }
    std::string value;
    for (std::size_t i = 0; i < size / sizeof(wchar_t); ++i)
    {
        value += buffer[i] < 0x80 ? static_cast<char>(buffer[i]) : '?';
    }
    return value;
}

UniqueInternet OpenSession(const WinHttp& library)
{
    for (const DWORD access : {DWORD{WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY}, DWORD{WINHTTP_ACCESS_TYPE_DEFAULT_PROXY}})
    {
        UniqueInternet session(
            library.open(c_userAgent, access, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, WINHTTP_FLAG_ASYNC),
            {library.closeHandle});
        if (session)
        {
            return session;
        }
    }
    return {};
}

} // namespace

struct Http::Connection
{
    WinHttp library;
    UniqueInternet session;
    UniqueInternet connection;
};

Http::Http(Dsn dsn) : m_dsn(std::move(dsn)) {}

Http::~Http() = default;

// Null without a complete WinHTTP.
std::unique_ptr<Http::Connection> Http::Connect() const
{
    auto made = std::make_unique<Connection>();
    const WinHttp& library = made->library;
    if (!library.IsComplete())
    {
        return nullptr;
    }
    made->session = OpenSession(library);
    HINTERNET session = made->session.get();
    if (!session || !library.setTimeouts(session, c_stepLimit, c_stepLimit, c_stepLimit, c_stepLimit) ||
        library.setStatusCallback(session, OnStatus,
                                  WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS | WINHTTP_CALLBACK_FLAG_HANDLES,
                                  0) == WINHTTP_INVALID_STATUS_CALLBACK)
    {
        return nullptr;
    }
    made->connection =
        UniqueInternet(library.connect(session, Widen(m_dsn.host).c_str(), m_dsn.port, 0), {library.closeHandle});
    return made->connection ? std::move(made) : nullptr;
}

std::optional<HttpResponse> Http::Post(std::string_view envelope, HANDLE stop)
{
    if (!m_connection)
    {
        m_connection = Connect();
    }
    if (!m_connection)
    {
        return std::nullopt;
    }

    const WinHttp& library = m_connection->library;
    auto exchange = std::make_shared<Exchange>();
    exchange->body = envelope;
    auto callbackContext = std::make_unique<std::shared_ptr<Exchange>>(exchange);
    const UniqueInternet request(library.openRequest(m_connection->connection.get(), L"POST", Widen(m_dsn.path).c_str(),
                                                     nullptr, WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                                     m_dsn.isSecure ? WINHTTP_FLAG_SECURE : 0),
                                 {library.closeHandle});
    auto context = reinterpret_cast<DWORD_PTR>(callbackContext.get());
    if (!exchange->completed || !request ||
        !library.setOption(request.get(), WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof(context)))
    {
        return std::nullopt;
    }
    // Owned by the callback until the handle is closed.
    static_cast<void>(callbackContext.release()); // NOLINT(bugprone-unused-return-value)
    if (!SetOption(library, request.get(), WINHTTP_OPTION_REDIRECT_POLICY, WINHTTP_OPTION_REDIRECT_POLICY_NEVER) ||
        !SetOption(library, request.get(), WINHTTP_OPTION_AUTOLOGON_POLICY, WINHTTP_AUTOLOGON_SECURITY_LEVEL_HIGH) ||
        !SetOption(library, request.get(), WINHTTP_OPTION_DISABLE_FEATURE,
                   WINHTTP_DISABLE_COOKIES | WINHTTP_DISABLE_AUTHENTICATION))
    {
        return std::nullopt;
    }

    const std::wstring headers = L"Content-Type: application/x-sentry-envelope\r\nX-Sentry-Auth: Sentry sentry_key=" +
                                 Widen(m_dsn.publicKey) + L", sentry_version=7, sentry_client=" + c_userAgent + L"\r\n";
    const auto length = static_cast<DWORD>(exchange->body.size());
    const ULONGLONG end = GetTickCount64() + c_responseLimit;
    DWORD status = 0;
    DWORD size = sizeof(status);
    if (!library.sendRequest(request.get(), headers.c_str(), static_cast<DWORD>(headers.size()), exchange->body.data(),
                             length, length, context) ||
        !WaitForStep(*exchange, stop, end) || !library.receiveResponse(request.get(), nullptr) ||
        !WaitForStep(*exchange, stop, end) ||
        !library.queryHeaders(request.get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                              WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX))
    {
        return std::nullopt;
    }
    return HttpResponse{.status = status,
                        .rateLimits = QueryHeader(library, request.get(), L"X-Sentry-Rate-Limits"),
                        .retryAfter = QueryHeader(library, request.get(), L"Retry-After")};
}

} // namespace Reporter
