// The X server is asked; a Wayland compositor sends the state with every key.
#include "platform/CapsLock.h"

#include <QGuiApplication>
#include <QKeyEvent>

#include <cstdlib>
#include <memory>

#include <xcb/xcb.h>

namespace Tessarin::Platform {

namespace {

std::optional<bool> askServer()
{
    const auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    xcb_connection_t *connection = x11 ? x11->connection() : nullptr;
    if (connection == nullptr)
        return std::nullopt;
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    const std::unique_ptr<xcb_query_pointer_reply_t, decltype(&std::free)> reply(
        xcb_query_pointer_reply(connection, xcb_query_pointer(connection, root), nullptr), &std::free);
    if (!reply)
        return std::nullopt;
    return (reply->mask & XCB_MOD_MASK_LOCK) != 0;
}

} // namespace

std::optional<bool> isCapsLockOn(const QKeyEvent *event)
{
    if (const std::optional<bool> answer = askServer())
        return answer;
    if (event == nullptr)
        return std::nullopt;
    const bool wasOn = (event->nativeModifiers() & XCB_MOD_MASK_LOCK) != 0;
    if (event->key() != Qt::Key_CapsLock)
        return wasOn;
    // With its own key comes the state of before, and with its release the compositors differ.
    return event->type() == QEvent::KeyPress ? std::optional(!wasOn) : std::nullopt;
}

} // namespace Tessarin::Platform
