#pragma once

#include "foundation/trace_state.h"

#include <cstdarg>
#include <cstdint>
#include <memory>
#include <string>

/// Function tracing to the debugger and to a trace viewer window.
///
/// Any thread may trace. Lines are written under one process-wide lock, so those of different
/// threads never mix; nested scopes of a thread are indented by two blanks a level. Formats are
/// printf's; a message is cut after 1023 characters. Nothing is written before TraceInitialise.
namespace UTrace
{
/// Given as a format it suppresses the line; recognised by its address, never by its content.
inline constexpr char silent[] = "silent";

/// Sets the start values (flags 3, threshold 0, no filter) and looks for a viewer. Returns false
/// and changes nothing when that was done before, or when no UTrace::State lives. Throws what
/// tls_data throws.
bool TraceInitialise();

/// What the library does once at load: turns tracing on for levels up to 4. By design, the flags
/// are 3 afterwards, because TraceInitialise stores them after they were set to 7. A number in the
/// environment variable VELT_TRACE (decimal, or hexadecimal after 0x) replaces them.
void StartUp() noexcept;

/// To be called when a thread ends: what tracing keeps for it becomes another one's.
void EndThread() noexcept;

/// The highest level of the messages that are written, and the bits UTrace::kFlag...
void TraceSetThreshold(std::int32_t threshold) noexcept;
void TraceSetFlags(std::uint32_t flags) noexcept;

/// Messages of level 1 (errors) and 3 (details). They keep the thread's last error. They throw what
/// tls_data throws and nothing else.
[[gnu::format(gnu_printf, 1, 2)]] void TraceLevel1(const char* format, ...);
[[gnu::format(gnu_printf, 1, 2)]] void TraceLevel3(const char* format, ...);

/// Whether a viewer window exists. Looks for it at most once in 3000 ms.
bool FindTraceViewer() noexcept;

/// A function's exit line, and its result on the way out. What nobody listens to costs a few loads
/// and the thread's depth.
class ITrace
{
public:
    ITrace(const ITrace&) = delete;
    ITrace& operator=(const ITrace&) = delete;

    /// Gives the thread its former depth back, then writes the exit line; keeps the last error.
    virtual ~ITrace()
    {
        if (m_thread)
        {
            m_thread->depth = m_savedDepth;
            if (!m_quiet && State::IsAnybodyListening())
            {
                WriteExitLine();
            }
        }
    }

    /// The value given to Return, 0 before.
    virtual std::int32_t GetReturn() const noexcept;

    /// Keeps the value and returns it. The exit line ends with the formatted text, or with
    /// "return = <value>" for a null format; with `silent` there is none.
    virtual std::int32_t Return(std::int32_t value, const char* format, ...);

    /// Return with a null format.
    std::int32_t Return(std::int32_t value) noexcept
    {
        m_returnValue = value;
        m_showValue = true;
        return value;
    }

protected:
    [[gnu::always_inline]] explicit ITrace(const char* function) : m_function(function)
    {
        if (State* const state = State::Current())
        {
            m_thread = &state->OfThread();
            m_savedDepth = m_thread->depth;
            m_thread->failure = 0;
            if (state->source.front() != '\0')
            {
                KeepSource(*state);
            }
        }
    }

    /// Writes the entry line, if anybody listens, and goes one level deeper.
    void Enter(const char* format, std::va_list arguments);
    [[gnu::always_inline]] void Enter()
    {
        if (m_thread)
        {
            if (State::IsAnybodyListening())
            {
                WriteEntryLine("enter", nullptr);
            }
            ++m_thread->depth;
        }
    }

private:
    /// What few scopes have: kept apart, so that the others need not make and free it.
    struct Texts
    {
        std::string source;     // the module's source name when the scope was made
        std::string returnText; // as given to Return
    };

    void KeepSource(const State& state);
    void WriteEntryLine(const char* format, std::va_list arguments);
    void WriteExitLine() noexcept;
    const char* Source() const noexcept;

    std::unique_ptr<Texts> m_texts;
    const char* m_function;
    std::int32_t m_returnValue = 0;
    std::uint32_t m_savedDepth = 0;
    bool m_quiet = false;
    bool m_showValue = false;        // "return = <value>", made only when the line is written
    ThreadTrace* m_thread = nullptr; // null when no State lived at the start
};

/// The scope object that every public operation makes first.
class Function final : public ITrace
{
public:
    /// `function` is the qualified name and must outlive the scope (a literal). The entry line ends
    /// with "enter". Throws what tls_data throws.
    explicit Function(const char* function);

    /// The entry line ends with the formatted text, or with "enter" for a null format; with
    /// `silent` there is none.
    Function(const char* function, const char* format, ...);
};
} // namespace UTrace
