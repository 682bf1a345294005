#pragma once

#include <string>

namespace velt::test
{
/// The full path of a file or folder of the build, or of its source, by its place there: in the
/// nearest folder above this program that has it. So a build may be taken to another machine. What
/// a test has copied elsewhere looks above the test program that has started it. Throws
/// std::runtime_error when it is nowhere.
std::wstring BuiltFile(const std::wstring& place);
} // namespace velt::test
