// The static functions of QFileDialog would do, but for a folder that has the proposed name: they would open
// it and propose nothing.
#include "ui/FileDialogs.h"

#include "ui/Translated.h"

#include <QFileDialog>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QSettings>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

/// By its contents a container would go for a text.
class FileTypes final : public QFileIconProvider
{
public:
    QString type(const QFileInfo &file) const override
    {
        const bool isContainer = file.suffix().compare(u"trvx"_s, Qt::CaseInsensitive) == 0 && !file.isDir();
        return isContainer ? translated("Cofre do Tessarin") : QFileIconProvider::type(file);
    }
};

QStringList ask(QFileDialog &dialog)
{
    FileTypes types;
    dialog.setIconProvider(&types);
    // The dialog writes its settings when it is gone, and here nothing can be written.
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, u"/dev/null"_s);
    return dialog.exec() == QDialog::Accepted ? dialog.selectedFiles() : QStringList();
}

} // namespace

QString askForFile(QWidget *parent, const QString &title, const QString &directory, const QString &filter)
{
    QFileDialog dialog(parent, title, directory, filter);
    dialog.setFileMode(QFileDialog::ExistingFile);
    return ask(dialog).value(0);
}

QStringList askForFiles(QWidget *parent, const QString &title)
{
    QFileDialog dialog(parent, title);
    dialog.setFileMode(QFileDialog::ExistingFiles);
    return ask(dialog);
}

QString askForTarget(QWidget *parent, const QString &title, const QString &proposal, const QString &filter,
                     Overwriting overwriting)
{
    const QFileInfo proposed(proposal);
    QFileDialog dialog(parent, title, proposed.isAbsolute() ? proposed.path() : QString(), filter);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setOption(QFileDialog::DontConfirmOverwrite, overwriting == Overwriting::Allowed);
    dialog.selectFile(proposed.fileName());
    return ask(dialog).value(0);
}

} // namespace Tessarin::UI
