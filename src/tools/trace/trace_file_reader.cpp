#include "tools/trace/trace_file_reader.h"

#include "foundation/utf.h"
#include "tools/trace/trace_export.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <system_error>
#include <utility>

namespace velt
{
namespace
{
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kFieldGap = "  ";
constexpr std::size_t kLongestLine = std::size_t{512} << 10; // twice what a record can hold
constexpr std::size_t kSourceMost = 63;
constexpr std::size_t kLinesNamed = 5;

/// Digits alone.
std::optional<int> NumberFrom(std::string_view text) noexcept
{
    int number = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, number);
    return error == std::errc() && end == last && text.front() != '-' ? std::optional(number)
                                                                      : std::nullopt;
}

/// Takes the text up to the next gap between fields; none without such a gap.
std::optional<std::string_view> TakeField(std::string_view& line) noexcept
{
    const std::size_t end = line.find(kFieldGap);
    if (end == std::string_view::npos)
    {
        return std::nullopt;
    }
    const std::string_view field = line.substr(0, end);
    line.remove_prefix(end + kFieldGap.size());
    return field;
}

/// Takes a CSV field and the comma behind it, if there is one; false for one that is not whole.
bool TakeCsvField(std::string_view& line, std::string& field)
{
    field.clear();
    if (!line.starts_with('"'))
    {
        const std::size_t end = std::min(line.find(','), line.size());
        field = line.substr(0, end);
        line.remove_prefix(std::min(end + 1, line.size()));
        return field.find('"') == std::string::npos;
    }
    for (std::size_t at = 1; at < line.size(); ++at)
    {
        if (line[at] != '"')
        {
            field += line[at];
        }
        else if (at + 1 < line.size() && line[at + 1] == '"')
        {
            field += '"';
            ++at;
        }
        else
        {
            line.remove_prefix(at + 1);
            const bool ends = line.empty() || line.front() == ',';
            line.remove_prefix(line.empty() ? 0 : 1);
            return ends;
        }
    }
    return false;
}

/// Without the apostrophe that keeps a spreadsheet from taking the text for a formula.
std::string_view WithoutGuard(std::string_view field) noexcept
{
    return field.starts_with('\'') && NeedsGuard(field.substr(1)) ? field.substr(1) : field;
}
} // namespace

std::optional<std::int64_t> ParseArrival(std::string_view text) noexcept
{
    using namespace std::chrono;
    constexpr std::string_view kForm = "0000-00-00 00:00:00.000000";
    if (text.size() != kForm.size())
    {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < kForm.size(); ++i)
    {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (kForm[i] == '0' ? !digit : text[i] != kForm[i])
        {
            return std::nullopt;
        }
    }
    const auto number = [&](std::size_t at, std::size_t size) {
        return NumberFrom(text.substr(at, size)).value_or(0);
    };
    const year_month_day date(year(number(0, 4)), month(static_cast<unsigned>(number(5, 2))),
                              day(static_cast<unsigned>(number(8, 2))));
    const int hours = number(11, 2);
    const int minutes = number(14, 2);
    const int seconds = number(17, 2);
    constexpr sys_days kOrigin = year{1601} / January / 1;
    if (!date.ok() || sys_days(date) < kOrigin || hours > 23 || minutes > 59 || seconds > 59)
    {
        return std::nullopt;
    }
    const std::int64_t days = (sys_days(date) - kOrigin).count();
    return (((days * 24 + hours) * 60 + minutes) * 60 + seconds) * 1'000'000 + number(20, 6);
}

void TraceFileReader::Read(std::string_view bytes)
{
    m_rest += bytes;
    ReadPart(false);
}

void TraceFileReader::Finish()
{
    ReadPart(true);
}

std::string TraceFileReader::Note(std::string_view fileName) const
{
    if (m_unread == 0)
    {
        return {};
    }
    std::string note = FormatCount(m_unread) + (m_unread == 1 ? " line of " : " lines of ");
    note.append(fileName).append(" could not be read: ");
    for (std::size_t i = 0; i < m_unreadLines.size(); ++i)
    {
        note += (i == 0 ? "" : ", ") + std::to_string(m_unreadLines[i]);
    }
    return note + (m_unread > m_unreadLines.size() ? ", ..." : "");
}

/// Where the line end of the record that begins at `from` is; none when it has not come.
std::optional<std::size_t> TraceFileReader::EndOfRecord(std::size_t from) noexcept
{
    for (std::size_t at = std::max(from, m_looked); at < m_rest.size(); ++at)
    {
        if (m_rest[at] == '"' && m_kind == Kind::csv)
        {
            m_quoted = !m_quoted;
        }
        else if (m_rest[at] == '\n' && !m_quoted)
        {
            m_looked = at + 1;
            return at;
        }
    }
    m_looked = m_rest.size();
    return std::nullopt;
}

void TraceFileReader::ReadPart(bool last)
{
    if (m_kind == Kind::unknown)
    {
        const bool mayBeCsv = kCsvHeading.starts_with(m_rest.substr(0, kCsvHeading.size())) ||
                              kCsvHeading.substr(kByteOrderMark.size())
                                  .starts_with(m_rest.substr(0, kCsvHeading.size()));
        if (mayBeCsv && m_rest.size() < kCsvHeading.size() && !last)
        {
            return; // until there is enough to tell
        }
        if (m_rest.starts_with(kByteOrderMark))
        {
            m_rest.erase(0, kByteOrderMark.size());
        }
        constexpr std::string_view kColumns = kCsvHeading.substr(kByteOrderMark.size());
        m_kind =
            m_rest.starts_with(kColumns.substr(0, kColumns.find('\r'))) ? Kind::csv : Kind::text;
    }
    while (ReadRecords(last))
    {
    }
    if (last && !m_rest.empty())
    {
        ReadRecord(m_rest);
        m_rest.clear();
    }
}

/// Reads the records that are whole; returns whether there may be others behind one that was given
/// up.
bool TraceFileReader::ReadRecords(bool last)
{
    std::size_t from = 0;
    while (const std::optional<std::size_t> end = EndOfRecord(from))
    {
        ReadRecord(std::string_view(m_rest).substr(from, *end - from));
        from = *end + 1;
    }
    m_rest.erase(0, from);
    m_looked -= std::min(from, m_looked);
    if (m_rest.size() > kLongestLine || (last && m_quoted))
    {
        // No record is that long, and no mark stays open: what follows are lines of their own.
        m_skipping = true;
        m_quoted = false;
        const std::size_t end = m_rest.find('\n');
        if (end != std::string::npos)
        {
            ReadRecord(std::string_view(m_rest).substr(0, end));
            m_rest.erase(0, end + 1);
            m_looked = 0;
            return true;
        }
        m_rest.resize(std::min<std::size_t>(m_rest.size(), 1));
        m_looked = m_rest.size();
    }
    return false;
}

void TraceFileReader::ReadRecord(std::string_view record)
{
    const std::uint64_t line = m_line;
    m_line += 1 + static_cast<std::uint64_t>(std::count(record.begin(), record.end(), '\n'));
    if (record.ends_with('\r'))
    {
        record.remove_suffix(1);
    }
    const bool heading = line == 1 && m_kind == Kind::csv;
    const bool skipped = std::exchange(m_skipping, false);
    if (heading || (record.empty() && !skipped))
    {
        return;
    }
    if (!skipped && (m_kind == Kind::csv ? ReadCsv(record) : ReadText(record)))
    {
        ++m_records;
        return;
    }
    ++m_unread;
    if (m_unreadLines.size() < kLinesNamed)
    {
        m_unreadLines.push_back(line);
    }
}

bool TraceFileReader::ReadText(std::string_view line)
{
    const std::optional<std::string_view> time = TakeField(line);
    const std::optional<std::string_view> level = time ? TakeField(line) : std::nullopt;
    const std::optional<std::string_view> process = level ? TakeField(line) : std::nullopt;
    if (!process)
    {
        return false;
    }
    const std::size_t colon = line.find(": ");
    const bool hasSource = colon != std::string_view::npos && colon > 0 && colon <= kSourceMost &&
                           line.substr(0, colon).find(' ') == std::string_view::npos;
    return Take(*time, *level, *process, hasSource ? line.substr(0, colon) : "",
                hasSource ? line.substr(colon + 2) : line);
}

bool TraceFileReader::ReadCsv(std::string_view line)
{
    std::array<std::string, 5> fields; // time, process, level, source, text
    for (std::string& field : fields)
    {
        const bool missing = line.empty() && &field != &fields.back();
        if (missing || !TakeCsvField(line, field))
        {
            return false;
        }
    }
    return line.empty() && Take(fields[0], fields[2], WithoutGuard(fields[1]),
                                WithoutGuard(fields[3]), WithoutGuard(fields[4]));
}

bool TraceFileReader::Take(std::string_view time, std::string_view level, std::string_view process,
                           std::string_view source, std::string_view text)
{
    const std::optional<std::int64_t> arrival = ParseArrival(time);
    TraceEntry entry;
    if (level == "!")
    {
        entry.fault = TraceRecordFault::wrongMagic; // whichever it was
    }
    else
    {
        const char* const last = level.data() + level.size();
        const auto [end, error] = std::from_chars(level.data(), last, entry.level);
        if (error != std::errc() || end != last)
        {
            return false;
        }
    }
    if (!arrival)
    {
        return false;
    }
    // Another program may have changed the file: what is kept is well-formed.
    const auto wellFormed = [](std::string_view bytes) {
        const bool plain = std::all_of(bytes.begin(), bytes.end(),
                                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
        return plain ? std::string(bytes) : Utf8FromUtf16(Utf16FromUtf8(bytes));
    };
    const std::string itsSource = wellFormed(source);
    const std::string itsText = wellFormed(text);
    entry.arrivalUs = *arrival;
    entry.source = itsSource;
    entry.text = itsText;
    m_keep(entry, wellFormed(process));
    return true;
}
} // namespace velt
