#pragma once

#include "support/common/ImportTableFake.h"
#include "support/common/PackageObjects.h"
#include "support/common/Text.h"
#include "support/unit/Journal.h"

#include <windows.h>

#include <roapi.h>
#include <winternl.h>

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Testing
{

// The package manager of Windows, with packages that a test makes up:
//     packages.installed = {{c_family, L"Sample_1.0", L"C:\\Sample"}};
//
// C++/WinRT asks RoGetActivationFactory for the class, and that is replaced at the import table like any other function
// of Windows. What it gives is a factory of real Windows Runtime objects, so the code under test goes through the
// interfaces themselves: references, failure codes and completion handlers are as with Windows. C++/WinRT counts the
// living objects and handlers of a program, so those that were not released are found at the end; so are events that
// were not closed.
//
// In the journal come the functions of PackageStore::Enter, each with the text, the number or the package that it is
// about: FindPackages(), Current(1), FullName(Sample_1.0), RemovePackageAsync("Sample_1.0", 0x80000).
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

    explicit FakePackageManager(Journal& journal) : m_journal(journal) {}
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

    // How the operations that a call starts end, as it stands in the journal; all others complete.
    void End(const std::string& call, OperationEnd end) { m_ends[call] = end; }

    // Is told of every operation when it starts, by the call that starts it, and how it will end; it may let it end
    // otherwise.
    std::function<void(const std::string& call, OperationEnd& end)> onOperation = [](const std::string&,
                                                                                     OperationEnd&) {};

private:
    class Store : public PackageStore
    {
    public:
        explicit Store(FakePackageManager& manager) : m_manager(manager) {}

        void Enter(std::wstring_view function, std::wstring_view argument,
                   std::optional<std::uint32_t> options) override
        {
            const std::string name = Narrow(function);
            const std::string subject = name.ends_with("Async") ? '"' + Narrow(argument) + '"' : Narrow(argument);
            Journal& journal = m_manager.m_journal;
            const DWORD error = argument.empty() ? journal.Add(name)
                                : options        ? journal.Add(name, subject, Mask(*options))
                                                 : journal.Add(name, subject);
            winrt::check_hresult(static_cast<HRESULT>(error));
        }
        std::vector<PackageDescription> Provisioned() override { return m_manager.provisioned; }
        std::vector<PackageDescription> Installed() override { return m_manager.installed; }
        void Deprovision(const std::wstring&, winrt::com_ptr<DeploymentOperation> operation) override
        {
            m_manager.Start(std::move(operation));
        }
        void Remove(const std::wstring&, std::optional<std::uint32_t>,
                    winrt::com_ptr<DeploymentOperation> operation) override
        {
            m_manager.Start(std::move(operation));
        }

    private:
        FakePackageManager& m_manager;
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

    static std::uint32_t LivingObjects() { return winrt::get_module_lock(); }

    // The operation that the last call of the journal started.
    void Start(winrt::com_ptr<DeploymentOperation> operation)
    {
        const std::string& call = m_journal.All().back();
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
        m_journal.Add("WaitForSingleObjectEx", "event", Mask(milliseconds), alertable);
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

    Journal& m_journal;
    std::uint32_t m_livingBefore = LivingObjects();
    std::map<std::string, OperationEnd> m_ends;
    std::vector<Pending> m_pending;
    std::multimap<HANDLE, HANDLE> m_events; // as the program has them, and another handle to each
    std::shared_ptr<PackageStore> m_store = std::make_shared<Store>(*this);

    Fake<&RoGetActivationFactory> m_activate = [this](HSTRING name, REFIID id, void** factory) -> HRESULT {
        const winrt::hstring& className = *reinterpret_cast<const winrt::hstring*>(&name);
        *factory = nullptr;
        const auto failure = static_cast<HRESULT>(m_journal.Add("RoGetActivationFactory", className.c_str()));
        if (FAILED(failure) || className != c_packageManagerClass)
        {
            return FAILED(failure) ? failure : REGDB_E_CLASSNOTREG;
        }
        return MakePackageManagerFactory(m_store).as(winrt::guid(id), factory);
    };
    Fake<&CreateEventExW> m_createEvent = [this](LPSECURITY_ATTRIBUTES security, LPCWSTR name, DWORD flags,
                                                 DWORD access) -> HANDLE {
        if (const DWORD error = m_journal.Add("CreateEventExW", security, name, Mask(flags), Mask(access)))
        {
            SetLastError(error);
            return nullptr;
        }
        const HANDLE event = Fake<&CreateEventExW>::Real(nullptr, nullptr, flags, access);
        HANDLE own = nullptr;
        DuplicateHandle(GetCurrentProcess(), event, GetCurrentProcess(), &own, 0, FALSE, DUPLICATE_SAME_ACCESS);
        m_events.emplace(event, own);
        return event;
    };
    Fake<&WaitForSingleObjectEx> m_wait = [this](HANDLE handle, DWORD milliseconds, BOOL alertable) {
        return m_events.contains(handle) ? Wait(handle, milliseconds, alertable)
                                         : Fake<&WaitForSingleObjectEx>::Real(handle, milliseconds, alertable);
    };
};

} // namespace Testing
