// Asks which folder of the vault a file goes to.
#pragma once

#include "core/SecureFileIndex.h"

#include <QDialog>
#include <QStringList>

class QComboBox;

namespace Tessarin::UI {

/// The folders a file in `sourceDirectory` can move to: the root (empty) unless the file is there already,
/// then every other folder by path, letter case ignored.
[[nodiscard]] QStringList moveDestinations(const Core::SecureFileIndex &index,
                                           const QString &sourceDirectory);

class MoveFileDialog : public QDialog
{
    Q_OBJECT

public:
    MoveFileDialog(const QString &fileName, const QStringList &destinations, QWidget *parent);

    /// The chosen folder; empty is the root.
    [[nodiscard]] QString destination() const;

private:
    QComboBox *destinationBox = nullptr;
};

} // namespace Tessarin::UI
