#include "tools/trace/trace_session.h"

#include "foundation/trace_record.h"
#include "tools/common/to_utf8.h"
#include "tools/common/trace_text.h"
#include "tools/trace/trace_filter.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <string>
#include <utility>

namespace velt
{
namespace
{
constexpr std::string_view kDebugOutputSource = "debugger";
} // namespace

TraceSession::TraceSession(TraceReceiverEvents& events, TraceStoreLimits limits, Kind kind)
    : m_events(events),
      m_store(limits)
{
    if (kind == Kind::receiving)
    {
        TraceReceiverEvents& own = *this; // a private base
        m_receiver.emplace(own);
    }
}

bool TraceSession::ListenToDebugOutput(bool on)
{
    if (!on || !m_receiver)
    {
        m_debugOutput.reset();
        return !on;
    }
    if (!m_debugOutput)
    {
        m_debugOutput = DebugOutputReader::Start(*m_receiver);
    }
    return m_debugOutput != nullptr;
}

void TraceSession::Drain(DWORD senderLimitMs)
{
    if (!m_receiver)
    {
        return;
    }
    m_finder.Wait(senderLimitMs); // without an answer the former one stands
    m_processNames.MarkEnded();   // before: all that they have sent is taken now
    const ArrivalQueue arrived = m_receiver->Take();
    m_lost += arrived.Lost();
    m_processNumbers.clear(); // an id may be another process by now
    arrived.ForEach([&](const Arrival& arrival, std::span<const std::byte> data) {
        try
        {
            Keep(arrival, data);
        }
        catch (const std::bad_alloc&)
        {
            ++m_lost; // this one; there may be memory for the next
        }
    });
    KeepLines(m_debugLines.TakeOld());
    m_processNames.ForgetMarked();
}

void TraceSession::Add(const TraceEntry& entry, std::string_view process)
{
    TraceEntry named = entry;
    named.sender = m_senders.Number(process);
    m_store.Append(named);
    m_malformed += entry.fault != TraceRecordFault::none ? 1u : 0u;
}

void TraceSession::SetRules(const TraceRules& rules)
{
    TraceRules forgetting;
    std::copy_if(rules.begin(), rules.end(), std::back_inserter(forgetting),
                 [](const TraceRule& rule) { return rule.kind == TraceRuleKind::forget; });
    m_rules = std::move(forgetting);
}

void TraceSession::Clear() noexcept
{
    m_store.Clear();
    m_senders.Clear();
    m_processNumbers.clear();
    m_malformed = 0;
    m_forgotten = 0;
    m_lost = 0;
}

void TraceSession::OnArrival() noexcept
{
    m_events.OnArrival();
}

void TraceSession::OnUnknownSender() noexcept
{
    m_finder.Look();
}

void TraceSession::OnCloseAsked() noexcept
{
    m_events.OnCloseAsked();
}

/// The number of the name of a process, 0 for one that its message did not tell.
std::uint32_t TraceSession::SenderOf(std::uint32_t process)
{
    const auto known = m_processNumbers.find(process);
    if (known != m_processNumbers.end())
    {
        return known->second;
    }
    const std::uint32_t number =
        m_senders.Number(process == 0 ? m_finder.Describe() : m_processNames.NameOf(process));
    m_processNumbers.emplace(process, number);
    return number;
}

void TraceSession::Keep(const Arrival& arrival, std::span<const std::byte> data)
{
    if (arrival.origin == Arrival::Origin::debugOutput)
    {
        const std::string_view piece(reinterpret_cast<const char*>(data.data()), data.size());
        return KeepLines(m_debugLines.Add(arrival.arrivalUs, arrival.processId, piece));
    }
    DecodedTraceRecord record = DecodeTraceRecord(data);
    if (arrival.sizeBytes > data.size())
    {
        record.fault = TraceRecordFault::wrongTotal; // longer than any record, so not kept whole
    }
    else if (record.fault == TraceRecordFault::none && arrival.dataKind != kTraceMagic)
    {
        record.fault = TraceRecordFault::wrongMagic;
    }
    TraceEntry entry;
    entry.arrivalUs = arrival.arrivalUs;
    entry.sender = SenderOf(arrival.processId);
    entry.process = arrival.processId;
    entry.fault = record.fault;
    if (record.fault != TraceRecordFault::none)
    {
        const std::string text = DescribeMalformed(record.fault, arrival.sizeBytes, data);
        entry.text = text;
        m_malformed += Append(entry) ? 1u : 0u;
        return;
    }
    const std::string source = ToUtf8(record.source);
    const std::string text = ToUtf8(record.text);
    entry.level = record.level;
    entry.source = source;
    entry.text = text;
    Append(entry);
}

void TraceSession::KeepLines(const std::vector<DebugLines::Line>& lines)
{
    for (const DebugLines::Line& line : lines)
    {
        const std::string text = ToUtf8(line.text);
        TraceEntry entry;
        entry.arrivalUs = line.arrivalUs;
        entry.sender = SenderOf(line.process);
        entry.process = line.process;
        entry.level = DebugLines::LevelOf(text);
        entry.source = kDebugOutputSource;
        entry.text = text;
        Append(entry);
    }
}

/// False for one that a rule has forgotten.
bool TraceSession::Append(const TraceEntry& entry)
{
    if (IsForgotten(m_rules, entry, m_senders.Name(entry.sender)))
    {
        ++m_forgotten;
        return false;
    }
    m_store.Append(entry);
    return true;
}
} // namespace velt
