// Appending files, and committing them together.
#include "core/ImportGroup.h"

#include "core/BlockStore.h"
#include "core/ParentDirectories.h"
#include "core/Sha256.h"
#include "core/VaultContainer.h"

#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Tessarin::Core {

namespace {

// Between commits. On a slow drive a commit among many files takes a second, so most of the time goes to
// blocks.
constexpr qint64 leastIntervalMs = 2000;
constexpr qint64 mostIntervalMs = 10'000;
constexpr qint64 intervalPerCommit = 9;
constexpr qint64 largeFileSize = 64 * 1024 * 1024;

VaultFileEntry newEntry(const QString &vaultPath, const QFileInfo &source)
{
    VaultFileEntry entry;
    entry.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    entry.vaultPath = vaultPath;
    entry.sizeBytes = source.size();
    entry.lastModifiedUtc = source.lastModified().toUTC();
    return entry;
}

/// Bytes of header that a new file, with the folders above it, can need at most: JSON, then Base64.
qint64 mostHeaderGrowth(const VaultFileEntry &entry)
{
    constexpr qint64 mostBesidePath = 512;
    constexpr qint64 mostEscapedCharacter = 6;
    constexpr qint64 mostOfBlock = 256;
    const qint64 pathBytes = mostEscapedCharacter * entry.vaultPath.size() + mostBesidePath;
    const qint64 blocks = entry.sizeBytes / ContainerFormat::blockPlainSize + 1;
    return ((entry.vaultPath.count(QLatin1Char('/')) + 1) * pathBytes + blocks * mostOfBlock) * 4 / 3;
}

} // namespace

ImportGroup::ImportGroup(VaultContainer &vaultContainer)
    : container(vaultContainer), newestIndex(vaultContainer.index()), intervalMs(leastIntervalMs)
{
}

const SecureFileIndex &ImportGroup::index() const
{
    return newestIndex;
}

bool ImportGroup::begin()
{
    if (transaction)
        return true;
    transaction.emplace(container.path());
    const Failure failure = container.begin(*transaction);
    if (failure != Failure::None) {
        transaction.reset();
        return fail(failure);
    }
    sinceCommit.start();
    return true;
}

bool ImportGroup::add(QFile &source, const QString &vaultPath, const ProgressCallback &progress)
{
    if (!begin())
        return false;
    VaultFileEntry entry = newEntry(vaultPath, QFileInfo(source));
    // A file for which the index has no room must not take those before it along, nor may they wait for a
    // large one.
    const qint64 growth = mostHeaderGrowth(entry);
    if ((!hasRoomFor(growth) || isDue() || entry.sizeBytes > largeFileSize) && !commit()) {
        lostFiles = true;
        return false;
    }

    if (!transaction->seekToEnd())
        return fail(transaction->failure());
    const qint64 formerSize = transaction->file().pos();
    if (!append(source, entry, progress)) {
        if (!transaction->rollBackTo(formerSize)) {
            lostFiles = lostFiles || !uncommitted.isEmpty();
            forgetUncommitted();
        }
        return false;
    }
    ensureParentDirectories(newestIndex, vaultPath);
    newestIndex.removeInAnyCase(vaultPath);
    uncommitted.append({vaultPath, source.fileName()});
    mostGrowth += growth;
    return newestIndex.addOrReplace(entry) || fail(Failure::Other);
}

/// Encrypts the source block by block, where the container stands, and completes the entry.
bool ImportGroup::append(QFile &source, VaultFileEntry &entry, const ProgressCallback &progress)
{
    qint64 doneBytes = 0;
    Sha256 hash;
    BlockStore blocks(transaction->file(), container.masterKey());
    // To the end, whatever size the system tells: of some files it tells 0.
    for (QByteArrayView chunk = blocks.readPlain(source); !chunk.isEmpty();
         chunk = blocks.readPlain(source)) {
        hash.add(chunk);
        errno = 0;
        const std::optional<VaultFileBlock> block = blocks.append();
        if (!block)
            return fail(containerFailure(errno));
        if (!transaction->hasAppended())
            return fail(transaction->failure());

        entry.blocks.append(*block);
        doneBytes += block->plainSize;
        if (progress)
            progress(doneBytes, entry.sizeBytes, entry.vaultPath);
    }
    if (source.error() != QFile::NoError)
        return fail(Failure::SourceUnreadable);
    entry.sha256 = hash.result();
    // A source that was cut short meanwhile is not what the user chose.
    return doneBytes >= entry.sizeBytes || fail(Failure::SourceChanged);
}

bool ImportGroup::hasRoomFor(qint64 growth) const
{
    return transaction->header().size() + mostGrowth + growth <= ContainerFormat::headerAreaSize;
}

bool ImportGroup::isDue() const
{
    return sinceCommit.elapsed() >= intervalMs || !hasRoomFor(0);
}

bool ImportGroup::commit()
{
    if (uncommitted.isEmpty())
        return true;
    using Outcome = ContainerTransaction::Outcome;
    QElapsedTimer clock;
    clock.start();
    const Outcome outcome =
        container.commitIndex(*transaction, newestIndex, ContainerTransaction::Policy::Usual);
    intervalMs = std::clamp(intervalPerCommit * clock.elapsed(), leastIntervalMs, mostIntervalMs);
    sinceCommit.start();
    if (outcome == Outcome::Committed) {
        committed.append(std::exchange(uncommitted, {}));
        mostGrowth = 0;
        return true;
    }
    static_cast<void>(fail(transaction->failure()));
    if (outcome == Outcome::RolledBack)
        transaction->rollBack();
    else
        transaction.reset();
    lostFiles = lostFiles || uncommitted.size() > 1;
    forgetUncommitted();
    return false;
}

QList<ImportedFile> ImportGroup::takeCommitted()
{
    return std::exchange(committed, {});
}

bool ImportGroup::hasLostFiles() const
{
    return lostFiles;
}

Failure ImportGroup::failure() const
{
    return reason;
}

bool ImportGroup::fail(Failure why)
{
    reason = why;
    return false;
}

void ImportGroup::forgetUncommitted()
{
    uncommitted.clear();
    newestIndex = container.index();
    mostGrowth = 0;
}

} // namespace Tessarin::Core
