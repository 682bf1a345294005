#pragma once

#include <windows.h>

namespace CLibraryUtils
{
/// Owns a loaded library; frees it at destruction.
class CLibraryUtilsImpl
{
public:
    /// Takes over the module handle; null is none.
    explicit CLibraryUtilsImpl(HMODULE module = nullptr) noexcept;

    CLibraryUtilsImpl(const CLibraryUtilsImpl&) = delete;
    CLibraryUtilsImpl& operator=(const CLibraryUtilsImpl&) = delete;

    virtual ~CLibraryUtilsImpl();

    /// The handle, null when none; still owned by this object.
    HMODULE GetModule() const noexcept;

private:
    HMODULE m_module;
};

/// Initialises COM on the calling thread (single-threaded apartment) for as long as it lives.
///
/// By design, only RPC_E_CHANGED_MODE keeps the destructor from uninitialising: S_FALSE balances
/// the thread's count, and after any other failure the call is made as well.
class SmartComInitializer
{
public:
    /// Throws only in a program that loads COM itself late, and cannot.
    SmartComInitializer();

    SmartComInitializer(const SmartComInitializer&) = delete;
    SmartComInitializer& operator=(const SmartComInitializer&) = delete;

    virtual ~SmartComInitializer();

    /// What CoInitialize answered.
    HRESULT GetResult() const noexcept;

private:
    HRESULT m_result;
};
} // namespace CLibraryUtils

namespace velt
{
/// Loads a library by its file name from the system directory only, so that a planted file beside
/// the host is never loaded. Null with the thread's last error set when it cannot be loaded; the
/// caller owns the handle.
HMODULE LoadSystemLibrary(const wchar_t* fileName) noexcept;
} // namespace velt
