#include "foundation/system_exception.h"

#include "foundation/error_texts.h"
#include "foundation/system_error_text.h"
#include "foundation/wide_text.h"

#include <array>
#include <cstdio>

namespace
{
/// The message of a system failure. What cannot be had stays empty: building an exception must not
/// throw another one.
std::string SystemMessage(const VeltText& text, std::uint32_t code, std::wstring (*describe)(DWORD))
{
    std::array<char, 16> number{};
    std::snprintf(number.data(), number.size(), "0x%08lX", static_cast<unsigned long>(code));
    std::string description;
    try
    {
        description = velt::Utf8FromWide(describe(code));
    }
    catch (const std::exception&)
    {
        description.clear();
    }
    return text.Format({number.data(), std::move(description)});
}

std::wstring DescribeHResult(DWORD code)
{
    return velt::HResultText(static_cast<::HRESULT>(code));
}
} // namespace

SystemException::HRESULT::HRESULT(::HRESULT hr)
    : VeltException(velt::error_texts::kHResultError),
      m_code(static_cast<std::uint32_t>(hr))
{
    SetMessage(SystemMessage(velt::error_texts::kHResultError, m_code, &DescribeHResult));
}

::HRESULT SystemException::HRESULT::GetCode() const noexcept
{
    return static_cast<::HRESULT>(m_code);
}

std::unique_ptr<VeltException> SystemException::HRESULT::Clone() const
{
    return std::make_unique<HRESULT>(*this);
}

void SystemException::HRESULT::Raise() const
{
    throw *this;
}

SystemException::Win32::Win32(DWORD error)
    : VeltException(velt::error_texts::kWin32Error),
      m_code(error)
{
    SetMessage(SystemMessage(velt::error_texts::kWin32Error, m_code, &velt::Win32ErrorText));
}

DWORD SystemException::Win32::GetCode() const noexcept
{
    return m_code;
}

std::unique_ptr<VeltException> SystemException::Win32::Clone() const
{
    return std::make_unique<Win32>(*this);
}

void SystemException::Win32::Raise() const
{
    throw *this;
}

void velt::ThrowIfFailed(::HRESULT hr)
{
    if (FAILED(hr))
    {
        throw SystemException::HRESULT(hr);
    }
}

void velt::ThrowLastError()
{
    throw SystemException::Win32(::GetLastError());
}
