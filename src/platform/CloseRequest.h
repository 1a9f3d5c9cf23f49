// The close requests of an X server, which Qt drops for a window that a dialog blocks.
#pragma once

class QByteArray;

namespace Tessarin::Platform {

/// Whether a native event, as QWidget::nativeEvent() gets it, asks its window to close (WM_DELETE_WINDOW of
/// the Inter-Client Communication Conventions Manual). False for everything that does not come from an X
/// server.
[[nodiscard]] bool isCloseRequest(const QByteArray &eventType, const void *event);

} // namespace Tessarin::Platform
