// Records what this process does to the files of one folder, as a drive would see it, and plays power cuts
// and failing drives: what may be left when the power goes at any event, and calls that fail at will.
// DriveTape.cpp replaces the C library's calls for the whole executable, which must export its symbols.
#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

#include <sys/types.h>

namespace Tessarin::Tests {

using DriveFiles = QMap<QString, QByteArray>; ///< Name and contents.

/// The call with this number (from 1) fails, and those after it, as many as are said. With ENOSPC half of a
/// write goes through first, as on a full drive.
struct CallFailure
{
    static constexpr int forEver = 1000000;
    int call = 0;
    int error = 0;
    int times = 1;
    bool isOfSyncs = false; ///< Only waits for the drive are counted, and fail.
};

class DriveTape
{
public:
    enum Kind { Write, Resize, Sync, FailedSync, Create, Remove, Rename, Exchange, SyncNames };
    struct Event
    {
        Kind kind;
        ino_t file = 0;
        qint64 position = 0;   ///< Of a write; the new size of a resize.
        QByteArray bytes = {}; ///< Written; or the name created, removed or renamed.
        QByteArray newName = {};
    };

    /// What is missing of the events that no sync has made certain.
    enum Loss { Everything, Nothing, EndOfLastWrite, AnySectors };

    /// Starts recording; only one tape can run at a time.
    explicit DriveTape(const QString &folderPath, const CallFailure &planned = {});
    ~DriveTape() { stop(); }
    Q_DISABLE_COPY_MOVE(DriveTape)
    void stop();
    /// Goes on, with a drive that works.
    void resume();

    /// A drive whose power went after `eventCount` events.
    [[nodiscard]] DriveFiles cutAfter(qsizetype eventCount, Loss loss, quint32 seed) const;

    QList<Event> events;
    int calls = 0;
    qsizetype eventsBeforeFailure = 0;
    /// Bytes that no file gives back until they are written anew.
    qint64 unreadableFrom = 0;
    qint64 unreadableTo = 0;
    bool hasLocks = true;

    // For the replaced calls: fills in the event and says whether it is to do with the folder; counts a call
    // and says whether it fails.
    [[nodiscard]] bool watches(int descriptor, Event &event) const;
    [[nodiscard]] bool watches(const char *path, Event &event) const;
    [[nodiscard]] bool fails(bool isSync, size_t *writeSize = nullptr);

private:
    CallFailure failure;
    QByteArray folder;
    QMap<QByteArray, ino_t> startNames;
    QMap<ino_t, QByteArray> startContents;
};

} // namespace Tessarin::Tests
