// The table's rows, and how their texts and icons come about.
#include "core/SecureFileIndex.h"
#include "ui/Formatting.h"
#include "ui/ImportSpace.h"
#include "ui/MoveFileDialog.h"
#include "ui/VaultTable.h"
#include "ui/WindowGeometry.h"

#include <QTableWidget>
#include <QTest>
#include <QTimeZone>

using namespace Tessarin::Core;
using namespace Tessarin::UI;
using namespace Qt::Literals::StringLiterals;

class VaultTableTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void foldersComeFirstAndEachColumnSorts()
    {
        const auto up = Qt::AscendingOrder;
        const auto down = Qt::DescendingOrder;
        QCOMPARE(namesIn({}, 1, up), u"Fotos zebra A.TXT a.txt b.txt c.md"_s);
        QCOMPARE(namesIn({}, 1, down), u"zebra Fotos c.md b.txt A.TXT a.txt"_s);
        QCOMPARE(namesIn({}, 2, up), u"Fotos zebra b.txt c.md A.TXT a.txt"_s);
        QCOMPARE(namesIn({}, 2, down), u"zebra Fotos A.TXT a.txt c.md b.txt"_s);
        QCOMPARE(namesIn({}, 4, up), u"zebra Fotos c.md A.TXT a.txt b.txt"_s);
        // The letter case of the folder's own name does not matter.
        QCOMPARE(namesIn(u"Fotos"_s, 1, up), u".. Praia dois.jpg um.jpg"_s);
    }

    void textsAreWritten()
    {
        QCOMPARE(fileTypeLabel(u"a.b/leiame"_s), u"Arquivo"_s);
        QCOMPARE(fileTypeLabel(u"foto.tar.Jpeg"_s), u"JPEG"_s);
        QCOMPARE(formatFileSize((qint64(5) << 30) + (qint64(1) << 29)),
                 QLocale().toString(5.5, 'f', 1) + u" GB"_s);
        QCOMPARE(formatFileSize(1), u"1 byte"_s);
        QCOMPARE(shownName(u"a/x\u202egnp.exe"_s), u"a/x[U+202E]gnp.exe"_s);
        QCOMPARE(shownName(u"a/\u05d0.txt"_s), u"a/\u2068\u05d0.txt\u2069"_s);
        QCOMPARE(formatFileDate({}), QString());
        QCOMPARE(formatFileDate(QDateTime({2024, 5, 3}, {14, 7}).toUTC()), u"03/05/2024 14:07"_s);
        QCOMPARE(normalizeDirectoryPath(u" /media/usb/// "_s), u"/media/usb/"_s);
        QCOMPARE(plainToolTip(u"R&D 100%1.txt"_s), u"R&D 100%1.txt"_s);
        QCOMPARE(plainToolTip(u"<img src=x>"_s), u"<span>&lt;img src=x&gt;</span>"_s);
    }

    void aFileMovesToEveryFolderButItsOwn()
    {
        const QStringList others{u"fotos/Praia"_s, u"zebra"_s};
        QCOMPARE(moveDestinations(sampleIndex(), {}), QStringList{u"Fotos"_s} + others);
        QCOMPARE(moveDestinations(sampleIndex(), u"fotos"_s), QStringList{QString()} + others);
        QVERIFY(MoveFileDialog(QString(255, u'x'), {QString(250, u'y')}, nullptr).sizeHint().width() < 700);
    }

    void roomIsReckonedOnTheDriveAndOnTheScreen()
    {
        const qint64 forOneGibibyte = qint64(1127428915) + 16777216;
        QCOMPARE(requiredImportBytes(qint64(1) << 30), forOneGibibyte);
        QCOMPARE(centralWidgetSize({1920, 1040}), QSize(1152, 648));
        QCOMPARE(centralWidgetSize({1366, 768}), QSize(900, 506));
        QCOMPARE(centralWidgetSize({1280, 480}), QSize(853, 480));
        QCOMPARE(centralWidgetSize({}), QSize(960, 540));
    }

private:
    static SecureFileIndex sampleIndex()
    {
        SecureFileIndex index;
        const auto addFile = [&index](const QString &path, qint64 sizeBytes, int day) {
            VaultFileEntry entry;
            entry.vaultPath = path;
            entry.sizeBytes = sizeBytes;
            entry.lastModifiedUtc = QDateTime({2024, 5, day}, {10, 0}, QTimeZone::utc());
            index.addOrReplace(entry);
        };
        const auto firstOf = [](int month) { return QDateTime({2024, month, 1}, {0, 0}, QTimeZone::utc()); };
        index.addDirectory({u"zebra"_s, {}, firstOf(1)});
        index.addDirectory({u"Fotos"_s, {}, firstOf(2)});
        index.addDirectory({u"fotos/Praia"_s, {}, {}});
        addFile(u"b.txt"_s, 10, 3);
        addFile(u"A.TXT"_s, 30, 2);
        addFile(u"c.md"_s, 20, 1);
        addFile(u"a.txt"_s, 30, 2);
        addFile(u"Fotos/um.jpg"_s, 1, 1);
        addFile(u"fotos/dois.jpg"_s, 1, 1);
        return index;
    }

    static QString namesIn(const QString &directory, int column, Qt::SortOrder order)
    {
        QTableWidget table(0, VaultTable::ColumnCount);
        VaultTable::fill(table, sampleIndex(), directory, column, order);
        QStringList names;
        for (int row = 0; row < table.rowCount(); ++row)
            names += table.item(row, VaultTable::NameColumn)->text();
        return names.join(u' ');
    }
};

QTEST_MAIN(VaultTableTest)
#include "tst_vault_table.moc"
