#pragma once

#include "tools/trace/trace_store.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velt
{
/// The reverse of FormatArrival; none for any other text.
std::optional<std::int64_t> ParseArrival(std::string_view text) noexcept;

/// Reads what the viewer has saved, as text or as CSV, from bytes that come in parts. Which of the
/// two it is, the first line says. Every input is valid: a line that is no record is counted.
///
/// Text does not tell where a source ends: what stands before the first ": " is one when it has no
/// blanks and begins the text. That a record was malformed is kept, how it was is in its text.
class TraceFileReader
{
public:
    /// Takes each record; the views end with the call.
    using Keep = std::function<void(const TraceEntry& entry, std::string_view process)>;

    explicit TraceFileReader(Keep keep) : m_keep(std::move(keep)) {}

    /// Throws std::bad_alloc, and what the receiver of the records throws.
    void Read(std::string_view bytes);

    /// The end of the file: a last line without its end is read.
    void Finish();

    std::uint64_t Records() const noexcept
    {
        return m_records;
    }

    /// Lines that are no records, empty ones left out.
    std::uint64_t Unread() const noexcept
    {
        return m_unread;
    }

    /// What could not be read, such as "3 lines of x.csv could not be read: 2, 7, 9"; empty when
    /// all could.
    std::string Note(std::string_view fileName) const;

private:
    enum class Kind : std::uint8_t
    {
        unknown,
        text,
        csv,
    };

    std::optional<std::size_t> EndOfRecord(std::size_t from) noexcept;
    void ReadPart(bool last);
    bool ReadRecords(bool last);
    void ReadRecord(std::string_view record);
    bool ReadText(std::string_view line);
    bool ReadCsv(std::string_view line);
    bool Take(std::string_view time, std::string_view level, std::string_view process,
              std::string_view source, std::string_view text);

    Keep m_keep;
    Kind m_kind = Kind::unknown;
    std::string m_rest;       // of the last part, without an end yet
    std::size_t m_looked = 0; // how much of it has been looked through for one
    bool m_quoted = false;    // whether that ended between quotation marks
    bool m_skipping = false;  // a line that is too long
    std::uint64_t m_line = 1; // where the next record begins
    std::uint64_t m_records = 0;
    std::uint64_t m_unread = 0;
    std::vector<std::uint64_t> m_unreadLines; // the first ones
};
} // namespace velt
