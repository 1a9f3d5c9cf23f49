// The line above the table: which folder is on show, and how many files the whole vault has.
#pragma once

#include <QLabel>

namespace Tessarin::UI {

class ProtectedFilesLabel final : public QLabel
{
    Q_OBJECT

public:
    explicit ProtectedFilesLabel(QWidget *parent);

    void showNoVault();

    /// A folder that is too long for the line is cut in its middle. The accessible name has the whole text.
    void showFolder(const QString &directory, qsizetype fileCount);
};

} // namespace Tessarin::UI
