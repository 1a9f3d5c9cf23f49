// The vault by examples: header, passwords, files and folders, and the copies of opened files.
#include "core/VaultKeys.h"
#include "support/VaultFixture.h"

#include <barrier>
#include <future>

#include <sys/stat.h>

using namespace Tessarin::Core;
using namespace Tessarin::Tests;

class VaultTest : public QObject
{
    Q_OBJECT

private:
    static constexpr qint64 block = 16 * 1024 * 1024;
    qsizetype filesFormerlyOpen = 0;

    static qsizetype openFiles()
    {
        return QDir(u"/proc/self/fd"_s, {}, {}, QDir::AllEntries | QDir::System).count();
    }

private Q_SLOTS:
    void init() { filesFormerlyOpen = openFiles(); }
    void cleanup() { QCOMPARE(openFiles(), filesFormerlyOpen); }

    void aNewVaultIsLockedAndOfTheStatedForm()
    {
        VaultFixture f;
        // Characters count, not bytes, nor the halves of those beyond the Basic Multilingual Plane.
        for (const char *letter : {"x", "é", "🔑"}) {
            const QString path = f.root + u'/' + QString::fromUtf8(letter);
            QVERIFY2(!f.vault.createVault(path, QByteArray(letter).repeated(11)), letter);
            QVERIFY(!QFile::exists(path));
            QVERIFY2(f.vault.createVault(path, QByteArray(letter).repeated(12)), letter);
            QCOMPARE(f.vault.state(), VaultManager::Locked);
        }
        const ContainerCryptoMetadata crypto = f.document().crypto;
        QCOMPARE(crypto.kdf, u"Argon2id"_s);
        QCOMPARE(crypto.kdfIterations, 0);
        QCOMPARE(crypto.encryptedMasterKey.size(), 80);
        QCOMPARE(crypto.salt.size(), 16);
    }

    void everyHeaderFieldIsBound()
    {
        VaultFixture f;
        QVERIFY(f.put(u"maior"_s, noise(5000, 4))); // Than a page.
        f.play(u"put a=conteúdo; lock"_s);
        ContainerDocument good = f.document();
        using Crypto = ContainerCryptoMetadata;
        const auto opensWith = [&](auto &&change) {
            ContainerDocument changed = good;
            change(changed.crypto);
            return !ContainerManager().updateDocumentHeader(f.container, changed) || f.unlock();
        };
        for (auto field : {&Crypto::salt, &Crypto::nonce, &Crypto::encryptedMasterKey, &Crypto::payloadNonce})
            QVERIFY(!opensWith([&](Crypto &crypto) { (crypto.*field)[0] = char(~(crypto.*field)[0]); }));
        // An index that does not open stands in the way of no new password, and leaves the blocks alone.
        f.play(u"password uma senha bem longa>outra senha longa"_s);
        QVERIFY(!opensWith([](Crypto &crypto) { crypto.cipher += u'x'; }));
        QVERIFY(!opensWith([](Crypto &crypto) { crypto.kdfIterations = 1; }));
        QVERIFY(!opensWith([](auto &crypto) { crypto.kdf = u"PBKDF2"_s, crypto.kdfIterations = 999999999; }));

        // The cipher may have any name that key and index are bound to; a new password gives the usual one.
        const SecretBytes key = decryptMasterKey(good, f.password);
        good.crypto.cipher = u"outra"_s;
        good.crypto.authTag = "legacy";
        good.crypto.encryptedMasterKey = encryptMasterKey(good, f.password, key);
        good.encryptedIndex = encryptIndex(good, f.vault.fileIndex(), key);
        QVERIFY(opensWith([](Crypto &) {}));
        f.play(u"put b=b; lock; password uma senha bem longa>outra senha longa; unlock outra senha longa; "
               "get a=conteúdo; get b=b"_s);
        QCOMPARE(f.document().crypto.cipher, u"XChaCha20-Poly1305"_s);
        QVERIFY(f.document().crypto.authTag.isEmpty());
    }

    void aNewPasswordSearchesTheGapsAndCutsOffTheRest()
    {
        VaultFixture f;
        QVERIFY(f.put(u"morto"_s, noise(3000000, 2)));
        f.play(u"put b=b; put vivo=v; put b=c"_s); // Not in the order of the index.
        const qint64 size = QFileInfo(f.container).size();
        QVERIFY(f.put(u"fim"_s, noise(block, 3)));
        const qint64 unlisted = QFileInfo(f.container).size() - 8388636 - 2 * 17;
        f.play(u"delete morto; delete fim; lock"_s);
        const QByteArray remains = ContainerManager().buildHeader(f.document()).replace(',', ",\n\r\t ~");
        overwrite(f.container, 9000000, "de um bloco" + remains);
        QString seen;
        QVERIFY(f.vault.changePassword(
            f.container, f.password, "outra senha longa",
            [&](qint64 done, qint64 total, const QString &) { seen = u"%1/%2"_s.arg(done).arg(total); }));
        QCOMPARE(seen, u"%1/%1"_s.arg(unlisted));
        QCOMPARE(QFileInfo(f.container).size(), size);
        const QByteArray wiped = readFile(f.container).sliced(9000000, 11 + remains.size());
        QCOMPARE(wiped, "de um bloco" + QByteArray(remains.size(), '\0'));
        f.play(u"unlock outra senha longa; get vivo=v"_s);
    }

    void anotherProgramMayWorkOnTheVault()
    {
        VaultFixture f;
        VaultFixture g(f.root);
        // A password changed meanwhile is no conflict, and stays changed.
        f.play(u"lock; password uma senha bem longa>outra senha longa"_s);
        g.play(u"mkdir a; lock; unlock outra senha longa"_s);

        const auto meet = [&](auto...) { f.play(u"unlock outra senha longa; -mkdir no meio; -compact"_s); };
        QVERIFY(g.vault.importFile(u"/etc/passwd"_s, u"c"_s, meet));
        QCOMPARE(f.vault.state(), VaultManager::Unlocked);
        const QByteArray former = readFile(g.container);
        g.play(u"create; unlock uma senha bem longa"_s);
        overwrite(g.container, 0, former);
        g.play(u"-mkdir d"_s);
    }

    void filesOfEverySizeComeBackByteForByte()
    {
        VaultFixture f;
        const QString source = f.root + u"/s"_s;
        const QByteArray bytes = noise(2 * block + 7, 5);
        QStringList seen;
        const auto note = [&](qint64 done, qint64 total, const QString &label) {
            seen << u"%1/%2 %3"_s.arg(done).arg(total).arg(label);
        };
        QSet<QByteArray> nonces;
        for (const qint64 size : {qint64(0), qint64(1), block, block + 1, 2 * block + 7}) {
            const QString name = u"d/f%1"_s.arg(size);
            writeFile(source, bytes.left(size));
            QVERIFY(f.vault.importFile(source, u'/' + name, note));
            QVERIFY(f.reopen());
            QVERIFY(f.vault.exportFile(name.toUpper(), f.root + u"/t"_s, note));
            QVERIFY(readFile(f.root + u"/t"_s) == bytes.left(size));

            const VaultFileEntry entry = f.entry(name);
            QCOMPARE(entry.sizeBytes, size);
            QCOMPARE(entry.sha256, QCryptographicHash::hash(bytes.left(size), QCryptographicHash::Sha256));
            QCOMPARE(QUuid(entry.id).toString(QUuid::WithoutBraces), entry.id);
            QCOMPARE(entry.lastModifiedUtc, QFileInfo(source).lastModified().toUTC());
            QStringList expected;
            qint64 done = 0;
            for (const VaultFileBlock &stored : entry.blocks) {
                QCOMPARE(stored.plainSize, qMin(size - done, block));
                QVERIFY(!nonces.contains(stored.nonce));
                nonces << stored.nonce;
                done += stored.plainSize;
                expected << u"%1/%2 %3"_s.arg(done).arg(size).arg(name);
            }
            QCOMPARE(std::exchange(seen, {}), expected + expected);
        }
        QVERIFY(f.vault.importFile(u"/proc/version"_s, u"of no size"_s)); // So the system tells.
        QCOMPARE(f.get(u"of no size"_s), readFile(u"/proc/version"_s));
    }

    void hostileBlocksFailToExport()
    {
        VaultFixture f;
        QVERIFY(f.put(u"a"_s, noise(1000, 2)));
        VaultFileEntry entry = f.entry(u"a"_s);
        const VaultFileBlock good = entry.blocks.first();
        for (const auto field :
             {&VaultFileBlock::offset, &VaultFileBlock::plainSize, &VaultFileBlock::encryptedSize}) {
            for (const int wrong : {-1, 0, 15, 999, 1001, std::numeric_limits<int>::max()}) {
                entry.blocks = {good};
                entry.blocks.first().*field = wrong;
                SecureFileIndex index;
                QVERIFY(index.addOrReplace(entry));
                QVERIFY(f.vault.saveIndex(index));
                f.play(u"-get a"_s);
            }
        }
    }

    void whatMovesKeepsItsIdAndItsPlace()
    {
        VaultFixture f;
        f.play(u"put a/x.txt=x; put Notas.txt=n"_s);
        const VaultFileEntry former = f.entry(u"a/x.txt"_s);
        const QString replacedId = f.entry(u"Notas.txt"_s).id;
        f.play(u"move A/X.txt>; put NOTAS.TXT=m; move notas.txt>A; mkdir /a/Sub/fim/; mkdir ab"_s);
        QCOMPARE(f.paths().join(u' '), u"a/ a/Sub/ a/Sub/fim/ ab/ X.txt A/notas.txt"_s);
        QCOMPARE(f.entry(u"X.txt"_s).id, former.id);
        QVERIFY(f.entry(u"A/notas.txt"_s).id != replacedId);
        QCOMPARE(f.entry(u"X.txt"_s).lastModifiedUtc, former.lastModifiedUtc);

        const VaultDirectoryEntry sub = *f.vault.fileIndex().findDirectory(u"a/sub"_s);
        QTRY_VERIFY(QDateTime::currentDateTimeUtc() > sub.modifiedUtc);
        f.play(u"mvdir A>c/D"_s);
        QCOMPARE(f.paths().join(u' '), u"c/D/ c/D/Sub/ c/D/Sub/fim/ ab/ c/ X.txt c/D/notas.txt"_s);
        const VaultDirectoryEntry moved = *f.vault.fileIndex().findDirectory(u"c/d/sub"_s);
        QVERIFY(moved.modifiedUtc > sub.modifiedUtc);
        QCOMPARE(moved.createdUtc, sub.createdUtc);
        for (const QString &bad : {QString(), u".."_s, u"a/."_s, u"a//../b"_s})
            f.play(
                u"-rename X.txt>%1; -mvdir ab>%1; -mkdir %1; -rmdir %1; -put %1=x; -move %1>ab; -delete %1"_s
                    .arg(bad));
        f.play(u"-move X.txt>falta; -move X.txt>..; -get falta; -export >/tmp/x"_s);
        QVERIFY(!f.vault.writeVaultFileToDevice(u"X.txt"_s, nullptr));
        QVERIFY(!f.vault.prepareFileForEditing(u"X.txt"_s, nullptr));
    }

    void whatTheVaultHoldsCanBeOpenedWhateverItsName()
    {
        VaultFixture f;
        const QString folder = f.vault.workspacePath() + u'/';
        const auto deep = [&](qsizetype length) {
            return u'x' + (u'/' + QString(99, u'd')).repeated(50).right(length - folder.size() - 1);
        };
        const QString ending = u'.' + QString(15, u's');
        const QString base(300, u'ã');
        const QStringList possible{u":a"_s, u"a"_s, QString(255, u'n'), deep(PATH_MAX - 1)};
        const QStringList names =
            possible + QStringList{deep(PATH_MAX), u"x"_s + QChar(0xD800), u"x"_s + QChar(0xD801),
                                   u"x\0y"_s,      u"\uFEFFa"_s,           QString(256, u'n'),
                                   base + ending,  base + ending + u's'};
        static const QRegularExpression substitute(u"-[0-9a-f]{32}(\\..*)?$"_s);
        for (const QString &name : names) {
            QString copy;
            QVERIFY(f.put(name, name.toUtf8()));
            QVERIFY(f.vault.prepareFileForEditing(name, &copy));
            QCOMPARE(readFile(copy), name.toUtf8());
            QCOMPARE(copy == folder + name, possible.contains(name));
            QCOMPARE(substitute.match(copy).hasMatch(), !possible.contains(name));
            QCOMPARE(substitute.match(copy).captured(1), name.endsWith(ending) ? ending : QString());
            edit(copy, QByteArray::number(names.indexOf(name)));
        }
        QVERIFY(f.reopen());
        for (const QString &name : names)
            QCOMPARE(f.get(name), QByteArray::number(names.indexOf(name)));
    }

    void aCopyThatIsSavedWhileItGoesBackGoesBackAgain()
    {
        VaultFixture f;
        f.play(u"put a=1; open a; edit a=2"_s);
        int saves = 100;
        const auto save = [&](qint64, qint64, const QString &) {
            if (--saves >= 0)
                edit(f.copies.value(u"a"_s), "ok");
        };
        QVERIFY(!f.vault.lockVault(save));
        QCOMPARE(f.vault.lastFailure(), Failure::SourceChanged);
        saves = 1;
        f.play(u"edit a=3"_s);
        QVERIFY(f.vault.lockVault(save));
        f.play(u"unlock uma senha bem longa; get a=ok; put b=b; open a; open b; edit a=1; edit b=22; lock"_s);
        QVERIFY2(!FileSyncManager().isModified(u"a"_s), "nobody tracks it");
    }

    void programsThatStartTogetherAllFindTheirWorkspace()
    {
        const auto restore = qScopeGuard([former = QDir::tempPath().toUtf8()] { qputenv("TMPDIR", former); });
        const QTemporaryDir temporary;
        for (int round = 0; round < 30; ++round) {
            const QString common = temporary.filePath(QString::number(round));
            QVERIFY(QDir().mkdir(common));
            qputenv("TMPDIR", QFile::encodeName(common));
            std::barrier together(10);
            const auto start = [&] { return together.arrive_and_wait(), TempWorkspaceManager().prepare(); };
            std::vector<std::future<bool>> programs(10);
            std::ranges::generate(programs, [&] { return std::async(std::launch::async, start); });
            for (std::future<bool> &program : programs)
                QVERIFY(program.get());
            QCOMPARE(QDir(common).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), {u"Tessarin"_s});
        }
        qputenv("TMPDIR", "/falta");
        QCOMPARE(QFileInfo(TempWorkspaceManager().workspacePath()).path(), u"/tmp/Tessarin"_s);
        qputenv("TMPDIR", QFile::encodeName(temporary.path()));
        QVERIFY(QFile::link(temporary.filePath(u"0"_s), temporary.filePath(u"Tessarin"_s)));
        QVERIFY(!TempWorkspaceManager().prepare());
    }

    void noCopyIsPutWhereItDoesNotBelong()
    {
        TempWorkspaceManager workspace;
        QFile copy;
        QVERIFY(workspace.prepare());
        const QString lock = u".tessarin-workspace.lock"_s;
        for (const QString &path : {QString(), u".."_s, u"../a"_s, u"a/."_s, u"a//b"_s, lock}) {
            QVERIFY(workspace.openNewCopy(copy));
            QVERIFY2(!workspace.putCopy(path, copy), qPrintable(path));
        }
        QCOMPARE(QDir(workspace.workspacePath()).entryList(QDir::Files | QDir::Hidden), {lock});
        QVERIFY(workspace.cleanup());
    }

    void theWorkspaceIsPrivateAndAForeignOneIsRefused()
    {
        VaultFixture f;
        const QString victim = f.root + u"/victim"_s;
        const QString workspace = f.vault.workspacePath();
        QVERIFY(QDir().mkdir(victim));
        f.play(u"put d/a=segredo; lock"_s);
        QVERIFY(QFile::link(victim, workspace));
        f.play(u"-unlock uma senha bem longa; -open d/a"_s);
        QVERIFY(QFile::remove(workspace));
        f.play(u"reopen"_s);
        QVERIFY(QFile::link(victim, workspace + u"/d"_s));
        f.play(u"-open d/a; lock"_s);
        QVERIFY(QDir(victim).isEmpty());

        const mode_t former = ::umask(0);
        f.play(u"unlock uma senha bem longa"_s);
        QVERIFY(QDir(workspace).mkdir(u"d"_s)); // Everyone may write there.
        f.play(u"-open d/a; reopen; open d/a"_s);
        ::umask(former);
        for (const auto &[path, mode] : {std::pair(u""_s, 0x7000), {u"/d"_s, 0x7000}, {u"/d/a"_s, 0x6000}})
            QCOMPARE(QFile::permissions(workspace + path) & 0xf0ff, mode);

        // Who owns the common folder can put a link in the place of a copy, or of the workspace, in use.
        const QString own = victim + u"/own"_s;
        const QString copy = f.copies.value(u"d/a"_s);
        QVERIFY(QFile::remove(copy));
        edit(own, "de outro");
        QVERIFY(QFile::link(own, copy));
        f.play(u"-lock; get d/a=segredo"_s);
        QVERIFY(QFile::remove(copy));
        f.play(u"open d/a"_s);
        QVERIFY(QDir().rename(workspace, workspace + u"-moved"_s));
        QVERIFY(QDir().mkdir(victim + u"/d"_s));
        QVERIFY(QFile::link(victim, workspace));
        edit(copy, "de outro");
        f.play(u"-lock; get d/a=segredo; -open d/a"_s);
        QVERIFY(!QFile::exists(workspace + u"-moved/d/a"_s));
        QCOMPARE(readFile(copy), "de outro");
        QVERIFY(QFile::remove(copy));
        f.play(u"-lock"_s);
        QCOMPARE(f.vault.state(), VaultManager::Locked);
        QCOMPARE(QDir(victim).entryList(QDir::Files), {u"own"_s});
        QVERIFY(QFile::remove(workspace));
        QVERIFY(QDir().rmdir(workspace + u"-moved"_s));
    }
};

QTEST_GUILESS_MAIN(VaultTest)
#include "tst_vault.moc"
