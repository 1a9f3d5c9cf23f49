// The model of a drive whose power goes, and the replaced calls of the C library.
#include "support/DriveTape.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
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

/// A file in memory and on the drive. Memory reaches the drive sector by sector, in any order, until a sync
/// sends all that is left. What the drive holds beyond the size is what lay there before.
struct DriveFile
{
    QByteArray memory;
    QByteArray drive;
    qint64 sizeOnDrive = 0;
    QList<std::pair<qint64, qint64>> unsynced;

    void write(qint64 at, const QByteArray &bytes)
    {
        unsynced.append({at, at + bytes.size()});
        memory.resize(std::max(memory.size(), at + bytes.size()), '\0');
        std::memcpy(memory.data() + at, bytes.constData(), static_cast<size_t>(bytes.size()));
    }

    void send(qint64 from, qint64 to)
    {
        to = std::min<qint64>(to, memory.size());
        if (from >= to)
            return;
        drive.resize(std::max<qint64>(drive.size(), to), '\0');
        std::memcpy(drive.data() + from, memory.constData() + from, static_cast<size_t>(to - from));
    }

    void sync()
    {
        for (const auto &[from, to] : std::as_const(unsynced))
            send(from, to);
        unsynced.clear();
        sizeOnDrive = memory.size();
    }

    void sendSome(qint64 from, qint64 to, DriveTape::Loss loss, QRandomGenerator &random)
    {
        enum Fate { Lost, Kept, Beginning, End, Half, AllButFew, fateCount };
        const int fate = loss == DriveTape::Everything       ? Lost
                         : loss == DriveTape::Nothing        ? Kept
                         : loss == DriveTape::EndOfLastWrite ? Beginning
                                                             : random.bounded(fateCount);
        const qint64 first = from / sectorSize;
        const qint64 count = (to - 1) / sectorSize + 1 - first;
        const qint64 border = first + random.bounded(count);
        for (qint64 sector = first; sector < first + count; ++sector) {
            if (fate == Kept || (fate == Beginning && sector < border) || (fate == End && sector >= border) ||
                (fate == Half && random.bounded(2) == 0) || (fate == AllButFew && random.bounded(count) > 1))
                send(sector * sectorSize, (sector + 1) * sectorSize);
        }
    }
};

} // namespace

DriveTape::DriveTape(const QString &folderPath) : folder(QFile::encodeName(QDir(folderPath).canonicalPath()))
{
    const QStringList names = QDir(folderPath).entryList(QDir::Files);
    for (const QString &name : names) {
        QFile file(QDir(folderPath).filePath(name));
        const ino_t inode = inodeOf(QFile::encodeName(file.fileName()));
        startNames[QFile::encodeName(name)] = inode;
        if (file.open(QIODevice::ReadOnly))
            startContents[inode] = file.readAll();
    }
    running = this;
}

void DriveTape::stop()
{
    if (running == this)
        running = nullptr;
}

void DriveTape::failAt(int call, int error, bool forEver)
{
    failingCall = call;
    failingError = error;
    failsForEver = forEver;
}

qsizetype DriveTape::count(Kind kind) const
{
    return std::count_if(recorded.cbegin(), recorded.cend(),
                         [=](const Event &event) { return event.kind == kind; });
}

qint64 DriveTape::writtenBytes() const
{
    qint64 total = 0;
    for (const Event &event : recorded)
        total += event.kind == Write ? event.bytes.size() : 0;
    return total;
}

DriveFiles DriveTape::cutAfter(qsizetype eventCount, Loss loss, quint32 seed) const
{
    QRandomGenerator random(seed);
    const auto reachesDrive = [&] {
        return loss == AnySectors ? random.bounded(2) == 0 : loss != Everything;
    };
    QMap<ino_t, DriveFile> files;
    for (auto start = startContents.cbegin(); start != startContents.cend(); ++start)
        files[start.key()] = {*start, *start, start->size(), {}};
    QMap<QByteArray, ino_t> namesInMemory = startNames;
    QMap<QByteArray, ino_t> names = startNames;

    for (qsizetype i = 0; i < eventCount; ++i) {
        const Event &event = recorded.at(i);
        DriveFile &file = files[event.file];
        const qint64 formerSize = file.memory.size();
        if (event.kind == Write) {
            const bool isWhole = loss == EndOfLastWrite && i < eventCount - 1;
            file.write(event.position, event.bytes);
            file.sendSome(event.position, event.position + event.bytes.size(), isWhole ? Nothing : loss,
                          random);
        } else if (event.kind == Resize) {
            file.memory.resize(event.position, '\0');
        } else if (event.kind == Sync) {
            file.sync();
            for (auto name = namesInMemory.cbegin(); name != namesInMemory.cend(); ++name) {
                if (*name == event.file)
                    names[name.key()] = event.file;
            }
        } else if (event.kind == FailedSync) { // The kernel does not try these pages again.
            file.unsynced.clear();
        } else if (event.kind == SyncNames) {
            names = namesInMemory;
        } else {
            const bool isOnDrive = reachesDrive();
            for (auto *map : {&namesInMemory, &names}) {
                if (map == &names && !isOnDrive)
                    continue;
                if (event.kind == Create)
                    map->insert(event.bytes, event.file);
                else
                    map->remove(event.bytes);
            }
        }
        if (file.memory.size() != formerSize && reachesDrive())
            file.sizeOnDrive = file.memory.size();
    }

    DriveFiles left;
    for (auto name = names.cbegin(); name != names.cend(); ++name) {
        DriveFile &file = files[*name];
        file.drive.resize(file.sizeOnDrive, '\0');
        // The place of a removed file may be another's already.
        if (!namesInMemory.values().contains(*name) && loss == AnySectors)
            file.drive.replace(0, file.sizeOnDrive / 2, QByteArray(file.sizeOnDrive / 2, 'x'));
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
    event.bytes = QByteArray(path).mid(folder.size() + 1);
    event.file = inodeOf(path);
    return QByteArrayView(path).startsWith(folder + '/');
}

bool DriveTape::fails(size_t *writeSize)
{
    ++calls;
    if (failingCall == 0 || calls < failingCall || (calls > failingCall && !failsForEver))
        return false;
    if (writeSize != nullptr && calls == failingCall && failingError == ENOSPC && *writeSize > 1) {
        *writeSize /= 2;
        ++failingCall;
        return false;
    }
    errno = failingError;
    return true;
}

namespace {

template <typename Function>
Function *libraryCall(const char *name)
{
    return reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, name));
}

/// Makes a call, unless it is to fail, and records it when it succeeds.
template <typename Call>
int recorded(const DriveTape::Event &event, const Call &call)
{
    if (running->fails())
        return -1;
    const int result = call();
    if (result >= 0)
        running->record(event);
    return result;
}

} // namespace

} // namespace Tessarin::Tests

// The calls by which the vault, and Qt below it, change files.
extern "C" {

using namespace Tessarin::Tests;

int open64(const char *path, int flags, ...)
{
    static const auto forward = libraryCall<int(const char *, int, ...)>("open64");
    va_list rest;
    va_start(rest, flags);
    const bool hasMode = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    const mode_t mode = hasMode ? va_arg(rest, mode_t) : 0;
    va_end(rest);

    DriveTape::Event event = {DriveTape::Create, 0, 0, {}};
    if (running == nullptr || (flags & O_CREAT) == 0 || !running->watches(path, event) || event.file != 0)
        return forward(path, flags, mode);
    if (running->fails())
        return -1;
    const int descriptor = forward(path, flags, mode);
    if (descriptor >= 0 && running->watches(path, event))
        running->record(event);
    return descriptor;
}

off64_t lseek64(int descriptor, off64_t offset, int whence) noexcept
{
    static const auto forward = libraryCall<off64_t(int, off64_t, int)>("lseek64");
    DriveTape::Event event = {DriveTape::Write, 0, 0, {}};
    const bool fails = running != nullptr && running->watches(descriptor, event) && running->fails();
    return fails ? -1 : forward(descriptor, offset, whence);
}

ssize_t write(int descriptor, const void *bytes, size_t size)
{
    static const auto forward = libraryCall<ssize_t(int, const void *, size_t)>("write");
    static const auto seek = libraryCall<off64_t(int, off64_t, int)>("lseek64");
    DriveTape::Event event = {DriveTape::Write, 0, 0, {}};
    if (running == nullptr || !running->watches(descriptor, event))
        return forward(descriptor, bytes, size);
    if (running->fails(&size))
        return -1;
    event.position = seek(descriptor, 0, SEEK_CUR);
    const ssize_t written = forward(descriptor, bytes, size);
    if (written > 0) {
        event.bytes = QByteArray(static_cast<const char *>(bytes), written);
        running->record(event);
    }
    return written;
}

int ftruncate64(int descriptor, off64_t size) noexcept
{
    static const auto forward = libraryCall<int(int, off64_t)>("ftruncate64");
    DriveTape::Event event = {DriveTape::Resize, 0, size, {}};
    if (running == nullptr || !running->watches(descriptor, event))
        return forward(descriptor, size);
    return recorded(event, [&] { return forward(descriptor, size); });
}

/// Waits for no real drive: the tape decides what has reached it.
int fsync(int descriptor)
{
    DriveTape::Event event = {DriveTape::Sync, 0, 0, {}};
    if (running == nullptr || !running->watches(descriptor, event))
        return 0;
    const int result = recorded(event, [] { return 0; });
    if (result != 0 && event.kind == DriveTape::Sync) {
        event.kind = DriveTape::FailedSync;
        running->record(event);
    }
    return result;
}

int unlink(const char *path) noexcept
{
    static const auto forward = libraryCall<int(const char *)>("unlink");
    DriveTape::Event event = {DriveTape::Remove, 0, 0, {}};
    if (running == nullptr || !running->watches(path, event))
        return forward(path);
    return recorded(event, [&] { return forward(path); });
}

} // extern "C"
