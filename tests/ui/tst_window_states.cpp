// What the window lets people do, and shows them, in every situation it knows.
#include "WindowHarness.h"
#include "support/DialogDriver.h"
#include "support/VaultFixture.h"

using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

class WindowStatesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(vault.createAndUnlock());
        QVERIFY(vault.put(u"carta.txt"_s, "oi"));
        QVERIFY(vault.vault.lockVault());
        w = std::make_unique<WindowHarness>(
            QList{DirectoryDevices::drive(u"PENDRIVE"_s, vault.folder.path(), u"/dev/x1"_s)});
    }

    void everySituationHasItsActions()
    {
        const QString atRest = u"refreshDevices chooseContainer createVault"_s;
        const QString open = u"lock createDirectory import compact "_s;
        const QString onFile = open + u"export open renameFile deleteFile "_s;
        const QColor dark(0x46, 0x46, 0x46);

        verify(atRest, u"no container"_s);
        QVERIFY(!w->padlock.isEnabled() && !w->padlock.isChecked());
        QCOMPARE(w->padlock.toolTip(), u"Selecione um container para desbloquear o cofre."_s);
        QCOMPARE(padlockImage().pixelColor(24, 32), QColor(0xa5, 0xa5, 0xa5));
        QCOMPARE(w->label(u"container"_s), u"Container: nenhum"_s);
        QCOMPARE(w->label(u"protectedFiles"_s), u"Nenhum cofre em uso (aberto)"_s);
        QCOMPARE(w->status(), u"Pronto"_s);

        Q_EMIT w->deviceList.itemDoubleClicked(w->deviceList.item(0));
        verify(atRest + u" backup changePassword unlock"_s, u"locked"_s);
        QVERIFY(w->padlock.isEnabled() && !w->padlock.isChecked());
        QCOMPARE(w->padlock.toolTip(), u"Desbloquear cofre"_s);
        QCOMPARE(padlockImage().pixelColor(24, 32), dark);
        QCOMPARE(padlockImage().pixelColor(40, 15).alpha(), 0);
        QCOMPARE(w->label(u"container"_s), u"Container: Tessarin"_s);
        const auto *indicator = w->window.findChild<QLabel *>(u"vaultIndicatorLabel"_s);
        QVERIFY(indicator->text() == u"COFRE"_s && indicator->styleSheet().contains(u"#f06a6a"_s));

        drive([&] { w->padlock.click(); }, {press(u"Senha do cofre"_s, {}, u"Cancel"_s)});
        QVERIFY(!w->padlock.isChecked());
        drive([&] { w->padlock.click(); },
              {type(u"Senha do cofre"_s, u"Senha:"_s, QString::fromUtf8(vault.password))});
        verify(open, u"nothing selected"_s);
        QVERIFY(w->padlock.isEnabled() && w->padlock.isChecked());
        QCOMPARE(w->padlock.toolTip(), u"Bloquear cofre"_s);
        QCOMPARE(padlockImage().pixelColor(24, 32), dark);
        QVERIFY(padlockImage().pixelColor(40, 15).alpha() > 0);
        QVERIFY(indicator->styleSheet().contains(u"#7bd88f"_s));
        QCOMPARE(w->label(u"protectedFiles"_s), u"Arquivos protegidos | Pasta: Raiz | 1 arquivo no cofre."_s);

        w->click(u"carta.txt"_s);
        verify(onFile, u"a file, no folder to move it to"_s);
        QTest::mouseClick(w->table.viewport(), Qt::LeftButton, Qt::ControlModifier,
                          w->table.visualItemRect(w->table.item(0, 1)).center());
        verify(open, u"the file, chosen no longer"_s);
        drive([&] { w->trigger(u"createDirectory"_s); }, {type(u"Nova pasta"_s, {}, u"Docs"_s)});
        verify(open, u"nothing selected after a refresh"_s);
        w->click(u"carta.txt"_s);
        verify(onFile + u"moveFile"_s, u"a file and a folder for it"_s);
        w->click(u"Docs"_s);
        verify(open + u"renameDirectory deleteDirectory"_s, u"a folder"_s);
        w->click(u"Docs"_s, true);
        QCOMPARE(w->label(u"protectedFiles"_s), u"Arquivos protegidos | Pasta: Docs | 1 arquivo no cofre."_s);
        w->click(u".."_s);
        verify(open, u"the way up"_s);

        w->padlock.click();
        verify(atRest + u" backup changePassword unlock"_s, u"locked again"_s);
        QCOMPARE(w->table.rowCount(), 0);
        QCOMPARE(w->label(u"protectedFiles"_s), u"Nenhum cofre em uso (aberto)"_s);
    }

    void aLongContainerNameIsWholeInItsToolTip()
    {
        const QString path = vault.folder.filePath(u"um <b>nome de container que não cabe no rótulo.trvx"_s);
        writeFile(path, {});
        drive([&] { w->trigger(u"chooseContainer"_s); }, {pick(u"Escolher container Tessarin"_s, {path})});
        QCOMPARE(w->status(), u"Container selecionado."_s);
        QVERIFY(w->label(u"container"_s).contains(u'…'));
        QVERIFY(w->window.findChild<QLabel *>(u"containerLabel"_s)
                    ->toolTip()
                    .contains(u"&lt;b&gt;nome de container que"_s));
    }

private:
    void verify(const QString &enabledNames, const QString &situation)
    {
        const QStringList all =
            u"exit refreshDevices chooseContainer createVault backup changePassword unlock lock "
            "createDirectory import export open moveFile renameFile renameDirectory "
            "deleteDirectory deleteFile compact help webPage about"_s.split(u' ');
        QStringList expected = (enabledNames + u" exit help webPage about"_s).split(u' ', Qt::SkipEmptyParts);
        QStringList enabled;
        for (const QString &name : all) {
            QVERIFY2(w->action(name), qPrintable(name));
            if (w->action(name)->isEnabled())
                enabled += name;
        }
        expected.sort();
        enabled.sort();
        QVERIFY2(enabled == expected, qPrintable(situation + u": "_s + enabled.join(u' ')));
    }

    QImage padlockImage() const { return w->padlock.icon().pixmap(48, 48).toImage(); }

    VaultFixture vault;
    std::unique_ptr<WindowHarness> w;
};

/// Compares the enabled actions, out of all there are, with the names; help and exit are always among them.
QTEST_MAIN(WindowStatesTest)
#include "tst_window_states.moc"
