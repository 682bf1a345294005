#include "foundation/exception_to_hresult.h"

#include "foundation/com_method.h"
#include "foundation/system_exception.h"
#include "foundation/trace_state.h"
#include "tests/support/debug_output.h"
#include "tests/support/failing_tls.h"
#include "tests/support/language_scope.h"
#include "tests/support/test_thread.h"
#include "tests/support/trace_recorder.h"

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
using velt::test::FailingTls;
using velt::test::OnOtherThread;
using velt::test::TraceRecorder;

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

using Texts = std::vector<std::string>;

/// The texts of all messages so far, each after its level.
Texts LinesOf(TraceRecorder& recorder)
{
    Texts lines;
    for (const TraceRecorder::Message& message : recorder.Messages())
    {
        lines.push_back(std::to_string(message.level) + ' ' + message.text);
    }
    return lines;
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

TEST_CASE("ComMethod: a failure that is returned is traced inside the scope", "[foundation]")
{
    TraceRecorder recorder;
    ComMethod("CTest::Method", [] { return E_INVALIDARG; });
    CHECK(LinesOf(recorder) == Texts{"4 CTest::Method - enter", "1 failed: 0x80070057",
                                     "4 CTest::Method - return = -2147024809"});
}

TEST_CASE("ComMethod: a success has no line of its own", "[foundation]")
{
    TraceRecorder recorder;
    ComMethod("CTest::Method", [] { return S_FALSE; });
    CHECK(LinesOf(recorder) == Texts{"4 CTest::Method - enter", "4 CTest::Method - return = 1"});
}

TEST_CASE("ComMethod: each failing call has its line, also when the code is that of the last one",
          "[foundation]")
{
    TraceRecorder recorder;
    for (int i = 0; i < 3; ++i)
    {
        ComMethod("CTest::Method", [] { return E_FAIL; });
    }
    CHECK(recorder.Count("failed: 0x80004005") == 3);
}

TEST_CASE("ComMethod: a failure whose exception was traced has one line", "[foundation]")
{
    const auto failWithin = []() noexcept -> HRESULT {
        try
        {
            throw SystemException::HRESULT(E_FAIL);
        }
        catch (...)
        {
            return HResultFromCurrentException();
        }
    };
    TraceRecorder recorder;
    SECTION("thrown out of the body")
    {
        ComMethod("CTest::Method", []() -> HRESULT { throw SystemException::HRESULT(E_FAIL); });
    }
    SECTION("caught in the body")
    {
        ComMethod("CTest::Method", failWithin);
    }
    const Texts lines = LinesOf(recorder);
    REQUIRE(lines.size() == 3);
    CHECK_THAT(lines[1], Catch::StartsWith("1 failed: 0x80004005 operating system error"));

    // The next call's failure is another one, though its code is the same.
    ComMethod("CTest::Method", [] { return E_FAIL; });
    CHECK(recorder.Count("failed: 0x80004005") == 1);
}

TEST_CASE("ReportCurrentExceptionAs: the failure has one line, that of the exception",
          "[foundation]")
{
    TraceRecorder recorder;
    const auto fail = [](HRESULT reported) {
        return ComMethod("CTest::Method", [reported] {
            try
            {
                throw SystemException::HRESULT(E_OUTOFMEMORY);
            }
            catch (...)
            {
                return velt::ReportCurrentExceptionAs(reported);
            }
        });
    };
    CHECK(fail(E_ABORT) == E_ABORT);
    const Texts lines = LinesOf(recorder);
    REQUIRE(lines.size() == 3);
    CHECK_THAT(lines[1], Catch::StartsWith("1 failed: 0x8007000E operating system error"));
    CHECK(lines[2] == "4 CTest::Method - return = -2147467260");

    // The next call's failure is another one, though its code is the same.
    ComMethod("CTest::Method", [] { return E_ABORT; });
    CHECK(recorder.Count("failed: 0x80004004") == 1);
}

TEST_CASE("ComMethod: an exception that was overcome does not hide a later failure", "[foundation]")
{
    TraceRecorder recorder;
    ComMethod("CTest::Method", [] {
        try
        {
            throw SystemException::HRESULT(E_FAIL);
        }
        catch (...)
        {
            velt::TraceCurrentException();
        }
        return E_ABORT;
    });
    CHECK(recorder.Count("failed: 0x80004004") == 1);
    CHECK(recorder.Messages().size() == 4);
}

TEST_CASE("ComMethod: a failure is traced on the thread's own account", "[foundation]")
{
    TraceRecorder recorder;
    ComMethod("CTest::Method", [] {
        velt::test::TestThread([] { ComMethod("CTest::Other", [] { return E_FAIL; }); });
        return E_FAIL;
    });
    CHECK(recorder.Count("failed: 0x80004005") == 2);
}

TEST_CASE("ComMethod: without tracing a failure goes out all the same", "[foundation]")
{
    CHECK(ComMethod("CTest::Method", [] { return E_FAIL; }) == E_FAIL);
}

TEST_CASE("HResultFromCurrentException: a thread that cannot trace gets its result all the same",
          "[foundation]")
{
    FailingTls failing;
    UTrace::State state;
    UTrace::StartUp();
    failing.Begin();
    const HRESULT mapped = OnOtherThread([]() -> HRESULT {
        try
        {
            throw SystemException::HRESULT(E_ABORT);
        }
        catch (...)
        {
            return HResultFromCurrentException();
        }
    });
    CHECK(mapped == E_ABORT);

    // A method's scope cannot be made there: that is the method's failure, before its body.
    bool isRun = false;
    const HRESULT returned = OnOtherThread([&] {
        return ComMethod("CTest::Method", [&] {
            isRun = true;
            return S_OK;
        });
    });
    CHECK(returned == HRESULT_FROM_WIN32(FailingTls::kError));
    CHECK_FALSE(isRun);
}
