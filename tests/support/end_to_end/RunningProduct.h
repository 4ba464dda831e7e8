// The sample product as it runs: services in Windows' service manager, clients, and programs started from its folders.
// Each is there as long as its object; then the process ends, the service is deleted and its program goes.
#pragma once

#include "support/end_to_end/Owners.h"
#include "support/end_to_end/product/Product.h"

#include <windows.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Testing
{
// A built program, put at another path in place of what is there.
class PlacedProgram
{
public:
    // Makes the folders that are missing, which stay. A program that is already there, because another object of the
    // same path lives, is used and left to that object.
    PlacedProgram(std::wstring_view builtName, std::wstring path);

    // Takes the program away, as far as it is still there.
    ~PlacedProgram();
    PlacedProgram(const PlacedProgram&) = delete;
    PlacedProgram& operator=(const PlacedProgram&) = delete;

    const std::wstring& Path() const { return m_path; }

private:
    std::wstring m_path;
    bool m_isOwn = false;
};

// An event of a name of its own, which a program sets when it runs.
class ReadyEvent
{
public:
    ReadyEvent();

    const std::wstring& Name() const { return m_name; }

    // Waits until it is set. Throws std::runtime_error when the process ends before, or takes half a minute.
    void WaitFor(HANDLE process, const std::wstring& program) const;

private:
    std::wstring m_name;
    UniqueHandle m_event;
};

// A process of the product: what it is and how it ends.
class ProductProcess
{
public:
    ProductProcess() = default;
    ProductProcess(UniqueHandle process, DWORD id);

    // Ends it if it has not ended yet.
    ~ProductProcess();
    ProductProcess(const ProductProcess&) = delete;
    ProductProcess& operator=(const ProductProcess&) = delete;
    ProductProcess(ProductProcess&&) = default;
    ProductProcess& operator=(ProductProcess&& other) noexcept;

    DWORD Id() const { return m_id; }
    HANDLE Handle() const { return m_process.get(); }
    bool IsRunning() const;

    // Whether it ends in that time.
    bool EndsWithin(std::chrono::milliseconds limit) const;

    // Nothing while it runs. 0 when the uninstaller has ended it; c_endedByItself when it went of its own accord.
    std::optional<DWORD> ExitCode() const;

private:
    void Terminate() noexcept;

    UniqueHandle m_process;
    DWORD m_id = 0;
};

// A running client.
class SampleClient
{
public:
    // Puts the client's program at that path, for example Velmora.exe in the installation folder, starts it, by another
    // spelling of its path when one is given, and waits until its windows are there. Throws std::runtime_error when
    // that fails.
    SampleClient(std::wstring path, ClientMode mode, const std::wstring& startedAs = {});

    const ProductProcess& Process() const { return m_process; }

    // How many times its windows have been asked to close it.
    LONG RequestsToClose() const;

private:
    PlacedProgram m_program;
    ReadyEvent m_ready;
    UniqueHandle m_requests;
    ProductProcess m_process;
};

// A running program under the name of no client, without any window.
class SampleProgram : public SampleClient
{
public:
    explicit SampleProgram(std::wstring path, const std::wstring& startedAs = {})
        : SampleClient(std::move(path), ClientMode::HasNoWindow, startedAs)
    {}
};

// An installed service, not started at first.
class SampleService
{
public:
    // Puts the service's program at its place, or at that path, and installs it. Throws std::runtime_error when there
    // is such a service already.
    SampleService(std::wstring_view name, ServiceMode mode, std::wstring path = {});

    // Ends the process and deletes the service, as far as it is still there.
    ~SampleService();
    SampleService(const SampleService&) = delete;
    SampleService& operator=(const SampleService&) = delete;

    // Starts it and waits until it runs.
    void Start();

    const std::wstring& Name() const { return m_name; }
    bool IsInstalled() const;

    // One of SERVICE_STOPPED and so on, as the service manager knows it; nothing when there is no such service.
    std::optional<DWORD> State() const;

    // The process of its last start.
    const ProductProcess& Process() const { return m_process; }

private:
    void Delete();

    std::wstring m_name;
    PlacedProgram m_program;
    ReadyEvent m_ready;
    ProductProcess m_process;
};

// What should have gone with its object and did not, a line each, since the last call. None when all is well.
std::vector<std::string> TakeLeftOver();
} // namespace Testing
