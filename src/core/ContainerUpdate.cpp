// The write order of a change. Rule names are those of docs/architecture.md.
#include "core/ContainerUpdate.h"

#include "core/HostFile.h"
#include "core/Sha256.h"

#include <QFileInfo>

#include <algorithm>
#include <cstring>
#include <utility>

namespace Tessarin::Core {

using namespace ContainerFormat;

namespace {

constexpr qint64 pageSize = 4096;
constexpr qint64 renewalIntervalMs = 2000;

// What lies before the block area is most often a short header and a lot of zeros. Here an "area" is a byte
// array that may end early: what it does not hold is zero.

constexpr qsizetype readAheadSize = 64 * 1024;

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

/// The header in an area, as a view of it; null for a null area, empty when its length makes no sense.
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

/// The area on the drive; null when it is not whole.
QByteArray readArea(QIODevice &container)
{
    if (!container.seek(0))
        return {};
    QByteArray area("");
    QByteArray chunk(readAheadSize, Qt::Uninitialized);
    for (qint64 offset = 0; offset < blockAreaOffset;) {
        const qint64 size = container.read(chunk.data(), std::min(chunk.size(), blockAreaOffset - offset));
        if (size < 1)
            return {};
        if (!isZero(QByteArrayView(chunk).first(size))) {
            area.append(offset - area.size(), '\0');
            area.append(chunk.constData(), size);
        }
        offset += size;
    }
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
    return file.seek(offset) && file.write(bytes.data(), bytes.size()) == bytes.size();
}

bool writePart(QFile &file, const QByteArray &area, qint64 begin, qint64 end)
{
    const QByteArrayView held = heldIn(area, begin, end);
    const qint64 zeros = end - begin - held.size();
    return (held.isEmpty() || writeAt(file, begin, held)) &&
           (zeros == 0 || writeAt(file, end - zeros, QByteArray(zeros, '\0')));
}

} // namespace

ContainerUpdate::ContainerUpdate(const QString &path) : container(path) {}

bool ContainerUpdate::begin()
{
    if (!QFileInfo(container).isFile() ||
        !container.open(QIODevice::ReadWrite | QIODevice::ExistingOnly | QIODevice::Unbuffered) ||
        !lockFile(container)) {
        return false;
    }
    const QByteArray prologue = container.read(headerAreaOffset);
    return prologue.size() == headerAreaOffset && prologue.startsWith(fileMagic) &&
           prologue.indexOf('\n') == headerAreaOffset - 1;
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
    if (newHeader.size() > headerAreaSize || !knowArea())
        return Outcome::Undone;

    // "Record before header": with this wait, what was appended is on the drive too.
    const QByteArray formerHash = headerHash();
    const QByteArray former = areaInForce;
    const QByteArrayView formerHeader = headerIn(former);
    const QByteArray newHash = Sha256::of(newHeader);
    if (formerHash.isEmpty() || newHash.isEmpty())
        return Outcome::Undone;
    forgetArea();
    const QByteArray record = undoRecordFor({formerHeader, formerHash}, {newHeader, newHash});
    Place place;
    place.size = record.size();
    place.offset = tailRecordOffset(record.size(), std::max(formerHeader.size(), newHeader.size()));
    place.isInTail = place.offset >= 0;
    if (!place.isInTail)
        place.offset = container.size();
    if (!writeRecord(record, place)) {
        if (!clearRecord(place, former))
            return Outcome::Unknown;
        if (care == Care::Usual || place.isInTail)
            return Outcome::Undone;
        place = {};
    }

    const QByteArray area = areaFor(newHeader);
    if (!writeDifferences(former, area, place) || !syncFile(container))
        return putBack(area, former, place);
    const bool cleared = clearRecord(place, area);
    if (care == Care::ForgetsFormer && (!cleared || !syncFile(container)))
        return putBack(area, former, place);
    adoptArea(area, newHash);
    return Outcome::Done;
}

bool ContainerUpdate::startWriteback(qint64 offset, qint64 size)
{
    if (Core::startWriteback(container, offset, size))
        return true;
    hasLostWrites = true;
    return false;
}

void ContainerUpdate::cutBack(qint64 formerSize)
{
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
    if (sinceRenewal.elapsed() < renewalIntervalMs) {
        adoptArea(area, {});
        return Outcome::Done;
    }
    if (!syncFile(container))
        return putBack(area, areaFor(safeHeader), std::exchange(seriesRecord, {}));
    safeHeader = newHeader;
    // When the record cannot be renewed, the series is over.
    static_cast<void>(renewSeries(newHeader, newHeader.size()));
    return Outcome::Done;
}

ContainerUpdate::Outcome ContainerUpdate::endSeries()
{
    if (!isInSeries())
        return Outcome::Done;
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
        return putBack(area, areaFor(safeHeader), place);
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
    return area.isNull() ? Outcome::Unknown : putBack(area, areaFor(safeHeader), place);
}

std::optional<UndoRecord> ContainerUpdate::brokenOffChange()
{
    return findUndoRecord(container);
}

bool ContainerUpdate::restore(const UndoRecord &record)
{
    const Place place{record.offset, record.size, record.offset < blockAreaOffset};
    const QByteArray former = areaFor(record.formerHeader);
    const QByteArray found = readArea(container);
    forgetArea();
    return !found.isNull() && writeDifferences(found, former, place) && syncFile(container) &&
           clearRecord(place, former) && syncFile(container);
}

bool ContainerUpdate::discard(const UndoRecord &record)
{
    const Place place{record.offset, record.size, record.offset < blockAreaOffset};
    return clearRecord(place, {});
}

bool ContainerUpdate::writeRecord(const QByteArray &record, const Place &place)
{
    return writeAt(container, place.offset, record) && syncFile(container);
}

/// Gives the record's place its bytes of `area` again, or ends the file before it.
bool ContainerUpdate::clearRecord(const Place &place, const QByteArray &area)
{
    if (place.size == 0)
        return true;
    if (!place.isInTail)
        return container.resize(place.offset);
    return writePart(container, area, place.offset, place.offset + place.size);
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

/// After a write that failed somewhere: the former area again, and only then no record.
ContainerUpdate::Outcome ContainerUpdate::putBack(const QByteArray &attempted, const QByteArray &former,
                                                  const Place &record)
{
    if (!writeDifferences(attempted, former, record) || !syncFile(container))
        return Outcome::Unknown;
    return clearRecord(record, former) ? Outcome::Undone : Outcome::Unknown;
}

bool ContainerUpdate::renewSeries(const QByteArray &currentHeader, qsizetype roomForHeader)
{
    seriesRecord = {};
    const QByteArray hash = Sha256::of(currentHeader);
    if (hash.isEmpty())
        return false;
    const QByteArray record = undoRecordForSeries({currentHeader, hash});
    const Place place{tailRecordOffset(record.size(), std::max(currentHeader.size(), roomForHeader)),
                      record.size(), true};
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

bool ContainerUpdate::knowArea()
{
    if (areaInForce.isNull())
        areaInForce = readArea(container);
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
