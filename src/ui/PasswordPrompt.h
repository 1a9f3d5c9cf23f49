// Asks for a vault's password.
#pragma once

#include "ui/PasswordField.h"

#include <QByteArray>
#include <QString>

class QWidget;

namespace Tessarin::UI {

/// UTF-8; empty when cancelled. The caller wipes it. `hadLineBreak` may be null; see PasswordField.
[[nodiscard]] QByteArray requestPassword(QWidget *parent, const QString &title,
                                         PasswordField::Purpose purpose = PasswordField::Purpose::Existing,
                                         bool *hadLineBreak = nullptr);

/// Asks twice for the password of a new vault. UTF-8; empty when cancelled, or refused, which it says. The
/// caller wipes it.
[[nodiscard]] QByteArray requestNewVaultPassword(QWidget *parent);

} // namespace Tessarin::UI
