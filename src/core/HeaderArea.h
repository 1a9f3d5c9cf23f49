// The bytes before the blocks, as a value: magic, length line, header, zeros. No other code reads
// or composes them; docs/container-format.md shows them.
#pragma once

#include "core/ContainerFormat.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>

#include <optional>

class QIODevice;

namespace Tessarin::Core {

/// Whole pages of a file, or what of them lies before the blocks; offsets in bytes.
struct PageRange
{
    qint64 begin = 0;
    qint64 end = 0;
};

class HeaderArea
{
public:
    /// The kernel's cache sends a file to the drive page by page.
    static constexpr qint64 pageSize = 4096;

    /// The area with this header, laid out as this program writes it.
    explicit HeaderArea(QByteArrayView header);

    /// Reads as much as the length line says. Empty when the file ends before its header area; an area
    /// without a header when that cannot be read in part, the file does not begin as a container does, or the
    /// length makes no sense: it may be a torn one.
    [[nodiscard]] static std::optional<HeaderArea> read(QIODevice &container);

    /// The JSON; empty when it could not be read.
    [[nodiscard]] QByteArrayView header() const;

    /// Where the blocks begin.
    [[nodiscard]] qint64 blockAreaOffset() const;
    /// False where the length line is another than this program writes: the header cannot be rewritten there.
    [[nodiscard]] bool hasUsualLayout() const;

    /// What lies between two offsets: bytes up to the end of the header, then zeros.
    [[nodiscard]] QByteArray bytesOf(PageRange range) const;
    /// The pages that hold the magic, the length line and the header.
    [[nodiscard]] PageRange pages() const;
    /// The pages that turn another area into this one.
    [[nodiscard]] QList<PageRange> pagesChangedFrom(const HeaderArea &former) const;

private:
    HeaderArea() = default;
    [[nodiscard]] QByteArrayView textIn(PageRange range) const;

    QByteArray text; ///< Up to the end of the header.
    qint64 prologueSize = ContainerFormat::headerAreaOffset;
};

/// The end of the page in which an offset lies; an offset at a border is one.
[[nodiscard]] constexpr qint64 pageBorderFrom(qint64 offset)
{
    return (offset + HeaderArea::pageSize - 1) / HeaderArea::pageSize * HeaderArea::pageSize;
}

/// Reads from an offset on; fewer bytes at the end of the file, and where some cannot be read. Nothing
/// lies before its start.
[[nodiscard]] QByteArray readAt(QIODevice &file, qint64 offset, qint64 sizeBytes);

} // namespace Tessarin::Core
