// The undo record: the former header of a container, kept inside the container while the header is rewritten
// in place, so that a rewrite that breaks off can be undone. docs/architecture.md tells when it is written
// and when it is believed.
#pragma once

#include "core/ContainerFormat.h"

#include <QByteArray>
#include <QByteArrayView>

#include <optional>

class QIODevice;

namespace Tessarin::Core {

struct UndoRecord
{
    QByteArray formerHeader;     ///< The JSON, byte for byte.
    QByteArray formerHeaderHash; ///< SHA-256 of it.
    QByteArray newHeaderHash;    ///< SHA-256 of the header that was to follow; zeros when several were.
    qint64 offset = 0;           ///< Bytes from the start of the file.
    qint64 size = 0;

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

/// A record for a header that several others follow.
[[nodiscard]] QByteArray undoRecordForSeries(const HashedHeader &former);

/// Where a record of this size begins when it is kept in the unused tail of the header area; negative when
/// it would share a page with a header of this length.
[[nodiscard]] qint64 tailRecordOffset(qint64 recordSize, qint64 headerLength);

/// Looks for a whole, undamaged record: in the tail of the header area, then at the end of the file.
[[nodiscard]] std::optional<UndoRecord> findUndoRecord(QIODevice &container);

} // namespace Tessarin::Core
