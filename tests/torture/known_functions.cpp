// How the functions fail that the component takes from the system: what their documentation says,
// and of that each failure that differs in what the caller sees. A function that is not here makes
// the program fail, so the table stays complete.

#include "tests/torture/known_functions.h"

#include <winsock2.h>

#include <windows.h>

#include <commctrl.h>
#include <iphlpapi.h>

#include <icmpapi.h>
#include <oleauto.h>
#include <process.h>
#include <wininet.h>

#include <cstdio>
#include <cstdlib>
#include <map>

#pragma GCC diagnostic ignored "-Wignored-attributes" // of types of functions as arguments

namespace velt::torture
{
namespace
{
constexpr unsigned kWord = 4; // of the 32-bit stack

template <class Signature>
inline constexpr unsigned kArgumentBytes = 0; // the caller's matter

#ifndef _WIN64
template <class Result, class... Parameters>
inline constexpr unsigned kArgumentBytes<Result __stdcall(Parameters...)> =
    (((sizeof(Parameters) + kWord - 1) / kWord * kWord) + ... + 0);
#endif

template <int N>
void NullPointer(Arguments arguments) noexcept
{
    if (arguments[N])
    {
        *static_cast<void**>(arguments[N]) = nullptr;
    }
}

template <int N>
void ZeroNumber(Arguments arguments) noexcept
{
    if (arguments[N])
    {
        *static_cast<DWORD*>(arguments[N]) = 0;
    }
}

/// By contract the component leaves the apartment also after such a failure; it must not be the
/// host's that goes then.
void EnterApartment(Arguments) noexcept
{
    ::CoInitialize(nullptr);
}

/// A result that says no more, and the thread's last error beside it.
constexpr Failure With(const char* name, std::uintptr_t result, DWORD error)
{
    return {name, result, error, HRESULT_FROM_WIN32(error)};
}

/// A result without a last error.
constexpr Failure Quietly(std::uintptr_t result)
{
    return {"fails", result, 0, E_FAIL};
}

/// A function whose result is the code of the error.
constexpr Failure Code(const char* name, DWORD error)
{
    return {name, error, 0, HRESULT_FROM_WIN32(error)};
}

constexpr Failure Result(const char* name, HRESULT hr, void (*effect)(Arguments) = nullptr)
{
    return {name, static_cast<std::uintptr_t>(static_cast<ULONG>(hr)), 0, hr, effect};
}

const Failure kNoMemory = With("no memory", 0, ERROR_NOT_ENOUGH_MEMORY);
const Failure kNoResources = With("no resources", 0, ERROR_NO_SYSTEM_RESOURCES);
const Failure kNotFoundCode = Code("not found", ERROR_FILE_NOT_FOUND);
const Failure kDeniedCode = Code("denied", ERROR_ACCESS_DENIED);
const Failure kNoResourcesCode = Code("no resources", ERROR_NO_SYSTEM_RESOURCES);
const Failure kDeletedCode = Code("key deleted", ERROR_KEY_DELETED);
constexpr std::uintptr_t kInvalidHandle = static_cast<std::uintptr_t>(-1);

/// A last error of the internet API that nothing here gives by itself.
const Failure kInternet = With("internet", 0, ERROR_INTERNET_SEC_CERT_REVOKED);

KnownFunction Sure(const char* reason)
{
    KnownFunction function;
    function.reason = reason;
    return function;
}

KnownFunction Fails(unsigned argumentBytes, std::vector<Failure> failures)
{
    KnownFunction function;
    function.argumentBytes = argumentBytes;
    function.failures = std::move(failures);
    return function;
}

KnownFunction Allocation()
{
    KnownFunction function;
    function.failures = {{"no memory", 0, 0, E_OUTOFMEMORY}};
    function.isAllocation = true;
    return function;
}

/// Strings that nobody gave are null by right.
bool HasText(Arguments arguments) noexcept
{
    return arguments[0] != nullptr;
}

bool IsPropertyPut(Arguments arguments) noexcept
{
    return arguments[2] != nullptr;
}

/// Whether a VARIANT's copy takes memory.
bool IsCopiedWithMemory(const void* variant) noexcept
{
    const VARTYPE type = static_cast<const VARIANT*>(variant)->vt;
    return type == VT_BSTR || type == VT_RECORD || (type & VT_ARRAY) != 0 || (type & VT_BYREF) != 0;
}

template <int N>
bool IsCopied(Arguments arguments) noexcept
{
    return IsCopiedWithMemory(arguments[N]);
}

/// Only an array can be locked.
bool IsArray(Arguments arguments) noexcept
{
    return (static_cast<const VARIANT*>(arguments[0])->vt & VT_ARRAY) != 0;
}

bool MayFailToChange(Arguments arguments) noexcept
{
    return static_cast<const VARIANT*>(arguments[1])->vt != VT_I4 ||
           reinterpret_cast<UINT_PTR>(arguments[3]) == VT_BSTR;
}

#define VELT_FAILS(function, ...)                                              \
    {                                                                          \
#function, Fails(kArgumentBytes <decltype(::function)>, {__VA_ARGS__}) \
    }

constexpr char kOfValidHandle[] = "closes what is open: fails for a wrong handle only";
constexpr char kNoFailure[] = "has no result that says so";
constexpr char kArgumentsOnly[] =
    "fails for wrong arguments only, which here do not come from outside";
constexpr char kApartment[] =
    "asked on threads only whose apartment CoGetApartmentType has just named";
constexpr char kOwnImage[] = "reads the component's own image, which is loaded";
constexpr char kNoneIsAnswer[] = "its no is an ordinary answer, which the operations get";
constexpr char kWindowOnly[] = "fails only when the window is none, and it is the caller's own";
constexpr char kWaits[] = "on an open handle only its limit can pass, which is a matter of time";
constexpr char kReads[] = "computes from its arguments";
constexpr char kRunTime[] = "the run-time's own start and end";
constexpr char kData[] = "no function";

std::map<std::string_view, KnownFunction> MakeTable()
{
    std::map<std::string_view, KnownFunction> table = {
        // advapi32
        VELT_FAILS(RegCreateKeyExW, kDeniedCode, kNoResourcesCode),
        VELT_FAILS(RegDeleteKeyExW, kDeniedCode),
        VELT_FAILS(RegDeleteKeyW, kDeniedCode),
        VELT_FAILS(RegDeleteTreeW, kDeniedCode),
        VELT_FAILS(RegDeleteValueW, kDeniedCode, kNotFoundCode),
        VELT_FAILS(RegOpenKeyExW, kNotFoundCode, kDeniedCode),
        VELT_FAILS(RegOverridePredefKey, kDeniedCode),
        VELT_FAILS(RegQueryInfoKeyW, kDeletedCode),
        VELT_FAILS(RegQueryValueExA, kNotFoundCode, kDeletedCode),
        VELT_FAILS(RegQueryValueExW, kNotFoundCode, kDeletedCode),
        VELT_FAILS(RegSetValueExA, kDeniedCode, kNoResourcesCode),
        VELT_FAILS(RegSetValueExW, kDeniedCode, kNoResourcesCode),
        // gdi32
        VELT_FAILS(BitBlt, kNoMemory),
        VELT_FAILS(CombineRgn, Quietly(ERROR)),
        VELT_FAILS(CreateBitmap, kNoMemory),
        VELT_FAILS(CreateCompatibleBitmap, kNoMemory),
        VELT_FAILS(CreateCompatibleDC, kNoMemory),
        VELT_FAILS(CreateDIBSection, kNoMemory),
        VELT_FAILS(CreateFontIndirectW, kNoMemory),
        VELT_FAILS(CreateRectRgn, kNoMemory),
        VELT_FAILS(CreateSolidBrush, kNoMemory),
        VELT_FAILS(ExtCreateRegion, kNoMemory),
        VELT_FAILS(ExtTextOutW, kNoMemory),
        VELT_FAILS(GetObjectW, Quietly(0)),
        VELT_FAILS(GetTextExtentPoint32W, kNoMemory),
        VELT_FAILS(SelectObject, Quietly(0)),
        VELT_FAILS(SetBkColor, Quietly(CLR_INVALID)),
        VELT_FAILS(SetBkMode, Quietly(0)),
        VELT_FAILS(SetStretchBltMode, Quietly(0)),
        VELT_FAILS(SetTextColor, Quietly(CLR_INVALID)),
        VELT_FAILS(StretchBlt, kNoMemory),
        // kernel32
        VELT_FAILS(CreateEventW, kNoResources),
        VELT_FAILS(CreateFileW, With("not found", kInvalidHandle, ERROR_FILE_NOT_FOUND),
                   With("in use", kInvalidHandle, ERROR_SHARING_VIOLATION)),
        VELT_FAILS(CreateMutexW, kNoResources, With("denied", 0, ERROR_ACCESS_DENIED)),
        VELT_FAILS(CreateSemaphoreW, kNoResources),
        VELT_FAILS(CreateWaitableTimerW, kNoResources),
        VELT_FAILS(FormatMessageA, With("no such message", 0, ERROR_MR_MID_NOT_FOUND)),
        VELT_FAILS(FormatMessageW, With("no such message", 0, ERROR_MR_MID_NOT_FOUND), kNoMemory),
        VELT_FAILS(GetFileSizeEx, With("device", 0, ERROR_NOT_READY)),
        VELT_FAILS(GetModuleFileNameW, kNoMemory),
        VELT_FAILS(GetModuleHandleExW, With("not loaded", 0, ERROR_MOD_NOT_FOUND)),
        VELT_FAILS(GetProcAddress, With("not found", 0, ERROR_PROC_NOT_FOUND)),
        VELT_FAILS(GetSystemDirectoryW, kNoMemory),
        VELT_FAILS(GlobalAlloc, kNoMemory),
        VELT_FAILS(GlobalLock, With("discarded", 0, ERROR_DISCARDED)),
        VELT_FAILS(GlobalReAlloc, kNoMemory),
        VELT_FAILS(LoadLibraryA, With("not found", 0, ERROR_MOD_NOT_FOUND), kNoMemory),
        VELT_FAILS(LoadLibraryExW, With("not found", 0, ERROR_MOD_NOT_FOUND), kNoMemory),
        VELT_FAILS(LoadLibraryW, With("not found", 0, ERROR_MOD_NOT_FOUND), kNoMemory),
        VELT_FAILS(LocalAlloc, kNoMemory),
        VELT_FAILS(MultiByteToWideChar, With("no translation", 0, ERROR_NO_UNICODE_TRANSLATION)),
        VELT_FAILS(ReadFile, With("cannot be read", 0, ERROR_READ_FAULT),
                   Failure{"ends", TRUE, 0, E_FAIL, &ZeroNumber<3>}),
        VELT_FAILS(SetFilePointerEx, With("device", 0, ERROR_NOT_READY)),
        VELT_FAILS(SetThreadLocale, With("invalid", 0, ERROR_INVALID_PARAMETER)),
        VELT_FAILS(SetWaitableTimer, kNoMemory),
        VELT_FAILS(SystemTimeToTzSpecificLocalTime, With("invalid", 0, ERROR_INVALID_PARAMETER)),
        VELT_FAILS(TlsAlloc, With("none left", TLS_OUT_OF_INDEXES, ERROR_NO_MORE_ITEMS)),
        VELT_FAILS(TlsSetValue, kNoMemory),
        VELT_FAILS(VirtualProtect, With("no memory", 0, ERROR_COMMITMENT_LIMIT)),
        VELT_FAILS(WideCharToMultiByte, With("no translation", 0, ERROR_NO_UNICODE_TRANSLATION)),
        // msvcrt
        VELT_FAILS(_beginthreadex, Quietly(0)),
        VELT_FAILS(_wfopen, Quietly(0)),
        VELT_FAILS(fopen, Quietly(0)),
        VELT_FAILS(fread, Quietly(0)),
        VELT_FAILS(fseek, Quietly(1)),
        VELT_FAILS(ftell, Quietly(kInvalidHandle)),
        VELT_FAILS(fwrite, Quietly(0)),
        {"malloc", Allocation()},
        {"calloc", Allocation()},
        {"realloc", Allocation()},
        // ole32
        VELT_FAILS(CoCreateFreeThreadedMarshaler,
                   Result("no memory", E_OUTOFMEMORY, &NullPointer<1>)),
        VELT_FAILS(CoCreateInstance, Result("not registered", REGDB_E_CLASSNOTREG, &NullPointer<4>),
                   Result("no memory", E_OUTOFMEMORY, &NullPointer<4>)),
        VELT_FAILS(CoGetStandardMarshal, Result("no memory", E_OUTOFMEMORY, &NullPointer<5>)),
        VELT_FAILS(CoInitialize, Result("no memory", E_OUTOFMEMORY, &EnterApartment),
                   Result("changed mode", RPC_E_CHANGED_MODE)),
        VELT_FAILS(CoSetProxyBlanket, Result("not supported", E_NOINTERFACE)),
        VELT_FAILS(CoUnmarshalInterface,
                   Result("disconnected", CO_E_OBJNOTCONNECTED, &NullPointer<2>)),
        // oleaut32
        VELT_FAILS(LoadTypeLib,
                   Result("cannot be loaded", TYPE_E_CANTLOADLIBRARY, &NullPointer<1>)),
        VELT_FAILS(LoadTypeLibEx,
                   Result("cannot be loaded", TYPE_E_CANTLOADLIBRARY, &NullPointer<2>)),
        VELT_FAILS(RegisterTypeLib, Result("registry", TYPE_E_REGISTRYACCESS)),
        {"RegisterTypeLibForUser", // which this compiler's headers do not have
         Fails(kArgumentBytes<HRESULT WINAPI(ITypeLib*, OLECHAR*, OLECHAR*)>,
               {Result("registry", TYPE_E_REGISTRYACCESS)})},
        VELT_FAILS(SysAllocString, Failure{"no memory", 0, 0, E_OUTOFMEMORY}),
        VELT_FAILS(SysAllocStringLen, Failure{"no memory", 0, 0, E_OUTOFMEMORY}),
        VELT_FAILS(VariantChangeType, Result("no memory", E_OUTOFMEMORY),
                   Result("another type", DISP_E_TYPEMISMATCH)),
        VELT_FAILS(VariantClear, Result("locked", DISP_E_ARRAYISLOCKED)),
        VELT_FAILS(VariantCopy, Result("no memory", E_OUTOFMEMORY)),
        VELT_FAILS(VariantCopyInd, Result("no memory", E_OUTOFMEMORY)),
        // user32
        VELT_FAILS(BeginPaint, kNoMemory),
        VELT_FAILS(CreateWindowExW, kNoMemory, With("no class", 0, ERROR_CANNOT_FIND_WND_CLASS)),
        VELT_FAILS(DialogBoxIndirectParamW,
                   With("no memory", kInvalidHandle, ERROR_NOT_ENOUGH_MEMORY)),
        VELT_FAILS(DrawFocusRect, kNoMemory),
        VELT_FAILS(DrawFrameControl, kNoMemory),
        VELT_FAILS(DrawTextW, kNoMemory),
        VELT_FAILS(FillRect, kNoMemory),
        VELT_FAILS(GetClassInfoExW, With("no class", 0, ERROR_CLASS_DOES_NOT_EXIST)),
        VELT_FAILS(GetDC, kNoMemory),
        VELT_FAILS(LoadBitmapW, kNoMemory),
        VELT_FAILS(MsgWaitForMultipleObjectsEx,
                   With("no memory", WAIT_FAILED, ERROR_NOT_ENOUGH_MEMORY)),
        VELT_FAILS(PostMessageW, With("queue full", 0, ERROR_NOT_ENOUGH_QUOTA)),
        VELT_FAILS(SetPropW, kNoMemory),
        VELT_FAILS(SetWindowPos, With("no memory", 0, ERROR_NOT_ENOUGH_MEMORY)),
        VELT_FAILS(SetWindowRgn, Quietly(0)),
        VELT_FAILS(SetWindowTextW, kNoMemory),
        VELT_FAILS(SystemParametersInfoW, With("denied", 0, ERROR_ACCESS_DENIED)),
        // wininet
        VELT_FAILS(HttpOpenRequestW, kInternet),
        VELT_FAILS(HttpQueryInfoW, kInternet),
        VELT_FAILS(HttpSendRequestW, kInternet),
        VELT_FAILS(InternetAttemptConnect, Code("offline", ERROR_INTERNET_DISCONNECTED)),
        VELT_FAILS(InternetCheckConnectionW, kInternet),
        VELT_FAILS(InternetConnectW, kInternet),
        VELT_FAILS(InternetGetConnectedState, With("offline", 0, ERROR_INTERNET_DISCONNECTED)),
        VELT_FAILS(InternetGetCookieA, kInternet),
        VELT_FAILS(InternetGetCookieW, kInternet),
        VELT_FAILS(InternetOpenW, kInternet),
        VELT_FAILS(InternetOpenUrlW, kInternet),
        VELT_FAILS(InternetQueryDataAvailable, kInternet),
        VELT_FAILS(InternetQueryOptionW, kInternet),
        VELT_FAILS(InternetReadFile, kInternet), // an end that comes early is an ordinary end to it
        VELT_FAILS(InternetSetCookieA, kInternet),
        VELT_FAILS(InternetSetCookieW, kInternet),
        VELT_FAILS(InternetSetOptionExW, kInternet),
        VELT_FAILS(InternetSetOptionW, kInternet),
        VELT_FAILS(InternetSetStatusCallbackW,
                   With("internet", kInvalidHandle, ERROR_INTERNET_SEC_CERT_REVOKED)),
        VELT_FAILS(InternetCrackUrlW, kInternet),
        VELT_FAILS(InternetCanonicalizeUrlW, kInternet),
        VELT_FAILS(InternetGetLastResponseInfoW, kInternet),
        VELT_FAILS(InternetSetFilePointer,
                   With("internet", kInvalidHandle, ERROR_INTERNET_INVALID_OPERATION)),
        VELT_FAILS(InternetWriteFile, kInternet),
        // iphlpapi, atl and comctl32
        VELT_FAILS(IcmpCreateFile, With("denied", kInvalidHandle, ERROR_ACCESS_DENIED)),
        VELT_FAILS(IcmpSendEcho, With("no resources", 0, IP_NO_RESOURCES)),
        VELT_FAILS(_TrackMouseEvent, kNoMemory),
        {"AtlAxWinInit", Fails(0, {Quietly(FALSE)})},
    };
    table["SysAllocString"].applies = &HasText;
    table["VariantClear"].applies = &IsArray;
    table["VariantCopy"].applies = &IsCopied<1>;
    table["VariantCopyInd"].applies = &IsCopied<1>;
    table["VariantChangeType"].applies = &MayFailToChange;
    table["SetPropW"].applies = &IsPropertyPut;

    const auto sure = [&](const char* reason, std::initializer_list<const char*> names) {
        for (const char* const name : names)
        {
            table[name] = Sure(reason);
        }
    };
    sure(kOfValidHandle, {"CloseHandle",
                          "RegCloseKey",
                          "DeleteDC",
                          "DeleteObject",
                          "FreeLibrary",
                          "InternetCloseHandle",
                          "IcmpCloseHandle",
                          "ReleaseDC",
                          "fclose",
                          "TlsFree",
                          "DestroyWindow",
                          "RemovePropW",
                          "EndDialog",
                          "LocalFree",
                          "GlobalFree",
                          "GlobalUnlock",
                          "CancelWaitableTimer",
                          "ReleaseMutex",
                          "ReleaseSemaphore",
                          "SetEvent",
                          "ReleaseCapture",
                          "TerminateThread",
                          "CoDisconnectObject",
                          "CoReleaseMarshalData",
                          "GetThreadId"});
    sure(kNoFailure, {"AcquireSRWLockExclusive",
                      "ReleaseSRWLockExclusive",
                      "DeleteCriticalSection",
                      "EnterCriticalSection",
                      "LeaveCriticalSection",
                      "InitializeCriticalSection",
                      "TryEnterCriticalSection",
                      "FreeLibraryAndExitThread",
                      "GetCurrentThreadId",
                      "GetLastError",
                      "SetLastError",
                      "GetSystemTimeAsFileTime",
                      "GetThreadLocale",
                      "GetTickCount",
                      "GetTickCount64",
                      "GetVersion",
                      "OutputDebugStringA",
                      "QueryPerformanceCounter",
                      "QueryPerformanceFrequency",
                      "RaiseException",
                      "Sleep",
                      "SwitchToThread",
                      "InitializeConditionVariable",
                      "WakeAllConditionVariable",
                      "WakeConditionVariable",
                      "free",
                      "CoUninitialize",
                      "SysFreeString",
                      "SysStringLen",
                      "VariantInit",
                      "DispatchMessageW",
                      "EndPaint",
                      "GdiFlush",
                      "GetSysColor",
                      "GetSystemMetrics",
                      "InflateRect",
                      "InvalidateRect",
                      "PostQuitMessage",
                      "PtInRect",
                      "TranslateMessage",
                      "UpdateWindow",
                      "InitCommonControls",
                      "GetActiveWindow",
                      "GetCapture",
                      "SetCapture",
                      "GetVersionExW",
                      "RtlCaptureContext",
                      "RtlLookupFunctionEntry",
                      "RtlUnwindEx",
                      "RtlVirtualUnwind",
                      "BringWindowToTop"});
    sure(kArgumentsOnly, {"CompareStringOrdinal", "FileTimeToSystemTime", "StringFromGUID2",
                          "TlsGetValue", "VirtualQuery", "GetModuleHandleW", "GetModuleHandleA",
                          "CoGetApartmentType", "GetDeviceCaps", "GetStockObject", "GetWindow",
                          "setlocale", "wvsprintfW", "vfprintf", "fputc"});
    sure(kApartment, {"CoGetContextToken"});
    sure(kOwnImage, {"FindResourceW", "LoadResource", "LockResource", "SizeofResource"});
    sure(kNoneIsAnswer, {"GetEnvironmentVariableA", "FindWindowW", "getenv", "GetPropW",
                         "PeekMessageW", "ChildWindowFromPointEx", "IsDialogMessageW", "IsWindow",
                         "IsWindowEnabled", "GetParent"});
    sure(kWindowOnly,
         {"CallWindowProcW", "ClientToScreen", "DefWindowProcW", "GetClientRect", "GetDlgCtrlID",
          "GetDlgItem", "GetDlgItemTextW", "GetWindowLongW", "GetWindowLongPtrW", "GetWindowRect",
          "GetWindowTextLengthW", "GetWindowTextW", "MapDialogRect", "MapWindowPoints",
          "SendMessageW", "SetWindowLongW", "SetWindowLongPtrW"});
    sure(kWaits, {"WaitForSingleObject", "WaitForMultipleObjects", "SleepConditionVariableCS"});
    sure(kReads, {"IsDBCSLeadByteEx", "atoi",      "clock",   "localeconv", "memchr",
                  "memcmp",           "memcpy",    "memmove", "memset",     "strchr",
                  "strcmp",           "strerror",  "strlen",  "strncmp",    "strtoul",
                  "wcslen",           "inet_addr", "_errno",  "_wtol",      "lstrlenW",
                  "lstrcpynW",        "fputs"});
    sure(kRunTime, {"_amsg_exit", "_initterm", "_lock", "_unlock", "abort", "_close", "_read",
                    "___lc_codepage_func", "___mb_cur_max_func", "__iob_func"});
    sure(kData, {"__mb_cur_max", "_iob"});
    return table;
}
} // namespace

const KnownFunction* FindKnownFunction(std::string_view name)
{
    static const std::map<std::string_view, KnownFunction> table = MakeTable();
    const auto found = table.find(name);
    return found == table.end() ? nullptr : &found->second;
}
} // namespace velt::torture
