#include "ui/eula_texts.h"

#include <utility>

namespace velt
{
void EulaTexts::Put(std::wstring_view key, std::wstring value) noexcept
{
    const struct
    {
        std::wstring_view key;
        std::optional<std::wstring>& text;
    } rows[] = {
        {L"enu_user_license_agreement", title},
        {L"i_do_not_accept", decline},
        {L"i_accept", accept},
        {L"btn_ok", ok},
    };
    for (const auto& row : rows)
    {
        if (row.key == key)
        {
            row.text = std::move(value);
            return;
        }
    }
}
} // namespace velt
