// The container of docs/container-format.md, made once by another program: every version must go on opening
// it, and the document must go on showing what is in it.
#include "support/VaultFixture.h"

using namespace Tessarin;
using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

class FrozenContainerTest : public QObject
{
    Q_OBJECT

private:
    const QString sample = QStringLiteral(TESSARIN_SOURCE_DIR "/tests/data/sample-v3.trvx");
    const QByteArray password = "frase de exemplo 3";

private Q_SLOTS:
    void opensAndStaysAsItIsUntilItsPasswordIsChanged()
    {
        VaultFixture frozen;
        QVERIFY(QFile::copy(sample, frozen.container));

        QVERIFY(frozen.vault.unlockVault(frozen.container, password));
        QCOMPARE(frozen.directoryPaths(), QStringList({u"Viagens"_s, u"Viagens/Rio"_s}));
        QCOMPARE(frozen.filePaths(),
                 QStringList({u"Maçã do amor.txt"_s, u"vazio.bin"_s, u"Viagens/Rio/lista.txt"_s}));
        QCOMPARE(frozen.get(u"Maçã do amor.txt"_s), "Duas xícaras de açúcar e uma pitada de sal.\n");
        QCOMPARE(frozen.get(u"vazio.bin"_s), "");
        QCOMPARE(frozen.get(u"Viagens/Rio/lista.txt"_s), "Bring a pen.\n");
        QVERIFY(frozen.vault.lockVault());

        QVERIFY(readFile(frozen.container) == readFile(sample));
        QVERIFY(frozen.vault.changePassword(frozen.container, password, frozen.password));
        QVERIFY(!frozen.vault.unlockVault(frozen.container, password));
        QVERIFY(frozen.unlock());
        QCOMPARE(frozen.get(u"Viagens/Rio/lista.txt"_s), "Bring a pen.\n");
    }
};

QTEST_GUILESS_MAIN(FrozenContainerTest)
#include "tst_frozen_container.moc"
