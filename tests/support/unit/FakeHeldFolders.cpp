#include "support/unit/FakeHeldFolders.h"

#include <aclapi.h>

#include <memory>
#include <string>

namespace Testing
{

namespace
{

// OBJ_DONT_REPARSE of ntdef.h.
constexpr ULONG c_dontReparse = 0x1000;

// As ntddk.h makes a status of a Win32 code.
NTSTATUS ToStatus(DWORD error)
{
    return error == ERROR_SUCCESS ? 0 : static_cast<NTSTATUS>(0xC0070000 | error);
}

// Lets the program import functions.
template <class... Functions>
void Import(Functions... functions)
{
    [[maybe_unused]] const void* const volatile imported[] = {reinterpret_cast<const void*>(functions)...};
}

} // namespace

FakeHeldFolders::FakeHeldFolders(Journal& journal, Handles& handles) : FakeFileSystem(journal, handles)
{
    // What a program does not import cannot be replaced, and it need not call all that is.
    Import(&CopyFileExW, &DeviceIoControl, &GetFinalPathNameByHandleW, &GetSecurityInfo, &GetVolumeInformationByHandleW,
           &GetVolumePathNameW, &MoveFileExW, &NtOpenFile, &RtlNtStatusToDosError, &SetKernelObjectSecurity);
}

NTSTATUS FakeHeldFolders::Create(HANDLE& handle, ACCESS_MASK access, const OBJECT_ATTRIBUTES& attributes, ULONG share,
                                 ULONG disposition, ULONG options)
{
    const std::wstring name(attributes.ObjectName->Buffer, attributes.ObjectName->Length / sizeof(wchar_t));
    if (const DWORD error = m_journal.Add("NtCreateFile", m_handles.NameOf(attributes.RootDirectory), name.c_str()))
    {
        return ToStatus(error);
    }
    const Opened* const folder = FindOpened(attributes.RootDirectory);
    constexpr ULONG kinds = FILE_DIRECTORY_FILE | FILE_NON_DIRECTORY_FILE;
    constexpr ULONG knownAttributes = OBJ_VALID_ATTRIBUTES | c_dontReparse;
    if (folder == nullptr || attributes.Length != sizeof(attributes) ||
        (attributes.Attributes & ~knownAttributes) != 0 || (options & kinds) == kinds || name.empty() ||
        name.find_first_of(L"\\/") != std::wstring::npos ||
        (disposition != FILE_OPEN && disposition != FILE_CREATE && disposition != FILE_OPEN_IF) ||
        ((options & FILE_SYNCHRONOUS_IO_NONALERT) != 0 && (access & SYNCHRONIZE) == 0))
    {
        return ToStatus(folder == nullptr ? ERROR_INVALID_HANDLE : ERROR_INVALID_PARAMETER);
    }
    const bool isStrict = (attributes.Attributes & c_dontReparse) != 0;
    OpenedPointer opened;
    const DWORD error = OpenOrCreate(LookIn(folder->m_place.node, name, isStrict ? Links::Refuse : Links::Follow),
                                     access, share, disposition, options, opened);
    handle = error == ERROR_SUCCESS ? MakeHandle(opened) : nullptr;
    return ToStatus(error);
}

DWORD FakeHeldFolders::OpenOrCreate(Place place, ACCESS_MASK access, ULONG share, ULONG disposition, ULONG options,
                                    OpenedPointer& opened)
{
    if (place.node && place.node->IsLink() && (options & FILE_OPEN_REPARSE_POINT) == 0)
    {
        place = Look(place.node->target); // which is created if it is not there
    }
    if (place.node && disposition == FILE_CREATE)
    {
        return ERROR_ALREADY_EXISTS;
    }
    if (place.error == ERROR_FILE_NOT_FOUND && disposition != FILE_OPEN)
    {
        if (place.folder->isDeletePending)
        {
            return ERROR_ACCESS_DENIED;
        }
        const bool isFolder = (options & FILE_DIRECTORY_FILE) != 0;
        place.node = std::make_shared<Node>();
        place.node->attributes = isFolder ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE;
        place.error = ERROR_SUCCESS;
        Put(place, place.node);
    }
    return Open(place, access, share, options, opened);
}

HANDLE FakeHeldFolders::Reopen(HANDLE handle, DWORD access, DWORD share, DWORD flags)
{
    DWORD error = m_journal.Add("ReOpenFile", m_handles.NameOf(handle), Mask(access));
    const Opened* const original = FindOpened(handle);
    OpenedPointer opened;
    if (error == ERROR_SUCCESS)
    {
        const ULONG options = ((flags & FILE_FLAG_BACKUP_SEMANTICS) != 0 ? 0U : FILE_NON_DIRECTORY_FILE) |
                              FILE_SYNCHRONOUS_IO_NONALERT |
                              ((flags & FILE_FLAG_OPEN_REPARSE_POINT) != 0 ? FILE_OPEN_REPARSE_POINT : 0U);
        error = original == nullptr
                    ? DWORD{ERROR_INVALID_HANDLE}
                    : Open(original->m_place, access | SYNCHRONIZE | FILE_READ_ATTRIBUTES, share, options, opened);
    }
    Fail(error);
    return error == ERROR_SUCCESS ? MakeHandle(opened) : INVALID_HANDLE_VALUE;
}

BOOL FakeHeldFolders::Duplicate(HANDLE handle, HANDLE* duplicate)
{
    const DWORD error = m_journal.Add("DuplicateHandle", m_handles.NameOf(handle));
    const auto* const opened = m_handles.Find<OpenedPointer>(handle);
    if (opened == nullptr || error != ERROR_SUCCESS)
    {
        return Fail(opened == nullptr ? ERROR_INVALID_HANDLE : error);
    }
    *duplicate = MakeHandle(*opened);
    return TRUE;
}

} // namespace Testing
