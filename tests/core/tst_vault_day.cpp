// A day in a user's life: random operations of all kinds, each checked against a plain model in memory, with
// locking, compaction and password changes in between.
#include "core/VaultPath.h"
#include "support/VaultFixture.h"

#include <QMap>
#include <QRandomGenerator>
#include <QTest>

using namespace Tessarin::Core;
using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

/// What the vault should hold, by case-folded path: the bytes of files, and folders, whose paths end in "/".
/// A file and a folder may have the same path.
struct Model
{
    QMap<QString, QByteArray> items;

    bool isFile(const QString &path) const { return items.contains(path); }
    bool isFolder(const QString &path) const { return items.contains(path + u'/'); }
    bool has(const QString &path) const { return isFile(path) || isFolder(path); }

    void addParents(const QString &path)
    {
        for (QString parent = parentVaultPath(path); !parent.isEmpty(); parent = parentVaultPath(parent))
            items.insert(parent + u'/', {});
    }

    bool hasInside(const QString &folder) const
    {
        const auto inside = items.upperBound(folder + u'/');
        return inside != items.cend() && inside.key().startsWith(folder + u'/');
    }

    void moveFolder(const QString &from, const QString &to)
    {
        addParents(to);
        for (const QString &path : items.keys()) {
            if (path.startsWith(from + u'/'))
                items.insert(to + path.mid(from.size()), items.take(path));
        }
    }
};

class Day
{
public:
    explicit Day(quint32 seed) : random(seed) {}

    void run()
    {
        for (int step = 0; step < 200; ++step) {
            takeStep();
            compareNames();
            if (QTest::currentTestFailed())
                return;
        }
        lockAndPerhapsChangePassword();
        compareNames();
    }

private:
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

    void takeStep()
    {
        path = anyPath();
        other = anyPath();
        key = vaultPathKey(path);
        otherKey = vaultPathKey(other);
        const int kind = below(20);
        if (kind < 6)
            import();
        else if (kind < 8)
            followFile(otherKey, model.isFile(key), f.vault.renameFile(path, other));
        else if (kind < 10)
            followFile(otherKey + u'/' + vaultBaseName(key), model.isFile(key) && model.isFolder(otherKey),
                       f.vault.moveFile(path, other));
        else if (kind < 13)
            QCOMPARE(f.vault.deleteFile(path), model.isFile(key) && model.items.remove(key));
        else if (kind < 15)
            makeFolder();
        else if (kind < 17)
            renameFolder();
        else if (kind < 18)
            QCOMPARE(f.vault.deleteDirectory(path),
                     model.isFolder(key) && !model.hasInside(key) && model.items.remove(key + u'/'));
        else if (kind < 19)
            QVERIFY(f.vault.compactVault({}, nullptr));
        else
            lockAndPerhapsChangePassword();
    }

    void import()
    {
        const QByteArray bytes = noise(below(3) == 0 ? 0 : below(70000), random.generate());
        QVERIFY(f.put(path, bytes));
        model.items.insert(key, bytes);
        model.addParents(key);
    }

    /// A renamed or moved file, if it may go there.
    void followFile(const QString &target, bool isPossible, bool isDone)
    {
        const bool expected = isPossible && !model.has(target);
        QCOMPARE(isDone, expected);
        if (expected)
            model.items.insert(target, model.items.take(key));
    }

    void makeFolder()
    {
        QCOMPARE(f.vault.createDirectory(path), !model.has(key));
        if (model.isFile(key))
            return;
        model.addParents(key + u"/x"_s);
    }

    void renameFolder()
    {
        const bool expected =
            model.isFolder(key) && !model.has(otherKey) && !pathIsInsideDirectory(otherKey, key);
        QCOMPARE(f.vault.renameDirectory(path, other), expected);
        if (expected)
            model.moveFolder(key, otherKey);
    }

    void lockAndPerhapsChangePassword()
    {
        QVERIFY(f.vault.lockVault());
        if (below(2) == 0) {
            const QByteArray next = "senha numero " + QByteArray::number(random.generate());
            QVERIFY(f.vault.changePassword(f.container, password, next));
            password = next;
        }
        QVERIFY(f.vault.unlockVault(f.container, password));
        for (const QString &item : model.items.keys())
            QVERIFY(item.endsWith(u'/') || f.get(item) == model.items.value(item));
    }

    void compareNames()
    {
        QStringList names;
        for (const QString &name : f.paths())
            names << vaultPathKey(name);
        names.sort();
        QCOMPARE(names, model.items.keys());
    }

    QRandomGenerator random;
    VaultFixture f;
    QByteArray password = f.password;
    Model model;

    // Of the step:
    QString path;
    QString other;
    QString key;
    QString otherKey;
};

} // namespace

class VaultDayTest : public QObject
{
    Q_OBJECT

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
        Day(seed).run();
    }
};

QTEST_GUILESS_MAIN(VaultDayTest)
#include "tst_vault_day.moc"
