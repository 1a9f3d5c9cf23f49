// Rebuilding the container without its dead bytes.
#include "core/VaultManager.h"

#include "core/Compactor.h"
#include "core/HostFile.h"
#include "core/Leftovers.h"
#include "core/VaultKeys.h"

#include <limits>

namespace Tessarin::Core {

bool VaultManager::compactVault(const ProgressCallback &progress, QString *preservedPath)
{
    if (sessionState != Unlocked || sessionContainerPath.isEmpty())
        return fail(Failure::Refused);
    failure = Failure::Other;

    ContainerDocument document;
    ContainerUpdate usual(sessionContainerPath);
    QFile withOtherLine(sessionContainerPath);
    const bool isUsual = !hasOtherLengthLine();
    if (!(isUsual ? beginChange(usual, document) : lockForReading(withOtherLine, document)))
        return false;

    const LockedVault present{isUsual ? usual.file() : withOtherLine, masterKey, sessionIndex};
    leftovers = clearLeftovers(present, std::numeric_limits<qint64>::max(), progress);
    Compactor compactor(present, document, sessionSeal, progress);
    const Compactor::Result result = compactor.build() ? compactor.putInPlace() : Compactor::Result::Kept;
    if (result == Compactor::Result::Kept)
        return fail(compactor.failure());
    // The new offsets count, wherever the new container has ended up.
    sessionIndex = compactor.newIndex();
    sessionSeal = sealOf(compactor.newDocument());
    knownHeaderHash.clear();
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
    return containers.readDocument(sessionContainerPath, &document) &&
           document.payloadOffset != ContainerFormat::blockAreaOffset;
}

bool VaultManager::lockForReading(QFile &container, ContainerDocument &document) const
{
    return container.open(QIODevice::ReadOnly | QIODevice::Unbuffered) && lockFile(container) &&
           containers.readDocument(container.fileName(), &document) && sealOf(document) == sessionSeal;
}

/// After unlocking. Nothing is touched while another program works on the container, and where the file
/// system has no locks to tell.
void VaultManager::clearLeftoversOfSession()
{
    QFile container(sessionContainerPath);
    if (container.open(QIODevice::ReadOnly | QIODevice::Unbuffered) && takeLock(container) == FileLock::Taken)
        leftovers = clearLeftovers({container, masterKey, sessionIndex}, mostBytesReadUnseen, {});
    else
        leftovers = leftoversBeside(sessionContainerPath);
}

} // namespace Tessarin::Core
