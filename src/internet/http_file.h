#pragma once

#include "internet/internet_file.h"

#include <string>

/// One HTTP request and its response, always in read mode.
class CHttpFile : public CInternetFile
{
public:
    /// Takes over the request handle, which may be none.
    CHttpFile(velt::RegisteredHandle handle, DWORD context, const std::wstring& serverName,
              const wchar_t* objectName, const wchar_t* verb);

    CHttpFile(const CHttpFile&) = delete;
    CHttpFile& operator=(const CHttpFile&) = delete;

    ~CHttpFile() override;

    /// "http://", the server and the object; see velt::FileUrl.
    virtual std::wstring GetFileURL() const;

    /// Sends the request. A failure is a CInternetException with the system's error code, alone
    /// among the operations of this layer.
    void SendRequest(const wchar_t* headers, DWORD headersLength, void* optional,
                     DWORD optionalLength);

    /// Reads a header; the result is discarded. `length` is in bytes, in and out.
    void QueryInfo(DWORD infoLevel, void* buffer, DWORD* length, DWORD* index) noexcept;

    /// Reads the status of the response; false when there is none.
    bool QueryInfoStatusCode(DWORD* status) noexcept;

    const std::wstring& GetObjectName() const noexcept;
    const std::wstring& GetVerb() const noexcept;

private:
    std::wstring m_objectName;
    std::wstring m_verb;
};
