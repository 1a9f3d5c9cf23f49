// Starts the program: who it is, its window, its event loop.
#include "platform/FileOpener.h"
#include "platform/ProcessProtection.h"
#include "platform/TerminationSignals.h"
#include "ui/ApplicationIcon.h"
#include "ui/MainWindow.h"
#include "ui/QtTexts.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    Tessarin::Platform::keepMemoryPrivate();
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tessarin"));
    QApplication::setApplicationVersion(QStringLiteral(TESSARIN_VERSION));
    QApplication::setOrganizationName(QStringLiteral("Tessarin"));
    QApplication::setDesktopFileName(QStringLiteral("tessarin"));
    QApplication::setWindowIcon(Tessarin::UI::windowIcon());

    // The program speaks Portuguese on every system, so Qt's own buttons and file dialogs have to as well.
    Tessarin::UI::QtTexts qtTexts;
    QApplication::installTranslator(&qtTexts);

    Tessarin::UI::MainWindow window;
    const Tessarin::Platform::FileOpener opener;
    QObject::connect(&opener, &Tessarin::Platform::FileOpener::failed, &window,
                     &Tessarin::UI::MainWindow::reportFailedOpening, Qt::QueuedConnection);
    const Tessarin::Platform::TerminationSignals termination;
    QObject::connect(&termination, &Tessarin::Platform::TerminationSignals::requested, &window,
                     &Tessarin::UI::MainWindow::closeSoon);
    QObject::connect(&application, &QGuiApplication::commitDataRequest, &window,
                     &Tessarin::UI::MainWindow::endSession);
    window.show();
    return QApplication::exec();
}
