// The container file in numbers (format version 3). docs/container-format.md shows it byte by byte.
#pragma once

#include <QtGlobal>

namespace Tessarin::Core::ContainerFormat {

inline constexpr char fileMagic[] = "TRAVEX3";  ///< The first bytes of the file; the digit is the version.
inline constexpr char headerMagic[] = "TRAVEX"; ///< "magic" inside the header, and the start of all AADs.
inline constexpr qint32 version = 3;

inline constexpr qint64 fileMagicSize = 7;
inline constexpr qint64 lengthDigits = 20; ///< The header's length, decimal, zero-padded.
inline constexpr qint64 lengthLineSize = lengthDigits + 1;
inline constexpr qint64 headerAreaOffset = fileMagicSize + lengthLineSize;
inline constexpr qint64 headerAreaSize = 8 * 1024 * 1024;
inline constexpr qint64 blockAreaOffset = headerAreaOffset + headerAreaSize;

inline constexpr qint64 blockPlainSize = 16 * 1024 * 1024; ///< Plaintext of every block but a file's last.
inline constexpr qint32 defaultKdfIterations = 250000;     ///< Where a header names none.
inline constexpr char defaultFileName[] = "tessarin.trvx";

} // namespace Tessarin::Core::ContainerFormat
