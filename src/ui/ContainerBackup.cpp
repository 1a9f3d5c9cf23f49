// A backup counts only once the drive it is on has all of it.
#include "ui/ContainerBackup.h"

#include "core/HostFile.h"
#include "ui/Formatting.h"
#include "ui/ProgressDialog.h"
#include "ui/Translated.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

constexpr qint64 chunkBytes = 8 * 1024 * 1024;

QString proposedBackupPath()
{
    const QString stamp = QDateTime::currentDateTime().toString(u"yyyy-MM-dd_HHmm");
    return QDir::home().filePath(u"tessarin_backup_%1.trvx"_s.arg(stamp));
}

bool isContainerItself(const QString &destinationPath, const QString &containerPath)
{
    const auto cleaned = [](const QString &path) {
        return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    };
    // Links and other mount points give one file several names; opening it for writing would empty it.
    return cleaned(destinationPath) == cleaned(containerPath) ||
           Core::isSameFile(destinationPath, containerPath);
}

/// False when the copy is not complete, or may not be on its drive.
bool copyContainer(QWidget *parent, QFile &source, QFile &destination)
{
    ProgressDialog progress(
        parent, translated("Fazer backup"),
        translated("Copiando backup criptografado...\n\nO backup permanece protegido pela senha do "
                   "cofre."),
        Qt::WindowModal);
    const qint64 totalBytes = source.size();
    qint64 copiedBytes = 0;
    QByteArray chunk(chunkBytes, Qt::Uninitialized);
    for (;;) {
        const qint64 readBytes = source.read(chunk.data(), chunk.size());
        if (readBytes < 0 ||
            (readBytes > 0 && destination.write(chunk.constData(), readBytes) != readBytes)) {
            progress.finish();
            return false;
        }
        if (readBytes == 0)
            break;
        copiedBytes += readBytes;
        progress.report(copiedBytes, totalBytes,
                        translated("Copiando backup criptografado...\n%1 de %2")
                            .arg(formatFileSize(copiedBytes), formatFileSize(totalBytes)));
    }
    // A container that came up short, or grew meanwhile, is no copy to rely on.
    const bool complete = copiedBytes == totalBytes && Core::syncFile(destination);
    progress.finish();
    return complete;
}

} // namespace

Outcome backUpContainer(QWidget *parent, const QString &containerPath)
{
    Outcome outcome{.title = translated("Fazer backup")};
    if (!QFileInfo(containerPath).isFile()) {
        outcome.warnings = {{translated("O arquivo do container não foi encontrado.")}};
        return outcome;
    }

    const QString destinationPath = QFileDialog::getSaveFileName(
        parent, translated("Fazer backup do container"), proposedBackupPath(), containerFileFilter());
    if (destinationPath.isEmpty())
        return {};
    if (isContainerItself(destinationPath, containerPath)) {
        outcome.warnings = {{translated("Escolha um destino diferente do container original.")}};
        return outcome;
    }

    QFile source(containerPath);
    if (!source.open(QIODevice::ReadOnly)) {
        outcome.warnings = {{translated("Não foi possível abrir o container para backup.")}};
        return outcome;
    }
    QFile destination(destinationPath);
    if (!destination.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        outcome.warnings = {{translated("Não foi possível criar o arquivo de backup.")}};
        return outcome;
    }

    // Behind a link the partial file is the one that the link leads to.
    const QString writtenPath = QFileInfo(destinationPath).canonicalFilePath();
    const bool copied = copyContainer(parent, source, destination);
    source.close();
    destination.close();
    if (!copied) {
        QFile::remove(writtenPath);
        outcome.warnings = {{translated("Não foi possível concluir o backup.")}};
        outcome.status = translated("Falha ao fazer backup do container.");
        return outcome;
    }
    Core::syncDirectory(QFileInfo(writtenPath).absolutePath());
    outcome.status = translated("Backup do container concluído.");
    outcome.information = {translated(
        "Backup concluído com sucesso.\n\nO arquivo de backup é uma cópia criptografada do container "
        "e permanece protegido pela senha do cofre.")};
    return outcome;
}

} // namespace Tessarin::UI
