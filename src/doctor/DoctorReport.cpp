#include "doctor/DoctorReport.h"

#include <QJsonArray>

#include <algorithm>

namespace doctor {

namespace {

QString statusWord(Check::Status status) {
    switch (status) {
        case Check::Status::Ok:
            return QStringLiteral("ok");
        case Check::Status::Failed:
            return QStringLiteral("failed");
        case Check::Status::Warning:
            return QStringLiteral("warning");
        case Check::Status::NotNeeded:
            break;
    }
    return QStringLiteral("not needed");
}

QString statusMark(Check::Status status) {
    switch (status) {
        case Check::Status::Ok:
            return QStringLiteral("ok  ");
        case Check::Status::Failed:
            return QStringLiteral("FAIL");
        case Check::Status::Warning:
            return QStringLiteral("WARN");
        case Check::Status::NotNeeded:
            break;
    }
    return QStringLiteral("--  ");
}

}  // namespace

bool DoctorReport::passed() const {
    return std::none_of(checks_.begin(), checks_.end(),
                        [](const Check& check) { return check.status == Check::Status::Failed; });
}

QString DoctorReport::text() const {
    QString text = QStringLiteral("Tarvel doctor, %1 mode\n").arg(mode_);
    for (const Check& check : checks_) {
        text += QStringLiteral("%1 %2: %3\n").arg(statusMark(check.status), check.name, check.detail);
        const bool wantsFix =
            check.status == Check::Status::Failed || check.status == Check::Status::Warning;
        if (wantsFix && !check.fix.isEmpty())
            text += QStringLiteral("     fix: %1\n").arg(check.fix);
    }
    text += passed() ? QStringLiteral("Everything the %1 mode needs is in place.\n").arg(mode_)
                     : QStringLiteral("Something the %1 mode needs is missing.\n").arg(mode_);
    return text;
}

QJsonObject DoctorReport::json() const {
    QJsonArray checks;
    for (const Check& check : checks_) {
        QJsonObject object{{QStringLiteral("name"), check.name},
                           {QStringLiteral("status"), statusWord(check.status)},
                           {QStringLiteral("detail"), check.detail}};
        if (check.status != Check::Status::Ok && !check.fix.isEmpty())
            object.insert(QStringLiteral("fix"), check.fix);
        checks.append(object);
    }
    return {{QStringLiteral("mode"), mode_},
            {QStringLiteral("passed"), passed()},
            {QStringLiteral("checks"), checks}};
}

}  // namespace doctor
