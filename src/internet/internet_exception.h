#pragma once

#include <windows.h>

#include <comdef.h>

#include <string>

/// A failure of the internet layer, and its text. The code is the system's error number only where
/// the thrower says so; most operations carry their object's context value, by design.
class CInternetException : public _com_error
{
public:
    explicit CInternetException(DWORD error);
    CInternetException(DWORD error, std::string message);

    CInternetException(const CInternetException&) = default;
    CInternetException& operator=(const CInternetException&) = default;

    ~CInternetException() noexcept override = default;

    /// Writes the text of the code, cut to `capacity` characters with the final NUL: that of the
    /// internet API, else the system's; for ERROR_INTERNET_EXTENDED_ERROR the server's last
    /// response. `helpContext`, unless null, becomes 0. False, with an empty text, when there is
    /// none.
    virtual bool GetErrorMessage(wchar_t* buffer, UINT capacity, UINT* helpContext = nullptr) const;

    DWORD GetCode() const noexcept;

    /// What the thrower added, empty unless it did.
    const std::string& GetDetail() const noexcept;

private:
    DWORD m_code;
    [[maybe_unused]] DWORD m_context = 0; // by design, copied and never set
    std::string m_message;
};
