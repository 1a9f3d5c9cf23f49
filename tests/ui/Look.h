// What a part of the window, and all in it, looks like and tells assistive programs, in a line.
#pragma once

#include "support/DialogDriver.h"
#include "ui/VaultTable.h"

namespace Tessarin::Tests {

inline QString look(const QWidget &part);

/// How bright something is on white, from 0 to f, in eight by eight fields.
inline QString look(const QPixmap &picture)
{
    QString text;
    const QImage seen = picture.toImage().scaled(8, 8, {}, Qt::SmoothTransformation);
    for (int i = 0; i < 256 && !seen.isNull(); i += 4)
        text += QString::number((seen.constBits()[i + 1] + 255 - seen.constBits()[i + 3]) / 17, 16);
    return text;
}

inline QString look(const QLayout &layout)
{
    QStringList items;
    for (int i = 0; i < layout.count(); ++i) {
        QLayoutItem &item = *layout.itemAt(i);
        items += item.widget() ? look(*item.widget()) : item.layout() ? look(*item.layout()) : u"space"_s;
        if (const auto *box = qobject_cast<const QBoxLayout *>(&layout); box && box->stretch(i) > 0)
            items.last() += u" stretch=%1"_s.arg(box->stretch(i));
        items.last() += item.alignment() ? u" aligned"_s : QString();
    }
    const int usualMargin =
        QApplication::style()->pixelMetric(QStyle::PM_LayoutLeftMargin, nullptr, layout.parentWidget());
    const int margin = layout.contentsMargins().left();
    const QString room = margin == usualMargin ? u""_s : u"; %1:%2"_s.arg(margin).arg(layout.spacing());
    return u" {"_s + items.join(u", "_s) + room + u'}';
}

inline QString look(const QWidget &part)
{
    static const QWidgetList plainOnes{new QWidget,      new QFrame,       new QLabel,       new QToolButton,
                                       new QListWidget,  new QTableWidget, new QStatusBar,   new QLineEdit,
                                       new QComboBox,    new QTextEdit,    new QTextBrowser, new QDialog,
                                       new QProgressBar, new QPushButton};
    const QWidget *alike = nullptr;
    for (const QWidget *candidate : plainOnes)
        alike = part.inherits(candidate->metaObject()->className()) ? candidate : alike;
    const bool isNamed = !part.objectName().isEmpty() && !part.objectName().startsWith(u"qt_"_s);
    QString text = isNamed ? part.objectName() : QString::fromLatin1(part.metaObject()->className());
    static const QByteArrayList names =
        QByteArray(
            R"(windowTitle accessibleName accessibleDescription text toolTip textFormat alignment focusPolicy
            contextMenuPolicy selectionMode selectionBehavior editTriggers alternatingRowColors showGrid wordWrap
            acceptDrops showDropIndicator checkable autoRaise sizeGripEnabled modal placeholderText readOnly
            inputMethodHints openExternalLinks textInteractionFlags maximum count currentRow showSortIndicator
            highlightSections stretchLastSection styleSheet echoMode minimumContentsLength documentTitle plainText)")
            .simplified()
            .split(' ');
    for (const QByteArray &name : names) {
        const QMetaProperty property = part.metaObject()->property(part.metaObject()->indexOfProperty(name));
        const QVariant value = part.property(name);
        if (value == alike->property(name))
            continue;
        const QString words = property.isEnumType()
                                  ? QString::fromLatin1(property.enumerator().valueToKeys(value.toInt()))
                                  : value.toString().replace(u'\n', u'¶');
        text += u" %1=%2"_s.arg(QLatin1StringView(name), words.section(u" {"_s, 0, 0).section(u'¶', 0, 0));
    }
    const int width = part.isWindow() ? part.width() : part.minimumWidth();
    const int lines = qRound(1.0 * part.minimumHeight() / part.fontMetrics().height());
    const bool isSquare = width == part.minimumHeight();
    if (width > 0 && (!part.isWindow() || part.testAttribute(Qt::WA_Resized)))
        text += isSquare ? u" square"_s : u" width=%1"_s.arg(width);
    if (lines > 1 && !isSquare && !part.isWindow())
        text += u" lines=%1"_s.arg(lines);
    text += part.isHidden() ? u" hidden"_s : QString();
    if (part.testAttribute(Qt::WA_SetFont))
        text += u" font=%1*%2"_s.arg(part.font().weight())
                    .arg(part.font().pointSizeF() / qApp->font().pointSizeF());
    if (part.testAttribute(Qt::WA_SetPalette) && part.styleSheet().isEmpty())
        text += u" palette=%1"_s.arg(part.palette().placeholderText().color().name(QColor::HexArgb));
    if (const auto *label = qobject_cast<const QLabel *>(&part); label && !label->pixmap().isNull())
        text += u' ' + look(label->pixmap());
    for (const QAction *action : part.actions())
        text += u" [%1: %2 %3]"_s.arg(action->text(), action->toolTip(), look(action->icon().pixmap(16)));
    return part.layout() ? text + look(*part.layout()) : text;
}

inline QString look(const QAction &entry)
{
    if (!entry.menu())
        return (entry.text() + u' ' + entry.shortcut().toString()).trimmed() +
               (entry.menuRole() == QAction::NoRole || entry.isSeparator() ? u""_s : u" role"_s);
    QStringList entries{entry.menu()->objectName() + u' ' + entry.menu()->accessibleName()};
    for (const QAction *inner : entry.menu()->actions())
        entries += look(*inner);
    return u'{' + entries.join(u" | "_s) + u'}';
}

/// Text, tooltip, alignment, what is heard and path of each cell; the header, row -1, tells fixed widths.
inline QString look(const QTableWidget &table, int row)
{
    QStringList cells;
    for (int column = 0; column < table.columnCount(); ++column) {
        const bool isFixed = table.horizontalHeader()->sectionResizeMode(column) == QHeaderView::Fixed;
        cells += row < 0 && isFixed ? QString::number(table.columnWidth(column)) : QString();
        for (const int role : {int(Qt::DisplayRole), int(Qt::ToolTipRole), int(Qt::TextAlignmentRole),
                               int(Qt::AccessibleTextRole), int(Qt::AccessibleDescriptionRole),
                               int(UI::VaultTable::PathRole)}) {
            const QVariant fact = row < 0 ? table.model()->headerData(column, Qt::Horizontal, role)
                                          : table.item(row, column)->data(role);
            cells.last() += u';' + fact.toString().replace(u'\n', u'¶');
        }
    }
    return cells.join(u" | "_s);
}

} // namespace Tessarin::Tests
