// The dictation strip or the result card as a layer-shell surface: on the overlay layer,
// anchored at the bottom of the output, no keyboard, no exclusive zone (nothing moves for it).
// The strip has an empty input region (clicks reach the window under it); the card takes the
// pointer of the seat over its picture. It has its own connection to the compositor, dispatched
// from a QSocketNotifier on the main thread; pictures go through two shared-memory buffers,
// each drawn again only once the compositor has released it. Nothing here waits on the
// compositor after the first connection: a compositor that goes away leaves a surface that
// shows nothing.

#include "platform/wayland/ShmFrames.h"
#include "platform/wayland/WaylandConnection.h"
#include "platform/wayland/WaylandPlatform.h"

#include <QCoreApplication>
#include <QImage>
#include <QSocketNotifier>
#include <array>
#include <cstring>
#include <linux/input-event-codes.h>
#include <sys/mman.h>
#include <unistd.h>

// The protocol names an argument "namespace", a C++ keyword.
#define namespace surface_namespace
#include "wlr-layer-shell-unstable-v1-client-protocol.h"
#undef namespace
#include <wayland-client.h>

namespace ombry::wayland {

namespace {

constexpr int kAnswerMs = 300;

class LayerSurface final : public OverlaySurface {
public:
    explicit LayerSurface(Role role) : role_(role) {}
    ~LayerSurface() override { teardown(); }

    bool connect() {
        if (!connection_.open(kAnswerMs)) return false;
        compositor_ = static_cast<wl_compositor*>(
            connection_.bind(&wl_compositor_interface, 4, &compositorVersion_));
        shm_ = static_cast<wl_shm*>(connection_.bind(&wl_shm_interface, 1));
        shell_ = static_cast<zwlr_layer_shell_v1*>(
            connection_.bind(&zwlr_layer_shell_v1_interface, 3, &shellVersion_));
        if (!compositor_ || !shm_ || !shell_) {
            teardown();
            return false;
        }
        notifier_ = new QSocketNotifier(connection_.fd(), QSocketNotifier::Read);
        QObject::connect(notifier_, &QSocketNotifier::activated, notifier_, [this] {
            if (!connection_.dispatch(0) || connection_.failed()) teardown();
        });
        return true;
    }

    bool show(const QImage& image, int bottomMargin) override {
        if (!shell_) return false;
        if (connection_.failed()) {
            teardown();
            return false;
        }
        if (layer_ && image == image_ && bottomMargin == margin_ &&
            image.devicePixelRatio() == image_.devicePixelRatio())
            return true;
        image_ = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
        margin_ = bottomMargin;
        const FrameLayout frame = frameLayout(image_.size(), image_.devicePixelRatio());
        if (!layer_) {
            map(frame);
        } else {
            if (frame.logical != logical_) {
                zwlr_layer_surface_v1_set_size(layer_, uint32_t(frame.logical.width()),
                                               uint32_t(frame.logical.height()));
            }
            if (margin_ != sentMargin_) zwlr_layer_surface_v1_set_margin(layer_, 0, 0, margin_, 0);
        }
        logical_ = frame.logical;
        sentMargin_ = margin_;
        dirty_ = true;
        draw();
        connection_.flush();
        return true;
    }

    void hide() override {
        unmap();
        connection_.flush();
    }

    void setPointerHandler(std::function<void(const SurfacePointer&)> handler) override {
        onPointer_ = std::move(handler);
        if (!onPointer_ || seat_ || !compositor_) return;
        seat_ = static_cast<wl_seat*>(connection_.bind(&wl_seat_interface, 5));
        if (seat_) wl_seat_add_listener(seat_, &seatListener, this);
        connection_.flush();
    }

private:
    struct Buffer {
        LayerSurface* owner = nullptr;
        wl_buffer* buffer = nullptr;
        uchar* data = nullptr;
        size_t bytes = 0;
        Slot slot;
    };

    void map(const FrameLayout& frame) {
        surface_ = wl_compositor_create_surface(compositor_);
        if (!onPointer_) {
            // An empty input region: the pointer goes to whatever is under the surface.
            wl_region* none = wl_compositor_create_region(compositor_);
            wl_surface_set_input_region(surface_, none);
            wl_region_destroy(none);
        }
        layer_ = zwlr_layer_shell_v1_get_layer_surface(shell_, surface_, nullptr,
                                                       ZWLR_LAYER_SHELL_V1_LAYER_OVERLAY, name());
        zwlr_layer_surface_v1_add_listener(layer_, &layerListener, this);
        zwlr_layer_surface_v1_set_anchor(layer_, ZWLR_LAYER_SURFACE_V1_ANCHOR_BOTTOM);
        zwlr_layer_surface_v1_set_size(layer_, uint32_t(frame.logical.width()),
                                       uint32_t(frame.logical.height()));
        zwlr_layer_surface_v1_set_margin(layer_, 0, 0, margin_, 0);
        zwlr_layer_surface_v1_set_exclusive_zone(layer_, 0);
        zwlr_layer_surface_v1_set_keyboard_interactivity(
            layer_, ZWLR_LAYER_SURFACE_V1_KEYBOARD_INTERACTIVITY_NONE);
        // The first commit carries no buffer; the compositor answers with a configure, after
        // which the picture is attached.
        configured_ = false;
        wl_surface_commit(surface_);
    }

    void unmap() {
        if (layer_) zwlr_layer_surface_v1_destroy(layer_);
        if (surface_) wl_surface_destroy(surface_);
        layer_ = nullptr;
        surface_ = nullptr;
        configured_ = false;
        dirty_ = false;
        image_ = {};
        logical_ = {};
        // A buffer the compositor still holds is dropped with the surface: none outlives it.
        for (Buffer& b : buffers_) {
            if (b.slot.busy) release(b);
        }
    }

    // Draws the latest picture into a free buffer and commits it, when the surface is ready
    // and a buffer is free; otherwise the picture waits for the configure or the release.
    void draw() {
        if (!dirty_ || !layer_ || !configured_) return;
        const FrameLayout frame = frameLayout(image_.size(), image_.devicePixelRatio());
        std::array<Slot, 2> held;
        for (size_t i = 0; i < buffers_.size(); ++i)
            held[i] = buffers_[i].slot;
        const int index = pickSlot(held, frame.buffer);
        if (index < 0) return;
        Buffer& b = buffers_[size_t(index)];
        if (b.slot.size != frame.buffer && !allocate(b, frame)) return;
        copy(b, frame);
        wl_surface_set_buffer_scale(surface_, frame.scale);
        wl_surface_attach(surface_, b.buffer, 0, 0);
        if (compositorVersion_ >= 4)
            wl_surface_damage_buffer(surface_, 0, 0, INT32_MAX, INT32_MAX);
        else
            wl_surface_damage(surface_, 0, 0, INT32_MAX, INT32_MAX);
        wl_surface_commit(surface_);
        b.slot.busy = true;
        dirty_ = false;
    }

    void copy(Buffer& b, const FrameLayout& frame) {
        const int rowBytes = image_.width() * 4;
        const bool padded = frame.buffer != image_.size();
        if (padded) std::memset(b.data, 0, b.bytes);
        for (int y = 0; y < image_.height(); ++y)
            std::memcpy(b.data + size_t(y) * size_t(frame.stride), image_.constScanLine(y),
                        size_t(rowBytes));
    }

    bool allocate(Buffer& b, const FrameLayout& frame) {
        release(b);
        const size_t bytes = size_t(frame.stride) * size_t(frame.buffer.height());
        const int fd = memfd_create(name(), MFD_CLOEXEC);
        if (fd < 0) return false;
        if (ftruncate(fd, off_t(bytes)) != 0) {
            ::close(fd);
            return false;
        }
        void* data = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (data == MAP_FAILED) {
            ::close(fd);
            return false;
        }
        wl_shm_pool* pool = wl_shm_create_pool(shm_, fd, int32_t(bytes));
        // QImage's premultiplied ARGB32 is the same bytes as the compositor's ARGB8888 on
        // little-endian machines.
        b.buffer = wl_shm_pool_create_buffer(pool, 0, frame.buffer.width(), frame.buffer.height(),
                                             frame.stride, WL_SHM_FORMAT_ARGB8888);
        wl_shm_pool_destroy(pool);
        ::close(fd);
        b.owner = this;
        b.data = static_cast<uchar*>(data);
        b.bytes = bytes;
        b.slot = {false, frame.buffer};
        wl_buffer_add_listener(b.buffer, &bufferListener, &b);
        return true;
    }

    static void release(Buffer& b) {
        if (b.buffer) wl_buffer_destroy(b.buffer);
        if (b.data) munmap(b.data, b.bytes);
        b.buffer = nullptr;
        b.data = nullptr;
        b.bytes = 0;
        b.slot = {};
    }

    // Everything of the connection goes; the surface shows nothing from then on.
    void teardown() {
        delete notifier_;
        notifier_ = nullptr;
        unmap();
        for (Buffer& b : buffers_)
            release(b);
        if (pointer_) wl_pointer_destroy(pointer_);
        if (seat_) wl_seat_destroy(seat_);
        pointer_ = nullptr;
        seat_ = nullptr;
        if (shell_) zwlr_layer_shell_v1_destroy(shell_);
        if (shm_) wl_shm_destroy(shm_);
        if (compositor_) wl_compositor_destroy(compositor_);
        shell_ = nullptr;
        shm_ = nullptr;
        compositor_ = nullptr;
        connection_.close();
    }

    static void onConfigure(void* data, zwlr_layer_surface_v1* layer, uint32_t serial, uint32_t,
                            uint32_t) {
        auto* self = static_cast<LayerSurface*>(data);
        zwlr_layer_surface_v1_ack_configure(layer, serial);
        self->configured_ = true;
        self->draw();
        self->connection_.flush();
    }

    static void onClosed(void* data, zwlr_layer_surface_v1*) {
        // The compositor took the surface away (its output went): the next picture maps a
        // new one.
        static_cast<LayerSurface*>(data)->unmap();
    }

    static void onRelease(void* data, wl_buffer*) {
        auto* b = static_cast<Buffer*>(data);
        b->slot.busy = false;
        b->owner->draw();
        b->owner->connection_.flush();
    }

    const char* name() const {
        return role_ == Role::Card ? "ombry-voice-card" : "ombry-voice-strip";
    }

    // Tells the handler; the pointer's place is the last one the compositor gave.
    void tell(SurfacePointer::Kind kind, double scroll = 0) {
        if (onPointer_) onPointer_({kind, at_, scroll});
    }
    void moveTo(wl_fixed_t x, wl_fixed_t y) {
        at_ = QPointF(wl_fixed_to_double(x), wl_fixed_to_double(y));
        tell(SurfacePointer::Kind::Move);
    }

    static void onCapabilities(void* data, wl_seat* seat, uint32_t caps) {
        auto* self = static_cast<LayerSurface*>(data);
        const bool has = caps & WL_SEAT_CAPABILITY_POINTER;
        if (has && !self->pointer_) {
            self->pointer_ = wl_seat_get_pointer(seat);
            wl_pointer_add_listener(self->pointer_, &pointerListener, self);
        } else if (!has && self->pointer_) {
            wl_pointer_destroy(self->pointer_);
            self->pointer_ = nullptr;
        }
    }
    static void onSeatName(void*, wl_seat*, const char*) {}

    // The pointer of this connection only ever enters the card's surface. The cursor's picture
    // is left as the compositor had it.
    static void onEnter(void* data, wl_pointer*, uint32_t, wl_surface*, wl_fixed_t x,
                        wl_fixed_t y) {
        static_cast<LayerSurface*>(data)->moveTo(x, y);
    }
    static void onLeave(void* data, wl_pointer*, uint32_t, wl_surface*) {
        static_cast<LayerSurface*>(data)->tell(SurfacePointer::Kind::Leave);
    }
    static void onMotion(void* data, wl_pointer*, uint32_t, wl_fixed_t x, wl_fixed_t y) {
        static_cast<LayerSurface*>(data)->moveTo(x, y);
    }
    static void onButton(void* data, wl_pointer*, uint32_t, uint32_t, uint32_t button,
                         uint32_t state) {
        if (button != BTN_LEFT) return;
        static_cast<LayerSurface*>(data)->tell(state == WL_POINTER_BUTTON_STATE_PRESSED
                                                   ? SurfacePointer::Kind::Press
                                                   : SurfacePointer::Kind::Release);
    }
    static void onAxis(void* data, wl_pointer*, uint32_t, uint32_t axis, wl_fixed_t value) {
        if (axis != WL_POINTER_AXIS_VERTICAL_SCROLL) return;
        static_cast<LayerSurface*>(data)->tell(SurfacePointer::Kind::Scroll,
                                               wl_fixed_to_double(value));
    }
    static void onFrame(void*, wl_pointer*) {}
    static void onAxisSource(void*, wl_pointer*, uint32_t) {}
    static void onAxisStop(void*, wl_pointer*, uint32_t, uint32_t) {}
    static void onAxisDiscrete(void*, wl_pointer*, uint32_t, int32_t) {}
    static void onAxisValue120(void*, wl_pointer*, uint32_t, int32_t) {}

    static constexpr zwlr_layer_surface_v1_listener layerListener = {onConfigure, onClosed};
    static constexpr wl_buffer_listener bufferListener = {onRelease};
    static constexpr wl_seat_listener seatListener = {onCapabilities, onSeatName};
    // Version 5 is bound at most: the later events never come.
    static constexpr wl_pointer_listener pointerListener = {
        onEnter, onLeave,      onMotion,   onButton,       onAxis,
        onFrame, onAxisSource, onAxisStop, onAxisDiscrete, onAxisValue120};

    const Role role_;
    Connection connection_;
    QSocketNotifier* notifier_ = nullptr;
    std::function<void(const SurfacePointer&)> onPointer_;
    wl_seat* seat_ = nullptr;
    wl_pointer* pointer_ = nullptr;
    QPointF at_;
    wl_compositor* compositor_ = nullptr;
    uint32_t compositorVersion_ = 0;
    wl_shm* shm_ = nullptr;
    zwlr_layer_shell_v1* shell_ = nullptr;
    uint32_t shellVersion_ = 0;
    wl_surface* surface_ = nullptr;
    zwlr_layer_surface_v1* layer_ = nullptr;
    bool configured_ = false;
    bool dirty_ = false; // image_ is not on screen yet
    QImage image_;
    int margin_ = 0;
    int sentMargin_ = -1;
    QSize logical_;
    std::array<Buffer, 2> buffers_;
};

} // namespace

std::unique_ptr<OverlaySurface> makeLayerSurface(OverlaySurface::Role role) {
    if (!QCoreApplication::instance()) return nullptr;
    auto surface = std::make_unique<LayerSurface>(role);
    if (!surface->connect()) return nullptr;
    return surface;
}

} // namespace ombry::wayland
