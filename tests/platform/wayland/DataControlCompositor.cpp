#include "DataControlCompositor.h"

#include "ext-data-control-v1-server-protocol.h"

#include <algorithm>
#include <string>
#include <unistd.h>
#include <vector>
#include <wayland-server.h>

namespace ombry::test {

namespace {

// Content a client offers, with the types it named.
struct Source {
    DataControlCompositor::Seat* seat;
    wl_resource* resource;
    uint64_t serial;
    std::vector<std::string> types;
};

// An offer names its source by serial: the source may be gone when the offer is read.
struct Offer {
    DataControlCompositor::Seat* seat;
    uint64_t source;
};

template <class T> T* dataOf(wl_resource* resource) {
    return static_cast<T*>(wl_resource_get_user_data(resource));
}

void destroyResource(wl_client*, wl_resource* resource) {
    wl_resource_destroy(resource);
}

} // namespace

// The selections of the one seat, and the devices told of their changes.
struct DataControlCompositor::Seat {
    std::vector<std::unique_ptr<Source>> sources;
    std::vector<wl_resource*> devices;
    Source* selection[2] = {}; // CLIPBOARD, PRIMARY
    uint64_t serials = 0;

    // A new offer of the selection (its types first), or none.
    void tell(wl_resource* device, int board) {
        wl_resource* offer = nullptr;
        if (const Source* source = selection[board]) {
            static const struct ext_data_control_offer_v1_interface offerCalls = {
                [](wl_client*, wl_resource* offer, const char* type, int32_t fd) {
                    const Offer* o = dataOf<Offer>(offer);
                    for (const auto& s : o->seat->sources)
                        if (s->serial == o->source)
                            ext_data_control_source_v1_send_send(s->resource, type, fd);
                    close(fd); // the event carries a copy
                },
                destroyResource};
            offer = wl_resource_create(wl_resource_get_client(device),
                                       &ext_data_control_offer_v1_interface,
                                       wl_resource_get_version(device), 0);
            wl_resource_set_implementation(offer, &offerCalls, new Offer{this, source->serial},
                                           [](wl_resource* r) { delete dataOf<Offer>(r); });
            ext_data_control_device_v1_send_data_offer(device, offer);
            for (const std::string& type : source->types)
                ext_data_control_offer_v1_send_offer(offer, type.c_str());
        }
        if (board == 0)
            ext_data_control_device_v1_send_selection(device, offer);
        else
            ext_data_control_device_v1_send_primary_selection(device, offer);
    }
    void set(int board, Source* source) {
        if (selection[board] && selection[board] != source)
            ext_data_control_source_v1_send_cancelled(selection[board]->resource);
        selection[board] = source;
        for (wl_resource* device : devices)
            tell(device, board);
    }
    // A source destroyed while it is a selection empties it.
    void forget(Source* source) {
        for (int board : {0, 1}) {
            if (selection[board] != source) continue;
            selection[board] = nullptr; // told to no one: it is gone
            set(board, nullptr);
        }
        std::erase_if(sources, [source](const auto& s) { return s.get() == source; });
    }
};

namespace {

const struct ext_data_control_source_v1_interface sourceCalls = {
    [](wl_client*, wl_resource* source, const char* type) {
        dataOf<Source>(source)->types.emplace_back(type);
    },
    destroyResource};

void setSelection(wl_resource* device, wl_resource* source, int board) {
    dataOf<DataControlCompositor::Seat>(device)->set(board,
                                                     source ? dataOf<Source>(source) : nullptr);
}

const struct ext_data_control_device_v1_interface deviceCalls = {
    [](wl_client*, wl_resource* device, wl_resource* source) { setSelection(device, source, 0); },
    destroyResource,
    [](wl_client*, wl_resource* device, wl_resource* source) { setSelection(device, source, 1); }};

const struct ext_data_control_manager_v1_interface managerCalls = {
    [](wl_client* client, wl_resource* manager, uint32_t id) {
        auto* seat = dataOf<DataControlCompositor::Seat>(manager);
        wl_resource* resource = wl_resource_create(client, &ext_data_control_source_v1_interface,
                                                   wl_resource_get_version(manager), id);
        seat->sources.push_back(
            std::make_unique<Source>(Source{seat, resource, ++seat->serials, {}}));
        wl_resource_set_implementation(resource, &sourceCalls, seat->sources.back().get(),
                                       [](wl_resource* r) {
                                           Source* source = dataOf<Source>(r);
                                           source->seat->forget(source);
                                       });
    },
    [](wl_client* client, wl_resource* manager, uint32_t id, wl_resource*) {
        auto* seat = dataOf<DataControlCompositor::Seat>(manager);
        wl_resource* device = wl_resource_create(client, &ext_data_control_device_v1_interface,
                                                 wl_resource_get_version(manager), id);
        wl_resource_set_implementation(device, &deviceCalls, seat, [](wl_resource* r) {
            std::erase(dataOf<DataControlCompositor::Seat>(r)->devices, r);
        });
        seat->devices.push_back(device);
        seat->tell(device, 0);
        seat->tell(device, 1);
    },
    destroyResource};

} // namespace

DataControlCompositor::DataControlCompositor()
    : seat_(std::make_unique<Seat>()), display_(wl_display_create()) {
    qputenv("XDG_RUNTIME_DIR", runtime_.path().toLocal8Bit());
    // The client binds the seat only to name it: it needs no request of the seat's.
    wl_global_create(display_, &wl_seat_interface, 1, nullptr,
                     [](wl_client* client, void*, uint32_t version, uint32_t id) {
                         wl_resource_create(client, &wl_seat_interface, int(version), id);
                     });
    wl_global_create(display_, &ext_data_control_manager_v1_interface, 1, seat_.get(),
                     [](wl_client* client, void* seat, uint32_t version, uint32_t id) {
                         wl_resource* manager = wl_resource_create(
                             client, &ext_data_control_manager_v1_interface, int(version), id);
                         wl_resource_set_implementation(manager, &managerCalls, seat, nullptr);
                     });
    if (const char* name = wl_display_add_socket_auto(display_)) {
        socket_ = QString::fromLocal8Bit(name);
        qputenv("WAYLAND_DISPLAY", name);
    }
    thread_ = std::thread([this] {
        wl_event_loop* loop = wl_display_get_event_loop(display_);
        while (!stop_) {
            wl_display_flush_clients(display_);
            wl_event_loop_dispatch(loop, 20); // the longest a stop waits
        }
    });
}

DataControlCompositor::~DataControlCompositor() {
    stop_ = true;
    thread_.join();
    wl_display_destroy_clients(display_);
    wl_display_destroy(display_);
}

} // namespace ombry::test
