#include "tools/trace/trace_file_reader.h"

#include "tests/support/kept_record.h"
#include "tools/trace/trace_export.h"

#include <catch.hpp>

#include <string>
#include <vector>

using namespace velt;

namespace
{
struct Outcome
{
    std::vector<velt::test::KeptRecord> records;
    std::uint64_t unread = 0;
    std::string note;
};

Outcome ReadIn(std::string_view bytes, std::size_t step)
{
    Outcome outcome;
    TraceFileReader reader(velt::test::KeepIn(outcome.records));
    for (std::size_t at = 0; at < bytes.size(); at += step)
    {
        reader.Read(bytes.substr(at, step));
    }
    reader.Finish();
    outcome.unread = reader.Unread();
    outcome.note = reader.Note("x.txt");
    CHECK(reader.Records() == outcome.records.size());
    return outcome;
}

TraceEntry Entry(std::int32_t level, std::string_view source, std::string_view text)
{
    TraceEntry entry;
    entry.arrivalUs = 13'353'683'696'000'789;
    entry.level = level;
    entry.source = source;
    entry.text = text;
    return entry;
}

constexpr std::string_view kStart = "2024-02-29 12:34:56.000789";
} // namespace

TEST_CASE("ParseArrival: the reverse of FormatArrival, and nothing else", "[tools]")
{
    for (const std::int64_t us :
         {std::int64_t{0}, std::int64_t{86'399'999'999}, std::int64_t{13'353'683'696'000'789}})
    {
        CHECK(ParseArrival(FormatArrival(us)) == us);
    }
    const std::string text = GENERATE(
        as<std::string>(), "", "2024-02-29", "2024-02-30 12:34:56.000789",
        "2024-02-29 24:00:00.000000", "2024-02-29 12:60:00.000000", "2024-02-29 12:00:60.000000",
        "2024-02-29T12:34:56.000789", "1600-12-31 00:00:00.000000", "2024-13-01 00:00:00.000000",
        "2024-02-29 12:34:56.00078x", "2024-02-29 12:34:56.0007890");
    CHECK_FALSE(ParseArrival(text));
}

TEST_CASE("TraceFileReader: it reads what was saved, however the bytes come", "[tools]")
{
    const bool csv = GENERATE(false, true);
    const std::size_t step = GENERATE(1u, 7u, 100'000u);
    std::vector<TraceEntry> entries{
        Entry(4, "", "CName::Add - enter"),
        Entry(1, "", "  failed: 0x80070057"),
        Entry(3, "module", "  indented, with a comma"),
        Entry(-7, "", "=SUM(A1)"),
        Entry(3, "", "'=SUM(A1)"),
        Entry(3, "", "' - '"),
        Entry(3, "m", "\"quoted\" 'text' gr\xC3\xBC\xC3\x9F"),
        Entry(3, "", "a  b: c"),
        Entry(4, "", ""),
    };
    entries.push_back(Entry(0, "", "malformed record (too short), 0 bytes"));
    entries.back().fault = TraceRecordFault::tooShort;
    std::string file(csv ? kCsvHeading : "");
    for (const TraceEntry& entry : entries)
    {
        (csv ? AppendCsvLine : AppendTextLine)(file, entry, "host.exe (12)");
    }
    const Outcome outcome = ReadIn(file, step);
    CHECK(outcome.unread == 0);
    CHECK(outcome.note.empty());
    REQUIRE(outcome.records.size() == entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i)
    {
        CHECK(outcome.records[i] ==
              velt::test::KeptRecord{entries[i].arrivalUs, entries[i].level,
                                     entries[i].fault != TraceRecordFault::none, "host.exe (12)",
                                     std::string(entries[i].source), std::string(entries[i].text)});
    }
}

TEST_CASE("TraceFileReader: a line break within a CSV field stays in it", "[tools]")
{
    std::string file(kCsvHeading);
    AppendCsvLine(file, Entry(3, "", "a\r\nb\nc"), "?");
    AppendCsvLine(file, Entry(3, "", "after"), "?");
    const Outcome outcome = ReadIn(file, 3);
    REQUIRE(outcome.records.size() == 2);
    CHECK(outcome.records[0].text == "a\r\nb\nc");
    CHECK(outcome.records[1].text == "after");
}

TEST_CASE("TraceFileReader: lines that are no records are counted and named", "[tools]")
{
    const std::string good = std::string(kStart) + "  4  ?  text\n";
    CHECK(ReadIn(good + "\n\r\n" + good, 10).unread == 0);
    const Outcome one = ReadIn(good + "something else\n" + good, 10);
    CHECK(one.records.size() == 2);
    CHECK(one.note == "1 line of x.txt could not be read: 2");
    const Outcome all = ReadIn("a\nb\nc\nd\ne\nf\n" + good, 4);
    CHECK(all.records.size() == 1);
    CHECK(all.note == "6 lines of x.txt could not be read: 1, 2, 3, 4, 5, ...");

    const std::string line = GENERATE_COPY(
        as<std::string>(), std::string(kStart), std::string(kStart) + "  4",
        std::string(kStart) + "  4  ?", std::string(kStart) + "  x  ?  text",
        std::string(kStart) + "    ?  text", "2024-99-29 12:34:56.000789  4  ?  text");
    CHECK(ReadIn(line, 9).unread == 1);
}

TEST_CASE("TraceFileReader: CSV that is damaged is counted, not guessed", "[tools]")
{
    const std::string heading(kCsvHeading);
    const std::string start(kStart);
    const std::string line = GENERATE_COPY(
        as<std::string>(), start, start + ",?,4", start + ",?,4,", start + ",?,4,,a,b",
        start + ",?,4,,a\"b\"", start + ",?,4,,\"a\"b", ",?,4,,a", start + ",?,,,a");
    const Outcome outcome = ReadIn(heading + line + "\r\n" + start + ",?,4,,good\r\n", 5);
    CHECK(outcome.unread == 1);
    REQUIRE(outcome.records.size() == 1);
    CHECK(outcome.records[0].text == "good");
}

TEST_CASE("TraceFileReader: a quotation mark that stays open takes one line only", "[tools]")
{
    const std::string start(kStart);
    const std::string cut = GENERATE_COPY(as<std::string>(), start + ",?,4,,\"cut", "\"cut");
    const std::string between = GENERATE("\r\n", "\n\n");
    const Outcome outcome =
        ReadIn(std::string(kCsvHeading) + cut + between + start + ",?,4,,good\r\n", 8);
    CHECK(outcome.unread == 1);
    REQUIRE(outcome.records.size() == 1);
    CHECK(outcome.records[0].text == "good");
    CHECK(outcome.note == "1 line of x.txt could not be read: 2");
}

TEST_CASE("TraceFileReader: files without lines, or of other kinds, do no harm", "[tools]")
{
    CHECK(ReadIn("", 1).unread == 0);
    CHECK(ReadIn("\xEF\xBB\xBF", 1).unread == 0);
    CHECK(ReadIn(std::string(kCsvHeading), 2).unread == 0);
    CHECK(ReadIn(std::string(kCsvHeading).substr(3), 2).unread == 0); // as another program saves it
    CHECK(ReadIn(std::string(2'000'000, 'x'), 65'536).unread == 1);
    const Outcome mixed =
        ReadIn(std::string(2'000'000, '\0') + "\n" + std::string(kStart) + "  4  ?  text", 65'536);
    CHECK(mixed.unread == 1);
    CHECK(mixed.records.size() == 1);
    const Outcome latin = ReadIn(std::string(kStart) + "  4  ?  gr\xFC\xDF", 1);
    REQUIRE(latin.records.size() == 1);
    CHECK(latin.records[0].text == "gr\xEF\xBF\xBD\xEF\xBF\xBD");
}
