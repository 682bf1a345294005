#pragma once

namespace velt::facts
{
/// The other process of the questions about sending data to a window: has one that takes them,
/// until it is ended. Returns when there can be no window.
int RunReceiver();
} // namespace velt::facts
