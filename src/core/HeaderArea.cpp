// Parsing, composing and comparing what lies before the blocks.
#include "core/HeaderArea.h"

#include <QIODevice>

#include <algorithm>

namespace Tessarin::Core {

using namespace ContainerFormat;

namespace {

/// This program writes 21 bytes. Readers bear white space around the number, but not a line without end.
constexpr qint64 longestLengthLine = 255;

/// The number in a length line; 0 when it makes no sense.
qint64 headerLengthIn(const QByteArray &line)
{
    bool isNumber = false;
    const qint64 length = line.trimmed().toLongLong(&isNumber, 10);
    return isNumber && !line.contains('\0') && length <= headerAreaSize ? std::max(length, qint64(0)) : 0;
}

} // namespace

QByteArray readAt(QIODevice &file, qint64 offset, qint64 sizeBytes)
{
    return offset >= 0 && file.seek(offset) ? file.read(sizeBytes) : QByteArray();
}

HeaderArea::HeaderArea(QByteArrayView header)
{
    text.append(fileMagic, fileMagicSize);
    text += QByteArray::number(header.size()).rightJustified(lengthDigits, '0');
    text += '\n';
    text += header;
}

std::optional<HeaderArea> HeaderArea::read(QIODevice &container)
{
    HeaderArea area;
    const QByteArray beginning = readAt(container, 0, pageSize);
    const QByteArray line =
        beginning.mid(fileMagicSize, beginning.mid(fileMagicSize, longestLengthLine).indexOf('\n') + 1);
    const qint64 length = beginning.startsWith(fileMagic) ? headerLengthIn(line) : 0;
    if (length > 0)
        area.prologueSize = fileMagicSize + line.size();
    if (container.size() < area.blockAreaOffset())
        return {};
    if (length == 0)
        return area;

    const qint64 end = area.prologueSize + length;
    const QByteArray text = readAt(container, 0, end);
    if (text.size() == end)
        area.text = text;
    return area;
}

QByteArrayView HeaderArea::header() const
{
    return text.isEmpty() ? QByteArrayView() : QByteArrayView(text).sliced(prologueSize);
}

qint64 HeaderArea::blockAreaOffset() const
{
    return prologueSize + headerAreaSize;
}

bool HeaderArea::hasUsualLayout() const
{
    return prologueSize == headerAreaOffset;
}

QByteArrayView HeaderArea::textIn(PageRange range) const
{
    const qint64 begin = std::min(range.begin, text.size());
    return QByteArrayView(text).sliced(begin, std::min(range.end, text.size()) - begin);
}

QByteArray HeaderArea::bytesOf(PageRange range) const
{
    QByteArray bytes = textIn(range).toByteArray();
    return bytes.append(range.end - range.begin - bytes.size(), '\0');
}

PageRange HeaderArea::pages() const
{
    return {0, std::min(pageBorderFrom(text.size()), blockAreaOffset())};
}

QList<PageRange> HeaderArea::pagesChangedFrom(const HeaderArea &former) const
{
    QList<PageRange> changed;
    const qint64 end = std::max(pages().end, former.pages().end);
    for (qint64 page = 0; page < end; page += pageSize) {
        const PageRange range{page, std::min(page + pageSize, end)};
        if (textIn(range) == former.textIn(range))
            continue;
        if (!changed.isEmpty() && changed.last().end == page)
            changed.last().end = range.end;
        else
            changed.append(range);
    }
    return changed;
}

} // namespace Tessarin::Core
