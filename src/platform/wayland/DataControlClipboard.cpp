// CLIPBOARD and PRIMARY through data-control, which reads and sets a seat's selections without
// a focused window (a clipboard manager's road): ext data-control where the compositor has it,
// else the wlr protocol it came from. The connection is the service's own, dispatched from a
// QSocketNotifier on the main thread; every wait on it has a deadline, and a compositor that
// goes away leaves the service empty until the next call, which connects again.
#include "platform/wayland/Pipes.h"
#include "platform/wayland/WaylandConnection.h"
#include "platform/wayland/WaylandPlatform.h"

#include "ext-data-control-v1-client-protocol.h"
#include "wlr-data-control-unstable-v1-client-protocol.h"

#include <QCoreApplication>
#include <QHash>
#include <QSet>
#include <QSocketNotifier>
#include <QTimer>
#include <fcntl.h>
#include <list>
#include <unistd.h>
#include <wayland-client.h>

namespace ombry::wayland {

namespace {

enum Board { Clipboard_, Primary_ };

class DataControlClipboard final : public Clipboard {
public:
    ~DataControlClipboard() override { reset(); }

    ClipboardSnapshot snapshot() override { return snapshotOf(Clipboard_); }
    // The owner's pipes are read with one deadline for all (kClipboardAnswerMs); the formats it had
    // not given by then are named.
    QCoro::Task<ClipboardRead> readSnapshot(bool primary) override {
        late_.clear();
        ClipboardRead read{primary ? selectionSnapshot() : snapshot(), {}};
        read.late = std::exchange(late_, {});
        co_return read;
    }
    void restore(const ClipboardSnapshot& snapshot) override { serve(Clipboard_, snapshot, {}); }
    void clear() override { serve(Clipboard_, {}, {}); }

    void setText(const QString& text, bool alsoPrimary,
                 std::function<void(const ClipboardFetch&)> onFetched) override {
        if (!update()) return;
        ClipboardSnapshot formats;
        const QByteArray bytes = text.toUtf8();
        for (const QString& type : textTypes())
            formats.append({type, bytes});
        // One wait for both selections; PRIMARY only where the compositor has it.
        const bool primary = alsoPrimary && primaryOffered();
        serve(Clipboard_, formats, onFetched, !primary);
        if (primary) serve(Primary_, formats, onFetched);
    }

    std::optional<QString> text() override { return textOf(Clipboard_); }
    uint64_t changeCount() override {
        update();
        return boards_[Clipboard_].changes;
    }

    // PRIMARY held by this program is the text of its own last paste (or what it put back):
    // never a selection in the window in front.
    std::optional<QString> selectedText() override {
        if (!update() || !primaryOffered() || boards_[Primary_].own) return std::nullopt;
        return textOf(Primary_);
    }
    // Wayland does not tell which client set a selection: the caller asks the accessibility
    // bus instead.
    bool primaryOwnedBy(const AppWindow&) override { return false; }

    ClipboardSnapshot selectionSnapshot() override {
        if (!update() || !primaryOffered()) return {};
        return snapshotOf(Primary_);
    }
    void restoreSelection(const ClipboardSnapshot& snapshot) override {
        if (update() && primaryOffered()) serve(Primary_, snapshot, {});
    }
    uint64_t selectionChangeCount() override {
        update();
        return boards_[Primary_].changes;
    }

private:
    // Content this process serves on one selection.
    struct Served {
        DataControlClipboard* clipboard = nullptr;
        ext_data_control_source_v1* source = nullptr;
        Board board = Clipboard_;
        ClipboardSnapshot formats;
        std::function<void(const ClipboardFetch&)> onFetched;
    };
    struct State {
        ext_data_control_offer_v1* offer = nullptr; // what the selection holds now
        QStringList types;                          // ... in the owner's order
        Served* own = nullptr;                      // ours, while no one took it since
        uint64_t changes = 0;
        bool seen = false; // the state at connection came (it is no change)
    };

    bool primaryOffered() const { return primary_; }

    // Connected, with the events that have arrived handled.
    bool update() {
        if (connection_.isOpen() && (connection_.failed() || finished_)) reset();
        if (!connection_.isOpen() && !connect()) return false;
        if (!connection_.dispatch(0) || connection_.failed()) {
            reset();
            return false;
        }
        return true;
    }

    bool connect() {
        if (!connection_.open(kClipboardAnswerMs)) return false;
        // ext data-control is wlr data-control renamed: the same requests and events in the same
        // order with the same arguments, and a message carries its opcode and the ids of its
        // objects, never an interface's name. So a wlr manager is driven through the ext calls
        // too: the objects it makes (sources, the device, its offers) are ext proxies here, at
        // the wlr manager's version, and wlr objects in the compositor; libwayland writes a
        // request by the signature of its proxy's own interface (the same in both) and checks
        // an event's objects against the proxies', all ext. PRIMARY is in ext from version 1,
        // in wlr from version 2.
        void* manager = connection_.bind(&ext_data_control_manager_v1_interface, 1);
        primary_ = manager != nullptr;
        if (!manager) {
            uint32_t version = 0;
            manager = connection_.bind(&zwlr_data_control_manager_v1_interface, 2, &version);
            primary_ = version >= 2;
        }
        manager_ = static_cast<ext_data_control_manager_v1*>(manager);
        seat_ = static_cast<wl_seat*>(connection_.bind(&wl_seat_interface, 1));
        if (!manager_ || !seat_) {
            reset();
            return false;
        }
        device_ = ext_data_control_manager_v1_get_data_device(manager_, seat_);
        ext_data_control_device_v1_add_listener(device_, &deviceListener, this);
        // The selections as they are now come at once.
        if (!connection_.roundtrip(kClipboardAnswerMs)) {
            reset();
            return false;
        }
        if (QCoreApplication::instance()) {
            notifier_ = new QSocketNotifier(connection_.fd(), QSocketNotifier::Read);
            QObject::connect(notifier_, &QSocketNotifier::activated, notifier_, [this] {
                if (!connection_.dispatch(0) || connection_.failed()) reset();
            });
        }
        return true;
    }

    void reset() {
        if (notifier_) {
            // reset() may run inside the notifier's own signal.
            notifier_->setEnabled(false);
            notifier_->deleteLater();
            notifier_ = nullptr;
        }
        for (const auto& served : served_)
            ext_data_control_source_v1_destroy(served->source);
        served_.clear();
        for (State& state : boards_) {
            if (state.offer) ext_data_control_offer_v1_destroy(state.offer);
            state.offer = nullptr;
            state.types.clear();
            state.own = nullptr;
            state.seen = false;
        }
        for (auto it = pendingOffers_.begin(); it != pendingOffers_.end(); ++it)
            ext_data_control_offer_v1_destroy(it.key());
        pendingOffers_.clear();
        if (device_) ext_data_control_device_v1_destroy(device_);
        if (seat_) wl_seat_destroy(seat_);
        if (manager_) ext_data_control_manager_v1_destroy(manager_);
        device_ = nullptr;
        seat_ = nullptr;
        manager_ = nullptr;
        primary_ = false;
        finished_ = false;
        connection_.close();
    }

    // Puts formats on a selection (none: empties it), served from here; waits until the
    // compositor has made it the selection, so that a paste right after reads it.
    void serve(Board board, const ClipboardSnapshot& formats,
               std::function<void(const ClipboardFetch&)> onFetched, bool wait = true) {
        if (!update()) return;
        ext_data_control_source_v1* source = nullptr;
        if (!formats.isEmpty()) {
            source = ext_data_control_manager_v1_create_data_source(manager_);
            auto served = std::make_unique<Served>();
            served->clipboard = this;
            served->source = source;
            served->board = board;
            served->formats = formats;
            served->onFetched = std::move(onFetched);
            ext_data_control_source_v1_add_listener(source, &sourceListener, served.get());
            QSet<QString> offered;
            for (const auto& [type, bytes] : formats) {
                if (offered.contains(type)) continue;
                offered.insert(type);
                ext_data_control_source_v1_offer(source, type.toUtf8().constData());
            }
            boards_[board].own = served.get();
            served_.push_back(std::move(served));
        } else {
            boards_[board].own = nullptr;
        }
        if (board == Primary_)
            ext_data_control_device_v1_set_primary_selection(device_, source);
        else
            ext_data_control_device_v1_set_selection(device_, source);
        if (wait)
            connection_.roundtrip(kClipboardAnswerMs);
        else
            connection_.flush();
        if (connection_.failed()) reset();
    }

    // Every format of a selection, read at once from its owner with one deadline for all.
    ClipboardSnapshot snapshotOf(Board board) {
        if (!update()) return {};
        const State& state = boards_[board];
        if (state.own) return state.own->formats; // ours: no need to ask ourselves
        QStringList types;
        for (const QString& type : state.types)
            if (!isProtocolTarget(type) && !types.contains(type)) types.append(type);
        return read(board, types);
    }

    std::optional<QString> textOf(Board board) {
        if (!update()) return std::nullopt;
        const State& state = boards_[board];
        const ClipboardSnapshot& formats = state.own ? state.own->formats : ClipboardSnapshot{};
        for (const QString& type : textTypes()) {
            if (state.own) {
                for (const auto& [format, bytes] : formats)
                    if (format == type) return QString::fromUtf8(bytes);
            } else if (state.types.contains(type)) {
                const ClipboardSnapshot got = read(board, {type});
                if (got.isEmpty()) return std::nullopt;
                return QString::fromUtf8(got.first().second);
            }
        }
        return std::nullopt;
    }

    ClipboardSnapshot read(Board board, const QStringList& types) {
        ext_data_control_offer_v1* offer = boards_[board].offer;
        if (!offer || types.isEmpty()) return {};
        QList<int> fds;
        QStringList asked;
        for (const QString& type : types) {
            int ends[2];
            if (pipe2(ends, O_CLOEXEC) != 0) continue;
            ext_data_control_offer_v1_receive(offer, type.toUtf8().constData(), ends[1]);
            close(ends[1]); // libwayland sends a duplicate
            fds.append(ends[0]);
            asked.append(type);
        }
        connection_.flush();
        const QList<PipeRead> reads = readPipes(fds, kClipboardAnswerMs);
        ClipboardSnapshot out;
        QStringList late;
        for (qsizetype i = 0; i < asked.size(); ++i) {
            close(fds[i]);
            if (!reads[i].complete)
                late.append(asked[i]);
            else if (!reads[i].bytes.isEmpty()) // a format that gives no data is passed over
                out.append({asked[i], reads[i].bytes});
        }
        late_ += late;
        return out;
    }

    // Events of the data device and of the offers.
    static void onDataOffer(void* self, ext_data_control_device_v1*,
                            ext_data_control_offer_v1* offer) {
        static_cast<DataControlClipboard*>(self)->pendingOffers_.insert(offer, {});
        ext_data_control_offer_v1_add_listener(offer, &offerListener, self);
    }
    static void onOfferType(void* self, ext_data_control_offer_v1* offer, const char* type) {
        auto& pending = static_cast<DataControlClipboard*>(self)->pendingOffers_;
        if (const auto it = pending.find(offer); it != pending.end())
            it->append(QString::fromUtf8(type));
    }
    void selectionChanged(Board board, ext_data_control_offer_v1* offer) {
        State& state = boards_[board];
        if (state.offer && state.offer != offer) ext_data_control_offer_v1_destroy(state.offer);
        state.offer = offer;
        state.types = offer ? pendingOffers_.take(offer) : QStringList();
        if (state.seen) ++state.changes;
        state.seen = true;
    }
    static void onSelection(void* self, ext_data_control_device_v1*,
                            ext_data_control_offer_v1* offer) {
        static_cast<DataControlClipboard*>(self)->selectionChanged(Clipboard_, offer);
    }
    static void onPrimarySelection(void* self, ext_data_control_device_v1*,
                                   ext_data_control_offer_v1* offer) {
        static_cast<DataControlClipboard*>(self)->selectionChanged(Primary_, offer);
    }
    static void onFinished(void* self, ext_data_control_device_v1*) {
        // The seat is gone: the next call connects again.
        static_cast<DataControlClipboard*>(self)->finished_ = true;
    }

    // Events of our sources.
    static void onSend(void* data, ext_data_control_source_v1*, const char* type, int32_t fd) {
        auto* served = static_cast<Served*>(data);
        const QString wanted = QString::fromUtf8(type);
        QByteArray bytes;
        bool found = false;
        for (const auto& [format, content] : served->formats) {
            if (format == wanted) {
                bytes = content;
                found = true;
                break;
            }
        }
        writeToPipe(fd, bytes);
        // Another client reads (this process reads its own content without asking); which
        // one Wayland does not tell.
        if (found && served->onFetched) {
            auto callback = served->onFetched;
            if (QCoreApplication::instance())
                QTimer::singleShot(0, QCoreApplication::instance(),
                                   [callback] { callback(ClipboardFetch{}); });
            else
                callback(ClipboardFetch{});
        }
    }
    static void onCancelled(void* data, ext_data_control_source_v1* source) {
        auto* served = static_cast<Served*>(data);
        DataControlClipboard* clipboard = served->clipboard;
        State& state = clipboard->boards_[served->board];
        if (state.own == served) state.own = nullptr;
        ext_data_control_source_v1_destroy(source);
        clipboard->served_.remove_if([served](const auto& s) { return s.get() == served; });
    }

    static constexpr ext_data_control_device_v1_listener deviceListener = {
        onDataOffer, onSelection, onFinished, onPrimarySelection};
    static constexpr ext_data_control_offer_v1_listener offerListener = {onOfferType};
    static constexpr ext_data_control_source_v1_listener sourceListener = {onSend, onCancelled};

    Connection connection_;
    QStringList late_; // formats left out by the reads since the last snapshot
    ext_data_control_manager_v1* manager_ = nullptr;
    bool primary_ = false; // the compositor has PRIMARY
    wl_seat* seat_ = nullptr;
    ext_data_control_device_v1* device_ = nullptr;
    QSocketNotifier* notifier_ = nullptr;
    bool finished_ = false;                                        // the device is no longer valid
    QHash<ext_data_control_offer_v1*, QStringList> pendingOffers_; // types, until named
    State boards_[2];
    std::list<std::unique_ptr<Served>> served_;
};

} // namespace

std::unique_ptr<Clipboard> makeDataControlClipboard() {
    return std::make_unique<DataControlClipboard>();
}

} // namespace ombry::wayland
