#pragma once

#include <QString>

// `tarvel-helper --install`: copies this executable and its four files (D-Bus policy, D-Bus
// activation file, polkit action, systemd unit) into place below root, "/" for a real
// installation. Meant to run under pkexec. Answers the exit status and prints what failed.
int installHelper(const QString& root);
