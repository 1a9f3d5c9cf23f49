// The undo record, a rollback journal of one entry: the former header of a container, kept inside the
// container while the header is rewritten in place, so that a rewrite that breaks off can be rolled back.
// docs/architecture.md tells when it is written and when it is believed.
#pragma once

#include "core/ContainerFormat.h"

#include <QByteArray>
#include <QByteArrayView>

#include <optional>

class QIODevice;

namespace Tessarin::Core {

/// Where a record lies, in bytes from the start of the file.
struct RecordPlace
{
    qint64 offset = 0;
    qint64 end = 0;
    qint64 keyEnd = 0; ///< The wrapped key in it ends before this.

    /// True in the tail of the header area, false behind the last block.
    [[nodiscard]] bool isInTail() const { return offset < ContainerFormat::blockAreaOffset; }
};

struct UndoRecord
{
    QByteArray formerHeader;     ///< The JSON, byte for byte.
    QByteArray formerHeaderHash; ///< SHA-256 of it.
    QByteArray newHeaderHash;    ///< SHA-256 of the header that was to follow.
    RecordPlace place;
    /// Offset in the file from which the change left the header as it was; the record does not hold that
    /// part.
    qint64 unchangedFrom = ContainerFormat::blockAreaOffset;

    /// True when the header on the drive is one that the record knows: then there is nothing to undo.
    [[nodiscard]] bool knows(QByteArrayView header) const;
};

/// A header's JSON with its SHA-256; the bytes must outlive the view.
struct HashedHeader
{
    QByteArrayView header;
    QByteArray hash;
};

/// The bytes of a record. The encrypted index in it is stored as it was before Base64, and not at all when
/// the new header holds it at the same place.
[[nodiscard]] QByteArray undoRecordFor(const HashedHeader &former, const HashedHeader &next);

/// Where to write a record of this size: in the unused tail of the header area, or, where it would share a
/// page with either header there, at the end of the file.
[[nodiscard]] RecordPlace placeForRecord(qint64 recordSize, QByteArrayView former, QByteArrayView next,
                                         qint64 fileSize);

/// Looks for a whole, undamaged record: in the tail of the header area, then at the end of the file.
[[nodiscard]] std::optional<UndoRecord> findUndoRecord(QIODevice &container);
/// In the tail alone: on FAT, to get to the end of a file costs reading in proportion to its length.
[[nodiscard]] std::optional<UndoRecord> findUndoRecordInTail(QIODevice &container);

} // namespace Tessarin::Core
