// Files, directories, devices and the console.
#include "support/common/contract/Contract.h"
#include "support/common/contract/OpenObjects.h"

#include <winioctl.h>
#include <winternl.h>

#include <cstddef>
#include <string_view>

namespace Testing
{

namespace
{

constexpr DWORD c_anyShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr ULONG c_objectFlags = 0x1FF2; // OBJ_VALID_ATTRIBUTES
constexpr DWORD c_anyAccess = c_genericRights | MAXIMUM_ALLOWED | ACCESS_SYSTEM_SECURITY | FILE_ALL_ACCESS;

// File Security and Access Rights.
constexpr GENERIC_MAPPING c_fileRights{.GenericRead = FILE_GENERIC_READ,
                                       .GenericWrite = FILE_GENERIC_WRITE,
                                       .GenericExecute = FILE_GENERIC_EXECUTE,
                                       .GenericAll = FILE_ALL_ACCESS};

DWORD MapRights(DWORD access)
{
    return MapGenericRights(access, c_fileRights);
}

bool IsFile(HANDLE file, DWORD rights = 0)
{
    return IsHandle(file) && Grants(file, Kind::File, rights);
}

bool IsOnShare(std::wstring_view path)
{
    return path.starts_with(L"\\\\?\\UNC\\") ||
           (path.starts_with(L"\\\\") && !path.starts_with(L"\\\\?\\") && !path.starts_with(L"\\\\.\\"));
}

const Contract<&CreateFileW> s_createFile{
    [](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD flags,
       HANDLE model) {
        constexpr DWORD c_attributes = 0x7FB7; // those that a file can be created with
        constexpr DWORD c_flags = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_DELETE_ON_CLOSE | FILE_FLAG_NO_BUFFERING |
                                  FILE_FLAG_OPEN_NO_RECALL | FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_OVERLAPPED |
                                  FILE_FLAG_POSIX_SEMANTICS | FILE_FLAG_RANDOM_ACCESS | FILE_FLAG_SEQUENTIAL_SCAN |
                                  FILE_FLAG_WRITE_THROUGH | 0x00800000 /* FILE_FLAG_SESSION_AWARE */;
        return Verdict{
            {path != nullptr, "a path"},
            {HasOnly(access, c_anyAccess), "known rights"},
            {HasOnly(share, c_anyShare), "known ways of sharing"},
            {security == nullptr || security->nLength == sizeof(*security), "the size of the security attributes"},
            {disposition >= CREATE_NEW && disposition <= TRUNCATE_EXISTING, "one of the five dispositions"},
            {disposition != TRUNCATE_EXISTING || HasAll(access, GENERIC_WRITE),
             "TRUNCATE_EXISTING needs GENERIC_WRITE"},
            {HasOnly(flags, c_attributes | c_flags | SECURITY_VALID_SQOS_FLAGS), "known flags and attributes"},
            {!HasAll(flags, FILE_FLAG_OPEN_REPARSE_POINT) || disposition != CREATE_ALWAYS,
             "FILE_FLAG_OPEN_REPARSE_POINT is not for CREATE_ALWAYS"},
            {model == nullptr || IsFile(model, FILE_GENERIC_READ), "the template was opened with GENERIC_READ"},
        };
    },
    [](HANDLE file, LPCWSTR, DWORD access, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD flags, HANDLE) {
        if (file != INVALID_HANDLE_VALUE)
        {
            const DWORD further = HasAll(flags, FILE_FLAG_DELETE_ON_CLOSE) ? DELETE : 0;
            NoteOpened(file, Kind::File, MapRights(access) | FILE_READ_ATTRIBUTES | SYNCHRONIZE | further);
        }
    }};

// What NtCreateFile's page says, and holds for NtOpenFile too, which refers to it.
Verdict JudgeOpening(PHANDLE file, ACCESS_MASK access, POBJECT_ATTRIBUTES object, PIO_STATUS_BLOCK status, ULONG share,
                     ULONG options)
{
    constexpr ULONG c_synchronous = FILE_SYNCHRONOUS_IO_ALERT | FILE_SYNCHRONOUS_IO_NONALERT;
    const UNICODE_STRING* const name = object == nullptr ? nullptr : object->ObjectName;
    const std::wstring_view text =
        name == nullptr ? L"" : std::wstring_view(name->Buffer, name->Length / sizeof(wchar_t));
    const bool isRelative = object != nullptr && object->RootDirectory != nullptr;
    return Verdict{
        {file != nullptr && status != nullptr, "places for the handle and the status"},
        {object != nullptr && object->Length == sizeof(*object), "OBJECT_ATTRIBUTES: its size"},
        {object == nullptr || HasOnly(object->Attributes, c_objectFlags), "OBJECT_ATTRIBUTES: known attributes"},
        {name != nullptr && name->Buffer != nullptr, "OBJECT_ATTRIBUTES: a name"},
        {name == nullptr || (name->Length % sizeof(wchar_t) == 0 && name->Length <= name->MaximumLength),
         "UNICODE_STRING: a length in bytes, which its buffer holds"},
        {text.starts_with(L'\\') != isRelative,
         "OBJECT_ATTRIBUTES: a name relative to the root directory, or a full one"},
        {!isRelative || IsFile(object->RootDirectory), "OBJECT_ATTRIBUTES: the root directory is open"},
        {HasOnly(access, c_anyAccess), "ACCESS_MASK: known rights"},
        {HasOnly(share, c_anyShare), "known ways of sharing"},
        {HasOnly(options, 0x00FFFFFF), "known options"},
        {HasAtMostOneOf(options, FILE_DIRECTORY_FILE | FILE_NON_DIRECTORY_FILE),
         "FILE_DIRECTORY_FILE or FILE_NON_DIRECTORY_FILE, not both"},
        {HasAtMostOneOf(options, c_synchronous), "one kind of synchronous I/O"},
        {(options & c_synchronous) == 0 || (MapRights(access) & SYNCHRONIZE) != 0, "synchronous I/O needs SYNCHRONIZE"},
        {!HasAll(options, FILE_DELETE_ON_CLOSE) || (MapRights(access) & DELETE) != 0,
         "FILE_DELETE_ON_CLOSE needs DELETE"},
    };
}

void NoteOpening(NTSTATUS result, PHANDLE file, ACCESS_MASK access)
{
    if (NT_SUCCESS(result))
    {
        NoteOpened(*file, Kind::File, MapRights(access));
    }
}

const Contract<&NtOpenFile> s_ntOpenFile{&JudgeOpening,
                                         [](NTSTATUS result, PHANDLE file, ACCESS_MASK access, POBJECT_ATTRIBUTES,
                                            PIO_STATUS_BLOCK, ULONG, ULONG) { NoteOpening(result, file, access); }};

const Contract<&NtCreateFile> s_ntCreateFile{
    [](PHANDLE file, ACCESS_MASK access, POBJECT_ATTRIBUTES object, PIO_STATUS_BLOCK status, PLARGE_INTEGER,
       ULONG attributes, ULONG share, ULONG disposition, ULONG options, PVOID extended, ULONG extendedSize) {
        return JudgeOpening(file, access, object, status, share, options)
            .Add({
                {HasOnly(attributes, 0x7FB7), "known attributes"},
                {disposition <= FILE_MAXIMUM_DISPOSITION, "a known disposition"},
                {!HasAll(options, FILE_DIRECTORY_FILE) || IsOneOf(disposition, FILE_CREATE, FILE_OPEN, FILE_OPEN_IF),
                 "FILE_DIRECTORY_FILE is for FILE_CREATE, FILE_OPEN and FILE_OPEN_IF"},
                {IsBuffer(extended, extendedSize), "a buffer of extended attributes"},
            });
    },
    [](NTSTATUS result, PHANDLE file, ACCESS_MASK access, POBJECT_ATTRIBUTES, PIO_STATUS_BLOCK, PLARGE_INTEGER, ULONG,
       ULONG, ULONG, ULONG, PVOID, ULONG) { NoteOpening(result, file, access); }};

const Contract<&ReOpenFile> s_reOpenFile{[](HANDLE original, DWORD access, DWORD share, DWORD flags) {
                                             return Verdict{
                                                 {IsFile(original), "an open file"},
                                                 {HasOnly(access, c_anyAccess), "known rights"},
                                                 {HasOnly(share, c_anyShare), "known ways of sharing"},
                                                 {HasOnly(flags, DWORD{0xFFF00000}), "flags alone, no attributes"},
                                             };
                                         },
                                         [](HANDLE file, HANDLE, DWORD access, DWORD, DWORD) {
                                             if (file != INVALID_HANDLE_VALUE)
                                             {
                                                 NoteOpened(file, Kind::File,
                                                            MapRights(access) | FILE_READ_ATTRIBUTES | SYNCHRONIZE);
                                             }
                                         }};

const Contract<&GetVolumeInformationByHandleW> s_getVolumeInformation =
    [](HANDLE file, LPWSTR name, DWORD nameSize, LPDWORD, LPDWORD, LPDWORD, LPWSTR system, DWORD systemSize) {
        return Verdict{
            {IsFile(file), "an open file"},
            {IsBuffer(name, nameSize), "a buffer for the volume's name"},
            {IsBuffer(system, systemSize), "a buffer for the file system's name"},
        };
    };

const Contract<&WriteFile> s_writeFile = [](HANDLE file, LPCVOID data, DWORD size, LPDWORD written,
                                            LPOVERLAPPED overlapped) {
    return Verdict{
        {IsHandle(file) && MayBe(file, Kind::File), "an open file"},
        {GrantsEither(file, Kind::File, FILE_WRITE_DATA, FILE_APPEND_DATA), "the file was opened for writing"},
        {IsBuffer(data, size), "a buffer of that size"},
        {written != nullptr || overlapped != nullptr, "a place for the number of bytes"},
    };
};

const Contract<&ReadFile> s_readFile = [](HANDLE file, LPVOID data, DWORD size, LPDWORD read, LPOVERLAPPED overlapped) {
    return Verdict{
        {IsHandle(file) && MayBe(file, Kind::File), "an open file"},
        {Grants(file, Kind::File, FILE_READ_DATA), "the file was opened for reading"},
        {IsBuffer(data, size), "a buffer of that size"},
        {read != nullptr || overlapped != nullptr, "a place for the number of bytes"},
    };
};

const Contract<&CreateDirectoryW> s_createDirectory = [](LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
    return Verdict{
        {path != nullptr, "a path"},
        {security == nullptr || security->nLength == sizeof(*security), "the size of the security attributes"},
    };
};

const Contract<&RemoveDirectoryW> s_removeDirectory = [](LPCWSTR path) { return Verdict{{path != nullptr, "a path"}}; };

const Contract<&DeleteFileW> s_deleteFile = [](LPCWSTR path) { return Verdict{{path != nullptr, "a path"}}; };

const Contract<&GetFileAttributesW> s_getFileAttributes = [](LPCWSTR path) {
    return Verdict{{path != nullptr, "a path"}};
};

const Contract<&SetCurrentDirectoryW> s_setCurrentDirectory = [](LPCWSTR path) {
    return Verdict{{path != nullptr, "a path"}};
};

const Contract<&GetFileInformationByHandle> s_getFileInformation = [](HANDLE file,
                                                                      LPBY_HANDLE_FILE_INFORMATION information) {
    return Verdict{
        {IsFile(file), "an open file"},
        {information != nullptr, "a place for the information"},
    };
};

// The size of a class's structure, which is that of its first entry for a listing; 0 for an unknown class.
std::size_t SizeOf(FILE_INFO_BY_HANDLE_CLASS kind)
{
    switch (kind)
    {
    case FileBasicInfo:
        return sizeof(FILE_BASIC_INFO);
    case FileStandardInfo:
        return sizeof(FILE_STANDARD_INFO);
    case FileNameInfo:
        return sizeof(FILE_NAME_INFO);
    case FileStreamInfo:
        return sizeof(FILE_STREAM_INFO);
    case FileCompressionInfo:
        return sizeof(FILE_COMPRESSION_INFO);
    case FileAttributeTagInfo:
        return sizeof(FILE_ATTRIBUTE_TAG_INFO);
    case FileIdBothDirectoryInfo:
    case FileIdBothDirectoryRestartInfo:
        return sizeof(FILE_ID_BOTH_DIR_INFO);
    case FileRemoteProtocolInfo:
        return sizeof(FILE_REMOTE_PROTOCOL_INFO);
    case FileFullDirectoryInfo:
    case FileFullDirectoryRestartInfo:
        return sizeof(FILE_FULL_DIR_INFO);
    case FileStorageInfo:
        return sizeof(FILE_STORAGE_INFO);
    case FileAlignmentInfo:
        return sizeof(FILE_ALIGNMENT_INFO);
    case FileIdInfo:
        return sizeof(FILE_ID_INFO);
    default:
        return 0;
    }
}

bool IsListing(FILE_INFO_BY_HANDLE_CLASS kind)
{
    return IsOneOf(kind, FileIdBothDirectoryInfo, FileIdBothDirectoryRestartInfo, FileFullDirectoryInfo,
                   FileFullDirectoryRestartInfo);
}

const Contract<&GetFileInformationByHandleEx> s_getFileInformationEx = [](HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind,
                                                                          LPVOID information, DWORD size) {
    return Verdict{
        {IsFile(file), "an open file"},
        {SizeOf(kind) != 0, "a class that can be queried"},
        {information != nullptr, "a buffer"},
        {size >= SizeOf(kind), "FILE_INFO_BY_HANDLE_CLASS: the size of the class's structure"},
        {!IsListing(kind) || IsAligned(information, sizeof(LONGLONG)), "FILE_FULL_DIR_INFO: aligned on 8 bytes"},
        {!IsListing(kind) || Grants(file, Kind::File, FILE_LIST_DIRECTORY),
         "NtQueryDirectoryFile: the directory was opened with FILE_LIST_DIRECTORY"},
        {!IsOneOf(kind, FileBasicInfo, FileAttributeTagInfo) || Grants(file, Kind::File, FILE_READ_ATTRIBUTES),
         "NtQueryInformationFile: attributes need FILE_READ_ATTRIBUTES"},
    };
};

// As above, for the classes that can be set.
std::size_t SizeOfSettable(FILE_INFO_BY_HANDLE_CLASS kind)
{
    switch (static_cast<int>(kind))
    {
    case FileBasicInfo:
        return sizeof(FILE_BASIC_INFO);
    case FileRenameInfo:
        return sizeof(FILE_RENAME_INFO);
    case FileDispositionInfo:
        return sizeof(FILE_DISPOSITION_INFO);
    case FileAllocationInfo:
        return sizeof(FILE_ALLOCATION_INFO);
    case FileEndOfFileInfo:
        return sizeof(FILE_END_OF_FILE_INFO);
    case FileIoPriorityHintInfo:
        return sizeof(FILE_IO_PRIORITY_HINT_INFO);
    case FileDispositionInfoEx:
        return sizeof(FILE_DISPOSITION_INFO_EX);
    default:
        return 0;
    }
}

const Contract<&SetFileInformationByHandle> s_setFileInformation = [](HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind,
                                                                      LPVOID information, DWORD size) {
    constexpr DWORD c_dispositions = 0x1F;
    const bool isExtended = kind == FileDispositionInfoEx && information != nullptr && size >= sizeof(DWORD);
    const DWORD flags = isExtended ? *static_cast<const DWORD*>(information) : 0;
    return Verdict{
        {IsFile(file), "an open file"},
        {SizeOfSettable(kind) != 0, "a class that can be set"},
        {information != nullptr, "a buffer"},
        {size >= SizeOfSettable(kind), "FILE_INFO_BY_HANDLE_CLASS: the size of the class's structure"},
        {!IsOneOf(kind, FileRenameInfo, FileDispositionInfo, FileDispositionInfoEx) || Grants(file, Kind::File, DELETE),
         "the file was opened with DELETE"},
        {HasOnly(flags, c_dispositions), "FILE_DISPOSITION_INFORMATION_EX: known flags"},
    };
};

const Contract<&DeviceIoControl> s_deviceIoControl = [](HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out,
                                                        DWORD outSize, LPDWORD returned, LPOVERLAPPED overlapped) {
    constexpr DWORD c_reparseHeader = 8; // REPARSE_DATA_BUFFER without its data
    const DWORD access = (code >> 14) & (FILE_READ_ACCESS | FILE_WRITE_ACCESS);
    return Verdict{
        {IsFile(device), "an open device"},
        {Grants(device, Kind::File,
                ((access & FILE_READ_ACCESS) != 0 ? FILE_READ_DATA : 0) |
                    ((access & FILE_WRITE_ACCESS) != 0 ? FILE_WRITE_DATA : 0)),
         "Defining I/O Control Codes: the access that the code names"},
        {IsBuffer(in, inSize) && IsBuffer(out, outSize), "buffers of those sizes"},
        {returned != nullptr || overlapped != nullptr, "a place for the number of bytes"},
        {code != FSCTL_GET_REPARSE_POINT || (in == nullptr && inSize == 0), "FSCTL_GET_REPARSE_POINT: no input"},
        {code != FSCTL_GET_REPARSE_POINT || outSize >= c_reparseHeader, "FSCTL_GET_REPARSE_POINT: room for the header"},
    };
};

const Contract<&GetFinalPathNameByHandleW> s_getFinalPathName = [](HANDLE file, LPWSTR buffer, DWORD size,
                                                                   DWORD flags) {
    constexpr DWORD c_volumeNames = VOLUME_NAME_GUID | VOLUME_NAME_NT | VOLUME_NAME_NONE;
    return Verdict{
        {IsFile(file), "an open file"},
        {IsBuffer(buffer, size), "a buffer of that size"},
        {HasOnly(flags, c_volumeNames | FILE_NAME_OPENED), "known flags"},
        {HasAtMostOneOf(flags, c_volumeNames), "one kind of volume name"},
    };
};

const Contract<&GetFullPathNameW> s_getFullPathName = [](LPCWSTR path, DWORD size, LPWSTR buffer, LPWSTR*) {
    return Verdict{
        {path != nullptr, "a path"},
        {IsBuffer(buffer, size), "a buffer of that size"},
    };
};

const Contract<&GetVolumePathNameW> s_getVolumePathName = [](LPCWSTR path, LPWSTR buffer, DWORD size) {
    return Verdict{
        {path != nullptr, "a path"},
        {buffer != nullptr, "a buffer"},
        {path == nullptr || size > std::wstring_view(path).size(), "a buffer at least as large as the path"},
    };
};

const Contract<&FindFirstFileW> s_findFirstFile{
    [](LPCWSTR path, LPWIN32_FIND_DATAW data) {
        return Verdict{
            {path != nullptr, "a path"},
            {path == nullptr || !std::wstring_view(path).ends_with(L'\\'), "no backslash at the end"},
            {data != nullptr, "a place for what is found"},
        };
    },
    [](HANDLE search, LPCWSTR, LPWIN32_FIND_DATAW) {
        if (search != INVALID_HANDLE_VALUE)
        {
            NoteOpened(search, Kind::Search);
        }
    }};

const Contract<&FindClose> s_findClose{
    [](HANDLE search) {
        return Verdict{{IsHandle(search) && MayBe(search, Kind::Search), "a search of FindFirstFile"}};
    },
    nullptr, [](HANDLE search) { NoteClosed(search); }};

const Contract<&MoveFileExW> s_moveFile = [](LPCWSTR from, LPCWSTR to, DWORD flags) {
    constexpr DWORD c_flags = MOVEFILE_COPY_ALLOWED | MOVEFILE_DELAY_UNTIL_REBOOT | MOVEFILE_FAIL_IF_NOT_TRACKABLE |
                              MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
    return Verdict{
        {from != nullptr, "a path"},
        {HasOnly(flags, c_flags), "known flags"},
        {HasAtMostOneOf(flags, MOVEFILE_COPY_ALLOWED | MOVEFILE_DELAY_UNTIL_REBOOT),
         "MOVEFILE_COPY_ALLOWED or MOVEFILE_DELAY_UNTIL_REBOOT, not both"},
        {to != nullptr || HasAll(flags, MOVEFILE_DELAY_UNTIL_REBOOT), "a new name, unless deleted at the restart"},
        {from == nullptr || !HasAll(flags, MOVEFILE_DELAY_UNTIL_REBOOT) || !IsOnShare(from),
         "at the restart there are no remote shares"},
    };
};

const Contract<&CopyFileExW> s_copyFile = [](LPCWSTR from, LPCWSTR to, LPPROGRESS_ROUTINE, LPVOID, LPBOOL,
                                             DWORD flags) {
    constexpr DWORD c_flags = COPY_FILE_ALLOW_DECRYPTED_DESTINATION | COPY_FILE_COPY_SYMLINK |
                              COPY_FILE_FAIL_IF_EXISTS | COPY_FILE_NO_BUFFERING | COPY_FILE_OPEN_SOURCE_FOR_WRITE |
                              COPY_FILE_RESTARTABLE;
    return Verdict{
        {from != nullptr && to != nullptr, "a path"},
        {HasOnly(flags, c_flags), "known flags"},
    };
};

const Contract<&GetTempPathW> s_getTempPath = [](DWORD size, LPWSTR buffer) {
    return Verdict{{IsBuffer(buffer, size), "a buffer of that size"}};
};

const Contract<&GetSystemDirectoryW> s_getSystemDirectory = [](LPWSTR buffer, UINT size) {
    return Verdict{{IsBuffer(buffer, size), "a buffer of that size"}};
};

const Contract<&GetStdHandle> s_getStdHandle = [](DWORD which) {
    return Verdict{{IsOneOf(which, STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE), "one of the three"}};
};

// The handle is not judged: a program without a console has none, and this is how it finds out.
const Contract<&WriteConsoleW> s_writeConsole = [](HANDLE console, const VOID* text, DWORD length, LPDWORD,
                                                   LPVOID reserved) {
    return Verdict{
        {MayBe(console, Kind::File), "a console's screen buffer"},
        {IsBuffer(text, length), "a text of that length"},
        {reserved == nullptr, "the last parameter is reserved"},
    };
};

} // namespace

} // namespace Testing
