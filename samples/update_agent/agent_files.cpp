#include "samples/update_agent/agent_files.h"

#include <array>

namespace agent_files
{
namespace
{
/// A file beside the program.
std::wstring Beside(const wchar_t* name)
{
    const std::wstring program = ProgramPath();
    return program.substr(0, program.rfind(L'\\') + 1) + name;
}

/// Appends to a file that other programs may read meanwhile.
void Append(const std::wstring& path, const void* bytes, DWORD sizeBytes)
{
    const HANDLE file = ::CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr,
                                      OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE)
    {
        DWORD written = 0;
        ::WriteFile(file, bytes, sizeBytes, &written, nullptr);
        ::CloseHandle(file);
    }
}

/// The products' file. The system writes names of all languages into it if it begins with the mark
/// of UTF-16.
std::wstring ProductsFile()
{
    std::wstring path = Beside(L"update_agent_products.ini");
    if (::GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES)
    {
        constexpr wchar_t kMark = 0xFEFF;
        Append(path, &kMark, sizeof(kMark));
    }
    return path;
}
} // namespace

std::wstring ProgramPath()
{
    std::array<wchar_t, 1024> path{};
    const DWORD length =
        ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    return {path.data(), length};
}

LONG Setting(const wchar_t* section, const wchar_t* name, LONG otherwise)
{
    return static_cast<LONG>(
        ::GetPrivateProfileIntW(section, name, otherwise, Beside(L"update_agent.ini").c_str()));
}

void KeepProduct(const std::wstring& guid, const wchar_t* name, const std::wstring& value)
{
    ::WritePrivateProfileStringW(guid.c_str(), name, value.c_str(), ProductsFile().c_str());
}

std::wstring Product(const std::wstring& guid, const wchar_t* name)
{
    std::array<wchar_t, 512> value{};
    const DWORD length =
        ::GetPrivateProfileStringW(guid.c_str(), name, L"", value.data(),
                                   static_cast<DWORD>(value.size()), ProductsFile().c_str());
    return {value.data(), length};
}

void Log(const std::wstring& line)
{
    SYSTEMTIME now{};
    ::GetLocalTime(&now);
    std::array<wchar_t, 16> time{};
    ::wsprintfW(time.data(), L"%02d:%02d:%02d ", now.wHour, now.wMinute, now.wSecond);
    const std::wstring whole = time.data() + line + L"\r\n";
    const auto length = static_cast<int>(whole.size());
    std::string bytes(whole.size() * 3, '\0'); // no UTF-16 unit takes more in UTF-8
    const int size = ::WideCharToMultiByte(CP_UTF8, 0, whole.data(), length, bytes.data(),
                                           static_cast<int>(bytes.size()), nullptr, nullptr);
    Append(Beside(L"update_agent.log"), bytes.data(), static_cast<DWORD>(size));
}
} // namespace agent_files
