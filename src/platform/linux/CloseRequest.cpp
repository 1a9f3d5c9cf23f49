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

struct CloseAtoms
{
    xcb_atom_t protocols;
    xcb_atom_t deleteWindow;
};

xcb_intern_atom_cookie_t askForAtom(xcb_connection_t *connection, const char *name)
{
    return xcb_intern_atom(connection, false, static_cast<uint16_t>(std::strlen(name)), name);
}

/// XCB_ATOM_NONE without a connection.
xcb_atom_t answer(xcb_connection_t *connection, xcb_intern_atom_cookie_t question)
{
    const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
        xcb_intern_atom_reply(connection, question, nullptr), &std::free);
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

/// Both questions go out before the wait for the answers.
CloseAtoms closeAtoms(xcb_connection_t *connection)
{
    const auto protocols = askForAtom(connection, "WM_PROTOCOLS");
    const auto deleteWindow = askForAtom(connection, "WM_DELETE_WINDOW");
    return {answer(connection, protocols), answer(connection, deleteWindow)};
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
    if (x11 == nullptr)
        return false;
    static const CloseAtoms atoms = closeAtoms(x11->connection());
    return message->type == atoms.protocols && message->data.data32[0] == atoms.deleteWindow;
}

} // namespace Tessarin::Platform
