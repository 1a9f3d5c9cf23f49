// A day in a user's life: random operations of all kinds, each checked against a plain model in memory, with
// locking, compaction and password changes in between.
#include "core/VaultPath.h"
#include "support/VaultFixture.h"

#include <QRandomGenerator>
#include <QTest>

using namespace Tessarin::Core;
using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

class VaultDayTest : public QObject
{
    Q_OBJECT

private:
    QRandomGenerator random;
    std::unique_ptr<VaultFixture> f;
    QByteArray password;
    /// What the vault should hold, by case-folded path: the bytes of files, and folders, whose paths end in
    /// "/". A file and a folder may have the same path.
    QMap<QString, QByteArray> items;

    int below(int limit) { return static_cast<int>(random.bounded(limit)); }

    /// A path out of few, so that operations meet; letter case at random.
    QString anyPath()
    {
        static const QStringList names{u"a"_s, u"b"_s, u"ção"_s, u"d.txt"_s};
        QString made = names.at(below(4));
        for (int depth = below(3); depth > 0; --depth)
            made += u'/' + names.at(below(4));
        return below(3) == 0 ? made.toUpper() : made;
    }

    bool isFolder(const QString &key) const { return items.contains(key + u'/'); }
    bool exists(const QString &key) const { return items.contains(key) || isFolder(key); }

    bool hasInside(const QString &folder) const
    {
        const auto inside = items.upperBound(folder + u'/');
        return inside != items.cend() && inside.key().startsWith(folder + u'/');
    }

    void addParents(const QString &key)
    {
        for (QString parent = parentVaultPath(key); !parent.isEmpty(); parent = parentVaultPath(parent))
            items.insert(parent + u'/', {});
    }

    /// Moves an item and all below it, if that may be done, and says so.
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

    void takeStep()
    {
        const QString path = anyPath();
        const QString other = anyPath();
        const QString key = vaultPathKey(path);
        const QString otherKey = vaultPathKey(other);
        const bool isFile = items.contains(key);
        const int kind = below(20);
        if (kind < 6) {
            const QByteArray bytes = noise(below(3) == 0 ? 0 : below(70000), random.generate());
            QVERIFY(f->put(path, bytes));
            items.insert(key, bytes);
            addParents(key);
        } else if (kind < 8) {
            QCOMPARE(f->vault.renameFile(path, other), move(key, otherKey, isFile));
        } else if (kind < 10) {
            QCOMPARE(f->vault.moveFile(path, other),
                     move(key, otherKey + u'/' + vaultBaseName(key), isFile && isFolder(otherKey)));
        } else if (kind < 13) {
            QCOMPARE(f->vault.deleteFile(path), isFile);
            items.remove(key);
        } else if (kind < 15) {
            QCOMPARE(f->vault.createDirectory(path), !exists(key));
            if (!isFile)
                addParents(key + u"/x"_s);
        } else if (kind < 17) {
            QCOMPARE(
                f->vault.renameDirectory(path, other),
                move(key + u'/', otherKey + u'/', isFolder(key) && !pathIsInsideDirectory(otherKey, key)));
        } else if (kind < 18) {
            const bool isEmptyFolder = isFolder(key) && !hasInside(key);
            QCOMPARE(f->vault.deleteDirectory(path), isEmptyFolder);
            if (isEmptyFolder)
                items.remove(key + u'/');
        } else if (kind < 19) {
            QVERIFY(f->vault.compactVault({}, nullptr));
        } else {
            lockAndPerhapsChangePassword();
        }
    }

    void lockAndPerhapsChangePassword()
    {
        QVERIFY(f->vault.lockVault());
        if (below(2) == 0) {
            const QByteArray next = "senha numero " + QByteArray::number(random.generate());
            QVERIFY(f->vault.changePassword(f->container, password, next));
            password = next;
        }
        QVERIFY(f->vault.unlockVault(f->container, password));
        for (const QString &item : items.keys())
            QVERIFY(item.endsWith(u'/') || f->get(item) == items.value(item));
    }

private Q_SLOTS:
    void aDayOfOperationsEndsAsTheModelSays_data()
    {
        QTest::addColumn<quint32>("seed");
        for (const quint32 seed : {1U, 20U, 300U})
            QTest::addRow("seed %u", seed) << seed;
    }
    void aDayOfOperationsEndsAsTheModelSays()
    {
        QFETCH(const quint32, seed);
        random.seed(seed);
        f = std::make_unique<VaultFixture>();
        password = f->password;
        items.clear();
        for (int step = 0; step <= 200 && !QTest::currentTestFailed(); ++step) {
            step < 200 ? takeStep() : lockAndPerhapsChangePassword();
            QStringList names;
            for (const QString &name : f->paths())
                names << vaultPathKey(name);
            names.sort();
            QCOMPARE(names, items.keys());
        }
    }
};

QTEST_GUILESS_MAIN(VaultDayTest)
#include "tst_vault_day.moc"
