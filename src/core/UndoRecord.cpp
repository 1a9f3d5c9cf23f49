// The record's bytes: the former header in three pieces, then a trailer of fixed size by which it is found.
#include "core/UndoRecord.h"

#include "core/Base64.h"
#include "core/HeaderArea.h"
#include "core/Sha256.h"

#include <QIODevice>
#include <QtEndian>

#include <algorithm>
#include <array>

namespace Tessarin::Core {

using namespace ContainerFormat;

namespace {

constexpr char recordMagic[] = "TRVXUNDO";
constexpr qsizetype magicSize = 8;

/// Trailer: magic, kind, four lengths, two hashes of headers, the hash of all that stands before it.
constexpr int lengthCount = 4;
constexpr qsizetype kindAt = magicSize;
constexpr qsizetype lengthsAt = kindAt + 8;
constexpr qsizetype hashesAt = lengthsAt + lengthCount * 8;
constexpr qsizetype checksumAt = hashesAt + 2 * Sha256::sizeBytes;
constexpr qsizetype trailerSize = checksumAt + Sha256::sizeBytes;

/// A record in the tail shares no page with the header, and ends before the sector that holds the first
/// block.
constexpr qint64 tailEnd = headerAreaSize;
static_assert(tailEnd % HeaderArea::pageSize == 0);
static_assert(blockAreaOffset - tailEnd == headerAreaOffset);

constexpr QByteArrayView indexKey("\"encryptedIndex\":\"");

enum Kind : quint64 { WholeIndex = 1, IndexStaysInPlace = 2 };

/// A header cut at the Base64 text of its encrypted index.
struct HeaderPieces
{
    QByteArrayView before;
    QByteArrayView indexText;
    QByteArrayView after;
    QByteArray index; ///< What the text stands for.
};

HeaderPieces cut(QByteArrayView header)
{
    const qsizetype key = header.indexOf(indexKey);
    const qsizetype start = key + indexKey.size();
    const qsizetype end = key == -1 ? -1 : header.indexOf('"', start);
    if (end == -1)
        return {header, {}, {}, {}};
    const QByteArrayView text = header.sliced(start, end - start);
    // Text that does not come back the same from its bytes is kept as it stands.
    const std::optional<QByteArray> index = decodeCanonicalBase64(text);
    if (!index)
        return {header, {}, {}, {}};
    return {header.first(start), text, header.sliced(end), *index};
}

void appendNumber(QByteArray &bytes, quint64 number)
{
    std::array<char, sizeof number> big{};
    qToBigEndian(number, big.data());
    bytes.append(big.data(), big.size());
}

QByteArray recordBytes(const HeaderPieces &former, Kind kind, const QByteArray &formerHash,
                       const QByteArray &newHash)
{
    const QByteArray index = kind == IndexStaysInPlace ? QByteArray() : former.index;
    QByteArray record = former.before.toByteArray();
    record += index;
    record += former.after;
    record += recordMagic;
    appendNumber(record, kind);
    for (const qsizetype length :
         {former.before.size(), index.size(), former.indexText.size(), former.after.size()})
        appendNumber(record, static_cast<quint64>(length));
    record += formerHash;
    record += newHash;
    record += Sha256::of(record);
    return record;
}

struct Trailer
{
    quint64 kind = 0;
    std::array<qint64, lengthCount> lengths{}; ///< Before, index bytes, index text, after.
    QByteArray formerHash;
    QByteArray newHash;
    QByteArray checksum;

    [[nodiscard]] qint64 recordSize() const { return lengths[0] + lengths[1] + lengths[3] + trailerSize; }
    [[nodiscard]] qint64 headerSize() const { return lengths[0] + lengths[2] + lengths[3]; }
};

std::optional<Trailer> parseTrailer(const QByteArray &bytes)
{
    if (bytes.size() != trailerSize || !bytes.startsWith(recordMagic))
        return {};

    Trailer trailer;
    trailer.kind = qFromBigEndian<quint64>(bytes.constData() + kindAt);
    if (trailer.kind != WholeIndex && trailer.kind != IndexStaysInPlace)
        return {};
    qFromBigEndian<qint64>(bytes.constData() + lengthsAt, lengthCount, trailer.lengths.data());
    for (const qint64 length : trailer.lengths) {
        if (length < 0 || length > headerAreaSize)
            return {};
    }
    // The index as bytes is shorter than its text: what is read is bounded by what a header can hold.
    if (trailer.headerSize() > headerAreaSize || trailer.lengths[1] > trailer.lengths[2])
        return {};
    trailer.formerHash = bytes.mid(hashesAt, Sha256::sizeBytes);
    trailer.newHash = bytes.mid(hashesAt + Sha256::sizeBytes, Sha256::sizeBytes);
    trailer.checksum = bytes.mid(checksumAt);
    return trailer;
}

/// Where the wrapped key ends in a header, or in a record of it, at the latest.
qint64 endOfWrappedKey(QByteArrayView header)
{
    constexpr qint64 mostBehindItsName = 4096;
    const qsizetype name = header.indexOf("\"encryptedMasterKey\"");
    return name == -1 ? header.size() : name + mostBehindItsName; // Its name may be written otherwise.
}

RecordPlace placeOf(qint64 offset, qint64 recordSize, QByteArrayView formerHeader)
{
    const qint64 end = offset + recordSize;
    return {offset, end, std::min(end, offset + endOfWrappedKey(formerHeader))};
}

std::optional<UndoRecord> findRecordEndingAt(QIODevice &container, qint64 end)
{
    const std::optional<Trailer> trailer = parseTrailer(readAt(container, end - trailerSize, trailerSize));
    if (!trailer)
        return {};

    UndoRecord record;
    const qint64 size = trailer->recordSize();
    const QByteArray bytes = readAt(container, end - size, size);
    if (bytes.size() != size ||
        Sha256::of(QByteArrayView(bytes).chopped(Sha256::sizeBytes)) != trailer->checksum)
        return {};

    const auto [beforeSize, indexSize, textSize, afterSize] = trailer->lengths;
    const QByteArray indexText = trailer->kind == IndexStaysInPlace
                                     ? readAt(container, headerAreaOffset + beforeSize, textSize)
                                     : bytes.mid(beforeSize, indexSize).toBase64();
    record.formerHeader = bytes.first(beforeSize) + indexText + bytes.mid(beforeSize + indexSize, afterSize);
    record.formerHeaderHash = trailer->formerHash;
    record.newHeaderHash = trailer->newHash;
    record.place = placeOf(end - size, size, record.formerHeader);
    if (trailer->kind == IndexStaysInPlace && textSize > 0)
        record.unchangedFrom = headerAreaOffset + beforeSize;
    // A record never shares a page with its header, nor lies before the blocks but in the tail.
    const qint64 headerEnd = pageBorderFrom(headerAreaOffset + record.formerHeader.size());
    const bool isPlausible = record.place.offset >= (end == tailEnd ? headerEnd : blockAreaOffset);
    if (!isPlausible || Sha256::of(record.formerHeader) != record.formerHeaderHash)
        return {};
    return record;
}

} // namespace

bool UndoRecord::knows(QByteArrayView header) const
{
    const QByteArray hash = Sha256::of(header);
    return hash == formerHeaderHash || hash == newHeaderHash;
}

QByteArray undoRecordFor(const HashedHeader &former, const HashedHeader &next)
{
    HeaderPieces pieces = cut(former.header);
    const bool indexStays =
        next.header.size() == former.header.size() && !pieces.indexText.isEmpty() &&
        next.header.sliced(pieces.before.size()) == former.header.sliced(pieces.before.size());
    if (!indexStays)
        return recordBytes(pieces, WholeIndex, former.hash, next.hash);

    // The page in which the index begins is rewritten, and may be unreadable afterwards: it is kept too.
    const qint64 pageEnd = pageBorderFrom(headerAreaOffset + pieces.before.size()) - headerAreaOffset;
    const qint64 kept = std::min(pageEnd - pieces.before.size(), pieces.indexText.size());
    pieces.before = former.header.first(pieces.before.size() + kept);
    pieces.indexText = pieces.indexText.sliced(kept);
    return recordBytes(pieces, IndexStaysInPlace, former.hash, next.hash);
}

RecordPlace placeForRecord(qint64 recordSize, QByteArrayView former, QByteArrayView next, qint64 fileSize)
{
    const qint64 headersEnd = pageBorderFrom(headerAreaOffset + std::max(former.size(), next.size()));
    const bool fitsTail = tailEnd - recordSize >= headersEnd;
    return placeOf(fitsTail ? tailEnd - recordSize : fileSize, recordSize, former);
}

std::optional<UndoRecord> findUndoRecord(QIODevice &container)
{
    if (std::optional<UndoRecord> record = findUndoRecordInTail(container))
        return record;
    return findRecordEndingAt(container, container.size());
}

std::optional<UndoRecord> findUndoRecordInTail(QIODevice &container)
{
    return findRecordEndingAt(container, tailEnd);
}

} // namespace Tessarin::Core
