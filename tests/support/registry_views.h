#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace velt::test
{
/// Whether the user's classes have a view for each kind of program, as they have on 64-bit Windows.
/// Where they have not, the edition that is registered last takes the other one's entries.
bool HasUserViews();

/// While an edition of the component is registered for the user: some systems take a view of
/// HKEY_CLASSES_ROOT for the machine's, whatever that root means to the process, and so put the
/// interfaces for the other kind of program among the machine's classes. On such a one, erases
/// there at the end of the scope what was not there at its beginning, and says so.
class StrayInterfaces
{
public:
    /// The view of the other kind of program: KEY_WOW64_32KEY or KEY_WOW64_64KEY.
    explicit StrayInterfaces(REGSAM otherView);

    StrayInterfaces(const StrayInterfaces&) = delete;
    StrayInterfaces& operator=(const StrayInterfaces&) = delete;

    ~StrayInterfaces();

private:
    REGSAM m_view;
    std::vector<std::wstring> m_missing; // interfaces' keys in that view of the machine
};
} // namespace velt::test
