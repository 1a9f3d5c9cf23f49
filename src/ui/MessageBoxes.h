// The boxes that speak to people. Every text is plain: a file may be called "<img src=x>".
#pragma once

#include <QString>

class QWidget;

namespace Tessarin::UI {

/// `details` may follow the text, as a paragraph of its own.
void showWarning(QWidget *parent, const QString &title, const QString &text, const QString &details = {});
void showInformation(QWidget *parent, const QString &title, const QString &text, const QString &details = {});

/// "Sim" or "Não"; true only for "Sim". "Não" is the default and what closing the box means.
[[nodiscard]] bool questionYesNo(QWidget *parent, const QString &title, const QString &text,
                                 const QString &details = {});

/// "Continuar" or "Cancelar"; true only for "Continuar", with "Cancelar" the default.
[[nodiscard]] bool questionContinueCancel(QWidget *parent, const QString &title, const QString &text,
                                          const QString &details = {});

/// Two ways to go on; true for the other one. Closing the box means the default.
[[nodiscard]] bool questionOther(QWidget *parent, const QString &title, const QString &text,
                                 const QString &details, const QString &otherText,
                                 const QString &defaultText);

} // namespace Tessarin::UI
