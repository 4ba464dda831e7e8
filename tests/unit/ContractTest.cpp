#include "support/common/contract/Contract.h"

#include "Installer/GdiPlus.h"
#include "support/common/contract/OpenObjects.h"

#include <windows.h>

#include <aclapi.h>
#include <commctrl.h>
#include <dwmapi.h>
#include <oleauto.h>
#include <roapi.h>
#include <sddl.h>
#include <shellapi.h>
#include <shlobj.h>
#include <tlhelp32.h>
#include <uiautomationclient.h>
#include <uiautomationcoreapi.h>
#include <uxtheme.h>
#include <winioctl.h>
#include <winsvc.h>
#include <winternl.h>

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <wil/resource.h>

#include <array>
#include <bit>
#include <cstddef>
#include <initializer_list>
#include <set>
#include <string>

namespace
{

using namespace Testing;

// Handles that a contract believes to be open, by what they are. No other program has a window with such a handle.
HANDLE Open(Kind kind, DWORD rights = 0)
{
    static ULONG_PTR last = 0x40000000;
    last += 4;
    const auto handle = reinterpret_cast<HANDLE>(last);
    NoteOpened(handle, kind, rights);
    return handle;
}

template <class Handle>
Handle OpenAs(Kind kind, DWORD rights = 0)
{
    return static_cast<Handle>(Open(kind, rights));
}

// What nobody reads.
template <class T>
T* Somewhere()
{
    static T place{};
    return &place;
}

// The rules that a test has seen, and those that it has seen broken.
class ContractTest : public testing::Test
{
protected:
    ContractTest()
    {
        Seen().clear();
        Verdict::Observe([](std::initializer_list<Rule> rules, bool areAdded) {
            if (!areAdded)
            {
                Seen().clear(); // what a contract itself asks Windows for is judged, too
            }
            for (const Rule& rule : rules)
            {
                Seen().insert(rule.text);
            }
        });
    }
    ~ContractTest() override { Verdict::Observe(nullptr); }

    // The calls of a function: those that keep its contract, and one for each of its rules that breaks that rule.
    template <auto Function, class Type = decltype(Function)>
    class Calls;

    template <auto Function, class Result, class... Arguments>
    class Calls<Function, Result(WINAPI*)(Arguments...)>
    {
    public:
        Calls() = default;
        Calls(const Calls&) = delete;
        Calls& operator=(const Calls&) = delete;
        ~Calls() { EXPECT_EQ(m_broken, m_rules) << c_name.data(); }

        Calls& Keep(Arguments... arguments) { return Expect("", arguments...); }

        Calls& Break(const std::string& rule, Arguments... arguments)
        {
            EXPECT_TRUE(m_broken.insert(rule).second) << c_name.data() << ": " << rule << " is broken twice";
            return Expect(rule, arguments...);
        }

        // Breaks a rule of whole runs.
        Calls& BreakInWholeRun(const std::string& rule, Arguments... arguments)
        {
            const WholeRun run;
            return Break(rule, arguments...);
        }

    private:
        static constexpr auto c_name = Details::NameOf<Function>();

        Calls& Expect(const std::string& rule, Arguments... arguments)
        {
            Seen().clear();
            const char* const broken = Contract<Function>::Judge(arguments...).BrokenRule();
            m_rules.insert(Seen().begin(), Seen().end());
            EXPECT_EQ(broken == nullptr ? "" : broken, rule) << c_name.data();
            return *this;
        }

        std::set<std::string> m_rules;
        std::set<std::string> m_broken;
    };

private:
    static std::set<std::string>& Seen()
    {
        static std::set<std::string> seen;
        return seen;
    }
};

TEST_F(ContractTest, Of_text)
{
    wchar_t wide[4]{};
    char narrow[4]{};
    void* const same = wide;

    Calls<&MultiByteToWideChar>()
        .Keep(CP_UTF8, MB_ERR_INVALID_CHARS, "a", 1, nullptr, 0)
        .Keep(1252, MB_PRECOMPOSED, "a", -1, wide, 4)
        .Break("known flags", 1252, 0x10, "a", 1, wide, 4)
        .Break("MB_PRECOMPOSED or MB_COMPOSITE, not both", 1252, MB_PRECOMPOSED | MB_COMPOSITE, "a", 1, wide, 4)
        .Break("this code page takes no flags", CP_UTF7, MB_ERR_INVALID_CHARS, "a", 1, wide, 4)
        .Break("UTF-8 and GB18030 take no flag but MB_ERR_INVALID_CHARS", CP_UTF8, MB_PRECOMPOSED, "a", 1, wide, 4)
        .Break("there is a text", CP_UTF8, 0, nullptr, 1, wide, 4)
        .Break("the text's length is not 0", CP_UTF8, 0, "", 0, wide, 4)
        .Break("the text's length is -1 or positive", CP_UTF8, 0, "", -2, wide, 4)
        .Break("the buffer's size is not negative", CP_UTF8, 0, "a", 1, wide, -1)
        .Break("a buffer of that size", CP_UTF8, 0, "a", 1, nullptr, 4)
        .Break("text and buffer are not the same", CP_UTF8, 0, static_cast<char*>(same), 1, wide, 4);
    Calls<&WideCharToMultiByte>()
        .Keep(CP_UTF8, WC_ERR_INVALID_CHARS, L"a", 1, nullptr, 0, nullptr, nullptr)
        .Keep(1252, WC_NO_BEST_FIT_CHARS, L"a", -1, narrow, 4, "?", Somewhere<BOOL>())
        .Break("known flags", 1252, 0x1, L"a", 1, narrow, 4, nullptr, nullptr)
        .Break("this code page takes no flags", CP_SYMBOL, WC_NO_BEST_FIT_CHARS, L"a", 1, narrow, 4, nullptr, nullptr)
        .Break("UTF-8 and GB18030 take no flag but WC_ERR_INVALID_CHARS", CP_UTF8, WC_NO_BEST_FIT_CHARS, L"a", 1,
               narrow, 4, nullptr, nullptr)
        .Break("WC_ERR_INVALID_CHARS is for UTF-8 and GB18030", 1252, WC_ERR_INVALID_CHARS, L"a", 1, narrow, 4, nullptr,
               nullptr)
        .Break("UTF-7 and UTF-8 have no default character", CP_UTF8, 0, L"a", 1, narrow, 4, "?", nullptr)
        .Break("UTF-7 and UTF-8 do not tell whether the default character was used", CP_UTF8, 0, L"a", 1, narrow, 4,
               nullptr, Somewhere<BOOL>())
        .Break("there is a text", CP_UTF8, 0, nullptr, 1, narrow, 4, nullptr, nullptr)
        .Break("the text's length is not 0", CP_UTF8, 0, L"", 0, narrow, 4, nullptr, nullptr)
        .Break("the text's length is -1 or positive", CP_UTF8, 0, L"", -2, narrow, 4, nullptr, nullptr)
        .Break("the buffer's size is not negative", CP_UTF8, 0, L"a", 1, narrow, -1, nullptr, nullptr)
        .Break("a buffer of that size", CP_UTF8, 0, L"a", 1, nullptr, 4, nullptr, nullptr)
        .Break("text and buffer are not the same", CP_UTF8, 0, wide, 1, static_cast<char*>(same), 4, nullptr, nullptr);
    Calls<&CompareStringOrdinal>()
        .Keep(L"a", -1, L"a", 0, TRUE)
        .Break("there are two texts", L"a", 1, nullptr, 1, TRUE)
        .Break("a length is -1 or not negative", L"a", -2, L"a", 1, TRUE);
    const char noSource[] = "a source of the message";
    constexpr DWORD c_system = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    Calls<&FormatMessageW>()
        .Keep(c_system, nullptr, 5, 0, wide, 4, nullptr)
        .Keep(c_system | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr, 5, 0, wide, 0, nullptr)
        .Break("known flags", c_system | 0x8000, nullptr, 5, 0, wide, 4, nullptr)
        .Break(noSource, FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, 5, 0, wide, 4, nullptr)
        .Break("FORMAT_MESSAGE_FROM_STRING is no other source's flag", c_system | FORMAT_MESSAGE_FROM_STRING, L"", 5, 0,
               wide, 4, nullptr)
        .Break("the string for FORMAT_MESSAGE_FROM_STRING", FORMAT_MESSAGE_FROM_STRING, nullptr, 5, 0, wide, 4, nullptr)
        .Break("without arguments, FORMAT_MESSAGE_IGNORE_INSERTS", FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 0, wide, 4,
               nullptr)
        .Break("there is a buffer", c_system, nullptr, 5, 0, nullptr, 4, nullptr)
        .Break("the buffer's size", c_system, nullptr, 5, 0, wide, 0, nullptr)
        .Break("the buffer is not larger than 64 KB", c_system, nullptr, 5, 0, wide, 0x8001, nullptr);
    Calls<&FormatMessageA>()
        .Keep(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 0, narrow, 4, nullptr)
        .Break("known flags", c_system | 0x8000, nullptr, 5, 0, narrow, 4, nullptr)
        .Break(noSource, FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, 5, 0, narrow, 4, nullptr)
        .Break("FORMAT_MESSAGE_FROM_STRING is no other source's flag", c_system | FORMAT_MESSAGE_FROM_STRING, "", 5, 0,
               narrow, 4, nullptr)
        .Break("the string for FORMAT_MESSAGE_FROM_STRING", FORMAT_MESSAGE_FROM_STRING, nullptr, 5, 0, narrow, 4,
               nullptr)
        .Break("there is a buffer", c_system, nullptr, 5, 0, nullptr, 4, nullptr)
        .Break("the buffer's size", c_system, nullptr, 5, 0, narrow, 0, nullptr)
        .Break("the buffer is not larger than 64 KB", c_system, nullptr, 5, 0, narrow, 0x10001, nullptr);
    Calls<&IsDBCSLeadByteEx>().Keep(932, 0x81).Break("a double-byte code page", CP_UTF8, 0x81);
    Calls<&CommandLineToArgvW>()
        .Keep(L"", Somewhere<int>())
        .Break("there is a command line", nullptr, Somewhere<int>())
        .Break("there is a place for the number of arguments", L"", nullptr);
    Calls<&OutputDebugStringA>().Keep("").Break("there is a text", nullptr);
    Calls<&OutputDebugStringW>().Keep(L"").Break("there is a text", nullptr);
}

TEST_F(ContractTest, Of_opening_files)
{
    SECURITY_ATTRIBUTES unsized{};
    constexpr DWORD c_read = GENERIC_READ;
    Calls<&CreateFileW>()
        .Keep(L"f", c_read, 7, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT,
              nullptr)
        .Break("a path", nullptr, c_read, 7, nullptr, OPEN_EXISTING, 0, nullptr)
        .Break("known rights", L"f", 0x0C000000, 7, nullptr, OPEN_EXISTING, 0, nullptr)
        .Break("known ways of sharing", L"f", c_read, 8, nullptr, OPEN_EXISTING, 0, nullptr)
        .Break("the size of the security attributes", L"f", c_read, 7, &unsized, OPEN_EXISTING, 0, nullptr)
        .Break("one of the five dispositions", L"f", c_read, 7, nullptr, 0, 0, nullptr)
        .Break("TRUNCATE_EXISTING needs GENERIC_WRITE", L"f", c_read, 7, nullptr, TRUNCATE_EXISTING, 0, nullptr)
        .Break("known flags and attributes", L"f", c_read, 7, nullptr, OPEN_EXISTING, 8, nullptr)
        .Break("FILE_FLAG_OPEN_REPARSE_POINT is not for CREATE_ALWAYS", L"f", c_read, 7, nullptr, CREATE_ALWAYS,
               FILE_FLAG_OPEN_REPARSE_POINT, nullptr)
        .Break("the template was opened with GENERIC_READ", L"f", c_read, 7, nullptr, OPEN_EXISTING, 0,
               Open(Kind::File, FILE_READ_ATTRIBUTES));

    wchar_t text[] = L"f";
    wchar_t full[] = L"\\f";
    UNICODE_STRING name{.Length = 2, .MaximumLength = 2, .Buffer = text};
    UNICODE_STRING fullName{.Length = 4, .MaximumLength = 4, .Buffer = full};
    UNICODE_STRING oddName{.Length = 3, .MaximumLength = 3, .Buffer = text};
    UNICODE_STRING noName{};
    const HANDLE folder = Open(Kind::File);
    const auto describe = [&](UNICODE_STRING& what, HANDLE root, ULONG attributes = 0) {
        OBJECT_ATTRIBUTES object{};
        InitializeObjectAttributes(&object, &what, attributes, root, nullptr);
        return object;
    };
    OBJECT_ATTRIBUTES object = describe(name, folder, 0x1000);
    OBJECT_ATTRIBUTES unsizedObject{};
    OBJECT_ATTRIBUTES oddAttributes = describe(name, folder, 1);
    OBJECT_ATTRIBUTES nameless = describe(noName, folder);
    OBJECT_ATTRIBUTES odd = describe(oddName, folder);
    OBJECT_ATTRIBUTES fullBelow = describe(fullName, folder);
    OBJECT_ATTRIBUTES belowKey = describe(name, Open(Kind::Key));
    HANDLE file = nullptr;
    IO_STATUS_BLOCK status{};
    constexpr ULONG c_plain = FILE_OPEN_REPARSE_POINT;
    const auto breakOpening = [&](const auto& breakRule) {
        breakRule("places for the handle and the status", nullptr, DELETE, &object, 7, c_plain);
        breakRule("OBJECT_ATTRIBUTES: its size", &file, DELETE, &unsizedObject, 7, c_plain);
        breakRule("OBJECT_ATTRIBUTES: known attributes", &file, DELETE, &oddAttributes, 7, c_plain);
        breakRule("OBJECT_ATTRIBUTES: a name", &file, DELETE, &nameless, 7, c_plain);
        breakRule("UNICODE_STRING: a length in bytes, which its buffer holds", &file, DELETE, &odd, 7, c_plain);
        breakRule("OBJECT_ATTRIBUTES: a name relative to the root directory, or a full one", &file, DELETE, &fullBelow,
                  7, c_plain);
        breakRule("OBJECT_ATTRIBUTES: the root directory is open", &file, DELETE, &belowKey, 7, c_plain);
        breakRule("ACCESS_MASK: known rights", &file, 0x04000000, &object, 7, c_plain);
        breakRule("known ways of sharing", &file, DELETE, &object, 8, c_plain);
        breakRule("known options", &file, DELETE, &object, 7, 0x01000000);
        breakRule("FILE_DIRECTORY_FILE or FILE_NON_DIRECTORY_FILE, not both", &file, DELETE, &object, 7,
                  FILE_DIRECTORY_FILE | FILE_NON_DIRECTORY_FILE);
        breakRule("one kind of synchronous I/O", &file, SYNCHRONIZE, &object, 7,
                  FILE_SYNCHRONOUS_IO_ALERT | FILE_SYNCHRONOUS_IO_NONALERT);
        breakRule("synchronous I/O needs SYNCHRONIZE", &file, DELETE, &object, 7, FILE_SYNCHRONOUS_IO_NONALERT);
        breakRule("FILE_DELETE_ON_CLOSE needs DELETE", &file, SYNCHRONIZE, &object, 7, FILE_DELETE_ON_CLOSE);
    };
    constexpr ULONG c_most = FILE_DIRECTORY_FILE | FILE_SYNCHRONOUS_IO_NONALERT | FILE_DELETE_ON_CLOSE;

    Calls<&NtOpenFile> open;
    open.Keep(&file, DELETE | SYNCHRONIZE, &object, &status, 7, c_most);
    breakOpening([&](const char* rule, PHANDLE handle, ACCESS_MASK access, POBJECT_ATTRIBUTES what, ULONG share,
                     ULONG options) { open.Break(rule, handle, access, what, &status, share, options); });

    Calls<&NtCreateFile> create;
    create.Keep(&file, DELETE | SYNCHRONIZE, &object, &status, nullptr, FILE_ATTRIBUTE_NORMAL, 7, FILE_OPEN_IF, c_most,
                nullptr, 0);
    breakOpening(
        [&](const char* rule, PHANDLE handle, ACCESS_MASK access, POBJECT_ATTRIBUTES what, ULONG share, ULONG options) {
            create.Break(rule, handle, access, what, &status, nullptr, 0, share, FILE_OPEN, options, nullptr, 0);
        });
    create
        .Break("known attributes", &file, DELETE, &object, &status, nullptr, 0x01000000, 7, FILE_OPEN, c_plain, nullptr,
               0)
        .Break("a known disposition", &file, DELETE, &object, &status, nullptr, 0, 7, 6, c_plain, nullptr, 0)
        .Break("FILE_DIRECTORY_FILE is for FILE_CREATE, FILE_OPEN and FILE_OPEN_IF", &file, DELETE, &object, &status,
               nullptr, 0, 7, FILE_OVERWRITE, FILE_DIRECTORY_FILE, nullptr, 0)
        .Break("a buffer of extended attributes", &file, DELETE, &object, &status, nullptr, 0, 7, FILE_OPEN, c_plain,
               nullptr, 4);
}

TEST_F(ContractTest, Of_files)
{
    SECURITY_ATTRIBUTES unsized{};
    alignas(8) char buffer[1024]{};
    wchar_t wide[MAX_PATH]{};
    const HANDLE key = Open(Kind::Key);
    const HANDLE reader = Open(Kind::File, FILE_GENERIC_READ);
    const HANDLE writer = Open(Kind::File, FILE_APPEND_DATA);
    const HANDLE deleter = Open(Kind::File, DELETE | FILE_READ_ATTRIBUTES);

    Calls<&WriteFile>()
        .Keep(writer, buffer, 1, Somewhere<DWORD>(), nullptr)
        .Break("an open file", INVALID_HANDLE_VALUE, buffer, 1, Somewhere<DWORD>(), nullptr)
        .Break("the file was opened for writing", reader, buffer, 1, Somewhere<DWORD>(), nullptr)
        .Break("a buffer of that size", writer, nullptr, 1, Somewhere<DWORD>(), nullptr)
        .Break("a place for the number of bytes", writer, buffer, 1, nullptr, nullptr);
    Calls<&ReadFile>()
        .Keep(reader, buffer, 1, Somewhere<DWORD>(), nullptr)
        .Break("an open file", key, buffer, 1, Somewhere<DWORD>(), nullptr)
        .Break("the file was opened for reading", writer, buffer, 1, Somewhere<DWORD>(), nullptr)
        .Break("a buffer of that size", reader, nullptr, 1, Somewhere<DWORD>(), nullptr)
        .Break("a place for the number of bytes", reader, buffer, 1, nullptr, nullptr);
    Calls<&CreateDirectoryW>()
        .Keep(L"f", nullptr)
        .Break("a path", nullptr, nullptr)
        .Break("the size of the security attributes", L"f", &unsized);
    Calls<&RemoveDirectoryW>().Keep(L"f/g").Break("a path", nullptr);
    Calls<&DeleteFileW>().Keep(L"f").Break("a path", nullptr);
    Calls<&GetFileAttributesW>().Keep(L"f").Break("a path", nullptr);
    Calls<&SetCurrentDirectoryW>().Keep(L"f").Break("a path", nullptr);
    Calls<&GetFileInformationByHandle>()
        .Keep(reader, Somewhere<BY_HANDLE_FILE_INFORMATION>())
        .Break("an open file", nullptr, Somewhere<BY_HANDLE_FILE_INFORMATION>())
        .Break("a place for the information", reader, nullptr);
    Calls<&GetFileInformationByHandleEx>()
        .Keep(reader, FileFullDirectoryInfo, buffer, sizeof(buffer))
        .Keep(deleter, FileAttributeTagInfo, buffer, 8)
        .Break("an open file", key, FileBasicInfo, buffer, sizeof(buffer))
        .Break("a class that can be queried", reader, FileDispositionInfo, buffer, sizeof(buffer))
        .Break("a buffer", reader, FileBasicInfo, nullptr, sizeof(FILE_BASIC_INFO))
        .Break("FILE_INFO_BY_HANDLE_CLASS: the size of the class's structure", reader, FileBasicInfo, buffer,
               sizeof(FILE_BASIC_INFO) - 1)
        .Break("FILE_FULL_DIR_INFO: aligned on 8 bytes", reader, FileFullDirectoryInfo, buffer + 4, 512)
        .Break("NtQueryDirectoryFile: the directory was opened with FILE_LIST_DIRECTORY", deleter,
               FileFullDirectoryRestartInfo, buffer, sizeof(buffer))
        .Break("NtQueryInformationFile: attributes need FILE_READ_ATTRIBUTES", writer, FileAttributeTagInfo, buffer, 8);
    constexpr auto c_extended = std::bit_cast<FILE_INFO_BY_HANDLE_CLASS>(21);
    DWORD flags = 3;
    DWORD unknownFlags = 0x20;
    Calls<&SetFileInformationByHandle>()
        .Keep(deleter, c_extended, &flags, sizeof(flags))
        .Break("an open file", nullptr, FileDispositionInfo, &flags, 1)
        .Break("a class that can be set", deleter, FileAttributeTagInfo, &flags, 8)
        .Break("a buffer", deleter, FileDispositionInfo, nullptr, 1)
        .Break("FILE_INFO_BY_HANDLE_CLASS: the size of the class's structure", deleter, c_extended, &flags, 1)
        .Break("the file was opened with DELETE", reader, FileDispositionInfo, &flags, 1)
        .Break("FILE_DISPOSITION_INFORMATION_EX: known flags", deleter, c_extended, &unknownFlags,
               sizeof(unknownFlags));
    constexpr DWORD c_writing = CTL_CODE('m', 7, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS);
    Calls<&DeviceIoControl>()
        .Keep(deleter, FSCTL_GET_REPARSE_POINT, nullptr, 0, buffer, sizeof(buffer), Somewhere<DWORD>(), nullptr)
        .Break("an open device", INVALID_HANDLE_VALUE, FSCTL_GET_REPARSE_POINT, nullptr, 0, buffer, 8,
               Somewhere<DWORD>(), nullptr)
        .Break("Defining I/O Control Codes: the access that the code names", reader, c_writing, buffer, 8, nullptr, 0,
               Somewhere<DWORD>(), nullptr)
        .Break("buffers of those sizes", deleter, FSCTL_GET_REPARSE_POINT, nullptr, 0, nullptr, 8, Somewhere<DWORD>(),
               nullptr)
        .Break("a place for the number of bytes", deleter, FSCTL_GET_REPARSE_POINT, nullptr, 0, buffer, 8, nullptr,
               nullptr)
        .Break("FSCTL_GET_REPARSE_POINT: no input", deleter, FSCTL_GET_REPARSE_POINT, buffer, 8, buffer, 8,
               Somewhere<DWORD>(), nullptr)
        .Break("FSCTL_GET_REPARSE_POINT: room for the header", deleter, FSCTL_GET_REPARSE_POINT, nullptr, 0, buffer, 7,
               Somewhere<DWORD>(), nullptr);
    Calls<&GetFinalPathNameByHandleW>()
        .Keep(reader, wide, 4, VOLUME_NAME_NT | FILE_NAME_OPENED)
        .Break("an open file", nullptr, wide, 4, 0)
        .Break("a buffer of that size", reader, nullptr, 4, 0)
        .Break("known flags", reader, wide, 4, 0x10)
        .Break("one kind of volume name", reader, wide, 4, VOLUME_NAME_NT | VOLUME_NAME_GUID);
    Calls<&GetFullPathNameW>()
        .Keep(L"f", 0, nullptr, nullptr)
        .Break("a path", nullptr, 4, wide, nullptr)
        .Break("a buffer of that size", L"f", 4, nullptr, nullptr);
    Calls<&GetVolumePathNameW>()
        .Keep(L"C:\\", wide, 4)
        .Break("a path", nullptr, wide, 4)
        .Break("a buffer", L"C:", nullptr, 4)
        .Break("a buffer at least as large as the path", L"C:\\f", wide, 4);
    Calls<&FindFirstFileW>()
        .Keep(L"C:\\*", Somewhere<WIN32_FIND_DATAW>())
        .Break("a path", nullptr, Somewhere<WIN32_FIND_DATAW>())
        .Break("no backslash at the end", L"C:\\", Somewhere<WIN32_FIND_DATAW>())
        .Break("a place for what is found", L"C:\\*", nullptr);
    Calls<&FindClose>().Keep(Open(Kind::Search)).Break("a search of FindFirstFile", reader);
    Calls<&MoveFileExW>()
        .Keep(L"\\\\?\\C:\\f", nullptr, MOVEFILE_DELAY_UNTIL_REBOOT)
        .Break("a path", nullptr, L"g", 0)
        .Break("known flags", L"f", L"g", MOVEFILE_CREATE_HARDLINK)
        .Break("MOVEFILE_COPY_ALLOWED or MOVEFILE_DELAY_UNTIL_REBOOT, not both", L"f", L"g",
               MOVEFILE_COPY_ALLOWED | MOVEFILE_DELAY_UNTIL_REBOOT)
        .Break("a new name, unless deleted at the restart", L"f", nullptr, 0)
        .Break("at the restart there are no remote shares", L"\\\\s\\f", nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
    Calls<&CopyFileExW>()
        .Keep(L"f", L"g", nullptr, nullptr, nullptr, COPY_FILE_ALLOW_DECRYPTED_DESTINATION)
        .Break("a path", L"f", nullptr, nullptr, nullptr, nullptr, 0)
        .Break("known flags", L"f", L"g", nullptr, nullptr, nullptr, 0x10);
    Calls<&GetTempPathW>().Keep(0, nullptr).Break("a buffer of that size", 4, nullptr);
    Calls<&GetSystemDirectoryW>().Keep(wide, 4).Break("a buffer of that size", nullptr, 4);
    Calls<&ReOpenFile>()
        .Keep(reader, FILE_LIST_DIRECTORY, FILE_SHARE_READ, FILE_FLAG_BACKUP_SEMANTICS)
        .Break("an open file", key, FILE_LIST_DIRECTORY, FILE_SHARE_READ, 0)
        .Break("known rights", reader, 0x400, FILE_SHARE_READ, 0)
        .Break("known ways of sharing", reader, FILE_LIST_DIRECTORY, 8, 0)
        .Break("flags alone, no attributes", reader, FILE_LIST_DIRECTORY, 0, FILE_ATTRIBUTE_NORMAL);
    Calls<&GetVolumeInformationByHandleW>()
        .Keep(reader, nullptr, 0, nullptr, nullptr, Somewhere<DWORD>(), nullptr, 0)
        .Break("an open file", key, nullptr, 0, nullptr, nullptr, nullptr, nullptr, 0)
        .Break("a buffer for the volume's name", reader, nullptr, 4, nullptr, nullptr, nullptr, nullptr, 0)
        .Break("a buffer for the file system's name", reader, nullptr, 0, nullptr, nullptr, nullptr, nullptr, 4);
    Calls<&GetStdHandle>().Keep(STD_OUTPUT_HANDLE).Break("one of the three", 1);
    Calls<&WriteConsoleW>()
        .Keep(nullptr, L"a", 1, Somewhere<DWORD>(), nullptr)
        .Break("a console's screen buffer", key, L"a", 1, Somewhere<DWORD>(), nullptr)
        .Break("a text of that length", writer, nullptr, 1, Somewhere<DWORD>(), nullptr)
        .Break("the last parameter is reserved", writer, L"a", 1, Somewhere<DWORD>(), buffer);
}

TEST_F(ContractTest, Of_the_registry)
{
    const char subKeyRule[] = "Structure of the Registry: a subkey's name does not begin with a backslash";
    const char rights[] = "Registry Key Security and Access Rights: known rights";
    const char aRight[] = "Registry Key Security and Access Rights: a right";
    const char oneView[] = "Registry Key Security and Access Rights: one view";
    constexpr REGSAM c_bothViews = KEY_WOW64_32KEY | KEY_WOW64_64KEY;
    constexpr REGSAM c_unknown = KEY_READ | 0x0800;
    SECURITY_ATTRIBUTES unsized{};
    HKEY place = nullptr;
    const auto all = OpenAs<HKEY>(Kind::Key, KEY_ALL_ACCESS);
    const auto none = OpenAs<HKEY>(Kind::Key, KEY_NOTIFY);
    const auto file = OpenAs<HKEY>(Kind::File);

    Calls<&RegOpenKeyExW>()
        .Keep(HKEY_LOCAL_MACHINE, L"a", 0, KEY_READ, &place)
        .Break("an open key", nullptr, L"a", 0, KEY_READ, &place)
        .Break(subKeyRule, all, L"\\a", 0, KEY_READ, &place)
        .Break("no option but REG_OPTION_OPEN_LINK", all, L"a", 1, KEY_READ, &place)
        .Break(rights, all, L"a", 0, c_unknown, &place)
        .Break(aRight, all, L"a", 0, 0, &place)
        .Break(oneView, all, L"a", 0, KEY_READ | c_bothViews, &place)
        .Break("a place for the key", all, L"a", 0, KEY_READ, nullptr);
    Calls<&RegCreateKeyExW>()
        .Keep(HKEY_LOCAL_MACHINE, L"a\\b", 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, &place, nullptr)
        .Break("an open key", file, L"a", 0, nullptr, 0, KEY_READ, nullptr, &place, nullptr)
        .Break("a subkey's name", all, nullptr, 0, nullptr, 0, KEY_READ, nullptr, &place, nullptr)
        .Break(subKeyRule, all, L"\\a", 0, nullptr, 0, KEY_READ, nullptr, &place, nullptr)
        .Break("no direct child of HKEY_LOCAL_MACHINE or HKEY_USERS", HKEY_USERS, L"a", 0, nullptr, 0, KEY_READ,
               nullptr, &place, nullptr)
        .Break("the third parameter is reserved", all, L"a", 1, nullptr, 0, KEY_READ, nullptr, &place, nullptr)
        .Break("one of the options", all, L"a", 0, nullptr, 8, KEY_READ, nullptr, &place, nullptr)
        .Break(rights, all, L"a", 0, nullptr, 0, c_unknown, nullptr, &place, nullptr)
        .Break(aRight, all, L"a", 0, nullptr, 0, 0, nullptr, &place, nullptr)
        .Break(oneView, all, L"a", 0, nullptr, 0, KEY_READ | c_bothViews, nullptr, &place, nullptr)
        .Break("the size of the security attributes", all, L"a", 0, nullptr, 0, KEY_READ, &unsized, &place, nullptr)
        .Break("a place for the key", all, L"a", 0, nullptr, 0, KEY_READ, nullptr, nullptr, nullptr);
    Calls<&RegCloseKey>().Keep(none).Break("an open key", file);
    char data[2]{};
    Calls<&RegGetValueW>()
        .Keep(all, nullptr, L"v", RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, nullptr, data,
              Somewhere<DWORD>())
        .Break("an open key", nullptr, nullptr, L"v", RRF_RT_ANY, nullptr, data, Somewhere<DWORD>())
        .Break("the key was opened with KEY_QUERY_VALUE", none, nullptr, L"v", RRF_RT_ANY, nullptr, data,
               Somewhere<DWORD>())
        .Break(subKeyRule, all, L"\\a", L"v", RRF_RT_ANY, nullptr, data, Somewhere<DWORD>())
        .Break("known flags", all, nullptr, L"v", RRF_RT_ANY | 0x00040000, nullptr, data, Somewhere<DWORD>())
        .Break("a type", all, nullptr, L"v", RRF_NOEXPAND, nullptr, data, Somewhere<DWORD>())
        .Break("one view", all, nullptr, L"v", RRF_RT_ANY | 0x00030000, nullptr, data, Somewhere<DWORD>())
        .Break("RRF_RT_REG_EXPAND_SZ only with RRF_NOEXPAND", all, nullptr, L"v", RRF_RT_REG_EXPAND_SZ, nullptr, data,
               Somewhere<DWORD>())
        .Break("a buffer has a size", all, nullptr, L"v", RRF_RT_ANY, nullptr, data, nullptr);
    BYTE bytes[4]{};
    Calls<&RegQueryValueExW>()
        .Keep(all, L"v", nullptr, nullptr, nullptr, Somewhere<DWORD>())
        .Break("an open key", file, L"v", nullptr, nullptr, bytes, Somewhere<DWORD>())
        .Break("the key was opened with KEY_QUERY_VALUE", none, L"v", nullptr, nullptr, bytes, Somewhere<DWORD>())
        .Break("the third parameter is reserved", all, L"v", Somewhere<DWORD>(), nullptr, bytes, Somewhere<DWORD>())
        .Break("a buffer has a size", all, L"v", nullptr, nullptr, bytes, nullptr);
    Calls<&RegSetKeyValueW>()
        .Keep(all, nullptr, L"v", REG_EXPAND_SZ, L"a", 4)
        .Break("an open key", nullptr, nullptr, L"v", REG_SZ, L"a", 4)
        .Break("the key was opened with KEY_SET_VALUE", none, nullptr, L"v", REG_SZ, L"a", 4)
        .Break(subKeyRule, all, L"\\a", L"v", REG_SZ, L"a", 4)
        .Break("Registry Value Types: a known type", all, nullptr, L"v", 12, bytes, 4)
        .Break("data of that size", all, nullptr, L"v", REG_BINARY, nullptr, 4)
        .Break("a text's size is in bytes", all, nullptr, L"v", REG_SZ, L"a", 3)
        .Break("a text's size includes its terminating null character", all, nullptr, L"v", REG_SZ, L"a", 2)
        .Break("Registry Value Types: the size of a REG_DWORD", all, nullptr, L"v", REG_DWORD, bytes, 2);
    Calls<&RegDeleteValueW>()
        .Keep(all, L"v")
        .Break("an open key", file, L"v")
        .Break("the key was opened with KEY_SET_VALUE", none, L"v");
    constexpr DWORD c_withoutValues = DELETE | KEY_ENUMERATE_SUB_KEYS | KEY_QUERY_VALUE;
    Calls<&RegDeleteTreeW>()
        .Keep(HKEY_LOCAL_MACHINE, L"a")
        .Break("an open key", file, L"a")
        .Break("the key was opened with DELETE, KEY_ENUMERATE_SUB_KEYS and KEY_QUERY_VALUE",
               OpenAs<HKEY>(Kind::Key, KEY_READ | KEY_WRITE), L"a")
        .Break("for a key with values, the key was opened with KEY_SET_VALUE", OpenAs<HKEY>(Kind::Key, c_withoutValues),
               L"a")
        .Break(subKeyRule, all, L"\\a");
}

TEST_F(ContractTest, Of_services)
{
    const auto manager = OpenAs<SC_HANDLE>(Kind::ServiceManager, SC_MANAGER_CONNECT);
    const auto service = OpenAs<SC_HANDLE>(Kind::Service, SERVICE_ALL_ACCESS);
    const auto unable = OpenAs<SC_HANDLE>(Kind::Service, SERVICE_INTERROGATE);
    const char rights[] = "Service Security and Access Rights: known rights";
    const char ofService[] = "a handle of OpenService";
    BYTE buffer[9000]{};

    Calls<&OpenSCManagerW>()
        .Keep(nullptr, nullptr, SC_MANAGER_CONNECT)
        .Break("the database SERVICES_ACTIVE_DATABASE", nullptr, L"other", SC_MANAGER_CONNECT)
        .Break(rights, nullptr, nullptr, 0x100);
    Calls<&OpenServiceW>()
        .Keep(manager, L"s", SERVICE_STOP)
        .Break("a handle of OpenSCManager", service, L"s", SERVICE_STOP)
        .Break("a name", manager, nullptr, SERVICE_STOP)
        .Break("up to 256 characters, no slashes or backslashes", manager, L"a\\b", SERVICE_STOP)
        .Break(rights, manager, L"s", 0x400)
        .Break("Service Security and Access Rights: a right", manager, L"s", 0);
    Calls<&QueryServiceStatusEx>()
        .Keep(service, SC_STATUS_PROCESS_INFO, buffer, 36, Somewhere<DWORD>())
        .Break(ofService, manager, SC_STATUS_PROCESS_INFO, buffer, 36, Somewhere<DWORD>())
        .Break("the service was opened with SERVICE_QUERY_STATUS", unable, SC_STATUS_PROCESS_INFO, buffer, 36,
               Somewhere<DWORD>())
        .Break("no level but SC_STATUS_PROCESS_INFO", service, std::bit_cast<SC_STATUS_TYPE>(1), buffer, 36,
               Somewhere<DWORD>())
        .Break("a buffer of that size", service, SC_STATUS_PROCESS_INFO, nullptr, 36, Somewhere<DWORD>())
        .Break("room for a SERVICE_STATUS_PROCESS, or none", service, SC_STATUS_PROCESS_INFO, buffer, 28,
               Somewhere<DWORD>())
        .Break("no more than 8 KB", service, SC_STATUS_PROCESS_INFO, buffer, 9000, Somewhere<DWORD>())
        .Break("a place for the number of bytes needed", service, SC_STATUS_PROCESS_INFO, buffer, 36, nullptr);
    std::wstring longComment(128, L'c');
    wchar_t comment[] = L"comment";
    constexpr DWORD c_reason = SERVICE_STOP_REASON_FLAG_PLANNED | SERVICE_STOP_REASON_MAJOR_APPLICATION |
                               SERVICE_STOP_REASON_MINOR_INSTALLATION;
    SERVICE_CONTROL_STATUS_REASON_PARAMSW stop{.dwReason = c_reason, .pszComment = comment, .ServiceStatus = {}};
    auto withoutKind = stop;
    withoutKind.dwReason &= 0x00FFFFFF;
    auto withLongComment = stop;
    withLongComment.pszComment = longComment.data();
    Calls<&ControlServiceExW>()
        .Keep(service, SERVICE_CONTROL_STOP, 1, &stop)
        .Break(ofService, manager, SERVICE_CONTROL_STOP, 1, &stop)
        .Break("a known control", service, 100, 1, &stop)
        .Break("the service was opened with the right for this control", unable, SERVICE_CONTROL_STOP, 1, &stop)
        .Break("no level but SERVICE_CONTROL_STATUS_REASON_INFO", service, SERVICE_CONTROL_STOP, 2, &stop)
        .Break("parameters", service, SERVICE_CONTROL_STOP, 1, nullptr)
        .Break("SERVICE_CONTROL_STATUS_REASON_PARAMS: one general, one major and one minor code", service,
               SERVICE_CONTROL_STOP, 1, &withoutKind)
        .Break("SERVICE_CONTROL_STATUS_REASON_PARAMS: a comment of less than 128 characters", service,
               SERVICE_CONTROL_STOP, 1, &withLongComment);
    Calls<&DeleteService>().Keep(service).Break(ofService, manager).Break("the service was opened with DELETE", unable);
    Calls<&CloseServiceHandle>().Keep(manager).Break("a handle of OpenService or OpenSCManager",
                                                     OpenAs<SC_HANDLE>(Kind::File));
}

TEST_F(ContractTest, Of_security)
{
    const HANDLE token = Open(Kind::Token, TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES);
    const HANDLE file = Open(Kind::File);
    TOKEN_PRIVILEGES state{.PrivilegeCount = 1, .Privileges = {{.Luid = {}, .Attributes = SE_PRIVILEGE_ENABLED}}};
    TOKEN_PRIVILEGES unknown{.PrivilegeCount = 1, .Privileges = {{.Luid = {}, .Attributes = 0x10}}};
    HANDLE place = nullptr;
    char buffer[64]{};

    Calls<&OpenProcessToken>()
        .Keep(GetCurrentProcess(), TOKEN_QUERY, &place)
        .Break("an open process", nullptr, TOKEN_QUERY, &place)
        .Break("the process was opened with PROCESS_QUERY_INFORMATION", Open(Kind::Process, SYNCHRONIZE), TOKEN_QUERY,
               &place)
        .Break("Access Rights for Access-Token Objects: known rights", GetCurrentProcess(), 0x1000, &place)
        .Break("a place for the token", GetCurrentProcess(), TOKEN_QUERY, nullptr);
    Calls<&LookupPrivilegeValueW>()
        .Keep(nullptr, L"p", Somewhere<LUID>())
        .Break("a privilege's name", nullptr, nullptr, Somewhere<LUID>())
        .Break("a place for the LUID", nullptr, L"p", nullptr);
    Calls<&AdjustTokenPrivileges>()
        .Keep(token, FALSE, &state, sizeof(state), &state, Somewhere<DWORD>())
        .Break("an open token", file, FALSE, &state, 0, nullptr, nullptr)
        .Break("GetCurrentProcessToken: a pseudo handle only queries", GetCurrentProcessToken(), FALSE, &state, 0,
               nullptr, nullptr)
        .Break("the token was opened with TOKEN_ADJUST_PRIVILEGES", Open(Kind::Token, TOKEN_QUERY), FALSE, &state, 0,
               nullptr, nullptr)
        .Break("for the previous state, the token was opened with TOKEN_QUERY",
               Open(Kind::Token, TOKEN_ADJUST_PRIVILEGES), FALSE, &state, sizeof(state), &state, Somewhere<DWORD>())
        .Break("the new state, unless all are disabled", token, FALSE, nullptr, 0, nullptr, nullptr)
        .Break("TOKEN_PRIVILEGES: known attributes", token, FALSE, &unknown, 0, nullptr, nullptr)
        .Break("room for the previous state", token, FALSE, &state, 4, &state, Somewhere<DWORD>())
        .Break("for the previous state, a place for its size", token, FALSE, &state, sizeof(state), &state, nullptr);
    Calls<&GetTokenInformation>()
        .Keep(token, TokenUser, nullptr, 0, Somewhere<DWORD>())
        .Keep(GetCurrentProcessToken(), TokenElevation, buffer, 4, Somewhere<DWORD>())
        .Break("an open token", file, TokenUser, buffer, 64, Somewhere<DWORD>())
        .Break("the token was opened with TOKEN_QUERY, or TOKEN_QUERY_SOURCE for its source", token, TokenSource,
               buffer, 64, Somewhere<DWORD>())
        .Break("TOKEN_INFORMATION_CLASS: a known class", token, std::bit_cast<TOKEN_INFORMATION_CLASS>(0), buffer, 64,
               Somewhere<DWORD>())
        .Break("a buffer of that size", token, TokenUser, nullptr, 64, Somewhere<DWORD>())
        .Break("room for a TOKEN_ELEVATION", token, TokenElevation, buffer, 2, Somewhere<DWORD>())
        .Break("room for a TOKEN_USER and its SID", token, TokenUser, buffer, sizeof(TOKEN_USER), Somewhere<DWORD>())
        .Break("a place for the number of bytes needed", token, TokenUser, buffer, 64, nullptr);
    SID sid{.Revision = SID_REVISION, .SubAuthorityCount = 0, .IdentifierAuthority = {}, .SubAuthority = {}};
    Calls<&IsWellKnownSid>()
        .Keep(&sid, WinLocalSystemSid)
        .Break("a SID", nullptr, WinLocalSystemSid)
        .Break("WELL_KNOWN_SID_TYPE: a known type", &sid, std::bit_cast<WELL_KNOWN_SID_TYPE>(-1));
    Calls<&EqualSid>().Keep(&sid, &sid).Break("two SIDs", &sid, nullptr);
    Calls<&ConvertSidToStringSidW>()
        .Keep(&sid, Somewhere<LPWSTR>())
        .Break("a SID", nullptr, Somewhere<LPWSTR>())
        .Break("a place for the text", &sid, nullptr);
    Calls<&ConvertStringSecurityDescriptorToSecurityDescriptorW>()
        .Keep(L"D:", SDDL_REVISION_1, Somewhere<PSECURITY_DESCRIPTOR>(), nullptr)
        .Break("a text", nullptr, SDDL_REVISION_1, Somewhere<PSECURITY_DESCRIPTOR>(), nullptr)
        .Break("SDDL_REVISION_1", L"D:", 2, Somewhere<PSECURITY_DESCRIPTOR>(), nullptr)
        .Break("a place for the descriptor", L"D:", SDDL_REVISION_1, nullptr, nullptr);
    const HANDLE folder = Open(Kind::File, READ_CONTROL | WRITE_DAC | WRITE_OWNER);
    const HANDLE unreadable = Open(Kind::File, FILE_READ_DATA);
    PSECURITY_DESCRIPTOR descriptor = buffer;
    Calls<&GetSecurityInfo>()
        .Keep(folder, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, Somewhere<PSID>(), nullptr, nullptr, nullptr,
              &descriptor)
        .Break("an open object", nullptr, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, nullptr, nullptr, nullptr,
               nullptr, &descriptor)
        .Break("SE_OBJECT_TYPE: a known type", folder, SE_UNKNOWN_OBJECT_TYPE, OWNER_SECURITY_INFORMATION, nullptr,
               nullptr, nullptr, nullptr, &descriptor)
        .Break("READ_CONTROL, for all but the SACL", unreadable, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, nullptr,
               nullptr, nullptr, nullptr, &descriptor)
        .Break("ACCESS_SYSTEM_SECURITY, for the SACL", folder, SE_FILE_OBJECT, SACL_SECURITY_INFORMATION, nullptr,
               nullptr, nullptr, nullptr, &descriptor)
        .Break("a place for the descriptor, in which its parts lie", folder, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION,
               Somewhere<PSID>(), nullptr, nullptr, nullptr, nullptr);
    Calls<&SetKernelObjectSecurity>()
        .Keep(folder, DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, descriptor)
        .Break("an open object", nullptr, GROUP_SECURITY_INFORMATION, descriptor)
        .Break("WRITE_DAC for the DACL", unreadable, DACL_SECURITY_INFORMATION, descriptor)
        .Break("WRITE_OWNER for the owner", unreadable, OWNER_SECURITY_INFORMATION, descriptor)
        .Break("a descriptor", folder, DACL_SECURITY_INFORMATION, nullptr);
}

TEST_F(ContractTest, Of_processes)
{
    const HANDLE process = Open(Kind::Process, PROCESS_ALL_ACCESS);
    const HANDLE limited = Open(Kind::Process, PROCESS_CREATE_THREAD);
    const HANDLE thread = Open(Kind::Thread, THREAD_ALL_ACCESS);
    const HANDLE limitedThread = Open(Kind::Thread, SYNCHRONIZE);
    const HANDLE key = Open(Kind::Key);
    const char query[] = "the process was opened with PROCESS_QUERY_INFORMATION or PROCESS_QUERY_LIMITED_INFORMATION";
    const char security[] = "SECURITY_ATTRIBUTES: its size";
    SECURITY_ATTRIBUTES unsized{};
    FILETIME time{};
    wchar_t wide[4]{};

    Calls<&OpenProcess>()
        .Keep(PROCESS_TERMINATE, FALSE, 1)
        .Break("Process Security and Access Rights: known rights", 0x04000000, FALSE, 1)
        .Break("Process Security and Access Rights: a right", 0, FALSE, 1);
    Calls<&TerminateProcess>()
        .Keep(process, 0)
        .Break("an open process", key, 0)
        .Break("the process was opened with PROCESS_TERMINATE", limited, 0);
    Calls<&GetProcessTimes>()
        .Keep(GetCurrentProcess(), &time, &time, &time, &time)
        .Break("an open process", nullptr, &time, &time, &time, &time)
        .Break(query, limited, &time, &time, &time, &time)
        .Break("places for the four times", process, &time, nullptr, &time, &time);
    Calls<&QueryFullProcessImageNameW>()
        .Keep(process, 0, wide, Somewhere<DWORD>())
        .Break("an open process", nullptr, 0, wide, Somewhere<DWORD>())
        .Break(query, limited, 0, wide, Somewhere<DWORD>())
        .Break("0 or PROCESS_NAME_NATIVE", process, 2, wide, Somewhere<DWORD>())
        .Break("the size of the buffer", process, 0, wide, nullptr)
        .Break("a buffer", process, 0, nullptr, Somewhere<DWORD>());
    Calls<&GetProcessAffinityMask>()
        .Keep(process, Somewhere<DWORD_PTR>(), Somewhere<DWORD_PTR>())
        .Break(query, limited, Somewhere<DWORD_PTR>(), Somewhere<DWORD_PTR>())
        .Break("places for the two masks", process, nullptr, Somewhere<DWORD_PTR>());
    Calls<&SetProcessAffinityMask>()
        .Keep(process, 1)
        .Break("the process was opened with PROCESS_SET_INFORMATION", limited, 1)
        .Break("a processor", process, 0);
    Calls<&ProcessIdToSessionId>().Keep(1, Somewhere<DWORD>()).Break("a place for the session", 1, nullptr);
    Calls<&CreateToolhelp32Snapshot>()
        .Keep(TH32CS_SNAPPROCESS, 0)
        .Break("known flags", TH32CS_SNAPPROCESS | 0x100, 0)
        .Break("something to take a snapshot of", 0, 0);
    PROCESSENTRY32W entry{};
    PROCESSENTRY32W unsizedEntry{};
    entry.dwSize = sizeof(entry);
    const HANDLE snapshot = Open(Kind::Snapshot);
    Calls<&Process32FirstW>()
        .Keep(snapshot, &entry)
        .Break("a snapshot of CreateToolhelp32Snapshot", INVALID_HANDLE_VALUE, &entry)
        .Break("a place for the entry", snapshot, nullptr)
        .Break("PROCESSENTRY32: its size", snapshot, &unsizedEntry);
    Calls<&Process32NextW>()
        .Keep(snapshot, &entry)
        .Break("a snapshot of CreateToolhelp32Snapshot", process, &entry)
        .Break("a place for the entry", snapshot, nullptr)
        .Break("PROCESSENTRY32: its size", snapshot, &unsizedEntry);

    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    STARTUPINFOW unsizedStartup{};
    STARTUPINFOW reserved = startup;
    reserved.cbReserved2 = 1;
    PROCESS_INFORMATION started{};
    std::wstring tooLong(32768, L'c');
    wchar_t line[] = L"p";
    wchar_t environment[] = L"";
    const auto keep = [&](DWORD flags, STARTUPINFOW* information) { // the rest
        return Contract<&CreateProcessW>::Judge(L"p", line, nullptr, nullptr, FALSE, flags, nullptr, nullptr,
                                                information, &started);
    };
    EXPECT_EQ(keep(CREATE_SUSPENDED, &startup).BrokenRule(), nullptr);
    Calls<&CreateProcessW>()
        .Keep(L"p", nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started)
        .Break("a program or a command line", nullptr, nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
               &started)
        .Break("a command line of up to 32,767 characters", L"p", tooLong.data(), nullptr, nullptr, FALSE, 0, nullptr,
               nullptr, &startup, &started)
        .Break(security, L"p", line, &unsized, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started)
        .Break("Process Creation Flags: known flags", L"p", line, nullptr, nullptr, FALSE, 0x00800000, nullptr, nullptr,
               &startup, &started)
        .Break("Process Creation Flags: CREATE_NEW_CONSOLE or DETACHED_PROCESS, not both", L"p", line, nullptr, nullptr,
               FALSE, CREATE_NEW_CONSOLE | DETACHED_PROCESS, nullptr, nullptr, &startup, &started)
        .Break("Scheduling Priorities: one priority class", L"p", line, nullptr, nullptr, FALSE,
               IDLE_PRIORITY_CLASS | HIGH_PRIORITY_CLASS, nullptr, nullptr, &startup, &started)
        .Break("an ANSI environment begins with a name", L"p", line, nullptr, nullptr, FALSE, 0, environment, nullptr,
               &startup, &started)
        .Break("STARTUPINFO is required", L"p", line, nullptr, nullptr, FALSE, 0, nullptr, nullptr, nullptr, &started)
        .Break("STARTUPINFO: its size", L"p", line, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &unsizedStartup,
               &started)
        .Break("STARTUPINFO: the reserved members are zero", L"p", line, nullptr, nullptr, FALSE, 0, nullptr, nullptr,
               &reserved, &started)
        .Break("a place for the handles", L"p", line, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, nullptr);

    const LPTHREAD_START_ROUTINE start = [](void*) -> DWORD { return 0; };
    Calls<&CreateThread>()
        .Keep(nullptr, 0, start, nullptr, CREATE_SUSPENDED, nullptr)
        .Break(security, &unsized, 0, start, nullptr, 0, nullptr)
        .Break("a function", nullptr, 0, nullptr, nullptr, 0, nullptr)
        .Break("known flags", nullptr, 0, start, nullptr, 1, nullptr);
    Calls<&ResumeThread>().Keep(thread).Break("the thread was opened with THREAD_SUSPEND_RESUME", limitedThread);
    Calls<&SuspendThread>().Keep(thread).Break("the thread was opened with THREAD_SUSPEND_RESUME", limitedThread);
    CONTEXT context{};
    Calls<&GetThreadContext>()
        .Keep(thread, &context)
        .Break("the thread was opened with THREAD_GET_CONTEXT", limitedThread, &context)
        .Break("CONTEXT: aligned on 16 bytes", thread, nullptr);
    Calls<&SetThreadContext>()
        .Keep(thread, &context)
        .Break("the thread was opened with THREAD_SET_CONTEXT", limitedThread, &context)
        .Break("CONTEXT: aligned on 16 bytes", thread, nullptr);
    Calls<&GetThreadPriority>()
        .Keep(GetCurrentThread())
        .Break("the thread was opened with THREAD_QUERY_INFORMATION", limitedThread);
    Calls<&SetThreadPriority>()
        .Keep(thread, THREAD_PRIORITY_TIME_CRITICAL)
        .Break("the thread was opened with THREAD_SET_INFORMATION", limitedThread, 0)
        .Break("a thread's priority", thread, 100);
    Calls<&SetThreadStackGuarantee>().Keep(Somewhere<ULONG>()).Break("a size", nullptr);
}

TEST_F(ContractTest, Of_handles_and_waiting)
{
    const HANDLE process = Open(Kind::Process, SYNCHRONIZE);
    const HANDLE limited = Open(Kind::Process, PROCESS_TERMINATE);
    const HANDLE event = Open(Kind::Event, EVENT_ALL_ACCESS);
    const HANDLE key = Open(Kind::Key);
    const char waitable[] = "an open object that can be waited for";
    const char synchronize[] = "the handle was opened with SYNCHRONIZE";
    const char security[] = "SECURITY_ATTRIBUTES: its size";
    const char rights[] = "Synchronization Object Security and Access Rights: known rights";
    SECURITY_ATTRIBUTES unsized{};
    HANDLE place = nullptr;

    Calls<&CloseHandle>()
        .Keep(process)
        .Break("an open handle", nullptr)
        .Break("other objects have other functions that close them", Open(Kind::Search));
    Calls<&DuplicateHandle>()
        .Keep(GetCurrentProcess(), event, GetCurrentProcess(), &place, 0, FALSE, DUPLICATE_SAME_ACCESS)
        .Break("the processes were opened with PROCESS_DUP_HANDLE", limited, event, GetCurrentProcess(), &place, 0,
               FALSE, 0)
        .Break("an open handle", GetCurrentProcess(), nullptr, GetCurrentProcess(), &place, 0, FALSE, 0)
        .Break("a place for the handle", GetCurrentProcess(), event, GetCurrentProcess(), nullptr, 0, FALSE, 0)
        .Break("known options", GetCurrentProcess(), event, GetCurrentProcess(), &place, 0, FALSE, 4);
    Calls<&GetHandleInformation>()
        .Keep(event, Somewhere<DWORD>())
        .Break("an open handle", nullptr, Somewhere<DWORD>())
        .Break("a place for the flags", event, nullptr);
    Calls<&WaitForSingleObject>().Keep(process, 0).Break(waitable, key, 0).Break(synchronize, limited, 0);
    Calls<&WaitForSingleObjectEx>()
        .Keep(event, 0, FALSE)
        .Break(waitable, nullptr, 0, FALSE)
        .Break(synchronize, limited, 0, FALSE);
    const HANDLE good[] = {process, event};
    const HANDLE bad[] = {process, key};
    const HANDLE unable[] = {process, limited};
    Calls<&WaitForMultipleObjects>()
        .Keep(2, good, FALSE, 0)
        .Break("1 to 64 objects", 0, good, FALSE, 0)
        .Break(waitable, 2, bad, FALSE, 0)
        .Break(synchronize, 2, unable, FALSE, 0);
    Calls<&CreateEventA>().Keep(nullptr, TRUE, FALSE, nullptr).Break(security, &unsized, TRUE, FALSE, nullptr);
    const std::wstring longName(MAX_PATH + 1, L'n');
    Calls<&CreateEventW>()
        .Keep(nullptr, TRUE, FALSE, nullptr)
        .Break(security, &unsized, TRUE, FALSE, nullptr)
        .Break("a name of up to MAX_PATH characters", nullptr, TRUE, FALSE, longName.c_str());
    Calls<&CreateEventExW>()
        .Keep(nullptr, nullptr, CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS)
        .Break(security, &unsized, nullptr, 0, EVENT_ALL_ACCESS)
        .Break("known flags", nullptr, nullptr, 4, EVENT_ALL_ACCESS)
        .Break(rights, nullptr, nullptr, 0, 0x04000000);
    Calls<&CreateMutexExW>()
        .Keep(nullptr, L"Global\\m", CREATE_MUTEX_INITIAL_OWNER, MUTEX_ALL_ACCESS)
        .Break(security, &unsized, L"m", 0, MUTEX_ALL_ACCESS)
        .Break("a name of up to MAX_PATH characters", nullptr, longName.c_str(), 0, MUTEX_ALL_ACCESS)
        .Break("Kernel object namespaces: no backslash but that of the prefix Global or Local", nullptr, L"global\\m",
               0, MUTEX_ALL_ACCESS)
        .Break("no flag but CREATE_MUTEX_INITIAL_OWNER", nullptr, L"m", 2, MUTEX_ALL_ACCESS)
        .Break(rights, nullptr, L"m", 0, 0x04000000);
    Calls<&CreateSemaphoreA>()
        .Keep(nullptr, 0, 1, nullptr)
        .Break(security, &unsized, 0, 1, nullptr)
        .Break("a maximum greater than 0", nullptr, 0, 0, nullptr)
        .Break("an initial count from 0 to the maximum", nullptr, 2, 1, nullptr);
    Calls<&SetEvent>()
        .Keep(event)
        .Break("an open event", process)
        .Break("the event was opened with EVENT_MODIFY_STATE", Open(Kind::Event, SYNCHRONIZE));
    Calls<&ResetEvent>()
        .Keep(event)
        .Break("an open event", nullptr)
        .Break("the event was opened with EVENT_MODIFY_STATE", Open(Kind::Event, SYNCHRONIZE));
    Calls<&ReleaseSemaphore>()
        .Keep(Open(Kind::Semaphore, SEMAPHORE_ALL_ACCESS), 1, nullptr)
        .Break("the semaphore was opened with SEMAPHORE_MODIFY_STATE", Open(Kind::Semaphore, SYNCHRONIZE), 1, nullptr)
        .Break("a count greater than 0", Open(Kind::Semaphore, SEMAPHORE_ALL_ACCESS), 0, nullptr);
}

TEST_F(ContractTest, Of_closed_handles)
{
    const HANDLE file = Open(Kind::File, FILE_GENERIC_READ | SYNCHRONIZE);
    NoteClosed(file);
    EXPECT_STREQ(Contract<&CloseHandle>::Judge(file).BrokenRule(), "an open handle");
    EXPECT_STREQ(Contract<&WaitForSingleObject>::Judge(file, 0).BrokenRule(), "an open object that can be waited for");
    NoteOpened(file, Kind::Event, EVENT_ALL_ACCESS);
    EXPECT_EQ(Contract<&CloseHandle>::Judge(file).BrokenRule(), nullptr) << "its value is given out again";

    const wil::unique_handle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    NoteClosed(event.get());
    EXPECT_EQ(Contract<&SetEvent>::Judge(event.get()).BrokenRule(), nullptr)
        << "another function, which is not judged, has given its value out again";
    NoteOpened(event.get(), Kind::Event, EVENT_ALL_ACCESS);

    const auto service = OpenAs<SC_HANDLE>(Kind::Service, DELETE);
    NoteClosed(service);
    EXPECT_STREQ(Contract<&DeleteService>::Judge(service).BrokenRule(), "a handle of OpenService");
}

// The values of a service's handles are addresses, which memory may get after them.
TEST_F(ContractTest, Of_memory_where_a_service_was)
{
    SID everyone{SID_REVISION, 1, SECURITY_WORLD_SID_AUTHORITY, {SECURITY_WORLD_RID}};
    const auto expectKnown = [&](HLOCAL given) {
        Details::OpenObject found{};
        EXPECT_TRUE(Details::FindOpened(given, found) && found.kind == Kind::LocalMemory);
        LocalFree(given);
    };
    LPWSTR sid = nullptr;
    ASSERT_TRUE(ConvertSidToStringSidW(&everyone, &sid));
    expectKnown(sid);
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P", SDDL_REVISION_1, &descriptor, nullptr));
    expectKnown(descriptor);
    const wil::unique_handle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    ASSERT_EQ(GetSecurityInfo(event.get(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, nullptr,
                              nullptr, &descriptor),
              DWORD{ERROR_SUCCESS});
    expectKnown(descriptor);
}

TEST_F(ContractTest, Of_modules_and_memory)
{
    const auto module = OpenAs<HMODULE>(Kind::Module);
    const HANDLE memory = Open(Kind::GlobalMemory, GMEM_MOVEABLE);
    const HANDLE other = Open(Kind::File);
    const char ofGlobalAlloc[] = "memory of GlobalAlloc";
    wchar_t wide[4]{};

    Calls<&LoadLibraryExW>()
        .Keep(L"a.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)
        .Break("a name", nullptr, nullptr, 0)
        .Break("backslashes, no slashes", L"C:/a.dll", nullptr, 0)
        .Break("the second parameter is reserved", L"a.dll", other, 0)
        .Break("known flags", L"a.dll", nullptr, 4)
        .Break("LOAD_WITH_ALTERED_SEARCH_PATH cannot be combined with LOAD_LIBRARY_SEARCH flags", L"C:\\a.dll", nullptr,
               LOAD_WITH_ALTERED_SEARCH_PATH | LOAD_LIBRARY_SEARCH_SYSTEM32)
        .Break("a full path for LOAD_WITH_ALTERED_SEARCH_PATH and LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR", L"a.dll", nullptr,
               LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR);
    Calls<&LoadLibraryExA>()
        .Keep("a.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)
        .Break("a name", nullptr, nullptr, 0)
        .Break("backslashes, no slashes", "C:/a.dll", nullptr, 0)
        .Break("the second parameter is reserved", "a.dll", other, 0)
        .Break("known flags", "a.dll", nullptr, 4)
        .Break("LOAD_WITH_ALTERED_SEARCH_PATH cannot be combined with LOAD_LIBRARY_SEARCH flags", "C:\\a.dll", nullptr,
               LOAD_WITH_ALTERED_SEARCH_PATH | LOAD_LIBRARY_SEARCH_SYSTEM32)
        .Break("a full path for LOAD_WITH_ALTERED_SEARCH_PATH and LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR", "a.dll", nullptr,
               LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR);
    Calls<&LoadLibraryW>().Keep(L"a.dll").Break("a name", nullptr).Break("backslashes, no slashes", L"C:/a.dll");
    Calls<&FreeLibrary>().Keep(module).Break("a module", nullptr);
    Calls<&GetProcAddress>()
        .Keep(module, "a")
        .Break("a module", nullptr, "a")
        .Break("a name or an ordinal", module, nullptr);
    Calls<&GetModuleFileNameW>().Keep(nullptr, wide, 4).Break("a buffer", nullptr, wide, 0);
    Calls<&SetDefaultDllDirectories>()
        .Keep(LOAD_LIBRARY_SEARCH_SYSTEM32)
        .Break("known flags", LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR)
        .Break("a directory", 0);
    Calls<&FindResourceW>().Keep(nullptr, MAKEINTRESOURCEW(1), L"T").Break("a name and a type", nullptr, nullptr, L"T");
    Calls<&LoadResource>()
        .Keep(nullptr, OpenAs<HRSRC>(Kind::Module))
        .Break("a resource of FindResource", nullptr, nullptr);
    Calls<&SizeofResource>()
        .Keep(nullptr, OpenAs<HRSRC>(Kind::Module))
        .Break("a resource of FindResource", nullptr, nullptr);
    Calls<&LockResource>().Keep(other).Break("a resource of LoadResource", nullptr);
    Calls<&GlobalAlloc>().Keep(GMEM_MOVEABLE, 4).Break("known flags", 1, 4);
    Calls<&GlobalLock>().Keep(memory).Break(ofGlobalAlloc, nullptr);
    Calls<&GlobalUnlock>().Keep(memory).Break(ofGlobalAlloc, other);
    Calls<&GlobalFree>().Keep(memory).Break(ofGlobalAlloc, other);
    Calls<&GetEnvironmentVariableW>()
        .Keep(L"n", nullptr, 0)
        .Break("a name", nullptr, nullptr, 0)
        .Break("a buffer of that size", L"n", nullptr, 4);
    PROCESS_MITIGATION_REDIRECTION_TRUST_POLICY policy{};
    Calls<&SetProcessMitigationPolicy>()
        .Keep(ProcessRedirectionTrustPolicy, &policy, sizeof(policy))
        .Break("PROCESS_MITIGATION_POLICY: a known policy", std::bit_cast<PROCESS_MITIGATION_POLICY>(-1), &policy, 4)
        .Break("the size of the policy's structure", ProcessRedirectionTrustPolicy, &policy, 8)
        .Break("a policy", ProcessRedirectionTrustPolicy, nullptr, sizeof(policy));
    Calls<&LocalFree>().Keep(nullptr).Break("memory that LocalFree frees", Open(Kind::TaskMemory));
    Calls<&HeapAlloc>()
        .Keep(other, HEAP_ZERO_MEMORY, 1)
        .Break("a heap", nullptr, 0, 1)
        .Break("known flags", other, 2, 1);
    Calls<&HeapFree>()
        .Keep(other, 0, nullptr)
        .Break("a heap", nullptr, 0, nullptr)
        .Break("no flag but HEAP_NO_SERIALIZE", other, HEAP_ZERO_MEMORY, nullptr)
        .Break("memory of HeapAlloc", other, 0, Open(Kind::TaskMemory));
    Calls<&VirtualProtect>()
        .Keep(nullptr, 1, PAGE_READWRITE, Somewhere<DWORD>())
        .Break("Memory Protection Constants: one of them", nullptr, 1, PAGE_READWRITE | PAGE_READONLY,
               Somewhere<DWORD>())
        .Break("a place for the previous protection", nullptr, 1, PAGE_READWRITE, nullptr);
    Calls<&VirtualQuery>()
        .Keep(nullptr, Somewhere<MEMORY_BASIC_INFORMATION>(), sizeof(MEMORY_BASIC_INFORMATION))
        .Break("room for a MEMORY_BASIC_INFORMATION", nullptr, Somewhere<MEMORY_BASIC_INFORMATION>(), 4);
}

TEST_F(ContractTest, Of_the_system)
{
    FILETIME time{};
    OSVERSIONINFOEXW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    OSVERSIONINFOEXW unsized{};

    Calls<&VerSetConditionMask>()
        .Keep(0, VER_MAJORVERSION, VER_GREATER_EQUAL)
        .Break("one member", 0, VER_MAJORVERSION | VER_MINORVERSION, VER_GREATER_EQUAL)
        .Break("a known condition", 0, VER_MAJORVERSION, VER_AND);
    Calls<&VerifyVersionInfoW>()
        .Keep(&version, VER_MAJORVERSION | VER_MINORVERSION, 1)
        .Break("OSVERSIONINFOEX: its size", &unsized, VER_BUILDNUMBER, 1)
        .Break("known members", &version, 0, 1)
        .Break("VerSetConditionMask: conditions", &version, VER_BUILDNUMBER, 0)
        .Break("with the major version, also the minor version", &version, VER_MAJORVERSION, 1);
    Calls<&SetErrorMode>().Keep(SEM_FAILCRITICALERRORS).Break("known flags", 0x10);
    Calls<&AddVectoredExceptionHandler>()
        .Keep(1, [](EXCEPTION_POINTERS*) -> LONG { return 0; })
        .Break("a handler", 1, nullptr);
    Calls<&RemoveVectoredExceptionHandler>().Keep(&time).Break("a handle of AddVectoredExceptionHandler", nullptr);
    Calls<&GetLocalTime>().Keep(Somewhere<SYSTEMTIME>()).Break("a place for the time", nullptr);
    Calls<&GetSystemTime>().Keep(Somewhere<SYSTEMTIME>()).Break("a place for the time", nullptr);
    Calls<&GetSystemTimeAsFileTime>().Keep(&time).Break("a place for the time", nullptr);
    Calls<&CompareFileTime>().Keep(&time, &time).Break("two times", &time, nullptr);
    Calls<&GetStartupInfoW>().Keep(Somewhere<STARTUPINFOW>()).Break("a place for the information", nullptr);
    Calls<&GetNativeSystemInfo>().Keep(Somewhere<SYSTEM_INFO>()).Break("a place for the information", nullptr);
}

TEST_F(ContractTest, Of_COM)
{
    void* object = nullptr;
    auto* const outer = reinterpret_cast<IUnknown*>(&object);
    const HANDLE memory = Open(Kind::GlobalMemory, GMEM_MOVEABLE);
    const char bstr[] = "a BSTR or null";
    const char initialized[] = "CoInitializeEx: COM is initialized on the thread";
    const GUID id{};

    Calls<&CoInitializeEx>()
        .Keep(nullptr, COINIT_APARTMENTTHREADED)
        .Break("the first parameter is reserved", &object, 0)
        .Break("COINIT: known flags", nullptr, 1);
    Calls<&CoCreateInstance> creations;
    creations.Keep(id, nullptr, CLSCTX_INPROC_SERVER, id, &object)
        .Break("CLSCTX: a kind of server", id, nullptr, 0, id, &object)
        .Break("CLSCTX: known flags", id, nullptr, CLSCTX_INPROC_SERVER | 0x40, id, &object)
        .Break("CLSCTX: code is downloaded or not", id, nullptr,
               CLSCTX_INPROC_SERVER | CLSCTX_NO_CODE_DOWNLOAD | CLSCTX_ENABLE_CODE_DOWNLOAD, id, &object)
        .Break("CLSCTX: activate-as-activator is enabled or disabled", id, nullptr,
               CLSCTX_INPROC_SERVER | CLSCTX_DISABLE_AAA | CLSCTX_ENABLE_AAA, id, &object)
        .Break("a place for the interface", id, nullptr, CLSCTX_INPROC_SERVER, id, nullptr)
        .Break("IClassFactory::CreateInstance: an aggregated object gives IUnknown first", id, outer,
               CLSCTX_INPROC_SERVER, id, &object);
    auto* const name = reinterpret_cast<HSTRING>(&object);
    Calls<&RoGetActivationFactory> factories;
    factories.Keep(name, id, &object)
        .Break("a class's name", nullptr, id, &object)
        .Break("a place for the factory", name, id, nullptr);
    {
        const WholeRun run;
        creations.Break(initialized, id, nullptr, CLSCTX_INPROC_SERVER, id, &object);
        factories.Break(initialized, name, id, &object);
        NoteInitialized(State::Com);
        creations.Keep(id, nullptr, CLSCTX_INPROC_SERVER, id, &object);
    }
    Calls<&CoCreateFreeThreadedMarshaler>()
        .Keep(nullptr, Somewhere<IUnknown*>())
        .Break("a place for the marshaler", nullptr, nullptr);
    Calls<&CoTaskMemFree>().Keep(nullptr).Break("memory of CoTaskMemAlloc", Open(Kind::Text));
    Calls<&CreateStreamOnHGlobal>()
        .Keep(Open(Kind::GlobalMemory, GMEM_MOVEABLE), TRUE, Somewhere<IStream*>())
        .Break("memory of GlobalAlloc", Open(Kind::TaskMemory), TRUE, Somewhere<IStream*>())
        .Break("the memory was allocated as moveable", Open(Kind::GlobalMemory), TRUE, Somewhere<IStream*>())
        .Break("a place for the stream", memory, TRUE, nullptr);
    Calls<&SysFreeString>().Keep(nullptr).Break(bstr, static_cast<BSTR>(Open(Kind::TaskMemory)));
    Calls<&SysStringLen>().Keep(nullptr).Break(bstr, static_cast<BSTR>(Open(Kind::TaskMemory)));
    Calls<&VariantInit>().Keep(Somewhere<VARIANTARG>()).Break("a variant", nullptr);
    VARIANTARG unknown{};
    unknown.vt = 0x0FFF;
    VARIANTARG text{};
    text.vt = VT_BSTR;
    text.bstrVal = static_cast<BSTR>(Open(Kind::TaskMemory));
    Calls<&VariantClear>()
        .Keep(Somewhere<VARIANTARG>())
        .Break("a variant", nullptr)
        .Break("VARENUM: a known type", &unknown)
        .Break(bstr, &text);
    Calls<&SafeArrayCreateVector>()
        .Keep(VT_I4, 0, 2)
        .Break("neither VT_ARRAY nor VT_BYREF", VT_ARRAY | VT_I4, 0, 2)
        .Break("a type of elements", VT_EMPTY, 0, 2);
    SAFEARRAY array{};
    array.cDims = 1;
    array.rgsabound[0] = {.cElements = 2, .lLbound = 0};
    LONG index = 1;
    LONG beyond = 2;
    Calls<&SafeArrayPutElement>()
        .Keep(&array, &index, &object)
        .Break("an array", nullptr, &index, &object)
        .Break("an index", &array, nullptr, &object)
        .Break("an element", &array, &index, nullptr)
        .Break("an index within the bounds", &array, &beyond, &object);
    Calls<&GetErrorInfo>()
        .Keep(0, Somewhere<IErrorInfo*>())
        .Break("the first parameter is reserved", 1, Somewhere<IErrorInfo*>())
        .Break("a place for the error object", 0, nullptr);
    Calls<&SetErrorInfo>().Keep(0, nullptr).Break("the first parameter is reserved", 1, nullptr);
}

TEST_F(ContractTest, Of_the_shell_and_UI_Automation)
{
    wchar_t* path = nullptr;
    const auto window = OpenAs<HWND>(Kind::Initialized);
    auto* const provider = reinterpret_cast<IRawElementProviderSimple*>(&path);

    Calls<&SHGetKnownFolderPath>()
        .Keep(FOLDERID_LocalAppData, KF_FLAG_DONT_VERIFY, Open(Kind::Token, TOKEN_QUERY | TOKEN_IMPERSONATE), &path)
        .Break("KNOWN_FOLDER_FLAG: known flags", FOLDERID_LocalAppData, KF_FLAG_DONT_UNEXPAND, nullptr, &path)
        .Break("KNOWN_FOLDER_FLAG: KF_FLAG_NOT_PARENT_RELATIVE needs KF_FLAG_DEFAULT_PATH", FOLDERID_LocalAppData,
               KF_FLAG_NOT_PARENT_RELATIVE, nullptr, &path)
        .Break("KNOWN_FOLDER_FLAG: KF_FLAG_INIT needs KF_FLAG_CREATE", FOLDERID_LocalAppData, KF_FLAG_INIT, nullptr,
               &path)
        .Break("the token was opened with TOKEN_QUERY and TOKEN_IMPERSONATE", FOLDERID_LocalAppData, 0,
               Open(Kind::Token, TOKEN_QUERY), &path)
        .Break("a place for the path", FOLDERID_LocalAppData, 0, nullptr, nullptr);
    Calls<&SHChangeNotify>()
        .Keep(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr)
        .Keep(SHCNE_DELETE, SHCNF_PATHW | SHCNF_FLUSHNOWAIT, L"f", nullptr)
        .Break("an event, not SHCNE_INTERRUPT alone", static_cast<LONG>(SHCNE_INTERRUPT), SHCNF_IDLIST, nullptr,
               nullptr)
        .Break("a kind of items", SHCNE_RENAMEITEM, 4, L"f", L"g")
        .Break("known flags", SHCNE_ASSOCCHANGED, 0x100000, nullptr, nullptr)
        .Break("SHCNE_ASSOCCHANGED needs SHCNF_IDLIST", SHCNE_ASSOCCHANGED, SHCNF_PATHW, nullptr, nullptr)
        .Break("SHCNE_ASSOCCHANGED has no items", SHCNE_ASSOCCHANGED, SHCNF_IDLIST, L"f", nullptr)
        .Break("an item needs SHCNF_IDLIST or SHCNF_PATH", SHCNE_DELETE, SHCNF_DWORD, L"f", nullptr)
        .Break("an item", SHCNE_DELETE, SHCNF_PATHW, nullptr, nullptr)
        .Break("no second item", SHCNE_DELETE, SHCNF_PATHW, L"f", L"g");
    Calls<&ShellExecuteW>()
        .Keep(nullptr, nullptr, L"f", nullptr, nullptr, SW_SHOWNORMAL)
        .Break("a file", nullptr, nullptr, nullptr, nullptr, nullptr, SW_SHOWNORMAL)
        .Break("a way to show it", nullptr, nullptr, L"f", nullptr, nullptr, 12);
    Calls<&UiaReturnRawElementProvider>()
        .Keep(window, 0, 0, nullptr)
        .Break("a window", nullptr, 0, 0, provider)
        .Break("no provider only to disconnect", window, 1, 0, nullptr);
    Calls<&UiaHostProviderFromHwnd>()
        .Keep(window, Somewhere<IRawElementProviderSimple*>())
        .Break("a window", nullptr, Somewhere<IRawElementProviderSimple*>())
        .Break("a place for the provider", window, nullptr);
    Calls<&UiaRaiseAutomationEvent>()
        .Keep(provider, UIA_LiveRegionChangedEventId)
        .Break("a provider", nullptr, UIA_LiveRegionChangedEventId)
        .Break("Event Identifiers: an event", provider, UIA_NamePropertyId);
}

TEST_F(ContractTest, Of_windows)
{
    const auto window = OpenAs<HWND>(Kind::Initialized);
    const auto instance = OpenAs<HINSTANCE>(Kind::Module);
    HWND theirs = GetDesktopWindow(); // of another thread
    RECT area{};
    MSG message{};
    wchar_t wide[4]{};

    WNDCLASSEXW description{};
    description.cbSize = sizeof(description);
    description.lpfnWndProc = DefWindowProcW;
    description.hInstance = instance;
    description.lpszClassName = L"c";
    const std::wstring longName(257, L'n');
    const auto with = [&](auto change) {
        static std::array<WNDCLASSEXW, 8> changed{};
        static std::size_t last = 0;
        changed[last] = description;
        change(changed[last]);
        return &changed[last++];
    };
    Calls<&RegisterClassExW>()
        .Keep(&description)
        .Break("WNDCLASSEX: its size", with([](auto& c) { c.cbSize = 4; }))
        .Break("WNDCLASSEX: a window procedure", with([](auto& c) { c.lpfnWndProc = nullptr; }))
        .Break("WNDCLASSEX: an instance", with([](auto& c) { c.hInstance = nullptr; }))
        .Break("WNDCLASSEX: a name", with([](auto& c) { c.lpszClassName = nullptr; }))
        .Break("WNDCLASSEX: a name of up to 256 characters", with([&](auto& c) { c.lpszClassName = longName.c_str(); }))
        .Break("WNDCLASSEX: extra bytes are not negative", with([](auto& c) { c.cbWndExtra = -1; }));
    Calls<&UnregisterClassW>().Keep(MAKEINTATOM(1), instance).Break("a class's name or atom", nullptr, instance);
    Calls<&CreateWindowExW>()
        .Keep(0, L"c", L"t", WS_SYSMENU | WS_MINIMIZEBOX, 0, 0, 1, 1, nullptr, nullptr, instance, nullptr)
        .Break("a class's name or atom", 0, nullptr, L"t", 0, 0, 0, 1, 1, nullptr, nullptr, instance, nullptr)
        .Break("a child has a parent", 0, L"c", L"t", WS_CHILD, 0, 0, 1, 1, nullptr, nullptr, instance, nullptr)
        .Break("Window Styles: WS_CHILD or WS_POPUP, not both", 0, L"c", L"t", WS_CHILD | WS_POPUP, 0, 0, 1, 1, window,
               nullptr, instance, nullptr)
        .Keep(0, L"c", L"t", WS_CHILD | WS_GROUP | WS_TABSTOP, 0, 0, 1, 1, window, nullptr, instance, nullptr)
        .Break("Window Styles: a minimize or maximize button needs WS_SYSMENU", 0, L"c", L"t", WS_MINIMIZEBOX, 0, 0, 1,
               1, nullptr, nullptr, instance, nullptr)
        .Break("Window Styles: a minimize or maximize button, or WS_EX_CONTEXTHELP, not both", WS_EX_CONTEXTHELP, L"c",
               L"t", WS_SYSMENU | WS_MINIMIZEBOX, 0, 0, 1, 1, nullptr, nullptr, instance, nullptr);
    Calls<&DestroyWindow>()
        .Keep(window)
        .Break("a window", nullptr)
        .Break("a thread cannot destroy a window of another thread", theirs);
    Calls<&AdjustWindowRectEx>().Keep(&area, 0, FALSE, 0).Break("a rectangle", nullptr, 0, FALSE, 0);
    Calls<&GetWindowLongPtrW>()
        .Keep(window, GWLP_USERDATA)
        .Break("a window", nullptr, GWLP_USERDATA)
        .Break("a known index", window, -1);
    Calls<&SetWindowLongPtrW>()
        .Keep(window, GWL_STYLE, 0)
        .Break("a window", nullptr, GWLP_USERDATA, 0)
        .Break("a known index", window, -1, 0);
    Calls<&SetWindowPos>()
        .Keep(window, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE)
        .Break("a window", nullptr, nullptr, 0, 0, 0, 0, SWP_NOSIZE)
        .Break("known flags", window, nullptr, 0, 0, 0, 0, 0x8000);
    Calls<&GetWindowRect>()
        .Keep(window, &area)
        .Break("a window", nullptr, &area)
        .Break("a place for the rectangle", window, nullptr);
    Calls<&GetClientRect>()
        .Keep(window, &area)
        .Break("a window", nullptr, &area)
        .Break("a place for the rectangle", window, nullptr);
    Calls<&InvalidateRect>().Keep(window, nullptr, TRUE).Keep(nullptr, nullptr, TRUE);
    Calls<&GetWindow>()
        .Keep(window, GW_HWNDNEXT)
        .Break("a window", nullptr, GW_HWNDNEXT)
        .Break("a known relation", window, 7);
    Calls<&GetWindowThreadProcessId>().Keep(window, nullptr).Break("a window", nullptr, nullptr);
    Calls<&GetClassNameW>()
        .Keep(window, wide, 4)
        .Break("a window", nullptr, wide, 4)
        .Break("a buffer with room for the terminating null character", window, wide, 0);
    Calls<&GetMessageW>()
        .Keep(&message, nullptr, 0, 0)
        .Break("a place for the message", nullptr, nullptr, 0, 0)
        .Break("a window of this thread", &message, theirs, 0, 0)
        .Break("the high words of the filter are reserved", &message, nullptr, 0, 0x10000);
    const char reserved[] = "WM_USER: messages above 0xFFFF are reserved";
    const char forAll[] = "WM_USER: messages of private window classes are not for other applications";
    Calls<&TranslateMessage>().Keep(&message).Break("a message", nullptr);
    Calls<&DispatchMessageW>().Keep(&message).Break("a message", nullptr);
    Calls<&DefWindowProcW>().Keep(window, WM_PAINT, 0, 0).Break("a window", nullptr, WM_PAINT, 0, 0);
    Calls<&SendMessageW>()
        .Keep(window, WM_USER, 0, 0)
        .Break("a window", nullptr, WM_CLOSE, 0, 0)
        .Break(reserved, window, 0x10000, 0, 0)
        .Break(forAll, HWND_BROADCAST, WM_USER, 0, 0);
    Calls<&SendMessageTimeoutW>()
        .Keep(HWND_BROADCAST, WM_SETTINGCHANGE, 0, 0, SMTO_BLOCK, 1000, nullptr)
        .Break("a window", nullptr, WM_SETTINGCHANGE, 0, 0, SMTO_BLOCK, 1000, nullptr)
        .Break(reserved, window, 0x10000, 0, 0, SMTO_BLOCK, 1000, nullptr)
        .Break(forAll, HWND_BROADCAST, WM_USER, 0, 0, SMTO_BLOCK, 1000, nullptr)
        .Break("known flags", window, WM_CLOSE, 0, 0, 4, 1000, nullptr);
    Calls<&PostMessageW>()
        .Keep(window, WM_COMMAND, 1, 0)
        .Keep(HWND_BROADCAST, WM_NULL, 0, 0)
        .Break(reserved, window, 0x10000, 0, 0)
        .Break(forAll, HWND_BROADCAST, WM_USER, 0, 0)
        .Break("a message with a pointer cannot be posted", window, WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&area))
        .Break("PostQuitMessage posts WM_QUIT", window, WM_QUIT, 0, 0);
    Calls<&MessageBoxW>()
        .Keep(nullptr, L"t", L"c", MB_ICONINFORMATION)
        .Keep(nullptr, nullptr, nullptr, MB_SERVICE_NOTIFICATION)
        .Break("one kind of buttons, one icon, one default button, one modality", nullptr, L"t", L"c", 7)
        .Break("known options", nullptr, L"t", L"c", 0x00400000)
        .Break("MB_SERVICE_NOTIFICATION: no owner", window, L"t", L"c", MB_SERVICE_NOTIFICATION);
    Calls<&LoadIconW>()
        .Keep(instance, L"i")
        .Break("an icon's name", instance, nullptr)
        .Break("without an instance, one of the system's icons", nullptr, MAKEINTRESOURCEW(1));
    Calls<&LoadCursorW>()
        .Keep(nullptr, IDC_ARROW)
        .Break("a cursor's name", instance, nullptr)
        .Break("without an instance, one of the system's cursors", nullptr, L"c");
    Calls<&DwmExtendFrameIntoClientArea>()
        .Keep(window, Somewhere<MARGINS>())
        .Break("a window", nullptr, Somewhere<MARGINS>())
        .Break("margins", window, nullptr);
    Calls<&DwmSetWindowAttribute>()
        .Keep(window, 20, &area, sizeof(BOOL))
        .Break("a window", nullptr, 20, &area, sizeof(BOOL))
        .Break("DWMWINDOWATTRIBUTE: an attribute that can be set", window, DWMWA_CLOAKED, &area, sizeof(BOOL))
        .Break("a value of that size", window, 20, nullptr, sizeof(BOOL))
        .Break("DWMWINDOWATTRIBUTE: a BOOL for the dark mode", window, 20, &area, 1);
}

TEST_F(ContractTest, Of_dialogs)
{
    constexpr TASKDIALOG_BUTTON c_buttons[] = {{IDRETRY, L"r"}};
    TASKDIALOGCONFIG dialog{};
    dialog.cbSize = sizeof(dialog);
    dialog.cButtons = 1;
    dialog.pButtons = c_buttons;
    dialog.nDefaultButton = IDRETRY;
    const auto with = [&](auto change) {
        static std::array<TASKDIALOGCONFIG, 8> changed{};
        static std::size_t last = 0;
        changed[last] = dialog;
        change(changed[last]);
        return &changed[last++];
    };
    Calls<&TaskDialogIndirect>()
        .Keep(&dialog, nullptr, nullptr, nullptr)
        .Keep(with([](auto& d) {
                  d.nDefaultButton = IDCANCEL; // which is not shown: the first one is the default
                  d.nDefaultRadioButton = 5;
              }),
              nullptr, nullptr, nullptr)
        .Break("TASKDIALOGCONFIG: its size", with([](auto& d) { d.cbSize = 4; }), nullptr, nullptr, nullptr)
        .Break("TASKDIALOGCONFIG: known flags",
               with([](auto& d) { d.dwFlags = std::bit_cast<TASKDIALOG_FLAGS>(0x800000); }), nullptr, nullptr, nullptr)
        .Break("TASKDIALOGCONFIG: known common buttons",
               with([](auto& d) { d.dwCommonButtons = std::bit_cast<TASKDIALOG_COMMON_BUTTON_FLAGS>(0x40); }), nullptr,
               nullptr, nullptr)
        .Break("TASKDIALOGCONFIG: as many buttons as it says", with([](auto& d) { d.cRadioButtons = 1; }), nullptr,
               nullptr, nullptr)
        .Break("TASKDIALOGCONFIG: the icon's resource ID", with([](auto& d) { d.pszMainIcon = L"i"; }), nullptr,
               nullptr, nullptr)
        .Break("TASKDIALOGCONFIG: the footer icon's resource ID", with([](auto& d) {
                   d.pszFooter = L"f";
                   d.pszFooterIcon = L"i";
               }),
               nullptr, nullptr, nullptr);
}

TEST_F(ContractTest, Of_painting)
{
    const auto window = OpenAs<HWND>(Kind::Initialized);
    HWND theirs = GetDesktopWindow();
    const auto dc = OpenAs<HDC>(Kind::WindowContext);
    const auto other = OpenAs<HDC>(Kind::File);
    const RECT area{};
    PAINTSTRUCT paint{};
    PAINTSTRUCT notBegun{};
    notBegun.hdc = dc;

    Calls<&ReleaseDC>().Keep(window, dc).Break("a device context of GetDC", window, other);
    Calls<&GetDeviceCaps>()
        .Keep(dc, LOGPIXELSX)
        .Break("a device context", nullptr, LOGPIXELSX)
        .Break("a known item", dc, -1);
    Calls<&BeginPaint>()
        .Keep(window, &paint)
        .Break("a window", nullptr, &paint)
        .Break("in response to WM_PAINT, which the thread of the window receives", theirs, &paint)
        .Break("a place for the information", window, nullptr);
    Calls<&EndPaint>()
        .Keep(window, &paint)
        .Break("a window", nullptr, &paint)
        .Break("the information of BeginPaint", window, &notBegun);
    BP_PAINTPARAMS parameters{
        .cbSize = sizeof(parameters), .dwFlags = BPPF_ERASE, .prcExclude = nullptr, .pBlendFunction = nullptr};
    BP_PAINTPARAMS unsized{};
    BP_PAINTPARAMS unknown = parameters;
    unknown.dwFlags = 8;
    HDC place = nullptr;
    const char matched[] = "BufferedPaintInit: each call is matched with one of BufferedPaintUnInit";
    Calls<&BeginBufferedPaint>()
        .Keep(dc, &area, BPBF_TOPDOWNDIB, &parameters, &place)
        .Break("a device context", nullptr, &area, BPBF_TOPDOWNDIB, &parameters, &place)
        .Break("a rectangle", dc, nullptr, BPBF_TOPDOWNDIB, &parameters, &place)
        .Break("BP_BUFFERFORMAT: a known format", dc, &area, std::bit_cast<BP_BUFFERFORMAT>(9), &parameters, &place)
        .Break("BP_PAINTPARAMS: its size", dc, &area, BPBF_TOPDOWNDIB, &unsized, &place)
        .Break("BP_PAINTPARAMS: known flags", dc, &area, BPBF_TOPDOWNDIB, &unknown, &place)
        .Break("a place for the device context", dc, &area, BPBF_TOPDOWNDIB, &parameters, nullptr);
    Calls<&BufferedPaintUnInit> endings;
    endings.Keep();
    {
        const WholeRun run;
        endings.Break(matched);
        NoteInitialized(State::BufferedPaint);
        endings.Keep();
    }
    const auto buffer = OpenAs<HPAINTBUFFER>(Kind::PaintBuffer);
    Calls<&BufferedPaintSetAlpha>()
        .Keep(buffer, &area, 255)
        .Break("a buffer of BeginBufferedPaint", nullptr, &area, 255);
    Calls<&EndBufferedPaint>()
        .Keep(buffer, TRUE)
        .Break("a buffer of BeginBufferedPaint", OpenAs<HPAINTBUFFER>(Kind::File), TRUE);
}

TEST_F(ContractTest, Of_GDI_plus)
{
    using namespace Gdiplus;
    using namespace Gdiplus::DllExports;
    const char started[] = "GdiplusStartup: it comes before everything else, and GdiplusShutdown after";
    const char place[] = "a place for the object";
    const char known[] = "GDI+ Enumerations: a known value";
    ULONG_PTR token = 0;
    const GdiplusStartupInput input;
    const GdiplusStartupInput withoutThread(nullptr, TRUE);
    GdiplusStartupInput otherVersion;
    otherVersion.GdiplusVersion = 9;
    Calls<&GdiplusStartup>()
        .Keep(&token, &input, nullptr)
        .Break("a place for the token", nullptr, &input, nullptr)
        .Break("GdiplusStartupInput: version 1", &token, &otherVersion, nullptr)
        .Break("GdiplusStartupInput: an output where the background thread is suppressed", &token, &withoutThread,
               nullptr);

    const RectF area;
    Calls<&GdipCreateFont>()
        .Keep(nullptr, 12, FontStyleRegular, UnitPoint, Somewhere<GpFont*>())
        .Break(place, nullptr, 12, FontStyleRegular, UnitPoint, nullptr)
        .Break("System.Drawing.Font: a size greater than 0", nullptr, 0, FontStyleRegular, UnitPoint,
               Somewhere<GpFont*>())
        .Break("FontStyle: known styles", nullptr, 12, 0x10, UnitPoint, Somewhere<GpFont*>())
        .Break("Unit: a known unit", nullptr, 12, FontStyleRegular, std::bit_cast<Unit>(7), Somewhere<GpFont*>())
        .BreakInWholeRun(started, nullptr, 12, FontStyleRegular, UnitPoint, Somewhere<GpFont*>());
    Calls<&GdipDrawString>()
        .Keep(nullptr, L"a", -1, nullptr, &area, nullptr, nullptr)
        .Break("Graphics::DrawString: a rectangle", nullptr, L"a", -1, nullptr, nullptr, nullptr, nullptr)
        .Break("Graphics::DrawString: a text", nullptr, nullptr, -1, nullptr, &area, nullptr, nullptr)
        .Break("Graphics::DrawString: a length, or -1 for a null-terminated text", nullptr, L"a", -2, nullptr, &area,
               nullptr, nullptr)
        .BreakInWholeRun(started, nullptr, L"a", -1, nullptr, &area, nullptr, nullptr);

    const auto makes = [&](auto& calls, auto... arguments) {
        calls.Keep(arguments...).BreakInWholeRun(started, arguments...);
    };
    Calls<&GdipCloneBrush> cloneBrush;
    makes(cloneBrush, nullptr, Somewhere<GpBrush*>());
    cloneBrush.Break(place, nullptr, nullptr);
    Calls<&GdipCloneImage> cloneImage;
    makes(cloneImage, nullptr, Somewhere<GpImage*>());
    cloneImage.Break(place, nullptr, nullptr);
    Calls<&GdipCreateBitmapFromStream> createBitmap;
    makes(createBitmap, nullptr, Somewhere<GpBitmap*>());
    createBitmap.Break(place, nullptr, nullptr);
    Calls<&GdipCreateFontFamilyFromName> createFamily;
    makes(createFamily, nullptr, nullptr, Somewhere<GpFontFamily*>());
    createFamily.Break(place, nullptr, nullptr, nullptr);
    Calls<&GdipCreateFromHDC> createGraphics;
    makes(createGraphics, nullptr, Somewhere<GpGraphics*>());
    createGraphics.Break(place, nullptr, nullptr);
    Calls<&GdipCreateSolidFill> createBrush;
    makes(createBrush, 0U, Somewhere<GpSolidFill*>());
    createBrush.Break(place, 0, nullptr);
    Calls<&GdipCreateStringFormat> createFormat;
    makes(createFormat, 0, LANGID{0}, Somewhere<GpStringFormat*>());
    createFormat.Break(place, 0, 0, nullptr);

    Calls<&GdiplusShutdown>().Keep(token).BreakInWholeRun(started, token);
    Calls<&GdipAlloc>().Keep(1).BreakInWholeRun(started, 1);
    Calls<&GdipFree>().Keep(nullptr).BreakInWholeRun(started, nullptr);
    Calls<&GdipDeleteBrush>().Keep(nullptr).BreakInWholeRun(started, nullptr);
    Calls<&GdipDeleteFont>().Keep(nullptr).BreakInWholeRun(started, nullptr);
    Calls<&GdipDeleteFontFamily>().Keep(nullptr).BreakInWholeRun(started, nullptr);
    Calls<&GdipDeleteGraphics>().Keep(nullptr).BreakInWholeRun(started, nullptr);
    Calls<&GdipDeleteStringFormat>().Keep(nullptr).BreakInWholeRun(started, nullptr);
    Calls<&GdipDisposeImage>().Keep(nullptr).BreakInWholeRun(started, nullptr);
    Calls<&GdipDrawImageRect>()
        .Keep(nullptr, nullptr, 0, 0, 1, 1)
        .BreakInWholeRun(started, nullptr, nullptr, 0, 0, 1, 1);
    Calls<&GdipFillRectangle>()
        .Keep(nullptr, nullptr, 0, 0, 1, 1)
        .BreakInWholeRun(started, nullptr, nullptr, 0, 0, 1, 1);

    Calls<&GdipSetCompositingQuality>()
        .Keep(nullptr, CompositingQualityHighQuality)
        .Break(known, nullptr, std::bit_cast<CompositingQuality>(9))
        .BreakInWholeRun(started, nullptr, CompositingQualityDefault);
    Calls<&GdipSetInterpolationMode>()
        .Keep(nullptr, InterpolationModeHighQualityBicubic)
        .Break(known, nullptr, std::bit_cast<InterpolationMode>(8))
        .BreakInWholeRun(started, nullptr, InterpolationModeDefault);
    Calls<&GdipSetPixelOffsetMode>()
        .Keep(nullptr, PixelOffsetModeHighQuality)
        .Break(known, nullptr, std::bit_cast<PixelOffsetMode>(5))
        .BreakInWholeRun(started, nullptr, PixelOffsetModeDefault);
    Calls<&GdipSetSmoothingMode>()
        .Keep(nullptr, SmoothingModeHighQuality)
        .Break(known, nullptr, std::bit_cast<SmoothingMode>(9))
        .BreakInWholeRun(started, nullptr, SmoothingModeDefault);
    Calls<&GdipSetTextRenderingHint>()
        .Keep(nullptr, TextRenderingHintClearTypeGridFit)
        .Break(known, nullptr, std::bit_cast<TextRenderingHint>(6))
        .BreakInWholeRun(started, nullptr, TextRenderingHintClearTypeGridFit);
    Calls<&GdipSetStringFormatAlign>()
        .Keep(nullptr, StringAlignmentCenter)
        .Break(known, nullptr, std::bit_cast<StringAlignment>(3))
        .BreakInWholeRun(started, nullptr, StringAlignmentCenter);
    Calls<&GdipSetStringFormatLineAlign>()
        .Keep(nullptr, StringAlignmentCenter)
        .Break(known, nullptr, std::bit_cast<StringAlignment>(3))
        .BreakInWholeRun(started, nullptr, StringAlignmentCenter);
}

// Handles are followed from the function that opens them to the one that closes them.
TEST(ContractsTest, Follow_what_is_opened)
{
    const Fake<&OpenProcess> open = [](DWORD, BOOL, DWORD) { return reinterpret_cast<HANDLE>(0x7654); };
    const Fake<&TerminateProcess> terminate = [](HANDLE, UINT) -> BOOL { return TRUE; };
    const Fake<&CloseHandle> close = [](HANDLE) -> BOOL { return TRUE; };
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, 1);

    EXPECT_NONFATAL_FAILURE(TerminateProcess(process, 0),
                            "TerminateProcess: the process was opened with PROCESS_TERMINATE");
    CloseHandle(process);
    EXPECT_NONFATAL_FAILURE(TerminateProcess(process, 0), "TerminateProcess: an open process");
}

// As soon as it is freed, its address may be that of something else.
TEST(ContractsTest, Forget_an_address_before_it_is_freed)
{
    const Fake<&FindClose> closeSearch = [](HANDLE search) -> BOOL {
        EXPECT_TRUE(MayBe(search, Kind::TaskMemory));
        return TRUE;
    };
    const Fake<&CoTaskMemFree> freeTask = [](void* memory) { EXPECT_TRUE(MayBe(memory, Kind::Search)); };
    const Fake<&LocalFree> freeLocal = [](HLOCAL memory) -> HLOCAL {
        EXPECT_TRUE(MayBe(memory, Kind::Search));
        return nullptr;
    };
    const Fake<&GlobalFree> freeGlobal = [](HGLOBAL memory) -> HGLOBAL {
        EXPECT_TRUE(MayBe(memory, Kind::Search));
        return nullptr;
    };
    const Fake<&SysFreeString> freeText = [](BSTR text) { EXPECT_TRUE(MayBe(text, Kind::Search)); };
    FindClose(Open(Kind::Search));
    CoTaskMemFree(Open(Kind::TaskMemory));
    LocalFree(Open(Kind::LocalMemory));
    GlobalFree(Open(Kind::GlobalMemory));
    SysFreeString(OpenAs<BSTR>(Kind::Text));
}

TEST(ContractsTest, Leave_the_last_error_alone)
{
    const Fake<&RegCloseKey> close = [](HKEY) -> LSTATUS {
        EXPECT_EQ(GetLastError(), 5U);
        SetLastError(6);
        return ERROR_SUCCESS;
    };
    SetLastError(5);
    RegCloseKey(OpenAs<HKEY>(Kind::Key));
    EXPECT_EQ(GetLastError(), 6U);
}

} // namespace
