#include "server/class_table.h"

#include "collection/enum_variant_col.h"
#include "server/resource_ids.h"
#include "service/velt_http_service.h"
#include "ui/velt_eula_dlg.h"

#include <provider_lib.h>

namespace velt
{
constinit const std::array<ClassRow, kClassCount> kClassTable = {{
    {&CLSID_CVeltHTTPService,
     &CreateComObject<CVeltHTTPService>,
     VELT_REGISTRY_VELT_HTTP_SERVICE,
     L"Free",
     {}},
    {&CLSID_CEnumVariantCol,
     &CreateComObject<CEnumVariantCol>,
     VELT_REGISTRY_ENUM_VARIANT_COL,
     L"Apartment",
     {}},
    {&CLSID_CVeltEulaDlg, &CreateComObject<CVeltEulaDlg>, VELT_REGISTRY_VELT_EULA_DLG, L"Both", {}},
}};
} // namespace velt
