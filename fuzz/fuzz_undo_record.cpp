// Undo records. The first byte of the input says what the rest is:
//   bit 0   the record lies at the end of the file, not in the tail of the header area
//   bit 1   the rest is two headers and the position of a byte to damage; else it is a record, which gets the
//           checksum that belongs to it
#include "Require.h"

#include "core/Sha256.h"
#include "core/UndoRecord.h"

#include <QBuffer>

using namespace Tessarin::Core;
using Tessarin::Fuzz::require;

namespace {

HashedHeader hashed(const QByteArray &header)
{
    return {header, Sha256::of(header)};
}

/// A container of zeros with some bytes in it; it stands ready from one input to the next.
class ZeroContainer
{
public:
    ZeroContainer() { bytes.reserve(ContainerFormat::blockAreaOffset + 4 * 1024 * 1024); }

    std::optional<UndoRecord> find(const QByteArray &header, const QByteArray &record, bool atEnd)
    {
        const qsizetype offset =
            atEnd ? ContainerFormat::blockAreaOffset : ContainerFormat::headerAreaSize - record.size();
        bytes.resize(ContainerFormat::blockAreaOffset + (atEnd ? record.size() : 0));
        put(ContainerFormat::headerAreaOffset, header);
        put(offset, record);
        QBuffer container(&bytes);
        require(container.open(QIODevice::ReadOnly));
        const std::optional<UndoRecord> found = findUndoRecord(container);
        container.close();
        put(ContainerFormat::headerAreaOffset, QByteArray(header.size(), '\0'));
        put(offset, QByteArray(record.size(), '\0'));
        require(!found || (found->place.offset >= 0 && found->place.keyEnd <= found->place.end &&
                           found->place.end == offset + record.size()));
        return found;
    }

private:
    void put(qsizetype offset, const QByteArray &part)
    {
        std::copy(part.cbegin(), part.cend(), bytes.begin() + offset);
    }

    QByteArray bytes{ContainerFormat::blockAreaOffset, '\0'};
};

void checkRoundTrip(ZeroContainer &container, const QByteArray &input, bool atEnd)
{
    const qsizetype middle = input.size() / 2;
    const QByteArray former = input.first(middle);
    const QByteArray next = input.sliced(middle);
    QByteArray record = undoRecordFor(hashed(former), hashed(next));
    const auto found = container.find(next, record, atEnd);
    require(found && found->formerHeader == former && found->knows(former) && found->knows(next) &&
            found->place.end - found->place.offset == record.size());

    const size_t damaged = qHash(input) % static_cast<size_t>(record.size());
    record[static_cast<qsizetype>(damaged)] ^= 1;
    require(!container.find(next, record, atEnd));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static ZeroContainer container;
    if (size < 1)
        return 0;
    const bool atEnd = (data[0] & 1) != 0;
    QByteArray input(reinterpret_cast<const char *>(data + 1), static_cast<qsizetype>(size - 1));
    if ((data[0] & 2) != 0) {
        checkRoundTrip(container, input, atEnd);
        return 0;
    }
    if (input.size() > Sha256::sizeBytes) {
        input.chop(Sha256::sizeBytes);
        input += Sha256::of(input);
    }
    static_cast<void>(container.find({}, input, atEnd));
    return 0;
}
