// The list of drives: a row for each, which one is chosen, and which one holds the chosen container. While a
// container is chosen, the choice of a drive always goes back to the container's.
#pragma once

#include "platform/DeviceManager.h"

#include <QListWidget>

namespace Tessarin::UI {

class OperationGuard;

class DeviceList : public QListWidget
{
    Q_OBJECT

public:
    /// Empty until refresh(). Without a detector it says that this system has none. Detector and guard
    /// are members of the window that the list is in.
    DeviceList(Platform::DeviceManager *driveDetector, const OperationGuard &operations,
               QWidget *parent = nullptr);

    /// Reads the drives anew. The container's drive is chosen then, or without a container the only drive
    /// there is.
    void refresh();

    /// Chooses the drive that holds this container, now and from now on. Empty: no container.
    void selectDeviceForContainer(const QString &path);

    /// Chooses the drive that is mounted there; only while no container is chosen.
    void chooseDrive(const QString &rootPath);

    /// Notes whether the container's drive is there: changes from now on are signalled.
    void watchContainerDrive();

    /// Empty when no mounted drive is chosen.
    [[nodiscard]] QString selectedUsbRootPath() const;
    [[nodiscard]] QString selectedUsbDisplayName() const;
    /// Without its free space.
    [[nodiscard]] QString selectedUsbName() const;
    [[nodiscard]] int mountedUsbDeviceCount() const;

    /// Chooses the only mounted drive; with several, none.
    void selectDefaultUsbAfterRefresh();

    [[nodiscard]] int unmountedUsbDeviceCount() const;

Q_SIGNALS:
    /// The rows or the choice among them may be others than before.
    void changed();

    /// A mounted drive was double-clicked.
    void driveOpened(const QString &rootPath);

    void containerDriveLeft();
    void containerDriveReturned();

protected:
    void mouseDoubleClickEvent(QMouseEvent *event) override;

private:
    void addRow(const Platform::UsbDevice &device);
    void selectRow(int row);
    void selectContainerRow();
    /// Pulls the choice back to the container's drive.
    void keepContainerDevice();
    /// Refreshes by itself, as soon as no operation runs, keeping the choice of a drive.
    void followMounts();
    /// Of the drives that can be chosen.
    [[nodiscard]] QList<QListWidgetItem *> mountedRows() const;

    Platform::DeviceManager *detector;
    const OperationGuard &guard;
    QString containerPath;            ///< Empty: none chosen.
    bool mountsChanged = false;       ///< While an operation ran.
    bool containerDriveThere = false; ///< When it was last noted.
};

} // namespace Tessarin::UI
