#pragma once

#include "hubs/stem/Types.h"

namespace hubs_detail {

// The hub answers NotFound while it is busy with something else; three tries ride that out.
inline constexpr int kTransientAttempts = 3;

// Calls `call` until it answers something other than the transient result, three times at most,
// and answers the last result. `busy` hears each transient answer with its attempt (1 to 3), so
// a port that needed retries can leave a trace.
template <typename Call, typename Busy>
stem::aErr retryTransient(Call&& call, Busy&& busy) {
    stem::aErr err = stem::aErrNotFound;
    for (int attempt = 1; attempt <= kTransientAttempts; ++attempt) {
        err = call();
        if (err != stem::aErrNotFound) break;
        busy(attempt);
    }
    return err;
}

template <typename Call>
stem::aErr retryTransient(Call&& call) {
    return retryTransient(std::forward<Call>(call), [](int) {});
}

}  // namespace hubs_detail
