#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace velt
{
/// The parts of a URL, which are parts of its text.
struct PlainUrl
{
    bool isSecure; // https rather than http
    std::string_view host;
    std::uint16_t port;      // the scheme's own when the URL names none
    std::string_view object; // path and query
};

/// Cuts a URL that is canonical as it stands and that every system therefore cuts in the same way:
/// scheme and host in lower case, no user, a path, and in it no character, segment or escape that
/// browsers would change. Nothing for all other texts: those are for the system to judge.
std::optional<PlainUrl> CutPlainUrl(std::string_view url) noexcept;
} // namespace velt
