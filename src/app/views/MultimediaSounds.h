#pragma once

#include "core/Sounds.h"

#include <QHash>
#include <QObject>
#include <QUrl>

#include <functional>
#include <memory>

class QSoundEffect;

namespace views {

// The application's named sounds through Qt Multimedia, from the WAV files built into it
// (":/sounds/NAME.wav"). Without an audio output, a sound is skipped with a debug line in the
// log: a bench machine without speakers is no error.
class MultimediaSounds final : public QObject, public core::Sounds {
    Q_OBJECT

  public:
    // `hasAudioOutput` is asked at every sound, since a device may come or go; by default the
    // system's default output is asked.
    explicit MultimediaSounds(std::function<bool()> hasAudioOutput = {},
                              QObject* parent = nullptr);
    ~MultimediaSounds() override;

    void beep() override;
    void play(const QString& name) override;

    static QUrl sourceOf(const QString& name);
    // The sound last started, for the curious (and the tests); null before the first.
    const QSoundEffect* lastPlayed() const { return lastPlayed_; }

  private:
    QSoundEffect* effect(const QString& name);

    std::function<bool()> hasAudioOutput_;
    QHash<QString, QSoundEffect*> effects_;
    QSoundEffect* lastPlayed_ = nullptr;
};

// The application's sounds, installed as the shared ones until the result is destroyed (before
// the application object, which the sound effects need).
std::unique_ptr<MultimediaSounds> installApplicationSounds();

}  // namespace views
