#pragma once

#include "Envelope.h"

#include <wil/resource.h>

#include <memory>
#include <string>

namespace Reporter
{

// What a crash writes, prepared in advance.
struct CrashPlan
{
    CrashEnvelope envelope;
    wil::unique_hfile folder;
    // Names in the folder:
    std::wstring envelopeName;
    std::wstring minidumpName;
};

// Keeps stack for the handler when the stack of the calling thread overflows.
void ReserveStack() noexcept;

// While it lives, an unhandled exception of any thread, std::terminate and abort write an envelope and a minidump. The
// handlers before it are called afterwards, and restored in the end. One at a time. The destructor waits for a crash of
// another thread, for two seconds at most.
class CrashHandler
{
public:
    explicit CrashHandler(CrashPlan plan);
    ~CrashHandler();
    CrashHandler(const CrashHandler&) = delete;
    CrashHandler& operator=(const CrashHandler&) = delete;

    // Keeps the last hundred breadcrumbs (of MakeBreadcrumb) for the envelope.
    void AddBreadcrumb(const std::string& breadcrumb);

private:
    struct State;

    std::unique_ptr<State> m_state;
};

} // namespace Reporter
