// Tokens, privileges, random numbers.
#include "support/common/contract/Contract.h"
#include "support/common/contract/OpenObjects.h"

#include <aclapi.h>
#include <sddl.h>

namespace Testing
{

namespace
{

constexpr DWORD c_anyTokenAccess =
    TOKEN_ALL_ACCESS | TOKEN_ADJUST_SESSIONID | c_genericRights | MAXIMUM_ALLOWED | ACCESS_SYSTEM_SECURITY;

// GetCurrentProcessToken, GetCurrentThreadToken, GetCurrentThreadEffectiveToken.
bool IsPseudoToken(HANDLE token)
{
    const auto value = reinterpret_cast<LONG_PTR>(token);
    return value <= -4 && value >= -6;
}

const Contract<&OpenProcessToken> s_openToken{
    [](HANDLE process, DWORD access, PHANDLE token) {
        return Verdict{
            {process == GetCurrentProcess() ||
                 GrantsEither(process, Kind::Process, PROCESS_QUERY_INFORMATION, PROCESS_QUERY_LIMITED_INFORMATION),
             "the process was opened with PROCESS_QUERY_INFORMATION"},
            {process != nullptr, "an open process"},
            {HasOnly(access, c_anyTokenAccess), "Access Rights for Access-Token Objects: known rights"},
            {token != nullptr, "a place for the token"},
        };
    },
    [](BOOL done, HANDLE, DWORD access, PHANDLE token) {
        if (done)
        {
            NoteOpened(*token, Kind::Token, access);
        }
    }};

const Contract<&LookupPrivilegeValueW> s_lookupPrivilege = [](LPCWSTR, LPCWSTR name, PLUID luid) {
    return Verdict{
        {name != nullptr, "a privilege's name"},
        {luid != nullptr, "a place for the LUID"},
    };
};

const Contract<&AdjustTokenPrivileges> s_adjustPrivileges = [](HANDLE token, BOOL disablesAll, PTOKEN_PRIVILEGES wanted,
                                                               DWORD size, PTOKEN_PRIVILEGES previous, PDWORD needed) {
    constexpr DWORD c_attributes = SE_PRIVILEGE_ENABLED | SE_PRIVILEGE_REMOVED | SE_PRIVILEGE_ENABLED_BY_DEFAULT;
    const bool isRead = !disablesAll && wanted != nullptr && wanted->PrivilegeCount > 0;
    return Verdict{
        {IsHandle(token) && MayBe(token, Kind::Token), "an open token"},
        {!IsPseudoToken(token), "GetCurrentProcessToken: a pseudo handle only queries"},
        {Grants(token, Kind::Token, TOKEN_ADJUST_PRIVILEGES), "the token was opened with TOKEN_ADJUST_PRIVILEGES"},
        {previous == nullptr || Grants(token, Kind::Token, TOKEN_QUERY),
         "for the previous state, the token was opened with TOKEN_QUERY"},
        {disablesAll || wanted != nullptr, "the new state, unless all are disabled"},
        {!isRead || HasOnly(wanted->Privileges[0].Attributes, c_attributes), "TOKEN_PRIVILEGES: known attributes"},
        {previous == nullptr || size >= sizeof(TOKEN_PRIVILEGES), "room for the previous state"},
        {previous == nullptr || needed != nullptr, "for the previous state, a place for its size"},
    };
};

const Contract<&GetTokenInformation> s_getTokenInformation = [](HANDLE token, TOKEN_INFORMATION_CLASS kind,
                                                                LPVOID buffer, DWORD size, PDWORD needed) {
    return Verdict{
        {IsHandle(token) && MayBe(token, Kind::Token), "an open token"},
        {Grants(token, Kind::Token, kind == TokenSource ? TOKEN_QUERY_SOURCE : TOKEN_QUERY),
         "the token was opened with TOKEN_QUERY, or TOKEN_QUERY_SOURCE for its source"},
        {kind >= TokenUser && kind < MaxTokenInfoClass, "TOKEN_INFORMATION_CLASS: a known class"},
        {IsBuffer(buffer, size), "a buffer of that size"},
        {kind != TokenElevation || size == 0 || size >= sizeof(TOKEN_ELEVATION), "room for a TOKEN_ELEVATION"},
        {kind != TokenUser || size == 0 || size > sizeof(TOKEN_USER), "room for a TOKEN_USER and its SID"},
        {needed != nullptr, "a place for the number of bytes needed"},
    };
};

bool IsSid(const void* sid)
{
    return sid != nullptr && static_cast<const SID*>(sid)->Revision == SID_REVISION;
}

const Contract<&EqualSid> s_equalSid = [](PSID sid, PSID other) {
    return Verdict{{IsSid(sid) && IsSid(other), "two SIDs"}};
};

const Contract<&ConvertSidToStringSidW> s_sidToText{[](PSID sid, LPWSTR* text) {
                                                        return Verdict{
                                                            {IsSid(sid), "a SID"},
                                                            {text != nullptr, "a place for the text"},
                                                        };
                                                    },
                                                    [](BOOL isDone, PSID, LPWSTR* text) {
                                                        if (isDone)
                                                        {
                                                            NoteOpened(*text, Kind::LocalMemory);
                                                        }
                                                    }};

const Contract<&ConvertStringSecurityDescriptorToSecurityDescriptorW> s_textToDescriptor{
    [](LPCWSTR text, DWORD revision, PSECURITY_DESCRIPTOR* descriptor, PULONG) {
        return Verdict{
            {text != nullptr, "a text"},
            {revision == SDDL_REVISION_1, "SDDL_REVISION_1"},
            {descriptor != nullptr, "a place for the descriptor"},
        };
    },
    [](BOOL isDone, LPCWSTR, DWORD, PSECURITY_DESCRIPTOR* descriptor, PULONG) {
        if (isDone)
        {
            NoteOpened(*descriptor, Kind::LocalMemory);
        }
    }};

const Contract<&GetSecurityInfo> s_getSecurityInfo{
    [](HANDLE object, SE_OBJECT_TYPE type, SECURITY_INFORMATION what, PSID* owner, PSID* group, PACL* list, PACL* audit,
       PSECURITY_DESCRIPTOR* descriptor) {
        constexpr SECURITY_INFORMATION c_readable =
            OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
        return Verdict{
            {IsHandle(object), "an open object"},
            {type > SE_UNKNOWN_OBJECT_TYPE && type <= SE_REGISTRY_WOW64_32KEY, "SE_OBJECT_TYPE: a known type"},
            {type != SE_FILE_OBJECT || (what & c_readable) == 0 || Grants(object, Kind::File, READ_CONTROL),
             "READ_CONTROL, for all but the SACL"},
            {type != SE_FILE_OBJECT || (what & SACL_SECURITY_INFORMATION) == 0 ||
                 Grants(object, Kind::File, ACCESS_SYSTEM_SECURITY),
             "ACCESS_SYSTEM_SECURITY, for the SACL"},
            {descriptor != nullptr || (owner == nullptr && group == nullptr && list == nullptr && audit == nullptr),
             "a place for the descriptor, in which its parts lie"},
        };
    },
    [](DWORD error, HANDLE, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID*, PSID*, PACL*, PACL*,
       PSECURITY_DESCRIPTOR* descriptor) {
        if (error == ERROR_SUCCESS && descriptor != nullptr)
        {
            NoteOpened(*descriptor, Kind::LocalMemory);
        }
    }};

const Contract<&SetKernelObjectSecurity> s_setSecurity = [](HANDLE object, SECURITY_INFORMATION what,
                                                            PSECURITY_DESCRIPTOR descriptor) {
    return Verdict{
        {IsHandle(object), "an open object"},
        {(what & DACL_SECURITY_INFORMATION) == 0 || Grants(object, Kind::File, WRITE_DAC), "WRITE_DAC for the DACL"},
        {(what & OWNER_SECURITY_INFORMATION) == 0 || Grants(object, Kind::File, WRITE_OWNER),
         "WRITE_OWNER for the owner"},
        {descriptor != nullptr, "a descriptor"},
    };
};

const Contract<&IsWellKnownSid> s_isWellKnownSid = [](PSID sid, WELL_KNOWN_SID_TYPE type) {
    return Verdict{
        {IsSid(sid), "a SID"},
        {type >= WinNullSid, "WELL_KNOWN_SID_TYPE: a known type"},
    };
};

} // namespace

} // namespace Testing
