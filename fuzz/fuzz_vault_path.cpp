// Names as people and other systems make them. Two paths are taken from the input, up to and behind its first
// line feed; an odd first byte means that the rest is UTF-16, which can hold halves of surrogate pairs.
#include "Require.h"

#include "core/VaultPath.h"

#include <QStringList>

#include <cstring>

using namespace Tessarin::Core;
using Tessarin::Fuzz::require;

namespace {

QString textOf(const uint8_t *data, size_t size)
{
    if (size == 0 || data[0] % 2 == 0)
        return QString::fromUtf8(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    QString text(static_cast<qsizetype>((size - 1) / sizeof(QChar)), Qt::Uninitialized);
    std::memcpy(text.data(), data + 1, static_cast<size_t>(text.size()) * sizeof(QChar));
    return text;
}

void checkPath(const QString &input)
{
    const QString path = normalizedVaultPath(input);
    require(normalizedVaultPath(path) == path && vaultPathsEqual(path, path));
    require(!isValidVaultName(input) || path == input.trimmed());
    if (path.isEmpty())
        return;
    const QStringList segments = path.split(u'/');
    for (const QString &segment : segments)
        require(isValidVaultName(segment) && segment == segment.trimmed());

    const QString parent = parentVaultPath(path);
    require(joinVaultPath(parent, vaultBaseName(path)) == path && vaultBaseName(path) == segments.last());
    require(parent.isEmpty() || pathIsInsideDirectory(path, parent));
    require(!pathIsInsideDirectory(path, path));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString input = textOf(data, size);
    const QString first = input.section(u'\n', 0, 0);
    const QString second = input.section(u'\n', 1);
    checkPath(first);
    checkPath(second);
    require(vaultPathsEqual(first, second) == (vaultPathKey(first) == vaultPathKey(second)));
    for (const QString &a : first.split(u'/')) {
        for (const QString &b : second.split(u'/'))
            require(vaultPathsEqual(a, b) == (vaultPathKey(a) == vaultPathKey(b)));
    }
    return 0;
}
