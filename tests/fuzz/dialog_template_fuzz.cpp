// Splits any bytes as a dialog template: what the system would create is itself a whole template,
// with nothing left to split off.

#include "ui/dialog_template.h"

#include <cstdlib>
#include <cstring>

namespace
{
void Require(bool kept)
{
    if (!kept)
    {
        std::abort();
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto first = velt::SplitDialogTemplate(std::as_bytes(std::span(data, size)));
    if (!first)
    {
        return 0;
    }
    Require(first->words.size() * sizeof(std::uint32_t) <= (size + 3) / 4 * 4);
    for (const velt::ActiveXItem& item : first->activeX)
    {
        Require(item.classId.starts_with(u'{') && item.classId.find(u'\0') == item.classId.npos);
    }
    const auto second = velt::SplitDialogTemplate(std::as_bytes(std::span(first->words)));
    Require(second && second->activeX.empty());
    Require(second->words == first->words && second->hasHostWindows == first->hasHostWindows);
    return 0;
}
