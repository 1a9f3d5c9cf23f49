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

void show(QMessageBox &box, const QString &details)
{
    box.setInformativeText(details);
    // setTextFormat() alone would leave the details to be guessed at.
    const QList<QLabel *> labels = box.findChildren<QLabel *>();
    for (QLabel *label : labels)
        label->setTextFormat(Qt::PlainText);
    breakWideWords(box);
    box.exec();
}

bool question(QWidget *parent, const QString &title, const QString &text, const QString &details,
              const QString &acceptText, const QString &rejectText)
{
    QMessageBox box(QMessageBox::Question, title, text, QMessageBox::NoButton, parent);
    const QPushButton *acceptButton = box.addButton(acceptText, QMessageBox::AcceptRole);
    QPushButton *rejectButton = box.addButton(rejectText, QMessageBox::RejectRole);
    box.setDefaultButton(rejectButton);
    box.setEscapeButton(rejectButton);
    show(box, details);
    return box.clickedButton() == acceptButton;
}

} // namespace

void showWarning(QWidget *parent, const QString &title, const QString &text, const QString &details)
{
    QMessageBox box(QMessageBox::Warning, title, text, QMessageBox::Ok, parent);
    show(box, details);
}

void showInformation(QWidget *parent, const QString &title, const QString &text, const QString &details)
{
    QMessageBox box(QMessageBox::Information, title, text, QMessageBox::Ok, parent);
    show(box, details);
}

bool questionYesNo(QWidget *parent, const QString &title, const QString &text, const QString &details)
{
    return question(parent, title, text, details, QCoreApplication::translate("MessageBoxes", "Sim"),
                    QCoreApplication::translate("MessageBoxes", "Não"));
}

bool questionOther(QWidget *parent, const QString &title, const QString &text, const QString &details,
                   const QString &otherText, const QString &defaultText)
{
    return question(parent, title, text, details, otherText, defaultText);
}

bool questionContinueCancel(QWidget *parent, const QString &title, const QString &text,
                            const QString &details)
{
    return question(parent, title, text, details, QCoreApplication::translate("MessageBoxes", "Continuar"),
                    QCoreApplication::translate("MessageBoxes", "Cancelar"));
}

} // namespace Tessarin::UI
