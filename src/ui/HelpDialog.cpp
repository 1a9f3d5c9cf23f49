// Shows the help page that is compiled into the program.
#include "ui/HelpDialog.h"

#include "ui/WindowGeometry.h"

#include <QDialogButtonBox>
#include <QFile>
#include <QPushButton>
#include <QScreen>
#include <QTextBrowser>
#include <QVBoxLayout>

namespace Tessarin::UI {

HelpDialog::HelpDialog(QWidget *parent) : QDialog(parent)
{
    buildUi();
    loadHelpContent();
}

void HelpDialog::buildUi()
{
    setObjectName(QStringLiteral("helpDialog"));
    setWindowTitle(tr("Ajuda do Tessarin"));
    setModal(true);
    resize(dialogSize({820, 600}, screen()->availableGeometry().size()));

    auto *layout = new QVBoxLayout(this);
    helpBrowser = new QTextBrowser;
    helpBrowser->setObjectName(QStringLiteral("helpBrowser"));
    helpBrowser->setAccessibleName(tr("Página de ajuda"));
    helpBrowser->setOpenExternalLinks(true);
    helpBrowser->document()->setDocumentMargin(16);
    layout->addWidget(helpBrowser);

    auto *buttons = new QDialogButtonBox;
    QPushButton *closeButton = buttons->addButton(tr("Fechar"), QDialogButtonBox::RejectRole);
    closeButton->setObjectName(QStringLiteral("closeButton"));
    connect(buttons, &QDialogButtonBox::rejected, this, &HelpDialog::close);
    layout->addWidget(buttons);
}

void HelpDialog::loadHelpContent()
{
    QFile page(QStringLiteral(":/help/pt_BR/index.html"));
    if (page.open(QIODevice::ReadOnly | QIODevice::Text)) {
        helpBrowser->setHtml(QString::fromUtf8(page.readAll()));
        return;
    }
    helpBrowser->setHtml(tr("<h1>Ajuda indisponível</h1>"
                            "<p>Não foi possível carregar o arquivo de ajuda do Tessarin.</p>"));
}

} // namespace Tessarin::UI
