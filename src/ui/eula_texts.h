#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velt
{
/// The texts of the licence dialog that a texts file replaces; what it does not mention stays
/// empty here and as it is there.
struct EulaTexts
{
    std::optional<std::wstring> title;
    std::optional<std::wstring> decline;
    std::optional<std::wstring> accept;
    std::optional<std::wstring> ok;

    /// Takes over one record of the file. Keys are matched exactly, with their case; one that was
    /// there before is replaced, and an unknown one is ignored.
    void Put(std::wstring_view key, std::wstring value) noexcept;
};
} // namespace velt
