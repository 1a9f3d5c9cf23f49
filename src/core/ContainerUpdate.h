// One change of a container on the drive, made so that it can be cut off at any instant: the new header goes
// in place only when all it lists and a record of the former header have reached the drive. The container is
// locked against other programs from begin() until the object goes.
//
// docs/architecture.md states the rules that are cited here by name.
#pragma once

#include "core/Failure.h"
#include "core/UndoRecord.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QFile>
#include <QString>

#include <functional>

namespace Tessarin::Core {

class ContainerUpdate
{
public:
    enum class Outcome {
        Done,    ///< The new header is in force.
        Undone,  ///< It failed, and the former header is in force: what was appended may be cut off.
        Unknown, ///< It failed, and the header may be either, or another program's: nothing may be cut
                 ///< off. The record decides later.
    };

    enum class Care {
        Usual,         ///< Refused when the drive has no room for the record.
        FreesSpace,    ///< Goes ahead without a record then: people must be able to delete on a full drive.
        ForgetsFormer, ///< The same, and waits until the former wrapping of the key is gone from the drive.
    };

    explicit ContainerUpdate(const QString &path);

    /// Opens and locks the container. False when it is in use by another program, cannot be written, or is
    /// not laid out as this program does it: a fixed rewrite would reach into its blocks. On a file system
    /// without locks it goes ahead, and looks before each write whether another program has saved.
    [[nodiscard]] bool begin();

    /// Why the last call failed; Other when it did not tell.
    [[nodiscard]] Failure failure() const;

    /// The header that is in force, as JSON; null when the file is too short, empty when a part of it cannot
    /// be read or its length makes no sense.
    [[nodiscard]] QByteArray header();
    /// Its SHA-256; empty when it cannot be read.
    [[nodiscard]] QByteArray headerHash();
    [[nodiscard]] static QByteArray headerOf(QIODevice &container);

    /// The open container, for appending blocks.
    [[nodiscard]] QFile &file();

    /// Sends appended bytes on their way. False when the drive has not taken some that were appended before;
    /// of a series, those of earlier files perhaps: then it goes back to what is safe.
    [[nodiscard]] bool startWriteback(qint64 offset, qint64 size);

    /// Puts a header in force, with everything that was appended. Two waits for the drive, or three.
    [[nodiscard]] Outcome writeHeader(const QByteArray &newHeader, Care care = Care::Usual);

    /// Takes appended bytes away again; the file ends at `formerSize` bytes.
    void cutBack(qint64 formerSize);

    // A series of headers, each in force at once for readers but safe on the drive only every two seconds.

    /// Keeps a record of the header in force. False when it does not fit beside the header: then each header
    /// is written by itself.
    [[nodiscard]] bool beginSeries();
    [[nodiscard]] bool isInSeries() const;
    /// Of a series that has begun: the header to which a failure goes back.
    [[nodiscard]] QByteArray lastSafeHeader() const;
    [[nodiscard]] Outcome writeHeaderInSeries(const QByteArray &newHeader);
    /// Waits for the drive and clears the record. Undone means: back to the header last known to be safe.
    [[nodiscard]] Outcome endSeries();

    // Recovery

    /// The record of a change that broke off, if there is one.
    [[nodiscard]] std::optional<UndoRecord> brokenOffChange();
    /// Puts the record's header back in force and clears the record.
    [[nodiscard]] bool restore(const UndoRecord &record);
    /// Clears a record that has nothing to undo.
    [[nodiscard]] bool discard(const UndoRecord &record);
    /// Clears all records, of which each must be settled: none may be found before one that comes later.
    [[nodiscard]] bool discardRecords(const std::function<bool(const UndoRecord &)> &isSettled);

private:
    /// Where the record of the present change lies.
    struct Place
    {
        qint64 offset = 0;
        qint64 size = 0;
        bool isInTail = false;
        qint64 keyEnd = 0; ///< Where the part ends, in bytes of the record, in which the wrapped key lies.
    };

    [[nodiscard]] static Place placeOf(const UndoRecord &record);
    [[nodiscard]] bool writeRecord(const QByteArray &record, const Place &place);
    [[nodiscard]] bool clearRecord(const Place &place);
    [[nodiscard]] bool clearRecordDurably(const Place &place);
    [[nodiscard]] bool writeDifferences(const QByteArray &from, const QByteArray &to, const Place &record);
    [[nodiscard]] Outcome putBack(const QByteArray &attempted, const QByteArray &formerHeader,
                                  const Place &record);
    [[nodiscard]] bool renewSeries(const QByteArray &currentHeader, qsizetype roomForHeader);
    [[nodiscard]] Outcome abandonSeries();

    void noteFailure(int errorNumber);
    [[nodiscard]] bool hasAnotherSaved();
    void noteOwn(QByteArrayView header);

    [[nodiscard]] bool knowArea();
    void adoptArea(const QByteArray &area, const QByteArray &hashOfHeader);
    void forgetArea();

    QFile container;
    Failure reason = Failure::Other;
    bool hasLock = false;
    QByteArray ownHeader;   ///< Without a lock: the header that was read or written last.
    QByteArray areaInForce; ///< What lies before the blocks, but for a record; null while not known.
    QByteArray hashInForce; ///< SHA-256 of its header; empty while not known.
    Place seriesRecord;
    QByteArray safeHeader; ///< Of a series: the header that the record holds.
    QElapsedTimer sinceRenewal;
    bool hasLostWrites = false; ///< The drive has told, once, that it did not take all that was appended.
};

} // namespace Tessarin::Core
