// The model of a drive whose power goes, and the replaced calls of the C library.
#include "support/DriveTape.h"
#include "support/VaultFixture.h"

#include <QDir>
#include <QRandomGenerator>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>

#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessarin::Tests {

namespace {

constexpr qint64 sectorSize = 512;

DriveTape *running = nullptr;

ino_t inodeOf(const QByteArray &path)
{
    struct stat status = {};
    return ::stat(path.constData(), &status) == 0 ? status.st_ino : 0;
}

QByteArray nameOf(const char *path)
{
    return QByteArray(path).split('/').last();
}

void put(QByteArray &file, qint64 at, QByteArrayView bytes)
{
    file.resize(std::max(file.size(), at + bytes.size()), '\0');
    std::copy(bytes.cbegin(), bytes.cend(), file.begin() + at);
}

/// A file in memory and on the drive. Memory reaches the drive sector by sector, in any order, until a sync
/// sends all that is left. What the drive holds beyond the size is what lay there before.
struct DriveFile
{
    QByteArray memory;
    QByteArray drive;
    qint64 sizeOnDrive = 0;
    QList<std::pair<qint64, qint64>> unsynced;

    void send(qint64 from, qint64 to)
    {
        if (from < memory.size())
            put(drive, from, QByteArrayView(memory).sliced(from, std::min(to, memory.size()) - from));
    }

    void sync()
    {
        for (const auto &[from, to] : std::as_const(unsynced))
            send(from, to);
        unsynced.clear();
        sizeOnDrive = memory.size();
    }

    void write(qint64 from, const QByteArray &bytes, DriveTape::Loss loss, QRandomGenerator &random)
    {
        put(memory, from, bytes);
        unsynced.append({from, from + bytes.size()});
        enum Fate { Lost, Kept, Beginning, End, Half, AllButFew, fateCount };
        const int fate = loss == DriveTape::AnySectors       ? random.bounded(fateCount)
                         : loss == DriveTape::EndOfLastWrite ? Beginning
                         : loss == DriveTape::Nothing        ? Kept
                                                             : Lost;
        const qint64 first = from / sectorSize;
        const qint64 count = (from + bytes.size() - 1) / sectorSize + 1 - first;
        const qint64 border = first + random.bounded(count);
        for (qint64 sector = first; sector < first + count; ++sector) {
            if (fate == Kept || (fate == Beginning && sector < border) || (fate == End && sector >= border) ||
                (fate == Half && random.bounded(2) == 0) || (fate == AllButFew && random.bounded(count) > 1))
                send(sector * sectorSize, (sector + 1) * sectorSize);
        }
    }
};

} // namespace

DriveTape::DriveTape(const QString &folderPath, const CallFailure &planned)
    : failure(planned), folder(QFile::encodeName(QDir(folderPath).canonicalPath()))
{
    const QStringList names = QDir(folderPath).entryList(QDir::Files);
    for (const QString &name : names) {
        const QString path = QDir(folderPath).filePath(name);
        const ino_t inode = inodeOf(QFile::encodeName(path));
        startNames[QFile::encodeName(name)] = inode;
        startContents[inode] = readFile(path);
    }
    running = this;
}

void DriveTape::stop()
{
    if (running == this)
        running = nullptr;
}

void DriveTape::resume()
{
    failure = {};
    running = this;
}

DriveFiles DriveTape::cutAfter(qsizetype eventCount, Loss loss, quint32 seed) const
{
    QRandomGenerator random(seed);
    const auto reachesDrive = [&] {
        return loss == AnySectors ? random.bounded(2) == 0 : loss != Everything;
    };
    QMap<ino_t, ino_t> successors;
    QMap<ino_t, DriveFile> files;
    for (auto start = startContents.cbegin(); start != startContents.cend(); ++start)
        files[start.key()] = {*start, *start, start->size(), {}};
    QMap<QByteArray, ino_t> namesInMemory = startNames;
    QMap<QByteArray, ino_t> names = startNames; // 0 for an entry of size 0.
    QMap<ino_t, Kind> moved;                    // What no sync of the file itself has completed.

    for (qsizetype i = 0; i < eventCount; ++i) {
        Event event = events.at(i);
        // A new file may get the number of one that was removed and closed.
        if (event.kind == Create && files.contains(event.file))
            successors[event.file] = event.file + (ino_t(i + 1) << 48);
        event.file = successors.value(event.file, event.file);
        DriveFile &file = files[event.file];
        const qint64 formerSize = file.memory.size();
        if (event.kind == Write) {
            const bool isWhole = loss == EndOfLastWrite && i < eventCount - 1;
            file.write(event.position, event.bytes, isWhole ? Nothing : loss, random);
        } else if (event.kind == Resize) {
            file.memory.resize(event.position, '\0');
        } else if (event.kind == Sync) {
            file.sync();
            moved.remove(event.file);
            for (auto name = namesInMemory.cbegin(); name != namesInMemory.cend(); ++name) {
                if (*name == event.file)
                    names[name.key()] = event.file;
            }
        } else if (event.kind == FailedSync) { // The kernel does not try these pages again.
            file.unsynced.clear();
        } else if (event.kind == SyncNames) {
            const QMap<QByteArray, ino_t> former = std::exchange(names, namesInMemory);
            for (auto name = names.begin(); name != names.end(); ++name) {
                if (const Kind kind = moved.value(*name, Sync); kind != Sync)
                    *name = kind == Exchange ? former.value(name.key()) : 0;
            }
        } else if (event.kind == Exchange) { // FAT completes either entry by itself.
            const ino_t other = namesInMemory.value(event.newName);
            moved[event.file] = moved[other] = Exchange;
            namesInMemory[event.newName] = event.file;
            namesInMemory[event.bytes] = other;
            if (reachesDrive())
                names[event.newName] = event.file;
            if (reachesDrive())
                names[event.bytes] = other;
        } else if (event.kind == Rename) { // FAT frees what was there, and writes an entry of size 0.
            moved[event.file] = Rename;
            namesInMemory.remove(event.bytes);
            namesInMemory[event.newName] = event.file;
            if (reachesDrive())
                names[event.newName] = 0;
            if (reachesDrive())
                names.remove(event.bytes);
        } else {
            const auto change = [&](QMap<QByteArray, ino_t> &map) {
                map.remove(event.bytes);
                if (event.kind == Create)
                    map.insert(event.bytes, event.file);
            };
            change(namesInMemory);
            if (reachesDrive())
                change(names);
        }
        if (file.memory.size() != formerSize && reachesDrive())
            file.sizeOnDrive = file.memory.size();
    }

    DriveFiles left;
    for (auto name = names.cbegin(); name != names.cend(); ++name) {
        if (*name == 0) {
            left[QFile::decodeName(name.key())] = "";
            continue;
        }
        DriveFile &file = files[*name];
        file.drive.resize(file.sizeOnDrive, '\0');
        // The place of a removed file may be another's already.
        if (!namesInMemory.values().contains(*name) && loss == AnySectors)
            put(file.drive, 0, QByteArray(file.sizeOnDrive / 2, 'x'));
        left[QFile::decodeName(name.key())] = file.drive;
    }
    return left;
}

bool DriveTape::watches(int descriptor, Event &event) const
{
    char path[PATH_MAX];
    const QByteArray link = "/proc/self/fd/" + QByteArray::number(descriptor);
    const ssize_t length = ::readlink(link.constData(), path, sizeof path);
    struct stat status = {};
    if (length < 0 || !QByteArrayView(path, length).startsWith(folder) || ::fstat(descriptor, &status) != 0)
        return false;
    event.file = status.st_ino;
    if (S_ISDIR(status.st_mode))
        event.kind = SyncNames;
    return true;
}

bool DriveTape::watches(const char *path, Event &event) const
{
    event.bytes = nameOf(path);
    event.file = inodeOf(path);
    return QByteArrayView(path).startsWith(folder + '/');
}

bool DriveTape::fails(bool isSync, size_t *writeSize)
{
    if (failure.isOfSyncs && !isSync)
        return false;
    ++calls;
    if (failure.call == 0 || calls < failure.call || calls >= failure.call + failure.times)
        return false;
    if (calls == failure.call)
        eventsBeforeFailure = events.size();
    if (writeSize != nullptr && calls == failure.call && failure.error == ENOSPC && *writeSize > 1) {
        *writeSize /= 2;
        ++failure.call;
        return false;
    }
    errno = failure.error;
    return true;
}

namespace {

/// Makes a call on a path or a descriptor, unless it is to fail, and records what it did.
template <typename Where, typename Call>
int taped(DriveTape::Event event, Where where, const Call &call)
{
    if (running == nullptr || !running->watches(where, event))
        return call();
    const bool isSync = event.kind == DriveTape::Sync || event.kind == DriveTape::SyncNames;
    const int result = running->fails(isSync) ? -1 : call();
    if (result != 0 && event.kind == DriveTape::Sync)
        event.kind = DriveTape::FailedSync;
    if (result == 0 || event.kind == DriveTape::FailedSync)
        running->events.append(event);
    return result;
}

} // namespace

} // namespace Tessarin::Tests

// The calls by which the vault, and Qt below it, change files.
extern "C" {

using namespace Tessarin::Tests;

/// The C library's own call, to be made where the tape has nothing to say.
#define FORWARD(name) reinterpret_cast<decltype(&::name)>(::dlsym(RTLD_NEXT, #name))

int open64(const char *path, int flags, ...)
{
    static const auto forward = FORWARD(open64);
    va_list rest;
    va_start(rest, flags);
    const bool hasMode = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    const mode_t mode = hasMode ? va_arg(rest, mode_t) : 0;
    va_end(rest);

    DriveTape::Event event = {DriveTape::Create};
    if (running != nullptr && (flags & O_TMPFILE) == O_TMPFILE) { // FAT knows no files without a name.
        errno = EOPNOTSUPP;
        return -1;
    }
    if (running == nullptr || (flags & O_CREAT) == 0 || !running->watches(path, event) || event.file != 0)
        return forward(path, flags, mode);
    const int descriptor = running->fails(false) ? -1 : forward(path, flags, mode);
    if (descriptor >= 0 && running->watches(path, event))
        running->events.append(event);
    return descriptor;
}

off64_t lseek64(int descriptor, off64_t offset, int whence) noexcept
{
    static const auto forward = FORWARD(lseek64);
    DriveTape::Event event = {};
    const bool isTaped = running != nullptr && whence == SEEK_SET && running->watches(descriptor, event);
    return isTaped && running->fails(false) ? -1 : forward(descriptor, offset, whence);
}

ssize_t write(int descriptor, const void *bytes, size_t size)
{
    static const auto forward = FORWARD(write);
    DriveTape::Event event = {};
    if (running == nullptr || !running->watches(descriptor, event))
        return forward(descriptor, bytes, size);
    event.position = ::lseek64(descriptor, 0, SEEK_CUR);
    const ssize_t written = running->fails(false, &size) ? -1 : forward(descriptor, bytes, size);
    if (written > 0) {
        event.bytes = QByteArray(static_cast<const char *>(bytes), written);
        if (event.position <= running->unreadableFrom && event.position + written >= running->unreadableTo)
            running->unreadableFrom = running->unreadableTo = 0;
        running->events.append(event);
    }
    return written;
}

int ftruncate64(int descriptor, off64_t size) noexcept
{
    static const auto forward = FORWARD(ftruncate64);
    return taped({DriveTape::Resize, 0, size}, descriptor, [&] { return forward(descriptor, size); });
}

int unlink(const char *path) noexcept
{
    static const auto forward = FORWARD(unlink);
    return taped({DriveTape::Remove}, path, [&] { return forward(path); });
}

int rename(const char *path, const char *newPath) noexcept
{
    static const auto forward = FORWARD(rename);
    return taped({DriveTape::Rename, 0, 0, {}, nameOf(newPath)}, path,
                 [&] { return forward(path, newPath); });
}

int renameat2(int folder, const char *path, int newFolder, const char *newPath, unsigned int flags) noexcept
{
    static const auto forward = FORWARD(renameat2);
    const auto kind = flags == RENAME_EXCHANGE ? DriveTape::Exchange : DriveTape::Rename;
    return taped({kind, 0, 0, {}, nameOf(newPath)}, path,
                 [&] { return forward(folder, path, newFolder, newPath, flags); });
}

int flock(int descriptor, int operation) noexcept
{
    static const auto forward = FORWARD(flock);
    DriveTape::Event event = {};
    if (running == nullptr || running->hasLocks || !running->watches(descriptor, event))
        return forward(descriptor, operation);
    errno = ENOLCK;
    return -1;
}

ssize_t read(int descriptor, void *bytes, size_t size)
{
    static const auto forward = FORWARD(read);
    DriveTape::Event event = {};
    if (running == nullptr || running->unreadableTo == 0 || !running->watches(descriptor, event))
        return forward(descriptor, bytes, size);
    const qint64 from = ::lseek64(descriptor, 0, SEEK_CUR);
    if (from >= running->unreadableTo || from + qint64(size) <= running->unreadableFrom)
        return forward(descriptor, bytes, size);
    errno = EIO;
    return from >= running->unreadableFrom
               ? -1
               : forward(descriptor, bytes, size_t(running->unreadableFrom - from));
}

/// Waits for no real drive: the tape decides what has reached it.
int fsync(int descriptor)
{
    return taped({DriveTape::Sync}, descriptor, [] { return 0; });
}

/// Makes nothing certain, but may be the one to hear that the drive has not taken something.
int sync_file_range(int descriptor, off64_t, off64_t, unsigned int)
{
    DriveTape::Event event = {DriveTape::FailedSync};
    if (running == nullptr || !running->watches(descriptor, event) || !running->fails(true))
        return 0;
    running->events.append(event);
    return -1;
}

} // extern "C"
