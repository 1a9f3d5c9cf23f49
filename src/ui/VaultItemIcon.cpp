// The icons of the vault table: what the desktop offers, and small painted pages for the types that icon
// themes tend to draw alike or not at all.
#include "ui/VaultItemIcon.h"

#include "ui/Painting.h"

#include <QApplication>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QFont>
#include <QPainter>
#include <QPen>
#include <QPixmap>
#include <QPolygonF>
#include <QStyle>

#include <algorithm>
#include <initializer_list>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {
namespace {

struct Placeholder
{
    QLatin1StringView label;
    std::initializer_list<QLatin1StringView> suffixes;
    QColor band;
};

const Placeholder *placeholderFor(const QString &suffix)
{
    static const Placeholder placeholders[] = {
        {"KEY"_L1, {"key"_L1, "pem"_L1}, QColor(31, 115, 92)},
        {"SIG"_L1, {"sig"_L1, "asc"_L1}, QColor(112, 80, 160)},
        {"CRT"_L1, {"crt"_L1, "cer"_L1, "csr"_L1}, QColor(184, 113, 24)},
        {"ENC"_L1, {"encrypted"_L1}, QColor(69, 92, 122)},
        {"TXT"_L1, {"txt"_L1, "log"_L1}, QColor(90, 90, 90)},
        {"AUD"_L1, {"mp3"_L1, "wav"_L1, "flac"_L1, "ogg"_L1, "m4a"_L1}, QColor(37, 99, 180)},
        {"IMG"_L1, {"jpg"_L1, "jpeg"_L1, "png"_L1, "gif"_L1, "bmp"_L1, "webp"_L1}, QColor(31, 132, 141)},
    };
    for (const Placeholder &placeholder : placeholders) {
        if (std::ranges::find(placeholder.suffixes, suffix) != placeholder.suffixes.end())
            return &placeholder;
    }
    return nullptr;
}

/// A page with a folded corner and a coloured band; every length is in pixels.
QIcon paintedPlaceholder(const Placeholder &placeholder)
{
    return paintedPixmap(22, [&](QPainter &painter) {
        painter.setPen(QPen(QColor(172, 172, 172), 1.0));
        painter.setBrush(Qt::white);
        painter.drawRoundedRect(QRectF(4.0, 1.5, 14.0, 18.5), 1.5, 1.5);

        painter.setPen(QPen(QColor(190, 190, 190), 1.0));
        painter.setBrush(QColor(237, 237, 237));
        painter.drawPolygon(QPolygonF({QPointF(14.0, 1.5), QPointF(18.0, 5.5), QPointF(14.0, 5.5)}));

        painter.setPen(Qt::NoPen);
        painter.setBrush(placeholder.band);
        painter.drawRoundedRect(QRectF(2.5, 11.0, 17.0, 8.5), 1.8, 1.8);

        QFont font;
        font.setWeight(QFont::Bold);
        font.setPixelSize(6);
        painter.setFont(font);
        painter.setPen(QPen(Qt::white, 1.0));
        painter.drawText(QRectF(2.5, 10.6, 17.0, 8.8), Qt::AlignCenter, placeholder.label);
    });
}

/// A desktop without an icon theme has nothing to offer for most files; the style always has a picture.
QIcon orStandardIcon(const QIcon &icon, QStyle::StandardPixmap standard)
{
    return icon.isNull() ? QApplication::style()->standardIcon(standard) : icon;
}

QIcon desktopFileIcon(const QFileIconProvider &provider, const QString &suffix)
{
    if (suffix.isEmpty())
        return provider.icon(QFileIconProvider::File);
    return provider.icon(QFileInfo(u"tessarin-placeholder.%1"_s.arg(suffix)));
}

} // namespace

QIcon vaultItemIcon(VaultTableItemKind kind, const QString &vaultPath)
{
    if (kind == VaultTableItemKind::ParentDirectory)
        return QApplication::style()->standardIcon(QStyle::SP_ArrowUp);

    static const QFileIconProvider provider;
    if (kind == VaultTableItemKind::Directory)
        return orStandardIcon(provider.icon(QFileIconProvider::Folder), QStyle::SP_DirIcon);

    const QString suffix = QFileInfo(vaultPath).suffix().toLower();
    if (const Placeholder *placeholder = placeholderFor(suffix))
        return paintedPlaceholder(*placeholder);
    return orStandardIcon(desktopFileIcon(provider, suffix), QStyle::SP_FileIcon);
}

} // namespace Tessarin::UI
