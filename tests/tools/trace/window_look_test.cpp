#include "tools/trace/window_look.h"

#include "tests/tools/trace/dark_choice.h"

#include <windows.h>

#include <catch.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <utility>

using velt::Palette;
using velt::WindowLook;
using namespace velt::test;

namespace
{
struct Channels
{
    explicit Channels(COLORREF color)
        : red(GetRValue(color)),
          green(GetGValue(color)),
          blue(GetBValue(color))
    {
    }

    int red;
    int green;
    int blue;
};

/// Relative luminance, 0 to 1, by the Web Content Accessibility Guidelines 2.1.
double LuminanceOf(COLORREF color)
{
    const auto linear = [](int channel) {
        const double part = channel / 255.0;
        return part <= 0.03928 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    const Channels of(color);
    return 0.2126 * linear(of.red) + 0.7152 * linear(of.green) + 0.0722 * linear(of.blue);
}

/// The guidelines' contrast ratio, 1 to 21.
double ContrastOf(COLORREF one, COLORREF other)
{
    const auto [darker, lighter] = std::minmax({LuminanceOf(one), LuminanceOf(other)});
    return (lighter + 0.05) / (darker + 0.05);
}

bool IsRed(COLORREF color)
{
    const Channels of(color);
    return of.red > of.green + 30 && of.red > of.blue + 30;
}

bool IsYellow(COLORREF color)
{
    const Channels of(color);
    return std::min(of.red, of.green) > of.blue + 30 && std::abs(of.red - of.green) <= 15;
}

bool IsGreen(COLORREF color)
{
    const Channels of(color);
    return of.green > of.red + 30 && of.green > of.blue + 30;
}

bool IsBlue(COLORREF color)
{
    const Channels of(color);
    return of.blue > of.green + 25 && of.green > of.red + 20;
}

bool IsViolet(COLORREF color)
{
    const Channels of(color);
    return of.blue > of.green + 30 && of.red > of.green + 15;
}
} // namespace

TEST_CASE("WindowLook: what is said in colours can be read, in both looks", "[tools]")
{
    constexpr double kReadable = 4.5; // the guidelines' least for texts
    const bool dark = GENERATE(false, true);
    CAPTURE(dark);
    const std::optional<DarkChoice> choice =
        dark ? std::optional<DarkChoice>(std::in_place) : std::nullopt;
    const WindowLook look(96);
    REQUIRE(look.IsDark() == dark);
    const Palette& colors = look.Colors();
    for (const COLORREF text : {colors.text, colors.error, colors.detail, colors.malformed})
    {
        CAPTURE(text);
        CHECK(ContrastOf(text, colors.window) >= kReadable);
        for (const COLORREF highlight : colors.highlights)
        {
            CAPTURE(highlight);
            CHECK(ContrastOf(text, highlight) >= kReadable);
        }
    }
    for (const COLORREF behind : {colors.face, colors.control, colors.edge})
    {
        CHECK((!dark || ContrastOf(colors.faceText, behind) >= kReadable));
    }
}

TEST_CASE("WindowLook: colours are those that their names say, in both looks", "[tools]")
{
    const bool dark = GENERATE(false, true);
    CAPTURE(dark);
    const std::optional<DarkChoice> choice =
        dark ? std::optional<DarkChoice>(std::in_place) : std::nullopt;
    const Palette colors = WindowLook(96).Colors();
    CHECK(IsRed(colors.error));
    CHECK(IsBlue(colors.detail));
    CHECK(IsViolet(colors.malformed));
    const auto [yellow, green, blue, red, violet] = colors.highlights;
    CHECK(IsYellow(yellow));
    CHECK(IsGreen(green));
    CHECK(IsBlue(blue));
    CHECK(IsRed(red));
    CHECK(IsViolet(violet));
}
