// Keeps text readable on whatever colours the desktop brings.
#pragma once

#include <QColor>

#include <algorithm>
#include <cmath>

namespace Tessarin::UI {

/// What small text needs at least, according to the Web Content Accessibility Guidelines, level AA.
inline constexpr double readableContrast = 4.5;

/// Goes under colours that are made for a light desktop.
inline constexpr QColor lightGround(0xf7, 0xf7, 0xf7);

/// From 1 (the same) to 21 (black and white), by the guidelines' formula.
[[nodiscard]] inline double contrast(const QColor &a, const QColor &b)
{
    const auto linear = [](float channel) {
        return channel <= 0.03928F ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
    };
    const auto luminance = [&](const QColor &color) {
        return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
               0.0722 * linear(color.blueF());
    };
    const auto [darker, lighter] = std::minmax({luminance(a), luminance(b)});
    return (lighter + 0.05) / (darker + 0.05);
}

[[nodiscard]] inline bool isReadable(const QColor &text, const QColor &background)
{
    return contrast(text, background) >= readableContrast;
}

} // namespace Tessarin::UI
