#include "internet/internet_exception.h"

#include "tests/internet/exchange.h"
#include "tests/support/debuggee.h"
#include "tests/support/import_patch.h"
#include "tests/support/virtual_slot.h"

#include <catch.hpp>

#include <array>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using namespace velt::test;

namespace
{
using FormatPatch = ImportPatch<"FormatMessageW", decltype(::FormatMessageW)>;
using LoadPatch = ImportPatch<"LoadLibraryExW", decltype(::LoadLibraryExW)>;
using FreePatch = ImportPatch<"FreeLibrary", decltype(::FreeLibrary)>;
using LocalAllocPatch = ImportPatch<"LocalAlloc", decltype(::LocalAlloc)>;
using ResponsePatch =
    ImportPatch<"InternetGetLastResponseInfoW", decltype(::InternetGetLastResponseInfoW)>;
using OpenPatch = ImportPatch<"InternetOpenW", decltype(::InternetOpenW)>;

constexpr DWORD kUnknownCode = 0x2EEEEEEE;
constexpr wchar_t kUnwritten = 0xCCCC;

/// What GetErrorMessage answers.
struct Message
{
    bool succeeded;
    std::wstring text;
    UINT helpContext;
};

Message MessageOf(DWORD code, UINT capacity = 512)
{
    std::vector<wchar_t> buffer(capacity + 1, kUnwritten);
    Message message{false, {}, 0xCCCCCCCC};
    message.succeeded =
        CInternetException(code).GetErrorMessage(buffer.data(), capacity, &message.helpContext);
    message.text = buffer.data();
    CHECK(message.text.size() < capacity);
    CHECK(buffer[capacity] == kUnwritten);
    return message;
}

/// The text of a code in the system's own table, as it stands there.
std::wstring SystemText(DWORD code)
{
    std::array<wchar_t, 1024> text{};
    ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code,
                     MAKELANGID(LANG_NEUTRAL, SUBLANG_SYS_DEFAULT), text.data(),
                     static_cast<DWORD>(text.size()), nullptr);
    return text.data();
}

/// Has the internet API's library answer for every code with a text, made in the way that the
/// system makes one; null for none.
class ModuleText
{
public:
    explicit ModuleText(const wchar_t* text)
        : m_patch("kernel32.dll",
                  [text](DWORD flags, const void* source, DWORD code, DWORD language,
                         wchar_t* buffer, DWORD size, va_list* arguments) -> DWORD {
                      if ((flags & FORMAT_MESSAGE_FROM_HMODULE) == 0)
                      {
                          return FormatPatch::Original(flags, source, code, language, buffer, size,
                                                       arguments);
                      }
                      if (!text)
                      {
                          return 0;
                      }
                      const auto length = static_cast<std::size_t>(::lstrlenW(text));
                      auto* const copy = static_cast<wchar_t*>(
                          ::LocalAlloc(LMEM_FIXED, (length + 1) * sizeof(wchar_t)));
                      ::lstrcpyW(copy, text);
                      *reinterpret_cast<wchar_t**>(buffer) = copy;
                      return static_cast<DWORD>(length);
                  })
    {
    }

private:
    FormatPatch m_patch;
};

/// Has the internet API answer with a server's last response, as it does after a failure.
class LastResponse
{
public:
    explicit LastResponse(std::wstring response, DWORD firstError = ERROR_INSUFFICIENT_BUFFER)
        : m_patch("wininet.dll", [text = std::move(response),
                                  firstError](DWORD* error, wchar_t* buffer, DWORD* length) {
              *error = 0;
              if (!buffer || *length < text.size())
              {
                  *length = static_cast<DWORD>(text.size());
                  ::SetLastError(firstError);
                  return firstError == ERROR_SUCCESS ? TRUE : FALSE;
              }
              std::memcpy(buffer, text.data(), text.size() * sizeof(wchar_t));
              *length = static_cast<DWORD>(text.size());
              return TRUE;
          })
    {
    }

private:
    ResponsePatch m_patch;
};
} // namespace

TEST_CASE("CInternetException: is the COM error of its code", "[internet]")
{
    const DWORD code = GENERATE(as<DWORD>{}, 0, 6, 12'007, 0x80004005);
    const CInternetException e(code);
    CHECK(e.GetCode() == code);
    CHECK(e.Error() == static_cast<HRESULT>(code));
    CHECK(e.GetDetail().empty());
    CHECK(CInternetException(code, "message").GetDetail() == "message");
    CHECK(CInternetException(code, "message").GetCode() == code);
    CHECK(std::is_base_of_v<_com_error, CInternetException>);
}

TEST_CASE("CInternetException: a copy is whole", "[internet]")
{
    const CInternetException original(12'007, "message");
    const CInternetException copy(original);
    CHECK(copy.GetCode() == 12'007);
    CHECK(copy.Error() == 12'007);
    CHECK(copy.GetDetail() == "message");
    CInternetException assigned(1);
    assigned = copy;
    CHECK(assigned.GetCode() == 12'007);
    CHECK(assigned.Error() == 12'007);
    CHECK(assigned.GetDetail() == "message");
}

TEST_CASE("CInternetException: the text of a code is the internet API's", "[internet]")
{
    const ModuleText module(L"name not resolved\r\n");
    const Message message = MessageOf(ERROR_INTERNET_NAME_NOT_RESOLVED);
    CHECK(message.succeeded);
    CHECK(message.text == L"name not resolved\r\n"); // as it stands
    CHECK(message.helpContext == 0);
}

TEST_CASE("CInternetException: the real text of a code of the internet API", "[internet]")
{
    const Message message = MessageOf(ERROR_INTERNET_NAME_NOT_RESOLVED);
    if (message.succeeded)
    {
        CHECK_FALSE(message.text.empty());
    }
    else
    {
        WARN("this system has no texts of the internet API");
        CHECK(message.text.empty());
    }
}

TEST_CASE("CInternetException: asks the library for the code in the system's language",
          "[internet]")
{
    std::vector<DWORD> seen;
    HMODULE module = nullptr;
    const FormatPatch patch("kernel32.dll",
                            [&](DWORD flags, const void* source, DWORD code, DWORD language,
                                wchar_t*, DWORD, va_list*) -> DWORD {
                                seen.insert(seen.end(), {flags, code, language});
                                if (source)
                                {
                                    module = static_cast<HMODULE>(const_cast<void*>(source));
                                }
                                return 0;
                            });
    CHECK_FALSE(MessageOf(12'029).succeeded);
    const DWORD language = MAKELANGID(LANG_NEUTRAL, SUBLANG_SYS_DEFAULT);
    CHECK(seen == std::vector<DWORD>{FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_HMODULE,
                                     12'029, language,
                                     FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM,
                                     12'029, language});
    CHECK(module == ::GetModuleHandleW(L"wininet.dll"));
}

TEST_CASE("CInternetException: without a text of the internet API it is the system's", "[internet]")
{
    const ModuleText module(nullptr);
    const DWORD code = GENERATE(as<DWORD>{}, ERROR_FILE_NOT_FOUND, ERROR_INVALID_HANDLE);
    const Message message = MessageOf(code);
    CHECK(message.succeeded);
    CHECK(message.text == SystemText(code));
    CHECK_FALSE(message.text.empty());
    CHECK(message.helpContext == 0);
}

TEST_CASE("CInternetException: without the library it is the system's text", "[internet]")
{
    const LoadPatch patch("kernel32.dll", [](const wchar_t*, HANDLE, DWORD) -> HMODULE {
        ::SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    });
    const Message message = MessageOf(ERROR_FILE_NOT_FOUND);
    CHECK(message.succeeded);
    CHECK(message.text == SystemText(ERROR_FILE_NOT_FOUND));
    CHECK(patch.Calls() == 1);
}

TEST_CASE("CInternetException: the library comes from the system's folder, and is given back",
          "[internet]")
{
    std::wstring name;
    DWORD loadFlags = 0;
    HMODULE loaded = nullptr;
    const LoadPatch patch("kernel32.dll", [&](const wchar_t* file, HANDLE reserved, DWORD flags) {
        name = file;
        loadFlags = flags;
        loaded = LoadPatch::Original(file, reserved, flags);
        return loaded;
    });
    std::vector<HMODULE> freed;
    const FreePatch freePatch("kernel32.dll", [&](HMODULE module) {
        freed.push_back(module);
        return FreePatch::Original(module);
    });
    MessageOf(ERROR_FILE_NOT_FOUND);
    MessageOf(kUnknownCode);
    CHECK(name == L"WININET.DLL");
    CHECK(loadFlags == LOAD_LIBRARY_SEARCH_SYSTEM32);
    CHECK(freed == std::vector<HMODULE>{loaded, loaded});
}

TEST_CASE("CInternetException: an unknown code has an empty text", "[internet]")
{
    const Message message = MessageOf(kUnknownCode);
    CHECK_FALSE(message.succeeded);
    CHECK(message.text.empty());
    CHECK(message.helpContext == 0);
}

TEST_CASE("CInternetException: the text is cut to the capacity", "[internet]")
{
    const UINT capacity = GENERATE(1u, 2u, 5u, 6u, 7u, 8u);
    const ModuleText module(L"abcdef");
    const Message message = MessageOf(12'029, capacity);
    CHECK(message.succeeded);
    CHECK(message.text == std::wstring(L"abcdef").substr(0, capacity - 1));
}

TEST_CASE("CInternetException: a capacity beyond any text is no harm", "[internet]")
{
    const ModuleText module(L"abcdef");
    std::array<wchar_t, 8> buffer{};
    CHECK(CInternetException(12'029).GetErrorMessage(buffer.data(), 0xFFFFFFFF));
    CHECK(buffer.data() == std::wstring(L"abcdef"));
}

TEST_CASE("CInternetException: without a place for the text it fails", "[internet]")
{
    UINT helpContext = 0xCCCCCCCC;
    wchar_t character = kUnwritten;
    CHECK_FALSE(CInternetException(6).GetErrorMessage(nullptr, 10, &helpContext));
    CHECK(helpContext == 0);
    helpContext = 0xCCCCCCCC;
    CHECK_FALSE(CInternetException(6).GetErrorMessage(&character, 0, &helpContext));
    CHECK(helpContext == 0);
    CHECK(character == kUnwritten);
    CHECK_FALSE(CInternetException(6).GetErrorMessage(nullptr, 0));
    CHECK(CInternetException(6).GetErrorMessage(&character, 1)); // nobody asks for help
    CHECK(character == L'\0');
}

TEST_CASE("CInternetException: of an extended error the text is the server's response",
          "[internet]")
{
    const ModuleText module(L"extended error");
    const auto [response, capacity, text] = GENERATE(table<std::wstring, UINT, std::wstring>({
        {L"550 no such file\r\n", 512, L"550 no such file\r\n"},
        {L"550 no such file\r\n", 4, L"550"},
        {L"550 no such file\r\n", 1, L""},
        {std::wstring(3000, L'x'), 512, std::wstring(511, L'x')},
        {L"x", 512, L"x"},
    }));
    const LastResponse last(response);
    const Message message = MessageOf(ERROR_INTERNET_EXTENDED_ERROR, capacity);
    CHECK(message.succeeded);
    CHECK(message.text == text);
    CHECK(message.helpContext == 0);
}

TEST_CASE("CInternetException: of an extended error without a response the text is empty",
          "[internet]")
{
    const ModuleText module(L"extended error");
    const DWORD error =
        GENERATE(as<DWORD>{}, ERROR_SUCCESS, ERROR_INVALID_HANDLE, ERROR_NOT_ENOUGH_MEMORY);
    const LastResponse last(L"", error);
    const Message message = MessageOf(ERROR_INTERNET_EXTENDED_ERROR);
    CHECK(message.succeeded);
    CHECK(message.text.empty());
}

TEST_CASE("CInternetException: a response that cannot be fetched, or kept, is an empty text",
          "[internet]")
{
    const ModuleText module(L"extended error");
    SECTION("the second call fails")
    {
        const ResponsePatch patch("wininet.dll", [](DWORD*, wchar_t*, DWORD* length) {
            *length = 10;
            ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        });
        const Message message = MessageOf(ERROR_INTERNET_EXTENDED_ERROR);
        CHECK(message.succeeded);
        CHECK(message.text.empty());
        CHECK(patch.Calls() == 2);
    }
    SECTION("there is no memory")
    {
        const LastResponse last(L"550 no such file");
        const LocalAllocPatch patch("kernel32.dll", [](UINT flags, SIZE_T size) -> HLOCAL {
            return flags == LMEM_ZEROINIT ? nullptr : LocalAllocPatch::Original(flags, size);
        });
        const Message message = MessageOf(ERROR_INTERNET_EXTENDED_ERROR);
        CHECK(message.succeeded);
        CHECK(message.text.empty());
    }
}

TEST_CASE("CInternetException: another code does not ask for the server's response", "[internet]")
{
    const ModuleText module(L"text");
    const ResponsePatch patch("wininet.dll", [](DWORD*, wchar_t*, DWORD*) { return FALSE; });
    CHECK(MessageOf(12'004).text == L"text");
    CHECK(patch.Calls() == 0);
}

TEST_CASE("CInternetException: GetErrorMessage stands behind the destructor's slots", "[internet]")
{
    CHECK(VirtualSlot(&CInternetException::GetErrorMessage) == 2);
}

TEST_CASE("CInternetException child: the first exception of a process", "[.child]")
{
    const OpenPatch patch("wininet.dll",
                          [](const wchar_t*, DWORD, const wchar_t*, const wchar_t*, DWORD) {
                              ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
                              return nullptr;
                          });
    DWORD lastError = 0;
    try
    {
        const CInternetSession session(L"", 1, 1, nullptr, nullptr, 0);
    }
    catch (const CInternetException&)
    {
        lastError = ::GetLastError();
    }
    CHECK(lastError == ERROR_NOT_ENOUGH_MEMORY);
}

TEST_CASE("CInternetException: the first one of a process leaves the thread's last error",
          "[internet]")
{
    CHECK(RunInChild("CInternetException child: the first exception of a process") == 0);
}
