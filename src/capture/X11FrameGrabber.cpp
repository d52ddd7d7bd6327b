#include "capture/X11FrameGrabber.h"

#include "capture/CaptureError.h"
#include "capture/X11Connection.h"

#include <xcb/shm.h>
#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <vector>

namespace marlowick {

namespace {

// A System V shared-memory segment, attached here; marked for removal at once, so that it goes away with
// the last process that has it attached, even after a crash.
struct SharedSegment {
    int id = -1;
    std::uint8_t* data = nullptr;

    explicit SharedSegment(std::size_t bytes) {
        id = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
        if (id < 0) {
            return;
        }
        void* address = shmat(id, nullptr, 0);
        if (address == reinterpret_cast<void*>(-1)) {
            shmctl(id, IPC_RMID, nullptr);
            id = -1;
            return;
        }
        data = static_cast<std::uint8_t*>(address);
    }
    ~SharedSegment() {
        if (data != nullptr) {
            shmdt(data);
        }
        if (id >= 0) {
            shmctl(id, IPC_RMID, nullptr);
        }
    }
    SharedSegment(const SharedSegment&) = delete;
    SharedSegment& operator=(const SharedSegment&) = delete;
};

} // namespace

struct X11FrameGrabber::State {
    std::shared_ptr<X11Connection> connection;
    xcb_window_t root = 0;
    int x = 0; // the picture's top left on the root
    int y = 0;
    int width = 0;
    int height = 0;
    std::unique_ptr<SharedSegment> segment;
    xcb_shm_seg_t serverSegment = 0;
    std::vector<std::uint8_t> copied; // the picture read through the socket, without shared memory
};

X11FrameGrabber::X11FrameGrabber(const std::string& display)
    : X11FrameGrabber(std::make_shared<X11Connection>(display)) {}

X11FrameGrabber::X11FrameGrabber(std::shared_ptr<X11Connection> connection,
                                 const std::optional<ScreenMonitor>& monitor)
    : m_state(std::make_unique<State>()) {
    State& s = *m_state;
    s.connection = std::move(connection);
    xcb_connection_t* c = s.connection->get();
    const xcb_screen_t* screen = &s.connection->screen();
    if (screen->root_depth != 24 && screen->root_depth != 32) {
        throw CaptureError(CaptureError::Kind::captureUnavailable, "the screen is " +
                                                                       std::to_string(screen->root_depth) +
                                                                       " bits deep; 24 or 32 are read");
    }
    s.root = screen->root;
    s.width = screen->width_in_pixels;
    s.height = screen->height_in_pixels;
    if (monitor) {
        s.x = monitor->x;
        s.y = monitor->y;
        s.width = monitor->width;
        s.height = monitor->height;
    }

    const xcb_query_extension_reply_t* shm = xcb_get_extension_data(c, &xcb_shm_id);
    if (shm != nullptr && shm->present != 0) {
        auto segment = std::make_unique<SharedSegment>(static_cast<std::size_t>(s.width) *
                                                       static_cast<std::size_t>(s.height) * 4);
        if (segment->data != nullptr) {
            s.serverSegment = xcb_generate_id(c);
            xcb_generic_error_t* error = xcb_request_check(
                c, xcb_shm_attach_checked(c, s.serverSegment, static_cast<std::uint32_t>(segment->id), 0));
            if (error == nullptr) {
                s.segment = std::move(segment);
            }
            std::free(error);
        }
    }
}

X11FrameGrabber::~X11FrameGrabber() {
    State& s = *m_state;
    if (s.segment) {
        xcb_shm_detach(s.connection->get(), s.serverSegment);
        xcb_flush(s.connection->get());
    }
}

int X11FrameGrabber::width() const {
    return m_state->width;
}
int X11FrameGrabber::height() const {
    return m_state->height;
}
int X11FrameGrabber::stride() const {
    return m_state->width * 4;
}
bool X11FrameGrabber::sharesMemory() const {
    return m_state->segment != nullptr;
}

const std::uint8_t* X11FrameGrabber::grab() {
    State& s = *m_state;
    xcb_connection_t* c = s.connection->get();
    xcb_generic_error_t* error = nullptr;
    const auto x = static_cast<std::int16_t>(s.x);
    const auto y = static_cast<std::int16_t>(s.y);
    const auto w = static_cast<std::uint16_t>(s.width);
    const auto h = static_cast<std::uint16_t>(s.height);
    if (s.segment) {
        xcb_shm_get_image_reply_t* reply = xcb_shm_get_image_reply(
            c, xcb_shm_get_image(c, s.root, x, y, w, h, ~0u, XCB_IMAGE_FORMAT_Z_PIXMAP, s.serverSegment, 0),
            &error);
        if (reply != nullptr) {
            std::free(reply);
            return s.segment->data;
        }
    } else {
        xcb_get_image_reply_t* reply = xcb_get_image_reply(
            c, xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, s.root, x, y, w, h, ~0u), &error);
        if (reply != nullptr) {
            const std::uint8_t* data = xcb_get_image_data(reply);
            s.copied.assign(data, data + xcb_get_image_data_length(reply));
            std::free(reply);
            return s.copied.data();
        }
    }
    const int code = error != nullptr ? error->error_code : 0;
    std::free(error);
    throw CaptureError(CaptureError::Kind::captureUnavailable,
                       "the X server refused to give the screen (error " + std::to_string(code) + ")");
}

} // namespace marlowick
