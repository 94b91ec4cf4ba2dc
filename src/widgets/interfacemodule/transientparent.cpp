// SPDX-License-Identifier: MIT
// Qt sends a window's transient parent to the desktop only when it shows the window.
#include "widgets/interfaceloader.h"

#include <QByteArray>
#include <QGuiApplication>
#include <QLibrary>
#include <QWindow>

#include <array>
#include <cstdint>
#include <cstring>
#include <xcb/xcb.h>

using namespace Qt::StringLiterals;

namespace {

/// Asks the window manager to stack the window above another one (ICCCM 4.1.5). Because of their frames the
/// two are not siblings for the server. Neither is brought to the front.
void putAbove(xcb_connection_t *connection, xcb_window_t window, xcb_window_t sibling) {
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    xcb_configure_request_event_t request{};
    request.response_type = XCB_CONFIGURE_REQUEST;
    request.stack_mode = XCB_STACK_MODE_ABOVE;
    request.parent = root;
    request.window = window;
    request.sibling = sibling;
    request.value_mask = XCB_CONFIG_WINDOW_SIBLING | XCB_CONFIG_WINDOW_STACK_MODE;
    // All events have the same size.
    std::array<char, 32> event{};
    std::memcpy(event.data(), &request, sizeof request);
    xcb_send_event(connection, 0, root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT, event.data());
}

/// Sets the parent of the window's xdg_toplevel. Qt has that object, but no public access to it, so an
/// accessor of its Wayland library is looked up by name. Without that accessor nothing changes.
void tellCompositor(QWindow *window, QWindow *parent) {
    using Accessor = void *(*)(QPlatformNativeInterface *, const QByteArray &, QWindow *);
    using Marshal = void (*)(void *proxy, uint32_t opcode, ...);
    static const auto objectOf = reinterpret_cast<Accessor>(QLibrary::resolve(
        u"Qt6WaylandClient"_s, 6,
        "_ZN15QtWaylandClient23QWaylandNativeInterface23nativeResourceForWindowERK10QByteArrayP7QWindow"));
    static const auto marshal =
        reinterpret_cast<Marshal>(QLibrary::resolve(u"wayland-client"_s, 0, "wl_proxy_marshal"));
    if (!objectOf || !marshal)
        return;
    QPlatformNativeInterface *qt = QGuiApplication::platformNativeInterface();
    void *own = objectOf(qt, "xdg_toplevel"_ba, window);
    void *above = objectOf(qt, "xdg_toplevel"_ba, parent);
    constexpr uint32_t setParent = 1; // of the stable protocol xdg-shell
    if (own && above)
        marshal(own, setParent, above);
}

} // namespace

extern "C" Q_DECL_EXPORT void txTellTransientParent(QWindow *window) {
    QWindow *parent = window->transientParent();
    if (!parent)
        return;
    if (QGuiApplication::platformName().startsWith(u"wayland")) {
        tellCompositor(window, parent);
        return;
    }
    // Other platforms have the interface as well, without a connection.
    const auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    xcb_connection_t *connection = x11 ? x11->connection() : nullptr;
    if (!connection)
        return;
    const auto own = xcb_window_t(window->winId());
    const auto below = xcb_window_t(parent->winId());
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, own, XCB_ATOM_WM_TRANSIENT_FOR, XCB_ATOM_WINDOW,
                        32, 1, &below);
    // Some window managers apply the new order only when one of the windows is raised.
    putAbove(connection, own, below);
    xcb_flush(connection);
}
