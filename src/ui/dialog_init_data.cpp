#include "ui/dialog_init_data.h"

#include "ui/byte_reader.h"

namespace velt
{
namespace
{
constexpr std::uint16_t kLoadFromStream = 0x376;
constexpr std::uint16_t kLoadFromStreamBound = 0x37A; // with a block for data binding

/// What the control itself has written; none when there is nothing, or it is cut short.
std::span<const std::byte> ControlData(std::span<const std::byte> entry, bool isBound) noexcept
{
    ByteReader reader(entry);
    const std::uint32_t keyLength = reader.DoubleWord();
    if (keyLength > entry.size()) // so that twice as much is in range
    {
        return {};
    }
    reader.Skip(std::size_t{keyLength} * sizeof(char16_t));
    if (isBound)
    {
        const std::uint32_t blockSize = reader.DoubleWord();
        if (blockSize < sizeof(blockSize))
        {
            return {};
        }
        reader.Skip(blockSize - sizeof(blockSize));
    }
    return reader.IsWhole() ? entry.subspan(reader.Position()) : std::span<const std::byte>();
}
} // namespace

void TakeInitData(std::span<const std::byte> bytes, std::span<ActiveXItem> items) noexcept
{
    ByteReader reader(bytes);
    while (const std::uint16_t id = reader.Word())
    {
        const std::uint16_t message = reader.Word();
        const std::uint32_t size = reader.DoubleWord();
        const std::span<const std::byte> entry = reader.Bytes(size);
        if (message != kLoadFromStream && message != kLoadFromStreamBound)
        {
            continue;
        }
        const std::span<const std::byte> data = ControlData(entry, message == kLoadFromStreamBound);
        for (ActiveXItem& item : items)
        {
            if (item.id == id && !data.empty())
            {
                item.data = data;
            }
        }
    }
}
} // namespace velt
