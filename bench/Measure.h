// Times rivals in one run: they take turns, so that what disturbs the machine disturbs each of them alike.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace measure {

struct Rival {
    std::string name;
    std::function<void()> once;
};

// The median of each rival's time for one call, in microseconds, over rounds of `calls` calls.
inline std::vector<double> inTurns(const std::vector<Rival>& rivals, int rounds, int calls) {
    std::vector<std::vector<double>> times(rivals.size());
    for (int round = -1; round < rounds; ++round) {
        for (std::size_t i = 0; i < rivals.size(); ++i) {
            const auto start = std::chrono::steady_clock::now();
            for (int call = 0; call < calls; ++call) {
                rivals[i].once();
            }
            const std::chrono::duration<double, std::micro> taken = std::chrono::steady_clock::now() - start;
            if (round >= 0) {  // the first round warms up
                times[i].push_back(taken.count() / calls);
            }
        }
    }
    std::vector<double> medians;
    for (auto& series : times) {
        std::nth_element(series.begin(), series.begin() + static_cast<long>(series.size() / 2), series.end());
        medians.push_back(series[series.size() / 2]);
    }
    return medians;
}

// A line of the table: the first rival's time, and every other's with its ratio to it ("x 2.0": twice as long).
inline void report(const std::string& work, const std::vector<Rival>& rivals, int rounds, int calls) {
    const std::vector<double> medians = inTurns(rivals, rounds, calls);
    std::printf("%-34s", work.c_str());
    for (std::size_t i = 0; i < rivals.size(); ++i) {
        std::printf("  %s %9.2f us", rivals[i].name.c_str(), medians[i]);
        if (i > 0) {
            std::printf(" (x %5.2f)", medians[i] / medians[0]);
        }
    }
    std::printf("\n");
}

// A folder of its own, removed at the end.
class Scratch {
public:
    Scratch() {
        std::string pattern = (std::filesystem::temp_directory_path() / "genreg-bench-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data());
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_;
};

}  // namespace measure
