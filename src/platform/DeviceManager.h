// What the window asks about drives, whatever the system below.
#pragma once

#include "platform/UsbDevice.h"

#include <QList>

namespace Tessarin::Platform {

class DeviceManager
{
public:
    virtual ~DeviceManager() = default;

    /// The USB drives of this machine in the order of their discovery; empty when there are none. Reads the
    /// system anew at every call and may block for as long as that takes.
    [[nodiscard]] virtual QList<UsbDevice> detectUsbDevices() const = 0;
};

} // namespace Tessarin::Platform
