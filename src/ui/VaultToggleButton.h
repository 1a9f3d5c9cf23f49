// The padlock beside the drives: it shows whether the vault is open, and locks or unlocks it.
#pragma once

#include <QToolButton>

namespace Tessarin::UI {

class VaultToggleButton final : public QToolButton
{
    Q_OBJECT

public:
    /// A square with sides of that many pixels.
    VaultToggleButton(int side, QWidget *parent);

    /// `enabled`: whether pressing it could change the state.
    void showState(bool unlocked, bool enabled);

Q_SIGNALS:
    /// The button was pressed, by mouse, or toggled by a screen reader.
    void toggleRequested();

protected:
    void mouseDoubleClickEvent(QMouseEvent *event) override;

private:
    void request();

    bool isShownUnlocked = false;
    bool isShownEnabled = false;
};

} // namespace Tessarin::UI
