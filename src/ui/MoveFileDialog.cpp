// Asks which folder of the vault a file goes to.
#include "ui/MoveFileDialog.h"

#include "core/VaultPath.h"
#include "ui/Formatting.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {
namespace {

/// A file name may have 255 characters without a place to break; the dialog stays this narrow, in pixels.
constexpr int maximumNameWidth = 360;
constexpr int visibleFolderCharacters = 40;

} // namespace

QStringList moveDestinations(const Core::SecureFileIndex &index, const QString &sourceDirectory)
{
    QStringList folders;
    for (const Core::VaultDirectoryEntry &entry : index.directories()) {
        if (!Core::vaultPathsEqual(entry.path, sourceDirectory))
            folders.append(entry.path);
    }
    std::ranges::stable_sort(folders, [](const QString &a, const QString &b) {
        return QString::compare(a, b, Qt::CaseInsensitive) < 0;
    });
    if (!sourceDirectory.isEmpty())
        folders.prepend(QString());
    return folders;
}

MoveFileDialog::MoveFileDialog(const QString &fileName, const QStringList &destinations, QWidget *parent)
    : QDialog(parent), destinationBox(new QComboBox(this))
{
    setWindowTitle(tr("Mover arquivo"));
    setModal(true);

    auto *label = new QLabel(this);
    label->setTextFormat(Qt::PlainText);
    const QString elidedName =
        fontMetrics().elidedText(shownName(fileName), Qt::ElideMiddle, maximumNameWidth);
    label->setText(tr("Mover %1 para:").arg(elidedName));
    if (elidedName != shownName(fileName))
        label->setToolTip(plainToolTip(shownName(fileName)));

    destinationBox->setObjectName(u"destinationBox"_s);
    destinationBox->setAccessibleName(tr("Pasta de destino"));
    destinationBox->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    destinationBox->setMinimumContentsLength(visibleFolderCharacters);
    destinationBox->view()->setTextElideMode(Qt::ElideMiddle);
    destinationBox->view()->setAccessibleName(destinationBox->accessibleName());
    for (const QString &folder : destinations)
        destinationBox->addItem(folder.isEmpty() ? tr("Raiz") : shownName(folder), folder);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)->setText(tr("Mover"));
    buttons->button(QDialogButtonBox::Cancel)->setText(tr("Cancelar"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(label);
    layout->addWidget(destinationBox);
    layout->addWidget(buttons);
}

QString MoveFileDialog::destination() const
{
    return destinationBox->currentData().toString();
}

} // namespace Tessarin::UI
