// A close request is a client message that carries two atoms.
#include "platform/CloseRequest.h"

#include <QByteArray>
#include <QGuiApplication>

#include <cstdlib>
#include <cstring>
#include <memory>

#include <xcb/xcb.h>

namespace Tessarin::Platform {

namespace {

constexpr unsigned sentByClient = 0x80; ///< A bit beside the type of an event.

/// XCB_ATOM_NONE when nobody has made it yet.
xcb_atom_t existingAtom(xcb_connection_t *connection, const char *name)
{
    const auto cookie = xcb_intern_atom(connection, true, static_cast<uint16_t>(std::strlen(name)), name);
    const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
        xcb_intern_atom_reply(connection, cookie, nullptr), &std::free);
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

} // namespace

bool isCloseRequest(const QByteArray &eventType, const void *event)
{
    if (eventType != "xcb_generic_event_t")
        return false;
    const auto *message = static_cast<const xcb_client_message_event_t *>(event);
    if ((message->response_type & ~sentByClient) != XCB_CLIENT_MESSAGE)
        return false;
    const auto *x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 != nullptr && message->type == existingAtom(x11->connection(), "WM_PROTOCOLS") &&
           message->data.data32[0] == existingAtom(x11->connection(), "WM_DELETE_WINDOW");
}

} // namespace Tessarin::Platform
