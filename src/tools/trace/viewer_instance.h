#pragma once

#include "foundation/trace_record.h"
#include "foundation/unique_handle.h"

#include <windows.h>

namespace velt
{
/// The claim to be the one viewer of this desktop: programs send to the first window of the
/// viewers' class that they find, so a second one would wait in vain.
class ViewerInstance
{
public:
    ViewerInstance() noexcept : m_mutex(::CreateMutexW(nullptr, FALSE, L"Local\\velt-trace viewer"))
    {
        // A mutex of a viewer with more rights cannot be opened, but it is there. A window may be
        // that of another program.
        const bool taken = !m_mutex || ::GetLastError() == ERROR_ALREADY_EXISTS;
        m_isFirst = !taken && !::FindWindowW(kTraceViewerClass, nullptr);
    }

    bool IsFirst() const noexcept
    {
        return m_isFirst;
    }

private:
    UniqueKernelObject m_mutex;
    bool m_isFirst;
};
} // namespace velt
