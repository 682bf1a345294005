#pragma once

#include "tests/support/import_patch.h"

#include <windows.h>

namespace velt::test
{
/// The user's high-contrast setting, as the component sees it. Not every system can change it.
class HighContrastOn
{
public:
    HighContrastOn()
        : m_patch("user32.dll", [](UINT action, UINT size, void* value, UINT flags) {
              const BOOL done = decltype(m_patch)::Original(action, size, value, flags);
              if (action == SPI_GETHIGHCONTRAST)
              {
                  static_cast<HIGHCONTRASTW*>(value)->dwFlags |= HCF_HIGHCONTRASTON;
                  return TRUE;
              }
              return done;
          })
    {
    }

private:
    ImportPatch<"SystemParametersInfoW", decltype(::SystemParametersInfoW)> m_patch;
};
} // namespace velt::test
