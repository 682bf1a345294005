#pragma once

#include <windows.h>

#include <string>

/// What the agent keeps beside its program:
///
///     update_agent.ini            what it answers; read at every call, to be edited by the user
///     update_agent_products.ini   the products that it knows, one section each
///     update_agent.log            a line for each call
namespace agent_files
{
/// The program's full path.
std::wstring ProgramPath();

/// A number of update_agent.ini.
LONG Setting(const wchar_t* section, const wchar_t* name, LONG otherwise);

/// Writes one value of a product.
void KeepProduct(const std::wstring& guid, const wchar_t* name, const std::wstring& value);

/// One value of a product; empty when it has none.
std::wstring Product(const std::wstring& guid, const wchar_t* name);

/// Appends a line, with the time before it.
void Log(const std::wstring& line);
} // namespace agent_files
