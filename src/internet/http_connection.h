#pragma once

#include "internet/internet_connection.h"

#include <memory>
#include <string>

class CHttpFile;

/// A connection to an HTTP server.
class CHttpConnection : public CInternetConnection
{
public:
    CHttpConnection(CInternetSession* session, const wchar_t* server, INTERNET_PORT port,
                    const wchar_t* user, const wchar_t* password, DWORD context);

    CHttpConnection(const CHttpConnection&) = delete;
    CHttpConnection& operator=(const CHttpConnection&) = delete;

    ~CHttpConnection() override;

    /// Opens a request file. A context of 1 means the connection's; `acceptTypes` is null or ends
    /// with a null; a null `version` is "HTTP/1.0". By design, a failed open is not detected here:
    /// the file has no handle then and every later operation on it fails with ERROR_INVALID_HANDLE.
    /// The file ends with the connection.
    std::unique_ptr<CHttpFile> OpenRequest(const wchar_t* verb, const wchar_t* objectName,
                                           const wchar_t* referer, DWORD context,
                                           const wchar_t** acceptTypes, const wchar_t* version,
                                           DWORD flags);

private:
    std::wstring m_unused; // by design, kept empty
};
