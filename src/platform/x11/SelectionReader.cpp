#include "platform/x11/SelectionReader.h"

#include <QDeadlineTimer>
#include <QHash>
#include <QScopeGuard>
#include <QSet>
#include <cstdlib>
#include <poll.h>
#include <xcb/xcb.h>

namespace ombry::x11 {

namespace {

// Targets of the selection protocol itself, and server resources that mean nothing once their
// owner is gone: no content to keep.
bool isContent(const QByteArray& name) {
    static const QSet<QByteArray> others = {
        "TARGETS",  "MULTIPLE",        "TIMESTAMP",        "SAVE_TARGETS", "DELETE",
        "INCR",     "INSERT_PROPERTY", "INSERT_SELECTION", "PIXMAP",       "BITMAP",
        "DRAWABLE", "COLORMAP",        "WINDOW",           "ATOM_PAIR",    "_QT_SELECTION"};
    return !others.contains(name);
}

// The text targets, the best first: Qt names them all "text/plain".
int textRank(const QByteArray& name) {
    if (name == "UTF8_STRING") return 3;
    if (name == "TEXT") return 2;
    if (name == "STRING") return 1;
    return 0;
}

class Reader {
public:
    Reader(const char* selection, int deadlineMs) : deadline_(deadlineMs) {
        connection_ = xcb_connect(nullptr, nullptr);
        if (xcb_connection_has_error(connection_)) return;
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
        window_ = xcb_generate_id(connection_);
        const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window_, screen->root, 0, 0, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                          &mask);
        selection_ = atom(selection);
        property_ = atom("_OMBRY_SNAPSHOT");
        incr_ = atom("INCR");
        string_ = atom("STRING");
        ok_ = selection_ && property_ && incr_;
    }
    ~Reader() { xcb_disconnect(connection_); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    ClipboardRead read() {
        ClipboardRead out;
        if (!ok_ || !hasOwner()) return out;
        const std::optional<QByteArray> targets = convert(atom("TARGETS"));
        if (!targets) {
            out.late << QStringLiteral("TARGETS");
            return out;
        }
        // The formats in the owner's order, one target each (the best of the text targets).
        QList<QPair<QString, xcb_atom_t>> wanted;
        QHash<QString, int> rank;
        const auto* atoms = reinterpret_cast<const xcb_atom_t*>(targets->constData());
        for (const auto& [target, name] : names(atoms, targets->size() / 4)) {
            if (!isContent(name)) continue;
            const int textual = textRank(name);
            const QString format = textual ? QStringLiteral("text/plain") : QString::fromUtf8(name);
            const auto known = rank.find(format);
            if (known == rank.end()) {
                rank.insert(format, textual);
                wanted.append({format, target});
            } else if (textual > *known) {
                *known = textual;
                for (auto& w : wanted)
                    if (w.first == format) w.second = target;
            }
        }
        for (const auto& [format, target] : wanted) {
            const std::optional<QByteArray> bytes =
                out.late.isEmpty() ? convert(target) : std::nullopt;
            if (!bytes)
                out.late << format;
            else if (!bytes->isEmpty()) // a format that gives no data is passed over
                out.formats.append(
                    {format, target == string_ ? QString::fromLatin1(*bytes).toUtf8() : *bytes});
        }
        return out;
    }

private:
    xcb_atom_t atom(const char* name) {
        xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(
            connection_, xcb_intern_atom(connection_, 0, uint16_t(strlen(name)), name), nullptr);
        const xcb_atom_t a = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
        free(reply);
        return a;
    }

    bool hasOwner() {
        xcb_get_selection_owner_reply_t* reply = xcb_get_selection_owner_reply(
            connection_, xcb_get_selection_owner(connection_, selection_), nullptr);
        const bool owned = reply && reply->owner != XCB_NONE;
        free(reply);
        return owned;
    }

    QList<QPair<xcb_atom_t, QByteArray>> names(const xcb_atom_t* atoms, qsizetype count) {
        QList<xcb_get_atom_name_cookie_t> cookies;
        for (qsizetype i = 0; i < count; ++i)
            cookies << xcb_get_atom_name(connection_, atoms[i]);
        QList<QPair<xcb_atom_t, QByteArray>> out;
        for (qsizetype i = 0; i < count; ++i) {
            xcb_get_atom_name_reply_t* reply =
                xcb_get_atom_name_reply(connection_, cookies[i], nullptr);
            if (reply)
                out.append({atoms[i], QByteArray(xcb_get_atom_name_name(reply),
                                                 xcb_get_atom_name_name_length(reply))});
            free(reply);
        }
        return out;
    }

    // The next event, or nullptr once the deadline has passed.
    xcb_generic_event_t* nextEvent() {
        for (;;) {
            if (xcb_generic_event_t* event = xcb_poll_for_event(connection_)) return event;
            const qint64 left = deadline_.remainingTime();
            if (left <= 0 || xcb_connection_has_error(connection_)) return nullptr;
            pollfd fd{xcb_get_file_descriptor(connection_), POLLIN, 0};
            poll(&fd, 1, int(left));
        }
    }

    // The property's bytes and type, deleted once read (which asks an INCR owner for more).
    QPair<xcb_atom_t, QByteArray> takeProperty() {
        xcb_get_property_reply_t* reply =
            xcb_get_property_reply(connection_,
                                   xcb_get_property(connection_, 1, window_, property_,
                                                    XCB_GET_PROPERTY_TYPE_ANY, 0, UINT32_MAX / 4),
                                   nullptr);
        if (!reply) return {XCB_ATOM_NONE, {}};
        QPair<xcb_atom_t, QByteArray> out{
            reply->type, QByteArray(static_cast<const char*>(xcb_get_property_value(reply)),
                                    xcb_get_property_value_length(reply))};
        free(reply);
        return out;
    }

    // One target's bytes (empty when the owner refuses it); nullopt when not given in time.
    std::optional<QByteArray> convert(xcb_atom_t target) {
        xcb_convert_selection(connection_, window_, selection_, target, property_,
                              XCB_CURRENT_TIME);
        xcb_flush(connection_);
        for (;;) {
            xcb_generic_event_t* event = nextEvent();
            if (!event) return std::nullopt;
            const auto free = qScopeGuard([event] { std::free(event); });
            if ((event->response_type & 0x7f) != XCB_SELECTION_NOTIFY) continue;
            const auto* notify = reinterpret_cast<const xcb_selection_notify_event_t*>(event);
            if (notify->target != target) continue; // a late answer to an earlier request
            if (notify->property == XCB_NONE) return QByteArray();
            break;
        }
        auto [type, bytes] = takeProperty();
        if (type != incr_) return bytes;
        // Large data comes in pieces, each announced by a new value of the property, until an
        // empty one.
        QByteArray all;
        for (;;) {
            xcb_generic_event_t* event = nextEvent();
            if (!event) return std::nullopt;
            const auto free = qScopeGuard([event] { std::free(event); });
            if ((event->response_type & 0x7f) != XCB_PROPERTY_NOTIFY) continue;
            const auto* change = reinterpret_cast<const xcb_property_notify_event_t*>(event);
            if (change->atom != property_ || change->state != XCB_PROPERTY_NEW_VALUE) continue;
            const QByteArray piece = takeProperty().second;
            if (piece.isEmpty()) return all;
            all += piece;
        }
    }

    QDeadlineTimer deadline_;
    xcb_connection_t* connection_ = nullptr;
    xcb_window_t window_ = XCB_NONE;
    xcb_atom_t selection_ = XCB_ATOM_NONE;
    xcb_atom_t property_ = XCB_ATOM_NONE;
    xcb_atom_t incr_ = XCB_ATOM_NONE;
    xcb_atom_t string_ = XCB_ATOM_NONE;
    bool ok_ = false;
};

} // namespace

ClipboardRead readSelection(const char* selection, int deadlineMs) {
    Reader reader(selection, deadlineMs);
    return reader.read();
}

} // namespace ombry::x11
