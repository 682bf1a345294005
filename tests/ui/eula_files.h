#pragma once

#include <string_view>

namespace velt::test
{
/// An agreement of a few lines, and a text that the view shows of it.
inline constexpr std::string_view kSmallAgreement =
    "{\\rtf1\\ansi\\deff0{\\fonttbl{\\f0 Arial;}}\\f0\\fs20 {\\b A small agreement}\\par\n"
    "You may use this software.\\par\nWe have tested it.\\par}\n";
inline constexpr wchar_t kSmallAgreementText[] = L"You may use this software.";
} // namespace velt::test
