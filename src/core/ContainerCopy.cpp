// Copying, comparing and deleting containers.
#include "core/ContainerCopy.h"

#include "core/ContainerFormat.h"
#include "core/HeaderArea.h"
#include "core/HostFile.h"
#include "core/ProgressLabels.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>

namespace Tessarin::Core {

namespace {

constexpr qint64 sectorSize = 512;
constexpr qint64 pageSize = 4096;
constexpr qint64 copyChunkSize = 8 * 1024 * 1024;
constexpr qint64 comparedChunkSize = 256 * 1024; ///< Two of them fit the processor's cache.

/// Fills the chunk's memory anew; empty at the end and on failure.
void readChunk(QFile &source, qint64 size, QByteArray &chunk)
{
    chunk.resize(size);
    chunk.resize(qMax(qint64(0), source.read(chunk.data(), size)));
}

CopyResult failureOf(int errorNumber)
{
    return isLackOfRoom(errorNumber) ? CopyResult::NoRoom : CopyResult::Failed;
}

CopyResult copyInChunks(QFile &source, QFile &target, const ProgressCallback &progress)
{
    const qint64 totalBytes = source.size();
    Writeback writeback(0);
    QByteArray firstSector;
    QByteArray chunk;
    for (qint64 doneBytes = 0; doneBytes < totalBytes;) {
        readChunk(source, copyChunkSize, chunk);
        if (chunk.isEmpty())
            return CopyResult::Failed;
        if (doneBytes == 0) {
            firstSector = chunk.first(qMin(sectorSize, chunk.size()));
            std::fill_n(chunk.begin(), firstSector.size(), '\0');
        }
        doneBytes += chunk.size();
        if (!writeFully(target, chunk) || !writeback.advance(target, doneBytes))
            return failureOf(errno);
        if (progress)
            progress(doneBytes, totalBytes, replacingLabel());
    }
    if (!syncFile(target))
        return failureOf(errno);
    return target.seek(0) && writeFully(target, firstSector) && syncFile(target) ? CopyResult::Done
                                                                                 : failureOf(errno);
}

CopyResult copyDurably(const QString &sourcePath, QFile &target, const ProgressCallback &progress)
{
    QFile source(sourcePath);
    if (!source.open(QIODevice::ReadOnly | QIODevice::Unbuffered) ||
        !target.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered) ||
        !lockFile(target)) {
        return CopyResult::Failed;
    }
    const CopyResult result = copyInChunks(source, target, progress);
    if (result == CopyResult::Done && !syncDirectory(QFileInfo(target).absolutePath()))
        return failureOf(errno);
    return result;
}

/// Compares two files with what the drives hold, not with what memory still does.
bool holdSameBytes(const QString &firstPath, const QString &secondPath, const ProgressCallback &progress)
{
    QFile first(firstPath);
    QFile second(secondPath);
    if (!first.open(QIODevice::ReadOnly | QIODevice::Unbuffered) ||
        !second.open(QIODevice::ReadOnly | QIODevice::Unbuffered) || first.size() != second.size()) {
        return false;
    }
    const qint64 totalBytes = first.size();
    dropCachedPages(first);
    dropCachedPages(second);
    QByteArray chunk;
    QByteArray otherChunk;
    for (qint64 doneBytes = 0; doneBytes < totalBytes;) {
        readChunk(first, comparedChunkSize, chunk);
        readChunk(second, comparedChunkSize, otherChunk);
        if (chunk.isEmpty() || chunk != otherChunk)
            return false;
        doneBytes += chunk.size();
        if (progress && (doneBytes % copyChunkSize == 0 || doneBytes == totalBytes))
            progress(doneBytes, totalBytes, replacingLabel());
    }
    return true;
}

} // namespace

CopyResult copyAndVerify(const QString &sourcePath, QFile &target, const ProgressCallback &progress)
{
    CopyResult result = copyDurably(sourcePath, target, progress);
    if (result == CopyResult::Done && !holdSameBytes(sourcePath, target.fileName(), progress))
        result = CopyResult::Failed;
    if (result == CopyResult::Done || !target.isOpen())
        return result;
    // What stays would need the room that the next attempt counts on.
    const bool isRemoved = removeWithKey(target.fileName());
    target.close();
    return isRemoved ? result : CopyResult::Failed;
}

bool isUnfinishedCopy(QFile &file)
{
    const QByteArray sector = file.seek(0) ? file.read(sectorSize) : QByteArray();
    if (sector.isEmpty())
        return file.size() == 0;
    const QByteArray withoutHeader =
        HeaderArea(QByteArrayView()).bytesOf({0, ContainerFormat::headerAreaOffset});
    return sector == QByteArray(sector.size(), '\0') || sector.startsWith(withoutHeader);
}

bool removeWithKey(const QString &path)
{
    QFile file(path);
    if (file.open(QIODevice::ReadWrite | QIODevice::ExistingOnly | QIODevice::Unbuffered) &&
        writeFully(file, QByteArray(qMin(pageSize, file.size()), '\0'))) {
        // Where the drive does not take them, the file goes all the same.
        static_cast<void>(syncFile(file));
    }
    return QFile::remove(path);
}

} // namespace Tessarin::Core
