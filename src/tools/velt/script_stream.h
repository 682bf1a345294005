#pragma once

#include "tools/velt/script_dispatch.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace velt::tool
{
/// A standard stream as scripts have it. One that is written cannot be read, and the reverse.
class ScriptStream : public ScriptDispatch
{
public:
    ScriptStream(const ScriptStream&) = delete;
    ScriptStream& operator=(const ScriptStream&) = delete;

protected:
    ScriptStream();

    ~ScriptStream() = default;

    _variant_t Call(DISPID id, Values values) override;

    /// What was read or written: where the stream is then.
    void Advance(std::wstring_view text) noexcept;

private:
    std::int32_t m_line = 1;
    std::int32_t m_column = 1;
};

/// One that is written.
class ScriptOutput final : public ScriptStream
{
public:
    /// `write` takes UTF-8.
    explicit ScriptOutput(std::function<void(std::string_view text)> write)
        : m_write(std::move(write))
    {
    }

    ScriptOutput(const ScriptOutput&) = delete;
    ScriptOutput& operator=(const ScriptOutput&) = delete;

    ~ScriptOutput() = default;

private:
    _variant_t Call(DISPID id, Values values) override;
    void Write(const std::wstring& text);

    const std::function<void(std::string_view text)> m_write;
};

/// Standard input: UTF-8 from a file or a pipe, characters from a terminal.
class ScriptInput final : public ScriptStream
{
public:
    ScriptInput() noexcept;

    ScriptInput(const ScriptInput&) = delete;
    ScriptInput& operator=(const ScriptInput&) = delete;

    ~ScriptInput() = default;

private:
    _variant_t Call(DISPID id, Values values) override;

    /// Waits until something is there to be read; false at the end. Throws CommandFailure.
    bool Fill();
    /// Reads more; false at the end.
    bool ReadMore();

    /// Each takes from the front and fails at the end.
    std::wstring TakeLine();
    std::wstring Take(const _variant_t& count);

    const HANDLE m_handle; // the process's
    std::string m_bytes;   // of a character that is not whole yet
    std::wstring m_text;   // read and not taken
    bool m_terminal = false;
    bool m_first = true; // nothing has been read yet
    bool m_ended = false;
};
} // namespace velt::tool
