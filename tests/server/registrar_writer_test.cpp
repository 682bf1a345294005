#include "server/registrar_writer.h"

#include "foundation/system_exception.h"
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
constexpr wchar_t kKey[] = L"Software\\VeltTestWriter"; // below whichever root

/// Writes below a key of the test's own in HKEY_CURRENT_USER, and removes it at the end.
class Writer
{
public:
    Writer()
    {
        ::RegDeleteTreeW(HKEY_CURRENT_USER, kKey);
    }

    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    ~Writer()
    {
        ::RegDeleteTreeW(HKEY_CURRENT_USER, kKey);
    }

    static std::wstring Path(const std::wstring& below = {})
    {
        return below.empty() ? kKey : kKey + (L'\\' + below);
    }

    static RegistryOperation Create(const std::wstring& below = {})
    {
        return CreateKey(Path(below), RegistryRoot::currentUser);
    }

    static RegistryOperation Delete(const std::wstring& below = {})
    {
        return DeleteTree(Path(below), RegistryRoot::currentUser);
    }

    static RegistryOperation Set(const std::wstring& name, RegistryOperation::Value value)
    {
        return SetValue(Path(), name, std::move(value), RegistryRoot::currentUser);
    }

    static RegistryTree Written()
    {
        return SnapshotRegistry(HKEY_CURRENT_USER, kKey);
    }
};

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
    const Writer writer;
    WriteRegistry({}, RegistrationScope::machine);
    CHECK(Writer::Written().empty());
}

TEST_CASE("WriteRegistry: each kind of value is written byte by byte", "[server]")
{
    const Writer writer;
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
    WriteRegistry(Operations{Writer::Create(), Writer::Set(name, value)},
                  RegistrationScope::machine);
    CHECK((Writer::Written() == RegistryTree{{L"", {{name, RegistryValue{type, data}}}}}));
}

TEST_CASE("WriteRegistry: a value replaces one of another type", "[server]")
{
    const Writer writer;
    WriteRegistry(Operations{Writer::Create(), Writer::Set(L"n", std::uint32_t{1}),
                             Writer::Set(L"n", L"text"s)},
                  RegistrationScope::machine);
    CHECK((Writer::Written() == RegistryTree{{L"", {{L"n", TextValue(L"text")}}}}));
}

TEST_CASE("WriteRegistry: creating a key that exists keeps what is in it", "[server]")
{
    const Writer writer;
    const Operations operations = {Writer::Create(), Writer::Set(L"n", L"x"s), Writer::Create(L"A"),
                                   Writer::Create()};
    WriteRegistry(operations, RegistrationScope::machine);
    CHECK((Writer::Written() == RegistryTree{{L"", {{L"n", TextValue(L"x")}}}, {L"A", {}}}));
}

TEST_CASE("WriteRegistry: deleteTree takes a key with all below it", "[server]")
{
    const Writer writer;
    WriteRegistry(Operations{Writer::Create(L"A"), Writer::Create(L"A\\B\\C"),
                             Writer::Create(L"AB"), Writer::Delete(L"A")},
                  RegistrationScope::machine);
    CHECK((Writer::Written() == RegistryTree{{L"", {}}, {L"AB", {}}}));
}

TEST_CASE("WriteRegistry: deleting a key that is not there is no error", "[server]")
{
    const Writer writer;
    CHECK(ErrorOf({Writer::Delete(), Writer::Delete(L"A\\B"), Writer::Create(),
                   Writer::Delete(L"A")}) == ERROR_SUCCESS);
    CHECK((Writer::Written() == RegistryTree{{L"", {}}}));
}

TEST_CASE("WriteRegistry: a tree that must not be deleted is a failure", "[server]")
{
    const Writer writer;
    WriteRegistry(Operations{Writer::Create(L"A"), Writer::Set(L"n", L"x"s)},
                  RegistrationScope::machine);
    const auto before = Writer::Written();
    {
        const DeniedKey denied(HKEY_CURRENT_USER, Writer::Path(L"A").c_str(),
                               KEY_READ | KEY_WRITE | DELETE);
        CHECK(ErrorOf({Writer::Delete(L"A"), Writer::Create(L"After")}) == ERROR_ACCESS_DENIED);
    }
    CHECK((Writer::Written() == before));
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
        {RegistryRoot::currentUser, HKEY_CURRENT_USER, kKey},
        {RegistryRoot::localMachine, HKEY_LOCAL_MACHINE, kKey},
        {RegistryRoot::users, HKEY_USERS, L".Default\\Software\\VeltTestWriter"},
        {RegistryRoot::currentConfig, HKEY_CURRENT_CONFIG, kKey},
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
    const Writer writer;
    WriteRegistry(Operations{Writer::Create(), Writer::Create(L"Denied")},
                  RegistrationScope::machine);
    {
        const DeniedKey denied(HKEY_CURRENT_USER, Writer::Path(L"Denied").c_str());
        CHECK(ErrorOf({Writer::Set(L"before", L"x"s), Writer::Create(L"Before"),
                       Writer::Create(L"Denied"), Writer::Create(L"After"),
                       Writer::Set(L"after", L"x"s)}) == ERROR_ACCESS_DENIED);
    }
    CHECK((Writer::Written() ==
           RegistryTree{{L"", {{L"before", TextValue(L"x")}}}, {L"Before", {}}, {L"Denied", {}}}));
}

TEST_CASE("WriteRegistry: a root that is none is refused", "[server]")
{
    const Operations operations = {CreateKey(L"x", static_cast<RegistryRoot>(77))};
    CHECK_THROWS_AS(WriteRegistry(operations, RegistrationScope::machine), VeltException);
}
