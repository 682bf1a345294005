#include "server/class_table.h"

#include "collection/enum_variant_col.h"
#include "service/velt_http_service.h"
#include "ui/velt_eula_dlg.h"

#include <algorithm>

namespace velt
{
constinit const std::array<ClassRow, kClassCount> kClassTable = {{
    {&CreateComObject<CVeltHTTPService>, kServiceRegistration},
    {&CreateComObject<CEnumVariantCol>, kCollectionRegistration},
    {&CreateComObject<CVeltEulaDlg>, kEulaRegistration},
}};

const ClassRow* FindClass(std::span<const ClassRow> table, REFCLSID clsid) noexcept
{
    const auto row = std::find_if(table.begin(), table.end(), [&](const ClassRow& r) {
        return r.create && ::IsEqualCLSID(*r.registration.clsid, clsid);
    });
    return row == table.end() ? nullptr : &*row;
}
} // namespace velt
