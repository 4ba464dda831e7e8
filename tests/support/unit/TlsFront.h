#pragma once

#include "support/common/IngestionServer.h"

#include <memory>
#include <string>

namespace Testing
{

// Speaks TLS in front of an ingestion server, which gets what was encrypted as if it had not been. The certificate is
// new every time and of an authority that nobody trusts. It is a program of the system below Wine: there is none on
// Windows.
class TlsFront
{
public:
    // Whether there can be one here.
    static bool IsPossible();

    // The certificate names this host, and is valid from now on for so many days; for -1 it has expired. Throws
    // std::runtime_error when the program does not start.
    TlsFront(const IngestionServer& server, const std::string& certifiedHost, int days);
    ~TlsFront();
    TlsFront(const TlsFront&) = delete;
    TlsFront& operator=(const TlsFront&) = delete;

    // The DSN that leads here, by way of the name "localhost".
    std::string Dsn() const;

    // The authority's certificate (DER).
    const std::string& Authority() const;

private:
    struct State;

    std::unique_ptr<State> m_state;
};

// While it lives, this user trusts an authority.
class TrustedAuthority
{
public:
    // Takes the authority's certificate (DER). Throws std::runtime_error.
    explicit TrustedAuthority(std::string certificate);
    ~TrustedAuthority();
    TrustedAuthority(const TrustedAuthority&) = delete;
    TrustedAuthority& operator=(const TrustedAuthority&) = delete;

private:
    std::string m_certificate;
};

} // namespace Testing
