// The least that a program with a window can be: what starting Tessarin is compared with.
#include <QApplication>
#include <QMainWindow>
#include <QMenuBar>

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QMainWindow window;
    QMenu *menu = window.menuBar()->addMenu(QStringLiteral("Arquivo"));
    menu->addAction(QStringLiteral("Sair"), &window, &QMainWindow::close);
    window.resize(960, 600);
    window.show();
    return QApplication::exec();
}
