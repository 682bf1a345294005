#pragma once

#include "tools/trace/debug_lines.h"
#include "tools/trace/debug_output_reader.h"
#include "tools/trace/process_names.h"
#include "tools/trace/sender_finder.h"
#include "tools/trace/sender_names.h"
#include "tools/trace/trace_receiver.h"
#include "tools/trace/trace_rule.h"
#include "tools/trace/trace_store.h"

#include <windows.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace velt
{
/// What a viewer receives and keeps, whether a window or a console shows it. Belongs to one thread;
/// the notices come on the receiver's.
class TraceSession final : private TraceReceiverEvents
{
public:
    enum class Kind : std::uint8_t
    {
        receiving, // what programs send
        files,     // saved records alone: nobody sends to it
    };

    /// `events` must outlive the session. Throws SystemException::Win32.
    explicit TraceSession(TraceReceiverEvents& events, TraceStoreLimits limits = {},
                          Kind kind = Kind::receiving);

    /// Starts or ends listening to what programs write for a debugger. False when another program
    /// listens already, and for saved files. Throws SystemException::Win32.
    bool ListenToDebugOutput(bool on);

    bool ListensToDebugOutput() const noexcept
    {
        return m_debugOutput != nullptr;
    }

    /// Whether Drain is to be called again soon although nothing arrives: a line of debugger output
    /// has begun that may have no end.
    bool WantsDrain() const noexcept
    {
        return m_debugLines.HasBegun();
    }

    /// Whether the look at who sends is done, which begins with an arrival that does not say so.
    bool KnowsSender() const noexcept
    {
        return m_finder.Wait(0);
    }

    /// Moves what has arrived into the store. Waits up to `senderLimitMs` for word of who sent it.
    /// What there is no memory for is lost and counted. Throws std::bad_alloc before anything is
    /// taken.
    void Drain(DWORD senderLimitMs);

    /// Adds a record that was saved, behind all others, with the name of its process. Throws
    /// std::bad_alloc.
    void Add(const TraceEntry& entry, std::string_view process);

    /// Records that these rules mean to be forgotten are not kept when they arrive, but counted.
    /// Throws std::bad_alloc.
    void SetRules(const TraceRules& rules);

    /// How many records a rule has had forgotten since the last Clear.
    std::uint64_t Forgotten() const noexcept
    {
        return m_forgotten;
    }

    const SenderNames& Names() const noexcept
    {
        return m_senders;
    }

    /// Forgets all records and counts.
    void Clear() noexcept;

    const TraceStore& Store() const noexcept
    {
        return m_store;
    }

    /// The process of an entry, such as "host.exe (12)".
    std::string_view Process(const TraceEntry& entry) const noexcept
    {
        return m_senders.Name(entry.sender);
    }

    std::uint64_t Malformed() const noexcept
    {
        return m_malformed;
    }

    /// Records that arrived faster than they were taken, or found no memory, and are nowhere.
    std::uint64_t Lost() const noexcept
    {
        return m_lost;
    }

private:
    void OnArrival() noexcept override;
    void OnUnknownSender() noexcept override;
    void OnCloseAsked() noexcept override;
    void KeepLines(const std::vector<DebugLines::Line>& lines);
    bool Append(const TraceEntry& entry);
    void Keep(const Arrival& arrival, std::span<const std::byte> data);
    std::uint32_t SenderOf(std::uint32_t process);

    TraceReceiverEvents& m_events;
    TraceStore m_store;
    SenderNames m_senders;
    std::map<std::uint32_t, std::uint32_t> m_processNumbers; // of this Drain
    DebugLines m_debugLines;
    TraceRules m_rules; // those that forget
    std::uint64_t m_forgotten = 0;
    std::uint64_t m_malformed = 0;
    std::uint64_t m_lost = 0;
    ProcessNames m_processNames;
    SenderFinder m_finder;
    std::optional<TraceReceiver> m_receiver;          // its thread uses the others
    std::unique_ptr<DebugOutputReader> m_debugOutput; // last: its thread uses the receiver
};
} // namespace velt
