// The main window over made-up drives, with short ways to press what people press and to read what they read.
#pragma once

#include "platform/DeviceManager.h"
#include "support/DialogDriver.h"
#include "ui/MainWindow.h"

#include <QAction>
#include <QDesktopServices>
#include <QDropEvent>
#include <QListWidget>
#include <QMimeData>
#include <QStatusBar>
#include <QTableWidget>
#include <QToolButton>

namespace Tessarin::Tests {

using Drives = std::shared_ptr<QList<Platform::UsbDevice>>;

/// A directory that stands in for a drive; no directory is a drive that is not mounted.
inline Platform::UsbDevice usbDrive(const QString &name, const QString &rootPath, const QString &devicePath)
{
    return {.identifier = name,
            .devicePath = devicePath,
            .displayName = name,
            .rootPath = rootPath,
            .fileSystemType = {},
            .removable = true,
            .mounted = !rootPath.isEmpty()};
}

/// Stands in for the desktop that opens files and web pages.
class OpenedFile : public QObject
{
    Q_OBJECT

public:
    OpenedFile()
    {
        for (const QString &scheme : {u"file"_s, u"https"_s})
            QDesktopServices::setUrlHandler(scheme, this, "remember");
    }
    ~OpenedFile() override
    {
        for (const QString &scheme : {u"file"_s, u"https"_s})
            QDesktopServices::unsetUrlHandler(scheme);
    }
    QString path;

public Q_SLOTS:
    void remember(const QUrl &url) { path = url.isLocalFile() ? url.toLocalFile() : url.toString(); }
};

class WindowHarness
{
public:
    explicit WindowHarness(const QList<Platform::UsbDevice> &plugged)
        : drives(std::make_shared<QList<Platform::UsbDevice>>(plugged)),
          window(std::make_unique<Detector>(drives))
    {
        window.show();
    }

    explicit WindowHarness(std::unique_ptr<Platform::DeviceManager> detector) : window(std::move(detector))
    {
        window.show();
    }

    QAction *action(const QString &name) { return window.findChild<QAction *>(name + u"Action"_s); }

    /// Runs an action, answers its dialogs, and looks at the status bar.
    void act(const QString &name, const QList<DialogStep> &steps, const QString &status = {})
    {
        drive([&] { action(name)->trigger(); }, steps);
        if (!status.isEmpty())
            QCOMPARE(window.statusBar()->currentMessage(), status);
    }

    QString label(const QString &name) { return window.findChild<QLabel *>(name + u"Label"_s)->text(); }

    QStringList rows() const
    {
        QStringList names;
        for (int row = 0; row < table.rowCount(); ++row)
            names += table.item(row, 1)->text();
        return names;
    }
    QPoint placeOf(const QString &name) const
    {
        return table.visualItemRect(table.item(int(rows().indexOf(name)), 1)).center();
    }
    void click(const QString &name, Qt::KeyboardModifiers keys = {})
    {
        QTest::mouseClick(table.viewport(), Qt::LeftButton, keys, placeOf(name));
    }
    void enter(const QString &name)
    {
        click(name);
        QTest::mouseDClick(table.viewport(), Qt::LeftButton, {}, placeOf(name));
    }

    /// What a file manager does, at a row or, without one, below all rows. False: not welcome.
    bool drop(const QStringList &paths, const QString &row = {})
    {
        QMimeData data;
        QList<QUrl> urls;
        for (const QString &path : paths)
            urls += QUrl::fromLocalFile(path);
        data.setUrls(urls);
        const QPoint place = row.isEmpty() ? table.viewport()->rect().bottomRight() : placeOf(row);
        QDragEnterEvent enter(place, Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, {});
        QApplication::sendEvent(table.viewport(), &enter);
        QDropEvent drop(place, enter.possibleActions(), &data, Qt::LeftButton, {});
        if (!enter.isAccepted())
            return false;
        QApplication::sendEvent(table.viewport(), &drop);
        QApplication::processEvents();
        return drop.isAccepted() && drop.dropAction() == Qt::CopyAction;
    }

private:
    struct Detector : Platform::DeviceManager
    {
        explicit Detector(Drives shared) : drives(std::move(shared)) {}
        QList<Platform::UsbDevice> detectUsbDevices() const override { return *drives; }
        Drives drives;
    };

public:
    Drives drives; ///< Drives come and go with this list.
    UI::MainWindow window;
    QListWidget &deviceList = *window.findChild<QListWidget *>(u"deviceList"_s);
    QTableWidget &table = *window.findChild<QTableWidget *>(u"filesTable"_s);
    QToolButton &padlock = *window.findChild<QToolButton *>(u"vaultToggleButton"_s);
};

} // namespace Tessarin::Tests
