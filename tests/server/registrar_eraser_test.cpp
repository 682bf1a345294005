#include "server/registrar_eraser.h"

#include "tests/server/own_key.h"

#include <catch.hpp>

using namespace std::string_literals;
using namespace velt;
using namespace velt::test;

using Operations = std::vector<RegistryOperation>;

namespace
{
const Operations kWritten = {OwnKey::Create(), OwnKey::Set(L"", L"text"s),
                             OwnKey::Set(L"number", std::uint32_t{7}), OwnKey::Create(L"empty")};

void Write(const Operations& operations)
{
    WriteRegistry(operations, RegistrationScope::machine);
}

void Erase(const Operations& operations)
{
    EraseRegistry(operations, RegistrationScope::machine, EraseExtent::all);
}

const RegistryLocation kAt = {HKEY_CURRENT_USER, OwnKey::kPath};
} // namespace

TEST_CASE("EraseRegistry: takes back what was written", "[server]")
{
    const OwnKey key;
    Write(kWritten);
    REQUIRE(OwnKey::Written().size() == 2);
    Erase(kWritten);
    CHECK(OwnKey::Written().empty());
    Erase(kWritten); // nothing is there any more
    CHECK(OwnKey::Written().empty());
}

TEST_CASE("EraseRegistry: what others put there stays, and capitals do not matter", "[server]")
{
    const OwnKey key;
    Write(kWritten);
    Write({OwnKey::Set(L"", L"TEXT"s), OwnKey::Set(L"number", std::uint32_t{8}),
           OwnKey::Set(L"theirs", L"kept"s), OwnKey::Create(L"empty\\theirs")});
    Erase(kWritten);
    const DWORD eight = 8;
    const auto* const bytes = reinterpret_cast<const BYTE*>(&eight);
    CHECK(OwnKey::Written() ==
          RegistryTree{{L"",
                        {{L"number", {REG_DWORD, {bytes, bytes + sizeof(eight)}}},
                         {L"theirs", TextValue(L"kept")}}},
                       {L"empty", {}},
                       {L"empty\\theirs", {}}});
}

TEST_CASE("EraseRegistry: a shared key of the user's goes when it is empty, the machine's stays",
          "[server]")
{
    const auto scope = GENERATE(RegistrationScope::machine, RegistrationScope::user);
    const OwnKey key;
    Operations operations = {OwnKey::Create()};
    operations.front().shared = true;
    Write(operations);
    EraseRegistry(operations, scope, EraseExtent::all);
    CHECK(OwnKey::Written().empty() == (scope == RegistrationScope::user));
}

TEST_CASE("ReadText: ends at the first NUL, or with the value", "[server]")
{
    const OwnKey key;
    Write({OwnKey::Create()});
    const auto [data, bytes, text] = GENERATE(table<const wchar_t*, DWORD, const wchar_t*>({
        {L"text", 10, L"text"},
        {L"text", 8, L"text"},
        {L"a\0b", 8, L"a"},
        {L"", 2, L""},
        {L"", 0, L""},
        {L"text", 7, L"tex"}, // half a character is none
    }));
    CAPTURE(bytes);
    REQUIRE(::RegSetKeyValueW(kAt.root, OwnKey::kPath, L"name", REG_SZ, data, bytes) == 0);
    CHECK((ReadText(kAt, L"name") == text));
}

TEST_CASE("ReadText: nothing for other types, and for what is not there", "[server]")
{
    const OwnKey key;
    CHECK_FALSE(ReadText(kAt, L"name"));
    Write({OwnKey::Create()});
    CHECK_FALSE(ReadText(kAt, L"name"));
    Write({OwnKey::Set(L"name", std::uint32_t{7})});
    CHECK_FALSE(ReadText(kAt, L"name"));
    CHECK(ReadValue(kAt, L"name"));
}
