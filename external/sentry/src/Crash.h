#pragma once

#include "Envelope.h"

#include <memory>
#include <string>

namespace Reporter
{

// What a crash is to leave behind, all of it made while all is well.
struct CrashPlan
{
    CrashEnvelope envelope;
    std::wstring envelopePath;
    std::wstring minidumpPath;
};

// Lets an overflown stack of the calling thread have enough left for the handler. Windows knows this for each thread
// only.
void ReserveStack() noexcept;

// From its making to its end, a crash of the process writes an envelope and a minidump: an exception that nobody
// handles (whichever thread raises it), std::terminate and abort. What the process had set for them before is called
// afterwards, and is back in place in the end. One at a time. Its end waits for a crash that is under way in another
// thread, for two seconds at most.
class CrashHandler
{
public:
    explicit CrashHandler(CrashPlan plan);
    ~CrashHandler();
    CrashHandler(const CrashHandler&) = delete;
    CrashHandler& operator=(const CrashHandler&) = delete;

    // Adds a breadcrumb, of MakeBreadcrumb, to the envelope of a crash to come; the oldest one makes room for it.
    void AddBreadcrumb(const std::string& breadcrumb);

private:
    struct State;

    std::unique_ptr<State> m_state;
};

} // namespace Reporter
