// Finds the USB drives of a Linux machine in the kernel's public views. It never mounts anything.
#pragma once

#include "platform/DeviceManager.h"

namespace Tessarin::Platform::Linux {

class LinuxDeviceManager final : public DeviceManager
{
public:
    [[nodiscard]] QList<UsbDevice> detectUsbDevices() const override;
};

} // namespace Tessarin::Platform::Linux
