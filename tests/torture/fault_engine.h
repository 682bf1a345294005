#pragma once

#include "tests/torture/known_functions.h"

#include <windows.h>

#include <cstddef>
#include <string>
#include <vector>

namespace velt::torture
{
/// One call that fails: which of a function's calls, from 1, and which of its failures.
struct Fault
{
    std::size_t function; // index in FaultEngine::Function
    LONG call;
    std::size_t failure;
};

/// Has calls fail that modules make to the system: through their import tables, to what they take
/// by GetProcAddress, and so to what they load late. Calls are counted and fail in a session, from
/// Arm to Disarm, and only while it is not paused. All threads share one session, but for those
/// that have asked for one of their own.
namespace FaultEngine
{
struct FunctionInfo
{
    std::string name;
    const KnownFunction* known;
};

/// Puts the engine between a module and the system. With `unresolved`, the module has been mapped
/// without its imports, which are looked up here. Throws std::runtime_error that names the
/// functions which the table does not know.
void Install(HMODULE module, bool unresolved = false);

/// Before a module goes whose objects the engine has seen.
void Forget(HMODULE module) noexcept;

/// What was asked for late and stands in no table.
std::vector<std::string> UnknownLateFunctions();

const FunctionInfo& Function(std::size_t index);

/// Gives the calling thread a session of its own, which the threads are in, too, that the modules
/// start on it. It stays until the process ends.
void UseOwnSession();

/// Begins to count, with these calls failing; paused. What modules have loaded late is looked up
/// again in the shared session only.
void Arm(std::vector<Fault> faults);
void Resume() noexcept;
void Pause() noexcept;
void Disarm() noexcept;

/// Frees what the modules never free by contract; while none of them uses it. Disarm does so in the
/// shared session.
void FreeKeptTexts() noexcept;

/// The functions of the calls counted since Arm that could fail, in their order.
std::vector<std::size_t> Calls();

/// How many of the armed faults have come to pass, the first ones first.
std::size_t Injected() noexcept;

/// Blocks that the modules have taken from the C++ run-time and not given back.
LONG LiveBlocks() noexcept;

/// How often the modules have asked for an object of a class that the system does not know.
LONG MissingClasses() noexcept;

/// Has the engine keep, and print, who called: for one run that is looked at.
void KeepCallers(bool keep) noexcept;
void PrintLiveBlocks();

/// Prints the addresses of the modules' code that stand on the stack from `top` on.
void PrintStack(const void* top);

/// Each of these calls with each of its failures.
std::vector<Fault> FaultsOf(const std::vector<std::size_t>& calls);

std::string Describe(const Fault& fault);
} // namespace FaultEngine
} // namespace velt::torture
