// Drives for the window's tests: temporary directories that stand in for mounted USB drives.
#pragma once

#include "platform/DeviceManager.h"

#include <QString>

#include <memory>

namespace Tessarin::Tests {

/// Answers with a list that the test keeps, and changes when a drive comes or goes.
class DirectoryDevices : public Platform::DeviceManager
{
public:
    using Drives = std::shared_ptr<QList<Platform::UsbDevice>>;

    explicit DirectoryDevices(Drives shared) : drives(std::move(shared)) {}
    QList<Platform::UsbDevice> detectUsbDevices() const override { return *drives; }

    /// An empty root is a drive that is not mounted.
    static Platform::UsbDevice drive(const QString &name, const QString &rootPath, const QString &devicePath)
    {
        Platform::UsbDevice device;
        device.identifier = rootPath + u':' + devicePath;
        device.devicePath = devicePath;
        device.displayName = name;
        device.rootPath = rootPath;
        device.removable = true;
        device.mounted = !rootPath.isEmpty();
        return device;
    }

private:
    Drives drives;
};

} // namespace Tessarin::Tests
