// Moving, renaming, deleting and creating inside the vault, with every refusal.
#include "support/VaultFixture.h"

#include <QTest>

using namespace Tessarin::Core;
using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

class VaultNamespaceTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<VaultFixture> f;

private Q_SLOTS:
    void initTestCase()
    {
        f = std::make_unique<VaultFixture>();
        QVERIFY(f->createAndUnlock());
    }

    void init()
    {
        QVERIFY(f->vault.saveIndex({}));
        QVERIFY(f->put(u"a/x.txt"_s, "x") && f->put(u"Notas.txt"_s, "n") && f->put(u"b/X.TXT"_s, "bx"));
    }

    void filesMoveIntoFoldersAndOutAgain()
    {
        VaultManager &vault = f->vault;
        QVERIFY(!vault.moveFile(u"a/x.txt"_s, u"b"_s));
        QVERIFY(!vault.moveFile(u"a/x.txt"_s, u"A"_s) && !vault.moveFile(u"a/x.txt"_s, u"falta"_s));
        QVERIFY(!vault.moveFile(u"falta"_s, u"b"_s) && !vault.moveFile({}, u"b"_s));
        const VaultFileEntry former = *vault.fileIndex().findFile(u"a/x.txt"_s);
        QVERIFY(vault.moveFile(u"A/X.txt"_s, {}));
        QVERIFY(vault.moveFile(u"notas.txt"_s, u"A"_s));
        QCOMPARE(f->filePaths(), QStringList({u"X.txt"_s, u"A/notas.txt"_s, u"b/X.TXT"_s}));
        const VaultFileEntry moved = vault.fileIndex().entries().first();
        QCOMPARE(moved.id, former.id);
        QCOMPARE(moved.lastModifiedUtc, former.lastModifiedUtc);
        QCOMPARE(f->get(u"x.txt"_s), "x");
        QVERIFY(!vault.moveFile(u"X.txt"_s, u"b"_s));
    }

    void filesAreRenamedToFreeNamesOnly()
    {
        VaultManager &vault = f->vault;
        QVERIFY(!vault.renameFile(u"Notas.txt"_s, u"notas.TXT"_s) &&
                !vault.renameFile(u"Notas.txt"_s, u"B"_s));
        QVERIFY(!vault.renameFile(u"Notas.txt"_s, u"a/X.txt"_s) &&
                !vault.renameFile(u"Notas.txt"_s, u".."_s));
        QVERIFY(!vault.renameFile(u"falta"_s, u"c"_s));
        QVERIFY(vault.renameFile(u"Notas.txt"_s, u"Notas2.txt"_s));
        QCOMPARE(f->get(u"notas2.txt"_s), "n");
    }

    void foldersAreCreatedWithTheirParents()
    {
        VaultManager &vault = f->vault;
        QVERIFY(vault.createDirectory(u"/x/y/z/"_s));
        QCOMPARE(f->directoryPaths(), QStringList({u"a"_s, u"b"_s, u"x"_s, u"x/y"_s, u"x/y/z"_s}));
        const QList<VaultDirectoryEntry> entries = vault.fileIndex().directories();
        QCOMPARE(entries.at(2).createdUtc, entries.at(3).createdUtc);
        QVERIFY(!vault.createDirectory(u"X/Y"_s) && !vault.createDirectory(u"notas.TXT"_s));
        QVERIFY(!vault.createDirectory({}) && !vault.createDirectory(u"a/."_s));
    }

    void foldersAreRenamedWithAllBelowThem()
    {
        VaultManager &vault = f->vault;
        QVERIFY(vault.createDirectory(u"a/Sub/fim"_s) && vault.createDirectory(u"ab"_s));
        QVERIFY(!vault.renameDirectory(u"a"_s, u"A/b"_s) && !vault.renameDirectory(u"a"_s, u"A"_s));
        QVERIFY(!vault.renameDirectory(u"a"_s, u"B"_s) && !vault.renameDirectory(u"a"_s, u"notas.txt"_s));
        QVERIFY(!vault.renameDirectory(u"falta"_s, u"c"_s) && !vault.renameDirectory(u"a"_s, {}));
        const QDateTime before = vault.fileIndex().findDirectory(u"a/sub"_s)->modifiedUtc;
        QTest::qWait(2);
        QVERIFY(vault.renameDirectory(u"A"_s, u"c/D"_s));
        QCOMPARE(f->directoryPaths(),
                 QStringList({u"c/D"_s, u"b"_s, u"c/D/Sub"_s, u"c/D/Sub/fim"_s, u"ab"_s, u"c"_s}));
        QCOMPARE(f->filePaths(), QStringList({u"c/D/x.txt"_s, u"Notas.txt"_s, u"b/X.TXT"_s}));
        QVERIFY(vault.fileIndex().findDirectory(u"c/d/sub"_s)->modifiedUtc > before);
        QCOMPARE(f->get(u"c/d/x.txt"_s), "x");
    }

    void entriesThatWouldMeetAreKeptApart()
    {
        QVERIFY(f->put(u"d/x.txt"_s, "dx") && f->vault.renameFile(u"Notas.txt"_s, u"c/x.txt"_s));
        QVERIFY(!f->vault.renameDirectory(u"d"_s, u"c"_s));
        QCOMPARE(f->get(u"d/x.txt"_s), "dx");
        QCOMPARE(f->get(u"c/x.txt"_s), "n");
    }

    void onlyEmptyFoldersAndExistingFilesAreDeleted()
    {
        VaultManager &vault = f->vault;
        QVERIFY(vault.createDirectory(u"p/q"_s));
        QVERIFY(!vault.deleteDirectory(u"p"_s) && !vault.deleteDirectory(u"A"_s) &&
                !vault.deleteDirectory(u"falta"_s));
        QVERIFY(vault.deleteDirectory(u"P/Q"_s) && vault.deleteDirectory(u"p"_s));
        const qint64 size = QFileInfo(f->container).size();
        QVERIFY(vault.deleteFile(u"A/X.TXT"_s) && !vault.deleteFile(u"a/x.txt"_s));
        QCOMPARE(QFileInfo(f->container).size(), size);
        QVERIFY(vault.deleteDirectory(u"a"_s));
        QCOMPARE(f->directoryPaths(), QStringList(u"b"_s));
    }

    void openCopiesHoldTheirNamesButNotTheirFiles()
    {
        VaultManager &vault = f->vault;
        QString copy;
        QVERIFY(vault.prepareFileForEditing(u"a/x.txt"_s, &copy));
        QVERIFY(!vault.moveFile(u"A/x.txt"_s, {}) && !vault.renameFile(u"a/X.txt"_s, u"a/y"_s));
        QVERIFY(!vault.renameDirectory(u"A"_s, u"c"_s) && vault.renameDirectory(u"b"_s, u"c"_s));
        QVERIFY(vault.deleteFile(u"a/x.txt"_s));
        QVERIFY(vault.renameDirectory(u"a"_s, u"d"_s));
    }

    void aFailedSaveLeavesTheIndexAsItWas()
    {
        const SecureFileIndex former = f->vault.fileIndex();
        const QByteArray bytes = readFile(f->container);
        QVERIFY(QFile::remove(f->container));
        QVERIFY(!f->vault.deleteFile(u"Notas.txt"_s) && !f->vault.createDirectory(u"n"_s));
        QVERIFY(!f->vault.renameFile(u"Notas.txt"_s, u"n"_s) && !f->vault.renameDirectory(u"a"_s, u"n"_s));
        QVERIFY(!QFile::exists(f->container));
        QCOMPARE(f->vault.fileIndex().toJson(), former.toJson());
        writeFile(f->container, bytes);
        QCOMPARE(f->get(u"Notas.txt"_s), "n");
    }
};

QTEST_GUILESS_MAIN(VaultNamespaceTest)
#include "tst_vault_namespace.moc"
