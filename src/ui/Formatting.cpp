// How sizes, dates, types, the state of the vault, folders of the host, file filters and tooltips are
// written.
#include "ui/Formatting.h"

#include "ui/Translated.h"

#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <QTextDocument>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

constexpr QChar firstStrongIsolate(0x2068);
constexpr QChar popDirectionalIsolate(0x2069);

/// Joiners within a word are not meant: some languages are written with them.
bool isInvisible(QChar character)
{
    const bool isJoiner = character.unicode() == 0x200c || character.unicode() == 0x200d;
    return character.category() == QChar::Other_Control || character.category() == QChar::Separator_Line ||
           character.category() == QChar::Separator_Paragraph ||
           (character.category() == QChar::Other_Format && !isJoiner);
}

} // namespace

QString fileTypeLabel(const QString &vaultPath)
{
    const QString suffix = QFileInfo(vaultPath).suffix();
    if (suffix.isEmpty())
        return translated("Arquivo");
    return suffix.toUpper();
}

QString shownName(const QString &name)
{
    QStringList parts;
    for (const QString &part : name.split(u'/')) {
        QString shown;
        bool runsLeft = false;
        for (const QChar character : part) {
            if (isInvisible(character))
                shown +=
                    u"[U+%1]"_s.arg(static_cast<int>(character.unicode()), 4, 16, QLatin1Char('0')).toUpper();
            else
                shown += character;
            runsLeft =
                runsLeft || character.direction() == QChar::DirR || character.direction() == QChar::DirAL;
        }
        parts += runsLeft ? firstStrongIsolate + shown + popDirectionalIsolate : shown;
    }
    return parts.join(u'/');
}

QString formatFileSize(qint64 bytes)
{
    if (bytes == 1)
        return translated("1 byte"); // Qt knows the plural only.
    return QLocale().formattedDataSize(bytes, 1, QLocale::DataSizeTraditionalFormat);
}

QString formatFileDate(const QDateTime &when)
{
    if (!when.isValid())
        return {};
    return QLocale().toString(when.toLocalTime(), u"dd/MM/yyyy HH:mm"_s);
}

QString vaultStateText(bool unlocked)
{
    return unlocked ? translated("Cofre desbloqueado") : translated("Cofre bloqueado");
}

QString normalizeDirectoryPath(QString path)
{
    path = QDir::fromNativeSeparators(path.trimmed());
    // A root of up to three characters ("/", "C:/") keeps its form.
    while (path.size() >= 4 && path.endsWith(u'/'))
        path.chop(1);
    if (!path.endsWith(u'/'))
        path.append(u'/');
    return path;
}

QString comparablePath(const QString &directoryPath)
{
    return normalizeDirectoryPath(QDir::cleanPath(directoryPath));
}

QStringList shortList(const QStringList &names)
{
    constexpr qsizetype shown = 10;
    if (names.size() <= shown)
        return names;
    return names.first(shown) << translated("e mais %1").arg(names.size() - shown);
}

QString containerFileFilter()
{
    return translated("Tessarin Container (*.trvx);;Todos os arquivos (*.*)");
}

QString plainToolTip(const QString &text)
{
    if (!Qt::mightBeRichText(text))
        return text;
    return u"<span>"_s + text.toHtmlEscaped() + u"</span>"_s;
}

} // namespace Tessarin::UI
