#pragma once

#include <QDateTime>
#include <QVariant>

namespace app {

// How long after a DFU request the application pulls itself back to the front. macOS opens a
// file-browser window for a Mac that arrives in DFU mode; without this it would take the focus
// from the technician's batch.
namespace stay_in_front {

inline constexpr qint64 defaultSeconds = 15;

// The stored text as whole seconds: a signed decimal integer ("+" or "-" allowed). Absent, empty
// or not a number reads as the default; a negative number as 0.
qint64 seconds(const QVariant& stored);

// Whether losing the focus at `now` should bring the application back, for a request made at
// `requested` (invalid: never requested, or withdrawn).
bool pullsBack(const QDateTime& requested, const QDateTime& now, qint64 seconds);

}  // namespace stay_in_front
}  // namespace app
