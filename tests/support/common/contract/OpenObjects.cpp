#include "support/common/contract/OpenObjects.h"

#include "support/common/contract/Contract.h"

#include <array>
#include <atomic>
#include <cstddef>

namespace Testing
{

namespace
{

using Details::OpenObject;

// No memory is allocated, and no lock of Windows is taken: tests replace both. What does not fit is not known.
constexpr std::size_t c_size = 8192;
constinit std::array<OpenObject, c_size> s_objects{};
constinit std::size_t s_count = 0;
constinit std::atomic_flag s_isInUse{};

class Lock
{
public:
    Lock()
    {
        while (s_isInUse.test_and_set(std::memory_order_acquire))
        {
        }
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock() { s_isInUse.clear(std::memory_order_release); }
};

std::size_t Next(std::size_t place)
{
    return (place + 1) % c_size;
}

std::size_t HomeOf(const void* object)
{
    return (reinterpret_cast<ULONG_PTR>(object) / 4 * 0x9E3779B1U) % c_size;
}

// Where it is, or would be.
std::size_t PlaceOf(const void* object)
{
    std::size_t place = HomeOf(object);
    while (s_objects[place].object != nullptr && s_objects[place].object != object)
    {
        place = Next(place);
    }
    return place;
}

} // namespace

void NoteOpened(const void* object, Kind kind, DWORD rights)
{
    const Lock lock;
    if (object == nullptr || s_count > c_size / 2)
    {
        return;
    }
    OpenObject& opened = s_objects[PlaceOf(object)];
    s_count += opened.object == nullptr ? 1 : 0;
    opened = {.object = object, .kind = kind, .rights = rights};
}

namespace
{

void Remove(std::size_t gap)
{
    --s_count;
    // Whoever would have been there comes back.
    for (std::size_t place = Next(gap); s_objects[place].object != nullptr; place = Next(place))
    {
        const std::size_t home = HomeOf(s_objects[place].object);
        if ((place + c_size - home) % c_size >= (place + c_size - gap) % c_size)
        {
            s_objects[gap] = s_objects[place];
            gap = place;
        }
    }
    s_objects[gap] = {};
}

// Handles, of which Windows tells whether they are open, or which only the functions that are judged give out.
bool IsHandleKind(Kind kind)
{
    return IsOneOf(kind, Kind::File, Kind::Process, Kind::Thread, Kind::Token, Kind::Mutex, Kind::Event,
                   Kind::Semaphore, Kind::Snapshot, Kind::ServiceManager, Kind::Service);
}

} // namespace

void NoteClosed(const void* object)
{
    const Lock lock;
    const std::size_t place = PlaceOf(object);
    if (object == nullptr || s_objects[place].object == nullptr)
    {
        return;
    }
    if (IsHandleKind(s_objects[place].kind))
    {
        s_objects[place].kind = Kind::Closed;
    }
    else if (s_objects[place].kind != Kind::Closed)
    {
        Remove(place);
    }
}

void Forget(const void* object)
{
    const Lock lock;
    const std::size_t place = PlaceOf(object);
    if (object != nullptr && s_objects[place].object != nullptr)
    {
        Remove(place);
    }
}

void ForgetOpened()
{
    const Lock lock;
    s_objects.fill({});
    s_count = 0;
}

bool Details::FindOpened(const void* object, OpenObject& found)
{
    {
        const Lock lock;
        found = s_objects[PlaceOf(object)];
    }
    if (object == nullptr || found.object == nullptr)
    {
        return false;
    }
    // A function that is not judged may have given its value out again.
    DWORD flags = 0;
    return found.kind != Kind::Closed || !GetHandleInformation(const_cast<void*>(object), &flags);
}

bool IsClosed(const void* object)
{
    Details::OpenObject found{};
    return Details::FindOpened(object, found) && found.kind == Kind::Closed;
}

namespace
{

// An address that no object has.
const void* KeyOf(State state)
{
    const ULONG_PTR thread = state == State::GdiPlus ? 0 : GetCurrentThreadId();
    return reinterpret_cast<const void*>((ULONG_PTR{0xFF} - static_cast<ULONG_PTR>(state)) << 56 | thread);
}

} // namespace

void NoteInitialized(State state)
{
    NoteOpened(KeyOf(state), Kind::Initialized);
}

void NoteUninitialized(State state)
{
    NoteClosed(KeyOf(state));
}

bool IsInitialized(State state)
{
    Details::OpenObject found{};
    return !WholeRun::IsUnderWay() || Details::FindOpened(KeyOf(state), found);
}

bool Grants(const void* object, Kind kind, DWORD rights)
{
    Details::OpenObject found{};
    return !Details::FindOpened(object, found) ||
           (found.kind == kind && ((found.rights & rights) == rights || (found.rights & MAXIMUM_ALLOWED) != 0));
}

} // namespace Testing
