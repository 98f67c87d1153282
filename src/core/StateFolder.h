#pragma once

#include <QString>

namespace core {

// Where Tarvel keeps what it writes for itself (records, the engines' logs):
// `$XDG_STATE_HOME/tarvel` when that variable is set, the user's log folder otherwise.
QString stateFolder();

}  // namespace core
