// The model of a drive whose power goes, and the replaced calls of the C library.
#include "support/DriveTape.h"
#include "support/VaultFixture.h"

#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <optional>

#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessarin::Tests {

namespace {

constexpr qint64 pageSectors = 8;

DriveTape *&running = DriveTape::running;

ino_t inodeOf(const QByteArray &path)
{
    struct stat status = {};
    return ::stat(path.constData(), &status) == 0 ? status.st_ino : 0;
}

QByteArray nameOf(const char *path)
{
    return QByteArray(path).split('/').last();
}

/// A file in memory and on the drive. Memory reaches the drive sector by sector, in any order, until a sync
/// sends all that is left. What the drive holds beyond the size is what lay there before.
struct DriveFile
{
    FileImage memory;
    FileImage drive;
    QList<std::pair<qint64, qint64>> unsynced; ///< Sectors.

    void send(qint64 sector)
    {
        if (sector >= memory.sectors.size())
            return;
        drive.sectors.resize(std::max(drive.sectors.size(), sector + 1));
        drive.sectors[sector] = memory.sectors.at(sector);
    }

    void sync()
    {
        for (const auto &[first, end] : std::exchange(unsynced, {})) {
            for (qint64 sector = first; sector < end; ++sector)
                send(sector);
        }
        drive.size = memory.size;
    }

    void write(qint64 from, const QByteArray &bytes, DriveTape::Loss loss, QRandomGenerator &random)
    {
        memory.put(from, bytes);
        const qint64 first = from / FileImage::sectorSize;
        const qint64 end = (from + bytes.size() - 1) / FileImage::sectorSize + 1;
        unsynced.append({first, end});
        enum Fate { Lost, Kept, Beginning, End, Half, AllButFew, fateCount };
        const int fate = loss == DriveTape::AnySectors       ? random.bounded(fateCount)
                         : loss == DriveTape::EndOfLastWrite ? Beginning
                         : loss == DriveTape::Nothing        ? Kept
                                                             : Lost;
        const qint64 border = first + random.bounded(end - first);
        for (qint64 sector = first; sector < end; ++sector) {
            if (fate == Kept || (fate == Beginning && sector < border) || (fate == End && sector >= border) ||
                (fate == Half && random.bounded(2) == 0) ||
                (fate == AllButFew && random.bounded(end - first) > 1))
                send(sector);
        }
        // Of the page in which a write behind the header stopped, the drive may keep nothing.
        const qint64 page = border - border % pageSectors;
        if (fate != Beginning || from < Core::ContainerFormat::blockAreaOffset)
            return;
        unsynced.append({page, page + pageSectors});
        for (qint64 sector = page; sector < std::min(page + pageSectors, drive.sectors.size()); ++sector)
            drive.sectors[sector].fill('x', FileImage::sectorSize);
    }
};

} // namespace

FileImage FileImage::read(const QString &path)
{
    FileImage image;
    image.put(0, readFile(path));
    return image;
}

void FileImage::write(const QString &path) const
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    for (qint64 at = 0; at < sectors.size(); ++at) {
        QByteArray run;
        for (; at < sectors.size() && !sectors.at(at).isEmpty(); ++at)
            run += sectors.at(at);
        QVERIFY(run.isEmpty() ||
                ::pwrite(file.handle(), run, run.size(), at * sectorSize - run.size()) == run.size());
    }
    QVERIFY(file.resize(size));
}

void FileImage::resize(qint64 newSize)
{
    // What lay behind a smaller size is not there when the file grows again.
    const qint64 rest = newSize % sectorSize;
    if (rest != 0 && newSize / sectorSize < sectors.size())
        put(newSize, QByteArray(sectorSize - rest, '\0'));
    size = newSize;
    sectors.resize((size + sectorSize - 1) / sectorSize);
}

void FileImage::put(qint64 at, QByteArrayView bytes)
{
    static const QByteArray zeros(sectorSize, '\0');
    if (at + bytes.size() > size)
        resize(at + bytes.size());
    for (QByteArrayView part; !bytes.isEmpty(); at += part.size(), bytes = bytes.sliced(part.size())) {
        const qint64 from = at % sectorSize;
        part = bytes.first(std::min(bytes.size(), sectorSize - from));
        QByteArray &sector = sectors[at / sectorSize];
        if (part != zeros)
            sector = sector.leftJustified(sectorSize, '\0').replace(from, part.size(), part);
        if (part == zeros || sector == zeros)
            sector.clear();
    }
}

DriveFiles filesIn(const QString &folder)
{
    DriveFiles files;
    for (const QString &name : QDir(folder).entryList(QDir::Files))
        files[name] = FileImage::read(folder + u'/' + name);
    return files;
}

void putFiles(const QString &folder, const DriveFiles &files)
{
    for (const QString &name : QDir(folder).entryList(QDir::Files))
        QFile::remove(folder + u'/' + name);
    for (const auto &[name, image] : files.asKeyValueRange())
        image.write(folder + u'/' + name);
}

DriveTape::DriveTape(const QString &folderPath, const CallFailure &planned)
    : failure(planned), folder(QFile::encodeName(QDir(folderPath).canonicalPath()))
{
    for (const auto &[file, image] : filesIn(folderPath).asKeyValueRange()) {
        const QByteArray name = QFile::encodeName(file);
        startNames[name] = inodeOf(folder + '/' + name);
        startContents[startNames[name]] = image;
    }
    running = this;
}

DriveFiles DriveTape::cutAfter(qsizetype eventCount, Loss loss, quint32 seed) const
{
    QRandomGenerator random(seed);
    const auto reachesDrive = [&] {
        return loss == AnySectors ? random.bounded(2) == 0 : loss != Everything;
    };
    QMap<ino_t, DriveFile> files;
    for (const auto &[file, image] : startContents.asKeyValueRange())
        files[file] = {image, image, {}};
    QMap<QByteArray, ino_t> namesInMemory = startNames;
    QMap<QByteArray, ino_t> names = startNames;
    QMap<ino_t, Kind> moved;   // What no sync of the file itself has completed.
    constexpr ino_t empty = 0; // Of an entry of size 0.
    constexpr ino_t none = ino_t(-1);
    const auto enter = [&](const QByteArray &name, ino_t inMemory, ino_t onDrive) {
        namesInMemory[name] = inMemory;
        if (reachesDrive())
            names[name] = onDrive;
    };

    for (qsizetype i = 0; i < eventCount; ++i) {
        const Event &event = events.at(i); // A file system in memory gives no number twice.
        DriveFile &file = files[event.file];
        const qint64 formerSize = file.memory.size;
        if (event.kind == Write) {
            const bool isWhole = loss == EndOfLastWrite && i < eventCount - 1;
            file.write(event.position, event.bytes, isWhole ? Nothing : loss, random);
        } else if (event.kind == Resize) {
            file.memory.resize(event.position);
        } else if (event.kind == Sync) {
            file.sync();
            moved.remove(event.file);
            for (const QByteArray &name : namesInMemory.keys(event.file))
                names[name] = names.value(name, none) == none ? none : event.file;
        } else if (event.kind == FailedSync) { // The kernel does not try these pages again.
            file.unsynced.clear();
        } else if (event.kind == SyncNames) {
            const QMap<QByteArray, ino_t> former = std::exchange(names, namesInMemory);
            for (auto name = names.begin(); name != names.end(); ++name) {
                if (const Kind kind = moved.value(*name, Sync); kind != Sync)
                    *name = kind == Exchange ? former.value(name.key()) : empty;
            }
        } else if (event.kind == Exchange) { // FAT completes either entry by itself.
            const ino_t other = namesInMemory.value(event.newName);
            moved[event.file] = moved[other] = Exchange;
            enter(event.newName, event.file, event.file);
            enter(event.bytes, other, other);
        } else if (event.kind == Rename) { // FAT frees what was there, and writes an entry of size 0.
            moved[event.file] = Rename;
            enter(event.newName, event.file, empty);
            enter(event.bytes, none, none);
        } else {
            const ino_t entry = event.kind == Create ? event.file : none;
            enter(event.bytes, entry, entry);
        }
        if (file.memory.size != formerSize && reachesDrive())
            file.drive.size = file.memory.size;
    }

    DriveFiles left;
    names.removeIf([](const auto &entry) { return entry.value() == none; });
    for (const auto &[name, file] : names.asKeyValueRange()) {
        FileImage image = files.value(file).drive;
        image.resize(image.size);
        if (!namesInMemory.values().contains(file) && loss == AnySectors)
            image.put(0, QByteArray(image.size / 2, 'x'));
        left[QFile::decodeName(name)] = image;
    }
    return left;
}

namespace {

/// The event with its file; none unless a tape runs and the file is to do with its folder.
std::optional<DriveTape::Event> tapedAt(int descriptor, DriveTape::Event event = {})
{
    struct stat64 status = {};
    std::error_code error;
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    if (running == nullptr || ::fstat64(descriptor, &status) != 0 ||
        !std::filesystem::read_symlink(link, error).string().starts_with(running->folder.toStdString()))
        return std::nullopt;
    event.file = status.st_ino;
    event.kind = S_ISDIR(status.st_mode) ? DriveTape::SyncNames : event.kind;
    return event;
}

std::optional<DriveTape::Event> tapedAt(const char *path, DriveTape::Event event)
{
    event.bytes = nameOf(path);
    event.file = inodeOf(path);
    const bool isTaped = running != nullptr && QByteArrayView(path).startsWith(running->folder + '/');
    return isTaped ? std::optional(event) : std::nullopt;
}

bool fails(CallFailure::Calls kind, size_t *writeSize = nullptr)
{
    CallFailure &failure = running->failure;
    if (failure.counted != kind && (failure.counted != CallFailure::Changes || kind >= CallFailure::Sizes))
        return false;
    const int call = ++running->calls;
    if (failure.call == 0 || call < failure.call || call >= failure.call + failure.times)
        return false;
    if (call == failure.call)
        running->eventsBeforeFailure = running->events.size();
    if (writeSize != nullptr && call == failure.call && failure.error == ENOSPC && *writeSize > 1) {
        *writeSize /= 2;
        ++failure.call;
        return false;
    }
    errno = failure.error;
    return true;
}

/// Makes a call on a path or a descriptor, unless it is to fail, and records what it did.
template <typename Where, typename Call>
int taped(const DriveTape::Event &planned, Where where, const Call &call)
{
    using Tape = DriveTape;
    std::optional event = tapedAt(where, planned);
    if (!event)
        return call();
    const bool isSync = QList{Tape::Sync, Tape::FailedSync, Tape::SyncNames}.contains(event->kind);
    const bool isFailing = fails(isSync ? CallFailure::Syncs : CallFailure::Changes);
    const int result = isFailing && !running->failure.isDone ? -1 : call();
    if (result < 0 && event->kind == Tape::Sync)
        event->kind = Tape::FailedSync;
    if (result >= 0 && event->kind == Tape::Create) // Its file is there only now.
        event = tapedAt(result, *event).value_or(*event);
    if ((result < 0) == (event->kind == Tape::FailedSync))
        running->events.append(*event);
    return isFailing ? -1 : result;
}

} // namespace

} // namespace Tessarin::Tests

extern "C" {

using namespace Tessarin::Tests;

/// The C library's own call, to be made where the tape has nothing to say.
#define FORWARD(name) reinterpret_cast<decltype(&::name)>(::dlsym(RTLD_NEXT, #name))

int open64(const char *path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const bool isUnnamed = (flags & O_TMPFILE) == O_TMPFILE;
    const mode_t mode = isUnnamed || (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);

    if (running != nullptr && isUnnamed) { // FAT knows no files without a name.
        errno = EOPNOTSUPP;
        return -1;
    }
    const auto call = [&] { return FORWARD(open64)(path, flags, mode); };
    const bool isNew = (flags & O_CREAT) != 0 && inodeOf(path) == 0;
    return isNew ? taped({DriveTape::Create}, path, call) : call();
}

ssize_t write(int descriptor, const void *bytes, size_t size)
{
    std::optional event = tapedAt(descriptor);
    if (event && fails(CallFailure::Changes, &size))
        return -1;
    const qint64 position = event ? ::lseek64(descriptor, 0, SEEK_CUR) : 0;
    const ssize_t written = FORWARD(write)(descriptor, bytes, size);
    if (event && written > 0) {
        event->position = position;
        event->bytes = QByteArray(static_cast<const char *>(bytes), written);
        if (position <= running->unreadableFrom && position + written >= running->unreadableTo)
            running->unreadableFrom = running->unreadableTo = 0;
        running->events.append(*event);
    }
    return written;
}

int ftruncate64(int file, off64_t size) noexcept
{
    return taped({DriveTape::Resize, 0, size}, file, [&] { return FORWARD(ftruncate64)(file, size); });
}

int fstat(int descriptor, struct stat *status) noexcept
{
    const bool isFailing = tapedAt(descriptor) && fails(CallFailure::Sizes);
    return isFailing ? -1 : FORWARD(fstat)(descriptor, status);
}

int statx(int descriptor, const char *path, int flags, unsigned int mask, struct statx *status) noexcept
{
    const bool isFailing = tapedAt(descriptor) && fails(CallFailure::Sizes);
    return isFailing ? -1 : FORWARD(statx)(descriptor, path, flags, mask, status);
}

int unlink(const char *path) noexcept
{
    if (tapedAt(path, {}) && fails(CallFailure::Names))
        return -1;
    return taped({DriveTape::Remove}, path, [&] { return FORWARD(unlink)(path); });
}

int rename(const char *from, const char *to) noexcept
{
    return taped({DriveTape::Rename, 0, 0, {}, nameOf(to)}, from, [&] { return FORWARD(rename)(from, to); });
}

int renameat2(int folder, const char *path, int newFolder, const char *newPath, unsigned int flags) noexcept
{
    if (tapedAt(path, {}) && fails(CallFailure::Names))
        return -1;
    const auto kind = flags == RENAME_EXCHANGE ? DriveTape::Exchange : DriveTape::Rename;
    return taped({kind, 0, 0, {}, nameOf(newPath)}, path,
                 [&] { return FORWARD(renameat2)(folder, path, newFolder, newPath, flags); });
}

int flock(int descriptor, int operation) noexcept
{
    if (!tapedAt(descriptor) || (running->hasLocks && !fails(CallFailure::Locks)))
        return FORWARD(flock)(descriptor, operation);
    if (running->failure.error == ENOENT)
        return QDir().rmdir(QFileInfo(u"/proc/self/fd/%1"_s.arg(descriptor)).symLinkTarget()) ? 0 : -1;
    errno = running->hasLocks ? EWOULDBLOCK : ENOLCK;
    return -1;
}

ssize_t read(int descriptor, void *bytes, size_t size)
{
    const qint64 from = ::lseek64(descriptor, 0, SEEK_CUR);
    const bool isWhole = !tapedAt(descriptor) || from >= running->unreadableTo ||
                         from + qint64(size) <= running->unreadableFrom;
    if (isWhole || from < running->unreadableFrom)
        return FORWARD(read)(descriptor, bytes, isWhole ? size : size_t(running->unreadableFrom - from));
    errno = EIO;
    return -1;
}

int fsync(int descriptor)
{
    return taped({DriveTape::Sync}, descriptor, [] { return 0; });
}

/// Makes nothing certain, but may be the one to hear that the drive has not taken something.
int sync_file_range(int descriptor, off64_t, off64_t, unsigned int)
{
    return taped({DriveTape::FailedSync}, descriptor, [] { return 0; });
}

} // extern "C"
