// How large the window's contents and the large dialogs are on a given screen.
#pragma once

#include <QSize>

#include <algorithm>

namespace Tessarin::UI {

/// 60 % of the screen's width, between 900 and 1152 pixels, in the shape 16:9, and no higher than the screen.
/// `available` is the screen without panels, in pixels; an empty size means that there is no screen.
[[nodiscard]] inline QSize centralWidgetSize(const QSize &available)
{
    if (available.isEmpty())
        return {960, 540};

    QSize size(1152, 648);
    if (6 * available.width() <= 11529) {
        const int width = std::max(900, 6 * available.width() / 10);
        size = {width, width * 9 / 16};
    }
    if (size.height() > available.height())
        size = {available.height() * 16 / 9, available.height()};
    return size;
}

/// `preferred`, or as much of it as a screen without panels has room for besides a window's frame, in pixels.
[[nodiscard]] inline QSize dialogSize(const QSize &preferred, const QSize &available)
{
    constexpr QSize frame(8, 40);
    return preferred.boundedTo(available - frame);
}

} // namespace Tessarin::UI
