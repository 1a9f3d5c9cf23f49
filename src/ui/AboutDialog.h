// Names the version, the environment the program runs in, and the components it is made of.
#pragma once

#include <QDialog>
#include <QMap>
#include <QString>

class QListWidget;
class QTextEdit;

namespace Tessarin::UI {

class AboutDialog : public QDialog
{
    Q_OBJECT

public:
    explicit AboutDialog(QWidget *parent = nullptr);

private:
    void buildUi();
    void populateComponents();

    QMap<QString, QString> componentDetails; ///< By title.
    QListWidget *componentList = nullptr;
    QTextEdit *detailsView = nullptr;
};

} // namespace Tessarin::UI
