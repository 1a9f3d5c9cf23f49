// Shows the help page that is compiled into the program.
#pragma once

#include <QDialog>

class QTextBrowser;

namespace Tessarin::UI {

class HelpDialog : public QDialog
{
    Q_OBJECT

public:
    explicit HelpDialog(QWidget *parent = nullptr);

private:
    void buildUi();
    void loadHelpContent();

    QTextBrowser *helpBrowser = nullptr;
};

} // namespace Tessarin::UI
