// The rows of the table, and how their texts and icons come about.
#include "Look.h"
#include "core/SecureFileIndex.h"
#include "ui/Formatting.h"
#include "ui/ImportSpace.h"
#include "ui/MoveFileDialog.h"
#include "ui/PasswordField.h"
#include "ui/QtTexts.h"
#include "ui/VaultItemIcon.h"
#include "ui/VaultTable.h"
#include "ui/WindowGeometry.h"

#include <QtTest>
#include <QtWidgets>

using namespace Tessarin::Core;
using namespace Tessarin::UI;
using namespace Qt::Literals::StringLiterals;

class VaultTableTest : public QObject
{
    Q_OBJECT

    SecureFileIndex index;

private Q_SLOTS:
    void initTestCase()
    {
        index.addOrReplace({{}, u"fotos/um.jpg"_s, 0, {}, {}, {}});
        for (const QString &path : {u"zebra"_s, u"Fotos"_s, u"fotos/Praia"_s})
            index.addDirectory({path, {}, {}});
    }

    void aFolderShowsWhatItsNameHoldsInAnyLetterCase()
    {
        QTableWidget table(0, VaultTable::ColumnCount);
        VaultTable::fill(table, index, u"Fotos"_s, VaultTable::NameColumn, Qt::AscendingOrder);
        QCOMPARE(table.rowCount(), 3); // The way up, Praia and um.jpg.
    }

    void textsAreWritten()
    {
        for (const auto &[made, expected] : QList<std::pair<QString, QString>>{
                 {fileTypeLabel(u"a.b/leiame"_s), u"Arquivo"_s},
                 {fileTypeLabel(u"foto.tar.Jpeg"_s), u"JPEG"_s},
                 {formatFileSize((qint64(5) << 30) + (qint64(1) << 29)), QLocale().toString(5.5) + u" GB"_s},
                 {shownName(u"a/x\u202e\u2028\u200dgnp.exe"_s), u"a/x[U+202E][U+2028]\u200dgnp.exe"_s},
                 {formatFileDate({}), QString()},
                 {formatFileDate(QDateTime({2024, 5, 3}, {14, 7}).toUTC()), u"03/05/2024 14:07"_s},
                 {normalizeDirectoryPath(u" /media/usb/// "_s), u"/media/usb/"_s},
                 {normalizeDirectoryPath(u"/x"_s), u"/x/"_s},
                 {shortList(QStringList(10, u"x"_s)).join(u""_s), QString(10, u'x')},
                 {shortList(QStringList(11, u"x"_s)).join(u""_s), QString(10, u'x') + u"e mais 1"_s},
                 {QtTexts().translate("QShortcut", "Return", nullptr, -1), u"Enter"_s},
                 {QtTexts().translate("QShortcut", "Computer", nullptr, -1), QString()},
                 {plainToolTip(u"<img src=x>"_s), u"<span>&lt;img src=x&gt;</span>"_s}})
            QCOMPARE(made, expected);
    }

    /// Without an X server the keys tell it; the lock's own key tells what was before.
    void capsLockIsWarnedOf()
    {
        QLineEdit field;
        QLabel warning;
        new PasswordField(&field, PasswordField::Purpose::New, &warning);
        for (const auto &[type, key, modifiers, isOn] : {std::tuple(QEvent::KeyPress, Qt::Key_A, 2U, true),
                                                         {QEvent::KeyRelease, Qt::Key_CapsLock, 2, true},
                                                         {QEvent::KeyPress, Qt::Key_CapsLock, 2, false},
                                                         {QEvent::KeyPress, Qt::Key_CapsLock, 0, true}}) {
            QKeyEvent event(type, key, {}, 0, 0, modifiers);
            QApplication::sendEvent(&field, &event);
            QCOMPARE(warning.isHidden(), !isOn);
            QCOMPARE(field.accessibleDescription(),
                     isOn ? u"A tecla Caps Lock está ligada."_s : u"Pelo menos 12 caracteres"_s);
        }
    }

    void aFileMovesToEveryFolderButItsOwn()
    {
        const QStringList others{u"fotos/Praia"_s, u"zebra"_s};
        QCOMPARE(moveDestinations(index, {}), QStringList{u"Fotos"_s} + others);
        QCOMPARE(moveDestinations(index, u"fotos"_s), QStringList{QString()} + others);
        QVERIFY(MoveFileDialog(QString(255, u'x'), {QString(250, u'y')}, nullptr).sizeHint().width() < 700);
    }

    void roomIsReckonedOnTheDriveAndOnTheScreen()
    {
        QCOMPARE(requiredImportBytes(qint64(1) << 30), qint64(1127428915) + 16777216);
        for (const auto &[screen, size] : {std::pair{QSize(1920, 1040), QSize(1152, 648)},
                                           {{1366, 768}, {900, 506}},
                                           {{1280, 480}, {853, 480}},
                                           {{}, {960, 540}}})
            QCOMPARE(centralWidgetSize(screen), size);
        QCOMPARE(dialogSize({820, 600}, {800, 800}), QSize(792, 600));
    }

    void aPageIsPainted()
    {
        const QString page =
            Tessarin::Tests::look(vaultItemIcon(VaultTableItemKind::File, u"x.jpeg"_s).pixmap(48));
        const QString expected = u"fedddceffdffeccffdffeedffdffffdfe888898ee9bbca8ee888898efdccccdf"_s;
        for (int i = 0; i < 64; ++i) // Another font may differ by one.
            QVERIFY(qAbs(page.mid(i, 1).toInt({}, 16) - expected.mid(i, 1).toInt({}, 16)) <= 1);
    }
};

QTEST_MAIN(VaultTableTest)
#include "tst_vault_table.moc"
