#pragma once

#include "foundation/SampleFormat.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace velorine {

inline constexpr int wavHeaderBytes = 44; ///< RIFF, fmt and data headers in one; never more

/// Header of a recording: little-endian, format tag 1 or 3, never the extensible form.
///
/// @param dataBytes  bytes behind the header, below 0 counts as 0; sizes that 32 bits can't hold
///                   are written as 0xFFFFFFFF
std::array<std::byte, wavHeaderBytes> wavHeader(const SampleFormat& format,
                                                std::int64_t dataBytes) noexcept;

inline constexpr int wavFieldsOffset = 20; ///< of the format's fields in a file
inline constexpr int wavFieldsBytes = 16;
inline constexpr int wavSubtypeOffset = 44; ///< of an extensible header's GUID in a file
inline constexpr int wavSubtypeBytes = 16;

/// Whether the fields leave the coding to the GUID behind them.
bool wavIsExtensible(std::span<const std::byte, wavFieldsBytes> fields) noexcept;

/// Format of a file by its header.
///
/// @param fields   what stands at `wavFieldsOffset`
/// @param subtype  what stands at `wavSubtypeOffset`, if the file is extensible; else empty
/// @return type -1 for a number of bits that no sample type has
SampleFormat wavFormat(std::span<const std::byte, wavFieldsBytes> fields,
                       std::span<const std::byte> subtype) noexcept;

} // namespace velorine
