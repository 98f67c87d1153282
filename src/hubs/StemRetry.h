#pragma once

#include "hubs/stem/Types.h"

namespace hubs_detail {

// The hub answers NotFound while it is busy with something else; three tries ride that out.
inline constexpr int kTransientAttempts = 3;

// Calls `call` until it answers something other than the transient result, three times at most,
// and answers the last result.
template <typename Call>
stem::aErr retryTransient(Call&& call) {
    stem::aErr err = stem::aErrNotFound;
    for (int attempt = 0; attempt < kTransientAttempts; ++attempt) {
        err = call();
        if (err != stem::aErrNotFound) break;
    }
    return err;
}

}  // namespace hubs_detail
