// Rebuilding the container without its dead bytes.
#include "core/VaultManager.h"

#include "core/Compactor.h"
#include "core/HostFile.h"
#include "core/LeftoverNames.h"
#include "core/Leftovers.h"
#include "core/VaultKeys.h"

#include <limits>

namespace Tessarin::Core {

bool VaultManager::compactVault(const ProgressCallback &progress, QString *preservedPath)
{
    if (sessionState != Unlocked || importGroup)
        return fail(Failure::Refused);
    failure = Failure::Other;

    ContainerTransaction usual(container.path());
    QFile withOtherLine(container.path());
    const bool isUsual = !hasOtherLengthLine();
    const Failure reason = isUsual ? container.begin(usual) : lockForReading(withOtherLine);
    if (reason != Failure::None)
        return fail(reason);

    const VaultUnderLock present{isUsual ? usual.file() : withOtherLine, container.masterKey(),
                                 container.index()};
    leftovers = clearLeftovers(present, std::numeric_limits<qint64>::max(), progress);
    Compactor compactor(present, container.document(), container.identityOfIndex(), progress);
    const Compactor::Result result = compactor.build() ? compactor.putInPlace() : Compactor::Result::Kept;
    if (result == Compactor::Result::Kept)
        return fail(compactor.failure());
    // The new offsets count, wherever the new container has ended up.
    container.replace(compactor.newDocument(), compactor.newIndex());
    if (result == Compactor::Result::Preserved && preservedPath != nullptr)
        *preservedPath = compactor.preservedPath();
    return result == Compactor::Result::Replaced ? succeed() : fail(compactor.failure());
}

QStringList VaultManager::compactionTwins(const QString &containerPath)
{
    return leftoversBeside(containerPath);
}

QStringList VaultManager::compactionLeftovers() const
{
    return leftovers;
}

/// True for a container whose blocks begin elsewhere than where this program puts them. It has no records,
/// and nothing but compaction changes it.
bool VaultManager::hasOtherLengthLine() const
{
    ContainerDocument document;
    return containers.readDocument(container.path(), &document) &&
           document.payloadOffset != ContainerFormat::blockAreaOffset;
}

Failure VaultManager::lockForReading(QFile &file)
{
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return Failure::DriveGone;
    if (!lockFile(file))
        return Failure::InUse;
    return container.reload() ? Failure::None : Failure::ChangedByOther;
}

/// After unlocking. Nothing is touched while another program works on the container, and where the file
/// system has no locks to tell.
void VaultManager::clearLeftoversOfSession()
{
    QFile file(container.path());
    const FileLock lock =
        file.open(QIODevice::ReadOnly | QIODevice::Unbuffered) ? takeLock(file) : FileLock::None;
    if (lock == FileLock::Taken)
        leftovers = clearLeftovers({file, container.masterKey(), container.index()}, mostBytesReadUnseen, {});
    else if (lock == FileLock::None)
        leftovers = leftoversBeside(container.path());
    else // What lies there may be in use, as the twin of a compaction is.
        leftovers.clear();
}

} // namespace Tessarin::Core
