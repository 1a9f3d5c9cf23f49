// The container file byte by byte, and what is refused.
#include "core/ContainerManager.h"
#include "support/VaultFixture.h"

using namespace Tessarin::Core;
using namespace Tessarin::Tests;

class ContainerTest : public QObject
{
    Q_OBJECT

private:
    const ContainerManager containers{};
    QTemporaryDir folder;
    const QString path = folder.filePath(u"tessarin.trvx"_s);
    const QByteArray header =
        R"({"magic":"TRAVEX","formatVersion":3,"crypto":{"kdf":"Argon2id","cipher":"XChaCha20-Poly1305",)"
        R"("kdfIterations":0,"salt":"MDEyMzQ1Njc4OWFiY2RlZg==","nonce":"bm5ubm5ubm5ubm5ubm5ubm5ubm5ubm5u",)"
        R"("payloadNonce":"cHBwcHBwcHBwcHBwcHBwcHBwcHBwcHBw","authTag":"","encryptedMasterKey":"a2V5"},)"
        R"("encryptedIndex":"aW5kZXg="})";
    ContainerDocument sample; ///< What it says.
    ContainerDocument read;

    static QByteArray beginning(const QByteArray &header)
    {
        return "TRAVEX3" + QByteArray::number(header.size()).rightJustified(20, '0') + '\n' + header;
    }

    bool reads(const QByteArray &bytes, qint64 size = 8388636)
    {
        writeFile(path, bytes);
        return !QFile::resize(path, size) || containers.readDocument(path, &read);
    }

private Q_SLOTS:
    void init() { QVERIFY(containers.parseHeader(header, &sample)); }

    void aDocumentIsWrittenByteByByteAndReadBack()
    {
        QVERIFY(containers.writeDocument(path, sample, [](auto &file) { return file.write("blocks") == 6; }));
        const QByteArray whole = beginning(header) + QByteArray(8388608 - header.size(), '\0') + "blocks";
        QVERIFY(readFile(path) == whole);
        QVERIFY(containers.readContainer(path) == whole);
        QVERIFY(containers.readDocument(path, &read));
        QVERIFY(!containers.readDocument(path, nullptr));
        QCOMPARE(containers.buildHeader(read), header);
        QCOMPARE(containers.cryptoMetadataToJson(read.crypto), QJsonDocument::fromJson(header)["crypto"_L1]);

        QVERIFY(!containers.writeDocument(path, sample, [](QIODevice &) { return false; }));
        QVERIFY(containers.updateDocumentHeader(path, sample));
        QVERIFY(readFile(path) == whole);
        QVERIFY(QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner));
        QVERIFY(containers.writeContainer(path, "former"));
        QCOMPARE(QFile::permissions(path) & 0x0fff, QFile::ReadUser | QFile::WriteUser);
        QVERIFY(!containers.updateDocumentHeader(path, sample));
        QCOMPARE(readFile(path), "former");
        QCOMPARE(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden).size(), 1);
    }

    /// The container of docs/container-format.md, made once by another program.
    void theSampleContainerOpensAndStaysAsItIs()
    {
        const QString original = QStringLiteral(TESSARIN_SOURCE_DIR "/tests/data/sample-v3.trvx");
        VaultFixture f;
        QVERIFY(QFile::remove(f.container));
        QVERIFY(QFile::copy(original, f.container));
        f.play(u"unlock frase de exemplo 3; get vazio.bin=; get Viagens/Rio/lista.txt=Bring a pen.\n; "
               "get Maçã do amor.txt=Duas xícaras de açúcar e uma pitada de sal.\n"_s);
        QCOMPARE(f.paths(), QStringList({u"Viagens/"_s, u"Viagens/Rio/"_s, u"Maçã do amor.txt"_s,
                                         u"vazio.bin"_s, u"Viagens/Rio/lista.txt"_s}));
        QVERIFY(f.vault.lockVault());
        QVERIFY(readFile(f.container) == readFile(original));
    }

    void theHeaderFillsItsAreaExactlyOrIsRefused()
    {
        sample.crypto.kdf += QString(8388608 - header.size(), u'k');
        QVERIFY(containers.writeDocument(path, sample));
        QVERIFY(containers.readDocument(path, &read));
        const QByteArray full = readFile(path);
        QVERIFY(containers.updateDocumentHeader(path, sample));

        sample.crypto.kdf += u'k';
        QVERIFY(!containers.writeDocument(path, sample));
        QVERIFY(!containers.updateDocumentHeader(path, sample));
        QVERIFY(readFile(path) == full);
    }

    void damagedAndHostileContainersAreRefused()
    {
        const QByteArray good = beginning(header);
        QVERIFY(reads(good));
        QByteArrayList bad{QByteArray(good).replace("TRAVEX3", "TRAVEX2"),
                           QByteArray(good).replace("\"TRAVEX\"", "\"travex\""),
                           QByteArray(good).replace(":3,", ":2,"), beginning(header.chopped(1)),
                           beginning('[' + header + ']')};
        const QByteArray padded = header.leftJustified(400, ' ');
        QVERIFY(reads("TRAVEX3400\n" + padded));
        for (const QByteArray &line :
             {"00000000000000000000"_ba, "00000000000008388609"_ba, "99999999999999999999"_ba, "-400"_ba,
              "0x190"_ba, "400x"_ba, ""_ba, QByteArray("400\0", 4), QByteArray(100000, '0') + "400"})
            bad << "TRAVEX3" + line + '\n' + padded;
        for (const QByteArray &bytes : std::as_const(bad))
            QVERIFY2(!reads(bytes), bytes.left(60).constData());
        for (const qint64 size : {0, 6, 7, 20, 28, 1000, 8388635})
            QVERIFY2(!reads(good, size), QByteArray::number(size).constData());
        QVERIFY2(!reads("TRAVEX3", 100000000000), "a huge file without a line's end is not read to its end");
        QVERIFY(!reads(bad.first()));
        QVERIFY(!containers.updateDocumentHeader(path, sample));
        QVERIFY(!containers.readDocument(path, nullptr));
        QVERIFY(!containers.readDocument(folder.path(), &sample));

        const QByteArray otherLine = QByteArray(good).insert(27, "  ");
        QVERIFY(reads(otherLine, 8388638));
        QCOMPARE(read.payloadOffset, 8388638);
        QVERIFY(!containers.updateDocumentHeader(path, read));
        QVERIFY2(readFile(path).startsWith(otherLine), "a header at another place was written over");
    }

    void noHeaderCostsMuchMemory()
    {
        const auto peak = [] {
            const QByteArray status = readFile(u"/proc/self/status"_s);
            return status.mid(status.indexOf("VmHWM:") + 6, 12).trimmed().split(' ').first().toLongLong();
        };
        constexpr qint64 mostKiB = TESSARIN_IS_SANITIZED ? 256'000 : 56'000; // Sanitizers keep freed memory.
        const QByteArray nested = QByteArray(900, '[') + QByteArray(900, ']') + ',';
        QByteArray folders;
        for (int i = 0; i < 40000; ++i)
            folders += "{\"path\":\"" + QByteArray::number(i).leftJustified(100, 'x') + "\"},";
        folders = R"("fileIndex":{"directories":[)" + folders + "{}]}}";
        for (const QByteArray &rest :
             {folders, "\"filePayloads\":[" + QByteArray(2700000, '1') + "]," + folders,
              R"("fileIndex":{"files":[)" + QByteArray("{},").repeated(2600000) + "{}]}}",
              R"("fileIndex":{"x":[)" + nested.repeated(4600) + "1]}}",
              R"("encryptedIndex":"é)" + QByteArray("AAA\\/").repeated(1600000) + R"("})"}) {
            const QByteArray costly = R"({"magic":"TRAVEX","formatVersion":3,)" + rest;
            writeFile(u"/proc/self/clear_refs"_s, "5"); // The peak begins anew.
            const qint64 idle = peak();
            QVERIFY(containers.parseHeader(costly, &read));
            QVERIFY2(peak() - idle <= mostKiB, qPrintable(QString::number(peak() - idle)));
            QCOMPARE(read.fileIndex.directories().size(), rest == folders ? 40000 : 0);
        }
    }

    void missingMembersReadAsDefaultsAndLegacyOnesAreRead()
    {
        QVERIFY(containers.parseHeader(R"({"formatVersion":3,"magic":"TRAVEX"})", &read));
        QCOMPARE(read.crypto.kdfIterations, 250000);
        const QByteArray legacy =
            R"({"magic":"TRAVEX","formatVersion":3,"encryptedPayload":"b2xk","filePayloads":{"a":"QQ==","b":"Qg=="},)"
            R"("fileIndex":{"files":[{"vaultPath":"x"}]}})";
        QVERIFY(containers.parseHeader(legacy, &read));
        QCOMPARE(read.encryptedPayload, "old");
        QCOMPARE(read.filePayloads, (QHash<QString, QByteArray>{{u"a"_s, "A"}, {u"b"_s, "B"}}));
        QVERIFY(read.fileIndex.contains(u"x"_s));
        QVERIFY(!containers.buildHeader(read).contains("ayload\":\"b2"));
    }
};

QTEST_GUILESS_MAIN(ContainerTest)
#include "tst_container.moc"
