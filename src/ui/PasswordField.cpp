// A line break that comes along when a password is pasted would become part of it, unseen: nobody could type
// that password.
#include "ui/PasswordField.h"

#include "core/VaultManager.h"
#include "platform/CapsLock.h"
#include "ui/Painting.h"
#include "ui/Translated.h"

#include <QAction>
#include <QEvent>
#include <QIcon>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPainterPath>
#include <QPalette>
#include <QValidator>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

constexpr int eyeSize = 16;
constexpr char lineBreakProperty[] = "hadLineBreak";

bool isControlCharacter(QChar character)
{
    const QChar::Category category = character.category();
    return category == QChar::Other_Control || category == QChar::Separator_Line ||
           category == QChar::Separator_Paragraph;
}

class WithoutControlCharacters final : public QValidator
{
public:
    using QValidator::QValidator;

    State validate(QString &text, int &cursor) const override
    {
        if (std::ranges::none_of(text, isControlCharacter))
            return Acceptable; // Without a copy of the password.
        if (text.endsWith(u'\n'))
            parent()->setProperty(lineBreakProperty, true);
        cursor -= static_cast<int>(std::ranges::count_if(text.first(cursor), isControlCharacter));
        text.removeIf(isControlCharacter);
        return Acceptable;
    }
};

/// An eye, crossed out while the password shows.
QIcon eyeIcon(const QColor &color, bool crossedOut)
{
    return paintedPixmap(eyeSize, [&](QPainter &painter) {
        painter.setPen(QPen(color, 1.3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        QPainterPath lids(QPointF(1, 8));
        lids.quadTo(8, 1.5, 15, 8);
        lids.quadTo(8, 14.5, 1, 8);
        painter.drawPath(lids);
        painter.setBrush(color);
        painter.drawEllipse(QPointF(8, 8), 1.9, 1.9);
        if (crossedOut)
            painter.drawLine(QPointF(2.5, 14), QPointF(13.5, 2));
    });
}

} // namespace

PasswordField::PasswordField(QLineEdit *lineEdit, Purpose purpose, QLabel *capsLockLabel)
    : QObject(lineEdit), field(lineEdit), warning(capsLockLabel)
{
    field->setValidator(new WithoutControlCharacters(field));
    if (purpose == Purpose::New) {
        rule = translated("Pelo menos %1 caracteres").arg(Core::VaultManager::minimumPasswordLength);
        field->setPlaceholderText(rule);
        field->setAccessibleDescription(rule);
        // Dark colours of some desktops come with a dark one for it.
        QPalette palette = field->palette();
        QColor grey = palette.color(QPalette::Text);
        grey.setAlphaF(0.65F);
        palette.setColor(QPalette::PlaceholderText, grey);
        field->setPalette(palette);
    }
    addEye();
    field->installEventFilter(this);
}

bool PasswordField::hadLineBreak(const QLineEdit &lineEdit)
{
    return lineEdit.property(lineBreakProperty).toBool();
}

void PasswordField::addEye()
{
    auto *eye = new QAction(field);
    eye->setObjectName(u"showPasswordAction"_s);
    eye->setCheckable(true);
    eye->setShortcut(Qt::CTRL | Qt::Key_M);
    eye->setShortcutContext(Qt::WidgetShortcut);
    field->addAction(eye, QLineEdit::TrailingPosition);
    connect(eye, &QAction::toggled, this, [this, eye](bool readable) {
        const QString text = readable ? translated("Ocultar a senha") : translated("Mostrar a senha");
        eye->setText(text);
        eye->setToolTip(u"%1 (%2)"_s.arg(text, eye->shortcut().toString(QKeySequence::NativeText)));
        eye->setIcon(eyeIcon(field->palette().color(QPalette::Text), readable));
        show(readable);
    });
    Q_EMIT eye->toggled(false);
}

void PasswordField::show(bool readable)
{
    field->setEchoMode(readable ? QLineEdit::Normal : QLineEdit::Password);
    // Readable or not, no input method is to learn it.
    field->setInputMethodHints(field->inputMethodHints() | Qt::ImhSensitiveData | Qt::ImhNoPredictiveText |
                               Qt::ImhNoAutoUppercase);
}

bool PasswordField::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::KeyPress || event->type() == QEvent::KeyRelease)
        warnOfCapsLock(static_cast<QKeyEvent *>(event));
    else if (event->type() == QEvent::FocusIn)
        warnOfCapsLock(nullptr);
    return QObject::eventFilter(watched, event);
}

void PasswordField::warnOfCapsLock(const QKeyEvent *event)
{
    const std::optional<bool> isOn = Platform::isCapsLockOn(event);
    if (!isOn)
        return;
    warning->setText(*isOn ? translated("A tecla Caps Lock está ligada.") : QString());
    warning->setVisible(*isOn);
    // A change of the description is read out.
    field->setAccessibleDescription(*isOn ? warning->text() : rule);
}

QLabel *makeCapsLockLabel(QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setObjectName(u"capsLockLabel"_s);
    label->hide();
    return label;
}

} // namespace Tessarin::UI
