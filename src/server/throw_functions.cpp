// What the library's templates throw with. The compiler's own throw exceptions that keep their text
// in strings of its former ABI, and bring those strings and a source of random numbers: 80 KB. Who
// catches these by their common base sees no difference.

#include <bits/functexcept.h>

#include <exception>
#include <new>

namespace
{
/// What is thrown for a length or a place that a container does not have.
class ContainerError final : public std::exception
{
public:
    /// `text` is a literal.
    explicit ContainerError(const char* text) noexcept : m_text(text) {}

    const char* what() const noexcept override
    {
        return m_text;
    }

private:
    const char* m_text;
};
} // namespace

void std::__throw_bad_alloc()
{
    throw std::bad_alloc();
}

void std::__throw_bad_array_new_length()
{
    throw std::bad_array_new_length();
}

void std::__throw_length_error(const char* text)
{
    throw ContainerError(text);
}

void std::__throw_logic_error(const char* text)
{
    throw ContainerError(text);
}

/// The text keeps its places for names and numbers.
void std::__throw_out_of_range_fmt(const char* text, ...)
{
    throw ContainerError(text);
}
