// The container of docs/container-format.md, made once by another program: every version must go on opening
// it, and the document must go on showing what is in it.
#include "support/VaultFixture.h"

#include <QJsonDocument>

using namespace Tessarin;
using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

class FrozenContainerTest : public QObject
{
    Q_OBJECT

private:
    const QString source = QStringLiteral(TESSARIN_SOURCE_DIR);
    const QString sample = source + u"/tests/data/sample-v3.trvx"_s;
    const QByteArray password = "frase de exemplo 3";

private Q_SLOTS:
    void opensWithItsPasswordAndStaysAsItIs()
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
    }

    void keepsItsFilesUnderANewPassword()
    {
        VaultFixture frozen;
        QVERIFY(QFile::copy(sample, frozen.container));

        QVERIFY(frozen.vault.changePassword(frozen.container, password, frozen.password));
        QVERIFY(!frozen.vault.unlockVault(frozen.container, password));
        QVERIFY(frozen.unlock());
        QCOMPARE(frozen.get(u"Viagens/Rio/lista.txt"_s), "Bring a pen.\n");
    }

    void isTheOneThatTheDocumentShows()
    {
        // Where the document breaks its lines does not matter.
        const QByteArray page =
            readFile(source + u"/docs/container-format.md"_s).simplified().replace(' ', "");
        const QByteArray file = readFile(sample);
        const qint64 headerLength = file.mid(7, 20).toLongLong();
        const QJsonObject header = QJsonDocument::fromJson(file.mid(28, headerLength)).object();

        QList<QByteArray> shown{QByteArray(password).replace(' ', ""), QByteArray::number(file.size()),
                                file.left(27), file.mid(8388636).toHex().left(2 * 63)};
        const QJsonObject crypto = header[u"crypto"_s].toObject();
        for (const QString &key : {u"salt"_s, u"nonce"_s, u"payloadNonce"_s, u"encryptedMasterKey"_s}) {
            const QByteArray base64 = crypto[key].toString().toLatin1();
            shown << base64 << QByteArray::fromBase64(base64).toHex();
        }

        VaultFixture frozen;
        QVERIFY(frozen.vault.unlockVault(sample, password));
        for (const Core::VaultFileEntry &entry : frozen.vault.fileIndex().entries()) {
            shown << entry.id.toLatin1() << entry.sha256.toHex();
            for (const Core::VaultFileBlock &block : entry.blocks)
                shown << "\"offset\":" + QByteArray::number(block.offset) << block.nonce.toBase64();
        }
        for (const QByteArray &value : shown)
            QVERIFY2(page.contains(value), value + " is missing in the document");
    }
};

QTEST_GUILESS_MAIN(FrozenContainerTest)
#include "tst_frozen_container.moc"
