#include "tools/velt/script_stream.h"

#include "foundation/wide_text.h"
#include "tools/velt/command_context.h"
#include "tools/velt/variant_text.h"

#include <olectl.h>

#include <algorithm>
#include <array>
#include <utility>

namespace velt::tool
{
namespace
{
enum MemberId : DISPID
{
    kAtEndOfLine = 1,
    kAtEndOfStream,
    kClose,
    kColumn,
    kLine,
    kRead,
    kReadAll,
    kReadLine,
    kSkip,
    kSkipLine,
    kWrite,
    kWriteBlankLines,
    kWriteLine,
};

using Kind = ScriptMemberKind;

constexpr ScriptMember kMembers[] = {
    {L"AtEndOfLine", kAtEndOfLine, Kind::property, 0, 0},
    {L"AtEndOfStream", kAtEndOfStream, Kind::property, 0, 0},
    {L"Close", kClose, Kind::method, 0, 0},
    {L"Column", kColumn, Kind::property, 0, 0},
    {L"Line", kLine, Kind::property, 0, 0},
    {L"Read", kRead, Kind::method, 1, 1},
    {L"ReadAll", kReadAll, Kind::method, 0, 0},
    {L"ReadLine", kReadLine, Kind::method, 0, 0},
    {L"Skip", kSkip, Kind::method, 1, 1},
    {L"SkipLine", kSkipLine, Kind::method, 0, 0},
    {L"Write", kWrite, Kind::method, 1, 1},
    {L"WriteBlankLines", kWriteBlankLines, Kind::method, 1, 1},
    {L"WriteLine", kWriteLine, Kind::method, 0, 1},
};

// The failures that scripts know from text streams.
constexpr HRESULT kBadFileMode = CTL_E_BADFILEMODE;
constexpr HRESULT kPastTheEnd = static_cast<HRESULT>(0x800A003E);

constexpr wchar_t kInputName[] = L"standard input";

/// How many of the bytes are whole characters of UTF-8; what is malformed counts as whole.
std::size_t WholeBytes(std::string_view bytes) noexcept
{
    for (std::size_t back = 1; back <= std::min<std::size_t>(3, bytes.size()); ++back)
    {
        const auto byte = static_cast<unsigned char>(bytes[bytes.size() - back]);
        if ((byte & 0xC0) == 0x80)
        {
            continue; // inside a character
        }
        const std::size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
        return length > back ? bytes.size() - back : bytes.size();
    }
    return bytes.size();
}

std::size_t CountOf(const _variant_t& value)
{
    const long count = VariantNumber(value);
    if (count < 0)
    {
        throw CommandFailure{E_INVALIDARG, L"a negative number of characters or lines"};
    }
    return static_cast<std::size_t>(count);
}
} // namespace

ScriptStream::ScriptStream() : ScriptDispatch(kMembers) {}

_variant_t ScriptStream::Call(DISPID id, Values)
{
    switch (id)
    {
    case kClose:
        return {}; // the process's own, which others use too
    case kColumn:
        return {static_cast<long>(m_column)};
    case kLine:
        return {static_cast<long>(m_line)};
    default:
        throw CommandFailure{kBadFileMode, L"the stream cannot do that"};
    }
}

void ScriptStream::Advance(std::wstring_view text) noexcept
{
    for (const wchar_t c : text)
    {
        m_line += c == L'\n' ? 1 : 0;
        m_column = c == L'\n' ? 1 : m_column + 1;
    }
}

_variant_t ScriptOutput::Call(DISPID id, Values values)
{
    switch (id)
    {
    case kWrite:
        Write(VariantText(values[0]));
        return {};
    case kWriteLine:
        Write((values.empty() ? std::wstring() : VariantText(values[0])) + L"\n");
        return {};
    case kWriteBlankLines:
        Write(std::wstring(CountOf(values[0]), L'\n'));
        return {};
    default:
        return ScriptStream::Call(id, values);
    }
}

void ScriptOutput::Write(const std::wstring& text)
{
    m_write(Utf8FromWide(text));
    Advance(text);
}

ScriptInput::ScriptInput() noexcept : m_handle(::GetStdHandle(STD_INPUT_HANDLE))
{
    DWORD mode = 0;
    m_terminal = ::GetConsoleMode(m_handle, &mode) != FALSE;
}

_variant_t ScriptInput::Call(DISPID id, Values values)
{
    switch (id)
    {
    case kAtEndOfLine:
        return {!Fill() || m_text[0] == L'\r' || m_text[0] == L'\n'};
    case kAtEndOfStream:
        return {!Fill()};
    case kReadLine:
        return {TakeLine().c_str()};
    case kSkipLine:
        TakeLine();
        return {};
    case kRead:
        return {Take(values[0]).c_str()};
    case kSkip:
        Take(values[0]);
        return {};
    case kReadAll:
    {
        while (ReadMore())
        {
        }
        const std::wstring text = std::exchange(m_text, {});
        Advance(text);
        return {text.c_str()};
    }
    default:
        return ScriptStream::Call(id, values);
    }
}

bool ScriptInput::Fill()
{
    while (m_text.empty() && ReadMore())
    {
    }
    return !m_text.empty();
}

bool ScriptInput::ReadMore()
{
    if (m_ended)
    {
        return false;
    }
    std::array<wchar_t, 2048> room{};
    DWORD count = 0;
    if (m_terminal)
    {
        if (!::ReadConsoleW(m_handle, room.data(), static_cast<DWORD>(room.size()), &count,
                            nullptr))
        {
            throw LastFailure(kInputName);
        }
        std::wstring typed(room.data(), count);
        const std::size_t end = typed.find(L'\x1A'); // Ctrl+Z
        m_ended = count == 0 || end != typed.npos;
        m_text += typed.substr(0, end);
        return !m_ended;
    }
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    auto* const bytes = reinterpret_cast<char*>(room.data());
    if (!::ReadFile(m_handle, bytes, sizeof(room), &count, nullptr))
    {
        const DWORD error = ::GetLastError();
        if (error != ERROR_BROKEN_PIPE && error != ERROR_INVALID_HANDLE) // the end, or no input
        {
            throw LastFailure(kInputName);
        }
        count = 0;
    }
    m_ended = count == 0;
    m_bytes.append(bytes, count);
    const std::size_t whole = m_ended ? m_bytes.size() : WholeBytes(m_bytes);
    std::string_view text = std::string_view(m_bytes).substr(0, whole);
    if (m_first && text.starts_with(kMark))
    {
        text.remove_prefix(kMark.size());
    }
    m_first = m_first && whole == 0;
    m_text += WideFromUtf8(text);
    m_bytes.erase(0, whole);
    return !m_ended;
}

std::wstring ScriptInput::TakeLine()
{
    if (!Fill())
    {
        throw CommandFailure{kPastTheEnd, L"the input is at its end"};
    }
    std::size_t end = m_text.find(L'\n');
    while (end == m_text.npos && ReadMore())
    {
        end = m_text.find(L'\n');
    }
    const std::size_t taken = end == m_text.npos ? m_text.size() : end + 1;
    std::wstring line = m_text.substr(0, taken);
    m_text.erase(0, taken);
    Advance(line);
    line.erase(line.ends_with(L'\n') ? line.size() - 1 : line.size());
    line.erase(line.ends_with(L'\r') ? line.size() - 1 : line.size());
    return line;
}

std::wstring ScriptInput::Take(const _variant_t& count)
{
    const std::size_t wanted = CountOf(count);
    if (wanted > 0 && !Fill())
    {
        throw CommandFailure{kPastTheEnd, L"the input is at its end"};
    }
    while (m_text.size() < wanted && ReadMore())
    {
    }
    std::wstring text = m_text.substr(0, wanted);
    m_text.erase(0, text.size());
    Advance(text);
    return text;
}
} // namespace velt::tool
