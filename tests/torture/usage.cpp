#include "tests/torture/usage.h"

#include "tests/support/gui_usage.h"
#include "tests/support/process_usage.h"
#include "tests/torture/fault_engine.h"

#include <windows.h>

#include <objbase.h>

namespace velt::torture
{
namespace
{
/// How many handles the system itself keeps of each such question: none on Windows.
std::size_t HandlesKeptOfMissingClass()
{
    constexpr int kQuestions = 10;
    const auto ask = [](int times) {
        constexpr CLSID kNobodys = {
            0x1D3A0F7E, 0x5B2C, 0x4E88, {0x9A, 0x41, 0x66, 0x0D, 0x2B, 0xC7, 0x15, 0xF4}};
        for (int i = 0; i < times; ++i)
        {
            void* object = nullptr;
            ::CoCreateInstance(kNobodys, nullptr, CLSCTX_ALL, IID_IUnknown, &object);
        }
    };
    ask(1); // what is made once is there now
    const std::size_t before = velt::test::CurrentUsage().handles;
    ask(kQuestions);
    const std::size_t after = velt::test::CurrentUsage().handles;
    return after > before ? (after - before) / kQuestions : 0;
}
} // namespace

Usage CurrentUsage(bool withGui)
{
    static const std::size_t kept = HandlesKeptOfMissingClass();
    const velt::test::ProcessUsage process = velt::test::CurrentUsage();
    const velt::test::GuiUsage gui =
        withGui ? velt::test::CurrentGuiUsage() : velt::test::GuiUsage{};
    const auto count = [](std::size_t value) { return static_cast<std::ptrdiff_t>(value); };
    // Blocks from before the engine are given back too.
    return {{FaultEngine::LiveBlocks(),
             count(process.handles) - count(kept) * FaultEngine::MissingClasses(),
             count(process.heapBytes), count(gui.gdiObjects), count(gui.windows)}};
}
} // namespace velt::torture
