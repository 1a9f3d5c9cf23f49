// One USB drive, as the detector found it.
#pragma once

#include <QString>

namespace Tessarin::Platform {

struct UsbDevice
{
    QString identifier;  ///< A stable key; "root path:device path" when mounted.
    QString devicePath;  ///< The block device node, such as /dev/sdb1.
    QString displayName; ///< What people know the drive by.
    QString rootPath;    ///< The mount point; empty when not mounted.
    QString fileSystemType;
    bool removable = false; ///< The kernel's flag of the device or its disk.
    bool mounted = false;
};

} // namespace Tessarin::Platform
