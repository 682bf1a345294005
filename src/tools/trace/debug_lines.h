#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace velt
{
/// Makes lines of what programs write for a debugger, which comes in pieces: the component writes a
/// line in three, others end none with a line break.
class DebugLines
{
public:
    struct Line
    {
        std::int64_t arrivalUs = 0; // of its first piece
        std::uint32_t process = 0;
        std::string text; // without line breaks

        bool operator==(const Line&) const = default;
    };

    /// Takes the next piece of a process; returns the lines that it ends. Empty ones are left out.
    /// Throws std::bad_alloc.
    std::vector<Line> Add(std::int64_t arrivalUs, std::uint32_t process, std::string_view piece);

    /// Returns what has begun before the last call and not been ended since: nobody goes on with
    /// it. To be called now and then while there is something. Throws std::bad_alloc.
    std::vector<Line> TakeOld();

    /// Whether a line has begun that has not ended.
    bool HasBegun() const noexcept
    {
        return !m_begun.empty();
    }

    /// The level that a record with this text would have had: 4 for entry and exit lines as the
    /// component writes them, 3 for all else.
    static std::int32_t LevelOf(std::string_view text) noexcept;

private:
    struct Begun
    {
        Line line;
        bool old = false;
    };

    std::map<std::uint32_t, Begun> m_begun; // by process
};
} // namespace velt
