#pragma once

#include "model/Geometry.h"

#include <pipewire/pipewire.h>
#include <spa/buffer/meta.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace marlowick::test {

// A screen that a test shares through PipeWire, as a desktop's screen-sharing service would: a producer
// stream that drives itself at a steady rate, each picture a dark blue field with a 32-pixel square whose
// place tells the picture's number, stamped with its presentation time on the monotonic clock (steps of
// the period from the first picture, less a few milliseconds of work that vary), with the pointer
// at a known place in the cursor metadata where that is offered.
//
// The square is white, or red for the formats with red first in memory, so that a consumer that reads the
// channels the wrong way round shows it blue. While a flash is on (`setFlash`), the whole picture is
// white instead, for a test that times the pictures against the sound.
//
// The pictures go in shared memory that PipeWire allocates, or, offering only the DMA-BUF format, in
// buffers the producer allocates itself and hands out as DMA-BUFs: memory files, which map as a linear
// DMA-BUF does but refuse its cache synchronisation.
class SyntheticScreen {
public:
    struct Options {
        int width = 320;
        int height = 240;
        int frameRate = 60;
        spa_video_format format = SPA_VIDEO_FORMAT_BGRx;
        bool cursorMetadata = true;
        int cursorSide = 64; // of the largest cursor bitmap the metadata makes room for, in pixels
        bool dmaBuf = false;
        // The DMA-BUF layouts offered: one is fixed; several are left open, and the producer fixes the first
        // that the link keeps. The buffers are linear whatever is named.
        std::vector<std::uint64_t> modifiers{0}; // DRM's linear layout
    };

    // A picture as it was sent.
    struct Sent {
        int number;        // of the picture, from 0
        std::uint64_t pts; // nanoseconds on the monotonic clock
        Point cursor;
        bool flash = false; // the picture was all white
    };

    // Where the square of picture `number` lies (its top left corner) and where the pointer is.
    static Point squareOf(int number) { return {8.0 + (number % 64) * 4, 8.0 + ((number / 64) % 8) * 24}; }
    static Point cursorOf(int number) { return {100.0 + (number % 97), 50.0 + (number % 13) * 3}; }
    // The picture number whose square lies at `corner`, its upper part (pictures 512 apart look alike).
    static int numberOf(Point corner) {
        const int column = static_cast<int>(std::lround((corner.x - 8) / 4));
        const int row = static_cast<int>(std::lround((corner.y - 8) / 24));
        return row * 64 + column;
    }

    // Connects on `fd`, a connection to the daemon that this takes over.
    SyntheticScreen(int fd, Options options)
        : m_options(options) {
        pw_init(nullptr, nullptr);
        m_loop = pw_thread_loop_new("synthetic-screen", nullptr);
        m_context = pw_context_new(pw_thread_loop_get_loop(m_loop), nullptr, 0);
        pw_thread_loop_start(m_loop);
        pw_thread_loop_lock(m_loop);
        m_core = pw_context_connect_fd(m_context, fd, nullptr, 0);
        if (m_core == nullptr) {
            pw_thread_loop_unlock(m_loop);
            throw std::runtime_error("the synthetic screen can't connect to PipeWire");
        }
        m_stream = pw_stream_new(m_core, "synthetic-screen",
                                 pw_properties_new(PW_KEY_MEDIA_CLASS, "Video/Source", PW_KEY_NODE_NAME,
                                                   "synthetic-screen", nullptr));
        static const pw_stream_events events = [] {
            pw_stream_events e{};
            e.version = PW_VERSION_STREAM_EVENTS;
            e.state_changed = [](void* data, pw_stream_state, pw_stream_state state, const char*) {
                auto* self = static_cast<SyntheticScreen*>(data);
                self->m_streaming = state == PW_STREAM_STATE_STREAMING;
                pw_thread_loop_signal(self->m_loop, false);
            };
            e.param_changed = [](void* data, std::uint32_t id, const spa_pod* param) {
                if (id == SPA_PARAM_Format && param != nullptr) {
                    static_cast<SyntheticScreen*>(data)->formatAgreed(param);
                }
            };
            e.process = [](void* data) { static_cast<SyntheticScreen*>(data)->produce(); };
            e.add_buffer = [](void* data, pw_buffer* buffer) {
                static_cast<SyntheticScreen*>(data)->allocate(buffer);
            };
            e.remove_buffer = [](void* data, pw_buffer* buffer) {
                static_cast<SyntheticScreen*>(data)->release(buffer);
            };
            return e;
        }();
        pw_stream_add_listener(m_stream, &m_listener, &events, this);

        std::uint8_t memory[512];
        spa_pod_builder b{};
        spa_pod_builder_init(&b, memory, sizeof memory);
        const spa_pod* params[] = {enumFormat(b)};
        const int allocates = m_options.dmaBuf ? PW_STREAM_FLAG_ALLOC_BUFFERS : 0;
        pw_stream_connect(
            m_stream, PW_DIRECTION_OUTPUT, PW_ID_ANY,
            static_cast<pw_stream_flags>(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS | allocates),
            params, 1);

        m_timer = pw_loop_add_timer(
            pw_thread_loop_get_loop(m_loop),
            [](void* data, std::uint64_t) {
                auto* self = static_cast<SyntheticScreen*>(data);
                if (self->m_streaming && self->m_stream != nullptr) {
                    pw_stream_trigger_process(self->m_stream);
                }
            },
            this);
        timespec value{0, 1};
        timespec interval{0, static_cast<long>(1'000'000'000 / m_options.frameRate)};
        pw_loop_update_timer(pw_thread_loop_get_loop(m_loop), m_timer, &value, &interval, false);
        pw_thread_loop_unlock(m_loop);
    }

    ~SyntheticScreen() {
        stop();
        pw_thread_loop_lock(m_loop);
        pw_loop_destroy_source(pw_thread_loop_get_loop(m_loop), m_timer);
        if (m_link != nullptr) {
            pw_proxy_destroy(m_link);
        }
        pw_core_disconnect(m_core);
        pw_thread_loop_unlock(m_loop);
        pw_thread_loop_stop(m_loop);
        pw_context_destroy(m_context);
        pw_thread_loop_destroy(m_loop);
    }
    SyntheticScreen(const SyntheticScreen&) = delete;
    SyntheticScreen& operator=(const SyntheticScreen&) = delete;

    // The producer's node, which a consumer asks for.
    std::uint32_t nodeId() {
        pw_thread_loop_lock(m_loop);
        std::uint32_t id = SPA_ID_INVALID;
        for (int i = 0; i < 50 && (id = pw_stream_get_node_id(m_stream)) == SPA_ID_INVALID; ++i) {
            pw_thread_loop_timed_wait(m_loop, 1);
        }
        pw_thread_loop_unlock(m_loop);
        return id;
    }

    // Links the producer to a consumer's node, as a session manager would.
    void link(std::uint32_t consumer) {
        const std::uint32_t producer = nodeId();
        pw_thread_loop_lock(m_loop);
        pw_properties* properties = pw_properties_new(nullptr, nullptr);
        pw_properties_setf(properties, PW_KEY_LINK_OUTPUT_NODE, "%u", producer);
        pw_properties_setf(properties, PW_KEY_LINK_INPUT_NODE, "%u", consumer);
        // A second take links the producer to a new consumer: the link to the last one goes.
        if (m_link != nullptr) {
            pw_proxy_destroy(m_link);
        }
        m_link = static_cast<pw_proxy*>(pw_core_create_object(m_core, "link-factory", PW_TYPE_INTERFACE_Link,
                                                              PW_VERSION_LINK, &properties->dict, 0));
        pw_properties_free(properties);
        pw_thread_loop_unlock(m_loop);
    }

    // Stops producing and takes the stream's node away, as a desktop does when sharing ends.
    void stop() {
        pw_thread_loop_lock(m_loop);
        if (m_stream != nullptr) {
            spa_hook_remove(&m_listener);
            pw_stream_destroy(m_stream);
            m_stream = nullptr;
            m_streaming = false;
        }
        pw_thread_loop_unlock(m_loop);
    }

    // Makes the pictures from the next one on all white, or ordinary again; from any thread.
    void setFlash(bool on) { m_flash = on; }

    // How many DMA-BUFs the producer has handed to PipeWire.
    int dmaBuffers() {
        pw_thread_loop_lock(m_loop);
        const int count = m_dmaBuffers;
        pw_thread_loop_unlock(m_loop);
        return count;
    }

    std::vector<Sent> sent() {
        std::lock_guard lock(m_lock);
        return m_sent;
    }

    // Waits until `count` pictures have been sent; false when they aren't within ten seconds.
    bool waitForPictures(std::size_t count) {
        for (int i = 0; i < 1000; ++i) {
            {
                std::lock_guard lock(m_lock);
                if (m_sent.size() >= count) {
                    return true;
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

private:
    std::uint32_t cursorMetaSize() const {
        return static_cast<std::uint32_t>(sizeof(spa_meta_cursor) + sizeof(spa_meta_bitmap) +
                                          m_options.cursorSide * m_options.cursorSide * 4);
    }

    static const spa_pod* meta(spa_pod_builder& b, spa_meta_type type, std::uint32_t size) {
        spa_pod_frame object{};
        spa_pod_builder_push_object(&b, &object, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta);
        spa_pod_builder_prop(&b, SPA_PARAM_META_type, 0);
        spa_pod_builder_id(&b, type);
        spa_pod_builder_prop(&b, SPA_PARAM_META_size, 0);
        spa_pod_builder_int(&b, static_cast<std::int32_t>(size));
        return static_cast<const spa_pod*>(spa_pod_builder_pop(&b, &object));
    }

    const spa_pod* enumFormat(spa_pod_builder& b) const {
        spa_pod_frame object{};
        spa_pod_frame choice{};
        spa_pod_builder_push_object(&b, &object, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
        spa_pod_builder_prop(&b, SPA_FORMAT_mediaType, 0);
        spa_pod_builder_id(&b, SPA_MEDIA_TYPE_video);
        spa_pod_builder_prop(&b, SPA_FORMAT_mediaSubtype, 0);
        spa_pod_builder_id(&b, SPA_MEDIA_SUBTYPE_raw);
        spa_pod_builder_prop(&b, SPA_FORMAT_VIDEO_format, 0);
        spa_pod_builder_id(&b, m_options.format);
        if (m_options.dmaBuf) {
            const std::vector<std::uint64_t> modifiers =
                m_fixedModifier ? std::vector<std::uint64_t>{*m_fixedModifier} : m_options.modifiers;
            if (modifiers.size() == 1) {
                spa_pod_builder_prop(&b, SPA_FORMAT_VIDEO_modifier, SPA_POD_PROP_FLAG_MANDATORY);
                spa_pod_builder_long(&b, static_cast<std::int64_t>(modifiers.front()));
            } else {
                spa_pod_builder_prop(&b, SPA_FORMAT_VIDEO_modifier,
                                     SPA_POD_PROP_FLAG_MANDATORY | SPA_POD_PROP_FLAG_DONT_FIXATE);
                spa_pod_builder_push_choice(&b, &choice, SPA_CHOICE_Enum, 0);
                spa_pod_builder_long(&b, static_cast<std::int64_t>(modifiers.front()));
                for (const std::uint64_t modifier : modifiers) {
                    spa_pod_builder_long(&b, static_cast<std::int64_t>(modifier));
                }
                spa_pod_builder_pop(&b, &choice);
            }
        }
        spa_pod_builder_prop(&b, SPA_FORMAT_VIDEO_size, 0);
        spa_pod_builder_rectangle(&b, static_cast<std::uint32_t>(m_options.width),
                                  static_cast<std::uint32_t>(m_options.height));
        spa_pod_builder_prop(&b, SPA_FORMAT_VIDEO_framerate, 0);
        spa_pod_builder_fraction(&b, static_cast<std::uint32_t>(m_options.frameRate), 1);
        return static_cast<const spa_pod*>(spa_pod_builder_pop(&b, &object));
    }

    // The producer's own buffers, where it hands out DMA-BUFs: a memory file each, mapped for drawing.
    void allocate(pw_buffer* buffer) {
        spa_data& data = buffer->buffer->datas[0];
        if (!m_options.dmaBuf || (data.type & (1u << SPA_DATA_DmaBuf)) == 0) {
            return;
        }
        const std::uint32_t size = static_cast<std::uint32_t>(m_options.width * m_options.height * 4);
        const int fd = memfd_create("synthetic-screen", MFD_CLOEXEC);
        void* mapped = fd >= 0 && ftruncate(fd, size) == 0
                           ? mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0)
                           : MAP_FAILED;
        if (mapped == MAP_FAILED) {
            if (fd >= 0) {
                ::close(fd);
            }
            return;
        }
        data.type = SPA_DATA_DmaBuf;
        data.flags = SPA_DATA_FLAG_READWRITE;
        data.fd = fd;
        data.mapoffset = 0;
        data.maxsize = size;
        data.data = mapped;
        m_dmaBuffers += 1;
    }

    void release(pw_buffer* buffer) {
        spa_data& data = buffer->buffer->datas[0];
        if (data.type == SPA_DATA_DmaBuf && data.data != nullptr) {
            munmap(data.data, data.maxsize);
            ::close(static_cast<int>(data.fd));
            data.data = nullptr;
            data.fd = -1;
        }
    }

    void formatAgreed(const spa_pod* format) {
        std::uint8_t memory[512];
        spa_pod_builder b{};
        spa_pod_builder_init(&b, memory, sizeof memory);
        // A layout left open is the allocator's to fix, as a GPU's producer does after a trial allocation:
        // it offers the format again with the first layout of the choice alone, and the format comes back
        // fixed.
        if (const spa_pod_prop* modifier = spa_pod_find_prop(format, nullptr, SPA_FORMAT_VIDEO_modifier)) {
            std::uint32_t count = 0;
            std::uint32_t choice = SPA_CHOICE_None;
            const spa_pod* values = spa_pod_get_values(&modifier->value, &count, &choice);
            if (choice != SPA_CHOICE_None && count > 0 && values->type == SPA_TYPE_Long && !m_fixedModifier) {
                m_fixedModifier =
                    static_cast<std::uint64_t>(*static_cast<const std::int64_t*>(SPA_POD_BODY_CONST(values)));
                const spa_pod* params[] = {enumFormat(b)};
                pw_stream_update_params(m_stream, params, 1);
                return;
            }
        }
        spa_pod_frame object{};
        spa_pod_builder_push_object(&b, &object, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers);
        spa_pod_builder_prop(&b, SPA_PARAM_BUFFERS_buffers, 0);
        spa_pod_builder_int(&b, 4);
        spa_pod_builder_prop(&b, SPA_PARAM_BUFFERS_blocks, 0);
        spa_pod_builder_int(&b, 1);
        spa_pod_builder_prop(&b, SPA_PARAM_BUFFERS_size, 0);
        spa_pod_builder_int(&b, m_options.width * m_options.height * 4);
        spa_pod_builder_prop(&b, SPA_PARAM_BUFFERS_stride, 0);
        spa_pod_builder_int(&b, m_options.width * 4);
        if (m_options.dmaBuf) {
            spa_pod_frame choice{};
            spa_pod_builder_prop(&b, SPA_PARAM_BUFFERS_dataType, 0);
            spa_pod_builder_push_choice(&b, &choice, SPA_CHOICE_Flags, 0);
            spa_pod_builder_int(&b, 1 << SPA_DATA_DmaBuf);
            spa_pod_builder_pop(&b, &choice);
        }
        std::vector<const spa_pod*> params{static_cast<const spa_pod*>(spa_pod_builder_pop(&b, &object))};
        params.push_back(meta(b, SPA_META_Header, sizeof(spa_meta_header)));
        if (m_options.cursorMetadata) {
            params.push_back(meta(b, SPA_META_Cursor, cursorMetaSize()));
        }
        pw_stream_update_params(m_stream, params.data(), static_cast<std::uint32_t>(params.size()));
    }

    static std::uint64_t monotonicNanoseconds() {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000ull +
               static_cast<std::uint64_t>(now.tv_nsec);
    }

    void produce() {
        const int number = m_next++;
        if (m_firstPts == 0) {
            m_firstPts = monotonicNanoseconds();
        }
        // Shown a little before it is sent, by 0 to 8 ms, varying from picture to picture as a compositor's
        // work does: a consumer that stamps pictures on arrival gets their times wrong by as much.
        const std::uint64_t pts = m_firstPts +
                                  static_cast<std::uint64_t>(number) * 1'000'000'000ull /
                                      static_cast<std::uint64_t>(m_options.frameRate) -
                                  static_cast<std::uint64_t>(number % 5) * 2'000'000ull;
        pw_buffer* buffer = pw_stream_dequeue_buffer(m_stream);
        if (buffer == nullptr) {
            return; // the consumer holds every buffer: this picture is lost, and its number skipped
        }
        spa_buffer* b = buffer->buffer;
        spa_data& data = b->datas[0];
        auto* pixels = static_cast<std::uint8_t*>(data.data);
        const int stride = m_options.width * 4;
        if (pixels == nullptr || data.maxsize < static_cast<std::uint32_t>(stride * m_options.height)) {
            std::fprintf(stderr, "synthetic screen: buffer %p of %u bytes, type %u\n", data.data,
                         data.maxsize, data.type);
            pw_stream_queue_buffer(m_stream, buffer);
            return;
        }
        const bool redFirst =
            m_options.format == SPA_VIDEO_FORMAT_RGBx || m_options.format == SPA_VIDEO_FORMAT_RGBA;
        // Dark blue, and the square white or red, in the stream's byte order.
        const std::uint8_t field[4] = {static_cast<std::uint8_t>(redFirst ? 0 : 96), 0,
                                       static_cast<std::uint8_t>(redFirst ? 96 : 0), 255};
        const std::uint8_t square[4] = {static_cast<std::uint8_t>(redFirst ? 255 : 255),
                                        static_cast<std::uint8_t>(redFirst ? 0 : 255),
                                        static_cast<std::uint8_t>(redFirst ? 0 : 255), 255};
        const std::uint8_t white[4] = {255, 255, 255, 255};
        const Point corner = squareOf(number);
        const bool flash = m_flash;
        for (int y = 0; y < m_options.height; ++y) {
            std::uint8_t* row = pixels + static_cast<std::ptrdiff_t>(y) * stride;
            const bool inRows = y >= corner.y && y < corner.y + 32;
            for (int x = 0; x < m_options.width; ++x) {
                const bool in = inRows && x >= corner.x && x < corner.x + 32;
                std::memcpy(row + 4 * x, flash ? white : in ? square : field, 4);
            }
        }
        data.chunk->offset = 0;
        data.chunk->stride = stride;
        data.chunk->size = static_cast<std::uint32_t>(stride * m_options.height);
        if (auto* header = static_cast<spa_meta_header*>(
                spa_buffer_find_meta_data(b, SPA_META_Header, sizeof(spa_meta_header)))) {
            header->pts = static_cast<std::int64_t>(pts);
            header->seq = static_cast<std::uint64_t>(number);
            header->flags = 0;
            header->dts_offset = 0;
        }
        const Point cursor = cursorOf(number);
        if (auto* meta = static_cast<spa_meta_cursor*>(
                spa_buffer_find_meta_data(b, SPA_META_Cursor, sizeof(spa_meta_cursor)))) {
            meta->id = 1;
            meta->flags = 0;
            meta->position = {static_cast<std::int32_t>(cursor.x), static_cast<std::int32_t>(cursor.y)};
            meta->hotspot = {0, 0};
            meta->bitmap_offset = 0; // no picture of the cursor: the position is what matters
        }
        pw_stream_queue_buffer(m_stream, buffer);
        std::lock_guard lock(m_lock);
        m_sent.push_back({number, pts, cursor, flash});
    }

    Options m_options;
    pw_thread_loop* m_loop = nullptr;
    pw_context* m_context = nullptr;
    pw_core* m_core = nullptr;
    pw_stream* m_stream = nullptr; // under the loop's lock
    pw_proxy* m_link = nullptr;
    spa_hook m_listener{};
    spa_source* m_timer = nullptr;
    bool m_streaming = false;                     // the loop's thread, or under its lock
    int m_dmaBuffers = 0;                         // the loop's thread, or under its lock
    std::optional<std::uint64_t> m_fixedModifier; // the loop's thread only
    int m_next = 0;                               // the loop's thread only
    std::uint64_t m_firstPts = 0;
    std::atomic<bool> m_flash = false;
    std::mutex m_lock; // guards m_sent
    std::vector<Sent> m_sent;
};

} // namespace marlowick::test
