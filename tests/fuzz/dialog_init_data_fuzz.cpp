// Takes any bytes for the initial data of a dialog's ActiveX controls: what these get lies within
// the bytes, and is what the controls wrote when the data are whole.

#include "tests/fuzz/require.h"
#include "ui/dialog_init_data.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

using velt::test::Require;

namespace
{
constexpr std::uint16_t kFromStream = 0x376;
constexpr std::uint16_t kFromStreamBound = 0x37A;

std::array<velt::ActiveXItem, 3> Items()
{
    std::array<velt::ActiveXItem, 3> items;
    std::uint32_t id = 0;
    for (velt::ActiveXItem& item : items)
    {
        item = {u"{}", 0, 0, ++id, 0, {}, {}};
    }
    return items;
}

/// An entry of the first control, with a key of one character and, if it is bound, a block.
std::vector<std::byte> EntryWith(std::span<const std::byte> written, bool isBound)
{
    std::vector<std::byte> entry;
    const auto put = [&entry](std::size_t value, int bytes) {
        for (; bytes > 0; --bytes, value >>= 8)
        {
            entry.push_back(static_cast<std::byte>(value & 0xFF));
        }
    };
    put(1, 2);
    put(isBound ? kFromStreamBound : kFromStream, 2);
    put(6 + (isBound ? 5 : 0) + written.size(), 4);
    put(1, 4);
    put('k', 2);
    if (isBound)
    {
        put(5, 4);
        put('b', 1);
    }
    entry.insert(entry.end(), written.begin(), written.end());
    return entry;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto bytes = std::as_bytes(std::span(data, size));
    auto items = Items();
    velt::TakeInitData(bytes, items);
    for (const velt::ActiveXItem& item : items)
    {
        Require(item.data.empty() ||
                (item.data.data() >= bytes.data() &&
                 item.data.data() + item.data.size() <= bytes.data() + bytes.size()));
    }
    for (const bool isBound : {false, true})
    {
        const std::vector<std::byte> entry = EntryWith(bytes, isBound);
        auto again = Items();
        velt::TakeInitData(entry, again);
        Require(std::ranges::equal(again[0].data, bytes), "it is what was written");
        Require(again[1].data.empty() && again[2].data.empty());
    }
    return 0;
}
