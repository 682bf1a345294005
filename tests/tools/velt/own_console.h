#pragma once

#include "tests/support/test_thread.h"

#include <windows.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <string_view>

namespace velt::test
{
/// A console of the test's own, whose characters can be read.
class OwnConsole
{
public:
    OwnConsole()
    {
        ::FreeConsole();
        s_pressed = &m_pressed;
        if (!::AllocConsole() || !::SetConsoleCtrlHandler(&OnControl, TRUE))
        {
            throw std::runtime_error("no console");
        }
        m_screen =
            ::CreateFileW(L"CONOUT$", GENERIC_READ | GENERIC_WRITE,
                          FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
        ::SetHandleInformation(m_screen, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
        m_keyboard =
            ::CreateFileW(L"CONIN$", GENERIC_READ | GENERIC_WRITE,
                          FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
        ::SetHandleInformation(m_keyboard, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
        m_firstMode = Mode();
    }

    OwnConsole(const OwnConsole&) = delete;
    OwnConsole& operator=(const OwnConsole&) = delete;

    ~OwnConsole()
    {
        ::SetConsoleCtrlHandler(&OnControl, FALSE);
        s_pressed = nullptr;
        ::CloseHandle(m_keyboard);
        ::CloseHandle(m_screen);
        ::FreeConsole();
    }

    HANDLE Screen() const noexcept
    {
        return m_screen;
    }

    HANDLE Keyboard() const noexcept
    {
        return m_keyboard;
    }

    /// How the console treats what is typed, now and at first.
    DWORD Mode() const noexcept
    {
        DWORD mode = 0;
        ::GetConsoleMode(m_keyboard, &mode);
        return mode;
    }

    DWORD FirstMode() const noexcept
    {
        return m_firstMode;
    }

    /// As the user does.
    void Type(std::wstring_view text) const
    {
        for (const wchar_t character : text)
        {
            INPUT_RECORD records[2]{};
            for (INPUT_RECORD& record : records)
            {
                record.EventType = KEY_EVENT;
                record.Event.KeyEvent.bKeyDown = &record == &records[0];
                record.Event.KeyEvent.wRepeatCount = 1;
                record.Event.KeyEvent.wVirtualKeyCode =
                    static_cast<WORD>(::VkKeyScanW(character) & 0xFF);
                record.Event.KeyEvent.uChar.UnicodeChar = character;
            }
            DWORD written = 0;
            if (!::WriteConsoleInputW(m_keyboard, records, 2, &written) || written != 2)
            {
                throw std::runtime_error("nothing can be typed");
            }
        }
    }

    /// All its lines as one text.
    std::wstring Text() const
    {
        CONSOLE_SCREEN_BUFFER_INFO info{};
        ::GetConsoleScreenBufferInfo(m_screen, &info);
        std::wstring text(static_cast<std::size_t>(info.dwSize.X * info.dwSize.Y), L' ');
        DWORD read = 0;
        ::ReadConsoleOutputCharacterW(m_screen, text.data(), static_cast<DWORD>(text.size()),
                                      {0, 0}, &read);
        text.resize(read);
        return text;
    }

    /// As the user does, for every program of the console; this one stays.
    void PressControlC() const
    {
        if (!::GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0))
        {
            throw std::runtime_error("no Ctrl+C");
        }
        m_pressed.Wait(); // it comes on a thread of the system's, whenever that runs
    }

private:
    static BOOL CALLBACK OnControl(DWORD) noexcept
    {
        if (TestEvent* const pressed = s_pressed)
        {
            pressed->Set();
        }
        return TRUE; // no end of the process
    }

    inline static std::atomic<TestEvent*> s_pressed = nullptr; // that of the one console
    TestEvent m_pressed;
    HANDLE m_screen;
    HANDLE m_keyboard;
    DWORD m_firstMode = 0;
};
} // namespace velt::test
