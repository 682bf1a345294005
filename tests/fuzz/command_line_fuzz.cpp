// Feeds what velt.exe reads from its command line, from URLs, from headers and from script files
// with any bytes.

#include "tests/fuzz/require.h"
#include "tests/support/well_formed_utf8.h"
#include "tools/velt/command_line.h"
#include "tools/velt/help_text.h"
#include "tools/velt/report.h"
#include "tools/velt/request_header.h"
#include "tools/velt/script_text.h"
#include "tools/velt/url_file_name.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

using namespace velt::tool;
using velt::test::Require;

namespace
{
/// Arguments are divided by line feeds.
void CheckCommandLine(std::string_view bytes)
{
    std::vector<std::wstring> arguments(1);
    for (const char c : bytes)
    {
        if (c == '\n')
        {
            arguments.emplace_back();
        }
        else
        {
            arguments.back().push_back(static_cast<unsigned char>(c));
        }
    }
    const ParsedCommandLine parsed = ParseCommandLine(arguments);
    if (const auto* line = std::get_if<CommandLine>(&parsed))
    {
        const CommandRow& command = *line->command;
        Require(line->operands.size() >= command.leastOperands);
        Require(line->operands.size() <= command.mostOperands);
        for (const auto& entry : line->options)
        {
            const auto row =
                std::find_if(command.options.begin(), command.options.end(),
                             [&](const OptionRow& option) { return option.name == entry.first; });
            Require(row != command.options.end());
            Require(!entry.second.empty());
            Require(line->Values(entry.first) == entry.second);
            Require(line->Value(entry.first, L"otherwise") == entry.second.back());
            Require(!row->value.empty() ||
                    std::all_of(entry.second.begin(), entry.second.end(),
                                [](const std::wstring& value) { return value.empty(); }));
        }
    }
    else if (const auto* error = std::get_if<UsageError>(&parsed))
    {
        Require(!error->message.empty());
        Require(!HelpText(error->topic).empty());
    }
    else if (const auto* help = std::get_if<HelpWanted>(&parsed))
    {
        Require(help->topic.empty() || HelpText(help->topic) != HelpText(""));
    }
}

void CheckWords(const std::wstring& text)
{
    if (const auto number = ParseNumber(text, 3, 4'000'000'000))
    {
        Require(*number >= 3 && *number <= 4'000'000'000);
        const std::wstring digits = std::to_wstring(*number);
        Require(text.ends_with(digits));
        Require(text.find_first_not_of(L'0') == text.size() - digits.size());
    }
    Require(!IsGuidText(text) || (text.size() == 38 && text.front() == L'{'));
}

void CheckFileName(std::string_view url)
{
    const std::string name = FileNameFromUrl(url);
    std::set<std::string> taken;
    Require(TakeFileName(taken, name) == name);
    Require(TakeFileName(taken, name) != TakeFileName(taken, name) && taken.size() == 3);
    Require(!name.empty() && name.back() != '.' && name.back() != ' ');
    Require(velt::test::IsWellFormedUtf8(name));
    Require(name.find_first_of(std::string_view("<>:\"/\\|?*\0", 10)) == name.npos);
}

void CheckHeader(std::string_view bytes)
{
    if (const auto header = ParseRequestHeader(std::wstring(bytes.begin(), bytes.end())))
    {
        Require(!header->name.empty() &&
                header->name.find_first_of(": \t\r\n") == std::string::npos);
        Require(!header->value.empty() && header->value.find_first_of("\r\n") == std::string::npos);
    }
}

void CheckReport(std::string_view text)
{
    Report report;
    report.Add(text, text);
    const std::string json = report.Json();
    Require(std::all_of(json.begin(), json.end(), [](char c) { return c >= ' ' && c <= '~'; }));
    Require(json.starts_with("{\"") && json.ends_with("\"}"));
    report = {};
    report.Add("t", text);
    const std::string line = report.Text();
    Require(std::count(line.begin(), line.end(), '\n') == 1);
    Require(velt::test::IsWellFormedUtf8(line));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes(data, data + size);
    CheckCommandLine(bytes);
    CheckWords(std::wstring(bytes.begin(), bytes.end()));
    CheckFileName(bytes);
    CheckHeader(bytes);
    CheckReport(bytes);
    DecodeScript(bytes);
    return 0;
}
