// Creating, unlocking, locking, the password, saving the index, and the temporary copies of opened files.
#include "support/VaultFixture.h"

#include <QLockFile>
#include <QTest>

#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <unistd.h>

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
        QVERIFY(!f.vault.createVault(f.container, "onze letras") && !QFile::exists(f.container));
        QVERIFY(f.vault.createVault(f.container, "doze letras!"));
        const ContainerCryptoMetadata crypto = f.document().crypto;
        QCOMPARE(crypto.kdf, u"Argon2id"_s);
        QCOMPARE(crypto.kdfIterations, 0);
        QCOMPARE(crypto.encryptedMasterKey.size(), 80);
        QVERIFY(crypto.salt.size() == 16 && crypto.payloadNonce.size() == 24);
        const QByteArray former = readFile(f.container);
        QCOMPARE(former.size(), 8388636);

        QVERIFY(!f.unlock() && !f.vault.unlockVault(f.container, {}) && !f.vault.saveIndex({}));
        QCOMPARE(f.vault.state(), VaultManager::Locked);
        QVERIFY(readFile(f.container) == former);
        QVERIFY(f.vault.unlockVault(f.container, "doze letras!"));
        QCOMPARE(f.vault.state(), VaultManager::Unlocked);
        QVERIFY(f.vault.saveIndex({}) && f.document().crypto.payloadNonce != crypto.payloadNonce);
    }

    void everyHeaderFieldIsBound()
    {
        VaultFixture f;
        QVERIFY(f.create());
        const ContainerDocument good = f.document();
        const auto opensWith = [&](auto &&change) {
            ContainerDocument changed = good;
            change(changed.crypto);
            return ContainerManager().updateDocumentHeader(f.container, changed) && f.unlock();
        };
        const auto flip = [](QByteArray &bytes) { bytes.back() = static_cast<char>(bytes.back() ^ 1); };
        QVERIFY(!opensWith([&](auto &crypto) { flip(crypto.salt); }));
        QVERIFY(!opensWith([&](auto &crypto) { flip(crypto.nonce); }));
        QVERIFY(!opensWith([&](auto &crypto) { flip(crypto.payloadNonce); }));
        QVERIFY(!opensWith([](auto &crypto) { crypto.salt.chop(1); }));
        QVERIFY(!opensWith([](auto &crypto) { crypto.kdfIterations = 1; }));
        QVERIFY(
            !opensWith([](auto &crypto) { crypto.kdf = u"PBKDF2"_s, crypto.kdfIterations = 2000000000; }));
        QVERIFY(opensWith([](auto &) {}));
    }

    void changingThePasswordKeepsEverythingElse()
    {
        const QByteArray next = "outra senha longa";
        VaultFixture f;
        QVERIFY(f.createAndUnlock() && f.put(u"a"_s, "conteúdo"));
        QVERIFY(!f.vault.changePassword(f.container, f.password, next) && f.vault.lockVault());
        const ContainerDocument before = f.document();
        QVERIFY(!f.vault.changePassword(f.container, "não é esta senha", next));
        QVERIFY(!f.vault.changePassword(f.container, f.password, "onze letras"));
        QVERIFY(f.vault.changePassword(f.container, f.password, next));
        const ContainerDocument after = f.document();
        QCOMPARE(after.encryptedIndex, before.encryptedIndex);
        QVERIFY(after.crypto.salt != before.crypto.salt && after.crypto.nonce != before.crypto.nonce);
        QVERIFY(!f.unlock() && f.vault.unlockVault(f.container, next));
        QCOMPARE(f.get(u"a"_s), "conteúdo");
    }

    void editedCopiesGoBackUnlessTheirFileIsAnother()
    {
        VaultFixture f;
        QVERIFY(f.createAndUnlock());
        QHash<QString, QString> copies;
        for (const QString &path : {u"Docs/A.txt"_s, u"apagado"_s, u"trocado"_s, u"igual"_s}) {
            QVERIFY(f.put(path, "velho"));
            QVERIFY(f.vault.prepareFileForEditing(path.toUpper(), &copies[path]));
            QCOMPARE(copies[path], f.vault.workspacePath() + u'/' + path);
            QCOMPARE(readFile(copies[path]), "velho");
        }
        QVERIFY(f.vault.modifiedOpenFiles().isEmpty());
        for (const QString &path : {u"Docs/A.txt"_s, u"apagado"_s, u"trocado"_s})
            edit(copies[path], "editado");
        QVERIFY(QFile::remove(copies[u"igual"_s]));
        QVERIFY(f.vault.deleteFile(u"Apagado"_s) && f.put(u"TROCADO"_s, "importado"));
        QCOMPARE(f.vault.modifiedOpenFiles().size(), 1);

        // Another vault locks this one.
        const QString workspace = f.vault.workspacePath();
        QVERIFY(f.vault.createVault(f.folder.filePath(u"b.trvx"_s), f.password));
        QVERIFY(f.vault.state() == VaultManager::Locked && !QFileInfo::exists(workspace));
        QVERIFY(f.unlock());
        QCOMPARE(f.filePaths(), QStringList({u"igual"_s, u"TROCADO"_s, u"Docs/A.txt"_s}));
        QCOMPARE(f.get(u"Docs/A.txt"_s), "editado");
        QCOMPARE(f.get(u"trocado"_s), "importado");
        QCOMPARE(f.get(u"igual"_s), "velho");
    }

    void anEditSurvivesOpeningItsFileAgainInVain()
    {
        VaultFixture f;
        QVERIFY(f.createAndUnlock() && f.put(u"a"_s, noise(100, 1)));
        QString copy;
        QVERIFY(f.vault.prepareFileForEditing(u"a"_s, &copy));
        edit(copy, "editado");
        const VaultFileBlock block = f.vault.fileIndex().entries().first().blocks.first();
        overwrite(f.container, block.offset, "danificado");
        QVERIFY(!f.vault.prepareFileForEditing(u"a"_s, &copy) && readFile(copy) == "editado");
        const auto all = QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot;
        QCOMPARE(QDir(f.vault.workspacePath()).entryList(all).size(), 2);
        QVERIFY(f.vault.lockVault() && f.unlock());
        QCOMPARE(f.get(u"a"_s), "editado");
    }

    void whatTheVaultHoldsCanBeOpenedWhateverItsName()
    {
        VaultFixture f;
        QVERIFY(f.createAndUnlock());
        QSet<QString> copies;
        const QStringList names{u":a"_s,
                                u":d/b"_s,
                                u"x"_s + QChar(0xD800),
                                u"x"_s + QChar(0xD801),
                                QString(300, u'ã') + u".odt"_s,
                                (QString(250, u'd') + u'/').repeated(20) + u'f'};
        for (const QString &name : names) {
            QString copy;
            QVERIFY(f.put(name, name.toUtf8()));
            QVERIFY(f.vault.prepareFileForEditing(name, &copy));
            QCOMPARE(readFile(copy), name.toUtf8());
            QVERIFY(copy.endsWith(u".odt"_s) == name.endsWith(u".odt"_s));
            copies << copy;
            edit(copy, name.toUtf8() + "!");
        }
        QCOMPARE(copies.size(), names.size());
        QVERIFY(f.vault.lockVault() && f.unlock());
        for (const QString &name : names)
            QCOMPARE(f.get(name), name.toUtf8() + "!");
    }

    void programsThatStartTogetherAllFindTheirWorkspace()
    {
        const QByteArray former = qgetenv("TMPDIR");
        const QTemporaryDir temporary;
        int failures = 0;
        for (int round = 0; round < 30; ++round) {
            qputenv("TMPDIR", QFile::encodeName(temporary.filePath(QString::number(round))));
            const QDeadlineTimer start(20);
            QList<pid_t> children(10);
            for (pid_t &child : children) {
                child = ::fork();
                while (child == 0) {
                    if (start.hasExpired())
                        ::_exit(TempWorkspaceManager().prepare() ? 0 : 1);
                }
            }
            for (const pid_t child : children) {
                int status = -1;
                failures += ::waitpid(child, &status, 0) != child || status != 0;
            }
        }
        qputenv("TMPDIR", former);
        QCOMPARE(failures, 0);
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
        for (const QString &path : {QString(), u"/x"_s, u"/x/y"_s})
            QCOMPARE(mode(f.vault.workspacePath() + path), 0700U);
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
        QVERIFY(
            QDir().mkdir(f.vault.workspacePath(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        const QString lockPath = f.vault.workspacePath() + u"/.tessarin-workspace.lock"_s;
        const pid_t otherProcess = ::fork();
        if (otherProcess == 0) {
            QLockFile lock(lockPath);
            lock.setStaleLockTime(0);
            if (lock.tryLock(0))
                ::pause();
            ::_exit(1);
        }
        QTRY_VERIFY(QFile::exists(lockPath));
        QVERIFY(!f.unlock());
        QVERIFY(f.vault.state() == VaultManager::Unlocked && f.put(u"a"_s, "a"));
        QVERIFY(::kill(otherProcess, SIGKILL) == 0 && ::waitpid(otherProcess, nullptr, 0) == otherProcess);
        QVERIFY(f.vault.lockVault());
    }
};

QTEST_GUILESS_MAIN(VaultSessionTest)
#include "tst_vault_session.moc"
