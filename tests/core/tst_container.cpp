// The container file byte by byte, and what is refused.
#include "core/ContainerManager.h"
#include "support/VaultFixture.h"

#include <QJsonObject>
#include <QTest>

using namespace Tessarin::Core;
using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

class ContainerTest : public QObject
{
    Q_OBJECT

private:
    const ContainerManager containers{};
    QTemporaryDir folder;
    const QString path = folder.filePath(u"tessarin.trvx"_s);
    ContainerDocument sample;

    /// A file with this length line and these bytes in its header area.
    void writeRaw(const QByteArray &lengthLine, const QByteArray &header) const
    {
        writeFile(path, "TRAVEX3" + lengthLine + header + QByteArray(8388608 - header.size(), '\0'));
    }

    [[nodiscard]] bool reads() const
    {
        ContainerDocument read;
        return containers.readDocument(path, &read);
    }

    static QByteArray lengthLine(qsizetype length)
    {
        return QByteArray::number(length).rightJustified(20, '0') + '\n';
    }

private Q_SLOTS:
    void init()
    {
        sample = {};
        sample.crypto.kdf = u"Argon2id"_s;
        sample.crypto.cipher = u"XChaCha20-Poly1305"_s;
        sample.crypto.kdfIterations = 0;
        sample.crypto.salt = "0123456789abcdef";
        sample.crypto.nonce = QByteArray(24, 'n');
        sample.crypto.payloadNonce = QByteArray(24, 'p');
        sample.crypto.encryptedMasterKey = "key";
        sample.encryptedIndex = "index";
    }

    void aDocumentIsWrittenByteByByteAndReadBack()
    {
        QVERIFY(containers.writeDocument(path, sample, [](QIODevice &output) {
            return output.pos() == 8388636 && output.write("blocks") == 6;
        }));
        const QByteArray header =
            R"({"magic":"TRAVEX","formatVersion":3,"crypto":{"kdf":"Argon2id","cipher":"XChaCha20-Poly1305",)"
            R"("kdfIterations":0,"salt":"MDEyMzQ1Njc4OWFiY2RlZg==","nonce":"bm5ubm5ubm5ubm5ubm5ubm5ubm5ubm5u",)"
            R"("payloadNonce":"cHBwcHBwcHBwcHBwcHBwcHBwcHBwcHBw","authTag":"","encryptedMasterKey":"a2V5"},)"
            R"("encryptedIndex":"aW5kZXg="})";
        const QByteArray whole = "TRAVEX3" + lengthLine(header.size()) + header +
                                 QByteArray(8388608 - header.size(), '\0') + "blocks";
        QVERIFY(readFile(path) == whole);
        QVERIFY(containers.readContainer(path) == whole);

        ContainerDocument read;
        QVERIFY(containers.readDocument(path, &read));
        QCOMPARE(containers.buildHeader(read), header);
    }

    /// The container of docs/container-format.md, made once by another program.
    void theSampleContainerOpensAndStaysAsItIs()
    {
        const QString original = QStringLiteral(TESSARIN_SOURCE_DIR "/tests/data/sample-v3.trvx");
        VaultFixture f;
        QVERIFY(QFile::remove(f.container));
        QVERIFY(QFile::copy(original, f.container));
        QVERIFY(f.vault.unlockVault(f.container, "frase de exemplo 3"));
        QCOMPARE(f.paths(), QStringList({u"Viagens/"_s, u"Viagens/Rio/"_s, u"Maçã do amor.txt"_s,
                                         u"vazio.bin"_s, u"Viagens/Rio/lista.txt"_s}));
        QCOMPARE(f.get(u"Maçã do amor.txt"_s), "Duas xícaras de açúcar e uma pitada de sal.\n");
        QCOMPARE(f.get(u"vazio.bin"_s), "");
        QCOMPARE(f.get(u"Viagens/Rio/lista.txt"_s), "Bring a pen.\n");
        QVERIFY(f.vault.lockVault());
        QVERIFY(readFile(f.container) == readFile(original));
    }

    void headersAreRewrittenInPlaceOrNotAtAll()
    {
        const auto writeBlocks = [](QIODevice &output) { return output.write("blocks") == 6; };
        QVERIFY(containers.writeDocument(path, sample, writeBlocks));
        const QByteArray former = readFile(path);
        QVERIFY(!containers.writeDocument(path, sample, [](QIODevice &) { return false; }));
        const ContainerDocument same = sample;
        sample.encryptedIndex = QByteArray(5000, 'i');
        QVERIFY(containers.updateDocumentHeader(path, sample));
        QVERIFY(readFile(path) != former);
        QVERIFY(containers.updateDocumentHeader(path, same));
        QVERIFY(readFile(path) == former);
        QVERIFY(containers.writeContainer(path, "former"));
        QVERIFY(!containers.updateDocumentHeader(path, sample));
        QCOMPARE(readFile(path), "former");
        QCOMPARE(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden).size(), 1);
    }

    void theHeaderFillsItsAreaExactlyOrIsRefused()
    {
        sample.crypto.kdf.clear();
        sample.encryptedIndex.clear();
        const qsizetype room = 8388608 - containers.buildHeader(sample).size();
        sample.crypto.kdf = QString(room, u'k');
        QVERIFY(containers.writeDocument(path, sample));
        QVERIFY(reads());
        QCOMPARE(QFileInfo(path).size(), 8388636);
        const QByteArray full = readFile(path);
        QVERIFY(containers.updateDocumentHeader(path, sample));

        sample.crypto.kdf += u'k';
        QVERIFY(!containers.writeDocument(path, sample));
        QVERIFY(!containers.updateDocumentHeader(path, sample));
        QVERIFY(readFile(path) == full);
    }

    void hostileLengthLinesAreRefused()
    {
        const QByteArrayList lines{
            lengthLine(0), lengthLine(8388609),      QByteArray(20, '9') + '\n', "-1\n",
            "0x10\n",      "0000000000000000004x\n", QByteArray(100000, '0'),    "\n"};
        for (const QByteArray &line : lines) {
            writeRaw(line, containers.buildHeader(sample));
            QVERIFY2(!reads(), line.left(30).constData());
        }
        writeRaw("171" + QByteArray("\0\n", 2), containers.buildHeader(sample).leftJustified(171, ' '));
        QVERIFY2(!reads(), "a length line with a zero byte in it");
        // A huge file without a line's end is not read to its end.
        writeFile(path, "TRAVEX3");
        QVERIFY(QFile::resize(path, 100000000000));
        QVERIFY(!reads());

        const QByteArray header = containers.buildHeader(sample);
        writeRaw(QByteArray::number(header.size()).rightJustified(20, '0') + "  \n", header);
        const QByteArray former = readFile(path);
        ContainerDocument read;
        QVERIFY(containers.readDocument(path, &read));
        QVERIFY(!containers.updateDocumentHeader(path, read));
        QCOMPARE(read.payloadOffset, 8388638);
        QVERIFY2(readFile(path) == former, "a header at another place was written over");
    }

    void damagedHeadersAreRefused()
    {
        const QByteArray header = containers.buildHeader(sample);
        const auto readsWith = [&](QByteArray changed) {
            writeRaw(lengthLine(changed.size()), changed);
            return reads();
        };
        QVERIFY(readsWith(header));
        QVERIFY(!readsWith(QByteArray(header).replace("\"TRAVEX\"", "\"travex\"")));
        QVERIFY(!readsWith(QByteArray(header).replace(":3,", ":2,")));
        QVERIFY(!readsWith(header.chopped(1)));
        QVERIFY(!readsWith("[" + header + "]"));
        writeRaw(lengthLine(header.size()), header);
        for (const qint64 size : {0, 6, 7, 20, 28, 1000, 8388635}) {
            QVERIFY(QFile::resize(path, 8388636));
            QVERIFY(QFile::resize(path, size));
            QVERIFY(!reads());
        }
        writeRaw(lengthLine(header.size()), header);
        overwrite(path, 0, "TRAVEX2");
        QVERIFY(!reads());
        QVERIFY(!containers.updateDocumentHeader(path, sample));
        QVERIFY(!containers.readDocument(path, nullptr));
        QVERIFY(!containers.readDocument(folder.path(), &sample));
    }

    void noHeaderCostsMuchMemory()
    {
        const auto peak = [] {
            const QByteArray status = readFile(u"/proc/self/status"_s);
            return status.mid(status.indexOf("VmHWM:") + 6, 12).trimmed().split(' ').first().toLongLong();
        };
        const QByteArray nested = QByteArray(900, '[') + QByteArray(900, ']') + ',';
        QByteArray folders;
        for (int i = 0; i < 40000; ++i)
            folders += "{\"path\":\"" + QByteArray::number(i).leftJustified(100, 'x') + "\"},";
        for (const QByteArray &rest :
             {R"("fileIndex":{"directories":[)" + folders + "{}]}}",
              R"("fileIndex":{"files":[)" + QByteArray("{},").repeated(2600000) + "{}]}}",
              R"("fileIndex":{"x":[)" + nested.repeated(4600) + "1]}}",
              R"("encryptedIndex":"é)" + QByteArray("AAA\\/").repeated(1600000) + R"("})"}) {
            const QByteArray header = R"({"magic":"TRAVEX","formatVersion":3,)" + rest;
            writeFile(u"/proc/self/clear_refs"_s, "5"); // The peak begins anew.
            const qint64 idle = peak();
            ContainerDocument read;
            QVERIFY(containers.parseHeader(header, &read));
            QVERIFY2(peak() - idle <= 56 * 1024, qPrintable(QString::number(peak() - idle)));
            QCOMPARE(read.fileIndex.directories().size(), rest.contains("path") ? 40000 : 0);
        }
    }

    void missingMembersReadAsDefaultsAndLegacyOnesAreRead()
    {
        const QByteArray bare = R"({"formatVersion":3,"magic":"TRAVEX"})";
        writeRaw(lengthLine(bare.size()), bare);
        ContainerDocument read;
        QVERIFY(containers.readDocument(path, &read));
        QCOMPARE(read.crypto.kdfIterations, 250000);
        QVERIFY(read.crypto.kdf.isEmpty());
        QVERIFY(read.encryptedIndex.isEmpty());
        QVERIFY(read.crypto.salt.isEmpty());

        const QByteArray legacy =
            R"({"magic":"TRAVEX","formatVersion":3,"encryptedPayload":"b2xk","filePayloads":{"a":"QQ==","b":"Qg=="},)"
            R"("fileIndex":{"files":[{"vaultPath":"x"}]}})";
        writeRaw(lengthLine(legacy.size()), legacy);
        QVERIFY(containers.readDocument(path, &read));
        QCOMPARE(read.encryptedPayload, "old");
        QCOMPARE(read.filePayloads, (QHash<QString, QByteArray>{{u"a"_s, "A"}, {u"b"_s, "B"}}));
        QVERIFY(read.fileIndex.contains(u"x"_s));
        QVERIFY(!containers.buildHeader(read).contains("ayload\":\"b2"));
    }
};

QTEST_GUILESS_MAIN(ContainerTest)
#include "tst_container.moc"
