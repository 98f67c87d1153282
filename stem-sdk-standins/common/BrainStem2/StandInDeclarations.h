// Stand-in for the parts of Acroname's BrainStem2 SDK headers that Tarvel's adapter uses: the
// same names, nesting and signatures, declared only. It lets the adapter be compile-checked
// without the closed SDK; nothing here can be linked. The including version header sets
// STANDIN_BRAINSTEM_MINOR before including this file.
#pragma once

#include <cstddef>
#include <cstdint>

typedef enum {
    aErrNone = 0,
    aErrMemory = 1,
    aErrParam = 2,
    aErrNotFound = 3,
    aErrFileNameLength = 4,
    aErrBusy = 5,
    aErrIO = 6,
    aErrMode = 7,
    aErrWrite = 8,
    aErrRead = 9,
    aErrEOF = 10,
    aErrNotReady = 11,
    aErrPermission = 12,
    aErrRange = 13,
    aErrSize = 14,
    aErrOverrun = 15,
    aErrParse = 16,
    aErrConfiguration = 17,
    aErrTimeout = 18,
    aErrInitialization = 19,
    aErrVersion = 20,
    aErrUnimplemented = 21,
    aErrDuplicate = 22,
    aErrCancel = 23,
    aErrPacket = 24,
    aErrConnection = 25,
    aErrIndexRange = 26,
    aErrShortCommand = 27,
    aErrInvalidEntity = 28,
    aErrInvalidOption = 29,
    aErrResource = 30,
    aErrMedia = 31,
    aErrAsyncReturn = 32,
    aErrOperation = 33,
    aErrUnknown = 34
} aErr;

#if STANDIN_BRAINSTEM_MINOR >= 10
typedef enum { INVALID = 0, USB = 1, TCPIP = 2, SERIAL = 3, AETHER = 4 } linkType;
#define LOCALHOST_IP_ADDRESS 16777343
#else
typedef enum { INVALID = 0, USB = 1, TCPIP = 2 } linkType;
#endif

#define aMODULE_TYPE_USBHub3c 24

typedef struct linkSpec {
    linkType type;
    uint32_t serial_num;
    uint32_t module;
    uint32_t router;
    uint32_t router_serial_num;
    uint32_t model;
    union {
        struct {
            uint32_t usb_id;
        } usb;
        struct {
            uint32_t ip_address;
            uint32_t ip_port;
        } ip;
    } t;
} linkSpec;

typedef bool (*aDiscoveryModuleFoundProc)(const linkSpec* spec, bool* bSuccess, void* vpRef);

#if STANDIN_BRAINSTEM_MINOR >= 10
uint8_t aDiscovery_EnumerateModules(const linkType type, aDiscoveryModuleFoundProc cbFound,
                                    void* vpCBRef, const uint32_t networkInterface);
const char* aError_GetErrorDescription(aErr error);
#else
uint8_t aDiscovery_EnumerateModules(const linkType type, aDiscoveryModuleFoundProc cbFound,
                                    void* vpCBRef);
const char* aError_GetErrorText(aErr error);
#endif

void aVersion_ParseString(uint32_t build, char* buffer, size_t length);

namespace Acroname {
namespace BrainStem {

class EntityClass {
  public:
#if STANDIN_BRAINSTEM_MINOR >= 10
    aErr setUEIBytes(const uint8_t option, const uint8_t* buffer, const size_t bufferLength);
#endif
    aErr getUEIBytes(const uint8_t option, uint8_t* buffer, const size_t bufferLength,
                     size_t* unloadedLength);
};

class PortClass : public EntityClass {
  public:
    aErr setEnabled(const uint8_t bEnable);
    aErr getEnabled(uint8_t* pbEnable);
    aErr setPowerMode(const uint8_t powerMode);
    aErr getPowerMode(uint8_t* powerMode);
    aErr setPowerLimit(const uint32_t milliwatts);
    aErr getVbusVoltage(int32_t* microvolts);
    aErr getVbusCurrent(int32_t* microamps);
    aErr getVconnVoltage(int32_t* microvolts);
    aErr getVconnCurrent(int32_t* microamps);
};

class PowerDeliveryClass : public EntityClass {
  public:
    aErr setPowerRole(const uint8_t powerRole);
    aErr getPowerRole(uint8_t* powerRole);
    aErr setOverride(const uint32_t overrides);
    aErr getCableOrientation(uint8_t* orientation);
};

class SystemClass : public EntityClass {
  public:
    aErr save();
    aErr reset();
    aErr setLED(const uint8_t bOn);
    aErr getLED(uint8_t* pbOn);
    aErr getVersion(uint32_t* build);
    aErr setPowerLimitMax(const uint32_t milliwatts);
    aErr getPowerLimitMax(uint32_t* milliwatts);
    aErr getPowerLimit(uint32_t* milliwatts);
    aErr getInputPowerSource(uint8_t* source);
};

// The USB system entity: it owns the port entities.
class HubClass : public EntityClass {
  public:
    PortClass port[8];
};

class Module {
  public:
    Module(const uint8_t address, bool bAutoNetworking = true, const uint8_t model = 0);
    virtual ~Module();
    aErr discoverAndConnect(linkType type, const uint32_t serialNumber = 0);
    bool isConnected();
    aErr disconnect();
};

}  // namespace BrainStem
}  // namespace Acroname

class aUSBHub3c : public Acroname::BrainStem::Module {
  public:
    aUSBHub3c(const uint8_t module = 6, bool bAutoNetworking = true,
              const uint8_t model = aMODULE_TYPE_USBHub3c);

    Acroname::BrainStem::HubClass hub;
    Acroname::BrainStem::PowerDeliveryClass pd[8];
    Acroname::BrainStem::SystemClass system;
};
