#pragma once

#include "support/ImportTableFake.h"
#include "support/Text.h"
#include "support/packages/PackageObjects.h"

#include <windows.h>

#include <roapi.h>
#include <winternl.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Testing
{

// The package manager of Windows, with packages that a test makes up:
//     packages.installed = {{c_family, L"Sample_1.0", L"C:\\Sample"}};
//     packages.Fail("InstalledPath Sample_1.0", E_ACCESSDENIED);
//
// How it gets into the program without a seam: C++/WinRT asks RoGetActivationFactory for the class, and that is
// replaced at the import table like any other function of Windows. What it gives is a factory of real Windows Runtime
// objects (support/packages), so the code under test goes through the interfaces themselves: references, failure codes
// and completion handlers are as with Windows. C++/WinRT counts the living objects and handlers of a program, so those
// that were not released are found at the end; so are events that were not closed.
class FakePackageManager
{
public:
    // When an operation ends.
    enum class Ending
    {
        AtOnce,          // before its caller has it
        WhileWaitedFor,  // after its handler was set
        OnAnotherThread, // the same, with the handler called on a thread of its own
    };

    // Keeps its list of calls in a list of the test's.
    explicit FakePackageManager(std::vector<std::string>& calls) : m_calls(calls) {}
    FakePackageManager(const FakePackageManager&) = delete;
    FakePackageManager& operator=(const FakePackageManager&) = delete;
    ~FakePackageManager()
    {
        m_store.reset();
        EXPECT_EQ(LivingObjects(), m_livingBefore) << "objects of the package manager were not released";
        for (const auto& [event, own] : m_events)
        {
            EXPECT_EQ(HandlesOf(own), 1U) << "an event was not closed";
            Fake<&CloseHandle>::Real(own);
        }
    }

    std::vector<PackageDescription> provisioned;
    std::vector<PackageDescription> installed;
    Ending ending = Ending::AtOnce;

    // Lets a call fail the next `times` times. A call is a function with what it is called with or on, as
    // PackageStore::Enter has them, for instance "FullName Sample_1.0"; "activate" is RoGetActivationFactory.
    void Fail(const std::string& call, HRESULT result, unsigned times = 1) { m_failures[call] = {result, times}; }

    // How the operations that a call starts end; all others complete.
    void End(const std::string& call, OperationEnd end) { m_ends[call] = end; }

    // Is told of every call as Fail has them, and decides whether it fails.
    std::function<HRESULT(const std::string& call)> onCall = [](const std::string&) { return S_OK; };

    // Is told of every operation as End has them when it starts, and how it will end; it may let it end otherwise.
    std::function<void(const std::string& call, OperationEnd& end)> onOperation = [](const std::string&,
                                                                                     OperationEnd&) {};

    // Lets no event be made.
    DWORD eventError = ERROR_SUCCESS;

    // What the fake of CreateEventExW does, for tests that put their own in front.
    HANDLE MakeEvent(DWORD flags, DWORD access)
    {
        if (eventError != ERROR_SUCCESS)
        {
            SetLastError(eventError);
            return nullptr;
        }
        const HANDLE event = Fake<&CreateEventExW>::Real(nullptr, nullptr, flags, access);
        HANDLE own = nullptr;
        DuplicateHandle(GetCurrentProcess(), event, GetCurrentProcess(), &own, 0, FALSE, DUPLICATE_SAME_ACCESS);
        m_events.emplace_back(event, own);
        return event;
    }

    // Into the list come: "activate <class>", "wait", and of the functions of the package manager
    // FindProvisionedPackages, DeprovisionPackageForAllUsersAsync, FindPackages, FullName, RemovePackageAsync and
    // InstalledPath.

private:
    class Store : public PackageStore
    {
    public:
        explicit Store(FakePackageManager& manager) : m_manager(manager) {}

        void Enter(std::wstring_view function, std::wstring_view argument) override
        {
            static const std::set<std::wstring_view> noted{L"FindProvisionedPackages",
                                                           L"DeprovisionPackageForAllUsersAsync",
                                                           L"FindPackages",
                                                           L"FullName",
                                                           L"RemovePackageAsync",
                                                           L"InstalledPath"};
            const std::string call = Narrow(function) + (argument.empty() ? "" : " ") + Narrow(argument);
            if (noted.contains(function))
            {
                m_manager.m_calls.push_back(call);
            }
            winrt::check_hresult(m_manager.TakeFailure(call));
        }
        std::vector<PackageDescription> Provisioned() override { return m_manager.provisioned; }
        std::vector<PackageDescription> Installed() override { return m_manager.installed; }
        void Deprovision(const std::wstring& familyName, winrt::com_ptr<DeploymentOperation> operation) override
        {
            m_manager.Start("DeprovisionPackageForAllUsersAsync " + Narrow(familyName), std::move(operation));
        }
        void Remove(const std::wstring& fullName, std::optional<std::uint32_t> options,
                    winrt::com_ptr<DeploymentOperation> operation) override
        {
            m_manager.Start("RemovePackageAsync " + Narrow(DescribeRemoval(fullName, options)), std::move(operation));
        }

    private:
        FakePackageManager& m_manager;
    };

    struct Failure
    {
        HRESULT result = S_OK;
        unsigned times = 0;
    };
    struct Pending
    {
        winrt::com_ptr<DeploymentOperation> operation;
        OperationEnd end;
    };

    // How many handles there are to what a handle stands for, itself included. Closing is not watched: that is a matter
    // of other fakes.
    static ULONG HandlesOf(HANDLE handle)
    {
        PUBLIC_OBJECT_BASIC_INFORMATION information{};
        EXPECT_EQ(NtQueryObject(handle, ObjectBasicInformation, &information, sizeof(information), nullptr), 0);
        return information.HandleCount;
    }

    bool IsEvent(HANDLE handle) const
    {
        return std::ranges::find(m_events, handle, &std::pair<HANDLE, HANDLE>::first) != m_events.end();
    }

    static std::uint32_t LivingObjects() { return winrt::get_module_lock(); }

    HRESULT TakeFailure(const std::string& call)
    {
        if (const HRESULT result = onCall(call); FAILED(result))
        {
            return result;
        }
        Failure& failure = m_failures[call];
        if (failure.times == 0)
        {
            return S_OK;
        }
        --failure.times;
        return failure.result;
    }

    void Start(const std::string& call, winrt::com_ptr<DeploymentOperation> operation)
    {
        const auto end = m_ends.find(call);
        m_pending.push_back({std::move(operation), end == m_ends.end() ? OperationEnd{} : end->second});
        onOperation(call, m_pending.back().end);
        if (ending == Ending::AtOnce)
        {
            FinishPending();
        }
    }

    void FinishPending()
    {
        for (const Pending& pending : std::exchange(m_pending, {}))
        {
            pending.operation->Finish(pending.end);
        }
    }

    static DWORD WINAPI FinishOnThread(void* manager)
    {
        static_cast<FakePackageManager*>(manager)->FinishPending();
        return 0;
    }

    DWORD Wait(HANDLE event, DWORD milliseconds, BOOL alertable)
    {
        m_calls.emplace_back("wait");
        EXPECT_EQ(milliseconds, INFINITE);
        EXPECT_FALSE(alertable);
        if (ending != Ending::OnAnotherThread)
        {
            FinishPending();
            EXPECT_EQ(Fake<&WaitForSingleObjectEx>::Real(event, 0, FALSE), WAIT_OBJECT_0) << "nothing is signaled";
            return WAIT_OBJECT_0;
        }
        // Not a thread of the C++ runtime's: that one sleeps when it starts, which tests replace.
        const HANDLE thread = CreateThread(nullptr, 0, &FinishOnThread, this, 0, nullptr);
        EXPECT_EQ(Fake<&WaitForSingleObjectEx>::Real(event, c_longestWait, FALSE), WAIT_OBJECT_0);
        EXPECT_EQ(Fake<&WaitForSingleObjectEx>::Real(thread, c_longestWait, FALSE), WAIT_OBJECT_0);
        Fake<&CloseHandle>::Real(thread);
        return WAIT_OBJECT_0;
    }

    // A test that would wait for ever fails after that many milliseconds.
    static constexpr DWORD c_longestWait = 30'000;

    std::vector<std::string>& m_calls;
    std::uint32_t m_livingBefore = LivingObjects();
    std::map<std::string, Failure> m_failures;
    std::map<std::string, OperationEnd> m_ends;
    std::vector<Pending> m_pending;
    std::vector<std::pair<HANDLE, HANDLE>> m_events; // as the program has them, and another handle to each
    std::shared_ptr<PackageStore> m_store = std::make_shared<Store>(*this);

    Fake<&RoGetActivationFactory> m_activate = [this](HSTRING name, REFIID id, void** factory) -> HRESULT {
        const std::wstring_view className = *reinterpret_cast<const winrt::hstring*>(&name);
        m_calls.push_back("activate " + Narrow(className));
        *factory = nullptr;
        const HRESULT failure = TakeFailure("activate");
        if (FAILED(failure) || className != c_packageManagerClass)
        {
            return FAILED(failure) ? failure : REGDB_E_CLASSNOTREG;
        }
        return MakePackageManagerFactory(m_store).as(winrt::guid(id), factory);
    };
    Fake<&CreateEventExW> m_createEvent = [this](LPSECURITY_ATTRIBUTES security, LPCWSTR name, DWORD flags,
                                                 DWORD access) -> HANDLE {
        EXPECT_EQ(security, nullptr);
        EXPECT_EQ(name, nullptr);
        return MakeEvent(flags, access);
    };
    Fake<&WaitForSingleObjectEx> m_wait = [this](HANDLE handle, DWORD milliseconds, BOOL alertable) {
        return IsEvent(handle) ? Wait(handle, milliseconds, alertable)
                               : Fake<&WaitForSingleObjectEx>::Real(handle, milliseconds, alertable);
    };
};

} // namespace Testing
