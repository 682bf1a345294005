// What a file that is written does: no class of the library opens one, so the tests derive one.

#include "internet/internet_file.h"

#include "tests/internet/exchange.h"
#include "tests/support/http_server.h"
#include "tests/support/import_patch.h"
#include "tests/support/process_usage.h"

#include <catch.hpp>

#include <array>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using namespace velt::test;

namespace
{
using WritePatch = ImportPatch<"InternetWriteFile", decltype(::InternetWriteFile)>;
using CloseHandlePatch = ImportPatch<"InternetCloseHandle", decltype(::InternetCloseHandle)>;

constexpr DWORD kFileContext = 0x99;

class WrittenFile final : public CInternetFile
{
public:
    WrittenFile(Exchange& exchange, HINTERNET handle)
        : CInternetFile(velt::RegisteredHandle(handle, exchange.connection->GetRegisteredHandle()),
                        false, kFileContext, L"server", L"/name")
    {
    }

    using CInternetFile::SetWriteBufferSize;
};

/// An open file in write mode, while the system's writes are written down and not made.
struct Writing
{
    Writing()
        : patch("wininet.dll",
                [this](HINTERNET, const void* buffer, DWORD count, DWORD* written) {
                    writes.emplace_back(static_cast<const char*>(buffer), count);
                    *written = shortBy < count ? count - shortBy : 0;
                    return fails && writes.size() > succeedFirst ? FALSE : TRUE;
                }),
          exchange(1),
          file(std::in_place, exchange,
               ::HttpOpenRequestW(exchange.connection->GetHandle(), L"PUT", L"/name", L"HTTP/1.1",
                                  nullptr, nullptr, 0, 0))
    {
    }

    void Write(const std::string& bytes)
    {
        file->Write(bytes.data(), static_cast<DWORD>(bytes.size()));
    }

    std::vector<std::string> TakeWrites()
    {
        return std::exchange(writes, {});
    }

    std::vector<std::string> writes;
    bool fails = false;
    std::size_t succeedFirst = 0; // as many writes as this, when it fails
    DWORD shortBy = 0;
    WritePatch patch;
    Exchange exchange;
    std::optional<WrittenFile> file;
};

using Writes = std::vector<std::string>;

/// Code and message of the CInternetException that a function throws.
template <class Function>
std::pair<DWORD, std::string> FailureOf(Function&& function)
{
    try
    {
        function();
    }
    catch (const CInternetException& e)
    {
        return {e.GetCode(), e.GetDetail()};
    }
    return {0, "nothing thrown"};
}

using Failure = std::pair<DWORD, std::string>;
} // namespace

TEST_CASE("CInternetFile: Write without a buffer is one write of the system", "[internet]")
{
    Writing writing;
    writing.Write("abc");
    writing.Write("");
    CHECK(writing.TakeWrites() == Writes{"abc", ""});
    writing.file->Flush();
    CHECK(writing.TakeWrites().empty());
}

TEST_CASE("CInternetFile: Write stage 1, a write that fails", "[internet]")
{
    Writing writing;
    writing.fails = true;
    CHECK(FailureOf([&] { writing.Write("abc"); }) ==
          Failure{kFileContext, "CInternetFile::Write-1 - InternetWriteFile"});
}

TEST_CASE("CInternetFile: Write stage 2, fewer bytes written than asked", "[internet]")
{
    Writing writing;
    writing.shortBy = 1;
    CHECK(FailureOf([&] { writing.Write("abc"); }) ==
          Failure{kFileContext, "CInternetFile::Write-2 - InternetWriteFile"});
}

TEST_CASE("CInternetFile: Write collects in the buffer until it would be full", "[internet]")
{
    Writing writing;
    writing.file->SetWriteBufferSize(8);
    writing.Write("abc");
    writing.Write("");
    writing.Write("defg");
    CHECK(writing.TakeWrites().empty()); // 7 of 8
    writing.Write("h");                  // the eighth: what was collected goes first
    CHECK(writing.TakeWrites() == Writes{"abcdefg"});
    writing.Write("ijklmno"); // 1 + 7
    CHECK(writing.TakeWrites() == Writes{"h"});
    writing.file->Flush();
    CHECK(writing.TakeWrites() == Writes{"ijklmno"});
    writing.file->Flush();
    CHECK(writing.TakeWrites().empty());
}

TEST_CASE("CInternetFile: Write as large as the buffer goes behind what was collected",
          "[internet]")
{
    const std::string large = GENERATE(values<std::string>({"12345678", "1234567890"}));
    Writing writing;
    writing.file->SetWriteBufferSize(8);
    writing.Write("abc");
    writing.Write(large);
    CHECK(writing.TakeWrites() == Writes{"abc", large});
    writing.Write(large);
    CHECK(writing.TakeWrites() == Writes{"", large}); // an empty fill is written too
    writing.file->Close();
    CHECK(writing.TakeWrites().empty());
}

TEST_CASE("CInternetFile: Write stage 3, a failure with what was collected", "[internet]")
{
    Writing writing;
    writing.file->SetWriteBufferSize(8);
    writing.Write("abc");
    writing.fails = true;
    CHECK(FailureOf([&] { writing.Write("12345"); }) ==
          Failure{kFileContext, "CInternetFile::Write-3 - InternetWriteFile"});
    CHECK(writing.TakeWrites() == Writes{"abc"});
    writing.fails = false;
    writing.Write("12345");
    CHECK(writing.TakeWrites() == Writes{"abc"}); // nothing was lost
}

TEST_CASE("CInternetFile: Write stage 4, a failure with a write past the buffer", "[internet]")
{
    Writing writing;
    writing.file->SetWriteBufferSize(8);
    writing.Write("abc");
    writing.fails = true;
    writing.succeedFirst = 1;
    CHECK(FailureOf([&] { writing.Write("12345678"); }) ==
          Failure{kFileContext, "CInternetFile::Write-4 - InternetWriteFile"});
    CHECK(writing.TakeWrites() == Writes{"abc", "12345678"});
    writing.file->Flush();
    CHECK(writing.TakeWrites().empty()); // what was collected had been written
}

TEST_CASE("CInternetFile: Flush fails with the context when not all is written", "[internet]")
{
    const bool fails = GENERATE(true, false);
    Writing writing;
    writing.file->SetWriteBufferSize(8);
    writing.Write("abc");
    writing.fails = fails;
    writing.shortBy = fails ? 0 : 1;
    CHECK(FailureOf([&] { writing.file->Flush(); }) == Failure{kFileContext, ""});
    writing.fails = false;
    writing.shortBy = 0;
    writing.TakeWrites();
    writing.file->Flush();
    CHECK(writing.TakeWrites() == Writes{"abc"}); // nothing was lost
}

TEST_CASE("CInternetFile: Close writes what was collected before it closes the handle",
          "[internet]")
{
    Writing writing;
    std::size_t writesBefore = 0;
    writing.file->SetWriteBufferSize(8);
    writing.Write("abc");
    {
        const CloseHandlePatch patch("wininet.dll", [&](HINTERNET handle) {
            writesBefore = writing.writes.size();
            return CloseHandlePatch::Original(handle);
        });
        SECTION("by Close")
        {
            writing.file->Close();
        }
        SECTION("by Abort")
        {
            writing.file->Abort();
            CHECK(writing.file->GetFileName().empty());
        }
        SECTION("by the destructor")
        {
            writing.file.reset();
        }
        CHECK(patch.Calls() == 1);
    }
    CHECK(writesBefore == 1);
    CHECK(writing.TakeWrites() == Writes{"abc"});
    CHECK(OpenHandles() == 3); // of the exchange
}

TEST_CASE("CInternetFile: Close that cannot write leaves the file open for another try",
          "[internet]")
{
    Writing writing;
    writing.file->SetWriteBufferSize(8);
    writing.Write("abc");
    writing.fails = true;
    CHECK(CodeOf([&] { writing.file->Close(); }) == kFileContext);
    CHECK(writing.file->GetHandle() != nullptr);
    CHECK(OpenHandles() == 4);
    SECTION("which succeeds")
    {
        writing.fails = false;
        writing.file->Close();
    }
    SECTION("which fails too: the destructor closes all the same")
    {
        writing.file.reset();
    }
    CHECK(OpenHandles() == 3);
}

TEST_CASE("CInternetFile: Close gives its write buffer back", "[internet]")
{
    constexpr DWORD kBytes = 64 * 1024 * 1024;
    const bool endsBefore = GENERATE(false, true);
    Writing writing;
    const std::size_t before = CurrentUsage().privateBytes;
    writing.file->SetWriteBufferSize(kBytes);
    REQUIRE(CurrentUsage().privateBytes >= before + kBytes);
    writing.Write("abc");
    if (endsBefore)
    {
        writing.exchange.session.Close(); // and the file with it: there is nothing to write to
    }
    writing.file->Close();
    CHECK(CurrentUsage().privateBytes < before + kBytes);
    CHECK(writing.TakeWrites() == (endsBefore ? Writes{} : Writes{"abc"}));
    writing.file->SetWriteBufferSize(8);
    writing.file->Flush(); // of what was collected, nothing is left
    CHECK(writing.TakeWrites().empty());
}

TEST_CASE("CInternetFile: a write buffer that finds no memory is std::bad_alloc", "[internet]")
{
    if constexpr (sizeof(void*) == 4) // elsewhere there may be as much
    {
        const DWORD size = GENERATE(as<DWORD>{}, 0x7FFF'FFFF, 0x8000'0000, 0xFFFF'FFFF);
        Writing writing;
        writing.file->SetWriteBufferSize(8);
        CHECK_THROWS_AS(writing.file->SetWriteBufferSize(size), std::bad_alloc);
        writing.Write("abc");
        writing.file->Flush();
        CHECK(writing.TakeWrites() == Writes{"abc"});
    }
}

TEST_CASE("CInternetFile: WriteString sends as many bytes as the text has characters", "[internet]")
{
    const auto [text, bytes] = GENERATE(table<std::wstring, std::string>({
        {L"", ""},
        {L"a", "a"},
        {L"ab", std::string("a\0", 2)},
        {L"abcd", std::string("a\0b\0", 4)},
        {L"\x4E2D\x6587x", std::string("\x2D\x4E\x87", 3)},
    }));
    Writing writing;
    writing.file->WriteString(text.c_str());
    CHECK(writing.TakeWrites() == Writes{bytes});
}

TEST_CASE("CInternetFile: in write mode reading fails with code 6", "[internet]")
{
    Writing writing;
    std::array<wchar_t, 4> buffer{};
    std::wstring line;
    CHECK(CodeOf([&] { writing.file->Read(buffer.data(), 4); }) == ERROR_INVALID_HANDLE);
    CHECK(CodeOf([&] { writing.file->Seek(0, FILE_BEGIN); }) == ERROR_INVALID_HANDLE);
    CHECK(CodeOf([&] { writing.file->ReadString(buffer.data(), 4); }) == ERROR_INVALID_HANDLE);
    CHECK(CodeOf([&] { writing.file->ReadString(line); }) == ERROR_INVALID_HANDLE);
}

TEST_CASE("CInternetFile: a closed file cannot be written", "[internet]")
{
    Writing writing;
    writing.file->Close();
    CHECK(CodeOf([&] { writing.Write("x"); }) == ERROR_INVALID_HANDLE);
    CHECK(CodeOf([&] { writing.file->WriteString(L"x"); }) == ERROR_INVALID_HANDLE);
    writing.file->Flush();
    CHECK(writing.TakeWrites().empty());
}

TEST_CASE("CInternetFile: what is written reaches the server", "[internet]")
{
    const DWORD bufferBytes = GENERATE(as<DWORD>{}, 0, 4, 1000);
    const HttpServer server(HttpAnswer("201 Created", ""));
    Exchange exchange(server.Port());
    WrittenFile file(exchange, ::HttpOpenRequestW(exchange.connection->GetHandle(), L"PUT", L"/up",
                                                  L"HTTP/1.1", nullptr, nullptr, kFresh, 0));
    file.SetWriteBufferSize(bufferBytes);
    INTERNET_BUFFERSW buffers{};
    buffers.dwStructSize = sizeof(buffers);
    buffers.dwBufferTotal = 14;
    REQUIRE(::HttpSendRequestExW(file.GetHandle(), &buffers, nullptr, 0, 0));
    file.Write("one ", 4);
    file.Write("two ", 4);
    file.WriteString(L"abcdef");
    file.Flush();
    REQUIRE(::HttpEndRequestW(file.GetHandle(), nullptr, 0, 0));
    const auto requests = server.Requests();
    REQUIRE(requests.size() == 1);
    CHECK(requests[0].starts_with("PUT /up HTTP/1.1\r\n"));
    CHECK(requests[0].ends_with(std::string("\r\n\r\none two a\0b\0c\0", 18)));
}
