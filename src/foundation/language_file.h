#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace velt
{
/// Translated texts by id. The texts are UTF-8.
using Translations = std::map<std::int32_t, std::string>;

/// Reads the bytes of a language file.
///
/// Encoding: UTF-8 when the file starts with EF BB BF, otherwise UTF-16: big-endian when it starts
/// with FE FF, else little-endian; the first two bytes are dropped whatever they are. A last byte
/// without a partner counts as a unit whose high byte is 0.
///
/// Lines end at CR or LF. A line is "<id> <text>": the id, decimal or with the prefix 0x, stands at
/// the very start; the blanks after it and the white space at the end do not belong to the text.
/// Lines that start with ';' or '#', or have no id other than 0 that fits 32 bits, are skipped. A
/// later line with the same id replaces an earlier one. Every input is valid; throws std::bad_alloc
/// only.
Translations ParseLanguageFile(std::string_view bytes);
} // namespace velt
