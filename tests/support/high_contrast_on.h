#pragma once

#include "tests/support/import_patch.h"

#include <windows.h>

namespace velt::test
{
/// The user's high-contrast setting, as the product sees it. Not every system can change it, nor
/// asks for the size of the answer, as Windows does.
class HighContrastOn
{
public:
    HighContrastOn()
        : m_patch("user32.dll", [](UINT action, UINT size, void* value, UINT flags) -> BOOL {
              if (action != SPI_GETHIGHCONTRAST)
              {
                  return decltype(m_patch)::Original(action, size, value, flags);
              }
              auto& setting = *static_cast<HIGHCONTRASTW*>(value);
              if (setting.cbSize != sizeof(setting))
              {
                  ::SetLastError(ERROR_INVALID_PARAMETER);
                  return FALSE;
              }
              setting.dwFlags = HCF_AVAILABLE | HCF_HIGHCONTRASTON;
              return TRUE;
          })
    {
    }

private:
    ImportPatch<"SystemParametersInfoW", decltype(::SystemParametersInfoW)> m_patch;
};
} // namespace velt::test
