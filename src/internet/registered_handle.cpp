#include "internet/registered_handle.h"

#include "foundation/last_error_scope.h"
#include "internet/handle_registry.h"

namespace velt
{
RegisteredHandle::RegisteredHandle(HINTERNET handle, CInternetSession* session)
    : m_handle(handle),
      m_session(session)
{
    if (!m_handle)
    {
        return; // without the registry, whose making would change the thread's last error
    }
    try
    {
        HandleRegistry::Instance().Insert(handle, session);
    }
    catch (...)
    {
        Close();
        throw;
    }
}

RegisteredHandle::~RegisteredHandle()
{
    Close();
}

void RegisteredHandle::Close() noexcept
{
    if (const HINTERNET handle = std::exchange(m_handle, nullptr))
    {
        const LastErrorScope keep;
        ::InternetCloseHandle(handle);
        HandleRegistry::Instance().Remove(handle, m_session);
    }
}
} // namespace velt
