#include "views/LocalPortSection.h"

#include "views/CollapsibleSection.h"
#include "views/LocalDFUGroupView.h"

#include "configurator/AC2Device.h"
#include "localport/AutoDFU.h"
#include "localport/FirmwareUpdater.h"
#include "localport/LocalPortAutoRestore.h"

#include <QSettings>

namespace views {
namespace {

const QString kExpandedKey = QStringLiteral("MainWindow/localPortExpanded");

}  // namespace

LocalPortSection::LocalPortSection(core::AppState& state, restore::RestoreSession& session,
                                   QSettings& windowState, QObject* parent)
    : QObject(parent),
      windowState_(windowState),
      updater_(std::make_unique<FirmwareUpdater>(FirmwareUpdater::defaultCollaborators(&state))),
      autoRestore_(std::make_unique<localport::LocalPortAutoRestore>(
          localport::LocalPortAutoRestore::Collaborators{
              &AutoDFU::shared(), &session, &state,
              localport::LocalPortAutoRestore::engineListing(),
              localport::LocalPortAutoRestore::registryPortDevice()})) {
    connect(autoRestore_.get(), &localport::LocalPortAutoRestore::deviceRestored, this,
            [this](const restore::DevicePtr& device) {
                updater_->appendRestoredDevice(QStringLiteral("%1  %2").arg(
                    formatEcid(device->ecid()), device->serialNumber()));
            });
}

LocalPortSection::~LocalPortSection() = default;

QWidget* LocalPortSection::buildWidget() {
    auto* section = new CollapsibleSection(QStringLiteral("This Mac's DFU Port"),
                                           new LocalDFUGroupView(*updater_));
    section->setExpanded(windowState_.value(kExpandedKey, false).toBool());
    connect(section, &CollapsibleSection::expandedChanged, this,
            [this](bool expanded) { windowState_.setValue(kExpandedKey, expanded); });
    return section;
}

void LocalPortSection::run(PortCommand command) {
    switch (command) {
        case PortCommand::DFU:
            updater_->gogoDFUMode();
            break;
        case PortCommand::Restart:
            updater_->restart();
            break;
        case PortCommand::Recovery:
            updater_->recovery();
            break;
    }
}

}  // namespace views
