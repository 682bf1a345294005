#include "tests/support/registry_views.h"

#include "foundation/reg_key.h"
#include "tests/support/component_registration.h"

#include <catch.hpp>

namespace velt::test
{
namespace
{
constexpr wchar_t kProbe[] = L"{6C1F1B6E-0F2B-4B57-9B65-2C3E5A1D7F90}";

REGSAM OtherThan(REGSAM view)
{
    return view == KEY_WOW64_32KEY ? KEY_WOW64_64KEY : KEY_WOW64_32KEY;
}

bool Exists(HKEY root, const std::wstring& path, REGSAM view)
{
    CRegKeyW key;
    return key.Open(root, path.c_str(), KEY_READ | view) == ERROR_SUCCESS;
}

/// Whether a key made in a view of HKEY_CLASSES_ROOT is in that view of the machine's classes, and
/// there only, while that root means the user's. Not where none can be made.
bool ViewsLeadToTheMachine(REGSAM view)
{
    const std::wstring probe = std::wstring(kUserClasses) + L'\\' + kProbe;
    CRegKeyW classes;
    REQUIRE(classes.Create(HKEY_CURRENT_USER, kUserClasses) == ERROR_SUCCESS);
    REQUIRE(::RegOverridePredefKey(HKEY_CLASSES_ROOT, classes.GetKey()) == ERROR_SUCCESS);
    CRegKeyW key;
    key.Create(HKEY_CLASSES_ROOT, kProbe, nullptr, REG_OPTION_NON_VOLATILE,
               KEY_READ | KEY_WRITE | view);
    ::RegOverridePredefKey(HKEY_CLASSES_ROOT, nullptr);
    const bool lead = Exists(HKEY_LOCAL_MACHINE, probe, view) &&
                      !Exists(HKEY_LOCAL_MACHINE, probe, OtherThan(view));
    for (const HKEY root : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE})
    {
        ::RegDeleteKeyExW(root, probe.c_str(), view, 0);
    }
    return lead;
}
} // namespace

bool HasUserViews()
{
    // The key of a class has views; one directly below the classes has none on Windows.
    const std::wstring classes = std::wstring(kUserClasses) + L"\\CLSID";
    const std::wstring probe = classes + L'\\' + kProbe;
    CRegKeyW key;
    REQUIRE(key.Create(HKEY_CURRENT_USER, probe.c_str(), nullptr, REG_OPTION_NON_VOLATILE,
                       KEY_READ | KEY_WRITE | KEY_WOW64_32KEY) == ERROR_SUCCESS);
    const bool hasViews = !Exists(HKEY_CURRENT_USER, probe, KEY_WOW64_64KEY);
    REQUIRE(::RegDeleteKeyExW(HKEY_CURRENT_USER, probe.c_str(), KEY_WOW64_32KEY, 0) ==
            ERROR_SUCCESS);
    // As it was; a key with others in it is not deleted.
    ::RegDeleteKeyExW(HKEY_CURRENT_USER, classes.c_str(), KEY_WOW64_32KEY, 0);
    return hasViews;
}

StrayInterfaces::StrayInterfaces(REGSAM otherView) : m_view(otherView)
{
    if (!ViewsLeadToTheMachine(m_view))
    {
        return;
    }
    for (const std::wstring& key : OwnInterfaceKeys())
    {
        const std::wstring path = std::wstring(kUserClasses) + L'\\' + key;
        if (!Exists(HKEY_LOCAL_MACHINE, path, m_view))
        {
            m_missing.push_back(path);
        }
    }
}

StrayInterfaces::~StrayInterfaces()
{
    bool strayed = false;
    for (const std::wstring& path : m_missing)
    {
        CRegKeyW key;
        if (key.Open(HKEY_LOCAL_MACHINE, path.c_str(), KEY_ALL_ACCESS | m_view) == ERROR_SUCCESS)
        {
            ::RegDeleteTreeW(key.GetKey(), nullptr);
            ::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), m_view, 0);
            strayed = true;
        }
    }
    if (strayed)
    {
        WARN("taken back: this system has put the user's interfaces for the other kind of program "
             "among the machine's");
    }
}
} // namespace velt::test
