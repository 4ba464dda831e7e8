#include "HeldFolder.h"

#include <string_view>

namespace Reporter
{

namespace
{

constexpr ULONG c_shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

constexpr ULONG c_dontReparse = 0x1000; // ntdef.h has it as OBJ_DONT_REPARSE

} // namespace

wil::unique_hfile OpenIn(HANDLE folder, std::wstring_view name, ACCESS_MASK access, ULONG share, ULONG disposition,
                         ULONG kind) noexcept
{
    const auto bytes = static_cast<USHORT>(name.size() * sizeof(wchar_t));
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): nothing writes to it
    UNICODE_STRING text{.Length = bytes, .MaximumLength = bytes, .Buffer = const_cast<PWSTR>(name.data())};
    OBJECT_ATTRIBUTES attributes{};
    InitializeObjectAttributes(&attributes, &text, c_dontReparse, folder, nullptr);
    IO_STATUS_BLOCK status{};
    wil::unique_hfile opened;
    NtCreateFile(opened.put(), access | FILE_READ_ATTRIBUTES | SYNCHRONIZE, &attributes, &status, nullptr,
                 FILE_ATTRIBUTE_NORMAL, share, disposition,
                 kind | FILE_OPEN_REPARSE_POINT | FILE_SYNCHRONOUS_IO_NONALERT, nullptr, 0);
    return opened;
}

wil::unique_hfile ReopenFolder(HANDLE folder, DWORD access) noexcept
{
    return wil::unique_hfile(
        ReOpenFile(folder, access, c_shareAll, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT));
}

wil::unique_hfile CreateFileIn(HANDLE folder, std::wstring_view name) noexcept
{
    return OpenIn(folder, name, FILE_GENERIC_WRITE | DELETE, 0, FILE_CREATE, FILE_NON_DIRECTORY_FILE);
}

void Delete(HANDLE opened) noexcept
{
    // The name goes at once, even while others have the file open; where that is not known, with the last handle.
    FILE_DISPOSITION_INFO_EX atOnce{.Flags = FILE_DISPOSITION_FLAG_DELETE | FILE_DISPOSITION_FLAG_POSIX_SEMANTICS};
    if (!SetFileInformationByHandle(opened, FileDispositionInfoEx, &atOnce, sizeof(atOnce)))
    {
        FILE_DISPOSITION_INFO atLastClose{.DeleteFile = TRUE};
        SetFileInformationByHandle(opened, FileDispositionInfo, &atLastClose, sizeof(atLastClose));
    }
}

void DeleteFileIn(HANDLE folder, std::wstring_view name) noexcept
{
    const wil::unique_hfile file = OpenIn(folder, name, DELETE, c_shareAll, FILE_OPEN, FILE_NON_DIRECTORY_FILE);
    if (file)
    {
        Delete(file.get());
    }
}

void DeleteFolder(wil::unique_hfile& folder) noexcept
{
    if (!folder)
    {
        return;
    }
    // The handle that holds the folder lets nobody delete it. One that shares with all stands for it meanwhile.
    const wil::unique_hfile same = ReopenFolder(folder.get(), FILE_READ_ATTRIBUTES);
    folder.reset();
    const wil::unique_hfile deletable = same ? ReopenFolder(same.get(), DELETE) : wil::unique_hfile();
    if (deletable)
    {
        Delete(deletable.get());
    }
}

} // namespace Reporter
