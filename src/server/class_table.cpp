#include "server/class_table.h"

#include "collection/enum_variant_col.h"
#include "server/registrar_replacements.h"
#include "service/velt_http_service.h"
#include "ui/velt_eula_dlg.h"

#include <provider_lib.h>

namespace velt
{
constinit const std::array<ClassRow, kClassCount> kClassTable = {{
    {&CLSID_CVeltHTTPService,
     &CreateComObject<CVeltHTTPService>,
     kServiceScript.script,
     kServiceScript.threadingModel,
     {}},
    {&CLSID_CEnumVariantCol,
     &CreateComObject<CEnumVariantCol>,
     kCollectionScript.script,
     kCollectionScript.threadingModel,
     {}},
    {&CLSID_CVeltEulaDlg,
     &CreateComObject<CVeltEulaDlg>,
     kEulaScript.script,
     kEulaScript.threadingModel,
     {}},
}};
} // namespace velt
