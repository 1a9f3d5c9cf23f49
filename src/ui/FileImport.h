// Imports local files into a folder of the vault, one after the other, under one progress display.
#pragma once

#include "ui/Outcome.h"

#include <QCoreApplication>
#include <QMap>
#include <QStringList>

#include <functional>

class QWidget;

namespace Tessarin::Core {
class VaultManager;
}

namespace Tessarin::UI {

class ProgressDialog;

class FileImport
{
    Q_DECLARE_TR_FUNCTIONS(Tessarin::UI::MainWindow)

public:
    /// Asked for a file that the vault has already, by its vault path; false leaves that file as it is.
    using ConfirmReplacement = std::function<bool(const QString &vaultPath)>;

    /// The parent of the dialogs, and the vault; both outlive this.
    FileImport(QWidget *dialogParent, Core::VaultManager &session, const ConfirmReplacement &question)
        : parent(dialogParent), vault(session), confirmReplacement(question)
    {
    }

    /// After a file that cannot be imported the next one follows; what failed is told at the end.
    [[nodiscard]] Outcome run(const QStringList &sources, const QString &directory);

private:
    void importOne(const QString &source, const QString &target, ProgressDialog &progress);
    /// Puts what was imported so far in force.
    void endSeries();
    /// Those of the imported files that the vault does not have after all, now that the drive has answered.
    [[nodiscard]] QStringList lostFiles() const;
    void fail(const QString &fileName, const QString &reason);
    /// One for each reason, with all the files that failed for it.
    [[nodiscard]] QList<Notice> warnings() const;

    QWidget *parent;
    Core::VaultManager &vault;
    ConfirmReplacement confirmReplacement;
    QStringList imported;               ///< Vault paths.
    QMap<QString, QString> importedIds; ///< By vault path; the path alone may name the file from before.
    QString endReason;                  ///< Why imported files were lost.
    struct Failed
    {
        QString reason;
        QStringList fileNames;
    };
    QList<Failed> failed; ///< In the order in which the reasons came up.
};

} // namespace Tessarin::UI
