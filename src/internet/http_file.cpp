#include "internet/http_file.h"

#include "internet/file_url.h"
#include "internet/internet_exception.h"

#include <array>
#include <cwchar>

CHttpFile::CHttpFile(velt::RegisteredHandle handle, DWORD context, const std::wstring& serverName,
                     const wchar_t* objectName, const wchar_t* verb)
    : CInternetFile(std::move(handle), true, context, serverName, objectName),
      m_objectName(objectName),
      m_verb(verb)
{
}

CHttpFile::~CHttpFile() = default;

std::wstring CHttpFile::GetFileURL() const
{
    return velt::FileUrl(GetServerName(), m_objectName);
}

void CHttpFile::SendRequest(const wchar_t* headers, DWORD headersLength, void* optional,
                            DWORD optionalLength)
{
    if (!GetHandle())
    {
        ThrowInvalidHandle();
    }
    if (!::HttpSendRequestW(GetHandle(), headers, headersLength, optional, optionalLength))
    {
        throw CInternetException(::GetLastError());
    }
}

void CHttpFile::QueryInfo(DWORD infoLevel, void* buffer, DWORD* length, DWORD* index) noexcept
{
    ::HttpQueryInfoW(GetHandle(), infoLevel, buffer, length, index);
}

bool CHttpFile::QueryInfoStatusCode(DWORD* status) noexcept
{
    std::array<wchar_t, 40> text{}; // 80 bytes
    DWORD lengthBytes = sizeof(text);
    if (!status ||
        !::HttpQueryInfoW(GetHandle(), HTTP_QUERY_STATUS_CODE, text.data(), &lengthBytes, nullptr))
    {
        return false;
    }
    *status = static_cast<DWORD>(::_wtol(text.data()));
    return true;
}

const std::wstring& CHttpFile::GetObjectName() const noexcept
{
    return m_objectName;
}

const std::wstring& CHttpFile::GetVerb() const noexcept
{
    return m_verb;
}
