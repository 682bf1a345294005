#include "ui/button_face.h"

#include "ui/button_slices.h"
#include "ui/drawing_scopes.h"

#include <utility>

// The linker's name for the start of the module that this code is in.
extern "C" IMAGE_DOS_HEADER __ImageBase; // NOLINT(bugprone-reserved-identifier)

namespace velt
{
namespace
{
void Stretch(HDC target, HDC source, const SliceCopy& slice, DWORD operation) noexcept
{
    const auto& [from, to] = slice;
    ::StretchBlt(target, to.x, to.y, to.width, to.height, source, from.x, from.y, from.width,
                 from.height, operation);
}
} // namespace

ButtonFace::ButtonFace(UINT id) noexcept : m_id(id) {}

void ButtonFace::Draw(HDC target, Size button) noexcept
{
    if (!m_mask && !Load(target))
    {
        return;
    }
    const UniqueMemoryDc face(::CreateCompatibleDC(target));
    const UniqueMemoryDc mask(::CreateCompatibleDC(target));
    const SelectScope selectedFace(face.Get(), m_face.Get());
    const SelectScope selectedMask(mask.Get(), m_mask.Get());
    if (!selectedFace || !selectedMask)
    {
        return;
    }
    ::SetStretchBltMode(target, COLORONCOLOR);
    ::SetBkColor(target, RGB(255, 255, 255)); // what the mask's 1 is on the target: left as it is
    ::SetTextColor(target, RGB(0, 0, 0));
    for (const SliceCopy& slice : PlaceButtonSlices(m_size, button))
    {
        Stretch(target, face.Get(), slice, SRCINVERT);
        Stretch(target, mask.Get(), slice, SRCAND);
        Stretch(target, face.Get(), slice, SRCINVERT);
    }
}

bool ButtonFace::Load(HDC context) noexcept
{
    BITMAP info{};
    UniqueBitmap face(
        ::LoadBitmapW(reinterpret_cast<HINSTANCE>(&__ImageBase), MAKEINTRESOURCEW(m_id)));
    if (!face || ::GetObjectW(face.Get(), sizeof(info), &info) == 0)
    {
        return false;
    }
    UniqueBitmap mask(::CreateBitmap(info.bmWidth, info.bmHeight, 1, 1, nullptr));
    const UniqueMemoryDc from(::CreateCompatibleDC(context));
    const UniqueMemoryDc to(::CreateCompatibleDC(context));
    {
        const SelectScope selectedFrom(from.Get(), face.Get());
        const SelectScope selectedTo(to.Get(), mask.Get());
        // Turned to monochrome, pixels of the background colour become 1: black ones.
        ::SetBkColor(from.Get(), RGB(0, 0, 0));
        if (!::BitBlt(to.Get(), 0, 0, info.bmWidth, info.bmHeight, from.Get(), 0, 0, SRCCOPY))
        {
            return false;
        }
    }
    m_size = {info.bmWidth, info.bmHeight};
    m_face = std::move(face);
    m_mask = std::move(mask);
    return true;
}
} // namespace velt
