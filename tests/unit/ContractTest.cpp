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
#include <tuple>
#include <type_traits>

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

    // The calls of a function: those that keep its contract, and one for each of its rules that breaks that rule,
    // by one argument where that can be.
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

        Calls& Keep(Arguments... arguments)
        {
            m_kept = {arguments...};
            return Expect("", arguments...);
        }

        Calls& Break(const std::string& rule, Arguments... arguments)
        {
            EXPECT_TRUE(m_broken.insert(rule).second) << c_name.data() << ": " << rule << " is broken twice";
            return Expect(rule, arguments...);
        }

        // Breaks a rule with one other argument than in the last call that kept them all.
        template <std::size_t Position>
        Calls& Break(const std::string& rule, std::tuple_element_t<Position, std::tuple<Arguments...>> argument)
        {
            auto arguments = m_kept;
            std::get<Position>(arguments) = argument;
            return std::apply([&](auto... all) -> Calls& { return Break(rule, all...); }, arguments);
        }

        // Breaks a rule of whole runs with that last call.
        Calls& BreakInWholeRun(const std::string& rule)
        {
            const WholeRun run;
            return std::apply([&](auto... all) -> Calls& { return Break(rule, all...); }, m_kept);
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

        std::tuple<std::decay_t<Arguments>...> m_kept{};
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
        .Break<1>("known flags", 0x10)
        .Break<1>("MB_PRECOMPOSED or MB_COMPOSITE, not both", MB_PRECOMPOSED | MB_COMPOSITE)
        .Break<0>("this code page takes no flags", CP_UTF7)
        .Break<0>("UTF-8 and GB18030 take no flag but MB_ERR_INVALID_CHARS", CP_UTF8)
        .Break<2>("there is a text", nullptr)
        .Break<3>("the text's length is not 0", 0)
        .Break<3>("the text's length is -1 or positive", -2)
        .Break<5>("the buffer's size is not negative", -1)
        .Break<4>("a buffer of that size", nullptr)
        .Break<2>("text and buffer are not the same", static_cast<char*>(same));
    Calls<&WideCharToMultiByte>()
        .Keep(1252, WC_NO_BEST_FIT_CHARS, L"a", -1, narrow, 4, "?", Somewhere<BOOL>())
        .Keep(CP_UTF8, WC_ERR_INVALID_CHARS, L"a", 1, nullptr, 0, nullptr, nullptr)
        .Break<1>("known flags", 0x1)
        .Break<0>("this code page takes no flags", CP_SYMBOL)
        .Break<1>("UTF-8 and GB18030 take no flag but WC_ERR_INVALID_CHARS", WC_NO_BEST_FIT_CHARS)
        .Break<0>("WC_ERR_INVALID_CHARS is for UTF-8 and GB18030", 1252)
        .Break<6>("UTF-7 and UTF-8 have no default character", "?")
        .Break<7>("UTF-7 and UTF-8 do not tell whether the default character was used", Somewhere<BOOL>())
        .Break<2>("there is a text", nullptr)
        .Break<3>("the text's length is not 0", 0)
        .Break<3>("the text's length is -1 or positive", -2)
        .Break<5>("the buffer's size is not negative", -1)
        .Break<5>("a buffer of that size", 4)
        .Break("text and buffer are not the same", CP_UTF8, 0, wide, 1, static_cast<char*>(same), 4, nullptr, nullptr);
    Calls<&CompareStringOrdinal>()
        .Keep(L"a", -1, L"a", 0, TRUE)
        .Break<2>("there are two texts", nullptr)
        .Break<1>("a length is -1 or not negative", -2);
    const char noSource[] = "a source of the message";
    constexpr DWORD c_system = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    Calls<&FormatMessageW>()
        .Keep(c_system | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr, 5, 0, wide, 0, nullptr)
        .Keep(c_system, nullptr, 5, 0, wide, 4, nullptr)
        .Break<0>("known flags", c_system | 0x8000)
        .Break<0>(noSource, FORMAT_MESSAGE_IGNORE_INSERTS)
        .Break<0>("FORMAT_MESSAGE_FROM_STRING is no other source's flag", c_system | FORMAT_MESSAGE_FROM_STRING)
        .Break<0>("the string for FORMAT_MESSAGE_FROM_STRING", FORMAT_MESSAGE_FROM_STRING)
        .Break<0>("without arguments, FORMAT_MESSAGE_IGNORE_INSERTS", FORMAT_MESSAGE_FROM_SYSTEM)
        .Break<4>("there is a buffer", nullptr)
        .Break<5>("the buffer's size", 0)
        .Break<5>("the buffer is not larger than 64 KB", 0x8001);
    Calls<&FormatMessageA>()
        .Keep(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 0, narrow, 4, nullptr)
        .Break<0>("known flags", c_system | 0x8000)
        .Break<0>(noSource, FORMAT_MESSAGE_IGNORE_INSERTS)
        .Break<0>("FORMAT_MESSAGE_FROM_STRING is no other source's flag", c_system | FORMAT_MESSAGE_FROM_STRING)
        .Break<0>("the string for FORMAT_MESSAGE_FROM_STRING", FORMAT_MESSAGE_FROM_STRING)
        .Break<4>("there is a buffer", nullptr)
        .Break<5>("the buffer's size", 0)
        .Break<5>("the buffer is not larger than 64 KB", 0x10001);
    Calls<&IsDBCSLeadByteEx>().Keep(932, 0x81).Break<0>("a double-byte code page", CP_UTF8);
    Calls<&CommandLineToArgvW>()
        .Keep(L"", Somewhere<int>())
        .Break<0>("there is a command line", nullptr)
        .Break<1>("there is a place for the number of arguments", nullptr);
    Calls<&OutputDebugStringA>().Keep("").Break<0>("there is a text", nullptr);
    Calls<&OutputDebugStringW>().Keep(L"").Break<0>("there is a text", nullptr);
}

TEST_F(ContractTest, Of_opening_files)
{
    SECURITY_ATTRIBUTES unsized{};
    constexpr DWORD c_read = GENERIC_READ;
    Calls<&CreateFileW>()
        .Keep(L"f", c_read, 7, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT,
              nullptr)
        .Break<0>("a path", nullptr)
        .Break<1>("known rights", 0x0C000000)
        .Break<2>("known ways of sharing", 8)
        .Break<3>("the size of the security attributes", &unsized)
        .Break<4>("one of the five dispositions", 0)
        .Break<4>("TRUNCATE_EXISTING needs GENERIC_WRITE", TRUNCATE_EXISTING)
        .Break<5>("known flags and attributes", 8)
        .Break<4>("FILE_FLAG_OPEN_REPARSE_POINT is not for CREATE_ALWAYS", CREATE_ALWAYS)
        .Break<6>("the template was opened with GENERIC_READ", Open(Kind::File, FILE_READ_ATTRIBUTES));

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
    create.Break<5>("known attributes", 0x01000000)
        .Break<7>("a known disposition", 6)
        .Break<7>("FILE_DIRECTORY_FILE is for FILE_CREATE, FILE_OPEN and FILE_OPEN_IF", FILE_OVERWRITE)
        .Break<10>("a buffer of extended attributes", 4);
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
        .Break<0>("an open file", INVALID_HANDLE_VALUE)
        .Break<0>("the file was opened for writing", reader)
        .Break<1>("a buffer of that size", nullptr)
        .Break<3>("a place for the number of bytes", nullptr);
    Calls<&ReadFile>()
        .Keep(reader, buffer, 1, Somewhere<DWORD>(), nullptr)
        .Break<0>("an open file", key)
        .Break<0>("the file was opened for reading", writer)
        .Break<1>("a buffer of that size", nullptr)
        .Break<3>("a place for the number of bytes", nullptr);
    Calls<&CreateDirectoryW>()
        .Keep(L"f", nullptr)
        .Break<0>("a path", nullptr)
        .Break<1>("the size of the security attributes", &unsized);
    Calls<&RemoveDirectoryW>().Keep(L"f/g").Break<0>("a path", nullptr);
    Calls<&DeleteFileW>().Keep(L"f").Break<0>("a path", nullptr);
    Calls<&GetFileAttributesW>().Keep(L"f").Break<0>("a path", nullptr);
    Calls<&SetCurrentDirectoryW>().Keep(L"f").Break<0>("a path", nullptr);
    Calls<&GetFileInformationByHandle>()
        .Keep(reader, Somewhere<BY_HANDLE_FILE_INFORMATION>())
        .Break<0>("an open file", nullptr)
        .Break<1>("a place for the information", nullptr);
    Calls<&GetFileInformationByHandleEx>()
        .Keep(deleter, FileAttributeTagInfo, buffer, 8)
        .Keep(reader, FileFullDirectoryInfo, buffer, sizeof(buffer))
        .Break<0>("an open file", key)
        .Break<1>("a class that can be queried", FileDispositionInfo)
        .Break<2>("a buffer", nullptr)
        .Break("FILE_INFO_BY_HANDLE_CLASS: the size of the class's structure", reader, FileBasicInfo, buffer,
               sizeof(FILE_BASIC_INFO) - 1)
        .Break<2>("FILE_FULL_DIR_INFO: aligned on 8 bytes", buffer + 4)
        .Break<0>("NtQueryDirectoryFile: the directory was opened with FILE_LIST_DIRECTORY", deleter)
        .Break("NtQueryInformationFile: attributes need FILE_READ_ATTRIBUTES", writer, FileAttributeTagInfo, buffer, 8);
    constexpr auto c_extended = std::bit_cast<FILE_INFO_BY_HANDLE_CLASS>(21);
    DWORD flags = 3;
    DWORD unknownFlags = 0x20;
    Calls<&SetFileInformationByHandle>()
        .Keep(deleter, c_extended, &flags, sizeof(flags))
        .Break<0>("an open file", nullptr)
        .Break<1>("a class that can be set", FileAttributeTagInfo)
        .Break<2>("a buffer", nullptr)
        .Break<3>("FILE_INFO_BY_HANDLE_CLASS: the size of the class's structure", 1)
        .Break<0>("the file was opened with DELETE", reader)
        .Break<2>("FILE_DISPOSITION_INFORMATION_EX: known flags", &unknownFlags);
    constexpr DWORD c_writing = CTL_CODE('m', 7, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS);
    Calls<&DeviceIoControl>()
        .Keep(deleter, FSCTL_GET_REPARSE_POINT, nullptr, 0, buffer, sizeof(buffer), Somewhere<DWORD>(), nullptr)
        .Break<0>("an open device", INVALID_HANDLE_VALUE)
        .Break<1>("Defining I/O Control Codes: the access that the code names", c_writing)
        .Break<4>("buffers of those sizes", nullptr)
        .Break<6>("a place for the number of bytes", nullptr)
        .Break<2>("FSCTL_GET_REPARSE_POINT: no input", buffer)
        .Break<5>("FSCTL_GET_REPARSE_POINT: room for the header", 7);
    Calls<&GetFinalPathNameByHandleW>()
        .Keep(reader, wide, 4, VOLUME_NAME_NT | FILE_NAME_OPENED)
        .Break<0>("an open file", nullptr)
        .Break<1>("a buffer of that size", nullptr)
        .Break<3>("known flags", 0x10)
        .Break<3>("one kind of volume name", VOLUME_NAME_NT | VOLUME_NAME_GUID);
    Calls<&GetFullPathNameW>()
        .Keep(L"f", 0, nullptr, nullptr)
        .Break<0>("a path", nullptr)
        .Break<1>("a buffer of that size", 4);
    Calls<&GetVolumePathNameW>()
        .Keep(L"C:\\", wide, 4)
        .Break<0>("a path", nullptr)
        .Break<1>("a buffer", nullptr)
        .Break<0>("a buffer at least as large as the path", L"C:\\f");
    Calls<&FindFirstFileW>()
        .Keep(L"C:\\*", Somewhere<WIN32_FIND_DATAW>())
        .Break<0>("a path", nullptr)
        .Break<0>("no backslash at the end", L"C:\\")
        .Break<1>("a place for what is found", nullptr);
    Calls<&FindClose>().Keep(Open(Kind::Search)).Break<0>("a search of FindFirstFile", reader);
    Calls<&MoveFileExW>()
        .Keep(L"\\\\?\\C:\\f", nullptr, MOVEFILE_DELAY_UNTIL_REBOOT)
        .Break<0>("a path", nullptr)
        .Break<2>("known flags", MOVEFILE_CREATE_HARDLINK)
        .Break<2>("MOVEFILE_COPY_ALLOWED or MOVEFILE_DELAY_UNTIL_REBOOT, not both",
                  MOVEFILE_COPY_ALLOWED | MOVEFILE_DELAY_UNTIL_REBOOT)
        .Break<2>("a new name, unless deleted at the restart", 0)
        .Break<0>("at the restart there are no remote shares", L"\\\\s\\f");
    Calls<&CopyFileExW>()
        .Keep(L"f", L"g", nullptr, nullptr, nullptr, COPY_FILE_ALLOW_DECRYPTED_DESTINATION)
        .Break<1>("a path", nullptr)
        .Break<5>("known flags", 0x10);
    Calls<&GetTempPathW>().Keep(0, nullptr).Break<0>("a buffer of that size", 4);
    Calls<&GetSystemDirectoryW>().Keep(wide, 4).Break<0>("a buffer of that size", nullptr);
    Calls<&ReOpenFile>()
        .Keep(reader, FILE_LIST_DIRECTORY, FILE_SHARE_READ, FILE_FLAG_BACKUP_SEMANTICS)
        .Break<0>("an open file", key)
        .Break<1>("known rights", 0x400)
        .Break<2>("known ways of sharing", 8)
        .Break<3>("flags alone, no attributes", FILE_ATTRIBUTE_NORMAL);
    Calls<&GetVolumeInformationByHandleW>()
        .Keep(reader, nullptr, 0, nullptr, nullptr, Somewhere<DWORD>(), nullptr, 0)
        .Break<0>("an open file", key)
        .Break<2>("a buffer for the volume's name", 4)
        .Break<7>("a buffer for the file system's name", 4);
    Calls<&GetStdHandle>().Keep(STD_OUTPUT_HANDLE).Break<0>("one of the three", 1);
    Calls<&WriteConsoleW>()
        .Keep(nullptr, L"a", 1, Somewhere<DWORD>(), nullptr)
        .Break<0>("a console's screen buffer", key)
        .Break<1>("a text of that length", nullptr)
        .Break<4>("the last parameter is reserved", buffer);
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
        .Break<0>("an open key", nullptr)
        .Break<1>(subKeyRule, L"\\a")
        .Break<2>("no option but REG_OPTION_OPEN_LINK", 1)
        .Break<3>(rights, c_unknown)
        .Break<3>(aRight, 0)
        .Break<3>(oneView, KEY_READ | c_bothViews)
        .Break<4>("a place for the key", nullptr);
    Calls<&RegCreateKeyExW>()
        .Keep(HKEY_LOCAL_MACHINE, L"a\\b", 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, &place, nullptr)
        .Break<0>("an open key", file)
        .Break<1>("a subkey's name", nullptr)
        .Break<1>(subKeyRule, L"\\a")
        .Break<1>("no direct child of HKEY_LOCAL_MACHINE or HKEY_USERS", L"a")
        .Break<2>("the third parameter is reserved", 1)
        .Break<4>("one of the options", 8)
        .Break<5>(rights, c_unknown)
        .Break<5>(aRight, 0)
        .Break<5>(oneView, KEY_READ | c_bothViews)
        .Break<6>("the size of the security attributes", &unsized)
        .Break<7>("a place for the key", nullptr);
    Calls<&RegCloseKey>().Keep(none).Break<0>("an open key", file);
    char data[2]{};
    Calls<&RegGetValueW>()
        .Keep(all, nullptr, L"v", RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, nullptr, data,
              Somewhere<DWORD>())
        .Break<0>("an open key", nullptr)
        .Break<0>("the key was opened with KEY_QUERY_VALUE", none)
        .Break<1>(subKeyRule, L"\\a")
        .Break<3>("known flags", RRF_RT_ANY | 0x00040000)
        .Break<3>("a type", RRF_NOEXPAND)
        .Break<3>("one view", RRF_RT_ANY | 0x00030000)
        .Break<3>("RRF_RT_REG_EXPAND_SZ only with RRF_NOEXPAND", RRF_RT_REG_EXPAND_SZ)
        .Break<6>("a buffer has a size", nullptr);
    BYTE bytes[4]{};
    Calls<&RegQueryValueExW>()
        .Keep(all, L"v", nullptr, nullptr, nullptr, Somewhere<DWORD>())
        .Break<0>("an open key", file)
        .Break<0>("the key was opened with KEY_QUERY_VALUE", none)
        .Break<2>("the third parameter is reserved", Somewhere<DWORD>())
        .Break("a buffer has a size", all, L"v", nullptr, nullptr, bytes, nullptr);
    Calls<&RegSetKeyValueW>()
        .Keep(all, nullptr, L"v", REG_EXPAND_SZ, L"a", 4)
        .Break<0>("an open key", nullptr)
        .Break<0>("the key was opened with KEY_SET_VALUE", none)
        .Break<1>(subKeyRule, L"\\a")
        .Break<3>("Registry Value Types: a known type", 12)
        .Break<4>("data of that size", nullptr)
        .Break<5>("a text's size is in bytes", 3)
        .Break<5>("a text's size includes its terminating null character", 2)
        .Break("Registry Value Types: the size of a REG_DWORD", all, nullptr, L"v", REG_DWORD, bytes, 2);
    Calls<&RegDeleteValueW>()
        .Keep(all, L"v")
        .Break<0>("an open key", file)
        .Break<0>("the key was opened with KEY_SET_VALUE", none);
    constexpr DWORD c_withoutValues = DELETE | KEY_ENUMERATE_SUB_KEYS | KEY_QUERY_VALUE;
    Calls<&RegDeleteTreeW>()
        .Keep(HKEY_LOCAL_MACHINE, L"a")
        .Break<0>("an open key", file)
        .Break<0>("the key was opened with DELETE, KEY_ENUMERATE_SUB_KEYS and KEY_QUERY_VALUE",
                  OpenAs<HKEY>(Kind::Key, KEY_READ | KEY_WRITE))
        .Break<0>("for a key with values, the key was opened with KEY_SET_VALUE",
                  OpenAs<HKEY>(Kind::Key, c_withoutValues))
        .Break<1>(subKeyRule, L"\\a");
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
        .Break<1>("the database SERVICES_ACTIVE_DATABASE", L"other")
        .Break<2>(rights, 0x100);
    Calls<&OpenServiceW>()
        .Keep(manager, L"s", SERVICE_STOP)
        .Break<0>("a handle of OpenSCManager", service)
        .Break<1>("a name", nullptr)
        .Break<1>("up to 256 characters, no slashes or backslashes", L"a\\b")
        .Break<2>(rights, 0x400)
        .Break<2>("Service Security and Access Rights: a right", 0);
    Calls<&QueryServiceStatusEx>()
        .Keep(service, SC_STATUS_PROCESS_INFO, buffer, 36, Somewhere<DWORD>())
        .Break<0>(ofService, manager)
        .Break<0>("the service was opened with SERVICE_QUERY_STATUS", unable)
        .Break<1>("no level but SC_STATUS_PROCESS_INFO", std::bit_cast<SC_STATUS_TYPE>(1))
        .Break<2>("a buffer of that size", nullptr)
        .Break<3>("room for a SERVICE_STATUS_PROCESS, or none", 28)
        .Break<3>("no more than 8 KB", 9000)
        .Break<4>("a place for the number of bytes needed", nullptr);
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
        .Break<0>(ofService, manager)
        .Break<1>("a known control", 100)
        .Break<0>("the service was opened with the right for this control", unable)
        .Break<2>("no level but SERVICE_CONTROL_STATUS_REASON_INFO", 2)
        .Break<3>("parameters", nullptr)
        .Break<3>("SERVICE_CONTROL_STATUS_REASON_PARAMS: one general, one major and one minor code", &withoutKind)
        .Break<3>("SERVICE_CONTROL_STATUS_REASON_PARAMS: a comment of less than 128 characters", &withLongComment);
    Calls<&DeleteService>()
        .Keep(service)
        .Break<0>(ofService, manager)
        .Break<0>("the service was opened with DELETE", unable);
    Calls<&CloseServiceHandle>().Keep(manager).Break<0>("a handle of OpenService or OpenSCManager",
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
        .Break<0>("an open process", nullptr)
        .Break<0>("the process was opened with PROCESS_QUERY_INFORMATION", Open(Kind::Process, SYNCHRONIZE))
        .Break<1>("Access Rights for Access-Token Objects: known rights", 0x1000)
        .Break<2>("a place for the token", nullptr);
    Calls<&LookupPrivilegeValueW>()
        .Keep(nullptr, L"p", Somewhere<LUID>())
        .Break<1>("a privilege's name", nullptr)
        .Break<2>("a place for the LUID", nullptr);
    Calls<&AdjustTokenPrivileges>()
        .Keep(token, FALSE, &state, sizeof(state), &state, Somewhere<DWORD>())
        .Break<0>("an open token", file)
        .Break<0>("GetCurrentProcessToken: a pseudo handle only queries", GetCurrentProcessToken())
        .Break<0>("the token was opened with TOKEN_ADJUST_PRIVILEGES", Open(Kind::Token, TOKEN_QUERY))
        .Break<0>("for the previous state, the token was opened with TOKEN_QUERY",
                  Open(Kind::Token, TOKEN_ADJUST_PRIVILEGES))
        .Break<2>("the new state, unless all are disabled", nullptr)
        .Break<2>("TOKEN_PRIVILEGES: known attributes", &unknown)
        .Break<3>("room for the previous state", 4)
        .Break<5>("for the previous state, a place for its size", nullptr);
    Calls<&GetTokenInformation>()
        .Keep(token, TokenUser, nullptr, 0, Somewhere<DWORD>())
        .Keep(GetCurrentProcessToken(), TokenElevation, buffer, 4, Somewhere<DWORD>())
        .Break<0>("an open token", file)
        .Break("the token was opened with TOKEN_QUERY, or TOKEN_QUERY_SOURCE for its source", token, TokenSource,
               buffer, 64, Somewhere<DWORD>())
        .Break<1>("TOKEN_INFORMATION_CLASS: a known class", std::bit_cast<TOKEN_INFORMATION_CLASS>(0))
        .Break<2>("a buffer of that size", nullptr)
        .Break<3>("room for a TOKEN_ELEVATION", 2)
        .Break<1>("room for a TOKEN_USER and its SID", TokenUser)
        .Break<4>("a place for the number of bytes needed", nullptr);
    SID sid{.Revision = SID_REVISION, .SubAuthorityCount = 0, .IdentifierAuthority = {}, .SubAuthority = {}};
    Calls<&IsWellKnownSid>()
        .Keep(&sid, WinLocalSystemSid)
        .Break<0>("a SID", nullptr)
        .Break<1>("WELL_KNOWN_SID_TYPE: a known type", std::bit_cast<WELL_KNOWN_SID_TYPE>(-1));
    Calls<&EqualSid>().Keep(&sid, &sid).Break<1>("two SIDs", nullptr);
    Calls<&ConvertSidToStringSidW>()
        .Keep(&sid, Somewhere<LPWSTR>())
        .Break<0>("a SID", nullptr)
        .Break<1>("a place for the text", nullptr);
    Calls<&ConvertStringSecurityDescriptorToSecurityDescriptorW>()
        .Keep(L"D:", SDDL_REVISION_1, Somewhere<PSECURITY_DESCRIPTOR>(), nullptr)
        .Break<0>("a text", nullptr)
        .Break<1>("SDDL_REVISION_1", 2)
        .Break<2>("a place for the descriptor", nullptr);
    const HANDLE folder = Open(Kind::File, READ_CONTROL | WRITE_DAC | WRITE_OWNER);
    const HANDLE unreadable = Open(Kind::File, FILE_READ_DATA);
    PSECURITY_DESCRIPTOR descriptor = buffer;
    Calls<&GetSecurityInfo>()
        .Keep(folder, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, Somewhere<PSID>(), nullptr, nullptr, nullptr,
              &descriptor)
        .Break<0>("an open object", nullptr)
        .Break<1>("SE_OBJECT_TYPE: a known type", SE_UNKNOWN_OBJECT_TYPE)
        .Break<0>("READ_CONTROL, for all but the SACL", unreadable)
        .Break<2>("ACCESS_SYSTEM_SECURITY, for the SACL", SACL_SECURITY_INFORMATION)
        .Break<7>("a place for the descriptor, in which its parts lie", nullptr);
    Calls<&SetKernelObjectSecurity>()
        .Keep(folder, DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, descriptor)
        .Break<0>("an open object", nullptr)
        .Break<0>("WRITE_DAC for the DACL", unreadable)
        .Break("WRITE_OWNER for the owner", unreadable, OWNER_SECURITY_INFORMATION, descriptor)
        .Break<2>("a descriptor", nullptr);
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
        .Break<0>("Process Security and Access Rights: known rights", 0x04000000)
        .Break<0>("Process Security and Access Rights: a right", 0);
    Calls<&TerminateProcess>()
        .Keep(process, 0)
        .Break<0>("an open process", key)
        .Break<0>("the process was opened with PROCESS_TERMINATE", limited);
    Calls<&GetProcessTimes>()
        .Keep(GetCurrentProcess(), &time, &time, &time, &time)
        .Break<0>("an open process", nullptr)
        .Break<0>(query, limited)
        .Break<2>("places for the four times", nullptr);
    Calls<&QueryFullProcessImageNameW>()
        .Keep(process, 0, wide, Somewhere<DWORD>())
        .Break<0>("an open process", nullptr)
        .Break<0>(query, limited)
        .Break<1>("0 or PROCESS_NAME_NATIVE", 2)
        .Break<3>("the size of the buffer", nullptr)
        .Break<2>("a buffer", nullptr);
    Calls<&GetProcessAffinityMask>()
        .Keep(process, Somewhere<DWORD_PTR>(), Somewhere<DWORD_PTR>())
        .Break<0>(query, limited)
        .Break<1>("places for the two masks", nullptr);
    Calls<&SetProcessAffinityMask>()
        .Keep(process, 1)
        .Break<0>("the process was opened with PROCESS_SET_INFORMATION", limited)
        .Break<1>("a processor", 0);
    Calls<&ProcessIdToSessionId>().Keep(1, Somewhere<DWORD>()).Break<1>("a place for the session", nullptr);
    Calls<&CreateToolhelp32Snapshot>()
        .Keep(TH32CS_SNAPPROCESS, 0)
        .Break<0>("known flags", TH32CS_SNAPPROCESS | 0x100)
        .Break<0>("something to take a snapshot of", 0);
    PROCESSENTRY32W entry{};
    PROCESSENTRY32W unsizedEntry{};
    entry.dwSize = sizeof(entry);
    const HANDLE snapshot = Open(Kind::Snapshot);
    Calls<&Process32FirstW>()
        .Keep(snapshot, &entry)
        .Break<0>("a snapshot of CreateToolhelp32Snapshot", INVALID_HANDLE_VALUE)
        .Break<1>("a place for the entry", nullptr)
        .Break<1>("PROCESSENTRY32: its size", &unsizedEntry);
    Calls<&Process32NextW>()
        .Keep(snapshot, &entry)
        .Break<0>("a snapshot of CreateToolhelp32Snapshot", process)
        .Break<1>("a place for the entry", nullptr)
        .Break<1>("PROCESSENTRY32: its size", &unsizedEntry);

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
        .Break<0>("a program or a command line", nullptr)
        .Break<1>("a command line of up to 32,767 characters", tooLong.data())
        .Break<2>(security, &unsized)
        .Break<5>("Process Creation Flags: known flags", 0x00800000)
        .Break<5>("Process Creation Flags: CREATE_NEW_CONSOLE or DETACHED_PROCESS, not both",
                  CREATE_NEW_CONSOLE | DETACHED_PROCESS)
        .Break<5>("Scheduling Priorities: one priority class", IDLE_PRIORITY_CLASS | HIGH_PRIORITY_CLASS)
        .Break<6>("an ANSI environment begins with a name", environment)
        .Break<8>("STARTUPINFO is required", nullptr)
        .Break<8>("STARTUPINFO: its size", &unsizedStartup)
        .Break<8>("STARTUPINFO: the reserved members are zero", &reserved)
        .Break<9>("a place for the handles", nullptr);

    const LPTHREAD_START_ROUTINE start = [](void*) -> DWORD { return 0; };
    Calls<&CreateThread>()
        .Keep(nullptr, 0, start, nullptr, CREATE_SUSPENDED, nullptr)
        .Break<0>(security, &unsized)
        .Break<2>("a function", nullptr)
        .Break<4>("known flags", 1);
    Calls<&ResumeThread>().Keep(thread).Break<0>("the thread was opened with THREAD_SUSPEND_RESUME", limitedThread);
    Calls<&SuspendThread>().Keep(thread).Break<0>("the thread was opened with THREAD_SUSPEND_RESUME", limitedThread);
    CONTEXT context{};
    Calls<&GetThreadContext>()
        .Keep(thread, &context)
        .Break<0>("the thread was opened with THREAD_GET_CONTEXT", limitedThread)
        .Break<1>("CONTEXT: aligned on 16 bytes", nullptr);
    Calls<&SetThreadContext>()
        .Keep(thread, &context)
        .Break<0>("the thread was opened with THREAD_SET_CONTEXT", limitedThread)
        .Break<1>("CONTEXT: aligned on 16 bytes", nullptr);
    Calls<&GetThreadPriority>()
        .Keep(GetCurrentThread())
        .Break<0>("the thread was opened with THREAD_QUERY_INFORMATION", limitedThread);
    Calls<&SetThreadPriority>()
        .Keep(thread, THREAD_PRIORITY_TIME_CRITICAL)
        .Break<0>("the thread was opened with THREAD_SET_INFORMATION", limitedThread)
        .Break<1>("a thread's priority", 100);
    Calls<&SetThreadStackGuarantee>().Keep(Somewhere<ULONG>()).Break<0>("a size", nullptr);
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
        .Break<0>("an open handle", nullptr)
        .Break<0>("other objects have other functions that close them", Open(Kind::Search));
    Calls<&DuplicateHandle>()
        .Keep(GetCurrentProcess(), event, GetCurrentProcess(), &place, 0, FALSE, DUPLICATE_SAME_ACCESS)
        .Break<0>("the processes were opened with PROCESS_DUP_HANDLE", limited)
        .Break<1>("an open handle", nullptr)
        .Break<3>("a place for the handle", nullptr)
        .Break<6>("known options", 4);
    Calls<&GetHandleInformation>()
        .Keep(event, Somewhere<DWORD>())
        .Break<0>("an open handle", nullptr)
        .Break<1>("a place for the flags", nullptr);
    Calls<&WaitForSingleObject>().Keep(process, 0).Break<0>(waitable, key).Break<0>(synchronize, limited);
    Calls<&WaitForSingleObjectEx>().Keep(event, 0, FALSE).Break<0>(waitable, nullptr).Break<0>(synchronize, limited);
    const HANDLE good[] = {process, event};
    const HANDLE bad[] = {process, key};
    const HANDLE unable[] = {process, limited};
    Calls<&WaitForMultipleObjects>()
        .Keep(2, good, FALSE, 0)
        .Break<0>("1 to 64 objects", 0)
        .Break<1>(waitable, bad)
        .Break<1>(synchronize, unable);
    Calls<&CreateEventA>().Keep(nullptr, TRUE, FALSE, nullptr).Break<0>(security, &unsized);
    const std::wstring longName(MAX_PATH + 1, L'n');
    Calls<&CreateEventW>()
        .Keep(nullptr, TRUE, FALSE, nullptr)
        .Break<0>(security, &unsized)
        .Break<3>("a name of up to MAX_PATH characters", longName.c_str());
    Calls<&CreateEventExW>()
        .Keep(nullptr, nullptr, CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS)
        .Break<0>(security, &unsized)
        .Break<2>("known flags", 4)
        .Break<3>(rights, 0x04000000);
    Calls<&CreateMutexExW>()
        .Keep(nullptr, L"Global\\m", CREATE_MUTEX_INITIAL_OWNER, MUTEX_ALL_ACCESS)
        .Break<0>(security, &unsized)
        .Break<1>("a name of up to MAX_PATH characters", longName.c_str())
        .Break<1>("Kernel object namespaces: no backslash but that of the prefix Global or Local", L"global\\m")
        .Break<2>("no flag but CREATE_MUTEX_INITIAL_OWNER", 2)
        .Break<3>(rights, 0x04000000);
    Calls<&CreateSemaphoreA>()
        .Keep(nullptr, 0, 1, nullptr)
        .Break<0>(security, &unsized)
        .Break<2>("a maximum greater than 0", 0)
        .Break<1>("an initial count from 0 to the maximum", 2);
    Calls<&SetEvent>()
        .Keep(event)
        .Break<0>("an open event", process)
        .Break<0>("the event was opened with EVENT_MODIFY_STATE", Open(Kind::Event, SYNCHRONIZE));
    Calls<&ResetEvent>()
        .Keep(event)
        .Break<0>("an open event", nullptr)
        .Break<0>("the event was opened with EVENT_MODIFY_STATE", Open(Kind::Event, SYNCHRONIZE));
    Calls<&ReleaseSemaphore>()
        .Keep(Open(Kind::Semaphore, SEMAPHORE_ALL_ACCESS), 1, nullptr)
        .Break<0>("the semaphore was opened with SEMAPHORE_MODIFY_STATE", Open(Kind::Semaphore, SYNCHRONIZE))
        .Break<1>("a count greater than 0", 0);
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
        .Break<0>("a name", nullptr)
        .Break<0>("backslashes, no slashes", L"C:/a.dll")
        .Break<1>("the second parameter is reserved", other)
        .Break<2>("known flags", 4)
        .Break<2>("LOAD_WITH_ALTERED_SEARCH_PATH cannot be combined with LOAD_LIBRARY_SEARCH flags",
                  LOAD_WITH_ALTERED_SEARCH_PATH | LOAD_LIBRARY_SEARCH_SYSTEM32)
        .Break<2>("a full path for LOAD_WITH_ALTERED_SEARCH_PATH and LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR",
                  LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR);
    Calls<&LoadLibraryExA>()
        .Keep("a.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)
        .Break<0>("a name", nullptr)
        .Break<0>("backslashes, no slashes", "C:/a.dll")
        .Break<1>("the second parameter is reserved", other)
        .Break<2>("known flags", 4)
        .Break<2>("LOAD_WITH_ALTERED_SEARCH_PATH cannot be combined with LOAD_LIBRARY_SEARCH flags",
                  LOAD_WITH_ALTERED_SEARCH_PATH | LOAD_LIBRARY_SEARCH_SYSTEM32)
        .Break<2>("a full path for LOAD_WITH_ALTERED_SEARCH_PATH and LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR",
                  LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR);
    Calls<&LoadLibraryW>().Keep(L"a.dll").Break<0>("a name", nullptr).Break<0>("backslashes, no slashes", L"C:/a.dll");
    Calls<&FreeLibrary>().Keep(module).Break<0>("a module", nullptr);
    Calls<&GetProcAddress>().Keep(module, "a").Break<0>("a module", nullptr).Break<1>("a name or an ordinal", nullptr);
    Calls<&GetModuleFileNameW>().Keep(nullptr, wide, 4).Break<2>("a buffer", 0);
    Calls<&SetDefaultDllDirectories>()
        .Keep(LOAD_LIBRARY_SEARCH_SYSTEM32)
        .Break<0>("known flags", LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR)
        .Break<0>("a directory", 0);
    Calls<&FindResourceW>().Keep(nullptr, MAKEINTRESOURCEW(1), L"T").Break<1>("a name and a type", nullptr);
    Calls<&LoadResource>().Keep(nullptr, OpenAs<HRSRC>(Kind::Module)).Break<1>("a resource of FindResource", nullptr);
    Calls<&SizeofResource>().Keep(nullptr, OpenAs<HRSRC>(Kind::Module)).Break<1>("a resource of FindResource", nullptr);
    Calls<&LockResource>().Keep(other).Break<0>("a resource of LoadResource", nullptr);
    Calls<&GlobalAlloc>().Keep(GMEM_MOVEABLE, 4).Break<0>("known flags", 1);
    Calls<&GlobalLock>().Keep(memory).Break<0>(ofGlobalAlloc, nullptr);
    Calls<&GlobalUnlock>().Keep(memory).Break<0>(ofGlobalAlloc, other);
    Calls<&GlobalFree>().Keep(memory).Break<0>(ofGlobalAlloc, other);
    Calls<&GetEnvironmentVariableW>()
        .Keep(L"n", nullptr, 0)
        .Break<0>("a name", nullptr)
        .Break<2>("a buffer of that size", 4);
    PROCESS_MITIGATION_REDIRECTION_TRUST_POLICY policy{};
    Calls<&SetProcessMitigationPolicy>()
        .Keep(ProcessRedirectionTrustPolicy, &policy, sizeof(policy))
        .Break<0>("PROCESS_MITIGATION_POLICY: a known policy", std::bit_cast<PROCESS_MITIGATION_POLICY>(-1))
        .Break<2>("the size of the policy's structure", 8)
        .Break<1>("a policy", nullptr);
    Calls<&LocalFree>().Keep(nullptr).Break<0>("memory that LocalFree frees", Open(Kind::TaskMemory));
    Calls<&HeapAlloc>().Keep(other, HEAP_ZERO_MEMORY, 1).Break<0>("a heap", nullptr).Break<1>("known flags", 2);
    Calls<&HeapFree>()
        .Keep(other, 0, nullptr)
        .Break<0>("a heap", nullptr)
        .Break<1>("no flag but HEAP_NO_SERIALIZE", HEAP_ZERO_MEMORY)
        .Break<2>("memory of HeapAlloc", Open(Kind::TaskMemory));
    Calls<&VirtualProtect>()
        .Keep(nullptr, 1, PAGE_READWRITE, Somewhere<DWORD>())
        .Break<2>("Memory Protection Constants: one of them", PAGE_READWRITE | PAGE_READONLY)
        .Break<3>("a place for the previous protection", nullptr);
    Calls<&VirtualQuery>()
        .Keep(nullptr, Somewhere<MEMORY_BASIC_INFORMATION>(), sizeof(MEMORY_BASIC_INFORMATION))
        .Break<2>("room for a MEMORY_BASIC_INFORMATION", 4);
}

TEST_F(ContractTest, Of_the_system)
{
    FILETIME time{};
    OSVERSIONINFOEXW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    OSVERSIONINFOEXW unsized{};

    Calls<&VerSetConditionMask>()
        .Keep(0, VER_MAJORVERSION, VER_GREATER_EQUAL)
        .Break<1>("one member", VER_MAJORVERSION | VER_MINORVERSION)
        .Break<2>("a known condition", VER_AND);
    Calls<&VerifyVersionInfoW>()
        .Keep(&version, VER_MAJORVERSION | VER_MINORVERSION, 1)
        .Break<0>("OSVERSIONINFOEX: its size", &unsized)
        .Break<1>("known members", 0)
        .Break<2>("VerSetConditionMask: conditions", 0)
        .Break<1>("with the major version, also the minor version", VER_MAJORVERSION);
    Calls<&SetErrorMode>().Keep(SEM_FAILCRITICALERRORS).Break<0>("known flags", 0x10);
    Calls<&AddVectoredExceptionHandler>()
        .Keep(1, [](EXCEPTION_POINTERS*) -> LONG { return 0; })
        .Break<1>("a handler", nullptr);
    Calls<&RemoveVectoredExceptionHandler>().Keep(&time).Break<0>("a handle of AddVectoredExceptionHandler", nullptr);
    Calls<&GetLocalTime>().Keep(Somewhere<SYSTEMTIME>()).Break<0>("a place for the time", nullptr);
    Calls<&GetSystemTime>().Keep(Somewhere<SYSTEMTIME>()).Break<0>("a place for the time", nullptr);
    Calls<&GetSystemTimeAsFileTime>().Keep(&time).Break<0>("a place for the time", nullptr);
    Calls<&CompareFileTime>().Keep(&time, &time).Break<1>("two times", nullptr);
    Calls<&GetStartupInfoW>().Keep(Somewhere<STARTUPINFOW>()).Break<0>("a place for the information", nullptr);
    Calls<&GetNativeSystemInfo>().Keep(Somewhere<SYSTEM_INFO>()).Break<0>("a place for the information", nullptr);
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
        .Break<0>("the first parameter is reserved", &object)
        .Break<1>("COINIT: known flags", 1);
    Calls<&CoCreateInstance> creations;
    creations.Keep(id, nullptr, CLSCTX_INPROC_SERVER, id, &object)
        .Break<2>("CLSCTX: a kind of server", 0)
        .Break<2>("CLSCTX: known flags", CLSCTX_INPROC_SERVER | 0x40)
        .Break<2>("CLSCTX: code is downloaded or not",
                  CLSCTX_INPROC_SERVER | CLSCTX_NO_CODE_DOWNLOAD | CLSCTX_ENABLE_CODE_DOWNLOAD)
        .Break<2>("CLSCTX: activate-as-activator is enabled or disabled",
                  CLSCTX_INPROC_SERVER | CLSCTX_DISABLE_AAA | CLSCTX_ENABLE_AAA)
        .Break<4>("a place for the interface", nullptr)
        .Break<1>("IClassFactory::CreateInstance: an aggregated object gives IUnknown first", outer);
    auto* const name = reinterpret_cast<HSTRING>(&object);
    Calls<&RoGetActivationFactory> factories;
    factories.Keep(name, id, &object).Break<0>("a class's name", nullptr).Break<2>("a place for the factory", nullptr);
    {
        const WholeRun run;
        creations.Break(initialized, id, nullptr, CLSCTX_INPROC_SERVER, id, &object);
        factories.Break(initialized, name, id, &object);
        NoteInitialized(State::Com);
        creations.Keep(id, nullptr, CLSCTX_INPROC_SERVER, id, &object);
    }
    Calls<&CoCreateFreeThreadedMarshaler>()
        .Keep(nullptr, Somewhere<IUnknown*>())
        .Break<1>("a place for the marshaler", nullptr);
    Calls<&CoTaskMemFree>().Keep(nullptr).Break<0>("memory of CoTaskMemAlloc", Open(Kind::Text));
    Calls<&CreateStreamOnHGlobal>()
        .Keep(memory, TRUE, Somewhere<IStream*>())
        .Break<0>("memory of GlobalAlloc", Open(Kind::TaskMemory))
        .Break<0>("the memory was allocated as moveable", Open(Kind::GlobalMemory))
        .Break<2>("a place for the stream", nullptr);
    Calls<&SysFreeString>().Keep(nullptr).Break<0>(bstr, static_cast<BSTR>(Open(Kind::TaskMemory)));
    Calls<&SysStringLen>().Keep(nullptr).Break<0>(bstr, static_cast<BSTR>(Open(Kind::TaskMemory)));
    Calls<&VariantInit>().Keep(Somewhere<VARIANTARG>()).Break<0>("a variant", nullptr);
    VARIANTARG unknown{};
    unknown.vt = 0x0FFF;
    VARIANTARG text{};
    text.vt = VT_BSTR;
    text.bstrVal = static_cast<BSTR>(Open(Kind::TaskMemory));
    Calls<&VariantClear>()
        .Keep(Somewhere<VARIANTARG>())
        .Break<0>("a variant", nullptr)
        .Break<0>("VARENUM: a known type", &unknown)
        .Break<0>(bstr, &text);
    Calls<&SafeArrayCreateVector>()
        .Keep(VT_I4, 0, 2)
        .Break<0>("neither VT_ARRAY nor VT_BYREF", VT_ARRAY | VT_I4)
        .Break<0>("a type of elements", VT_EMPTY);
    SAFEARRAY array{};
    array.cDims = 1;
    array.rgsabound[0] = {.cElements = 2, .lLbound = 0};
    LONG index = 1;
    LONG beyond = 2;
    Calls<&SafeArrayPutElement>()
        .Keep(&array, &index, &object)
        .Break<0>("an array", nullptr)
        .Break<1>("an index", nullptr)
        .Break<2>("an element", nullptr)
        .Break<1>("an index within the bounds", &beyond);
    Calls<&GetErrorInfo>()
        .Keep(0, Somewhere<IErrorInfo*>())
        .Break<0>("the first parameter is reserved", 1)
        .Break<1>("a place for the error object", nullptr);
    Calls<&SetErrorInfo>().Keep(0, nullptr).Break<0>("the first parameter is reserved", 1);
}

TEST_F(ContractTest, Of_the_shell_and_UI_Automation)
{
    wchar_t* path = nullptr;
    const auto window = OpenAs<HWND>(Kind::Initialized);
    auto* const provider = reinterpret_cast<IRawElementProviderSimple*>(&path);

    Calls<&SHGetKnownFolderPath>()
        .Keep(FOLDERID_LocalAppData, KF_FLAG_DONT_VERIFY, Open(Kind::Token, TOKEN_QUERY | TOKEN_IMPERSONATE), &path)
        .Break<1>("KNOWN_FOLDER_FLAG: known flags", KF_FLAG_DONT_UNEXPAND)
        .Break<1>("KNOWN_FOLDER_FLAG: KF_FLAG_NOT_PARENT_RELATIVE needs KF_FLAG_DEFAULT_PATH",
                  KF_FLAG_NOT_PARENT_RELATIVE)
        .Break<1>("KNOWN_FOLDER_FLAG: KF_FLAG_INIT needs KF_FLAG_CREATE", KF_FLAG_INIT)
        .Break<2>("the token was opened with TOKEN_QUERY and TOKEN_IMPERSONATE", Open(Kind::Token, TOKEN_QUERY))
        .Break<3>("a place for the path", nullptr);
    Calls<&SHChangeNotify>()
        .Keep(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr)
        .Keep(SHCNE_DELETE, SHCNF_PATHW | SHCNF_FLUSHNOWAIT, L"f", nullptr)
        .Break<0>("an event, not SHCNE_INTERRUPT alone", static_cast<LONG>(SHCNE_INTERRUPT))
        .Break<1>("a kind of items", 4)
        .Break<1>("known flags", 0x100000)
        .Break<0>("SHCNE_ASSOCCHANGED needs SHCNF_IDLIST", SHCNE_ASSOCCHANGED)
        .Break("SHCNE_ASSOCCHANGED has no items", SHCNE_ASSOCCHANGED, SHCNF_IDLIST, L"f", nullptr)
        .Break<1>("an item needs SHCNF_IDLIST or SHCNF_PATH", SHCNF_DWORD)
        .Break<2>("an item", nullptr)
        .Break<3>("no second item", L"g");
    Calls<&ShellExecuteW>()
        .Keep(nullptr, nullptr, L"f", nullptr, nullptr, SW_SHOWNORMAL)
        .Break<2>("a file", nullptr)
        .Break<5>("a way to show it", 12);
    Calls<&UiaReturnRawElementProvider>()
        .Keep(window, 0, 0, nullptr)
        .Break<0>("a window", nullptr)
        .Break<1>("no provider only to disconnect", 1);
    Calls<&UiaHostProviderFromHwnd>()
        .Keep(window, Somewhere<IRawElementProviderSimple*>())
        .Break<0>("a window", nullptr)
        .Break<1>("a place for the provider", nullptr);
    Calls<&UiaRaiseAutomationEvent>()
        .Keep(provider, UIA_LiveRegionChangedEventId)
        .Break<0>("a provider", nullptr)
        .Break<1>("Event Identifiers: an event", UIA_NamePropertyId);
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
        .Break<0>("WNDCLASSEX: its size", with([](auto& c) { c.cbSize = 4; }))
        .Break<0>("WNDCLASSEX: a window procedure", with([](auto& c) { c.lpfnWndProc = nullptr; }))
        .Break<0>("WNDCLASSEX: an instance", with([](auto& c) { c.hInstance = nullptr; }))
        .Break<0>("WNDCLASSEX: a name", with([](auto& c) { c.lpszClassName = nullptr; }))
        .Break<0>("WNDCLASSEX: a name of up to 256 characters",
                  with([&](auto& c) { c.lpszClassName = longName.c_str(); }))
        .Break<0>("WNDCLASSEX: extra bytes are not negative", with([](auto& c) { c.cbWndExtra = -1; }));
    Calls<&UnregisterClassW>().Keep(MAKEINTATOM(1), instance).Break<0>("a class's name or atom", nullptr);
    Calls<&CreateWindowExW>()
        .Keep(0, L"c", L"t", WS_SYSMENU | WS_MINIMIZEBOX, 0, 0, 1, 1, nullptr, nullptr, instance, nullptr)
        .Break<1>("a class's name or atom", nullptr)
        .Break<3>("a child has a parent", WS_CHILD)
        .Break("Window Styles: WS_CHILD or WS_POPUP, not both", 0, L"c", L"t", WS_CHILD | WS_POPUP, 0, 0, 1, 1, window,
               nullptr, instance, nullptr)
        .Keep(0, L"c", L"t", WS_CHILD | WS_GROUP | WS_TABSTOP, 0, 0, 1, 1, window, nullptr, instance, nullptr)
        .Break<3>("Window Styles: a minimize or maximize button needs WS_SYSMENU", WS_MINIMIZEBOX)
        .Break("Window Styles: a minimize or maximize button, or WS_EX_CONTEXTHELP, not both", WS_EX_CONTEXTHELP, L"c",
               L"t", WS_SYSMENU | WS_MINIMIZEBOX, 0, 0, 1, 1, nullptr, nullptr, instance, nullptr);
    Calls<&DestroyWindow>()
        .Keep(window)
        .Break<0>("a window", nullptr)
        .Break<0>("a thread cannot destroy a window of another thread", theirs);
    Calls<&AdjustWindowRectEx>().Keep(&area, 0, FALSE, 0).Break<0>("a rectangle", nullptr);
    Calls<&GetWindowLongPtrW>().Keep(window, GWLP_USERDATA).Break<0>("a window", nullptr).Break<1>("a known index", -1);
    Calls<&SetWindowLongPtrW>().Keep(window, GWL_STYLE, 0).Break<0>("a window", nullptr).Break<1>("a known index", -1);
    Calls<&SetWindowPos>()
        .Keep(window, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE)
        .Break<0>("a window", nullptr)
        .Break<6>("known flags", 0x8000);
    Calls<&GetWindowRect>()
        .Keep(window, &area)
        .Break<0>("a window", nullptr)
        .Break<1>("a place for the rectangle", nullptr);
    Calls<&GetClientRect>()
        .Keep(window, &area)
        .Break<0>("a window", nullptr)
        .Break<1>("a place for the rectangle", nullptr);
    Calls<&InvalidateRect>().Keep(window, nullptr, TRUE).Keep(nullptr, nullptr, TRUE);
    Calls<&GetWindow>().Keep(window, GW_HWNDNEXT).Break<0>("a window", nullptr).Break<1>("a known relation", 7);
    Calls<&GetWindowThreadProcessId>().Keep(window, nullptr).Break<0>("a window", nullptr);
    Calls<&GetClassNameW>()
        .Keep(window, wide, 4)
        .Break<0>("a window", nullptr)
        .Break<2>("a buffer with room for the terminating null character", 0);
    Calls<&GetMessageW>()
        .Keep(&message, nullptr, 0, 0)
        .Break<0>("a place for the message", nullptr)
        .Break<1>("a window of this thread", theirs)
        .Break<3>("the high words of the filter are reserved", 0x10000);
    const char reserved[] = "WM_USER: messages above 0xFFFF are reserved";
    const char forAll[] = "WM_USER: messages of private window classes are not for other applications";
    Calls<&TranslateMessage>().Keep(&message).Break<0>("a message", nullptr);
    Calls<&DispatchMessageW>().Keep(&message).Break<0>("a message", nullptr);
    Calls<&DefWindowProcW>().Keep(window, WM_PAINT, 0, 0).Break<0>("a window", nullptr);
    Calls<&SendMessageW>()
        .Keep(window, WM_USER, 0, 0)
        .Break<0>("a window", nullptr)
        .Break<1>(reserved, 0x10000)
        .Break<0>(forAll, HWND_BROADCAST);
    Calls<&SendMessageTimeoutW>()
        .Keep(HWND_BROADCAST, WM_SETTINGCHANGE, 0, 0, SMTO_BLOCK, 1000, nullptr)
        .Break<0>("a window", nullptr)
        .Break<1>(reserved, 0x10000)
        .Break<1>(forAll, WM_USER)
        .Break<4>("known flags", 4);
    Calls<&PostMessageW>()
        .Keep(window, WM_COMMAND, 1, 0)
        .Keep(HWND_BROADCAST, WM_NULL, 0, 0)
        .Break<1>(reserved, 0x10000)
        .Break<1>(forAll, WM_USER)
        .Break("a message with a pointer cannot be posted", window, WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&area))
        .Break<1>("PostQuitMessage posts WM_QUIT", WM_QUIT);
    Calls<&MessageBoxW>()
        .Keep(nullptr, L"t", L"c", MB_ICONINFORMATION)
        .Keep(nullptr, nullptr, nullptr, MB_SERVICE_NOTIFICATION)
        .Break<3>("one kind of buttons, one icon, one default button, one modality", 7)
        .Break<3>("known options", 0x00400000)
        .Break<0>("MB_SERVICE_NOTIFICATION: no owner", window);
    Calls<&LoadIconW>()
        .Keep(instance, L"i")
        .Break<1>("an icon's name", nullptr)
        .Break<0>("without an instance, one of the system's icons", nullptr);
    Calls<&LoadCursorW>()
        .Keep(nullptr, IDC_ARROW)
        .Break<1>("a cursor's name", nullptr)
        .Break<1>("without an instance, one of the system's cursors", L"c");
    Calls<&DwmExtendFrameIntoClientArea>()
        .Keep(window, Somewhere<MARGINS>())
        .Break<0>("a window", nullptr)
        .Break<1>("margins", nullptr);
    Calls<&DwmSetWindowAttribute>()
        .Keep(window, 20, &area, sizeof(BOOL))
        .Break<0>("a window", nullptr)
        .Break<1>("DWMWINDOWATTRIBUTE: an attribute that can be set", DWMWA_CLOAKED)
        .Break<2>("a value of that size", nullptr)
        .Break<3>("DWMWINDOWATTRIBUTE: a BOOL for the dark mode", 1);
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
        .Break<0>("TASKDIALOGCONFIG: its size", with([](auto& d) { d.cbSize = 4; }))
        .Break<0>("TASKDIALOGCONFIG: known flags",
                  with([](auto& d) { d.dwFlags = std::bit_cast<TASKDIALOG_FLAGS>(0x800000); }))
        .Break<0>("TASKDIALOGCONFIG: known common buttons",
                  with([](auto& d) { d.dwCommonButtons = std::bit_cast<TASKDIALOG_COMMON_BUTTON_FLAGS>(0x40); }))
        .Break<0>("TASKDIALOGCONFIG: as many buttons as it says", with([](auto& d) { d.cRadioButtons = 1; }))
        .Break<0>("TASKDIALOGCONFIG: the icon's resource ID", with([](auto& d) { d.pszMainIcon = L"i"; }))
        .Break<0>("TASKDIALOGCONFIG: the footer icon's resource ID", with([](auto& d) {
                      d.pszFooter = L"f";
                      d.pszFooterIcon = L"i";
                  }));
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

    Calls<&ReleaseDC>().Keep(window, dc).Break<1>("a device context of GetDC", other);
    Calls<&GetDeviceCaps>().Keep(dc, LOGPIXELSX).Break<0>("a device context", nullptr).Break<1>("a known item", -1);
    Calls<&BeginPaint>()
        .Keep(window, &paint)
        .Break<0>("a window", nullptr)
        .Break<0>("in response to WM_PAINT, which the thread of the window receives", theirs)
        .Break<1>("a place for the information", nullptr);
    Calls<&EndPaint>()
        .Keep(window, &paint)
        .Break<0>("a window", nullptr)
        .Break<1>("the information of BeginPaint", &notBegun);
    BP_PAINTPARAMS parameters{
        .cbSize = sizeof(parameters), .dwFlags = BPPF_ERASE, .prcExclude = nullptr, .pBlendFunction = nullptr};
    BP_PAINTPARAMS unsized{};
    BP_PAINTPARAMS unknown = parameters;
    unknown.dwFlags = 8;
    HDC place = nullptr;
    const char matched[] = "BufferedPaintInit: each call is matched with one of BufferedPaintUnInit";
    Calls<&BeginBufferedPaint>()
        .Keep(dc, &area, BPBF_TOPDOWNDIB, &parameters, &place)
        .Break<0>("a device context", nullptr)
        .Break<1>("a rectangle", nullptr)
        .Break<2>("BP_BUFFERFORMAT: a known format", std::bit_cast<BP_BUFFERFORMAT>(9))
        .Break<3>("BP_PAINTPARAMS: its size", &unsized)
        .Break<3>("BP_PAINTPARAMS: known flags", &unknown)
        .Break<4>("a place for the device context", nullptr);
    Calls<&BufferedPaintUnInit> endings;
    endings.Keep();
    {
        const WholeRun run;
        endings.Break(matched);
        NoteInitialized(State::BufferedPaint);
        endings.Keep();
    }
    const auto buffer = OpenAs<HPAINTBUFFER>(Kind::PaintBuffer);
    Calls<&BufferedPaintSetAlpha>().Keep(buffer, &area, 255).Break<0>("a buffer of BeginBufferedPaint", nullptr);
    Calls<&EndBufferedPaint>()
        .Keep(buffer, TRUE)
        .Break<0>("a buffer of BeginBufferedPaint", OpenAs<HPAINTBUFFER>(Kind::File));
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
        .Break<0>("a place for the token", nullptr)
        .Break<1>("GdiplusStartupInput: version 1", &otherVersion)
        .Break<1>("GdiplusStartupInput: an output where the background thread is suppressed", &withoutThread);

    const RectF area;
    Calls<&GdipCreateFont>()
        .Keep(nullptr, 12, FontStyleRegular, UnitPoint, Somewhere<GpFont*>())
        .Break<4>(place, nullptr)
        .Break<1>("System.Drawing.Font: a size greater than 0", 0)
        .Break<2>("FontStyle: known styles", 0x10)
        .Break<3>("Unit: a known unit", std::bit_cast<Unit>(7))
        .BreakInWholeRun(started);
    Calls<&GdipDrawString>()
        .Keep(nullptr, L"a", -1, nullptr, &area, nullptr, nullptr)
        .Break<4>("Graphics::DrawString: a rectangle", nullptr)
        .Break<1>("Graphics::DrawString: a text", nullptr)
        .Break<2>("Graphics::DrawString: a length, or -1 for a null-terminated text", -2)
        .BreakInWholeRun(started);

    Calls<&GdipCloneBrush>().Keep(nullptr, Somewhere<GpBrush*>()).Break<1>(place, nullptr).BreakInWholeRun(started);
    Calls<&GdipCloneImage>().Keep(nullptr, Somewhere<GpImage*>()).Break<1>(place, nullptr).BreakInWholeRun(started);
    Calls<&GdipCreateBitmapFromStream>()
        .Keep(nullptr, Somewhere<GpBitmap*>())
        .Break<1>(place, nullptr)
        .BreakInWholeRun(started);
    Calls<&GdipCreateFontFamilyFromName>()
        .Keep(nullptr, nullptr, Somewhere<GpFontFamily*>())
        .Break<2>(place, nullptr)
        .BreakInWholeRun(started);
    Calls<&GdipCreateFromHDC>()
        .Keep(nullptr, Somewhere<GpGraphics*>())
        .Break<1>(place, nullptr)
        .BreakInWholeRun(started);
    Calls<&GdipCreateSolidFill>().Keep(0, Somewhere<GpSolidFill*>()).Break<1>(place, nullptr).BreakInWholeRun(started);
    Calls<&GdipCreateStringFormat>()
        .Keep(0, 0, Somewhere<GpStringFormat*>())
        .Break<2>(place, nullptr)
        .BreakInWholeRun(started);

    Calls<&GdiplusShutdown>().Keep(token).BreakInWholeRun(started);
    Calls<&GdipAlloc>().Keep(1).BreakInWholeRun(started);
    Calls<&GdipFree>().Keep(nullptr).BreakInWholeRun(started);
    Calls<&GdipDeleteBrush>().Keep(nullptr).BreakInWholeRun(started);
    Calls<&GdipDeleteFont>().Keep(nullptr).BreakInWholeRun(started);
    Calls<&GdipDeleteFontFamily>().Keep(nullptr).BreakInWholeRun(started);
    Calls<&GdipDeleteGraphics>().Keep(nullptr).BreakInWholeRun(started);
    Calls<&GdipDeleteStringFormat>().Keep(nullptr).BreakInWholeRun(started);
    Calls<&GdipDisposeImage>().Keep(nullptr).BreakInWholeRun(started);
    Calls<&GdipDrawImageRect>().Keep(nullptr, nullptr, 0, 0, 1, 1).BreakInWholeRun(started);
    Calls<&GdipFillRectangle>().Keep(nullptr, nullptr, 0, 0, 1, 1).BreakInWholeRun(started);

    Calls<&GdipSetCompositingQuality>()
        .Keep(nullptr, CompositingQualityHighQuality)
        .Break<1>(known, std::bit_cast<CompositingQuality>(9))
        .BreakInWholeRun(started);
    Calls<&GdipSetInterpolationMode>()
        .Keep(nullptr, InterpolationModeHighQualityBicubic)
        .Break<1>(known, std::bit_cast<InterpolationMode>(8))
        .BreakInWholeRun(started);
    Calls<&GdipSetPixelOffsetMode>()
        .Keep(nullptr, PixelOffsetModeHighQuality)
        .Break<1>(known, std::bit_cast<PixelOffsetMode>(5))
        .BreakInWholeRun(started);
    Calls<&GdipSetSmoothingMode>()
        .Keep(nullptr, SmoothingModeHighQuality)
        .Break<1>(known, std::bit_cast<SmoothingMode>(9))
        .BreakInWholeRun(started);
    Calls<&GdipSetTextRenderingHint>()
        .Keep(nullptr, TextRenderingHintClearTypeGridFit)
        .Break<1>(known, std::bit_cast<TextRenderingHint>(6))
        .BreakInWholeRun(started);
    Calls<&GdipSetStringFormatAlign>()
        .Keep(nullptr, StringAlignmentCenter)
        .Break<1>(known, std::bit_cast<StringAlignment>(3))
        .BreakInWholeRun(started);
    Calls<&GdipSetStringFormatLineAlign>()
        .Keep(nullptr, StringAlignmentCenter)
        .Break<1>(known, std::bit_cast<StringAlignment>(3))
        .BreakInWholeRun(started);
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
