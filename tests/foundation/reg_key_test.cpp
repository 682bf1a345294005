#include "foundation/reg_key.h"

#include "tests/support/import_patch.h"

#include <catch.hpp>

#include <array>
#include <string>
#include <vector>

namespace
{
constexpr wchar_t kRoot[] = L"Software\\Velt\\Tests\\CRegKeyW";

/// The tests' own key, empty at the beginning and gone at the end; and the system's calls, to read
/// back what was written and to write what the class does not.
class TestKey
{
public:
    TestKey()
    {
        ::RegDeleteTreeW(HKEY_CURRENT_USER, kRoot);
        REQUIRE(::RegCreateKeyExW(HKEY_CURRENT_USER, kRoot, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                  &m_key, nullptr) == ERROR_SUCCESS);
    }

    TestKey(const TestKey&) = delete;
    TestKey& operator=(const TestKey&) = delete;

    ~TestKey()
    {
        ::RegCloseKey(m_key);
        ::RegDeleteTreeW(HKEY_CURRENT_USER, kRoot);
    }

    HKEY Get() const noexcept
    {
        return m_key;
    }

    /// Writes just these bytes.
    void Write(const wchar_t* name, DWORD type, std::vector<BYTE> data) const
    {
        const auto size = static_cast<DWORD>(data.size());
        // To a text without its NUL the system adds one that happens to stand behind it.
        data.insert(data.end(), {'x', 'x'});
        REQUIRE(::RegSetValueExW(m_key, name, 0, type, data.data(), size) == ERROR_SUCCESS);
        DWORD written = 0;
        REQUIRE(::RegQueryValueExW(m_key, name, nullptr, nullptr, nullptr, &written) ==
                ERROR_SUCCESS);
        REQUIRE(written == size);
    }

    void WriteText(const wchar_t* name, DWORD type, const std::wstring& text) const
    {
        const auto* bytes = reinterpret_cast<const BYTE*>(text.c_str());
        Write(name, type, {bytes, bytes + (text.size() + 1) * sizeof(wchar_t)});
    }

    DWORD TypeOf(const wchar_t* name) const
    {
        DWORD type = REG_NONE;
        ::RegQueryValueExW(m_key, name, nullptr, &type, nullptr, nullptr);
        return type;
    }

    /// The wide text of a value with all its NULs.
    std::wstring TextOf(const wchar_t* name) const
    {
        std::array<wchar_t, 256> text{};
        DWORD size = sizeof(text);
        if (::RegQueryValueExW(m_key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text.data()),
                               &size) != ERROR_SUCCESS)
        {
            return L"(none)";
        }
        return {text.data(), size / sizeof(wchar_t)};
    }

private:
    HKEY m_key = nullptr;
};

bool IsOpen(HKEY key)
{
    return ::RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

std::wstring ClassOf(HKEY key)
{
    std::array<wchar_t, 64> name{};
    auto length = static_cast<DWORD>(name.size());
    ::RegQueryInfoKeyW(key, name.data(), &length, nullptr, nullptr, nullptr, nullptr, nullptr,
                       nullptr, nullptr, nullptr, nullptr);
    return name.data();
}

/// A key of the class on the tests' own key.
struct OpenKey
{
    TestKey test;
    CRegKeyW key;

    OpenKey()
    {
        REQUIRE(key.Open(HKEY_CURRENT_USER, kRoot) == ERROR_SUCCESS);
    }
};

/// An HKEY that never was one.
HKEY NoKey()
{
    return reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x7F0F1234));
}
} // namespace

TEST_CASE("CRegKeyW: a new one has no key, and its operations say so", "[foundation]")
{
    CRegKeyW key;
    CHECK(key.GetKey() == nullptr);
    DWORD value = 77;
    DWORD size = 4;
    std::array<char, 4> text{"abc"};
    CHECK(key.QueryDWORDValue(L"a", &value) == ERROR_INVALID_HANDLE);
    CHECK(value == 77);
    CHECK(key.SetDWORDValue(L"a", 1) == ERROR_INVALID_HANDLE);
    CHECK(key.QueryStringValue(L"a", text.data(), &size) == ERROR_INVALID_HANDLE);
    CHECK(key.SetStringValue(L"a", L"b") == ERROR_INVALID_HANDLE);
    CHECK_NOTHROW(key.DeleteSubKey(L"a"));
}

TEST_CASE("CRegKeyW: Create tells whether it made the key", "[foundation]")
{
    const TestKey test;
    CRegKeyW key;
    DWORD disposition = 77;
    CHECK(key.Create(test.Get(), L"sub", nullptr, REG_OPTION_NON_VOLATILE, KEY_READ, nullptr,
                     &disposition) == ERROR_SUCCESS);
    CHECK(disposition == REG_CREATED_NEW_KEY);
    CHECK(key.Create(test.Get(), L"sub", nullptr, REG_OPTION_NON_VOLATILE, KEY_READ, nullptr,
                     &disposition) == ERROR_SUCCESS);
    CHECK(disposition == REG_OPENED_EXISTING_KEY);
    CHECK(IsOpen(key.GetKey()));
    CHECK(key.Create(test.Get(), L"other\\below") == ERROR_SUCCESS); // without the pointer
}

TEST_CASE("CRegKeyW: Create hands class, options and access on", "[foundation]")
{
    const TestKey test;
    CRegKeyW key;
    REQUIRE(key.Create(test.Get(), L"sub", L"Velt class", REG_OPTION_VOLATILE,
                       KEY_READ | KEY_CREATE_SUB_KEY) == ERROR_SUCCESS);
    CHECK(ClassOf(key.GetKey()) == L"Velt class");
    CHECK(key.SetDWORDValue(L"a", 1) == ERROR_ACCESS_DENIED);
    HKEY child = nullptr;
    CHECK(::RegCreateKeyExW(key.GetKey(), L"child", 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_READ,
                            nullptr, &child, nullptr) == ERROR_CHILD_MUST_BE_VOLATILE);
}

TEST_CASE("CRegKeyW: Create and Open ask for reading and writing unless told otherwise",
          "[foundation]")
{
    const TestKey test;
    CRegKeyW key;
    REQUIRE(key.Create(test.Get(), L"sub") == ERROR_SUCCESS);
    CHECK(key.SetDWORDValue(L"a", 1) == ERROR_SUCCESS);
    REQUIRE(key.Open(test.Get(), L"sub") == ERROR_SUCCESS);
    CHECK(key.SetDWORDValue(L"a", 2) == ERROR_SUCCESS);
    REQUIRE(key.Open(test.Get(), L"sub", KEY_READ) == ERROR_SUCCESS);
    CHECK(key.SetDWORDValue(L"a", 3) == ERROR_ACCESS_DENIED);
}

TEST_CASE("CRegKeyW: a Create that fails writes the disposition and keeps the old key",
          "[foundation]")
{
    OpenKey open;
    const HKEY before = open.key.GetKey();
    DWORD disposition = 77;
    CHECK(open.key.Create(NoKey(), L"sub", nullptr, REG_OPTION_NON_VOLATILE, KEY_READ, nullptr,
                          &disposition) == ERROR_INVALID_HANDLE);
    CHECK(disposition == 0);
    CHECK(open.key.GetKey() == before);
    CHECK(open.key.SetDWORDValue(L"a", 1) == ERROR_SUCCESS);
}

TEST_CASE("CRegKeyW: Open of a missing key keeps the old one", "[foundation]")
{
    OpenKey open;
    const HKEY before = open.key.GetKey();
    CHECK(open.key.Open(HKEY_CURRENT_USER, L"Software\\Velt\\Tests\\none") == ERROR_FILE_NOT_FOUND);
    CHECK(open.key.GetKey() == before);
    CHECK(open.key.SetDWORDValue(L"a", 1) == ERROR_SUCCESS);
}

TEST_CASE("CRegKeyW: a key that is replaced is closed", "[foundation]")
{
    OpenKey open;
    const HKEY first = open.key.GetKey();
    SECTION("by Create")
    {
        CHECK(open.key.Create(open.test.Get(), L"sub") == ERROR_SUCCESS);
    }
    SECTION("by Open")
    {
        CHECK(open.key.Open(HKEY_CURRENT_USER, kRoot) == ERROR_SUCCESS);
    }
    CHECK(open.key.GetKey() != first);
    CHECK(IsOpen(open.key.GetKey()));
    CHECK_FALSE(IsOpen(first));
}

TEST_CASE("CRegKeyW: the result of a replacement is that of the closing", "[foundation]")
{
    OpenKey open;
    const HKEY old = open.key.GetKey();
    REQUIRE(::SetHandleInformation(old, HANDLE_FLAG_PROTECT_FROM_CLOSE,
                                   HANDLE_FLAG_PROTECT_FROM_CLOSE));
    SECTION("Create")
    {
        CHECK(open.key.Create(open.test.Get(), L"sub") == ERROR_INVALID_HANDLE);
    }
    SECTION("Open")
    {
        CHECK(open.key.Open(HKEY_CURRENT_USER, kRoot) == ERROR_INVALID_HANDLE);
    }
    CHECK(open.key.GetKey() != old); // the new key is kept all the same
    CHECK(open.key.SetDWORDValue(L"a", 1) == ERROR_SUCCESS);
    ::SetHandleInformation(old, HANDLE_FLAG_PROTECT_FROM_CLOSE, 0);
    ::RegCloseKey(old);
}

TEST_CASE("CRegKeyW: the destructor closes the key", "[foundation]")
{
    const TestKey test;
    HKEY handle = nullptr;
    {
        CRegKeyW key;
        REQUIRE(key.Open(HKEY_CURRENT_USER, kRoot) == ERROR_SUCCESS);
        handle = key.GetKey();
        REQUIRE(IsOpen(handle));
    }
    CHECK_FALSE(IsOpen(handle));
    CHECK(std::has_virtual_destructor_v<CRegKeyW>);
}

TEST_CASE("CRegKeyW: DeleteSubKey deletes a key without children, and reports nothing",
          "[foundation]")
{
    OpenKey open;
    const auto exists = [&](const wchar_t* name) {
        CRegKeyW key;
        return key.Open(open.test.Get(), name, KEY_READ) == ERROR_SUCCESS;
    };
    {
        CRegKeyW made;
        REQUIRE(made.Create(open.test.Get(), L"leaf") == ERROR_SUCCESS);
        REQUIRE(made.Create(open.test.Get(), L"parent\\child") == ERROR_SUCCESS);
    }
    open.key.DeleteSubKey(L"leaf");
    CHECK_FALSE(exists(L"leaf"));
    open.key.DeleteSubKey(L"parent");
    CHECK(exists(L"parent\\child"));
    open.key.DeleteSubKey(L"none");
    open.key.DeleteSubKey(nullptr);
    CHECK(exists(L"parent\\child"));
}

TEST_CASE("CRegKeyW: Create hands its arguments on, the security attributes too", "[foundation]")
{
    using Patch = velt::test::ImportPatch<"RegCreateKeyExW", decltype(::RegCreateKeyExW)>;
    OpenKey open;
    SECURITY_DESCRIPTOR descriptor{};
    REQUIRE(::InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    SECURITY_ATTRIBUTES security{sizeof(security), &descriptor, FALSE};
    const SECURITY_ATTRIBUTES* seen = nullptr;
    // Watched, not read back: not every platform keeps them.
    const Patch patch("advapi32.dll",
                      [&](HKEY parent, const wchar_t* name, DWORD reserved, wchar_t* className,
                          DWORD options, REGSAM access, SECURITY_ATTRIBUTES* attributes, HKEY* key,
                          DWORD* disposition) {
                          seen = attributes;
                          return Patch::Original(parent, name, reserved, className, options, access,
                                                 attributes, key, disposition);
                      });
    CRegKeyW key;
    REQUIRE(key.Create(open.key.GetKey(), L"guarded", nullptr, REG_OPTION_NON_VOLATILE,
                       KEY_READ | KEY_WRITE, &security) == ERROR_SUCCESS);
    CHECK(seen == &security);
    REQUIRE(key.Create(open.key.GetKey(), L"usual") == ERROR_SUCCESS);
    CHECK(seen == nullptr);
}

TEST_CASE("CRegKeyW: a number is written as REG_DWORD and read back", "[foundation]")
{
    OpenKey open;
    const DWORD written = GENERATE(DWORD{0}, DWORD{1}, DWORD{0x80000000}, DWORD{0xFFFFFFFF});
    const wchar_t* const name =
        GENERATE(static_cast<const wchar_t*>(L"number"), L"\u4E2D\u6587", L"", nullptr);
    CHECK(open.key.SetDWORDValue(name, written) == ERROR_SUCCESS);
    CHECK(open.test.TypeOf(name) == REG_DWORD);
    DWORD value = 77;
    CHECK(open.key.QueryDWORDValue(name, &value) == ERROR_SUCCESS);
    CHECK(value == written);
}

TEST_CASE("CRegKeyW: a value that is no number yields ERROR_INVALID_DATA", "[foundation]")
{
    OpenKey open;
    const auto [what, type, data] = GENERATE(table<std::string, DWORD, std::vector<BYTE>>(
        {{"text of four bytes", REG_SZ, {'a', 0, 0, 0}},
         {"longer text", REG_SZ, {'a', 0, 'b', 0, 'c', 0, 0, 0}},
         {"empty text", REG_SZ, {}},
         {"four bytes", REG_BINARY, {1, 2, 3, 4}},
         {"eight bytes", REG_QWORD, {1, 2, 3, 4, 5, 6, 7, 8}},
         {"big-endian number", REG_DWORD_BIG_ENDIAN, {1, 2, 3, 4}},
         {"short number", REG_DWORD, {1, 2}},
         {"long number", REG_DWORD, {1, 2, 3, 4, 5, 6, 7, 8}}}));
    INFO(what);
    open.test.Write(L"value", type, data);
    DWORD value = 77;
    CHECK(open.key.QueryDWORDValue(L"value", &value) == ERROR_INVALID_DATA);
    CHECK(value == 77);
}

TEST_CASE("CRegKeyW: a missing value and a null pointer are refused", "[foundation]")
{
    OpenKey open;
    DWORD value = 77;
    std::array<char, 8> text{"poison"};
    DWORD size = sizeof(text);
    CHECK(open.key.QueryDWORDValue(L"none", &value) == ERROR_FILE_NOT_FOUND);
    CHECK(value == 77);
    CHECK(open.key.QueryDWORDValue(L"none", nullptr) == ERROR_INVALID_PARAMETER);
    CHECK(open.key.QueryStringValue(L"none", text.data(), &size) == ERROR_FILE_NOT_FOUND);
    CHECK(open.key.QueryStringValue(L"none", text.data(), nullptr) == ERROR_INVALID_PARAMETER);
    CHECK(open.key.SetStringValue(L"none", nullptr) == ERROR_INVALID_PARAMETER);
    CHECK(open.test.TypeOf(L"none") == REG_NONE);
    CHECK(std::string(text.data()) == "poison");
}

TEST_CASE("CRegKeyW: a text is read as narrow text with its NUL", "[foundation]")
{
    OpenKey open;
    const DWORD type = GENERATE(DWORD{REG_SZ}, DWORD{REG_EXPAND_SZ});
    const wchar_t* const name = GENERATE(static_cast<const wchar_t*>(L"text"), nullptr);
    open.test.WriteText(name, type, L"%PATH% gr\u00FC");
    std::array<char, 32> text{};
    text.fill('x');
    DWORD size = sizeof(text);
    CHECK(open.key.QueryStringValue(name, text.data(), &size) == ERROR_SUCCESS);
    INFO("ANSI code page " << ::GetACP());
    if (::GetACP() == 1252)
    {
        CHECK(size == 11);
        CHECK(std::string(text.data()) == "%PATH% gr\xFC"); // not expanded
    }
    CHECK(text[size - 1] == '\0');
    CHECK(text[size] == 'x');
}

TEST_CASE("CRegKeyW: a text that does not fit tells the size that it needs", "[foundation]")
{
    OpenKey open;
    open.test.WriteText(L"text", REG_SZ, L"abcdef");
    DWORD size = 77;
    CHECK(open.key.QueryStringValue(L"text", nullptr, &size) == ERROR_SUCCESS);
    CHECK(size == 7);

    std::array<char, 8> text{};
    size = 6;
    CHECK(open.key.QueryStringValue(L"text", text.data(), &size) == ERROR_MORE_DATA);
    CHECK(size == 7);
    CHECK(open.key.QueryStringValue(L"text", text.data(), &size) == ERROR_SUCCESS);
    CHECK(std::string(text.data()) == "abcdef");
}

TEST_CASE(
    "CRegKeyW: a value of another type yields ERROR_INVALID_DATA, also when it is longer than "
    "the buffer",
    "[foundation]")
{
    OpenKey open;
    const auto type =
        static_cast<DWORD>(GENERATE(REG_NONE, REG_BINARY, REG_DWORD, REG_MULTI_SZ, REG_QWORD));
    CAPTURE(type);
    open.test.Write(L"value", type, {'a', 0, 'b', 0, 'c', 0, 0, 0});
    std::array<char, 32> text{};
    for (const DWORD room : {0UL, 1UL, 3UL, 32UL})
    {
        CAPTURE(room);
        DWORD size = room;
        CHECK(open.key.QueryStringValue(L"value", text.data(), &size) == ERROR_INVALID_DATA);
    }
    DWORD size = 77;
    CHECK(open.key.QueryStringValue(L"value", nullptr, &size) == ERROR_INVALID_DATA);
}

TEST_CASE("CRegKeyW: data that is no text yields ERROR_INVALID_DATA", "[foundation]")
{
    OpenKey open;
    const auto [what, type, data] = GENERATE(table<std::string, DWORD, std::vector<BYTE>>(
        {{"number", REG_DWORD, {'a', 0, 0, 0}},
         {"binary", REG_BINARY, {'a', 0}},
         {"several texts", REG_MULTI_SZ, {'a', 0, 0, 0, 0, 0}},
         {"without a type", REG_NONE, {'a', 0, 0, 0}},
         {"text without its NUL", REG_SZ, {'a', 0, 'b', 0}},
         {"text to expand without its NUL", REG_EXPAND_SZ, {'a', 0, 'b', 0}},
         {"nothing at all", REG_SZ, {}}}));
    INFO(what);
    open.test.Write(L"value", type, data);
    std::array<char, 32> text{};
    DWORD size = sizeof(text);
    CHECK(open.key.QueryStringValue(L"value", text.data(), &size) == ERROR_INVALID_DATA);
}

TEST_CASE("CRegKeyW: a text is written with its type and its NUL", "[foundation]")
{
    OpenKey open;
    const wchar_t* const name = GENERATE(static_cast<const wchar_t*>(L"text"), L"", nullptr);
    SECTION("REG_SZ unless told otherwise")
    {
        CHECK(open.key.SetStringValue(name, L"abc") == ERROR_SUCCESS);
        CHECK(open.test.TypeOf(name) == REG_SZ);
        CHECK(open.test.TextOf(name) == std::wstring(L"abc\0", 4));
    }
    SECTION("REG_EXPAND_SZ")
    {
        CHECK(open.key.SetStringValue(name, L"%PATH%", REG_EXPAND_SZ) == ERROR_SUCCESS);
        CHECK(open.test.TypeOf(name) == REG_EXPAND_SZ);
        CHECK(open.test.TextOf(name) == std::wstring(L"%PATH%\0", 7));
    }
    SECTION("empty")
    {
        CHECK(open.key.SetStringValue(name, L"") == ERROR_SUCCESS);
        CHECK(open.test.TextOf(name) == std::wstring(L"\0", 1));
    }
}

TEST_CASE("CRegKeyW: names and texts of strings go through the thread's code page", "[foundation]")
{
    OpenKey open;
    const wchar_t name[] = L"Gr\u00F6\u00DFe";
    CHECK(open.key.SetStringValue(name, L"\u00E4\u4E2D") == ERROR_SUCCESS);
    std::array<char, 16> text{};
    DWORD size = sizeof(text);
    CHECK(open.key.QueryStringValue(name, text.data(), &size) == ERROR_SUCCESS);
    INFO("ANSI code page " << ::GetACP());
    if (::GetACP() == 1252)
    {
        CHECK(std::string(text.data()) == "\xE4?"); // what the code page lacks is lost
        CHECK(open.test.TextOf(name) == std::wstring(L"\u00E4?\0", 3));
        // Two names that the code page lacks are the same one; numbers keep them apart.
        CHECK(open.key.SetStringValue(L"\u4E2D", L"one") == ERROR_SUCCESS);
        CHECK(open.test.TextOf(L"?") == std::wstring(L"one\0", 4));
    }
}
