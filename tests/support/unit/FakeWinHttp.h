#pragma once

#include "support/common/ImportTableFake.h"

#include <windows.h>

#include <winhttp.h>

#include <array>
#include <bit>
#include <cwchar>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{

// The WinHTTP that the program loads while it lives. Responds at once unless the test says otherwise. One at a time,
// and for one thread at a time.
class FakeWinHttp
{
public:
    struct Request
    {
        std::wstring verb;
        std::wstring path;
        DWORD flags = 0;
        std::map<DWORD, DWORD> options; // but for the context
        std::wstring headers;
        std::string body;
    };

    // A function's, less "WinHttp".
    using Name = std::string;

    std::vector<std::wstring> libraries; // that were loaded
    DWORD loadFlags = 0;
    std::vector<DWORD> accessTypes; // of the sessions that were asked for
    std::wstring userAgent;
    DWORD sessionFlags = 0;
    std::array<int, 4> timeouts{};
    std::wstring host;
    INTERNET_PORT port = 0;
    std::vector<Request> requests;
    int openHandles = 0;
    int openContexts = 0; // requests that were given a context and are not closed

    // What happens.
    std::set<Name> missing;             // functions that the library does not have
    bool isThere = true;                // the library
    std::set<Name> failing;             // functions that fail
    std::set<DWORD> refusedOptions;     // of requests
    std::set<DWORD> refusedAccessTypes; // of sessions
    DWORD status = 200;                 // of the response
    std::map<std::wstring, std::wstring> responseHeaders;
    // Within WinHttpSendRequest and WinHttpReceiveResponse: calls the program's callback.
    using Tell = std::function<void(DWORD)>;
    std::function<void(const Tell&)> onSend = [](const Tell& tell) {
        tell(WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE);
    };
    std::function<void(const Tell&)> onReceive = [](const Tell& tell) {
        tell(WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE);
    };

    FakeWinHttp() { s_current = this; }
    ~FakeWinHttp() { s_current = nullptr; }
    FakeWinHttp(const FakeWinHttp&) = delete;
    FakeWinHttp& operator=(const FakeWinHttp&) = delete;

    static const std::map<Name, FARPROC>& Functions()
    {
        static const std::map<Name, FARPROC> functions{
            {"Open", Erase(&Open)},
            {"Connect", Erase(&Connect)},
            {"OpenRequest", Erase(&OpenRequest)},
            {"SetStatusCallback", Erase(&SetStatusCallback)},
            {"SetOption", Erase(&SetOption)},
            {"SetTimeouts", Erase(&SetTimeouts)},
            {"SendRequest", Erase(&SendRequest)},
            {"ReceiveResponse", Erase(&ReceiveResponse)},
            {"QueryHeaders", Erase(&QueryHeaders)},
            {"CloseHandle", Erase(&CloseHandle)},
        };
        return functions;
    }

private:
    // A session, a connection or a request.
    struct Object
    {
        std::size_t request = 0; // the newest one
        DWORD_PTR context = 0;
    };

    template <class Function>
    static FARPROC Erase(Function function)
    {
        return std::bit_cast<FARPROC>(function);
    }

    static bool Fails(const Name& name)
    {
        SetLastError(ERROR_WINHTTP_INTERNAL_ERROR);
        return s_current->failing.contains(name);
    }

    static HINTERNET New()
    {
        ++s_current->openHandles;
        return new Object{.request = s_current->requests.size() - 1};
    }

    static Object& At(HINTERNET handle) { return *static_cast<Object*>(handle); }

    static void TellOf(HINTERNET handle, DWORD what)
    {
        if (s_current->m_callback)
        {
            s_current->m_callback(handle, At(handle).context, what, nullptr, 0);
        }
    }

    static HINTERNET WINAPI Open(LPCWSTR agent, DWORD accessType, LPCWSTR, LPCWSTR, DWORD flags)
    {
        s_current->userAgent = agent;
        s_current->accessTypes.push_back(accessType);
        s_current->sessionFlags = flags;
        const bool isRefused = s_current->refusedAccessTypes.contains(accessType);
        return Fails("Open") || isRefused ? nullptr : New();
    }

    static HINTERNET WINAPI Connect(HINTERNET, LPCWSTR host, INTERNET_PORT port, DWORD)
    {
        s_current->host = host;
        s_current->port = port;
        return Fails("Connect") ? nullptr : New();
    }

    static HINTERNET WINAPI OpenRequest(HINTERNET, LPCWSTR verb, LPCWSTR path, LPCWSTR, LPCWSTR, LPCWSTR*, DWORD flags)
    {
        if (Fails("OpenRequest"))
        {
            return nullptr;
        }
        s_current->requests.push_back(
            {.verb = verb, .path = path, .flags = flags, .options = {}, .headers = {}, .body = {}});
        return New();
    }

    static WINHTTP_STATUS_CALLBACK WINAPI SetStatusCallback(HINTERNET, WINHTTP_STATUS_CALLBACK callback, DWORD,
                                                            DWORD_PTR)
    {
        if (Fails("SetStatusCallback"))
        {
            return WINHTTP_INVALID_STATUS_CALLBACK;
        }
        s_current->m_callback = callback;
        return nullptr;
    }

    static BOOL WINAPI SetOption(HINTERNET handle, DWORD option, LPVOID value, DWORD)
    {
        if (Fails("SetOption") || s_current->refusedOptions.contains(option))
        {
            return FALSE;
        }
        if (option == WINHTTP_OPTION_CONTEXT_VALUE)
        {
            At(handle).context = *static_cast<DWORD_PTR*>(value);
            ++s_current->openContexts;
        }
        else
        {
            s_current->requests.at(At(handle).request).options[option] = *static_cast<DWORD*>(value);
        }
        return TRUE;
    }

    static BOOL WINAPI SetTimeouts(HINTERNET, int resolve, int connect, int send, int receive)
    {
        s_current->timeouts = {resolve, connect, send, receive};
        return Fails("SetTimeouts") ? FALSE : TRUE;
    }

    static BOOL WINAPI SendRequest(HINTERNET handle, LPCWSTR headers, DWORD headersLength, LPVOID body,
                                   DWORD bodyLength, DWORD, DWORD_PTR)
    {
        Request& request = s_current->requests.at(At(handle).request);
        request.headers.assign(headers, headersLength);
        request.body.assign(static_cast<const char*>(body), bodyLength);
        if (Fails("SendRequest"))
        {
            return FALSE;
        }
        s_current->onSend([handle](DWORD what) { TellOf(handle, what); });
        return TRUE;
    }

    static BOOL WINAPI ReceiveResponse(HINTERNET handle, LPVOID)
    {
        if (Fails("ReceiveResponse"))
        {
            return FALSE;
        }
        s_current->onReceive([handle](DWORD what) { TellOf(handle, what); });
        return TRUE;
    }

    static BOOL WINAPI QueryHeaders(HINTERNET, DWORD level, LPCWSTR name, LPVOID buffer, LPDWORD size, LPDWORD)
    {
        if (Fails("QueryHeaders"))
        {
            return FALSE;
        }
        if (level == (WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER))
        {
            *static_cast<DWORD*>(buffer) = s_current->status;
            return TRUE;
        }
        const auto found = s_current->responseHeaders.find(name);
        if (level != WINHTTP_QUERY_CUSTOM || found == s_current->responseHeaders.end())
        {
            SetLastError(ERROR_WINHTTP_HEADER_NOT_FOUND);
            return FALSE;
        }
        const DWORD needed = static_cast<DWORD>(found->second.size() * sizeof(wchar_t));
        if (*size < needed + sizeof(wchar_t))
        {
            *size = needed + sizeof(wchar_t);
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        }
        std::wmemcpy(static_cast<wchar_t*>(buffer), found->second.c_str(), found->second.size() + 1);
        *size = needed;
        return TRUE;
    }

    static BOOL WINAPI CloseHandle(HINTERNET handle)
    {
        const std::unique_ptr<Object> object(&At(handle));
        TellOf(handle, WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING);
        --s_current->openHandles;
        s_current->openContexts -= object->context != 0 ? 1 : 0;
        return TRUE;
    }

    static constinit inline FakeWinHttp* s_current = nullptr;

    // What the program takes for the library.
    HMODULE m_module = reinterpret_cast<HMODULE>(this);
    WINHTTP_STATUS_CALLBACK m_callback = nullptr;
    Fake<&LoadLibraryExW> m_load = [this](LPCWSTR name, HANDLE file, DWORD flags) -> HMODULE {
        if (std::wstring_view(name) != L"winhttp.dll")
        {
            return m_load.Hidden(name, file, flags);
        }
        libraries.emplace_back(name);
        loadFlags = flags;
        return isThere ? m_module : nullptr;
    };
    Fake<&GetProcAddress> m_find = [this](HMODULE library, LPCSTR name) -> FARPROC {
        if (library != m_module)
        {
            return m_find.Hidden(library, name);
        }
        const std::string_view prefix = "WinHttp";
        const std::string_view full = name;
        const Name its(full.starts_with(prefix) ? full.substr(prefix.size()) : full);
        const auto found = Functions().find(its);
        return found == Functions().end() || missing.contains(its) ? nullptr : found->second;
    };
};

} // namespace Testing
