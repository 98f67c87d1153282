#include "views/MultimediaSounds.h"

#include "restore/SoundPlayer.h"

#include <QFile>
#include <QSoundEffect>
#include <QTest>

#include <gtest/gtest.h>

namespace {

using views::MultimediaSounds;

// Qt loads a sound on a thread of its own and leaks it when the process ends mid-load; a test
// that played one waits for the load to end, as an application that runs on always does.
bool loadEnds(const QSoundEffect* effect) {
    return QTest::qWaitFor([effect] { return effect->status() != QSoundEffect::Loading; }, 5000);
}

TEST(MultimediaSounds, TheApplicationInstallsThemAsTheSharedSounds) {
    {
        const auto installed = views::installApplicationSounds();
        EXPECT_EQ(&core::Sounds::shared(), installed.get());
    }
    EXPECT_EQ(dynamic_cast<MultimediaSounds*>(&core::Sounds::shared()), nullptr)
        << "gone with the application";
}

TEST(MultimediaSounds, EachEndingOfARestorePlaysItsOwnBuiltInSound) {
    MultimediaSounds sounds([] { return true; });
    core::Sounds::install(&sounds);
    restore::SoundPlayer player;  // plays through whatever is installed, as the session's does

    player.play(true);
    ASSERT_NE(sounds.lastPlayed(), nullptr);
    EXPECT_EQ(sounds.lastPlayed()->source(), QUrl("qrc:/sounds/fail.wav"));
    EXPECT_TRUE(loadEnds(sounds.lastPlayed()));
    player.play(false);
    EXPECT_EQ(sounds.lastPlayed()->source(), QUrl("qrc:/sounds/finishSound.wav"));
    EXPECT_TRUE(loadEnds(sounds.lastPlayed()));

    for (const QString name : {"fail", "finishSound"}) {
        QFile wav(":/sounds/" + name + ".wav");
        ASSERT_TRUE(wav.open(QIODevice::ReadOnly)) << qPrintable(name);
        const QByteArray header = wav.read(44);
        EXPECT_TRUE(header.startsWith("RIFF") && header.mid(8, 8) == "WAVEfmt ");
        // Half a second or more of 16-bit mono at 44.1 kHz.
        EXPECT_GT(wav.size(), 44 + 44100);
    }
}

TEST(MultimediaSounds, WithoutAnAudioOutputNothingIsPlayed) {
    MultimediaSounds sounds([] { return false; });
    sounds.play("fail");
    EXPECT_EQ(sounds.lastPlayed(), nullptr);
}

}  // namespace
