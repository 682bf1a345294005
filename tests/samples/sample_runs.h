#pragma once

#include "tests/support/child_process.h"
#include "tests/support/component_library.h"

#include <windows.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace velt::test
{
inline const std::string kProduct = " {AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}";

/// Settings of the sample agent: it is connected and has one update.
inline const std::string kOneUpdate = "[agent]\r\nconnected=1\r\n[updates]\r\n" +
                                      kProduct.substr(1) + "=1\r\n[messages]\r\n" +
                                      kProduct.substr(1) + "=0\r\n";

/// How a command ended, and what it printed, its errors too.
struct SampleRun
{
    DWORD exitCode;
    std::vector<std::string> lines;
};

inline SampleRun RunSample(const std::wstring& command)
{
    const ProcessOutput output = RunForOutput(command);
    std::istringstream text(output.text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
    {
        lines.push_back(line);
    }
    return {output.exitCode, std::move(lines)};
}

inline std::vector<std::string> OutputOf(const std::wstring& command)
{
    return RunSample(command).lines;
}

/// A file of the samples, and the program of a compiled one, in quotes.
inline std::wstring SampleFile(const std::wstring& name)
{
    return L"\"" VELT_SAMPLES_DIR L"\\" + name + L"\"";
}

inline std::wstring SampleProgram(const std::wstring& name)
{
    return L"\"" VELT_SAMPLE_PROGRAMS_DIR L"\\" + name + L"\"";
}

/// The component, registered; its keys go with the prefix.
class RegisteredComponent
{
public:
    RegisteredComponent()
    {
        if (m_library.RegisterServer() != S_OK)
        {
            throw std::runtime_error("the component cannot be registered");
        }
    }

private:
    ComponentLibrary m_library;
};
} // namespace velt::test
