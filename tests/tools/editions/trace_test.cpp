// The trace of both editions' hosts, in viewers of both.

#include "foundation/unique_file.h"
#include "tests/support/temp_folder.h"
#include "tests/support/trace_viewer_window.h"
#include "tests/support/viewer_process.h"
#include "tests/tools/editions/edition_programs.h"

#include <windows.h>

#include <tlhelp32.h>

#include <catch.hpp>

#include <string>
#include <vector>

using namespace velt::test;

namespace
{
/// What a viewer of its own receives of a host that uses each operation of the collection, every
/// byte.
std::vector<ViewerRecord> RecordsOf(const EditionPrograms& edition)
{
    TraceViewerWindow viewer;
    Velt(edition, {L"collection", L"1", L"text", L"2.5"});
    return viewer.Take();
}

/// A script that goes on tracing.
class BusyScript : public TempFolder
{
public:
    BusyScript() : TempFolder(L"busy")
    {
        Write(L"busy.js", "var c = new ActiveXObject('VeltHTTPClient.EnumVariantCol12OEM');"
                          "for (;;) { c.Add(1); c.Clear(); WScript.Sleep(50); }");
    }
};

/// A host that runs it until the end of the scope.
class BusyHost
{
public:
    explicit BusyHost(const EditionPrograms& edition)
        : m_run({L"script", m_script.File(L"busy.js")}, edition.velt)
    {
    }

    DWORD Id() const noexcept
    {
        return m_run.ProcessId();
    }

    std::string Name() const
    {
        return "velt.exe (" + std::to_string(m_run.ProcessId()) + ")";
    }

private:
    const BusyScript m_script;
    const ProgramRun m_run;
};

/// Waits until the viewer's console has a line that names the process so.
bool Shows(const ViewerProcess& viewer, const std::string& process)
{
    const std::string line = "  4  " + process + "  CEnumVariantCol::Add - enter\r\n";
    return Eventually([&] { return viewer.OutputWaiting().find(line) != std::string::npos; });
}

/// Either order: the finder goes by process number.
bool ShowsBoth(const ViewerProcess& viewer, const BusyHost& one, const BusyHost& other)
{
    const std::string line = "  CEnumVariantCol::Add - enter\r\n";
    return Eventually([&] {
        const std::string output = viewer.OutputWaiting();
        return output.find("  4  " + one.Name() + " or " + other.Name() + line) != output.npos ||
               output.find("  4  " + other.Name() + " or " + one.Name() + line) != output.npos;
    });
}
} // namespace

TEST_CASE("Editions: hosts of both send the same bytes", "[foundation]")
{
    const std::vector<ViewerRecord> of32 = RecordsOf(Programs32());
    const std::vector<ViewerRecord> of64 = RecordsOf(Programs64());
    REQUIRE(of32.size() > 10);
    REQUIRE(of32.size() == of64.size());
    for (std::size_t i = 0; i < of32.size(); ++i)
    {
        CAPTURE(i, of32[i].text, of64[i].text);
        CHECK(of32[i] == of64[i]);
    }
}

/// Whether the system shows a 64-bit process what a 32-bit one has loaded, as Windows does.
bool Shows32BitModules(DWORD processId)
{
    return Eventually([&] {
        const velt::UniqueFile modules(
            ::CreateToolhelp32Snapshot(TH32CS_SNAPMODULE | TH32CS_SNAPMODULE32, processId));
        MODULEENTRY32W module{};
        module.dwSize = sizeof(module);
        for (BOOL more = modules && ::Module32FirstW(modules.Get(), &module); more;
             more = ::Module32NextW(modules.Get(), &module))
        {
            if (::lstrcmpiW(module.szModule, L"VeltHTTPClient12OEM.dll") == 0)
            {
                return true;
            }
        }
        return false;
    });
}

TEST_CASE("Editions: a 64-bit viewer names hosts of both", "[foundation]")
{
    ViewerProcess viewer(L"--console", Programs64().viewer);
    viewer.AwaitReceiver();
    bool shows32 = false;
    {
        const BusyHost host(Programs32());
        shows32 = Shows32BitModules(host.Id());
        CHECK((!shows32 || Shows(viewer, host.Name())));
    }
    const BusyHost host(Programs64());
    CHECK(Shows(viewer, host.Name()));
    if (!shows32)
    {
        WARN("32-bit hosts are not looked at: this system does not show their modules to a 64-bit "
             "program");
        return;
    }
    const BusyHost other(Programs32());
    CHECK(ShowsBoth(viewer, host, other));
}

TEST_CASE("Editions: a 32-bit viewer names no host that did not send", "[foundation]")
{
    ViewerProcess viewer(L"--console", Programs32().viewer);
    viewer.AwaitReceiver();
    {
        const BusyHost host(Programs64());
        CHECK(Shows(viewer, "?")); // it cannot see who sends
    }
    // It cannot see whether the other kind has the component too.
    const BusyHost host(Programs32());
    CHECK(Shows(viewer, host.Name() + " or a 64-bit program"));
    const BusyHost other(Programs64());
    CHECK(Shows(viewer, host.Name() + " or a 64-bit program"));
    const std::string output = viewer.OutputWaiting();
    CHECK(output.find("  4  " + host.Name() + "  ") == output.npos);
    CHECK(output.find(other.Name()) == output.npos);
}
