// A former backup that gives way is the last one until the new one is complete.
#include "ui/ContainerBackup.h"

#include "core/AtomicFile.h"
#include "core/HostFile.h"
#include "ui/FailureText.h"
#include "ui/FileCopy.h"
#include "ui/FileDialogs.h"
#include "ui/Formatting.h"
#include "ui/ProgressDialog.h"
#include "ui/Translated.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStorageInfo>
#include <QStringList>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

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

Core::Failure copyContainer(QWidget *parent, QFile &source, QFile &destination)
{
    ProgressDialog progress(
        parent, translated("Fazer backup"),
        translated("Copiando backup criptografado...\n\nO backup permanece protegido pela senha do "
                   "cofre."),
        Qt::WindowModal);
    const Core::Failure failure = copyFile(source, destination, [&](qint64 copiedBytes, qint64 totalBytes) {
        progress.report(copiedBytes, totalBytes,
                        translated("Copiando backup criptografado...\n%1 de %2")
                            .arg(formatFileSize(copiedBytes), formatFileSize(totalBytes)));
    });
    // Here the source is the container.
    return failure == Core::Failure::SourceUnreadable ? Core::Failure::DriveGone : failure;
}

/// Where a backup is written, and what is there now.
struct Destination
{
    explicit Destination(const QString &chosenPath)
        : path(chosenPath),
          existing(QFileInfo(chosenPath).canonicalFilePath()), // where a link leads
          freeBytes(QStorageInfo(QFileInfo(chosenPath).absolutePath()).bytesAvailable())
    {
    }

    [[nodiscard]] bool hasRoomFor(qint64 bytes) const
    {
        // What is no file, a pipe for example, takes no room; and not every system tells how much there is.
        const bool isUnknown = freeBytes < 0 || (existing.exists() && !existing.isFile());
        return isUnknown || freeBytes + existing.size() >= bytes;
    }

    /// A former backup stays as it is until the new one is complete.
    [[nodiscard]] bool hasRoomBeside(qint64 bytes) const { return existing.isFile() && freeBytes >= bytes; }

    QString path;
    QFileInfo existing;
    qint64 freeBytes;
};

/// The file is open; an incomplete one is deleted.
Core::Failure writeNew(QWidget *parent, QFile &source, QFile &file)
{
    // Behind a link the partial file is the one that the link leads to.
    const QString writtenPath = QFileInfo(file).canonicalFilePath();
    const Core::Failure failure = copyContainer(parent, source, file);
    const bool copied = failure == Core::Failure::None;
    file.close();
    // What is no file, a device for example, is not ours to delete.
    if (!copied && QFileInfo(writtenPath).isFile())
        QFile::remove(writtenPath);
    const bool isDurable = Core::syncDirectory(QFileInfo(writtenPath).absolutePath());
    return copied && !isDurable ? Core::Failure::TargetUnwritable : failure;
}

Core::Failure replaceFormer(QWidget *parent, QFile &source, const Destination &destination)
{
    Core::Failure failure = Core::Failure::None;
    const bool replaced = Core::writeAtomically(destination.existing.filePath(), [&](QFile &file) {
        failure = copyContainer(parent, source, file);
        return failure == Core::Failure::None;
    });
    return replaced || failure != Core::Failure::None ? failure : Core::Failure::TargetUnwritable;
}

} // namespace

Outcome backUpContainer(QWidget *parent, const QString &containerPath)
{
    const QString title = translated("Fazer backup");
    const auto refuse = [&](const QString &text, const QString &why = {}) {
        return Outcome{.title = title, .warnings = {{text, why}}};
    };
    if (!QFileInfo(containerPath).isFile())
        return refuse(translated("O arquivo do container não foi encontrado."),
                      failureText(Core::Failure::DriveGone));

    const QString destinationPath = askForTarget(parent, translated("Fazer backup do container"),
                                                 proposedBackupPath(), containerFileFilter());
    if (destinationPath.isEmpty())
        return {};
    if (isContainerItself(destinationPath, containerPath))
        return refuse(translated("Escolha um destino diferente do container original."));

    QFile source(containerPath);
    if (!source.open(QIODevice::ReadOnly))
        return refuse(translated("Não foi possível abrir o container para backup."),
                      failureText(Core::Failure::DriveGone));
    const Destination destination(destinationPath);
    const QString status = translated("Falha ao fazer backup do container.");
    if (!destination.hasRoomFor(source.size())) {
        Outcome outcome = refuse(
            translated("Não foi possível concluir o backup."),
            translated(
                "Não há espaço livre suficiente no destino: o backup ocupa %1. Nada foi gravado, e o que "
                "já estava lá continua como era. Libere espaço ou escolha outro destino.")
                .arg(formatFileSize(source.size())));
        outcome.status = status;
        return outcome;
    }

    const bool keepsFormer = destination.hasRoomBeside(source.size());
    Core::Failure failure = Core::Failure::None;
    if (keepsFormer) {
        failure = replaceFormer(parent, source, destination);
    } else {
        QFile file(destination.path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return refuse(translated("Não foi possível criar o arquivo de backup."),
                          failureText(Core::Failure::TargetUnwritable));
        failure = writeNew(parent, source, file);
    }
    if (failure != Core::Failure::None) {
        QStringList notes{failureText(failure)};
        if (keepsFormer)
            notes << translated("O backup anterior continua intacto.");
        return {.freeSpaceChanged = true,
                .title = title,
                .warnings = {{translated("Não foi possível concluir o backup."), notes.join(u"\n\n"_s)}},
                .status = status};
    }
    return {.freeSpaceChanged = true,
            .title = title,
            .status = translated("Backup do container concluído."),
            .information = {translated(
                "Backup concluído com sucesso.\n\nO arquivo de backup é uma cópia criptografada do container "
                "e permanece protegido pela senha do cofre.")}};
}

} // namespace Tessarin::UI
