// Preloaded into a Qt program, ends it when its window has been painted for the first time, and writes the
// instant to its standard output. So the very program can be timed that people start.
#include <QCoreApplication>
#include <QEvent>
#include <QTimer>
#include <QWidget>

#include <chrono>
#include <cstdio>

#include <unistd.h>

namespace {

class FirstPaint : public QObject
{
public:
    using QObject::QObject;

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        const auto *widget = event->type() == QEvent::Paint ? qobject_cast<QWidget *>(watched) : nullptr;
        if (widget == nullptr || !widget->isWindow() || seen)
            return false;
        // The event comes before the painting; what is queued now runs when all of it is on the screen.
        seen = true;
        QTimer::singleShot(0, this, [] {
            const std::chrono::nanoseconds now = std::chrono::steady_clock::now().time_since_epoch();
            std::printf("%lld\n", static_cast<long long>(now.count()));
            std::fflush(stdout);
            ::_exit(0);
        });
        return false;
    }

private:
    bool seen = false;
};

void watchFirstPaint()
{
    QCoreApplication::instance()->installEventFilter(new FirstPaint(QCoreApplication::instance()));
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(watchFirstPaint)
