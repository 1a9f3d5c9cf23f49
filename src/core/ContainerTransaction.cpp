// The write order of a change. Steps and rule names are those of docs/architecture.md.
#include "core/ContainerTransaction.h"

#include "core/Sha256.h"

#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

namespace Tessarin::Core {

using namespace ContainerFormat;

namespace {

constexpr qint64 chunkSize = 64 * 1024;
/// Of a file whose size the system does not tell: nothing lies beyond it, so nothing is cut off.
constexpr qint64 unknownSize = std::numeric_limits<qint64>::max();

/// Of one byte at least.
bool isZero(QByteArrayView bytes)
{
    return bytes.front() == 0 && bytes.chopped(1) == bytes.sliced(1);
}

/// A record in the tail is written and cleared in whole pages, which heals those that cannot be read.
qint64 firstPageOf(const RecordPlace &place)
{
    return place.isInTail() ? place.offset - place.offset % HeaderArea::pageSize : place.offset;
}

} // namespace

ContainerTransaction::ContainerTransaction(const QString &path) : container(path) {}

bool ContainerTransaction::begin()
{
    errno = 0;
    reason = Failure::DriveGone;
    // Opening a named pipe would wait for ever.
    if (!QFileInfo(container).isFile())
        return false;
    if (!container.open(QIODevice::ReadWrite | QIODevice::ExistingOnly | QIODevice::Unbuffered)) {
        reason = containerFailure(errno);
        return false;
    }
    const FileLock lock = takeLock(container);
    reason = lock == FileLock::Held ? Failure::InUse : Failure::DamagedData;
    if (lock == FileLock::Held)
        return false;

    isLocked = lock == FileLock::Taken;
    // Whoever held the lock may have put another file in its place.
    if (!isInPlace())
        return false;
    errno = 0;
    std::optional<HeaderArea> area = HeaderArea::read(container);
    reason = errno == EIO ? Failure::DriveGone : Failure::DamagedData;
    if (area && !area->hasUsualLayout())
        reason = Failure::OtherLayout;
    // A header that cannot be read is a torn one where there is a record to roll it back.
    if (!area || !area->hasUsualLayout() || (area->header().isEmpty() && !record()))
        return false;
    const QByteArray hash = Sha256::of(area->header());
    putInForce(*std::move(area), hash);
    reason = Failure::None;
    return true;
}

Failure ContainerTransaction::failure() const
{
    return reason;
}

bool ContainerTransaction::hasLock() const
{
    return isLocked;
}

QByteArrayView ContainerTransaction::header() const
{
    return inForce ? inForce->header() : QByteArrayView();
}

QByteArray ContainerTransaction::headerHash() const
{
    return header().isEmpty() ? QByteArray() : hashInForce;
}

QFile &ContainerTransaction::file()
{
    return container;
}

bool ContainerTransaction::seekToEnd()
{
    reason = Failure::None;
    const std::optional<qint64> size = sizeOf(container);
    return note(size && container.seek(*size));
}

bool ContainerTransaction::hasAppended()
{
    if (note(writeback.advance(container, container.pos())))
        return true;
    hasLostWrites = true;
    return false;
}

ContainerTransaction::Outcome ContainerTransaction::commit(const QByteArray &newHeader, Policy policy)
{
    reason = newHeader.size() > headerAreaSize ? Failure::IndexFull : Failure::DriveGone;
    if (newHeader.size() > headerAreaSize || hasLostWrites)
        return Outcome::RolledBack;
    if (header().isEmpty() || !isInPlace() || hasAnotherSaved())
        return Outcome::Undecided;

    reason = Failure::None;
    const HeaderArea former = *inForce;
    const HeaderArea next(newHeader);
    const QByteArray nextHash = Sha256::of(newHeader);
    const bool forgetsKey = policy == Policy::ForgetsFormerKey;
    if (forgetsKey) // The cache may show zeros over a former record that the drive has not taken.
        dropCachedPages(container);
    const std::optional<qint64> size = padAppended();
    if (!size || (forgetsKey && !clearBetween({former.pages().end, blockAreaOffset})))
        return Outcome::RolledBack;
    const QByteArray record = undoRecordFor({former.header(), hashInForce}, {newHeader, nextHash});
    std::optional place = placeForRecord(record.size(), former.header(), newHeader, *size);

    if (!writeRecord(record, *place) || !sync()) {
        const bool isRoomLacking = reason == Failure::NoSpace && !place->isInTail();
        if (!clearRecord(*place))
            return Outcome::Undecided;
        if (!isRoomLacking || policy == Policy::Usual)
            return Outcome::RolledBack;
        place.reset();
        reason = Failure::None;
    }
    if (!writeHeader(former, next) || !sync())
        return restore(former, next, place);
    putInForce(next, nextHash);
    const bool isCleared = !place || (forgetsKey ? clearRecordDurably(*place) || clearRecordDurably(*place)
                                                 : clearRecord(*place));
    // The new header stays: without a whole record it could not be rolled back in safety. Without a key to
    // forget, a record that cannot be cleared does no harm: it knows the new header.
    if (forgetsKey && !isCleared) {
        reason = Failure::FormerKeyRemains;
        return Outcome::Undecided;
    }
    markCommitted();
    reason = Failure::None;
    return Outcome::Committed;
}

void ContainerTransaction::rollBack()
{
    truncate(committedSize);
    hasLostWrites = false;
    writeback = Writeback(committedSize);
}

bool ContainerTransaction::rollBackTo(qint64 sizeBytes)
{
    if (hasLostWrites) {
        rollBack();
        return false;
    }
    truncate(sizeBytes);
    return true;
}

void ContainerTransaction::truncate(qint64 sizeBytes)
{
    // What another program has appended is not cut off with it.
    const Failure firstReason = reason;
    if (inForce && !hasAnotherSaved() && sizeOf(container).value_or(0) > sizeBytes)
        static_cast<void>(container.resize(sizeBytes));
    reason = firstReason;
}

std::optional<UndoRecord> ContainerTransaction::record()
{
    return findUndoRecord(container);
}

bool ContainerTransaction::settle(const UndoRecord &record, const QByteArray &headerInForce)
{
    const HeaderArea area(headerInForce);
    const PageRange pages = area.pages();
    RecordPlace place = record.place;
    // A later header may reach into the pages of a record that was left.
    if (place.isInTail())
        place.offset = std::max(firstPageOf(place), std::min(pages.end, place.end));
    const qint64 recordBegin = place.isInTail() ? place.offset : blockAreaOffset;
    const qint64 recordEnd = place.isInTail() ? place.end : blockAreaOffset;
    // What the change left alone is not in the record: a write of it that is torn could not be put right. But
    // no change puts its record into the last page of the header: such a one is overwritten with that page.
    const qint64 changedEnd = place.offset == place.end ? pages.end : record.unchangedFrom;
    const PageRange written{0, std::min(pages.end, changedEnd)};
    if (!write(area, written) || !clearBetween({pages.end, recordBegin}) ||
        !clearBetween({std::max(pages.end, recordEnd), blockAreaOffset}) || !sync()) {
        return false;
    }
    if (!clearRecordDurably(place))
        return false;
    putInForce(area, Sha256::of(headerInForce));
    return true;
}

bool ContainerTransaction::settleAll(const std::function<bool(const UndoRecord &)> &hasNothingToUndo)
{
    const QByteArray present = header().toByteArray();
    // There are two at most, but for containers that somebody made up.
    constexpr int mostRecords = 8;
    for (int i = 0; i < mostRecords; ++i) {
        const std::optional<UndoRecord> found = record();
        if (!found)
            return true;
        if (present.isEmpty() || (hasNothingToUndo && !hasNothingToUndo(*found)) || !settle(*found, present))
            return false;
    }
    return false;
}

/// Fills the last page of what was appended. What goes behind it later shares no page with blocks in force: a
/// page that is being written when the power goes may lose all that it held. Returns the size of the file.
std::optional<qint64> ContainerTransaction::padAppended()
{
    const std::optional<qint64> end = sizeOf(container);
    if (!note(end.has_value()) || (*end <= committedSize && committedSize != unknownSize))
        return end;
    const qint64 size = pageBorderFrom(*end);
    return writeAt(*end, QByteArray(size - *end, '\0')) ? std::optional(size) : std::nullopt;
}

bool ContainerTransaction::writeRecord(const QByteArray &record, const RecordPlace &place)
{
    const qint64 begin = firstPageOf(place);
    return writeAt(begin, QByteArray(place.offset - begin, '\0') + record) &&
           (place.isInTail() || clearTrailerInTail());
}

/// A record in the tail would be found before the one behind the blocks. The drive may hold a former one
/// where the kernel's cache shows zeros.
bool ContainerTransaction::clearTrailerInTail()
{
    constexpr qint64 lastPage = headerAreaSize - HeaderArea::pageSize;
    return inForce->pages().end > lastPage || writeAt(lastPage, QByteArray(HeaderArea::pageSize, '\0'));
}

bool ContainerTransaction::sync()
{
    return note(syncFile(container));
}

/// Writes the pages that differ.
bool ContainerTransaction::writeHeader(const HeaderArea &former, const HeaderArea &next)
{
    const QList<PageRange> changed = next.pagesChangedFrom(former);
    return std::all_of(changed.cbegin(), changed.cend(),
                       [&](const PageRange &range) { return write(next, range); });
}

/// Writes zeros over a record in the tail, or ends the file before it. What is cut off stays on the drive for
/// a while, so the wrapped key in it is overwritten first, for good.
bool ContainerTransaction::clearRecord(const RecordPlace &place)
{
    const qint64 begin = firstPageOf(place);
    if (place.isInTail())
        return writeAt(begin, QByteArray(place.end - begin, '\0'));
    const qint64 keyEnd = std::min(place.keyEnd, sizeOf(container).value_or(place.keyEnd));
    return (keyEnd <= begin || (writeAt(begin, QByteArray(keyEnd - begin, '\0')) && sync())) &&
           note(container.resize(begin));
}

bool ContainerTransaction::clearRecordDurably(const RecordPlace &place)
{
    return clearRecord(place) && (!place.isInTail() || sync());
}

/// After a write of the header that failed somewhere: the former header again, and only then no record.
ContainerTransaction::Outcome ContainerTransaction::restore(const HeaderArea &former,
                                                            const HeaderArea &attempted,
                                                            const std::optional<RecordPlace> &record)
{
    const bool isRestored = writeHeader(attempted, former) && sync() && (!record || clearRecord(*record));
    if (!isRestored)
        inForce.reset();
    return isRestored ? Outcome::RolledBack : Outcome::Undecided;
}

/// Makes zeros of what lies in a part of the header area, whether it can be read or not.
bool ContainerTransaction::clearBetween(PageRange range)
{
    // The first block shares a sector with the last bytes of the area: those are written only if they must
    // be.
    static_assert(headerAreaSize % chunkSize == 0);
    static_assert(blockAreaOffset - headerAreaSize == headerAreaOffset);
    for (qint64 begin = range.begin, end = 0; begin < range.end; begin = end) {
        end = std::min(begin + chunkSize - begin % chunkSize, range.end);
        const qint64 size = end - begin;
        const QByteArray chunk = readAt(container, begin, size);
        if ((chunk.size() < size || !isZero(chunk)) && !writeAt(begin, QByteArray(size, '\0')))
            return false;
    }
    return true;
}

bool ContainerTransaction::writeAt(qint64 offset, const QByteArray &bytes)
{
    return note(container.seek(offset) && writeFully(container, bytes));
}

bool ContainerTransaction::write(const HeaderArea &area, PageRange range)
{
    return writeAt(range.begin, area.bytesOf(range));
}

bool ContainerTransaction::isInPlace()
{
    if (isOpenAt(container, container.fileName()))
        return true;
    reason = QFileInfo::exists(container.fileName()) ? Failure::ChangedByOther : Failure::DriveGone;
    return false;
}

/// Told where there is no lock to keep other programs out.
bool ContainerTransaction::hasAnotherSaved()
{
    if (isLocked)
        return false;
    const std::optional<HeaderArea> present = HeaderArea::read(container);
    if (present && present->header() == header())
        return false;
    reason = Failure::ChangedByOther;
    return true;
}

void ContainerTransaction::putInForce(HeaderArea area, const QByteArray &hash)
{
    inForce = std::move(area);
    hashInForce = hash;
    markCommitted();
}

void ContainerTransaction::markCommitted()
{
    committedSize = sizeOf(container).value_or(unknownSize);
    writeback = Writeback(committedSize);
}

/// The first call that fails tells why.
bool ContainerTransaction::note(bool isDone)
{
    if (!isDone && reason == Failure::None)
        reason = containerFailure(errno);
    return isDone;
}

} // namespace Tessarin::Core
