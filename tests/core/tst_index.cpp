// The catalogue: its rules, its look-ups, and the exact bytes of its JSON.
#include "core/JsonScan.h"
#include "core/JsonText.h"
#include "core/SecureFileIndex.h"
#include "core/VaultPath.h"

#include <QtTest>

using namespace Tessarin::Core;
using namespace Qt::Literals::StringLiterals;

static VaultFileEntry file(const QString &path, qint64 size = 1)
{
    VaultFileEntry entry;
    entry.id = u"id-%1"_s.arg(size);
    entry.vaultPath = path;
    entry.sizeBytes = size;
    return entry;
}

static QByteArray quoted(QByteArray json)
{
    return json.replace('\'', '"');
}

/// What an index should be: plain lists that are searched from their start.
using Model = QList<std::pair<QString, qint64>>;

static auto isAt(const QString &path, Qt::CaseSensitivity cases = Qt::CaseSensitive)
{
    return [=](const auto &item) { return item.first.compare(path, cases) == 0; };
}

static qsizetype find(const Model &list, const QString &path, Qt::CaseSensitivity cases = Qt::CaseSensitive)
{
    return std::ranges::find_if(list, isAt(path, cases)) - list.cbegin();
}

static bool put(Model &list, const QString &path, qint64 value)
{
    const qsizetype at = find(list, path);
    if (!path.isEmpty() && at == list.size())
        list.append({path, value});
    else if (!path.isEmpty())
        list[at].second = value;
    return !path.isEmpty();
}

class IndexTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void jsonHasTheStatedOrderOfKeysAndReadsBack()
    {
        SecureFileIndex index;
        VaultFileEntry entry = file(u"Docs/\"uma ação\"\\\n\u0001.txt"_s, 5000000017);
        entry.lastModifiedUtc = QDateTime(QDate(2024, 3, 5), QTime(11, 7, 9, 123), QTimeZone(-3 * 3600));
        entry.sha256 = QByteArray(2, '\xAB');
        entry.blocks = {{8388636, 3, 19, QByteArray(24, '\0')}};
        QVERIFY(index.addOrReplace(entry));
        QVERIFY(index.addOrReplace(file(u"\uFEFF\uFEFFvazio"_s, 0)));
        QVERIFY(index.addDirectory({u"Docs"_s, QDateTime({9999, 12, 31}, {}, QTimeZone(0)),
                                    QDateTime({10000, 1, 1}, {}, QTimeZone(0))}));

        const QByteArray json = quoted(
            "{'formatVersion':1,'files':[{'id':'id-5000000017',"
            "'vaultPath':'Docs/\\'uma ação\\'\\\\\\n\\u0001.txt','sizeBytes':5000000017,"
            "'lastModifiedUtc':'2024-03-05T14:07:09.123Z','sha256':'abab','blocks':[{'offset':8388636,"
            "'plainSize':3,'encryptedSize':19,'nonce':'AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA'}]},{'id':'id-0',"
            "'vaultPath':'\\ufeff\\ufeffvazio','sizeBytes':0,'lastModifiedUtc':'','sha256':'','blocks':[]}],"
            "'directories':[{'path':'Docs','createdUtc':'9999-12-31T00:00:00.000Z','modifiedUtc':''}]}");
        QCOMPARE(index.toJson(), json);
        for (const QByteArray &form : {json, QByteArray(json).replace("\\ufeff", "\xEF\xBB\xBF")}) {
            SecureFileIndex read;
            QVERIFY(read.fromJson(form));
            QCOMPARE(read.toJson(), json);
        }
    }

    void jsonIsWrittenAndScannedInEveryForm()
    {
        JsonText json;
        json.beginArray();
        for (const qint64 number : {1, -2}) {
            json.beginArray();
            json.value(number);
            json.plainValue("p");
            json.value(u"\r"_s + QChar(0xDC00) + u"\U0001F600 "_s + QChar(0xD83D));
            json.endArray();
        }
        json.endArray();
        QCOMPARE(json.take(), quoted("[[1,'p','\\r\\udc00😀 \\ud83d'],[-2,'p','\\r\\udc00😀 \\ud83d']]"));

        QByteArray keys;
        const auto collect = [&](auto key, auto value) { keys.append(key).append(value); };
        QVERIFY(visitJsonMembers(quoted("{'a\\u0062\\'\\\\\\/\\b\\n\\u00e9\\u0080\\u007fc':1, 'ã' : {} } "),
                                 collect));
        QCOMPARE(keys, "ab\"\\/????\u007fc1ã{}");
        for (const char *number : {"1e", "1e+", "-", ".", "01", "+1", "1.", ".5", "-0.5e-7"})
            QCOMPARE(visitJsonMembers("{\"a\":"_ba + number + '}', collect),
                     QByteArrayList({"1.", ".5", "-0.5e-7"}).contains(number));
        for (const auto &[depth, isTaken] : {std::pair{1024, true}, {1025, false}})
            QCOMPARE(
                visitJsonMembers("{\"a\":" + QByteArray(depth, '[') + QByteArray(depth, ']') + '}', collect),
                isTaken);
    }

    void malformedJsonDegradesInsteadOfFailing()
    {
        SecureFileIndex index;
        for (const char *json : {"[]", "", "{\"files\":"})
            QVERIFY(!index.fromJson(json));
        QVERIFY(index.fromJson("{}"));
        QVERIFY(index.fromJson(quoted("{'files':[{'vaultPath':'a','sizeBytes':'x','lastModifiedUtc':'nunca',"
                                      "'blocks':[7,{'offset':-4}]},{'id':'semNome'},3,{'vaultPath':'b'},"
                                      "{'vaultPath':'a','id':'outra'}],'directories':{'path':'no list'}}")));
        QCOMPARE(index.entries().size(), 2);
        QCOMPARE(index.entries().first().id, u"outra"_s);
    }

    void entriesKeepTheirPlacesAndAreFoundEitherWay()
    {
        const QStringList names{
            {},        u"z"_s,      u"Z"_s,       u"Docs/a.txt"_s, u"docs/A.TXT"_s, u"DOCS/A.txt"_s,
            u"Docs"_s, u"Straße"_s, u"STRASSE"_s, u"STRAßE"_s,     u"\U00010400"_s, u"\U00010428"_s};
        QRandomGenerator random(7);
        SecureFileIndex index;
        Model files;
        Model folders;
        for (qint64 step = 1; step < 5000; ++step) {
            const QString name = names.at(random.bounded(int(names.size())));
            const auto *own = index.findFile(name);
            const QString &path = own && own->vaultPath == name ? own->vaultPath : name;
            const QString other = names.at(random.bounded(int(names.size())));
            const qsizetype at = find(files, name);
            const bool isFree = !other.isEmpty() && find(files, other) == files.size();
            switch (random.bounded(6)) {
            case 0:
                QCOMPARE(index.addOrReplace(file(path, step)), put(files, name, step));
                break;
            case 1:
                QCOMPARE(index.addDirectory({path, QDateTime::fromMSecsSinceEpoch(step), {}}),
                         put(folders, name, step));
                break;
            case 2:
                QCOMPARE(index.setVaultPath(path, other), at < files.size() && isFree);
                if (at < files.size() && isFree)
                    files[at].first = other;
                break;
            case 3:
                QCOMPARE(index.remove(path), files.removeIf(isAt(name)) > 0);
                break;
            case 4:
                QCOMPARE(index.removeDirectory(path), folders.removeIf(isAt(name)) > 0);
                break;
            default:
                QCOMPARE(index.removeInAnyCase(path), files.removeIf(isAt(name, Qt::CaseInsensitive)) > 0);
            }
            SecureFileIndex expected;
            for (const auto &[filePath, size] : std::as_const(files))
                QVERIFY(expected.addOrReplace(file(filePath, size)));
            for (const auto &[folderPath, time] : std::as_const(folders))
                QVERIFY(expected.addDirectory({folderPath, QDateTime::fromMSecsSinceEpoch(time), {}}));
            QCOMPARE(index.toJson(), expected.toJson());
            const auto *seen = index.findFile(other);
            const auto *folder = index.findDirectory(other);
            QCOMPARE(index.contains(other), find(files, other) < files.size());
            QCOMPARE(index.containsDirectory(other), find(folders, other) < folders.size());
            QCOMPARE(seen ? seen->sizeBytes : 0, files.value(find(files, other, Qt::CaseInsensitive)).second);
            QCOMPARE(folder ? folder->createdUtc.toMSecsSinceEpoch() : 0,
                     folders.value(find(folders, other, Qt::CaseInsensitive)).second);
        }
    }

    void pathsAreNormalizedOrRefused()
    {
        QCOMPARE(normalizedVaultPath(u" \\docs\\\\x.txt/ "_s), u"docs/x.txt"_s);
        QCOMPARE(normalizedVaultPath(u"///.../ a..b //"_s), u".../a..b"_s);
        for (const QString &bad : {u"a/./b"_s, u"a/../b"_s, u"a/ /b"_s, u".."_s, u" / "_s, QString()})
            QVERIFY(normalizedVaultPath(bad).isEmpty());
    }
};

QTEST_GUILESS_MAIN(IndexTest)
#include "tst_index.moc"
