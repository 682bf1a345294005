// Identifiers of the resources in the library; read by the resource compiler too.
#pragma once

#define VELT_REGISTRY_APPID 101
#define VELT_REGISTRY_VELT_HTTP_SERVICE 111
#define VELT_REGISTRY_ENUM_VARIANT_COL 115
#define VELT_REGISTRY_VELT_EULA_DLG 119
#define VELT_TYPELIB 1
