// What a part of the window, and all in it, looks like and tells assistive programs, in a line; no fonts.
#pragma once

#include "support/DialogDriver.h"

namespace Tessarin::Tests {

inline QString look(const QWidget &part);

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
    static const QWidgetList plainOnes{new QWidget,     new QFrame,       new QLabel,       new QToolButton,
                                       new QListWidget, new QTableWidget, new QStatusBar,   new QLineEdit,
                                       new QComboBox,   new QTextEdit,    new QTextBrowser, new QDialog,
                                       new QProgressBar};
    const QWidget *alike = nullptr;
    for (const QWidget *candidate : plainOnes)
        alike = part.inherits(candidate->metaObject()->className()) ? candidate : alike;
    const bool isNamed = !part.objectName().isEmpty() && !part.objectName().startsWith(u"qt_"_s);
    QString text = isNamed ? part.objectName() : QString::fromLatin1(part.metaObject()->className());
    static const QByteArrayList names =
        QByteArray(
            R"(accessibleName accessibleDescription text toolTip textFormat alignment focusPolicy contextMenuPolicy
            selectionMode selectionBehavior editTriggers alternatingRowColors showGrid wordWrap acceptDrops
            showDropIndicator checkable autoRaise sizeGripEnabled modal placeholderText readOnly inputMethodHints
            openExternalLinks textInteractionFlags maximum count currentRow showSortIndicator highlightSections
            stretchLastSection styleSheet echoMode documentTitle plainText)")
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
    if (part.minimumWidth() > 0 && !part.isWindow())
        text += part.minimumWidth() == part.minimumHeight() ? u" square"_s
                                                            : u" width=%1"_s.arg(part.minimumWidth());
    for (const QAction *action : part.actions())
        text += u" [%1]"_s.arg(action->toolTip());
    const bool hasParts = part.layout() && !qobject_cast<const QDialogButtonBox *>(&part);
    return hasParts ? text + look(*part.layout()) : text;
}

/// An entry of a menu; behind one that leads to another menu the entries of that.
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

/// Text, tooltip, alignment and what is heard of each cell; the header is row -1 and tells fixed widths.
inline QString look(const QTableWidget &table, int row)
{
    QStringList cells;
    for (int column = 0; column < table.columnCount(); ++column) {
        const bool isFixed = table.horizontalHeader()->sectionResizeMode(column) == QHeaderView::Fixed;
        cells += row < 0 && isFixed ? QString::number(table.columnWidth(column)) : QString();
        for (const int role : {int(Qt::DisplayRole), int(Qt::ToolTipRole), int(Qt::TextAlignmentRole),
                               int(Qt::AccessibleTextRole), int(Qt::AccessibleDescriptionRole)}) {
            const QVariant fact = row < 0 ? table.model()->headerData(column, Qt::Horizontal, role)
                                          : table.item(row, column)->data(role);
            cells.last() += u';' + fact.toString().replace(u'\n', u'¶');
        }
    }
    return cells.join(u" | "_s);
}

} // namespace Tessarin::Tests
