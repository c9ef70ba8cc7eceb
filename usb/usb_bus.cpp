#include "usb/usb_bus.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <tuple>
#include <utility>

#include "usb/descriptors.h"

namespace qvusb {

namespace {

// Examining a device that does not answer must not hold enumeration up for long.
constexpr unsigned kDescriptorTimeoutMs = 500;
constexpr std::uint16_t kMsOs20DescriptorIndex = 7;
constexpr std::uint16_t kMsOs10ExtendedProperties = 5;
constexpr std::uint8_t kMsOs10StringIndex = 0xEE;
constexpr std::uint8_t kClassHub = 0x09;
// bmRequestType of vendor requests to the device / to its interface, device to host.
constexpr std::uint8_t kVendorDeviceIn = 0xC0;
constexpr std::uint8_t kVendorInterfaceIn = 0xC1;
// Device handles count up from here and are never reused within a process, so a
// stale handle cannot reach a device opened later. WinUSB handles are the
// device handle plus kWinUsbOffset.
constexpr std::int64_t kFirstHandle = 0x1000;
constexpr std::int64_t kWinUsbOffset = std::int64_t{1} << 32;

struct ContextHolder {
    libusb_context* context = nullptr;
    ContextHolder() {
        if (libusb_init(&context) != 0) context = nullptr;
    }
    ~ContextHolder() {
        if (context) libusb_exit(context);
    }
};

// Where a device sits: bus and port path, then address (a re-plug changes it).
struct Place {
    std::uint8_t bus = 0;
    std::vector<std::uint8_t> ports;
    std::uint8_t address = 0;
    std::uint16_t vendor = 0, product = 0;
    auto Key() const { return std::tie(bus, ports, address, vendor, product); }
    bool operator<(const Place& o) const { return Key() < o.Key(); }
};

// What one examination of a device found; kept while the device stays.
struct Verdict {
    bool sensor = false;
    std::string serial;
};

struct BusState {
    std::mutex guard;
    std::map<Place, Verdict> verdicts;
    int denied = 0;
    std::map<std::int64_t, std::shared_ptr<OpenDevice>> handles;
    std::int64_t nextHandle = kFirstHandle;
};

BusState& State() {
    static BusState state;
    return state;
}

Place PlaceOf(libusb_device* device, const libusb_device_descriptor& d) {
    Place p;
    p.bus = libusb_get_bus_number(device);
    std::uint8_t ports[8] = {};
    const int n = libusb_get_port_numbers(device, ports, 8);
    if (n > 0) p.ports.assign(ports, ports + n);
    p.address = libusb_get_device_address(device);
    p.vendor = d.idVendor;
    p.product = d.idProduct;
    return p;
}

std::string PlaceText(const Place& p) {
    std::string text = std::to_string(p.bus);
    for (std::size_t i = 0; i < p.ports.size(); ++i) text += (i == 0 ? "-" : ".") + std::to_string(p.ports[i]);
    return text;
}

// QV_USB_IDS: "VVVV:PPPP" pairs in hexadecimal, separated by commas, semicolons or
// blanks. Malformed items are skipped; with no valid item nothing is narrowed.
std::vector<std::pair<std::uint16_t, std::uint16_t>> NarrowingIds() {
    std::vector<std::pair<std::uint16_t, std::uint16_t>> ids;
    const char* text = std::getenv("QV_USB_IDS");
    if (text == nullptr) return ids;
    std::string list(text);
    std::replace_if(list.begin(), list.end(), [](char c) { return c == ',' || c == ';' || c == '\t'; }, ' ');
    std::size_t at = 0;
    while (at < list.size()) {
        const std::size_t end = std::min(list.find(' ', at), list.size());
        const std::string item = list.substr(at, end - at);
        unsigned vendor = 0, product = 0;
        char extra = 0;
        if (item.size() <= 9 && std::sscanf(item.c_str(), "%4x:%4x%c", &vendor, &product, &extra) == 2)
            ids.emplace_back(static_cast<std::uint16_t>(vendor), static_cast<std::uint16_t>(product));
        at = end + 1;
    }
    return ids;
}

bool VendorIn(libusb_device_handle* h, std::uint8_t requestType, std::uint8_t code, std::uint16_t value,
              std::uint16_t index, Bytes& out, std::size_t length) {
    out.assign(length, 0);
    const int got = libusb_control_transfer(h, requestType, code, value, index, out.data(),
                                            static_cast<std::uint16_t>(length), kDescriptorTimeoutMs);
    if (got < 0) return false;
    out.resize(static_cast<std::size_t>(got));
    return true;
}

std::vector<std::string> MsOs20Guids(libusb_device_handle* h) {
    Bytes head(5);
    if (libusb_get_descriptor(h, LIBUSB_DT_BOS, 0, head.data(), 5) < 5) return {};
    const std::size_t total = static_cast<std::size_t>(head[2] | (head[3] << 8));
    if (total < 5) return {};
    Bytes bos(total);
    const int got = libusb_get_descriptor(h, LIBUSB_DT_BOS, 0, bos.data(), static_cast<int>(total));
    if (got < 5) return {};
    const auto where = FindMsOs20(bos.data(), static_cast<std::size_t>(got));
    if (!where) return {};
    Bytes set;
    if (!VendorIn(h, kVendorDeviceIn, where->vendorCode, 0, kMsOs20DescriptorIndex, set, where->totalLength)) return {};
    return MsOs20InterfaceGuids(set.data(), set.size());
}

std::vector<std::string> MsOs10Guids(libusb_device_handle* h) {
    Bytes signature(255);
    const int got = libusb_get_string_descriptor(h, kMsOs10StringIndex, 0, signature.data(), 255);
    if (got < 0) return {};
    const auto code = MsOs10VendorCode(signature.data(), static_cast<std::size_t>(got));
    if (!code) return {};
    // Extended properties belong to interface 0; some devices answer them as a
    // device request only.
    for (std::uint8_t type : {kVendorInterfaceIn, kVendorDeviceIn}) {
        Bytes head;
        if (!VendorIn(h, type, *code, 0, kMsOs10ExtendedProperties, head, 10) || head.size() < 10) continue;
        const std::size_t total = std::min<std::size_t>(
            std::size_t{head[0]} | (std::size_t{head[1]} << 8) | (std::size_t{head[2]} << 16), 0xFFFF);
        Bytes all;
        if (total < 10 || !VendorIn(h, type, *code, 0, kMsOs10ExtendedProperties, all, total)) continue;
        std::vector<std::string> guids = MsOs10InterfaceGuids(all.data(), all.size());
        if (!guids.empty()) return guids;
    }
    return {};
}

bool AnyIsSensor(const std::vector<std::string>& guids) {
    return std::any_of(guids.begin(), guids.end(), IsSensorInterfaceGuid);
}

std::string ReadSerial(libusb_device_handle* h, std::uint8_t index) {
    if (index == 0) return {};
    unsigned char text[256] = {};
    const int got = libusb_get_string_descriptor_ascii(h, index, text, sizeof text);
    return got > 0 ? std::string(reinterpret_cast<char*>(text), static_cast<std::size_t>(got)) : std::string();
}

// Opens a device to read what it announces; nullopt when it cannot be opened.
std::optional<Verdict> Examine(libusb_device* device, const libusb_device_descriptor& d, bool* denied) {
    libusb_device_handle* h = nullptr;
    const int opened = libusb_open(device, &h);
    if (opened != 0) {
        *denied = opened == LIBUSB_ERROR_ACCESS;
        return std::nullopt;
    }
    Verdict v;
    v.sensor = AnnouncesSensorGuid(h, d);
    if (v.sensor) v.serial = ReadSerial(h, d.iSerialNumber);
    libusb_close(h);
    return v;
}

}  // namespace

SensorDevice::~SensorDevice() {
    if (device) libusb_unref_device(device);
}

OpenDevice::~OpenDevice() {
    if (handle) {
        libusb_release_interface(handle, interfaceNumber);
        libusb_close(handle);
    }
}

libusb_context* Context() {
    static ContextHolder holder;
    return holder.context;
}

bool AnnouncesSensorGuid(libusb_device_handle* handle, const libusb_device_descriptor& descriptor) {
    // The BOS descriptor exists from USB 2.01 on.
    if (descriptor.bcdUSB >= 0x0201 && AnyIsSensor(MsOs20Guids(handle))) return true;
    return AnyIsSensor(MsOs10Guids(handle));
}

std::vector<std::shared_ptr<SensorDevice>> ListSensors(int* deniedOut) {
    std::vector<std::shared_ptr<SensorDevice>> sensors;
    libusb_context* context = Context();
    if (!context) return sensors;
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(context, &list);
    if (count < 0) return sensors;
    const auto ids = NarrowingIds();
    BusState& state = State();
    std::lock_guard<std::mutex> lock(state.guard);
    std::map<Place, Verdict> present;
    std::vector<std::pair<Place, libusb_device*>> found;
    int denied = 0;
    for (ssize_t i = 0; i < count; ++i) {
        libusb_device* device = list[i];
        libusb_device_descriptor d{};
        if (libusb_get_device_descriptor(device, &d) != 0 || d.bDeviceClass == kClassHub) continue;
        if (!ids.empty() && std::find(ids.begin(), ids.end(), std::make_pair(d.idVendor, d.idProduct)) == ids.end())
            continue;
        const Place place = PlaceOf(device, d);
        auto known = state.verdicts.find(place);
        std::optional<Verdict> verdict;
        if (known != state.verdicts.end()) {
            verdict = known->second;
        } else {
            // A device that could not be opened is not remembered: it is tried
            // again once its permissions may have changed.
            bool wasDenied = false;
            verdict = Examine(device, d, &wasDenied);
            if (wasDenied) ++denied;
        }
        if (!verdict) continue;
        present[place] = *verdict;
        if (verdict->sensor) found.emplace_back(place, device);
    }
    // Devices gone are forgotten, so that one plugged in at the same place is examined.
    state.verdicts = std::move(present);
    state.denied = denied;
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [place, device] : found) {
        auto s = std::make_shared<SensorDevice>();
        s->device = libusb_ref_device(device);
        s->vendor = place.vendor;
        s->product = place.product;
        s->serial = state.verdicts[place].serial;
        s->place = PlaceText(place);
        sensors.push_back(std::move(s));
    }
    libusb_free_device_list(list, 1);
    if (deniedOut) *deniedOut = denied;
    return sensors;
}

std::string DevicePath(const SensorDevice& sensor) {
    // The serial goes between the second and third '#', where the library looks
    // for it; a device without one is named by its place, as Windows names it
    // by an instance id. A '#' in a serial would split the path, so it becomes '_'.
    std::string serial = sensor.serial.empty() ? sensor.place : sensor.serial;
    std::replace(serial.begin(), serial.end(), '#', '_');
    char ids[32];
    std::snprintf(ids, sizeof ids, "vid_%04x&pid_%04x", sensor.vendor, sensor.product);
    return std::string("\\\\?\\usb#") + ids + "#" + serial + "#" + kSensorGuidText;
}

std::int64_t OpenHandle(int index0) {
    if (index0 < 0) return 0;
    const auto sensors = ListSensors();
    if (static_cast<std::size_t>(index0) >= sensors.size()) return 0;
    libusb_device* device = sensors[static_cast<std::size_t>(index0)]->device;
    BusState& state = State();
    std::lock_guard<std::mutex> lock(state.guard);
    // A second handle of this process on the same device shares the claim.
    std::shared_ptr<OpenDevice> open;
    for (const auto& [number, entry] : state.handles) {
        if (libusb_get_device(entry->handle) == device) {
            open = entry;
            break;
        }
    }
    if (!open) {
        libusb_device_handle* h = nullptr;
        if (libusb_open(device, &h) != 0) return 0;
        libusb_set_auto_detach_kernel_driver(h, 1);
        // The sensor's pipes belong to its first interface; claiming it keeps
        // other processes off the sensor while this handle is open.
        if (libusb_claim_interface(h, 0) != 0) {
            libusb_close(h);
            return 0;
        }
        open = std::make_shared<OpenDevice>();
        open->handle = h;
    }
    const std::int64_t number = state.nextHandle++;
    state.handles[number] = open;
    return number;
}

bool CloseHandle(std::int64_t device) {
    std::shared_ptr<OpenDevice> last;
    BusState& state = State();
    std::lock_guard<std::mutex> lock(state.guard);
    auto it = state.handles.find(device);
    if (it == state.handles.end()) return false;
    last = std::move(it->second);  // released (interface and all) once no handle shares it
    state.handles.erase(it);
    return true;
}

std::int64_t WinUsbOf(std::int64_t device) {
    BusState& state = State();
    std::lock_guard<std::mutex> lock(state.guard);
    return state.handles.count(device) ? device + kWinUsbOffset : -1;
}

std::shared_ptr<OpenDevice> DeviceOfWinUsb(std::int64_t winusb) {
    BusState& state = State();
    if (winusb < kWinUsbOffset) return nullptr;
    std::lock_guard<std::mutex> lock(state.guard);
    auto it = state.handles.find(winusb - kWinUsbOffset);
    return it == state.handles.end() ? nullptr : it->second;
}

int DeniedDevices() {
    BusState& state = State();
    std::lock_guard<std::mutex> lock(state.guard);
    return state.denied;
}

}  // namespace qvusb
