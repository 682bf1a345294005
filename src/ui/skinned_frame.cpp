#include "ui/skinned_frame.h"

#include "foundation/exception_to_hresult.h"
#include "foundation/high_contrast.h"
#include "foundation/system_exception.h"
#include "foundation/utrace.h"
#include "ui/activex_children.h"
#include "ui/areas_around.h"
#include "ui/bitmap_region.h"
#include "ui/dialog_init_data.h"
#include "ui/drawing_scopes.h"
#include "ui/skin_composer.h"

#include <comdef.h>

#include <algorithm>
#include <array>
#include <span>
#include <utility>

namespace velt
{
namespace
{
constexpr int kCaptionChild = 1006;
constexpr int kBrowserChild = 201;
constexpr std::size_t kLongestCaption = 519;
constexpr WORD kInitDataType = 240; // RT_DLGINIT
constexpr wchar_t kCaptionFace[] = L"Arial";
constexpr COLORREF kControlColour = RGB(237, 237, 237);
constexpr COLORREF kOutside = RGB(255, 0, 0); // of the skin, where the window is not

UniqueFont MakeCaptionFont() noexcept
{
    LOGFONTW attributes{};
    ::GetObjectW(::GetStockObject(DEFAULT_GUI_FONT), sizeof(attributes), &attributes);
    attributes.lfHeight = -12;
    attributes.lfWeight = 600;
    std::ranges::copy(kCaptionFace, attributes.lfFaceName);
    return UniqueFont(::CreateFontIndirectW(&attributes));
}

/// A resource's bytes; none, and the thread's last error is set, when there is none.
std::span<const std::byte> ResourceBytes(HINSTANCE module, const wchar_t* type, UINT id) noexcept
{
    const HRSRC place = ::FindResourceW(module, MAKEINTRESOURCEW(id), type);
    const HGLOBAL resource = place ? ::LoadResource(module, place) : nullptr;
    const void* const bytes = resource ? ::LockResource(resource) : nullptr;
    return bytes ? std::span(static_cast<const std::byte*>(bytes), ::SizeofResource(module, place))
                 : std::span<const std::byte>();
}

/// The dialog's template as the module has it; none, and the thread's last error is set, when there
/// is none or it is damaged.
std::optional<DialogTemplate> LoadTemplate(HINSTANCE module, UINT id)
{
    const std::span<const std::byte> bytes = ResourceBytes(module, RT_DIALOG, id);
    if (bytes.empty())
    {
        return std::nullopt;
    }
    std::optional<DialogTemplate> result = SplitDialogTemplate(bytes);
    if (!result)
    {
        ::SetLastError(ERROR_INVALID_DATA);
    }
    return result;
}

/// Messages whose answer is what the dialog procedure itself returns.
bool IsAnsweredDirectly(UINT message) noexcept
{
    return message == WM_INITDIALOG || message == WM_CHARTOITEM || message == WM_VKEYTOITEM ||
           message == WM_COMPAREITEM || message == WM_QUERYDRAGICON ||
           (message >= WM_CTLCOLORMSGBOX && message <= WM_CTLCOLORSTATIC);
}

/// Gives the window a copy of the region, or none for none; it is not painted for that.
void SetOutline(HWND window, HRGN region) noexcept
{
    UniqueRegion copy(region ? ::CreateRectRgn(0, 0, 0, 0) : nullptr);
    if (copy && ::CombineRgn(copy.Get(), region, nullptr, RGN_COPY) == ERROR)
    {
        copy.Reset();
    }
    if (::SetWindowRgn(window, copy.Get(), FALSE) != 0)
    {
        (void)copy.Release(); // the system's from now on
    }
}
} // namespace

SkinnedFrame::SkinnedFrame(const CornerSizes& corners) noexcept : m_corners(corners) {}

SkinnedFrame::~SkinnedFrame() = default;

void SkinnedFrame::InitSkin(bool skinned, UINT dialogId, HINSTANCE module, UINT skinId)
{
    m_skinned = skinned;
    m_dialogId = dialogId;
    m_module = module;
    m_skinId = skinId;
    if (!skinned)
    {
        return;
    }
    m_captionFont = MakeCaptionFont();
    m_controlBrush.Reset(::CreateSolidBrush(kControlColour));
    m_skinSource.Reset(::LoadBitmapW(m_module, MAKEINTRESOURCEW(m_skinId)));
    if (!m_skinSource)
    {
        throw _com_error(HRESULT_FROM_WIN32(::GetLastError()));
    }
}

void SkinnedFrame::SetTextColour(COLORREF colour) noexcept
{
    m_textColour = colour;
    DropFace(); // which has the caption in the old one
}

INT_PTR SkinnedFrame::DoModal(HWND owner)
{
    std::optional<DialogTemplate> dialog = LoadTemplate(m_module, m_dialogId);
    if (!dialog)
    {
        return -1;
    }
    m_activeXItems.clear();
    if ((dialog->hasHostWindows || !dialog->activeX.empty()) && InitActiveXHosts())
    {
        m_activeXItems = std::move(dialog->activeX);
        TakeInitData(ResourceBytes(m_module, MAKEINTRESOURCEW(kInitDataType), m_dialogId),
                     m_activeXItems);
    }
    m_composedSkin.Reset();
    m_isCut = false;
    m_result.reset();
    m_isMade = false;
    const INT_PTR result = ::DialogBoxIndirectParamW(
        m_module, reinterpret_cast<const DLGTEMPLATE*>(dialog->words.data()), owner,
        &SkinnedFrame::DialogProc, reinterpret_cast<LPARAM>(this));
    if (m_failure)
    {
        std::rethrow_exception(std::exchange(m_failure, nullptr));
    }
    // A dialog that the system ends by itself has an answer of the system's, such as IDOK.
    return m_isMade ? m_result.value_or(0) : result;
}

void SkinnedFrame::End(INT_PTR result) noexcept
{
    m_result = result;
    ::EndDialog(m_window, result);
}

bool SkinnedFrame::HasEnded() const noexcept
{
    return m_result.has_value();
}

HWND SkinnedFrame::Window() const noexcept
{
    return m_window;
}

const std::wstring& SkinnedFrame::CaptionText() const noexcept
{
    return m_captionText;
}

void SkinnedFrame::SetCaptionText(std::wstring_view text)
{
    m_captionText = text.substr(0, kLongestCaption);
    DropFace(); // which has the old one
}

INT_PTR CALLBACK SkinnedFrame::DialogProc(HWND window, UINT message, WPARAM wParam,
                                          LPARAM lParam) noexcept
{
    return Receive(window, message, wParam, lParam);
}

INT_PTR SkinnedFrame::Receive(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept
{
    if (message == WM_INITDIALOG && ::GetWindowLongPtrW(window, DWLP_USER) == 0)
    {
        ::SetWindowLongPtrW(window, DWLP_USER, lParam);
        auto& made = *reinterpret_cast<SkinnedFrame*>(lParam);
        made.m_window = window;
        made.m_isMade = true;
    }
    auto* const frame = reinterpret_cast<SkinnedFrame*>(::GetWindowLongPtrW(window, DWLP_USER));
    if (!frame)
    {
        return FALSE; // a message before WM_INITDIALOG
    }
    const INT_PTR answer = frame->Answer(message, wParam, lParam);
    if (message == WM_NCDESTROY)
    {
        ::SetWindowLongPtrW(window, DWLP_USER, 0);
        frame->m_window = nullptr;
    }
    return answer;
}

INT_PTR SkinnedFrame::Answer(UINT message, WPARAM wParam, LPARAM lParam) noexcept
{
    try
    {
        const std::optional<LRESULT> result = Dispatch(message, wParam, lParam);
        if (!result || IsAnsweredDirectly(message))
        {
            return static_cast<INT_PTR>(result.value_or(FALSE));
        }
        ::SetWindowLongPtrW(m_window, DWLP_MSGRESULT, *result);
        return TRUE;
    }
    catch (...)
    {
        if (!m_failure)
        {
            m_failure = std::current_exception();
        }
        End(-1);
        return FALSE;
    }
}

std::optional<LRESULT> SkinnedFrame::ProcessMessage(UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message)
    {
    case WM_CREATE:
    case WM_INITDIALOG:
        return OnInitialise();
    case WM_PAINT:
        return OnPaint();
    case WM_SIZE:
        OnSize(LOWORD(lParam), HIWORD(lParam));
        return 0;
    case WM_LBUTTONDOWN:
        return OnLeftButtonDown(lParam);
    case WM_CTLCOLORDLG:
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORSTATIC:
        return OnControlColour(reinterpret_cast<HDC>(wParam), reinterpret_cast<HWND>(lParam));
    default:
        return std::nullopt;
    }
}

LRESULT SkinnedFrame::OnInitialise()
{
    CreateActiveXChildren(m_window, m_module, m_activeXItems);
    std::array<wchar_t, kLongestCaption + 1> text{};
    ::GetDlgItemTextW(m_window, kCaptionChild, text.data(), static_cast<int>(text.size()));
    SetCaptionText(text.data());
    return TRUE;
}

LRESULT SkinnedFrame::OnPaint()
{
    const PaintScope paint(m_window);
    if (m_skinned && paint.Get())
    {
        try
        {
            PaintSkin(paint.Get());
        }
        catch (...)
        {
            TraceCurrentException(); // the window stays as it was
        }
    }
    return 0;
}

void SkinnedFrame::OnSize(int width, int height)
{
    if (m_skinned)
    {
        ComposeFace({width, height});
        CutOutline({width, height});
    }
    ::InvalidateRect(m_window, nullptr, TRUE);
    ::UpdateWindow(m_window);
}

LRESULT SkinnedFrame::OnLeftButtonDown(LPARAM point)
{
    const POINT at{static_cast<short>(LOWORD(point)), static_cast<short>(HIWORD(point))};
    // A button forwards its presses; they must not start a move, or it would never get its release.
    if (::ChildWindowFromPointEx(m_window, at, CWP_SKIPINVISIBLE) == m_window)
    {
        ::PostMessageW(m_window, WM_NCLBUTTONDOWN, HTCAPTION, point);
    }
    return 0;
}

std::optional<LRESULT> SkinnedFrame::OnControlColour(HDC context, HWND control)
{
    UTrace::TraceLevel3("Using Brush");
    const bool isDialog = control == m_window;
    if (!isDialog && IsHighContrastOn())
    {
        return std::nullopt; // the system's colours
    }
    ::SetBkMode(context, TRANSPARENT);
    ::SetTextColor(context, m_textColour);
    const HGDIOBJ brush = isDialog ? ::GetStockObject(NULL_BRUSH) : m_controlBrush.Get();
    return reinterpret_cast<LRESULT>(brush);
}

void SkinnedFrame::ComposeFace(Size client) noexcept
{
    m_captionAt.reset();
    m_composedSkin.Reset();
    m_composedSkin = ComposeSkin(m_skinSource.Get(), m_corners, client);
}

/// To be called before the face has the caption: a red one would be outside.
void SkinnedFrame::CutOutline(Size client) noexcept
{
    m_region.Reset();
    m_region = RegionFromBitmap(m_composedSkin.Get(), {0, 0}, client, kOutside);
    SetOutline(m_window, m_region.Get());
    m_isCut = static_cast<bool>(m_region);
}

/// Another face is composed with the next painting; the outline stays as it is.
void SkinnedFrame::DropFace() noexcept
{
    m_composedSkin.Reset();
    if (m_window) // without one, all windows of the screen would be painted
    {
        ::InvalidateRect(m_window, nullptr, FALSE);
    }
}

void SkinnedFrame::PaintSkin(HDC context)
{
    const Size client = ClientSize();
    const std::optional<PixelRect> caption = CaptionArea();
    // Smooth text must not be drawn over itself: one composed skin gets the caption once.
    if (!m_composedSkin || !m_isCut || (m_captionAt && m_captionAt != caption))
    {
        ComposeFace(client);
    }
    if (!m_isCut)
    {
        CutOutline(client); // there was no WM_SIZE yet
    }
    const UniqueMemoryDc memory(::CreateCompatibleDC(context));
    if (!memory || !m_composedSkin)
    {
        ThrowLastError();
    }
    const SelectScope selected(memory.Get(), m_composedSkin.Get());
    if (caption && !m_captionAt)
    {
        DrawCaption(memory.Get(), *caption);
        m_captionAt = caption;
    }
    const auto copy = [&](const Area& part) {
        ::BitBlt(context, part.x, part.y, part.width, part.height, memory.Get(), part.x, part.y,
                 SRCCOPY);
    };
    if (const std::optional<PixelRect> browser = ChildArea(kBrowserChild))
    {
        std::ranges::for_each(AreasAround(client, *browser), copy);
    }
    else
    {
        copy({0, 0, client.width, client.height});
    }
}

void SkinnedFrame::DrawCaption(HDC context, const PixelRect& area) const noexcept
{
    const SelectScope font(context, m_captionFont.Get());
    ::SetBkMode(context, TRANSPARENT);
    ::SetTextColor(context, m_textColour);
    RECT place{area.left, area.top, area.right, area.bottom};
    ::DrawTextW(context, m_captionText.c_str(), static_cast<int>(m_captionText.size()), &place,
                DT_VCENTER);
}

std::optional<PixelRect> SkinnedFrame::CaptionArea() const noexcept
{
    return m_captionText.empty() ? std::nullopt : ChildArea(kCaptionChild);
}

std::optional<PixelRect> SkinnedFrame::ChildArea(int id) const noexcept
{
    const HWND child = ::GetDlgItem(m_window, id);
    RECT area{};
    if (!child || !::GetWindowRect(child, &area))
    {
        return std::nullopt;
    }
    ::MapWindowPoints(HWND_DESKTOP, m_window, reinterpret_cast<POINT*>(&area), 2);
    return PixelRect{area.left, area.top, area.right, area.bottom};
}

Size SkinnedFrame::ClientSize() const noexcept
{
    RECT client{};
    ::GetClientRect(m_window, &client);
    return {client.right, client.bottom};
}
} // namespace velt
