#pragma once

#include "foundation/velt_text.h"

#include <windows.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <string>

#undef GetMessage

/// Root of the exceptions that the component throws itself. A plain value; texts are UTF-8.
class VeltException : public std::exception
{
public:
    /// A broken internal contract, at this source file and line.
    VeltException(const char* file, int line);

    /// The template's text as it stands, without substitution.
    explicit VeltException(const VeltText& text);

    VeltException(const VeltException&) = default;
    VeltException& operator=(const VeltException&) = default;

    ~VeltException() override = default;

    /// The message in the ANSI code page; empty when it cannot be converted. Valid until the next
    /// call on this object.
    const char* what() const noexcept override;

    /// A copy with the same dynamic type.
    virtual std::unique_ptr<VeltException> Clone() const;

    /// Free context text, empty until set.
    virtual const std::string& GetDetail() const noexcept;

    /// Id of the text that the message was made from.
    virtual std::int32_t GetId() const noexcept;

    virtual const std::string& GetMessage() const noexcept;

    virtual VeltException& SetDetail(const std::string& detail);

    /// Throws a copy with the same dynamic type.
    [[noreturn]] virtual void Raise() const;

protected:
    /// Replaces the message.
    void SetMessage(std::string message) noexcept;

private:
    std::int32_t m_id;
    std::string m_message;
    std::string m_detail;
    mutable std::string m_what; // made by what()
};
