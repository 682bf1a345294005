// An object of a process of one kind, called by a process of the other: the system's marshalling by
// the type library that each finds registered for its own kind.

#include "tests/support/temp_folder.h"
#include "tests/support/test_thread.h"
#include "tests/tools/editions/edition_programs.h"

#include <catch.hpp>

#include <array>
#include <string>

using namespace velt::test;

namespace
{
/// A process that has a collection and a service for others, until the end of the scope.
class Server
{
public:
    Server(const EditionPrograms& edition, const std::wstring& file)
        : m_ready(::CreateEventW(nullptr, TRUE, FALSE, L"VeltExchange-ready")),
          m_done(::CreateEventW(nullptr, TRUE, FALSE, L"VeltExchange-done")),
          m_run({L"serve", file, L"VeltExchange"}, edition.exchange)
    {
        const std::array<HANDLE, 1> ready{m_ready.Get()};
        REQUIRE(::WaitForMultipleObjects(1, ready.data(), FALSE, 2 * kWaitLimitMs) ==
                WAIT_OBJECT_0);
    }

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    ~Server()
    {
        End();
    }

    ProgramResult End()
    {
        ::SetEvent(m_done.Get());
        return m_run.Wait();
    }

private:
    velt::UniqueKernelObject m_ready;
    velt::UniqueKernelObject m_done;
    ProgramRun m_run;
};

/// Each item by a call of its vtable and by a late-bound one: through a proxy both are whole.
const std::string kSeen = "count: 8\n"
                          "item: type 20, value 1122334455667788\n"
                          "item: type 20, value 1122334455667788\n"
                          "item: type 5, value 3FF8000000000000\n"
                          "item: type 5, value 3FF8000000000000\n"
                          "item: type 8, value \xC3\xA4\xE4\xB8\xAD\n"
                          "item: type 8, value \xC3\xA4\xE4\xB8\xAD\n"
                          "item: type 3, value -7\n"
                          "item: type 3, value -7\n"
                          "item: type 11, value -1\n"
                          "item: type 11, value -1\n"
                          "item: type 7, value 40E5F90800000000\n"
                          "item: type 7, value 40E5F90800000000\n"
                          "item: type 6, value FFFF8FB779F22087\n"
                          "item: type 6, value FFFF8FB779F22087\n"
                          "item: the caller's own object: 1\n"
                          "item: the caller's own object: 1\n"
                          "walked: type 20, value 1122334455667788\n"
                          "walked: type 5, value 3FF8000000000000\n"
                          "walked: type 8, value \xC3\xA4\xE4\xB8\xAD\n"
                          "event: member 1, 0, {AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}\n";

std::string WithoutReturns(std::string text)
{
    std::erase(text, '\r');
    return text;
}
} // namespace

TEST_CASE("Editions: an object of one is called, and calls back, across processes", "[collection]")
{
    const bool server64 = GENERATE(false, true);
    const bool client64 = GENERATE(false, true); // the same kind, for comparison
    const BothRegistered registered;
    const TempFolder folder(L"exchange");
    const EditionPrograms& serverEdition = server64 ? Programs64() : Programs32();
    const EditionPrograms& clientEdition = client64 ? Programs64() : Programs32();
    CAPTURE(server64, client64);
    Server server(serverEdition, folder.File(L"objects"));
    const ProgramResult result =
        ProgramRun({L"use", folder.File(L"objects")}, clientEdition.exchange).Wait();
    CHECK(WithoutReturns(result.output) == kSeen);
    CHECK(result.messages.empty());
    CHECK(result.exitCode == 0);
    const ProgramResult end = server.End();
    CHECK(end.output.empty());
    CHECK(end.exitCode == 0);
}
