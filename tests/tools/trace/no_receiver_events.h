#pragma once

#include "tools/trace/trace_receiver.h"

namespace velt::test
{
/// For a receiver that nobody asks what it has.
class NoReceiverEvents final : public TraceReceiverEvents
{
public:
    void OnArrival() noexcept override {}
    void OnCloseAsked() noexcept override {}
};
} // namespace velt::test
