// The boxes that speak to people.
#include "ui/MessageBoxes.h"

#include <QCoreApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

namespace Tessarin::UI {

namespace {

void showBox(QMessageBox::Icon icon, QWidget *parent, const QString &title, const QString &text,
             const QString &details)
{
    QMessageBox box(icon, title, text, QMessageBox::Ok, parent);
    box.setInformativeText(details);
    // setTextFormat() alone would leave the details to be guessed at.
    const QList<QLabel *> labels = box.findChildren<QLabel *>();
    for (QLabel *label : labels)
        label->setTextFormat(Qt::PlainText);
    box.exec();
}

bool question(QWidget *parent, const QString &title, const QString &text, const QString &acceptText,
              const QString &rejectText)
{
    QMessageBox box(QMessageBox::Question, title, text, QMessageBox::NoButton, parent);
    box.setTextFormat(Qt::PlainText);
    const QPushButton *acceptButton = box.addButton(acceptText, QMessageBox::AcceptRole);
    QPushButton *rejectButton = box.addButton(rejectText, QMessageBox::RejectRole);
    box.setDefaultButton(rejectButton);
    box.setEscapeButton(rejectButton);
    box.exec();
    return box.clickedButton() == acceptButton;
}

} // namespace

void showWarning(QWidget *parent, const QString &title, const QString &text, const QString &details)
{
    showBox(QMessageBox::Warning, parent, title, text, details);
}

void showInformation(QWidget *parent, const QString &title, const QString &text)
{
    showBox(QMessageBox::Information, parent, title, text, {});
}

bool questionYesNo(QWidget *parent, const QString &title, const QString &text)
{
    return question(parent, title, text, QCoreApplication::translate("MessageBoxes", "Sim"),
                    QCoreApplication::translate("MessageBoxes", "Não"));
}

bool questionContinueCancel(QWidget *parent, const QString &title, const QString &text)
{
    return question(parent, title, text, QCoreApplication::translate("MessageBoxes", "Continuar"),
                    QCoreApplication::translate("MessageBoxes", "Cancelar"));
}

} // namespace Tessarin::UI
