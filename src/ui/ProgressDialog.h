// Shows long work that cannot be cancelled: it has no button and stays until finish(), whatever key or frame
// button is pressed. Its text is plain and keeps to the dialog's width.
#pragma once

#include <QProgressDialog>

namespace Tessarin::UI {

class ProgressDialog : public QProgressDialog
{
    Q_OBJECT

public:
    ProgressDialog(QWidget *parent, const QString &title, const QString &text, Qt::WindowModality modality);

    /// Sets the bar to done / total (0 when total is not positive) and the text, and lets events run.
    void report(qint64 doneBytes, qint64 totalBytes, const QString &text);

    /// Fills the bar and closes.
    void finish();

public Q_SLOTS:
    void reject() override;

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    bool finished = false;
};

} // namespace Tessarin::UI
