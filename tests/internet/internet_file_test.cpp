#include "internet/internet_file.h"

#include "tests/internet/exchange.h"
#include "tests/support/http_server.h"
#include "tests/support/import_patch.h"
#include "tests/support/process_usage.h"
#include "tests/support/real_servers.h"
#include "tests/support/virtual_slot.h"

#include <catch.hpp>

#include <array>
#include <cstring>
#include <limits>
#include <new>
#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace velt::test;
using real_servers::LargeBytes;

namespace
{
using ReadPatch = ImportPatch<"InternetReadFile", decltype(::InternetReadFile)>;
using SeekPatch = ImportPatch<"InternetSetFilePointer", decltype(::InternetSetFilePointer)>;
using AvailablePatch =
    ImportPatch<"InternetQueryDataAvailable", decltype(::InternetQueryDataAvailable)>;
using CloseHandlePatch = ImportPatch<"InternetCloseHandle", decltype(::InternetCloseHandle)>;

constexpr DWORD kAllBits = 0xFFFFFFFF;

/// What the layer asked the system to read, and what it got.
using Reads = std::vector<std::pair<DWORD, DWORD>>;

/// A file that was opened and sent, while the system's reads are written down.
class WatchedFile
{
public:
    explicit WatchedFile(const wchar_t* object)
        : m_exchange(real_servers::HttpPort(), object),
          m_patch("wininet.dll", [this](HINTERNET handle, void* buffer, DWORD count, DWORD* read) {
              if (fail)
              {
                  return FALSE;
              }
              const BOOL done = ReadPatch::Original(handle, buffer, count, read);
              m_reads.emplace_back(count, *read);
              return done;
          })
    {
        m_exchange.Send();
    }

    CHttpFile& File()
    {
        return *m_exchange.file;
    }

    /// Reads up to `count` bytes.
    std::string Read(DWORD count)
    {
        std::string bytes(count, '?');
        bytes.resize(File().Read(bytes.data(), count));
        return bytes;
    }

    /// The system's reads since the last call.
    Reads TakeReads()
    {
        return std::exchange(m_reads, {});
    }

    bool fail = false;

private:
    Exchange m_exchange;
    Reads m_reads;
    ReadPatch m_patch;
};

/// A file whose body is given, sent.
struct BodyFile
{
    explicit BodyFile(const std::string& body)
        : server(HttpAnswer("200 OK", body)),
          exchange(server.Port())
    {
        exchange.Send();
    }

    CHttpFile& File()
    {
        return *exchange.file;
    }

    HttpServer server;
    Exchange exchange;
};

/// The bytes of a text's 16-bit characters.
std::string Utf16Bytes(const std::wstring& text)
{
    std::string bytes(text.size() * sizeof(wchar_t), '\0');
    std::memcpy(bytes.data(), text.data(), bytes.size());
    return bytes;
}

/// What one call of the array form leaves: the characters before the terminator that it wrote at
/// their end. The rest of the array must be untouched.
struct Line
{
    bool isNull;
    std::wstring text;

    bool operator==(const Line&) const = default;
};

Line ReadLine(CInternetFile& file, DWORD max)
{
    constexpr wchar_t kPoison = 0xCCCC;
    std::vector<wchar_t> buffer(max + 1, kPoison);
    const wchar_t* const result = file.ReadString(buffer.data(), max);
    CHECK((result == nullptr || result == buffer.data()));
    std::size_t end = buffer.size();
    while (end > 0 && buffer[end - 1] == kPoison)
    {
        --end;
    }
    REQUIRE(end > 0);
    REQUIRE(end <= max);
    CHECK(buffer[end - 1] == L'\0');
    return {result == nullptr, std::wstring(buffer.data(), end - 1)};
}

class DerivedInternetFile : public CInternetFile
{
public:
    virtual void Next() {}
};
} // namespace

TEST_CASE("CInternetFile: Read without a buffer is one read of the system", "[internet]")
{
    WatchedFile read(L"/body-8193");
    CHECK(read.Read(100) == LargeBytes(0, 100));
    CHECK(read.Read(8193) == LargeBytes(100, 8093));
    CHECK(read.Read(10).empty());
    CHECK(read.TakeReads() == Reads{{100, 100}, {8193, 8093}, {10, 0}});
}

TEST_CASE("CInternetFile: Read gives whole bodies of every length", "[internet]")
{
    const auto [object, size] = GENERATE(table<const wchar_t*, std::size_t>({
        {L"/empty", 0},
        {L"/body-1", 1},
        {L"/body-8191", 8191},
        {L"/body-8192", 8192},
        {L"/body-8193", 8193},
    }));
    const DWORD bufferBytes = GENERATE(as<DWORD>{}, 0, 1, 4096, 8192, 10'000);
    WatchedFile read(object);
    REQUIRE(read.File().SetReadBufferSize(bufferBytes));
    CHECK(ReadAll(read.File()) == LargeBytes(0, size));
    CHECK(ReadAll(read.File()).empty()); // the end stays the end
}

TEST_CASE("CInternetFile: Read gives a body of 64 MiB", "[internet]")
{
    Exchange exchange(real_servers::HttpPort(), L"/large");
    exchange.Send();
    REQUIRE(exchange.file->SetReadBufferSize(8192));
    std::string piece(65'536, '?');
    std::size_t total = 0;
    bool same = true;
    while (const DWORD count = exchange.file->Read(piece.data(), 65'536))
    {
        same = same && piece.compare(0, count, LargeBytes(total, count)) == 0;
        total += count;
    }
    CHECK(total == real_servers::kLargeBytes);
    CHECK(same);
}

TEST_CASE("CInternetFile: Read in pieces of any size gives the body in its order", "[internet]")
{
    const unsigned seed = GENERATE(range(1u, 11u));
    std::mt19937 random(seed);
    const auto upTo = [&](DWORD most) {
        return std::uniform_int_distribution<DWORD>(1, most)(random);
    };
    WatchedFile read(L"/body-8193");
    REQUIRE(read.File().SetReadBufferSize(upTo(300)));
    std::string body;
    std::string piece = read.Read(upTo(400));
    while (!piece.empty())
    {
        body += piece;
        piece = read.Read(upTo(400));
    }
    INFO("seed " << seed);
    CHECK(body == LargeBytes(0, 8193));
}

TEST_CASE("CInternetFile: Read through a buffer refills, serves and passes by", "[internet]")
{
    WatchedFile read(L"/body-8193");
    REQUIRE(read.File().SetReadBufferSize(16));

    // Smaller than the buffer, and nothing held: the buffer is filled.
    CHECK(read.Read(10) == LargeBytes(0, 10));
    CHECK(read.TakeReads() == Reads{{16, 16}});

    // Smaller, and less than what is held: served.
    CHECK(read.Read(5) == LargeBytes(10, 5));
    CHECK(read.TakeReads().empty());

    // All that is held: served, and the buffer is filled anew although nothing of it is wanted.
    CHECK(read.Read(1) == LargeBytes(15, 1));
    CHECK(read.TakeReads() == Reads{{16, 16}});

    // As large as the buffer: what is held, and the rest read into the caller's bytes.
    CHECK(read.Read(3) == LargeBytes(16, 3));
    CHECK(read.Read(16) == LargeBytes(19, 16));
    CHECK(read.TakeReads() == Reads{{3, 3}});

    // The buffer was consumed: larger than it, all is read directly.
    CHECK(read.Read(40) == LargeBytes(35, 40));
    CHECK(read.TakeReads() == Reads{{40, 40}});

    // Smaller again: filled, then partly held and partly refilled.
    CHECK(read.Read(12) == LargeBytes(75, 12));
    CHECK(read.Read(12) == LargeBytes(87, 12));
    CHECK(read.TakeReads() == Reads{{16, 16}, {16, 16}});
}

TEST_CASE("CInternetFile: Read of exactly what is held and as large as the buffer reads no more",
          "[internet]")
{
    WatchedFile read(L"/body-8193");
    REQUIRE(read.File().SetReadBufferSize(16));
    CHECK(read.Read(15) == LargeBytes(0, 15));
    CHECK(read.Read(1) == LargeBytes(15, 1)); // the buffer holds 16 bytes, all unread
    read.TakeReads();
    CHECK(read.Read(16) == LargeBytes(16, 16));
    CHECK(read.TakeReads() == Reads{{0, 0}});
}

TEST_CASE("CInternetFile: Read through a buffer at the end gives what there is", "[internet]")
{
    WatchedFile read(L"/body-1");
    REQUIRE(read.File().SetReadBufferSize(16));
    CHECK(read.Read(10) == "0");
    CHECK(read.Read(10).empty());
    CHECK(read.Read(16).empty());
    CHECK(read.Read(100).empty());
    CHECK(read.TakeReads() == Reads{{16, 1}, {16, 0}, {16, 0}, {100, 0}});
}

TEST_CASE("CInternetFile: Read of no bytes is harmless", "[internet]")
{
    WatchedFile read(L"/body-8193");
    char none = 'x';
    CHECK(read.File().Read(&none, 0) == 0); // the system's to judge, so with a buffer
    CHECK(none == 'x');
    REQUIRE(read.File().SetReadBufferSize(16));
    CHECK(read.File().Read(nullptr, 0) == 0);
    CHECK(read.File().Read(nullptr, 0) == 0);
    CHECK(read.Read(16) == LargeBytes(0, 16));
}

TEST_CASE("CInternetFile: a failed read carries the file's context and spoils no later one",
          "[internet]")
{
    const DWORD bufferBytes = GENERATE(as<DWORD>{}, 0, 16);
    const DWORD count = GENERATE(as<DWORD>{}, 8, 32);
    WatchedFile read(L"/body-8193");
    REQUIRE(read.File().SetReadBufferSize(bufferBytes));
    read.fail = true;
    CHECK(CodeOf([&] { read.Read(count); }) == kExchangeContext);
    read.fail = false;
    CHECK(read.Read(count) == LargeBytes(0, count));
}

TEST_CASE("CInternetFile: a connection that breaks in the body is a failure or an end",
          "[internet]")
{
    const bool reset = GENERATE(false, true);
    const HttpServer server([&](HttpExchange& answer) {
        answer.Send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nten bytes.");
        if (reset)
        {
            answer.Reset();
        }
    });
    Exchange exchange(server.Port());
    exchange.Send();
    std::string body;
    const auto code = CodeOf([&] { body = ReadAll(*exchange.file); });
    if (code)
    {
        CHECK(code == kExchangeContext);
    }
    else
    {
        CHECK(body == "ten bytes.");
    }
}

TEST_CASE("CInternetFile: SetReadBufferSize with all bits set or the same size changes nothing",
          "[internet]")
{
    WatchedFile read(L"/body-8193");
    CHECK(read.File().SetReadBufferSize(kAllBits));
    CHECK(read.File().SetReadBufferSize(0));
    CHECK(read.Read(8) == LargeBytes(0, 8));
    CHECK(read.TakeReads() == Reads{{8, 8}}); // still without a buffer
    CHECK(read.File().SetReadBufferSize(16));
    CHECK(read.Read(8) == LargeBytes(8, 8));
    CHECK(read.File().SetReadBufferSize(kAllBits));
    CHECK(read.File().SetReadBufferSize(16));
    CHECK(read.Read(7) == LargeBytes(16, 7));
    CHECK(read.TakeReads() == Reads{{16, 16}}); // still held
}

TEST_CASE("CInternetFile: SetReadBufferSize refuses less than what was read of the buffer",
          "[internet]")
{
    WatchedFile read(L"/body-8193");
    REQUIRE(read.File().SetReadBufferSize(16));
    CHECK_FALSE(read.File().SetReadBufferSize(15)); // a new buffer counts as consumed
    CHECK_FALSE(read.File().SetReadBufferSize(0));
    CHECK(read.Read(10) == LargeBytes(0, 10));
    CHECK_FALSE(read.File().SetReadBufferSize(9));
    CHECK_FALSE(read.File().SetReadBufferSize(0));
    CHECK(read.Read(5) == LargeBytes(10, 5));
    CHECK(read.TakeReads() == Reads{{16, 16}});
}

TEST_CASE("CInternetFile: SetReadBufferSize keeps what is held, also a single byte", "[internet]")
{
    WatchedFile read(L"/body-8193");
    CHECK(read.Read(100) == LargeBytes(0, 100)); // behind it no two places are alike
    read.TakeReads();
    REQUIRE(read.File().SetReadBufferSize(1));
    CHECK(read.Read(0).empty()); // fills the buffer
    REQUIRE(read.TakeReads() == Reads{{1, 1}});
    REQUIRE(read.File().SetReadBufferSize(64));
    CHECK(read.Read(50) == LargeBytes(100, 50));
}

TEST_CASE("CInternetFile: SetReadBufferSize to 0 takes the buffer away with what it holds",
          "[internet]")
{
    WatchedFile read(L"/body-8193");
    REQUIRE(read.File().SetReadBufferSize(16));
    CHECK(read.Read(15) == LargeBytes(0, 15));
    CHECK(read.Read(1) == LargeBytes(15, 1)); // 16 bytes are held, and the position is 0
    CHECK(read.File().SetReadBufferSize(0));
    read.TakeReads();
    CHECK(read.Read(4) == LargeBytes(32, 4));
    CHECK(read.TakeReads() == Reads{{4, 4}});
}

TEST_CASE("CInternetFile: SetReadBufferSize keeps an unread remainder that fits", "[internet]")
{
    const DWORD size = GENERATE(as<DWORD>{}, 10, 12, 15, 17, 100);
    WatchedFile read(L"/body-8193");
    REQUIRE(read.File().SetReadBufferSize(16));
    CHECK(read.Read(10) == LargeBytes(0, 10));
    read.TakeReads();
    CHECK(read.File().SetReadBufferSize(size));
    CHECK(read.Read(5) == LargeBytes(10, 5));
    CHECK(read.TakeReads().empty());
    CHECK(read.Read(9) == LargeBytes(15, 9));
    CHECK(read.TakeReads() == Reads{{size, size}});
}

TEST_CASE("CInternetFile: SetReadBufferSize drops a remainder that is larger than the new buffer",
          "[internet]")
{
    const auto [size, kept] = GENERATE(table<DWORD, bool>({{20, false}, {89, false}, {90, true}}));
    WatchedFile read(L"/body-8193");
    REQUIRE(read.File().SetReadBufferSize(100));
    CHECK(read.Read(10) == LargeBytes(0, 10));
    CHECK(read.File().SetReadBufferSize(size));
    read.TakeReads();
    CHECK(read.Read(5) == LargeBytes(kept ? 10 : 100, 5));
    CHECK(read.TakeReads().size() == (kept ? 0 : 1));
}

TEST_CASE("CInternetFile: SetReadBufferSize on a consumed buffer starts anew", "[internet]")
{
    WatchedFile read(L"/body-8193");
    REQUIRE(read.File().SetReadBufferSize(16));
    CHECK(read.Read(10) == LargeBytes(0, 10));
    CHECK(read.Read(16) == LargeBytes(10, 16)); // past the buffer: it counts as consumed
    CHECK(read.File().SetReadBufferSize(32));
    CHECK_FALSE(read.File().SetReadBufferSize(31));
    read.TakeReads();
    CHECK(read.Read(5) == LargeBytes(26, 5));
    CHECK(read.TakeReads() == Reads{{32, 32}});
}

TEST_CASE("CInternetFile: SetReadBufferSize counts the remainder to the buffer's end, held or not",
          "[internet]")
{
    WatchedFile read(L"/body-1");
    REQUIRE(read.File().SetReadBufferSize(16));
    CHECK(read.Read(10) == "0");
    CHECK(read.File().SetReadBufferSize(20));
    CHECK(read.Read(14) == std::string(14, '\0')); // of 15 bytes that were never filled
    read.TakeReads();
    CHECK(read.Read(1) == std::string(1, '\0'));
    CHECK(read.TakeReads() == Reads{{20, 0}});
    CHECK(read.Read(1).empty());
}

TEST_CASE("CInternetFile: SetReadBufferSize that finds no memory throws std::bad_alloc and changes "
          "nothing",
          "[internet]")
{
    if constexpr (sizeof(void*) == 4) // elsewhere there may be as much
    {
        const DWORD size =
            GENERATE(as<DWORD>{}, 0x7FF0'0000, 0x7FFF'FFFF, 0x8000'0000, kAllBits - 1);
        WatchedFile read(L"/body-8193");
        REQUIRE(read.File().SetReadBufferSize(16));
        CHECK(read.Read(10) == LargeBytes(0, 10));
        CHECK_THROWS_AS(read.File().SetReadBufferSize(size), std::bad_alloc);
        read.TakeReads();
        CHECK(read.Read(5) == LargeBytes(10, 5));
        CHECK(read.TakeReads().empty());
    }
}

TEST_CASE("CInternetFile: SetReadBufferSize works on a closed file", "[internet]")
{
    Exchange exchange(1);
    exchange.file->Close();
    CHECK(exchange.file->SetReadBufferSize(16));
    CHECK(exchange.file->SetReadBufferSize(kAllBits));
    exchange.file->Close();
}

TEST_CASE("CInternetFile: Seek moves to where the system says", "[internet]")
{
    const auto [offset, origin, low] = GENERATE(table<std::int64_t, DWORD, LONG>({
        {0, FILE_BEGIN, 0},
        {100, FILE_CURRENT, 100},
        {-100, FILE_END, -100},
        {std::numeric_limits<LONG>::max(), FILE_BEGIN, std::numeric_limits<LONG>::max()},
        {std::numeric_limits<LONG>::min(), FILE_END, std::numeric_limits<LONG>::min()},
    }));
    const auto [answer, position] = GENERATE(table<DWORD, std::int64_t>({
        {0, 0},
        {77, 77},
        {0x7FFFFFFF, 0x7FFFFFFF},
        {0x80000000, -0x80000000LL}, // sign-extended
        {0xFFFFFFFE, -2},
    }));
    Exchange exchange(1);
    std::vector<DWORD_PTR> seen;
    const SeekPatch patch("wininet.dll", [&, result = answer](HINTERNET handle, LONG distance,
                                                              void* high, DWORD method,
                                                              DWORD_PTR context) {
        seen = {reinterpret_cast<DWORD_PTR>(handle), static_cast<DWORD_PTR>(distance),
                reinterpret_cast<DWORD_PTR>(high), method, context};
        return result;
    });
    CHECK(exchange.file->Seek(offset, origin) == position);
    CHECK(seen == std::vector<DWORD_PTR>{reinterpret_cast<DWORD_PTR>(exchange.file->GetHandle()),
                                         static_cast<DWORD_PTR>(low), 0, origin, kExchangeContext});
}

TEST_CASE("CInternetFile: Seek of another origin or a far offset fails with code 87", "[internet]")
{
    const auto [offset, origin] = GENERATE(table<std::int64_t, DWORD>({
        {0, 3},
        {0, kAllBits},
        {0x80000000LL, FILE_BEGIN},
        {-0x80000001LL, FILE_END},
        {std::numeric_limits<std::int64_t>::max(), FILE_BEGIN},
        {std::numeric_limits<std::int64_t>::min(), FILE_CURRENT},
        {0x100000000LL, FILE_BEGIN},
    }));
    Exchange exchange(1);
    const SeekPatch patch("wininet.dll",
                          [](HINTERNET, LONG, void*, DWORD, DWORD_PTR) -> DWORD { return 0; });
    CHECK(CodeOf([&, at = offset, from = origin] { exchange.file->Seek(at, from); }) ==
          ERROR_INVALID_PARAMETER);
    CHECK(patch.Calls() == 0);
}

TEST_CASE("CInternetFile: Seek that the system refuses carries the file's context", "[internet]")
{
    Exchange exchange(1);
    const SeekPatch patch("wininet.dll", [](HINTERNET, LONG, void*, DWORD, DWORD_PTR) {
        return INVALID_SET_FILE_POINTER;
    });
    CHECK(CodeOf([&] { exchange.file->Seek(0, FILE_BEGIN); }) == kExchangeContext);
}

TEST_CASE("CInternetFile: Seek of a file with a read buffer, or a closed one, fails with code 6",
          "[internet]")
{
    Exchange exchange(1);
    REQUIRE(exchange.file->SetReadBufferSize(16));
    CHECK(exchange.file->GetHandle() != nullptr);
    CHECK(CodeOf([&] { exchange.file->Seek(0, FILE_BEGIN); }) == ERROR_INVALID_HANDLE);
    CHECK(CodeOf([&] { exchange.file->Seek(0, 3); }) == ERROR_INVALID_HANDLE); // comes first
    exchange.file->Close();
    CHECK(CodeOf([&] { exchange.file->Seek(0, FILE_BEGIN); }) == ERROR_INVALID_HANDLE);
}

TEST_CASE("CInternetFile: GetLength is what can be read without waiting", "[internet]")
{
    Exchange exchange(real_servers::HttpPort(), L"/plain.txt");
    exchange.Send();
    CHECK(exchange.file->GetLength() == 11);
    CHECK(ReadAll(*exchange.file) == "plain text\n");
    CHECK(exchange.file->GetLength() == 0);
}

TEST_CASE("CInternetFile: GetLength has 32 bits, and 0 for a failure or a closed file",
          "[internet]")
{
    Exchange exchange(1);
    BOOL succeeds = TRUE;
    const AvailablePatch patch("wininet.dll",
                               [&](HINTERNET, DWORD* count, DWORD flags, DWORD_PTR context) {
                                   *count = 0xFFFFFFF0;
                                   return succeeds && flags == 0 && context == 0 ? TRUE : FALSE;
                               });
    CHECK(exchange.file->GetLength() == 0xFFFFFFF0);
    succeeds = FALSE;
    CHECK(exchange.file->GetLength() == 0);
    exchange.file->Close();
    succeeds = TRUE;
    CHECK(exchange.file->GetLength() == 0);
    CHECK(patch.Calls() == 2);
}

TEST_CASE("CInternetFile: ReadString ends a line at its line feed and skips carriage returns",
          "[internet]")
{
    BodyFile body(Utf16Bytes(L"a\rb\r\r\n"));
    CHECK(ReadLine(body.File(), 100) == Line{false, L"ab\n"});
}

TEST_CASE("CInternetFile: ReadString with room for the terminator only stores it", "[internet]")
{
    BodyFile body(Utf16Bytes(L"ab"));
    CHECK(ReadLine(body.File(), 1) == Line{false, L""});
    CHECK(ReadLine(body.File(), 1) == Line{false, L""});
    CHECK(ReadLine(body.File(), 2) == Line{false, L"a"}); // nothing was consumed

    BodyFile empty("");
    CHECK(ReadLine(empty.File(), 1) == Line{false, L""});
}

TEST_CASE("CInternetFile: ReadString without a place or room fails with code 87", "[internet]")
{
    BodyFile body(Utf16Bytes(L"ab"));
    wchar_t character = L'?';
    CHECK(CodeOf([&] { body.File().ReadString(nullptr, 10); }) == ERROR_INVALID_PARAMETER);
    CHECK(CodeOf([&] { body.File().ReadString(&character, 0); }) == ERROR_INVALID_PARAMETER);
    CHECK(character == L'?');
}

TEST_CASE("CInternetFile: ReadString of nothing is null, with an empty text", "[internet]")
{
    BodyFile body("");
    CHECK(ReadLine(body.File(), 100) == Line{true, L""});
    CHECK(ReadLine(body.File(), 100) == Line{true, L""});
    std::wstring line = L"?";
    CHECK_FALSE(body.File().ReadString(line));
    CHECK(line.empty());
}

TEST_CASE("CInternetFile: ReadString fills a buffer of 4096 bytes in one read", "[internet]")
{
    WatchedFile read(L"/body-8193");
    wchar_t buffer[3];
    CHECK(read.File().ReadString(buffer, 3) == buffer);
    CHECK(read.TakeReads() == Reads{{4096, 4096}});
    CHECK(read.File().SetReadBufferSize(4096));    // the same
    CHECK_FALSE(read.File().SetReadBufferSize(1)); // two characters are behind
    CHECK(read.TakeReads().empty());
}

TEST_CASE("CInternetFile: ReadString goes on one byte further for each character", "[internet]")
{
    // The position counts characters and is taken for bytes: the second call starts at byte 2 and
    // finds 'b' again, the third at byte 4 and finds the line feed.
    BodyFile body(Utf16Bytes(L"ab\n"));
    CHECK(ReadLine(body.File(), 3) == Line{false, L"ab"});
    CHECK(ReadLine(body.File(), 3) == Line{false, L"b\n"});
    CHECK(ReadLine(body.File(), 3) == Line{false, L"\n"});
    // The sixth character: one behind the body, where the buffer holds nothing.
    CHECK(ReadLine(body.File(), 3) == Line{false, std::wstring(1, L'\0')});
    CHECK(ReadLine(body.File(), 3) == Line{true, L""});
}

TEST_CASE("CInternetFile: ReadString does not count carriage returns", "[internet]")
{
    BodyFile body(Utf16Bytes(L"\r\ra\rb\r\rc\r"));
    CHECK(ReadLine(body.File(), 4) == Line{false, L"abc"});
}

TEST_CASE("CInternetFile: ReadString after a line may start in the middle of a character",
          "[internet]")
{
    // Three characters on, the bytes from the third on are 00 0A 00, and 00 behind the body.
    BodyFile body(Utf16Bytes(L"ab\n"));
    CHECK(ReadLine(body.File(), 100) == Line{false, L"ab\n"});
    CHECK(ReadLine(body.File(), 100) == Line{false, std::wstring(L"\x0A00\0\0", 3)});
    CHECK(ReadLine(body.File(), 100) == Line{true, L""});
}

TEST_CASE("CInternetFile: ReadString walks as many characters as there are bytes", "[internet]")
{
    SECTION("bytes make characters in pairs, the other half is what lies behind")
    {
        BodyFile body("hi");
        CHECK(ReadLine(body.File(), 100) == Line{false, std::wstring(L"\x6968\0", 2)});
    }
    SECTION("an odd byte is half a character")
    {
        BodyFile body("h");
        CHECK(ReadLine(body.File(), 100) == Line{false, L"h"});
    }
    SECTION("past the buffer's end there is nothing, and the buffer is filled anew")
    {
        BodyFile body(Utf16Bytes(L"abcd"));
        REQUIRE(body.File().SetReadBufferSize(4));
        const std::wstring expected(L"ab\0\0cd\0\0", 8);
        CHECK(ReadLine(body.File(), 100) == Line{false, expected});
        CHECK(ReadLine(body.File(), 100) == Line{true, L""});
    }
    SECTION("a short refill leaves older bytes behind it")
    {
        BodyFile body(Utf16Bytes(L"abc"));
        REQUIRE(body.File().SetReadBufferSize(4));
        CHECK(ReadLine(body.File(), 100) == Line{false, std::wstring(L"ab\0\0cb", 6)});
    }
    SECTION("a character across the buffer's end is lost")
    {
        BodyFile body(Utf16Bytes(L"ab"));
        REQUIRE(body.File().SetReadBufferSize(3));
        // 61 00 62 | 00: 'a', then half of 'b', then nothing; after the refill 00 00.
        const Line line = ReadLine(body.File(), 100);
        CHECK(line == Line{false, std::wstring(L"a\0\0\0", 4)});
    }
}

TEST_CASE("CInternetFile: ReadString fails with the file's context when a read does", "[internet]")
{
    WatchedFile read(L"/body-8193");
    std::array<wchar_t, 8> buffer{};
    std::wstring line;
    read.fail = true;
    CHECK(CodeOf([&] { read.File().ReadString(buffer.data(), 8); }) == kExchangeContext);
    CHECK(CodeOf([&] { read.File().ReadString(line); }) == kExchangeContext);
    read.fail = false;
    CHECK(read.File().ReadString(buffer.data(), 2) == buffer.data());
    CHECK(buffer[0] == 0x3030); // "00"
}

TEST_CASE("CInternetFile: ReadString into a string takes the line feed off", "[internet]")
{
    const auto [text, expected] = GENERATE(table<std::wstring, std::wstring>({
        {L"line\nnext", L"line"},
        {L"line\r\n", L"line"},
        {L"\n", L""},
        {L"\r\r\n", L""},
        {L"\nx", L""},
        {L"end", L"end"},
    }));
    BodyFile body(Utf16Bytes(text));
    std::wstring line = L"left over";
    CHECK(body.File().ReadString(line));
    CHECK(line == expected);
}

TEST_CASE("CInternetFile: ReadString into a string goes on in chunks of 127 characters",
          "[internet]")
{
    // Each chunk starts one byte further for each character before it: at bytes 127 and 381 the
    // halves of the characters are swapped, and only the swapped line feed ends the last chunk,
    // which is cut there by the nulls behind the body.
    const std::wstring swapped(1, 0x7800);
    std::wstring expected;
    for (const auto& [character, count] : std::vector<std::pair<wchar_t, std::size_t>>{
             {L'x', 127}, {0x7800, 127}, {L'x', 127}, {0x7800, 109}, {0x0A00, 1}})
    {
        expected.append(count, character);
    }
    BodyFile body(Utf16Bytes(std::wstring(300, L'x') + L"\n"));
    std::wstring line;
    CHECK(body.File().ReadString(line));
    CHECK(line == expected);
}

TEST_CASE("CInternetFile: ReadString into a string ends with a chunk at its line feed",
          "[internet]")
{
    SECTION("the last of 127 characters")
    {
        BodyFile body(Utf16Bytes(std::wstring(126, L'x') + L"\n" + L"next"));
        std::wstring line;
        CHECK(body.File().ReadString(line));
        CHECK(line == std::wstring(126, L'x'));
    }
    SECTION("nulls behind the body shorten the chunk")
    {
        // The walk goes through as many characters as there are bytes.
        BodyFile body(std::string(127, 'x'));
        std::wstring line;
        CHECK(body.File().ReadString(line));
        CHECK(line == std::wstring(63, 0x7878) + L'x');
    }
}

TEST_CASE("CInternetFile: ReadString into a string is true when only an earlier chunk had data",
          "[internet]")
{
    // A buffer of 254 bytes serves 127 characters out of 127 bytes; the next chunk finds the end.
    const HttpServer server(HttpAnswer("200 OK", ""));
    Exchange exchange(server.Port());
    exchange.Send();
    REQUIRE(exchange.file->SetReadBufferSize(254));
    int reads = 0;
    const ReadPatch patch("wininet.dll", [&](HINTERNET, void* buffer, DWORD, DWORD* read) {
        std::memset(buffer, 'x', 254);
        *read = reads++ == 0 ? 127 : 0;
        return TRUE;
    });
    std::wstring line;
    CHECK(exchange.file->ReadString(line));
    CHECK(line == std::wstring(127, 0x7878));
    CHECK_FALSE(exchange.file->ReadString(line));
    CHECK(line.empty());
}

TEST_CASE("CInternetFile: in read mode writing fails with code 6", "[internet]")
{
    Exchange exchange(1);
    CHECK(CodeOf([&] { exchange.file->Write("x", 1); }) == ERROR_INVALID_HANDLE);
    CHECK(CodeOf([&] { exchange.file->WriteString(L"x"); }) == ERROR_INVALID_HANDLE);
    exchange.file->Flush(); // nothing to write
}

TEST_CASE("CInternetFile: Close twice closes once, and the destructor no more", "[internet]")
{
    const CloseHandlePatch patch("wininet.dll", &CloseHandlePatch::Original);
    {
        Exchange exchange(1);
        exchange.file->SetReadBufferSize(16);
        exchange.file->Close();
        CHECK(exchange.file->GetHandle() == nullptr);
        exchange.file->Close();
        exchange.file->Abort();
        exchange.file.reset();
        CHECK(patch.Calls() == 1);
        exchange.file = exchange.connection->OpenRequest(L"GET", L"/", L"", 1, nullptr, nullptr, 0);
        exchange.file.reset();
        CHECK(patch.Calls() == 2);
    }
    CHECK(OpenHandles() == 0);
}

TEST_CASE("CInternetFile: a closed file cannot be read", "[internet]")
{
    WatchedFile read(L"/body-8193");
    REQUIRE(read.File().SetReadBufferSize(16));
    CHECK(read.Read(4) == LargeBytes(0, 4));
    read.File().Close();
    CHECK(CodeOf([&] { read.Read(4); }) == ERROR_INVALID_HANDLE); // though some were held
    std::wstring line;
    CHECK(CodeOf([&] { read.File().ReadString(line); }) == ERROR_INVALID_HANDLE);
}

TEST_CASE("CInternetFile: Close gives its read buffer back", "[internet]")
{
    constexpr DWORD kBytes = 64 * 1024 * 1024;
    const bool endsBefore = GENERATE(false, true);
    Exchange exchange(1);
    const std::size_t before = CurrentUsage().privateBytes;
    REQUIRE(exchange.file->SetReadBufferSize(kBytes));
    REQUIRE(CurrentUsage().privateBytes >= before + kBytes);
    if (endsBefore)
    {
        exchange.session.Close(); // and the file with it
    }
    exchange.file->Close();
    CHECK(CurrentUsage().privateBytes < before + kBytes);

    // The position starts anew as well: no part of a new buffer counts as read.
    CHECK(exchange.file->SetReadBufferSize(1));
}

TEST_CASE("CInternetFile: Abort closes and forgets the name", "[internet]")
{
    Exchange exchange(1, L"/object");
    CHECK(exchange.file->GetFileName() == L"/object");
    exchange.file->Abort();
    CHECK(exchange.file->GetHandle() == nullptr);
    CHECK(exchange.file->GetFileName().empty());
    CHECK(exchange.file->GetServerName() == L"127.0.0.1");
    CHECK(OpenHandles() == 2);
    exchange.file->Abort();
}

TEST_CASE("CInternetFile: its operations stand in the slots that they always had", "[internet]")
{
    CHECK(VirtualSlot(&CInternetFile::Seek) == 0);
    CHECK(VirtualSlot(&CInternetFile::Read) == 1);
    CHECK(VirtualSlot(&CInternetFile::Write) == 2);
    CHECK(VirtualSlot(&CInternetFile::Abort) == 3);
    CHECK(VirtualSlot(&CInternetFile::Flush) == 4);
    CHECK(VirtualSlot(&CInternetFile::Close) == 5);
    CHECK(VirtualSlot(&CInternetFile::GetLength) == 6);
    using IntoArray = wchar_t* (CInternetFile::*)(wchar_t*, DWORD);
    using IntoString = bool (CInternetFile::*)(std::wstring&);
    CHECK(VirtualSlot(static_cast<IntoArray>(&CInternetFile::ReadString)) == 7);
    CHECK(VirtualSlot(static_cast<IntoString>(&CInternetFile::ReadString)) == 8);
    CHECK(VirtualSlot(&CInternetFile::WriteString) == 9);
    CHECK(VirtualSlot(&DerivedInternetFile::Next) == 12); // behind the destructor's two
}
