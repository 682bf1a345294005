#include "foundation/unique_handle.h"
#include "tests/facts/fact.h"
#include "tests/facts/fact_object.h"
#include "tests/support/com_apartment.h"

#include <windows.h>

#include <comcat.h>
#include <oleauto.h>
#include <wrl/client.h>

namespace velt::facts
{
namespace
{
using Microsoft::WRL::ComPtr;

constexpr wchar_t kProbe[] = L"VeltFacts.Probe";
constexpr wchar_t kUserProbe[] = L"Software\\Classes\\VeltFacts.Probe";
constexpr wchar_t kLibrary[] = L"TypeLib\\{6C4E9F52-8D0B-4B0E-9A43-5E1B7C0D2A61}";
constexpr wchar_t kInterface[] = L"Interface\\{6C4E9F53-8D0B-4B0E-9A43-5E1B7C0D2A61}";
constexpr wchar_t kCategoryKey[] = L"Component Categories\\{6C4E9F56-8D0B-4B0E-9A43-5E1B7C0D2A61}";
constexpr CATID kCategory = {
    0x6C4E9F56, 0x8D0B, 0x4B0E, {0x9A, 0x43, 0x5E, 0x1B, 0x7C, 0x0D, 0x2A, 0x61}};

struct KeyTraits
{
    using Type = HKEY;
    static Type Invalid() noexcept
    {
        return nullptr;
    }
    static void Close(Type key) noexcept
    {
        ::RegCloseKey(key);
    }
};
using UniqueKey = UniqueHandle<KeyTraits>;

bool Exists(HKEY root, const std::wstring& path, REGSAM view = 0)
{
    UniqueKey key;
    return ::RegOpenKeyExW(root, path.c_str(), 0, KEY_READ | view, key.Put()) == ERROR_SUCCESS;
}

UniqueKey Create(HKEY root, const wchar_t* path, REGSAM view = 0)
{
    UniqueKey key;
    Need(::RegCreateKeyExW(root, path, 0, nullptr, 0, KEY_ALL_ACCESS | view, nullptr, key.Put(),
                           nullptr) == ERROR_SUCCESS,
         "a key cannot be made");
    return key;
}

/// Where else than below kFactsKey the questions may have written.
void UndoClasses()
{
    UndoFactLibrary();
    DeleteClassesKey(kProbe);
    DeleteClassesKey(kCategoryKey);
}

/// HKEY_CLASSES_ROOT means a key of the questions' own until the end of the scope.
class ClassesElsewhere
{
public:
    ClassesElsewhere() : m_key(Create(HKEY_CURRENT_USER, kFactsKey))
    {
        Need(::RegOverridePredefKey(HKEY_CLASSES_ROOT, m_key.Get()) == ERROR_SUCCESS,
             "the root cannot be overridden");
    }

    ClassesElsewhere(const ClassesElsewhere&) = delete;
    ClassesElsewhere& operator=(const ClassesElsewhere&) = delete;

    ~ClassesElsewhere()
    {
        ::RegOverridePredefKey(HKEY_CLASSES_ROOT, nullptr);
    }

    HKEY Key() const noexcept
    {
        return m_key.Get();
    }

private:
    UniqueKey m_key;
};

/// Which of the places that a registration may reach it has reached. The root is overridden only
/// while it is written.
std::string WrittenTo(const wchar_t* path)
{
    std::string places;
    const auto add = [&](bool there, const char* place) {
        if (there)
        {
            places += (places.empty() ? "" : " and ");
            places += place;
        }
    };
    const std::wstring below = std::wstring(L"Software\\Classes\\") + path;
    add(Exists(HKEY_CURRENT_USER, std::wstring(kFactsKey) + L"\\" + path), "the overriding key");
    add(Exists(HKEY_CURRENT_USER, below), "the user's classes");
    add(Exists(HKEY_LOCAL_MACHINE, below), "the machine's classes");
    return places.empty() ? "nowhere" : places;
}

std::string AccessOfToken()
{
    UniqueKernelObject token;
    UniqueKernelObject restricted;
    UniqueKernelObject acting;
    Need(::OpenProcessToken(::GetCurrentProcess(), TOKEN_ALL_ACCESS, token.Put()), "no token");
    // The same user with nothing but a user's rights.
    Need(::CreateRestrictedToken(token.Get(), DISABLE_MAX_PRIVILEGE | LUA_TOKEN, 0, nullptr, 0,
                                 nullptr, 0, nullptr, restricted.Put()),
         "no restricted token");
    Need(::DuplicateTokenEx(restricted.Get(), TOKEN_ALL_ACCESS, nullptr, SecurityImpersonation,
                            TokenImpersonation, acting.Put()) &&
             ::SetThreadToken(nullptr, acting.Get()),
         "the token is not taken");
    HKEY key = nullptr;
    const LSTATUS result = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\Classes", 0,
                                           KEY_SET_VALUE | KEY_CREATE_SUB_KEY, &key);
    ::SetThreadToken(nullptr, nullptr);
    if (key)
    {
        ::RegCloseKey(key);
    }
    return Choose(result == ERROR_SUCCESS, "opened for writing", "refused");
}

HRESULT RegisterLibraryForUser()
{
    // The compiler's header does not declare it.
    using Function = HRESULT(WINAPI*)(ITypeLib*, OLECHAR*, OLECHAR*);
    const auto function = reinterpret_cast<Function>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleW(L"oleaut32.dll"), "RegisterTypeLibForUser")));
    return function(LoadFactLibrary().Get(), ThisProgram().data(), nullptr);
}

std::string RegisterForUser()
{
    const test::ComApartment apartment;
    const HRESULT result = RegisterLibraryForUser();
    return SUCCEEDED(result) ? WrittenTo(kLibrary) : Hex(result);
}

std::string RegisterForUserOverridden()
{
    const test::ComApartment apartment;
    HRESULT result = E_FAIL;
    {
        const ClassesElsewhere elsewhere;
        result = RegisterLibraryForUser();
    }
    return SUCCEEDED(result) ? WrittenTo(kLibrary) : Hex(result);
}

std::string RegisterCategory()
{
    const test::ComApartment apartment;
    ComPtr<ICatRegister> manager;
    Need(SUCCEEDED(::CoCreateInstance(CLSID_StdComponentCategoriesMgr, nullptr,
                                      CLSCTX_INPROC_SERVER, IID_ICatRegister, &manager)),
         "no manager");
    {
        const ClassesElsewhere elsewhere;
        CATEGORYINFO info{kCategory, 0x409, L"VeltFacts"};
        const HRESULT result = manager->RegisterCategories(1, &info);
        if (FAILED(result))
        {
            return Hex(result);
        }
    }
    return WrittenTo(kCategoryKey);
}

std::string TypeLibraryKeys()
{
    const test::ComApartment apartment;
    {
        const ClassesElsewhere elsewhere;
        Need(SUCCEEDED(::RegisterTypeLib(LoadFactLibrary().Get(), ThisProgram().data(), nullptr)),
             "not registered");
    }
    const std::wstring own = std::wstring(kFactsKey) + L"\\";
    std::wstring flags(32, L'\0');
    auto size = DWORD{sizeof(wchar_t)} * static_cast<DWORD>(flags.size());
    const LSTATUS result =
        ::RegGetValueW(HKEY_CURRENT_USER, (own + kLibrary + L"\\1.0\\FLAGS").c_str(), nullptr,
                       RRF_RT_REG_SZ, nullptr, flags.data(), &size);
    std::string answer = "FLAGS ";
    answer += result == ERROR_SUCCESS ? static_cast<char>(flags[0]) : '?';
    const std::wstring face = own + kInterface;
    answer += Exists(HKEY_CURRENT_USER, face + L"\\ProxyStubClsid32") ? ", ProxyStubClsid32" : "";
    answer += Exists(HKEY_CURRENT_USER, face + L"\\ProxyStubClsid") ? ", ProxyStubClsid" : "";
    return answer;
}

std::string MergedView()
{
    Create(HKEY_CURRENT_USER, kUserProbe);
    return Choose(Exists(HKEY_CLASSES_ROOT, kProbe), "seen", "not seen");
}

/// What the merged view shows, and where a write by it goes, when both have a class.
std::string MergedOrder(bool userFirst)
{
    const auto set = [](HKEY root, const wchar_t* text) {
        UniqueKey key;
        if (::RegCreateKeyExW(root, kUserProbe, 0, nullptr, 0, KEY_SET_VALUE, nullptr, key.Put(),
                              nullptr) != ERROR_SUCCESS)
        {
            throw NotAsked("needs an administrator");
        }
        ::RegSetValueExW(key.Get(), nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                         DWORD{sizeof(wchar_t)} * static_cast<DWORD>(std::wcslen(text) + 1));
    };
    const auto text = [](HKEY root, const wchar_t* path) {
        std::array<wchar_t, 16> value{};
        auto size = static_cast<DWORD>(sizeof(value));
        ::RegGetValueW(root, path, nullptr, RRF_RT_REG_SZ, nullptr, value.data(), &size);
        return std::wstring(value.data());
    };
    set(userFirst ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE, userFirst ? L"user" : L"machine");
    set(userFirst ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER, userFirst ? L"machine" : L"user");
    const std::wstring shown = text(HKEY_CLASSES_ROOT, kProbe);
    UniqueKey merged;
    Need(::RegOpenKeyExW(HKEY_CLASSES_ROOT, kProbe, 0, KEY_SET_VALUE, merged.Put()) ==
             ERROR_SUCCESS,
         "not opened");
    ::RegSetValueExW(merged.Get(), nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(L"new"),
                     sizeof(L"new"));
    return "shows the " + std::string(shown == L"user" ? "user" : "machine") + "'s, writes the " +
           (text(HKEY_CURRENT_USER, kUserProbe) == L"new" ? "user" : "machine") + "'s";
}

std::string UserAfterMachine()
{
    return MergedOrder(false);
}

std::string MachineAfterUser()
{
    return MergedOrder(true);
}

std::string UserKeys()
{
    const bool classes = Exists(HKEY_CURRENT_USER, L"Software\\Classes");
    const bool programs =
        Exists(HKEY_CURRENT_USER, L"Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall");
    return std::string(classes ? "classes" : "no classes") + ", " +
           (programs ? "programs" : "no programs");
}

std::string Perflib()
{
    UniqueKey key;
    const LSTATUS opened = ::RegOpenKeyExW(
        HKEY_LOCAL_MACHINE, L"Software\\Microsoft\\Windows NT\\CurrentVersion\\Perflib\\009", 0,
        KEY_READ, key.Put());
    if (opened != ERROR_SUCCESS)
    {
        return ErrorNumber(static_cast<DWORD>(opened));
    }
    std::array<wchar_t, 256> name{};
    auto length = static_cast<DWORD>(name.size());
    const LSTATUS result =
        ::RegEnumValueW(key.Get(), 0, name.data(), &length, nullptr, nullptr, nullptr, nullptr);
    return Choose(result == ERROR_SUCCESS || result == ERROR_NO_MORE_ITEMS, "an ordinary key",
                  "values are not listed");
}

bool IsWindows64()
{
    BOOL onOther = FALSE;
    ::IsWow64Process(::GetCurrentProcess(), &onOther);
    return sizeof(void*) == 8 || onOther;
}

std::string UserViews()
{
    if (!IsWindows64())
    {
        throw NotAsked("32-bit Windows has one view");
    }
    constexpr wchar_t path[] = L"Software\\Classes\\CLSID\\VeltFacts";
    Create(HKEY_CURRENT_USER, path, KEY_WOW64_32KEY);
    const bool seen = Exists(HKEY_CURRENT_USER, path, KEY_WOW64_64KEY);
    return Choose(seen, "one view", "two views");
}

void UndoUserViews()
{
    DeleteClassesKey(L"CLSID\\VeltFacts");
}

std::string OverriddenView()
{
    if (!IsWindows64())
    {
        throw NotAsked("32-bit Windows has one view");
    }
    const ClassesElsewhere elsewhere;
    Create(elsewhere.Key(), kProbe);
    const REGSAM other = sizeof(void*) == 8 ? KEY_WOW64_32KEY : KEY_WOW64_64KEY;
    return Choose(Exists(HKEY_CLASSES_ROOT, kProbe, other), "of the overriding key",
                  "of the machine's classes");
}

constexpr Fact kFacts[] = {
    {"registry.token", &AccessOfToken},
    {"registry.library-for-user", &RegisterForUser, &UndoClasses},
    {"registry.library-for-user-overridden", &RegisterForUserOverridden, &UndoClasses},
    {"registry.categories-manager", &RegisterCategory, &UndoClasses},
    {"registry.library-keys", &TypeLibraryKeys, &UndoClasses},
    {"registry.merged-view", &MergedView, &UndoClasses},
    {"registry.user-after-machine", &UserAfterMachine, &UndoClasses},
    {"registry.machine-after-user", &MachineAfterUser, &UndoClasses},
    {"registry.user-keys", &UserKeys},
    {"registry.perflib", &Perflib},
    {"registry.user-views", &UserViews, &UndoUserViews},
    {"registry.overridden-view", &OverriddenView},
};
} // namespace

std::span<const Fact> RegistryFacts()
{
    return kFacts;
}
} // namespace velt::facts
