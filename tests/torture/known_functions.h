#pragma once

#include <windows.h>

#include <cstdint>
#include <string_view>
#include <vector>

namespace velt::torture
{
/// The arguments of a call, one after the other; each takes the place of a pointer.
using Arguments = void* const*;

/// One way in which a function of the system fails.
struct Failure
{
    const char* name;
    std::uintptr_t result;
    DWORD lastError;                     // 0 leaves the thread's as it is
    HRESULT stated;                      // what a member may answer because of it
    void (*effect)(Arguments) = nullptr; // on what the caller handed in
};

/// What is known of a function that the component takes from the system.
struct KnownFunction
{
    unsigned argumentBytes = 0;           // that the function itself takes from the 32-bit stack
    std::vector<Failure> failures;        // none: calls of it go through unseen
    const char* reason = nullptr;         // why it cannot fail, where it has no failures
    bool isAllocation = false;            // of the C++ run-time
    bool (*applies)(Arguments) = nullptr; // which calls can fail; null for all
};

/// Null for a function that is not in the table.
const KnownFunction* FindKnownFunction(std::string_view name);
} // namespace velt::torture
