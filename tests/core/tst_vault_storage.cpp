// Files and folders in the vault: their bytes, their names, and everything that must be refused. Which
// operations may meet is up to the random day of tst_vault_day.
#include "support/VaultFixture.h"

#include <QBuffer>
#include <QTest>
#include <QUuid>

#include <unistd.h>

using namespace Tessarin::Core;
using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

class VaultStorageTest : public QObject
{
    Q_OBJECT

private:
    static constexpr qint64 block = 16 * 1024 * 1024;

private Q_SLOTS:
    void filesOfEverySizeComeBackByteForByte()
    {
        VaultFixture f;
        const QByteArray bytes = noise(2 * block + 7, 5);
        for (const qsizetype size : {qint64(0), qint64(1), block, block + 1, 2 * block + 7})
            QVERIFY(f.put(u"f%1"_s.arg(size), bytes.left(size)));
        QVERIFY(f.reopen());

        QSet<QByteArray> nonces;
        for (const VaultFileEntry &entry : f.vault.fileIndex().entries()) {
            const QByteArray expected = bytes.left(entry.sizeBytes);
            QVERIFY(f.get(entry.vaultPath) == expected);
            QCOMPARE(entry.sha256, QCryptographicHash::hash(expected, QCryptographicHash::Sha256));
            QCOMPARE(QUuid(entry.id).toString(QUuid::WithoutBraces), entry.id);
            QVERIFY(qAbs(entry.lastModifiedUtc.secsTo(QDateTime::currentDateTimeUtc())) < 60);
            qint64 missing = entry.sizeBytes;
            for (const VaultFileBlock &stored : entry.blocks) {
                QCOMPARE(stored.plainSize, qMin(missing, block));
                missing -= stored.plainSize;
                QCOMPARE(stored.encryptedSize, stored.plainSize + 16);
                QCOMPARE(stored.nonce.size(), 24);
                QVERIFY(!nonces.contains(stored.nonce));
                nonces.insert(stored.nonce);
            }
            QCOMPARE(missing, 0);
        }
    }

    void progressTellsEveryBlockAndReplacingIgnoresCase()
    {
        VaultFixture f;
        QVERIFY(f.put(u"Docs/A.TXT"_s, "primeiro"));
        QVERIFY(f.put(u"z"_s, "z"));
        const QString formerId = f.entry(u"Docs/A.TXT"_s).id;
        const QString source = f.root + u"/s"_s;
        writeFile(source, QByteArray(block + 3, 'x'));
        QStringList seen;
        const auto note = [&](qint64 done, qint64 total, const QString &label) {
            seen += u"%1/%2 %3"_s.arg(done).arg(total).arg(label);
        };
        QVERIFY(f.vault.importFile(source, u" \\docs\\a.txt"_s, note));
        const QStringList expected{u"16777216/16777219 docs/a.txt"_s, u"16777219/16777219 docs/a.txt"_s};
        QCOMPARE(seen, expected);
        QCOMPARE(f.paths(), QStringList({u"Docs/"_s, u"z"_s, u"docs/a.txt"_s}));
        QVERIFY(f.entry(u"docs/a.txt"_s).id != formerId);
        QBuffer bytes;
        QVERIFY(bytes.open(QIODevice::WriteOnly));
        seen.clear();
        QVERIFY(f.vault.writeVaultFileToDevice(u"DOCS/A.txt"_s, &bytes, note));
        QVERIFY(bytes.data() == readFile(source));
        QCOMPARE(seen, expected);
    }

    void whatMovesKeepsItsIdAndItsPlace()
    {
        VaultFixture f;
        QCOMPARE(f.play(u"put a/x.txt=x; put Notas.txt=n"_s), QString());
        const VaultFileEntry former = f.entry(u"a/x.txt"_s);
        QCOMPARE(f.play(u"move A/X.txt>; move notas.txt>A; mkdir /a/Sub/fim/; mkdir ab"_s), QString());
        QCOMPARE(f.paths().join(u' '), u"a/ a/Sub/ a/Sub/fim/ ab/ X.txt A/notas.txt"_s);
        QCOMPARE(f.entry(u"X.txt"_s).id, former.id);
        QCOMPARE(f.entry(u"X.txt"_s).lastModifiedUtc, former.lastModifiedUtc);

        const VaultDirectoryEntry sub = *f.vault.fileIndex().findDirectory(u"a/sub"_s);
        QTRY_VERIFY(QDateTime::currentDateTimeUtc() > sub.modifiedUtc);
        QCOMPARE(f.play(u"mvdir A>c/D; get c/d/notas.txt=n"_s), QString());
        QCOMPARE(f.paths().join(u' '), u"c/D/ c/D/Sub/ c/D/Sub/fim/ ab/ c/ X.txt c/D/notas.txt"_s);
        const SecureFileIndex index = f.vault.fileIndex();
        QVERIFY(index.findDirectory(u"c/d/sub"_s)->modifiedUtc > sub.modifiedUtc);
        QCOMPARE(index.findDirectory(u"c/d/sub"_s)->createdUtc, sub.createdUtc);
        for (const QString &bad : {QString(), u".."_s, u"a/."_s, u"a//../b"_s})
            QCOMPARE(
                f.play(
                    u"-rename X.txt>%1; -mvdir ab>%1; -mkdir %1; -rmdir %1; -put %1=x; -move %1>ab; -delete %1"_s
                        .arg(bad)),
                QString());
        QCOMPARE(
            f.play(
                u"-move X.txt>falta; -move X.txt>..; -rename X.txt>ab; -rename X.txt>C; -mvdir ab>x.TXT"_s),
            QString());
    }

    /// A file that is open keeps its name, and those of the folders around it, until it is deleted.
    void whatIsOpenStaysInItsPlace()
    {
        VaultFixture f;
        QVERIFY(!f.vault.prepareFileForEditing(u"c/d/n.txt"_s, nullptr));
        QCOMPARE(f.play(u"put c/d/n.txt=n; mkdir ab; open C/d/n.txt; -move C/d/n.txt>; -rename c/D/N.TXT>y; "
                        u"-mvdir C>e; "
                        "-mvdir c/D>e; mvdir ab>e"_s),
                 QString());
        const qint64 size = QFileInfo(f.container).size();
        QCOMPARE(f.play(u"delete c/d/n.txt; mvdir c>f"_s), QString());
        QCOMPARE(QFileInfo(f.container).size(), size);
        QCOMPARE(f.paths().join(u' '), u"f/ f/d/ e/"_s);
    }

    void whatIsNoFileIsRefusedAndNothingIsWritten()
    {
        VaultFixture f;
        QVERIFY(f.put(u"a"_s, "a"));
        const QByteArray former = readFile(f.container);
        const QString link = f.root + u"/link"_s;
        const QString hard = f.root + u"/hard"_s;
        QVERIFY(QFile::link(f.container, link));
        QCOMPARE(::link(QFile::encodeName(f.container).constData(), QFile::encodeName(hard).constData()), 0);
        for (const QString &source : {f.root + u"/falta"_s, f.root, u"/dev/zero"_s, f.container, link, hard})
            QVERIFY2(!f.vault.importFile(source, u"x"_s), qPrintable(source));
        for (const QString &target : {f.container, link, hard, f.root, f.root + u"/falta/x"_s})
            QVERIFY2(!f.vault.exportFile(u"a"_s, target), qPrintable(target));
        QVERIFY(!f.vault.exportFile({}, f.root + u"/t"_s));
        QVERIFY(!f.vault.exportFile(u"a"_s, u"/dev/full"_s));
        QVERIFY(!f.vault.writeVaultFileToDevice(u"a"_s, nullptr));
        QVERIFY(f.get(u"falta"_s).isNull());
        QVERIFY(readFile(f.container) == former);
    }

    void aSeriesIsNotCommittedIntoAFileThatWasMovedAway()
    {
        VaultFixture f;
        QVERIFY(f.put(u"a"_s, "1"));
        f.vault.beginImportSeries();
        QVERIFY(f.put(u"b"_s, "2"));
        const QByteArray present = readFile(f.container);
        QVERIFY(QFile::rename(f.container, f.root + u"/outro"_s));
        writeFile(f.container, present);
        QVERIFY(!f.vault.endImportSeries());
        QCOMPARE(f.vault.lastFailure(), Failure::ChangedByOther);
        QCOMPARE(f.play(u"get a=1"_s), QString());
        QVERIFY(f.get(u"b"_s).isNull());
        QCOMPARE(readFile(f.container), present);
    }

    void aNewPasswordSearchesTheGapsAndCutsOffTheRest()
    {
        VaultFixture f;
        QVERIFY(f.put(u"morto"_s, noise(3000000, 2)));
        QVERIFY(f.put(u"vivo"_s, "v"));
        const qint64 size = QFileInfo(f.container).size();
        QVERIFY(f.put(u"fim"_s, noise(block, 3)));
        QCOMPARE(f.play(u"delete morto; delete fim; lock"_s), QString());
        QString seen;
        QVERIFY(f.vault.changePassword(
            f.container, f.password, "outra senha longa",
            [&](qint64 done, qint64 total, const QString &) { seen = u"%1/%2"_s.arg(done).arg(total); }));
        QCOMPARE(seen, u"%1/%1"_s.arg(3000016 + block + 16));
        QCOMPARE(QFileInfo(f.container).size(), size);
        QCOMPARE(f.play(u"unlock outra senha longa; get vivo=v"_s), QString());
    }

    void damagedOrHostileBlocksFailToExport()
    {
        VaultFixture f;
        QVERIFY(f.put(u"a"_s, noise(1000, 2)));
        const VaultFileEntry good = f.entry(u"a"_s);
        const auto exportsWith = [&](auto &&change) {
            VaultFileEntry entry = good;
            change(entry.blocks.first());
            SecureFileIndex index;
            index.addOrReplace(entry);
            return f.vault.saveIndex(index) && !f.get(u"a"_s).isNull();
        };
        const qint64 most = std::numeric_limits<qint64>::max();
        for (const qint64 value :
             {qint64(-1), qint64(0), qint64(15), qint64(999), qint64(1001), qint64(1LL << 50), most, -most}) {
            QVERIFY2(!exportsWith([&](auto &stored) { stored.offset = value; }), QByteArray::number(value));
            QVERIFY2(!exportsWith([&](auto &stored) { stored.plainSize = value; }),
                     QByteArray::number(value));
            QVERIFY2(!exportsWith([&](auto &stored) { stored.encryptedSize = value; }),
                     QByteArray::number(value));
        }
        QVERIFY(!exportsWith([](auto &stored) { stored.nonce.chop(1); }));
        QVERIFY(exportsWith([](auto &) {}));
        overwrite(f.container, good.blocks.first().offset + 500, "XXXXX");
        QVERIFY(f.get(u"a"_s).isNull());
    }
};

QTEST_GUILESS_MAIN(VaultStorageTest)
#include "tst_vault_storage.moc"
