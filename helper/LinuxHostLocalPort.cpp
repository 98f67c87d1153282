#include "LinuxHostLocalPort.h"

#include "localport/HelperProtocol.h"

#include "core/Log.h"

namespace {

std::int64_t unsupported(const QString& what) {
    ZMRLogLevel1(QStringLiteral("%1: this Linux host cannot send the message: Linux offers no "
                                "generic way to send a USB Power Delivery vendor-defined message "
                                "from the host's own USB-C port (status %2)")
                     .arg(what)
                     .arg(localport::status::unsupportedHost));
    return localport::status::unsupportedHost;
}

}  // namespace

std::int64_t LinuxHostLocalPort::enterDFUMode() {
    return unsupported(QStringLiteral("EnterDFUMode"));
}

std::int64_t LinuxHostLocalPort::reboot() {
    return unsupported(QStringLiteral("Reboot"));
}
