#include "foundation/unique_handle.h"
#include "foundation/wide_text.h"
#include "tests/facts/fact.h"
#include "tests/facts/helpers.h"
#include "tests/support/activation_context.h"
#include "tests/support/component_library.h"
#include "tests/support/known_libraries.h"

#include <winsock2.h>

#include <windows.h>

#include <iphlpapi.h>

#include <icmpapi.h>
#include <objbase.h>
#include <psapi.h>
#include <tlhelp32.h>

#include <cstddef>
#include <set>
#include <vector>

namespace velt::facts
{
namespace
{
DWORD HandleCount()
{
    DWORD count = 0;
    ::GetProcessHandleCount(::GetCurrentProcess(), &count);
    return count;
}

/// A library loaded to look at, not to run; whether it is there.
bool IsThere(const wchar_t* library)
{
    const HMODULE module = ::LoadLibraryExW(library, nullptr, LOAD_LIBRARY_AS_DATAFILE);
    if (module)
    {
        ::FreeLibrary(module);
    }
    return module != nullptr;
}

std::string MessageModules()
{
    return Choose(IsThere(L"WMERROR.DLL"), "there", "missing");
}

std::string QuartzHandles()
{
    const auto load = [] {
        const HMODULE module = ::LoadLibraryW(L"QUARTZ.DLL");
        Need(module != nullptr, "no library");
        ::FreeLibrary(module);
    };
    load();
    const DWORD before = HandleCount();
    for (int i = 0; i < 3; ++i)
    {
        load();
    }
    return Choose(HandleCount() <= before, "leaves nothing", "leaves handles");
}

std::string InternetTexts()
{
    int there = 0;
    for (DWORD code = 2; code <= 31; ++code)
    {
        std::array<wchar_t, 256> text{};
        there += ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                  nullptr, 0x800C0000 + code, 0, text.data(),
                                  static_cast<DWORD>(text.size()), nullptr) > 0;
    }
    return there == 0 ? "missing" : "there";
}

std::string WinInetTexts()
{
    const HMODULE module = ::LoadLibraryW(L"WININET.DLL");
    Need(module != nullptr, "no library");
    std::array<wchar_t, 256> text{};
    const DWORD length =
        ::FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_IGNORE_INSERTS, module, 12007,
                         0, text.data(), static_cast<DWORD>(text.size()), nullptr);
    ::FreeLibrary(module);
    return Choose(length > 0, "there", "missing");
}

std::string PrivateUsage()
{
    PROCESS_MEMORY_COUNTERS_EX counters{};
    counters.cb = sizeof(counters);
    Need(::GetProcessMemoryInfo(::GetCurrentProcess(),
                                reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                                sizeof(counters)),
         "no counters");
    return Choose(counters.PrivateUsage > 0, "its private bytes", "0");
}

std::string FreedBlocks()
{
    constexpr std::size_t kSize = 104;
    constexpr int kCount = 2000;
    const HANDLE heap = ::HeapCreate(0, 0, 0);
    const auto used = [heap] {
        std::size_t bytes = 0;
        PROCESS_HEAP_ENTRY entry{};
        while (::HeapWalk(heap, &entry))
        {
            bytes += entry.wFlags & PROCESS_HEAP_ENTRY_BUSY ? entry.cbData : 0;
        }
        return bytes;
    };
    std::vector<void*> blocks;
    blocks.reserve(kCount);
    const std::size_t before = used();
    for (int i = 0; i < kCount; ++i)
    {
        blocks.push_back(::HeapAlloc(heap, 0, kSize));
    }
    for (void* block : blocks)
    {
        ::HeapFree(heap, 0, block);
    }
    const std::size_t after = used();
    ::HeapDestroy(heap);
    return Choose(after < before + kSize * kCount / 50, "shown as free", "some shown as in use");
}

std::string AssemblyDirectory()
{
    ::CreateDirectoryW(L"elsewhere", nullptr);
    WriteBytes(L"elsewhere\\app.manifest",
               R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>
<assembly xmlns="urn:schemas-microsoft-com:asm.v1" manifestVersion="1.0">
  <assemblyIdentity type="win32" name="VeltFacts.App" version="1.0.0.0"/>
  <dependency><dependentAssembly>
    <assemblyIdentity type="win32" name="VeltFacts.Part" version="1.0.0.0"/>
  </dependentAssembly></dependency>
</assembly>
)");
    ::CreateDirectoryW(L"VeltFacts.Part", nullptr);
    WriteBytes(L"VeltFacts.Part\\VeltFacts.Part.manifest",
               R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>
<assembly xmlns="urn:schemas-microsoft-com:asm.v1" manifestVersion="1.0">
  <assemblyIdentity type="win32" name="VeltFacts.Part" version="1.0.0.0"/>
  <file name="velt_facts_part.dll"/>
</assembly>
)");
    ::CopyFileW(ThisProgram().c_str(), L"VeltFacts.Part\\velt_facts_part.dll", FALSE);
    const std::wstring folder = FullPath(L".");
    const std::wstring file = FullPath(L"elsewhere\\app.manifest");
    ACTCTXW description{};
    description.cbSize = sizeof(description);
    description.dwFlags = ACTCTX_FLAG_ASSEMBLY_DIRECTORY_VALID;
    description.lpSource = file.c_str();
    description.lpAssemblyDirectory = folder.c_str();
    const HANDLE context = ::CreateActCtxW(&description);
    if (context == INVALID_HANDLE_VALUE)
    {
        return "the manifest is refused, " + ErrorNumber(::GetLastError());
    }
    ULONG_PTR cookie = 0;
    ::ActivateActCtx(context, &cookie);
    const HMODULE module =
        ::LoadLibraryExW(L"velt_facts_part.dll", nullptr, DONT_RESOLVE_DLL_REFERENCES);
    const bool found = module != nullptr;
    if (found)
    {
        ::FreeLibrary(module);
    }
    ::DeactivateActCtx(0, cookie);
    ::ReleaseActCtx(context);
    return Choose(found, "found", "not found");
}

std::string ManifestProgId()
{
    WriteBytes(L"facts.manifest", R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>
<assembly xmlns="urn:schemas-microsoft-com:asm.v1" manifestVersion="1.0">
  <assemblyIdentity type="win32" name="VeltFacts.Classes" version="1.0.0.0"/>
  <file name="velt_facts_part.dll">
    <comClass clsid="{6C4E9F57-8D0B-4B0E-9A43-5E1B7C0D2A61}" progid="VeltFacts.Part"/>
  </file>
</assembly>
)");
    constexpr CLSID kWanted = {
        0x6C4E9F57, 0x8D0B, 0x4B0E, {0x9A, 0x43, 0x5E, 0x1B, 0x7C, 0x0D, 0x2A, 0x61}};
    const test::ActivationContext context(FullPath(L"facts.manifest"));
    CLSID clsid{};
    const HRESULT result = ::CLSIDFromProgID(L"VeltFacts.Part", &clsid);
    return FAILED(result) ? Hex(result) : Choose(clsid == kWanted, "the class's", "another one");
}

std::string MissingAssembly()
{
    WriteBytes(L"app.manifest", R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>
<assembly xmlns="urn:schemas-microsoft-com:asm.v1" manifestVersion="1.0">
  <assemblyIdentity type="win32" name="VeltFacts.App" version="1.0.0.0"/>
  <dependency><dependentAssembly>
    <assemblyIdentity type="win32" name="VeltFacts.Nowhere" version="1.0.0.0"/>
  </dependentAssembly></dependency>
</assembly>
)");
    // A copy of this program, which does nothing when it is started so.
    ::CopyFileW(ThisProgram().c_str(), L"app.exe", FALSE);
    ::MoveFileW(L"app.manifest", L"app.exe.manifest");
    std::wstring command = L"\"" + FullPath(L"app.exe") + L"\" --undo none";
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                          &startup, &process))
    {
        return "not started, " + ErrorNumber(::GetLastError());
    }
    const UniqueKernelObject handle(process.hProcess);
    const UniqueKernelObject thread(process.hThread);
    ::WaitForSingleObject(handle.Get(), INFINITE);
    return "started";
}

std::string MissingLibrary()
{
    const HMODULE module =
        ::LoadLibraryExW(L"velt_facts_missing.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    return module ? "loaded" : ErrorNumber(::GetLastError());
}

std::string LibraryOfWorkFolder()
{
    // By name, from the system's folder alone: the copy in the current folder is not taken.
    ::CopyFileW(ThisProgram().c_str(), L"velt_facts_here.dll", FALSE);
    const HMODULE module =
        ::LoadLibraryExW(L"velt_facts_here.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    return Choose(module != nullptr, "loaded", "not loaded");
}

std::string KnownLibraries()
{
    const std::set<std::wstring> known = test::KnownLibraries();
    std::string missing;
    for (const wchar_t* const library : test::kImportedLibraries)
    {
        missing += known.count(library) == 1 ? "" : " " + Utf8FromWide(library);
    }
    return known.empty() ? "none" : missing.empty() ? "all" : "without" + missing;
}

std::string OtherKindsModules()
{
    if (sizeof(void*) != 8)
    {
        throw NotAsked("asked by 64-bit programs only");
    }
    std::array<wchar_t, MAX_PATH> folder{};
    if (::GetSystemWow64DirectoryW(folder.data(), static_cast<UINT>(folder.size())) == 0)
    {
        throw NotAsked("no 32-bit programs here");
    }
    // It reads commands from a console of its own, which nobody sees.
    std::wstring command = std::wstring(L"\"") + folder.data() + L"\\cmd.exe\" /k";
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESHOWWINDOW;
    startup.wShowWindow = SW_HIDE;
    PROCESS_INFORMATION process{};
    Need(::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, CREATE_NEW_CONSOLE,
                          nullptr, nullptr, &startup, &process),
         "a 32-bit program cannot be started");
    const UniqueKernelObject handle(process.hProcess);
    const UniqueKernelObject thread(process.hThread);
    bool listed = false;
    // Its libraries are not there at once.
    for (int i = 0; i < 50 && !listed; ++i)
    {
        ::Sleep(100);
        const UniqueKernelObject snapshot(::CreateToolhelp32Snapshot(
            TH32CS_SNAPMODULE | TH32CS_SNAPMODULE32, process.dwProcessId));
        MODULEENTRY32W entry{};
        entry.dwSize = sizeof(entry);
        for (BOOL more = ::Module32FirstW(snapshot.Get(), &entry); more && !listed;
             more = ::Module32NextW(snapshot.Get(), &entry))
        {
            listed = ::_wcsicmp(entry.szModule, L"cmd.exe") == 0;
        }
    }
    ::TerminateProcess(handle.Get(), 0);
    return Choose(listed, "listed", "not listed");
}

/// Asks this machine for an echo with so many bytes for the reply.
std::string Echo(DWORD bytes)
{
    const HANDLE file = ::IcmpCreateFile();
    Need(file != INVALID_HANDLE_VALUE, "no echo file");
    std::array<char, 2> request{0x49, 0x00};
    alignas(ICMP_ECHO_REPLY) std::array<std::byte, 256> replies{};
    const DWORD count =
        ::IcmpSendEcho(file, 0x0100007F, request.data(), static_cast<WORD>(request.size()), nullptr,
                       replies.data(), bytes, 5000);
    const DWORD error = ::GetLastError();
    ::IcmpCloseHandle(file);
    return count > 0 ? "a reply" : ErrorNumber(error);
}

std::string SmallEcho()
{
    return Echo(sizeof(ICMP_ECHO_REPLY) + 2);
}

std::string DocumentedEcho()
{
    return Echo(sizeof(ICMP_ECHO_REPLY) + 2 + 8);
}

std::string ReadOnlyFile()
{
    WriteBytes(L"file.txt", "x");
    ::SetFileAttributesW(L"file.txt", FILE_ATTRIBUTE_READONLY);
    const HANDLE file =
        ::CreateFileW(L"file.txt", GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    const bool opened = file != INVALID_HANDLE_VALUE;
    if (opened)
    {
        ::CloseHandle(file);
    }
    ::SetFileAttributesW(L"file.txt", FILE_ATTRIBUTE_NORMAL);
    return Choose(opened, "opened for writing", "refused");
}

/// A debugger's buffer, and two that listen for it.
std::string TwoListeners()
{
    const UniqueKernelObject ready(::CreateEventW(nullptr, FALSE, TRUE, L"DBWIN_BUFFER_READY"));
    if (::GetLastError() == ERROR_ALREADY_EXISTS)
    {
        throw NotAsked("somebody listens already");
    }
    const UniqueKernelObject data(::CreateEventW(nullptr, FALSE, FALSE, L"DBWIN_DATA_READY"));
    const UniqueKernelObject mapping(::CreateFileMappingW(
        INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, L"DBWIN_BUFFER"));
    const UniqueKernelObject otherData(::OpenEventW(SYNCHRONIZE, FALSE, L"DBWIN_DATA_READY"));
    Need(ready && data && mapping && otherData, "no buffer");
    ::OutputDebugStringW(L"VeltFacts");
    const bool first = ::WaitForSingleObject(data.Get(), 5000) == WAIT_OBJECT_0;
    const bool second = ::WaitForSingleObject(otherData.Get(), 0) == WAIT_OBJECT_0;
    return !first ? "none hears" : Choose(second, "both hear", "one hears");
}

/// The component of the build or of the kit.
std::wstring FindComponent()
{
    try
    {
        return test::ShippedFile(L"VeltHTTPClient12OEM.dll");
    }
    catch (const std::runtime_error&)
    {
        throw NotAsked("the component is not beside this program");
    }
}

std::string ControlFlowGuard()
{
    DWORD64 policy =
        DWORD64{1} << 40; // PROCESS_CREATION_MITIGATION_POLICY_CONTROL_FLOW_GUARD_ALWAYS_ON
    std::array<std::byte, 256> room{};
    SIZE_T size = room.size();
    STARTUPINFOEXW startup{};
    startup.StartupInfo.cb = sizeof(startup);
    startup.lpAttributeList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(room.data());
    if (!::InitializeProcThreadAttributeList(startup.lpAttributeList, 1, 0, &size) ||
        !::UpdateProcThreadAttribute(startup.lpAttributeList, 0,
                                     PROC_THREAD_ATTRIBUTE_MITIGATION_POLICY, &policy,
                                     sizeof(policy), nullptr, nullptr))
    {
        throw NotAsked("the system does not know the policy");
    }
    std::wstring command = L"\"" + ThisProgram() + L"\" --load \"" + FindComponent() + L"\"";
    PROCESS_INFORMATION process{};
    if (!::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE,
                          EXTENDED_STARTUPINFO_PRESENT, nullptr, nullptr, &startup.StartupInfo,
                          &process))
    {
        return "not started, " + ErrorNumber(::GetLastError());
    }
    const UniqueKernelObject handle(process.hProcess);
    const UniqueKernelObject thread(process.hThread);
    ::WaitForSingleObject(handle.Get(), INFINITE);
    DWORD exitCode = 0;
    ::GetExitCodeProcess(handle.Get(), &exitCode);
    return exitCode == 0 ? "loaded and freed" : "ended with " + Hex(static_cast<HRESULT>(exitCode));
}

constexpr Fact kFacts[] = {
    {"loader.message-modules", &MessageModules},
    {"loader.quartz-handles", &QuartzHandles},
    {"loader.internet-texts", &InternetTexts},
    {"loader.wininet-texts", &WinInetTexts},
    {"loader.private-usage", &PrivateUsage},
    {"loader.freed-blocks", &FreedBlocks},
    {"loader.assembly-directory", &AssemblyDirectory},
    {"loader.manifest-progid", &ManifestProgId},
    {"loader.missing-assembly", &MissingAssembly},
    {"loader.missing-library", &MissingLibrary},
    {"loader.library-of-current-folder", &LibraryOfWorkFolder},
    {"loader.known-libraries", &KnownLibraries},
    {"loader.other-kinds-modules", &OtherKindsModules},
    {"loader.echo-as-asked", &SmallEcho},
    {"loader.echo-as-documented", &DocumentedEcho},
    {"loader.read-only-file", &ReadOnlyFile},
    {"loader.two-listeners", &TwoListeners},
    {"loader.control-flow-guard", &ControlFlowGuard},
};
} // namespace

int LoadAndFree(const wchar_t* library)
{
    const HMODULE module = ::LoadLibraryW(library);
    using Function = HRESULT(STDAPICALLTYPE*)();
    const auto function = reinterpret_cast<Function>(
        reinterpret_cast<void*>(::GetProcAddress(module, "DllCanUnloadNow")));
    return module && function && function() == S_OK && ::FreeLibrary(module) ? 0 : 1;
}

std::span<const Fact> LoaderFacts()
{
    return kFacts;
}
} // namespace velt::facts
