// The replaced calls of the C library, and the model of a drive whose power goes.
#include "support/DriveTape.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>

#include <algorithm>
#include <array>
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

    void send(qint64 from, qint64 to)
    {
        to = std::min<qint64>(to, memory.size());
        if (from >= to)
            return;
        if (drive.size() < to)
            drive.resize(to, '\0');
        std::memcpy(drive.data() + from, memory.constData() + from, static_cast<size_t>(to - from));
    }

    void sync()
    {
        for (const auto &[from, to] : std::as_const(unsynced))
            send(from, to);
        unsynced.clear();
        sizeOnDrive = memory.size();
    }
};

/// How much of each event is left before it is synced.
class Chance
{
public:
    Chance(DriveTape::Loss kind, quint32 seed) : loss(kind), random(seed) {}

    bool reachesDrive()
    {
        return loss == DriveTape::Nothing || loss == DriveTape::EndOfLastWrite ||
               (loss == DriveTape::AnySectors && random.bounded(2) == 0);
    }

    void write(DriveFile &file, qint64 from, qint64 to, bool isLast)
    {
        // Lost, kept, its beginning, its end, half of its sectors, all but a few.
        const bool isTorn = loss == DriveTape::EndOfLastWrite && isLast;
        const int fate = loss == DriveTape::Everything   ? 0
                         : isTorn                        ? 2
                         : loss == DriveTape::AnySectors ? random.bounded(6)
                                                         : 1;
        const qint64 sectors = to / sectorSize - from / sectorSize + 1;
        const qint64 border = random.bounded(sectors);
        for (qint64 sector = 0; sector < sectors; ++sector) {
            const std::array<bool, 6> keeps = {false,
                                               true,
                                               sector < border,
                                               sector >= border,
                                               fate == 4 && random.bounded(2) == 0,
                                               fate == 5 && random.bounded(sectors) > 1};
            const qint64 start = (from / sectorSize + sector) * sectorSize;
            if (keeps[static_cast<size_t>(fate)])
                file.send(start, start + sectorSize);
        }
    }

    QRandomGenerator &generator() { return random; }

private:
    DriveTape::Loss loss;
    QRandomGenerator random;
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

DriveTape::~DriveTape()
{
    stop();
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

qsizetype DriveTape::count(Event::Kind kind) const
{
    return std::count_if(recorded.cbegin(), recorded.cend(),
                         [kind](const Event &event) { return event.kind == kind; });
}

qint64 DriveTape::writtenBytes() const
{
    qint64 total = 0;
    for (const Event &event : recorded)
        total += event.kind == Event::Write ? event.bytes.size() : 0;
    return total;
}

DriveFiles DriveTape::cutAfter(qsizetype eventCount, Loss loss, quint32 seed) const
{
    Chance chance(loss, seed);
    QMap<ino_t, DriveFile> files;
    for (auto start = startContents.cbegin(); start != startContents.cend(); ++start)
        files[start.key()] = {*start, *start, start->size(), {}};
    QMap<QByteArray, ino_t> namesInMemory = startNames;
    QMap<QByteArray, ino_t> names = startNames;

    for (qsizetype i = 0; i < eventCount; ++i) {
        const Event &event = recorded.at(i);
        DriveFile &file = files[event.file];
        const qint64 end = event.position + event.bytes.size();
        switch (event.kind) {
        case Event::Write: {
            const bool grows = file.memory.size() < end;
            if (grows)
                file.memory.resize(end, '\0');
            std::memcpy(file.memory.data() + event.position, event.bytes.constData(),
                        static_cast<size_t>(event.bytes.size()));
            file.unsynced.append({event.position, end});
            chance.write(file, event.position, end, i == eventCount - 1);
            if (grows && chance.reachesDrive())
                file.sizeOnDrive = end;
            break;
        }
        case Event::Resize:
            file.memory.resize(event.position, '\0');
            if (chance.reachesDrive())
                file.sizeOnDrive = event.position;
            break;
        case Event::Sync:
            file.sync();
            for (auto name = namesInMemory.cbegin(); name != namesInMemory.cend(); ++name) {
                if (*name == event.file)
                    names[name.key()] = event.file;
            }
            break;
        case Event::FailedSync: // The kernel does not try these pages again.
            file.unsynced.clear();
            break;
        case Event::Create:
        case Event::Remove: {
            const bool isKnown = chance.reachesDrive();
            for (auto *map : {&namesInMemory, isKnown ? &names : nullptr}) {
                if (map != nullptr && event.kind == Event::Create)
                    map->insert(event.bytes, event.file);
                else if (map != nullptr)
                    map->remove(event.bytes);
            }
            break;
        }
        case Event::SyncNames:
            names = namesInMemory;
            break;
        }
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

bool DriveTape::watches(int descriptor, Event *event) const
{
    char path[PATH_MAX];
    const QByteArray link = "/proc/self/fd/" + QByteArray::number(descriptor);
    const ssize_t length = ::readlink(link.constData(), path, sizeof path);
    if (length < folder.size() || !QByteArrayView(path, length).startsWith(folder))
        return false;
    struct stat status = {};
    ::fstat(descriptor, &status);
    event->file = status.st_ino;
    if (S_ISDIR(status.st_mode) && event->kind == Event::Sync)
        event->kind = Event::SyncNames;
    return true;
}

bool DriveTape::watches(const char *path, Event *event) const
{
    const QByteArray whole(path);
    if (!whole.startsWith(folder + '/'))
        return false;
    event->bytes = whole.mid(folder.size() + 1);
    return true;
}

/// Counts a call, and says whether it fails; `size` is what a write may still write.
bool DriveTape::fails(bool isWrite, size_t *size)
{
    ++calls;
    if (failingCall == 0 || calls < failingCall || (calls > failingCall && !failsForEver))
        return false;
    if (isWrite && calls == failingCall && failingError == ENOSPC && *size > 1) {
        *size /= 2;
        ++failingCall;
        return false;
    }
    errno = failingError;
    return true;
}

namespace {

template <typename Function>
Function *next(const char *name)
{
    return reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, name));
}

int openFile(const char *path, int flags, va_list rest)
{
    static const auto forward = next<int(const char *, int, ...)>("open64");
    const bool hasMode = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    const mode_t mode = hasMode ? va_arg(rest, mode_t) : 0;
    DriveTape::Event event = {DriveTape::Event::Create, 0, 0, {}};
    if (running == nullptr || (flags & O_CREAT) == 0 || !running->watches(path, &event) || inodeOf(path) != 0)
        return forward(path, flags, mode);
    if (running->fails(false, nullptr))
        return -1;
    const int descriptor = forward(path, flags, mode);
    event.file = inodeOf(path);
    if (descriptor >= 0)
        running->record(event);
    return descriptor;
}

off64_t seek(int descriptor, off64_t offset, int whence)
{
    static const auto forward = next<off64_t(int, off64_t, int)>("lseek64");
    DriveTape::Event event = {DriveTape::Event::Write, 0, 0, {}};
    if (running != nullptr && running->watches(descriptor, &event) && running->fails(false, nullptr))
        return -1;
    return forward(descriptor, offset, whence);
}

int resize(int descriptor, off64_t size)
{
    static const auto forward = next<int(int, off64_t)>("ftruncate64");
    DriveTape::Event event = {DriveTape::Event::Resize, 0, size, {}};
    if (running == nullptr || !running->watches(descriptor, &event))
        return forward(descriptor, size);
    if (running->fails(false, nullptr) || forward(descriptor, size) != 0)
        return -1;
    running->record(event);
    return 0;
}

} // namespace

} // namespace Tessarin::Tests

// The calls that the vault and Qt below it make to change files.
extern "C" {

using namespace Tessarin::Tests;

int open(const char *path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const int descriptor = openFile(path, flags, rest);
    va_end(rest);
    return descriptor;
}

int open64(const char *path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const int descriptor = openFile(path, flags, rest);
    va_end(rest);
    return descriptor;
}

ssize_t write(int descriptor, const void *bytes, size_t size)
{
    static const auto forward = next<ssize_t(int, const void *, size_t)>("write");
    static const auto tell = next<off64_t(int, off64_t, int)>("lseek64");
    DriveTape::Event event = {DriveTape::Event::Write, 0, 0, {}};
    if (running == nullptr || !running->watches(descriptor, &event))
        return forward(descriptor, bytes, size);
    if (running->fails(true, &size))
        return -1;
    event.position = tell(descriptor, 0, SEEK_CUR);
    const ssize_t written = forward(descriptor, bytes, size);
    if (written > 0) {
        event.bytes = QByteArray(static_cast<const char *>(bytes), written);
        running->record(event);
    }
    return written;
}

off_t lseek(int descriptor, off_t offset, int whence) noexcept
{
    return seek(descriptor, offset, whence);
}

off64_t lseek64(int descriptor, off64_t offset, int whence) noexcept
{
    return seek(descriptor, offset, whence);
}

int ftruncate(int descriptor, off_t size) noexcept
{
    return resize(descriptor, size);
}

int ftruncate64(int descriptor, off64_t size) noexcept
{
    return resize(descriptor, size);
}

/// Waits for no real drive: the tape decides what has reached it.
int fsync(int descriptor)
{
    DriveTape::Event event = {DriveTape::Event::Sync, 0, 0, {}};
    if (running == nullptr || !running->watches(descriptor, &event))
        return 0;
    const bool isFile = event.kind == DriveTape::Event::Sync;
    const bool fails = running->fails(false, nullptr);
    if (fails && isFile)
        event.kind = DriveTape::Event::FailedSync;
    if (!fails || isFile)
        running->record(event);
    return fails ? -1 : 0;
}

int unlink(const char *path) noexcept
{
    static const auto forward = next<int(const char *)>("unlink");
    DriveTape::Event event = {DriveTape::Event::Remove, 0, 0, {}};
    if (running == nullptr || !running->watches(path, &event))
        return forward(path);
    if (running->fails(false, nullptr) || forward(path) != 0)
        return -1;
    running->record(event);
    return 0;
}

} // extern "C"
