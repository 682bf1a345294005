// Samples that need no registration, with arguments that are wrong and files that are missing.

#include "foundation/wide_text.h"
#include "tests/samples/sample_runs.h"
#include "tests/support/temp_folder.h"

#include <catch.hpp>

#include <filesystem>
#include <stdexcept>
#include <string>

using namespace velt;
using namespace velt::test;
using Lines = std::vector<std::string>;

namespace
{
std::wstring Quoted(const std::wstring& path)
{
    return L"\"" + path + L"\"";
}

const std::wstring kSystemLibrary = L"C:\\windows\\system32\\winmm.dll"; // one without classes
} // namespace

TEST_CASE("collection_host: says how it is used, and why it fails", "[collection]")
{
    const std::wstring host = SampleProgram(L"collection_host.exe");
    const SampleRun unused = RunSample(host);
    CHECK(unused.exitCode == 2);
    CHECK(unused.lines == Lines{"usage: collection_host <path of VeltHTTPClient12OEM.dll>"});

    const SampleRun missing = RunSample(host + L" missing.dll");
    CHECK(missing.exitCode == 1);
    CHECK(missing.lines == Lines{"collection_host: the library cannot be loaded"});

    const SampleRun foreign = RunSample(host + L" " + kSystemLibrary);
    CHECK(foreign.exitCode == 1);
    CHECK(foreign.lines == Lines{"collection_host: the library has no DllGetClassObject"});
}

TEST_CASE("registration_free: does not find the classes without the assembly", "[collection]")
{
    const bool onlyTheLibraryIsMissing = GENERATE(false, true);
    CAPTURE(onlyTheLibraryIsMissing);
    const std::filesystem::path from(VELT_SAMPLE_PROGRAMS_DIR L"\\registration_free");
    const TempFolder folder(L"registration free");
    const std::wstring program = folder.File(L"registration_free.exe");
    std::filesystem::copy_file(from / L"registration_free.exe", program);
    if (onlyTheLibraryIsMissing)
    {
        const wchar_t* manifest = L"VeltHTTPClient12OEM.Assembly.manifest";
        std::filesystem::copy_file(from / manifest, folder.File(manifest));
    }
    // Windows does not start a program whose assembly is missing; Wine does.
    try
    {
        const SampleRun run = RunSample(Quoted(program));
        CHECK(run.exitCode == 1);
        REQUIRE(run.lines.size() == 1);
        CHECK(run.lines.front().starts_with("registration_free: CoCreateInstance failed: 0x8"));
    }
    catch (const std::runtime_error& failure)
    {
        WARN(failure.what());
        CHECK_THAT(failure.what(),
                   Catch::EndsWith("error " + std::to_string(ERROR_SXS_CANT_GEN_ACTCTX)));
    }
}

TEST_CASE("viewer_host: says how it is used, and why it fails", "[tools]")
{
    const std::wstring host = SampleProgram(L"viewer_host.exe");
    const TempFolder folder;
    const std::wstring picture = folder.File(L"picture.png");
    const std::wstring library = ShippedFile(L"VeltHTTPClient12OEM.dll");
    const std::wstring viewer = ShippedFile(L"velt-trace.exe");

    CHECK(RunSample(host + L" " + Quoted(library)).exitCode == 2);

    const auto run = [&](const std::wstring& dll, const std::wstring& program,
                         const std::wstring& file) {
        return RunSample(host + L" " + Quoted(dll) + L" " + Quoted(program) + L" " + Quoted(file));
    };
    const SampleRun noViewer = run(library, L"missing.exe", picture);
    CHECK(noViewer.exitCode == 1);
    CHECK(noViewer.lines == Lines{"viewer_host: the viewer cannot be started"});

    const SampleRun noLibrary = run(L"missing.dll", viewer, picture);
    CHECK(noLibrary.exitCode == 1);
    CHECK(noLibrary.lines == Lines{"viewer_host: the library cannot be loaded"});

    const SampleRun foreign = run(kSystemLibrary, viewer, picture);
    CHECK(foreign.exitCode == 1);
    CHECK(foreign.lines == Lines{"viewer_host: the library has no DllGetClassObject"});

    const SampleRun noFolder = run(library, viewer, folder.File(L"missing\\picture.png"));
    CHECK(noFolder.exitCode == 1);
    REQUIRE_FALSE(noFolder.lines.empty());
    CHECK(noFolder.lines.back() == "viewer_host: the picture cannot be saved");
    CHECK_FALSE(std::filesystem::exists(picture));
}
