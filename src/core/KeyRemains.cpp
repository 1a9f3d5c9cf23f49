// The search for the text of headers in the gaps between blocks.
#include "core/KeyRemains.h"

#include "core/ContainerFormat.h"
#include "core/SecureFileIndex.h"

#include <QFileDevice>

#include <algorithm>
#include <array>
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

QByteArray readRange(QFileDevice &file, qint64 begin, qint64 end)
{
    return file.seek(begin) ? file.read(end - begin) : QByteArray();
}

/// Overwrites the text around a name.
bool wipeTextAround(QFileDevice &file, qint64 name, Range gap)
{
    const qint64 begin = std::max(gap.first, name - mostText);
    const QByteArray bytes = readRange(file, begin, std::min(gap.second, name + mostText));
    if (bytes.size() < name - begin)
        return false;
    const auto middle = bytes.cbegin() + (name - begin);
    const auto last = std::find_if_not(middle, bytes.cend(), isText);
    auto first = std::find_if_not(std::make_reverse_iterator(middle), bytes.crend(), isText).base();
    // A block that ends in what looks like text is not part of it.
    const qsizetype start = QByteArrayView(first, last).first(middle - first).lastIndexOf("{\"magic\"");
    if (start >= 0)
        first += start;
    return first == last || (file.seek(begin + (first - bytes.cbegin())) &&
                             file.write(QByteArray(last - first, '\0')) == last - first);
}

/// What cannot be read is overwritten as well, where it is certain that nothing refers to it.
bool wipeGap(QFileDevice &file, Range gap, bool isFree)
{
    constexpr qint64 pageSize = 4096;
    constexpr qint64 overlap = 32; // A name may lie across the border of two chunks.
    for (qint64 offset = gap.first; offset < gap.second;) {
        const QByteArray chunk = readRange(file, offset, std::min(gap.second, offset + chunkSize));
        if (chunk.isEmpty()) {
            const qint64 unreadable = std::min(pageSize - offset % pageSize, gap.second - offset);
            if (!isFree || !file.seek(offset) || file.write(QByteArray(unreadable, '\0')) != unreadable)
                return false;
            offset += unreadable;
            continue;
        }
        for (const QByteArrayView name : names) {
            for (qsizetype at = chunk.indexOf(name); at >= 0; at = chunk.indexOf(name, at + 1)) {
                if (!wipeTextAround(file, offset + at, gap))
                    return false;
            }
        }
        const qint64 end = offset + chunk.size();
        offset = end < gap.second ? std::max(offset + 1, end - overlap) : end;
    }
    return true;
}

} // namespace

bool wipeKeyRemains(QFileDevice &container, const SecureFileIndex *index)
{
    QList<Range> blocks;
    if (index != nullptr) {
        for (const VaultFileEntry &file : index->entries()) {
            for (const VaultFileBlock &block : file.blocks)
                blocks.append({block.offset, block.offset + block.encryptedSize});
        }
    }
    const qint64 end = container.size();
    blocks.append({end, end});
    std::sort(blocks.begin(), blocks.end());
    qint64 gapBegin = ContainerFormat::blockAreaOffset;
    for (const auto &[blockBegin, blockEnd] : std::as_const(blocks)) {
        if (gapBegin < blockBegin &&
            !wipeGap(container, {gapBegin, std::min(blockBegin, end)}, index != nullptr)) {
            return false;
        }
        gapBegin = std::max(gapBegin, blockEnd);
    }
    return true;
}

} // namespace Tessarin::Core
