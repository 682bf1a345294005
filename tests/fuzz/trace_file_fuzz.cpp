// Opens any bytes as a saved trace, in parts of any sizes: the parts make no difference, and what
// was read is read again when it has been saved.

#include "tests/fuzz/require.h"
#include "tests/support/kept_record.h"
#include "tests/support/well_formed_utf8.h"
#include "tools/trace/trace_export.h"
#include "tools/trace/trace_file_reader.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

using velt::test::KeptRecord;
using velt::test::Require;

namespace
{
velt::TraceEntry EntryOf(const KeptRecord& record)
{
    velt::TraceEntry entry;
    entry.arrivalUs = record.arrivalUs;
    entry.level = record.level;
    entry.fault =
        record.malformed ? velt::TraceRecordFault::wrongMagic : velt::TraceRecordFault::none;
    entry.source = record.source;
    entry.text = record.text;
    return entry;
}

struct Contents
{
    std::vector<KeptRecord> records;
    std::uint64_t unread = 0;
    std::string note;

    bool operator==(const Contents&) const = default;
};

/// Reads a file in parts, whose sizes `next` says; 0 for all the rest.
template <class Next>
Contents ReadFile(std::string_view file, Next next)
{
    Contents contents;
    velt::TraceFileReader reader(velt::test::KeepIn(contents.records));
    while (!file.empty())
    {
        const std::size_t size = next();
        const std::string_view part = file.substr(0, size == 0 ? file.size() : size);
        reader.Read(part);
        file.remove_prefix(part.size());
    }
    reader.Finish();
    Require(reader.Records() == contents.records.size(), "records are counted");
    contents.unread = reader.Unread();
    contents.note = reader.Note("f");
    Require(contents.note.empty() == (contents.unread == 0), "what was not read is said");
    return contents;
}

void CheckSaved(const std::vector<KeptRecord>& records)
{
    std::string csv(velt::kCsvHeading);
    for (const KeptRecord& record : records)
    {
        Require(velt::test::IsWellFormedUtf8(record.process));
        Require(velt::test::IsWellFormedUtf8(record.source));
        Require(velt::test::IsWellFormedUtf8(record.text));
        velt::AppendCsvLine(csv, EntryOf(record), record.process);
    }
    const Contents again = ReadFile(csv, [] { return std::size_t{0}; });
    Require(again.unread == 0, "what was saved can be read");
    Require(again.records == records, "and is what it was");

    std::string lines;
    for (const KeptRecord& record : records)
    {
        velt::AppendTextLine(lines, EntryOf(record), "host.exe (12)");
    }
    const Contents plain = ReadFile(lines, [] { return std::size_t{0}; });
    Require(plain.unread == 0 && plain.records.size() == records.size(), "a line for each");
    for (std::size_t i = 0; i < records.size(); ++i)
    {
        Require(plain.records[i].arrivalUs == records[i].arrivalUs);
        Require(plain.records[i].malformed == records[i].malformed);
        Require(records[i].malformed || plain.records[i].level == records[i].level);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    std::vector<std::size_t> sizes;
    for (int i = input.ConsumeIntegralInRange(0, 15); i > 0; --i)
    {
        sizes.push_back(input.ConsumeIntegralInRange<std::size_t>(1, 40));
    }
    const std::string file = input.ConsumeRemainingBytesAsString();
    const Contents whole = ReadFile(file, [] { return std::size_t{0}; });
    std::size_t at = 0;
    const Contents parts =
        ReadFile(file, [&] { return sizes.empty() ? std::size_t{1} : sizes[at++ % sizes.size()]; });
    Require(whole == parts, "parts make no difference");
    CheckSaved(whole.records);
    return 0;
}
