#include "tests/support/component_library.h"
#include "tests/support/debuggee.h"
#include "tests/support/environment_variable.h"
#include "tests/support/variants.h"

#include <provider_lib.h>

#include <catch.hpp>

#include <regex>
#include <string>
#include <vector>

using namespace velt::test;

namespace
{
using Texts = std::vector<std::string>;

constexpr char kSession[] = "child: a session with the library";

/// The calls in their order, without their threads.
Texts CallsOf(const DebuggeeRun& run)
{
    Texts texts;
    for (const DebugOutput& output : run.output)
    {
        texts.push_back(output.text);
    }
    return texts;
}

/// Each line with the calls that write it.
Texts AsCalls(const Texts& lines)
{
    Texts calls;
    for (const std::string& line : lines)
    {
        calls.insert(calls.end(), {": ", line, "\r\n"});
    }
    return calls;
}

const Texts kSessionLines = {
    "DllGetClassObject - enter",
    "DllGetClassObject - return = 0",
    "CClassFactory::CreateInstance - enter",
    "CClassFactory::CreateInstance - return = 0",
    "CEnumVariantCol::Add - enter",
    "CEnumVariantCol::Add - return = 0",
    "CEnumVariantCol::Remove - enter",
    "CEnumVariantCol::Remove - return = -2147024809",
    "DllCanUnloadNow - enter",
    "DllCanUnloadNow - return = 1",
};
} // namespace

TEST_CASE("child: a session with the library", "[.child]")
{
    const ComponentLibrary library;
    const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    REQUIRE(collection->Add(Long(5)) == S_OK);
    REQUIRE(collection->Remove(Long(2)) == E_INVALIDARG);
    REQUIRE(library.CanUnloadNow() == S_FALSE);
}

TEST_CASE("child: a failure in the library", "[.child]")
{
    const ComponentLibrary library;
    const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    REQUIRE(collection->Remove(OfType(kImpossibleType)) == DISP_E_BADVARTYPE);
}

TEST_CASE("Trace at the debugger: three calls a line, without time stamps", "[foundation]")
{
    const DebuggeeRun run = RunUnderDebugger(kSession);
    CHECK(run.exitCode == 0);
    CHECK(CallsOf(run) == AsCalls(kSessionLines));
}

TEST_CASE("Trace at the debugger: a failure is written before it is reported", "[foundation]")
{
    const DebuggeeRun run = RunUnderDebugger("child: a failure in the library");
    CHECK(run.exitCode == 0);
    const Texts calls = CallsOf(run);
    REQUIRE(calls.size() == 7 * 3);
    CHECK(calls[13] == "CEnumVariantCol::Remove - enter");
    CHECK_THAT(calls[16], Catch::StartsWith("  failed: 0x80020008 "));
    CHECK(calls[19] == "CEnumVariantCol::Remove - return = -2147352568");
}

TEST_CASE("Trace at the debugger: VELT_TRACE without bit 0 silences it", "[foundation]")
{
    const EnvironmentVariable trace("VELT_TRACE", GENERATE("0", "0x0", "6"));
    const DebuggeeRun run = RunUnderDebugger(kSession);
    CHECK(run.exitCode == 0);
    CHECK(CallsOf(run).empty());
}

TEST_CASE("Trace at the debugger: VELT_TRACE with bit 2 puts the time before each line",
          "[foundation]")
{
    const EnvironmentVariable trace("VELT_TRACE", GENERATE("7", "0x7", "0X5", "07"));
    const DebuggeeRun run = RunUnderDebugger(kSession);
    CHECK(run.exitCode == 0);
    const Texts calls = CallsOf(run);
    REQUIRE(calls.size() == kSessionLines.size() * 3);
    const std::regex time("[0-9]+:([0-9]{1,2}):([0-9]{1,2})\\.[0-9]{3} : ");
    for (std::size_t i = 0; i < kSessionLines.size(); ++i)
    {
        CHECK(calls[3 * i] == ": ");
        std::smatch match;
        const std::string& line = calls[3 * i + 1];
        REQUIRE(std::regex_search(line, match, time, std::regex_constants::match_continuous));
        CHECK(match.suffix() == kSessionLines[i]);
        CHECK(std::stoi(match[1]) <= 39);
        CHECK(std::stoi(match[2]) <= 59);
        CHECK(calls[3 * i + 2] == "\r\n");
    }
}

TEST_CASE("Trace at the debugger: a VELT_TRACE that is no number is ignored", "[foundation]")
{
    const EnvironmentVariable trace(
        "VELT_TRACE", GENERATE("off", " 7", "7x", "0x", "-1", "99999999999999999999"));
    const DebuggeeRun run = RunUnderDebugger(kSession);
    CHECK(run.exitCode == 0);
    CHECK(CallsOf(run) == AsCalls(kSessionLines));
}
