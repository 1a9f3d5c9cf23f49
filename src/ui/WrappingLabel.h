// Shows text that holds names of files.
#pragma once

#include <QLabel>

class QTextLayout;

namespace Tessarin::UI {

/// A label for plain text that breaks a word which is wider than the label: file names may have 255 letters
/// and no space.
class WrappingLabel final : public QLabel
{
    Q_OBJECT

public:
    static constexpr int textWidth = 420; ///< Preferred, in pixels.

    explicit WrappingLabel(QWidget *parent);

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override;
    [[nodiscard]] int heightForWidth(int width) const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    /// Breaks the text into lines of the given width in pixels; returns their height.
    qreal lay(QTextLayout &layout, int width) const;
};

} // namespace Tessarin::UI
