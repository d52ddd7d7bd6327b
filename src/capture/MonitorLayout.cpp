#include "capture/MonitorLayout.h"

#include "capture/CaptureError.h"
#include "capture/X11Connection.h"

#include <xcb/randr.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace marlowick {

namespace {

// A reply of libxcb, freed with the object.
template <class Reply> using ReplyPointer = std::unique_ptr<Reply, decltype(&std::free)>;
template <class Reply> ReplyPointer<Reply> owned(Reply* reply) {
    return ReplyPointer<Reply>(reply, &std::free);
}

std::string atomName(xcb_connection_t* c, xcb_atom_t atom) {
    const auto reply = owned(xcb_get_atom_name_reply(c, xcb_get_atom_name(c, atom), nullptr));
    if (!reply) {
        return {};
    }
    return std::string(xcb_get_atom_name_name(reply.get()),
                       static_cast<std::size_t>(xcb_get_atom_name_name_length(reply.get())));
}

// RandR 1.5's monitors, active ones only.
std::vector<ScreenMonitor> randrMonitors(xcb_connection_t* c, xcb_window_t root) {
    std::vector<ScreenMonitor> monitors;
    const auto reply = owned(xcb_randr_get_monitors_reply(c, xcb_randr_get_monitors(c, root, 1), nullptr));
    if (!reply) {
        return monitors;
    }
    for (auto it = xcb_randr_get_monitors_monitors_iterator(reply.get()); it.rem > 0;
         xcb_randr_monitor_info_next(&it)) {
        const xcb_randr_monitor_info_t& m = *it.data;
        monitors.push_back({atomName(c, m.name), m.x, m.y, m.width, m.height, m.primary != 0});
    }
    return monitors;
}

// RandR 1.2's outputs: one monitor for each CRTC that lights an output (outputs that mirror one another
// share a CRTC and show one picture), named after the first output on it.
std::vector<ScreenMonitor> randrOutputs(xcb_connection_t* c, xcb_window_t root, bool current) {
    // The current resources (RandR 1.3) don't make the server probe the hardware, which can take seconds.
    xcb_timestamp_t configured = XCB_CURRENT_TIME;
    std::vector<xcb_randr_output_t> outputs;
    if (current) {
        const auto resources = owned(xcb_randr_get_screen_resources_current_reply(
            c, xcb_randr_get_screen_resources_current(c, root), nullptr));
        if (!resources) {
            return {};
        }
        configured = resources->config_timestamp;
        const xcb_randr_output_t* first = xcb_randr_get_screen_resources_current_outputs(resources.get());
        outputs.assign(first, first + xcb_randr_get_screen_resources_current_outputs_length(resources.get()));
    } else {
        const auto resources =
            owned(xcb_randr_get_screen_resources_reply(c, xcb_randr_get_screen_resources(c, root), nullptr));
        if (!resources) {
            return {};
        }
        configured = resources->config_timestamp;
        const xcb_randr_output_t* first = xcb_randr_get_screen_resources_outputs(resources.get());
        outputs.assign(first, first + xcb_randr_get_screen_resources_outputs_length(resources.get()));
    }
    const auto primary =
        owned(xcb_randr_get_output_primary_reply(c, xcb_randr_get_output_primary(c, root), nullptr));
    std::vector<ScreenMonitor> monitors;
    std::vector<xcb_randr_crtc_t> seen;
    for (const xcb_randr_output_t id : outputs) {
        const auto output =
            owned(xcb_randr_get_output_info_reply(c, xcb_randr_get_output_info(c, id, configured), nullptr));
        if (!output || output->crtc == XCB_NONE ||
            std::find(seen.begin(), seen.end(), output->crtc) != seen.end()) {
            continue;
        }
        const auto crtc = owned(
            xcb_randr_get_crtc_info_reply(c, xcb_randr_get_crtc_info(c, output->crtc, configured), nullptr));
        if (!crtc || crtc->mode == XCB_NONE) {
            continue;
        }
        seen.push_back(output->crtc);
        std::string name(reinterpret_cast<const char*>(xcb_randr_get_output_info_name(output.get())),
                         static_cast<std::size_t>(xcb_randr_get_output_info_name_length(output.get())));
        monitors.push_back(
            {std::move(name), crtc->x, crtc->y, crtc->width, crtc->height, primary && primary->output == id});
    }
    return monitors;
}

} // namespace

MonitorLayout::MonitorLayout(std::vector<ScreenMonitor> monitors, int rootWidth, int rootHeight) {
    for (ScreenMonitor& m : monitors) {
        const int left = std::max(m.x, 0);
        const int top = std::max(m.y, 0);
        const int right = std::min(m.x + m.width, rootWidth);
        const int bottom = std::min(m.y + m.height, rootHeight);
        if (right <= left || bottom <= top) {
            continue;
        }
        m.x = left;
        m.y = top;
        m.width = right - left;
        m.height = bottom - top;
        m_monitors.push_back(std::move(m));
    }
    if (m_monitors.empty() && rootWidth > 0 && rootHeight > 0) {
        m_monitors.push_back({"screen", 0, 0, rootWidth, rootHeight, true});
    }
    // One primary: RandR's first, or the first monitor.
    const auto primary =
        std::find_if(m_monitors.begin(), m_monitors.end(), [](const ScreenMonitor& m) { return m.primary; });
    for (auto it = m_monitors.begin(); it != m_monitors.end(); ++it) {
        it->primary = primary == m_monitors.end() ? it == m_monitors.begin() : it == primary;
    }
}

MonitorLayout MonitorLayout::read(const std::string& display) {
    return read(X11Connection(display));
}

MonitorLayout MonitorLayout::read(const X11Connection& connection) {
    return read(connection, true);
}

MonitorLayout MonitorLayout::readOutputs(const X11Connection& connection) {
    return read(connection, false);
}

MonitorLayout MonitorLayout::read(const X11Connection& connection, bool useMonitors) {
    xcb_connection_t* c = connection.get();
    const xcb_screen_t& screen = connection.screen();
    std::vector<ScreenMonitor> monitors;
    const xcb_query_extension_reply_t* randr = xcb_get_extension_data(c, &xcb_randr_id);
    if (randr != nullptr && randr->present != 0) {
        const auto version =
            owned(xcb_randr_query_version_reply(c, xcb_randr_query_version(c, 1, 5), nullptr));
        const auto since = [&](unsigned minor) {
            return version && (version->major_version > 1 ||
                               (version->major_version == 1 && version->minor_version >= minor));
        };
        if (useMonitors && since(5)) {
            monitors = randrMonitors(c, screen.root);
        }
        if (monitors.empty() && since(2)) {
            monitors = randrOutputs(c, screen.root, since(3));
        }
    }
    return MonitorLayout(std::move(monitors), screen.width_in_pixels, screen.height_in_pixels);
}

const ScreenMonitor& MonitorLayout::choose(std::string_view name) const {
    const auto found = std::find_if(m_monitors.begin(), m_monitors.end(), [&](const ScreenMonitor& m) {
        return name.empty() ? m.primary : m.name == name;
    });
    if (found == m_monitors.end()) {
        throw CaptureError(CaptureError::Kind::unknownMonitor,
                           std::string(name) + "; the monitors are " + listing());
    }
    return *found;
}

std::string MonitorLayout::listing() const {
    std::string text;
    for (std::size_t i = 0; i < m_monitors.size(); ++i) {
        const ScreenMonitor& m = m_monitors[i];
        text += i == 0 ? "" : i + 1 == m_monitors.size() ? " and " : ", ";
        text += m.name + " (" + std::to_string(m.width) + "×" + std::to_string(m.height) +
                (m.primary ? ", primary)" : ")");
    }
    return text;
}

} // namespace marlowick
