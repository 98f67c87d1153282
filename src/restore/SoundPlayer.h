#pragma once

#include "core/Sounds.h"

namespace restore {

// The two sounds that end a restore: "finishSound" when it went well, "fail" when it did not.
class SoundPlayer {
  public:
    static SoundPlayer& shared();
    explicit SoundPlayer(core::Sounds* sounds = nullptr);

    void play(bool failure);

  private:
    core::Sounds* sounds_;  // nullptr: whatever the application installed at the time of playing
};

}  // namespace restore
