#pragma once

#include <windows.h>

#include <oaidl.h>

#include <string>
#include <vector>

namespace velt::test
{
/// A type of a type library in the words of IDL, a line for the type and one for each member:
///
///     interface IX {1B...} flags 1140 vtable 32 : help
///     id 1 at 28 [propget] HRESULT Item([in] VARIANT Index, [out,retval] VARIANT* pVal) : help
///
/// A dual interface is read by its vtable. Throws std::runtime_error when it cannot be read.
std::vector<std::string> DescribeType(ITypeInfo& info);

/// The members of a dual interface as a late-bound caller sees them, without those of IDispatch.
std::vector<std::string> DescribeDispatch(ITypeInfo& info);
} // namespace velt::test
