#include "tools/velt/password_input.h"

#include "foundation/utf.h"
#include "foundation/wide_text.h"
#include "tools/velt/command_context.h"
#include "tools/velt/full_path.h"
#include "tools/velt/script_text.h"

#include <array>
#include <string>

namespace velt::tool
{
namespace
{
constexpr wchar_t kInputName[] = L"standard input";

/// What is typed is not shown until the end of the scope.
class HiddenTyping
{
public:
    HiddenTyping(HANDLE input, DWORD mode) : m_input(input), m_mode(mode)
    {
        if (!::SetConsoleMode(input, (mode & ~DWORD{ENABLE_ECHO_INPUT}) | ENABLE_LINE_INPUT |
                                         ENABLE_PROCESSED_INPUT))
        {
            throw LastFailure(kInputName);
        }
    }

    HiddenTyping(const HiddenTyping&) = delete;
    HiddenTyping& operator=(const HiddenTyping&) = delete;

    ~HiddenTyping()
    {
        ::SetConsoleMode(m_input, m_mode);
    }

private:
    HANDLE m_input;
    DWORD m_mode;
};

std::wstring FirstLine(const std::wstring& text)
{
    return text.substr(0, text.find_first_of(L"\r\n"));
}

std::wstring FirstLine(std::string_view bytes)
{
    return FirstLine(WideFromUtf8(Utf8FromUtf16(DecodeScript(bytes))));
}

std::wstring ReadTyped(HANDLE input, DWORD mode, const std::wstring& userName,
                       const Console& messages)
{
    const HiddenTyping hidden(input, mode);
    messages.Write("password for " + Utf8FromWide(userName) + ": ");
    std::wstring line;
    std::array<wchar_t, 512> part{};
    DWORD read = 0;
    BOOL done = FALSE;
    do // to its end: the next program must not get the rest of a password
    {
        done = ::ReadConsoleW(input, part.data(), static_cast<DWORD>(part.size()), &read, nullptr);
        line.append(part.data(), done ? read : 0);
    } while (done && read != 0 && line.back() != L'\n');
    const DWORD error = ::GetLastError();
    messages.Write("\n"); // the one that was typed is not shown either
    if (!done || read == 0)
    {
        throw CommandFailure{HRESULT_FROM_WIN32(done ? ERROR_CANCELLED : error), kInputName};
    }
    return FirstLine(line);
}

/// One byte at a time, because what follows the line is somebody else's.
std::string ReadLine(HANDLE input)
{
    std::string bytes;
    for (char byte = 0; byte != '\n';)
    {
        DWORD read = 0;
        if (!::ReadFile(input, &byte, 1, &read, nullptr) && ::GetLastError() != ERROR_BROKEN_PIPE)
        {
            throw LastFailure(kInputName);
        }
        if (read == 0)
        {
            break;
        }
        bytes.push_back(byte);
    }
    return bytes;
}
} // namespace

std::wstring ReadPassword(const std::wstring& file, const std::wstring& userName,
                          const Console& messages)
{
    if (file != L"-")
    {
        return FirstLine(ReadWholeFile(FullPath(file)));
    }
    const HANDLE input = ::GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    return ::GetConsoleMode(input, &mode) ? ReadTyped(input, mode, userName, messages)
                                          : FirstLine(ReadLine(input));
}
} // namespace velt::tool
