#pragma once

#include "connection/connection.h"
#include "internet/connection_properties.h"

namespace CONNECTION_MANAGER
{
/// What the queue manager hands to every step of a request: the connection's properties, and the
/// means to ask whether the machine is connected.
using connection_object = CConnection<CConnectionProperties>;
} // namespace CONNECTION_MANAGER
