#include "foundation/high_contrast.h"

#include <windows.h>

namespace velt
{
bool IsHighContrastOn() noexcept
{
    HIGHCONTRASTW setting{};
    setting.cbSize = sizeof(setting);
    return ::SystemParametersInfoW(SPI_GETHIGHCONTRAST, sizeof(setting), &setting, 0) &&
           (setting.dwFlags & HCF_HIGHCONTRASTON) != 0;
}
} // namespace velt
