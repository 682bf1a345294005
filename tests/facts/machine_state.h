#pragma once

#include "tests/support/registry_snapshot.h"

#include <windows.h>

#include <string>
#include <vector>

namespace velt::facts
{
/// What the component's tests may write in the registry, as it was when this object was made.
class MachineState
{
public:
    /// Throws std::runtime_error when it cannot be read.
    MachineState();

    /// Makes it so again, as far as the rights go. Waits a while for what still writes in it.
    void Restore() const;

private:
    struct Key
    {
        HKEY root;
        std::wstring path;
        test::RegistryTree tree;
    };

    void RestoreOnce() const;

    std::vector<Key> m_keys;
    std::vector<Key> m_settings; // whose own values alone the tests write
};
} // namespace velt::facts
