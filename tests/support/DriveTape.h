// Records what this process does to the files of one folder, and plays power cuts and calls that fail.
// DriveTape.cpp replaces the C library's calls for the whole executable, which must export its symbols.
#pragma once

#include <QtCore>

#include <algorithm>

#include <sys/types.h>

namespace Tessarin::Tests {

/// A file's bytes by sectors, which copies share. Those of zeros are empty, as most of a header area is.
struct FileImage
{
    static constexpr qint64 sectorSize = 512;
    qint64 size = 0;
    QByteArrayList sectors;

    static FileImage read(const QString &path);
    void write(const QString &path) const;
    void resize(qint64 newSize);
    void put(qint64 at, QByteArrayView bytes);
    bool operator==(const FileImage &) const = default;
};

using DriveFiles = QMap<QString, FileImage>; ///< By name.

DriveFiles filesIn(const QString &folder);
void putFiles(const QString &folder, const DriveFiles &files);

/// The call with this number (from 1) fails, and those after it, as many as are said. With ENOSPC half of a
/// write goes through first, as on a full drive.
struct CallFailure
{
    static constexpr int forEver = 1000000;
    /// Sizes of open files; renaming with flags, and removing; locks (ENOENT: the folder is removed first).
    enum Calls { Changes, Syncs, Sizes, Names, Locks };
    int call = 0;
    int error = 0;
    int times = 1;
    Calls counted = Changes; ///< And failing: all that change something, or only these.
    bool isDone = false;     ///< What changes names or sizes is done all the same, but for `Names`.
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
    void stop() { running = running == this ? nullptr : running; }
    void resume() { failure = {}, running = this; }

    /// A drive whose power went after `eventCount` events.
    [[nodiscard]] DriveFiles cutAfter(qsizetype eventCount, Loss loss, quint32 seed = 0) const;
    [[nodiscard]] qsizetype count(Kind kind) const { return std::ranges::count(events, kind, &Event::kind); }

    QList<Event> events;
    int calls = 0;
    qsizetype eventsBeforeFailure = 0;
    /// Bytes that no file gives back until they are written anew.
    qint64 unreadableFrom = 0;
    qint64 unreadableTo = 0;
    bool hasLocks = true;

    static inline DriveTape *running = nullptr;
    CallFailure failure;
    const QByteArray folder;

private:
    QMap<QByteArray, ino_t> startNames;
    QMap<ino_t, FileImage> startContents;
};

} // namespace Tessarin::Tests
