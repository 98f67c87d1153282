#pragma once

#include <QString>

namespace core {

// The system alert beep and the application's named sounds ("finishSound", "fail").
class Sounds {
public:
    virtual ~Sounds() = default;
    virtual void beep() = 0;
    virtual void play(const QString& name) = 0;

    static Sounds& shared();
    static void install(Sounds* sounds);
};

// Rings the terminal bell on standard error when it is a terminal; silent otherwise so that
// scripted runs keep clean output.
class TerminalSounds final : public Sounds {
public:
    void beep() override;
    void play(const QString& name) override;
};

}  // namespace core
