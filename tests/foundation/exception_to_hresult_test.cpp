#include "foundation/exception_to_hresult.h"

#include "foundation/com_method.h"
#include "foundation/system_exception.h"
#include "foundation/trace_state.h"
#include "tests/support/debug_output.h"
#include "tests/support/language_scope.h"

#include <comdef.h>

#include <catch.hpp>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using velt::ComMethod;
using velt::HResultFromCurrentException;
using velt::test::DebugOutput;

namespace
{
struct Mapping
{
    std::string name;
    std::function<void()> raise;
    HRESULT expected;
};

/// Every kind of exception and its result.
const std::vector<Mapping>& Mappings()
{
    static const std::vector<Mapping> mappings = {
        {"HRESULT", [] { throw SystemException::HRESULT(DISP_E_BADINDEX); }, DISP_E_BADINDEX},
        {"HRESULT of success", [] { throw SystemException::HRESULT(S_OK); }, E_UNEXPECTED},
        {"HRESULT of half success", [] { throw SystemException::HRESULT(S_FALSE); }, E_UNEXPECTED},
        {"Win32", [] { throw SystemException::Win32(ERROR_ACCESS_DENIED); }, E_ACCESSDENIED},
        {"Win32 of success", [] { throw SystemException::Win32(0); }, E_UNEXPECTED},
        {"Win32 that is an HRESULT",
         [] { throw SystemException::Win32(static_cast<DWORD>(E_NOINTERFACE)); }, E_NOINTERFACE},
        {"raised through the base", [] { SystemException::Win32(ERROR_BUSY).Clone()->Raise(); },
         HRESULT_FROM_WIN32(ERROR_BUSY)},
        {"COM error", [] { throw _com_error(DISP_E_OVERFLOW); }, DISP_E_OVERFLOW},
        {"COM error of success", [] { throw _com_error(S_OK); }, E_UNEXPECTED},
        {"out of memory", [] { throw std::bad_alloc(); }, E_OUTOFMEMORY},
        {"array too long", [] { throw std::bad_array_new_length(); }, E_OUTOFMEMORY},
        {"broken contract", [] { throw VeltException("a.cpp", 1); }, E_UNEXPECTED},
        {"standard exception", [] { throw std::out_of_range("index"); }, E_UNEXPECTED},
        {"number", [] { throw 42; }, E_UNEXPECTED},
        {"text", [] { throw "text"; }, E_UNEXPECTED}};
    return mappings;
}
} // namespace

TEST_CASE("HResultFromCurrentException: each exception has its code, none a success code",
          "[foundation]")
{
    for (const Mapping& mapping : Mappings())
    {
        INFO(mapping.name);
        HRESULT hr = S_OK;
        try
        {
            mapping.raise();
        }
        catch (...)
        {
            hr = HResultFromCurrentException();
        }
        CHECK(hr == mapping.expected);
        CHECK(FAILED(hr));
    }
}

TEST_CASE("HResultFromCurrentException, TraceCurrentException: a trace tells the code and the "
          "message first",
          "[foundation]")
{
    const bool isTraceOnly = GENERATE(false, true);
    const velt::test::LanguageScope scope;
    UTrace::State state;
    UTrace::StartUp();
    DebugOutput output;
    try
    {
        throw SystemException::Win32(0xA0ABCDEF);
    }
    catch (...)
    {
        isTraceOnly ? velt::TraceCurrentException() : void(HResultFromCurrentException());
    }
    CHECK(output.Text().find("0xA0ABCDEF") != std::string::npos);
    CHECK(output.Text().find("operating system error: number = 0xA0ABCDEF - ") !=
          std::string::npos);
}

TEST_CASE("HResultFromCurrentException: a message's percent signs are no format", "[foundation]")
{
    UTrace::State state;
    UTrace::StartUp();
    DebugOutput output;
    try
    {
        throw std::runtime_error("100%s %n");
    }
    catch (...)
    {
        CHECK(HResultFromCurrentException() == E_UNEXPECTED);
    }
    CHECK(output.Text().find("100%s %n") != std::string::npos);
}

TEST_CASE("ComMethod: the body's result goes out", "[foundation]")
{
    for (const HRESULT hr : {S_OK, S_FALSE, E_FAIL, HRESULT{0x12345}})
    {
        CHECK(ComMethod("CTest::Method", [&] { return hr; }) == hr);
    }
}

TEST_CASE("ComMethod: no exception leaves it", "[foundation]")
{
    for (const Mapping& mapping : Mappings())
    {
        INFO(mapping.name);
        CHECK(ComMethod("CTest::Method", [&]() -> HRESULT {
                  mapping.raise();
                  return S_OK;
              }) == mapping.expected);
    }
    CHECK(noexcept(ComMethod("CTest::Method", [] { return S_OK; })));
}

TEST_CASE("ComMethod: it opens a trace scope and returns through it", "[foundation]")
{
    UTrace::State state;
    UTrace::StartUp();
    DebugOutput output;
    ComMethod("CTest::Outer",
              [] { return ComMethod("CTest::Inner", [] { return static_cast<HRESULT>(5); }); });
    const std::string text = output.Text();
    const auto outerEntry = text.find("CTest::Outer - enter");
    const auto innerEntry = text.find("  CTest::Inner - enter");
    const auto innerExit = text.find("  CTest::Inner - return = 5");
    const auto outerExit = text.find("CTest::Outer - return = 5");
    REQUIRE(outerExit != std::string::npos);
    CHECK(outerEntry < innerEntry);
    CHECK(innerEntry < innerExit);
    CHECK(innerExit < outerExit);
}

TEST_CASE("ComMethod: an exception is traced inside the scope", "[foundation]")
{
    UTrace::State state;
    UTrace::StartUp();
    DebugOutput output;
    ComMethod("CTest::Method", []() -> HRESULT { throw std::runtime_error("what went wrong"); });
    const std::string text = output.Text();
    const auto entry = text.find("CTest::Method - enter");
    const auto message = text.find("what went wrong");
    const auto exit = text.find("CTest::Method - return = -2147418113"); // E_UNEXPECTED
    REQUIRE(exit != std::string::npos);
    CHECK(entry < message);
    CHECK(message < exit);
}
