#pragma once

#include <cstdint>
#include <functional>

// The few BrainStem2 types the hub driver sees, with the library's own values. Nothing outside
// src/hubs/stem includes the vendor headers; everything else uses these.
namespace stem {

// A library result code; 0 is success.
using aErr = std::uint32_t;

inline constexpr aErr aErrNone = 0;
inline constexpr aErr aErrParam = 2;
inline constexpr aErr aErrNotFound = 3;  // the driver treats this one as transient
inline constexpr aErr aErrBusy = 5;
inline constexpr aErr aErrIO = 6;
inline constexpr aErr aErrTimeout = 18;
inline constexpr aErr aErrUnimplemented = 21;
inline constexpr aErr aErrConnection = 25;
inline constexpr aErr aErrIndexRange = 26;
inline constexpr aErr aErrUnknown = 34;

enum class LinkType : std::uint32_t { Invalid = 0, USB = 1, TCPIP = 2 };

// The library's record of one discovered module (its `linkSpec`; the USB identifier is the
// `t.usb.usb_id` member of the library's union).
struct LinkSpec {
    LinkType type = LinkType::Invalid;
    std::uint32_t serial_num = 0;
    std::uint32_t module = 0;
    std::uint32_t router = 0;
    std::uint32_t router_serial_num = 0;
    std::uint32_t model = 0;
    std::uint32_t usb_id = 0;
};

// Called once per module found; set `success` and answer true to keep enumerating. The library's
// `void* vpRef` becomes whatever the callable captures.
using ModuleFoundProc = std::function<bool(const LinkSpec& spec, bool& success)>;

// The address and model the library gives a USBHub3c.
inline constexpr std::uint8_t kUSBHub3cDefaultAddress = 6;
inline constexpr std::uint8_t aMODULE_TYPE_USBHub3c = 24;

// 127.0.0.1 in the byte order the library expects for its network-interface argument.
inline constexpr std::uint32_t LOCALHOST_IP_ADDRESS = 0x0100007F;

// A packed firmware version as backends without the vendor library encode it: major in the top
// four bits, minor in the next four, patch in the low 24 bits.
constexpr std::uint32_t packVersion(std::uint32_t major, std::uint32_t minor, std::uint32_t patch) {
    return ((major & 0xF) << 28) | ((minor & 0xF) << 24) | (patch & 0xFFFFFF);
}

}  // namespace stem
