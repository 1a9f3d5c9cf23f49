// A day in a user's life: random operations of all kinds, each checked against a plain model in memory.
#include "core/VaultPath.h"
#include "support/VaultFixture.h"

using namespace Tessarin::Core;
using namespace Tessarin::Tests;

class VaultDayTest : public QObject
{
    Q_OBJECT

private:
    QRandomGenerator random{1};
    VaultFixture f;
    QByteArray password = f.password;
    /// What the vault should hold, by case-folded path: bytes of files, and folders, whose paths end in "/".
    QMap<QString, QByteArray> items;
    QMap<QString, QByteArray> open;       ///< The same of files that are open: what locking brings back.
    QHash<QByteArray, QByteArray> sealed; ///< What was encrypted under each nonce and each salt.

    int below(int limit) { return static_cast<int>(random.bounded(limit)); }

    /// A path out of few, and often one that is there, so that operations meet; letter case at random.
    QString anyPath()
    {
        static const QStringList names{u"a"_s, u"b"_s, u"ção"_s, u"d.txt"_s};
        QString made = names.at(below(4));
        for (int depth = below(3); depth > 0; --depth)
            made += u'/' + names.at(below(4));
        const QMap<QString, QByteArray> &present = below(2) == 0 ? items : open;
        if (below(3) > 0 && !present.isEmpty())
            made = normalizedVaultPath(present.keys().at(below(int(present.size()))));
        return below(3) == 0 ? made.toUpper() : made;
    }

    bool isFolder(const QString &key) const { return items.contains(key + u'/'); }
    bool exists(const QString &key) const { return items.contains(key) || isFolder(key); }

    static bool hasInside(const QMap<QString, QByteArray> &map, const QString &folder)
    {
        const auto inside = map.upperBound(folder + u'/');
        return inside != map.cend() && inside.key().startsWith(folder + u'/');
    }

    void addParents(const QString &key)
    {
        for (QString parent = parentVaultPath(key); !parent.isEmpty(); parent = parentVaultPath(parent))
            items.insert(parent + u'/', {});
    }

    bool move(const QString &from, const QString &to, bool isPossible)
    {
        if (!isPossible || exists(to.endsWith(u'/') ? to.chopped(1) : to))
            return false;
        for (const QString &key : items.keys()) {
            if (from.endsWith(u'/') ? key.startsWith(from) : key == from)
                items.insert(to + key.mid(from.size()), items.take(key));
        }
        if (to.endsWith(u'/'))
            addParents(to.chopped(1));
        return true;
    }

    void put(const QString &path)
    {
        const QString key = vaultPathKey(path);
        const QByteArray bytes = noise(below(3) == 0 ? 0 : below(70000), random.generate());
        QVERIFY(f.put(path, bytes));
        items.insert(key, bytes);
        open.remove(key);
        addParents(key);
    }

    void openAndPerhapsEdit(const QString &path)
    {
        const QString key = vaultPathKey(path);
        const bool isFile = items.contains(key);
        QString copy;
        const bool isOpened = f.vault.prepareFileForEditing(path, &copy);
        QCOMPARE(f.vault.lastFailure(), isOpened ? Failure::None
                                        : isFile ? Failure::WorkspaceUnavailable
                                                 : Failure::Refused);
        if (!isOpened)
            return;
        QCOMPARE(readFile(copy), items.value(key));
        open.insert(key, below(3) == 0 ? items.value(key) : noise(below(70000), random.generate()));
        if (open.value(key) != items.value(key))
            edit(copy, open.value(key));
        else if (below(2) == 0)
            QVERIFY(QFile::remove(copy));
    }

    void takeStep()
    {
        const QString path = anyPath();
        const QString other = anyPath();
        const QString key = vaultPathKey(path);
        const QString otherKey = vaultPathKey(other);
        const bool isFile = items.contains(key);
        const bool isClosedFile = isFile && !open.contains(key);
        const int kind = below(24);
        if (kind < 6) {
            put(path);
        } else if (kind < 8) {
            QCOMPARE(f.vault.renameFile(path, other), move(key, otherKey, isClosedFile));
        } else if (kind < 10) {
            QCOMPARE(f.vault.moveFile(path, other),
                     move(key, otherKey + u'/' + vaultBaseName(key), isClosedFile && isFolder(otherKey)));
        } else if (kind < 13) {
            QCOMPARE(f.vault.deleteFile(path), isFile);
            items.remove(key);
            open.remove(key);
        } else if (kind < 15) {
            QCOMPARE(f.vault.createDirectory(path), !exists(key));
            if (!isFile)
                addParents(key + u"/x"_s);
        } else if (kind < 17) {
            const bool isClosed = !open.contains(key) && !hasInside(open, key);
            QCOMPARE(f.vault.renameDirectory(path, other),
                     move(key + u'/', otherKey + u'/',
                          isClosed && isFolder(key) && !pathIsInsideDirectory(otherKey, key)));
        } else if (kind < 18) {
            const bool isEmptyFolder = isFolder(key) && !hasInside(items, key);
            QCOMPARE(f.vault.deleteDirectory(path), isEmptyFolder);
            if (isEmptyFolder)
                items.remove(key + u'/');
        } else if (kind < 19) {
            QVERIFY(f.vault.compactVault({}, nullptr));
        } else if (kind < 22) {
            openAndPerhapsEdit(path);
        } else if (kind < 23) {
            f.vault.beginImportSeries();
            put(path);
            put(other);
            QVERIFY(!f.vault.saveIndex(f.vault.fileIndex()));
            QVERIFY(f.vault.endImportSeries());
        } else {
            lockAndPerhapsChangePassword();
        }
    }

    void lockAndPerhapsChangePassword()
    {
        QVERIFY(below(2) == 0 ? f.vault.lockVault() : f.vault.createVault(f.root + u"/outro"_s, password));
        QVERIFY(!QFile::exists(f.vault.workspacePath()));
        items.insert(open);
        open.clear();
        const ContainerDocument former = f.document();
        if (below(2) == 0) {
            const QByteArray next = "senha numero " + QByteArray::number(random.generate());
            QVERIFY(f.vault.changePassword(f.container, password, next));
            QVERIFY(!f.vault.unlockVault(f.container, std::exchange(password, next)));
            QCOMPARE(f.document().encryptedIndex, former.encryptedIndex);
        }
        QVERIFY(f.vault.unlockVault(f.container, password));
        for (const QString &item : items.keys())
            QVERIFY(item.endsWith(u'/') || f.get(item) == items.value(item));
    }

    void checkNamesAndNonces()
    {
        QStringList names = vaultPathKey(f.paths().join(u'\n')).split(u'\n', Qt::SkipEmptyParts);
        names.sort();
        QCOMPARE(names, items.keys());
        const ContainerDocument present = f.document();
        const ContainerCryptoMetadata &crypto = present.crypto;
        for (const auto &[once, text] : {std::pair(crypto.payloadNonce, present.encryptedIndex),
                                         {crypto.nonce, crypto.encryptedMasterKey},
                                         {crypto.salt, crypto.encryptedMasterKey}}) {
            QVERIFY2(sealed.value(once, text) == text, "a nonce or a salt is used twice");
            sealed.insert(once, text);
        }
    }

private Q_SLOTS:
    void aDayOfOperationsEndsAsTheModelSays()
    {
        for (int step = 0; step <= 600 && !QTest::currentTestFailed(); ++step) {
            step < 600 ? takeStep() : lockAndPerhapsChangePassword();
            checkNamesAndNonces();
        }
    }
};

QTEST_GUILESS_MAIN(VaultDayTest)
#include "tst_vault_day.moc"
