#include "tools/trace/trace_export.h"

#include <catch.hpp>

#include <array>

using namespace velt;

namespace
{
constexpr std::int64_t kSecond = 1'000'000;
constexpr std::int64_t kDay = 86'400 * kSecond;

TraceEntry ExportedEntry(std::string_view text, std::string_view source = "")
{
    TraceEntry entry;
    entry.level = 3;
    entry.source = source;
    entry.text = text;
    return entry;
}

std::string Csv(std::string_view text)
{
    std::string line;
    AppendCsvLine(line, ExportedEntry(text), "host.exe (12)");
    return line;
}
} // namespace

TEST_CASE("FormatArrival: date and time to the microsecond", "[tools]")
{
    CHECK(FormatArrival(0) == "1601-01-01 00:00:00.000000");
    CHECK(FormatArrival(kDay - 1) == "1601-01-01 23:59:59.999999");
    CHECK(FormatArrival(11'644'473'600 * kSecond) == "1970-01-01 00:00:00.000000");
    // 29 February 2024, 12:34:56.000789, counted by another program.
    CHECK(FormatArrival((11'644'473'600 + 1'709'210'096) * kSecond + 789) ==
          "2024-02-29 12:34:56.000789");
}

TEST_CASE("FormatDuration: a unit that can be read", "[tools]")
{
    CHECK(FormatDuration(0) == "0 us");
    CHECK(FormatDuration(999) == "999 us");
    CHECK(FormatDuration(1000) == "1.000 ms");
    CHECK(FormatDuration(999'999) == "999.999 ms");
    CHECK(FormatDuration(1'000'000) == "1.000000 s");
    CHECK(FormatDuration(2 * kDay + 17) == "172800.000017 s");
}

TEST_CASE("FormatCount: commas between thousands", "[tools]")
{
    CHECK(FormatCount(0) == "0");
    CHECK(FormatCount(999) == "999");
    CHECK(FormatCount(1000) == "1,000");
    CHECK(FormatCount(1'000'000) == "1,000,000");
    CHECK(FormatCount(UINT64_MAX) == "18,446,744,073,709,551,615");
}

TEST_CASE("DescribeMalformed: fault, size and the first sixteen bytes", "[tools]")
{
    std::array<std::byte, 20> bytes{};
    bytes[1] = std::byte{0xFF};
    CHECK(DescribeMalformed(TraceRecordFault::tooShort, 0, {}) ==
          "malformed record (too short), 0 bytes");
    CHECK(DescribeMalformed(TraceRecordFault::tooShort, 1, {bytes.data(), 1}) ==
          "malformed record (too short), 1 byte: 00");
    CHECK(DescribeMalformed(TraceRecordFault::wrongMagic, 16, {bytes.data(), 16}) ==
          "malformed record (wrong magic), 16 bytes: "
          "00 FF 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    CHECK(DescribeMalformed(TraceRecordFault::wrongTotal, 5000, bytes) ==
          "malformed record (wrong total), 5000 bytes: "
          "00 FF 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ...");
    CHECK_THAT(DescribeMalformed(TraceRecordFault::sourceWithoutEnd, 90, bytes),
               Catch::Contains("(source without end)"));
    CHECK_THAT(DescribeMalformed(TraceRecordFault::textWithoutEnd, 90, bytes),
               Catch::Contains("(text without end)"));
}

TEST_CASE("WithoutControls: nothing breaks the line or reaches the terminal", "[tools]")
{
    CHECK(WithoutControls("  a\tb\r\nc\x1B[31m\x7F") == "  a\\tb\\r\\nc\\x1B[31m\\x7F");
    CHECK(WithoutControls("gr\xC3\xBC\xC3\x9F") == "gr\xC3\xBC\xC3\x9F");
}

TEST_CASE("AppendTextLine: the fields, and the source where there is one", "[tools]")
{
    std::string line = "before|";
    AppendTextLine(line, ExportedEntry("  CName::Add - enter"), "host.exe (12)");
    CHECK(line == "before|1601-01-01 00:00:00.000000  3  host.exe (12)    CName::Add - enter\r\n");
    line.clear();
    AppendTextLine(line, ExportedEntry("a\nb", "module"), "?");
    CHECK(line == "1601-01-01 00:00:00.000000  3  ?  module: a\\nb\r\n");
    line.clear();
    TraceEntry malformed = ExportedEntry("malformed record");
    malformed.fault = TraceRecordFault::tooShort;
    AppendTextLine(line, malformed, "?");
    CHECK(line == "1601-01-01 00:00:00.000000  !  ?  malformed record\r\n");
}

TEST_CASE("AppendCsvLine: quotation marks only where they are needed", "[tools]")
{
    const std::string front = "1601-01-01 00:00:00.000000,host.exe (12),3,,";
    CHECK(Csv("CName::Add - enter") == front + "CName::Add - enter\r\n");
    CHECK(Csv("") == front + "\r\n");
    CHECK(Csv("a,b") == front + "\"a,b\"\r\n");
    CHECK(Csv("say \"hi\"") == front + "\"say \"\"hi\"\"\"\r\n");
    CHECK(Csv("a\r\nb") == front + "\"a\r\nb\"\r\n");
}

TEST_CASE("AppendCsvLine: no text becomes a formula", "[tools]")
{
    const std::string front = "1601-01-01 00:00:00.000000,host.exe (12),3,,";
    CHECK(Csv("=1+1") == front + "\"'=1+1\"\r\n");
    CHECK(Csv("  @SUM(A1)") == front + "\"'  @SUM(A1)\"\r\n");
    CHECK(Csv("-x") == front + "\"'-x\"\r\n");
    CHECK(Csv("+x") == front + "\"'+x\"\r\n");
    CHECK(Csv("a=b") == front + "a=b\r\n");
    CHECK(Csv("' a") == front + "' a\r\n");
    CHECK(Csv("''=1") == front + "\"'''=1\"\r\n"); // two are its own
}

TEST_CASE("kCsvHeading: a UTF-8 mark and one name a field", "[tools]")
{
    CHECK(kCsvHeading == "\xEF\xBB\xBFtime,process,level,source,text\r\n");
}

TEST_CASE("EndsInCsv: by the end of the name, in any case", "[tools]")
{
    CHECK(EndsInCsv("C:\\folder\\trace.csv"));
    CHECK(EndsInCsv("trace.CSV"));
    CHECK_FALSE(EndsInCsv("trace.csv.txt"));
    CHECK_FALSE(EndsInCsv("tracecsv"));
    CHECK_FALSE(EndsInCsv(".csv"));
    CHECK_FALSE(EndsInCsv(""));
}
