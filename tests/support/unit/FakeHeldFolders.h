#pragma once

#include "support/unit/FakeFileSystem.h"

namespace Testing
{

// A file system in memory for who holds folders open: it also has what is created relative to a folder's handle, and
// handles that are made of others. Where Windows would follow a link, it does.
class FakeHeldFolders : public FakeFileSystem
{
public:
    FakeHeldFolders(Journal& journal, Handles& handles);

private:
    NTSTATUS Create(HANDLE& handle, ACCESS_MASK access, const OBJECT_ATTRIBUTES& attributes, ULONG share,
                    ULONG disposition, ULONG options);
    DWORD OpenOrCreate(Place place, ACCESS_MASK access, ULONG share, ULONG disposition, ULONG options,
                       OpenedPointer& opened);
    HANDLE Reopen(HANDLE handle, DWORD access, DWORD share, DWORD flags);
    BOOL Duplicate(HANDLE handle, HANDLE* duplicate);

    Fake<&NtCreateFile> m_create = [this](PHANDLE handle, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes,
                                          PIO_STATUS_BLOCK, PLARGE_INTEGER, ULONG, ULONG share, ULONG disposition,
                                          ULONG options, PVOID, ULONG) {
        return Create(*handle, access, *attributes, share, disposition, options);
    };
    Fake<&ReOpenFile> m_reopen = [this](HANDLE handle, DWORD access, DWORD share, DWORD flags) {
        return Reopen(handle, access, share, flags);
    };
    Fake<&DuplicateHandle> m_duplicate = [this](HANDLE process, HANDLE handle, HANDLE target, LPHANDLE duplicate,
                                                DWORD access, BOOL isInherited, DWORD options) {
        return m_handles.IsOwn(handle)
                   ? Duplicate(handle, duplicate)
                   : m_duplicate.Hidden(process, handle, target, duplicate, access, isInherited, options);
    };
};

} // namespace Testing
