// Directories that come into being with what lies in them.
#include "core/ParentDirectories.h"

#include "core/VaultPath.h"

#include <QDateTime>

namespace Tessarin::Core {

void ensureParentDirectories(SecureFileIndex &index, const QString &path)
{
    const QString parent = parentVaultPath(path);
    if (parent.isEmpty())
        return;

    const QDateTime now = QDateTime::currentDateTimeUtc();
    for (qsizetype end = parent.indexOf(QLatin1Char('/'));; end = parent.indexOf(QLatin1Char('/'), end + 1)) {
        const QString ancestor = end == -1 ? parent : parent.left(end);
        if (!indexContainsDirectoryPath(index, ancestor))
            index.addDirectory({ancestor, now, now});
        if (end == -1)
            return;
    }
}

} // namespace Tessarin::Core
