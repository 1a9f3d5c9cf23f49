// What the window asks about drives, whatever the system below.
#pragma once

#include "platform/UsbDevice.h"

#include <QList>

#include <functional>
#include <memory>

namespace Tessarin::Platform {

class DeviceManager
{
public:
    virtual ~DeviceManager() = default;

    /// The USB drives of this machine in the order of their discovery; empty when there are none. Reads the
    /// system anew at every call and may block for as long as that takes.
    [[nodiscard]] virtual QList<UsbDevice> detectUsbDevices() const = 0;

    /// From now on, and in place of any former one, `changed` is called from the event loop when the list of
    /// drives may have changed. A detector that cannot notice changes never calls it.
    virtual void setChangeCallback([[maybe_unused]] const std::function<void()> &changed) {}
};

/// The detector for the system that the program is built for; null where there is none.
[[nodiscard]] std::unique_ptr<DeviceManager> makeSystemDeviceManager();

} // namespace Tessarin::Platform
