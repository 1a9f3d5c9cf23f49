// The main window over made-up drives, with short ways to press what people press and to read what they read.
#pragma once

#include "support/DirectoryDevices.h"
#include "ui/MainWindow.h"

#include <QAction>
#include <QLabel>
#include <QListWidget>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>
#include <QToolButton>

namespace Tessarin::Tests {

class WindowHarness
{
public:
    explicit WindowHarness(const QList<Platform::UsbDevice> &plugged)
        : drives(std::make_shared<QList<Platform::UsbDevice>>(plugged)),
          window(std::make_unique<DirectoryDevices>(drives)),
          deviceList(*window.findChild<QListWidget *>(QStringLiteral("deviceList"))),
          table(*window.findChild<QTableWidget *>(QStringLiteral("filesTable"))),
          padlock(*window.findChild<QToolButton *>(QStringLiteral("vaultToggleButton")))
    {
        window.show();
    }

    QAction *action(const QString &name)
    {
        return window.findChild<QAction *>(name + QStringLiteral("Action"));
    }
    void trigger(const QString &name) { action(name)->trigger(); }

    QString label(const QString &name)
    {
        return window.findChild<QLabel *>(name + QStringLiteral("Label"))->text();
    }
    QString status() { return window.statusBar()->currentMessage(); }

    QStringList rows() const
    {
        QStringList names;
        for (int row = 0; row < table.rowCount(); ++row)
            names += table.item(row, 1)->text();
        return names;
    }

    /// Clicks the row of this name, once or twice.
    void click(const QString &name, bool twice = false)
    {
        const QPoint place = table.visualItemRect(table.item(int(rows().indexOf(name)), 1)).center();
        QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, place);
        if (twice)
            QTest::mouseDClick(table.viewport(), Qt::LeftButton, {}, place);
    }

    DirectoryDevices::Drives drives;
    UI::MainWindow window;
    QListWidget &deviceList;
    QTableWidget &table;
    QToolButton &padlock;
};

} // namespace Tessarin::Tests
