#include "tools/velt/failure_text.h"

#include "foundation/system_error_text.h"
#include "internet/internet_exception.h"

#include <activscp.h>
#include <olectl.h>
#include <wininet.h>

#include <algorithm>
#include <array>

namespace velt::tool
{
namespace
{
struct TextRow
{
    HRESULT code;
    const wchar_t* text;
};

constexpr HRESULT Internet(DWORD error) noexcept
{
    return static_cast<HRESULT>(0x80070000U | error);
}

/// For systems that have no text for them.
constexpr TextRow kOwnTexts[] = {
    {E_ABORT, L"The operation was aborted."},
    {E_NOINTERFACE, L"The object has no such interface."},
    {E_POINTER, L"A pointer is not valid."},
    {E_UNEXPECTED, L"An unexpected failure."},
    {CO_E_CLASSSTRING, L"There is no class of that name."},
    {CO_E_NOTINITIALIZED, L"COM is not initialised on this thread."},
    {CO_E_SERVER_EXEC_FAILURE, L"The class's program could not be started, or did not answer."},
    {REGDB_E_CLASSNOTREG, L"The class is not registered."},
    {CLASS_E_CLASSNOTAVAILABLE, L"The library does not have the class."},
    {CONNECT_E_NOCONNECTION, L"There is no connection point for these events."},
    {DISP_E_ARRAYISLOCKED, L"The array is in use."},
    {DISP_E_BADINDEX, L"The index is out of range."},
    {DISP_E_BADPARAMCOUNT, L"The number of arguments is wrong."},
    {DISP_E_EXCEPTION, L"The call has failed."},
    {DISP_E_MEMBERNOTFOUND, L"The object has no such member."},
    {DISP_E_OVERFLOW, L"The number is out of range."},
    {DISP_E_PARAMNOTFOUND, L"An argument is missing."},
    {DISP_E_TYPEMISMATCH, L"The value is of another type."},
    {DISP_E_UNKNOWNNAME, L"The object has no member of that name."},
    {RPC_E_DISCONNECTED, L"The object has gone from its program."},
    {RPC_E_WRONG_THREAD, L"The object belongs to another thread."},
    {static_cast<HRESULT>(SCRIPT_E_REPORTED), L"The failure has been reported already."},
    {Internet(ERROR_INTERNET_SHUTDOWN), L"The internet API is being unloaded."},
    {Internet(ERROR_INTERNET_LOGIN_FAILURE), L"The server has refused the user."},
    {Internet(ERROR_INTERNET_CONNECTION_RESET), L"The connection to the server was reset."},
    {Internet(ERROR_INTERNET_CLIENT_AUTH_CERT_NEEDED), L"The server asks for a certificate."},
    {Internet(ERROR_INTERNET_INVALID_CA), L"Nobody trusted has issued the server's certificate."},
    {Internet(ERROR_INTERNET_SEC_CERT_ERRORS), L"The server's certificate has errors."},
    {Internet(ERROR_INTERNET_SEC_CERT_REV_FAILED),
     L"Whether the server's certificate was revoked cannot be found out."},
    {Internet(ERROR_HTTP_HEADER_NOT_FOUND), L"The answer lacks a header."},
    {Internet(ERROR_HTTP_INVALID_SERVER_RESPONSE), L"The server's answer is not one of HTTP."},
    {Internet(ERROR_HTTP_INVALID_HEADER), L"A header of the request is not valid."},
    {Internet(ERROR_HTTP_REDIRECT_FAILED), L"The redirection has failed."},
    {Internet(ERROR_INTERNET_SECURITY_CHANNEL_ERROR), L"The secure connection has failed."},
    {Internet(ERROR_INTERNET_DISCONNECTED), L"The connection to the internet has ended."},
    {Internet(ERROR_INTERNET_SEC_INVALID_CERT), L"The server's certificate is not valid."},
    {Internet(ERROR_INTERNET_SEC_CERT_REVOKED), L"The server's certificate was revoked."},
};

std::wstring SystemText(HRESULT hr)
{
    const auto error = static_cast<DWORD>(HRESULT_CODE(hr));
    const bool internet = HRESULT_FACILITY(hr) == FACILITY_WIN32 && error >= INTERNET_ERROR_BASE &&
                          error <= INTERNET_ERROR_LAST;
    std::array<wchar_t, 512> text{};
    if (internet &&
        CInternetException(error).GetErrorMessage(text.data(), static_cast<UINT>(text.size())))
    {
        std::wstring message = text.data();
        message.erase(message.find_last_not_of(L" \r\n") + 1);
        return message;
    }
    return HResultText(hr);
}
} // namespace

std::wstring FailureText(HRESULT hr, std::wstring_view what)
{
    constexpr std::wstring_view kPlace = L"%1";
    std::wstring text = SystemText(hr);
    if (const std::size_t place = text.find(kPlace); place != text.npos)
    {
        text.replace(place, kPlace.size(), what.substr(0, what.find(L": ")));
    }
    if (text.empty())
    {
        const auto* const own = std::find_if(std::begin(kOwnTexts), std::end(kOwnTexts),
                                             [hr](const TextRow& row) { return row.code == hr; });
        text = own == std::end(kOwnTexts) ? L"" : own->text;
    }
    return text;
}
} // namespace velt::tool
