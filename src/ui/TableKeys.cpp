// What a key that is held down repeats is moving around, and nothing else.
#include "ui/TableKeys.h"

#include "ui/OperationGuard.h"
#include "ui/VaultBrowser.h"

#include <QEvent>
#include <QKeyEvent>

namespace Tessarin::UI {

TableKeys::TableKeys(VaultBrowser *table, const OperationGuard &operations)
    : QObject(table), browser(table), guard(operations)
{
}

void TableKeys::listenTo(QWidget *widget)
{
    widget->installEventFilter(this);
}

bool TableKeys::eventFilter(QObject *, QEvent *event)
{
    switch (event->type()) {
    case QEvent::KeyRelease:
        releasedKey = static_cast<QKeyEvent *>(event)->key();
        releasedAtMs = static_cast<QKeyEvent *>(event)->timestamp();
        return false;
    case QEvent::ShortcutOverride:
        // What is accepted here starts no action.
        event->setAccepted(isRepeated(*static_cast<QKeyEvent *>(event)));
        return event->isAccepted();
    case QEvent::KeyPress:
        return !guard.isRunning() && browser->isUnlocked() && take(*static_cast<QKeyEvent *>(event));
    default:
        return false;
    }
}

/// An X server repeats a key as releases and presses in pairs, of one instant each; Qt takes the press for a
/// new one where it has not arrived with the release.
bool TableKeys::isRepeated(const QKeyEvent &key) const
{
    constexpr quint64 mostMsInPair = 10;
    return key.isAutoRepeat() || (key.key() == releasedKey && key.timestamp() > 0 &&
                                  key.timestamp() - releasedAtMs <= mostMsInPair);
}

bool TableKeys::take(const QKeyEvent &key)
{
    const Qt::KeyboardModifiers modifiers = key.modifiers() & ~Qt::KeypadModifier;
    if (modifiers == Qt::ShiftModifier && key.key() == Qt::Key_F10)
        return browser->requestMenu(), true;
    if ((modifiers & ~Qt::ShiftModifier) != Qt::NoModifier)
        return false;

    switch (key.key()) {
    case Qt::Key_Up:
    case Qt::Key_Down:
    case Qt::Key_PageUp:
    case Qt::Key_PageDown:
    case Qt::Key_Home:
    case Qt::Key_End:
        browser->moveSelection(static_cast<Qt::Key>(key.key()));
        return true;
    default:
        break;
    }
    if (takeOnce(key))
        return true;
    const bool isText = !key.text().isEmpty() && key.text().front().isPrint();
    if (isText)
        browser->selectByName(key.text());
    return isText;
}

bool TableKeys::takeOnce(const QKeyEvent &key)
{
    const bool isFirst = !isRepeated(key);
    switch (key.key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (isFirst)
            browser->activateSelection();
        return true;
    case Qt::Key_Backspace:
        if (isFirst && !browser->currentDirectory().isEmpty())
            browser->navigateToParentDirectory();
        return true;
    case Qt::Key_F2:
        if (isFirst)
            Q_EMIT renameRequested();
        return true;
    case Qt::Key_Menu:
        if (isFirst)
            browser->requestMenu();
        return true;
    default:
        return false;
    }
}

} // namespace Tessarin::UI
