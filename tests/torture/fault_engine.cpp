#include "tests/torture/fault_engine.h"

#include "foundation/last_error_scope.h"
#include "foundation/velt_auto_critical_section.h"
#include "foundation/win_critical_section.h"
#include "tests/support/import_patch.h"

#include <objbase.h>
#include <process.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>

namespace velt::torture::FaultEngine
{
namespace
{
using velt::test::ExchangeSlot;
using velt::test::ForEachImport;

constexpr std::size_t kMostFunctions = 512;
constexpr std::size_t kMostCalls = 100'000;
constexpr std::size_t kMostFaults = 2;
constexpr std::size_t kThunkBytes = 96;
constexpr DWORD kEndedByAbort = 97;
constexpr LONG kWorkerPeriodMs = 20; // of timers that would wait for half a minute

struct Entry
{
    FunctionInfo info;
    void* original = nullptr;
    void* thunk = nullptr;
};

/// What is armed and counted together.
struct Session
{
    // set while nothing of it runs
    std::array<Fault, kMostFaults> faults;
    std::size_t faultCount = 0;

    std::array<volatile LONG, kMostFunctions> callsOf{};
    std::array<unsigned short, kMostCalls> calls;
    volatile LONG callCount = 0;
    volatile LONG injected = 0;
    volatile LONG isRunning = FALSE;
};

struct ModuleRange
{
    HMODULE module;
    const char* begin;
    const char* end;
};

/// A place that a module has written the address of a late function to, and what stood there.
struct LateSlot
{
    void** slot;
    void* before;
};

struct LiveBlock
{
    void* block;
    std::size_t size;
    std::array<const void*, 12> callers;
};

WinCriticalSection g_lock;

// guarded by g_lock, and read without it by thunks of entries that stay
std::array<Entry, kMostFunctions> g_entries;
std::size_t g_entryCount = 0;
std::map<std::string, std::size_t, std::less<>> g_byName;
std::vector<ModuleRange> g_modules;
std::vector<LateSlot> g_lateSlots;
std::vector<std::string> g_unknownLate;
std::vector<wchar_t*> g_keptTexts;
unsigned char* g_thunks = nullptr;
std::vector<std::unique_ptr<Session>> g_sessions; // until the process ends

Session g_shared; // by the threads with none of their own
const DWORD g_ownSession = ::TlsAlloc();
volatile LONG g_liveBlocks = 0;
volatile LONG g_missingClasses = 0;
bool g_keepsCallers = false;
std::array<LiveBlock, 4096> g_live;

/// The calling thread's; keeps its last error.
Session& CurrentSession() noexcept
{
    const LastErrorScope keep;
    auto* const own = static_cast<Session*>(::TlsGetValue(g_ownSession));
    return own ? *own : g_shared;
}

const ModuleRange* RangeOf(const void* address) noexcept
{
    for (const ModuleRange& range : g_modules)
    {
        if (address >= range.begin && address < range.end)
        {
            return &range;
        }
    }
    return nullptr;
}

template <class Take>
void WalkStack(const void* top, Take&& take) noexcept
{
    MEMORY_BASIC_INFORMATION region{};
    if (::VirtualQuery(top, &region, sizeof(region)) == 0)
    {
        return;
    }
    const auto* const end = reinterpret_cast<const void* const*>(
        static_cast<const char*>(region.BaseAddress) + region.RegionSize);
    for (auto* at = static_cast<const void* const*>(top); at < end; ++at)
    {
        const ModuleRange* const range = RangeOf(*at);
        if (range && !take(*at, static_cast<const char*>(*at) - range->begin))
        {
            return;
        }
    }
}

/// Decides about a call of a function: null lets it through, else the result stands there.
#ifndef _WIN64
__attribute__((force_align_arg_pointer))
#endif
const std::uintptr_t*
Decide(std::size_t index, Arguments arguments) noexcept
{
    Session& session = CurrentSession();
    if (!session.isRunning)
    {
        return nullptr;
    }
    const Entry& entry = g_entries[index];
    const KnownFunction& known = *entry.info.known;
    if (known.applies && !known.applies(arguments))
    {
        return nullptr;
    }
    const LONG call = ::InterlockedIncrement(&session.callsOf[index]);
    const LONG position = ::InterlockedIncrement(&session.callCount) - 1;
    if (static_cast<std::size_t>(position) < kMostCalls)
    {
        session.calls[static_cast<std::size_t>(position)] = static_cast<unsigned short>(index);
    }
    for (std::size_t i = 0; i < session.faultCount; ++i)
    {
        const Fault& fault = session.faults[i];
        if (fault.function != index || fault.call != call)
        {
            continue;
        }
        const Failure& failure = known.failures[fault.failure];
        ::InterlockedIncrement(&session.injected);
        if (g_keepsCallers)
        {
            std::printf("fails: %s\n", Describe(fault).c_str());
            PrintStack(arguments - 1);
        }
        if (failure.effect)
        {
            failure.effect(arguments);
        }
        if (failure.lastError != 0)
        {
            ::SetLastError(failure.lastError);
        }
        return &failure.result;
    }
    return nullptr;
}

/// Writes code that asks Decide and then returns the result or goes on with the function.
class Writer
{
public:
    explicit Writer(unsigned char* at) noexcept : m_at(at) {}

    template <class... Bytes>
    void Code(Bytes... bytes) noexcept
    {
        ((*m_at++ = static_cast<unsigned char>(bytes)), ...);
    }

    template <class Value>
    void Number(Value value) noexcept
    {
        std::memcpy(m_at, &value, sizeof(value));
        m_at += sizeof(value);
    }

private:
    unsigned char* m_at;
};

void WriteThunk(unsigned char* at, std::size_t index, const Entry& entry) noexcept
{
    Writer writer(at);
    const auto decide = reinterpret_cast<std::uintptr_t>(&Decide);
    const auto original = reinterpret_cast<std::uintptr_t>(entry.original);
#ifdef _WIN64
    writer.Code(0x48, 0x89, 0x4C, 0x24, 0x08); // the registers' arguments to their places
    writer.Code(0x48, 0x89, 0x54, 0x24, 0x10);
    writer.Code(0x4C, 0x89, 0x44, 0x24, 0x18);
    writer.Code(0x4C, 0x89, 0x4C, 0x24, 0x20);
    writer.Code(0x48, 0x83, 0xEC, 0x28); // sub rsp, 28h
    writer.Code(0xB9);                   // mov ecx, index
    writer.Number(static_cast<std::uint32_t>(index));
    writer.Code(0x48, 0x8D, 0x54, 0x24, 0x30); // lea rdx, [rsp+30h]
    writer.Code(0x48, 0xB8);                   // mov rax, Decide
    writer.Number(decide);
    writer.Code(0xFF, 0xD0);             // call rax
    writer.Code(0x48, 0x83, 0xC4, 0x28); // add rsp, 28h
    writer.Code(0x48, 0x8B, 0x4C, 0x24, 0x08);
    writer.Code(0x48, 0x8B, 0x54, 0x24, 0x10);
    writer.Code(0x4C, 0x8B, 0x44, 0x24, 0x18);
    writer.Code(0x4C, 0x8B, 0x4C, 0x24, 0x20);
    writer.Code(0x48, 0x85, 0xC0, 0x75, 0x0D); // test rax, rax; jnz fail
    writer.Code(0x49, 0xBB);                   // mov r11, original
    writer.Number(original);
    writer.Code(0x41, 0xFF, 0xE3);       // jmp r11
    writer.Code(0x48, 0x8B, 0x00, 0xC3); // fail: mov rax, [rax]; ret
#else
    writer.Code(0x51, 0x52);                   // push ecx; push edx
    writer.Code(0x8D, 0x44, 0x24, 0x0C, 0x50); // lea eax, [esp+0Ch]; push eax
    writer.Code(0x68);                         // push index
    writer.Number(static_cast<std::uint32_t>(index));
    writer.Code(0xB8); // mov eax, Decide
    writer.Number(decide);
    writer.Code(0xFF, 0xD0, 0x83, 0xC4, 0x08); // call eax; add esp, 8
    writer.Code(0x5A, 0x59);                   // pop edx; pop ecx
    writer.Code(0x85, 0xC0, 0x75, 0x06);       // test eax, eax; jnz fail
    writer.Code(0x68);                         // push original; ret
    writer.Number(original);
    writer.Code(0xC3);
    writer.Code(0x8B, 0x00, 0xC2); // fail: mov eax, [eax]; ret n
    writer.Number(static_cast<std::uint16_t>(entry.info.known->argumentBytes));
#endif
}

void NoteBlock(void* block, std::size_t size, const void* top) noexcept
{
    const VeltAutoCriticalSection lock(&g_lock);
    for (LiveBlock& live : g_live)
    {
        if (!live.block)
        {
            live = {block, size, {}};
            std::size_t count = 0;
            WalkStack(top, [&](const void* address, std::ptrdiff_t) {
                live.callers[count++] = address;
                return count < live.callers.size();
            });
            return;
        }
    }
}

void ForgetBlock(const void* block) noexcept
{
    const VeltAutoCriticalSection lock(&g_lock);
    for (LiveBlock& live : g_live)
    {
        if (live.block == block)
        {
            live.block = nullptr;
            return;
        }
    }
}

void* Taken(void* block, std::size_t size, const void* top) noexcept
{
    if (block)
    {
        ::InterlockedIncrement(&g_liveBlocks);
        if (g_keepsCallers && CurrentSession().isRunning)
        {
            NoteBlock(block, size, top);
        }
    }
    return block;
}

// What stands in the place of the functions themselves:

void* __cdecl Malloc(std::size_t size) noexcept
{
    return Taken(std::malloc(size), size, __builtin_frame_address(0));
}

void* __cdecl Calloc(std::size_t count, std::size_t size) noexcept
{
    return Taken(std::calloc(count, size), count * size, __builtin_frame_address(0));
}

void __cdecl Free(void* block) noexcept
{
    if (block)
    {
        ::InterlockedDecrement(&g_liveBlocks);
        if (g_keepsCallers)
        {
            ForgetBlock(block);
        }
    }
    std::free(block);
}

void* __cdecl Realloc(void* block, std::size_t size) noexcept
{
    if (!block)
    {
        return Malloc(size);
    }
    if (size == 0)
    {
        Free(block);
        return nullptr;
    }
    return std::realloc(block, size);
}

[[noreturn]] void __cdecl Abort() noexcept
{
    std::printf("abort\n");
    PrintStack(__builtin_frame_address(0));
    std::fflush(stdout);
    ::TerminateProcess(::GetCurrentProcess(), kEndedByAbort);
    std::abort();
}

HRESULT WINAPI Create(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid,
                      void** object) noexcept
{
    const HRESULT hr = ::CoCreateInstance(clsid, outer, context, iid, object);
    if (hr == REGDB_E_CLASSNOTREG)
    {
        ::InterlockedIncrement(&g_missingClasses);
    }
    return hr;
}

BOOL WINAPI SetTimer(HANDLE timer, const LARGE_INTEGER* due, LONG period, PTIMERAPCROUTINE routine,
                     void* argument, BOOL resume) noexcept
{
    constexpr LONGLONG kUnitsPerMs = 10'000;
    LARGE_INTEGER soon{};
    soon.QuadPart = std::max(due->QuadPart, -kWorkerPeriodMs * kUnitsPerMs);
    return ::SetWaitableTimer(timer, due->QuadPart < 0 ? &soon : due,
                              std::min(period, kWorkerPeriodMs), routine, argument, resume);
}

BOOL WINAPI Protect(void* address, SIZE_T size, DWORD protection, DWORD* before) noexcept
{
    const VeltAutoCriticalSection lock(&g_lock);
    if (size == sizeof(void*) && RangeOf(address))
    {
        auto** const slot = static_cast<void**>(address);
        const bool isKnown =
            std::any_of(g_lateSlots.begin(), g_lateSlots.end(),
                        [slot](const LateSlot& late) { return late.slot == slot; });
        if (!isKnown)
        {
            g_lateSlots.push_back({slot, *slot});
        }
    }
    return ::VirtualProtect(address, size, protection, before);
}

/// By contract the buffer of a text for an HRESULT is never given back; it is here, so that nothing
/// else hides behind it. Only those texts are asked for without inserts.
DWORD WINAPI Format(DWORD flags, const void* source, DWORD id, DWORD language, wchar_t* buffer,
                    DWORD size, va_list* arguments) noexcept
{
    const DWORD length = ::FormatMessageW(flags, source, id, language, buffer, size, arguments);
    constexpr DWORD kOfHResult = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS;
    if (length != 0 && (flags & kOfHResult) == kOfHResult)
    {
        const VeltAutoCriticalSection lock(&g_lock);
        g_keptTexts.push_back(*reinterpret_cast<wchar_t**>(buffer));
    }
    return length;
}

struct ThreadStart
{
    unsigned(__stdcall* entry)(void*);
    void* argument;
    Session* session;
};

unsigned __stdcall StartInSession(void* argument) noexcept
{
    ThreadStart start{};
    {
        const std::unique_ptr<ThreadStart> given(static_cast<ThreadStart*>(argument));
        start = *given; // the thread may end within its entry
    }
    ::TlsSetValue(g_ownSession, start.session);
    return start.entry(start.argument);
}

/// A thread that is started in a session of its own is in it, too.
std::uintptr_t __cdecl BeginThread(void* security, unsigned stackBytes,
                                   unsigned(__stdcall* entry)(void*), void* argument,
                                   unsigned flags, unsigned* id) noexcept
{
    Session& session = CurrentSession();
    if (&session == &g_shared)
    {
        return ::_beginthreadex(security, stackBytes, entry, argument, flags, id);
    }
    std::unique_ptr<ThreadStart> start(new ThreadStart{entry, argument, &session});
    const std::uintptr_t thread =
        ::_beginthreadex(security, stackBytes, &StartInSession, start.get(), flags, id);
    if (thread != 0)
    {
        static_cast<void>(start.release()); // the thread's
    }
    return thread;
}

FARPROC WINAPI FindFunction(HMODULE module, const char* name);

void* ReplacementOf(std::string_view name) noexcept
{
    const auto address = [](auto* function) { return reinterpret_cast<void*>(function); };
    return name == "malloc"             ? address(&Malloc)
           : name == "calloc"           ? address(&Calloc)
           : name == "realloc"          ? address(&Realloc)
           : name == "free"             ? address(&Free)
           : name == "abort"            ? address(&Abort)
           : name == "_beginthreadex"   ? address(&BeginThread)
           : name == "SetWaitableTimer" ? address(&SetTimer)
           : name == "CoCreateInstance" ? address(&Create)
           : name == "FormatMessageW"   ? address(&Format)
           : name == "VirtualProtect"   ? address(&Protect)
           : name == "GetProcAddress"   ? address(&FindFunction)
                                        : nullptr;
}

/// What a module is to call for a function whose address is `original`. With the lock.
void* AddressFor(const char* name, const KnownFunction& known, void* original)
{
    void* const replacement = ReplacementOf(name);
    if (known.failures.empty())
    {
        return replacement ? replacement : original;
    }
    const auto found = g_byName.find(name);
    if (found != g_byName.end())
    {
        return g_entries[found->second].thunk;
    }
    if (g_entryCount == kMostFunctions)
    {
        throw std::runtime_error("too many functions");
    }
    if (!g_thunks)
    {
        g_thunks = static_cast<unsigned char*>(::VirtualAlloc(nullptr, kMostFunctions * kThunkBytes,
                                                              MEM_COMMIT | MEM_RESERVE,
                                                              PAGE_EXECUTE_READWRITE));
    }
    const std::size_t index = g_entryCount++;
    Entry& entry = g_entries[index];
    entry.info = {name, &known};
    entry.original = replacement ? replacement : original;
    entry.thunk = g_thunks + index * kThunkBytes;
    WriteThunk(static_cast<unsigned char*>(entry.thunk), index, entry);
    g_byName.emplace(name, index);
    return entry.thunk;
}

/// The library of a function may have gone, and come to another place. With the lock.
void MoveOriginal(const char* name, void* original)
{
    const auto found = g_byName.find(name);
    if (found == g_byName.end() || ReplacementOf(name))
    {
        return;
    }
    Entry& entry = g_entries[found->second];
    if (entry.original != original)
    {
        entry.original = original;
        WriteThunk(static_cast<unsigned char*>(entry.thunk), found->second, entry);
    }
}

FARPROC WINAPI FindFunction(HMODULE module, const char* name)
{
    const FARPROC found = ::GetProcAddress(module, name);
    if (!found || IS_INTRESOURCE(name))
    {
        return found;
    }
    const DWORD lastError = ::GetLastError();
    const VeltAutoCriticalSection lock(&g_lock);
    const KnownFunction* const known = FindKnownFunction(name);
    void* address = reinterpret_cast<void*>(found);
    if (known)
    {
        address = AddressFor(name, *known, address);
        MoveOriginal(name, reinterpret_cast<void*>(found));
    }
    else if (std::find(g_unknownLate.begin(), g_unknownLate.end(), name) == g_unknownLate.end())
    {
        g_unknownLate.emplace_back(name);
    }
    ::SetLastError(lastError);
    return reinterpret_cast<FARPROC>(address);
}
} // namespace

void Install(HMODULE module, bool unresolved)
{
    const VeltAutoCriticalSection lock(&g_lock);
    const auto* const image = reinterpret_cast<const char*>(module);
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(image + dos->e_lfanew);
    g_modules.push_back({module, image, image + headers->OptionalHeader.SizeOfImage});
    std::string unknown;
    ForEachImport(module, [&](const char* dll, const char* name, void** slot) {
        const KnownFunction* const known = FindKnownFunction(name);
        if (!known)
        {
            unknown += std::string(" ") + dll + ":" + name;
            return false;
        }
        void* const original =
            unresolved ? reinterpret_cast<void*>(::GetProcAddress(::LoadLibraryA(dll), name))
                       : *slot;
        void* const address = AddressFor(name, *known, original);
        if (address != *slot)
        {
            ExchangeSlot(slot, address);
        }
        return false;
    });
    if (!unknown.empty())
    {
        throw std::runtime_error("not in the table of functions:" + unknown);
    }
}

void Forget(HMODULE module) noexcept
{
    const VeltAutoCriticalSection lock(&g_lock);
    std::erase_if(g_lateSlots, [module](const LateSlot& late) {
        const ModuleRange* const range = RangeOf(late.slot);
        return range && range->module == module;
    });
    std::erase_if(g_modules, [module](const ModuleRange& range) { return range.module == module; });
}

std::vector<std::string> UnknownLateFunctions()
{
    const VeltAutoCriticalSection lock(&g_lock);
    return g_unknownLate;
}

const FunctionInfo& Function(std::size_t index)
{
    return g_entries[index].info;
}

void UseOwnSession()
{
    auto session = std::make_unique<Session>();
    if (!::TlsSetValue(g_ownSession, session.get()))
    {
        throw std::runtime_error("no session of the thread's own");
    }
    const VeltAutoCriticalSection lock(&g_lock);
    g_sessions.push_back(std::move(session));
}

void Arm(std::vector<Fault> faults)
{
    Disarm();
    Session& session = CurrentSession();
    for (volatile LONG& calls : session.callsOf)
    {
        calls = 0;
    }
    session.callCount = 0;
    session.injected = 0;
    session.faultCount = std::min(faults.size(), kMostFaults);
    std::copy_n(faults.begin(), session.faultCount, session.faults.begin());
    if (&session == &g_shared)
    {
        const VeltAutoCriticalSection lock(&g_lock);
        for (const LateSlot& late : g_lateSlots)
        {
            ExchangeSlot(late.slot, late.before);
        }
    }
}

void Resume() noexcept
{
    ::InterlockedExchange(&CurrentSession().isRunning, TRUE);
}

void Pause() noexcept
{
    ::InterlockedExchange(&CurrentSession().isRunning, FALSE);
}

void Disarm() noexcept
{
    Pause();
    Session& session = CurrentSession();
    session.faultCount = 0;
    if (&session == &g_shared)
    {
        FreeKeptTexts();
    }
}

void FreeKeptTexts() noexcept
{
    const VeltAutoCriticalSection lock(&g_lock);
    for (wchar_t* const text : g_keptTexts)
    {
        ::LocalFree(text);
    }
    g_keptTexts.clear();
}

std::vector<std::size_t> Calls()
{
    const Session& session = CurrentSession();
    const auto count = std::min(static_cast<std::size_t>(session.callCount), kMostCalls);
    return {session.calls.begin(), session.calls.begin() + static_cast<std::ptrdiff_t>(count)};
}

std::size_t Injected() noexcept
{
    return static_cast<std::size_t>(CurrentSession().injected);
}

LONG LiveBlocks() noexcept
{
    return g_liveBlocks;
}

LONG MissingClasses() noexcept
{
    return g_missingClasses;
}

void KeepCallers(bool keep) noexcept
{
    g_keepsCallers = keep;
}

void PrintLiveBlocks()
{
    for (const LiveBlock& live : g_live)
    {
        if (live.block)
        {
            std::printf("block of %lu bytes\n", static_cast<unsigned long>(live.size));
            for (const void* const caller : live.callers)
            {
                if (const ModuleRange* const range = RangeOf(caller))
                {
                    std::printf("    +%lx\n", static_cast<unsigned long>(
                                                  static_cast<const char*>(caller) - range->begin));
                }
            }
        }
    }
}

void PrintStack(const void* top)
{
    constexpr int kMost = 24;
    int count = 0;
    WalkStack(top, [&](const void*, std::ptrdiff_t offset) {
        std::printf("    +%lx\n", static_cast<unsigned long>(offset));
        return ++count < kMost;
    });
}

std::vector<Fault> FaultsOf(const std::vector<std::size_t>& calls)
{
    std::vector<Fault> faults;
    std::vector<LONG> counts(kMostFunctions, 0);
    for (const std::size_t function : calls)
    {
        const LONG call = ++counts[function];
        for (std::size_t i = 0; i < Function(function).known->failures.size(); ++i)
        {
            faults.push_back({function, call, i});
        }
    }
    return faults;
}

std::string Describe(const Fault& fault)
{
    const FunctionInfo& info = Function(fault.function);
    return info.name + " " + std::to_string(fault.call) + " " +
           info.known->failures[fault.failure].name;
}
} // namespace velt::torture::FaultEngine
