// Asks for the current password and, twice, for the new one.
#pragma once

#include <QByteArray>
#include <QDialog>

class QLineEdit;

namespace Tessarin::UI {

class ChangePasswordDialog : public QDialog
{
    Q_OBJECT

public:
    explicit ChangePasswordDialog(QWidget *parent = nullptr);
    ~ChangePasswordDialog() override;

    /// UTF-8 bytes of the fields. The caller wipes them.
    [[nodiscard]] QByteArray currentPassword() const;
    [[nodiscard]] QByteArray newPassword() const;
    /// Of the current one; see PasswordField.
    [[nodiscard]] bool hadLineBreak() const;

public Q_SLOTS:
    /// Accepts when all three fields are in order; otherwise says what is not and stays.
    void validateAndAccept();

private:
    QLineEdit *currentPasswordEdit = nullptr;
    QLineEdit *newPasswordEdit = nullptr;
    QLineEdit *confirmationEdit = nullptr;
};

} // namespace Tessarin::UI
