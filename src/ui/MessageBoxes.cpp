// The boxes that speak to people.
#include "ui/MessageBoxes.h"

#include "ui/WrappingLabel.h"

#include <QCoreApplication>
#include <QFontMetrics>
#include <QLabel>
#include <QLayout>
#include <QMessageBox>
#include <QPushButton>

#include <algorithm>
#include <memory>

namespace Tessarin::UI {

namespace {

bool hasWideWord(const QLabel &label)
{
    const QStringList words = label.text().simplified().split(u' ');
    return std::ranges::any_of(words, [&](const QString &word) {
        return label.fontMetrics().horizontalAdvance(word) > WrappingLabel::textWidth;
    });
}

/// The box's own labels would cut off a name that is wider than the box.
void breakWideWords(QMessageBox &box)
{
    const QList<QLabel *> labels = box.findChildren<QLabel *>();
    for (QLabel *label : labels) {
        if (!hasWideWord(*label))
            continue;
        auto *wrapping = new WrappingLabel(&box);
        wrapping->setText(label->text());
        const std::unique_ptr<QLayoutItem> old(box.layout()->replaceWidget(label, wrapping));
        label->hide();
    }
}

void showBox(QMessageBox::Icon icon, QWidget *parent, const QString &title, const QString &text,
             const QString &details)
{
    QMessageBox box(icon, title, text, QMessageBox::Ok, parent);
    box.setInformativeText(details);
    // setTextFormat() alone would leave the details to be guessed at.
    const QList<QLabel *> labels = box.findChildren<QLabel *>();
    for (QLabel *label : labels)
        label->setTextFormat(Qt::PlainText);
    breakWideWords(box);
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
    breakWideWords(box);
    box.exec();
    return box.clickedButton() == acceptButton;
}

} // namespace

void showWarning(QWidget *parent, const QString &title, const QString &text, const QString &details)
{
    showBox(QMessageBox::Warning, parent, title, text, details);
}

void showInformation(QWidget *parent, const QString &title, const QString &text, const QString &details)
{
    showBox(QMessageBox::Information, parent, title, text, details);
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
