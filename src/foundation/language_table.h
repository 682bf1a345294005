#pragma once

#include <array>
#include <cstdint>

namespace velt
{
/// One language that texts can be translated to.
struct Language
{
    const char* code; // three upper-case letters; names the language file, "<code>.txt"
    const char* name;
};

/// Index of the compiled-in texts, which never come from a file.
inline constexpr std::uint32_t kDefaultLanguage = 16;

/// The language table; its order is fixed, because hosts keep the index.
inline constexpr std::array<Language, 17> kLanguages = {{
    {"CHS", "Chinese (Simplified)"},
    {"CHT", "Chinese (Traditional)"},
    {"DAN", "Danish"},
    {"NLD", "Dutch"},
    {"ENU", "English"},
    {"FIN", "Finnish"},
    {"FRA", "French"},
    {"DEU", "German"},
    {"ITA", "Italian"},
    {"JPN", "Japanese"},
    {"KOR", "Korean"},
    {"NOR", "Norweigian"}, // by design: the table's own spelling, which hosts look for
    {"PTG", "Portuguese"},
    {"PTB", "Portuguese (Brazil)"},
    {"ESN", "Spanish"},
    {"SVE", "Swedish"},
    {"ENU", "Default (Embedded English)"},
}};
} // namespace velt
