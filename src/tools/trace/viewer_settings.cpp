#include "tools/trace/viewer_settings.h"

#include "foundation/unique_handle.h"
#include "foundation/wide_text.h"
#include "tools/trace/number_list.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

namespace velt
{
namespace
{
constexpr wchar_t kKey[] = L"Software\\Velt\\TraceViewer";
constexpr wchar_t kWindow[] = L"Window"; // left, top, right, bottom, 1 when maximized
constexpr wchar_t kWidths[] = L"ColumnWidths";
constexpr wchar_t kOrder[] = L"ColumnOrder";
constexpr wchar_t kFontSize[] = L"FontSize"; // in tenths of a point
constexpr wchar_t kFontName[] = L"FontName";
constexpr wchar_t kRules[] = L"Rules";   // a line each
constexpr DWORD kMostBytes = 256 * 1024; // of a value that is believed
constexpr int kWidthMost = 10'000;

struct KeyTraits
{
    using Type = HKEY;

    static Type Invalid() noexcept
    {
        return nullptr;
    }

    static void Close(Type key) noexcept
    {
        ::RegCloseKey(key);
    }
};
using UniqueKey = UniqueHandle<KeyTraits>;

/// A text value without its last zeros; empty when there is none.
std::wstring Read(HKEY key, const wchar_t* name, DWORD type)
{
    DWORD size = 0;
    DWORD found = 0;
    if (::RegQueryValueExW(key, name, nullptr, &found, nullptr, &size) != ERROR_SUCCESS ||
        found != type || size > kMostBytes)
    {
        return {};
    }
    std::wstring text(size / sizeof(wchar_t), L'\0');
    size = static_cast<DWORD>(text.size()) * DWORD{sizeof(wchar_t)};
    if (::RegQueryValueExW(key, name, nullptr, &found, reinterpret_cast<BYTE*>(text.data()),
                           &size) != ERROR_SUCCESS ||
        found != type)
    {
        return {};
    }
    text.resize(size / sizeof(wchar_t));
    text.erase(text.find_last_not_of(L'\0') + 1);
    return text;
}

std::optional<std::vector<int>> ReadNumbers(HKEY key, const wchar_t* name, std::size_t count)
{
    return ParseNumbers(Utf8FromWide(Read(key, name, REG_SZ)), count);
}

void Write(HKEY key, const wchar_t* name, const std::wstring& text, DWORD type = REG_SZ)
{
    const std::size_t characters = text.size() + 1;
    ::RegSetValueExW(key, name, 0, type, reinterpret_cast<const BYTE*>(text.c_str()),
                     static_cast<DWORD>(characters) * DWORD{sizeof(wchar_t)});
}

void WriteNumbers(HKEY key, const wchar_t* name, const std::optional<std::vector<int>>& numbers)
{
    if (numbers)
    {
        Write(key, name, WideFromUtf8(FormatNumbers(*numbers)));
    }
}
} // namespace

ViewerSettings ViewerSettings::Load()
{
    ViewerSettings settings;
    UniqueKey key;
    if (::RegOpenKeyExW(HKEY_CURRENT_USER, kKey, 0, KEY_READ, key.Put()) != ERROR_SUCCESS)
    {
        return settings;
    }
    if (const auto window = ReadNumbers(key.Get(), kWindow, 5))
    {
        const std::vector<int>& n = *window;
        const RECT place{n[0], n[1], n[2], n[3]};
        // Not where a screen was that is no longer there.
        if (place.left < place.right && place.top < place.bottom &&
            ::MonitorFromRect(&place, MONITOR_DEFAULTTONULL))
        {
            settings.place = place;
            settings.maximized = n[4] != 0;
        }
    }
    settings.columnWidths = ReadNumbers(key.Get(), kWidths, kColumns);
    for (const int width : settings.columnWidths.value_or(std::vector<int>()))
    {
        if (width < 0 || width > kWidthMost)
        {
            settings.columnWidths.reset();
            break;
        }
    }
    settings.columnOrder = ReadNumbers(key.Get(), kOrder, kColumns);
    if (settings.columnOrder && !IsOrder(*settings.columnOrder))
    {
        settings.columnOrder.reset();
    }
    const auto size = ReadNumbers(key.Get(), kFontSize, 1);
    const std::wstring name = Read(key.Get(), kFontName, REG_SZ);
    if (size && size->front() >= FontChoice::kSmallest && size->front() <= FontChoice::kLargest &&
        !name.empty() && name.size() < LF_FACESIZE)
    {
        settings.font = FontChoice{name, size->front()};
    }
    const std::wstring rules = Read(key.Get(), kRules, REG_MULTI_SZ);
    for (std::size_t at = 0; at < rules.size();)
    {
        const std::size_t end = std::min(rules.find(L'\0', at), rules.size());
        const std::wstring_view line = std::wstring_view(rules).substr(at, end - at);
        if (std::optional<TraceRule> rule = ParseRule(Utf8FromWide(line)))
        {
            settings.rules.push_back(std::move(*rule));
        }
        at = end + 1;
    }
    return settings;
}

void ViewerSettings::Save() const
{
    UniqueKey key;
    if (::RegCreateKeyExW(HKEY_CURRENT_USER, kKey, 0, nullptr, 0, KEY_WRITE, nullptr, key.Put(),
                          nullptr) != ERROR_SUCCESS)
    {
        return;
    }
    if (place)
    {
        WriteNumbers(key.Get(), kWindow,
                     std::vector<int>{static_cast<int>(place->left), static_cast<int>(place->top),
                                      static_cast<int>(place->right),
                                      static_cast<int>(place->bottom), maximized ? 1 : 0});
    }
    WriteNumbers(key.Get(), kWidths, columnWidths);
    WriteNumbers(key.Get(), kOrder, columnOrder);
    if (font)
    {
        WriteNumbers(key.Get(), kFontSize, std::vector<int>{font->tenthsOfPoint});
        Write(key.Get(), kFontName, font->name);
    }
    std::wstring lines;
    for (const TraceRule& rule : rules)
    {
        lines += WideFromUtf8(FormatRule(rule)) + L'\0';
    }
    Write(key.Get(), kRules, lines, REG_MULTI_SZ);
}

void ViewerSettings::Forget() noexcept
{
    ::RegDeleteKeyW(HKEY_CURRENT_USER, kKey);
}
} // namespace velt
