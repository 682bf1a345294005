#include "foundation/trace_record.h"

#include <catch.hpp>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

using velt::DecodeTraceRecord;
using velt::EncodeTraceRecord;
using velt::TraceRecord;
using velt::TraceRecordFault;

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

/// An encoded record as it arrives: its bytes, which a test may spoil.
std::vector<std::byte> Sent(std::string_view source, std::string_view text)
{
    const TraceRecord record = EncodeTraceRecord(3, 7, source, text);
    return {record.bytes.begin(), record.bytes.begin() + static_cast<std::ptrdiff_t>(record.size)};
}

/// Stores a number at the front, where the total stands.
void SetTotal(std::vector<std::byte>& bytes, std::size_t total)
{
    bytes[0] = static_cast<std::byte>(total & 0xFF);
    bytes[1] = static_cast<std::byte>(total >> 8 & 0xFF);
}

TraceRecordFault FaultOf(const std::vector<std::byte>& bytes)
{
    return DecodeTraceRecord(bytes).fault;
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

TEST_CASE("DecodeTraceRecord: it gives back what was encoded", "[foundation]")
{
    const auto [source, text] =
        GENERATE(table<std::string, std::string>({{"", ""},
                                                  {"module", "  CName::Method - enter"},
                                                  {std::string(63, 's'), "t"},
                                                  {"m", std::string(1023, 't')},
                                                  {"\xC3\xA4", "\xFF\x01"}}));
    const std::vector<std::byte> bytes = Sent(source, text);
    const velt::DecodedTraceRecord record = DecodeTraceRecord(bytes);
    CHECK(record.fault == TraceRecordFault::none);
    CHECK(record.level == 3);
    CHECK(record.category == 7);
    CHECK(record.source == source);
    CHECK(record.text == text);
}

TEST_CASE("DecodeTraceRecord: a level below zero comes back", "[foundation]")
{
    const TraceRecord record = EncodeTraceRecord(-2, 0xFFFFFFFF, "", "");
    const auto decoded = DecodeTraceRecord({record.bytes.data(), record.size});
    CHECK(decoded.level == -2);
    CHECK(decoded.category == 0xFFFFFFFF);
}

TEST_CASE("DecodeTraceRecord: fewer than 82 bytes are too short", "[foundation]")
{
    std::vector<std::byte> bytes = Sent("", "");
    REQUIRE(FaultOf(bytes) == TraceRecordFault::none);
    while (!bytes.empty())
    {
        bytes.pop_back();
        CHECK(FaultOf(bytes) == TraceRecordFault::tooShort);
    }
}

TEST_CASE("DecodeTraceRecord: each byte of the magic counts", "[foundation]")
{
    const std::size_t at = GENERATE(4u, 5u, 6u, 7u);
    std::vector<std::byte> bytes = Sent("m", "text");
    bytes[at] ^= std::byte{1};
    CHECK(FaultOf(bytes) == TraceRecordFault::wrongMagic);
}

TEST_CASE("DecodeTraceRecord: the total is the number of bytes", "[foundation]")
{
    std::vector<std::byte> bytes = Sent("m", "text");
    SetTotal(bytes, bytes.size() + 1);
    CHECK(FaultOf(bytes) == TraceRecordFault::wrongTotal);
    SetTotal(bytes, bytes.size() - 1);
    CHECK(FaultOf(bytes) == TraceRecordFault::wrongTotal);
    SetTotal(bytes, bytes.size());
    bytes[3] = std::byte{1};
    CHECK(FaultOf(bytes) == TraceRecordFault::wrongTotal);
}

TEST_CASE("DecodeTraceRecord: a text that ends before its record makes the total wrong",
          "[foundation]")
{
    std::vector<std::byte> bytes = Sent("m", "text");
    bytes[82] = std::byte{0};
    const velt::DecodedTraceRecord record = DecodeTraceRecord(bytes);
    CHECK(record.fault == TraceRecordFault::wrongTotal);
    CHECK(record.level == 0);
    CHECK(record.text.empty());
    CHECK(record.source.empty());
}

TEST_CASE("DecodeTraceRecord: a text past 1023 characters makes the total wrong", "[foundation]")
{
    std::vector<std::byte> bytes = Sent("m", std::string(1023, 't'));
    bytes.back() = std::byte{'t'};
    bytes.push_back(std::byte{0});
    SetTotal(bytes, bytes.size());
    CHECK(FaultOf(bytes) == TraceRecordFault::wrongTotal);
}

TEST_CASE("DecodeTraceRecord: source and text need their zero", "[foundation]")
{
    std::vector<std::byte> bytes = Sent("m", "text");
    bytes.back() = std::byte{'!'};
    CHECK(FaultOf(bytes) == TraceRecordFault::textWithoutEnd);

    bytes = Sent(std::string(63, 's'), "text");
    bytes[80] = std::byte{'s'};
    CHECK(FaultOf(bytes) == TraceRecordFault::sourceWithoutEnd);
}
