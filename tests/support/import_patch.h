#pragma once

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

// A function's type can carry attributes, as the lists of arguments of 64 bits do, which a template
// does not see.
#pragma GCC diagnostic ignored "-Wignored-attributes"

namespace velt::test
{
/// Calls `each(dll, function, slot)` for everything that a module imports by name: the slot is the
/// place where the address stands. Null is this program. Ends early once `each` has returned true.
template <class Each>
void ForEachImport(HMODULE module, Each&& each)
{
    auto* const image = reinterpret_cast<std::byte*>(module ? module : ::GetModuleHandleW(nullptr));
    const auto at = [image](ULONGLONG offset) { return image + offset; };
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
    const auto* const headers =
        reinterpret_cast<const IMAGE_NT_HEADERS*>(at(static_cast<ULONGLONG>(dos->e_lfanew)));
    const IMAGE_DATA_DIRECTORY& directory =
        headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (auto* library =
             reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(at(directory.VirtualAddress));
         library->Name != 0; ++library)
    {
        const auto* const dll = reinterpret_cast<const char*>(at(library->Name));
        const auto* name =
            reinterpret_cast<const IMAGE_THUNK_DATA*>(at(library->OriginalFirstThunk));
        auto* address = reinterpret_cast<IMAGE_THUNK_DATA*>(at(library->FirstThunk));
        for (; name->u1.AddressOfData != 0; ++name, ++address)
        {
            if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal))
            {
                continue;
            }
            const auto* const import =
                reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(at(name->u1.AddressOfData));
            if (each(dll, reinterpret_cast<const char*>(import->Name),
                     reinterpret_cast<void**>(&address->u1.Function)))
            {
                return;
            }
        }
    }
}

/// The place in a module's import table where the address of a function stands; null is this
/// program. Throws std::runtime_error when the module does not import it by that name.
inline void** ImportSlot(const char* dll, const char* function, HMODULE module = nullptr)
{
    void** found = nullptr;
    ForEachImport(module, [&](const char* library, const char* name, void** slot) {
        const bool isIt = ::lstrcmpiA(library, dll) == 0 && std::strcmp(name, function) == 0;
        found = isIt ? slot : nullptr;
        return isIt;
    });
    if (!found)
    {
        throw std::runtime_error(std::string("not imported: ") + dll + " " + function);
    }
    return found;
}

/// Puts an address into such a place and returns the one that stood there.
inline void* ExchangeSlot(void** slot, void* function) noexcept
{
    DWORD protection = 0;
    ::VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection);
    void* const before = std::exchange(*slot, function);
    ::VirtualProtect(slot, sizeof(*slot), protection, &protection);
    return before;
}

/// A function's name as an argument of a template.
template <std::size_t N>
struct FunctionName
{
    constexpr FunctionName(const char (&name)[N]) // so that a literal will do
    {
        std::copy_n(name, N, text);
    }

    char text[N];
};

/// Puts a function of the test's own in the place of one that this program, or the module that is
/// named, imports, until the end of the scope. Calls of other modules are not affected. One at a
/// time for each function; it is called by whichever thread calls the function, and must not throw.
///
///     ImportPatch<"InternetReadFile", decltype(::InternetReadFile)> patch(
///         "wininet.dll", [](HINTERNET, void*, DWORD, DWORD*) { return FALSE; });
template <FunctionName Name, class Signature>
class ImportPatch;

template <FunctionName Name, class Result, class... Arguments>
class ImportPatch<Name, Result WINAPI(Arguments...)>
{
public:
    using Function = Result(WINAPI*)(Arguments...);

    ImportPatch(const char* dll, std::function<Result(Arguments...)> body, HMODULE module = nullptr)
        : m_slot(ImportSlot(dll, Name.text, module)),
          m_body(std::move(body))
    {
        if (s_current)
        {
            throw std::runtime_error("patched already");
        }
        s_current = this;
        s_original = reinterpret_cast<Function>(*m_slot);
        ExchangeSlot(m_slot, reinterpret_cast<void*>(&ImportPatch::Call));
    }

    ImportPatch(const ImportPatch&) = delete;
    ImportPatch& operator=(const ImportPatch&) = delete;

    ~ImportPatch()
    {
        ExchangeSlot(m_slot, reinterpret_cast<void*>(s_original));
        s_current = nullptr;
    }

    /// The system's own function.
    static Result Original(Arguments... arguments)
    {
        return s_original(arguments...);
    }

    /// How often the function has been called.
    LONG Calls() const noexcept
    {
        return m_calls;
    }

private:
    static Result WINAPI Call(Arguments... arguments)
    {
        ::InterlockedIncrement(&s_current->m_calls);
        return s_current->m_body(arguments...);
    }

    inline static ImportPatch* s_current = nullptr;
    inline static Function s_original = nullptr;

    void** m_slot;
    std::function<Result(Arguments...)> m_body;
    volatile LONG m_calls = 0;
};
} // namespace velt::test
