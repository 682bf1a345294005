#include "tests/support/component_library.h"
#include "tests/support/debuggee.h"
#include "tests/support/environment_variable.h"
#include "tests/support/import_patch.h"
#include "tests/support/late_bound.h"
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
using AllocatePatch = ImportPatch<"SysAllocStringLen", decltype(::SysAllocStringLen)>;
using CreateKeyPatch = ImportPatch<"RegCreateKeyExW", decltype(::RegCreateKeyExW)>;

constexpr DISPID kAdd = 2;
constexpr DISPID kRemove = 3;

constexpr char kSession[] = "child: a session with the library";
constexpr char kRegisters[] = "child: the registers of a frame that catches";

/// Whether it was the system that ended a run, which it says. Some lose a register that a call
/// keeps when an exception is thrown out of it, but only under a debugger; what the frame that
/// catches does next may then be an access violation.
bool EndedByTheSystem(const DebuggeeRun& run, const char* child)
{
    if (run.exitCode != EXCEPTION_ACCESS_VIOLATION || RunUnderDebugger(kRegisters).exitCode == 0)
    {
        return false;
    }
    REQUIRE(RunInChild(kRegisters) == 0);
    REQUIRE(RunInChild(child) == 0);
    WARN("not looked at: under a debugger, this system loses a register of frames that catch");
    return true;
}

/// Whether a frame that catches has the values that it had before: more of them than a call keeps
/// registers, and each to be kept because it cannot be read again.
[[gnu::noinline]] bool KeepsValues(const volatile int& one)
{
    const int a = one, b = one, c = one, d = one, e = one, f = one, g = one, h = one, i = one;
    try
    {
        throw one;
    }
    catch (int)
    {
    }
    return a + b + c + d + e + f + g + h + i == 9;
}

/// The lines, without the calls that write their ends.
Texts LinesOf(const DebuggeeRun& run)
{
    Texts lines;
    for (std::size_t i = 1; i < run.output.size(); i += 3)
    {
        lines.push_back(run.output[i].text);
    }
    return lines;
}

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
    "  failed: 0x80070057",
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

TEST_CASE("child: the registers of a frame that catches", "[.child]")
{
    volatile int one = 1;
    REQUIRE(KeepsValues(one));
}

TEST_CASE("child: a failure in the library", "[.child]")
{
    const ComponentLibrary library;
    const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    REQUIRE(collection->Remove(OfType(kImpossibleType)) == DISP_E_BADVARTYPE);
}

TEST_CASE("child: late-bound calls that are refused", "[.child]")
{
    const ComponentLibrary library;
    const auto object = library.Create<IDispatch>(CLSID_CEnumVariantCol);
    const LateBound collection(object.Get());
    DISPPARAMS none{};
    DISPID id = 0;
    wchar_t text[] = L"L\u00E4nge";
    wchar_t* name = text;
    REQUIRE(object->GetIDsOfNames(IID_NULL, &name, 1, 0, &id) == DISP_E_UNKNOWNNAME);
    std::wstring longer(300, L'x');
    name = longer.data();
    REQUIRE(object->GetIDsOfNames(IID_NULL, &name, 1, 0, &id) == DISP_E_UNKNOWNNAME);
    REQUIRE(object->GetIDsOfNames(IID_NULL, nullptr, 1, 0, &id) == E_POINTER);
    REQUIRE(collection.Invoke(99, DISPATCH_METHOD) == DISP_E_MEMBERNOTFOUND);
    REQUIRE(FAILED(collection.Invoke(kAdd, DISPATCH_METHOD))); // without its argument
    REQUIRE(object->Invoke(kAdd, IID_IDispatch, 0, DISPATCH_METHOD, &none, nullptr, nullptr,
                           nullptr) == DISP_E_UNKNOWNINTERFACE);
    REQUIRE(object->Invoke(kAdd, IID_NULL, 0, DISPATCH_METHOD, nullptr, nullptr, nullptr,
                           nullptr) == E_POINTER);
    REQUIRE(object->GetTypeInfoCount(nullptr) == E_POINTER);
    ITypeInfo* info = nullptr;
    REQUIRE(object->GetTypeInfo(1, 0, &info) == DISP_E_BADINDEX);
}

TEST_CASE("child: late-bound calls whose member fails", "[.child]")
{
    const ComponentLibrary library;
    const auto object = library.Create<IDispatch>(CLSID_CEnumVariantCol);
    const LateBound collection(object.Get());
    VARIANT index = Long(2);
    DISPPARAMS parameters{&index, nullptr, 1, 0};
    for (int i = 0; i < 2; ++i)
    {
        REQUIRE(collection.Invoke(kRemove, DISPATCH_METHOD, {index}) == E_INVALIDARG);
        REQUIRE(FAILED(object->Invoke(kRemove, IID_NULL, 0, DISPATCH_METHOD, &parameters, nullptr,
                                      nullptr, nullptr))); // no place for what the member says
    }
}

TEST_CASE("child: a late-bound call whose member throws", "[.child]")
{
    const ComponentLibrary library;
    const auto object = library.Create<IDispatch>(CLSID_CVeltHTTPService);
    const LateBound service(object.Get());
    const DISPID id = service.Find(L"GetDomain");
    REQUIRE(id != DISPID_UNKNOWN);
    const AllocatePatch noMemory(
        "oleaut32.dll", [](const wchar_t*, UINT) -> BSTR { return nullptr; },
        ::GetModuleHandleW(L"VeltHTTPClient12OEM.dll"));
    _variant_t domain;
    REQUIRE(service.Invoke(id, DISPATCH_METHOD, {}, &domain) == E_OUTOFMEMORY);
}

TEST_CASE("child: a registration that fails", "[.child]")
{
    const ComponentLibrary library;
    const CreateKeyPatch refuses(
        "advapi32.dll",
        [](HKEY, const wchar_t*, DWORD, wchar_t*, DWORD, REGSAM, SECURITY_ATTRIBUTES*, HKEY*,
           DWORD*) -> LSTATUS { return ERROR_ACCESS_DENIED; },
        ::GetModuleHandleW(L"VeltHTTPClient12OEM.dll"));
    REQUIRE(library.RegisterServer() == E_ACCESSDENIED);
}

TEST_CASE("child: exports that fail", "[.child]")
{
    const ComponentLibrary library;
    void* object = nullptr;
    REQUIRE(library.GetClassObject(CLSID_NULL, IID_IUnknown, &object) == CLASS_E_CLASSNOTAVAILABLE);
    REQUIRE(library.GetClassObject(CLSID_CEnumVariantCol, IID_IUnknown, nullptr) == E_POINTER);
    const auto factory = library.Factory(CLSID_CEnumVariantCol);
    REQUIRE(factory->CreateInstance(nullptr, IID_IUnknown, nullptr) == E_POINTER);
    REQUIRE(factory->CreateInstance(nullptr, IID_IStream, &object) == E_NOINTERFACE);
}

TEST_CASE("Trace at the debugger: a late-bound call that is refused before its member is written",
          "[foundation]")
{
    const DebuggeeRun run = RunUnderDebugger("child: late-bound calls that are refused");
    CHECK(run.exitCode == 0);
    Texts lines = LinesOf(run);
    REQUIRE(lines.size() == 4 + 9);
    lines.erase(lines.begin(), lines.begin() + 4); // of the making
    // The platform's own choice among the ways to say that an argument is missing.
    CHECK_THAT(lines[4], Catch::StartsWith("failed: 0x8002000"));
    lines[4].replace(0, lines[4].find(" IDispatch"), "failed: ...");
    std::string cut = "IDispatch::GetIDsOfNames of ";
    cut.resize(255, 'x');
    CHECK(lines == Texts{"failed: 0x80020006 IDispatch::GetIDsOfNames of L\xC3\xA4nge",
                         "failed: 0x80020006 " + cut, "failed: 0x80004003 IDispatch::GetIDsOfNames",
                         "failed: 0x80020003 IDispatch::Invoke of 99",
                         "failed: ... IDispatch::Invoke of 2",
                         "failed: 0x80020001 IDispatch::Invoke of 2",
                         "failed: 0x80004003 IDispatch::Invoke of 2",
                         "failed: 0x80004003 IDispatch::GetTypeInfoCount",
                         "failed: 0x8002000B IDispatch::GetTypeInfo"});
}

TEST_CASE("Trace at the debugger: a late-bound call whose member fails is written once, there",
          "[foundation]")
{
    const DebuggeeRun run = RunUnderDebugger("child: late-bound calls whose member fails");
    CHECK(run.exitCode == 0);
    Texts lines = LinesOf(run);
    Texts expected;
    for (int i = 0; i < 4; ++i)
    {
        expected.insert(expected.end(), {"CEnumVariantCol::Remove - enter", "  failed: 0x80070057",
                                         "CEnumVariantCol::Remove - return = -2147024809"});
    }
    REQUIRE(lines.size() == 4 + expected.size());
    lines.erase(lines.begin(), lines.begin() + 4);
    CHECK(lines == expected);
}

TEST_CASE("Trace at the debugger: a late-bound call whose member throws is written once, there",
          "[foundation]")
{
    const char* const child = "child: a late-bound call whose member throws";
    const DebuggeeRun run = RunUnderDebugger(child);
    if (EndedByTheSystem(run, child))
    {
        return;
    }
    CHECK(run.exitCode == 0);
    const Texts lines = LinesOf(run);
    REQUIRE(lines.size() == 4 + 3);
    CHECK(lines[4] == "CVeltHTTPService::GetDomain - enter");
    CHECK_THAT(lines[5], Catch::StartsWith("  failed: 0x8007000E "));
    CHECK(lines[6] == "CVeltHTTPService::GetDomain - return = -2147024882");
}

TEST_CASE("Trace at the debugger: a registration that fails is written", "[foundation]")
{
    const DebuggeeRun run = RunUnderDebugger("child: a registration that fails");
    CHECK(run.exitCode == 0);
    const Texts lines = LinesOf(run);
    REQUIRE(lines.size() == 4);
    CHECK(lines[0] == "DllRegisterServer - enter");
    CHECK_THAT(lines[1], Catch::StartsWith("  registering for "));
    CHECK_THAT(lines[2], Catch::StartsWith("  failed: 0x80070005 "));
    CHECK(lines[3] == "DllRegisterServer - return = -2147024891");
}

TEST_CASE("Trace at the debugger: failures of exports and of class factories are written",
          "[foundation]")
{
    const DebuggeeRun run = RunUnderDebugger("child: exports that fail");
    CHECK(run.exitCode == 0);
    CHECK(LinesOf(run) == Texts{"DllGetClassObject - enter", "  failed: 0x80040111",
                                "DllGetClassObject - return = -2147221231",
                                "DllGetClassObject - enter", "  failed: 0x80004003",
                                "DllGetClassObject - return = -2147467261",
                                "DllGetClassObject - enter", "DllGetClassObject - return = 0",
                                "CClassFactory::CreateInstance - enter", "  failed: 0x80004003",
                                "CClassFactory::CreateInstance - return = -2147467261",
                                "CClassFactory::CreateInstance - enter", "  failed: 0x80004002",
                                "CClassFactory::CreateInstance - return = -2147467262"});
}

TEST_CASE("Trace at the debugger: three calls a line, without time stamps", "[foundation]")
{
    const DebuggeeRun run = RunUnderDebugger(kSession);
    CHECK(run.exitCode == 0);
    CHECK(CallsOf(run) == AsCalls(kSessionLines));
}

TEST_CASE("Trace at the debugger: a failure is written before it is reported", "[foundation]")
{
    const char* const child = "child: a failure in the library";
    const DebuggeeRun run = RunUnderDebugger(child);
    if (EndedByTheSystem(run, child))
    {
        return;
    }
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

TEST_CASE("Trace at the debugger: VELT_TRACE with bit 3 leaves it its lines", "[foundation]")
{
    const EnvironmentVariable trace("VELT_TRACE", GENERATE("9", "0xB"));
    const DebuggeeRun run = RunUnderDebugger(kSession);
    CHECK(run.exitCode == 0);
    CHECK(CallsOf(run) == AsCalls(kSessionLines));
}

TEST_CASE("Trace at the debugger: a VELT_TRACE that is no number is ignored", "[foundation]")
{
    const EnvironmentVariable trace(
        "VELT_TRACE", GENERATE("off", " 7", "7x", "0x", "-1", "99999999999999999999"));
    const DebuggeeRun run = RunUnderDebugger(kSession);
    CHECK(run.exitCode == 0);
    CHECK(CallsOf(run) == AsCalls(kSessionLines));
}
