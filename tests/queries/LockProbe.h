#pragma once

#include <chrono>
#include <future>
#include <mutex>

namespace testing_support {

// Runs `call` on another thread while this thread holds `mutex`, and says whether it returned
// within `patience`. A call that takes the mutex cannot return before it is released; the
// mutex is released before this function returns, so such a call always finishes.
template <class Call>
bool ReturnsWhileLocked(std::mutex& mutex, Call call, std::chrono::milliseconds patience) {
    std::unique_lock<std::mutex> hold(mutex);
    auto done = std::async(std::launch::async, call);
    const bool returned = done.wait_for(patience) == std::future_status::ready;
    hold.unlock();
    done.get();
    return returned;
}

// Long enough for any call that does not wait for the lock.
inline constexpr std::chrono::milliseconds kNoLockPatience{10000};
// Long enough for a call that ignored the lock to have returned.
inline constexpr std::chrono::milliseconds kLockedPatience{200};

}  // namespace testing_support
