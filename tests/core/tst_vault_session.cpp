// Creating, unlocking, locking, the password, saving the index, and the temporary copies of opened files.
#include "core/HostFile.h"
#include "core/VaultKeys.h"
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

class VaultSessionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void createLeavesALockedVaultOfTheStatedForm()
    {
        VaultFixture f;
        const QString path = f.root + u"/novo.trvx"_s;
        // Characters count, not bytes, nor the halves of those beyond the Basic Multilingual Plane.
        for (const char *tooShort : {"", "onze letras", "ééééééééééé", "🔑🔑🔑🔑🔑🔑🔑🔑🔑🔑🔑"})
            QVERIFY2(!f.vault.createVault(path, tooShort), tooShort);
        QVERIFY(!QFile::exists(path));
        for (const char *password : {"éééééééééééé", "🔑🔑🔑🔑🔑🔑🔑🔑🔑🔑🔑🔑", "doze letras!"}) {
            QVERIFY(f.vault.createVault(path, password));
            QCOMPARE(f.vault.state(), VaultManager::Locked);
            QVERIFY(f.vault.unlockVault(path, password));
            QCOMPARE(f.vault.state(), VaultManager::Unlocked);
        }
        const ContainerCryptoMetadata crypto = f.document().crypto;
        QCOMPARE(crypto.kdf, u"Argon2id"_s);
        QCOMPARE(crypto.kdfIterations, 0);
        QCOMPARE(crypto.encryptedMasterKey.size(), 80);
        QCOMPARE(crypto.salt.size(), 16);
        QCOMPARE(crypto.payloadNonce.size(), 24);
    }

    void aLockedVaultDoesNothing()
    {
        VaultFixture f;
        QCOMPARE(f.play(u"put d/a=a; lock"_s), QString());
        const QByteArray former = readFile(f.container);
        QCOMPARE(f.play(u"-put x=x; -get d/a=a; -save; -move d/a>; -rename d/a>d/b; -delete d/a; -mkdir e; "
                        u"-mvdir d>e; "
                        "-rmdir d; -compact; -open d/a; -unlock; -unlock uma senha errada; lock"_s),
                 QString());
        QCOMPARE(f.vault.state(), VaultManager::Locked);
        QVERIFY(readFile(f.container) == former);
    }

    void everyHeaderFieldIsBound()
    {
        VaultFixture f;
        QVERIFY(f.vault.lockVault());
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
        QVERIFY(!opensWith([&](auto &crypto) { flip(crypto.encryptedMasterKey); }));
        QVERIFY(!opensWith([](auto &crypto) { crypto.encryptedMasterKey.clear(); }));
        QVERIFY(!opensWith([](auto &crypto) { crypto.salt.chop(1); }));
        QVERIFY(!opensWith([](auto &crypto) { crypto.cipher += u'x'; }));
        QVERIFY(!opensWith([](auto &crypto) { crypto.kdfIterations = 1; }));
        // A forged count does not keep anybody waiting.
        QVERIFY(
            !opensWith([](auto &crypto) { crypto.kdf = u"PBKDF2"_s, crypto.kdfIterations = 2000000000; }));
        QVERIFY(opensWith([](auto &) {}));
    }

    /// Every change of the header seals its index under a nonce that was never there before.
    void noNonceIsUsedTwice()
    {
        VaultFixture f;
        QSet<QByteArray> nonces{f.document().crypto.nonce, f.document().crypto.payloadNonce};
        for (const QString &step :
             {u"put d/a=x"_s, u"rename d/a>d/b"_s, u"move d/b>"_s, u"mkdir e"_s, u"mvdir e>g"_s, u"rmdir g"_s,
              u"save"_s, u"series"_s, u"put 1=1"_s, u"put 2=2"_s, u"end"_s, u"delete 1"_s, u"compact"_s,
              u"open b"_s, u"edit b=y"_s, u"reopen"_s}) {
            const QByteArray former = f.document().encryptedIndex;
            if (step == u"series"_s)
                f.vault.beginImportSeries();
            else if (step == u"end"_s)
                QVERIFY(f.vault.endImportSeries());
            else
                QCOMPARE(f.play(step), QString());
            const ContainerDocument document = f.document();
            if (document.encryptedIndex == former)
                continue;
            QVERIFY2(!nonces.contains(document.crypto.payloadNonce), qPrintable(step));
            QCOMPARE(document.crypto.payloadNonce.size(), 24);
            nonces << document.crypto.payloadNonce;
        }
        QVERIFY(nonces.size() > 12);
    }

    void changingThePasswordKeepsEverythingElse()
    {
        VaultFixture f;
        QCOMPARE(f.play(u"put a=conteúdo; -password uma senha bem longa>outra senha longa; lock; -password "
                        u"não é esta>outra senha "
                        "longa; -password >outra senha longa; -password uma senha bem longa>onze letras; "
                        "-password uma senha "
                        "bem longa>ééééééééééé"_s),
                 QString());
        const ContainerDocument before = f.document();
        QCOMPARE(f.play(u"password uma senha bem longa>outra senha longa"_s), QString());
        const ContainerDocument after = f.document();
        QCOMPARE(after.encryptedIndex, before.encryptedIndex);
        QVERIFY(after.crypto.salt != before.crypto.salt);
        QVERIFY(after.crypto.nonce != before.crypto.nonce);
        QCOMPARE(f.play(u"-unlock uma senha bem longa; unlock outra senha longa; get a=conteúdo"_s),
                 QString());
    }

    /// The cipher's name is bound to key and index, and a new password gives it the usual one.
    void aHeaderMayNameAnyCipher()
    {
        VaultFixture f;
        QCOMPARE(f.play(u"put a=conteúdo; lock"_s), QString());
        ContainerDocument document = f.document();
        const SecretBytes key = decryptMasterKey(document, f.password);
        SecureFileIndex index;
        QVERIFY(decryptIndex(document, key, &index));
        document.crypto.cipher = u"outra"_s;
        document.crypto.encryptedMasterKey = encryptMasterKey(document, f.password, key);
        document.encryptedIndex = encryptIndex(document, index, key);
        QVERIFY(ContainerManager().updateDocumentHeader(f.container, document));
        QCOMPARE(f.play(u"unlock uma senha bem longa; put b=b; lock; "
                        "password uma senha bem longa>outra senha longa; unlock outra senha longa; "
                        "get a=conteúdo; get b=b"_s),
                 QString());
        QCOMPARE(f.document().crypto.cipher, u"XChaCha20-Poly1305"_s);
    }

    void editedCopiesGoBackUnlessTheirFileIsAnother()
    {
        VaultFixture f;
        QCOMPARE(f.play(u"put Docs/A.txt=velho; put apagado=velho; put trocado=velho; put igual=velho; open "
                        u"DOCS/A.TXT; open "
                        "APAGADO; open TROCADO; open IGUAL; -open falta"_s),
                 QString());
        QCOMPARE(f.copies.value(u"docs/a.txt"_s), f.vault.workspacePath() + u"/Docs/A.txt"_s);
        QCOMPARE(readFile(f.copies.value(u"docs/a.txt"_s)), "velho");
        QCOMPARE(f.vault.modifiedOpenFiles().size(), 0);
        QVERIFY(QFile::remove(f.copies.value(u"igual"_s)));
        QCOMPARE(
            f.play(
                u"edit docs/a.txt=editado; edit apagado=editado; edit trocado=editado; delete Apagado; put "
                "TROCADO=importado"_s),
            QString());
        QCOMPARE(f.vault.modifiedOpenFiles().size(), 1);

        // Another vault locks this one.
        const QString workspace = f.vault.workspacePath();
        QVERIFY(f.vault.createVault(f.root + u"/b.trvx"_s, f.password));
        QCOMPARE(f.vault.state(), VaultManager::Locked);
        QVERIFY(!QFileInfo::exists(workspace));
        QCOMPARE(
            f.play(
                u"unlock uma senha bem longa; get Docs/A.txt=editado; get trocado=importado; get igual=velho"_s),
            QString());
        QCOMPARE(f.paths(), QStringList({u"Docs/"_s, u"igual"_s, u"TROCADO"_s, u"Docs/A.txt"_s}));
    }

    void anEditSurvivesOpeningItsFileAgainInVain()
    {
        VaultFixture f;
        QCOMPARE(f.play(u"put a=com vários bytes; open a; edit a=editado"_s), QString());
        const QString copy = f.copies.value(u"a"_s);
        overwrite(f.container, f.entry(u"a"_s).blocks.first().offset, "danificado");
        QCOMPARE(f.play(u"-open a"_s), QString());
        QCOMPARE(readFile(copy), "editado");
        const auto all = QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot;
        QCOMPARE(QDir(f.vault.workspacePath()).entryList(all).size(), 2);
        QCOMPARE(f.play(u"reopen; get a=editado"_s), QString());
    }

    void whatTheVaultHoldsCanBeOpenedWhateverItsName()
    {
        VaultFixture f;
        const QString folder = f.vault.workspacePath() + u'/';
        const auto deep = [&](qsizetype length) {
            return u'x' + (u'/' + QString(99, u'd')).repeated(50).right(length - folder.size() - 1);
        };
        // What the name of the copy ends with, where it cannot be the same.
        const QList<std::pair<QString, QString>> names{
            {u":a"_s, {}},
            {u":d/b"_s, {}},
            {QString(255, u'n'), {}},
            {deep(PATH_MAX - 1), {}},
            {deep(PATH_MAX), u"?"_s},
            {u"x"_s + QChar(0xD800), u"?"_s},
            {u"x"_s + QChar(0xD801), u"?"_s},
            {u"x\0y"_s, u"?"_s},
            {QString(256, u'n'), u"?"_s},
            {QString(300, u'ã') + u'.' + QString(15, u's'), u"?."_s + QString(15, u's')},
            {QString(300, u'ã') + u'.' + QString(16, u's'), u"?"_s}};
        QSet<QString> copies;
        for (const auto &[name, end] : names) {
            QString copy;
            QVERIFY(f.put(name, name.toUtf8()));
            QVERIFY(f.vault.prepareFileForEditing(name, &copy));
            QCOMPARE(readFile(copy), name.toUtf8());
            const QRegularExpression substitute(u"-[0-9a-f]{32}%1$"_s.arg(end.mid(1)));
            QCOMPARE(copy == folder + name, end.isEmpty());
            QCOMPARE(substitute.match(copy).hasMatch(), !end.isEmpty());
            copies << copy;
            edit(copy, name.toUtf8() + "!");
        }
        QCOMPARE(copies.size(), names.size());
        QVERIFY(f.reopen());
        for (const auto &[name, end] : names)
            QCOMPARE(f.get(name), name.toUtf8() + "!");
    }

    void noCopyIsPutWhereItDoesNotBelong()
    {
        FileSyncManager records;
        TempWorkspaceManager workspace;
        const QString lock = u".tessarin-workspace.lock"_s;
        QFile copy;
        QVERIFY(!workspace.openNewCopy(copy));
        QVERIFY(!workspace.putCopy(u"a"_s, copy));
        QVERIFY(!workspace.holdsCopy(u"a"_s));
        for (int round = 0; round < 2; ++round) {
            QVERIFY(workspace.prepare());
            for (const QString &path : {QString(), u".."_s, u"../a"_s, u"a/."_s, u"a//b"_s, lock}) {
                QVERIFY(workspace.openNewCopy(copy));
                QVERIFY2(!workspace.putCopy(path, copy), qPrintable(path));
                QVERIFY(!records.track(path, workspace.pathForVaultFile(u"falta"_s)));
            }
            QVERIFY(!records.track(u"a"_s, workspace.workspacePath()));
            QCOMPARE(QDir(workspace.workspacePath()).entryList(QDir::Files | QDir::Hidden),
                     QStringList{lock});
            QVERIFY(workspace.cleanup());
            QVERIFY(!QFile::exists(workspace.workspacePath()));
        }
        QVERIFY(records.trackedFiles().isEmpty());
    }

    void programsThatStartTogetherAllFindTheirWorkspace()
    {
        const QByteArray former = qgetenv("TMPDIR");
        const QTemporaryDir temporary;
        int failures = 0;
        for (int round = 0; round < 30; ++round) {
            const QString common = temporary.filePath(QString::number(round));
            QVERIFY(QDir().mkdir(common));
            qputenv("TMPDIR", QFile::encodeName(common));
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
            QCOMPARE(QDir(common).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), {u"Tessarin"_s});
        }
        // What lies there may be a link to all that the user has.
        qputenv("TMPDIR", QFile::encodeName(temporary.path()));
        QVERIFY(QFile::link(temporary.filePath(u"0"_s), temporary.filePath(u"Tessarin"_s)));
        QVERIFY(!TempWorkspaceManager().prepare());
        former.isNull() ? qunsetenv("TMPDIR") : qputenv("TMPDIR", former);
        QCOMPARE(failures, 0);
    }

    void theWorkspaceIsPrivateWhateverTheUmask()
    {
        const mode_t former = ::umask(0);
        VaultFixture f;
        QCOMPARE(f.play(u"put x/y/z.txt=segredo; open x/y/z.txt"_s), QString());
        ::umask(former);
        const auto mode = [&](const QString &path) {
            struct stat status = {};
            ::stat(QFile::encodeName(f.vault.workspacePath() + path).constData(), &status);
            return QString::number(status.st_mode & 07777U, 8);
        };
        QCOMPARE((QStringList{mode({}), mode(u"/x"_s), mode(u"/x/y"_s), mode(u"/x/y/z.txt"_s)}),
                 (QStringList{u"700"_s, u"700"_s, u"700"_s, u"600"_s}));
        // The lock's own name is no file to open.
        QCOMPARE(f.play(u"put .tessarin-workspace.lock=x; -open .tessarin-workspace.lock"_s), QString());
    }

    void anotherProgramsWorkIsLeftAlone()
    {
        VaultFixture f;
        VaultFixture g(f.root);
        QCOMPARE(g.play(u"put a=a"_s), QString());
        QVERIFY(f.vault.unlockVault(f.container, f.password));
        QCOMPARE(g.play(u"mkdir dela"_s), QString());
        const QByteArray saved = readFile(f.container);
        QCOMPARE(f.play(u"-put b=b; -delete a; -compact; -mkdir c; -rename a>b"_s), QString());
        QVERIFY(readFile(f.container) == saved);

        // A password changed meanwhile is no conflict, and stays changed.
        QCOMPARE(g.play(u"lock; password uma senha bem longa>outra senha longa; unlock outra senha longa"_s),
                 QString());
        QVERIFY(VaultManager().changePassword(f.container, "outra senha longa", f.password));
        QCOMPARE(g.play(u"mkdir terceira; lock; unlock uma senha bem longa"_s), QString());

        // While a change is under way, no other begins.
        QString met;
        QVERIFY(g.vault.importFile(u"/etc/passwd"_s, u"c"_s, [&](qint64, qint64, const QString &) {
            met = f.play(u"reopen; -mkdir no meio; -compact"_s) + u"met"_s;
        }));
        QCOMPARE(met, u"met"_s);

        QVERIFY(VaultManager().createVault(f.container, f.password));
        const QByteArray replaced = readFile(f.container);
        QCOMPARE(g.play(u"-mkdir n; -compact"_s), QString());
        QVERIFY(readFile(f.container) == replaced);
    }

    void everyFailureHasItsReason()
    {
        VaultFixture f;
        const QString outside = f.root + u"/outside"_s;
        QCOMPARE(f.play(u"put a=conteúdo; lock; -unlock uma senha errada"_s), QString());
        QCOMPARE(f.vault.lastFailure(), Failure::WrongPasswordOrDamaged);
        QCOMPARE(f.play(u"-get a="_s), QString());
        QCOMPARE(f.vault.lastFailure(), Failure::Refused);
        QVERIFY(f.unlock());
        QCOMPARE(f.vault.lastFailure(), Failure::None);
        QVERIFY(!f.vault.importFile(f.root + u"/falta"_s, u"b"_s));
        QCOMPARE(f.vault.lastFailure(), Failure::SourceUnreadable);
        QVERIFY(!f.vault.exportFile(u"a"_s, f.root + u'/' + QString(256, u'x')));
        QCOMPARE(f.vault.lastFailure(), Failure::NameTooLong);
        QVERIFY(!f.vault.exportFile(u"a"_s, f.root + u"/falta/b"_s));
        QCOMPARE(f.vault.lastFailure(), Failure::TargetUnwritable);
        QVERIFY(!f.vault.exportFile(u"a"_s, u"/dev/full"_s));
        QCOMPARE(f.vault.lastFailure(), Failure::TargetFull);
        {
            QFile other(f.container);
            QVERIFY(other.open(QIODevice::ReadOnly));
            QVERIFY(lockFile(other));
            QVERIFY(!VaultManager().createVault(f.container, f.password));
            QCOMPARE(f.play(u"-compact; -mkdir b"_s), QString());
            QCOMPARE(f.vault.lastFailure(), Failure::InUse);
        }
        overwrite(f.container, f.entry(u"a"_s).blocks.first().offset, "danificado");
        QVERIFY(!f.vault.exportFile(u"a"_s, outside));
        QCOMPARE(f.vault.lastFailure(), Failure::DamagedData);
        QVERIFY(!f.vault.createDirectory(QString(6300000, u'x')));
        QCOMPARE(f.vault.lastFailure(), Failure::IndexFull);
        QVERIFY(VaultManager().createVault(f.container, f.password));
        QCOMPARE(f.play(u"-delete a"_s), QString());
        QCOMPARE(f.vault.lastFailure(), Failure::ChangedByOther);
        QVERIFY(QFile::remove(f.container));
        QCOMPARE(f.play(u"-mkdir b"_s), QString());
        QCOMPARE(f.vault.lastFailure(), Failure::DriveGone);
    }

    void aForeignWorkspaceIsRefused()
    {
        VaultFixture f;
        const QString victim = f.root + u"/victim"_s;
        const QString workspace = f.vault.workspacePath();
        QVERIFY(QDir().mkdir(victim));
        QCOMPARE(f.play(u"put d/a=segredo; lock"_s), QString());
        QVERIFY(QFile::link(victim, workspace));
        QCOMPARE(f.play(u"-unlock uma senha bem longa; -open d/a"_s), QString());
        QVERIFY(QFile::remove(workspace));
        QCOMPARE(f.play(u"reopen"_s), QString());
        QVERIFY(QFile::link(victim, workspace + u"/d"_s));
        QCOMPARE(f.play(u"-open d/a; lock"_s), QString());
        QVERIFY(QDir(victim).isEmpty());

        // Who owns the common folder can put a link in the place of a copy, or of the workspace, while it is
        // in use.
        QCOMPARE(f.play(u"unlock uma senha bem longa; open d/a"_s), QString());
        writeFile(victim + u"/own"_s, "de outro");
        const QString copy = f.copies.value(u"d/a"_s);
        QVERIFY(QFile::remove(copy));
        QVERIFY(QFile::link(victim + u"/own"_s, copy));
        edit(victim + u"/own"_s, "de outro");
        QCOMPARE(f.play(u"-lock; get d/a=segredo"_s), QString());
        QVERIFY(QFile::remove(copy));
        QCOMPARE(f.play(u"open d/a"_s), QString());
        QVERIFY(QDir().rename(workspace, workspace + u"-moved"_s));
        QVERIFY(QDir().mkdir(victim + u"/d"_s));
        QVERIFY(QFile::link(victim, workspace));
        edit(copy, "de outro");
        QCOMPARE(f.play(u"-lock; get d/a=segredo; -open d/a"_s), QString());
        QVERIFY(!QFile::exists(workspace + u"-moved/d/a"_s));
        QCOMPARE(readFile(copy), "de outro");
        QVERIFY(QFile::remove(copy));
        QCOMPARE(f.play(u"-lock"_s), QString());
        QCOMPARE(f.vault.state(), VaultManager::Locked);
        QCOMPARE(QDir(victim).entryList(QDir::Files), QStringList{u"own"_s});
        QVERIFY(QFile::remove(workspace));
        QVERIFY(QDir().rmdir(workspace + u"-moved"_s));
    }

    void aWorkspaceThatIsTakenLeavesTheVaultOpen()
    {
        VaultFixture f;
        QVERIFY(f.vault.lockVault());
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
        QCOMPARE(f.vault.state(), VaultManager::Unlocked);
        QVERIFY(f.put(u"a"_s, "a"));
        QCOMPARE(::kill(otherProcess, SIGKILL), 0);
        QCOMPARE(::waitpid(otherProcess, nullptr, 0), otherProcess);
        QVERIFY(f.vault.lockVault());
    }
};

QTEST_GUILESS_MAIN(VaultSessionTest)
#include "tst_vault_session.moc"
