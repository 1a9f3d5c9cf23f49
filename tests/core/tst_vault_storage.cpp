// Files and folders in the vault: their bytes, their names, and everything that must be refused. Which
// operations may meet is up to the random day of tst_vault_day.
#include "support/VaultFixture.h"

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
        QVERIFY(f.createAndUnlock());
        const QByteArray bytes = noise(2 * block + 7, 5);
        const QHash<qsizetype, QList<qint64>> blockSizes{
            {0, {}}, {1, {1}}, {block, {block}}, {block + 1, {block, 1}}, {2 * block + 7, {block, block, 7}}};
        for (const qsizetype size : blockSizes.keys())
            QVERIFY(f.put(u"f%1"_s.arg(size), bytes.left(size)));
        QVERIFY(f.vault.lockVault() && f.unlock());

        QSet<QByteArray> nonces;
        for (const VaultFileEntry &entry : f.vault.fileIndex().entries()) {
            const QByteArray expected = bytes.left(entry.sizeBytes);
            QVERIFY(f.get(entry.vaultPath) == expected);
            QCOMPARE(entry.sha256, QCryptographicHash::hash(expected, QCryptographicHash::Sha256));
            QCOMPARE(QUuid(entry.id).toString(QUuid::WithoutBraces), entry.id);
            QList<qint64> sizes;
            for (const VaultFileBlock &stored : entry.blocks) {
                sizes << stored.plainSize;
                QCOMPARE(stored.encryptedSize, stored.plainSize + 16);
                QVERIFY(stored.nonce.size() == 24 && !nonces.contains(stored.nonce));
                nonces.insert(stored.nonce);
            }
            QCOMPARE(sizes, blockSizes.value(entry.sizeBytes));
        }
    }

    void progressTellsEveryBlockAndReplacingIgnoresCase()
    {
        VaultFixture f;
        QVERIFY(f.createAndUnlock() && f.put(u"Docs/A.TXT"_s, "primeiro") && f.put(u"z"_s, "z"));
        const VaultFileEntry former = f.vault.fileIndex().entries().first();
        const QString source = f.folder.filePath(u"s"_s);
        writeFile(source, QByteArray(block + 3, 'x'));
        QList<qint64> seen;
        const auto note = [&](qint64 done, qint64 total, const QString &label) {
            seen << done << total;
            QCOMPARE(label, u"docs/a.txt"_s);
        };
        QVERIFY(f.vault.importFile(source, u" \\docs\\a.txt"_s, note));
        QCOMPARE(seen, QList<qint64>({block, block + 3, block + 3, block + 3}));
        QCOMPARE(f.filePaths(), QStringList({u"z"_s, u"docs/a.txt"_s}));
        QCOMPARE(f.directoryPaths(), QStringList(u"Docs"_s));
        QVERIFY(f.vault.fileIndex().entries().last().id != former.id);
        QVERIFY(f.get(u"DOCS/A.txt"_s) == readFile(source));
    }

    void whatMovesKeepsItsIdAndItsPlace()
    {
        VaultFixture f;
        VaultManager &vault = f.vault;
        QVERIFY(f.createAndUnlock() && f.put(u"a/x.txt"_s, "x") && f.put(u"Notas.txt"_s, "n"));
        const VaultFileEntry former = vault.fileIndex().entries().first();
        QVERIFY(vault.moveFile(u"A/X.txt"_s, {}) && vault.moveFile(u"notas.txt"_s, u"A"_s));
        QCOMPARE(f.filePaths(), QStringList({u"X.txt"_s, u"A/notas.txt"_s}));
        const VaultFileEntry moved = vault.fileIndex().entries().first();
        QVERIFY(moved.id == former.id && moved.lastModifiedUtc == former.lastModifiedUtc);

        QVERIFY(vault.createDirectory(u"/a/Sub/fim/"_s) && vault.createDirectory(u"ab"_s));
        const QDateTime before = vault.fileIndex().findDirectory(u"a/sub"_s)->modifiedUtc;
        QTest::qWait(2);
        QVERIFY(vault.renameDirectory(u"A"_s, u"c/D"_s));
        QCOMPARE(f.directoryPaths(),
                 QStringList({u"c/D"_s, u"c/D/Sub"_s, u"c/D/Sub/fim"_s, u"ab"_s, u"c"_s}));
        QVERIFY(vault.fileIndex().findDirectory(u"c/d/sub"_s)->modifiedUtc > before);
        QCOMPARE(f.get(u"c/d/notas.txt"_s), "n");

        for (const QString &bad : {QString(), u".."_s, u"a/."_s})
            QVERIFY(!vault.renameFile(u"X.txt"_s, bad) && !vault.renameDirectory(u"ab"_s, bad) &&
                    !vault.createDirectory(bad) && !f.put(bad, "x") && !vault.moveFile(bad, u"ab"_s));

        // A file that is open keeps its name, and those of the folders around it.
        QString copy;
        QVERIFY(vault.prepareFileForEditing(u"c/d/notas.txt"_s, &copy));
        QVERIFY(!vault.moveFile(u"C/d/notas.txt"_s, {}) && !vault.renameFile(u"c/D/notas.TXT"_s, u"y"_s));
        QVERIFY(!vault.renameDirectory(u"C"_s, u"e"_s) && vault.renameDirectory(u"ab"_s, u"e"_s));
        const qint64 size = QFileInfo(f.container).size();
        QVERIFY(vault.deleteFile(u"c/d/notas.txt"_s) && vault.renameDirectory(u"c"_s, u"f"_s));
        QCOMPARE(QFileInfo(f.container).size(), size);
    }

    void whatIsNoFileIsRefusedAndNothingIsWritten()
    {
        VaultFixture f;
        QVERIFY(f.createAndUnlock() && f.put(u"a"_s, "a"));
        const QByteArray former = readFile(f.container);
        const QString link = f.folder.filePath(u"link"_s);
        QVERIFY(QFile::link(f.container, link));
        QVERIFY(::link(QFile::encodeName(f.container).constData(),
                       QFile::encodeName(f.folder.filePath(u"hard"_s)).constData()) == 0);
        for (const QString &source : {f.folder.filePath(u"falta"_s), f.folder.path(), u"/dev/zero"_s,
                                      f.container, link, f.folder.filePath(u"hard"_s)})
            QVERIFY(!f.vault.importFile(source, u"x"_s));
        QVERIFY(!f.vault.exportFile(u"a"_s, link) &&
                !f.vault.exportFile(u"a"_s, f.folder.filePath(u"hard"_s)));
        QVERIFY(!f.vault.exportFile(u"a"_s, f.folder.path()) &&
                !f.vault.exportFile({}, f.folder.filePath(u"t"_s)));
        QVERIFY(!f.vault.writeVaultFileToDevice(u"a"_s, nullptr) && f.get(u"falta"_s).isNull());
        QVERIFY(readFile(f.container) == former);
        QVERIFY(f.vault.lockVault());
        QVERIFY(!f.put(u"x"_s, "x") && f.get(u"a"_s).isNull());
        QVERIFY(readFile(f.container) == former);
    }

    void damagedOrHostileBlocksFailToExport()
    {
        VaultFixture f;
        QVERIFY(f.createAndUnlock() && f.put(u"a"_s, noise(1000, 2)));
        const VaultFileEntry good = f.vault.fileIndex().entries().first();
        const auto exportsWith = [&](auto &&change) {
            VaultFileEntry entry = good;
            change(entry.blocks.first());
            SecureFileIndex index;
            index.addOrReplace(entry);
            return f.vault.saveIndex(index) && !f.get(u"a"_s).isNull();
        };
        QVERIFY(exportsWith([](VaultFileBlock &) {}));
        QVERIFY(!exportsWith([](VaultFileBlock &b) { b.offset = -1; }));
        QVERIFY(!exportsWith([](VaultFileBlock &b) { b.offset = 100; }));
        QVERIFY(!exportsWith([](VaultFileBlock &b) { b.offset = std::numeric_limits<qint64>::max(); }));
        QVERIFY(!exportsWith([](VaultFileBlock &b) { b.plainSize = 0; }));
        QVERIFY(!exportsWith([](VaultFileBlock &b) { b.encryptedSize = -5; }));
        QVERIFY(!exportsWith([](VaultFileBlock &b) {
            b.plainSize = 1LL << 50;
            b.encryptedSize = b.plainSize + 16;
        }));
        QVERIFY(!exportsWith([](VaultFileBlock &b) { b.nonce.chop(1); }));
        overwrite(f.container, good.blocks.first().offset + 500, "X");
        QVERIFY(!exportsWith([](VaultFileBlock &) {}));
    }
};

QTEST_GUILESS_MAIN(VaultStorageTest)
#include "tst_vault_storage.moc"
