// The keys for the table, which takes no focus itself: they come from whatever has it.
#pragma once

#include <QObject>

class QKeyEvent;

namespace Tessarin::UI {

class OperationGuard;
class VaultBrowser;

class TableKeys : public QObject
{
    Q_OBJECT

public:
    /// Both are members or children of the window that the keys belong to.
    TableKeys(VaultBrowser *table, const OperationGuard &operations);

    /// Takes the keys of a widget that has no use for them while a vault is open.
    void listenTo(QWidget *widget);

Q_SIGNALS:
    void renameRequested();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool take(const QKeyEvent &key);
    bool takeOnce(const QKeyEvent &key);
    [[nodiscard]] bool isRepeated(const QKeyEvent &key) const;

    VaultBrowser *browser;
    const OperationGuard &guard;
    int releasedKey = 0; ///< The last one, and when.
    quint64 releasedAtMs = 0;
};

} // namespace Tessarin::UI
