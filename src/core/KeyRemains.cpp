// The search for the text of headers in the gaps between blocks.
#include "core/KeyRemains.h"

#include "core/ContainerFormat.h"
#include "core/HeaderArea.h"
#include "core/HostFile.h"
#include "core/ProgressLabels.h"
#include "core/SecureFileIndex.h"

#include <QFileDevice>

#include <algorithm>
#include <array>
#include <functional>
#include <optional>
#include <utility>

namespace Tessarin::Core {

namespace {

constexpr qint64 chunkSize = 1024 * 1024;
/// A header's text, up to the index, has some 600 bytes.
constexpr qint64 mostText = 2048;

/// The wrapped key stands between these two. When sectors of a record are missing, one of them is still
/// beside what is left of it.
constexpr std::array names{QByteArrayView("\"encryptedMasterKey\""), QByteArrayView("\"encryptedIndex\"")};

using Range = std::pair<qint64, qint64>; ///< Begin and end, in bytes from the start of the file.

bool isText(char byte)
{
    return (byte >= ' ' && byte <= '~') || byte == '\n' || byte == '\r' || byte == '\t';
}

bool writeZeros(QFileDevice &file, qint64 begin, qint64 size)
{
    return file.seek(begin) && file.write(QByteArray(size, '\0')) == size;
}

/// Overwrites the text around a name, unless that has been done with another name in it.
bool wipeTextAround(QFileDevice &file, qint64 name, Range gap)
{
    const qint64 begin = std::max(gap.first, name - mostText);
    const QByteArray bytes = readAt(file, begin, std::min(gap.second, name + mostText) - begin);
    if (bytes.size() <= name - begin)
        return false;
    const auto middle = bytes.cbegin() + (name - begin);
    const auto last = std::find_if_not(middle, bytes.cend(), isText);
    auto first = std::find_if_not(std::make_reverse_iterator(middle), bytes.crend(), isText).base();
    // A block that ends in what looks like text is not part of it.
    const qsizetype start = QByteArrayView(first, last).first(middle - first).lastIndexOf("{\"magic\"");
    if (start != -1)
        first += start;
    return writeZeros(file, begin + (first - bytes.cbegin()), last - first);
}

bool wipeTextsIn(QFileDevice &file, const QByteArray &chunk, qint64 offset, Range gap)
{
    for (const QByteArrayView name : names) {
        for (qsizetype at = chunk.indexOf(name); at != -1; at = chunk.indexOf(name, at + 1)) {
            if (!wipeTextAround(file, offset + at, gap))
                return false;
        }
    }
    return true;
}

/// What cannot be read is overwritten as well, where it is certain that nothing refers to it.
bool wipeGap(QFileDevice &file, Range gap, bool isFree, const std::function<void(qint64 bytes)> &count)
{
    constexpr qint64 overlap = 32; // A name may lie across the border of two chunks.
    for (qint64 offset = gap.first; offset < gap.second;) {
        const QByteArray chunk = readAt(file, offset, std::min(gap.second - offset, chunkSize));
        const qint64 end = offset + chunk.size();
        qint64 next = end < gap.second ? std::max(offset + 1, end - overlap) : end;
        if (chunk.isEmpty()) {
            next = std::min(pageBorderFrom(offset + 1), gap.second);
            if (!isFree || !writeZeros(file, offset, next - offset))
                return false;
        } else if (!wipeTextsIn(file, chunk, offset, gap)) {
            return false;
        }
        count(next - offset);
        offset = next;
    }
    return true;
}

/// The places of the listed blocks, as far as they lie in the file, and an empty one at its end; sorted.
QList<Range> blockRanges(const SecureFileIndex *index, qint64 end)
{
    QList<Range> blocks{{end, end}};
    if (index == nullptr)
        return blocks;
    for (const VaultFileEntry &file : index->entries()) {
        for (const VaultFileBlock &block : file.blocks) {
            const qint64 begin = std::clamp(block.offset, qint64(0), end);
            const qint64 size = std::clamp(block.encryptedSize, qint64(0), end);
            blocks.append({begin, std::min(begin + size, end)});
        }
    }
    std::sort(blocks.begin(), blocks.end());
    return blocks;
}

/// What lies before each block, which may be nothing.
QList<Range> gapsBefore(const QList<Range> &blocks)
{
    QList<Range> gaps;
    qint64 begin = ContainerFormat::blockAreaOffset;
    for (const auto &[blockBegin, blockEnd] : blocks) {
        gaps.append({std::min(begin, blockBegin), blockBegin});
        begin = std::max(begin, blockEnd);
    }
    return gaps;
}

} // namespace

bool wipeKeyRemains(QFileDevice &container, const SecureFileIndex *index, const ProgressCallback &progress)
{
    const std::optional<qint64> size = sizeOf(container);
    if (!size)
        return false;
    const qint64 end = *size;
    const QList<Range> gaps = gapsBefore(blockRanges(index, end));
    dropCachedPages(container); // The cache may show zeros that the drive has not taken.
    qint64 totalBytes = 0;
    for (const auto &[gapBegin, gapEnd] : gaps)
        totalBytes += gapEnd - gapBegin;
    qint64 doneBytes = 0;
    const auto count = [&](qint64 bytes) {
        doneBytes += bytes;
        if (progress)
            progress(doneBytes, totalBytes, checkingLabel());
    };
    if (!std::all_of(gaps.cbegin(), gaps.cend(),
                     [&](Range gap) { return wipeGap(container, gap, index != nullptr, count); })) {
        return false;
    }
    // What is cut off stays on the drive until it is used again: it holds no key any more. Without a lock,
    // another program may be appending there.
    const qint64 newEnd = pageBorderFrom(gaps.last().first);
    return index == nullptr || newEnd >= end || takeLock(container) != FileLock::Taken ||
           (syncFile(container) && container.resize(newEnd));
}

} // namespace Tessarin::Core
