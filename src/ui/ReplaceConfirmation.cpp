// The file dialog's own question names neither the drive nor what is lost.
#include "ui/ReplaceConfirmation.h"

#include "core/ContainerFormat.h"
#include "ui/Formatting.h"
#include "ui/MessageBoxes.h"
#include "ui/Translated.h"

#include <QFile>
#include <QFileInfo>

namespace Tessarin::UI {

namespace {

/// Even one that is damaged, or of another version.
bool looksLikeContainer(const QString &path)
{
    const QByteArray beginning(Core::ContainerFormat::headerMagic);
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && file.read(beginning.size()) == beginning;
}

} // namespace

bool confirmReplacement(QWidget *parent, const QString &driveName, const QFileInfo &file)
{
    if (!file.exists())
        return true;
    const QString text =
        looksLikeContainer(file.filePath())
            ? translated("A unidade %1 já tem um cofre em %2 (%3, alterado em %4).\n\nTodos os arquivos "
                         "guardados nele serão perdidos para sempre. Deseja substituí-lo por um cofre novo, "
                         "vazio?")
            : translated("A unidade %1 já tem um arquivo chamado %2 (%3, alterado em %4).\n\nEle não parece "
                         "ser um cofre, e o seu conteúdo será perdido. Deseja substituí-lo por um cofre "
                         "novo?");
    return questionYesNo(parent, translated("Substituir cofre"),
                         text.arg(shownName(driveName), shownName(file.fileName()),
                                  formatFileSize(file.size()), formatFileDate(file.lastModified())));
}

} // namespace Tessarin::UI
