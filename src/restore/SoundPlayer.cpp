#include "restore/SoundPlayer.h"

namespace restore {

SoundPlayer& SoundPlayer::shared() {
    static SoundPlayer instance;
    return instance;
}

SoundPlayer::SoundPlayer(core::Sounds* sounds) : sounds_(sounds) {}

void SoundPlayer::play(bool failure) {
    core::Sounds& sounds = sounds_ ? *sounds_ : core::Sounds::shared();
    sounds.play(failure ? QStringLiteral("fail") : QStringLiteral("finishSound"));
}

}  // namespace restore
