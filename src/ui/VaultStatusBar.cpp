// Widths are fixed, so that the bar stays as it is whatever the texts.
#include "ui/VaultStatusBar.h"

#include "core/ContainerFormat.h"
#include "ui/Formatting.h"

#include <QDate>
#include <QFileInfo>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

constexpr int boxWidth = 180;
constexpr int separatorWidth = 1;

QString boxStyle()
{
    return u"QLabel { font-size: 11px; padding-left: 4px; padding-right: 4px; }"_s;
}

QLabel *makeLabel(QWidget *parent, const QString &name, int width, const QString &styleSheet)
{
    auto *label = new QLabel(parent);
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText);
    label->setAlignment(Qt::AlignCenter);
    label->setStyleSheet(styleSheet);
    label->setFixedWidth(width);
    return label;
}

} // namespace

VaultStatusBar::VaultStatusBar(QWidget *parent) : QStatusBar(parent)
{
    setObjectName(u"statusBar"_s);
    setSizeGripEnabled(false);

    QWidget *containerBox = makeContainerBox();
    QLabel *versionLabel = makeLabel(this, u"versionLabel"_s, boxWidth, boxStyle());
    versionLabel->setText(tr("Versão %1").arg(QStringLiteral(TESSARIN_VERSION)));
    QLabel *dateLabel = makeLabel(this, u"dateLabel"_s, 78, u"QLabel { font-size: 11px; }"_s);
    dateLabel->setText(QDate::currentDate().toString(u"dd/MM/yyyy"));
    vaultIndicatorLabel = makeLabel(this, u"vaultIndicatorLabel"_s, 50, {});
    vaultIndicatorLabel->setText(tr("COFRE"));

    addPermanentWidget(containerBox);
    addPermanentWidget(versionLabel);
    addPermanentWidget(dateLabel);
    addPermanentWidget(vaultIndicatorLabel);
}

QWidget *VaultStatusBar::makeContainerBox()
{
    auto *box = new QWidget(this);
    box->setObjectName(u"containerBox"_s);
    box->setFixedWidth(boxWidth);
    auto *separator = new QFrame(box);
    separator->setObjectName(u"statusSeparator"_s);
    separator->setFixedWidth(separatorWidth);
    separator->setStyleSheet(u"QFrame { background-color: #c8c8c8; }"_s);
    containerLabel = makeLabel(box, u"containerLabel"_s, boxWidth - separatorWidth, boxStyle());
    containerLabel->setText(tr("Container: nenhum"));

    auto *layout = new QHBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(separator);
    layout->addWidget(containerLabel, 1);
    return box;
}

void VaultStatusBar::showContainer(const QString &containerPath)
{
    QString containerName = tr("nenhum");
    if (!containerPath.isEmpty()) {
        const QString fileName = QFileInfo(containerPath).fileName();
        const bool isDefault = fileName == QLatin1String(Core::ContainerFormat::defaultFileName);
        containerName = isDefault ? tr("Tessarin") : shownName(fileName);
    }
    const QString fullText = tr("Container: %1").arg(containerName);
    // Before the window is first shown the label's style sheet, and so its font, is not yet in force.
    containerLabel->ensurePolished();
    containerLabel->setText(
        containerLabel->fontMetrics().elidedText(fullText, Qt::ElideMiddle, containerLabel->width() - 8));
    containerLabel->setToolTip(plainToolTip(fullText));
    containerLabel->setAccessibleName(fullText); // Unlike the text, not cut.
}

void VaultStatusBar::showVaultState(bool unlocked)
{
    vaultIndicatorLabel->setAccessibleName(vaultStateText(unlocked));
    const QString style =
        u"QLabel { background-color: %1; color: #000000; font-size: 11px; font-weight: 600; "
        "padding-left: 4px; padding-right: 4px; }"_s.arg(unlocked ? u"#7bd88f" : u"#f06a6a");
    if (vaultIndicatorLabel->styleSheet() != style) // Qt takes it for a new one whenever it is set.
        vaultIndicatorLabel->setStyleSheet(style);
}

} // namespace Tessarin::UI
