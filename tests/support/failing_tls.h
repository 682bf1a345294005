#pragma once

#include "tests/support/import_patch.h"

#include <windows.h>

namespace velt::test
{
/// Has the system refuse the values of one thread-local index: of the next one that this program
/// takes after the object is made. The run-time's own stay as they are.
class FailingTls
{
public:
    static constexpr DWORD kError = ERROR_NOT_ENOUGH_MEMORY;

    FailingTls()
        : m_index(NextIndex()),
          m_patch("kernel32.dll", [this](DWORD index, LPVOID value) {
              if (m_fails && index == m_index)
              {
                  ::SetLastError(kError);
                  return FALSE;
              }
              return Patch::Original(index, value);
          })
    {
    }

    void Begin() noexcept
    {
        m_fails = true;
    }

    void End() noexcept
    {
        m_fails = false;
    }

private:
    using Patch = ImportPatch<"TlsSetValue", decltype(::TlsSetValue)>;

    /// The lowest one that is free is given out first.
    static DWORD NextIndex() noexcept
    {
        const DWORD index = ::TlsAlloc();
        ::TlsFree(index);
        return index;
    }

    const DWORD m_index;
    volatile bool m_fails = false;
    Patch m_patch;
};
} // namespace velt::test
