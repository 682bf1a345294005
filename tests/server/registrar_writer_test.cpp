#include "server/registrar_writer.h"

#include "foundation/system_exception.h"
#include "tests/server/own_key.h"
#include "tests/support/registry_operations.h"
#include "tests/support/registry_snapshot.h"

#include <catch.hpp>

using namespace std::string_literals;
using velt::RegistrationScope;
using velt::RegistryOperation;
using velt::RegistryRoot;
using velt::WriteRegistry;
using velt::test::CreateKey;
using velt::test::DeleteTree;
using velt::test::DeniedKey;
using velt::test::OwnKey;
using velt::test::RegistryTree;
using velt::test::RegistryValue;
using velt::test::SetValue;
using velt::test::SnapshotRegistry;
using velt::test::TextValue;

using Operations = std::vector<RegistryOperation>;
using Bytes = std::vector<BYTE>;
using Texts = std::vector<std::wstring>;

namespace
{
DWORD ErrorOf(const Operations& operations)
{
    try
    {
        WriteRegistry(operations, RegistrationScope::machine);
    }
    catch (const SystemException::Win32& e)
    {
        return e.GetCode();
    }
    return ERROR_SUCCESS;
}
} // namespace

TEST_CASE("WriteRegistry: no operation does nothing", "[server]")
{
    const OwnKey key;
    WriteRegistry({}, RegistrationScope::machine);
    CHECK(OwnKey::Written().empty());
}

TEST_CASE("WriteRegistry: each kind of value is written byte by byte", "[server]")
{
    const OwnKey key;
    const auto [value, type, data] = GENERATE(table<RegistryOperation::Value, DWORD, Bytes>({
        {L"aß"s, REG_SZ, {'a', 0, 0xDF, 0, 0, 0}},
        {L""s, REG_SZ, {0, 0}},
        {std::uint32_t{0x01020304}, REG_DWORD, {4, 3, 2, 1}},
        {std::uint32_t{0xFFFFFFFF}, REG_DWORD, {0xFF, 0xFF, 0xFF, 0xFF}},
        {Bytes{0, 0xFF, 0x10}, REG_BINARY, {0, 0xFF, 0x10}},
        {Bytes{}, REG_BINARY, {}},
        {Texts{L"a", L"bc"}, REG_MULTI_SZ, {'a', 0, 0, 0, 'b', 0, 'c', 0, 0, 0, 0, 0}},
        {Texts{}, REG_MULTI_SZ, {0, 0}},
    }));
    const std::wstring name = GENERATE(L"a name"s, L""s);
    WriteRegistry(Operations{OwnKey::Create(), OwnKey::Set(name, value)},
                  RegistrationScope::machine);
    CHECK((OwnKey::Written() == RegistryTree{{L"", {{name, RegistryValue{type, data}}}}}));
}

TEST_CASE("WriteRegistry: a value replaces one of another type", "[server]")
{
    const OwnKey key;
    WriteRegistry(Operations{OwnKey::Create(), OwnKey::Set(L"n", std::uint32_t{1}),
                             OwnKey::Set(L"n", L"text"s)},
                  RegistrationScope::machine);
    CHECK((OwnKey::Written() == RegistryTree{{L"", {{L"n", TextValue(L"text")}}}}));
}

TEST_CASE("WriteRegistry: creating a key that exists keeps what is in it", "[server]")
{
    const OwnKey key;
    const Operations operations = {OwnKey::Create(), OwnKey::Set(L"n", L"x"s), OwnKey::Create(L"A"),
                                   OwnKey::Create()};
    WriteRegistry(operations, RegistrationScope::machine);
    CHECK((OwnKey::Written() == RegistryTree{{L"", {{L"n", TextValue(L"x")}}}, {L"A", {}}}));
}

TEST_CASE("WriteRegistry: deleteTree takes a key with all below it", "[server]")
{
    const OwnKey key;
    WriteRegistry(Operations{OwnKey::Create(L"A"), OwnKey::Create(L"A\\B\\C"),
                             OwnKey::Create(L"AB"), OwnKey::Delete(L"A")},
                  RegistrationScope::machine);
    CHECK((OwnKey::Written() == RegistryTree{{L"", {}}, {L"AB", {}}}));
}

TEST_CASE("WriteRegistry: deleting a key that is not there is no error", "[server]")
{
    const OwnKey key;
    CHECK(ErrorOf({OwnKey::Delete(), OwnKey::Delete(L"A\\B"), OwnKey::Create(),
                   OwnKey::Delete(L"A")}) == ERROR_SUCCESS);
    CHECK((OwnKey::Written() == RegistryTree{{L"", {}}}));
}

TEST_CASE("WriteRegistry: a tree that must not be deleted is a failure", "[server]")
{
    const OwnKey key;
    WriteRegistry(Operations{OwnKey::Create(L"A"), OwnKey::Set(L"n", L"x"s)},
                  RegistrationScope::machine);
    const auto before = OwnKey::Written();
    {
        const DeniedKey denied(HKEY_CURRENT_USER, OwnKey::Path(L"A").c_str(),
                               KEY_READ | KEY_WRITE | DELETE);
        CHECK(ErrorOf({OwnKey::Delete(L"A"), OwnKey::Create(L"After")}) == ERROR_ACCESS_DENIED);
    }
    CHECK((OwnKey::Written() == before));
}

TEST_CASE("WriteRegistry: classes go to the machine or to the user", "[server]")
{
    const auto [scope, hit, missed] = GENERATE(table<RegistrationScope, HKEY, HKEY>({
        {RegistrationScope::machine, HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER},
        {RegistrationScope::user, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE},
    }));
    const std::wstring path = L"VeltTest.Writer";
    const std::wstring below = L"Software\\Classes\\" + path;
    WriteRegistry(Operations{CreateKey(path + L"\\Old"), DeleteTree(path + L"\\Old"),
                             CreateKey(path + L"\\New"), SetValue(path + L"\\New", L"n", L"x"s)},
                  scope);
    CHECK((SnapshotRegistry(hit, below) ==
           RegistryTree{{L"", {}}, {L"New", {{L"n", TextValue(L"x")}}}}));
    CHECK(SnapshotRegistry(missed, below).empty());
    WriteRegistry(Operations{DeleteTree(path)}, scope);
    CHECK(SnapshotRegistry(hit, below).empty());
}

TEST_CASE("WriteRegistry: every other root is itself, whoever registers", "[server]")
{
    struct Row
    {
        RegistryRoot root;
        HKEY key;
        std::wstring path;
    };
    const Row row = GENERATE(values<Row>({
        {RegistryRoot::currentUser, HKEY_CURRENT_USER, OwnKey::kPath},
        {RegistryRoot::localMachine, HKEY_LOCAL_MACHINE, OwnKey::kPath},
        {RegistryRoot::users, HKEY_USERS, L".Default\\Software\\VeltTestKey"},
        {RegistryRoot::currentConfig, HKEY_CURRENT_CONFIG, OwnKey::kPath},
    }));
    const RegistrationScope scope = GENERATE(RegistrationScope::machine, RegistrationScope::user);
    WriteRegistry(
        Operations{CreateKey(row.path, row.root), SetValue(row.path, L"n", L"x"s, row.root)},
        scope);
    CHECK((SnapshotRegistry(row.key, row.path) == RegistryTree{{L"", {{L"n", TextValue(L"x")}}}}));
    WriteRegistry(Operations{DeleteTree(row.path, row.root)}, scope);
    CHECK(SnapshotRegistry(row.key, row.path).empty());
}

TEST_CASE("WriteRegistry: the first failure ends it, what was before stays", "[server]")
{
    const OwnKey key;
    WriteRegistry(Operations{OwnKey::Create(), OwnKey::Create(L"Denied")},
                  RegistrationScope::machine);
    {
        const DeniedKey denied(HKEY_CURRENT_USER, OwnKey::Path(L"Denied").c_str());
        CHECK(ErrorOf({OwnKey::Set(L"before", L"x"s), OwnKey::Create(L"Before"),
                       OwnKey::Create(L"Denied"), OwnKey::Create(L"After"),
                       OwnKey::Set(L"after", L"x"s)}) == ERROR_ACCESS_DENIED);
    }
    CHECK((OwnKey::Written() ==
           RegistryTree{{L"", {{L"before", TextValue(L"x")}}}, {L"Before", {}}, {L"Denied", {}}}));
}

TEST_CASE("WriteRegistry: a root that is none is refused", "[server]")
{
    const Operations operations = {CreateKey(L"x", static_cast<RegistryRoot>(77))};
    CHECK_THROWS_AS(WriteRegistry(operations, RegistrationScope::machine), VeltException);
}
