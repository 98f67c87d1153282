// A hub library module for the loader's tests: discovery reports one hub, and says so in the log
// through the function Tarvel hands over. TEST_MODULE_INTERFACE_VERSION picks the interface it
// claims; TEST_MODULE_WITHOUT_ENTRY_POINTS leaves out everything Tarvel looks for.

#include "hubs/stem/Backend.h"
#include "hubs/stem/ModuleInterface.h"

#define TEST_MODULE_EXPORT extern "C" __attribute__((visibility("default")))

#if TEST_MODULE_WITHOUT_ENTRY_POINTS

TEST_MODULE_EXPORT int some_other_library_function() {
    return 1;
}

#else

namespace {

class OneHubBackend final : public stem::Backend {
public:
    explicit OneHubBackend(stem::ModuleLogFunction log) : log_(log) {}

    std::uint8_t aDiscovery_EnumerateModules(stem::LinkType type,
                                             const stem::ModuleFoundProc& callback,
                                             std::uint32_t) override {
        log_("test hub module: discovery");
        stem::LinkSpec spec;
        spec.type = type;
        spec.serial_num = 0x1C3B4A01;
        spec.model = stem::aMODULE_TYPE_USBHub3c;
        bool success = true;
        callback(spec, success);
        return 1;
    }

    std::unique_ptr<stem::Module> createUSBHub3c(std::uint8_t, bool, std::uint8_t) override {
        return nullptr;
    }

private:
    stem::ModuleLogFunction log_;
};

}  // namespace

TEST_MODULE_EXPORT int tarvel_stem_module_interface_version() {
    return TEST_MODULE_INTERFACE_VERSION;
}

TEST_MODULE_EXPORT const char* tarvel_stem_module_description() {
    return "test module, one hub";
}

TEST_MODULE_EXPORT stem::Backend* tarvel_stem_module_create_backend(stem::ModuleLogFunction log) {
    return new OneHubBackend(log);
}

#endif
