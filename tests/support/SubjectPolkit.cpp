#include "support/SubjectPolkit.h"

#include <QDBusMessage>

namespace testing_support {

SubjectPolkit::SubjectPolkit(const PrivateBus& bus)
    : connection_(bus.connect(QStringLiteral("subject-polkit-control"))) {
    authority_.setProcessEnvironment(bus.environment());
    authority_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    endWithThisProcess(authority_);
    authority_.start(QStringLiteral(TARVEL_TEST_PYTHON),
                     {QStringLiteral(TARVEL_TEST_SUPPORT_DIR "/polkit_per_subject.py")});
    running_ = authority_.waitForStarted(5000) &&
               bus.waitForOwner(QStringLiteral("org.freedesktop.PolicyKit1"), true);
}

SubjectPolkit::~SubjectPolkit() {
    authority_.terminate();
    authority_.waitForFinished(5000);
}

void SubjectPolkit::allow(const QString& busName) {
    control(QStringLiteral("Allow"), {busName});
}

void SubjectPolkit::setDelay(int milliseconds) {
    control(QStringLiteral("SetDelay"), {static_cast<uint>(milliseconds)});
}

void SubjectPolkit::setDismissed(bool dismissed) {
    control(QStringLiteral("SetDismissed"), {dismissed});
}

QStringList SubjectPolkit::asked() {
    return control(QStringLiteral("Asked")).arguments().value(0).toStringList();
}

QDBusMessage SubjectPolkit::control(const QString& method, const QVariantList& arguments) {
    QDBusMessage call =
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.PolicyKit1"),
                                       QStringLiteral("/org/freedesktop/PolicyKit1/Authority"),
                                       QStringLiteral("com.kestrune.test.Polkit"), method);
    call.setArguments(arguments);
    return connection_.call(call);
}

}  // namespace testing_support
