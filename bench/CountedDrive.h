// Counts what this process gives to the files of one folder as a drive would: pages that are written back,
// and waits for the drive. The kernel's own figures do not tell: /proc/self/io knows nothing of the page
// cache. CountedDrive.cpp replaces the C library's calls for the whole executable, which must export its
// symbols.
#pragma once

#include <QtGlobal>

namespace Tessarin::Bench {

/// What reaches a drive, or comes from it.
struct DriveTraffic
{
    qint64 writtenBytes =
        0;             ///< In whole pages of 4096 bytes; gaps in a file count, as FAT fills them with zeros.
    qint64 writes = 0; ///< Runs of neighbouring pages.
    qint64 waits = 0;  ///< fsync of a file or a folder, and sync_file_range that waits.
    qint64 readBytes = 0; ///< Asked for, cached or not.
};

/// Counts from now on, for files below this folder. Only one folder can be counted at a time.
void countDrive(const char *folder);

/// What has come together since the last call or the start; pages that are still unwritten count as written.
[[nodiscard]] DriveTraffic takeTraffic();

} // namespace Tessarin::Bench
