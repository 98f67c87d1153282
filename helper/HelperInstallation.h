#pragma once

#include <QString>

// `tarvel-helper --install`: copies this executable and its four files (D-Bus policy, D-Bus
// activation file, polkit action, systemd unit) into place below root, "/" for a real
// installation, and stops a helper still running from an earlier installation so that the next
// call starts this one. Below another root the running helper is left alone unless
// replaceRunning. Meant to run under pkexec. Answers the exit status and prints what failed.
int installHelper(const QString& root, bool replaceRunning);
