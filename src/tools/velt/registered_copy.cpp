#include "tools/velt/registered_copy.h"

#include "foundation/reg_key.h"
#include "server/class_registration.h"
#include "tools/velt/component.h"

#include <array>
#include <cwchar>

namespace velt::tool
{
namespace
{
/// The classes that registration makes creatable.
constexpr std::array kCreatable = {&kServiceRegistration, &kEulaRegistration};

/// A 32-bit system runs programs of one kind only.
bool Runs64BitPrograms() noexcept
{
    BOOL is = FALSE;
    return kIs64Bit || (::IsWow64Process(::GetCurrentProcess(), &is) && is);
}

/// As registry keys have it. The system's function for it is COM's, which takes longer to load than
/// everything else here.
std::wstring GuidText(const GUID& guid)
{
    std::array<wchar_t, 39> text{};
    const auto& last = guid.Data4;
    std::swprintf(text.data(), text.size(), L"{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                  guid.Data1, guid.Data2, guid.Data3, last[0], last[1], last[2], last[3], last[4],
                  last[5], last[6], last[7]);
    return text.data();
}

/// The process's own view stands for that of its kind: 32-bit systems know no other.
REGSAM ViewOf(bool is64Bit) noexcept
{
    if (is64Bit == kIs64Bit)
    {
        return 0;
    }
    return is64Bit ? KEY_WOW64_64KEY : KEY_WOW64_32KEY;
}

RegisteredCopy FindCopy(bool is64Bit, RegistrationScope scope, const std::wstring& own)
{
    RegisteredCopy copy{is64Bit, scope, std::nullopt};
    const RegistryLocation classes = ClassesOf(scope);
    for (const ClassRegistration* const row : kCreatable)
    {
        auto library =
            ReadClassText(classes.root, classes.path, *row->clsid, L"InprocServer32", is64Bit);
        if (!library)
        {
            continue;
        }
        copy.several = copy.several || (copy.library && !IsSamePath(*copy.library, *library));
        if (!copy.library || IsSamePath(*library, own))
        {
            copy.library = std::move(library);
        }
    }
    return copy;
}
} // namespace

std::wstring RegisteredCopy::Name() const
{
    return std::wstring(is64Bit ? L"64-bit, " : L"32-bit, ") +
           (scope == RegistrationScope::machine ? L"machine" : L"user");
}

std::vector<RegisteredCopy> FindRegisteredCopies(const std::wstring& own)
{
    std::vector<RegisteredCopy> copies;
    for (const bool is64Bit : {false, true})
    {
        if (is64Bit && !Runs64BitPrograms())
        {
            continue;
        }
        for (const RegistrationScope scope : {RegistrationScope::machine, RegistrationScope::user})
        {
            copies.push_back(FindCopy(is64Bit, scope, own));
        }
    }
    // Some systems have one key of the user's classes for both kinds of programs. What is in there
    // is registered for the kind that its file is of.
    for (RegisteredCopy& copy : copies)
    {
        if (copy.scope != RegistrationScope::user || !copy.library)
        {
            continue;
        }
        for (const RegisteredCopy& other : copies)
        {
            if (other.scope == copy.scope && other.is64Bit != copy.is64Bit && other.library &&
                IsSamePath(*other.library, *copy.library) &&
                IsOfEdition(*copy.library, other.is64Bit))
            {
                copy = {copy.is64Bit, copy.scope, std::nullopt};
                break;
            }
        }
    }
    return copies;
}

std::optional<std::wstring> ReadClassText(HKEY root, const std::wstring& classes,
                                          const CLSID& clsid, const wchar_t* subkey, bool is64Bit)
{
    const std::wstring path =
        classes + (classes.empty() ? L"CLSID\\" : L"\\CLSID\\") + GuidText(clsid) + L"\\" + subkey;
    CRegKeyW key;
    if (key.Open(root, path.c_str(), KEY_QUERY_VALUE | ViewOf(is64Bit)) != ERROR_SUCCESS)
    {
        return std::nullopt;
    }
    constexpr DWORD kTexts = RRF_RT_REG_SZ; // and those that name variables, which are filled in
    for (DWORD characters = MAX_PATH;; characters *= 2)
    {
        std::wstring text(characters, L'\0');
        DWORD bytes = characters * DWORD{sizeof(wchar_t)};
        const LSTATUS error =
            ::RegGetValueW(key.GetKey(), nullptr, nullptr, kTexts, nullptr, text.data(), &bytes);
        if (error == ERROR_SUCCESS)
        {
            text.resize(text.find(L'\0')); // the system ends every text
            return text;
        }
        if (error != ERROR_MORE_DATA)
        {
            return std::nullopt;
        }
    }
}

bool IsSamePath(const std::wstring& a, const std::wstring& b) noexcept
{
    return ::CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(),
                                  static_cast<int>(b.size()), TRUE) == CSTR_EQUAL;
}

bool IsFile(const std::wstring& path) noexcept
{
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}
} // namespace velt::tool
