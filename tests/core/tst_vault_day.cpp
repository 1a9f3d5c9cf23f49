// A day in a user's life: random operations of all kinds, each checked against a plain model in memory, with
// locking, compaction and password changes in between.
#include "core/VaultPath.h"
#include "support/VaultFixture.h"

#include <QMap>
#include <QRandomGenerator>
#include <QSet>
#include <QTest>

using namespace Tessarin::Core;
using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

/// What the vault should hold, by case-folded path.
struct Model
{
    QMap<QString, QByteArray> files;
    QSet<QString> folders;

    bool has(const QString &path) const { return files.contains(path) || folders.contains(path); }

    void addParents(const QString &path)
    {
        for (QString parent = parentVaultPath(path); !parent.isEmpty(); parent = parentVaultPath(parent))
            folders.insert(parent);
    }

    bool hasInside(const QString &folder) const
    {
        const auto inside = [&](const QString &path) { return pathIsInsideDirectory(path, folder); };
        return std::any_of(folders.cbegin(), folders.cend(), inside) ||
               std::any_of(files.keyBegin(), files.keyEnd(), inside);
    }

    void moveFolder(const QString &from, const QString &to)
    {
        const auto moved = [&](const QString &path) { return to + path.mid(from.size()); };
        addParents(to);
        for (const QString &folder : QSet<QString>(folders)) {
            if (folder == from || pathIsInsideDirectory(folder, from)) {
                folders.remove(folder);
                folders.insert(moved(folder));
            }
        }
        for (const QString &file : files.keys()) {
            if (pathIsInsideDirectory(file, from))
                files.insert(moved(file), files.take(file));
        }
    }
};

class Day
{
public:
    explicit Day(quint32 seed) : random(seed) {}

    void run()
    {
        QVERIFY(f.createAndUnlock());
        for (int step = 0; step < 200; ++step) {
            takeStep();
            compareNames();
            if (QTest::currentTestFailed())
                return;
        }
        QVERIFY(f.vault.lockVault() && f.vault.unlockVault(f.container, password));
        compareNames();
        for (const QString &path : model.files.keys())
            QVERIFY(f.get(path) == model.files.value(path));
    }

private:
    int below(int limit) { return static_cast<int>(random.bounded(limit)); }

    /// A path out of few, so that operations meet; letter case at random.
    QString anyPath()
    {
        static const QStringList names{u"a"_s, u"b"_s, u"ção"_s, u"d.txt"_s};
        QString path = names.at(below(4));
        for (int depth = below(3); depth > 0; --depth)
            path += u'/' + names.at(below(4));
        return below(3) == 0 ? path.toUpper() : path;
    }

    void takeStep()
    {
        const QString path = anyPath();
        const QString other = anyPath();
        const QString key = vaultPathKey(path);
        const QString otherKey = vaultPathKey(other);
        switch (below(20)) {
        case 0:
        case 1:
        case 2:
        case 3:
        case 4:
        case 5:
            import(path, key);
            break;
        case 6:
        case 7:
            rename(path, other, key, otherKey);
            break;
        case 8:
        case 9:
            move(path, other, key, otherKey);
            break;
        case 10:
        case 11:
        case 12:
            QCOMPARE(f.vault.deleteFile(path), model.files.remove(key) == 1);
            break;
        case 13:
        case 14:
            makeFolder(path, key);
            break;
        case 15:
        case 16:
            renameFolder(path, other, key, otherKey);
            break;
        case 17:
            removeFolder(path, key);
            break;
        case 18:
            QVERIFY(f.vault.compactVault({}, nullptr));
            break;
        default:
            lockAndPerhapsChangePassword();
        }
    }

    void import(const QString &path, const QString &key)
    {
        const QByteArray bytes = noise(below(3) == 0 ? 0 : below(70000), random.generate());
        QVERIFY(f.put(path, bytes));
        model.files.insert(key, bytes);
        model.addParents(key);
    }

    void rename(const QString &path, const QString &other, const QString &key, const QString &otherKey)
    {
        const bool expected = model.files.contains(key) && !model.has(otherKey);
        QCOMPARE(f.vault.renameFile(path, other), expected);
        if (expected)
            model.files.insert(otherKey, model.files.take(key));
    }

    void move(const QString &path, const QString &folder, const QString &key, const QString &folderKey)
    {
        const QString target = folderKey + u'/' + vaultBaseName(key);
        const bool expected =
            model.files.contains(key) && model.folders.contains(folderKey) && !model.has(target);
        QCOMPARE(f.vault.moveFile(path, folder), expected);
        if (expected)
            model.files.insert(target, model.files.take(key));
    }

    void makeFolder(const QString &path, const QString &key)
    {
        QCOMPARE(f.vault.createDirectory(path), !model.has(key));
        if (model.files.contains(key))
            return;
        model.folders.insert(key);
        model.addParents(key);
    }

    void renameFolder(const QString &path, const QString &other, const QString &key, const QString &otherKey)
    {
        const bool expected =
            model.folders.contains(key) && !model.has(otherKey) && !pathIsInsideDirectory(otherKey, key);
        QCOMPARE(f.vault.renameDirectory(path, other), expected);
        if (expected)
            model.moveFolder(key, otherKey);
    }

    void removeFolder(const QString &path, const QString &key)
    {
        const bool expected = model.folders.contains(key) && !model.hasInside(key);
        QCOMPARE(f.vault.deleteDirectory(path), expected);
        if (expected)
            model.folders.remove(key);
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
    }

    void compareNames()
    {
        QStringList files;
        for (const QString &path : f.filePaths())
            files << vaultPathKey(path);
        std::sort(files.begin(), files.end());
        QCOMPARE(files, model.files.keys());
        QSet<QString> folders;
        for (const QString &path : f.directoryPaths())
            folders.insert(vaultPathKey(path));
        QCOMPARE(folders, model.folders);
        QCOMPARE(f.directoryPaths().size(), model.folders.size());
    }

    QRandomGenerator random;
    VaultFixture f;
    QByteArray password = f.password;
    Model model;
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
        QFETCH(quint32, seed);
        Day(seed).run();
    }
};

QTEST_GUILESS_MAIN(VaultDayTest)
#include "tst_vault_day.moc"
