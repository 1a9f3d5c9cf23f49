// Starts the program: who it is, its window, its event loop.
#include "ui/ApplicationIcon.h"
#include "ui/FileOpener.h"
#include "ui/MainWindow.h"
#include "ui/ProcessProtection.h"
#include "ui/QtTexts.h"
#include "ui/TerminationSignals.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    Tessarin::UI::keepMemoryPrivate();
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tessarin"));
    QApplication::setApplicationVersion(QStringLiteral(TESSARIN_VERSION));
    QApplication::setOrganizationName(QStringLiteral("Tessarin"));
    QApplication::setDesktopFileName(QStringLiteral("tessarin"));
    QApplication::setWindowIcon(Tessarin::UI::applicationIcon());

    // The program speaks Portuguese on every system, so Qt's own buttons and file dialogs have to as well.
    Tessarin::UI::QtTexts qtTexts;
    QApplication::installTranslator(&qtTexts);

    Tessarin::UI::MainWindow window;
    const Tessarin::UI::FileOpener opener;
    QObject::connect(&opener, &Tessarin::UI::FileOpener::failed, &window,
                     &Tessarin::UI::MainWindow::tellOfFailedOpening, Qt::QueuedConnection);
    const Tessarin::UI::TerminationSignals termination;
    QObject::connect(&termination, &Tessarin::UI::TerminationSignals::requested, &window,
                     &Tessarin::UI::MainWindow::closeSoon);
    QObject::connect(&application, &QGuiApplication::commitDataRequest, &window,
                     &Tessarin::UI::MainWindow::endSession);
    window.show();
    return QApplication::exec();
}
