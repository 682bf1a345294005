// Splits any bytes as a dialog template: what the system would create is itself a whole template,
// with nothing left to split off.

#include "tests/fuzz/require.h"
#include "ui/dialog_template.h"

#include <cstring>

using velt::test::Require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto bytes = std::as_bytes(std::span(data, size));
    const auto first = velt::SplitDialogTemplate(bytes);
    if (!first)
    {
        return 0;
    }
    Require(first->words.size() * sizeof(std::uint32_t) <= (size + 3) / 4 * 4);
    for (const velt::ActiveXItem& item : first->activeX)
    {
        Require(item.classId.starts_with(u'{') && item.classId.find(u'\0') == item.classId.npos);
        Require(item.data.empty() ||
                (item.data.data() >= bytes.data() &&
                 item.data.data() + item.data.size() <= bytes.data() + bytes.size()));
    }
    const auto second = velt::SplitDialogTemplate(std::as_bytes(std::span(first->words)));
    Require(second && second->activeX.empty());
    Require(second->words == first->words && second->hasHostWindows == first->hasHostWindows);
    return 0;
}
