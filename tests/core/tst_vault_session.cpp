// Creating, unlocking, locking, the password, saving the index, and the temporary copies of opened files.
#include "support/VaultFixture.h"

#include <QDirIterator>
#include <QLockFile>
#include <QTest>

#include <sys/stat.h>

using namespace Tessarin::Core;
using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

/// Makes a copy look edited, whatever the resolution of the file system's clock.
void edit(const QString &copyPath, const QByteArray &bytes)
{
    writeFile(copyPath, bytes);
    QFile copy(copyPath);
    QVERIFY(copy.open(QIODevice::ReadWrite));
    QVERIFY(copy.setFileTime(QDateTime::currentDateTimeUtc().addSecs(5), QFileDevice::FileModificationTime));
}

} // namespace

class VaultSessionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void createLeavesALockedVaultOfTheStatedForm()
    {
        VaultFixture f;
        QVERIFY(!f.vault.createVault(f.container, "onze letras"));
        QVERIFY(!QFile::exists(f.container));
        QVERIFY(f.vault.createVault(f.container, "doze letras!"));
        QCOMPARE(f.vault.state(), VaultManager::Locked);
        const ContainerDocument document = f.document();
        QCOMPARE(document.crypto.kdf, u"Argon2id"_s);
        QCOMPARE(document.crypto.kdfIterations, 0);
        QCOMPARE(document.crypto.encryptedMasterKey.size(), 80);
        QCOMPARE(document.crypto.salt.size(), 16);
        QCOMPARE(document.crypto.payloadNonce.size(), 24);
        QCOMPARE(QFileInfo(f.container).size(), 8388636);

        QVERIFY(!f.unlock());
        QVERIFY(!f.vault.unlockVault(f.container, {}));
        QCOMPARE(f.vault.state(), VaultManager::Locked);
        QVERIFY(f.vault.unlockVault(f.container, "doze letras!"));
        QCOMPARE(f.vault.state(), VaultManager::Unlocked);
    }

    void everyHeaderFieldIsBound()
    {
        VaultFixture f;
        QVERIFY(f.create());
        const ContainerManager containers;
        const ContainerDocument good = f.document();
        const auto opensWith = [&](auto &&change) {
            ContainerDocument changed = good;
            change(changed);
            return containers.updateDocumentHeader(f.container, changed) && f.unlock();
        };
        QVERIFY(!opensWith([](auto &d) { d.crypto.salt[0] = static_cast<char>(d.crypto.salt[0] ^ 1); }));
        QVERIFY(!opensWith([](auto &d) { d.crypto.nonce[23] = static_cast<char>(d.crypto.nonce[23] ^ 1); }));
        QVERIFY(!opensWith(
            [](auto &d) { d.crypto.payloadNonce[0] = static_cast<char>(d.crypto.payloadNonce[0] ^ 1); }));
        QVERIFY(!opensWith([](auto &d) { d.crypto.kdfIterations = 1; }));
        QVERIFY(!opensWith([](auto &d) {
            d.crypto.kdf = u"PBKDF2"_s;
            d.crypto.kdfIterations = 2000000000;
        }));
        QVERIFY(!opensWith([](auto &d) { d.crypto.salt.chop(1); }));
        QCOMPARE(f.vault.state(), VaultManager::Locked);
        QVERIFY(opensWith([](auto &) {}));
    }

    void changingThePasswordKeepsEverythingElse()
    {
        VaultFixture f;
        QVERIFY(f.createAndUnlock() && f.put(u"a"_s, "conteúdo"));
        QVERIFY(!f.vault.changePassword(f.container, f.password, "outra senha longa"));
        QVERIFY(f.vault.lockVault());
        const ContainerDocument before = f.document();
        QVERIFY(!f.vault.changePassword(f.container, "não é esta senha", "outra senha longa"));
        QVERIFY(!f.vault.changePassword(f.container, f.password, "onze letras"));
        QVERIFY(!f.vault.changePassword(f.container, {}, "outra senha longa"));
        QVERIFY(f.vault.changePassword(f.container, f.password, "outra senha longa"));
        const ContainerDocument after = f.document();
        QCOMPARE(after.encryptedIndex, before.encryptedIndex);
        QVERIFY(after.crypto.salt != before.crypto.salt && after.crypto.nonce != before.crypto.nonce);
        QVERIFY(!f.unlock());
        QVERIFY(f.vault.unlockVault(f.container, "outra senha longa"));
        QCOMPARE(f.get(u"a"_s), "conteúdo");
    }

    void savingNeedsAnOpenVaultAndAFreshNonce()
    {
        VaultFixture f;
        QVERIFY(f.create());
        const QByteArray former = readFile(f.container);
        QVERIFY(!f.vault.saveIndex({}));
        QVERIFY(readFile(f.container) == former);
        QVERIFY(f.unlock() && f.vault.saveIndex({}));
        const QByteArray first = f.document().crypto.payloadNonce;
        QVERIFY(f.vault.saveIndex({}) && f.document().crypto.payloadNonce != first);
    }

    void openingAnotherVaultLocksTheFirst()
    {
        VaultFixture f;
        QVERIFY(f.createAndUnlock() && f.put(u"a"_s, "velho"));
        QString copy;
        QVERIFY(f.vault.prepareFileForEditing(u"a"_s, &copy));
        edit(copy, "novo");
        QVERIFY(f.vault.createVault(f.folder.filePath(u"b.trvx"_s), f.password));
        QCOMPARE(f.vault.state(), VaultManager::Locked);
        QVERIFY(f.unlock());
        QCOMPARE(f.get(u"a"_s), "novo");
    }

    void editedCopiesGoBackOnLock()
    {
        VaultFixture f;
        QVERIFY(f.createAndUnlock() && f.put(u"Docs/A.txt"_s, "velho") && f.put(u"b"_s, "b"));
        QString copy;
        QString other;
        QVERIFY(!f.vault.prepareFileForEditing(u"falta"_s, &copy) &&
                !f.vault.prepareFileForEditing(u"b"_s, nullptr));
        QVERIFY(f.vault.prepareFileForEditing(u"docs/a.TXT"_s, &copy));
        QVERIFY(f.vault.prepareFileForEditing(u"b"_s, &other));
        QCOMPARE(copy, f.vault.workspacePath() + u"/Docs/A.txt"_s);
        QCOMPARE(readFile(copy), "velho");
        QVERIFY(f.vault.modifiedOpenFiles().isEmpty());
        edit(copy, "novo");
        QVERIFY(QFile::remove(other));
        QCOMPARE(f.vault.modifiedOpenFiles().size(), 1);
        QVERIFY(f.vault.lockVault());
        QVERIFY(!QFileInfo::exists(f.vault.workspacePath()));
        QVERIFY(f.unlock());
        QCOMPARE(f.get(u"Docs/A.txt"_s), "novo");
        QCOMPARE(f.get(u"b"_s), "b");
        QCOMPARE(f.filePaths(), QStringList({u"b"_s, u"Docs/A.txt"_s}));
    }

    void aFailedWriteBackKeepsTheVaultOpenAndTheCopies()
    {
        VaultFixture f;
        QVERIFY(f.createAndUnlock() && f.put(u"a"_s, "velho") && f.put(u"b"_s, "b"));
        QString copy;
        QVERIFY(f.vault.prepareFileForEditing(u"a"_s, &copy));
        edit(copy, "editado");
        const QString container = f.container + u".away"_s;
        QVERIFY(QFile::rename(f.container, container));
        QVERIFY(!f.vault.lockVault());
        QCOMPARE(f.vault.state(), VaultManager::Unlocked);
        QCOMPARE(readFile(copy), "editado");
        QVERIFY(QFile::rename(container, f.container));
        QVERIFY(f.vault.lockVault() && f.unlock());
        QCOMPARE(f.get(u"a"_s), "editado");
    }

    void copiesOfDeletedOrReplacedFilesDoNotComeBack()
    {
        VaultFixture f;
        QVERIFY(f.createAndUnlock() && f.put(u"apagado"_s, "1") && f.put(u"trocado"_s, "2") &&
                f.put(u"mantido"_s, "3"));
        QString copy;
        for (const QString &path : {u"apagado"_s, u"trocado"_s, u"mantido"_s}) {
            QVERIFY(f.vault.prepareFileForEditing(path, &copy));
            edit(copy, "editado");
        }
        QVERIFY(f.vault.deleteFile(u"Apagado"_s) && f.put(u"TROCADO"_s, "importado"));
        QVERIFY(f.vault.lockVault() && f.unlock());
        QCOMPARE(f.filePaths(), QStringList({u"TROCADO"_s, u"mantido"_s}));
        QCOMPARE(f.get(u"trocado"_s), "importado");
        QCOMPARE(f.get(u"mantido"_s), "editado");
    }

    void aCopyThatCouldNotBeCompletedNeverGoesBack()
    {
        VaultFixture f;
        QVERIFY(f.createAndUnlock() && f.put(u"a"_s, noise(100, 1)));
        QString copy;
        QVERIFY(f.vault.prepareFileForEditing(u"a"_s, &copy));
        const VaultFileBlock block = f.vault.fileIndex().entries().first().blocks.first();
        overwrite(f.container, block.offset, "danificado");
        QVERIFY(!f.vault.prepareFileForEditing(u"a"_s, &copy));
        edit(copy, "pela metade");
        QVERIFY(f.vault.lockVault() && f.unlock());
        QCOMPARE(f.vault.fileIndex().entries().first().sizeBytes, 100);
    }

    void theWorkspaceIsPrivateWhateverTheUmask()
    {
        const mode_t former = ::umask(0);
        VaultFixture f;
        QVERIFY(f.createAndUnlock() && f.put(u"x/y/z.txt"_s, "segredo"));
        QString copy;
        QVERIFY(f.vault.prepareFileForEditing(u"x/y/z.txt"_s, &copy));
        ::umask(former);
        const auto mode = [](const QString &path) {
            struct stat status = {};
            return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 07777U : 0U;
        };
        QCOMPARE(mode(f.vault.workspacePath()), 0700U);
        QDirIterator folders(f.vault.workspacePath(), QDir::Dirs | QDir::NoDotAndDotDot,
                             QDirIterator::Subdirectories);
        while (folders.hasNext())
            QCOMPARE(mode(folders.next()), 0700U);
        QCOMPARE(mode(copy), 0600U);
        QVERIFY(!f.put(u".tessarin-workspace.lock"_s, "x") ||
                !f.vault.prepareFileForEditing(u".tessarin-workspace.lock"_s, &copy));
        QVERIFY(f.vault.lockVault());
    }

    void anotherProgramsWorkIsLeftAlone()
    {
        VaultFixture f;
        QVERIFY(f.createAndUnlock() && f.put(u"a"_s, "a"));
        VaultManager other;
        QVERIFY(other.unlockVault(f.container, f.password));
        QVERIFY(other.createDirectory(u"dela"_s));
        const QByteArray saved = readFile(f.container);
        QVERIFY(!f.put(u"b"_s, "b") && !f.vault.deleteFile(u"a"_s) && !f.vault.compactVault({}, nullptr));
        QVERIFY(readFile(f.container) == saved);

        // A password changed meanwhile is no conflict, and stays changed.
        QVERIFY(other.lockVault() && other.changePassword(f.container, f.password, "outra senha longa"));
        VaultManager third;
        QVERIFY(third.unlockVault(f.container, "outra senha longa"));
        QVERIFY(VaultManager().changePassword(f.container, "outra senha longa", f.password));
        QVERIFY(third.createDirectory(u"terceira"_s) && third.lockVault());
        QVERIFY(other.unlockVault(f.container, f.password) && other.lockVault());

        QVERIFY(other.createVault(f.container, f.password));
        const QByteArray replaced = readFile(f.container);
        QVERIFY(!f.vault.createDirectory(u"n"_s) && !f.vault.compactVault({}, nullptr));
        QVERIFY(readFile(f.container) == replaced);
    }

    void aForeignWorkspaceIsRefused()
    {
        VaultFixture f;
        QVERIFY(f.createAndUnlock() && f.put(u"d/a"_s, "segredo") && f.vault.lockVault());
        const QString victim = f.folder.filePath(u"victim"_s);
        QVERIFY(QDir().mkdir(victim) && QFile::link(victim, f.vault.workspacePath()));
        QString copy;
        QVERIFY(!f.unlock() && !f.vault.prepareFileForEditing(u"d/a"_s, &copy));
        QVERIFY(QFile::remove(f.vault.workspacePath()) && f.vault.lockVault());
        QVERIFY(f.unlock() && QFile::link(victim, f.vault.workspacePath() + u"/d"_s));
        QVERIFY(!f.vault.prepareFileForEditing(u"d/a"_s, &copy));
        QVERIFY(QDir(victim).isEmpty() && f.vault.lockVault() && QFile::exists(victim));

        // Who owns the common folder can put a link in the workspace's place while it is in use.
        QVERIFY(f.unlock() && f.vault.prepareFileForEditing(u"d/a"_s, &copy));
        const QString moved = f.vault.workspacePath() + u"-moved"_s;
        writeFile(victim + u"/own"_s, "x");
        QVERIFY(QDir().rename(f.vault.workspacePath(), moved) &&
                QFile::link(victim, f.vault.workspacePath()));
        QVERIFY(!f.vault.lockVault() && f.vault.state() == VaultManager::Locked);
        QVERIFY(QFile::exists(victim + u"/own"_s) && QDir(moved).isEmpty());
        QVERIFY(QFile::remove(f.vault.workspacePath()) && QDir().rmdir(moved));
    }

    void aWorkspaceThatIsTakenLeavesTheVaultOpen()
    {
        VaultFixture f;
        QVERIFY(f.createAndUnlock() && f.vault.lockVault());
        QVERIFY(QDir().mkdir(f.vault.workspacePath(),
                             QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
        QLockFile other(f.vault.workspacePath() + u"/.tessarin-workspace.lock"_s);
        QVERIFY(other.tryLock(0));
        QVERIFY(!f.unlock());
        QCOMPARE(f.vault.state(), VaultManager::Unlocked);
        QVERIFY(f.put(u"a"_s, "a"));
        other.unlock();
        QVERIFY(f.vault.lockVault());
    }
};

QTEST_GUILESS_MAIN(VaultSessionTest)
#include "tst_vault_session.moc"
