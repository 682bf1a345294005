#pragma once

#include <windows.h>

#include <array>
#include <cstdio>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace velt::facts
{
/// One question to the system. Each is asked in a process of its own, whose working folder is empty
/// and goes away with it. facts.txt has the question's sentence and what is expected.
struct Fact
{
    const char* id;

    /// What was seen, as the list spells it, in UTF-8. Throws NotAsked where this system, or the
    /// rights of the process, do not allow the question.
    std::string (*ask)();

    /// Takes back what the question writes outside of its working folder and below kFactsKey; runs
    /// in a process of its own, also when the question was cut off, and without it having been
    /// asked.
    void (*undo)() = nullptr;
};

/// Why a question is left out here.
class NotAsked final : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Below HKEY_CURRENT_USER: questions write here, and all of it is deleted after each.
inline constexpr wchar_t kFactsKey[] = L"Software\\VeltFacts";

/// The questions by their themes.
std::span<const Fact> ComFacts();
std::span<const Fact> DocumentFacts();
std::span<const Fact> InternetFacts();
std::span<const Fact> LoaderFacts();
std::span<const Fact> RegistryFacts();
std::span<const Fact> WindowFacts();

/// "0x80004005"
inline std::string Hex(HRESULT code)
{
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08lX", static_cast<unsigned long>(code));
    return text.data();
}

/// "error 5"
inline std::string ErrorNumber(DWORD code)
{
    return "error " + std::to_string(code);
}

inline std::string Choose(bool first, const char* ifSo, const char* otherwise)
{
    return first ? ifSo : otherwise;
}

/// A step that the question needs and that is not what it asks about.
inline void Need(bool done, const char* what)
{
    if (!done)
    {
        throw std::runtime_error(what);
    }
}

inline bool IsWine()
{
    return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

/// Writes a file of the working folder.
void WriteBytes(const wchar_t* name, std::string_view bytes);

/// What is in a file, up to 4 KB; nothing when there is none.
std::string FileText(const wchar_t* name);

/// The path of a file of the working folder.
std::wstring FullPath(const wchar_t* name);

/// Deletes a key below the classes of the machine and the user, in each view, with all below it.
/// Wine has no key for a user's classes at first, so an empty one goes, too.
void DeleteClassesKey(const wchar_t* path);

/// Deletes what registers the library of the questions.
void UndoFactLibrary();

/// The path of this program.
inline std::wstring ThisProgram()
{
    std::wstring path(1024, L'\0');
    path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path;
}
} // namespace velt::facts
