// The model of the page cache, and the replaced calls of the C library.
#include "CountedDrive.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include <climits>
#include <cstdlib>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessarin::Bench {

namespace {

constexpr qint64 pageSize = 4096;

std::string countedFolder;
DriveTraffic traffic;
std::map<ino_t, std::set<qint64>> dirtyPages;

qint64 pageOf(qint64 offset)
{
    return offset / pageSize;
}

/// Writes the dirty pages of a range back.
void writeBack(std::set<qint64> &pages, qint64 firstPage, qint64 endPage)
{
    const auto begin = pages.lower_bound(firstPage);
    const auto end = pages.lower_bound(endPage);
    qint64 previous = -2;
    for (auto page = begin; page != end; ++page) {
        traffic.writtenBytes += pageSize;
        traffic.writes += *page == previous + 1 ? 0 : 1;
        previous = *page;
    }
    pages.erase(begin, end);
}

bool isCounted(int descriptor, struct stat &status)
{
    if (countedFolder.empty())
        return false;
    char path[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t length = ::readlink(link.c_str(), path, sizeof path);
    return length > 0 && std::string_view(path, static_cast<size_t>(length)).starts_with(countedFolder) &&
           ::fstat(descriptor, &status) == 0;
}

/// Marks what a write of some bytes to a file of this former size makes dirty.
void touch(const struct stat &before, qint64 offset, qint64 size)
{
    std::set<qint64> &pages = dirtyPages[before.st_ino];
    for (qint64 page = pageOf(std::min<qint64>(offset, before.st_size)); page <= pageOf(offset + size - 1);
         ++page)
        pages.insert(pages.end(), page);
}

template <typename Call>
ssize_t counted(int descriptor, qint64 offset, const Call &write)
{
    struct stat before = {};
    if (!isCounted(descriptor, before))
        return write();
    const ssize_t written = write();
    if (written > 0)
        touch(before, offset, written);
    return written;
}

/// Without a range: everything.
template <typename Call>
int waitedFor(int descriptor, const Call &sync)
{
    struct stat status = {};
    if (isCounted(descriptor, status)) {
        writeBack(dirtyPages[status.st_ino], 0, LLONG_MAX);
        ++traffic.waits;
    }
    return sync();
}

} // namespace

void countDrive(const char *folder)
{
    char path[PATH_MAX];
    countedFolder = ::realpath(folder, path) != nullptr ? path : folder;
}

DriveTraffic takeTraffic()
{
    for (auto &[file, pages] : dirtyPages)
        writeBack(pages, 0, LLONG_MAX);
    dirtyPages.clear();
    return std::exchange(traffic, {});
}

} // namespace Tessarin::Bench

// The calls by which the vault, and Qt below it, read and write.
extern "C" {

using namespace Tessarin::Bench;

#define FORWARD(name)                                                                                        \
    static const auto forward = reinterpret_cast<decltype(&::name)>(::dlsym(RTLD_NEXT, #name))

ssize_t write(int descriptor, const void *bytes, size_t size)
{
    FORWARD(write);
    return counted(descriptor, ::lseek64(descriptor, 0, SEEK_CUR),
                   [&] { return forward(descriptor, bytes, size); });
}

ssize_t pwrite64(int descriptor, const void *bytes, size_t size, off64_t offset)
{
    FORWARD(pwrite64);
    return counted(descriptor, offset, [&] { return forward(descriptor, bytes, size, offset); });
}

ssize_t read(int descriptor, void *bytes, size_t size)
{
    FORWARD(read);
    const ssize_t count = forward(descriptor, bytes, size);
    struct stat status = {};
    if (count > 0 && isCounted(descriptor, status))
        traffic.readBytes += count;
    return count;
}

ssize_t pread64(int descriptor, void *bytes, size_t size, off64_t offset)
{
    FORWARD(pread64);
    const ssize_t count = forward(descriptor, bytes, size, offset);
    struct stat status = {};
    if (count > 0 && isCounted(descriptor, status))
        traffic.readBytes += count;
    return count;
}

int ftruncate64(int descriptor, off64_t size) noexcept
{
    FORWARD(ftruncate64);
    struct stat before = {};
    if (isCounted(descriptor, before)) {
        std::set<qint64> &pages = dirtyPages[before.st_ino];
        pages.erase(pages.lower_bound(pageOf(size + pageSize - 1)), pages.end());
        if (size > before.st_size)
            touch(before, size - 1, 1);
    }
    return forward(descriptor, size);
}

int fsync(int descriptor)
{
    FORWARD(fsync);
    return waitedFor(descriptor, [&] { return forward(descriptor); });
}

int fdatasync(int descriptor)
{
    FORWARD(fdatasync);
    return waitedFor(descriptor, [&] { return forward(descriptor); });
}

int sync_file_range(int descriptor, off64_t offset, off64_t size, unsigned int flags)
{
    FORWARD(sync_file_range);
    struct stat status = {};
    if (isCounted(descriptor, status)) {
        const qint64 end = size == 0 ? LLONG_MAX : pageOf(offset + size + pageSize - 1);
        if ((flags & SYNC_FILE_RANGE_WRITE) != 0)
            writeBack(dirtyPages[status.st_ino], pageOf(offset), end);
        if ((flags & (SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WAIT_AFTER)) != 0)
            ++traffic.waits;
    }
    return forward(descriptor, offset, size, flags);
}

} // extern "C"
