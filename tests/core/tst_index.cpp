// The catalogue: its rules, its look-ups, and the exact bytes of its JSON.
#include "core/SecureFileIndex.h"
#include "core/VaultPath.h"

#include <QTest>
#include <QTimeZone>

using namespace Tessarin::Core;
using namespace Qt::Literals::StringLiterals;

namespace {

VaultFileEntry file(const QString &path, qint64 size = 1)
{
    VaultFileEntry entry;
    entry.id = u"id-"_s + path;
    entry.vaultPath = path;
    entry.sizeBytes = size;
    return entry;
}

/// JSON is easier to read here with its quotes single.
QByteArray quoted(QByteArray json)
{
    return json.replace('\'', '"');
}

QStringList paths(const SecureFileIndex &index)
{
    QStringList result;
    for (const VaultFileEntry &entry : index.entries())
        result << entry.vaultPath;
    return result;
}

} // namespace

class IndexTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void jsonHasTheStatedOrderOfKeysAndReadsBack()
    {
        SecureFileIndex index;
        VaultFileEntry entry = file(u"Docs/\"ação\"\\\n\u0001.txt"_s, 5000000017);
        entry.lastModifiedUtc = QDateTime(QDate(2024, 3, 5), QTime(11, 7, 9, 123), QTimeZone(-3 * 3600));
        entry.sha256 = QByteArray(2, '\xAB');
        entry.blocks = {{8388636, 3, 19, QByteArray(24, '\0')}};
        QVERIFY(index.addOrReplace(entry));
        QVERIFY(index.addOrReplace(file(u"vazio"_s, 0)));
        QVERIFY(index.addDirectory({u"Docs"_s, entry.lastModifiedUtc, {}}));

        const QByteArray json = quoted(
            "{'formatVersion':1,'files':[{'id':'id-Docs/\\'ação\\'\\\\\\n\\u0001.txt','vaultPath':"
            "'Docs/\\'ação\\'\\\\\\n\\u0001.txt','sizeBytes':5000000017,'lastModifiedUtc':"
            "'2024-03-05T14:07:09.123Z','sha256':'abab','blocks':[{'offset':8388636,'plainSize':3,"
            "'encryptedSize':19,'nonce':'AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA'}]},{'id':'id-vazio',"
            "'vaultPath':'vazio','sizeBytes':0,'lastModifiedUtc':'','sha256':'','blocks':[]}],"
            "'directories':[{'path':'Docs','createdUtc':'2024-03-05T14:07:09.123Z','modifiedUtc':''}]}");
        QCOMPARE(index.toJson(), json);

        SecureFileIndex read;
        QVERIFY(read.fromJson(json));
        QCOMPARE(read.toJson(), json);
        const QString odd = u"a"_s + QChar(0xD800) + u"b\U0001F600"_s + QChar(0xDC00);
        QVERIFY(index.addOrReplace(file(odd)) && read.fromJson(index.toJson()));
        QCOMPARE(read.entries().last().vaultPath, odd);
    }

    void malformedJsonDegradesInsteadOfFailing()
    {
        SecureFileIndex index;
        QVERIFY(!index.fromJson("[]") && !index.fromJson("") && !index.fromJson("{\"files\":"));
        QVERIFY(index.fromJson("{}"));
        QVERIFY(index.entries().isEmpty() && index.directories().isEmpty());
        QVERIFY(index.fromJson(quoted("{'files':[{'vaultPath':'a','sizeBytes':'x','lastModifiedUtc':'nunca',"
                                      "'blocks':[7,{'offset':-4}]},{'id':'semNome'},3,{'vaultPath':'b'},"
                                      "{'vaultPath':'a','id':'outra'}],'directories':{'path':'no list'}}")));
        QCOMPARE(paths(index), QStringList({u"a"_s, u"b"_s}));
        QCOMPARE(index.entries().first().id, u"outra"_s);
    }

    void entriesKeepTheirPlacesAndAreFoundEitherWay()
    {
        SecureFileIndex index;
        QVERIFY(!index.addOrReplace(file({})) && !index.addDirectory({}));
        for (const QString &path : {u"Docs/a.txt"_s, u"docs/a.txt"_s, u"Straße"_s, u"z"_s})
            QVERIFY(index.addOrReplace(file(path)));
        QVERIFY(index.addOrReplace(file(u"docs/a.txt"_s, 9)));
        QCOMPARE(index.entries().at(1).sizeBytes, 9);
        QVERIFY(index.contains(u"z"_s) && !index.contains(u"Z"_s));
        QCOMPARE(index.findFile(u"DOCS/A.TXT"_s)->vaultPath, u"Docs/a.txt"_s);
        QVERIFY(indexContainsFilePath(index, u"STRAßE"_s) && !indexContainsFilePath(index, u"strasse"_s));

        SecureFileIndex few = index; // By references into itself, which a sanitizer watches.
        QVERIFY(few.setVaultPath(few.entries().last().vaultPath, u"y"_s));
        QVERIFY(few.remove(few.entries().last().vaultPath));
        QVERIFY(!few.findFile(u"y"_s));
        QVERIFY(few.removeInAnyCase(u"DOCS/A.TXT"_s));
        QCOMPARE(paths(few), QStringList(u"Straße"_s));
        QVERIFY(few.removeInAnyCase(few.entries().first().vaultPath));
        QVERIFY(!few.findFile(u"Straße"_s));

        QVERIFY(!index.setVaultPath(u"z"_s, u"docs/a.txt"_s) && index.setVaultPath(u"z"_s, u"y"_s));
        QVERIFY(index.findFile(u"Y"_s) && !index.findFile(u"z"_s) && index.setVaultPath(u"y"_s, u"z"_s));
        QVERIFY(!index.remove(u"Z"_s) && index.remove(u"Docs/a.txt"_s));
        QCOMPARE(paths(index), QStringList({u"docs/a.txt"_s, u"Straße"_s, u"z"_s}));
        QCOMPARE(index.findFile(u"Docs/a.txt"_s)->vaultPath, u"docs/a.txt"_s);
        QCOMPARE(index.findFile(u"Z"_s)->vaultPath, u"z"_s);

        index.addDirectory({u"docs"_s, {}, {}});
        QVERIFY(indexContainsDirectoryPath(index, u"Docs"_s) && !index.containsDirectory(u"Docs"_s));
    }

    void pathsAreNormalizedOrRefused()
    {
        QCOMPARE(normalizedVaultPath(u" \\docs\\\\x.txt/ "_s), u"docs/x.txt"_s);
        QCOMPARE(normalizedVaultPath(u"///.../ a..b //"_s), u".../a..b"_s);
        for (const QString &bad : {u"a/./b"_s, u"a/../b"_s, u"a/ /b"_s, u".."_s, u" / "_s, QString()})
            QVERIFY(normalizedVaultPath(bad).isEmpty());
        for (const QString &path : {u"Fotos/x"_s, u"fotos"_s, u"fotos2/x"_s})
            QCOMPARE(pathIsInsideDirectory(path, u"fotos"_s), path == u"Fotos/x"_s);
        QCOMPARE(parentVaultPath(u"a/b/c"_s), u"a/b"_s);
        QVERIFY(parentVaultPath(u"/a"_s).isEmpty() && parentVaultPath(u"a"_s).isEmpty());
        QCOMPARE(joinVaultPath({}, u"/x"_s), u"x"_s);
        QVERIFY(isValidVaultName(u" a.b "_s) && !isValidVaultName(u"a\\b"_s) && !isValidVaultName(u" .. "_s));
    }

    void aKeyIsTheSameExactlyWhenPathsCompareAsEqual()
    {
        const QStringList samples{u"é"_s, u"É"_s, u"e\u0301"_s, u"ß"_s, u"ẞ"_s, u"ss"_s, u"İ"_s, u"i"_s,
                                  u"ı"_s, u"Σ"_s, u"ς"_s,       u"σ"_s, u"𐐀"_s, u"𐐨"_s,  u"K"_s, u"k"_s};
        for (const QString &a : samples) {
            for (const QString &b : samples)
                QCOMPARE(vaultPathKey(a) == vaultPathKey(b), vaultPathsEqual(a, b));
        }
    }
};

QTEST_GUILESS_MAIN(IndexTest)
#include "tst_index.moc"
