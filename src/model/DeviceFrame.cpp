#include "model/DeviceFrame.h"

#include "model/ModelCoding.h"

#include <algorithm>
#include <cstdio>

namespace marlowick {

double DeviceFrame::bodyHeightForWidth(double width) const {
    return width * (bezel.top + bezel.bottom) + width * (1 - 2 * bezel.side) / std::max(screenAspect, 0.0001);
}

bool DeviceFrame::mismatches(double aspect) const {
    if (!(aspect > 0) || !(screenAspect > 0)) {
        return false;
    }
    return std::max(aspect, screenAspect) / std::min(aspect, screenAspect) > 1.25;
}

std::string DeviceFrame::screenAspectDescription() const {
    char text[64];
    std::snprintf(text, sizeof text, "%.2f:1", screenAspect);
    return text;
}

const DeviceFrame& DeviceFrame::macBookPro() {
    return all()[0];
}
const DeviceFrame& DeviceFrame::macBookAir() {
    return all()[1];
}
const DeviceFrame& DeviceFrame::studioDisplay() {
    return all()[2];
}
const DeviceFrame& DeviceFrame::iPhonePro() {
    return all()[3];
}
const DeviceFrame& DeviceFrame::iPadPro() {
    return all()[4];
}

const std::vector<DeviceFrame>& DeviceFrame::all() {
    // The laptops' names end in the double prime U+2033.
    static const std::vector<DeviceFrame> catalogue{
        {"macbook-pro-16",
         "MacBook Pro 16\u2033",
         Kind::laptop,
         1.6,
         {0.016, 0.02, 0.011},
         0.018,
         0.008,
         "#2B2B2E",
         true},
        {"macbook-air-15",
         "MacBook Air 15\u2033",
         Kind::laptop,
         1.6,
         {0.016, 0.02, 0.011},
         0.018,
         0.008,
         "#B9BCC0",
         true},
        {"studio-display",
         "Studio Display",
         Kind::display,
         16.0 / 9.0,
         {0.028, 0.028, 0.024},
         0.014,
         0.004,
         "#C6C9CD",
         false},
        {"iphone-pro",
         "iPhone Pro",
         Kind::phone,
         1179.0 / 2556.0,
         {0.03, 0.03, 0.03},
         0.135,
         0.112,
         "#4A4A4E",
         true},
        {"ipad-pro", "iPad Pro", Kind::tablet, 0.75, {0.032, 0.032, 0.032}, 0.052, 0.03, "#3A3A3D", false},
    };
    return catalogue;
}

Json Coder<DeviceFrame::Bezel>::encode(const DeviceFrame::Bezel& b) {
    return {{"top", toJson(b.top)}, {"bottom", toJson(b.bottom)}, {"side", toJson(b.side)}};
}

DeviceFrame::Bezel Coder<DeviceFrame::Bezel>::decode(const JsonReader& r) {
    return {r.decode<double>("top"), r.decode<double>("bottom"), r.decode<double>("side")};
}

Json Coder<DeviceFrame>::encode(const DeviceFrame& d) {
    return {{"id", d.id},
            {"name", d.name},
            {"kind", toJson(d.kind)},
            {"screenAspect", toJson(d.screenAspect)},
            {"bezel", toJson(d.bezel)},
            {"bodyRadius", toJson(d.bodyRadius)},
            {"screenRadius", toJson(d.screenRadius)},
            {"bodyColor", d.bodyColor},
            {"hasNotch", d.hasNotch}};
}

DeviceFrame Coder<DeviceFrame>::decode(const JsonReader& r) {
    // Nothing is looked up in the catalogue: the stored record is the device.
    return {r.decode<std::string>("id"),
            r.decode<std::string>("name"),
            r.decode<DeviceFrame::Kind>("kind"),
            r.decode<double>("screenAspect"),
            r.decode<DeviceFrame::Bezel>("bezel"),
            r.decode<double>("bodyRadius"),
            r.decode<double>("screenRadius"),
            r.decode<std::string>("bodyColor"),
            r.decode<bool>("hasNotch")};
}

} // namespace marlowick
