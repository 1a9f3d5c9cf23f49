// The write order of a change. Rule names are those of docs/architecture.md.
#include "core/ContainerUpdate.h"

#include "core/HostFile.h"
#include "core/Sha256.h"

#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Tessarin::Core {

using namespace ContainerFormat;

namespace {

constexpr qint64 pageSize = 4096;
constexpr qint64 renewalIntervalMs = 2000;

// What lies before the block area is most often a short header and a lot of zeros. Here an "area" is a byte
// array that may end early: what it does not hold is zero.

constexpr qsizetype readAheadSize = 64 * 1024;

/// How far into a header, or into a record of it, the wrapped key may lie.
qint64 endOfWrappedKey(QByteArrayView header)
{
    constexpr qint64 mostBehindItsName = 4096;
    const qsizetype name = header.indexOf("\"encryptedMasterKey\"");
    return name < 0 ? header.size() : name + mostBehindItsName;
}

bool isZero(QByteArrayView bytes)
{
    return bytes.isEmpty() || (bytes.front() == 0 && bytes.chopped(1) == bytes.sliced(1));
}

/// The area when this header is in force.
QByteArray areaFor(QByteArrayView header)
{
    QByteArray area;
    area.reserve(headerAreaOffset + header.size());
    area.append(fileMagic, fileMagicSize);
    area += QByteArray::number(header.size()).rightJustified(lengthDigits, '0');
    area += '\n';
    area.append(header.data(), header.size());
    return area;
}

/// Stands in an area for bytes that cannot be read. No header that is written and no zeros behind it look
/// like that, so what is unreadable is always written anew.
constexpr char unreadable = '\xff';

/// The header in an area, as a view of it; null for a null area, empty when its length makes no sense or a
/// part of it is unreadable.
QByteArrayView headerIn(const QByteArray &area)
{
    if (area.isNull())
        return {};
    bool isNumber = false;
    const qint64 length = area.mid(fileMagicSize, lengthDigits).trimmed().toLongLong(&isNumber);
    if (!isNumber || length < 1 || length > headerAreaSize || area.size() < headerAreaOffset)
        return "";
    const QByteArrayView rest = QByteArrayView(area).sliced(headerAreaOffset);
    return rest.first(std::min(length, rest.size()));
}

/// The area on the drive; null when the file ends before it does. After a read that fails it goes on page by
/// page, to find out which ones the drive cannot give. Where the header is among them, its length is not
/// told.
QByteArray readArea(QIODevice &container)
{
    QByteArray area("");
    QByteArray chunk(readAheadSize, Qt::Uninitialized);
    bool isPageWise = false;
    qint64 firstUnreadable = blockAreaOffset;
    if (!container.seek(0))
        return {};
    for (qint64 offset = 0; offset < blockAreaOffset;) {
        const qint64 most = isPageWise ? pageSize - offset % pageSize : readAheadSize;
        const qint64 wanted = std::min(most, blockAreaOffset - offset);
        qint64 size = container.read(chunk.data(), wanted);
        if (size < 0 && !isPageWise) {
            isPageWise = true;
            continue;
        }
        if (size < 0) {
            if (!container.seek(offset + wanted))
                return {};
            firstUnreadable = std::min(firstUnreadable, offset);
            std::fill_n(chunk.begin(), size = wanted, unreadable);
        }
        if (size == 0)
            return {};
        if (!isZero(QByteArrayView(chunk).first(size))) {
            area.append(offset - area.size(), '\0');
            area.append(chunk.constData(), size);
        }
        offset += size;
    }
    if (firstUnreadable < headerAreaOffset + headerIn(area).size())
        std::fill_n(area.begin() + fileMagicSize, lengthDigits, unreadable);
    return area;
}

/// What an area holds between two offsets: bytes, then zeros.
QByteArrayView heldIn(const QByteArray &area, qint64 begin, qint64 end)
{
    const qint64 first = std::min(begin, area.size());
    return QByteArrayView(area).sliced(first, std::min(end, area.size()) - first);
}

bool holdSame(const QByteArray &first, const QByteArray &second, qint64 begin, qint64 end)
{
    const QByteArrayView a = heldIn(first, begin, end);
    const QByteArrayView b = heldIn(second, begin, end);
    const qsizetype common = std::min(a.size(), b.size());
    return a.first(common) == b.first(common) && isZero(a.sliced(common)) && isZero(b.sliced(common));
}

bool writeAt(QFile &file, qint64 offset, QByteArrayView bytes)
{
    return file.seek(offset) && writeFully(file, bytes);
}

/// A page that cannot be read is healed only by a write of all of it: the header's last one goes with its
/// zeros.
bool writePart(QFile &file, const QByteArray &area, qint64 begin, qint64 end)
{
    QByteArray held = heldIn(area, begin, end).toByteArray();
    if (const qint64 rest = (begin + held.size()) % pageSize; rest > 0 && !held.isEmpty())
        held.append(std::min(pageSize - rest, end - begin - held.size()), '\0');
    const qint64 zeros = end - begin - held.size();
    return (held.isEmpty() || writeAt(file, begin, held)) &&
           (zeros == 0 || writeAt(file, end - zeros, QByteArray(zeros, '\0')));
}

/// How much of its first page a record in the tail leaves free; zeros are written there with it.
qint64 freeBefore(qint64 recordOffset)
{
    return recordOffset % pageSize;
}

} // namespace

ContainerUpdate::ContainerUpdate(const QString &path) : container(path) {}

bool ContainerUpdate::begin()
{
    errno = 0;
    reason = Failure::DriveGone;
    if (!QFileInfo(container).isFile())
        return false;
    if (!container.open(QIODevice::ReadWrite | QIODevice::ExistingOnly | QIODevice::Unbuffered)) {
        noteFailure(errno);
        return false;
    }
    const FileLock lock = takeLock(container);
    hasLock = lock == FileLock::Taken;
    reason = lock == FileLock::Held ? Failure::InUse : Failure::DamagedData;
    if (lock == FileLock::Held)
        return false;
    const QByteArray prologue = container.read(headerAreaOffset);
    // A sector that cannot be read is a torn one where there is a record to heal it.
    if (prologue.isEmpty())
        return brokenOffChange().has_value();
    return prologue.size() == headerAreaOffset && prologue.startsWith(fileMagic) &&
           prologue.indexOf('\n') == headerAreaOffset - 1;
}

Failure ContainerUpdate::failure() const
{
    return reason;
}

QByteArray ContainerUpdate::header()
{
    return knowArea() ? headerIn(areaInForce).toByteArray() : QByteArray();
}

QByteArray ContainerUpdate::headerHash()
{
    if (knowArea() && hashInForce.isEmpty())
        hashInForce = Sha256::of(headerIn(areaInForce));
    return hashInForce;
}

QByteArray ContainerUpdate::headerOf(QIODevice &container)
{
    const QByteArray area = readArea(container);
    return headerIn(area).toByteArray();
}

QFile &ContainerUpdate::file()
{
    return container;
}

ContainerUpdate::Outcome ContainerUpdate::writeHeader(const QByteArray &newHeader, Care care)
{
    reason = newHeader.size() > headerAreaSize ? Failure::IndexFull : Failure::DriveGone;
    if (newHeader.size() > headerAreaSize || !knowArea())
        return Outcome::Undone;

    // "Record before header": with this wait, what was appended is on the drive too.
    if (hasAnotherSaved())
        return Outcome::Unknown;
    const QByteArray formerHash = headerHash();
    const QByteArray former = areaInForce;
    const QByteArray formerHeader = headerIn(former).toByteArray();
    const QByteArray newHash = Sha256::of(newHeader);
    if (formerHash.isEmpty() || newHash.isEmpty())
        return Outcome::Undone;
    forgetArea();
    const QByteArray record = undoRecordFor({formerHeader, formerHash}, {newHeader, newHash});
    Place place;
    place.size = record.size();
    place.offset = tailRecordOffset(record.size(), std::max(formerHeader.size(), newHeader.size()));
    place.isInTail = place.offset >= 0;
    place.keyEnd = endOfWrappedKey(formerHeader);
    if (!place.isInTail)
        place.offset = container.size();
    errno = 0;
    if (!writeRecord(record, place)) {
        const bool isRoomLacking = isLackOfRoom(errno);
        noteFailure(errno);
        if (!clearRecord(place))
            return Outcome::Unknown;
        if (care == Care::Usual || place.isInTail || !isRoomLacking)
            return Outcome::Undone;
        place = {};
    }

    const QByteArray area = areaFor(newHeader);
    if (!writeDifferences(former, area, place) || !syncFile(container))
        return putBack(area, formerHeader, place);
    noteOwn(newHeader);
    // The new header is durable, and stays: without a whole record it could not be undone in safety.
    if (care == Care::ForgetsFormer && !clearRecordDurably(place) && !clearRecordDurably(place))
        return Outcome::Unknown;
    // Whatever becomes of the record otherwise, it knows the new header.
    if (care != Care::ForgetsFormer)
        static_cast<void>(clearRecord(place));
    adoptArea(area, newHash);
    return Outcome::Done;
}

bool ContainerUpdate::startWriteback(qint64 offset, qint64 size)
{
    if (Core::startWriteback(container, offset, size))
        return true;
    noteFailure(errno);
    hasLostWrites = true;
    return false;
}

void ContainerUpdate::cutBack(qint64 formerSize)
{
    // What another program has appended is not cut off with it.
    if (hasAnotherSaved())
        return;
    // In a series, what this wait cannot save belongs to the files before.
    if (container.size() > formerSize && container.resize(formerSize) && !syncFile(container))
        hasLostWrites = true;
}

bool ContainerUpdate::beginSeries()
{
    const QByteArray current = header();
    return !current.isEmpty() && renewSeries(current, current.size());
}

QByteArray ContainerUpdate::lastSafeHeader() const
{
    return safeHeader;
}

bool ContainerUpdate::isInSeries() const
{
    return seriesRecord.size > 0;
}

ContainerUpdate::Outcome ContainerUpdate::writeHeaderInSeries(const QByteArray &newHeader)
{
    if (hasAnotherSaved())
        return Outcome::Unknown;
    if (hasLostWrites)
        return abandonSeries();
    if (tailRecordOffset(seriesRecord.size, newHeader.size()) < 0) {
        const Outcome ended = endSeries();
        if (ended != Outcome::Done)
            return ended;
        const QByteArray current = header();
        if (current.isEmpty() || !renewSeries(current, newHeader.size()))
            return writeHeader(newHeader);
    }
    reason = newHeader.size() > headerAreaSize ? Failure::IndexFull : Failure::DriveGone;
    if (newHeader.size() > headerAreaSize || !knowArea())
        return Outcome::Undone;

    const QByteArray former = areaInForce;
    const QByteArray area = areaFor(newHeader);
    forgetArea();
    if (!writeDifferences(former, area, seriesRecord)) {
        if (writeDifferences(area, former, seriesRecord) && syncFile(container))
            return Outcome::Undone;
        hasLostWrites = true;
        return Outcome::Unknown;
    }
    noteOwn(newHeader);
    if (sinceRenewal.elapsed() < renewalIntervalMs) {
        adoptArea(area, {});
        return Outcome::Done;
    }
    if (!syncFile(container))
        return putBack(area, safeHeader, std::exchange(seriesRecord, {}));
    safeHeader = newHeader;
    // When the record cannot be renewed, the series is over.
    static_cast<void>(renewSeries(newHeader, newHeader.size()));
    return Outcome::Done;
}

ContainerUpdate::Outcome ContainerUpdate::endSeries()
{
    if (!isInSeries())
        return Outcome::Done;
    // The record goes the way of a stale one, which undoes no later save.
    if (hasAnotherSaved())
        return Outcome::Unknown;
    if (hasLostWrites)
        return abandonSeries();
    const Place place = std::exchange(seriesRecord, {});
    // With the records, wherever they were.
    forgetArea();
    const QByteArray area = readArea(container);
    const QByteArrayView current = headerIn(area);
    // What cannot be read cannot be put right; the record stays for whoever opens the container next.
    if (current.isEmpty())
        return syncFile(container) ? Outcome::Done : Outcome::Unknown;
    if (!syncFile(container))
        return putBack(area, safeHeader, place);
    safeHeader = current.toByteArray();
    static_cast<void>(writeDifferences(area, areaFor(current), {}));
    return Outcome::Done;
}

/// Back to the header last known to be safe, with its record until that is on the drive.
ContainerUpdate::Outcome ContainerUpdate::abandonSeries()
{
    const Place place = std::exchange(seriesRecord, {});
    hasLostWrites = false;
    forgetArea();
    const QByteArray area = readArea(container);
    return area.isNull() ? Outcome::Unknown : putBack(area, safeHeader, place);
}

std::optional<UndoRecord> ContainerUpdate::brokenOffChange()
{
    return findUndoRecord(container);
}

bool ContainerUpdate::restore(const UndoRecord &record)
{
    const Place place = placeOf(record);
    const QByteArray found = readArea(container);
    forgetArea();
    if (found.isNull() || !writeDifferences(found, areaFor(record.formerHeader), place) ||
        !syncFile(container)) {
        return false;
    }
    noteOwn(record.formerHeader);
    return clearRecordDurably(place);
}

bool ContainerUpdate::discard(const UndoRecord &record)
{
    forgetArea();
    return clearRecord(placeOf(record));
}

bool ContainerUpdate::discardRecords(const std::function<bool(const UndoRecord &)> &isSettled)
{
    while (const std::optional<UndoRecord> record = brokenOffChange()) {
        if (!isSettled(*record) || !discard(*record))
            return false;
    }
    return true;
}

ContainerUpdate::Place ContainerUpdate::placeOf(const UndoRecord &record)
{
    return {record.offset, record.size, record.offset < blockAreaOffset,
            endOfWrappedKey(record.formerHeader)};
}

bool ContainerUpdate::writeRecord(const QByteArray &record, const Place &place)
{
    const qint64 zeros = place.isInTail ? freeBefore(place.offset) : 0;
    return writeAt(container, place.offset - zeros, QByteArray(zeros, '\0') + record) && syncFile(container);
}

/// Writes zeros over a record in the tail, or ends the file before it. What is cut off stays on the drive for
/// a while, so the wrapped key in it is overwritten first, for good.
bool ContainerUpdate::clearRecord(const Place &place)
{
    const qint64 end = place.offset + place.size;
    if (place.size == 0)
        return true;
    if (place.isInTail)
        return writePart(container, {}, place.offset - freeBefore(place.offset), end);
    const qint64 keyEnd = std::min({end, place.offset + place.keyEnd, container.size()});
    return (keyEnd <= place.offset ||
            (writePart(container, {}, place.offset, keyEnd) && syncFile(container))) &&
           container.resize(place.offset);
}

bool ContainerUpdate::clearRecordDurably(const Place &place)
{
    return clearRecord(place) && (!place.isInTail || syncFile(container));
}

/// Writes what differs between two areas, page by page, but for the place of the record.
bool ContainerUpdate::writeDifferences(const QByteArray &from, const QByteArray &to, const Place &record)
{
    const qint64 end = record.isInTail ? record.offset : blockAreaOffset;
    const qint64 used = std::min(end, std::max(from.size(), to.size()));
    const auto differs = [&](qint64 page) {
        return !holdSame(from, to, page, std::min(page + pageSize, end));
    };
    for (qint64 page = 0; page < used; page += pageSize) {
        if (!differs(page))
            continue;
        qint64 last = page + pageSize;
        while (last < used && differs(last))
            last += pageSize;
        if (!writePart(container, to, page, std::min(last, end)))
            return false;
        page = last;
    }
    if (!record.isInTail)
        return true;
    // Behind the record lies only the rest of the sector of the first block; foreign bytes may be there.
    const qint64 rest = record.offset + record.size;
    return holdSame(from, to, rest, blockAreaOffset) || writePart(container, to, rest, blockAreaOffset);
}

/// After a write that failed somewhere: the former header again, and only then no record.
ContainerUpdate::Outcome ContainerUpdate::putBack(const QByteArray &attempted, const QByteArray &formerHeader,
                                                  const Place &record)
{
    noteFailure(errno);
    if (!writeDifferences(attempted, areaFor(formerHeader), record) || !syncFile(container))
        return Outcome::Unknown;
    noteOwn(formerHeader);
    return clearRecord(record) ? Outcome::Undone : Outcome::Unknown;
}

bool ContainerUpdate::renewSeries(const QByteArray &currentHeader, qsizetype roomForHeader)
{
    seriesRecord = {};
    const QByteArray hash = Sha256::of(currentHeader);
    if (hash.isEmpty())
        return false;
    const QByteArray record = undoRecordForSeries({currentHeader, hash});
    const Place place{tailRecordOffset(record.size(), std::max(currentHeader.size(), roomForHeader)),
                      record.size(), true, 0};
    if (place.offset < 0)
        return false;
    if (!writeRecord(record, place))
        return false;

    // A record that lay lower before has left its beginning in the area.
    forgetArea();
    seriesRecord = place;
    safeHeader = currentHeader;
    sinceRenewal.start();
    return true;
}

/// Told where there is no lock to keep other programs out.
bool ContainerUpdate::hasAnotherSaved()
{
    if (hasLock || ownHeader.isNull() || headerOf(container) == ownHeader)
        return false;
    reason = Failure::ChangedByOther;
    return true;
}

void ContainerUpdate::noteFailure(int errorNumber)
{
    reason = containerFailure(errorNumber);
}

void ContainerUpdate::noteOwn(QByteArrayView header)
{
    if (!hasLock)
        ownHeader = header.toByteArray();
}

bool ContainerUpdate::knowArea()
{
    if (areaInForce.isNull()) {
        areaInForce = readArea(container);
        if (ownHeader.isNull())
            noteOwn(headerIn(areaInForce));
    }
    return !areaInForce.isNull();
}

void ContainerUpdate::adoptArea(const QByteArray &area, const QByteArray &hashOfHeader)
{
    areaInForce = area;
    hashInForce = hashOfHeader;
}

void ContainerUpdate::forgetArea()
{
    adoptArea({}, {});
}

} // namespace Tessarin::Core
