// What the window lets people do, and shows them, in every situation it knows.
#include "WindowHarness.h"
#include "support/VaultFixture.h"

using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

class WindowStatesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everySituationHasItsActions()
    {
        QVERIFY(vault.createAndUnlock() && vault.put(u"carta.txt"_s, "oi") && vault.vault.lockVault());
        const QString atRest = u"refreshDevices chooseContainer createVault"_s;
        const QString locked = atRest + u" backup changePassword unlock"_s;
        const QString open = u"lock createDirectory import compact "_s;
        const QString onFile = open + u"export open renameFile deleteFile "_s;

        verify(atRest, u"no container"_s);
        verifyPadlock(u"Selecione um container para desbloquear o cofre."_s, QColor(0xa5, 0xa5, 0xa5), false);
        QCOMPARE(w.label(u"container"_s), u"Container: nenhum"_s);
        QCOMPARE(w.window.statusBar()->currentMessage(), u"Pronto"_s);

        // A long name is whole in the tooltip, and plain there.
        const QString path = vault.folder.filePath(u"um <b>nome de container que não cabe no rótulo.trvx"_s);
        writeFile(path, {});
        w.act(u"chooseContainer"_s, {pick(u"Escolher container Tessarin"_s, {path})},
              u"Container selecionado."_s);
        const auto *containerLabel = w.window.findChild<QLabel *>(u"containerLabel"_s);
        QVERIFY(containerLabel->text().contains(u'…'));
        QVERIFY(containerLabel->toolTip().contains(u"&lt;b&gt;nome de container que"_s));

        Q_EMIT w.deviceList.itemDoubleClicked(w.deviceList.item(0));
        verify(locked, u"locked"_s);
        verifyPadlock(u"Desbloquear cofre"_s, dark, false);
        QCOMPARE(w.label(u"container"_s), u"Container: Tessarin"_s);

        const QString title = u"Senha do cofre"_s;
        drive([&] { w.padlock.click(); }, {press(title, u"Senha:"_s, u"Cancel"_s)});
        QVERIFY(!w.padlock.isChecked());
        drive([&] { w.padlock.click(); }, {type(title, {QString::fromUtf8(vault.password)})});
        verify(open, u"nothing selected"_s);
        verifyPadlock(u"Bloquear cofre"_s, dark, true);
        QCOMPARE(w.label(u"protectedFiles"_s), u"Arquivos protegidos | Pasta: Raiz | 1 arquivo no cofre."_s);

        w.click(u"carta.txt"_s);
        verify(onFile, u"a file, no folder to move it to"_s);
        w.click(u"carta.txt"_s, Qt::ControlModifier);
        verify(open, u"the file, chosen no longer"_s);
        w.act(u"createDirectory"_s, {type(u"Nova pasta"_s, {u"Docs"_s})});
        verify(open, u"nothing selected after a refresh"_s);
        w.click(u"carta.txt"_s);
        verify(onFile + u"moveFile"_s, u"a file and a folder for it"_s);
        w.click(u"Docs"_s);
        verify(open + u"renameDirectory deleteDirectory"_s, u"a folder"_s);
        w.enter(u"Docs"_s);
        QCOMPARE(w.label(u"protectedFiles"_s), u"Arquivos protegidos | Pasta: Docs | 1 arquivo no cofre."_s);
        w.click(u".."_s);
        verify(open, u"the way up"_s);

        w.padlock.click();
        verify(locked, u"locked again"_s);
        QCOMPARE(w.table.rowCount(), 0);
        QCOMPARE(w.label(u"protectedFiles"_s), u"Nenhum cofre em uso (aberto)"_s);
    }

private:
    /// Compares the enabled actions, out of all there are, with the names and those that are always enabled.
    void verify(const QString &enabledNames, const QString &situation)
    {
        QStringList expected = (enabledNames + u" exit help webPage about"_s).split(u' ', Qt::SkipEmptyParts);
        QStringList enabled;
        for (const QAction *action : w.window.findChildren<QAction *>()) {
            if (action->objectName().endsWith(u"Action"_s) && action->isEnabled())
                enabled += action->objectName().chopped(6);
        }
        expected.sort();
        enabled.sort();
        QVERIFY2(enabled == expected, qPrintable(situation + u": "_s + enabled.join(u' ')));
    }

    void verifyPadlock(const QString &toolTip, const QColor &stroke, bool open)
    {
        const QImage image = w.padlock.icon().pixmap(48, 48).toImage();
        QCOMPARE(w.padlock.toolTip(), toolTip);
        QCOMPARE(w.padlock.isEnabled(), stroke == dark);
        QCOMPARE(w.padlock.isChecked(), open);
        QCOMPARE(image.pixelColor(24, 32), stroke);
        QCOMPARE(image.pixelColor(40, 15).alpha() > 0, open);
        const auto *indicator = w.window.findChild<QLabel *>(u"vaultIndicatorLabel"_s);
        QVERIFY(indicator->styleSheet().contains(open ? u"#7bd88f"_s : u"#f06a6a"_s));
    }

    const QColor dark{0x46, 0x46, 0x46};
    VaultFixture vault;
    WindowHarness w{{usbDrive(u"PENDRIVE"_s, vault.folder.path(), u"/dev/x1"_s)}};
};

QTEST_MAIN(WindowStatesTest)
#include "tst_window_states.moc"
