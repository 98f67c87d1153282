#pragma once

#include "localport/HelperProtocol.h"

#include <QDBusConnection>

// Where the helper lives and how it gets there: the bus its calls go over, the check that it is
// installed, and the one privileged step that installs it.
class HelperEndpoint {
  public:
    virtual ~HelperEndpoint() = default;

    virtual QDBusConnection bus() const = 0;
    virtual bool isToolInstalled() const = 0;
    // Puts the helper in place under the label; on failure says why in error.
    virtual bool blessHelperWithLabel(const QString& label, localport::HelperError* error) = 0;
    // Makes sure a call can be answered, or says in error why none can be. The system bus
    // starts the helper on demand by itself.
    virtual bool prepareForCall(localport::HelperError* /*error*/) { return true; }
};
