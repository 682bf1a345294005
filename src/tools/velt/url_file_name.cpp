#include "tools/velt/url_file_name.h"

#include "foundation/utf.h"
#include "internet/url_text.h"

#include <algorithm>
#include <array>

namespace velt::tool
{
namespace
{
constexpr std::size_t kLongestName = 120;
constexpr std::string_view kDefaultName = "index.html";
constexpr std::string_view kForbidden = "<>:\"/\\|?*";

/// The last part of a URL's path, as it stands.
std::string_view LastPart(std::string_view url) noexcept
{
    url = url.substr(0, url.find_first_of("?#"));
    const std::size_t scheme = url.find("://");
    if (scheme != url.npos)
    {
        url.remove_prefix(scheme + 3);
        url.remove_prefix(std::min(url.find('/'), url.size())); // the server
    }
    return url.substr(url.rfind('/') + 1); // npos + 1 is the start
}

char LowerAscii(char c) noexcept
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string Lower(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), &LowerAscii);
    return lower;
}

/// What the system takes for the number of a port: a digit, or a superscript one of Latin-1.
bool IsPortNumber(std::string_view text) noexcept
{
    return (text.size() == 1 && text[0] >= '0' && text[0] <= '9') || text == "\xC2\xB9" ||
           text == "\xC2\xB2" || text == "\xC2\xB3";
}

/// Names that the system takes for devices, whatever their extension.
bool IsDevice(std::string_view name)
{
    constexpr std::array<std::string_view, 6> kDevices = {"con", "prn",    "aux",
                                                          "nul", "conin$", "conout$"};
    std::string stem = Lower(name.substr(0, name.find('.')));
    stem.erase(stem.find_last_not_of(' ') + 1);
    const bool port = (stem.starts_with("com") || stem.starts_with("lpt")) &&
                      IsPortNumber(std::string_view(stem).substr(3));
    return port || std::find(kDevices.begin(), kDevices.end(), stem) != kDevices.end();
}
} // namespace

std::string FileNameFromUrl(std::string_view url)
{
    std::u16string units = Utf16FromUtf8(UnescapeUrl(LastPart(url)));
    for (char16_t& unit : units)
    {
        const bool forbidden =
            unit < 0x80 && kForbidden.find(static_cast<char>(unit)) != kForbidden.npos;
        if (unit < 0x20 || unit == 0x7F || forbidden)
        {
            unit = u'_';
        }
    }
    units.resize(std::min(units.size(), kLongestName - 1)); // one more may come in front
    std::string name = Utf8FromUtf16(units);
    name.erase(name.find_last_not_of(". ") + 1); // the system would drop them
    if (name.empty())
    {
        return std::string(kDefaultName);
    }
    return IsDevice(name) ? "_" + name : name;
}

std::string TakeFileName(std::set<std::string>& taken, const std::string& name)
{
    const std::size_t dot = std::min(name.rfind('.'), name.size());
    std::string candidate = name;
    for (int number = 2; !taken.insert(Lower(candidate)).second; ++number)
    {
        candidate = name.substr(0, dot) + " (" + std::to_string(number) + ")" + name.substr(dot);
    }
    return candidate;
}
} // namespace velt::tool
