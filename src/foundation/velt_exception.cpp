#include "foundation/velt_exception.h"

#include "foundation/error_texts.h"
#include "foundation/wide_text.h"

VeltException::VeltException(const char* file, int line)
    : m_id(velt::error_texts::kInternalError.GetId()),
      m_message(velt::error_texts::kInternalError.Format({file, std::to_string(line)}))
{
}

VeltException::VeltException(const VeltText& text) : m_id(text.GetId()), m_message(text.GetText())
{
}

const char* VeltException::what() const noexcept
{
    try
    {
        m_what = velt::NarrowFromWide(velt::WideFromUtf8(m_message), CP_ACP);
        return m_what.c_str();
    }
    catch (const std::exception&)
    {
        return "";
    }
}

std::unique_ptr<VeltException> VeltException::Clone() const
{
    return std::make_unique<VeltException>(*this);
}

const std::string& VeltException::GetDetail() const noexcept
{
    return m_detail;
}

std::int32_t VeltException::GetId() const noexcept
{
    return m_id;
}

const std::string& VeltException::GetMessage() const noexcept
{
    return m_message;
}

VeltException& VeltException::SetDetail(const std::string& detail)
{
    m_detail = detail;
    return *this;
}

void VeltException::Raise() const
{
    throw *this;
}

void VeltException::SetMessage(std::string message) noexcept
{
    m_message = std::move(message);
}
