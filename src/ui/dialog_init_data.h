#pragma once

#include "ui/dialog_template.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace velt
{
/// Gives the ActiveX controls of a dialog what its initial data have for them; where they have
/// something, it takes the place of the template's creation data.
///
/// `bytes` are those of the resource of type RT_DLGINIT that has the template's number: entries of
/// a control's number (16 bits), a message (16 bits), a length in bytes (32 bits) and so many
/// bytes, without gaps, until the number 0 or the end. Messages of 0x376 and 0x37A are for ActiveX
/// controls that load themselves from a stream. Their bytes are the length of a licence key in
/// characters (32 bits), the key, with 0x37A a block for data binding that starts with its own
/// length in bytes (32 bits, which count), and then what the control has written. Hosts of the
/// system use neither key nor block.
///
/// Entries of other kinds are passed over, and so is everything from one that is cut short on. The
/// items then refer to the bytes.
void TakeInitData(std::span<const std::byte> bytes, std::span<ActiveXItem> items) noexcept;
} // namespace velt
