// The kernel marks an open mount table as exceptional when it has changed, until it is next polled.
#include "platform/linux/MountWatcher.h"

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::Platform::Linux {

namespace {

/// A drive with several partitions comes as several mounts, and its label a little later.
constexpr int settlingMs = 400;

} // namespace

MountWatcher::MountWatcher(QObject *parent) : QObject(parent), mountTable(u"/proc/self/mountinfo"_s)
{
    if (!mountTable.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return;
    settling.setSingleShot(true);
    settling.setInterval(settlingMs);
    connect(&settling, &QTimer::timeout, this, &MountWatcher::changed);
    notifier = std::make_unique<QSocketNotifier>(mountTable.handle(), QSocketNotifier::Exception);
    connect(notifier.get(), &QSocketNotifier::activated, &settling, qOverload<>(&QTimer::start));
}

} // namespace Tessarin::Platform::Linux
