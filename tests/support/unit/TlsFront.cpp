#include "support/unit/TlsFront.h"

#include "support/common/Sockets.h"

#include <windows.h>

#include <wincrypt.h>

#include <array>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace Testing
{

namespace
{

// How long the program may take to be ready, in seconds.
constexpr long c_startLimit = 60;

constexpr std::string_view c_program = VELMORA_TLS_FRONT; // a path of the system below Wine

// This user's store of trusted authorities. What is changed there counts when it is closed.
std::shared_ptr<void> OpenRootStore()
{
    return {CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"Root"),
            [](HCERTSTORE store) { CertCloseStore(store, 0); }};
}

const BYTE* Bytes(const std::string& certificate)
{
    return reinterpret_cast<const BYTE*>(certificate.data());
}

DWORD Size(const std::string& certificate)
{
    return static_cast<DWORD>(certificate.size());
}

} // namespace

struct TlsFront::State
{
    Socket control;
    std::string port;
    std::string authority;
};

bool TlsFront::IsPossible()
{
    return GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name") != nullptr;
}

TlsFront::TlsFront(const IngestionServer& server, const std::string& certifiedHost, int days)
    : m_state(std::make_unique<State>())
{
    const auto [listener, controlPort] = BindLoopback();
    if (listen(listener.Get(), 1) != 0)
    {
        throw std::runtime_error("no way to hear of the TLS server");
    }
    const std::wstring program = LR"(\\?\unix\usr\bin\python3)";
    std::wstring commandLine = L"python3 \"" + std::wstring(c_program.begin(), c_program.end()) + L"\" " +
                               std::to_wstring(controlPort) + L" " + std::to_wstring(server.Port()) + L" " +
                               std::wstring(certifiedHost.begin(), certifiedHost.end()) + L" " + std::to_wstring(days);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process))
    {
        throw std::runtime_error("the TLS server does not start");
    }
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);

    fd_set ready{};
    FD_SET(listener.Get(), &ready);
    timeval limit{.tv_sec = c_startLimit, .tv_usec = 0};
    if (select(0, &ready, nullptr, nullptr, &limit) != 1)
    {
        throw std::runtime_error("the TLS server says nothing");
    }
    m_state->control = Socket(accept(listener.Get(), nullptr, nullptr));
    std::string said;
    std::array<char, 4096> buffer{};
    for (int size = 1; size > 0;)
    {
        size = recv(m_state->control.Get(), buffer.data(), static_cast<int>(buffer.size()), 0);
        said.append(buffer.data(), static_cast<std::size_t>(size > 0 ? size : 0));
    }
    const auto lineEnd = said.find('\n');
    if (lineEnd == std::string::npos)
    {
        throw std::runtime_error("the TLS server has failed");
    }
    m_state->port = said.substr(0, lineEnd);
    m_state->authority = said.substr(lineEnd + 1);
}

TlsFront::~TlsFront() = default; // it ends with the connection

std::string TlsFront::Dsn() const
{
    return "https://" + std::string(IngestionServer::c_key) + "@localhost:" + m_state->port + "/1234567890123456";
}

const std::string& TlsFront::Authority() const
{
    return m_state->authority;
}

TrustedAuthority::TrustedAuthority(std::string certificate) : m_certificate(std::move(certificate))
{
    if (!CertAddEncodedCertificateToStore(OpenRootStore().get(), X509_ASN_ENCODING, Bytes(m_certificate),
                                          Size(m_certificate), CERT_STORE_ADD_NEW, nullptr))
    {
        throw std::runtime_error("the authority cannot be trusted");
    }
}

TrustedAuthority::~TrustedAuthority()
{
    const PCCERT_CONTEXT its =
        CertCreateCertificateContext(X509_ASN_ENCODING, Bytes(m_certificate), Size(m_certificate));
    CertDeleteCertificateFromStore(
        CertFindCertificateInStore(OpenRootStore().get(), X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, its, nullptr));
    // Wine forgets it for this process alone: the store's own place in the registry.
    std::array<BYTE, 20> hash{};
    DWORD size = hash.size();
    CertGetCertificateContextProperty(its, CERT_HASH_PROP_ID, hash.data(), &size);
    CertFreeCertificateContext(its);
    std::string key = R"(Software\Microsoft\SystemCertificates\Root\Certificates\)";
    for (const BYTE byte : hash)
    {
        key += "0123456789ABCDEF"[byte >> 4];
        key += "0123456789ABCDEF"[byte & 0x0F];
    }
    RegDeleteTreeA(HKEY_CURRENT_USER, key.c_str());
}

} // namespace Testing
