#pragma once

#include "foundation/velt_exception.h"

#include <windows.h>

#include <cstdint>
#include <memory>

/// What the operating system refused. Inside this namespace the type of a result is ::HRESULT.
namespace SystemException
{
/// A failed COM call.
class HRESULT final : public VeltException
{
public:
    explicit HRESULT(::HRESULT hr);

    ::HRESULT GetCode() const noexcept;

    std::unique_ptr<VeltException> Clone() const override;
    [[noreturn]] void Raise() const override;

private:
    std::uint32_t m_code;
};

/// A failed Win32 call.
class Win32 final : public VeltException
{
public:
    /// `error` is what GetLastError() answered.
    explicit Win32(DWORD error);

    DWORD GetCode() const noexcept;

    std::unique_ptr<VeltException> Clone() const override;
    [[noreturn]] void Raise() const override;

private:
    std::uint32_t m_code;
};
} // namespace SystemException

namespace velt
{
/// Throws SystemException::HRESULT when the call failed.
void ThrowIfFailed(::HRESULT hr);

/// Throws SystemException::Win32 with the thread's last error.
[[noreturn]] void ThrowLastError();
} // namespace velt
