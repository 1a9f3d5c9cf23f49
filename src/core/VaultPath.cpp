// The rule of vault paths.
#include "core/VaultPath.h"

#include <QStringList>

#include <algorithm>

namespace Tessarin::Core {

namespace {

constexpr QLatin1Char separator('/');

bool isUsableSegment(const QString &segment)
{
    return !segment.isEmpty() && segment != QLatin1String(".") && segment != QLatin1String("..");
}

} // namespace

QString normalizedVaultPath(QString path)
{
    path = path.trimmed();
    path.replace(QLatin1Char('\\'), separator);

    QStringList segments = path.split(separator, Qt::SkipEmptyParts);
    for (QString &segment : segments) {
        segment = segment.trimmed();
        if (!isUsableSegment(segment))
            return {};
    }
    return segments.join(separator);
}

bool vaultPathsEqual(const QString &a, const QString &b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

QString vaultPathKey(const QString &path)
{
    // Folded one code point at a time, as QString::compare does; QString::toCaseFolded would also make one
    // letter into two, and so join names that compare as different.
    QString key;
    key.reserve(path.size());
    for (qsizetype i = 0; i < path.size(); ++i) {
        const QChar unit = path.at(i);
        if (unit.isHighSurrogate() && QStringView(path).mid(i, 2).isValidUtf16()) {
            key += QChar::fromUcs4(QChar::toCaseFolded(QChar::surrogateToUcs4(unit, path.at(++i))));
            continue;
        }
        key += unit.toCaseFolded();
    }
    return key;
}

bool pathIsInsideDirectory(const QString &path, const QString &directory)
{
    return path.startsWith(directory + separator, Qt::CaseInsensitive);
}

QString parentVaultPath(const QString &path)
{
    return path.first(std::max<qsizetype>(path.lastIndexOf(separator), 0));
}

QString vaultBaseName(const QString &path)
{
    return path.mid(path.lastIndexOf(separator) + 1);
}

QString joinVaultPath(const QString &directory, const QString &name)
{
    return normalizedVaultPath(directory.isEmpty() ? name : directory + separator + name);
}

bool isValidVaultName(const QString &name)
{
    const QString trimmed = name.trimmed();
    return isUsableSegment(trimmed) && !trimmed.contains(separator) && !trimmed.contains(QLatin1Char('\\'));
}

} // namespace Tessarin::Core
