#include "internet/internet_file.h"

#include "foundation/exception_to_hresult.h"
#include "internet/internet_exception.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <new>

namespace
{
constexpr DWORD kUnchanged = std::numeric_limits<DWORD>::max();
constexpr DWORD kStringBufferBytes = 4096;
constexpr DWORD kChunkCharacters = 128;

/// A buffer of zeros. Throws std::bad_alloc, also where the vector has another name for a size that
/// no memory could have.
std::vector<std::byte> MakeStorage(DWORD sizeBytes)
{
    if (sizeBytes > std::vector<std::byte>().max_size())
    {
        throw std::bad_alloc();
    }
    return std::vector<std::byte>(sizeBytes);
}
} // namespace

CInternetFile::CInternetFile(velt::RegisteredHandle handle, bool readMode, DWORD context,
                             std::wstring serverName, std::wstring fileName)
    : m_handle(std::move(handle)),
      m_readMode(readMode),
      m_context(context),
      m_serverName(std::move(serverName)),
      m_fileName(std::move(fileName))
{
}

CInternetFile::~CInternetFile()
{
    try
    {
        CInternetFile::Close();
    }
    catch (...)
    {
        velt::TraceCurrentException(); // the handle goes with its owner
    }
}

std::int64_t CInternetFile::Seek(std::int64_t offset, DWORD origin)
{
    RequireReading();
    if (!m_readStorage.empty())
    {
        ThrowInvalidHandle();
    }
    const bool fits =
        offset >= std::numeric_limits<LONG>::min() && offset <= std::numeric_limits<LONG>::max();
    if (origin > FILE_END || !fits)
    {
        throw CInternetException(ERROR_INVALID_PARAMETER);
    }
    const DWORD position = ::InternetSetFilePointer(m_handle.Get(), static_cast<LONG>(offset),
                                                    nullptr, origin, m_context);
    if (position == INVALID_SET_FILE_POINTER)
    {
        throw CInternetException(m_context);
    }
    return static_cast<LONG>(position);
}

DWORD CInternetFile::Read(void* buffer, DWORD count)
{
    RequireReading();
    if (m_readStorage.empty())
    {
        return ReadDirect(buffer, count);
    }
    auto* const to = static_cast<std::byte*>(buffer);
    const bool small = count < m_readStorage.size();
    if (small && m_readHeld > m_readPosition && count < m_readHeld - m_readPosition)
    {
        return TakeHeld(to, count);
    }
    const DWORD taken = TakeHeld(to, count);
    if (!small)
    {
        m_readPosition = static_cast<DWORD>(m_readStorage.size()); // all of it is consumed
        return taken + ReadDirect(to + taken, count - taken);
    }
    Refill();
    return taken + TakeHeld(to + taken, count - taken);
}

void CInternetFile::Write(const void* buffer, DWORD count)
{
    RequireWriting();
    DWORD written = 0;
    if (m_writeStorage.empty())
    {
        if (!WriteDirect(buffer, count, &written))
        {
            ThrowWrite("CInternetFile::Write-1 - InternetWriteFile");
        }
        if (written < count)
        {
            ThrowWrite("CInternetFile::Write-2 - InternetWriteFile");
        }
        return;
    }
    const auto capacity = static_cast<DWORD>(m_writeStorage.size());
    if (count >= capacity - m_writeFill) // the fill is never above the capacity
    {
        if (!WriteDirect(m_writeStorage.data(), m_writeFill, &written))
        {
            ThrowWrite("CInternetFile::Write-3 - InternetWriteFile");
        }
        m_writeFill = 0;
    }
    if (count < capacity)
    {
        std::copy_n(static_cast<const std::byte*>(buffer), count,
                    m_writeStorage.data() + m_writeFill);
        m_writeFill += count;
    }
    else if (!WriteDirect(buffer, count, &written))
    {
        ThrowWrite("CInternetFile::Write-4 - InternetWriteFile");
    }
}

void CInternetFile::Abort()
{
    if (!m_handle.IsClosed())
    {
        Close();
    }
    m_fileName.clear();
}

void CInternetFile::Flush()
{
    if (m_writeStorage.empty() || m_writeFill == 0)
    {
        return;
    }
    DWORD written = 0;
    if (!WriteDirect(m_writeStorage.data(), m_writeFill, &written) || written < m_writeFill)
    {
        throw CInternetException(m_context);
    }
    m_writeFill = 0;
}

void CInternetFile::Close()
{
    if (m_handle.IsClosed())
    {
        return;
    }
    if (m_handle) // not ended with its connection
    {
        Flush(); // NOLINT(*VirtualCall): in the destructor the base's own, as meant
    }
    m_handle.Close();
    m_writeStorage = std::vector<std::byte>(); // clear() would keep the memory
    m_writeFill = 0;
    m_readStorage = std::vector<std::byte>();
    m_readPosition = 0;
    m_readHeld = 0;
}

std::uint64_t CInternetFile::GetLength()
{
    DWORD available = 0;
    if (!m_handle || !::InternetQueryDataAvailable(m_handle.Get(), &available, 0, 0))
    {
        return 0;
    }
    return available;
}

wchar_t* CInternetFile::ReadString(wchar_t* buffer, DWORD max)
{
    RequireReading();
    if (!buffer || max == 0)
    {
        throw CInternetException(ERROR_INVALID_PARAMETER);
    }
    if (m_readStorage.empty())
    {
        if (!SetReadBufferSize(kStringBufferBytes))
        {
            return nullptr;
        }
        Refill();
    }
    DWORD stored = 0;
    // By design, the walk starts at the position taken for bytes, while each character moves the
    // position by one only.
    std::size_t at = m_readPosition;
    while (stored + 1 < max)
    {
        if (m_readPosition >= m_readHeld)
        {
            Refill();
            at = 0;
            if (m_readHeld == 0)
            {
                buffer[stored] = L'\0';
                return stored == 0 ? nullptr : buffer;
            }
        }
        const wchar_t character = CharacterAt(at);
        at += sizeof(wchar_t);
        ++m_readPosition;
        if (character == L'\r')
        {
            continue;
        }
        buffer[stored++] = character;
        if (character == L'\n')
        {
            break;
        }
    }
    buffer[stored] = L'\0';
    return buffer;
}

bool CInternetFile::ReadString(std::wstring& line)
{
    line.clear();
    std::array<wchar_t, kChunkCharacters> chunk{};
    bool more = true;
    while (more)
    {
        more = ReadString(chunk.data(), kChunkCharacters) != nullptr;
        if (!more)
        {
            break;
        }
        const std::wstring_view text(chunk.data());
        line.append(text);
        if (text.size() < kChunkCharacters - 1 || text.back() == L'\n')
        {
            break;
        }
    }
    const bool any = more || !line.empty();
    if (line.ends_with(L'\n'))
    {
        line.pop_back();
    }
    return any;
}

void CInternetFile::WriteString(const wchar_t* text)
{
    if (m_readMode)
    {
        ThrowInvalidHandle();
    }
    Write(text, static_cast<DWORD>(::lstrlenW(text)));
}

bool CInternetFile::SetReadBufferSize(DWORD sizeBytes)
{
    const auto capacity = static_cast<DWORD>(m_readStorage.size());
    if (sizeBytes == kUnchanged || sizeBytes == capacity)
    {
        return true;
    }
    if (sizeBytes < m_readPosition)
    {
        return false;
    }
    std::vector<std::byte> storage = MakeStorage(sizeBytes);
    if (sizeBytes == 0)
    {
        m_readHeld = 0;
    }
    else if (capacity == 0)
    {
        m_readPosition = sizeBytes;
    }
    else
    {
        // By design, the remainder is what lies between the position and the capacity, held or not.
        const DWORD remainder = capacity - std::min(m_readPosition, capacity);
        if (remainder == 0 || remainder > sizeBytes)
        {
            m_readHeld = 0;
            m_readPosition = sizeBytes;
        }
        else
        {
            std::memcpy(storage.data(), m_readStorage.data() + m_readPosition, remainder);
            m_readHeld = remainder;
            m_readPosition = 0;
        }
    }
    m_readStorage = std::move(storage);
    return true;
}

HINTERNET CInternetFile::GetHandle() const noexcept
{
    return m_handle.Get();
}

DWORD CInternetFile::GetContext() const noexcept
{
    return m_context;
}

const std::wstring& CInternetFile::GetServerName() const noexcept
{
    return m_serverName;
}

const std::wstring& CInternetFile::GetFileName() const noexcept
{
    return m_fileName;
}

void CInternetFile::SetWriteBufferSize(DWORD sizeBytes)
{
    Flush();
    m_writeStorage = MakeStorage(sizeBytes);
}

void CInternetFile::ThrowInvalidHandle()
{
    throw CInternetException(ERROR_INVALID_HANDLE);
}

void CInternetFile::RequireReading() const
{
    if (!m_readMode || !m_handle)
    {
        ThrowInvalidHandle();
    }
}

void CInternetFile::RequireWriting() const
{
    if (m_readMode || !m_handle)
    {
        ThrowInvalidHandle();
    }
}

DWORD CInternetFile::ReadDirect(void* buffer, DWORD count)
{
    DWORD read = 0;
    if (!::InternetReadFile(m_handle.Get(), buffer, count, &read))
    {
        throw CInternetException(m_context);
    }
    return read;
}

void CInternetFile::Refill()
{
    m_readPosition = 0;
    m_readHeld = 0; // nothing, when the read fails
    m_readHeld = ReadDirect(m_readStorage.data(), static_cast<DWORD>(m_readStorage.size()));
}

bool CInternetFile::WriteDirect(const void* buffer, DWORD count, DWORD* written) noexcept
{
    return ::InternetWriteFile(m_handle.Get(), buffer, count, written) != FALSE;
}

void CInternetFile::ThrowWrite(const char* message) const
{
    throw CInternetException(m_context, message);
}

DWORD CInternetFile::TakeHeld(std::byte* to, DWORD count) noexcept
{
    if (m_readHeld <= m_readPosition || count == 0)
    {
        return 0;
    }
    const DWORD taken = std::min(count, m_readHeld - m_readPosition);
    std::memcpy(to, m_readStorage.data() + m_readPosition, taken);
    m_readPosition += taken;
    return taken;
}

wchar_t CInternetFile::CharacterAt(std::size_t offsetBytes) const noexcept
{
    wchar_t character = L'\0';
    if (offsetBytes + sizeof(character) <= m_readStorage.size())
    {
        std::memcpy(&character, m_readStorage.data() + offsetBytes, sizeof(character));
    }
    return character;
}
