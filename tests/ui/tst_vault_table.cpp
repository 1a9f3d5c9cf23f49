// The table's rows, and how their texts and icons come about.
#include "core/SecureFileIndex.h"
#include "ui/Formatting.h"
#include "ui/ImportSpace.h"
#include "ui/MoveFileDialog.h"
#include "ui/VaultItemIcon.h"
#include "ui/VaultTable.h"
#include "ui/WindowGeometry.h"

#include <QImage>
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
        QCOMPARE(namesIn({}, 3, up), u"Fotos zebra c.md A.TXT a.txt b.txt"_s);
        QCOMPARE(namesIn({}, 4, up), u"zebra Fotos c.md A.TXT a.txt b.txt"_s);
        // The letter case of the folder's own name does not matter.
        QCOMPARE(namesIn(u"Fotos"_s, 1, up), u".. Praia dois.jpg um.jpg"_s);
    }

    void rowsCarryTheirPathAndKind()
    {
        QTableWidget table(0, VaultTable::ColumnCount);
        VaultTable::fill(table, sampleIndex(), u"fotos"_s, VaultTable::NameColumn, Qt::AscendingOrder);

        const QStringList paths{{}, u"fotos/Praia"_s, u"fotos/dois.jpg"_s};
        const int kinds[] = {2, 1, 0};
        for (int row = 0; row < 3; ++row) {
            for (const int column : {VaultTable::IconColumn, VaultTable::NameColumn}) {
                QCOMPARE(table.item(row, column)->data(Qt::UserRole).toString(), paths[row]);
                QCOMPARE(table.item(row, column)->data(Qt::UserRole + 1).toInt(), kinds[row]);
            }
            QVERIFY(!table.item(row, VaultTable::IconColumn)->icon().isNull());
        }
        QCOMPARE(table.item(1, VaultTable::TypeColumn)->text(), u"Pasta"_s);
        QCOMPARE(table.item(1, VaultTable::SizeColumn)->text(), QString());
        QCOMPARE(table.item(2, VaultTable::SizeColumn)->text(), formatFileSize(1));
        QCOMPARE(table.item(2, VaultTable::DateColumn)->data(Qt::UserRole).toString(), paths[2]);
    }

    void typesSizesAndDatesAreWritten()
    {
        QCOMPARE(fileTypeLabel(u"a.b/relatorio.pdf"_s), u"PDF"_s);
        for (const QString &path : {u"a.b/leiame"_s, u"nome."_s})
            QCOMPARE(fileTypeLabel(path), u"Arquivo"_s);
        QCOMPARE(fileTypeLabel(u"foto.tar.JPEG"_s), u"JPEG"_s);

        QLocale::setDefault(QLocale::c());
        QCOMPARE(formatFileSize(0), u"0 bytes"_s);
        QCOMPARE(formatFileSize(1536 * 1024), u"1.5 MB"_s);
        QCOMPARE(formatFileSize(qint64(5) << 30), u"5.0 GB"_s);
        QLocale::setDefault(QLocale::system());

        QCOMPARE(formatFileDate({}), QString());
        QCOMPARE(formatFileDate(QDateTime({2024, 5, 3}, {14, 7}, Qt::LocalTime).toUTC()),
                 u"03/05/2024 14:07"_s);

        QCOMPARE(normalizeDirectoryPath(u" /media/usb/// "_s), u"/media/usb/"_s);
        QCOMPARE(normalizeDirectoryPath(u"/media/usb"_s), u"/media/usb/"_s);
        QCOMPARE(normalizeDirectoryPath(u"/"_s), u"/"_s);
    }

    void wellKnownTypesHaveAnIconOfTheirOwn()
    {
        const auto imageOf = [](const QString &path) {
            return vaultItemIcon(VaultTableItemKind::File, path).pixmap(22, 22).toImage();
        };
        QList<QImage> images;
        for (const QString &name : u"a.key a.sig a.crt a.encrypted a.txt a.mp3 a.jpg jpg"_s.split(u' ')) {
            QVERIFY2(!images.contains(imageOf(name)), qPrintable(name));
            images += imageOf(name);
        }
        QCOMPARE(images.first().pixelColor(4, 18), QColor(31, 115, 92));
        QCOMPARE(imageOf(u"foto.JPEG"_s), images[6]);
    }

    void toolTipsShowNamesAsTheyStand()
    {
        QCOMPARE(plainToolTip(u"R&D 100%1.txt"_s), u"R&D 100%1.txt"_s);
        QCOMPARE(plainToolTip(u"<img src=x>"_s), u"<span>&lt;img src=x&gt;</span>"_s);
    }

    void aFileMovesToEveryFolderButItsOwn()
    {
        QCOMPARE(moveDestinations(sampleIndex(), {}),
                 (QStringList{u"Fotos"_s, u"fotos/Praia"_s, u"zebra"_s}));
        QCOMPARE(moveDestinations(sampleIndex(), u"fotos"_s),
                 (QStringList{{}, u"fotos/Praia"_s, u"zebra"_s}));

        MoveFileDialog dialog(QString(255, u'x'), {QString(250, u'y')}, nullptr);
        QVERIFY(dialog.sizeHint().width() < 700);
    }

    void importNeedsARoomyDrive()
    {
        QCOMPARE(requiredImportBytes(0), 16777216);
        QCOMPARE(requiredImportBytes(19), 16777216 + 19);
        // 1 GiB: 1,075.2 MiB and 16 MiB.
        QCOMPARE(requiredImportBytes(qint64(1) << 30), qint64(1127428915) + 16777216);
        QVERIFY((qint64(1200) << 20) - requiredImportBytes(qint64(1) << 30) < lowSpaceBytes);
        QVERIFY((qint64(1090) << 20) < requiredImportBytes(qint64(1) << 30));
    }

    void theWindowFitsTheScreen()
    {
        QCOMPARE(centralWidgetSize({1920, 1040}), QSize(1152, 648));
        QCOMPARE(centralWidgetSize({1366, 768}), QSize(900, 506));
        QCOMPARE(centralWidgetSize({1280, 480}), QSize(853, 480));
        QCOMPARE(centralWidgetSize({}), QSize(960, 540));
    }

private:
    static VaultFileEntry file(const QString &path, qint64 sizeBytes, int day)
    {
        VaultFileEntry entry;
        entry.vaultPath = path;
        entry.sizeBytes = sizeBytes;
        entry.lastModifiedUtc = QDateTime({2024, 5, day}, {10, 0}, QTimeZone::utc());
        return entry;
    }

    static SecureFileIndex sampleIndex()
    {
        SecureFileIndex index;
        index.addDirectory({u"zebra"_s, {}, QDateTime({2024, 1, 1}, {0, 0}, QTimeZone::utc())});
        index.addDirectory({u"Fotos"_s, {}, QDateTime({2024, 2, 1}, {0, 0}, QTimeZone::utc())});
        index.addDirectory({u"fotos/Praia"_s, {}, {}});
        index.addOrReplace(file(u"b.txt"_s, 10, 3));
        index.addOrReplace(file(u"A.TXT"_s, 30, 2));
        index.addOrReplace(file(u"c.md"_s, 20, 1));
        index.addOrReplace(file(u"a.txt"_s, 30, 2));
        index.addOrReplace(file(u"Fotos/um.jpg"_s, 1, 1));
        index.addOrReplace(file(u"fotos/dois.jpg"_s, 1, 1));
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
