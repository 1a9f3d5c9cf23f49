// The main window over made-up drives, with short ways to press what people press and to read what they read.
#pragma once

#include "platform/DeviceManager.h"
#include "support/DialogDriver.h"
#include "ui/MainWindow.h"

#include <QtTest>

namespace Tessarin::Tests {

/// A directory that stands in for a drive; no directory is a drive that is not mounted.
inline Platform::UsbDevice usbDrive(const QString &name, const QString &rootPath, const QString &devicePath)
{
    return {name, devicePath, name, rootPath, {}, true, !rootPath.isEmpty()};
}

struct MadeUpDrives : Platform::DeviceManager
{
    explicit MadeUpDrives(const QList<Platform::UsbDevice> &plugged) : drives(plugged) {}
    QList<Platform::UsbDevice> detectUsbDevices() const override { return drives; }
    void setChangeCallback(const std::function<void()> &changed) override { tell = changed; }
    QList<Platform::UsbDevice> drives;
    std::function<void()> tell;
};

class WindowHarness
{
public:
    explicit WindowHarness(std::unique_ptr<Platform::DeviceManager> detector) : window(std::move(detector))
    {
        window.show();
    }

    QAction *action(const QString &name) { return window.findChild<QAction *>(name + u"Action"_s); }

    void act(const QString &name, const QList<DialogStep> &steps)
    {
        DialogDriver driver(steps);
        action(name)->trigger();
        QCOMPARE(driver.seen.filter(u"nobody expected this"_s), QStringList());
        QCOMPARE(driver.steps.value(0).beginning, QString());
    }

    QPoint placeOf(const QString &name) const
    {
        for (int row = 0; row < table.rowCount(); ++row) {
            if (table.item(row, 1)->text() == name)
                return table.visualItemRect(table.item(row, 1)).center();
        }
        return table.viewport()->rect().bottomRight(); // below all rows
    }

    /// What a file manager does, at a row or, without one, below all rows. Tells how it is received.
    QString drop(const QStringList &paths, const QString &row = {})
    {
        QMimeData data;
        QList<QUrl> urls(paths.size());
        std::ranges::transform(paths, urls.begin(), &QUrl::fromLocalFile);
        data.setUrls(urls);
        const QPoint place = placeOf(row);
        QDragEnterEvent enter(place, Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, {});
        enter.setDropAction(Qt::MoveAction);
        QApplication::sendEvent(table.viewport(), &enter);
        QString told = dropTargetAt(place.y());
        QDropEvent drop(place, enter.possibleActions(), &data, Qt::LeftButton, {});
        drop.setDropAction(Qt::MoveAction);
        if (enter.isAccepted() && enter.dropAction() == Qt::CopyAction)
            QApplication::sendEvent(table.viewport(), &drop);
        QApplication::processEvents();
        told += drop.isAccepted() && drop.dropAction() == Qt::CopyAction ? u"taken"_s : u"refused"_s;
        return told + dropTargetAt(place.y());
    }

    QString dropTargetAt(int y)
    {
        const QImage seen = table.viewport()->grab().toImage();
        const QColor edge = table.palette().color(QPalette::Highlight);
        const bool isTable = seen.pixelColor(seen.rect().bottomLeft()) == edge;
        return isTable ? u"table "_s : seen.pixelColor(0, y) == edge ? u"row "_s : QString();
    }

    UI::MainWindow window;
    QListWidget &deviceList = *window.findChild<QListWidget *>(u"deviceList"_s);
    QTableWidget &table = *window.findChild<QTableWidget *>(u"filesTable"_s);
    QToolButton &padlock = *window.findChild<QToolButton *>(u"vaultToggleButton"_s);
};

} // namespace Tessarin::Tests
