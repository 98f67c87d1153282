#include "views/MultimediaSounds.h"

#include "core/Log.h"

#include <QApplication>
#include <QAudioDevice>
#include <QMediaDevices>
#include <QSoundEffect>

namespace views {

MultimediaSounds::MultimediaSounds(std::function<bool()> hasAudioOutput, QObject* parent)
    : QObject(parent), hasAudioOutput_(std::move(hasAudioOutput)) {
    if (!hasAudioOutput_)
        hasAudioOutput_ = [] { return !QMediaDevices::defaultAudioOutput().isNull(); };
}

MultimediaSounds::~MultimediaSounds() {
    core::Sounds::install(nullptr);
}

void MultimediaSounds::beep() {
    QApplication::beep();
}

QUrl MultimediaSounds::sourceOf(const QString& name) {
    return QUrl(QStringLiteral("qrc:/sounds/%1.wav").arg(name));
}

// Made on first use: loading the sounds has no business delaying the window at start.
QSoundEffect* MultimediaSounds::effect(const QString& name) {
    QSoundEffect*& effect = effects_[name];
    if (!effect) {
        effect = new QSoundEffect(this);
        effect->setSource(sourceOf(name));
    }
    return effect;
}

// A restore may end on another thread; the effects live on this object's.
void MultimediaSounds::play(const QString& name) {
    QMetaObject::invokeMethod(this, [this, name] {
        if (!hasAudioOutput_()) {
            ZMRLogDebug(QStringLiteral("No audio output: the sound \"%1\" is not played").arg(name));
            return;
        }
        lastPlayed_ = effect(name);
        lastPlayed_->play();
    });
}

std::unique_ptr<MultimediaSounds> installApplicationSounds() {
    auto sounds = std::make_unique<MultimediaSounds>();
    core::Sounds::install(sounds.get());
    return sounds;
}

}  // namespace views
