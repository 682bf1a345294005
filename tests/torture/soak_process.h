#pragma once

#include <windows.h>

#include <string>

namespace velt::torture
{
/// What one process of a long run does: all operations for a time, those of each kind on a thread
/// of its own.
struct SoakPlan
{
    unsigned process = 1; // its number among those that run at the same time
    unsigned seed = 1;
    DWORD seconds = 60;
    DWORD periodSeconds = 60;   // from one record to the next
    unsigned faultOneIn = 20;   // operations; 0: nothing fails
    std::string only;           // the operations whose "room: name" has this in it
    std::wstring folder = L"."; // where the records go, as process-<number>.csv
};

/// Runs the plan. Each finding is a line on stdout; the records are lines of a CsvRecord.
unsigned RunSoakProcess(const SoakPlan& plan);

/// What a long run records of a process, in a file of lines.
class CsvRecord
{
public:
    struct Line
    {
        unsigned long operations = 0;
        unsigned long faults = 0;
        std::size_t privateBytes = 0; // outside of heaps, where these can be told apart
        std::size_t heapPages = 0;    // 0 where they cannot
        std::size_t heapBytes = 0;    // in use, less what is kept; 0 where it cannot be counted
        double kept = 0;              // of heaps, by the system, of what programs do
        std::ptrdiff_t blocks = 0;    // of the component alone, since the process began
        std::ptrdiff_t handles = 0;   // less those of classes that are not there
        std::ptrdiff_t gdiObjects = 0;
        std::ptrdiff_t windows = 0;
        double slowestMs = 0; // since the last line
        std::string slowest;
    };

    /// Throws std::runtime_error when it cannot be written.
    CsvRecord(std::wstring path, std::string process);

    void Add(const Line& line) const;

private:
    const std::wstring m_path;
    const std::string m_process;
};
} // namespace velt::torture
