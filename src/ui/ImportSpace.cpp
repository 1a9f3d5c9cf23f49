// A file that replaces another counts in full: the former one stays in the container until compaction.
#include "ui/ImportSpace.h"

#include "ui/FailureText.h"
#include "ui/Formatting.h"
#include "ui/MessageBoxes.h"
#include "ui/Translated.h"

#include <QFileInfo>
#include <QStorageInfo>

namespace Tessarin::UI {

bool confirmImportFitsStorage(QWidget *window, const QString &containerPath, const QStringList &sources)
{
    const QString title = translated("Importar arquivos");
    qint64 totalBytes = 0;
    for (const QString &source : sources) {
        const QFileInfo file(source);
        if (!file.isFile()) {
            showWarning(nullptr, title,
                        translated("O arquivo %1 não está disponível para importação.")
                            .arg(shownName(file.fileName())),
                        translated("Ele não existe mais ou não é um arquivo comum. Nada foi importado."));
            return false;
        }
        totalBytes += file.size();
    }

    const QStorageInfo storage(QFileInfo(containerPath).absolutePath());
    if (!storage.isReady()) {
        showWarning(nullptr, title,
                    translated("Não foi possível verificar o espaço livre da unidade do container."),
                    failureText(Core::Failure::DriveGone));
        return false;
    }
    const qint64 availableBytes = storage.bytesAvailable();
    const qint64 requiredBytes = requiredImportBytes(totalBytes);
    if (requiredBytes > availableBytes) {
        showWarning(
            nullptr, translated("Espaço insuficiente"),
            translated(
                "Não há espaço livre suficiente na unidade do container.\n\nArquivos selecionados: %1\n"
                "Espaço livre disponível: %2\n\nLibere espaço na unidade USB ou selecione arquivos "
                "menores.")
                .arg(formatFileSize(totalBytes), formatFileSize(availableBytes)));
        return false;
    }
    const qint64 remainingBytes = availableBytes - requiredBytes;
    if (remainingBytes >= lowSpaceBytes)
        return true;
    return questionYesNo(
        window, translated("Espaço livre reduzido"),
        translated("A importação deixará pouco espaço livre na unidade do container.\n\nArquivos "
                   "selecionados: %1\nEspaço livre restante estimado: %2\n\nDeseja continuar?")
            .arg(formatFileSize(totalBytes), formatFileSize(remainingBytes)));
}

} // namespace Tessarin::UI
