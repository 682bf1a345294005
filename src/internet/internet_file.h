#pragma once

#include "internet/registered_handle.h"

#include <windows.h>

#include <wininet.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// One open request of the internet API, read or written through optional buffers.
///
/// Operations on a closed file or in the wrong mode throw CInternetException with
/// ERROR_INVALID_HANDLE (6). By design, failures of the API are thrown with the file's context
/// value as their code. Used by one thread at a time.
class CInternetFile
{
public:
    CInternetFile(const CInternetFile&) = delete;
    CInternetFile& operator=(const CInternetFile&) = delete;

    /// Moves the position of a file that is read without a buffer; returns the new one, sign-
    /// extended from 32 bits. `origin` is FILE_BEGIN, FILE_CURRENT or FILE_END. Another origin, or
    /// an offset outside the signed 32-bit range, is ERROR_INVALID_PARAMETER (87).
    virtual std::int64_t Seek(std::int64_t offset, DWORD origin);

    /// Reads up to `count` bytes; 0 at the end.
    virtual DWORD Read(void* buffer, DWORD count);

    /// Writes bytes of a file that is not in read mode. The message of a failure names the stage.
    virtual void Write(const void* buffer, DWORD count);

    /// Closes and forgets the file's name.
    virtual void Abort();

    /// Writes what the write buffer holds.
    virtual void Flush();

    /// Flushes, then closes the handle and frees the buffers; nothing happens the second time.
    virtual void Close();

    /// How many bytes can be read without waiting; 0 when that is not known.
    virtual std::uint64_t GetLength();

    /// Reads a line, or as much of it as `max` characters with the final NUL hold, as 16-bit
    /// characters without carriage returns; a line feed is kept. Null when nothing was left. By
    /// design, the position counts characters where the buffer counts bytes.
    virtual wchar_t* ReadString(wchar_t* buffer, DWORD max);

    /// Reads a whole line without its line feed. False when nothing was left.
    virtual bool ReadString(std::wstring& line);

    /// Writes a text. By design, as many bytes as it has characters, the first half of it.
    virtual void WriteString(const wchar_t* text);

    /// Closes the file; a failure of the last flush is lost.
    virtual ~CInternetFile();

    /// Gives the file a read buffer of that many bytes; all bits set leaves it as it is and 0 takes
    /// it away. False when it would be smaller than what was read of the old one. Throws
    /// std::bad_alloc.
    bool SetReadBufferSize(DWORD sizeBytes);

    HINTERNET GetHandle() const noexcept;
    DWORD GetContext() const noexcept;
    const std::wstring& GetServerName() const noexcept;
    const std::wstring& GetFileName() const noexcept;

protected:
    /// Takes over the handle, which may be none.
    CInternetFile(velt::RegisteredHandle handle, bool readMode, DWORD context,
                  std::wstring serverName, std::wstring fileName);

    /// Gives the file a write buffer; nothing in this library does. Throws std::bad_alloc.
    void SetWriteBufferSize(DWORD sizeBytes);

    [[noreturn]] static void ThrowInvalidHandle();

private:
    void RequireReading() const;
    void RequireWriting() const;

    /// One InternetReadFile; throws with the file's context.
    DWORD ReadDirect(void* buffer, DWORD count);

    /// Fills the read buffer anew.
    void Refill();

    /// One InternetWriteFile; false when it failed.
    bool WriteDirect(const void* buffer, DWORD count, DWORD* written) noexcept;
    [[noreturn]] void ThrowWrite(const char* message) const;

    /// Takes up to `count` held bytes from the position on; returns how many.
    DWORD TakeHeld(std::byte* to, DWORD count) noexcept;

    /// The 16-bit character at an offset of the read buffer; 0 past its end.
    wchar_t CharacterAt(std::size_t offsetBytes) const noexcept;

    velt::RegisteredHandle m_handle;
    bool m_readMode;
    DWORD m_context;
    std::wstring m_serverName;
    std::wstring m_fileName;

    std::vector<std::byte> m_writeStorage; // its size is the capacity
    DWORD m_writeFill = 0;

    std::vector<std::byte> m_readStorage; // its size is the capacity
    DWORD m_readPosition = 0;
    DWORD m_readHeld = 0; // bytes
};
