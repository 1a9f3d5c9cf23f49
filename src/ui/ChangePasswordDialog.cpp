// Asks for the current password and, twice, for the new one.
#include "ui/ChangePasswordDialog.h"

#include "core/Secret.h"
#include "core/VaultManager.h"
#include "ui/MessageBoxes.h"
#include "ui/PasswordField.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace Tessarin::UI {

namespace {

QLineEdit *addPasswordRow(QFormLayout *form, const QString &label, const QString &name,
                          PasswordField::Purpose purpose, QLabel *capsLockLabel)
{
    auto *edit = new QLineEdit;
    edit->setObjectName(name);
    edit->setMinimumWidth(260);
    new PasswordField(edit, purpose, capsLockLabel);
    form->addRow(label, edit);
    return edit;
}

} // namespace

ChangePasswordDialog::ChangePasswordDialog(QWidget *parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("changePasswordDialog"));
    setWindowTitle(tr("Alterar senha do cofre"));
    setModal(true);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(16);
    layout->setSizeConstraint(QLayout::SetFixedSize);

    auto *form = new QFormLayout;
    form->setSpacing(10);
    using Purpose = PasswordField::Purpose;
    QLabel *capsLockLabel = makeCapsLockLabel(this);
    const auto addRow = [=](const QString &label, const QString &name, Purpose purpose) {
        return addPasswordRow(form, label, name, purpose, capsLockLabel);
    };
    currentPasswordEdit =
        addRow(tr("Senha atual:"), QStringLiteral("currentPasswordEdit"), Purpose::Existing);
    newPasswordEdit = addRow(tr("Nova senha:"), QStringLiteral("newPasswordEdit"), Purpose::New);
    confirmationEdit =
        addRow(tr("Confirmar nova senha:"), QStringLiteral("confirmationEdit"), Purpose::Existing);
    layout->addLayout(form);
    layout->addWidget(capsLockLabel);

    auto *buttons = new QDialogButtonBox;
    QPushButton *acceptButton = buttons->addButton(tr("Alterar"), QDialogButtonBox::AcceptRole);
    acceptButton->setObjectName(QStringLiteral("acceptButton"));
    QPushButton *cancelButton = buttons->addButton(tr("Cancelar"), QDialogButtonBox::RejectRole);
    cancelButton->setObjectName(QStringLiteral("cancelButton"));
    layout->addWidget(buttons);
    acceptButton->setDefault(true); // a default that outlives a loss of focus needs the dialog as its parent

    connect(buttons, &QDialogButtonBox::accepted, this, &ChangePasswordDialog::validateAndAccept);
    connect(buttons, &QDialogButtonBox::rejected, this, &ChangePasswordDialog::reject);
}

ChangePasswordDialog::~ChangePasswordDialog()
{
    currentPasswordEdit->clear();
    newPasswordEdit->clear();
    confirmationEdit->clear();
}

QByteArray ChangePasswordDialog::currentPassword() const
{
    return currentPasswordEdit->text().toUtf8();
}

QByteArray ChangePasswordDialog::newPassword() const
{
    return newPasswordEdit->text().toUtf8();
}

bool ChangePasswordDialog::hadLineBreak() const
{
    return PasswordField::hadLineBreak(*currentPasswordEdit);
}

void ChangePasswordDialog::validateAndAccept()
{
    const auto refuse = [this](QLineEdit *edit, const QString &text) {
        showWarning(this, tr("Alterar senha"), text);
        edit->setFocus();
        edit->selectAll();
    };

    if (currentPasswordEdit->text().isEmpty()) {
        refuse(currentPasswordEdit, tr("Informe a senha atual."));
        return;
    }
    QByteArray password = newPassword();
    const Core::WipedAtScopeEnd wiped(password);
    if (!Core::VaultManager::isLongEnough(password)) {
        refuse(newPasswordEdit, tr("Use uma nova senha com pelo menos 12 caracteres."));
        return;
    }
    if (confirmationEdit->text() != newPasswordEdit->text()) {
        refuse(confirmationEdit, tr("A confirmação não coincide com a nova senha."));
        return;
    }
    accept();
}

} // namespace Tessarin::UI
