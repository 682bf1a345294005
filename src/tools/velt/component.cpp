#include "tools/velt/component.h"

#include "foundation/find_function.h"
#include "foundation/unique_file.h"
#include "server/registration.h"
#include "tools/velt/command_context.h"

#include <vector>

using Microsoft::WRL::ComPtr;

namespace velt::tool
{
namespace
{
constexpr wchar_t kFileName[] = L"VeltHTTPClient12OEM.dll";

/// The processor in an image's header, IMAGE_FILE_MACHINE_...; 0 when it is not an image.
WORD MachineOf(const std::wstring& path)
{
    const UniqueFile file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                        OPEN_EXISTING, 0, nullptr));
    const auto read = [&](LONG offset, auto& part) {
        DWORD size = 0;
        return ::SetFilePointer(file.Get(), offset, nullptr, FILE_BEGIN) !=
                   INVALID_SET_FILE_POINTER &&
               ::ReadFile(file.Get(), &part, sizeof(part), &size, nullptr) && size == sizeof(part);
    };
    IMAGE_DOS_HEADER start{};
    struct
    {
        DWORD signature;
        IMAGE_FILE_HEADER header;
    } image{};
    const bool isImage = file && read(0, start) && start.e_magic == IMAGE_DOS_SIGNATURE &&
                         read(start.e_lfanew, image) && image.signature == IMAGE_NT_SIGNATURE;
    return isImage ? image.header.Machine : WORD{0};
}

/// The library is of the other edition than this program.
std::wstring OtherEdition(const std::wstring& path)
{
    constexpr bool kIs64Bit = sizeof(void*) == 8;
    switch (MachineOf(path))
    {
    case IMAGE_FILE_MACHINE_I386:
        return kIs64Bit ? L": this is the 32-bit library; this program is 64-bit" : L"";
    case IMAGE_FILE_MACHINE_AMD64:
        return kIs64Bit ? L"" : L": this is the 64-bit library; this program is 32-bit";
    default:
        return {};
    }
}

HMODULE Load(const std::wstring& path)
{
    // What the library needs comes from its own folder or the system's, never from the current one.
    const HMODULE module = ::LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (!module)
    {
        CommandFailure failure = LastFailure(path);
        if (failure.code == HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT))
        {
            failure.what += OtherEdition(path);
        }
        throw failure;
    }
    return module;
}
} // namespace

std::wstring FileBesideProgram(const wchar_t* name)
{
    const std::wstring program = ModulePath(nullptr);
    return program.substr(0, program.rfind(L'\\') + 1) + name;
}

Component::Component() : m_path(FileBesideProgram(kFileName)), m_library(Load(m_path)) {}

std::wstring Component::Version() const
{
    const DWORD size = ::GetFileVersionInfoSizeW(m_path.c_str(), nullptr);
    std::vector<std::byte> block(size);
    VS_FIXEDFILEINFO* info = nullptr; // in the block
    UINT length = 0;
    if (size == 0 || !::GetFileVersionInfoW(m_path.c_str(), 0, size, block.data()) ||
        !::VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&info), &length) ||
        length < sizeof(*info))
    {
        throw LastFailure(m_path);
    }
    return std::to_wstring(HIWORD(info->dwFileVersionMS)) + L"." +
           std::to_wstring(LOWORD(info->dwFileVersionMS)) + L"." +
           std::to_wstring(HIWORD(info->dwFileVersionLS)) + L"." +
           std::to_wstring(LOWORD(info->dwFileVersionLS));
}

HRESULT Component::Register() const
{
    using RegisterFunction = HRESULT(STDAPICALLTYPE*)();
    const auto registerServer = FindFunction<RegisterFunction>(Module(), "DllRegisterServer");
    if (!registerServer)
    {
        throw LastFailure(m_path + L", DllRegisterServer");
    }
    return registerServer();
}

void Component::Create(REFCLSID clsid, REFIID iid, void** object) const
{
    using GetFunction = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    const auto getClassObject = FindFunction<GetFunction>(Module(), "DllGetClassObject");
    if (!getClassObject)
    {
        throw LastFailure(m_path + L", DllGetClassObject");
    }
    ComPtr<IClassFactory> factory;
    Require(getClassObject(clsid, IID_PPV_ARGS(&factory)), L"the class's factory");
    Require(factory->CreateInstance(nullptr, iid, object), L"a new object");
}
} // namespace velt::tool
