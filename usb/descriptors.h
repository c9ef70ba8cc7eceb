// Parsers for the descriptors through which the sensors announce their
// device-interface GUID (Microsoft OS descriptors, versions 1.0 and 2.0), and
// for USB string descriptors. They work on byte arrays exactly as they came
// off the wire and trust nothing in them: every length is checked against the
// bytes actually present, so a truncated or hostile descriptor yields nothing
// rather than a read past its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qvusb {

using Bytes = std::vector<std::uint8_t>;

// Where a device's MS OS 2.0 descriptor set is fetched: a vendor request with
// this code, index 7, and this length.
struct MsOs20Location {
    std::uint8_t vendorCode = 0;
    std::uint16_t totalLength = 0;
};

// The MS OS 2.0 platform capability of a BOS descriptor (wTotalLength bytes).
std::optional<MsOs20Location> FindMsOs20(const std::uint8_t* bos, std::size_t size);

// The DeviceInterfaceGUID(s) registry properties of an MS OS 2.0 descriptor
// set, in the order found (configuration and function subsets included).
std::vector<std::string> MsOs20InterfaceGuids(const std::uint8_t* set, std::size_t size);

// The vendor code of an MS OS 1.0 string descriptor (index 0xEE, "MSFT100").
std::optional<std::uint8_t> MsOs10VendorCode(const std::uint8_t* descriptor, std::size_t size);

// The DeviceInterfaceGUID(s) of an MS OS 1.0 extended properties descriptor.
std::vector<std::string> MsOs10InterfaceGuids(const std::uint8_t* descriptor, std::size_t size);

// A string descriptor's UTF-16LE text as 8-bit characters: Latin-1 where it
// fits, '?' otherwise; stops at the first NUL. Nothing for a malformed one.
std::optional<std::string> StringDescriptorText(const std::uint8_t* descriptor, std::size_t size);

// The first language of string descriptor 0; 0x0409 when it lists none.
std::uint16_t FirstLanguage(const std::uint8_t* descriptor, std::size_t size);

// Whether a GUID text names the sensors' device-interface class; braces and
// letter case do not matter.
bool IsSensorInterfaceGuid(const std::string& text);

// The sensors' device-interface GUID in the form Windows puts into paths.
extern const char* const kSensorGuidText;

}  // namespace qvusb
