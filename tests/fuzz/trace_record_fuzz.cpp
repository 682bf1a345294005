// Feeds the decoder of trace records with any bytes: what it takes is within its lengths and comes
// back when it is encoded again.

#include "foundation/trace_record.h"
#include "tests/fuzz/require.h"

#include <algorithm>
#include <vector>

using velt::test::Require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // A block of exactly this size, so that a read past its end is seen.
    std::vector<std::byte> bytes(size);
    std::transform(data, data + size, bytes.begin(), [](std::uint8_t b) { return std::byte{b}; });

    const velt::DecodedTraceRecord record = velt::DecodeTraceRecord(bytes);
    if (record.fault != velt::TraceRecordFault::none)
    {
        Require(record.source.empty() && record.text.empty(), "a faulty record is empty");
        return 0;
    }
    Require(record.source.size() <= velt::kTraceSourceMax, "length of the source");
    Require(record.text.size() <= velt::kTraceTextMax, "length of the text");
    const velt::TraceRecord again =
        velt::EncodeTraceRecord(record.level, record.category, record.source, record.text);
    Require(again.size == size, "the same size");
    // The reserved byte, and what follows the source's zero, is nobody's.
    const std::size_t sourceEnd = 17 + record.source.size();
    Require(std::equal(bytes.begin(), bytes.begin() + 16, again.bytes.begin()), "the same numbers");
    Require(std::equal(bytes.begin() + 17, bytes.begin() + static_cast<std::ptrdiff_t>(sourceEnd),
                       again.bytes.begin() + 17),
            "the same source");
    Require(std::equal(bytes.begin() + 81, bytes.end(), again.bytes.begin() + 81), "the same text");
    return 0;
}
