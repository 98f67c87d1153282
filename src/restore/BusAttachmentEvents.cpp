#include "restore/BusAttachmentEvents.h"

#include "restore/EventNotification.h"

#include "core/Clock.h"
#include "core/NotificationCenter.h"
#include "core/Settings.h"
#include "usb/USBManager.h"

namespace restore {

BusAttachmentEvents::BusAttachmentEvents()
    : roster_(core::Clock::system()),
      events_(roster_, core::Settings::shared(),
              AttachmentEvents::to(EventNotification::shared())) {
    roster_.observe(core::NotificationCenter::defaultCenter());
    USBManager::sharedManager()->startWatching();
}

}  // namespace restore
