// Names the version, the environment the program runs in, and the components it is made of.
#include "ui/AboutDialog.h"

#include "ui/ApplicationIcon.h"
#include "ui/Contrast.h"
#include "ui/WebAddresses.h"
#include "ui/WindowGeometry.h"

#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLibraryInfo>
#include <QListWidget>
#include <QPushButton>
#include <QScreen>
#include <QStyledItemDelegate>
#include <QSysInfo>
#include <QTextDocument>
#include <QTextEdit>
#include <QVBoxLayout>

#include <sodium.h>

#include <algorithm>

namespace Tessarin::UI {

namespace {

constexpr QColor titleColor(0x0b, 0x4f, 0x8a);
constexpr int headerIconSize = 56;
constexpr int initialWidth = 560;
constexpr int initialHeight = 560;

/// Sets the rows of the component list close together.
class CompactListItemDelegate final : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        return {QStyledItemDelegate::sizeHint(option, index).width(), option.fontMetrics.height() + 3};
    }
};

QWidget *buildHeader(QWidget *parent)
{
    auto *header = new QWidget(parent);
    auto *iconLabel = new QLabel(header);
    iconLabel->setObjectName(QStringLiteral("iconLabel"));
    iconLabel->setAccessibleName(AboutDialog::tr("Ícone do Tessarin"));
    iconLabel->setPixmap(applicationIcon().pixmap(headerIconSize));

    auto *titleLabel = new QLabel(AboutDialog::tr("Tessarin"), header);
    titleLabel->setObjectName(QStringLiteral("titleLabel"));
    QFont titleFont = titleLabel->font();
    titleFont.setBold(true);
    titleFont.setPointSizeF(titleFont.pointSizeF() * 2);
    titleLabel->setFont(titleFont);
    titleLabel->setStyleSheet(QStringLiteral("color: #0B4F8A;"));

    auto *layout = new QHBoxLayout(header);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(14);
    layout->addWidget(iconLabel);
    layout->addWidget(titleLabel, 1);

    QPalette palette = header->palette();
    if (!isReadable(titleColor, palette.color(QPalette::Window))) {
        palette.setColor(QPalette::Window, lightGround);
        header->setPalette(palette);
        header->setAutoFillBackground(true);
        layout->setContentsMargins(8, 8, 8, 8);
    }
    return header;
}

/// The desktop's, where it can be read. A link is known by its line, too.
QColor linkColor(const QPalette &palette)
{
    const QColor link = palette.color(QPalette::Link);
    return isReadable(link, palette.color(QPalette::Window)) ? link : palette.color(QPalette::WindowText);
}

QLabel *buildProductLabel(QWidget *parent)
{
    const QString version = AboutDialog::tr("Versão %1").arg(QCoreApplication::applicationVersion());
    const QString maker = AboutDialog::tr("Desenvolvido pela %1.")
                              .arg(QStringLiteral("<a href=\"%1\" style=\"color: %2\">%3</a>")
                                       .arg(makerWebPage(), linkColor(parent->palette()).name(),
                                            AboutDialog::tr("equipe do Tessarin")));
    auto *label = new QLabel(parent);
    label->setObjectName(QStringLiteral("productLabel"));
    label->setTextFormat(Qt::RichText);
    label->setText(QStringLiteral("<b>%1</b><br>%2<br>%3")
                       .arg(AboutDialog::tr("Tessarin"), version.toHtmlEscaped(), maker));
    label->setOpenExternalLinks(true);
    label->setTextInteractionFlags(Qt::TextBrowserInteraction);
    return label;
}

QLabel *buildEnvironmentLabel(QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setObjectName(QStringLiteral("environmentLabel"));
    label->setTextFormat(Qt::PlainText);
    label->setText(AboutDialog::tr("Ambiente de execução\n%1\nQt %2\n%3")
                       .arg(QSysInfo::prettyProductName(), QString::fromLatin1(qVersion()),
                            QSysInfo::currentCpuArchitecture()));
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

} // namespace

AboutDialog::AboutDialog(QWidget *parent) : QDialog(parent)
{
    buildUi();
    populateComponents();
}

void AboutDialog::buildUi()
{
    setObjectName(QStringLiteral("aboutDialog"));
    setWindowTitle(tr("Sobre o Tessarin"));
    setModal(true);

    componentList = new QListWidget;
    componentList->setObjectName(QStringLiteral("componentList"));
    componentList->setAccessibleName(tr("Componentes e bibliotecas relevantes"));
    componentList->setStyleSheet(QStringLiteral("QListWidget::item { padding: 0px; margin: 0px; }"));
    componentList->setItemDelegate(new CompactListItemDelegate(componentList));
    componentList->setFixedHeight(4 * (componentList->fontMetrics().height() + 3) +
                                  2 * componentList->frameWidth());

    detailsView = new QTextEdit;
    detailsView->setObjectName(QStringLiteral("detailsView"));
    detailsView->setAccessibleName(tr("Detalhes do componente"));
    detailsView->setReadOnly(true);
    detailsView->setStyleSheet(QStringLiteral("QTextEdit { padding: 0px; }"));
    detailsView->document()->setDocumentMargin(0);
    detailsView->setMinimumHeight(4 * detailsView->fontMetrics().lineSpacing());

    auto *noticeLabel = new QLabel(tr(
        "Aviso: este programa de computador é protegido por leis de direitos autorais e tratados "
        "internacionais. A reprodução ou distribuição não autorizada deste programa, ou de qualquer parte "
        "dele, poderá resultar em severas punições civis e criminais, e os infratores serão punidos dentro "
        "do máximo rigor permitido por lei."));
    noticeLabel->setObjectName(QStringLiteral("noticeLabel"));
    noticeLabel->setWordWrap(true);

    auto *buttons = new QDialogButtonBox;
    QPushButton *closeButton = buttons->addButton(tr("Fechar"), QDialogButtonBox::RejectRole);
    closeButton->setObjectName(QStringLiteral("closeButton"));

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(8);
    layout->addWidget(buildHeader(this));
    auto *facts = new QHBoxLayout;
    facts->addWidget(buildProductLabel(this), 1, Qt::AlignTop);
    facts->addWidget(buildEnvironmentLabel(this), 1, Qt::AlignTop);
    layout->addLayout(facts);
    layout->addSpacing(4);
    layout->addWidget(new QLabel(tr("Componentes e bibliotecas relevantes:")));
    layout->addWidget(componentList);
    layout->addWidget(new QLabel(tr("Detalhes do componente:")));
    layout->addWidget(detailsView, 1);
    layout->addWidget(noticeLabel);
    layout->addWidget(buttons);

    connect(componentList, &QListWidget::currentTextChanged, this,
            [this](const QString &title) { detailsView->setPlainText(componentDetails.value(title)); });
    connect(buttons, &QDialogButtonBox::rejected, this, &AboutDialog::close);

    // Only the layout knows how many lines the notice takes in this font.
    const QSize preferred(initialWidth, std::max(initialHeight, layout->minimumHeightForWidth(initialWidth)));
    resize(dialogSize(preferred, screen()->availableGeometry().size()));
}

void AboutDialog::populateComponents()
{
    const QString qtVersion = QString::fromLatin1(qVersion());
    componentDetails.insert(tr("Qt 6 Core/Widgets - %1").arg(qtVersion),
                            tr("Qt Framework\nMódulos usados pelo Tessarin: Qt Core e Qt "
                               "Widgets.\n%1\nPrefixo de instalação do Qt "
                               "detectado em tempo de execução:\n%2")
                                    .arg(tr("Versão do Qt em execução: %1").arg(qtVersion),
                                         QLibraryInfo::path(QLibraryInfo::PrefixPath)) +
                                tr("\n\nO Qt é oferecido sob licença comercial e sob licenças de código "
                                   "aberto (LGPLv3 ou GPLv3). Ao "
                                   "distribuir binários do Qt com esta aplicação, cumpra os termos da "
                                   "licença escolhida e preserve "
                                   "os avisos de direitos autorais e de licença do Qt."));
    componentDetails.insert(
        tr("libsodium - %1").arg(QString::fromLatin1(sodium_version_string())),
        tr("libsodium\nBiblioteca criptográfica usada para suporte a Argon2id e "
           "XChaCha20-Poly1305.\nLicença: ISC "
           "License.\nCopyright (c) 2013-2019 Frank Denis\nO aviso da licença ISC deve ser preservado ao "
           "distribuir binários da libsodium com esta aplicação."));
    componentDetails.insert(tr("Microsoft Visual C++ Runtime"),
                            tr("Microsoft Visual C++ Runtime\nBibliotecas de runtime exigidas por builds "
                               "produzidos com Microsoft "
                               "Visual Studio/MSVC.\nA distribuição deve seguir os termos de licença "
                               "aplicáveis do Microsoft Visual "
                               "C++ Redistributable para a versão do runtime enviada com a aplicação."));
    componentDetails.insert(
        tr("Microsoft Windows APIs"),
        tr("Microsoft Windows APIs\nO Tessarin usa APIs do Windows para detecção de unidades removíveis e "
           "integração nativa com a área de trabalho no Windows. Essas APIs fazem parte da plataforma do "
           "sistema "
           "operacional."));

    componentList->addItems(componentDetails.keys());
    componentList->setCurrentRow(0);
}

} // namespace Tessarin::UI
