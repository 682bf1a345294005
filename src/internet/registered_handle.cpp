#include "internet/registered_handle.h"

#include "foundation/last_error_scope.h"

namespace velt
{
namespace
{
/// The entry of a handle that has been opened. When there is no memory for it, the handle is
/// closed.
template <class Origin>
std::shared_ptr<HandleEntry> MakeEntry(HINTERNET handle, const Origin& origin)
{
    try
    {
        return std::make_shared<HandleEntry>(handle, origin);
    }
    catch (...)
    {
        const LastErrorScope keep;
        ::InternetCloseHandle(handle);
        throw;
    }
}
} // namespace

RegisteredHandle::RegisteredHandle(HINTERNET handle, CInternetSession* session)
{
    if (handle)
    {
        m_entry = MakeEntry(handle, session);
        Enter();
    }
}

RegisteredHandle::RegisteredHandle(HINTERNET handle, const RegisteredHandle& parent)
{
    if (handle && parent)
    {
        m_entry = MakeEntry(handle, parent.m_entry);
        Enter();
    }
}

RegisteredHandle::~RegisteredHandle()
{
    Close();
    if (m_entry)
    {
        m_entry->ForgetSession();
    }
}

void RegisteredHandle::Close() noexcept
{
    if (std::exchange(m_isClosed, true))
    {
        return;
    }
    if (m_entry->End())
    {
        const LastErrorScope keep;
        ::InternetCloseHandle(m_entry->Handle());
    }
    HandleRegistry::Instance().Remove(*m_entry);
}

void RegisteredHandle::Enter()
{
    m_isClosed = false;
    try
    {
        HandleRegistry::Instance().Insert(m_entry);
    }
    catch (...)
    {
        Close();
        throw;
    }
}
} // namespace velt
