#include <algorithm>
#include <chrono>
#include <cmath>
#include <random>
#include <thread>

#include "store/Store.h"

namespace fleet {

namespace {

constexpr double FIRST_SECONDS = 0.2;
constexpr double MOST_SECONDS = 30;
constexpr unsigned int MOST_DOUBLINGS = 10;

}  // namespace

double jitter(unsigned int failures) {
    static thread_local std::mt19937_64 random{std::random_device{}()};
    const unsigned int doublings = std::min(std::max(failures, 1U) - 1, MOST_DOUBLINGS);
    const double most = std::min(std::ldexp(FIRST_SECONDS, static_cast<int>(doublings)), MOST_SECONDS);
    return std::uniform_real_distribution<double>(0, most)(random);
}

void Store::patiently(double seconds, const std::function<void()>& work) {
    using Clock = std::chrono::steady_clock;
    using Seconds = std::chrono::duration<double>;
    const auto begin = Clock::now();
    const std::size_t endpoints = std::max<std::size_t>(access().endpoints.size(), 1);
    for (std::size_t failures = 1;; ++failures) {
        try {
            return work();
        } catch (const StoreFailure& failure) {
            const double left = seconds - Seconds(Clock::now() - begin).count();
            if (failure.trouble != Trouble::UNREACHED || (failures >= endpoints && left <= 0)) {
                throw;
            }
            if (failures >= endpoints) {
                const auto rounds = static_cast<unsigned int>(failures - endpoints + 1);
                std::this_thread::sleep_for(Seconds(std::min(jitter(rounds), left)));
            }
        }
    }
}

}  // namespace fleet
