// The bar at the bottom: messages at the left, and at the right which container is chosen, the version, the
// date and whether the vault is open.
#pragma once

#include <QStatusBar>

class QLabel;

namespace Tessarin::UI {

class VaultStatusBar final : public QStatusBar
{
    Q_OBJECT

public:
    explicit VaultStatusBar(QWidget *parent);

    /// The container's name without its folder; an empty path means that none is chosen.
    void showContainer(const QString &containerPath);
    void showVaultState(bool unlocked);

private:
    [[nodiscard]] QWidget *makeContainerBox();

    QLabel *containerLabel = nullptr;
    QLabel *vaultIndicatorLabel = nullptr;
};

} // namespace Tessarin::UI
