// The write order of a change. Rule names are those of docs/architecture.md.
#include "core/ContainerUpdate.h"

#include "core/HostFile.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Tessarin::Core {

using namespace ContainerFormat;

namespace {

constexpr qint64 pageSize = 4096;
constexpr qint64 renewalIntervalMs = 2000;

/// Everything before the block area, as it is when this header is in force.
QByteArray areaFor(const QByteArray &header)
{
    QByteArray area(fileMagic, fileMagicSize);
    area += QByteArray::number(header.size()).rightJustified(lengthDigits, '0') + '\n' + header;
    area.append(blockAreaOffset - area.size(), '\0');
    return area;
}

/// The header in such an area; null when the area is not whole, empty when its length makes no sense.
QByteArray headerIn(const QByteArray &area)
{
    if (area.size() != blockAreaOffset)
        return {};
    bool isNumber = false;
    const qint64 length = area.mid(fileMagicSize, lengthDigits).trimmed().toLongLong(&isNumber);
    if (!isNumber || length < 1 || length > headerAreaSize)
        return "";
    return area.mid(headerAreaOffset, length);
}

QByteArray readArea(QIODevice &container)
{
    return container.seek(0) ? container.read(blockAreaOffset) : QByteArray();
}

bool writeAt(QFile &file, qint64 offset, QByteArrayView bytes)
{
    return file.seek(offset) && file.write(bytes.data(), bytes.size()) == bytes.size();
}

} // namespace

ContainerUpdate::ContainerUpdate(const QString &path) : container(path) {}

bool ContainerUpdate::begin()
{
    if (!container.open(QIODevice::ReadWrite | QIODevice::ExistingOnly | QIODevice::Unbuffered) ||
        !lockFile(container)) {
        return false;
    }
    const QByteArray prologue = container.read(headerAreaOffset);
    return prologue.size() == headerAreaOffset && prologue.startsWith(fileMagic) &&
           prologue.indexOf('\n') == headerAreaOffset - 1;
}

QByteArray ContainerUpdate::header()
{
    return headerOf(container);
}

QByteArray ContainerUpdate::headerOf(QIODevice &container)
{
    return headerIn(readArea(container));
}

QFile &ContainerUpdate::file()
{
    return container;
}

ContainerUpdate::Outcome ContainerUpdate::writeHeader(const QByteArray &newHeader, Care care)
{
    const QByteArray former = readArea(container);
    if (newHeader.size() > headerAreaSize || former.size() != blockAreaOffset)
        return Outcome::Undone;

    // "Record before header": with this wait, what was appended is on the drive too.
    const QByteArray formerHeader = headerIn(former);
    const QByteArray record = undoRecordFor(formerHeader, newHeader);
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
    return Outcome::Done;
}

void ContainerUpdate::cutBack(qint64 formerSize)
{
    if (container.size() > formerSize && container.resize(formerSize))
        static_cast<void>(syncFile(container));
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
    if (tailRecordOffset(seriesRecord.size, newHeader.size()) < 0) {
        const Outcome ended = endSeries();
        if (ended != Outcome::Done)
            return ended;
        if (!renewSeries(header(), newHeader.size()))
            return writeHeader(newHeader);
    }

    const QByteArray former = readArea(container);
    if (newHeader.size() > headerAreaSize || former.size() != blockAreaOffset)
        return Outcome::Undone;
    const QByteArray area = areaFor(newHeader);
    if (!writeDifferences(former, area, seriesRecord)) {
        const bool isFormerAgain = writeDifferences(area, former, seriesRecord) && syncFile(container);
        return isFormerAgain ? Outcome::Undone : Outcome::Unknown;
    }
    if (sinceRenewal.elapsed() < renewalIntervalMs)
        return Outcome::Done;
    if (!syncFile(container))
        return putBack(area, areaFor(safeHeader), std::exchange(seriesRecord, {}));
    // When the record cannot be renewed, the series is over; this header is safe all the same.
    static_cast<void>(renewSeries(newHeader, newHeader.size()));
    return Outcome::Done;
}

ContainerUpdate::Outcome ContainerUpdate::endSeries()
{
    const Place place = std::exchange(seriesRecord, {});
    if (place.size == 0)
        return Outcome::Done;
    const QByteArray area = readArea(container);
    const QByteArray current = headerIn(area);
    // What cannot be read cannot be put right; the record stays for whoever opens the container next.
    if (current.isEmpty())
        return syncFile(container) ? Outcome::Done : Outcome::Unknown;
    if (!syncFile(container))
        return putBack(area, areaFor(safeHeader), place);
    static_cast<void>(writeDifferences(area, areaFor(current), {}));
    return Outcome::Done;
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
    return found.size() == former.size() && writeDifferences(found, former, place) && syncFile(container) &&
           clearRecord(place, former) && syncFile(container);
}

bool ContainerUpdate::discard(const UndoRecord &record)
{
    const Place place{record.offset, record.size, record.offset < blockAreaOffset};
    return clearRecord(place, QByteArray(blockAreaOffset, '\0'));
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
    return writeAt(container, place.offset, QByteArrayView(area).sliced(place.offset, place.size));
}

/// Writes what differs between two areas, page by page, but for the place of the record.
bool ContainerUpdate::writeDifferences(const QByteArray &from, const QByteArray &to, const Place &record)
{
    const qint64 end = record.isInTail ? record.offset : blockAreaOffset;
    const auto differs = [&](qint64 page) {
        const size_t size = static_cast<size_t>(std::min(pageSize, end - page));
        return std::memcmp(from.constData() + page, to.constData() + page, size) != 0;
    };
    for (qint64 page = 0; page < end; page += pageSize) {
        if (!differs(page))
            continue;
        qint64 last = page + pageSize;
        while (last < end && differs(last))
            last += pageSize;
        if (!writeAt(container, page, QByteArrayView(to).sliced(page, std::min(last, end) - page)))
            return false;
        page = last;
    }
    if (!record.isInTail)
        return true;
    // Behind the record lies only the rest of the sector of the first block; foreign bytes may be there.
    const qint64 rest = record.offset + record.size;
    const QByteArrayView tail = QByteArrayView(to).sliced(rest);
    return QByteArrayView(from).sliced(rest) == tail || writeAt(container, rest, tail);
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
    const QByteArray record = undoRecordForSeries(currentHeader);
    const Place place{tailRecordOffset(record.size(), std::max(currentHeader.size(), roomForHeader)),
                      record.size(), true};
    if (place.offset < 0)
        return false;
    if (!writeRecord(record, place))
        return false;

    seriesRecord = place;
    safeHeader = currentHeader;
    sinceRenewal.start();
    return true;
}

} // namespace Tessarin::Core
