// The state is shown three times over: by the picture, by whether the button is down, and in words.
#include "ui/VaultToggleButton.h"

#include "ui/Formatting.h"
#include "ui/PadlockIcon.h"

#include <QSignalBlocker>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

constexpr int borderWidth = 1; ///< In the style sheet, too.

} // namespace

VaultToggleButton::VaultToggleButton(int side, QWidget *parent) : QToolButton(parent)
{
    const QSize square(side, side);
    setObjectName(u"vaultToggleButton"_s);
    setCheckable(true);
    setFocusPolicy(Qt::NoFocus);
    setFixedSize(square);
    setIconSize(square);
    setStyleSheet(u"QToolButton { border: 1px solid #d0d0d0; border-radius: 4px; background: #f7f7f7; }"
                  "QToolButton:hover:enabled { background: #eeeeee; border-color: #b8b8b8; }"
                  "QToolButton:pressed:enabled { background: #e2e2e2; }"
                  "QToolButton:disabled { background: #f1f1f1; border-color: #dedede; }"_s);
    connect(this, &QToolButton::clicked, this, &VaultToggleButton::request);
    // A screen reader toggles the button without a click. After one, there is nothing left to do here.
    const auto takeSilentToggle = [this] {
        if (isChecked() != isShownUnlocked)
            request();
    };
    connect(this, &QToolButton::toggled, this, takeSilentToggle, Qt::QueuedConnection);
}

void VaultToggleButton::request()
{
    Q_EMIT toggleRequested();
    // The click itself has toggled the button, whatever became of the request.
    const QSignalBlocker blocker(this);
    setChecked(isShownUnlocked);
}

void VaultToggleButton::mouseDoubleClickEvent(QMouseEvent *)
{
    // Else its second click would undo the first.
}

void VaultToggleButton::showState(bool unlocked, bool enabled)
{
    // After most operations it shows the right state already.
    if (!icon().isNull() && unlocked == isShownUnlocked && unlocked == isChecked() &&
        enabled == isShownEnabled)
        return;
    isShownUnlocked = unlocked;
    isShownEnabled = enabled;
    const QSignalBlocker blocker(this);
    setEnabled(enabled);
    setChecked(unlocked);
    // Any larger, it would be scaled down to the room that the border leaves.
    setIcon(padlockIcon(unlocked, enabled, iconSize().width() - 2 * borderWidth));

    QString purpose = tr("Selecione um container para desbloquear o cofre.");
    if (unlocked)
        purpose = tr("Bloquear cofre");
    else if (enabled)
        purpose = tr("Desbloquear cofre");
    setToolTip(purpose);
    setAccessibleName(purpose);
    setAccessibleDescription(vaultStateText(unlocked));
}

} // namespace Tessarin::UI
