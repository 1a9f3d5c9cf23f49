// Typed passwords stay in as few places as Qt's input fields allow.
#include "ui/PasswordPrompt.h"

#include "core/Secret.h"
#include "core/VaultManager.h"
#include "ui/MessageBoxes.h"
#include "ui/Translated.h"

#include <QBoxLayout>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

QByteArray requestPassword(QWidget *parent, const QString &title, PasswordField::Purpose purpose,
                           bool *hadLineBreak)
{
    QInputDialog dialog(parent);
    dialog.setObjectName(u"passwordDialog"_s);
    dialog.setWindowTitle(title);
    dialog.setInputMode(QInputDialog::TextInput);
    dialog.setLabelText(translated("Senha:"));
    dialog.setTextEchoMode(QLineEdit::Password);
    const int height = dialog.sizeHint().height(); // Asking for it also fills the dialog.
    QLabel *capsLockLabel = makeCapsLockLabel(&dialog);
    auto *field = dialog.findChild<QLineEdit *>();
    static_cast<QBoxLayout *>(dialog.layout())
        ->insertWidget(dialog.layout()->indexOf(field) + 1, capsLockLabel);
    new PasswordField(field, purpose, capsLockLabel);
    // This dialog's field has the hints of the dialog instead of its own.
    dialog.setInputMethodHints(Qt::ImhHiddenText | Qt::ImhSensitiveData | Qt::ImhNoPredictiveText |
                               Qt::ImhNoAutoUppercase);
    dialog.resize(360, height);
    const bool accepted = dialog.exec() == QDialog::Accepted;
    QByteArray password = accepted ? dialog.textValue().toUtf8() : QByteArray();
    if (hadLineBreak)
        *hadLineBreak = PasswordField::hadLineBreak(*field);
    dialog.setTextValue({});
    return password;
}

QByteArray requestNewVaultPassword(QWidget *parent)
{
    QByteArray password =
        requestPassword(parent, translated("Definir senha do cofre"), PasswordField::Purpose::New);
    if (password.isEmpty())
        return {};
    QByteArray confirmation = requestPassword(parent, translated("Confirmar senha do cofre"));
    const Core::WipedAtScopeEnd wipedConfirmation(confirmation);

    if (confirmation != password) {
        Core::wipe(password);
        showWarning(nullptr, translated("Tessarin"), translated("As senhas informadas não coincidem."));
        return {};
    }
    if (!Core::VaultManager::isLongEnough(password)) {
        Core::wipe(password);
        showWarning(nullptr, translated("Tessarin"),
                    translated("Use uma senha com pelo menos 12 caracteres para criar o cofre."));
        return {};
    }
    return password;
}

} // namespace Tessarin::UI
