// The service control manager.
#include "support/common/contract/Contract.h"
#include "support/common/contract/OpenObjects.h"

#include <winsvc.h>

#include <cwchar>
#include <string_view>

namespace Testing
{

namespace
{

constexpr DWORD c_further =
    c_genericRights | MAXIMUM_ALLOWED | ACCESS_SYSTEM_SECURITY | DELETE | READ_CONTROL | WRITE_DAC | WRITE_OWNER;

// Service Security and Access Rights.
constexpr GENERIC_MAPPING c_serviceRights{.GenericRead = STANDARD_RIGHTS_READ | SERVICE_QUERY_CONFIG |
                                                         SERVICE_QUERY_STATUS | SERVICE_INTERROGATE |
                                                         SERVICE_ENUMERATE_DEPENDENTS,
                                          .GenericWrite = STANDARD_RIGHTS_WRITE | SERVICE_CHANGE_CONFIG,
                                          .GenericExecute = STANDARD_RIGHTS_EXECUTE | SERVICE_START | SERVICE_STOP |
                                                            SERVICE_PAUSE_CONTINUE | SERVICE_USER_DEFINED_CONTROL,
                                          .GenericAll = SERVICE_ALL_ACCESS};

const Contract<&OpenSCManagerW> s_openManager{
    [](LPCWSTR, LPCWSTR database, DWORD access) {
        return Verdict{
            {database == nullptr || std::wstring_view(database) == SERVICES_ACTIVE_DATABASEW,
             "the database SERVICES_ACTIVE_DATABASE"},
            {HasOnly(access, SC_MANAGER_ALL_ACCESS | c_further), "Service Security and Access Rights: known rights"},
        };
    },
    [](SC_HANDLE manager, LPCWSTR, LPCWSTR, DWORD access) {
        NoteOpened(manager, Kind::ServiceManager, access | SC_MANAGER_CONNECT); // which is always requested
    }};

const Contract<&OpenServiceW> s_openService{
    [](SC_HANDLE manager, LPCWSTR name, DWORD access) {
        constexpr std::size_t c_longestName = 256;
        const std::wstring_view text = name == nullptr ? L"" : name;
        return Verdict{
            {manager != nullptr && MayBe(manager, Kind::ServiceManager), "a handle of OpenSCManager"},
            {name != nullptr, "a name"},
            {text.size() <= c_longestName && text.find_first_of(L"/\\") == std::wstring_view::npos,
             "up to 256 characters, no slashes or backslashes"},
            {HasOnly(access, SERVICE_ALL_ACCESS | c_further), "Service Security and Access Rights: known rights"},
            {access != 0, "Service Security and Access Rights: a right"},
        };
    },
    [](SC_HANDLE service, SC_HANDLE, LPCWSTR, DWORD access) {
        NoteOpened(service, Kind::Service, MapGenericRights(access, c_serviceRights));
    }};

const Contract<&QueryServiceStatusEx> s_queryStatus = [](SC_HANDLE service, SC_STATUS_TYPE level, LPBYTE buffer,
                                                         DWORD size, LPDWORD needed) {
    constexpr DWORD c_largest = 8 * 1024;
    return Verdict{
        {service != nullptr && MayBe(service, Kind::Service), "a handle of OpenService"},
        {Grants(service, Kind::Service, SERVICE_QUERY_STATUS), "the service was opened with SERVICE_QUERY_STATUS"},
        {level == SC_STATUS_PROCESS_INFO, "no level but SC_STATUS_PROCESS_INFO"},
        {IsBuffer(buffer, size), "a buffer of that size"},
        {size == 0 || size >= sizeof(SERVICE_STATUS_PROCESS), "room for a SERVICE_STATUS_PROCESS, or none"},
        {size <= c_largest, "no more than 8 KB"},
        {needed != nullptr, "a place for the number of bytes needed"},
    };
};

// The right that a control needs; none for an unknown control.
DWORD RightFor(DWORD control)
{
    constexpr DWORD c_firstUserDefined = 128;
    constexpr DWORD c_lastUserDefined = 255;
    switch (control)
    {
    case SERVICE_CONTROL_STOP:
        return SERVICE_STOP;
    case SERVICE_CONTROL_INTERROGATE:
        return SERVICE_INTERROGATE;
    case SERVICE_CONTROL_PAUSE:
    case SERVICE_CONTROL_CONTINUE:
    case SERVICE_CONTROL_PARAMCHANGE:
    case SERVICE_CONTROL_NETBINDADD:
    case SERVICE_CONTROL_NETBINDREMOVE:
    case SERVICE_CONTROL_NETBINDENABLE:
    case SERVICE_CONTROL_NETBINDDISABLE:
        return SERVICE_PAUSE_CONTINUE;
    default:
        return control >= c_firstUserDefined && control <= c_lastUserDefined ? SERVICE_USER_DEFINED_CONTROL : 0;
    }
}

// One general, one major and one minor code, each defined by the system or by the user.
bool IsStopReason(DWORD reason)
{
    const DWORD general = reason & 0xF0000000;
    const DWORD major = reason & 0x00FF0000;
    const DWORD minor = reason & 0x0000FFFF;
    const bool isCustom = (general & SERVICE_STOP_REASON_FLAG_CUSTOM) != 0;
    const DWORD kind = general & ~DWORD{SERVICE_STOP_REASON_FLAG_CUSTOM};
    return IsOneOf(kind, SERVICE_STOP_REASON_FLAG_PLANNED, SERVICE_STOP_REASON_FLAG_UNPLANNED) &&
           (reason & 0x0F000000) == 0 &&
           (isCustom ? major >= SERVICE_STOP_REASON_MAJOR_MIN_CUSTOM && minor >= SERVICE_STOP_REASON_MINOR_MIN_CUSTOM
                     : major >= SERVICE_STOP_REASON_MAJOR_OTHER && major <= SERVICE_STOP_REASON_MAJOR_NONE &&
                           minor >= SERVICE_STOP_REASON_MINOR_OTHER && minor <= SERVICE_STOP_REASON_MINOR_MMC);
}

const Contract<&ControlServiceExW> s_control = [](SC_HANDLE service, DWORD control, DWORD level, PVOID parameters) {
    constexpr std::size_t c_commentSize = 128;
    const auto* const stop = control == SERVICE_CONTROL_STOP
                                 ? static_cast<const SERVICE_CONTROL_STATUS_REASON_PARAMSW*>(parameters)
                                 : nullptr;
    return Verdict{
        {service != nullptr && MayBe(service, Kind::Service), "a handle of OpenService"},
        {RightFor(control) != 0, "a known control"},
        {Grants(service, Kind::Service, RightFor(control)), "the service was opened with the right for this control"},
        {level == SERVICE_CONTROL_STATUS_REASON_INFO, "no level but SERVICE_CONTROL_STATUS_REASON_INFO"},
        {parameters != nullptr, "parameters"},
        {stop == nullptr || IsStopReason(stop->dwReason),
         "SERVICE_CONTROL_STATUS_REASON_PARAMS: one general, one major and one minor code"},
        {stop == nullptr || stop->pszComment == nullptr || std::wcslen(stop->pszComment) < c_commentSize,
         "SERVICE_CONTROL_STATUS_REASON_PARAMS: a comment of less than 128 characters"},
    };
};

const Contract<&DeleteService> s_deleteService = [](SC_HANDLE service) {
    return Verdict{
        {service != nullptr && MayBe(service, Kind::Service), "a handle of OpenService"},
        {Grants(service, Kind::Service, DELETE), "the service was opened with DELETE"},
    };
};

const Contract<&CloseServiceHandle> s_closeHandle{
    [](SC_HANDLE handle) {
        return Verdict{{handle != nullptr && MayBe(handle, Kind::Service, Kind::ServiceManager),
                        "a handle of OpenService or OpenSCManager"}};
    },
    [](BOOL done, SC_HANDLE handle) {
        if (done)
        {
            NoteClosed(handle);
        }
    }};

} // namespace

} // namespace Testing
