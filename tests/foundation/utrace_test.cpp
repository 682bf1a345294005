#include "foundation/utrace.h"

#include "foundation/trace_state.h"
#include "tests/support/debuggee.h"
#include "tests/support/environment_variable.h"
#include "tests/support/failing_tls.h"
#include "tests/support/import_patch.h"
#include "tests/support/trace_viewer_window.h"

#include <catch.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

using namespace velt::test;
using velt::UniqueKernelObject;

namespace
{
using Texts = std::vector<std::string>;
using ClockPatch = ImportPatch<"GetTickCount", decltype(::GetTickCount)>;

/// Tracing of this program: up to scope lines, and to a viewer only.
struct Traced
{
    Traced()
    {
        REQUIRE(UTrace::TraceInitialise());
        UTrace::TraceSetFlags(0);
        UTrace::TraceSetThreshold(4);
    }

    Texts Take()
    {
        return viewer.TakeTexts();
    }

    TraceViewerWindow viewer;
    UTrace::State state;
};

/// Formats that the compiler shall not look into.
const char* volatile g_unusualWideFormat = "%ls";

std::string Repeated(std::size_t count)
{
    std::string text;
    while (text.size() < count)
    {
        text += static_cast<char>('a' + text.size() % 26);
    }
    return text;
}

DWORD WINAPI TraceOnce(void*)
{
    const UTrace::Function trace("Other");
    return 0;
}
} // namespace

TEST_CASE("UTrace: TraceInitialise sets the start values once", "[foundation]")
{
    UTrace::State state;
    CHECK(state.viewerState == -1);
    CHECK(state.flags == 3);
    CHECK_FALSE(state.initialised);
    state.source.fill('x');
    state.threshold = 9;
    state.flags = 7;
    state.filter = [](std::int32_t, const char*, const char*) { return true; };
    state.Depth() = 5;

    CHECK(UTrace::TraceInitialise());
    CHECK(state.initialised);
    CHECK(std::all_of(state.source.begin(), state.source.end(), [](char c) { return c == '\0'; }));
    CHECK(state.threshold == 0);
    CHECK(state.flags == 3);
    CHECK(state.filter == nullptr);
    CHECK(state.Depth() == 0);
    CHECK(state.viewerState == 0);
    CHECK(state.viewer == nullptr);
    CHECK(state.category == 0);

    UTrace::TraceSetFlags(0);
    UTrace::TraceSetThreshold(2);
    CHECK_FALSE(UTrace::TraceInitialise());
    CHECK(state.flags == 0);
    CHECK(state.threshold == 2);
}

TEST_CASE("UTrace: TraceInitialise finds a viewer that is there", "[foundation]")
{
    const TraceViewerWindow viewer;
    UTrace::State state;
    REQUIRE(UTrace::TraceInitialise());
    CHECK(state.viewerState == 1);
    CHECK(state.viewer == viewer.Window());
}

TEST_CASE("UTrace: after StartUp levels up to 4 go to the debugger without time", "[foundation]")
{
    UTrace::State state;
    UTrace::StartUp();
    CHECK(state.initialised);
    CHECK(state.flags == 3);
    CHECK(state.threshold == 4);
}

TEST_CASE("UTrace: StartUp takes the flags from VELT_TRACE", "[foundation]")
{
    const auto [text, flags] = GENERATE(table<const char*, std::uint32_t>({
        {"0", 0},
        {"1", 1},
        {"7", 7},
        {"0x7", 7},
        {"0XfF", 255},
        {"010", 10},
        {"4294967295", 0xFFFFFFFF},
        {"0xFFFFFFFF", 0xFFFFFFFF},
        // no numbers
        {"", 3},
        {"x", 3},
        {"0x", 3},
        {"0x-1", 3},
        {"x7", 3},
        {"7 ", 3},
        {" 7", 3},
        {"-1", 3},
        {"+1", 3},
        {"1.0", 3},
        {"4294967296", 3},
        {"0x100000000", 3},
        {"0000000000000000000000000000000000000000000000001", 3},
    }));
    const EnvironmentVariable trace("VELT_TRACE", text);
    CAPTURE(text);
    UTrace::State state;
    UTrace::StartUp();
    CHECK(state.flags == flags);
    CHECK(state.threshold == 4);
}

TEST_CASE("UTrace: without a State nothing happens", "[foundation]")
{
    TraceViewerWindow viewer;
    CHECK_FALSE(UTrace::TraceInitialise());
    CHECK_FALSE(UTrace::FindTraceViewer());
    UTrace::TraceSetFlags(7);
    UTrace::TraceSetThreshold(4);
    UTrace::TraceLevel1("nobody");
    {
        UTrace::Function trace("Nobody");
        CHECK(trace.Return(5, nullptr) == 5);
        CHECK(trace.GetReturn() == 5);
    }
    CHECK(viewer.Take().empty());
    const UTrace::State state;
    CHECK(state.flags == 3); // the settings went nowhere
}

TEST_CASE("UTrace: before TraceInitialise scopes count and write nothing", "[foundation]")
{
    TraceViewerWindow viewer;
    UTrace::State state;
    {
        const UTrace::Function outer("Outer");
        const UTrace::Function inner("Inner");
        UTrace::TraceLevel1("message");
        CHECK(state.Depth() == 2);
    }
    CHECK(state.Depth() == 0);
    CHECK(viewer.Take().empty());
}

TEST_CASE("UTrace::Function: the entry line", "[foundation]")
{
    Traced traced;
    SECTION("a null format is \"enter\"")
    {
        const UTrace::Function trace("CClass::Method");
        CHECK(traced.Take() == Texts{"CClass::Method - enter"});
    }
    SECTION("a format with its arguments")
    {
        const UTrace::Function trace("F", "%d of %s, %08lX", 5, "six", 0xABCDUL);
        CHECK(traced.Take() == Texts{"F - 5 of six, 0000ABCD"});
    }
    SECTION("an empty format")
    {
        const UTrace::Function trace("F", "%s", "");
        CHECK(traced.Take() == Texts{"F - "});
    }
}

TEST_CASE("UTrace::Function: the exit line", "[foundation]")
{
    Traced traced;
    std::optional<UTrace::Function> trace(std::in_place, "F");
    traced.Take();
    Texts expected;
    SECTION("without Return")
    {
        CHECK(trace->GetReturn() == 0);
        expected = {"F - return"};
    }
    SECTION("Return with a null format writes the value")
    {
        CHECK(trace->Return(5, nullptr) == 5);
        CHECK(trace->GetReturn() == 5);
        expected = {"F - return = 5"};
    }
    SECTION("the value is signed")
    {
        CHECK(trace->Return(E_FAIL, nullptr) == E_FAIL);
        expected = {"F - return = -2147467259"};
    }
    SECTION("Return with a text")
    {
        CHECK(trace->Return(7, "%s and %d", "this", 9) == 7);
        CHECK(trace->GetReturn() == 7);
        expected = {"F - this and 9"};
    }
    SECTION("Return with an empty text is no text")
    {
        CHECK(trace->Return(7, "%s", "") == 7);
        expected = {"F - return"};
    }
    SECTION("percent signs in the text of Return stay")
    {
        trace->Return(7, "%s", "100% %s %n");
        expected = {"F - 100% %s %n"};
    }
    SECTION("the last Return counts")
    {
        trace->Return(1, "first");
        CHECK(trace->Return(2, nullptr) == 2);
        CHECK(trace->Return(3, "third") == 3);
        CHECK(trace->GetReturn() == 3);
        expected = {"F - third"};
    }
    SECTION("the last Return counts, its value too")
    {
        trace->Return(1, "first");
        CHECK(trace->Return(2, nullptr) == 2);
        expected = {"F - return = 2"};
    }
    CHECK(traced.Take().empty()); // Return itself writes nothing
    trace.reset();
    CHECK(traced.Take() == expected);
}

TEST_CASE("UTrace: silent on entry writes no entry line and counts", "[foundation]")
{
    Traced traced;
    {
        UTrace::Function trace("F", UTrace::silent);
        CHECK(traced.state.Depth() == 1);
        UTrace::TraceLevel1("inside");
    }
    CHECK(traced.Take() == Texts{"  inside", "F - return"});
    CHECK(traced.state.Depth() == 0);
}

TEST_CASE("UTrace: silent on exit writes no exit line and restores the depth", "[foundation]")
{
    Traced traced;
    {
        UTrace::Function trace("F");
        CHECK(trace.Return(5, UTrace::silent) == 5);
        CHECK(trace.GetReturn() == 5);
    }
    CHECK(traced.Take() == Texts{"F - enter"});
    CHECK(traced.state.Depth() == 0);
}

TEST_CASE("UTrace: silent is known by its address, not its content", "[foundation]")
{
    Traced traced;
    const char copy[] = "silent";
    REQUIRE(static_cast<const void*>(copy) != UTrace::silent);
    {
        UTrace::Function trace("F", copy);
        UTrace::TraceLevel1(copy);
        UTrace::TraceLevel1(UTrace::silent);
        trace.Return(1, copy);
    }
    CHECK(traced.Take() == Texts{"F - silent", "  silent", "F - silent"});
}

TEST_CASE("UTrace: a scope that was silenced stays silent", "[foundation]")
{
    Traced traced;
    {
        UTrace::Function trace("F");
        CHECK(trace.Return(1, UTrace::silent) == 1);
        CHECK(trace.Return(2, "%s", "text") == 2);
        CHECK(trace.Return(3) == 3);
    }
    CHECK(traced.Take() == Texts{"F - enter"});
}

TEST_CASE("UTrace: nested scopes are indented by two blanks a level", "[foundation]")
{
    Traced traced;
    {
        const UTrace::Function a("A");
        const UTrace::Function b("B");
        {
            const UTrace::Function c("C");
            const UTrace::Function d("D");
            UTrace::TraceLevel3("message %d", 1);
        }
        UTrace::TraceLevel1("between");
    }
    CHECK(traced.Take() == Texts{
                               "A - enter",
                               "  B - enter",
                               "    C - enter",
                               "      D - enter",
                               "        message 1",
                               "      D - return",
                               "    C - return",
                               "    between",
                               "  B - return",
                               "A - return",
                           });
}

TEST_CASE("UTrace: a scope that never ends cannot corrupt the outer indentation", "[foundation]")
{
    Traced traced;
    alignas(UTrace::Function) std::array<std::byte, sizeof(UTrace::Function)> place;
    {
        const UTrace::Function outer("Outer");
        new (place.data()) UTrace::Function("Lost");
    }
    UTrace::TraceLevel1("after");
    CHECK(traced.Take() == Texts{"Outer - enter", "  Lost - enter", "Outer - return", "after"});
    CHECK(traced.state.Depth() == 0);
}

TEST_CASE("UTrace: each thread has its own depth", "[foundation]")
{
    Traced traced;
    const UTrace::Function outer("Outer");
    const UTrace::Function inner("Inner");
    traced.Take();
    const UniqueKernelObject thread(::CreateThread(nullptr, 0, &TraceOnce, nullptr, 0, nullptr));
    REQUIRE(::WaitForSingleObject(thread.Get(), 30'000) == WAIT_OBJECT_0);
    UTrace::TraceLevel1("here");
    CHECK(traced.Take() == Texts{"Other - enter", "Other - return", "    here"});
}

TEST_CASE("UTrace: a message is cut after 1023 characters", "[foundation]")
{
    const std::size_t length = GENERATE(as<std::size_t>(), 1022, 1023, 1024, 5000);
    CAPTURE(length);
    Traced traced;
    const std::string text = Repeated(length);
    const std::string cut = text.substr(0, 1023);

    UTrace::TraceLevel1("%s", text.c_str());
    CHECK(traced.Take() == Texts{cut});
    {
        UTrace::Function trace("F", "%s", text.c_str());
        trace.Return(0, "%s", text.c_str());
    }
    const std::string scopeLine = ("F - " + text).substr(0, 1023);
    CHECK(traced.Take() == Texts{scopeLine, scopeLine});
}

TEST_CASE("UTrace: indentation counts for the record's text, not for the message", "[foundation]")
{
    Traced traced;
    static std::string seen;
    traced.state.filter = [](std::int32_t, const char*, const char* message) {
        seen = message;
        return true;
    };
    const std::string text = Repeated(2000);
    const UTrace::Function outer("Outer");
    traced.Take();
    UTrace::TraceLevel1("%s", text.c_str());
    CHECK(seen == text.substr(0, 1023));
    CHECK(traced.Take() == Texts{"  " + text.substr(0, 1021)});
    traced.state.filter = nullptr;
}

TEST_CASE("UTrace: a function name longer than a message is cut", "[foundation]")
{
    Traced traced;
    const std::string name = Repeated(1500);
    {
        UTrace::Function trace(name.c_str(), "%d", 5);
        trace.Return(5, nullptr);
    }
    CHECK(traced.Take() == Texts{name.substr(0, 1023), name.substr(0, 1023)});
}

TEST_CASE("UTrace: percent signs in function names are harmless", "[foundation]")
{
    Traced traced;
    {
        UTrace::Function trace("100%s %n %d", "%d", 5);
        trace.Return(6, nullptr);
    }
    CHECK(traced.Take() == Texts{"100%s %n %d - 5", "100%s %n %d - return = 6"});
}

TEST_CASE("UTrace: arguments that cannot be formatted harm nothing", "[foundation]")
{
    Traced traced;
    const wchar_t unprintable[] = {0x4E00, 0xD800, 0};
    {
        UTrace::Function trace("F", g_unusualWideFormat, unprintable);
        UTrace::TraceLevel1(g_unusualWideFormat, unprintable);
        trace.Return(0, g_unusualWideFormat, unprintable);
    }
    UTrace::TraceLevel1("after");
    const Texts texts = traced.Take();
    REQUIRE(texts.size() == 4);
    CHECK_THAT(texts[0], Catch::StartsWith("F - "));
    CHECK_THAT(texts[1], Catch::StartsWith("  "));
    CHECK_THAT(texts[2], Catch::StartsWith("F - "));
    CHECK(texts[3] == "after");
}

TEST_CASE("UTrace: records carry the source name and the category", "[foundation]")
{
    Traced traced;
    const std::string source = Repeated(63);
    std::copy(source.begin(), source.end(), traced.state.source.begin());
    traced.state.category = 0x01020304;
    UTrace::TraceLevel3("text");
    const auto records = traced.viewer.Take();
    REQUIRE(records.size() == 1);
    CHECK(records[0].sourceField == source + '\0');
    CHECK(records[0].level == 3);
    CHECK(records[0].category == 0x01020304);
    CHECK(records[0].length == 86);
    CHECK(records[0].dataSize == 86);
    CHECK(records[0].magic == "21TU");
    CHECK(records[0].dataKind == 0x55543132);
    CHECK(records[0].reserved == 0);
    CHECK(records[0].endsAfterText);
}

TEST_CASE("UTrace: a scope keeps the source name that it began with", "[foundation]")
{
    Traced traced;
    traced.state.source[0] = 'a';
    {
        const UTrace::Function trace("F");
        traced.state.source[0] = 'b';
        UTrace::TraceLevel1("inside");
    }
    const auto records = traced.viewer.Take();
    REQUIRE(records.size() == 3);
    CHECK(records[0].Source() == "a");
    CHECK(records[1].Source() == "b");
    CHECK(records[2].Source() == "a");
}

TEST_CASE("UTrace: the threshold holds back messages unless all levels are wanted", "[foundation]")
{
    const auto [threshold, flags, expected] = GENERATE(table<std::int32_t, std::uint32_t, Texts>({
        {-1, 0, {}},
        {0, 0, {}},
        {1, 0, {"one"}},
        {2, 0, {"one"}},
        {3, 0, {"one", "three"}},
        {4, 0, {"one", "three"}},
        {0, 2, {"one", "three"}},
        {-1, 2, {"one", "three"}},
        {0, 4, {}},
    }));
    CAPTURE(threshold, flags);
    Traced traced;
    UTrace::TraceSetThreshold(threshold);
    UTrace::TraceSetFlags(flags);
    UTrace::TraceLevel1("one");
    UTrace::TraceLevel3("three");
    CHECK(traced.Take() == expected);
}

TEST_CASE("UTrace: scope lines ignore the threshold", "[foundation]")
{
    Traced traced;
    UTrace::TraceSetThreshold(-5);
    {
        const UTrace::Function trace("F");
    }
    const auto records = traced.viewer.Take();
    REQUIRE(records.size() == 2);
    CHECK(records[0].level == 4);
    CHECK(records[1].level == 4);
}

TEST_CASE("UTrace: the filter hook sees each message and can keep it from the viewer",
          "[foundation]")
{
    static Texts seen;
    seen.clear();
    Traced traced;
    traced.state.source[0] = 's';
    traced.state.filter = [](std::int32_t level, const char* source, const char* message) {
        seen.push_back(std::to_string(level) + ' ' + source + ' ' + message);
        return level != 3;
    };
    UTrace::TraceSetFlags(4); // the time and the blanks are no part of the message
    {
        const UTrace::Function outer("F");
        UTrace::TraceLevel3("kept away");
        UTrace::TraceLevel1("let through");
    }
    traced.state.filter = nullptr;
    CHECK(seen == Texts{"4 s F - enter", "3 s kept away", "1 s let through", "4 s F - return"});
    const Texts texts = traced.Take();
    REQUIRE(texts.size() == 3);
    CHECK_THAT(texts[1], Catch::EndsWith(" :   let through"));
}

TEST_CASE("UTrace: with flag bit 2 the time comes before the indentation", "[foundation]")
{
    Traced traced;
    const UTrace::Function outer("Outer");
    traced.Take();
    UTrace::TraceSetFlags(4);
    UTrace::TraceLevel1("message");
    const Texts texts = traced.Take();
    REQUIRE(texts.size() == 1);
    CHECK_THAT(texts[0], Catch::Matches("[0-9]+:[0-9]{1,2}:[0-9]{1,2}\\.[0-9]{3} :   message"));
}

TEST_CASE("UTrace: the time of a line goes with the clock", "[foundation]")
{
    Traced traced;
    UTrace::TraceSetFlags(4);
    const auto milliseconds = [&] {
        UTrace::TraceLevel1("message");
        const Texts texts = traced.Take();
        REQUIRE(texts.size() == 1);
        unsigned hours = 0; // of 40 minutes
        unsigned minutes = 0;
        unsigned seconds = 0;
        unsigned rest = 0;
        REQUIRE(std::sscanf(texts[0].c_str(), "%u:%u:%u.%u", &hours, &minutes, &seconds, &rest) ==
                4);
        return ((hours * 40LL + minutes) * 60 + seconds) * 1000 + rest;
    };
    const auto start = std::chrono::steady_clock::now();
    const long long first = milliseconds();
    ::Sleep(1'100); // to another second
    const long long passed = milliseconds() - first;
    const auto most = std::chrono::duration_cast<std::chrono::milliseconds>(
                          std::chrono::steady_clock::now() - start)
                          .count();
    CHECK(passed >= 1'050);
    CHECK(passed <= most + 50);
}

TEST_CASE("UTrace: a viewer that was not looked for is looked for by the next line", "[foundation]")
{
    UTrace::State state;
    REQUIRE(UTrace::TraceInitialise());
    UTrace::TraceSetFlags(2);
    REQUIRE(state.viewerState == 0);
    TraceViewerWindow viewer;
    UTrace::TraceLevel1("not seen");
    CHECK(viewer.Take().empty());
    CHECK(state.viewerState == 0);

    state.viewerState = -1;
    UTrace::TraceLevel1("seen");
    CHECK(state.viewerState == 1);
    CHECK(viewer.TakeTexts() == Texts{"seen"});
}

TEST_CASE("UTrace: a viewer that was not looked for and is not there is not there from then on",
          "[foundation]")
{
    UTrace::State state;
    REQUIRE(UTrace::TraceInitialise());
    UTrace::TraceSetFlags(2);
    state.viewerState = -1;
    UTrace::TraceLevel1("nobody");
    CHECK(state.viewerState == 0);
}

TEST_CASE("UTrace: a viewer that the flags leave out hears nothing until they let it",
          "[foundation]")
{
    TraceViewerWindow viewer;
    UTrace::State state;
    REQUIRE(UTrace::TraceInitialise());
    UTrace::TraceSetFlags(2 | 8);
    CHECK_FALSE(UTrace::State::IsAnybodyListening());
    const auto trace = [] {
        const UTrace::Function scope("Scope");
        UTrace::TraceLevel1("message");
    };
    trace();
    CHECK(viewer.Take().empty());

    UTrace::TraceSetFlags(2);
    CHECK(UTrace::State::IsAnybodyListening());
    trace();
    CHECK(viewer.TakeTexts() == Texts{"Scope - enter", "  message", "Scope - return"});
}

TEST_CASE("UTrace: the filter is asked also where the flags leave the viewer out", "[foundation]")
{
    TraceViewerWindow viewer;
    UTrace::State state;
    REQUIRE(UTrace::TraceInitialise());
    UTrace::TraceSetFlags(2 | 8);
    static unsigned asked;
    asked = 0;
    state.filter = [](std::int32_t, const char*, const char*) {
        ++asked;
        return true;
    };
    UTrace::TraceLevel1("message");
    CHECK(asked == 1);
    CHECK(viewer.Take().empty());
}

TEST_CASE("UTrace: FindTraceViewer looks at most once in 3000 ms", "[foundation]")
{
    UTrace::State state;
    REQUIRE(UTrace::TraceInitialise()); // has looked just now
    const TraceViewerWindow viewer;
    const DWORD nowMs = GENERATE(as<DWORD>{}, 5000, 2999, 0); // the clock begins anew after 49 days
    const ClockPatch clock("kernel32.dll", [=] { return nowMs; });

    state.lastLookUpMs = nowMs - 3000;
    CHECK_FALSE(UTrace::FindTraceViewer());
    CHECK(state.lastLookUpMs == nowMs - 3000);

    state.lastLookUpMs = nowMs - 3001;
    CHECK(UTrace::FindTraceViewer());
    CHECK(state.viewer == viewer.Window());
    CHECK(state.lastLookUpMs == nowMs);
    CHECK(state.viewerState == 0); // that one is for the caller to set
}

TEST_CASE("UTrace: FindTraceViewer knows a viewer by its window class, whatever its title",
          "[foundation]")
{
    const auto find = [] {
        UTrace::State state;
        REQUIRE(UTrace::TraceInitialise());
        return static_cast<HWND>(state.viewer);
    };
    const HINSTANCE program = ::GetModuleHandleW(nullptr);
    WNDCLASSW description{};
    description.lpfnWndProc = &::DefWindowProcW;
    description.hInstance = program;
    description.lpszClassName = velt::kTraceViewerClass;
    REQUIRE(::RegisterClassW(&description));
    const auto make = [&](const wchar_t* className, const wchar_t* title) {
        return ::CreateWindowExW(0, className, title, WS_OVERLAPPED, 0, 0, 9, 9, nullptr, nullptr,
                                 program, nullptr);
    };
    const HWND namesake = make(L"STATIC", velt::kTraceViewerClass);
    REQUIRE(namesake);
    CHECK(find() == nullptr);
    const HWND viewer = make(velt::kTraceViewerClass, L"another title");
    REQUIRE(viewer);
    CHECK(find() == viewer);
    ::DestroyWindow(viewer);
    ::DestroyWindow(namesake);
    ::UnregisterClassW(velt::kTraceViewerClass, program);
}

TEST_CASE("UTrace: StartUp leaves the threshold as it was when tracing cannot be initialised",
          "[foundation]")
{
    FailingTls failing; // the next index: that of the State
    UTrace::State state;
    failing.Begin();
    UTrace::StartUp();
    failing.End();
    CHECK_FALSE(state.initialised);
    CHECK(state.threshold == 0);

    UTrace::StartUp();
    CHECK(state.initialised);
    CHECK(state.threshold == 4);
}

TEST_CASE("UTrace: FindTraceViewer looks at once when nobody has looked yet", "[foundation]")
{
    UTrace::State state;
    REQUIRE(UTrace::TraceInitialise());
    const TraceViewerWindow viewer;
    const ClockPatch clock("kernel32.dll", [] { return DWORD{5000}; });
    state.lastLookUpMs = 5000;
    CHECK_FALSE(UTrace::FindTraceViewer());
    state.viewerState = -1;
    CHECK(UTrace::FindTraceViewer());
}

TEST_CASE("UTrace: a viewer that has closed its window is no obstacle", "[foundation]")
{
    std::optional<TraceViewerWindow> viewer(std::in_place);
    UTrace::State state;
    REQUIRE(UTrace::TraceInitialise());
    UTrace::TraceSetFlags(2);
    UTrace::TraceLevel1("seen");
    CHECK(viewer->TakeTexts() == Texts{"seen"});
    viewer.reset();
    UTrace::TraceLevel1("lost");
    CHECK(state.Depth() == 0);
}

TEST_CASE("UTrace: messages and exit lines keep the thread's last error", "[foundation]")
{
    const bool withViewer = GENERATE(false, true);
    std::optional<TraceViewerWindow> viewer;
    if (withViewer)
    {
        viewer.emplace();
    }
    UTrace::State state;
    REQUIRE(UTrace::TraceInitialise()); // to the debugger as well
    {
        const UTrace::Function trace("F");
        ::SetLastError(1234);
        UTrace::TraceLevel1("message");
        CHECK(::GetLastError() == 1234);
        UTrace::TraceLevel3("message");
        CHECK(::GetLastError() == 1234);
    }
    CHECK(::GetLastError() == 1234);
    if (viewer)
    {
        // The window it sends to is gone, so the call fails.
        viewer.reset();
        ::SetLastError(1235);
        UTrace::TraceLevel1("message");
        CHECK(::GetLastError() == 1235);
    }
}

namespace
{
constexpr int kThreads = 8;
constexpr int kRounds = 40;
constexpr const char* kNames[kThreads] = {"T0", "T1", "T2", "T3", "T4", "T5", "T6", "T7"};

/// The lines of one thread of the tests below, in their order.
Texts LinesOfThread(const std::string& name)
{
    Texts lines;
    for (int round = 0; round < kRounds; ++round)
    {
        lines.insert(lines.end(),
                     {name + " - enter", "  " + name + " - round " + std::to_string(round),
                      "    " + name + " in the middle",
                      "  " + name + " - return = " + std::to_string(round), name + " - return"});
    }
    return lines;
}

DWORD WINAPI TraceRounds(void* name)
{
    const auto* const function = static_cast<const char*>(name);
    for (int round = 0; round < kRounds; ++round)
    {
        const UTrace::Function outer(function);
        UTrace::Function inner(function, "round %d", round);
        UTrace::TraceLevel1("%s in the middle", function);
        inner.Return(round, nullptr);
    }
    return 0;
}

void TraceOnThreads()
{
    std::vector<UniqueKernelObject> threads;
    for (const char* const name : kNames)
    {
        threads.emplace_back(
            ::CreateThread(nullptr, 0, &TraceRounds, const_cast<char*>(name), 0, nullptr));
    }
    for (const UniqueKernelObject& thread : threads)
    {
        REQUIRE(::WaitForSingleObject(thread.Get(), 60'000) == WAIT_OBJECT_0);
    }
}

/// The thread of a line of the tests above.
std::string NameIn(const std::string& line)
{
    const std::size_t at = line.find('T');
    return at == std::string::npos ? line : line.substr(at, 2);
}
} // namespace

TEST_CASE("UTrace: lines of eight threads arrive at the viewer whole and in order", "[foundation]")
{
    Traced traced;
    TraceOnThreads();
    std::map<std::string, Texts> lines;
    for (const std::string& text : traced.Take())
    {
        lines[NameIn(text)].push_back(text);
    }
    REQUIRE(lines.size() == kThreads);
    for (const char* const name : kNames)
    {
        CHECK(lines[name] == LinesOfThread(name));
    }
}

TEST_CASE("child: eight threads trace", "[.child]")
{
    UTrace::State state;
    UTrace::StartUp();
    TraceOnThreads();
}

TEST_CASE("UTrace: the three calls of a line never mix at the debugger", "[foundation]")
{
    const DebuggeeRun run = RunUnderDebugger("child: eight threads trace");
    CHECK(run.exitCode == 0);
    REQUIRE(run.output.size() == std::size_t{3} * kThreads * kRounds * 5);
    std::map<DWORD, Texts> lines;
    for (std::size_t i = 0; i < run.output.size(); i += 3)
    {
        REQUIRE(run.output[i].text == ": ");
        REQUIRE(run.output[i + 2].text == "\r\n");
        REQUIRE(run.output[i].thread == run.output[i + 1].thread);
        REQUIRE(run.output[i].thread == run.output[i + 2].thread);
        lines[run.output[i].thread].push_back(run.output[i + 1].text);
    }
    REQUIRE(lines.size() == kThreads);
    for (const auto& [thread, ofThread] : lines)
    {
        CHECK(ofThread == LinesOfThread(NameIn(ofThread.front())));
    }
}

TEST_CASE("child: one message with each of some settings", "[.child]")
{
    UTrace::State state;
    REQUIRE(UTrace::TraceInitialise());
    UTrace::TraceLevel1("flags 3");
    UTrace::TraceSetFlags(2);
    UTrace::TraceLevel1("flags 2");
    UTrace::TraceSetFlags(1);
    UTrace::TraceLevel1("above the threshold");
    UTrace::TraceSetThreshold(1);
    state.source[0] = 'm';
    UTrace::TraceLevel1("with a source");
    state.filter = [](std::int32_t, const char*, const char*) { return false; };
    UTrace::TraceLevel1("filtered");
    UTrace::TraceLevel1(UTrace::silent);
}

TEST_CASE("UTrace: the settings decide what the debugger gets, the filter does not", "[foundation]")
{
    const DebuggeeRun run = RunUnderDebugger("child: one message with each of some settings");
    CHECK(run.exitCode == 0);
    Texts texts;
    for (const DebugOutput& output : run.output)
    {
        texts.push_back(output.text);
    }
    CHECK(texts == Texts{": ", "flags 3", "\r\n", "m: ", "with a source", "\r\n", "m: ", "filtered",
                         "\r\n"});
}
