#include "foundation/trace_record.h"

#include <catch.hpp>

#include <algorithm>
#include <cstdint>
#include <string>

using velt::EncodeTraceRecord;
using velt::TraceRecord;

namespace
{
/// A part of a record as text, so that a failed check can be read.
std::string Bytes(const TraceRecord& record, std::size_t offset, std::size_t size)
{
    std::string part(size, '\0');
    std::transform(record.bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                   record.bytes.begin() + static_cast<std::ptrdiff_t>(offset + size), part.begin(),
                   [](std::byte byte) { return static_cast<char>(byte); });
    return part;
}
} // namespace

TEST_CASE("EncodeTraceRecord: each field stands at its offset", "[foundation]")
{
    using namespace std::string_literals;
    const TraceRecord record = EncodeTraceRecord(0x04030201, 0x0D0C0B0A, "module", "a text");
    CHECK(record.size == 82 + 6);
    CHECK(Bytes(record, 0, 4) == "\x58\0\0\0"s);
    CHECK(Bytes(record, 4, 4) == "21TU");
    CHECK(Bytes(record, 8, 4) == "\x01\x02\x03\x04");
    CHECK(Bytes(record, 12, 4) == "\x0A\x0B\x0C\x0D");
    CHECK(Bytes(record, 16, 1) == "\0"s);
    CHECK(Bytes(record, 17, 64) == "module" + std::string(58, '\0'));
    CHECK(Bytes(record, 81, 7) == "a text\0"s);
}

TEST_CASE("EncodeTraceRecord: a level below zero keeps its bits", "[foundation]")
{
    CHECK(Bytes(EncodeTraceRecord(-2, 0, "", ""), 8, 4) == "\xFE\xFF\xFF\xFF");
}

TEST_CASE("EncodeTraceRecord: an empty text makes the shortest record", "[foundation]")
{
    using namespace std::string_literals;
    const TraceRecord record = EncodeTraceRecord(1, 0, "", "");
    CHECK(record.size == 82);
    CHECK(Bytes(record, 0, 4) == "\x52\0\0\0"s);
    CHECK(Bytes(record, 16, 66) == std::string(66, '\0'));
}

TEST_CASE("EncodeTraceRecord: a source is cut to 63 characters and ends in zero", "[foundation]")
{
    const std::size_t length = GENERATE(62u, 63u, 64u, 5000u);
    const std::string source(length, 's');
    const TraceRecord record = EncodeTraceRecord(1, 0, source, "text");
    const std::string kept(std::min<std::size_t>(length, 63), 's');
    CHECK(Bytes(record, 17, 64) == kept + std::string(64 - kept.size(), '\0'));
    CHECK(Bytes(record, 81, 5) == std::string("text\0", 5));
    CHECK(record.size == 82 + 4);
}

TEST_CASE("EncodeTraceRecord: a text is cut to 1023 characters and ends in zero", "[foundation]")
{
    const std::size_t length = GENERATE(1022u, 1023u, 1024u, 100'000u);
    const TraceRecord record = EncodeTraceRecord(1, 0, "s", std::string(length, 't'));
    const std::size_t kept = std::min<std::size_t>(length, 1023);
    CHECK(record.size == 82 + kept);
    CHECK(Bytes(record, 81, kept + 1) == std::string(kept, 't') + std::string(1, '\0'));
    CHECK(Bytes(record, 81 + kept, record.bytes.size() - 81 - kept) ==
          std::string(record.bytes.size() - 81 - kept, '\0'));
}

TEST_CASE("EncodeTraceRecord: source and text end at their first NUL", "[foundation]")
{
    using namespace std::string_literals;
    const TraceRecord record = EncodeTraceRecord(1, 0, "so\0urce"s, "te\0xt"s);
    CHECK(record.size == 82 + 2);
    CHECK(Bytes(record, 17, 64) == "so" + std::string(62, '\0'));
    CHECK(Bytes(record, 81, 6) == "te\0\0\0\0"s);
}

TEST_CASE("EncodeTraceRecord: the numbers that viewers know are what they always were",
          "[foundation]")
{
    CHECK(velt::kTraceMagic == 0x55543132);
    CHECK(velt::kTraceSourceMax == 63);
    CHECK(velt::kTraceTextMax == 1023);
    CHECK(std::tuple_size_v<decltype(TraceRecord::bytes)> == 1108);
    CHECK(std::wstring(velt::kTraceViewerClass) == L"Pembrook Corporation::Trace::1.0");
}
