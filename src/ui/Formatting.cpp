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

QString fileTypeLabel(const QString &vaultPath)
{
    const QString suffix = QFileInfo(vaultPath).suffix();
    if (suffix.isEmpty())
        return translated("Arquivo");
    return suffix.toUpper();
}

QString formatFileSize(qint64 bytes)
{
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
