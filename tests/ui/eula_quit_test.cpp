#include "tests/support/temp_folder.h"
#include "tests/ui/eula_files.h"
#include "tests/ui/eula_session.h"
#include "tests/ui/plain_window.h"
#include "tests/ui/stand_in_document.h"
#include "ui/resources/resource_ids.h"

#include <catch.hpp>

#include <functional>
#include <optional>
#include <utility>

using namespace velt::test;

namespace
{
constexpr int kExitCode = 77;

/// A dialog whose thread can be told to do something meanwhile, and a look at what is left in the
/// thread's queue afterwards.
class Host
{
public:
    /// `before` and `after` run on the dialog's thread, around the call.
    explicit Host(std::function<void()> before = {}, std::function<void()> after = {})
        : m_session(
              m_library, Agreement(), {}, true,
              [this, before = std::move(before)] {
                  m_window.emplace();
                  ::SetWindowLongPtrW(m_window->Window(), GWLP_WNDPROC,
                                      reinterpret_cast<LONG_PTR>(&Host::Receive));
                  ::SetWindowLongPtrW(m_window->Window(), GWLP_USERDATA,
                                      reinterpret_cast<LONG_PTR>(this));
                  if (before)
                  {
                      before();
                  }
              },
              [this, after = std::move(after)] {
                  MSG message;
                  while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
                  {
                      if (message.message == WM_QUIT)
                      {
                          m_exitCode = static_cast<int>(message.wParam);
                          break;
                      }
                  }
                  m_window.reset();
                  if (after)
                  {
                      after();
                  }
              })
    {
    }

    /// Runs `body` on the dialog's thread, from its message loop.
    void Run(std::function<void()> body)
    {
        m_session.Dialog();
        m_body = std::move(body);
        ::PostMessageW(m_window->Window(), WM_APP, 0, 0);
    }

    EulaSession& Session() noexcept
    {
        return m_session;
    }

    /// Chooses without a mouse.
    void Choose(int id)
    {
        ::CheckRadioButton(m_session.Dialog(), VELT_EULA_DECLINE, VELT_EULA_ACCEPT, id);
    }

    /// The exit code of the quit message that the host's own loop finds; none without one.
    std::optional<int> ExitCode() const noexcept
    {
        return m_exitCode;
    }

private:
    static LRESULT CALLBACK Receive(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
    {
        if (message == WM_APP)
        {
            reinterpret_cast<Host*>(::GetWindowLongPtrW(window, GWLP_USERDATA))->m_body();
            return 0;
        }
        return ::DefWindowProcW(window, message, wParam, lParam);
    }

    std::wstring Agreement() const
    {
        m_folder.Write(L"agreement.rtf", kSmallAgreement);
        return m_folder.File(L"agreement.rtf");
    }

    const TempFolder m_folder;
    const ComponentLibrary m_library;
    std::optional<PlainWindow> m_window; // of the dialog's thread
    std::function<void()> m_body;
    std::optional<int> m_exitCode;
    EulaSession m_session; // last: its thread uses the others
};

void CheckIsNotAccepted(Host& host)
{
    const EulaAnswer answer = host.Session().Join();
    CHECK(answer.hr == S_OK);
    CHECK(answer.accepted == VARIANT_FALSE);
}
} // namespace

TEST_CASE("CVeltEulaDlg: a thread that was told to quit before the call has not accepted", "[ui]")
{
    Host host([] { ::PostQuitMessage(kExitCode); });
    CheckIsNotAccepted(host);
    CHECK(host.ExitCode() == kExitCode);
}

TEST_CASE("CVeltEulaDlg: a thread that is told to quit while the dialog is open has not accepted",
          "[ui]")
{
    const int choice = GENERATE(as<int>(), VELT_EULA_DECLINE, VELT_EULA_ACCEPT);
    Host host;
    host.Choose(choice);
    host.Run([] { ::PostQuitMessage(kExitCode); });
    CheckIsNotAccepted(host);
    CHECK(host.ExitCode() == kExitCode);
}

TEST_CASE("CVeltEulaDlg: a thread that is told to quit while the texts load has not accepted",
          "[ui]")
{
    std::optional<StandInDocument> document; // of the dialog's thread
    bool isTold = false;
    Host host(
        [&] {
            document.emplace([&]() -> LONG {
                if (!std::exchange(isTold, true))
                {
                    ::PostQuitMessage(kExitCode);
                }
                return 1; // and for ever
            });
        },
        [&] { document.reset(); });
    CheckIsNotAccepted(host);
    CHECK(host.ExitCode() == kExitCode);
    CHECK(isTold);
}

TEST_CASE("CVeltEulaDlg: a dialog that somebody else ends has not been accepted", "[ui]")
{
    const bool isDestroyed = GENERATE(true, false);
    Host host;
    host.Choose(VELT_EULA_ACCEPT);
    host.Run([&] {
        if (isDestroyed)
        {
            ::DestroyWindow(host.Session().Dialog());
        }
        else
        {
            ::EndDialog(host.Session().Dialog(), 1);
        }
    });
    CheckIsNotAccepted(host);
    CHECK_FALSE(host.ExitCode());
}

TEST_CASE("CVeltEulaDlg: OK that was pressed before the quit message counts", "[ui]")
{
    const int choice = GENERATE(as<int>(), VELT_EULA_DECLINE, VELT_EULA_ACCEPT);
    Host host;
    host.Choose(choice);
    host.Run([&] {
        ::PostQuitMessage(kExitCode);
        ::SendMessageW(host.Session().Dialog(), WM_COMMAND, IDOK, 0);
    });
    const EulaAnswer answer = host.Session().Join();
    CHECK(answer.hr == S_OK);
    CHECK(answer.accepted == (choice == VELT_EULA_ACCEPT ? VARIANT_TRUE : VARIANT_FALSE));
    CHECK(host.ExitCode() == kExitCode);
}
