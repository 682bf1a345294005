#include "tests/ui/eula_session.h"

#include "tests/support/com_apartment.h"
#include "tests/support/keyboard.h"
#include "ui/resources/resource_ids.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

namespace velt::test
{
namespace
{
constexpr DWORD kLimitMs = 120'000;  // for what a user does, whatever else the machine does
constexpr DWORD kPatienceMs = 3'000; // after which a user who sees no effect tries once more
constexpr wchar_t kReady[] = L"VeltTestReady"; // a property of the dialog

std::vector<HWND> DialogsOf(DWORD thread)
{
    std::vector<HWND> dialogs;
    const auto collect = [](HWND window, LPARAM list) WINAPI -> BOOL {
        wchar_t name[16] = {};
        ::GetClassNameW(window, name, 16);
        if (::lstrcmpW(name, L"#32770") == 0)
        {
            reinterpret_cast<std::vector<HWND>*>(list)->push_back(window);
        }
        return TRUE;
    };
    ::EnumThreadWindows(thread, collect, reinterpret_cast<LPARAM>(&dialogs));
    return dialogs;
}

HWND FocusOf(DWORD thread)
{
    GUITHREADINFO info{};
    info.cbSize = sizeof(info);
    return ::GetGUIThreadInfo(thread, &info) ? info.hwndFocus : nullptr;
}

/// Marks the dialog when its initialisation is over.
LRESULT CALLBACK MarkWhenReady(int code, WPARAM wParam, LPARAM lParam)
{
    const auto& sent = *reinterpret_cast<const CWPRETSTRUCT*>(lParam);
    if (code == HC_ACTION && sent.message == WM_INITDIALOG)
    {
        ::SetPropW(sent.hwnd, kReady, ::GetModuleHandleW(nullptr));
    }
    return ::CallNextHookEx(nullptr, code, wParam, lParam);
}

bool IsMoving(DWORD thread)
{
    GUITHREADINFO info{};
    info.cbSize = sizeof(info);
    return ::GetGUIThreadInfo(thread, &info) && (info.flags & GUI_INMOVESIZE) != 0;
}

/// Moves the pointer, and waits until it has come to rest there, over the window if one is given
/// and still there.
bool MovePointer(POINT to, HWND over)
{
    ::SetCursorPos(to.x, to.y);
    int looks = 0; // in a row that have found it there
    return WaitUntil([=, &looks] {
        if (over && !::IsWindow(over))
        {
            return true;
        }
        POINT at{};
        const bool isThere = ::GetCursorPos(&at) && at.x == to.x && at.y == to.y;
        looks = isThere && (!over || ::WindowFromPoint(at) == over) ? looks + 1 : 0;
        return looks == 5;
    });
}

void SendMouse(std::initializer_list<DWORD> events)
{
    std::vector<INPUT> inputs;
    for (const DWORD event : events)
    {
        INPUT input{};
        input.type = INPUT_MOUSE;
        input.mi.dwFlags = event;
        inputs.push_back(input);
    }
    if (::SendInput(static_cast<UINT>(inputs.size()), inputs.data(), sizeof(INPUT)) !=
        inputs.size())
    {
        throw std::runtime_error("no mouse");
    }
}
} // namespace

bool WaitUntil(const std::function<bool()>& condition, DWORD limitMs)
{
    const ULONGLONG start = ::GetTickCount64();
    while (!condition())
    {
        if (::GetTickCount64() - start > limitMs)
        {
            return false;
        }
        ::MsgWaitForMultipleObjects(0, nullptr, FALSE, 5, QS_ALLINPUT);
        MSG message;
        while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        {
            ::DispatchMessageW(&message);
        }
    }
    return true;
}

std::wstring TextOfWindow(HWND window)
{
    std::wstring text(static_cast<std::size_t>(::SendMessageW(window, WM_GETTEXTLENGTH, 0, 0)) + 1,
                      L'\0');
    const LRESULT length =
        ::SendMessageW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

RECT PlaceInParent(HWND window)
{
    RECT place{};
    ::GetWindowRect(window, &place);
    ::MapWindowPoints(nullptr, ::GetParent(window), reinterpret_cast<POINT*>(&place), 2);
    return place;
}

EulaSession::EulaSession(const ComponentLibrary& library, std::wstring agreement,
                         std::wstring texts, bool withCom, std::function<void()> before,
                         std::function<void()> after)
    : m_thread([this, &library, agreement = std::move(agreement), texts = std::move(texts), withCom,
                before = std::move(before), after = std::move(after)] {
          std::optional<ComApartment> com;
          if (withCom)
          {
              com.emplace();
          }
          const auto dialog = library.Create<IVeltEulaDlg>(CLSID_CVeltEulaDlg);
          const BSTR agreementText = ::SysAllocString(agreement.c_str());
          const BSTR textsText = ::SysAllocString(texts.c_str());
          if (before)
          {
              before();
          }
          m_threadId = ::GetCurrentThreadId();
          const HHOOK hook =
              ::SetWindowsHookExW(WH_CALLWNDPROCRET, &MarkWhenReady, nullptr, m_threadId);
          m_answer.hr = dialog->LaunchEula(agreementText, textsText, &m_answer.accepted);
          ::UnhookWindowsHookEx(hook);
          if (after)
          {
              after();
          }
          ::SysFreeString(agreementText);
          ::SysFreeString(textsText);
      })
{
}

EulaSession::~EulaSession()
{
    try
    {
        if (!m_joined)
        {
            WaitUntil([this] { return m_threadId != 0; });
            for (const HWND dialog : DialogsOf(m_threadId))
            {
                ::PostMessageW(dialog, WM_COMMAND, IDOK, 0);
            }
        }
    }
    catch (const std::exception&)
    {
        // The test has failed by then.
    }
}

HWND EulaSession::Dialog()
{
    const bool ready = WaitUntil([this] {
        const std::vector<HWND> dialogs =
            m_threadId != 0 ? DialogsOf(m_threadId) : std::vector<HWND>();
        m_dialog = dialogs.empty() ? nullptr : dialogs.front();
        return m_dialog && ::GetPropW(m_dialog, kReady);
    });
    if (!ready)
    {
        throw std::runtime_error("no dialog comes");
    }
    return m_dialog;
}

HWND EulaSession::Item(int id)
{
    return ::GetDlgItem(m_dialog ? m_dialog : Dialog(), id);
}

std::wstring EulaSession::Text(int id)
{
    return TextOfWindow(Item(id));
}

bool EulaSession::IsChecked(int id)
{
    return ::SendMessageW(Item(id), BM_GETCHECK, 0, 0) == BST_CHECKED;
}

int EulaSession::FocusedId()
{
    const HWND focus = FocusOf(m_threadId);
    return focus ? ::GetDlgCtrlID(focus) : 0;
}

void EulaSession::Activate()
{
    const HWND dialog = Dialog();
    ::BringWindowToTop(dialog);
    ::SetForegroundWindow(dialog);
    if (!WaitUntil([dialog] { return ::GetForegroundWindow() == dialog; }))
    {
        throw std::runtime_error("the dialog does not come to the front");
    }
}

void EulaSession::Click(int id, const std::function<bool()>& taken)
{
    const ULONGLONG end = ::GetTickCount64() + kLimitMs;
    while (::GetTickCount64() < end)
    {
        ClickOnce(id);
        if (WaitUntil(taken, kPatienceMs))
        {
            return;
        }
    }
    throw std::runtime_error("clicks have no effect");
}

void EulaSession::Choose(int id)
{
    Click(id, [this, id] { return IsChecked(id); });
}

void EulaSession::ClickOk()
{
    Click(VELT_EULA_OK, [dialog = Dialog()] { return !::IsWindow(dialog); });
}

void EulaSession::ClickOnce(int id)
{
    const HWND item = Item(id);
    RECT place{};
    ::GetWindowRect(item, &place);
    // Near the left end of wide controls, where their mark is.
    const int x = place.left + std::min(place.right - place.left, 40L) / 2;
    const int y = (place.top + place.bottom) / 2;
    // The pointer itself goes there first: it would be seen where it was when the screen changes.
    if (!MovePointer({x, y}, item))
    {
        throw std::runtime_error("no mouse");
    }
    SendMouse({MOUSEEVENTF_LEFTDOWN, MOUSEEVENTF_LEFTUP});
}

void EulaSession::Drag(POINT from, int dx, int dy)
{
    constexpr int kSteps = 4;
    const HWND dialog = Dialog();
    const ULONGLONG end = ::GetTickCount64() + kLimitMs;
    while (::GetTickCount64() < end)
    {
        RECT before{};
        ::GetWindowRect(dialog, &before);
        const auto isMoved = [&] {
            RECT now{};
            ::GetWindowRect(dialog, &now);
            return now.left == before.left + dx && now.top == before.top + dy;
        };
        POINT start = from;
        ::ClientToScreen(dialog, &start);
        if (!MovePointer(start, dialog))
        {
            continue;
        }
        SendMouse({MOUSEEVENTF_LEFTDOWN});
        if (WaitUntil([this] { return IsMoving(m_threadId); }, kPatienceMs))
        {
            for (int step = 1; step <= kSteps; ++step)
            {
                MovePointer({start.x + dx * step / kSteps, start.y + dy * step / kSteps}, nullptr);
            }
        }
        SendMouse({MOUSEEVENTF_LEFTUP});
        if (WaitUntil([&] { return isMoved() && !IsMoving(m_threadId); }, kPatienceMs))
        {
            return;
        }
    }
    throw std::runtime_error("the dialog cannot be dragged");
}

void EulaSession::Press(WORD key, std::initializer_list<WORD> held)
{
    std::vector<WORD> keys = held;
    keys.push_back(key);
    SendKeys(keys);
}

bool EulaSession::IsOpen() const
{
    DWORD_PTR answer = 0;
    return ::IsWindow(m_dialog) && ::IsWindowVisible(m_dialog) &&
           ::SendMessageTimeoutW(m_dialog, WM_NULL, 0, 0, SMTO_NORMAL, kLimitMs, &answer) != 0;
}

void EulaSession::PressOk()
{
    ::PostMessageW(Dialog(), WM_COMMAND, IDOK, reinterpret_cast<LPARAM>(Item(VELT_EULA_OK)));
}

EulaAnswer EulaSession::Join()
{
    m_thread.Join(kLimitMs);
    m_joined = true;
    return m_answer;
}
} // namespace velt::test
