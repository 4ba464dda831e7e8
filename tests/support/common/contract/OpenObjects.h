// What the program has open: each object's kind, which tells the function that closes it, and the rights that it was
// opened with. Fed by the contracts of the functions that open and close. What it does not know counts as fit for
// everything: Windows or a test gave it out in another way.
#pragma once

#include <windows.h>

namespace Testing
{

enum class Kind : unsigned char
{
    File,
    Search,
    Process,
    Thread,
    Token,
    Mutex,
    Event,
    Semaphore,
    Snapshot,
    Key,
    ServiceManager,
    Service,
    Module,
    TaskMemory,
    LocalMemory,
    GlobalMemory,
    Text, // a BSTR
    WindowContext,
    PaintContext,
    PaintBuffer,
    Initialized, // a State
    Closed,
};

void NoteOpened(const void* object, Kind kind, DWORD rights = 0);

// A closed handle of the kernel or of the service control manager is fit for nothing, until its value is given out
// again. Other objects are no longer known.
void NoteClosed(const void* object);

// It is no longer known.
void Forget(const void* object);

// To be called when all that is known comes to nothing: at the start of a test.
void ForgetOpened();

namespace Details
{

struct OpenObject
{
    const void* object;
    Kind kind;
    DWORD rights;
};

// Null when it is not known.
bool FindOpened(const void* object, OpenObject& found);

} // namespace Details

// Whether an object is, as far as anybody knows, of one of these kinds.
template <class... Kinds>
bool MayBe(const void* object, Kinds... kinds)
{
    Details::OpenObject found{};
    return !Details::FindOpened(object, found) || ((found.kind == kinds) || ...);
}

// The same, and whether it was opened with all of these rights.
bool Grants(const void* object, Kind kind, DWORD rights);

// The same, for one of several sets of rights.
inline bool GrantsEither(const void* object, Kind kind, DWORD rights, DWORD otherRights)
{
    return Grants(object, kind, rights) || Grants(object, kind, otherRights);
}

// Whether it is known to be closed.
bool IsClosed(const void* object);

// What a thread, or the process, has to initialize before it calls other functions.
enum class State : unsigned char
{
    Com,
    BufferedPaint,
    GdiPlus, // for all threads
};

void NoteInitialized(State state);
void NoteUninitialized(State state);

// Judged in whole runs only: elsewhere a test begins in the middle.
bool IsInitialized(State state);

constexpr DWORD c_genericRights = GENERIC_ALL | GENERIC_EXECUTE | GENERIC_READ | GENERIC_WRITE;

// Generic Access Rights: what they stand for depends on the kind of object.
constexpr DWORD MapGenericRights(DWORD access, const GENERIC_MAPPING& mapping)
{
    return (access & ~c_genericRights) | ((access & GENERIC_READ) != 0 ? mapping.GenericRead : 0U) |
           ((access & GENERIC_WRITE) != 0 ? mapping.GenericWrite : 0U) |
           ((access & GENERIC_EXECUTE) != 0 ? mapping.GenericExecute : 0U) |
           ((access & GENERIC_ALL) != 0 ? mapping.GenericAll : 0U);
}

// Not the value that a function returns when it fails.
inline bool IsHandle(const void* handle)
{
    return handle != nullptr && handle != INVALID_HANDLE_VALUE;
}

} // namespace Testing
