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
};

} // namespace Tessarin::UI
