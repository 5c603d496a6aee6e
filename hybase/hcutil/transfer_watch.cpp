#include "hybase/hcutil/transfer_watch.h"

#include <hyplatform/arch.h>

#include <algorithm>

namespace {

constexpr int64_t kLongestLagMs = 5000;
constexpr int64_t kLongestRoomWaitMs = 1000;
constexpr int64_t kShortestSendMs = 10;
constexpr int64_t kForever = INT64_MAX / 2;

}  // namespace

TransferWatch::TransferWatch(int longest_sec, int least_bytes_per_sec)
    : end_ms_(kForever),
      wait_left_ms_(kForever),
      least_per_sec_(std::max(least_bytes_per_sec, 0)),
      checked_ms_(arch_getSystemStartupMs()) {
    if (longest_sec > 0) end_ms_ = checked_ms_ + int64_t{longest_sec} * 1000;
}

TransferWatch TransferWatch::Sending(const HCNetLimits& limits, int timeout_us) {
    TransferWatch watch(limits.unsent_sec, limits.min_bytes_per_sec);
    if (ForSending(limits)) return watch;
    watch.end_ms_ = watch.checked_ms_ + std::max<int64_t>(timeout_us / 1000, kShortestSendMs);
    watch.wait_left_ms_ = kLongestRoomWaitMs;
    return watch;
}

// A quick start earns nothing: what has come early does not pay for a later pause.
void TransferWatch::Moved(int64_t bytes) {
    LeftMs();
    debt_ = std::max<int64_t>(debt_ - bytes * 1000, 0);
}

int64_t TransferWatch::LeftMs(int64_t waited_ms) {
    const int64_t now = arch_getSystemStartupMs();
    debt_ += (now - checked_ms_) * least_per_sec_;
    checked_ms_ = now;
    wait_left_ms_ -= waited_ms;
    const int64_t lag_ms = least_per_sec_ > 0 ? debt_ / least_per_sec_ : 0;
    const int64_t left = std::min({end_ms_ - now, wait_left_ms_, kLongestLagMs - lag_ms});
    return std::max<int64_t>(left, 0);
}
