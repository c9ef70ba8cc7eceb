#include "usb/emulation/emulated_bus.h"

#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <umockdev.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <mutex>
#include <vector>

#include "sim/qvsim.h"
#include "sim/qvsim_driver.h"

namespace qvusb {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr QvGuid kSensorClass = {0x8BC86AFDu, 0xF393u, 0x458Du, {0x9A, 0x8D, 0xAD, 0x9E, 0xEE, 0x17, 0x88, 0x22}};
// Vendor code of the Microsoft OS descriptors: a request the sensor itself does not use.
constexpr std::uint8_t kMsVendorCode = 0x20;
// How long a reap that finds nothing finished waits for the oldest pending
// bulk URB before it answers "not yet" (EAGAIN). umockdev's device node is
// always ready for poll, so libusb reaps again at once where the kernel would
// let it sleep until a URB completes: without the wait, a read the sensor has
// no data for yet becomes a busy loop of round trips. libusb's time-outs and
// other devices' requests are delayed by at most this much.
constexpr std::uint32_t kReapWaitMs = 5;
// While the sensor brings nothing, it is asked again after this pause.
constexpr std::uint32_t kReapRetryUs = 500;
constexpr std::uint32_t kMaxPacket = 512;

void Put16(Bytes& b, std::size_t v) { b.insert(b.end(), {std::uint8_t(v), std::uint8_t(v >> 8)}); }
void Put32(Bytes& b, std::size_t v) {
    Put16(b, v & 0xFFFF);
    Put16(b, v >> 16);
}
Bytes Utf16(const std::string& s) {
    Bytes b;
    for (char c : s) Put16(b, static_cast<unsigned char>(c));
    return b;
}
Bytes StringDescriptor(const std::string& text) {
    Bytes b = {0, 3};
    const Bytes units = Utf16(text.substr(0, 126));
    b.insert(b.end(), units.begin(), units.end());
    b[0] = static_cast<std::uint8_t>(b.size());
    return b;
}

// Device descriptor (USB 2.01 when it has a BOS), then one configuration: one
// vendor-specific interface with bulk IN 0x82 and bulk OUT 0x01.
Bytes Descriptors(const EmulatedBus::Device& d) {
    const std::uint16_t bcdUsb = d.announce == EmulatedBus::Announce::MsOs20 ? 0x0201 : 0x0200;
    Bytes b = {18, 1};
    Put16(b, bcdUsb);
    b.insert(b.end(), {0, 0, 0, 64});
    Put16(b, d.vendor);
    Put16(b, d.product);
    Put16(b, 0x0100);
    b.insert(b.end(), {1, 2, 3, 1});
    b.insert(b.end(), {9, 2, 32, 0, 1, 1, 0, 0x80, 50});
    b.insert(b.end(), {9, 4, 0, 0, 2, 0xFF, 0, 0, 0});
    b.insert(b.end(), {7, 5, 0x82, 2, 0x00, 0x02, 0});
    b.insert(b.end(), {7, 5, 0x01, 2, 0x00, 0x02, 0});
    return b;
}

// The registry property naming the interface GUID, REG_MULTI_SZ.
Bytes GuidProperty20(const std::string& guid) {
    const Bytes name = Utf16(std::string("DeviceInterfaceGUIDs") + '\0');
    const Bytes data = Utf16(guid + std::string(2, '\0'));
    Bytes b;
    Put16(b, 10 + name.size() + data.size());
    Put16(b, 4);
    Put16(b, 7);
    Put16(b, name.size());
    b.insert(b.end(), name.begin(), name.end());
    Put16(b, data.size());
    b.insert(b.end(), data.begin(), data.end());
    return b;
}

Bytes MsOs20Set(const std::string& guid) {
    Bytes b;
    Put16(b, 10);
    Put16(b, 0);
    Put32(b, 0x06030000);
    Put16(b, 0);
    Bytes compat = {20, 0, 3, 0, 'W', 'I', 'N', 'U', 'S', 'B'};
    compat.resize(20, 0);
    b.insert(b.end(), compat.begin(), compat.end());
    const Bytes property = GuidProperty20(guid);
    b.insert(b.end(), property.begin(), property.end());
    b[8] = static_cast<std::uint8_t>(b.size());
    b[9] = static_cast<std::uint8_t>(b.size() >> 8);
    return b;
}

Bytes Bos(std::size_t setLength) {
    Bytes b = {5, 0x0F, 0, 0, 1, 28, 0x10, 0x05, 0, 0xDF, 0x60, 0xDD, 0xD8, 0x89, 0x45, 0xC7, 0x4C,
               0x9C, 0xD2, 0x65, 0x9D, 0x9E, 0x64, 0x8A, 0x9F};
    Put32(b, 0x06030000);
    Put16(b, setLength);
    b.insert(b.end(), {kMsVendorCode, 0});
    b[2] = static_cast<std::uint8_t>(b.size());
    return b;
}

Bytes MsOs10Signature() {
    Bytes b = StringDescriptor("MSFT100");
    b.insert(b.end(), {kMsVendorCode, 0});
    b[0] = static_cast<std::uint8_t>(b.size());
    return b;
}

Bytes MsOs10Properties(const std::string& guid) {
    const Bytes name = Utf16(std::string("DeviceInterfaceGUID") + '\0');
    const Bytes data = Utf16(guid + '\0');
    Bytes b;
    Put32(b, 0);
    Put16(b, 0x0100);
    Put16(b, 5);
    Put16(b, 1);
    Put32(b, 14 + name.size() + data.size());
    Put32(b, 1);
    Put16(b, name.size());
    b.insert(b.end(), name.begin(), name.end());
    Put32(b, data.size());
    b.insert(b.end(), data.begin(), data.end());
    b[0] = static_cast<std::uint8_t>(b.size());
    return b;
}

}  // namespace

struct EmulatedDevice {
    EmulatedBus::Device config;
    EmulatedBus::Impl* bus = nullptr;
    QvDrvHandle simWinUsb = -1;
    int simId = -1;
    Bytes descriptors;
    std::mutex guard;
    // URBs submitted and not reaped (waiting for data, and finished), each with
    // its data buffer, both resolved at submission: umockdev writes them back
    // into the client when the reap that hands the URB over completes.
    struct Submitted {
        UMockdevIoctlData* urb;
        UMockdevIoctlData* buffer;
        std::uint32_t done;  // bytes moved so far
    };
    std::deque<Submitted> waiting, finished;
};

struct EmulatedBus::Impl {
    UMockdevTestbed* testbed = nullptr;
    std::vector<std::unique_ptr<EmulatedDevice>> devices;
    std::vector<UMockdevIoctlBase*> handlers;
    mutable std::mutex countGuard;
    Counts counts;
    void Count(std::uint64_t Counts::*field) {
        std::lock_guard<std::mutex> lock(countGuard);
        ++(counts.*field);
        if (counts.handlerThread == 0) counts.handlerThread = static_cast<long>(syscall(SYS_gettid));
    }
};

namespace {

std::uint64_t ThreadCpuNs() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<std::uint64_t>(t.tv_sec) * 1000000000u + static_cast<std::uint64_t>(t.tv_nsec);
}

// Adds the handler thread's CPU time spent in the simulated sensor's own code
// while it lives: what the sensor would cost behind the simulator's driver too.
class SensorTime {
public:
    explicit SensorTime(EmulatedBus::Impl& bus) : bus_(bus), start_(ThreadCpuNs()) {}
    ~SensorTime() {
        const std::uint64_t spent = ThreadCpuNs() - start_;
        std::lock_guard<std::mutex> lock(bus_.countGuard);
        bus_.counts.sensorNs += spent;
        ++bus_.counts.sensorCalls;
    }
    SensorTime(const SensorTime&) = delete;
    SensorTime& operator=(const SensorTime&) = delete;

private:
    EmulatedBus::Impl& bus_;
    std::uint64_t start_;
};

bool Unplugged(const EmulatedDevice& d) {
    qvsim_sensor_info info{};
    return qvsim_sensor_info_get(d.simId, &info) != QVSIM_OK || info.plugged == 0;
}

// A failed transfer: a stall, or what the kernel reports for a device that is gone.
int FailureStatus(const EmulatedDevice& d) { return Unplugged(d) ? -ESHUTDOWN : -EPIPE; }

usbdevfs_urb* Urb(UMockdevIoctlData* data) { return reinterpret_cast<usbdevfs_urb*>(data->data); }

void Finish(usbdevfs_urb* urb, int status, int actual) {
    urb->status = status;
    urb->actual_length = actual;
}

// Copies a reply into the data stage of a control URB, as much as was asked.
int Reply(std::uint8_t* data, int asked, const Bytes& reply) {
    const int n = std::min<int>(asked, static_cast<int>(reply.size()));
    std::memcpy(data, reply.data(), static_cast<std::size_t>(n));
    return n;
}

// A standard GET_DESCRIPTOR: the emulated device's own descriptors, and its
// strings from the simulated sensor (through the simulator's driver). -1: stall.
int StandardDescriptor(EmulatedDevice& d, std::uint16_t value, std::uint8_t* data, int asked) {
    const std::uint8_t type = value >> 8, index = value & 0xFF;
    const Bytes& all = d.descriptors;
    switch (type) {
        case 1:
            return Reply(data, asked, Bytes(all.begin(), all.begin() + 18));
        case 2:
            return Reply(data, asked, Bytes(all.begin() + 18, all.end()));
        case 0x0F:
            if (d.config.announce != EmulatedBus::Announce::MsOs20) return -1;
            return Reply(data, asked, Bos(MsOs20Set(d.config.guid).size()));
        case 3:
            break;
        default:
            return -1;
    }
    if (index == 0) return Reply(data, asked, {4, 3, 0x09, 0x04});
    if (index == 0xEE) return d.config.announce == EmulatedBus::Announce::MsOs10 ? Reply(data, asked, MsOs10Signature()) : -1;
    if (index == 1) return Reply(data, asked, StringDescriptor("QV simulated sensors"));
    char text[128] = {};
    SensorTime sensor(*d.bus);
    if (QV_USBDRVD_GetStringDescriptorA(d.simWinUsb, QV_DRV_STRING_DESCRIPTOR_ARG, index, sizeof text, text) < 0)
        return -1;
    return Reply(data, asked, StringDescriptor(text));
}

// One control URB, answered at once: its status and data length.
void Control(EmulatedDevice& d, usbdevfs_urb* urb, std::uint8_t* buffer) {
    if (urb->buffer_length < 8) return Finish(urb, -EINVAL, 0);
    const std::uint8_t type = buffer[0], request = buffer[1];
    const std::uint16_t value = static_cast<std::uint16_t>(buffer[2] | (buffer[3] << 8));
    const std::uint16_t index = static_cast<std::uint16_t>(buffer[4] | (buffer[5] << 8));
    const int length = std::min<int>(buffer[6] | (buffer[7] << 8), urb->buffer_length - 8);
    std::uint8_t* data = buffer + 8;
    int result = -1;
    const bool vendor = (type & 0x60) == 0x40;
    if (type == 0x80 && request == 6) {
        result = StandardDescriptor(d, value, data, length);
    } else if ((type & 0x60) == 0) {
        result = 0;  // SET_CONFIGURATION and the like: nothing to do
    } else if (vendor && request == kMsVendorCode && (type & 0x80)) {
        if (index == 7 && d.config.announce == EmulatedBus::Announce::MsOs20)
            result = Reply(data, length, MsOs20Set(d.config.guid));
        else if (index == 5 && d.config.announce == EmulatedBus::Announce::MsOs10)
            result = Reply(data, length, MsOs10Properties(d.config.guid));
    } else if (vendor && (type & 0x1F) == 0) {
        // The sensor's own requests: the simulated sensor answers them (a
        // fault it throws is a stall, as the request failed on the wire).
        SensorTime sensor(*d.bus);
        try {
            result = (type & 0x80) ? QV_USBDRVD_VendorOrClassRequestIn(d.simWinUsb, 0xC0, 0, request, value, index, data, length)
                                   : QV_USBDRVD_VendorOrClassRequestOut(d.simWinUsb, 0x40, 0, request, value, index, data, length);
        } catch (...) {
            result = -1;
        }
    }
    if (result < 0) return Finish(urb, FailureStatus(d), 0);
    Finish(urb, 0, result);
}

// Tries a waiting bulk URB against the simulated sensor: true when it
// finished. As on the wire, an IN URB ends when it is full or after a short
// packet (less than the 512-byte maximum). The simulated sensor hands out
// what is ready so far, in any amount, so a URB ends short only once its
// bytes stop coming at a length no whole number of packets makes.
bool TryBulk(EmulatedDevice& d, EmulatedDevice::Submitted& u, std::uint32_t waitMs) {
    usbdevfs_urb* urb = Urb(u.urb);
    const auto length = static_cast<std::uint32_t>(urb->buffer_length);
    std::uint32_t moved = 0;
    std::int32_t result = -1;
    try {
        SensorTime sensor(*d.bus);
        result = (urb->endpoint & 0x80)
                     ? QV_USBDRVD_PipeReadTimeout(d.simWinUsb, urb->endpoint, u.buffer->data + u.done, length - u.done,
                                                  &moved, waitMs)
                     : QV_USBDRVD_PipeWriteTimeout(d.simWinUsb, urb->endpoint, u.buffer->data, length, &moved, waitMs);
    } catch (...) {
        result = -1;
    }
    if (result < 0) {
        Finish(urb, FailureStatus(d), static_cast<int>(u.done));
        return true;
    }
    u.done += moved;
    const bool ended = moved == 0 && u.done % kMaxPacket != 0;
    if (u.done < length && !ended) return false;
    Finish(urb, 0, static_cast<int>(u.done));
    return true;
}

// Gives the oldest waiting URB up to kReapWaitMs to finish: true when it did.
// The simulated sensor's clock moves on meanwhile as a real sensor's would.
bool AwaitOldest(EmulatedDevice& d) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(kReapWaitMs);
    EmulatedDevice::Submitted& u = d.waiting.front();
    for (;;) {
        const std::uint32_t before = u.done;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (TryBulk(d, u, static_cast<std::uint32_t>(std::max<long long>(left, 1)))) return true;
        if (Clock::now() >= deadline) return false;
        if (u.done == before) g_usleep(kReapRetryUs);
    }
}

void Release(const EmulatedDevice::Submitted& u) {
    umockdev_ioctl_data_unref(u.buffer);
    umockdev_ioctl_data_unref(u.urb);
}

// What a pointer argument points to, in the client's memory.
UMockdevIoctlData* Resolve(UMockdevIoctlData* arg, std::size_t length) {
    GError* error = nullptr;
    UMockdevIoctlData* data = umockdev_ioctl_data_resolve(arg, 0, length, &error);
    g_clear_error(&error);
    return data;
}

gboolean Fail(UMockdevIoctlClient* client, int error) {
    umockdev_ioctl_client_complete(client, -1, error);
    return TRUE;
}

gboolean HandleIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer user) {
    auto& d = *static_cast<EmulatedDevice*>(user);
    d.bus->Count(&EmulatedBus::Counts::ioctls);
    const gulong request = umockdev_ioctl_client_get_request(client);
    UMockdevIoctlData* arg = umockdev_ioctl_client_get_arg(client);
    std::lock_guard<std::mutex> lock(d.guard);
    switch (request) {
        case USBDEVFS_GET_CAPABILITIES: {
            UMockdevIoctlData* caps = Resolve(arg, 4);
            if (caps == nullptr) return Fail(client, EFAULT);
            std::memset(caps->data, 0, 4);  // none: libusb splits and waits as for the oldest kernels
            umockdev_ioctl_data_unref(caps);
            umockdev_ioctl_client_complete(client, 0, 0);
            return TRUE;
        }
        case USBDEVFS_CLAIMINTERFACE:
        case USBDEVFS_RELEASEINTERFACE:
        case USBDEVFS_SETINTERFACE:
        case USBDEVFS_SETCONFIGURATION:
        case USBDEVFS_CLEAR_HALT:
        case USBDEVFS_RESETEP:
            umockdev_ioctl_client_complete(client, 0, 0);
            return TRUE;
        case USBDEVFS_GETDRIVER:
        case USBDEVFS_IOCTL:
            umockdev_ioctl_client_complete(client, -1, ENODATA);  // no kernel driver bound
            return TRUE;
        case USBDEVFS_SUBMITURB: {
            if (Unplugged(d)) return Fail(client, ENODEV);
            UMockdevIoctlData* held = Resolve(arg, sizeof(usbdevfs_urb));
            if (held == nullptr) return Fail(client, EFAULT);
            usbdevfs_urb* urb = Urb(held);
            const bool control = urb->type == USBDEVFS_URB_TYPE_CONTROL;
            const bool bulk = urb->type == USBDEVFS_URB_TYPE_BULK &&
                              (urb->endpoint == QV_DRV_PIPE_IN || urb->endpoint == QV_DRV_PIPE_OUT);
            GError* error = nullptr;
            UMockdevIoctlData* buffer =
                (control || bulk) && urb->buffer_length >= 0
                    ? umockdev_ioctl_data_resolve(held, offsetof(usbdevfs_urb, buffer),
                                                  static_cast<gsize>(urb->buffer_length), &error)
                    : nullptr;
            g_clear_error(&error);
            if (buffer == nullptr) {
                umockdev_ioctl_data_unref(held);
                return Fail(client, control || bulk ? EFAULT : EINVAL);
            }
            EmulatedDevice::Submitted u{held, buffer, 0};
            if (control) {
                d.bus->Count(&EmulatedBus::Counts::controlUrbs);
                Control(d, urb, buffer->data);
                d.finished.push_back(u);
            } else {
                d.bus->Count(&EmulatedBus::Counts::bulkUrbs);
                // Behind URBs still waiting it must wait its turn, or it would
                // take bytes that belong to them.
                (d.waiting.empty() && TryBulk(d, u, 0) ? d.finished : d.waiting).push_back(u);
            }
            umockdev_ioctl_client_complete(client, 0, 0);
            return TRUE;
        }
        case USBDEVFS_DISCARDURB: {
            // The argument is the URB's address itself.
            gulong address = 0;
            std::memcpy(&address, arg->data, std::min<std::size_t>(sizeof address, static_cast<std::size_t>(arg->data_len)));
            for (auto it = d.waiting.begin(); it != d.waiting.end(); ++it) {
                if (it->urb->client_addr != address) continue;
                d.bus->Count(&EmulatedBus::Counts::discards);
                Finish(Urb(it->urb), -ENOENT, static_cast<int>(it->done));
                d.finished.push_back(*it);
                d.waiting.erase(it);
                umockdev_ioctl_client_complete(client, 0, 0);
                return TRUE;
            }
            return Fail(client, EINVAL);
        }
        case USBDEVFS_REAPURB:
        case USBDEVFS_REAPURBNDELAY: {
            if (d.finished.empty() && !d.waiting.empty() && AwaitOldest(d)) {
                d.finished.push_back(d.waiting.front());
                d.waiting.pop_front();
            }
            if (d.finished.empty()) {
                d.bus->Count(&EmulatedBus::Counts::emptyReaps);
                return Fail(client, EAGAIN);
            }
            UMockdevIoctlData* slot = Resolve(arg, sizeof(void*));
            if (slot == nullptr) return Fail(client, EFAULT);
            const EmulatedDevice::Submitted u = d.finished.front();
            d.finished.pop_front();
            umockdev_ioctl_data_set_ptr(slot, 0, u.urb);
            umockdev_ioctl_client_complete(client, 0, 0);
            umockdev_ioctl_data_unref(slot);
            Release(u);
            return TRUE;
        }
        default:
            return Fail(client, ENOTTY);
    }
}

}  // namespace

EmulatedBus::EmulatedBus() : impl_(std::make_unique<Impl>()) {
    if (Available()) impl_->testbed = umockdev_testbed_new();
}

EmulatedBus::~EmulatedBus() {
    for (UMockdevIoctlBase* h : impl_->handlers) g_object_unref(h);
    if (impl_->testbed) g_object_unref(impl_->testbed);
}

// umockdev_in_mock_environment() tells whether a test bed exists, not whether
// the preload library that makes it visible is there.
bool EmulatedBus::Available() {
    const char* preload = std::getenv("LD_PRELOAD");
    return preload != nullptr && std::strstr(preload, "libumockdev-preload.so") != nullptr;
}

bool EmulatedBus::Add(const Device& config) {
    if (!impl_->testbed) return false;
    auto d = std::make_unique<EmulatedDevice>();
    d->config = config;
    d->bus = impl_.get();
    d->descriptors = Descriptors(config);
    const QvDrvHandle simDevice = QV_USBDRVD_OpenDevHandle(config.simIndex, 0, &kSensorClass);
    if (simDevice <= 0) return false;
    d->simWinUsb = QV_USBDRVD_OpenWinUSBHandle(simDevice);
    d->simId = qvsim_sensor_at_index(config.simIndex);

    const int number = static_cast<int>(impl_->devices.size()) + 2;  // 1 is the root hub's
    char name[32], node[64], devnum[16];
    std::snprintf(name, sizeof name, "1-%d", number - 1);
    std::snprintf(node, sizeof node, "/dev/bus/usb/001/%03d", number);
    std::snprintf(devnum, sizeof devnum, "%d", number);
    char vendor[16], product[16];
    std::snprintf(vendor, sizeof vendor, "%04x", config.vendor);
    std::snprintf(product, sizeof product, "%04x", config.product);
    gchar* syspath = umockdev_testbed_add_device(
        impl_->testbed, "usb", name, nullptr,
        "busnum", "1", "devnum", devnum, "idVendor", vendor, "idProduct", product, "speed", "480",
        "bConfigurationValue", "1", "bDeviceClass", "00", "dev", "189:1", nullptr,
        "DEVNAME", node, "DEVTYPE", "usb_device", "BUSNUM", "001", "DEVNUM", node + std::strlen(node) - 3, nullptr);
    if (syspath == nullptr) return false;
    // The node itself: the preload library redirects opening /dev/bus/usb/...
    // to it only when it exists in the bed.
    gchar* root = umockdev_testbed_get_root_dir(impl_->testbed);
    gchar* file = g_build_filename(root, node, nullptr);
    gchar* folder = g_path_get_dirname(file);
    const bool made = g_mkdir_with_parents(folder, 0755) == 0 && g_file_set_contents(file, "", 0, nullptr);
    g_free(folder);
    g_free(file);
    g_free(root);
    if (!made) {
        g_free(syspath);
        return false;
    }
    umockdev_testbed_set_attribute_binary(impl_->testbed, syspath, "descriptors", d->descriptors.data(),
                                          static_cast<gint>(d->descriptors.size()));
    g_free(syspath);

    UMockdevIoctlBase* handler = umockdev_ioctl_base_new();
    g_signal_connect(handler, "handle-ioctl", G_CALLBACK(HandleIoctl), d.get());
    GError* error = nullptr;
    if (!umockdev_testbed_attach_ioctl(impl_->testbed, node, handler, &error)) {
        g_clear_error(&error);
        g_object_unref(handler);
        return false;
    }
    impl_->handlers.push_back(handler);
    impl_->devices.push_back(std::move(d));
    return true;
}

EmulatedBus::Counts EmulatedBus::counts() const {
    std::lock_guard<std::mutex> lock(impl_->countGuard);
    return impl_->counts;
}

}  // namespace qvusb
