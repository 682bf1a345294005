#pragma once

#include "connection/connection_probe.h"

/// What the machine's connection is, together with the data of whoever owns it.
template <class Owner>
class CConnection : public velt::ConnectionProbe
{
public:
    CConnection() = default;

    /// The owner's data.
    Owner& Data() noexcept
    {
        return m_data;
    }

private:
    Owner m_data;
};
