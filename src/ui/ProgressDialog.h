// Shows long work that cannot be cancelled: it has no button and stays as long as it lives, whatever key or
// frame button is pressed. Its text is plain and keeps to the dialog's width.
#pragma once

#include "ui/WaitCursor.h"

#include <QElapsedTimer>
#include <QProgressDialog>

#include <functional>
#include <optional>

namespace Tessarin::UI {

class ProgressDialog : public QProgressDialog
{
    Q_OBJECT

public:
    /// Shows at once.
    ProgressDialog(QWidget *parent, const QString &title, const QString &text, Qt::WindowModality modality);

    /// For work that is long or short, as files are: the wait cursor at first, and the dialog at the first
    /// report after half a second, if there is more to come. Application-modal.
    ProgressDialog(QWidget *parent, const QString &title);

    /// Fills the bar and closes.
    ~ProgressDialog() override;
    Q_DISABLE_COPY_MOVE(ProgressDialog)

    /// Sets the bar to done / total (0 when total is not positive) and the text, and lets events run.
    void report(qint64 doneBytes, qint64 totalBytes, const QString &text);

    /// A callback that reports; `text` has places for what is worked on, the bytes done, and those in all.
    [[nodiscard]] std::function<void(qint64, qint64, const QString &)> reporter(const QString &text);

    /// Says from now on that the window closes when the work is done.
    void announceClosing();

public Q_SLOTS:
    /// Does nothing: the work goes on.
    void reject() override;

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void build(const QString &title, Qt::WindowModality modality);
    void begin(const QString &text);
    void showText(const QString &text);

    QElapsedTimer sinceStart;
    std::optional<WaitCursor> waitCursor; ///< Until the dialog shows.
    QString workText;                     ///< Without the note on closing.
    bool closesAfterwards = false;
};

} // namespace Tessarin::UI
