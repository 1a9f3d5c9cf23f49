// Starts the program: who it is, its window, its event loop.
#include "ui/MainWindow.h"
#include "ui/QtTexts.h"

#include <QApplication>
#include <QIcon>

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tessarin"));
    QApplication::setApplicationVersion(QStringLiteral(TESSARIN_VERSION));
    QApplication::setOrganizationName(QStringLiteral("Tessarin"));
    QApplication::setDesktopFileName(QStringLiteral("tessarin"));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/Tessarin.ico")));

    // The program speaks Portuguese on every system, so Qt's own buttons and file dialogs have to as well.
    Tessarin::UI::QtTexts qtTexts;
    QApplication::installTranslator(&qtTexts);

    Tessarin::UI::MainWindow window;
    window.show();
    return QApplication::exec();
}
