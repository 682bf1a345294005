#include "internet/http_connection.h"

#include "internet/http_file.h"

CHttpConnection::CHttpConnection(CInternetSession* session, const wchar_t* server,
                                 INTERNET_PORT port, const wchar_t* user, const wchar_t* password,
                                 DWORD context)
    : CInternetConnection(session, server, port, user, password, INTERNET_SERVICE_HTTP, context)
{
}

CHttpConnection::~CHttpConnection() = default;

std::unique_ptr<CHttpFile> CHttpConnection::OpenRequest(const wchar_t* verb,
                                                        const wchar_t* objectName,
                                                        const wchar_t* referer, DWORD context,
                                                        const wchar_t** acceptTypes,
                                                        const wchar_t* version, DWORD flags)
{
    constexpr DWORD kConnectionContext = 1;
    const DWORD fileContext = context == kConnectionContext ? GetContext() : context;
    const HINTERNET handle =
        ::HttpOpenRequestW(GetHandle(), verb, objectName, version ? version : L"HTTP/1.0", referer,
                           acceptTypes, flags, fileContext);
    velt::RegisteredHandle registered(handle, GetRegisteredHandle());
    return std::make_unique<CHttpFile>(std::move(registered), fileContext, GetServerName(),
                                       objectName ? objectName : L"", verb ? verb : L"");
}
