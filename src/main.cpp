// Starts the program: who it is, its window, its event loop.
#include "ui/MainWindow.h"

#include <QApplication>
#include <QIcon>
#include <QLibraryInfo>
#include <QTranslator>

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tessarin"));
    QApplication::setApplicationVersion(QStringLiteral(TESSARIN_VERSION));
    QApplication::setOrganizationName(QStringLiteral("Tessarin"));
    QApplication::setDesktopFileName(QStringLiteral("tessarin"));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/Tessarin.ico")));

    // The program speaks Portuguese on every system, so Qt's own buttons and file dialogs have to as well.
    QTranslator qtTexts;
    if (qtTexts.load(QStringLiteral("qtbase_pt_BR"), QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
        QApplication::installTranslator(&qtTexts);

    Tessarin::UI::MainWindow window;
    window.show();
    return QApplication::exec();
}
