// What every field for a password has in common: it hides what is typed, shows it on request, keeps out what
// nobody can type, and warns of Caps Lock.
#pragma once

#include <QObject>

class QKeyEvent;
class QLabel;
class QLineEdit;

namespace Tessarin::UI {

class PasswordField : public QObject
{
    Q_OBJECT

public:
    enum class Purpose {
        Existing,
        New, ///< It says how long the password has to be.
    };

    /// Turns a line edit, which becomes the parent, into such a field. The warning is shown in a label that
    /// several fields may share.
    PasswordField(QLineEdit *lineEdit, Purpose purpose, QLabel *capsLockLabel);

    /// Whether a line break was pasted behind a password and kept out. Tessarin 1.0.5 took it in, so there
    /// may be vaults that open with it only.
    [[nodiscard]] static bool hadLineBreak(const QLineEdit &lineEdit);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void addEye();
    void show(bool readable);
    void warnOfCapsLock(const QKeyEvent *event);

    QLineEdit *field;
    QLabel *warning;
    QString rule; ///< For new passwords.
};

/// The label for the warning, to be put below the fields; hidden while there is nothing to warn of.
[[nodiscard]] QLabel *makeCapsLockLabel(QWidget *parent);

} // namespace Tessarin::UI
