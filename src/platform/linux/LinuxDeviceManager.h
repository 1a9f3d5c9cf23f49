// Finds the USB drives of a Linux machine in the kernel's public views. It never mounts anything.
#pragma once

#include "platform/DeviceManager.h"

namespace Tessarin::Platform::Linux {

class MountWatcher;

class LinuxDeviceManager final : public DeviceManager
{
public:
    LinuxDeviceManager();
    ~LinuxDeviceManager() override;
    Q_DISABLE_COPY_MOVE(LinuxDeviceManager)

    [[nodiscard]] QList<UsbDevice> detectUsbDevices() const override;

    /// Mounts and unmounts are changes. A drive that is plugged in and not mounted goes unnoticed.
    void setChangeCallback(const std::function<void()> &changed) override;

private:
    std::unique_ptr<MountWatcher> mountWatcher; ///< Null until a callback is set.
};

} // namespace Tessarin::Platform::Linux
