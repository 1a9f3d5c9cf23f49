// One change of a container on the drive, made so that it can be cut off at any instant: a new header goes in
// place only when all it lists and a record of the former header are durable. The container is locked against
// other programs from begin() until the object goes. It may commit several times.
//
// docs/architecture.md states the steps and the rules that are cited here by name.
#pragma once

#include "core/Failure.h"
#include "core/HeaderArea.h"
#include "core/HostFile.h"
#include "core/UndoRecord.h"

#include <QByteArray>
#include <QFile>
#include <QString>

#include <functional>
#include <optional>

namespace Tessarin::Core {

class ContainerTransaction
{
public:
    enum class Outcome {
        Committed,  ///< The new header is in force, and durable.
        RolledBack, ///< It failed, and the former header is in force: rollBack() may truncate the container.
        Undecided,  ///< It failed, and the header may be either, or another program's: nothing may be
                    ///< truncated. Where a record is left, it decides when the container is next used.
                    ///< Also when the new header is in force, but the former key could not be erased.
    };

    enum class Policy {
        Usual,      ///< Refused when the drive has no room for the record.
        FreesSpace, ///< Goes ahead without a record then: people must be able to delete on a full drive.
        ForgetsFormerKey, ///< The same, and waits until the former wrapping of the key is gone for good.
    };

    explicit ContainerTransaction(const QString &path);

    /// Opens and locks the container, and reads the header in force. False when it is in use by another
    /// program, cannot be written, or is laid out otherwise than this program does it: a rewrite in place
    /// would reach into its blocks. On a file system without locks it goes ahead, and looks before each
    /// commit and each rollback whether another program has saved.
    [[nodiscard]] bool begin();

    /// Why the last call failed.
    [[nodiscard]] Failure failure() const;
    [[nodiscard]] bool hasLock() const;

    /// The header in force, as JSON, and its SHA-256; empty where it is torn or cannot be read. Valid until
    /// the next call that writes a header.
    [[nodiscard]] QByteArrayView header() const;
    [[nodiscard]] QByteArray headerHash() const;

    /// The open container.
    [[nodiscard]] QFile &file();

    /// Has the container stand where new blocks go.
    [[nodiscard]] bool seekToEnd();
    /// To be called after each block. False when the drive has not taken bytes that were appended before:
    /// then no commit succeeds until they are rolled back.
    [[nodiscard]] bool hasAppended();

    /// Puts a header in force, with everything that was appended. Two waits for the drive, or three.
    [[nodiscard]] Outcome commit(const QByteArray &newHeader, Policy policy = Policy::Usual);

    /// Truncates the container to what it held at the last commit, or at the beginning.
    void rollBack();
    /// The same to a size between that and the present one, as when one file of several fails. False, with
    /// everything since the last commit rolled back, when the drive has lost what it was given before.
    [[nodiscard]] bool rollBackTo(qint64 sizeBytes);

    // Recovery

    /// The record of a change that broke off, if there is one.
    [[nodiscard]] std::optional<UndoRecord> record();
    /// Puts a header in force that the drive may hold in part, or not at all, whatever the kernel's cache
    /// says: the whole of it is written and durable before the record is cleared.
    [[nodiscard]] bool settle(const UndoRecord &record, const QByteArray &headerInForce);
    /// Clears all records beside the present header, of which none may have anything to undo: a later change
    /// must not find them before its own. False also when there are absurdly many; the next call goes on.
    /// Without the function the caller vouches for all of them.
    [[nodiscard]] bool settleAll(const std::function<bool(const UndoRecord &)> &hasNothingToUndo = {});

private:
    // The steps of a commit.
    [[nodiscard]] std::optional<qint64> padAppended();
    [[nodiscard]] bool writeRecord(const QByteArray &record, const RecordPlace &place);
    [[nodiscard]] bool clearTrailerInTail();
    [[nodiscard]] bool sync();
    [[nodiscard]] bool writeHeader(const HeaderArea &former, const HeaderArea &next);
    [[nodiscard]] bool clearRecord(const RecordPlace &place);

    [[nodiscard]] bool clearRecordDurably(const RecordPlace &place);
    [[nodiscard]] Outcome restore(const HeaderArea &former, const HeaderArea &attempted,
                                  const std::optional<RecordPlace> &record);
    [[nodiscard]] bool clearBetween(PageRange range);
    [[nodiscard]] bool writeAt(qint64 offset, const QByteArray &bytes);
    [[nodiscard]] bool write(const HeaderArea &area, PageRange range);
    void truncate(qint64 sizeBytes);
    /// False when another file lies at the path by now, or none: then what is written would be lost with this
    /// one.
    [[nodiscard]] bool isInPlace();
    [[nodiscard]] bool hasAnotherSaved();
    void putInForce(HeaderArea area, const QByteArray &hash);
    void markCommitted();
    bool note(bool isDone);

    QFile container;
    Failure reason = Failure::None;
    bool isLocked = false;
    bool hasLostWrites = false;        ///< The drive has told, once, that it did not take what was appended.
    std::optional<HeaderArea> inForce; ///< Empty before begin() and while it is undecided.
    QByteArray hashInForce;
    /// Of the file; what lies behind is not listed yet. The greatest number where it is not known: then
    /// nothing is truncated.
    qint64 committedSize = 0;
    Writeback writeback{0};
};

} // namespace Tessarin::Core
