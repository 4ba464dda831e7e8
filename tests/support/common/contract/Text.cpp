// Text: encodings, comparisons, messages.
#include "support/common/contract/Contract.h"
#include "support/common/contract/OpenObjects.h"

#include <shellapi.h>

namespace Testing
{

namespace
{

constexpr UINT c_gb18030 = 54936;

UINT ActualCodePage(UINT codePage)
{
    return codePage == CP_ACP ? GetACP() : codePage;
}

bool ChecksInvalidText(UINT codePage)
{
    return IsOneOf(ActualCodePage(codePage), CP_UTF8, c_gb18030);
}

// The code pages that know no flags at all.
bool HasNoFlags(UINT codePage)
{
    return IsOneOf(codePage, 50220U, 50221U, 50222U, 50225U, 50227U, 50229U, CP_UTF7, CP_SYMBOL) ||
           (codePage >= 57002 && codePage <= 57011);
}

const Contract<&MultiByteToWideChar> s_multiByteToWideChar = [](UINT codePage, DWORD flags, LPCCH text, int length,
                                                                LPWSTR buffer, int size) {
    return Verdict{
        {HasOnly(flags, MB_PRECOMPOSED | MB_COMPOSITE | MB_USEGLYPHCHARS | MB_ERR_INVALID_CHARS), "known flags"},
        {HasAtMostOneOf(flags, MB_PRECOMPOSED | MB_COMPOSITE), "MB_PRECOMPOSED or MB_COMPOSITE, not both"},
        {flags == 0 || !HasNoFlags(codePage), "this code page takes no flags"},
        {HasOnly(flags, MB_ERR_INVALID_CHARS) || !ChecksInvalidText(codePage),
         "UTF-8 and GB18030 take no flag but MB_ERR_INVALID_CHARS"},
        {text != nullptr, "there is a text"},
        {length != 0, "the text's length is not 0"},
        {length >= -1, "the text's length is -1 or positive"},
        {size >= 0, "the buffer's size is not negative"},
        {buffer != nullptr || size <= 0, "a buffer of that size"},
        {static_cast<const void*>(text) != buffer, "text and buffer are not the same"},
    };
};

const Contract<&WideCharToMultiByte> s_wideCharToMultiByte = [](UINT codePage, DWORD flags, LPCWCH text, int length,
                                                                LPSTR buffer, int size, LPCCH replacement,
                                                                LPBOOL isReplaced) {
    constexpr DWORD c_composites = WC_COMPOSITECHECK | WC_DISCARDNS | WC_SEPCHARS | WC_DEFAULTCHAR;
    const bool isUnicode = IsOneOf(ActualCodePage(codePage), CP_UTF7, CP_UTF8);
    return Verdict{
        {HasOnly(flags, c_composites | WC_ERR_INVALID_CHARS | WC_NO_BEST_FIT_CHARS), "known flags"},
        {flags == 0 || !HasNoFlags(codePage), "this code page takes no flags"},
        {HasOnly(flags, WC_ERR_INVALID_CHARS) || !ChecksInvalidText(codePage),
         "UTF-8 and GB18030 take no flag but WC_ERR_INVALID_CHARS"},
        {!HasAll(flags, WC_ERR_INVALID_CHARS) || ChecksInvalidText(codePage),
         "WC_ERR_INVALID_CHARS is for UTF-8 and GB18030"},
        {replacement == nullptr || !isUnicode, "UTF-7 and UTF-8 have no default character"},
        {isReplaced == nullptr || !isUnicode, "UTF-7 and UTF-8 do not tell whether the default character was used"},
        {text != nullptr, "there is a text"},
        {length != 0, "the text's length is not 0"},
        {length >= -1, "the text's length is -1 or positive"},
        {size >= 0, "the buffer's size is not negative"},
        {buffer != nullptr || size <= 0, "a buffer of that size"},
        {static_cast<const void*>(text) != buffer, "text and buffer are not the same"},
    };
};

const Contract<&CompareStringOrdinal> s_compareStringOrdinal = [](LPCWCH text, int length, LPCWCH other,
                                                                  int otherLength, BOOL) {
    return Verdict{
        {text != nullptr && other != nullptr, "there are two texts"},
        {length >= -1 && otherLength >= -1, "a length is -1 or not negative"},
    };
};

Verdict JudgeMessage(DWORD flags, const void* source, const void* buffer, DWORD size, std::size_t character)
{
    constexpr DWORD c_sources = FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_FROM_SYSTEM;
    constexpr DWORD c_options =
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_ARGUMENT_ARRAY | FORMAT_MESSAGE_IGNORE_INSERTS;
    return {
        {HasOnly(flags, c_sources | c_options | FORMAT_MESSAGE_MAX_WIDTH_MASK), "known flags"},
        {(flags & c_sources) != 0, "a source of the message"},
        {!HasAll(flags, FORMAT_MESSAGE_FROM_STRING) ||
             (flags & (FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_FROM_SYSTEM)) == 0,
         "FORMAT_MESSAGE_FROM_STRING is no other source's flag"},
        {!HasAll(flags, FORMAT_MESSAGE_FROM_STRING) || source != nullptr, "the string for FORMAT_MESSAGE_FROM_STRING"},
        {buffer != nullptr, "there is a buffer"},
        {size != 0 || HasAll(flags, FORMAT_MESSAGE_ALLOCATE_BUFFER), "the buffer's size"},
        {size * character <= 0x10000, "the buffer is not larger than 64 KB"},
    };
}

const Contract<&FormatMessageW> s_formatMessageW{
    [](DWORD flags, LPCVOID source, DWORD, DWORD, LPWSTR buffer, DWORD size, va_list* arguments) {
        return JudgeMessage(flags, source, buffer, size, sizeof(wchar_t))
            .Add({{arguments != nullptr || HasAll(flags, FORMAT_MESSAGE_IGNORE_INSERTS),
                   "without arguments, FORMAT_MESSAGE_IGNORE_INSERTS"}});
    },
    [](DWORD length, DWORD flags, LPCVOID, DWORD, DWORD, LPWSTR buffer, DWORD, va_list*) {
        if (length != 0 && HasAll(flags, FORMAT_MESSAGE_ALLOCATE_BUFFER))
        {
            NoteOpened(GetImportSlot(buffer), Kind::LocalMemory);
        }
    }};

// libstdc++ asks for the text of an error so: without arguments, a message with inserts is refused, and it has another.
const Contract<&FormatMessageA> s_formatMessageA{
    [](DWORD flags, LPCVOID source, DWORD, DWORD, LPSTR buffer, DWORD size, va_list*) {
        return JudgeMessage(flags, source, buffer, size, sizeof(char));
    },
    [](DWORD length, DWORD flags, LPCVOID, DWORD, DWORD, LPSTR buffer, DWORD, va_list*) {
        if (length != 0 && HasAll(flags, FORMAT_MESSAGE_ALLOCATE_BUFFER))
        {
            NoteOpened(GetImportSlot(buffer), Kind::LocalMemory);
        }
    }};

const Contract<&IsDBCSLeadByteEx> s_isDbcsLeadByteEx = [](UINT codePage, BYTE) {
    return Verdict{{codePage != CP_UTF7 && codePage != CP_UTF8, "a double-byte code page"}};
};

const Contract<&CommandLineToArgvW> s_commandLineToArgv{
    [](LPCWSTR commandLine, int* count) {
        return Verdict{
            {commandLine != nullptr, "there is a command line"},
            {count != nullptr, "there is a place for the number of arguments"},
        };
    },
    [](LPWSTR* arguments, LPCWSTR, int*) { NoteOpened(arguments, Kind::LocalMemory); }};

const Contract<&OutputDebugStringA> s_outputDebugStringA = [](LPCSTR text) {
    return Verdict{{text != nullptr, "there is a text"}};
};

const Contract<&OutputDebugStringW> s_outputDebugStringW = [](LPCWSTR text) {
    return Verdict{{text != nullptr, "there is a text"}};
};

} // namespace

} // namespace Testing
