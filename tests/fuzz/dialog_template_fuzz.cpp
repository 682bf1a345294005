// Splits any bytes as a dialog template: what the system would create is itself a whole template,
// with nothing left to split off. The same bytes serve as initial data of its ActiveX controls:
// what these get lies within the bytes.

#include "tests/fuzz/require.h"
#include "ui/dialog_init_data.h"
#include "ui/dialog_template.h"

#include <cstring>

using velt::test::Require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto bytes = std::as_bytes(std::span(data, size));
    auto first = velt::SplitDialogTemplate(bytes);
    if (!first)
    {
        return 0;
    }
    Require(first->words.size() * sizeof(std::uint32_t) <= (size + 3) / 4 * 4);
    for (const velt::ActiveXItem& item : first->activeX)
    {
        Require(item.classId.starts_with(u'{') && item.classId.find(u'\0') == item.classId.npos);
    }
    velt::TakeInitData(bytes, first->activeX);
    velt::ActiveXItem other{u"{}", 0, 0, data[0] + 256U * data[1], 0, {}, {}};
    velt::TakeInitData(bytes, {&other, 1});
    first->activeX.push_back(other);
    for (const velt::ActiveXItem& item : first->activeX)
    {
        Require(item.data.empty() ||
                (item.data.data() >= bytes.data() &&
                 item.data.data() + item.data.size() <= bytes.data() + bytes.size()));
    }
    const auto second = velt::SplitDialogTemplate(std::as_bytes(std::span(first->words)));
    Require(second && second->activeX.empty());
    Require(second->words == first->words && second->hasHostWindows == first->hasHostWindows);
    return 0;
}
