#include "tools/velt/component.h"

#include "foundation/find_function.h"
#include "foundation/unique_file.h"
#include "server/registration.h"
#include "tools/velt/command_context.h"

#include <algorithm>
#include <string_view>
#include <vector>

using Microsoft::WRL::ComPtr;

namespace velt::tool
{
namespace
{
constexpr wchar_t kFileName[] = L"VeltHTTPClient12OEM.dll";
constexpr char kClassObjectExport[] = "DllGetClassObject";

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

CommandFailure WithoutClassObjects(const std::wstring& path)
{
    return {HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND), path + L", DllGetClassObject"};
}

/// An image that is mapped as the system would load it, without being loaded.
class MappedImage
{
public:
    explicit MappedImage(const std::wstring& path)
        : m_handle(::LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_IMAGE_RESOURCE))
    {
        if (!m_handle.GetModule())
        {
            throw LastFailure(path);
        }
    }

    bool HasExport(std::string_view name) const noexcept
    {
        const auto* const start = At<IMAGE_DOS_HEADER>(0);
        const auto* const headers = At<IMAGE_NT_HEADERS>(static_cast<DWORD>(start->e_lfanew));
        const auto& entry = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
        if (entry.Size == 0)
        {
            return false;
        }
        const auto* const exports = At<IMAGE_EXPORT_DIRECTORY>(entry.VirtualAddress);
        const auto* const names = At<DWORD>(exports->AddressOfNames);
        return std::any_of(names, names + exports->NumberOfNames,
                           [&](DWORD each) { return name == At<char>(each); });
    }

private:
    /// What is at an offset from the image's start, as its headers have it.
    template <class Part>
    const Part* At(DWORD offset) const noexcept
    {
        // The lowest bits of the handle say how it is mapped.
        const auto start = reinterpret_cast<UINT_PTR>(m_handle.GetModule()) & ~UINT_PTR{3};
        return reinterpret_cast<const Part*>(start + offset);
    }

    CLibraryUtils::CLibraryUtilsImpl m_handle;
};

HMODULE Load(const std::wstring& path)
{
    // What the library needs comes from the system's folder alone, whatever lies beside it.
    HMODULE module = ::LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (!module && ::GetLastError() == ERROR_INVALID_PARAMETER)
    {
        // Windows 7 without an update does not know the flag: never from the current folder.
        module = ::LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    }
    if (!module)
    {
        const CommandFailure failure = LastFailure(path);
        const bool wrongKind = failure.code == HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT);
        throw CommandFailure{failure.code, path + (wrongKind ? OtherEdition(path) : L"")};
    }
    return module;
}
} // namespace

std::wstring FileBesideProgram(const wchar_t* name)
{
    const std::wstring program = ModulePath(nullptr);
    return program.substr(0, program.rfind(L'\\') + 1) + name;
}

std::wstring FileVersion(const std::wstring& path)
{
    const DWORD size = ::GetFileVersionInfoSizeW(path.c_str(), nullptr);
    std::vector<std::byte> block(size);
    VS_FIXEDFILEINFO* info = nullptr; // in the block
    UINT length = 0;
    if (size == 0 || !::GetFileVersionInfoW(path.c_str(), 0, size, block.data()) ||
        !::VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&info), &length) ||
        length < sizeof(*info))
    {
        throw LastFailure(path);
    }
    return std::to_wstring(HIWORD(info->dwFileVersionMS)) + L"." +
           std::to_wstring(LOWORD(info->dwFileVersionMS)) + L"." +
           std::to_wstring(HIWORD(info->dwFileVersionLS)) + L"." +
           std::to_wstring(LOWORD(info->dwFileVersionLS));
}

bool IsOfEdition(const std::wstring& path, bool is64Bit)
{
    return MachineOf(path) == (is64Bit ? IMAGE_FILE_MACHINE_AMD64 : IMAGE_FILE_MACHINE_I386);
}

void RequireEdition(const std::wstring& path, bool is64Bit)
{
    if (!IsOfEdition(path, is64Bit))
    {
        throw CommandFailure{HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT), path};
    }
}

void CheckLibrary(const std::wstring& path)
{
    if (::GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES)
    {
        throw CommandFailure{HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND), path};
    }
    if (!IsOfEdition(path, sizeof(void*) == 8))
    {
        throw CommandFailure{HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT), path + OtherEdition(path)};
    }
    if (!MappedImage(path).HasExport(kClassObjectExport))
    {
        throw WithoutClassObjects(path);
    }
}

Component::Component() : Component(OwnPath()) {}

Component::Component(std::wstring path) : m_path(std::move(path)), m_library(Load(m_path)) {}

std::wstring Component::OwnPath()
{
    return FileBesideProgram(kFileName);
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
    const auto getClassObject = FindFunction<GetFunction>(Module(), kClassObjectExport);
    if (!getClassObject)
    {
        throw WithoutClassObjects(m_path);
    }
    ComPtr<IClassFactory> factory;
    Require(getClassObject(clsid, IID_PPV_ARGS(&factory)), L"the class's factory");
    Require(factory->CreateInstance(nullptr, iid, object), L"a new object");
}
} // namespace velt::tool
