// Only the folder gives way when the line is too long: the counts stay readable.
#include "ui/ProtectedFilesLabel.h"

#include "ui/Formatting.h"

#include <QFontMetrics>
#include <QLayout>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

ProtectedFilesLabel::ProtectedFilesLabel(QWidget *parent) : QLabel(parent)
{
    setObjectName(u"protectedFilesLabel"_s);
    setTextFormat(Qt::PlainText);
    // A long folder name is cut off instead of widening the contents beyond the window.
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
}

void ProtectedFilesLabel::showNoVault()
{
    setText(tr("Nenhum cofre em uso (aberto)"));
    setToolTip({});
    setAccessibleName(text());
}

void ProtectedFilesLabel::showFolder(const QString &directory, qsizetype fileCount)
{
    QString countText = tr("%1 arquivos no cofre.").arg(fileCount);
    if (fileCount == 0)
        countText = tr("O cofre está vazio.");
    else if (fileCount == 1)
        countText = tr("1 arquivo no cofre.");
    const QString folder = directory.isEmpty() ? tr("Raiz") : shownName(directory);
    const QString line = tr("Arquivos protegidos | Pasta: %1 | %2");

    // Its own width would be that of the last layout.
    const QMargins margins = parentWidget()->layout()->contentsMargins();
    const int room = parentWidget()->width() - margins.left() - margins.right() -
                     fontMetrics().horizontalAdvance(line.arg(QString(), countText));
    const QString shownFolder = fontMetrics().elidedText(folder, Qt::ElideMiddle, room);
    setText(line.arg(shownFolder, countText));
    setToolTip(shownFolder == folder ? QString() : plainToolTip(folder));
    setAccessibleName(line.arg(folder, countText));
}

} // namespace Tessarin::UI
