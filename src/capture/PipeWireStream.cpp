#include "capture/PipeWireStream.h"

#include "capture/CaptureError.h"
#include "capture/MonotonicClock.h"

#include <pipewire/pipewire.h>
#include <spa/buffer/meta.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>

#include <linux/dma-buf.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <unistd.h>
#include <vector>

namespace marlowick {

namespace {

// Room for the cursor's metadata with a bitmap of 64 × 64 up to 1024 × 1024 pixels: the producer fills the
// bitmap too and asks for room of its own choosing (a desktop asked for 384 × 384), and metadata whose size
// the two sides don't both allow is left out of the buffers altogether.
constexpr std::uint32_t cursorMetaSize(std::uint32_t side) {
    return static_cast<std::uint32_t>(sizeof(spa_meta_cursor) + sizeof(spa_meta_bitmap)) + side * side * 4;
}

void initialisePipeWire() {
    static std::once_flag once;
    std::call_once(once, [] { pw_init(nullptr, nullptr); });
}

// The layouts of a DMA-BUF this stream reads: only rows one after the other, which the processor reads
// through a mapping of the buffer. Tiled layouts would need the GPU to import them (EGL's DMA-BUF import),
// which the software renderer here lacks, so none is offered. (The value is DRM's linear modifier.)
constexpr std::uint64_t linearModifier = 0;
constexpr std::uint64_t readableModifiers[] = {linearModifier};

bool readable(std::uint64_t modifier) {
    for (const std::uint64_t taken : readableModifiers) {
        if (taken == modifier) {
            return true;
        }
    }
    return false;
}

std::string describeModifiers(const std::vector<std::uint64_t>& modifiers) {
    std::string text;
    for (const std::uint64_t modifier : modifiers) {
        char hex[24];
        std::snprintf(hex, sizeof hex, "0x%" PRIx64, modifier);
        text += (text.empty() ? "" : ", ") + std::string(hex);
    }
    return text;
}

// The pictures the stream takes: 32-bit pixels of any size and rate, in DMA-BUFs of the layouts in
// `modifiers` where that is given, else in shared memory. The layout is left for the producer to fix: it
// allocates the buffers.
const spa_pod* enumFormat(spa_pod_builder& b, const std::vector<std::uint64_t>* modifiers = nullptr) {
    spa_pod_frame object{};
    spa_pod_frame choice{};
    spa_pod_builder_push_object(&b, &object, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_prop(&b, SPA_FORMAT_mediaType, 0);
    spa_pod_builder_id(&b, SPA_MEDIA_TYPE_video);
    spa_pod_builder_prop(&b, SPA_FORMAT_mediaSubtype, 0);
    spa_pod_builder_id(&b, SPA_MEDIA_SUBTYPE_raw);
    spa_pod_builder_prop(&b, SPA_FORMAT_VIDEO_format, 0);
    spa_pod_builder_push_choice(&b, &choice, SPA_CHOICE_Enum, 0);
    for (const spa_video_format format : {SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_BGRA,
                                          SPA_VIDEO_FORMAT_RGBx, SPA_VIDEO_FORMAT_RGBA}) {
        spa_pod_builder_id(&b, format);
    }
    spa_pod_builder_pop(&b, &choice);
    if (modifiers != nullptr && !modifiers->empty()) {
        spa_pod_builder_prop(&b, SPA_FORMAT_VIDEO_modifier,
                             SPA_POD_PROP_FLAG_MANDATORY | SPA_POD_PROP_FLAG_DONT_FIXATE);
        spa_pod_builder_push_choice(&b, &choice, SPA_CHOICE_Enum, 0);
        spa_pod_builder_long(&b, static_cast<std::int64_t>(modifiers->front()));
        for (const std::uint64_t modifier : *modifiers) {
            spa_pod_builder_long(&b, static_cast<std::int64_t>(modifier));
        }
        spa_pod_builder_pop(&b, &choice);
    }
    spa_pod_builder_prop(&b, SPA_FORMAT_VIDEO_size, 0);
    spa_pod_builder_push_choice(&b, &choice, SPA_CHOICE_Range, 0);
    spa_pod_builder_rectangle(&b, 1920, 1080);
    spa_pod_builder_rectangle(&b, 1, 1);
    spa_pod_builder_rectangle(&b, 16384, 16384);
    spa_pod_builder_pop(&b, &choice);
    spa_pod_builder_prop(&b, SPA_FORMAT_VIDEO_framerate, 0);
    spa_pod_builder_push_choice(&b, &choice, SPA_CHOICE_Range, 0);
    spa_pod_builder_fraction(&b, 60, 1);
    spa_pod_builder_fraction(&b, 0, 1);
    spa_pod_builder_fraction(&b, 360, 1);
    spa_pod_builder_pop(&b, &choice);
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&b, &object));
}

const spa_pod* bufferParams(spa_pod_builder& b) {
    spa_pod_frame object{};
    spa_pod_frame choice{};
    spa_pod_builder_push_object(&b, &object, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers);
    // Shared memory, or a DMA-BUF that the processor can map: one of a linear layout, or one that a producer
    // without modifiers hands out as mappable (a camera's, say).
    spa_pod_builder_prop(&b, SPA_PARAM_BUFFERS_dataType, 0);
    spa_pod_builder_push_choice(&b, &choice, SPA_CHOICE_Flags, 0);
    spa_pod_builder_int(&b, (1 << SPA_DATA_MemPtr) | (1 << SPA_DATA_MemFd) | (1 << SPA_DATA_DmaBuf));
    spa_pod_builder_pop(&b, &choice);
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&b, &object));
}

const spa_pod* metaParam(spa_pod_builder& b, spa_meta_type type, std::uint32_t size, std::uint32_t largest) {
    spa_pod_frame object{};
    spa_pod_frame choice{};
    spa_pod_builder_push_object(&b, &object, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta);
    spa_pod_builder_prop(&b, SPA_PARAM_META_type, 0);
    spa_pod_builder_id(&b, type);
    spa_pod_builder_prop(&b, SPA_PARAM_META_size, 0);
    if (largest > size) {
        spa_pod_builder_push_choice(&b, &choice, SPA_CHOICE_Range, 0);
        spa_pod_builder_int(&b, static_cast<std::int32_t>(largest));
        spa_pod_builder_int(&b, static_cast<std::int32_t>(size));
        spa_pod_builder_int(&b, static_cast<std::int32_t>(largest));
        spa_pod_builder_pop(&b, &choice);
    } else {
        spa_pod_builder_int(&b, static_cast<std::int32_t>(size));
    }
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&b, &object));
}

// A DMA-BUF's first plane mapped for reading, from the buffer's arrival to its removal: mapping it once
// spares a system call and the page faults on every picture.
class DmaBufMapping {
public:
    DmaBufMapping() = default;
    ~DmaBufMapping() {
        if (m_mapped != MAP_FAILED) {
            ::munmap(m_mapped, m_mappedSize);
        }
    }
    DmaBufMapping(const DmaBufMapping&) = delete;
    DmaBufMapping& operator=(const DmaBufMapping&) = delete;

    // Maps `data`; gives why not where that fails. A producer may leave the size out (0), and then the
    // size is the fd's own.
    std::optional<std::string> map(const spa_data& data) {
        m_fd = static_cast<int>(data.fd);
        const off_t end = ::lseek(m_fd, 0, SEEK_END);
        std::uint64_t total = data.maxsize > 0 ? std::uint64_t{data.mapoffset} + data.maxsize
                                               : static_cast<std::uint64_t>(end > 0 ? end : 0);
        if (end > 0 && total > static_cast<std::uint64_t>(end)) {
            total = static_cast<std::uint64_t>(end);
        }
        if (total <= data.mapoffset) {
            return std::string("its size is unknown");
        }
        m_mapped = ::mmap(nullptr, total, PROT_READ, MAP_SHARED, m_fd, 0);
        if (m_mapped == MAP_FAILED) {
            return std::string(std::strerror(errno));
        }
        m_mappedSize = total;
        m_base = static_cast<const std::uint8_t*>(m_mapped) + data.mapoffset;
        m_size = total - data.mapoffset;
        return std::nullopt;
    }

    const std::uint8_t* base() const { return m_base; }
    std::uint64_t size() const { return m_size; }

    // Brackets a read with the DMA-BUF's cache synchronisation (`phase` is DMA_BUF_SYNC_START or _END). An
    // fd that refuses it (shared memory announced as a DMA-BUF) is read as it is, and not asked again.
    void sync(std::uint64_t phase) {
        if (!m_syncs) {
            return;
        }
        dma_buf_sync request{phase | DMA_BUF_SYNC_READ};
        int result = 0;
        do {
            result = ::ioctl(m_fd, DMA_BUF_IOCTL_SYNC, &request);
        } while (result < 0 && (errno == EINTR || errno == EAGAIN));
        if (result < 0) {
            m_syncs = false;
        }
    }

private:
    int m_fd = -1; // owned by the buffer
    void* m_mapped = MAP_FAILED;
    std::size_t m_mappedSize = 0;
    const std::uint8_t* m_base = nullptr;
    std::uint64_t m_size = 0;
    bool m_syncs = true;
};

} // namespace

struct PipeWireStream::State {
    Handler handler;
    std::uint32_t target = SPA_ID_INVALID;
    pw_thread_loop* loop = nullptr;
    pw_context* context = nullptr;
    pw_core* core = nullptr;
    pw_registry* registry = nullptr;
    pw_stream* stream = nullptr;
    spa_hook coreListener{};
    spa_hook registryListener{};
    spa_hook streamListener{};

    // Written by the loop's thread and read from any without the loop's lock, which may be gone: the loop
    // itself is destroyed by `stop`, and a caller on another thread can't know when.
    std::atomic<bool> cursorMetadata = false;

    // Guarded by the loop's lock (held by the loop's thread while it calls back).
    std::optional<spa_video_info_raw> format;
    bool buffersAdded = false;
    std::optional<std::string> endedWhy;
    bool stopped = false;

    // The loop's thread only.
    std::vector<std::uint8_t> swapped;                             // a picture with red and blue exchanged
    std::map<pw_buffer*, std::unique_ptr<DmaBufMapping>> mappings; // each also the buffer's user_data
    // The links in the graph, watched for one to this stream that fails: a producer whose formats none
    // match says nothing to the stream itself.
    struct LinkWatch {
        State* state = nullptr;
        pw_proxy* proxy = nullptr;
        spa_hook listener{};
    };
    std::map<std::uint32_t, std::unique_ptr<LinkWatch>> links;
    std::optional<Point> lastCursor;
    std::optional<std::uint64_t> lastSequence;

    void end(const std::string& why) {
        if (endedWhy || stopped) {
            return;
        }
        endedWhy = why;
        pw_thread_loop_signal(loop, false);
        if (handler.ended) {
            handler.ended(why);
        }
    }

    void process();
    void formatChanged(const spa_pod* param);
    bool modifierAgreed(const spa_pod* param, std::optional<std::uint64_t>& modifier);
    void bufferAdded(pw_buffer* buffer);
    void bufferRemoved(pw_buffer* buffer);
    void linkAppeared(std::uint32_t id, const char* type, const spa_dict* properties);
    void linkChanged(const pw_link_info* info);
};

// Whether the format's DMA-BUF layout, where it names one, can be read here. The producer may leave the
// layout a choice (it allocates, and fixes it itself); since the stream offers the layouts it reads, the
// choice is among those, and the first is taken.
bool PipeWireStream::State::modifierAgreed(const spa_pod* param, std::optional<std::uint64_t>& modifier) {
    const spa_pod_prop* property = spa_pod_find_prop(param, nullptr, SPA_FORMAT_VIDEO_modifier);
    if (property == nullptr) {
        return true; // shared memory
    }
    std::uint32_t count = 0;
    std::uint32_t choice = SPA_CHOICE_None;
    const spa_pod* values = spa_pod_get_values(&property->value, &count, &choice);
    std::vector<std::uint64_t> offered;
    if (values != nullptr && values->type == SPA_TYPE_Long) {
        const auto* longs = static_cast<const std::int64_t*>(SPA_POD_BODY_CONST(values));
        for (std::uint32_t i = 0; i < count; ++i) {
            const auto value = static_cast<std::uint64_t>(longs[i]);
            if (std::find(offered.begin(), offered.end(), value) == offered.end()) {
                offered.push_back(value);
            }
        }
    }
    const auto chosen = std::find_if(offered.begin(), offered.end(), readable);
    if (chosen == offered.end()) {
        end("the shared screen gives its pictures only as DMA-BUFs of a layout this recorder can't read (" +
            (offered.empty() ? std::string("none named") : "modifiers " + describeModifiers(offered)) +
            "); it reads linear ones and shared memory");
        return false;
    }
    modifier = *chosen;
    return true;
}

void PipeWireStream::State::bufferAdded(pw_buffer* buffer) {
    spa_buffer* b = buffer->buffer;
    if (b->n_datas > 0 && b->datas[0].type == SPA_DATA_DmaBuf) {
        auto mapping = std::make_unique<DmaBufMapping>();
        if (const std::optional<std::string> why = mapping->map(b->datas[0])) {
            end("a DMA-BUF of the shared screen can't be mapped for reading (" + *why + ")");
            return;
        }
        buffer->user_data = mapping.get();
        mappings[buffer] = std::move(mapping);
    }
    buffersAdded = true;
    if (spa_buffer_find_meta(b, SPA_META_Cursor) != nullptr) {
        cursorMetadata = true;
    }
    pw_thread_loop_signal(loop, false);
}

void PipeWireStream::State::linkAppeared(std::uint32_t id, const char* type, const spa_dict* properties) {
    if (std::strcmp(type, PW_TYPE_INTERFACE_Link) != 0 || links.contains(id) || stream == nullptr) {
        return;
    }
    // Only links into this stream's node, where the daemon says which node a link feeds.
    const char* input = properties != nullptr ? spa_dict_lookup(properties, PW_KEY_LINK_INPUT_NODE) : nullptr;
    if (input != nullptr && std::to_string(pw_stream_get_node_id(stream)) != input) {
        return;
    }
    auto* proxy =
        static_cast<pw_proxy*>(pw_registry_bind(registry, id, PW_TYPE_INTERFACE_Link, PW_VERSION_LINK, 0));
    if (proxy == nullptr) {
        return;
    }
    static const pw_link_events linkEvents = [] {
        pw_link_events events{};
        events.version = PW_VERSION_LINK_EVENTS;
        events.info = [](void* data, const pw_link_info* info) {
            auto* watch = static_cast<LinkWatch*>(data);
            watch->state->linkChanged(info);
        };
        return events;
    }();
    auto watch = std::make_unique<LinkWatch>();
    watch->state = this;
    watch->proxy = proxy;
    pw_link_add_listener(reinterpret_cast<pw_link*>(proxy), &watch->listener, &linkEvents, watch.get());
    links[id] = std::move(watch);
}

void PipeWireStream::State::linkChanged(const pw_link_info* info) {
    if (info->state != PW_LINK_STATE_ERROR || stream == nullptr ||
        info->input_node_id != pw_stream_get_node_id(stream) || format) {
        return;
    }
    end(std::string("the shared screen and this recorder agree on no picture format (") +
        (info->error != nullptr ? info->error : "") +
        "): it reads 32-bit pixels in shared memory or in linear DMA-BUFs");
}

void PipeWireStream::State::bufferRemoved(pw_buffer* buffer) {
    buffer->user_data = nullptr;
    mappings.erase(buffer);
}

void PipeWireStream::State::formatChanged(const spa_pod* param) {
    if (param == nullptr) {
        format.reset();
        return;
    }
    std::uint32_t mediaType = 0;
    std::uint32_t mediaSubtype = 0;
    if (spa_format_parse(param, &mediaType, &mediaSubtype) < 0 || mediaType != SPA_MEDIA_TYPE_video ||
        mediaSubtype != SPA_MEDIA_SUBTYPE_raw) {
        return;
    }
    std::optional<std::uint64_t> modifier;
    if (!modifierAgreed(param, modifier)) {
        return;
    }
    // Parsed field by field: the general parser refuses a layout still given as a choice.
    spa_video_info_raw info{};
    if (spa_pod_parse_object(param, SPA_TYPE_OBJECT_Format, nullptr, SPA_FORMAT_VIDEO_format,
                             SPA_POD_Id(&info.format), SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&info.size),
                             SPA_FORMAT_VIDEO_framerate, SPA_POD_OPT_Fraction(&info.framerate)) < 0) {
        return;
    }
    if (modifier) {
        info.flags |= SPA_VIDEO_FLAG_MODIFIER;
        info.modifier = *modifier;
    }
    format = info;

    std::uint8_t memory[1024];
    spa_pod_builder b{};
    spa_pod_builder_init(&b, memory, sizeof memory);
    const spa_pod* params[] = {
        bufferParams(b),
        metaParam(b, SPA_META_Header, sizeof(spa_meta_header), 0),
        metaParam(b, SPA_META_Cursor, cursorMetaSize(64), cursorMetaSize(1024)),
    };
    pw_stream_update_params(stream, params, 3);
    pw_thread_loop_signal(loop, false);
}

void PipeWireStream::State::process() {
    // Only the newest picture matters: older ones waiting go back at once.
    pw_buffer* newest = nullptr;
    std::int64_t passedOver = 0;
    while (pw_buffer* next = pw_stream_dequeue_buffer(stream)) {
        if (newest != nullptr) {
            pw_stream_queue_buffer(stream, newest);
            ++passedOver;
        }
        newest = next;
    }
    if (newest == nullptr || stopped || endedWhy) {
        if (newest != nullptr) {
            pw_stream_queue_buffer(stream, newest);
        }
        return;
    }
    spa_buffer* buffer = newest->buffer;

    double time = 0;
    const auto* header = static_cast<const spa_meta_header*>(
        spa_buffer_find_meta_data(buffer, SPA_META_Header, sizeof(spa_meta_header)));
    const bool corrupted = header != nullptr && (header->flags & SPA_META_HEADER_FLAG_CORRUPTED) != 0;
    if (header != nullptr && header->pts > 0) {
        time = static_cast<double>(header->pts) / 1e9;
    } else {
        pw_time now{};
        if (pw_stream_get_time_n(stream, &now, sizeof now) == 0 && now.now > 0) {
            time = static_cast<double>(now.now) / 1e9;
        } else {
            time = monotonicSeconds();
        }
    }
    if (header != nullptr) {
        if (lastSequence && header->seq > *lastSequence + 1) {
            passedOver = static_cast<std::int64_t>(header->seq - *lastSequence - 1);
        }
        lastSequence = header->seq;
    }
    if (passedOver > 0 && handler.missed) {
        handler.missed(passedOver, time);
    }

    // The pointer may move in a buffer without a picture: the producer sends those when only it moved.
    const auto* cursor = static_cast<const spa_meta_cursor*>(
        spa_buffer_find_meta_data(buffer, SPA_META_Cursor, sizeof(spa_meta_cursor)));
    if (cursor != nullptr && spa_meta_cursor_is_valid(cursor)) {
        const Point position{static_cast<double>(cursor->position.x),
                             static_cast<double>(cursor->position.y)};
        if (lastCursor != position) {
            lastCursor = position;
            if (handler.cursor) {
                handler.cursor(time, position);
            }
        }
    }

    const spa_data& data = buffer->datas[0];
    // A DMA-BUF is read through its own mapping; shared memory where PipeWire mapped it.
    auto* mapping = static_cast<DmaBufMapping*>(newest->user_data);
    const std::uint8_t* memory = nullptr;
    std::uint64_t available = 0;
    if (data.type == SPA_DATA_DmaBuf) {
        if (mapping != nullptr) {
            memory = mapping->base();
            available = mapping->size();
        }
    } else {
        memory = static_cast<const std::uint8_t*>(data.data);
        available = data.maxsize;
    }
    if (!corrupted && format && memory != nullptr && data.chunk != nullptr && data.chunk->size > 0 &&
        (data.chunk->flags & SPA_CHUNK_FLAG_CORRUPTED) == 0) {
        const int width = static_cast<int>(format->size.width);
        const int height = static_cast<int>(format->size.height);
        const int stride = data.chunk->stride > 0 ? data.chunk->stride : width * 4;
        const std::uint64_t needed = static_cast<std::uint64_t>(data.chunk->offset) +
                                     static_cast<std::uint64_t>(stride) * static_cast<std::uint64_t>(height);
        if (width > 0 && height > 0 && stride >= width * 4 && needed <= available) {
            const std::uint8_t* pixels = memory + data.chunk->offset;
            if (mapping != nullptr) {
                mapping->sync(DMA_BUF_SYNC_START);
            }
            if (format->format == SPA_VIDEO_FORMAT_RGBx || format->format == SPA_VIDEO_FORMAT_RGBA) {
                swapped.resize(static_cast<std::size_t>(width) * height * 4);
                for (int y = 0; y < height; ++y) {
                    const std::uint8_t* from = pixels + static_cast<std::ptrdiff_t>(y) * stride;
                    std::uint8_t* to = swapped.data() + static_cast<std::ptrdiff_t>(y) * width * 4;
                    for (int x = 0; x < width; ++x, from += 4, to += 4) {
                        to[0] = from[2];
                        to[1] = from[1];
                        to[2] = from[0];
                        to[3] = from[3];
                    }
                }
                if (mapping != nullptr) {
                    mapping->sync(DMA_BUF_SYNC_END);
                    mapping = nullptr;
                }
                if (handler.picture) {
                    handler.picture(swapped.data(), width * 4, width, height, time);
                }
            } else if (handler.picture) {
                handler.picture(pixels, stride, width, height, time);
            }
            if (mapping != nullptr) {
                mapping->sync(DMA_BUF_SYNC_END);
            }
        }
    }
    pw_stream_queue_buffer(stream, newest);
}

PipeWireStream::PipeWireStream(Remote remote, std::uint32_t targetNode, Handler handler)
    : m_state(std::make_unique<State>()) {
    initialisePipeWire();
    State* s = m_state.get();
    s->handler = std::move(handler);
    s->target = targetNode;
    s->loop = pw_thread_loop_new("marlowick-screen", nullptr);
    if (s->loop == nullptr) {
        if (remote.fd >= 0) {
            ::close(remote.fd);
        }
        throw CaptureError(CaptureError::Kind::captureUnavailable, "PipeWire's loop could not be made");
    }
    s->context = pw_context_new(pw_thread_loop_get_loop(s->loop), nullptr, 0);
    if (s->context == nullptr || pw_thread_loop_start(s->loop) < 0) {
        if (remote.fd >= 0) {
            ::close(remote.fd);
        }
        const std::string why = "PipeWire's context could not be made";
        stop();
        throw CaptureError(CaptureError::Kind::captureUnavailable, why);
    }

    pw_thread_loop_lock(s->loop);
    if (remote.fd >= 0) {
        s->core = pw_context_connect_fd(s->context, remote.fd, nullptr, 0);
    } else {
        pw_properties* properties = pw_properties_new(
            PW_KEY_REMOTE_NAME, remote.name.empty() ? "pipewire-0" : remote.name.c_str(), nullptr);
        s->core = pw_context_connect(s->context, properties, 0);
    }
    if (s->core == nullptr) {
        const std::string why = std::string("no PipeWire daemon answers (") + std::strerror(errno) +
                                "); install and start pipewire (Debian's pipewire package)";
        pw_thread_loop_unlock(s->loop);
        stop();
        throw CaptureError(CaptureError::Kind::captureUnavailable, why);
    }

    static const pw_core_events coreEvents = [] {
        pw_core_events events{};
        events.version = PW_VERSION_CORE_EVENTS;
        events.error = [](void* data, std::uint32_t id, int, int res, const char* message) {
            if (id == PW_ID_CORE && res == -EPIPE) {
                static_cast<State*>(data)->end(std::string("the connection to PipeWire closed (") +
                                               (message != nullptr ? message : "") + ")");
            }
        };
        return events;
    }();
    pw_core_add_listener(s->core, &s->coreListener, &coreEvents, s);

    static const pw_registry_events registryEvents = [] {
        pw_registry_events events{};
        events.version = PW_VERSION_REGISTRY_EVENTS;
        events.global = [](void* data, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                           const spa_dict* properties) {
            static_cast<State*>(data)->linkAppeared(id, type, properties);
        };
        events.global_remove = [](void* data, std::uint32_t id) {
            auto* state = static_cast<State*>(data);
            if (const auto link = state->links.find(id); link != state->links.end()) {
                spa_hook_remove(&link->second->listener);
                pw_proxy_destroy(link->second->proxy);
                state->links.erase(link);
            }
            if (id == state->target) {
                state->end("the shared screen's stream was closed");
            }
        };
        return events;
    }();
    s->registry = pw_core_get_registry(s->core, PW_VERSION_REGISTRY, 0);
    pw_registry_add_listener(s->registry, &s->registryListener, &registryEvents, s);

    pw_properties* properties =
        pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_MEDIA_ROLE,
                          "Screen", PW_KEY_NODE_NAME, "marlowick-screen", nullptr);
    // By the node's id, as the portal gives it: a session manager reads a number in "target.object" as
    // the node's serial, which differs from its id once the daemon has made and dropped a few objects.
    pw_properties_setf(properties, "node.target", "%u", targetNode);
    s->stream = pw_stream_new(s->core, "marlowick-screen", properties);
    if (s->stream == nullptr) {
        const std::string why = std::string("PipeWire refused the stream (") + std::strerror(errno) + ")";
        pw_thread_loop_unlock(s->loop);
        stop();
        throw CaptureError(CaptureError::Kind::captureUnavailable, why);
    }
    static const pw_stream_events streamEvents = [] {
        pw_stream_events events{};
        events.version = PW_VERSION_STREAM_EVENTS;
        events.state_changed = [](void* data, pw_stream_state, pw_stream_state state, const char* error) {
            auto* st = static_cast<State*>(data);
            if (state == PW_STREAM_STATE_ERROR) {
                st->end(std::string("the screen's stream failed (") + (error != nullptr ? error : "") + ")");
            } else if (state == PW_STREAM_STATE_UNCONNECTED) {
                st->end("the screen's stream was disconnected");
            }
            pw_thread_loop_signal(st->loop, false);
        };
        events.param_changed = [](void* data, std::uint32_t id, const spa_pod* param) {
            if (id == SPA_PARAM_Format) {
                static_cast<State*>(data)->formatChanged(param);
            }
        };
        events.add_buffer = [](void* data, pw_buffer* buffer) {
            static_cast<State*>(data)->bufferAdded(buffer);
        };
        events.remove_buffer = [](void* data, pw_buffer* buffer) {
            static_cast<State*>(data)->bufferRemoved(buffer);
        };
        events.process = [](void* data) { static_cast<State*>(data)->process(); };
        return events;
    }();
    pw_stream_add_listener(s->stream, &s->streamListener, &streamEvents, s);

    std::uint8_t memory[2048];
    spa_pod_builder b{};
    spa_pod_builder_init(&b, memory, sizeof memory);
    const std::vector<std::uint64_t> modifiers(std::begin(readableModifiers), std::end(readableModifiers));
    // The link takes the first of these the producer can give: shared memory, and DMA-BUF where it has
    // nothing else, since a picture in a GPU's memory is slow for the processor to read.
    const spa_pod* params[] = {enumFormat(b), enumFormat(b, &modifiers)};
    const int connected = pw_stream_connect(
        s->stream, PW_DIRECTION_INPUT, PW_ID_ANY,
        static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS), params, 2);
    pw_thread_loop_unlock(s->loop);
    if (connected < 0) {
        const std::string why =
            std::string("PipeWire refused the stream (") + std::strerror(-connected) + ")";
        stop();
        throw CaptureError(CaptureError::Kind::captureUnavailable, why);
    }
}

PipeWireStream::~PipeWireStream() {
    stop();
}

std::uint32_t PipeWireStream::nodeId() const {
    State* s = m_state.get();
    if (s->loop == nullptr) {
        return SPA_ID_INVALID;
    }
    pw_thread_loop_lock(s->loop);
    const double deadline = monotonicSeconds() + 5;
    std::uint32_t id = SPA_ID_INVALID;
    while (s->stream != nullptr && (id = pw_stream_get_node_id(s->stream)) == SPA_ID_INVALID &&
           !s->endedWhy && monotonicSeconds() < deadline) {
        pw_thread_loop_timed_wait(s->loop, 1);
    }
    pw_thread_loop_unlock(s->loop);
    return id;
}

Size PipeWireStream::waitForFormat(double seconds) {
    State* s = m_state.get();
    pw_thread_loop_lock(s->loop);
    const double deadline = monotonicSeconds() + seconds;
    while ((!s->format || !s->buffersAdded) && !s->endedWhy && !s->stopped && monotonicSeconds() < deadline) {
        pw_thread_loop_timed_wait(s->loop, 1);
    }
    const bool agreed = s->format.has_value() && s->buffersAdded;
    const Size size =
        agreed ? Size{static_cast<double>(s->format->size.width), static_cast<double>(s->format->size.height)}
               : Size{};
    const std::optional<std::string> ended = s->endedWhy;
    pw_thread_loop_unlock(s->loop);
    if (!agreed) {
        throw CaptureError(CaptureError::Kind::captureUnavailable,
                           ended ? *ended : "the shared screen's stream sent no pictures");
    }
    return size;
}

bool PipeWireStream::hasCursorMetadata() const {
    return m_state->cursorMetadata.load(); // the agreed metadata shows in the buffers
}

void PipeWireStream::stop() {
    State* s = m_state.get();
    if (s->loop == nullptr) {
        return;
    }
    pw_thread_loop_lock(s->loop);
    s->stopped = true;
    if (s->stream != nullptr) {
        // Disconnected while still heard, so that the buffers' removal undoes their mappings; nothing
        // reaches the handler once `stopped` is set.
        pw_stream_disconnect(s->stream);
        spa_hook_remove(&s->streamListener);
        pw_stream_destroy(s->stream);
        s->stream = nullptr;
    }
    for (auto& [id, link] : s->links) {
        spa_hook_remove(&link->listener);
        pw_proxy_destroy(link->proxy);
    }
    s->links.clear();
    if (s->registry != nullptr) {
        spa_hook_remove(&s->registryListener);
        pw_proxy_destroy(reinterpret_cast<pw_proxy*>(s->registry));
        s->registry = nullptr;
    }
    if (s->core != nullptr) {
        spa_hook_remove(&s->coreListener);
        pw_core_disconnect(s->core);
        s->core = nullptr;
    }
    pw_thread_loop_unlock(s->loop);
    pw_thread_loop_stop(s->loop);
    if (s->context != nullptr) {
        pw_context_destroy(s->context);
        s->context = nullptr;
    }
    pw_thread_loop_destroy(s->loop);
    s->loop = nullptr;
}

} // namespace marlowick
