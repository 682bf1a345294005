// Both editions registered beside each other: what one does leaves the other whole. On 64-bit
// Windows, CLSID and Interface below the classes are two keys, and all else there is one for both
// kinds of program: names of classes, applications, and type libraries.

#include "tests/support/component_registration.h"
#include "tests/support/registry_snapshot.h"
#include "tests/support/registry_views.h"
#include "tests/support/temp_folder.h"
#include "tests/tools/editions/edition_programs.h"

#include <catch.hpp>

#include <string>

using namespace velt::test;

namespace
{
const std::wstring kVersion = L"\\{AB6A43CE-5CEE-40EE-9AD0-A7AA608DBB6C}\\1.0";

/// The scope that a case is about, as velt.exe and the registry name it.
struct Scope
{
    HKEY root;
    std::vector<std::wstring> option;

    std::vector<std::wstring> With(const wchar_t* command) const
    {
        std::vector<std::wstring> arguments{command};
        arguments.insert(arguments.end(), option.begin(), option.end());
        return arguments;
    }

    /// All that the scope has of classes, both views.
    RegistryTree Classes() const
    {
        HKEY classes = nullptr; // some systems make the user's with the first entry
        REQUIRE(::RegCreateKeyW(root, kUserClasses, &classes) == 0);
        ::RegCloseKey(classes);
        return SnapshotRegistry(root, kUserClasses);
    }
};

Scope AnyScope()
{
    const bool user = GENERATE(false, true);
    return user ? Scope{HKEY_CURRENT_USER, {L"--user"}} : Scope{HKEY_LOCAL_MACHINE, {}};
}

bool CannotTell(const Scope& scope)
{
    if (scope.root == HKEY_CURRENT_USER && !HasUserViews())
    {
        WARN("not looked at: on this system both kinds of program have one key for the user's "
             "classes, so the second registration takes the place of the first");
        return true;
    }
    return false;
}

void CheckSame(const char* when, const RegistryTree& expected, const RegistryTree& actual)
{
    INFO(when << '\n' << RegistryDifference(expected, actual));
    CHECK((expected == actual));
}

/// Without the one value that says which edition was registered last.
RegistryTree WithoutHelpFolder(RegistryTree tree)
{
    for (auto& [path, values] : tree)
    {
        if (path.ends_with(kVersion + L"\\HELPDIR"))
        {
            values.clear();
        }
    }
    return tree;
}
} // namespace

TEST_CASE("Editions: unregistering one leaves the other as if it had been alone", "[server]")
{
    const Scope scope = AnyScope();
    const auto [first, second] = InOrder(GENERATE(false, true));
    if (CannotTell(scope))
    {
        return;
    }
    const RegistryTree before = scope.Classes();
    Velt(first, scope.With(L"register"));
    const RegistryTree onlyFirst = scope.Classes();
    Velt(first, scope.With(L"unregister"));
    CheckSame("the first alone has gone", before, scope.Classes());
    Velt(second, scope.With(L"register"));
    const RegistryTree onlySecond = scope.Classes();
    Velt(second, scope.With(L"unregister"));
    CheckSame("the second alone has gone", before, scope.Classes());

    Velt(first, scope.With(L"register"));
    Velt(second, scope.With(L"register"));
    Velt(second, scope.With(L"unregister"));
    CheckSame("the second of both has gone", onlyFirst, scope.Classes());
    Velt(second, scope.With(L"register"));
    Velt(first, scope.With(L"unregister"));
    CheckSame("the first of both has gone", onlySecond, scope.Classes());
    Velt(second, scope.With(L"unregister"));
    CheckSame("both have gone", before, scope.Classes());
}

TEST_CASE("Editions: registering one again, or another copy of it, leaves the other", "[server]")
{
    const Scope scope = AnyScope();
    const auto [first, second] = InOrder(GENERATE(false, true));
    if (CannotTell(scope))
    {
        return;
    }
    const RegistryTree before = scope.Classes();
    Velt(first, scope.With(L"register"));
    Velt(second, scope.With(L"register"));
    const RegistryTree both = scope.Classes();
    Velt(second, scope.With(L"register"));
    CheckSame("the second again", both, scope.Classes());
    Velt(first, scope.With(L"register"));
    CheckSame("the first again", WithoutHelpFolder(both), WithoutHelpFolder(scope.Classes()));

    // As after an upgrade to another folder.
    const TempFolder folder(L"copy");
    EditionPrograms copy = first;
    copy.velt = folder.File(L"velt.exe");
    copy.library = folder.File(L"VeltHTTPClient12OEM.dll");
    REQUIRE(::CopyFileW(first.velt.c_str(), copy.velt.c_str(), TRUE));
    REQUIRE(::CopyFileW(first.library.c_str(), copy.library.c_str(), TRUE));
    Velt(copy, scope.With(L"register"));
    RegistryTree expected = both;
    for (auto& [path, values] : expected)
    {
        for (auto& [name, value] : values)
        {
            if (value == TextValue(first.library))
            {
                value = TextValue(copy.library);
            }
        }
    }
    CheckSame("another copy of the first", WithoutHelpFolder(expected),
              WithoutHelpFolder(scope.Classes()));

    Velt(second, scope.With(L"unregister"));
    Velt(copy, scope.With(L"unregister"));
    CheckSame("all have gone", before, scope.Classes());
}

TEST_CASE("Editions: each is found by programs of its kind", "[server]")
{
    const BothRegistered registered;
    for (const EditionPrograms* const edition : {&Programs32(), &Programs64()})
    {
        const std::string status = Velt(*edition, {L"status"});
        const std::string library(edition->library.begin(), edition->library.end());
        CHECK(status.find("registeredForMachine: " + library + "\n") != status.npos);
        const std::string own = edition == &Programs32() ? "32-bit" : "64-bit";
        const std::string other = edition == &Programs32() ? "64-bit" : "32-bit";
        CHECK(status.find("\nok       " + own + ", machine: " + library + ", version ") !=
              status.npos);
        CHECK(status.find(": makes objects\n") != status.npos);
        CHECK(status.find("\nok       " + other + ", machine: ") != status.npos);
        CHECK(status.find(": not tried; " + other + " velt status does\n") != status.npos);
    }
}

TEST_CASE("velt: a library of the other edition beside it is named as that", "[server]")
{
    const auto [program, library] = InOrder(GENERATE(false, true));
    const TempFolder folder(L"mixed");
    const std::wstring velt = folder.File(L"velt.exe");
    REQUIRE(::CopyFileW(program.velt.c_str(), velt.c_str(), TRUE));
    REQUIRE(::CopyFileW(library.library.c_str(), folder.File(L"VeltHTTPClient12OEM.dll").c_str(),
                        TRUE));
    const std::wstring expected = std::wstring(L"\\VeltHTTPClient12OEM.dll: this is the ") +
                                  library.name + L" library; this program is " + program.name +
                                  L": ";
    for (const wchar_t* const command : {L"register", L"unregister"})
    {
        const ProgramResult result = RunVelt({command}, velt);
        CHECK(result.exitCode == 3);
        CHECK(result.messages.find(std::string(expected.begin(), expected.end())) !=
              std::string::npos);
        CHECK(result.messages.find("(0x800700C1)") != std::string::npos);
    }
    const ProgramResult status = RunVelt({L"status"}, velt);
    CHECK(status.exitCode == 1);
    CHECK(status.output.find(std::string(expected.begin(), expected.end())) != std::string::npos);
    CHECK(status.output.find("(0x800700C1); put this edition's library beside this program\n") !=
          std::string::npos);
}
